#include "kit/fleet/round.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <set>
#include <utility>

#include "kit/common/file_identity.h"
#include "kit/common/file_place.h"
#include "kit/common/folder_names.h"
#include "kit/common/own_folder.h"
#include "kit/common/printable.h"
#include "kit/common/whole_file.h"
#include "kit/fleet/job.h"
#include "kit/fleet/locked_file.h"
#include "kit/fleet/ssh_board.h"
#include "kit/launch/machine.h"
#include "kit/launch/run_folder.h"

namespace vorn::kit {
namespace {

constexpr const char* kRoundFolder = "round";
constexpr uint64_t kMostStateBytes = 64 << 20;
constexpr size_t kTicketsASlot = 2;

std::string RoundOf(const std::string& fleet) { return fleet + "/" + kRoundFolder; }

std::string BoardFileOf(const std::string& fleet, const Board& board, const char* what) {
  return RoundOf(fleet) + "/boards/" + board.name + "." + what;
}

std::vector<uint64_t> NumbersIn(const std::string& path) {
  std::vector<uint64_t> numbers;
  if (!IsThere(path)) return numbers;
  const std::string text =
      ReadWholeFile(path, "a file of the round", ExitStatus::kLimit, kMostStateBytes);
  const char* at = text.data();
  const char* const end = at + text.size();
  while (at < end) {
    uint64_t number = 0;
    const auto [behind, error] = std::from_chars(at, end, number);
    if (error == std::errc()) numbers.push_back(number);
    at = behind + 1;
  }
  return numbers;
}

void Append(const std::string& path, const std::string& text) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
  const bool isWritten =
      fd >= 0 && write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  const int error = errno;
  if (fd >= 0) close(fd);
  if (isWritten) return;
  throw Fault(ExitStatus::kLimit, "cannot write " + Quoted(path) + ": " + SystemReason(error));
}

size_t PlacesOf(const std::vector<Board>& boards) { return SlotsOf(boards).size() * kTicketsASlot; }

std::string LinesOf(const std::vector<uint64_t>& numbers) {
  std::string text;
  for (const uint64_t number : numbers) text += std::to_string(number) + "\n";
  return text;
}

class Ticket {
 public:
  explicit Ticket(const TicketRequest& request)
      : request_(request),
        fleet_(request.fleet),
        plan_(ReadFleetPlan(fleet_)),
        boards_(ReadBoards(RoundOf(fleet_) + "/boards.json")),
        slots_(SlotsOf(boards_)),
        // The first tickets go to a slot each.
        slot_(slots_.at((request.place - 1) % slots_.size())),
        board_(boards_[slot_.board]),
        journal_(fleet_, "board-" + board_.name + "-" + std::to_string(slot_.slot) +
                             (request.place > slots_.size() ? ".2" : "")),
        tools_(FindTools(board_.tools, RoundOf(fleet_), signals_)),
        ssh_(board_, tools_, slot_.slot, request.sockets, BoardFileOf(fleet_, board_, "lock"),
             signals_) {
    for (const uint64_t ns : NumbersIn(RoundOf(fleet_) + "/shift")) journal_.Shift(ns);
  }

  void Run() {
    while (!IsThere(RoundOf(fleet_) + "/over")) {
      try {
        const LockedFile running(RoundOf(fleet_) + "/running");
        if (!running.Take(LockedFile::Share::kWithOthers, signals_) || TakeAndRun()) return;
      } catch (const Fault& fault) {
        // The others would fail by the same.
        if (fault.Status() == ExitStatus::kLimit) {
          Append(RoundLimitFile(fleet_), "");
          Append(RoundOf(fleet_) + "/over", "");
        }
        throw;
      }
      turn_.reset();
      if (!WaitForWork()) return;
    }
  }

 private:
  // False where there is nothing to take for this board.
  bool TakeAndRun() {
    for (bool isTurnFirst = false;; isTurnFirst = true) {
      if (IsAside() || Takeable().empty()) return false;
      // The check waits for its turn, so that nobody may wait for the check who has the turn.
      if (!CheckBoard()) return true;
      // With few left who holds one back keeps others from work.
      const bool areFewLeft = Unclaimed().size() < slots_.size();
      if ((isTurnFirst || areFewLeft) && !TakeTurn()) return true;
      if (IsAside()) return false;
      const auto chunk = Claim();
      if (!chunk) return false;
      const bool wasGivenUp = !AttemptAt(*chunk);
      turn_.reset();
      if (!wasGivenUp) return true;
      // Somebody else may take it.
      (void)unlink(ClaimOf(*chunk).c_str());
      if (signals_.Asked() != 0) return true;
    }
  }

