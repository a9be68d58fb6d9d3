// The same library for processors with AVX-512.
#include "kit/common/xxh3.h"

#ifdef VORN_HAS_XXH3_VECTORS
#pragma GCC target("avx512f")
#include "kit/common/xxh3_functions.h"

namespace vorn::kit {

const Xxh3Functions kXxh3WithAvx512 = kFunctionsHere;

}  // namespace vorn::kit
#endif
