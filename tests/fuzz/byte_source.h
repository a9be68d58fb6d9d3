// Values taken one after the other out of a fuzzer's bytes. Behind the end everything is 0, so that
// each prefix of an input means something.
#ifndef VORN_TESTS_FUZZ_BYTE_SOURCE_H_
#define VORN_TESTS_FUZZ_BYTE_SOURCE_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <span>
#include <string>

namespace fuzz {

class ByteSource {
 public:
  explicit ByteSource(std::span<const uint8_t> bytes) : left_(bytes) {}

  uint8_t TakeByte() {
    if (left_.empty()) return 0;
    const uint8_t byte = left_.front();
    left_ = left_.subspan(1);
    return byte;
  }

  /// Little-endian, of `size` bytes.
  uint64_t TakeNumber(size_t size) {
    uint64_t number = 0;
    for (size_t i = 0; i < size; ++i) number |= uint64_t{TakeByte()} << (8 * i);
    return number;
  }

  /// One of `bound` values, at most 256.
  uint64_t TakeBelow(uint64_t bound) { return TakeByte() % bound; }

  /// True for one byte in `rarity`, not for 0.
  bool TakeRarely(unsigned rarity) { return TakeByte() % rarity == rarity - 1; }

  template <typename T>
  T Pick(std::initializer_list<T> choices) {
    return choices.begin()[TakeBelow(choices.size())];
  }

  /// At most `limit` bytes, 255 at the most, behind a byte with their count.
  std::string TakeText(size_t limit) { return TakeBytes(TakeBelow(limit + 1)); }

  std::string TakeRest() { return TakeBytes(left_.size()); }

 private:
  std::string TakeBytes(size_t wanted) {
    const size_t size = std::min(wanted, left_.size());
    std::string text(left_.begin(), left_.begin() + static_cast<std::ptrdiff_t>(size));
    left_ = left_.subspan(size);
    return text;
  }

  std::span<const uint8_t> left_;
};

}  // namespace fuzz

#endif  // VORN_TESTS_FUZZ_BYTE_SOURCE_H_
