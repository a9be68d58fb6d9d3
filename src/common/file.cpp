// System calls on files, repeated where they were interrupted or cut short.
#include "common/file.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>

namespace vorn::run {
namespace {

// A standard output that somebody made non-blocking must not lose lines.
void WaitUntilWritable(int fd) {
  pollfd waiting{fd, POLLOUT, 0};
  poll(&waiting, 1, -1);
}

}  // namespace

FileDescriptor::~FileDescriptor() {
  if (fd_ >= 0) close(fd_);
}

FileDescriptor OpenForReading(const std::string& path) {
  return FileDescriptor(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
}

FileDescriptor OpenForWriting(const std::string& path) {
  return FileDescriptor(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
}

int64_t SeekEnd(const FileDescriptor& file) { return lseek(file.Get(), 0, SEEK_END); }

size_t ReadFullyAt(int fd, void* data, size_t size, uint64_t offset) {
  size_t done = 0;
  while (done < size) {
    // An offset too large for a file is negative here, which the system refuses.
    const ssize_t got =
        pread(fd, static_cast<char*>(data) + done, size - done, static_cast<off_t>(offset + done));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    done += static_cast<size_t>(got);
  }
  return done;
}

void WriteFully(int fd, const void* data, size_t size) {
  const char* next = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t put = write(fd, next, size);
    if (put < 0 && errno == EINTR) continue;
    if (put < 0 && errno == EAGAIN) {
      WaitUntilWritable(fd);
      continue;
    }
    if (put <= 0) return;
    next += put;
    size -= static_cast<size_t>(put);
  }
}

}  // namespace vorn::run
