// What every model has among its inputs.
#ifndef VORN_SRC_COMMON_MODEL_INPUTS_H_
#define VORN_SRC_COMMON_MODEL_INPUTS_H_

#include <cstdint>

namespace vorn::run {

/// Task buffer and work buffer, the last two inputs.
inline constexpr uint32_t kScratchInputs = 2;

}  // namespace vorn::run

#endif  // VORN_SRC_COMMON_MODEL_INPUTS_H_
