// Each record in both directions, side by side, so that a member is seen to go out and to come in.
#include "kit/run/run_directory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <limits>
#include <utility>

#include "kit/common/file_place.h"
#include "kit/common/owned_file.h"
#include "kit/common/printable.h"
#include "kit/json/identity_json.h"
#include "kit/json/json.h"
#include "kit/json/json_members.h"

namespace vorn::kit {
namespace {

constexpr int kSchema = 1;
constexpr uint64_t kMostRunBytes = 64 << 20;
constexpr uint64_t kMostLineBytes = 64 << 20;
constexpr size_t kPieceBytes = 64 * 1024;

// By the value of the enumeration.
constexpr std::array<std::string_view, 4> kSampleStatuses{"done", "failed", "aside", "missing"};
constexpr std::array<std::string_view, 4> kRunStates{"running", "done", "failed", "interrupted"};

template <typename Enum, size_t kSize>
std::string_view NameOfEnum(Enum value, const std::array<std::string_view, kSize>& names) {
  return names[static_cast<size_t>(value)];
}

template <typename Value>
void PutValue(Json& object, const char* key, const std::optional<Value>& value) {
  if (value) object.Set(key, *value);
}

void PutText(Json& object, const char* key, const std::string& text) {
  if (!text.empty()) object.Set(key, text);
}

void TakeText(const Json& object, const char* key, std::string& text) {
  if (const Json* found = object.Find(key)) text = found->AsText();
}

void TakeText(const Json& object, const char* key, std::optional<std::string>& text) {
  if (const Json* found = object.Find(key)) text = found->AsText();
}

void TakeCount(const Json& object, const char* key, std::optional<uint64_t>& count) {
  if (const Json* found = object.Find(key)) count = found->AsUnsigned();
}

void TakeNumber(const Json& object, const char* key, std::optional<int>& number) {
  const Json* found = object.Find(key);
  if (found == nullptr) return;
  const int64_t value = found->AsSigned();
  if (!std::in_range<int>(value)) {
    throw JsonError("'" + std::string(key) + "' is " + std::to_string(value) +
                    ", which is out of range");
  }
  number = static_cast<int>(value);
}

void PutFile(Json& object, const char* key, const std::optional<FileIdentity>& file) {
  if (file) object.Set(key, FromIdentity(*file));
}

void TakeFile(const Json& object, const char* key, std::optional<FileIdentity>& file) {
  if (const Json* found = object.Find(key)) file = ToIdentity(*found);
}

// The object of a line or a file, which has to be of a schema that was.
Json ParseObject(std::string_view text) {
  Json object = ParseJson(text);
  if (object.At("schema").AsUnsigned() < kSchema) {
    throw JsonError("it has schema 0, which never was; the first one is 1");
  }
  return object;
}

// ---- samples.jsonl ------------------------------------------------------------------------------

Json FromInput(const SampleInput& input) {
  Json object = Json::Object({{"line", input.line}});
  PutValue(object, "name", input.name);
  object.Set("path", input.path);
  object.Set("file", FromIdentity(input.file));
  return object;
}

SampleInput ToInput(const Json& object) {
  SampleInput input;
  input.line = object.At("line").AsUnsigned();
  TakeText(object, "name", input.name);
  input.path = object.At("path").AsText();
  input.file = ToIdentity(object.At("file"));
  return input;
}

Json FromOutput(const SampleOutput& output) {
  Json object =
      Json::Object({{"index", output.index}, {"name", output.name}, {"path", output.path}});
  PutValue(object, "text", output.text);
  object.Set("sizeBytes", output.sizeBytes);
  object.Set("xxh3_128", output.xxh3);
  return object;
}

SampleOutput ToOutput(const Json& object) {
  SampleOutput output;
  output.index = object.At("index").AsUnsigned();
  output.name = object.At("name").AsText();
  output.path = object.At("path").AsText();
  TakeText(object, "text", output.text);
  output.sizeBytes = object.At("sizeBytes").AsUnsigned();
  output.xxh3 = object.At("xxh3_128").AsText();
  return output;
}

// ---- run.json -----------------------------------------------------------------------------------

Json FromMachine(const MachineFacts& machine) {
  Json object = Json::Object(
      {{"host", machine.host}, {"kernel", machine.kernel}, {"processor", machine.processor}});
  PutValue(object, "cores", machine.cores);
  PutValue(object, "governor", machine.governor);
  PutValue(object, "loadAverage", machine.loadAverage);
  PutValue(object, "memoryTotalBytes", machine.memoryTotalBytes);
  PutValue(object, "memoryAvailableBytes", machine.memoryAvailableBytes);
  PutValue(object, "container", machine.container);
  return object;
}

MachineFacts ToMachine(const Json& object) {
  MachineFacts machine;
  TakeText(object, "host", machine.host);
  TakeText(object, "kernel", machine.kernel);
  TakeText(object, "processor", machine.processor);
  TakeCount(object, "cores", machine.cores);
  TakeText(object, "governor", machine.governor);
  if (const Json* load = object.Find("loadAverage")) machine.loadAverage = load->AsNumber();
  TakeCount(object, "memoryTotalBytes", machine.memoryTotalBytes);
  TakeCount(object, "memoryAvailableBytes", machine.memoryAvailableBytes);
  TakeText(object, "container", machine.container);
  return machine;
}

Json FromCounts(const SampleCounts& counts) {
  return Json::Object({{"inferences", counts.inferences},
                       {"done", counts.done},
                       {"failed", counts.failed},
                       {"aside", counts.aside},
                       {"missing", counts.missing}});
}

SampleCounts ToCounts(const Json& object) {
  return {.inferences = object.At("inferences").AsUnsigned(),
          .done = object.At("done").AsUnsigned(),
          .failed = object.At("failed").AsUnsigned(),
          .aside = object.At("aside").AsUnsigned(),
          .missing = object.At("missing").AsUnsigned()};
}

Json FromMapped(const std::vector<MappedFile>& mapped) {
  Json array = Json::Array();
  for (const MappedFile& file : mapped) {
    Json object = Json::Object({{"path", file.path}});
    PutValue(object, "buildId", file.buildId);
    array.Append(std::move(object));
  }
  return array;
}

Json FromWarnings(const std::vector<RunWarning>& warnings) {
  Json array = Json::Array();
  for (const RunWarning& warning : warnings) {
    array.Append(
        Json::Object({{"id", warning.id}, {"count", warning.count}, {"message", warning.message}}));
  }
  return array;
}

// The unit stands in the name: "execute" is "executeNs" in the file.
constexpr std::string_view kNanoseconds = "Ns";

Json FromPhases(const std::map<std::string, uint64_t>& phases) {
  Json object = Json::Object();
  for (const auto& [name, duration] : phases) {
    object.Set(name + std::string(kNanoseconds), duration);
  }
  return object;
}

void TakeLists(const Json& object, RunFacts& facts) {
  for (const Json& word : object.At("command").Items()) facts.command.push_back(word.AsText());
  if (const Json* options = object.Find("options")) {
    facts.options.emplace();
    for (const Json& word : options->Items()) facts.options->push_back(word.AsText());
  }
  if (const Json* mapped = object.Find("mapped")) {
    for (const Json& item : mapped->Items()) {
      MappedFile& file = facts.mapped.emplace_back();
      file.path = item.At("path").AsText();
      TakeText(item, "buildId", file.buildId);
    }
  }
  if (const Json* phases = object.Find("phases")) {
    for (const auto& [name, value] : phases->Members()) {
      if (!name.ends_with(kNanoseconds)) continue;
      facts.phases[name.substr(0, name.size() - kNanoseconds.size())] = value.AsUnsigned();
    }
  }
  if (const Json* warnings = object.Find("warnings")) {
    for (const Json& item : warnings->Items()) {
      facts.warnings.push_back({.id = item.At("id").AsText(),
                                .count = item.At("count").AsUnsigned(),
                                .message = item.At("message").AsText()});
    }
  }
}

// ---- Files --------------------------------------------------------------------------------------

class LineReader {
 public:
  LineReader(const std::string& path, const std::string& what, ExitStatus status, LineSource source)
      : name_(what + " '" + Printable(path) + "'"), status_(status), source_(source) {
    // Of a file's own a pipe without a writer would be waited for.
    const int wait = source == LineSource::kNamed ? 0 : O_NONBLOCK;
    file_ = OwnedFile(open(path.c_str(), O_RDONLY | O_CLOEXEC | wait));
    if (!file_.IsOpen()) throw Fault(status_, name_ + " cannot be opened: " + SystemReason(errno));
    if (source == LineSource::kNamed) return;
    struct stat about {};
    if (fstat(file_.Get(), &about) == 0 && (S_ISREG(about.st_mode) || S_ISDIR(about.st_mode)))
      return;
    throw Fault(status_, name_ + " is no regular file");
  }

