#include "kit/report/fleet_facts.h"

#include <algorithm>
#include <map>
#include <vector>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "kit/common/printable.h"
#include "kit/json/identity_json.h"
#include "kit/json/json.h"
#include "kit/report/answer.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostBoardsBytes = 256 << 20;
constexpr size_t kMostSentences = 100;
constexpr size_t kMostIndices = 1000;

std::optional<uint64_t> CountIn(const Json& object, const char* key) {
  const Json* value = object.Find(key);
  return value == nullptr ? std::nullopt : std::optional(value->AsUnsigned());
}

std::string TextMember(const Json& object, const char* key) {
  const Json* value = object.Find(key);
  return value == nullptr ? "" : value->AsText();
}

bool IsSet(const Json& object, const char* key) {
  const Json* value = object.Find(key);
  return value != nullptr && value->AsBool();
}

std::vector<uint64_t> IndicesIn(const Json& object, const char* key) {
  std::vector<uint64_t> indices;
  const Json* array = object.Find(key);
  if (array == nullptr) return indices;
  for (const Json& index : array->Items()) {
    if (indices.size() == kMostIndices) break;
    indices.push_back(index.AsUnsigned());
  }
  return indices;
}

void TakePhases(const Json& json, ReportBoard& board) {
  const Json* phases = json.Find("phases");
  if (phases == nullptr) return;
  for (const auto& [name, duration] : phases->Members()) {
    if (board.phases.size() == kMostSentences) break;
    const bool hasUnit = name.size() > 2 && name.ends_with("Ns");
    board.phases.push_back(
        {hasUnit ? name.substr(0, name.size() - 2) : name, duration.AsUnsigned()});
  }
}

ReportBoard BoardOf(const Json& json) {
  ReportBoard board;
  board.name = json.At("name").AsText();
  board.host = TextMember(json, "host");
  board.chunksDone = CountIn(json, "chunksDone").value_or(0);
  board.failedAttempts = CountIn(json, "failedAttempts").value_or(0);
  board.samples = CountIn(json, "samples").value_or(0);
  board.inDoubt = CountIn(json, "samplesInDoubt").value_or(0);
  if (const Json* rate = json.Find("samplesPerSecond")) board.samplesPerSecond = rate->AsNumber();
  board.medianSampleNs = CountIn(json, "medianSampleNs");
  if (const Json* highest = json.Find("highestTemperatureMilliC")) {
    board.highestTemperatureMilliC = highest->AsSigned();
  }
  board.lowestFrequencyKhz = CountIn(json, "lowestFrequencyKhz");
  if (const Json* runtime = json.Find("runtime")) {
    const FileIdentity file = ToIdentity(*runtime);
    board.runtime = file.path;
    board.runtimeHash = file.xxh3.value_or("");
  }
  board.isChecked = IsSet(json, "isChecked");
  board.disagreesAt = IndicesIn(json, "disagreesAt");
  board.isAside = IsSet(json, "isAside");
  board.reason = TextMember(json, "reason");
  TakePhases(json, board);
  return board;
}

// "sample 7: 'a' and 'c' gave one output, 'b' another".
std::string UnequalText(const Json& json) {
  std::map<std::string, std::vector<std::string>> byOutputs;
  for (const Json& attempt : json.At("attempts").Items()) {
    byOutputs[attempt.At("outputsXxh3_128").AsText()].push_back(
        InQuotes(attempt.At("board").AsText()));
  }
  std::string text = "sample " + std::to_string(json.At("index").AsUnsigned()) + ": ";
  bool isFirst = true;
  for (const auto& [outputs, boards] : byOutputs) {
    if (!isFirst) text += ", other ones by ";
    if (isFirst) text += "one set of outputs by ";
    for (size_t i = 0; i < std::min<size_t>(boards.size(), 5); ++i) {
      text += (i == 0 ? "" : " and ") + boards[i];
    }
    if (boards.size() > 5) text += " and " + std::to_string(boards.size() - 5) + " more";
    isFirst = false;
  }
  return text;
}

std::string UnfitText(const Json& json) {
  return "chunk " + std::to_string(json.At("chunk").AsUnsigned()) + ", attempt " +
         std::to_string(json.At("attempt").AsUnsigned()) + " of " +
         InQuotes(json.At("board").AsText()) + ": " + json.At("reason").AsText();
}

template <typename Tell>
std::vector<std::string> SentencesIn(const Json& object, const char* key, Tell tell) {
  std::vector<std::string> sentences;
  const Json* array = object.Find(key);
  if (array == nullptr) return sentences;
  for (const Json& item : array->Items()) {
    if (sentences.size() == kMostSentences) break;
    sentences.push_back(tell(item));
  }
  return sentences;
}

}  // namespace

ReportFleet ParseFleetFacts(std::string_view text) {
  const Json json = ParseJson(text);
  ReportFleet fleet;
  fleet.id = json.At("fleet").AsText();
  const auto& boards = json.At("boards").Items();
  const size_t shown = std::min(boards.size(), kMostReportBoards);
  for (size_t i = 0; i < shown; ++i) fleet.boards.push_back(BoardOf(boards[i]));
  fleet.boardsLeftOut = boards.size() - shown;
  fleet.crossCheck = IndicesIn(json, "crossCheck");
  fleet.notDeterministic = CountIn(json, "notDeterministic").value_or(0);
  fleet.unequal = SentencesIn(json, "unequalSamples", UnequalText);
  fleet.unfitAttempts = CountIn(json, "unfitAttempts").value_or(0);
  fleet.unfit = SentencesIn(json, "unfit", UnfitText);
  return fleet;
}

ReportFleet ReadFleetFacts(const std::string& path) {
  const std::string text =
      ReadWholeFile(path, "what is told of the boards", ExitStatus::kInput, kMostBoardsBytes);
  try {
    return ParseFleetFacts(text);
  } catch (const JsonError& error) {
    throw Fault(ExitStatus::kInput,
                "what is told of the boards, " + Quoted(path) + ": " + error.what());
  }
}

}  // namespace vorn::kit
