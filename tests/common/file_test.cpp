#include "common/file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

namespace {

class FileTest : public testing::Test {
 protected:
  void SetUp() override {
    folder = std::filesystem::path(testing::TempDir()) / ("file_test." + std::to_string(getpid()));
    std::filesystem::create_directory(folder);
  }
  void TearDown() override { std::filesystem::remove_all(folder); }

  std::string Path(const std::string& name) const { return folder / name; }

  std::filesystem::path folder;
};

TEST_F(FileTest, ReadsFromAnOffsetUpToTheEnd) {
  std::ofstream(Path("a")) << "0123456789";
  const FileDescriptor file = OpenForReading(Path("a"));
  ASSERT_TRUE(file.IsOpen());
  EXPECT_EQ(SeekEnd(file), 10);
  char data[8] = {};
  EXPECT_EQ(ReadFullyAt(file.Get(), data, 4, 2), 4U);
  EXPECT_EQ(std::string(data, 4), "2345");
  EXPECT_EQ(ReadFullyAt(file.Get(), data, 8, 7), 3U);
  EXPECT_EQ(ReadFullyAt(file.Get(), data, 8, 10), 0U);
  EXPECT_EQ(ReadFullyAt(file.Get(), data, 8, ~uint64_t{0} - 100), 0U);
}

TEST_F(FileTest, WritingEmptiesTheFile) {
  std::ofstream(Path("a")) << "a long content";
  {
    const FileDescriptor file = OpenForWriting(Path("a"));
    WriteFully(file.Get(), "new", 3);
  }
  std::ifstream reader(Path("a"));
  std::string content;
  std::getline(reader, content);
  EXPECT_EQ(content, "new");
}

TEST_F(FileTest, WritesEverythingIntoANonBlockingPipe) {
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
  const FileDescriptor readEnd(ends[0]);
  const FileDescriptor writeEnd(ends[1]);
  const std::string sent(1 << 20, 'x');  // far more than a pipe holds
  const pid_t child = fork();
  if (child == 0) {
    WriteFully(writeEnd.Get(), sent.data(), sent.size());
    _exit(0);
  }
  size_t received = 0;
  char piece[4096];
  while (received < sent.size()) {
    const ssize_t got = read(readEnd.Get(), piece, sizeof(piece));
    if (got > 0) received += static_cast<size_t>(got);
  }
  EXPECT_EQ(received, sent.size());
}

TEST_F(FileTest, OpensAFifoWithoutAWriter) {
  ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0600), 0);
  const FileDescriptor fifo = OpenForReading(Path("fifo"));
  EXPECT_TRUE(fifo.IsOpen());
  EXPECT_EQ(SeekEnd(fifo), -1);
}

TEST_F(FileTest, CheckPathIsFileFollowsLinksToRegularFiles) {
  std::ofstream(Path("a")) << "x";
  std::filesystem::create_symlink(Path("a"), Path("link"));
  EXPECT_EQ(CheckPathIsFile(Path("a")), 0);
  EXPECT_EQ(CheckPathIsFile(Path("link")), 0);
}

TEST_F(FileTest, CheckPathIsFileSaysWhatIsWrong) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(CheckPathIsFile(Path("missing")), 1);
  EXPECT_EQ(CheckPathIsFile(folder), 1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "[ERROR] failed to get file " + Path("missing") + "\n[ERROR] " + folder.string() +
                " is not a file, please enter a file\n");
}

}  // namespace
