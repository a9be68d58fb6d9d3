// A file that is read at any place, without holding more of it than was asked for.
#ifndef VORN_KIT_TENSOR_INPUT_FILE_H_
#define VORN_KIT_TENSOR_INPUT_FILE_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "kit/common/owned_file.h"

namespace vorn::kit {

/// Every fault is a Fault of kInput that says what the file is for and its path.
class InputFile {
 public:
  /// `what` as in "the array". Refuses what is no regular file.
  InputFile(std::string path, std::string what);
  ~InputFile();
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  [[nodiscard]] uint64_t Bytes() const { return bytes_; }

  /// Fills the whole room, or throws where the file ends before: it was cut off meanwhile.
  void ReadAt(uint64_t offset, std::span<std::byte> room) const;

  /// The whole file, mapped at the first call and as long as this lives.
  [[nodiscard]] std::span<const std::byte> Map();

  [[noreturn]] void Refuse(const std::string& reason) const;

 private:
  std::string path_;
  std::string what_;
  OwnedFile file_;
  uint64_t bytes_ = 0;
  void* mapping_ = nullptr;
};

}  // namespace vorn::kit

#endif  // VORN_KIT_TENSOR_INPUT_FILE_H_
