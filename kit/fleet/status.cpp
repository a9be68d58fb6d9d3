#include "kit/fleet/status.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <thread>
#include <utility>

#include "kit/common/folder_lock.h"
#include "kit/common/printable.h"
#include "kit/common/text_table.h"
#include "kit/fleet/board_report.h"
#include "kit/fleet/journal.h"
#include "kit/json/json.h"
#include "kit/launch/machine.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kSecondNs = 1'000'000'000;
constexpr uint64_t kMinuteS = 60;
constexpr uint64_t kHourS = 3600;
constexpr size_t kMostLeftTold = 20;  // chunks

constexpr std::array<const char*, 5> kChunkStatusNames{"to do", "running", "done", "partial",
                                                       "aside"};

const char* NameOfStatus(ChunkStatus status) {
  return kChunkStatusNames[static_cast<size_t>(status)];
}

std::string ClockText(uint64_t seconds) {
  std::array<char, 64> text{};
  const auto hours = static_cast<unsigned long long>(seconds / kHourS);
  const auto minutes = static_cast<unsigned long long>(seconds / kMinuteS % kMinuteS);
  const auto rest = static_cast<unsigned long long>(seconds % kMinuteS);
  if (hours > 0) {
    std::snprintf(text.data(), text.size(), "%llu:%02llu:%02llu", hours, minutes, rest);
  } else {
    std::snprintf(text.data(), text.size(), "%llu:%02llu", minutes, rest);
  }
  return text.data();
}

std::string RateText(std::optional<double> rate) {
  if (!rate) return "";
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), *rate < 10 ? "%.2f" : "%.1f", *rate);
  return text.data();
}

std::string ShareText(uint64_t part, uint64_t whole) {
  if (whole == 0) return "";
  constexpr double kHundred = 100;
  constexpr double kTenths = 10;
  std::array<char, 32> text{};
  // Never 100 % before it is all of it.
  const double share =
      std::floor(kHundred * kTenths * static_cast<double>(part) / static_cast<double>(whole)) /
      kTenths;
  std::snprintf(text.data(), text.size(), " (%.1f %%)", share);
  return text.data();
}

std::string StateName(const BoardStatus& board) {
  if (board.state.isAside) return "aside";
  return board.running > 0 ? "running" : "idle";
}

// Boards that have not ended a chunk yet are taken for one in the middle.
std::optional<double> RateOfRunning(const std::vector<BoardStatus>& boards) {
  std::vector<double> known;
  for (const BoardStatus& board : boards) {
    if (board.samplesPerSecond) known.push_back(*board.samplesPerSecond);
  }
  const std::optional<double> middle = MedianOf(known);
  if (!middle) return std::nullopt;
  double sum = 0;
  for (const BoardStatus& board : boards) {
    if (board.running > 0) sum += board.samplesPerSecond.value_or(*middle);
  }
  return sum > 0 ? std::optional(sum) : std::nullopt;
}

bool IsLeft(ChunkStatus status) {
  return status == ChunkStatus::kPartial || status == ChunkStatus::kAside;
}

// The slot that a board began a chunk at last.
using SlotsOfChunks = std::map<std::pair<std::string, uint64_t>, uint64_t>;

// A slot begins the next one while what came of the one before is on its way here.
void TakeRunning(const FleetState& state, const SlotsOfChunks& slots, FleetStatus& status) {
  std::map<std::string, std::set<uint64_t>> running;
  std::map<std::string, uint64_t> attempts;
  for (size_t i = 0; i < state.chunks.size(); ++i) {
    for (const std::string& board : state.chunks[i].running) {
      const auto slot = slots.find({board, i});
      running[board].insert(slot == slots.end() ? 0 : slot->second);
      ++attempts[board];
    }
  }
  for (BoardStatus& board : status.boards) {
    board.running = running[board.name].size();
    board.fetching = attempts[board.name] - board.running;
  }
}

