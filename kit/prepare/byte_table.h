// Elements of a tensor looked up by bytes: what recipes compute of a pixel, they compute once for
// each of the 256 values that it may have.
#ifndef VORN_KIT_PREPARE_BYTE_TABLE_H_
#define VORN_KIT_PREPARE_BYTE_TABLE_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace vorn::kit {

inline constexpr size_t kByteValues = 256;

/// Bytes of a row, and the elements that they become.
struct ByteRow {
  const uint8_t* from = nullptr;
  size_t fromStep = 1;  ///< bytes from one to the next
  size_t count = 0;
  std::byte* to = nullptr;
  size_t toStep = 1;  ///< elements from one to the next
};

class ByteTable {
 public:
  /// The elements of the values 0 to 255, each of 1, 2, 4 or 8 bytes.
  ByteTable(size_t elementBytes, std::span<const std::byte> elements);

  /// By the best instructions of this processor.
  void LookUp(const ByteRow& row) const;

  /// By those that every processor has; the elements are the same.
  void LookUpAnywhere(const ByteRow& row) const;

  /// `count` elements of that value, `toStep` elements from one to the next.
  void Fill(uint8_t value, size_t count, std::byte* to, size_t toStep) const;

 private:
  size_t elementBytes_;
  alignas(64) std::array<std::byte, kByteValues * sizeof(uint64_t)> elements_{};
  /// Of elements of 4 bytes the lowest bytes, the next ones, and so on.
  alignas(64) std::array<std::array<uint8_t, kByteValues>, 4> bytes_{};
};

}  // namespace vorn::kit

#endif  // VORN_KIT_PREPARE_BYTE_TABLE_H_
