// What is read out of EXIF data, which are the head of a TIFF: which way up a picture is.
//
//     "II" or "MM" | 42 (2 bytes) | place of the first directory (4)
//     directory    | number of entries (2) | entry (12 each): tag (2), type (2), count (4), value
//     (4)
#include <cstddef>
#include <cstdint>
#include <optional>

#include "kit/picture/decoders.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kOrientationTag = 0x0112;
constexpr uint64_t kShortType = 3;
constexpr size_t kEntryBytes = 12;

// A number of `bytes` bytes at `place`, or 0 where the data end before.
uint64_t NumberAt(std::string_view data, size_t place, size_t bytes, bool isLittle) {
  if (place > data.size() || data.size() - place < bytes) return 0;
  uint64_t number = 0;
  for (size_t i = 0; i < bytes; ++i) {
    const size_t at = place + (isLittle ? bytes - 1 - i : i);
    number = number << 8 | static_cast<unsigned char>(data[at]);
  }
  return number;
}

// Where the entry of that tag begins in the first directory.
std::optional<size_t> PlaceOf(std::string_view tiff, uint64_t tag) {
  const bool isLittle = tiff.starts_with("II");
  if (!isLittle && !tiff.starts_with("MM")) return {};
  const size_t directory = NumberAt(tiff, 4, 4, isLittle);
  const uint64_t entries = NumberAt(tiff, directory, 2, isLittle);
  for (uint64_t i = 0; i < entries; ++i) {
    const size_t entry = directory + 2 + i * kEntryBytes;
    if (NumberAt(tiff, entry, 2, isLittle) == tag) return entry;
  }
  return {};
}

}  // namespace

int OrientationOf(std::string_view exif) {
  const bool isLittle = exif.starts_with("II");
  const std::optional<size_t> entry = PlaceOf(exif, kOrientationTag);
  if (!entry || NumberAt(exif, *entry + 2, 2, isLittle) != kShortType) return 1;
  const uint64_t value = NumberAt(exif, *entry + 8, 2, isLittle);
  return value >= 1 && value <= 8 ? static_cast<int>(value) : 1;
}

bool HasTag(std::string_view tiff, uint16_t tag) { return PlaceOf(tiff, tag).has_value(); }

}  // namespace vorn::kit
