#include "common/file.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <thread>
#include <vector>

#include "support/files.h"

namespace vorn::run {
namespace {

// What one call comes to: an error, or at most so many bytes of what it is asked for.
struct Answer {
  int error = 0;
  size_t atMost = SIZE_MAX;
};

constexpr Answer kWhole{};

// While one is there, calls come to its answers in turn; behind them every call is refused, and one
// that is repeated without end ends the process.
class Script {
 public:
  explicit Script(std::deque<Answer> answers) : answers_(std::move(answers)) { current = this; }
  ~Script() { current = nullptr; }
  Script(const Script&) = delete;
  Script& operator=(const Script&) = delete;

  Answer Next() {
    if (++calls > 100) std::abort();
    if (answers_.empty()) return {.error = EIO};
    const Answer answer = answers_.front();
    answers_.pop_front();
    return answer;
  }

  static inline Script* current = nullptr;
  int calls = 0;              // of pread and write
  std::vector<pollfd> waits;  // that poll was called with, one file at a time
  std::vector<int> timeouts;  // of those, ms

 private:
  std::deque<Answer> answers_;
};

}  // namespace

// The program is linked with --wrap for these: what the system does at a moment that nobody can
// choose, a test chooses here.
ssize_t RealPread(int fd, void* data, size_t size, off_t offset) asm("__real_pread");
ssize_t RealWrite(int fd, const void* data, size_t size) asm("__real_write");
int RealPoll(pollfd* files, nfds_t count, int timeout) asm("__real_poll");
ssize_t ScriptedPread(int fd, void* data, size_t size, off_t offset) asm("__wrap_pread");
ssize_t ScriptedWrite(int fd, const void* data, size_t size) asm("__wrap_write");
int ScriptedPoll(pollfd* files, nfds_t count, int timeout) asm("__wrap_poll");

ssize_t ScriptedPread(int fd, void* data, size_t size, off_t offset) {
  if (Script::current == nullptr) return RealPread(fd, data, size, offset);
  const Answer answer = Script::current->Next();
  if (answer.error == 0) return RealPread(fd, data, std::min(size, answer.atMost), offset);
  errno = answer.error;
  return -1;
}

ssize_t ScriptedWrite(int fd, const void* data, size_t size) {
  if (Script::current == nullptr) return RealWrite(fd, data, size);
  const Answer answer = Script::current->Next();
  if (answer.error == 0) return RealWrite(fd, data, std::min(size, answer.atMost));
  errno = answer.error;
  return -1;
}

int ScriptedPoll(pollfd* files, nfds_t count, int timeout) {
  if (Script::current == nullptr) return RealPoll(files, count, timeout);
  EXPECT_EQ(count, 1U);
  Script::current->waits.push_back(files[0]);
  Script::current->timeouts.push_back(timeout);
  return 1;
}

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

TEST_F(FileTest, ReadsOnAfterInterruptionsAndShortReadings) {
  std::ofstream(Path("a")) << "0123456789";
  const FileDescriptor file = OpenForReading(Path("a"));
  Script script({{EINTR}, {0, 3}, {EINTR}, {EINTR}, {0, 1}, kWhole});
  char data[8] = {};
  EXPECT_EQ(ReadFullyAt(file.Get(), data, 8, 1), 8U);
  EXPECT_EQ(std::string(data, 8), "12345678");
  EXPECT_EQ(script.calls, 6);
}

TEST_F(FileTest, ReadsNoFurtherThanAFailureOrTheEnd) {
  std::ofstream(Path("a")) << "0123456789";
  const FileDescriptor file = OpenForReading(Path("a"));
  char data[8] = {};
  {
    Script script({{0, 3}, {EIO}, kWhole});
    EXPECT_EQ(ReadFullyAt(file.Get(), data, 8, 0), 3U);
    EXPECT_EQ(script.calls, 2);
  }
  Script script({kWhole, kWhole, kWhole});
  errno = EINTR;  // of an earlier call: one that succeeds leaves it
  EXPECT_EQ(ReadFullyAt(file.Get(), data, 8, 8), 2U);
  EXPECT_EQ(std::string(data, 2), "89");
  EXPECT_EQ(script.calls, 2);
}

TEST_F(FileTest, WritesOnAfterInterruptionsAndShortWritings) {
  const FileDescriptor file = OpenForWriting(Path("a"));
  {
    Script script({{EINTR}, {0, 3}, {EINTR}, {0, 1}, kWhole});
    errno = EINTR;
    WriteFully(file.Get(), "0123456789", 10);
    EXPECT_EQ(script.calls, 5);
    EXPECT_TRUE(script.waits.empty());
  }
  EXPECT_EQ(support::ReadFile(Path("a")), "0123456789");
}

// A wait for nothing else, and for as long as it takes: no processor is kept busy by a slow reader.
TEST_F(FileTest, WaitsUntilAFileThatIsFullTakesMore) {
  const FileDescriptor file = OpenForWriting(Path("a"));
  {
    Script script({{0, 4}, {EAGAIN}, {0, 1}, {EAGAIN}, kWhole});
    errno = EAGAIN;
    WriteFully(file.Get(), "0123456789", 10);
    EXPECT_EQ(script.calls, 5);
    ASSERT_EQ(script.waits.size(), 2U);
    for (const pollfd& wait : script.waits) {
      EXPECT_EQ(wait.fd, file.Get());
      EXPECT_EQ(wait.events, POLLOUT);
    }
    EXPECT_EQ(script.timeouts, (std::vector<int>{-1, -1}));
  }
  EXPECT_EQ(support::ReadFile(Path("a")), "0123456789");
}

TEST_F(FileTest, GivesUpWritingWhereTheSystemDoes) {
  for (const Answer end : {Answer{ENOSPC}, Answer{EIO}, Answer{0, 0}}) {
    for (const int earlier : {0, EINTR, EAGAIN}) {
      const FileDescriptor file = OpenForWriting(Path("a"));
      Script script({{0, 4}, end, kWhole, kWhole});
      errno = earlier;  // what succeeds or writes nothing leaves it
      WriteFully(file.Get(), "0123456789", 10);
      EXPECT_EQ(script.calls, 2) << end.error << " after " << earlier;
      EXPECT_TRUE(script.waits.empty());
      EXPECT_EQ(support::ReadFile(Path("a")), "0123");
    }
  }
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
