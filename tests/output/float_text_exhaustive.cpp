// Compares the text of every float there is with the standard library's, in each way that can run
// on this machine: some minutes on one core.
//
//     float_text_exhaustive [PART PARTS]     one part of as many, counted from 0
#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "output/float_lines.h"
#include "output/float_text.h"

namespace vorn::run {
namespace {

constexpr uint64_t kPatterns = uint64_t{1} << 32;
constexpr size_t kAtOnce = 64;

using Values = std::array<float, kAtOnce>;
using Room = std::array<char, kAtOnce * kMaxFloatLine>;

struct Way {
  const char* name;
  FloatLinesWriter writer;
};

std::vector<Way> WaysHere() {
  std::vector<Way> ways{{"plain", WriteFloatLinesPlain}};
  if (const FloatLinesWriter writer = Avx512FloatLines()) ways.push_back({"avx512", writer});
  return ways;
}

std::string_view Reference(const Values& values, Room& room) {
  char* text = room.data();
  for (const float value : values) {
    text = std::to_chars(text, room.data() + room.size(), static_cast<double>(value),
                         std::chars_format::fixed, 16)
               .ptr;
    *text++ = '\n';
  }
  return {room.data(), text};
}

std::string_view LineOf(std::string_view lines, size_t index) {
  for (; index > 0; --index) lines.remove_prefix(lines.find('\n') + 1);
  return lines.substr(0, lines.find('\n'));
}

uint64_t PrintDifferences(const Way& way, std::string_view ours, std::string_view reference,
                          uint64_t first) {
  uint64_t differences = 0;
  for (size_t i = 0; i < kAtOnce; ++i) {
    const std::string_view line = LineOf(ours, i);
    const std::string_view expected = LineOf(reference, i);
    if (line == expected) continue;
    ++differences;
    std::printf("%08llx, %s: \"%.*s\", the standard library says \"%.*s\"\n",
                static_cast<unsigned long long>(first + i), way.name, static_cast<int>(line.size()),
                line.data(), static_cast<int>(expected.size()), expected.data());
  }
  return std::max<uint64_t>(differences, 1);
}

uint64_t DifferencesFrom(uint64_t first, const std::vector<Way>& ways) {
  Values values;
  for (size_t i = 0; i < kAtOnce; ++i) {
    values[i] = std::bit_cast<float>(static_cast<uint32_t>(first + i));
  }
  Room expected;
  const std::string_view reference = Reference(values, expected);
  uint64_t differences = 0;
  for (const Way& way : ways) {
    Room room;
    const std::string_view ours{room.data(), way.writer(values, room.data())};
    if (ours != reference) differences += PrintDifferences(way, ours, reference, first);
  }
  return differences;
}

}  // namespace
}  // namespace vorn::run

int main(int argc, char** argv) {
  using namespace vorn::run;
  const uint64_t part = argc == 3 ? std::strtoull(argv[1], nullptr, 10) : 0;
  const uint64_t parts = argc == 3 ? std::strtoull(argv[2], nullptr, 10) : 1;
  if ((argc != 1 && argc != 3) || part >= parts) {
    std::fprintf(stderr, "float_text_exhaustive [PART PARTS]: a part is below their number\n");
    return 2;
  }
  const std::vector<Way> ways = WaysHere();
  const uint64_t blocks = kPatterns / kAtOnce;
  uint64_t patterns = 0;
  uint64_t differences = 0;
  for (uint64_t block = part * blocks / parts; block < (part + 1) * blocks / parts; ++block) {
    differences += DifferencesFrom(block * kAtOnce, ways);
    patterns += kAtOnce;
  }
  std::printf("%llu bit patterns,", static_cast<unsigned long long>(patterns));
  for (const Way& way : ways) std::printf(" %s,", way.name);
  std::printf(" %llu differences\n", static_cast<unsigned long long>(differences));
  return differences == 0 ? 0 : 1;
}
