#include "kit/fleet/fleet_run.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <map>
#include <set>
#include <string_view>

#include "kit/common/file_place.h"
#include "kit/common/folder_lock.h"
#include "kit/common/folder_names.h"
#include "kit/common/own_folder.h"
#include "kit/common/printable.h"
#include "kit/common/whole_file.h"
#include "kit/fleet/attempt.h"
#include "kit/fleet/child.h"
#include "kit/fleet/journal.h"
#include "kit/fleet/progress.h"
#include "kit/fleet/round.h"
#include "kit/fleet/ssh_board.h"
#include "kit/launch/machine.h"
#include "kit/launch/run_folder.h"

namespace vorn::kit {
namespace {

void HoldToConfig(const Board& board) {
  if (board.config.empty()) return;
  (void)IdentifyFile(board.config, "the configuration of board " + board.name, ExitStatus::kModel);
}

// parallel runs no more tickets at once than it may have three files for: the 1,024 that are usual
// are enough for two tickets each of about 170 slots.
void MakeRoomForFiles() {
  constexpr rlim_t kEnough = 65536;  // some programs walk through as many as they may have
  rlimit files{};
  if (getrlimit(RLIMIT_NOFILE, &files) != 0 || files.rlim_cur >= kEnough) return;
  files.rlim_cur = std::min(files.rlim_max, kEnough);
  (void)setrlimit(RLIMIT_NOFILE, &files);  // it says itself where there are too few
}

// Those of the run before. The file is not a person's, who could not tell how to mend it.
std::vector<Board> ReadKeptBoards(const std::string& path) {
  try {
    return ReadBoards(path);
  } catch (const Fault& fault) {
    throw Fault(fault.Status(),
                std::string(fault.what()) + "; name a file of boards with --boards once more");
  }
}

constexpr const char* kBoardsFile = "boards.json";
constexpr const char* kSocketsFile = "sockets";
constexpr std::string_view kSocketsPattern = "/tmp/vorn-fleet.XXXXXX";
constexpr size_t kMostTold = 10;

JournalRecord NoteOf(JournalEvent event, const std::string& board, std::optional<uint64_t> chunk,
                     uint64_t attempt) {
  JournalRecord record;
  record.event = event;
  record.realtimeNs = RealtimeNs();
  record.board = board;
  record.chunk = chunk;
  record.attempt = attempt;
  return record;
}

// ---- What is there ------------------------------------------------------------------------------

class Verifier {
 public:
  Verifier(const std::string& fleet, const FleetPlan& plan, bool isAgain, Console& console,
           StopSignals& signals)
      : fleet_(fleet),
        plan_(plan),
        isAgain_(isAgain),
        console_(console),
        signals_(signals),
        journal_(fleet, "control") {
    uint64_t lastNs = 0;
    ReadJournals(fleet, [&](const JournalRecord& record) {
      lastNs = std::max(lastNs, record.realtimeNs);
      TakeKnown(record);
    });
    // What it says is the last word, whatever the clock was when the others spoke.
    journal_.Shift(ShiftBehind(lastNs, RealtimeNs()));
  }

  // False where it was stopped: what it noted until then is so all the same.
  bool Run() {
    for (uint64_t chunk = 0; chunk < plan_.chunks.size(); ++chunk) {
      Look(chunk, "", ChunkFolder(fleet_, chunk));
    }
    for (const std::string& board : NamesIn(fleet_ + "/" + kCrossFolder)) {
      Look(std::nullopt, board, CrossFolder(fleet_, board));
    }
    if (IsStopped()) return false;
    NoteBack();
    if (lost_ + found_ == 0) return true;
    console_.Say("looked at what is there: " + std::to_string(lost_) +
                 " attempts do not verify any more, " + std::to_string(found_) +
                 " had no end in the journals");
    return true;
  }

 private:
  struct Known {
    std::string board;
    uint64_t slot = 0;
    bool isThere = false;  // by the journals
    std::string outputs;   // the same: OutputsHash
  };
  using Place = std::pair<std::string, uint64_t>;  // folder, attempt

  bool IsStopped() const {
    signals_.Wait(std::chrono::milliseconds(0));
    return signals_.Asked() != 0;
  }

