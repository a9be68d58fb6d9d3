#include "kit/fleet/fleet_plan.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <memory>

#include "kit/common/file_place.h"
#include "kit/common/folder_names.h"
#include "kit/common/printable.h"
#include "kit/json/identity_json.h"
#include "kit/json/json.h"
#include "kit/json/json_members.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kPlanSchema = 1;
constexpr uint64_t kMostPlanBytes = 256 << 20;

template <typename Value>
void PutValue(Json& object, const char* key, const std::optional<Value>& value) {
  if (value) object.Set(key, *value);
}

template <typename Number>
void TakeNumber(const Json& object, const char* key, std::optional<Number>& number) {
  if (const Json* found = object.Find(key)) number = static_cast<Number>(found->AsUnsigned());
}

void TakeFile(const Json& object, const char* key, std::optional<FileIdentity>& file) {
  if (const Json* found = object.Find(key)) file = ToIdentity(*found);
}

Json FromIdentities(const std::vector<FileIdentity>& files) {
  Json array = Json::Array();
  for (const FileIdentity& file : files) array.Append(FromIdentity(file));
  return array;
}

std::vector<FileIdentity> ToIdentities(const Json& array) {
  std::vector<FileIdentity> files;
  for (const Json& item : array.Items()) files.push_back(ToIdentity(item));
  return files;
}

// ---- plan.json ----------------------------------------------------------------------------------

Json FromOptions(const FleetOptions& options) {
  Json object = Json::Object();
  PutValue(object, "batch", options.batch);
  PutValue(object, "totalT", options.totalT);
  object.Set("isProfiled", options.isProfiled);
  object.Set("isTextKept", options.isTextKept);
  object.Set("areArrays", options.areArrays);
  object.Set("isTraced", options.isTraced);
  PutValue(object, "sampleLimitS", options.sampleLimitS);
  return object;
}

FleetOptions ToOptions(const Json& object) {
  FleetOptions options;
  TakeNumber(object, "batch", options.batch);
  TakeNumber(object, "totalT", options.totalT);
  options.isProfiled = object.At("isProfiled").AsBool();
  options.isTextKept = object.At("isTextKept").AsBool();
  options.areArrays = object.At("areArrays").AsBool();
  options.isTraced = object.At("isTraced").AsBool();
  TakeNumber(object, "sampleLimitS", options.sampleLimitS);
  return options;
}

Json FromPlan(const FleetPlan& plan) {
  Json object = Json::Object({{"schema", kPlanSchema},
                              {"id", plan.id},
                              {"version", plan.version},
                              {"command", Json::ArrayOf(plan.command)},
                              {"from", plan.from},
                              {"model", FromIdentity(plan.model)},
                              {"configuration", FromIdentity(plan.configuration)},
                              {"configurationFiles", FromIdentities(plan.configurationFiles)},
                              {"thresholds", FromIdentities(plan.thresholds)},
                              {"list", FromIdentity(plan.list)}});
  if (plan.runtime) object.Set("runtime", FromIdentity(*plan.runtime));
  if (plan.program) object.Set("program", FromIdentity(*plan.program));
  if (!plan.ownFiles.empty()) object.Set("ownFiles", FromIdentities(plan.ownFiles));
  object.Set("options", FromOptions(plan.options));
  object.Set("inferences", plan.inferences);
  object.Set("inputsEach", plan.perInference);
  object.Set("outputsEach", plan.outputs);
  object.Set("areNamesKept", plan.areNamesKept);
  if (plan.cost) {
    object.Set("cost",
               Json::Object({{"startNs", plan.cost->startNs}, {"sampleNs", plan.cost->sampleNs}}));
  }
  object.Set("crossCheck", Json::ArrayOf(plan.crossCheck));
  Json chunks = Json::Array();
  for (const FleetChunk& chunk : plan.chunks) {
    chunks.Append(Json::Object({{"first", chunk.first},
                                {"inferences", chunk.inferences},
                                {"inputsAtBytes", chunk.inputsAt},
                                {"pathsAtBytes", chunk.pathsAt}}));
  }
  object.Set("chunks", std::move(chunks));
  return object;
}

