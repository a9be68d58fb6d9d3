// The references that make_references.py writes, and the hash in them.
#ifndef VORN_TESTS_KIT_PICTURE_REFERENCE_H_
#define VORN_TESTS_KIT_PICTURE_REFERENCE_H_

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <span>
#include <string>

namespace vorn::kit {

/// FNV-1a, 64 bits, in 16 digits.
inline std::string HashOf(std::span<const std::byte> bytes) {
  uint64_t hash = 0xcbf29ce484222325U;
  for (const std::byte byte : bytes) {
    hash = (hash ^ std::to_integer<uint64_t>(byte)) * 0x100000001b3U;
  }
  char text[17];
  std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hash));
  return text;
}

}  // namespace vorn::kit

#endif  // VORN_TESTS_KIT_PICTURE_REFERENCE_H_