  void TakeKnown(const JournalRecord& record) {
    if (record.attempt == 0) return;
    const std::string folder =
        record.chunk ? ChunkFolder(fleet_, *record.chunk) : CrossFolder(fleet_, record.board);
    Known& known = known_[{folder, record.attempt}];
    if (!record.board.empty()) known.board = record.board;
    known.slot = record.slot;
    if (record.event == JournalEvent::kEnd || record.event == JournalEvent::kFound) {
      known.isThere = record.outcome != AttemptOutcome::kFailed;
      known.outputs = record.outputs;
    } else if (record.event == JournalEvent::kLost) {
      known.isThere = false;
    }
  }

  void Look(std::optional<uint64_t> chunk, const std::string& board, const std::string& folder) {
    std::set<uint64_t> attempts;
    for (const uint64_t attempt : AttemptsIn(folder)) attempts.insert(attempt);
    for (auto known = known_.lower_bound({folder, 0});
         known != known_.end() && known->first.first == folder; ++known) {
      if (known->second.isThere) attempts.insert(known->first.second);
    }
    if (attempts.empty() || IsStopped()) return;
    const std::vector<SampleRecord> planned = ReadPlanned(fleet_, plan_, chunk);
    for (const uint64_t attempt : attempts) LookAt(chunk, board, folder, attempt, planned);
  }

  void LookAt(std::optional<uint64_t> chunk, const std::string& board, const std::string& folder,
              uint64_t attempt, const std::vector<SampleRecord>& planned) {
    const Known known = known_[{folder, attempt}];
    const std::string run = folder + "/" + std::to_string(attempt);
    const AttemptFound found = LookAtAttempt(run, plan_, planned, [this] { return IsStopped(); });
    if (IsStopped()) return;
    // A merge takes no others than those that were noted.
    const bool isNoted = !known.isThere || known.outputs.empty() || !found.fault.empty() ||
                         known.outputs == OutputsHash(found.samples);
    const bool counts = found.fault.empty() && found.done > 0 && isNoted;
    JournalRecord record =
        NoteOf(JournalEvent::kLost, known.board.empty() ? board : known.board, chunk, attempt);
    record.slot = known.slot;
    if (counts && !known.isThere) {
      record.event = JournalEvent::kFound;
      record.outcome =
          found.done == planned.size() ? AttemptOutcome::kDone : AttemptOutcome::kPartial;
      record.done = found.done;
      record.notDone = found.notDone;
      record.outputs = OutputsHash(found.samples);
      journal_.Note(record);
      ++found_;
    } else if (!counts && known.isThere) {
      record.reason =
          isNoted ? found.fault : "its samples are not those that were noted when it ended";
      journal_.Note(record);
      ++lost_;
    }
  }

  // What nobody is at any more, and whom and what is tried again.
  void NoteBack() {
    const FleetState state = ReadFleetState(fleet_, plan_);
    for (uint64_t chunk = 0; chunk < state.chunks.size(); ++chunk) {
      for (const std::string& board : state.chunks[chunk].running) {
        journal_.Note(NoteOf(JournalEvent::kLost, board, chunk, 0));
      }
      const ChunkStatus status = state.chunks[chunk].status;
      const bool isGivenUp = status == ChunkStatus::kAside || status == ChunkStatus::kPartial;
      // One that a single board failed is tried there again, too: there may be no other.
      const bool isTried = status != ChunkStatus::kDone && !state.chunks[chunk].failed.empty();
      if (isTried && (isAgain_ || !isGivenUp)) {
        journal_.Note(NoteOf(JournalEvent::kBack, "", chunk, 0));
      }
    }
    for (const auto& [name, board] : state.boards) {
      if (board.isAside || board.failuresInARow > 0) {
        journal_.Note(NoteOf(JournalEvent::kBack, name, {}, 0));
      }
    }
  }

