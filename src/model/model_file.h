// The model file: its length, and its bytes in runtime memory. Lengths are carried in 32 bits, so a
// file of exactly 4 GiB counts as empty.
#ifndef VORN_SRC_MODEL_MODEL_FILE_H_
#define VORN_SRC_MODEL_MODEL_FILE_H_

#include <cstdint>
#include <string>

namespace vorn::run {

/// Reads a regular file into a new block of its length. Returns the block, which the caller returns
/// with `vorn_rt_free`, and sets `size`; or prints the cause and returns null. What a file that
/// shrinks in the meantime does not fill is zero.
[[nodiscard]] void* ReadBinFile(const std::string& path, uint32_t& size);

/// Sets `size` to the length of whatever can be opened at `path`. Returns 1 with a message when
/// nothing can, or when the length is 0.
[[nodiscard]] int GetFileSize(const std::string& path, uint32_t& size);

}  // namespace vorn::run

#endif  // VORN_SRC_MODEL_MODEL_FILE_H_
