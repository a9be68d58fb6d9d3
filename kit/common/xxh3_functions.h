// The library, as functions of one file: for the instructions that the file is compiled for. Of the
// C++ library nothing is included here, whose inline functions would be those of the whole program.
#ifndef VORN_KIT_COMMON_XXH3_FUNCTIONS_H_
#define VORN_KIT_COMMON_XXH3_FUNCTIONS_H_

#define XXH_INLINE_ALL  // nothing to link with, on a board either
#include <xxhash.h>

#include "kit/common/xxh3.h"

namespace vorn::kit {
namespace {

static_assert(sizeof(XXH3_state_t) <= sizeof(Xxh3State));
static_assert(alignof(XXH3_state_t) <= alignof(Xxh3State));

XXH3_state_t* StateOf(Xxh3State& state) {
  return static_cast<XXH3_state_t*>(static_cast<void*>(state.room));
}

const XXH3_state_t* StateOf(const Xxh3State& state) {
  return static_cast<const XXH3_state_t*>(static_cast<const void*>(state.room));
}

Xxh3Hash Hash(const void* bytes, size_t size) {
  const XXH128_hash_t hash = XXH3_128bits(bytes, size);
  return {hash.high64, hash.low64};
}

void Start(Xxh3State& state) {
  XXH3_INITSTATE(StateOf(state));
  XXH3_128bits_reset(StateOf(state));
}

void Add(Xxh3State& state, const void* bytes, size_t size) {
  XXH3_128bits_update(StateOf(state), static_cast<const xxh_u8*>(bytes), size);
}

Xxh3Hash HashUntilNow(const Xxh3State& state) {
  const XXH128_hash_t hash = XXH3_128bits_digest(StateOf(state));
  return {hash.high64, hash.low64};
}

constexpr Xxh3Functions kFunctionsHere{Hash, Start, Add, HashUntilNow};

}  // namespace
}  // namespace vorn::kit

#endif  // VORN_KIT_COMMON_XXH3_FUNCTIONS_H_