void TakeLeft(const FleetPlan& plan, const FleetState& state, FleetStatus& status) {
  for (size_t i = 0; i < state.chunks.size(); ++i) {
    const ChunkState& chunk = state.chunks[i];
    if (!IsLeft(chunk.status)) continue;
    status.aside += plan.chunks[i].inferences - std::min(chunk.done, plan.chunks[i].inferences);
    status.left.push_back({.chunk = i, .about = plan.chunks[i], .state = chunk});
  }
}

void EstimateTime(FleetStatus& status) {
  status.samplesPerSecond = RateOfRunning(status.boards);
  if (!status.samplesPerSecond) return;
  const uint64_t there = std::min(status.done + status.aside, status.inferences);
  const double seconds = static_cast<double>(status.inferences - there) / *status.samplesPerSecond;
  constexpr double kMostSeconds = 1e12;
  status.leftSeconds = static_cast<uint64_t>(std::llround(std::min(seconds, kMostSeconds)));
}

// ---- For people ---------------------------------------------------------------------------------

std::string ChunksText(const FleetStatus& status) {
  std::string text = std::to_string(status.chunksDone) + " of " + Counted(status.chunks, "chunk");
  const auto add = [&](uint64_t count, const char* what) {
    if (count > 0) text += ", " + std::to_string(count) + " " + what;
  };
  add(status.chunksRunning, "running");
  add(status.chunksToDo, "to do");
  add(status.left.size(), "put aside");
  if (status.attemptsFailed > 0) text += "; " + Counted(status.attemptsFailed, "failed attempt");
  return text;
}

std::string SpeedText(const FleetStatus& status) {
  if (!status.samplesPerSecond) return "";
  std::string text = RateText(status.samplesPerSecond) + "/s";
  if (status.leftSeconds) text += ", " + ClockText(*status.leftSeconds) + " left";
  return text;
}

std::string BoardTable(const FleetStatus& status) {
  TextTable table({{.title = "board", .holdsNumbers = false},
                   {.title = "state", .holdsNumbers = false},
                   {.title = "chunks", .holdsNumbers = true},
                   {.title = "running", .holdsNumbers = true},
                   {.title = "fetching", .holdsNumbers = true},
                   {.title = "failed", .holdsNumbers = true},
                   {.title = "inferences", .holdsNumbers = true},
                   {.title = "a second", .holdsNumbers = true},
                   {.title = "trouble", .holdsNumbers = false}});
  for (const BoardStatus& board : status.boards) {
    table.Add({board.name, StateName(board), std::to_string(board.state.done),
               std::to_string(board.running), std::to_string(board.fetching),
               std::to_string(board.state.failed), std::to_string(board.state.samples),
               RateText(board.samplesPerSecond), board.state.reason});
  }
  return table.Text();
}

std::string LeftText(const LeftChunk& left) {
  std::string text = "chunk " + std::to_string(left.chunk) + " (inferences " +
                     std::to_string(left.about.first) + " to " +
                     std::to_string(left.about.first + left.about.inferences - 1) + ") " +
                     NameOfStatus(left.state.status);
  if (left.state.done > 0) text += ", " + std::to_string(left.state.done) + " done";
  std::string boards;
  for (const std::string& board : left.state.failed) {
    boards += (boards.empty() ? " on " : ", ") + Quoted(board);
  }
  text += boards;
  if (!left.state.reason.empty()) text += ": " + Printable(left.state.reason);
  return text + "\n";
}

// ---- For programs -------------------------------------------------------------------------------

Json FromBoardStatus(const BoardStatus& board) {
  Json object = Json::Object({{"name", board.name},
                              {"state", StateName(board)},
                              {"chunksDone", board.state.done},
                              {"running", board.running},
                              {"fetching", board.fetching},
                              {"failedAttempts", board.state.failed},
                              {"samples", board.state.samples}});
  if (board.samplesPerSecond) object.Set("samplesPerSecond", *board.samplesPerSecond);
  if (!board.state.host.empty()) object.Set("host", board.state.host);
  if (!board.state.reason.empty()) object.Set("reason", board.state.reason);
  object.Set("lastNotedRealtimeNs", board.state.lastNs);
  return object;
}

