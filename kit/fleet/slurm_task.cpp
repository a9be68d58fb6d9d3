#include "kit/fleet/slurm_task.h"

#include <fcntl.h>
#include <sys/file.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <set>

#include "kit/common/file_identity.h"
#include "kit/common/owned_file.h"
#include "kit/common/printable.h"
#include "kit/fleet/fleet_state.h"
#include "kit/fleet/here_board.h"
#include "kit/fleet/job.h"
#include "kit/fleet/lost_attempts.h"
#include "kit/fleet/slurm.h"
#include "kit/launch/machine.h"
#include "kit/launch/run_folder.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostListBytes = uint64_t{1} << 30;

std::string FromEnvironment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

std::optional<uint64_t> NumberIn(const std::string& text) {
  uint64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [behind, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc() || behind != end) return std::nullopt;
  return number;
}

// Taken as long as this lives; where the file system has no locks two tasks do the same, which
// harms nobody.
class NodeLock {
 public:
  NodeLock(const std::string& path, StopSignals& signals) {
    constexpr std::chrono::milliseconds kTick{200};
    file_ = OwnedFile(open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
    while (file_.IsOpen() && flock(file_.Get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK &&
           signals.Asked() == 0) {
      signals.Wait(kTick);
    }
  }

 private:
  OwnedFile file_;
};

class SlurmTask {
 public:
  explicit SlurmTask(const SlurmTaskRequest& request)
      : request_(request),
        fleet_(request.fleet),
        task_(TaskOf()),
        node_(NodeOf()),
        slot_(NumberIn(FromEnvironment("SLURM_JOB_ID")).value_or(1)),
        plan_(ReadFleetPlan(fleet_)),
        journal_(fleet_, "slurm-" + std::to_string(request.round) + "-" +
                             std::to_string(request.array) + "-" + std::to_string(task_)) {
    const std::vector<uint64_t> all =
        ReadArrayChunks(ArrayChunksFile(fleet_, request.round, request.array));
    for (uint64_t place = task_; place < all.size(); place += request.tasks) {
      if (all[place] < plan_.chunks.size()) chunks_.push_back(all[place]);
    }
    // A node's clock may be behind: what was said before it began is not its last word.
    journal_.Shift(ShiftBehind(ReadFleetState(fleet_, plan_).lastNs, RealtimeNs()));
  }

  ExitStatus Run() {
    NoteWhatWasCutOff();
    for (const uint64_t chunk : chunks_) {
      if (signals_.Asked() != 0 || !TakeOn(chunk)) break;
    }
    if (signals_.Asked() == SIGHUP) EndOfTime();
    return ExitStatus::kDone;
  }

 private:
  static uint64_t TaskOf() {
    const std::string text = FromEnvironment("SLURM_ARRAY_TASK_ID");
    const auto task = NumberIn(text);
    if (task) return *task;
    throw Fault(ExitStatus::kUsage, "SLURM_ARRAY_TASK_ID is " + Quoted(text) +
                                        "; a task is started by Slurm, by vorn fleet run");
  }

  static std::string NodeOf() {
    std::string node = FromEnvironment("SLURMD_NODENAME");
    const bool isFit = !node.empty() && node[0] != '.' && node.find('/') == std::string::npos;
    if (isFit) return node;
    throw Fault(ExitStatus::kUsage, "SLURMD_NODENAME is " + Quoted(node) +
                                        "; a task is started by Slurm, by vorn fleet run");
  }

  // By a start of this task before: its chunks are nobody else's.
  void NoteWhatWasCutOff() {
    const std::set<uint64_t> mine(chunks_.begin(), chunks_.end());
    NoteLostAttempts(
        fleet_, "Slurm started its job again: the node was lost, or the job was killed",
        [&](const JournalRecord& begin) { return begin.chunk && mine.contains(*begin.chunk); },
        journal_);
  }

  // False where this node is to do no more.
  bool TakeOn(uint64_t chunk) {
    const FleetState state = ReadFleetState(fleet_, plan_);
    const ChunkState& known = state.chunks[chunk];
    const bool isToDo = known.status == ChunkStatus::kToDo || known.status == ChunkStatus::kRunning;
    if (!isToDo || known.failed.contains(node_)) return true;
    const auto board = state.boards.find(node_);
    if (board != state.boards.end() && board->second.isAside) return false;
    if (!CheckNode(state)) return false;
    const AttemptEnd end = Attempt(chunk, state);
    if (end.record.outcome == AttemptOutcome::kDone) ++done_;
    Conclude(end);
    return !end.wasStopped;
  }

  // The first one that comes to a node has it show what it makes of some inferences.
  bool CheckNode(const FleetState& known) {
    if (plan_.crossCheck.empty() || IsChecked(known)) return true;
    MakeFolders(SlurmFolder(fleet_) + "/nodes");
    const NodeLock one(SlurmFolder(fleet_) + "/nodes/" + node_, signals_);
    if (signals_.Asked() != 0) return false;
    const FleetState state = ReadFleetState(fleet_, plan_);
    if (IsChecked(state)) return true;
    const AttemptEnd end = Attempt(std::nullopt, state);
    if (end.record.outcome == AttemptOutcome::kDone) return true;
    // Inferences that end their process do so of a chunk, too, and are told of there.
    if (end.record.blame == Blame::kSamples) return true;
    Conclude(end);
    return false;
  }

  bool IsChecked(const FleetState& state) const {
    const auto board = state.boards.find(node_);
    return board != state.boards.end() && board->second.checked;
  }

  AttemptEnd Attempt(std::optional<uint64_t> chunk, const FleetState& state) {
    const uint64_t inferences = chunk ? plan_.chunks[*chunk].inferences : plan_.crossCheck.size();
    const AttemptRequest attempt{
        .fleet = fleet_,
        .chunk = chunk,
        .board = node_,
        .slot = slot_,
        .config = {},
        .limit = LimitOf(TimesIn(state), inferences),
        // One that hangs at its first chunk has others to be told by.
        .laterLimit = [&] { return LimitOf(TimesIn(ReadFleetState(fleet_, plan_)), inferences); }};
    return RunAttempt(
        plan_, attempt, FilesOnBoard::kHere,
        [&](const BoardWork& work) {
          BoardEnd end = RunHere(work, plan_.from, signals_);
          if (!end.reason.empty() && WasAskedToStop()) end.wasStopped = true;
          return end;
        },
        journal_);
  }

  // Slurm sends its signals to all processes of a job, one after the other: the launch may be gone
  // before this one hears of it.
  bool WasAskedToStop() {
    constexpr int kTicks = 10;
    constexpr std::chrono::milliseconds kTick{50};
    for (int i = 0; i < kTicks && signals_.Asked() == 0; ++i) signals_.Wait(kTick);
    return signals_.Asked() != 0;
  }

  // This node's, or all where it has none yet.
  std::vector<uint64_t> TimesIn(const FleetState& state) const {
    std::vector<uint64_t> times;
    const auto take = [&](const BoardState& board) {
      for (const double ns : board.sampleNs) times.push_back(static_cast<uint64_t>(ns));
    };
    const auto mine = state.boards.find(node_);
    if (mine != state.boards.end()) take(mine->second);
    if (!times.empty()) return times;
    for (const auto& [name, board] : state.boards) take(board);
    return times;
  }

  void Conclude(const AttemptEnd& end) {
    const JournalRecord& record = end.record;
    const bool isNodes = record.blame == Blame::kBoard || record.blame == Blame::kUnknown;
    if (!isNodes || record.outcome == AttemptOutcome::kDone) return;
    const FleetState state = ReadFleetState(fleet_, plan_);
    const auto board = state.boards.find(node_);
    if (board == state.boards.end() || board->second.isAside ||
        board->second.failuresInARow < kFailuresOfABoard) {
      return;
    }
    JournalRecord aside;
    aside.event = JournalEvent::kAside;
    aside.realtimeNs = RealtimeNs();
    aside.board = node_;
    aside.slot = slot_;
    aside.reason = Counted(board->second.failuresInARow, "failure") +
                   " one after the other, the last one: " + record.reason;
    journal_.Note(aside);
  }

  void EndOfTime() {
    if (done_ == 0) {
      std::fprintf(
          stderr,
          "vorn fleet: the time of the job is up, and no chunk was done in it; give --time "
          "more, or make a plan with smaller chunks\n");
      return;
    }
    const std::string id = FromEnvironment("SLURM_JOB_ID");
    const std::string scratch = SlurmRound(fleet_, request_.round) + "/requeue-" +
                                std::to_string(request_.array) + "-" + std::to_string(task_);
    MakeFolders(scratch);
    Slurm slurm(scratch, signals_);
    const bool isQueued = slurm.Requeue(id);
    std::fprintf(stderr, "vorn fleet: the time of the job is up after %s; %s\n",
                 Counted(done_, "chunk").c_str(),
                 isQueued ? "it is queued again" : slurm.Said().c_str());
  }

  const SlurmTaskRequest& request_;
  const std::string& fleet_;
  StopSignals signals_;
  uint64_t task_;
  std::string node_;
  uint64_t slot_;  // several jobs may run on a node at once
  FleetPlan plan_;
  Journal journal_;
  std::vector<uint64_t> chunks_;
  uint64_t done_ = 0;
};

}  // namespace

std::string SlurmFolder(const std::string& fleet) { return fleet + "/slurm"; }

std::string SlurmRound(const std::string& fleet, uint64_t round) {
  return SlurmFolder(fleet) + "/" + std::to_string(round);
}

std::string ArrayChunksFile(const std::string& fleet, uint64_t round, uint64_t array) {
  return SlurmRound(fleet, round) + "/chunks." + std::to_string(array) + ".txt";
}

std::vector<uint64_t> ReadArrayChunks(const std::string& path) {
  const std::string text =
      ReadWholeFile(path, "the chunks of the array", ExitStatus::kInput, kMostListBytes);
  std::vector<uint64_t> chunks;
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find('\n', at), text.size());
    const auto chunk = NumberIn(text.substr(at, end - at));
    if (!chunk) throw Fault(ExitStatus::kInput, Quoted(path) + " holds what is no chunk");
    chunks.push_back(*chunk);
    at = end + 1;
  }
  return chunks;
}

ExitStatus RunSlurmTask(const SlurmTaskRequest& request) {
  if (request.tasks == 0) throw Fault(ExitStatus::kUsage, "an array has a task at least");
  return SlurmTask(request).Run();
}

}  // namespace vorn::kit
