// Run directories to test a history with.
#ifndef VORN_TESTS_KIT_HISTORY_MADE_RUN_H_
#define VORN_TESTS_KIT_HISTORY_MADE_RUN_H_

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "kit/ledger/run_entry.h"
#include "kit/run/run_directory.h"

namespace support {

/// 2026-11-01 00:00 UTC.
inline constexpr uint64_t kNovemberNs = 1793491200000000000;
inline constexpr uint64_t kDayNs = 86400000000000;

/// A run of digits on board7, done, that began on that day of November, from 1 on.
[[nodiscard]] vorn::kit::RunFacts MadeFacts(unsigned day);

/// A run directory with run.json, and times.jsonl with those times, one an inference, behind a
/// first one of twice the first.
void MakeRun(const std::filesystem::path& folder, const vorn::kit::RunFacts& facts,
             const std::vector<uint64_t>& timesNs);

/// 40 times around a middle, which is their median.
[[nodiscard]] std::vector<uint64_t> TimesAround(uint64_t ns);

/// verdict.json with that status, and the accuracy if it is given.
void MakeVerdict(const std::filesystem::path& folder, int status,
                 std::optional<double> accuracy = std::nullopt);

/// What is kept of such a run.
[[nodiscard]] vorn::kit::RunEntry MadeEntry(unsigned day, double medianNs);

}  // namespace support

#endif  // VORN_TESTS_KIT_HISTORY_MADE_RUN_H_