FleetPlan ToPlan(const Json& object) {
  HoldToSchema(object, kPlanSchema);
  FleetPlan plan;
  plan.id = object.At("id").AsText();
  plan.version = object.At("version").AsText();
  for (const Json& word : object.At("command").Items()) plan.command.push_back(word.AsText());
  plan.from = object.At("from").AsText();
  plan.model = ToIdentity(object.At("model"));
  plan.configuration = ToIdentity(object.At("configuration"));
  plan.configurationFiles = ToIdentities(object.At("configurationFiles"));
  plan.thresholds = ToIdentities(object.At("thresholds"));
  plan.list = ToIdentity(object.At("list"));
  TakeFile(object, "runtime", plan.runtime);
  TakeFile(object, "program", plan.program);
  if (const Json* files = object.Find("ownFiles")) plan.ownFiles = ToIdentities(*files);
  plan.options = ToOptions(object.At("options"));
  plan.inferences = object.At("inferences").AsUnsigned();
  plan.perInference = object.At("inputsEach").AsUnsigned();
  plan.outputs = object.At("outputsEach").AsUnsigned();
  plan.areNamesKept = object.At("areNamesKept").AsBool();
  if (const Json* cost = object.Find("cost")) {
    plan.cost = FleetCost{.startNs = cost->At("startNs").AsUnsigned(),
                          .sampleNs = cost->At("sampleNs").AsUnsigned()};
  }
  for (const Json& index : object.At("crossCheck").Items()) {
    plan.crossCheck.push_back(index.AsUnsigned());
  }
  for (const Json& chunk : object.At("chunks").Items()) {
    plan.chunks.push_back({.first = chunk.At("first").AsUnsigned(),
                           .inferences = chunk.At("inferences").AsUnsigned(),
                           .inputsAt = chunk.At("inputsAtBytes").AsUnsigned(),
                           .pathsAt = chunk.At("pathsAtBytes").AsUnsigned()});
  }
  return plan;
}

// Every inference is in one chunk, and whoever takes them in their order has the list.
void CheckChunks(const FleetPlan& plan) {
  uint64_t next = 0;
  for (const FleetChunk& chunk : plan.chunks) {
    const bool follows =
        chunk.first == next && chunk.inferences > 0 && chunk.inferences <= plan.inferences - next;
    if (!follows) {
      throw JsonError("its chunk of inference " + std::to_string(chunk.first) +
                      " does not follow the one before");
    }
    next += chunk.inferences;
  }
  if (next != plan.inferences) {
    throw JsonError("its chunks end at inference " + std::to_string(next) + " of " +
                    std::to_string(plan.inferences));
  }
  for (const uint64_t index : plan.crossCheck) {
    if (index < plan.inferences) continue;
    throw JsonError("it checks boards by inference " + std::to_string(index) + ", and has " +
                    std::to_string(plan.inferences));
  }
}

// ---- Files of lines -----------------------------------------------------------------------------

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

// `count` lines from a byte on, without their ends.
void ReadLinesAt(const std::string& path, uint64_t at, uint64_t count,
                 const std::function<void(std::string_view line)>& take) {
  const auto refuse = [&](const std::string& why) {
    throw Fault(ExitStatus::kInput, Quoted(path) + " " + why + "; make the plan again");
  };
  const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(path.c_str(), "rbe"));
  if (file == nullptr) refuse("cannot be read: " + SystemReason(errno));
  if (fseeko(file.get(), static_cast<off_t>(at), SEEK_SET) != 0) refuse("is too short");
  struct Line {
    ~Line() { free(text); }
    char* text = nullptr;
    size_t room = 0;
  } line;
  for (uint64_t i = 0; i < count; ++i) {
    const ssize_t length = getline(&line.text, &line.room, file.get());
    if (length <= 0 || line.text[length - 1] != '\n') refuse("ends before its plan does");
    take({line.text, static_cast<size_t>(length - 1)});
  }
}

}  // namespace

