#include "kit/common/printable.h"

#include <array>
#include <cstdio>
#include <system_error>

#include "shared/text/characters.h"

namespace vorn::kit {
namespace {

bool IsContinuation(char byte) { return (static_cast<unsigned char>(byte) & 0xC0) == 0x80; }

// How many bytes the character at the front takes; 0 where there is none that may be printed.
size_t PrintableLength(std::string_view rest) {
  const size_t length = text::CharacterLength(rest);
  return length == 0 || text::Steers(rest.substr(0, length)) ? 0 : length;
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

std::string PrintableExcerpt(std::string_view text) {
  constexpr size_t kLongest = 200;
  if (text.size() <= kLongest) return Printable(text);
  return Printable(text.substr(0, kLongest)) + "...";
}

std::string Quoted(std::string_view text) { return "'" + Printable(text) + "'"; }

std::string Counted(uint64_t count, std::string_view one) {
  return std::to_string(count) + " " + std::string(one) + (count == 1 ? "" : "s");
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

std::string QuotedCommand(const std::vector<std::string>& words) {
  constexpr std::string_view kPlain =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_./=+,:@%";
  std::string text;
  for (const std::string& word : words) {
    if (!text.empty()) text += ' ';
    if (!word.empty() && word.find_first_not_of(kPlain) == std::string::npos) {
      text += word;
      continue;
    }
    // What would steer a terminal is shown as bash takes it.
    if (const std::string shown = Printable(word); shown != word) {
      text += "$'";
      for (const char c : shown) text += c == '\'' ? std::string("\\'") : std::string(1, c);
      text += '\'';
      continue;
    }
    text += '\'';
    for (const char c : word) text += c == '\'' ? std::string("'\\''") : std::string(1, c);
    text += '\'';
  }
  return text;
}

}  // namespace vorn::kit
