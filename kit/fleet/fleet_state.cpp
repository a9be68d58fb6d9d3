#include "kit/fleet/fleet_state.h"

#include <algorithm>

namespace vorn::kit {
namespace {

constexpr size_t kMostSampleTimes = 64;

bool IsCounted(ChunkStatus status) {
  return status == ChunkStatus::kDone || status == ChunkStatus::kPartial ||
         status == ChunkStatus::kAside;
}

void TakeSuccess(const JournalRecord& record, BoardState& board) {
  board.failuresInARow = 0;
  board.areProgramsInDoubt = false;
  if (!record.chunk) {
    board.checked = record.attempt;
    board.checkOutputs = record.outputs;
    return;
  }
  ++board.done;
  board.samples += record.done;
  const auto launch = record.phases.find("launch");
  if (launch == record.phases.end() || record.done == 0) return;
  if (board.sampleNs.size() == kMostSampleTimes) board.sampleNs.erase(board.sampleNs.begin());
  board.sampleNs.push_back(static_cast<double>(launch->second) / static_cast<double>(record.done));
}

void TakeFailure(const JournalRecord& record, BoardState& board) {
  if (record.blame == Blame::kNobody) return;
  ++board.failed;
  board.reason = record.reason;
  board.areProgramsInDoubt = MayBeOfPrograms(record);
  // Samples that end their process are no fault of the board while it does others.
  if (record.blame != Blame::kSamples) ++board.failuresInARow;
}

void TakeForBoard(const JournalRecord& record, BoardState& board) {
  if (board.firstNs == 0) board.firstNs = record.realtimeNs;
  board.firstNs = std::min(board.firstNs, record.realtimeNs);
  board.lastNs = std::max(board.lastNs, record.realtimeNs);
  if (!record.host.empty()) board.host = record.host;
  if (!record.machineId.empty()) board.machineId = record.machineId;
  if (!record.bootId.empty()) board.bootIds.insert(record.bootId);
  if (record.event == JournalEvent::kAside) {
    board.isAside = true;
    board.reason = record.reason;
  } else if (record.event == JournalEvent::kBack) {
    board.isAside = false;
    board.failuresInARow = 0;
  } else if (record.event == JournalEvent::kEnd || record.event == JournalEvent::kFound) {
    for (const auto& [name, ns] : record.phases) {
      board.phases[name] += ns;
      board.busyNs += ns;
    }
    if (record.outcome == AttemptOutcome::kDone) {
      TakeSuccess(record, board);
    } else {
      TakeFailure(record, board);
      if (record.outcome == AttemptOutcome::kPartial) board.samples += record.done;
    }
  } else if (record.event == JournalEvent::kLost && !record.chunk &&
             board.checked == record.attempt) {
    board.checked.reset();
    board.checkOutputs.clear();
  }
}

// The one that has most of it, of several the first.
void ChooseAttempt(ChunkState& chunk) {
  chunk.attempt = 0;
  chunk.done = 0;
  for (const auto& [attempt, done] : chunk.there) {
    if (chunk.attempt != 0 && done <= chunk.done) continue;
    chunk.attempt = attempt;
    chunk.done = done;
  }
}

void TakeEndForChunk(const JournalRecord& record, ChunkState& chunk) {
  chunk.running.erase(record.board);
  if (record.outcome != AttemptOutcome::kDone) {
    if (record.blame == Blame::kUnknown || record.blame == Blame::kSamples) {
      chunk.failed.insert(record.board);
    }
    if (!record.reason.empty()) chunk.reason = record.reason;
  }
  if (record.outcome == AttemptOutcome::kFailed) return;
  chunk.there[record.attempt] = record.done;
  ChooseAttempt(chunk);
}

}  // namespace

bool MayBeOfPrograms(const JournalRecord& end) {
  return end.blame == Blame::kBoard && end.phases.contains("launch");
}

uint64_t FleetState::CountOf(ChunkStatus status) const {
  return static_cast<uint64_t>(
      std::count_if(chunks.begin(), chunks.end(),
                    [&](const ChunkState& chunk) { return chunk.status == status; }));
}

uint64_t FleetState::Done() const {
  uint64_t done = 0;
  for (const ChunkState& chunk : chunks) done += chunk.done;
  return done;
}

uint64_t FleetState::Ends() const {
  uint64_t ends = 0;
  for (const auto& [name, board] : boards) {
    ends += board.done + board.failed + (board.isAside ? 1 : 0) + (board.checked ? 1 : 0);
  }
  return ends;
}

void TakeRecord(const JournalRecord& record, const FleetPlan& plan, FleetState& state) {
  state.chunks.resize(plan.chunks.size());
  state.lastNs = std::max(state.lastNs, record.realtimeNs);
  if (!record.board.empty()) TakeForBoard(record, state.boards[record.board]);
  if (!record.chunk || *record.chunk >= state.chunks.size()) return;
  ChunkState& chunk = state.chunks[*record.chunk];
  switch (record.event) {
    case JournalEvent::kBegin:
      ++chunk.attempts;
      chunk.running.insert(record.board);
      break;
    case JournalEvent::kEnd:
    case JournalEvent::kFound:
      TakeEndForChunk(record, chunk);
      break;
    case JournalEvent::kLost:
      chunk.running.erase(record.board);
      chunk.there.erase(record.attempt);
      ChooseAttempt(chunk);
      break;
    case JournalEvent::kAside:
      break;
    case JournalEvent::kBack:  // it is tried again as if for the first time
      chunk.failed.clear();
      chunk.running.clear();
      break;
  }
}

void Settle(const FleetPlan& plan, FleetState& state) {
  state.chunks.resize(plan.chunks.size());
  for (size_t i = 0; i < state.chunks.size(); ++i) {
    ChunkState& chunk = state.chunks[i];
    const bool isGivenUp = chunk.failed.size() >= kBoardsOfAChunk;
    if (chunk.attempt != 0 && chunk.done == plan.chunks[i].inferences) {
      chunk.status = ChunkStatus::kDone;
      chunk.reason.clear();
    } else if (isGivenUp) {
      chunk.status = chunk.attempt != 0 ? ChunkStatus::kPartial : ChunkStatus::kAside;
    } else {
      chunk.status = chunk.running.empty() ? ChunkStatus::kToDo : ChunkStatus::kRunning;
    }
    if (IsCounted(chunk.status)) chunk.running.clear();
  }
}

FleetState ReadFleetState(const std::string& fleet, const FleetPlan& plan) {
  FleetState state;
  state.unreadableLines =
      ReadJournals(fleet, [&](const JournalRecord& record) { TakeRecord(record, plan, state); });
  Settle(plan, state);
  return state;
}

std::vector<std::string> DisagreeingBoards(const FleetState& state) {
  std::map<std::string, size_t> counts;  // boards by what they gave
  size_t all = 0;
  std::optional<std::string> first;
  for (const auto& [name, board] : state.boards) {
    if (!board.checked) continue;
    if (!first) first = board.checkOutputs;
    ++counts[board.checkOutputs];
    ++all;
  }
  std::vector<std::string> disagreeing;
  if (counts.size() < 2) return disagreeing;
  const auto most = std::max_element(
      counts.begin(), counts.end(),
      [](const auto& one, const auto& other) { return one.second < other.second; });
  const std::string right = most->second * 2 > all ? most->first : first.value_or("");
  for (const auto& [name, board] : state.boards) {
    if (board.checked && board.checkOutputs != right) disagreeing.push_back(name);
  }
  return disagreeing;
}

}  // namespace vorn::kit
