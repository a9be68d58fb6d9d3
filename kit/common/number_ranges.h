// Which of many, in few words.
#ifndef VORN_KIT_COMMON_NUMBER_RANGES_H_
#define VORN_KIT_COMMON_NUMBER_RANGES_H_

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace vorn::kit {

/// "17", "17 and 58", "60 to 63, 70 and 150 to 199": what follows each other as a range from three
/// on. Of more than `most` such places the first ones, "and 12 more" behind them. The numbers are
/// rising, each once.
[[nodiscard]] std::string RangesText(std::span<const uint64_t> numbers, size_t most);

}  // namespace vorn::kit

#endif  // VORN_KIT_COMMON_NUMBER_RANGES_H_
