#include "kit/history/moment.h"

#include <array>
#include <charconv>
#include <chrono>
#include <cstdio>

namespace vorn::kit {
namespace {

constexpr uint64_t kSecondNs = 1000000000;

// As many digits as it has to be, off the front.
std::optional<unsigned> TakeNumber(std::string_view& text, size_t digits) {
  if (text.size() < digits) return std::nullopt;
  unsigned number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + digits, number);
  if (error != std::errc{} || end != text.data() + digits) return std::nullopt;
  text.remove_prefix(digits);
  return number;
}

bool TakeSign(std::string_view& text, std::string_view signs) {
  if (text.empty() || signs.find(text[0]) == std::string_view::npos) return false;
  text.remove_prefix(1);
  return true;
}

std::optional<uint64_t> AgoOf(std::string_view text, uint64_t nowNs) {
  uint64_t count = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
  if (error != std::errc{} || end + 1 != text.data() + text.size()) return std::nullopt;
  constexpr uint64_t kHour = 3600 * kSecondNs;
  constexpr uint64_t kHoursADay = 24;
  constexpr uint64_t kDaysAWeek = 7;
  uint64_t unit = 0;
  if (*end == 'h') unit = kHour;
  if (*end == 'd') unit = kHoursADay * kHour;
  if (*end == 'w') unit = kDaysAWeek * kHoursADay * kHour;
  if (unit == 0) return std::nullopt;
  return count > nowNs / unit ? 0 : nowNs - count * unit;
}

}  // namespace

std::string MomentText(uint64_t realtimeNs) {
  const std::chrono::sys_seconds moment(std::chrono::seconds(realtimeNs / kSecondNs));
  const auto day = std::chrono::floor<std::chrono::days>(moment);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss time(moment - day);
  std::array<char, 48> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02u-%02u %02d:%02d", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
                static_cast<int>(time.hours().count()), static_cast<int>(time.minutes().count()));
  return text.data();
}

std::optional<uint64_t> MomentOf(std::string_view text, uint64_t nowNs) {
  if (const auto ago = AgoOf(text, nowNs)) return ago;
  const auto year = TakeNumber(text, 4);
  if (!year || !TakeSign(text, "-")) return std::nullopt;
  const auto month = TakeNumber(text, 2);
  if (!month || !TakeSign(text, "-")) return std::nullopt;
  const auto day = TakeNumber(text, 2);
  if (!day) return std::nullopt;
  const std::chrono::year_month_day date(std::chrono::year(static_cast<int>(*year)),
                                         std::chrono::month(*month), std::chrono::day(*day));
  constexpr unsigned kFirstYear = 1970;
  constexpr unsigned kLastYear = 2261;  // the last whole one that nanoseconds reach
  if (!date.ok() || *year < kFirstYear || *year > kLastYear) return std::nullopt;
  auto seconds = static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::seconds>(
                                           std::chrono::sys_days(date).time_since_epoch())
                                           .count());
  if (!text.empty() && text != "Z") {
    if (!TakeSign(text, "T ")) return std::nullopt;
    const auto hour = TakeNumber(text, 2);
    if (!hour || *hour > 23 || !TakeSign(text, ":")) return std::nullopt;
    const auto minute = TakeNumber(text, 2);
    if (!minute || *minute > 59) return std::nullopt;
    std::optional<unsigned> second = 0;
    if (TakeSign(text, ":")) second = TakeNumber(text, 2);
    if (!second || *second > 59) return std::nullopt;
    seconds += (*hour * 60 + *minute) * 60 + *second;
    (void)TakeSign(text, "Z");
    if (!text.empty()) return std::nullopt;
  }
  return seconds * kSecondNs;
}

std::string DurationText(double ns) {
  struct NamedUnit {
    double ns;
    const char* name;
  };
  constexpr std::array kUnits{NamedUnit{1e9, "s"}, NamedUnit{1e6, "ms"}, NamedUnit{1e3, "us"},
                              NamedUnit{1, "ns"}};
  std::array<char, 64> text{};
  for (const NamedUnit& unit : kUnits) {
    if (ns < unit.ns && unit.ns > 1) continue;
    std::snprintf(text.data(), text.size(), "%.3f %s", ns / unit.ns, unit.name);
    break;
  }
  return text.data();
}

}  // namespace vorn::kit
