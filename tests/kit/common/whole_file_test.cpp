#include "kit/common/whole_file.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <filesystem>
#include <memory>
#include <thread>

#include "kit/common/fault.h"
#include "support/files.h"

namespace {

using testing::ElementsAre;
using testing::Pair;
using vorn::kit::LineFile;
using vorn::kit::WriteWholeFile;

class WholeFile : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return (folder_.Path() / name).string(); }

  support::TempDir folder_;
};

TEST_F(WholeFile, ReplacesWhatWasThereAndLeavesNothingElse) {
  WriteWholeFile(Path("file"), "one");
  WriteWholeFile(Path("file"), std::string("t\0wo", 4));
  EXPECT_THAT(support::ReadTree(folder_.Path()),
              ElementsAre(Pair("file", std::string("t\0wo", 4))));
}

TEST_F(WholeFile, NamesAFileThatItCannotWrite) {
  try {
    WriteWholeFile(Path("no/file"), "one");
    FAIL();
  } catch (const vorn::kit::Fault& fault) {
    EXPECT_EQ(fault.Status(), vorn::kit::ExitStatus::kLimit);
    EXPECT_EQ(fault.what(), "cannot write '" + Path("no/file") + "': No such file or directory");
  }
}

TEST_F(WholeFile, LeavesTheOldFileWhereTheNewOneCannotTakeItsPlace) {
  support::WriteFile(Path("folder/in"), "one");
  EXPECT_THROW(WriteWholeFile(Path("folder"), "two"), vorn::kit::Fault);
  EXPECT_THAT(support::ReadTree(folder_.Path()), ElementsAre(Pair("folder/in", "one")));
}

TEST_F(WholeFile, TakesTheFileThatALinkLeadsTo) {
  support::WriteFile(Path("file"), "one");
  ASSERT_EQ(symlink("file", Path("link").c_str()), 0);
  WriteWholeFile(Path("link"), "two");
  EXPECT_EQ(support::ReadFile(Path("file")), "two");
  EXPECT_TRUE(std::filesystem::is_symlink(Path("link")));
}

TEST_F(WholeFile, WritesToWhatIsNoRegularFileAsItIs) {
  ASSERT_EQ(mkfifo(Path("pipe").c_str(), 0600), 0);
  const int reader = open(Path("pipe").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  WriteWholeFile(Path("pipe"), "one");
  std::array<char, 8> got{};
  EXPECT_EQ(read(reader, got.data(), got.size()), 3);
  close(reader);
  EXPECT_TRUE(std::filesystem::is_fifo(Path("pipe")));
}

volatile std::sig_atomic_t interruptions = 0;

// A pipe that is full: nothing is written before a signal comes, nor before the next.
TEST_F(WholeFile, GoesOnAfterSignals) {
  ASSERT_EQ(mkfifo(Path("pipe").c_str(), 0600), 0);
  struct sigaction before {};
  struct sigaction counting {};
  counting.sa_handler = [](int) { interruptions = interruptions + 1; };
  sigaction(SIGALRM, &counting, &before);
  const std::string bytes = support::CountingBytes(3 << 20);
  std::string got;
  std::thread reader([&] {
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    pthread_sigmask(SIG_BLOCK, &alarm, nullptr);
    const int fd = open(Path("pipe").c_str(), O_RDONLY | O_CLOEXEC);
    while (interruptions < 5) usleep(1000);
    std::array<char, 65536> piece{};
    for (ssize_t size = 0; (size = read(fd, piece.data(), piece.size())) > 0;) {
      got.append(piece.data(), static_cast<size_t>(size));
    }
    close(fd);
  });
  // Opened without signals, which would interrupt that, too.
  auto file = std::make_unique<vorn::kit::WholeFile>(Path("pipe"));
  const itimerval often{.it_interval = {0, 2000}, .it_value = {0, 2000}};
  const itimerval never{};
  setitimer(ITIMER_REAL, &often, nullptr);
  std::string fault;
  try {
    file->Append(bytes);
    file->Finish();
  } catch (const vorn::kit::Fault& refusal) {
    fault = refusal.what();
    interruptions = 5;
  }
  setitimer(ITIMER_REAL, &never, nullptr);
  file.reset();  // the reader comes to an end
  reader.join();
  sigaction(SIGALRM, &before, nullptr);
  EXPECT_EQ(fault, "");
  EXPECT_EQ(got.size(), bytes.size());
  EXPECT_TRUE(got == bytes);
}

TEST_F(WholeFile, AppendsLines) {
  {
    LineFile file(Path("lines"));
    file.Append("one\n");
    file.Append("two\nthree\n");
    file.Sync();
  }
  LineFile file(Path("lines"));
  LineFile other = std::move(file);
  other.Append("four\n");
  EXPECT_EQ(support::ReadFile(Path("lines")), "one\ntwo\nthree\nfour\n");
}

TEST_F(WholeFile, CutsOffALineWithoutItsEnd) {
  const std::string whole = "one\n" + std::string(10000, 'x') + "\n";
  for (const size_t torn : {0U, 1U, 4095U, 4096U, 4097U, 9000U}) {
    support::WriteFile(Path("lines"), whole + std::string(torn, 'y'));
    LineFile(Path("lines")).Append("two\n");
    EXPECT_EQ(support::ReadFile(Path("lines")), whole + "two\n") << torn;
  }
  support::WriteFile(Path("lines"), std::string(5000, 'y'));
  LineFile(Path("lines")).Append("two\n");
  EXPECT_EQ(support::ReadFile(Path("lines")), "two\n");
}

TEST_F(WholeFile, NamesLinesThatItCannotWrite) {
  EXPECT_THROW(LineFile(Path("no/lines")), vorn::kit::Fault);
  if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "there is no /dev/full";
  const std::string full = Path("full");
  ASSERT_EQ(symlink("/dev/full", full.c_str()), 0);
  try {
    LineFile(full).Append("x\n");
    FAIL();
  } catch (const vorn::kit::Fault& fault) {
    EXPECT_EQ(fault.Status(), vorn::kit::ExitStatus::kLimit);
  }
}

}  // namespace
