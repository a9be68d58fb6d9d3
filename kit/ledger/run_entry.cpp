#include "kit/ledger/run_entry.h"

#include <sys/stat.h>

#include <algorithm>
#include <initializer_list>
#include <limits>
#include <set>
#include <type_traits>
#include <utility>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "kit/common/file_place.h"
#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

constexpr int kSchema = 1;

std::string NameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

void PutFile(const std::optional<FileIdentity>& file, std::string& path, std::string& xxh3) {
  if (!file) return;
  path = NameOf(file->path);
  xxh3 = file->xxh3.value_or("");
}

std::string Joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : " ") + word;
  return text;
}

// Of files that a configuration names the contents count as its own do.
std::string HashOfConfiguration(const RunFacts& facts) {
  if (!facts.configuration || !facts.configuration->xxh3) return "";
  if (!facts.configurationFiles || facts.configurationFiles->empty()) {
    return *facts.configuration->xxh3;
  }
  std::string all = *facts.configuration->xxh3;
  for (const FileIdentity& file : *facts.configurationFiles) {
    all += "\n" + NameOf(file.path) + " " + file.xxh3.value_or("");
  }
  return Xxh3Of(all);
}

// In an order of its own: a loader's changes with addresses.
std::string MappedLines(const std::vector<MappedFile>& mapped) {
  std::set<std::string> lines;
  for (const MappedFile& file : mapped) {
    if (file.buildId) lines.insert(NameOf(file.path) + "\t" + *file.buildId);
  }
  std::string text;
  for (const std::string& line : lines) text += line + "\n";
  return text;
}

std::string StateName(RunState state) {
  switch (state) {
    case RunState::kRunning:
      return "running";
    case RunState::kDone:
      return "done";
    case RunState::kFailed:
      return "failed";
    case RunState::kInterrupted:
      return "interrupted";
  }
  return "";
}

// What was found out while a run went on may still change; these never do.
std::string IdentityOf(const RunFacts& facts) {
  if (facts.fleet) return Xxh3Of("fleet\n" + *facts.fleet);
  const auto of = [](const FileIdentity& file) { return file.xxh3.value_or(file.path); };
  return Xxh3Of("run\n" + facts.machine.host + "\n" + std::to_string(facts.startRealtimeNs) + "\n" +
                of(facts.model) + "\n" + (facts.list ? of(*facts.list) : ""));
}

void TakeMember(const Json& value, std::string& member) { member = value.AsText(); }
void TakeMember(const Json& value, uint64_t& member) { member = value.AsUnsigned(); }
void TakeMember(const Json& value, std::optional<uint64_t>& member) { member = value.AsUnsigned(); }
void TakeMember(const Json& value, std::optional<int64_t>& member) { member = value.AsSigned(); }
void TakeMember(const Json& value, std::optional<double>& member) { member = value.AsNumber(); }

void PutMember(Json& object, const char* name, const std::string& member) {
  if (!member.empty()) object.Set(name, member);
}
void PutMember(Json& object, const char* name, uint64_t member) { object.Set(name, member); }
template <typename Value>
void PutMember(Json& object, const char* name, const std::optional<Value>& member) {
  if (member) object.Set(name, *member);
}

std::vector<uint64_t> NumbersOf(const Json& array) {
  std::vector<uint64_t> numbers;
  numbers.reserve(array.Items().size());
  for (const Json& item : array.Items()) numbers.push_back(item.AsUnsigned());
  return numbers;
}

bool IsOneOf(std::string_view word, std::initializer_list<std::string_view> words) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

// What a person changed in an export counts as little as what a run cannot be.
void HoldToWords(const RunEntry& run) {
  if (!IsOneOf(run.state, {"running", "done", "failed", "interrupted"})) {
    throw JsonError("'state' is '" + PrintableExcerpt(run.state) +
                    "', and no running, done, failed or interrupted");
  }
  if (!IsOneOf(run.verdict, {"", "right", "wrong", "partial", "not judged"})) {
    throw JsonError("'verdict' is '" + PrintableExcerpt(run.verdict) +
                    "', and no right, wrong, partial or not judged");
  }
  if (!IsOneOf(run.side, {"", "A", "B"})) {
    throw JsonError("'side' is '" + PrintableExcerpt(run.side) + "', and no A or B");
  }
}

