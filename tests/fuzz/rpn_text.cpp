// Width, stride and size of a block, then a text of thresholds.
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "fuzz/byte_source.h"
#include "fuzz/property.h"
#include "fuzz/targets.h"
#include "model/rpn_file.h"
#include "model/rpn_layout.h"

namespace fuzz {
namespace {

namespace run = vorn::run;

bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Reads floats out of a text character by character, as formatted extraction in the "C" locale does
// it: first the longest run of characters that could belong to a number, then their value.
class FloatReader {
 public:
  explicit FloatReader(const std::string& text) : text_(text) {}

  [[nodiscard]] bool AtEnd() const { return atEnd_; }
  [[nodiscard]] bool Failed() const { return failed_; }

  // Leaves `value` alone where nothing but blanks is left.
  void Read(float& value) {
    while (Has() && IsSpace(text_[at_])) ++at_;
    if (!Has()) {
      atEnd_ = failed_ = true;
      return;
    }
    Convert(TakeNumberText(), value);
    atEnd_ = !Has();
  }

 private:
  [[nodiscard]] bool Has() const { return at_ < text_.size(); }
  [[nodiscard]] bool HasSign() const { return Has() && (text_[at_] == '+' || text_[at_] == '-'); }

  std::string TakeNumberText() {
    std::string number;
    bool digits = false;
    bool point = false;
    bool exponent = false;
    if (HasSign()) number += text_[at_++];
    for (; Has(); ++at_) {
      const char c = text_[at_];
      if (IsDigit(c)) {
        digits = true;
      } else if (c == '.' && !point && !exponent) {
        point = true;
      } else if ((c == 'e' || c == 'E') && digits && !exponent) {
        exponent = true;
        number += c;
        ++at_;
        if (!HasSign()) {
          --at_;
          continue;
        }
        number += text_[at_];
        continue;
      } else {
        break;
      }
      number += c;
    }
    return number;
  }

  void Convert(const std::string& number, float& value) {
    char* end = nullptr;
    const float read = std::strtof(number.c_str(), &end);
    if (number.empty() || *end != '\0') {
      value = 0.0F;
      failed_ = true;
    } else if (std::isinf(read)) {
      value = std::copysign(std::numeric_limits<float>::max(), read);
      failed_ = true;
    } else {
      value = read;
    }
  }

  const std::string& text_;
  size_t at_ = 0;
  bool atEnd_ = false;
  bool failed_ = false;
};

int ExpectedValues(const std::string& text, std::vector<float>& values) {
  FloatReader reader(text);
  float value = 0.0F;
  while (!reader.AtEnd()) {
    if (reader.Failed()) return 1;
    reader.Read(value);
    values.push_back(value);
  }
  return 0;
}

bool SameBits(const std::vector<float>& left, const std::vector<float>& right) {
  return left.size() == right.size() &&
         (left.empty() || std::memcmp(left.data(), right.data(), left.size() * 4) == 0);
}

// One value after the other, class by class; a value that is not wholly in the block is left out.
std::vector<std::byte> ExpectedBlock(size_t size, const std::vector<float>& values, uint32_t width,
                                     int32_t stride) {
  std::vector<std::byte> block(size);
  const auto put = [&](int64_t offset, float value) {
    if (offset >= 0 && offset + 4 <= static_cast<int64_t>(size))
      std::memcpy(block.data() + offset, &value, 4);
  };
  if (values.size() < 5) {
    for (size_t i = 0; i < values.size(); ++i) put(static_cast<int64_t>(i) * 4, values[i]);
    return block;
  }
  int64_t rowStep = stride;
  while (rowStep % 4 != 0) --rowStep;
  for (uint64_t c = 0; c < width && c < values.size(); ++c) {
    for (uint64_t row = 0; row < 4; ++row) {
      if (row * width + c >= values.size()) continue;
      put(static_cast<int64_t>(row) * rowStep + static_cast<int64_t>(c) * 4,
          values[row * width + c]);
    }
  }
  return block;
}

}  // namespace

void RpnText(std::span<const uint8_t> bytes) {
  ByteSource source(bytes);
  const size_t size = source.TakeNumber(2) % 2048;
  const uint32_t width = source.TakeRarely(8) ? static_cast<uint32_t>(source.TakeNumber(4))
                                              : static_cast<uint32_t>(source.TakeBelow(32));
  const int32_t stride = source.TakeRarely(8) ? static_cast<int32_t>(source.TakeNumber(4))
                                              : static_cast<int32_t>(source.TakeByte());
  const std::string text = source.TakeRest();

  std::istringstream stream(text);
  std::vector<float> values;
  const int status = run::ExtractRpnValues(stream, values);
  std::vector<float> expected;
  Require(status == ExpectedValues(text, expected), "status of the text");
  Require(SameBits(values, expected), "values of the text");
  Require(!values.empty() && values.size() <= text.size() + 1, "count of the values");

  const auto block = std::make_unique<std::byte[]>(size);
  run::WriteRpnValues({block.get(), size}, values, width, stride);
  const auto layout = ExpectedBlock(size, values, width, stride);
  Require(size == 0 || std::memcmp(block.get(), layout.data(), size) == 0, "layout of the values");
}

}  // namespace fuzz
