// Numbers of the configuration as a tensor.
#ifndef VORN_RUNTIME_HOST_CONFIG_CONSTANT_H_
#define VORN_RUNTIME_HOST_CONFIG_CONSTANT_H_

#include <cstddef>
#include <span>
#include <string>
#include <vector>

#include "host/config/model_settings.h"
#include "host/tensor/shape.h"
#include "vorn/vorn.h"

namespace vorn::host {

/// The bytes of a dense tensor of `shape`: a number for each element, or one for all. Fails with
/// VORN_ERROR_CONFIG for any other count, and for a number that the type does not hold; `name` is
/// for the message. Floating-point types round.
std::vector<std::byte> EncodeConstant(const std::string& name, vorn_data_type type,
                                      const Shape& shape, std::span<const Number> numbers);

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_CONFIG_CONSTANT_H_