  void ForEach(const std::function<void(std::string_view)>& take) {
    std::string left;
    std::vector<char> piece(kPieceBytes);
    while (const size_t got = Read(piece)) {
      std::string_view rest(piece.data(), got);
      for (size_t end = rest.find('\n'); end != rest.npos; end = rest.find('\n')) {
        left += rest.substr(0, end);
        ++line_;
        Take(left, take);
        left.clear();
        rest.remove_prefix(end + 1);
      }
      left += rest;
      HoldToSize(left);
    }
    if (source_ != LineSource::kNamed || left.empty()) return;
    ++line_;
    Take(left, take);
  }

 private:
  // What has no ends of lines is not read until all memory is taken.
  void HoldToSize(const std::string& left) const {
    if (left.size() <= kMostLineBytes) return;
    throw Fault(status_, name_ + ", line " + std::to_string(line_ + 1) + " is longer than " +
                             SizeText(kMostLineBytes) + ", which none of its kind is");
  }

  size_t Read(std::vector<char>& piece) const {
    ssize_t got = 0;
    do {
      got = read(file_.Get(), piece.data(), piece.size());
    } while (got < 0 && errno == EINTR);
    if (got < 0) throw Fault(status_, name_ + " cannot be read: " + SystemReason(errno));
    return static_cast<size_t>(got);
  }

