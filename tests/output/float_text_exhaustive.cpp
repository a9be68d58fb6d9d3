// Compares the text of every float there is with the standard library's: some minutes on one core.
#include <bit>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <string>

#include "output/float_text.h"

namespace vorn::run {
namespace {

constexpr uint64_t kPatterns = uint64_t{1} << 32;

std::string Ours(float value) {
  char text[kMaxFloatText];
  return {text, WriteFloatText(value, text)};
}

std::string Reference(float value) {
  char text[2 * kMaxFloatText];
  const auto wide = static_cast<double>(value);
  return {text, std::to_chars(text, std::end(text), wide, std::chars_format::fixed, 16).ptr};
}

bool Agrees(uint32_t bits) {
  const auto value = std::bit_cast<float>(bits);
  const std::string ours = Ours(value);
  const std::string reference = Reference(value);
  if (ours == reference) return true;
  std::printf("%08x: \"%s\", the standard library says \"%s\"\n", static_cast<unsigned>(bits),
              ours.c_str(), reference.c_str());
  return false;
}

// The exit status: 1 if any text differs.
int CompareAllFloats() {
  uint64_t differences = 0;
  for (uint64_t bits = 0; bits < kPatterns; ++bits) {
    if (!Agrees(static_cast<uint32_t>(bits))) ++differences;
  }
  std::printf("%llu bit patterns, %llu differences\n", static_cast<unsigned long long>(kPatterns),
              static_cast<unsigned long long>(differences));
  return differences == 0 ? 0 : 1;
}

}  // namespace
}  // namespace vorn::run

int main() { return vorn::run::CompareAllFloats(); }
