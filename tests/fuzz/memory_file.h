// A file in memory, for readers that take a path.
#ifndef VORN_TESTS_FUZZ_MEMORY_FILE_H_
#define VORN_TESTS_FUZZ_MEMORY_FILE_H_

#include <sys/mman.h>
#include <unistd.h>

#include <stdexcept>
#include <string>
#include <string_view>

namespace fuzz {

class MemoryFile {
 public:
  explicit MemoryFile(std::string_view bytes) : fd_(memfd_create("fuzz", MFD_CLOEXEC)) {
    if (fd_ < 0 || write(fd_, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
      throw std::runtime_error("a file in memory cannot be made");
    }
  }
  ~MemoryFile() { close(fd_); }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;

  [[nodiscard]] std::string Path() const { return "/proc/self/fd/" + std::to_string(fd_); }

 private:
  int fd_;
};

}  // namespace fuzz

#endif  // VORN_TESTS_FUZZ_MEMORY_FILE_H_
