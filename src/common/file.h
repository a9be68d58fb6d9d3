// Files by descriptor: an owner for the descriptor, whole reads and writes.
#ifndef VORN_SRC_COMMON_FILE_H_
#define VORN_SRC_COMMON_FILE_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

namespace vorn::run {

/// Owns one file descriptor; closed by `close` on destruction. -1 is "not open".
class FileDescriptor {
 public:
  explicit FileDescriptor(int fd = -1) : fd_(fd) {}
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~FileDescriptor();

  [[nodiscard]] bool IsOpen() const { return fd_ >= 0; }
  [[nodiscard]] int Get() const { return fd_; }

 private:
  int fd_;
};

/// Opens for reading. Never waits for a writer, so a FIFO opens at once (and holds nothing).
[[nodiscard]] FileDescriptor OpenForReading(const std::string& path);

/// Opens for writing from the start; creates the file with mode 0666 or empties an existing one.
[[nodiscard]] FileDescriptor OpenForWriting(const std::string& path);

/// The position of the end, -1 where the file has none.
[[nodiscard]] int64_t SeekEnd(const FileDescriptor& file);

/// Reads up to `size` bytes from `offset` on; returns the bytes read, fewer only at the end of the
/// file or on an error.
[[nodiscard]] size_t ReadFullyAt(int fd, void* data, size_t size, uint64_t offset);

/// Writes all `size` bytes unless an error stops it, which is ignored.
void WriteFully(int fd, const void* data, size_t size);

}  // namespace vorn::run

#endif  // VORN_SRC_COMMON_FILE_H_