void HoldToTimes(const RunEntry& run) {
  const auto hold = [](const char* name, const std::optional<double>& time) {
    if (time && *time < 0) throw JsonError("'" + std::string(name) + "' is below 0");
  };
  hold("firstNs", run.firstNs);
  hold("medianNs", run.medianNs);
  hold("madNs", run.madNs);
}

// Of the executions all are kept, or told how many are not: a line of `list` has none of them.
void HoldToExecutions(const RunEntry& run) {
  const uint64_t told = run.times.timesNs.size() + run.times.leftOut;
  if (run.executions == told) return;
  throw JsonError("'executions' is " + std::to_string(run.executions) + ", and 'times' tells " +
                  std::to_string(told) + "; what vorn history export writes has all of them");
}

void AddBytes(size_t& bytes, const std::string& text) { bytes += text.size(); }
template <typename Value>
void AddBytes(size_t& /*bytes*/, const Value& /*value*/) {}

// The largest of all stands for no end where spans of time are asked for.
bool IsBeyond(uint64_t value) { return value >= uint64_t{std::numeric_limits<int64_t>::max()}; }
bool IsBeyond(const std::optional<uint64_t>& value) { return value && IsBeyond(*value); }
template <typename Value>
bool IsBeyond(const Value& /*value*/) {
  return false;
}

RunMetric MetricOf(const Json& object) {
  RunMetric metric;
  metric.output = object.At("output").AsText();
  metric.metric = object.At("metric").AsText();
  metric.value = object.At("value").AsNumber();
  if (const Json* expected = object.Find("expected")) metric.expected = expected->AsNumber();
  return metric;
}

}  // namespace

RunEntry EntryOf(const RunFacts& facts, const std::string& side) {
  RunEntry run;
  run.identity = IdentityOf(facts);
  run.side = side;
  run.board = facts.machine.host;
  PutFile(facts.model, run.model, run.modelXxh3);
  PutFile(facts.configuration, run.configuration, run.configurationXxh3);
  run.configurationXxh3 = HashOfConfiguration(facts);
  PutFile(facts.list, run.list, run.listXxh3);
  PutFile(facts.runtime, run.runtime, run.runtimeXxh3);
  PutFile(facts.program, run.program, run.programXxh3);
  if (facts.options) run.options = Joined(*facts.options);
  run.mapped = MappedLines(facts.mapped);
  run.tool = facts.version;
  run.fleet = facts.fleet.value_or("");
  run.kernel = facts.machine.kernel;
  run.processor = facts.machine.processor;
  run.cores = facts.machine.cores;
  run.governor = facts.machine.governor.value_or("");
  run.container = facts.machine.container.value_or("");
  run.loadAverage = facts.machine.loadAverage;
  run.state = StateName(facts.state);
  if (facts.status) run.status = *facts.status;
  run.signal = facts.signal.value_or("");
  run.startRealtimeNs = facts.startRealtimeNs;
  run.endRealtimeNs = facts.endRealtimeNs;
  run.inferences = facts.counts.inferences;
  run.done = facts.counts.done;
  run.failed = facts.counts.failed;
  run.aside = facts.counts.aside;
  run.missing = facts.counts.missing;
  return run;
}

bool HoldsRun(const std::string& folder, const std::string& identity) {
  try {
    return IdentityOf(ReadRun(folder)) == identity;
  } catch (const Fault&) {
    return false;  // it is gone, or damaged
  }
}

std::string SideOf(const std::string& run) {
  const std::string whole = Absolute(run);
  const size_t slash = whole.rfind('/');
  const std::string name = whole.substr(slash + 1);
  if (name != "A" && name != "B") return "";
  const std::string above = whole.substr(0, slash);
  const bool areBoth = IsThere(above + "/A/" + kRunFile) && IsThere(above + "/B/" + kRunFile);
  return areBoth && !IsThere(above + "/" + kRunFile) ? name : "";
}

