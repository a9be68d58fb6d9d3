// XXH3-128 by the best instructions of this processor; the hashes are the same. Only
// file_identity.cpp and tests include it.
#ifndef VORN_KIT_COMMON_XXH3_H_
#define VORN_KIT_COMMON_XXH3_H_

#include <stddef.h>
#include <stdint.h>

namespace vorn::kit {

struct Xxh3Hash {
  uint64_t high;
  uint64_t low;
};

/// Room for the library's state of a hash, which is not told here: it differs with instructions.
struct alignas(64) Xxh3State {
  unsigned char room[640];
};

struct Xxh3Functions {
  Xxh3Hash (*hash)(const void* bytes, size_t size);
  void (*start)(Xxh3State& state);
  void (*add)(Xxh3State& state, const void* bytes, size_t size);
  Xxh3Hash (*hashUntilNow)(const Xxh3State& state);
};

extern const Xxh3Functions kXxh3Anywhere;
#if defined(__x86_64__) && !defined(__clang__)
#define VORN_HAS_XXH3_VECTORS
extern const Xxh3Functions kXxh3WithAvx2;
extern const Xxh3Functions kXxh3WithAvx512;
#endif

/// The best of them that this processor can run.
[[nodiscard]] const Xxh3Functions& BestXxh3();

}  // namespace vorn::kit

#endif  // VORN_KIT_COMMON_XXH3_H_
