#include "kit/common/whole_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <utility>

#include "kit/common/fault.h"
#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

[[noreturn]] void RefuseFile(const std::string& path, const char* what, int error) {
  throw Fault(ExitStatus::kLimit,
              std::string("cannot ") + what + " '" + Printable(path) + "': " + SystemReason(error));
}

// Returns an errno, 0 for all written.
int WriteBytes(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t put = write(fd, bytes.data(), bytes.size());
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) return errno;
    bytes.remove_prefix(static_cast<size_t>(put));
  }
  return 0;
}

// Where the last line that has an end stops.
std::optional<off_t> EndOfLines(int fd, off_t size) {
  std::array<char, 4096> piece{};
  while (size > 0) {
    const off_t start = size > static_cast<off_t>(piece.size())
                            ? size - static_cast<off_t>(piece.size())
                            : off_t{0};
    const auto wanted = static_cast<ssize_t>(size - start);
    ssize_t got = -1;
    do {
      got = pread(fd, piece.data(), static_cast<size_t>(wanted), start);
    } while (got < 0 && errno == EINTR);
    // What cannot be read is not to be taken for lines that were not finished, and cut off.
    if (got != wanted) {
      if (got >= 0) errno = EIO;
      return std::nullopt;
    }
    for (ssize_t at = got; at > 0; --at) {
      if (piece[static_cast<size_t>(at - 1)] == '\n') return start + at;
    }
    size = start;
  }
  return 0;
}

}  // namespace

OwnedFile OpenUnfinished(const std::string& path) {
  constexpr int kFlags = O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;
  int fd = open(path.c_str(), kFlags, 0666);
  if (fd < 0 && errno == EEXIST && unlink(path.c_str()) == 0) fd = open(path.c_str(), kFlags, 0666);
  return OwnedFile(fd);
}

WholeFile::WholeFile(std::string path) : path_(std::move(path)) {
  struct stat about {};
  if (stat(path_.c_str(), &about) == 0) {
    isWrittenInPlace_ = !S_ISREG(about.st_mode);
    std::array<char, PATH_MAX> meant{};
    if (realpath(path_.c_str(), meant.data()) != nullptr) path_ = meant.data();
  }
  if (isWrittenInPlace_) {
    file_ = OwnedFile(open(path_.c_str(), O_WRONLY | O_CLOEXEC));
    if (!file_.IsOpen()) Refuse(errno);
    return;
  }
  part_ = path_ + "." + std::to_string(getpid()) + std::string(kUnfinishedSuffix);
  file_ = OpenUnfinished(part_);
  if (!file_.IsOpen()) Refuse(errno);
}

WholeFile::~WholeFile() {
  if (file_.IsOpen() && !isWrittenInPlace_) unlink(part_.c_str());
}

void WholeFile::Refuse(int error) const { RefuseFile(path_, "write", error); }

void WholeFile::Append(std::string_view bytes) {
  constexpr size_t kAtOnce = 65536;
  waiting_ += bytes;
  if (waiting_.size() >= kAtOnce) Flush();
}

void WholeFile::Flush() {
  const int error = WriteBytes(file_.Get(), waiting_);
  if (error != 0) Refuse(error);
  waiting_.clear();
}

void WholeFile::Finish() {
  Flush();
  if (isWrittenInPlace_) {
    file_.Close();
    return;
  }
  // A file system that cannot sync has written all the same.
  if (fsync(file_.Get()) != 0 && errno != EINVAL && errno != ENOSYS) Refuse(errno);
  if (std::rename(part_.c_str(), path_.c_str()) != 0) Refuse(errno);
  file_.Close();
}

void WriteWholeFile(const std::string& path, std::string_view bytes) {
  WholeFile file(path);
  file.Append(bytes);
  file.Finish();
}

LineFile::LineFile(const std::string& path) : path_(path) {
  file_ = OwnedFile(open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
  if (!file_.IsOpen()) RefuseFile(path, "write", errno);
  struct stat about {};
  if (fstat(file_.Get(), &about) == 0) {
    const auto end = EndOfLines(file_.Get(), about.st_size);
    if (end && ftruncate(file_.Get(), *end) == 0) return;
  }
  RefuseFile(path, "write", errno);
}

void LineFile::Append(std::string_view lines) {
  const int error = WriteBytes(file_.Get(), lines);
  if (error != 0) RefuseFile(path_, "write", error);
}

void LineFile::Sync() {
  if (fdatasync(file_.Get()) != 0 && errno != EINVAL && errno != ENOSYS)
    RefuseFile(path_, "sync", errno);
}

}  // namespace vorn::kit