Json ToJson(const RunEntry& run, bool hasTimes) {
  Json object = Json::Object({{"schema", kSchema}});
  if (run.id != 0) object.Set("id", run.id);
  VisitColumns(run, [&](const char* name, const auto& member) { PutMember(object, name, member); });
  Json metrics = Json::Array();
  for (const RunMetric& metric : run.metrics) {
    Json one = Json::Object(
        {{"output", metric.output}, {"metric", metric.metric}, {"value", metric.value}});
    if (metric.expected) one.Set("expected", *metric.expected);
    metrics.Append(std::move(one));
  }
  object.Set("metrics", std::move(metrics));
  if (hasTimes) {
    object.Set("times", Json::Object({{"firstNs", Json::ArrayOf(run.times.firstNs)},
                                      {"timesNs", Json::ArrayOf(run.times.timesNs)},
                                      {"leftOut", run.times.leftOut}}));
  }
  if (run.level) {
    object.Set("level", Json::Object({{"reason", run.level->reason},
                                      {"setRealtimeNs", run.level->setRealtimeNs}}));
  }
  return object;
}

RunEntry EntryFromJson(const Json& object) {
  if (object.At("schema").AsUnsigned() < kSchema) {
    throw JsonError("it has schema 0, which never was; the first one is 1");
  }
  RunEntry run;
  const std::string identity = object.At("identity").AsText();
  constexpr size_t kHashDigits = 32;
  const bool isHash = identity.size() == kHashDigits &&
                      identity.find_first_not_of("0123456789abcdef") == std::string::npos;
  if (!isHash) throw JsonError("'identity' is no hash of 32 hexadecimal digits");
  VisitColumns(run, [&](const char* name, auto& member) {
    // A count is always told; what is not known is left out.
    constexpr bool kIsCount = std::is_same_v<decltype(member), uint64_t&>;
    const Json* value = kIsCount ? &object.At(name) : object.Find(name);
    if (value != nullptr) TakeMember(*value, member);
  });
  for (const Json& metric : object.At("metrics").Items()) run.metrics.push_back(MetricOf(metric));
  if (const Json* times = object.Find("times")) {
    run.times.firstNs = NumbersOf(times->At("firstNs"));
    run.times.timesNs = NumbersOf(times->At("timesNs"));
    run.times.leftOut = times->At("leftOut").AsUnsigned();
  }
  if (const Json* level = object.Find("level")) {
    run.level = RunLevel{.reason = level->At("reason").AsText(),
                         .setRealtimeNs = level->At("setRealtimeNs").AsUnsigned()};
  }
  HoldToWords(run);
  HoldToTimes(run);
  HoldToExecutions(run);
  if (const std::string why = WhyNotKept(run); !why.empty()) throw JsonError(why);
  return run;
}

std::string WhyNotKept(const RunEntry& run) {
  // Half of what the library takes of a row: the packed times are a row of their own.
  constexpr size_t kMostBytes = 32 << 20;
  std::string why;
  size_t bytes = 0;
  const auto look = [&](const char* name, const auto& value) {
    AddBytes(bytes, value);
    if (why.empty() && IsBeyond(value)) {
      why = "'" + std::string(name) + "' is a number that no clock or counter reaches";
    }
  };
  VisitColumns(run, look);
  look("leftOut", run.times.leftOut);
  if (run.level) look("setRealtimeNs", run.level->setRealtimeNs);
  if (!why.empty()) return why;
  for (const RunMetric& metric : run.metrics) bytes += metric.output.size() + metric.metric.size();
  if (bytes > kMostBytes) return "its names have " + SizeText(bytes) + " in all";
  return "";
}

std::string PackTimes(const std::vector<uint64_t>& times) {
  constexpr unsigned kBits = 7;
  constexpr unsigned kMore = 1U << kBits;
  std::string bytes;
  bytes.reserve(times.size() * 4);
  for (uint64_t time : times) {
    for (; time >= kMore; time >>= kBits) bytes += static_cast<char>((time & (kMore - 1)) | kMore);
    bytes += static_cast<char>(time);
  }
  return bytes;
}

std::optional<std::vector<uint64_t>> UnpackTimes(std::string_view bytes) {
  constexpr unsigned kBits = 7;
  constexpr unsigned kMore = 1U << kBits;
  constexpr unsigned kMostShift = 63;
  std::vector<uint64_t> times;
  uint64_t time = 0;
  unsigned shift = 0;
  for (const char byte : bytes) {
    const auto group = static_cast<uint8_t>(byte);
    const uint64_t value = group & (kMore - 1);
    if (shift > kMostShift || (shift == kMostShift && value > 1)) return std::nullopt;
    time |= value << shift;
    shift += kBits;
    if ((group & kMore) != 0) continue;
    times.push_back(time);
    time = 0;
    shift = 0;
  }
  if (shift != 0) return std::nullopt;
  return times;
}

}  // namespace vorn::kit
