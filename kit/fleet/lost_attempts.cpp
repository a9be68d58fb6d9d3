#include "kit/fleet/lost_attempts.h"

#include <map>
#include <set>
#include <utility>

#include "kit/common/whole_file.h"
#include "kit/launch/machine.h"
#include "kit/launch/run_folder.h"

namespace vorn::kit {

void NoteLostAttempts(const std::string& fleet, const std::string& reason,
                      const std::function<bool(const JournalRecord& begin)>& isLost,
                      Journal& journal) {
  using Place = std::pair<std::string, uint64_t>;  // the folder of its kind, and its number
  const auto folderOf = [&](const JournalRecord& record) {
    return record.chunk ? ChunkFolder(fleet, *record.chunk) : CrossFolder(fleet, record.board);
  };
  std::map<Place, JournalRecord> begun;
  std::set<Place> ended;
  ReadJournals(fleet, [&](const JournalRecord& record) {
    if (record.attempt == 0) return;
    Place place(folderOf(record), record.attempt);
    if (record.event == JournalEvent::kBegin) {
      begun.emplace(std::move(place), record);
    } else {
      ended.insert(std::move(place));
    }
  });
  for (const auto& [place, begin] : begun) {
    if (ended.contains(place) || !isLost(begin)) continue;
    JournalRecord end = begin;
    end.event = JournalEvent::kEnd;
    end.realtimeNs = RealtimeNs();
    end.outcome = AttemptOutcome::kFailed;
    end.blame = Blame::kUnknown;
    end.reason = reason;
    journal.Note(end);
    RemoveTree(place.first + "/" + std::to_string(place.second) + std::string(kUnfinishedSuffix));
  }
}

}  // namespace vorn::kit