Json FromLeft(const LeftChunk& left) {
  Json object = Json::Object({{"chunk", left.chunk},
                              {"status", NameOfStatus(left.state.status)},
                              {"first", left.about.first},
                              {"inferences", left.about.inferences},
                              {"done", left.state.done},
                              {"boards", Json::ArrayOf(left.state.failed)}});
  if (!left.state.reason.empty()) object.Set("reason", left.state.reason);
  return object;
}

// ---- Where it is shown --------------------------------------------------------------------------

void Print(const std::string& text) {
  const bool isPrinted = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
  if (isPrinted && std::fflush(stdout) == 0) return;
  throw Fault(ExitStatus::kLimit, "cannot write to standard output: " + SystemReason(errno));
}

bool IsDrawable() {
  const char* kind = std::getenv("TERM");
  return isatty(STDOUT_FILENO) == 1 && (kind == nullptr || std::strcmp(kind, "dumb") != 0);
}

// As many lines as the terminal has, none wider than it: what has scrolled away cannot be drawn
// over.
std::string Fitted(const std::string& text, size_t& lines) {
  constexpr size_t kUsualRows = 24;
  constexpr size_t kUsualColumns = 80;
  winsize window{};
  const bool isKnown = ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) == 0 && window.ws_row > 2;
  const size_t rows = isKnown ? window.ws_row - size_t{1} : kUsualRows - 1;
  const size_t columns = isKnown && window.ws_col > 1 ? window.ws_col - size_t{1} : kUsualColumns;
  std::string fitted;
  lines = 0;
  for (size_t begin = 0; begin < text.size() && lines < rows; ++lines) {
    const size_t end = text.find('\n', begin);
    std::string line = text.substr(begin, end - begin);
    while (DisplayWidth(line) > columns) {
      // A character of several bytes goes whole.
      while (!line.empty() && (static_cast<unsigned char>(line.back()) & 0xC0U) == 0x80U) {
        line.pop_back();
      }
      if (!line.empty()) line.pop_back();
    }
    fitted += line + "\n";
    begin = end + 1;
  }
  return fitted;
}

// Between two attempts nothing runs for a moment, and there is more to do.
constexpr int kQuietLooks = 5;

void WatchFleet(const StatusRequest& request, const FleetPlan& plan) {
  int quiet = 0;
  const bool isDrawn = !request.isJson && IsDrawable();
  size_t linesBefore = 0;
  std::string before;
  for (;;) {
    const FleetStatus status = ReadFleetStatus(request.fleet, plan);
    if (isDrawn) {
      size_t lines = 0;
      const std::string text = Fitted(StatusText(status, RealtimeNs()), lines);
      const std::string up =
          linesBefore == 0 ? "" : "\x1b[" + std::to_string(linesBefore) + "A\r\x1b[J";
      Print(up + text);
      linesBefore = lines;
    } else {
      std::string line = request.isJson ? ToJson(status) : StatusLine(status) + "\n";
      if (line != before) Print(line);
      before = std::move(line);
    }
    quiet = status.chunksRunning + status.checksRunning == 0 ? quiet + 1 : 0;
    if (quiet > 0 && status.chunksToDo == 0) return;
    // Files go to boards before anything is begun there.
    if (quiet >= kQuietLooks && !IsFolderLocked(request.fleet)) return;
    std::this_thread::sleep_for(std::chrono::seconds(1));
  }
}

}  // namespace

