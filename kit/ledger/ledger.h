// The memory of all runs: one file, by schema.h. Whoever adds has it for himself for a moment, so
// that two at once do not disturb each other, and one that is killed leaves what was added before.
#ifndef VORN_KIT_LEDGER_LEDGER_H_
#define VORN_KIT_LEDGER_LEDGER_H_

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "kit/ledger/run_entry.h"
#include "kit/ledger/series_key.h"
#include "kit/ledger/sqlite.h"

namespace vorn::kit {

/// What became of a run that was to be added.
enum class Addition {
  kAdded,
  kUpdated,  ///< it was there, less far
  kKnown,    ///< it is there as it is
  kOlder,    ///< it is there, and further: a copy that was made while it ran
};

/// Which board a run is of that is there already.
enum class BoardOf {
  kRun,     ///< what the run says
  kLedger,  ///< what it was given there
};

/// Whether a run counts in a series, and what is told of it there.
enum class RunOutcome {
  kRight,
  kWrong,
  kNotJudged,  ///< it is done, and nobody could or did judge it
  kFailed,
  kUnfinished,  ///< running or interrupted: it counts nowhere
};

struct RunPoint {
  int64_t id = 0;
  uint64_t startRealtimeNs = 0;
  RunOutcome outcome = RunOutcome::kNotJudged;
  /// Of a run that is done and was timed; else not a number.
  double medianNs = std::numeric_limits<double>::quiet_NaN();
  bool beginsLevel = false;  ///< as a person said
};

/// One figure of the runs that have it.
struct MetricPoints {
  std::string output;
  std::string metric;
  std::vector<size_t> runs;  ///< places among the series' runs, rising
  std::vector<double> values;
};

/// `metrics` are of runs that are done alone.
struct RunSeriesPoints {
  std::vector<std::string> key;
  std::vector<RunPoint> runs;         ///< by their start
  std::vector<MetricPoints> metrics;  ///< by output and metric
};

/// A span of starts: from `sinceNs` on, before `beforeNs`.
struct StartSpan {
  uint64_t sinceNs = 0;
  uint64_t beforeNs = std::numeric_limits<int64_t>::max();
};

/// How much of a run is wanted: with a hundred thousand of them it is most of the time.
enum class RunDetail {
  kTable,  ///< what a row of a table shows: no hashes, machine or metrics
  kAll,    ///< but the single times
};

class Ledger {
 public:
  /// For questions: all of them see it as it was at the first. Throws a Fault: of kInput where
  /// there is none or it is damaged, and as Database does.
  [[nodiscard]] static Ledger ForReading(const std::string& path);

  /// For changes; makes it where there is none. Throws as above.
  [[nodiscard]] static Ledger ForWriting(const std::string& path);

  /// The same where it has to be there.
  [[nodiscard]] static Ledger ForChanging(const std::string& path);

  /// The same to see what additions would become: none stays.
  [[nodiscard]] static Ledger ForTrying(const std::string& path);

  Ledger(Ledger&&) noexcept;
  Ledger& operator=(Ledger&&) noexcept;
  ~Ledger();

  [[nodiscard]] const std::string& Path() const;

  /// All of these or none; writes the id into each, and the board that it is of. Returns what
  /// became of each.
  std::vector<Addition> Add(std::span<RunEntry> runs, BoardOf board = BoardOf::kRun);

  /// All runs by their start.
  void ForEach(const StartSpan& span, RunDetail detail,
               const std::function<void(RunEntry& run)>& take) const;

  /// With the single times. Throws a Fault of kInput where there is no such run.
  [[nodiscard]] RunEntry Get(int64_t id) const;

  [[nodiscard]] std::optional<RunEntry> Find(const std::string& identity) const;

  /// What series there are, in the order of their keys.
  [[nodiscard]] std::vector<RunSeriesPoints> Series(std::span<const KeyPart> parts,
                                                    const StartSpan& span) const;

  /// The last run of the series of `run` before it, in the level that `run` is in, that `isFit`.
  [[nodiscard]] std::optional<RunEntry> LastBefore(
      const RunEntry& run, std::span<const KeyPart> parts,
      const std::function<bool(const RunEntry&)>& isFit) const;

  void SetLevel(int64_t id, const RunLevel& level);
  /// False if there was none.
  bool RemoveLevel(int64_t id);

  void Remove(std::span<const int64_t> ids);

  /// Gives room of what was removed back to the disk. False where that cannot be done now: the disk
  /// is full, or others hold the file; nothing is lost then, and what is added later takes the
  /// room.
  [[nodiscard]] bool Shrink();

 private:
  class Writer;
  class Getter;
  Ledger(std::unique_ptr<Database> database);

  std::unordered_set<int64_t> RunsWithLevel() const;
  void TakeMetrics(std::vector<RunSeriesPoints>& series) const;
  Getter& Getting() const;
  void HoldToRun(int64_t id) const;

  std::unique_ptr<Database> database_;
  bool isTried_ = false;
  std::unique_ptr<Writer> writer_;
  mutable std::unique_ptr<Getter> getter_;  // the statements of Get, prepared once
};

/// What an entry counts as.
[[nodiscard]] RunOutcome OutcomeOf(std::string_view state, std::string_view verdict);

}  // namespace vorn::kit

#endif  // VORN_KIT_LEDGER_LEDGER_H_