  const std::string& fleet_;
  const FleetPlan& plan_;
  bool isAgain_;
  Console& console_;
  StopSignals& signals_;
  Journal journal_;
  std::map<Place, Known> known_;
  uint64_t lost_ = 0;
  uint64_t found_ = 0;
};

// ---- Rounds -------------------------------------------------------------------------------------

// A folder for sockets, whose paths have to be short. The fleet, whose lock is held, knows where it
// is: that of a run that was killed is removed with the next one's.
class SocketsFolder {
 public:
  explicit SocketsFolder(const std::string& fleet) : note_(fleet + "/" + kSocketsFile) {
    struct stat about {};
    if (stat(fleet.c_str(), &about) == 0) end_ = " " + std::to_string(about.st_ino) + "\n";
    RemoveThatOfBefore();
    std::string path(kSocketsPattern);
    if (mkdtemp(path.data()) == nullptr) {
      throw Fault(ExitStatus::kLimit, "cannot make a folder in /tmp: " + SystemReason(errno));
    }
    path_ = path;
    try {
      WriteWholeFile(note_, path_ + end_);
    } catch (const Fault&) {
      Remove();
      throw;
    }
  }
  ~SocketsFolder() { Remove(); }
  SocketsFolder(const SocketsFolder&) = delete;
  SocketsFolder& operator=(const SocketsFolder&) = delete;
  [[nodiscard]] const std::string& Path() const { return path_; }

 private:
  void Remove() const {
    try {
      RemoveTree(path_);
      RemoveTree(note_);
    } catch (const Fault&) {
      // It is empty but for sockets that nobody listens at.
    }
  }

  // Nothing else is removed, whatever stands in the note, and whoever wrote it.
  void RemoveThatOfBefore() const {
    std::string path = ReadFrom(note_, 0, kSocketsPattern.size() + end_.size() + 1);
    if (!path.ends_with(end_)) return;  // it was copied with the fleet
    path.resize(path.size() - end_.size());
    const size_t front = kSocketsPattern.find('X');
    struct stat about {};
    const bool isOne = path.size() == kSocketsPattern.size() &&
                       path.starts_with(kSocketsPattern.substr(0, front)) &&
                       std::all_of(path.begin() + static_cast<ptrdiff_t>(front), path.end(),
                                   [](unsigned char c) { return std::isalnum(c) != 0; }) &&
                       lstat(path.c_str(), &about) == 0 && S_ISDIR(about.st_mode) &&
                       about.st_uid == geteuid();
    if (isOne) RemoveTree(path);
  }

  std::string note_;
  std::string end_;  // of the note: the inode of the fleet that it is of
  std::string path_;
};

class FleetRun {
 public:
  FleetRun(const FleetRunRequest& request, Console& console)
      : request_(request),
        fleet_(request.fleet),
        plan_(ReadFleetPlan(fleet_)),
        lock_(fleet_, "fleet"),
        console_(console) {}

  ExitStatus Run() {
    TakeBoards();
    CheckPrograms();
    if (!VerifyAttempts(fleet_, plan_, request_.isAgain, console_, signals_)) {
      return TellOfStop(request_.named, console_);
    }
    RemoveParts();
    FleetState state = ReadFleetState(fleet_, plan_);
    progress_.Begin(state);
    while (!ChunksToDo(state).empty() && HasUsableBoard(state) && signals_.Asked() == 0) {
      const uint64_t before = state.Ends();
      RunRound(state);
      state = ReadFleetState(fleet_, plan_);
      progress_.TellOfBoards(state);
      if (state.Ends() == before) {  // nobody is left that could take any of them
        TellOfTickets();
        break;
      }
    }
    CloseConnections();
    if (signals_.Asked() != 0) console_.Say("was stopped");
    return TellOfEnd(request_.named, plan_, state, console_);
  }

 private:
  void TakeBoards() {
    const std::string kept = fleet_ + "/" + kBoardsFile;
    if (!request_.boards.empty()) {
      boards_ = ReadBoards(request_.boards);
      for (Board& board : boards_) {
        if (!board.tools.empty()) board.tools = Absolute(board.tools);
        if (!board.config.empty()) board.config = Absolute(board.config);
        HoldToConfig(board);
      }
      WriteWholeFile(kept, ToJson(boards_));
    } else if (IsThere(kept)) {
      boards_ = ReadKeptBoards(kept);
    } else {
      throw Fault(
          ExitStatus::kUsage,
          Quoted(fleet_) + " holds no boards of a run before; name a file of boards with --boards");
    }
    if (!request_.isResumed) HoldToFirstRun(fleet_);
  }

