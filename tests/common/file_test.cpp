#include "common/file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <thread>

#include "support/files.h"

namespace vorn::run {
namespace {

class FileTest : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder_.Path() / name; }

 private:
  support::TempDir folder_;
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

// Puts `extra` bytes more than it holds into a pipe whose writing end does not block, and takes
// nothing out until it is full.
void ExpectAllThroughAFullPipe(size_t extra) {
  int ends[2];
  EXPECT_EQ(pipe(ends), 0);
  const FileDescriptor readEnd(ends[0]);
  EXPECT_EQ(fcntl(ends[1], F_SETFL, O_NONBLOCK), 0);
  const int holds = fcntl(ends[1], F_GETPIPE_SZ);
  std::string sent;
  for (size_t i = 0; i < static_cast<size_t>(holds) + extra; ++i) {
    sent += static_cast<char>('a' + i % 23);  // in no step with the system's pages
  }
  std::thread writer([fd = ends[1], &sent] {
    WriteFully(fd, sent.data(), sent.size());
    close(fd);
  });
  int held = 0;
  while (held < holds && ioctl(readEnd.Get(), FIONREAD, &held) == 0) std::this_thread::yield();
  std::string received;
  char piece[4096];
  ssize_t got = 0;
  while ((got = read(readEnd.Get(), piece, sizeof piece)) > 0) {
    received.append(piece, static_cast<size_t>(got));
  }
  writer.join();
  EXPECT_EQ(received.size(), sent.size());
  EXPECT_TRUE(received == sent);
}

TEST_F(FileTest, WritesEverythingIntoANonBlockingPipe) { ExpectAllThroughAFullPipe(1 << 20); }

TEST_F(FileTest, WritesTheOneByteThatDidNotFitAtFirst) { ExpectAllThroughAFullPipe(1); }

// In a process of its own, where the lowest number is free.
TEST_F(FileTest, OwnsTheLowestDescriptorLikeAnyOther) {
  const auto own = [] {
    close(0);
    bool wasOpen = false;
    {
      const FileDescriptor file(open("/dev/null", O_RDONLY));
      wasOpen = file.Get() == 0 && file.IsOpen();
    }
    const bool isClosed = fcntl(0, F_GETFD) == -1;
    _exit(wasOpen && isClosed ? 0 : 1);
  };
  EXPECT_EXIT(own(), testing::ExitedWithCode(0), "");
}

TEST_F(FileTest, OpensAFifoWithoutAWriter) {
  ASSERT_EQ(mkfifo(Path("fifo").c_str(), 0600), 0);
  const FileDescriptor fifo = OpenForReading(Path("fifo"));
  EXPECT_TRUE(fifo.IsOpen());
  EXPECT_EQ(SeekEnd(fifo), -1);
}

}  // namespace
}  // namespace vorn::run