FleetStatus ReadFleetStatus(const std::string& fleet, const FleetPlan& plan) {
  FleetState state;
  BoardTimes times;
  FleetStatus status;
  std::set<std::pair<std::string, uint64_t>> checks;
  SlotsOfChunks slots;
  state.unreadableLines = ReadJournals(fleet, [&](const JournalRecord& record) {
    TakeRecord(record, plan, state);
    if (!record.chunk && record.attempt > 0) {
      const std::pair check(record.board, record.attempt);
      record.event == JournalEvent::kBegin ? (void)checks.insert(check) : (void)checks.erase(check);
    }
    if (record.chunk && record.event == JournalEvent::kBegin) {
      slots[{record.board, *record.chunk}] = record.slot;
    }
    times.Take(record);
    status.lastNotedNs = std::max(status.lastNotedNs.value_or(0), record.realtimeNs);
  });
  Settle(plan, state);
  status.fleet = fleet;
  status.id = plan.id;
  status.inferences = plan.inferences;
  status.done = state.Done();
  status.chunks = plan.chunks.size();
  status.chunksDone = state.CountOf(ChunkStatus::kDone);
  status.chunksRunning = state.CountOf(ChunkStatus::kRunning);
  status.checksRunning = checks.size();
  status.chunksToDo = state.CountOf(ChunkStatus::kToDo);
  status.unreadableLines = state.unreadableLines;
  for (const auto& [name, board] : state.boards) {
    status.attemptsFailed += board.failed;
    status.boards.push_back({.name = name,
                             .state = board,
                             .running = 0,
                             .fetching = 0,
                             .samplesPerSecond = times.SamplesPerSecond(name)});
  }
  TakeRunning(state, slots, status);
  TakeLeft(plan, state, status);
  EstimateTime(status);
  return status;
}

std::string StatusText(const FleetStatus& status, uint64_t nowNs) {
  std::string text = StatusLine(status) + "\n";
  if (status.lastNotedNs) {
    const uint64_t ago =
        nowNs > *status.lastNotedNs ? (nowNs - *status.lastNotedNs) / kSecondNs : 0;
    text += "last noted " + ClockText(ago) + " ago\n";
  } else {
    text += "nothing has run yet\n";
  }
  if (status.unreadableLines > 0) {
    text += Counted(status.unreadableLines, "line") + " of the journals cannot be read\n";
  }
  if (!status.boards.empty()) text += "\n" + BoardTable(status);
  if (!status.left.empty()) text += "\n";
  for (size_t i = 0; i < status.left.size() && i < kMostLeftTold; ++i) {
    text += LeftText(status.left[i]);
  }
  if (status.left.size() > kMostLeftTold) {
    text += "and " + std::to_string(status.left.size() - kMostLeftTold) + " more\n";
  }
  return text;
}

std::string StatusLine(const FleetStatus& status) {
  std::string text = std::to_string(status.done) + " of " +
                     Counted(status.inferences, "inference") +
                     ShareText(status.done, status.inferences);
  if (status.aside > 0) text += ", " + std::to_string(status.aside) + " put aside";
  text += "; " + ChunksText(status);
  if (const std::string speed = SpeedText(status); !speed.empty()) text += "; " + speed;
  return text;
}

std::string ToJson(const FleetStatus& status) {
  Json boards = Json::Array();
  for (const BoardStatus& board : status.boards) boards.Append(FromBoardStatus(board));
  Json left = Json::Array();
  for (const LeftChunk& chunk : status.left) left.Append(FromLeft(chunk));
  Json object = Json::Object({{"schema", 1},
                              {"fleet", status.id},
                              {"inferences", status.inferences},
                              {"done", status.done},
                              {"aside", status.aside},
                              {"chunks", status.chunks},
                              {"chunksDone", status.chunksDone},
                              {"chunksRunning", status.chunksRunning},
                              {"chunksToDo", status.chunksToDo},
                              {"failedAttempts", status.attemptsFailed}});
  if (status.samplesPerSecond) object.Set("samplesPerSecond", *status.samplesPerSecond);
  if (status.leftSeconds) object.Set("leftSeconds", *status.leftSeconds);
  if (status.lastNotedNs) object.Set("lastNotedRealtimeNs", *status.lastNotedNs);
  object.Set("unreadableLines", status.unreadableLines);
  object.Set("boards", std::move(boards));
  object.Set("left", std::move(left));
  return ToText(object) + "\n";
}

ExitStatus ShowStatus(const StatusRequest& request) {
  const FleetPlan plan = ReadFleetPlan(request.fleet);
  if (request.isWatched) {
    WatchFleet(request, plan);
    return ExitStatus::kDone;
  }
  const FleetStatus status = ReadFleetStatus(request.fleet, plan);
  Print(request.isJson ? ToJson(status) : StatusText(status, RealtimeNs()));
  return ExitStatus::kDone;
}

}  // namespace vorn::kit
