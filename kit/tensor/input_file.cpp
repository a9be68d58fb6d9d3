#include "kit/tensor/input_file.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "kit/common/fault.h"
#include "kit/common/printable.h"

namespace vorn::kit {

InputFile::InputFile(std::string path, std::string what)
    : path_(std::move(path)), what_(std::move(what)) {
  // Without O_NONBLOCK a pipe without a writer would be waited for.
  file_ = OwnedFile(open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file_.IsOpen()) Refuse("cannot be opened: " + SystemReason(errno));
  struct stat about {};
  if (fstat(file_.Get(), &about) != 0 || !S_ISREG(about.st_mode)) {
    Refuse(S_ISDIR(about.st_mode) ? "is a folder, and a file is needed" : "is no regular file");
  }
  bytes_ = static_cast<uint64_t>(about.st_size);
}

InputFile::~InputFile() {
  if (mapping_ != nullptr) munmap(mapping_, bytes_);
}

void InputFile::ReadAt(uint64_t offset, std::span<std::byte> room) const {
  while (!room.empty()) {
    const ssize_t got = pread(file_.Get(), room.data(), room.size(), static_cast<off_t>(offset));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) Refuse("cannot be read: " + SystemReason(errno));
    if (got == 0) Refuse("became shorter while it was read");
    offset += static_cast<uint64_t>(got);
    room = room.subspan(static_cast<size_t>(got));
  }
}

std::span<const std::byte> InputFile::Map() {
  if (mapping_ == nullptr && bytes_ > 0) {
    void* mapping = mmap(nullptr, bytes_, PROT_READ, MAP_PRIVATE, file_.Get(), 0);
    if (mapping == MAP_FAILED) Refuse("cannot be mapped: " + SystemReason(errno));
    mapping_ = mapping;
  }
  return {static_cast<const std::byte*>(mapping_), mapping_ == nullptr ? 0 : bytes_};
}

void InputFile::Refuse(const std::string& reason) const {
  throw Fault(ExitStatus::kInput, what_ + " '" + Printable(path_) + "' " + reason);
}

}  // namespace vorn::kit