  // Before anything is noted: it is there, and it is the one that is meant.
  void CheckPrograms() {
    const std::string scratch = fleet_ + "/round";
    MakeFolders(scratch);
    for (const auto& [words, package] :
         {std::pair(std::vector<std::string>{"parallel", "--plain", "--will-cite", "--version"},
                    "parallel"),
          {std::vector<std::string>{"ssh", "-V"}, "openssh-client"},
          {std::vector<std::string>{"tar", "--version"}, "tar"}}) {
      const ChildRequest ask{.command = words,
                             .folder = {},
                             .input = {},
                             .inputFile = {},
                             .isKeptAlive = false,
                             .out = scratch + "/ask.out",
                             .err = scratch + "/ask.err",
                             .limit = std::chrono::seconds(60)};
      const bool isOther =
          !RunChild(ask, signals_).IsDone() ||
          (words[0] == "parallel" && !ReadFrom(ask.out, 0, 64).starts_with("GNU parallel"));
      if (!isOther || signals_.Asked() != 0) continue;
      HoldToRoom();  // for its answer
      throw Fault(ExitStatus::kUsage, (words[0] == "parallel" ? "GNU parallel" : words[0]) +
                                          " is not here, and the boards are reached with it; "
                                          "install the package " +
                                          package);
    }
  }

  bool HasUsableBoard(const FleetState& state) const {
    return std::any_of(boards_.begin(), boards_.end(), [&](const Board& board) {
      const auto found = state.boards.find(board.name);
      return found == state.boards.end() || !found->second.isAside;
    });
  }

  // Of attempts whose tickets were killed.
  void RemoveParts() const {
    const auto removeIn = [](const std::string& folder) {
      for (const std::string& name : NamesIn(folder)) {
        if (name.ends_with(kUnfinishedSuffix)) RemoveTree(folder + "/" + name);
      }
    };
    for (uint64_t chunk = 0; chunk < plan_.chunks.size(); ++chunk) {
      removeIn(ChunkFolder(fleet_, chunk));
    }
    for (const Board& board : boards_) removeIn(CrossFolder(fleet_, board.name));
  }

  void RunRound(const FleetState& state) {
    const std::vector<uint64_t> chunks = ChunksToDo(state);
    PrepareRound(fleet_, state, boards_, chunks, signals_);
    setenv("VORN_FLEET_PROGRAM", (OwnFolder() + "/vorn-fleet").c_str(), 1);
    setenv("VORN_FLEET_FOLDER", fleet_.c_str(), 1);
    setenv("VORN_FLEET_SOCKETS", sockets_.Path().c_str(), 1);
    setenv("PARALLEL_SHELL", "/bin/sh", 1);
    MakeRoomForFiles();
    const ChildRequest parallel{.command = RoundCommand(boards_),
                                .folder = {},
                                .input = TicketsFor(boards_, chunks.size()),
                                .inputFile = {},
                                .isKeptAlive = false,
                                .out = fleet_ + "/round/parallel.out",
                                .err = fleet_ + "/round/parallel.err",
                                .limit = {},
                                .grace = std::chrono::seconds(40),
                                .tick = [&] { progress_.Show(); }};
    const ChildEnd end = RunChild(parallel, signals_);
    if (end.wasStopped || end.status) return;
    throw Fault(ExitStatus::kRuntime, "GNU parallel " + DescribeChildEnd(end) +
                                          "; go on with 'vorn fleet resume " + request_.named +
                                          "'");
  }

  void HoldToRoom() const {
    if (!IsDiskFull(fleet_)) return;
    throw Fault(ExitStatus::kLimit, "no room is left on the disk of " + Quoted(fleet_) +
                                        "; make some and go on with 'vorn fleet resume " +
                                        request_.named + "'");
  }

