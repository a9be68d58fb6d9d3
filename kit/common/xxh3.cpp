#include "kit/common/xxh3.h"

#include "kit/common/xxh3_functions.h"

namespace vorn::kit {

const Xxh3Functions kXxh3Anywhere = kFunctionsHere;

const Xxh3Functions& BestXxh3() {
#ifdef VORN_HAS_XXH3_VECTORS
  // Processors that have AVX-512 without VBMI run slower for a while where it is used.
  static const bool hasAvx512 =
      __builtin_cpu_supports("avx512f") != 0 && __builtin_cpu_supports("avx512vbmi") != 0;
  static const bool hasAvx2 = __builtin_cpu_supports("avx2") != 0;
  if (hasAvx512) return kXxh3WithAvx512;
  if (hasAvx2) return kXxh3WithAvx2;
#endif
  return kXxh3Anywhere;
}

}  // namespace vorn::kit
