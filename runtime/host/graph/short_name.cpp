// Front, hash and end.
#include "host/graph/short_name.h"

#include <cstdint>

namespace vorn::host {
namespace {

constexpr size_t kKept = 40;  // bytes at each end, a little fewer between characters of several

bool IsInsideCharacter(char byte) { return (static_cast<unsigned char>(byte) & 0xc0) == 0x80; }

uint64_t HashOf(std::string_view text) {
  uint64_t hash = 0xcbf29ce484222325;
  for (const char c : text) {
    hash ^= static_cast<unsigned char>(c);
    hash *= 0x100000001b3;
  }
  return hash;
}

std::string Digits(uint64_t number) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string digits;
  for (int shift = 60; shift >= 0; shift -= 4) digits += kDigits[number >> shift & 0xf];
  return digits;
}

}  // namespace

std::string ShortName(std::string_view name) {
  if (name.size() <= kLongestOutputName) return std::string(name);
  size_t front = kKept;
  while (front > 0 && IsInsideCharacter(name[front])) --front;
  size_t end = name.size() - kKept;
  while (end < name.size() && IsInsideCharacter(name[end])) ++end;
  return std::string(name.substr(0, front)) + "~" + Digits(HashOf(name)) + "~" +
         std::string(name.substr(end));
}

}  // namespace vorn::host
