// Moments as people write and read them, in UTC: boards and desks need not agree on a zone.
#ifndef VORN_KIT_HISTORY_MOMENT_H_
#define VORN_KIT_HISTORY_MOMENT_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vorn::kit {

/// "2026-11-23 02:22"
[[nodiscard]] std::string MomentText(uint64_t realtimeNs);

/// Nanoseconds since 1970 of "2026-11-23", "2026-11-23T02:22" or "2026-11-23T02:22:05", with a
/// blank for the T or a Z behind, or of so long before `nowNs`: "36h", "30d", "8w". Nothing if it
/// is none of these, or there is no such day.
[[nodiscard]] std::optional<uint64_t> MomentOf(std::string_view text, uint64_t nowNs);

/// "1.234 ms", in the unit that suits it.
[[nodiscard]] std::string DurationText(double ns);

}  // namespace vorn::kit

#endif  // VORN_KIT_HISTORY_MOMENT_H_