  // False where it was given up before it began.
  bool AttemptAt(uint64_t chunk) {
    const AttemptEnd end = Attempt(chunk);
    if (end.wasGivenUp) return false;
    Conclude(end, chunk);
    return true;
  }

  // ---- Whose turn it is at the slot -------------------------------------------------------------

  LockedFile Turn() const {
    const std::string name = "turn-" + std::to_string(slot_.slot);
    return LockedFile(BoardFileOf(fleet_, board_, name.c_str()));
  }

  bool TakeTurn() {
    if (turn_) return true;
    LockedFile turn = Turn();
    if (!turn.Take(LockedFile::Share::kAlone, signals_)) return false;
    turn_ = std::move(turn);
    return true;
  }

  // False also where another slot has nothing to do and could take the chunk, or where its board
  // was put aside meanwhile.
  bool TakeTurnUnlessOthersCould(uint64_t chunk) {
    constexpr std::chrono::milliseconds kTick{10};
    constexpr int kTicksALook = 20;
    if (turn_) return true;
    LockedFile turn = Turn();
    for (int tick = 1; !turn.TryTake(LockedFile::Share::kAlone); ++tick) {
      signals_.Wait(kTick);
      if (signals_.Asked() != 0) return false;
      if (tick % kTicksALook == 0 && (IsAside() || IsAnybodyFreeFor(chunk))) return false;
    }
    turn_ = std::move(turn);
    return !IsAside();
  }

  // ---- What there is to take --------------------------------------------------------------------

  bool IsAnybodyFreeFor(uint64_t chunk) const {
    for (const std::string& name : Waiting()) {
      const uint64_t place = std::strtoull(name.c_str(), nullptr, 10);
      const Board& board = boards_[slots_[(place + slots_.size() - 1) % slots_.size()].board];
      if (IsThere(BoardFileOf(fleet_, board, "aside"))) continue;
      const std::vector<uint64_t> failed = NumbersIn(BoardFileOf(fleet_, board, "failed"));
      if (std::find(failed.begin(), failed.end(), chunk) == failed.end()) return true;
    }
    return false;
  }

  bool IsAside() const { return IsThere(BoardFileOf(fleet_, board_, "aside")); }

  std::string ClaimOf(uint64_t chunk) const {
    return RoundOf(fleet_) + "/claims/" + std::to_string(chunk);
  }

  bool IsChecked() const {
    return plan_.crossCheck.empty() || IsThere(BoardFileOf(fleet_, board_, "checked"));
  }

  std::vector<uint64_t> Unclaimed() const {
    std::set<uint64_t> claimed;
    for (const std::string& name : NamesIn(RoundOf(fleet_) + "/claims")) {
      claimed.insert(std::strtoull(name.c_str(), nullptr, 10));
    }
    std::vector<uint64_t> chunks = NumbersIn(RoundOf(fleet_) + "/chunks.txt");
    std::erase_if(chunks, [&](uint64_t chunk) { return claimed.contains(chunk); });
    return chunks;
  }

  // Of those that nobody has taken, those that this board may.
  std::vector<uint64_t> Takeable() const {
    const std::vector<uint64_t> failed = NumbersIn(BoardFileOf(fleet_, board_, "failed"));
    const std::set<uint64_t> mine(failed.begin(), failed.end());
    std::vector<uint64_t> chunks = Unclaimed();
    std::erase_if(chunks, [&](uint64_t chunk) {
      return chunk >= plan_.chunks.size() || mine.contains(chunk);
    });
    return chunks;
  }