std::string ToJson(const FleetPlan& plan) { return ToText(FromPlan(plan), 1) + "\n"; }

std::string IdOf(FleetPlan plan) {
  plan.id.clear();
  return Xxh3Of(ToText(FromPlan(plan)));
}

FleetPlan ReadFleetPlan(const std::string& fleet) {
  const std::string path = fleet + "/" + kPlanFile;
  if (!IsTaken(path)) {
    throw Fault(ExitStatus::kInput, Quoted(fleet) + " is no folder of a fleet: there is no " +
                                        kPlanFile +
                                        " in it; name one, or make one with 'vorn fleet plan -o'");
  }
  const std::string text =
      ReadWholeFile(path, "the fleet's plan", ExitStatus::kInput, kMostPlanBytes);
  try {
    FleetPlan plan = ToPlan(ParseJson(text));
    if (plan.id != IdOf(plan)) throw JsonError("it was changed since it was made");
    CheckChunks(plan);
    return plan;
  } catch (const JsonError& error) {
    throw Fault(ExitStatus::kInput, "the fleet's plan " + Quoted(path) + ": " + error.what() +
                                        "; make it again with 'vorn fleet plan'");
  }
}

void HoldToOwnFiles(const std::string& fleet, const FleetPlan& plan) {
  for (const FileIdentity& file : plan.ownFiles) {
    const std::string path = fleet + "/" + file.path;
    const FileIdentity now = IdentifyFile(path, "a file of the plan", ExitStatus::kInput);
    if (now.xxh3 == file.xxh3) continue;
    throw Fault(ExitStatus::kInput,
                Quoted(path) +
                    " was changed since the plan was made; put back what it was: the same plan "
                    "made once more, in another folder, has it");
  }
}

void ForEachInput(const std::string& fleet, uint64_t inputsAt, uint64_t count,
                  const std::function<void(SampleRecord record)>& take) {
  const std::string path = fleet + "/" + kInputsFile;
  ReadLinesAt(path, inputsAt, count, [&](std::string_view line) {
    try {
      take(SampleFromLine(line));
    } catch (const JsonError& error) {
      throw Fault(ExitStatus::kInput, Quoted(path) + ": " + error.what());
    }
  });
}

std::vector<std::string> ReadPaths(const std::string& fleet, uint64_t pathsAt, uint64_t count) {
  std::vector<std::string> paths;
  ReadLinesAt(fleet + "/" + kPathsFile, pathsAt, count,
              [&](std::string_view line) { paths.emplace_back(line); });
  return paths;
}

uint64_t ChunkOf(const FleetPlan& plan, uint64_t inference) {
  const auto behind =
      std::upper_bound(plan.chunks.begin(), plan.chunks.end(), inference,
                       [](uint64_t index, const FleetChunk& chunk) { return index < chunk.first; });
  return static_cast<uint64_t>(behind - plan.chunks.begin()) - 1;
}

std::string ChunkFolder(const std::string& fleet, uint64_t chunk) {
  return fleet + "/" + kFleetChunksFolder + "/" + std::to_string(chunk);
}

std::string CrossFolder(const std::string& fleet, const std::string& board) {
  return fleet + "/" + kCrossFolder + "/" + board;
}

std::vector<uint64_t> AttemptsIn(const std::string& folder) {
  std::vector<uint64_t> attempts;
  for (const std::string& name : NamesIn(folder)) {
    uint64_t attempt = 0;
    const char* const end = name.data() + name.size();
    const auto [behind, error] = std::from_chars(name.data(), end, attempt);
    const bool isAttempt = error == std::errc() && behind == end && attempt > 0;
    if (isAttempt && name == std::to_string(attempt)) attempts.push_back(attempt);
  }
  std::sort(attempts.begin(), attempts.end());
  return attempts;
}

}  // namespace vorn::kit
