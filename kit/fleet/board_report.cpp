#include "kit/fleet/board_report.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "kit/common/file_identity.h"
#include "kit/json/identity_json.h"
#include "kit/json/json.h"

namespace vorn::kit {
namespace {

constexpr int kReportSchema = 1;
constexpr int kReportIndent = 2;

template <typename Value>
void SetIfKnown(Json& object, const char* key, const std::optional<Value>& value) {
  if (value) object.Set(key, *value);
}

void SetIfAny(Json& object, const char* key, const std::string& text) {
  if (!text.empty()) object.Set(key, text);
}

Json FromBoard(const MergedBoard& board) {
  const BoardState& state = board.state;
  Json object = Json::Object({{"name", board.name}, {"folder", board.folder}});
  SetIfAny(object, "host", state.host);
  SetIfAny(object, "machineId", state.machineId);
  object.Set("boots", static_cast<uint64_t>(state.bootIds.size()));
  object.Set("chunksDone", state.done);
  object.Set("failedAttempts", state.failed);
  object.Set("samples", board.samples);
  object.Set("samplesInDoubt", board.inDoubt);
  if (const auto median = MedianOf(state.sampleNs)) {
    object.Set("medianSampleNs", static_cast<uint64_t>(std::llround(*median)));
  }
  SetIfKnown(object, "samplesPerSecond", board.samplesPerSecond);
  Json phases = Json::Object();
  for (const auto& [name, duration] : state.phases) phases.Set(name + "Ns", duration);
  object.Set("phases", std::move(phases));
  SetIfKnown(object, "highestTemperatureMilliC", board.highestTemperatureMilliC);
  SetIfKnown(object, "lowestFrequencyKhz", board.lowestFrequencyKhz);
  if (board.runtime) object.Set("runtime", FromIdentity(*board.runtime));
  object.Set("isChecked", board.isChecked);
  object.Set("disagreesAt", Json::ArrayOf(board.disagreesAt));
  object.Set("isAside", state.isAside);
  SetIfAny(object, "reason", state.reason);
  return object;
}

Json FromUnequal(const UnequalSample& sample) {
  Json object = Json::Object({{"index", sample.index}});
  if (sample.line != 0) object.Set("line", sample.line);
  Json attempts = Json::Array();
  for (const UnequalSample::Attempt& attempt : sample.attempts) {
    attempts.Append(Json::Object({{"board", attempt.board},
                                  {"attempt", attempt.attempt},
                                  {"isCrossCheck", attempt.isCrossCheck},
                                  {"outputsXxh3_128", attempt.outputs}}));
  }
  object.Set("attempts", std::move(attempts));
  return object;
}

Json FromUnfit(const UnfitAttempt& attempt) {
  return Json::Object({{"chunk", attempt.chunk},
                       {"attempt", attempt.attempt},
                       {"board", attempt.board},
                       {"reason", attempt.reason}});
}

template <typename Item>
Json FromAll(const std::vector<Item>& items, Json (*from)(const Item&)) {
  Json array = Json::Array();
  for (const Item& item : items) array.Append(from(item));
  return array;
}

}  // namespace

void BoardTimes::Take(const JournalRecord& record) {
  if (!record.chunk) return;
  const Attempt attempt{record.board, *record.chunk, record.attempt};
  if (record.event == JournalEvent::kBegin) {
    begun_[attempt] = record.realtimeNs;
    return;
  }
  const bool isEnd = record.event == JournalEvent::kEnd || record.event == JournalEvent::kFound;
  const auto begin = begun_.find(attempt);
  if (!isEnd || begin == begun_.end()) return;
  // Of what was found it is not known when it ended.
  const bool counts =
      record.event == JournalEvent::kEnd && record.done > 0 && record.realtimeNs > begin->second;
  if (counts) {
    Board& board = boards_[record.board];
    board.spans.push_back({.beginNs = begin->second, .endNs = record.realtimeNs});
    board.samples += record.done;
  }
  begun_.erase(begin);
}

std::optional<double> BoardTimes::SamplesPerSecond(const std::string& board) const {
  constexpr double kSecondNs = 1e9;
  const auto found = boards_.find(board);
  if (found == boards_.end()) return std::nullopt;
  std::vector<Span> spans = found->second.spans;
  std::sort(spans.begin(), spans.end(),
            [](const Span& one, const Span& other) { return one.beginNs < other.beginNs; });
  uint64_t busyNs = 0;
  uint64_t untilNs = 0;
  for (const Span& span : spans) {
    if (span.endNs <= untilNs) continue;
    busyNs += span.endNs - std::max(span.beginNs, untilNs);
    untilNs = span.endNs;
  }
  if (busyNs == 0) return std::nullopt;
  return static_cast<double>(found->second.samples) * kSecondNs / static_cast<double>(busyNs);
}

std::string ToJson(const BoardReport& facts) {
  return ToText(Json::Object({{"schema", kReportSchema},
                              {"fleet", facts.fleet},
                              {"boards", FromAll(facts.boards, FromBoard)},
                              {"crossCheck", Json::ArrayOf(facts.crossCheck)},
                              {"notDeterministic", facts.notDeterministic},
                              {"unequalSamples", FromAll(facts.unequal, FromUnequal)},
                              {"unfitAttempts", facts.unfitAttempts},
                              {"unfit", FromAll(facts.unfit, FromUnfit)}}),
                kReportIndent) +
         "\n";
}

std::string FolderNameOf(const std::string& board) {
  constexpr size_t kMostBytes = 200;
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  constexpr std::string_view kPlain =
      "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_@.";
  std::string name;
  for (const char c : board) {
    // A name that begins with a full stop is hidden, or leads elsewhere.
    const bool isPlain = kPlain.find(c) != kPlain.npos && !(name.empty() && c == '.');
    const auto byte = static_cast<unsigned char>(c);
    name += isPlain
                ? std::string(1, c)
                : std::string{'%', kDigits[byte / kDigits.size()], kDigits[byte % kDigits.size()]};
  }
  if (name.empty()) return "%";
  if (name.size() <= kMostBytes) return name;
  return name.substr(0, kMostBytes) + "%%" + Xxh3Of(board);
}

std::optional<double> MedianOf(std::vector<double> values) {
  if (values.empty()) return std::nullopt;
  std::sort(values.begin(), values.end());
  const size_t middle = values.size() / 2;
  return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

}  // namespace vorn::kit