  // What this machine could not do is noted as nobody's fault.
  void TellOfTickets() {
    // Where there is no room what tickets say finds none either.
    HoldToRoom();
    const std::string said = LastLineOf(fleet_ + "/round/parallel.err");
    if (IsThere(RoundLimitFile(fleet_))) {
      constexpr std::string_view kFront = "vorn fleet: ";
      throw Fault(ExitStatus::kLimit,
                  (said.starts_with(kFront) ? said.substr(kFront.size()) : "a limit was met") +
                      "; go on with 'vorn fleet resume " + request_.named + "'");
    }
    if (!said.empty() && signals_.Asked() == 0) console_.Say("the last ticket said: " + said);
  }

  void CloseConnections() {
    const std::string scratch = fleet_ + "/round";
    const Tools none;
    for (const BoardSlot& slot : SlotsOf(boards_)) {
      if (NamesIn(sockets_.Path()).empty()) return;
      SshBoard(boards_[slot.board], none, slot.slot, sockets_.Path(), scratch + "/lock", signals_)
          .Close(scratch);
    }
  }

  const FleetRunRequest& request_;
  const std::string& fleet_;
  FleetPlan plan_;
  FolderLock lock_;
  Console& console_;
  FleetProgress progress_{fleet_, plan_, "board", console_};
  StopSignals signals_;
  SocketsFolder sockets_{fleet_};
  std::vector<Board> boards_;
};

}  // namespace

bool VerifyAttempts(const std::string& fleet, const FleetPlan& plan, bool isAgain, Console& console,
                    StopSignals& signals) {
  HoldToOwnFiles(fleet, plan);
  return Verifier(fleet, plan, isAgain, console, signals).Run();
}

ExitStatus TellOfStop(const std::string& named, Console& console) {
  console.Say(
      "was stopped while it looked at what is there, and nothing is lost; go on with "
      "'vorn fleet resume " +
      QuotedCommand({named}) + "'");
  return ExitStatus::kPartial;
}

std::vector<uint64_t> ChunksToDo(const FleetState& state) {
  std::vector<uint64_t> chunks;
  for (size_t i = 0; i < state.chunks.size(); ++i) {
    const ChunkStatus status = state.chunks[i].status;
    if (status == ChunkStatus::kToDo || status == ChunkStatus::kRunning) chunks.push_back(i);
  }
  return chunks;
}

ExitStatus TellOfEnd(const std::string& named, const FleetPlan& plan, const FleetState& state,
                     Console& console) {
  const uint64_t done = state.Done();
  console.Say(std::to_string(done) + " of " + Counted(plan.inferences, "inference") + " done, " +
              std::to_string(state.CountOf(ChunkStatus::kDone)) + " of " +
              Counted(plan.chunks.size(), "chunk"));
  size_t told = 0;
  for (size_t i = 0; i < state.chunks.size(); ++i) {
    const ChunkState& chunk = state.chunks[i];
    if (chunk.status == ChunkStatus::kDone || chunk.reason.empty()) continue;
    if (++told > kMostTold) continue;
    console.Say("chunk " + std::to_string(i) + " (inferences " +
                std::to_string(plan.chunks[i].first) + " to " +
                std::to_string(plan.chunks[i].first + plan.chunks[i].inferences - 1) +
                "): " + chunk.reason);
  }
  if (told > kMostTold) console.Say("and " + std::to_string(told - kMostTold) + " chunks more");
  const std::vector<std::string> disagreeing = DisagreeingBoards(state);
  for (const std::string& board : disagreeing) {
    console.Say("board " + board +
                " gives other outputs than most boards for the inferences that "
                "all of them run");
  }
  const std::string folder = QuotedCommand({named});
  if (done == plan.inferences) {
    console.Say("put it together with 'vorn fleet merge " + folder + " --run RUN'");
    return ExitStatus::kDone;
  }
  const bool isGivenUp = ChunksToDo(state).empty();
  console.Say(std::string("go on with 'vorn fleet resume ") + folder +
              (isGivenUp ? " --again" : "") +
              "', or put together what is there with 'vorn fleet merge " + folder + " --run RUN'");
  return ExitStatus::kPartial;
}

ExitStatus RunFleetBySsh(const FleetRunRequest& request, Console& console) {
  return FleetRun(request, console).Run();
}

}  // namespace vorn::kit
