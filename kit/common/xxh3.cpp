#include "kit/common/xxh3.h"

#include "kit/common/xxh3_functions.h"

namespace vorn::kit {

const Xxh3Functions kXxh3Anywhere = kFunctionsHere;

const Xxh3Functions& BestXxh3() {
#ifdef VORN_HAS_XXH3_AVX2
  static const bool hasAvx2 = __builtin_cpu_supports("avx2") != 0;
  if (hasAvx2) return kXxh3WithAvx2;
#endif
  return kXxh3Anywhere;
}

}  // namespace vorn::kit
