// What happened to a fleet, noted where it happened.
//
// Each writer has a file of its own below FLEET/journal, to which it only appends: a line a record,
// each with a checksum. A line that does not verify, which a machine leaves that lost its power, is
// passed over and counted. Nothing else is needed to tell how far a fleet is.
#ifndef VORN_KIT_FLEET_JOURNAL_H_
#define VORN_KIT_FLEET_JOURNAL_H_

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "kit/common/whole_file.h"

namespace vorn::kit {

enum class JournalEvent {
  kBegin,  ///< an attempt
  kEnd,    ///< of the attempt, however it ended
  kFound,  ///< outputs that verify, of an attempt without an end
  kLost,   ///< outputs of an attempt that do not verify any more
  kAside,  ///< a board is not given any more chunks; `reason` says why
  kBack,   ///< it is given chunks again
};

enum class AttemptOutcome {
  kDone,     ///< every inference of the chunk
  kPartial,  ///< some of them ended their process; the others are there
  kFailed,   ///< nothing is there
};

/// What an attempt failed by, as far as it can be told.
enum class Blame {
  kNobody,   ///< it was done, or somebody stopped it
  kBoard,    ///< the chunk was not begun: no connection, no room, no runtime
  kUnknown,  ///< either: it took too long, or the board was lost on the way
  kSamples,  ///< inferences of the chunk ended their process
};

struct JournalRecord {
  JournalEvent event = JournalEvent::kBegin;
  uint64_t realtimeNs = 0;
  std::string board;              ///< by its name
  uint64_t slot = 0;              ///< of the board, from 1; of a node the job that Slurm runs there
  std::optional<uint64_t> chunk;  ///< empty: the cross-check, or no attempt
  uint64_t attempt = 0;           ///< at that chunk, or at the cross-check of that board; from 1
  std::string host;  ///< as the board names itself; empty where it did not come to that
  std::string machineId;
  std::string bootId;  ///< another one: it was started anew meanwhile

  // Of an end.
  AttemptOutcome outcome = AttemptOutcome::kFailed;
  Blame blame = Blame::kNobody;
  std::string reason;    ///< why it is not done
  uint64_t done = 0;     ///< inferences
  uint64_t notDone = 0;  ///< inferences that were tried
  std::string outputs;   ///< OutputsHash of its samples; empty where there are none
  std::map<std::string, uint64_t> phases;  ///< nanoseconds: "connect", "send", "launch", "fetch"
  uint64_t sentBytes = 0;
  uint64_t fetchedBytes = 0;

  bool operator==(const JournalRecord&) const = default;
};

/// One line, with its checksum and its end.
[[nodiscard]] std::string ToLine(const JournalRecord& record);

/// Empty for a line that does not verify. Throws a JsonError for one that does and cannot be read.
[[nodiscard]] std::optional<JournalRecord> JournalFromLine(std::string_view line);

/// A writer's own file.
class Journal {
 public:
  /// FLEET/journal/NAME.jsonl, which is made with its folder. Throws a Fault of kLimit; so does
  /// Note.
  Journal(const std::string& fleet, const std::string& name);

  /// From here on all that is noted is that much later: of a clock that was put back since others
  /// noted what comes first.
  void Shift(uint64_t ns) { shiftNs_ = ns; }

  /// Outlasts a loss of power once it returns.
  void Note(const JournalRecord& record);

 private:
  LineFile file_;
  uint64_t shiftNs_ = 0;
};

/// All records of all writers in the order of their times, and those of a writer in the order in
/// which it noted them, whatever its clock did. Returns how many lines did not verify. A folder
/// that is not there is an empty one. Throws a Fault of kInput for a file that cannot be read.
uint64_t ReadJournals(const std::string& fleet,
                      const std::function<void(const JournalRecord& record)>& take);

/// What a journal is to be shifted by, so that what is noted now comes behind all that is there,
/// whose last time is `lastNs`: 0 but where the clock was put back.
[[nodiscard]] uint64_t ShiftBehind(uint64_t lastNs, uint64_t nowNs);

/// Throws a Fault of kUsage where journals tell of a run already.
void HoldToFirstRun(const std::string& fleet);

}  // namespace vorn::kit

#endif  // VORN_KIT_FLEET_JOURNAL_H_
