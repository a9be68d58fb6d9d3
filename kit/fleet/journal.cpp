#include "kit/fleet/journal.h"

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "kit/common/folder_names.h"
#include "kit/common/printable.h"
#include "kit/fleet/fleet_plan.h"
#include "kit/json/json.h"
#include "kit/json/json_members.h"
#include "kit/launch/run_folder.h"
#include "kit/run/run_directory.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kJournalSchema = 1;
constexpr std::string_view kCheck = ",\"check\":\"";
constexpr std::string_view kSuffix = ".jsonl";

// By the value of the enumeration.
constexpr std::array<std::string_view, 6> kEvents{"begin", "end", "found", "lost", "aside", "back"};
constexpr std::array<std::string_view, 3> kOutcomes{"done", "partial", "failed"};
constexpr std::array<std::string_view, 4> kBlames{"nobody", "board", "unknown", "samples"};

void PutText(Json& object, const char* key, const std::string& text) {
  if (!text.empty()) object.Set(key, text);
}

void TakeText(const Json& object, const char* key, std::string& text) {
  if (const Json* found = object.Find(key)) text = found->AsText();
}

bool HasOutcome(JournalEvent event) {
  return event == JournalEvent::kEnd || event == JournalEvent::kFound;
}

Json FromRecord(const JournalRecord& record) {
  Json object = Json::Object({{"schema", kJournalSchema},
                              {"event", kEvents[static_cast<size_t>(record.event)]},
                              {"realtimeNs", record.realtimeNs},
                              {"board", record.board},
                              {"slot", record.slot}});
  if (record.chunk) object.Set("chunk", *record.chunk);
  object.Set("attempt", record.attempt);
  PutText(object, "host", record.host);
  PutText(object, "machineId", record.machineId);
  PutText(object, "bootId", record.bootId);
  PutText(object, "reason", Printable(record.reason));
  if (!HasOutcome(record.event)) return object;
  object.Set("outcome", kOutcomes[static_cast<size_t>(record.outcome)]);
  object.Set("blame", kBlames[static_cast<size_t>(record.blame)]);
  object.Set("done", record.done);
  object.Set("notDone", record.notDone);
  PutText(object, "outputsXxh3_128", record.outputs);
  Json phases = Json::Object();
  for (const auto& [name, ns] : record.phases) phases.Set(name, ns);
  object.Set("phasesNs", std::move(phases));
  object.Set("sentBytes", record.sentBytes);
  object.Set("fetchedBytes", record.fetchedBytes);
  return object;
}

JournalRecord ToRecord(const Json& object) {
  JournalRecord record;
  record.event = EnumOf<JournalEvent>(object.At("event").AsText(), kEvents);
  record.realtimeNs = object.At("realtimeNs").AsUnsigned();
  record.board = object.At("board").AsText();
  record.slot = object.At("slot").AsUnsigned();
  if (const Json* chunk = object.Find("chunk")) record.chunk = chunk->AsUnsigned();
  record.attempt = object.At("attempt").AsUnsigned();
  TakeText(object, "host", record.host);
  TakeText(object, "machineId", record.machineId);
  TakeText(object, "bootId", record.bootId);
  TakeText(object, "reason", record.reason);
  if (!HasOutcome(record.event)) return record;
  record.outcome = EnumOf<AttemptOutcome>(object.At("outcome").AsText(), kOutcomes);
  record.blame = EnumOf<Blame>(object.At("blame").AsText(), kBlames);
  record.done = object.At("done").AsUnsigned();
  record.notDone = object.At("notDone").AsUnsigned();
  TakeText(object, "outputsXxh3_128", record.outputs);
  for (const auto& [name, ns] : object.At("phasesNs").Members()) {
    record.phases[name] = ns.AsUnsigned();
  }
  record.sentBytes = object.At("sentBytes").AsUnsigned();
  record.fetchedBytes = object.At("fetchedBytes").AsUnsigned();
  return record;
}

std::string FolderOf(const std::string& fleet) { return fleet + "/" + kJournalFolder; }

std::string PathOf(const std::string& fleet, const std::string& name) {
  MakeFolders(FolderOf(fleet));
  return FolderOf(fleet) + "/" + name + std::string(kSuffix);
}

}  // namespace

std::string ToLine(const JournalRecord& record) {
  std::string text = ToText(FromRecord(record));
  const std::string check = Xxh3Of(text);
  text.pop_back();  // the bracket
  return text + std::string(kCheck) + check + "\"}\n";
}

std::optional<JournalRecord> JournalFromLine(std::string_view line) {
  const size_t at = line.rfind(kCheck);
  if (at == std::string_view::npos || !line.ends_with("\"}")) return std::nullopt;
  const std::string_view check = line.substr(at + kCheck.size());
  const std::string text = std::string(line.substr(0, at)) + "}";
  if (check.substr(0, check.size() - 2) != Xxh3Of(text)) return std::nullopt;
  return ToRecord(ParseJson(text));
}

Journal::Journal(const std::string& fleet, const std::string& name) : file_(PathOf(fleet, name)) {}

void Journal::Note(const JournalRecord& record) {
  JournalRecord shifted = record;
  shifted.realtimeNs += shiftNs_;
  file_.Append(ToLine(shifted));
  file_.Sync();
}

uint64_t ShiftBehind(uint64_t lastNs, uint64_t nowNs) {
  return lastNs < nowNs ? 0 : lastNs - nowNs + 1;
}

uint64_t ReadJournals(const std::string& fleet,
                      const std::function<void(const JournalRecord& record)>& take) {
  struct Noted {
    uint64_t ns = 0;  // no writer's record comes before an earlier one of its own
    JournalRecord record;
  };
  std::vector<Noted> all;
  uint64_t unreadable = 0;
  const std::string folder = FolderOf(fleet);
  for (const std::string& name : NamesIn(folder)) {
    if (!name.ends_with(kSuffix)) continue;
    uint64_t ns = 0;
    ForEachLine(folder + "/" + name, "the fleet's journal", ExitStatus::kInput,
                [&](std::string_view line) {
                  if (auto record = JournalFromLine(line)) {
                    ns = std::max(ns, record->realtimeNs);
                    all.push_back({ns, *std::move(record)});
                  } else {
                    ++unreadable;
                  }
                });
  }
  std::stable_sort(all.begin(), all.end(),
                   [](const Noted& one, const Noted& other) { return one.ns < other.ns; });
  for (const Noted& noted : all) take(noted.record);
  return unreadable;
}

void HoldToFirstRun(const std::string& fleet) {
  bool doTell = false;  // one that was made and is empty does not
  (void)ReadJournals(fleet, [&](const JournalRecord&) { doTell = true; });
  if (!doTell) return;
  throw Fault(ExitStatus::kUsage, Quoted(fleet) +
                                      " was run before; go on with 'vorn fleet resume', which "
                                      "takes --boards too, or make another plan");
}

}  // namespace vorn::kit