  void Take(const std::string& line, const std::function<void(std::string_view)>& take) const {
    try {
      take(line);
    } catch (const JsonError& error) {
      throw Fault(status_, name_ + ", line " + std::to_string(line_) + ": " + error.what());
    }
  }

  std::string name_;
  ExitStatus status_;
  LineSource source_;
  uint64_t line_ = 0;
  OwnedFile file_;
};

template <typename Record>
std::vector<Record> ReadRecords(const std::string& run, const char* file, const char* what,
                                Record (*fromLine)(std::string_view)) {
  std::vector<Record> records;
  ForEachLine(run + "/" + file, what, ExitStatus::kInput,
              [&](std::string_view line) { records.push_back(fromLine(line)); });
  return records;
}

}  // namespace

// ---- samples.jsonl ------------------------------------------------------------------------------

bool IsRepeated(const SampleRecord& before, const SampleRecord& now) {
  const bool areDone = before.status == SampleStatus::kDone && now.status == SampleStatus::kDone &&
                       now.index == before.index + 1;
  if (!areDone || now.outputs.empty() || now.outputs.size() != before.outputs.size()) return false;
  const bool areSame =
      std::equal(now.outputs.begin(), now.outputs.end(), before.outputs.begin(),
                 [](const auto& one, const auto& other) { return one.xxh3 == other.xxh3; });
  if (!areSame || now.inputs.size() != before.inputs.size()) return false;
  return !std::equal(
      now.inputs.begin(), now.inputs.end(), before.inputs.begin(),
      [](const auto& one, const auto& other) { return one.file.xxh3 == other.file.xxh3; });
}

std::string RepeatedText(uint64_t index, const std::string& place) {
  return "outputs are byte for byte those of the inference before, and the inputs are others: "
         "either it was not executed, or both have the same answer, as of networks that are very "
         "sure; vorn judge tells which; first inference " +
         std::to_string(index) + " (" + place + ")";
}

std::string ToLine(const SampleRecord& record) {
  Json object = Json::Object({{"schema", kSchema},
                              {"index", record.index},
                              {"status", NameOfEnum(record.status, kSampleStatuses)}});
  Json inputs = Json::Array();
  for (const SampleInput& input : record.inputs) inputs.Append(FromInput(input));
  object.Set("inputs", std::move(inputs));
  Json outputs = Json::Array();
  for (const SampleOutput& output : record.outputs) outputs.Append(FromOutput(output));
  object.Set("outputs", std::move(outputs));
  PutValue(object, "reason", record.reason);
  return ToText(object) + "\n";
}

SampleRecord SampleFromLine(std::string_view line) {
  const Json object = ParseObject(line);
  SampleRecord record;
  record.index = object.At("index").AsUnsigned();
  record.status = EnumOf<SampleStatus>(object.At("status").AsText(), kSampleStatuses);
  for (const Json& input : object.At("inputs").Items()) record.inputs.push_back(ToInput(input));
  for (const Json& output : object.At("outputs").Items()) {
    record.outputs.push_back(ToOutput(output));
  }
  TakeText(object, "reason", record.reason);
  return record;
}

// ---- times.jsonl --------------------------------------------------------------------------------

std::string ToLine(const TimesRecord& record) {
  Json object = Json::Object({{"schema", kSchema},
                              {"index", record.index},
                              {"chunk", record.chunk},
                              {"attempt", record.attempt},
                              {"host", record.host},
                              {"startRealtimeNs", record.startRealtimeNs},
                              {"executeNs", Json::ArrayOf(record.executeNs)}});
  PutValue(object, "series", record.series);
  return ToText(object) + "\n";
}

TimesRecord TimesFromLine(std::string_view line) {
  const Json object = ParseObject(line);
  TimesRecord record;
  record.index = object.At("index").AsUnsigned();
  record.chunk = object.At("chunk").AsUnsigned();
  record.attempt = object.At("attempt").AsUnsigned();
  record.host = object.At("host").AsText();
  record.startRealtimeNs = object.At("startRealtimeNs").AsUnsigned();
  for (const Json& duration : object.At("executeNs").Items()) {
    record.executeNs.push_back(duration.AsUnsigned());
  }
  TakeText(object, "series", record.series);
  return record;
}

// ---- machine.jsonl ------------------------------------------------------------------------------

std::string ToLine(const MachineMoment& moment) {
  Json object = Json::Object({{"schema", kSchema},
                              {"realtimeNs", moment.realtimeNs},
                              {"frequencyKhz", Json::ArrayOf(moment.frequencyKhz)}});
  Json zones = Json::Object();
  for (const auto& [zone, temperature] : moment.temperatureMilliC) zones.Set(zone, temperature);
  object.Set("temperatureMilliC", std::move(zones));
  PutValue(object, "rssBytes", moment.rssBytes);
  PutValue(object, "memoryAvailableBytes", moment.memoryAvailableBytes);
  return ToText(object) + "\n";
}

MachineMoment MachineFromLine(std::string_view line) {
  const Json object = ParseObject(line);
  MachineMoment moment;
  moment.realtimeNs = object.At("realtimeNs").AsUnsigned();
  for (const Json& frequency : object.At("frequencyKhz").Items()) {
    moment.frequencyKhz.push_back(frequency.AsUnsigned());
  }
  for (const auto& [zone, temperature] : object.At("temperatureMilliC").Members()) {
    moment.temperatureMilliC[zone] = temperature.AsSigned();
  }
  TakeCount(object, "rssBytes", moment.rssBytes);
  TakeCount(object, "memoryAvailableBytes", moment.memoryAvailableBytes);
  return moment;
}

// ---- run.json -----------------------------------------------------------------------------------

std::string ToJson(const RunFacts& facts) {
  Json object = Json::Object({{"schema", kSchema}, {"state", NameOfEnum(facts.state, kRunStates)}});
  PutValue(object, "status", facts.status);
  PutValue(object, "programStatus", facts.programStatus);
  PutValue(object, "signal", facts.signal);
  object.Set("command", Json::ArrayOf(facts.command));
  object.Set("version", facts.version);
  if (facts.options) object.Set("options", Json::ArrayOf(*facts.options));
  object.Set("model", FromIdentity(facts.model));
  PutFile(object, "configuration", facts.configuration);
  if (facts.configurationFiles) {
    Json files = Json::Array();
    for (const FileIdentity& file : *facts.configurationFiles) files.Append(FromIdentity(file));
    object.Set("configurationFiles", files);
  }
  PutFile(object, "list", facts.list);
  PutFile(object, "runtime", facts.runtime);
  PutFile(object, "program", facts.program);
  object.Set("mapped", FromMapped(facts.mapped));
  object.Set("machine", FromMachine(facts.machine));
  object.Set("startRealtimeNs", facts.startRealtimeNs);
  PutValue(object, "endRealtimeNs", facts.endRealtimeNs);
  object.Set("counts", FromCounts(facts.counts));
  object.Set("phases", FromPhases(facts.phases));
  object.Set("warnings", FromWarnings(facts.warnings));
  PutText(object, "standardError", facts.standardError);
  PutValue(object, "fleet", facts.fleet);
  constexpr int kIndent = 2;
  return ToText(object, kIndent) + "\n";
}

RunFacts RunFromJson(std::string_view text) {
  const Json object = ParseObject(text);
  RunFacts facts;
  facts.state = EnumOf<RunState>(object.At("state").AsText(), kRunStates);
  TakeNumber(object, "status", facts.status);
  TakeNumber(object, "programStatus", facts.programStatus);
  TakeText(object, "signal", facts.signal);
  TakeText(object, "version", facts.version);
  facts.model = ToIdentity(object.At("model"));
  TakeFile(object, "configuration", facts.configuration);
  if (const Json* files = object.Find("configurationFiles")) {
    facts.configurationFiles.emplace();
    for (const Json& file : files->Items()) facts.configurationFiles->push_back(ToIdentity(file));
  }
  TakeFile(object, "list", facts.list);
  TakeFile(object, "runtime", facts.runtime);
  TakeFile(object, "program", facts.program);
  facts.machine = ToMachine(object.At("machine"));
  facts.startRealtimeNs = object.At("startRealtimeNs").AsUnsigned();
  TakeCount(object, "endRealtimeNs", facts.endRealtimeNs);
  facts.counts = ToCounts(object.At("counts"));
  TakeLists(object, facts);
  TakeText(object, "standardError", facts.standardError);
  TakeText(object, "fleet", facts.fleet);
  return facts;
}

// ---- A directory --------------------------------------------------------------------------------

std::optional<SampleFront> FrontOfSample(std::string_view line) {
  constexpr std::string_view kIndex = R"({"schema":1,"index":)";
  constexpr std::string_view kStatus = R"(,"status":")";
  if (!line.starts_with(kIndex)) return std::nullopt;
  line.remove_prefix(kIndex.size());
  SampleFront front;
  const auto [stop, error] = std::from_chars(line.data(), line.data() + line.size(), front.index);
  if (error != std::errc{}) return std::nullopt;
  line.remove_prefix(static_cast<size_t>(stop - line.data()));
  // A number may go on in ways that a whole one does not.
  if (!line.starts_with(kStatus)) return std::nullopt;
  line.remove_prefix(kStatus.size());
  front.isDone = line.starts_with(R"(done")");
  return front;
}

