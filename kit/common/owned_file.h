// A file descriptor with one owner.
#ifndef VORN_KIT_COMMON_OWNED_FILE_H_
#define VORN_KIT_COMMON_OWNED_FILE_H_

#include <unistd.h>

#include <utility>

namespace vorn::kit {

/// Move-only; released by close. A negative number, as open returns it on failure, is no file.
class OwnedFile {
 public:
  explicit OwnedFile(int fd = -1) : fd_(fd) {}
  ~OwnedFile() { Close(); }
  OwnedFile(const OwnedFile&) = delete;
  OwnedFile& operator=(const OwnedFile&) = delete;
  OwnedFile(OwnedFile&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  OwnedFile& operator=(OwnedFile&& other) noexcept {
    if (this == &other) return *this;
    Close();
    fd_ = std::exchange(other.fd_, -1);
    return *this;
  }

  [[nodiscard]] int Get() const { return fd_; }
  [[nodiscard]] bool IsOpen() const { return fd_ >= 0; }

  /// False, with errno set, where only now it shows that not all of it could be written.
  bool Close() { return fd_ < 0 || close(std::exchange(fd_, -1)) == 0; }

 private:
  int fd_;
};

}  // namespace vorn::kit

#endif  // VORN_KIT_COMMON_OWNED_FILE_H_
