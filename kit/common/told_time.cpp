#include "kit/common/told_time.h"

#include <charconv>
#include <chrono>
#include <cstdlib>
#include <limits>
#include <string_view>

#include "kit/common/fault.h"
#include "kit/common/printable.h"

namespace vorn::kit {

uint64_t ToldTimeNs() {
  using Nanoseconds = std::chrono::nanoseconds;
  const char* told = std::getenv("SOURCE_DATE_EPOCH");
  if (told == nullptr || *told == '\0') {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<uint64_t>(std::chrono::duration_cast<Nanoseconds>(now).count());
  }
  constexpr uint64_t kSecondNs = 1'000'000'000;
  constexpr uint64_t kMost = std::numeric_limits<int64_t>::max() / kSecondNs;  // of a database, too
  const std::string_view text(told);
  uint64_t seconds = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  if (error != std::errc{} || stop != text.data() + text.size() || seconds > kMost) {
    throw Fault(
        ExitStatus::kUsage,
        "SOURCE_DATE_EPOCH is a whole number of seconds since 1970, and is " + Quoted(text));
  }
  return seconds * kSecondNs;
}

}  // namespace vorn::kit