void ForEachLine(const std::string& path, const std::string& what, ExitStatus status,
                 const std::function<void(std::string_view line)>& take, LineSource source) {
  LineReader(path, what, status, source).ForEach(take);
}

RunFacts ReadRun(const std::string& run) {
  const std::string path = run + "/" + kRunFile;
  const std::string what = "the record of the run";
  try {
    return RunFromJson(ReadWholeFile(path, what, ExitStatus::kInput, kMostRunBytes));
  } catch (const JsonError& error) {
    throw Fault(ExitStatus::kInput, what + " '" + Printable(path) + "': " + error.what());
  }
}

std::vector<SampleRecord> ReadSamples(const std::string& run) {
  auto records = ReadRecords(run, kSamplesFile, "the samples of the run", SampleFromLine);
  std::stable_sort(records.begin(), records.end(),
                   [](const auto& one, const auto& two) { return one.index < two.index; });
  // Of neighbours with one index the last one stays.
  size_t kept = 0;
  for (size_t i = 0; i < records.size(); ++i) {
    if (i + 1 < records.size() && records[i].index == records[i + 1].index) continue;
    if (kept != i) records[kept] = std::move(records[i]);
    ++kept;
  }
  records.resize(kept);
  return records;
}

std::vector<TimesRecord> ReadTimes(const std::string& run) {
  return ReadRecords(run, kTimesFile, "the times of the run", TimesFromLine);
}

std::vector<MachineMoment> ReadMachine(const std::string& run) {
  return ReadRecords(run, kMachineFile, "what the machine was like", MachineFromLine);
}

std::string VerdictPathOf(const std::string& run) {
  const std::string folder = Absolute(run);
  std::string own = folder + "/" + kVerdictFile;
  const size_t slash = folder.rfind('/');
  if (IsThere(own) || folder.substr(slash + 1) != kDeviceFolder) return own;
  const std::string above = folder.substr(0, slash + 1);
  return IsThere(above + kQualifyFile) ? above + kVerdictFile : own;
}

}  // namespace vorn::kit