  std::optional<uint64_t> Claim() const {
    for (const uint64_t chunk : Takeable()) {
      const int fd = open(ClaimOf(chunk).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
      if (fd < 0) continue;
      close(fd);
      return chunk;
    }
    return std::nullopt;
  }

  // The first one that comes to a board has it show what it makes of some inferences.
  bool CheckBoard() {
    if (IsChecked()) return true;
    const std::string checked = BoardFileOf(fleet_, board_, "checked");
    const LockedFile one(BoardFileOf(fleet_, board_, "check"));
    if (!one.Take(LockedFile::Share::kAlone, signals_)) return false;
    if (IsChecked()) return true;
    if (IsAside()) return false;
    const AttemptEnd end = Attempt(std::nullopt);
    if (end.wasGivenUp) return false;
    if (end.record.outcome == AttemptOutcome::kDone) {
      Append(checked, "");
      return true;
    }
    // Inferences that end their process do so of a chunk, too, and are told of there.
    if (end.record.blame == Blame::kSamples) {
      Append(checked, "");
      return true;
    }
    Conclude(end, std::nullopt);
    return false;
  }

  AttemptEnd Attempt(std::optional<uint64_t> chunk) {
    const uint64_t inferences = chunk ? plan_.chunks[*chunk].inferences : plan_.crossCheck.size();
    const auto limitNow = [&] { return LimitOf(Times(), inferences); };
    const AttemptRequest attempt{.fleet = fleet_,
                                 .chunk = chunk,
                                 .board = board_.name,
                                 .slot = slot_.slot,
                                 .config = board_.config,
                                 .limit = limitNow(),
                                 // One that hangs at its first chunk has others to be told by.
                                 .laterLimit = limitNow,
                                 .doesEngineBegin = true};
    const LaunchTurn turn{
        .take =
            [&] { return chunk ? TakeTurnUnlessOthersCould(*chunk) : TakeTurn() && !IsAside(); },
        .end = [&] { turn_.reset(); }};
    return RunAttempt(
        plan_, attempt, FilesOnBoard::kByHash,
        [&](BoardWork work) {
          work.areFilesStale = IsThere(BoardFileOf(fleet_, board_, "stale"));
          BoardEnd board = ssh_.Run(work, turn);
          // Once: it is something else where they do not run then, either.
          if (work.areFilesStale && board.phases.contains("launch")) {
            Append(BoardFileOf(fleet_, board_, "anew"), "");
            (void)unlink(BoardFileOf(fleet_, board_, "stale").c_str());
          }
          return board;
        },
        journal_);
  }

  // This board's, or all where it has none yet.
  std::vector<uint64_t> Times() const {
    std::vector<uint64_t> times = NumbersIn(BoardFileOf(fleet_, board_, "times"));
    if (!times.empty()) return times;
    for (const Board& board : boards_) {
      const std::vector<uint64_t> its = NumbersIn(BoardFileOf(fleet_, board, "times"));
      times.insert(times.end(), its.begin(), its.end());
    }
    return times;
  }

  void Conclude(const AttemptEnd& end, std::optional<uint64_t> chunk) {
    const std::string row = BoardFileOf(fleet_, board_, "row");
    const JournalRecord& record = end.record;
    if (record.outcome == AttemptOutcome::kDone) {
      (void)unlink(row.c_str());
      for (const char* what : {"stale", "anew"}) {
        (void)unlink(BoardFileOf(fleet_, board_, what).c_str());
      }
      const auto launch = record.phases.find("launch");
      if (launch != record.phases.end() && record.done > 0) {
        Append(BoardFileOf(fleet_, board_, "times"),
               std::to_string(launch->second / record.done) + "\n");
      }
      return;
    }
    if (end.hasOtherFiles) Forget(end);
    if (MayBeOfPrograms(record) && !IsThere(BoardFileOf(fleet_, board_, "anew"))) {
      Append(BoardFileOf(fleet_, board_, "stale"), "");
    }
    const bool isChunks = record.blame == Blame::kSamples || record.blame == Blame::kUnknown;
    if (chunk && isChunks) {
      Append(BoardFileOf(fleet_, board_, "failed"), std::to_string(*chunk) + "\n");
    }
    if (record.blame == Blame::kNobody || record.blame == Blame::kSamples) return;
    Append(row, "x");
    if (SizeOfFile(row) >= kFailuresOfABoard) PutAside(record.reason);
  }

  void Forget(const AttemptEnd& end) {
    const std::string scratch = RoundOf(fleet_) + "/forget-" + std::to_string(request_.place);
    MakeFolders(scratch);
    ssh_.Forget(end.files, scratch);
    RemoveTree(scratch);
  }

  void PutAside(const std::string& reason) {
    const std::string aside = BoardFileOf(fleet_, board_, "aside");
    if (IsThere(aside)) return;
    Append(aside, "");
    journal_.Note({.event = JournalEvent::kAside,
                   .realtimeNs = RealtimeNs(),
                   .board = board_.name,
                   .slot = slot_.slot,
                   .chunk = {},
                   .attempt = 0,
                   .host = {},
                   .machineId = {},
                   .bootId = {},
                   .outcome = {},
                   .blame = {},
                   .reason = Counted(kFailuresOfABoard, "failure") +
                             " one after the other, the last one: " + reason,
                   .done = 0,
                   .notDone = 0,
                   .outputs = {},
                   .phases = {},
                   .sentBytes = 0,
                   .fetchedBytes = 0});
  }

  std::vector<std::string> Waiting() const { return NamesIn(RoundOf(fleet_) + "/waiting"); }

  // Held no longer than to ask: whoever wants to begin would wait for it.
  bool IsNobodyAtWork() const {
    const LockedFile running(RoundOf(fleet_) + "/running");
    return running.TryTake(LockedFile::Share::kAlone);
  }

  // A slot with nothing to do must not use the tickets up that others would have work for. True
  // where there is something to take again.
  bool WaitForWork() {
    constexpr int kTicks = 300;  // of which nobody was at work: some slot gets no ticket any more
    constexpr std::chrono::milliseconds kTick{200};
    const std::string here = RoundOf(fleet_) + "/waiting/" + std::to_string(request_.place);
    Append(here, "");
    for (int quiet = 0; quiet < kTicks && signals_.Asked() == 0; ++quiet) {
      const bool isQuiet = IsNobodyAtWork();
      if (!isQuiet) quiet = 0;
      if (!IsAside() && !Takeable().empty()) {
        (void)unlink(here.c_str());
        return true;
      }
      const bool doAllWait = Waiting().size() >= PlacesOf(boards_);
      // A claim is given back by none but whoever is at work.
      if (isQuiet && (doAllWait || Unclaimed().empty())) break;
      signals_.Wait(kTick);
    }
    if (signals_.Asked() == 0) Append(RoundOf(fleet_) + "/over", "");
    return false;
  }

  const TicketRequest& request_;
  const std::string& fleet_;
  StopSignals signals_;
  FleetPlan plan_;
  std::vector<Board> boards_;
  std::vector<BoardSlot> slots_;
  BoardSlot slot_;
  const Board& board_;
  Journal journal_;
  Tools tools_;
  SshBoard ssh_;
  std::optional<LockedFile> turn_;  // empty: it is not this one's
};

}  // namespace

std::string RoundLimitFile(const std::string& fleet) { return RoundOf(fleet) + "/limit"; }

void PrepareRound(const std::string& fleet, const FleetState& state, std::vector<Board> boards,
                  const std::vector<uint64_t>& chunks, StopSignals& signals) {
  const std::string round = RoundOf(fleet);
  RemoveTree(round);
  MakeFolders(round + "/claims");
  MakeFolders(round + "/boards");
  MakeFolders(round + "/waiting");
  for (Board& board : boards) {
    if (!board.tools.empty()) board.tools = Absolute(FindTools(board.tools, round, signals).folder);
    if (!board.config.empty()) board.config = Absolute(board.config);
    std::vector<uint64_t> failed;
    for (size_t i = 0; i < state.chunks.size(); ++i) {
      if (state.chunks[i].failed.contains(board.name)) failed.push_back(i);
    }
    Append(BoardFileOf(fleet, board, "failed"), LinesOf(failed));
    const auto known = state.boards.find(board.name);
    if (known == state.boards.end()) continue;
    std::vector<uint64_t> times;
    for (const double ns : known->second.sampleNs) times.push_back(static_cast<uint64_t>(ns));
    Append(BoardFileOf(fleet, board, "times"), LinesOf(times));
    Append(BoardFileOf(fleet, board, "row"), std::string(known->second.failuresInARow, 'x'));
    if (known->second.areProgramsInDoubt) Append(BoardFileOf(fleet, board, "stale"), "");
    if (known->second.checked) Append(BoardFileOf(fleet, board, "checked"), "");
    if (known->second.isAside) Append(BoardFileOf(fleet, board, "aside"), "");
  }
  WriteWholeFile(round + "/boards.json", ToJson(boards));
  WriteWholeFile(round + "/chunks.txt", LinesOf(chunks));
  WriteWholeFile(round + "/shift", LinesOf({ShiftBehind(state.lastNs, RealtimeNs())}));
}

std::string TicketsFor(const std::vector<Board>& boards, size_t chunks) {
  std::string tickets;
  const size_t count = chunks + PlacesOf(boards) * (kFailuresOfABoard + 1);
  for (size_t i = 1; i <= count; ++i) tickets += std::to_string(i) + "\n";
  return tickets;
}

std::vector<std::string> RoundCommand(const std::vector<Board>& boards) {
  // The command is a text for a shell, so that what it is about comes by the environment.
  constexpr const char* kTicket =
      "exec \"$VORN_FLEET_PROGRAM\" ticket \"$VORN_FLEET_FOLDER\" --place {%} "
      "--sockets \"$VORN_FLEET_SOCKETS\" # {}";
  return {"parallel",    "--plain",
          "--will-cite", "--ungroup",
          "--jobs",      std::to_string(PlacesOf(boards)),
          "--termseq",   "TERM,30000,KILL,1000",
          kTicket};
}

ExitStatus RunTicket(const TicketRequest& request) {
  // It is not to go on where whoever hands out tickets is gone.
  (void)prctl(PR_SET_PDEATHSIG, SIGTERM);
  Ticket(request).Run();
  return ExitStatus::kDone;
}

}  // namespace vorn::kit
