// How far a fleet is: what the journals say of each chunk and each board.
#ifndef VORN_KIT_FLEET_FLEET_STATE_H_
#define VORN_KIT_FLEET_FLEET_STATE_H_

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "kit/fleet/fleet_plan.h"
#include "kit/fleet/journal.h"

namespace vorn::kit {

/// A chunk that this many boards tried and did not finish is not given to another one.
inline constexpr size_t kBoardsOfAChunk = 2;

/// A board that failed this often, one time after the other, is not given another chunk.
inline constexpr uint64_t kFailuresOfABoard = 3;

enum class ChunkStatus {
  kToDo,
  kRunning,  ///< as far as anybody knows: an attempt has begun and not ended
  kDone,     ///< every inference
  kPartial,  ///< done but for inferences that end their process on two boards
  kAside,    ///< not done by two boards
};

struct ChunkState {
  ChunkStatus status = ChunkStatus::kToDo;
  uint64_t attempts = 0;               ///< that began
  uint64_t attempt = 0;                ///< the one that has most of it; 0: none
  uint64_t done = 0;                   ///< inferences, in that one
  std::map<uint64_t, uint64_t> there;  ///< inferences done, by attempts of which outputs are there
  std::set<std::string> failed;        ///< boards that tried and did not finish it
  std::set<std::string> running;
  std::string reason;  ///< why it is not done, by the last one
};

struct BoardState {
  uint64_t done = 0;     ///< chunks
  uint64_t failed = 0;   ///< attempts that were not done, by whatever fault
  uint64_t samples = 0;  ///< inferences
  uint64_t failuresInARow = 0;
  bool areProgramsInDoubt = false;  ///< the last launch there left nothing: they may be damaged
  uint64_t busyNs = 0;              ///< in attempts that have ended
  uint64_t firstNs = 0;
  uint64_t lastNs = 0;
  std::map<std::string, uint64_t> phases;
  std::string host;
  std::string machineId;
  std::set<std::string> bootIds;
  bool isAside = false;
  std::string reason;               ///< why it is aside, or what it failed by last
  std::optional<uint64_t> checked;  ///< the attempt at the cross-check that is done
  std::string checkOutputs;         ///< OutputsHash of it
  std::vector<double> sampleNs;  ///< time an inference, an attempt that was done each; the last 64
};

struct FleetState {
  std::vector<ChunkState> chunks;
  std::map<std::string, BoardState> boards;
  uint64_t unreadableLines = 0;  ///< of journals
  uint64_t lastNs = 0;           ///< the latest time of all records

  [[nodiscard]] uint64_t CountOf(ChunkStatus status) const;
  /// Inferences that are there.
  [[nodiscard]] uint64_t Done() const;
  /// How much was told by boards: whether something came of a round is seen by it.
  [[nodiscard]] uint64_t Ends() const;
};

/// Reads all journals. Throws a Fault of kInput.
[[nodiscard]] FleetState ReadFleetState(const std::string& fleet, const FleetPlan& plan);

/// Adds what a record tells. They have to come in the order of their times.
void TakeRecord(const JournalRecord& record, const FleetPlan& plan, FleetState& state);

/// Whether an attempt may have failed by the programs on its board, which nobody reads to see
/// whether they are what was sent.
[[nodiscard]] bool MayBeOfPrograms(const JournalRecord& end);

/// Behind the last record.
void Settle(const FleetPlan& plan, FleetState& state);

/// The boards whose outputs of the cross-check are not those of most boards; where no side has
/// most, all of those that differ from the first one.
[[nodiscard]] std::vector<std::string> DisagreeingBoards(const FleetState& state);

}  // namespace vorn::kit

#endif  // VORN_KIT_FLEET_FLEET_STATE_H_
