// UTF-8 by its table: how long a sequence is, and which first bytes never begin one.
#include "kit/common/printable.h"

#include <array>
#include <cstdio>
#include <system_error>

namespace vorn::kit {
namespace {

bool IsContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

// How many bytes the code point at the front takes; 0 where there is none that may be printed:
// control characters of either set, halves of pairs, longer forms of shorter ones.
size_t PrintableLength(std::string_view text) {
  const auto first = static_cast<unsigned char>(text[0]);
  if (first < 0x80) return first >= 0x20 && first != 0x7F ? 1 : 0;
  const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4 || text.size() < length) return 0;
  uint32_t point = first & (0xFFu >> (length + 1));
  for (size_t i = 1; i < length; ++i) {
    if (!IsContinuation(text[i])) return 0;
    point = point << 6 | (static_cast<unsigned char>(text[i]) & 0x3Fu);
  }
  constexpr std::array<uint32_t, 5> kLeast{0, 0, 0x80, 0x800, 0x10000};
  const bool isControl = point < 0xA0;
  const bool isSteering = (point >= 0x200E && point <= 0x200F) ||  // the direction of writing
                          (point >= 0x2028 && point <= 0x202E) ||
                          (point >= 0x2066 && point <= 0x2069) || point == 0xFEFF;
  const bool isHalf = point >= 0xD800 && point <= 0xDFFF;
  return point < kLeast[length] || point > 0x10FFFF || isControl || isHalf || isSteering ? 0
                                                                                         : length;
}

}  // namespace

std::string Printable(std::string_view text) {
  std::string printed;
  while (!text.empty()) {
    const size_t length = PrintableLength(text);
    if (length == 0) {
      std::array<char, 5> code{};
      std::snprintf(code.data(), code.size(), "\\x%02X", static_cast<unsigned char>(text[0]));
      printed += code.data();
    } else if (text[0] == '\\') {
      printed += "\\\\";
    } else {
      printed += text.substr(0, length);
    }
    text.remove_prefix(length == 0 ? 1 : length);
  }
  return printed;
}

size_t DisplayWidth(std::string_view text) {
  size_t width = 0;
  for (const char byte : text) width += IsContinuation(byte) ? 0 : 1;
  return width;
}

std::string SizeText(uint64_t bytes) {
  if (bytes < 1024) return std::to_string(bytes) + (bytes == 1 ? " byte" : " bytes");
  constexpr std::array<const char*, 6> kUnits{"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
  auto size = static_cast<double>(bytes) / 1024;
  size_t unit = 0;
  while (size >= 1023.95 && unit + 1 < kUnits.size()) {
    size /= 1024;
    ++unit;
  }
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f %s", size, kUnits[unit]);
  return text.data();
}

std::string SystemReason(int error) { return std::generic_category().message(error); }

}  // namespace vorn::kit
