#include "kit/qualify/qualification.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <filesystem>
#include <optional>

#include "kit/common/file_identity.h"
#include "kit/common/file_place.h"
#include "kit/common/folder_lock.h"
#include "kit/common/own_folder.h"
#include "kit/common/printable.h"
#include "kit/common/whole_file.h"
#include "kit/json/identity_json.h"
#include "kit/json/json_members.h"
#include "kit/model/model_json.h"
#include "kit/run/configuration_files.h"
#include "kit/run/run_directory.h"

namespace vorn::kit {
namespace {

namespace fs = std::filesystem;

constexpr uint64_t kMostFileBytes = 16 << 20;
constexpr const char* kLibrary = "libvorn.so";

// ---- The file -----------------------------------------------------------------------------------

// From here on, as a person would say it.
std::string Here(const std::string& folder, const std::string& path) {
  const std::string placed = Below(folder, path);
  return placed.find("..") == std::string::npos ? placed : WithoutDetours(placed);
}

// Sources of a job are from the folder of the qualification on, and the job lies elsewhere.
Json WithPaths(const Json& inputs, const std::string& folder) {
  Json placed = Json::Array();
  for (const Json& input : inputs.Items()) {
    Json one = input;
    if (const Json* source = input.Find("source")) {
      Json placedSource = Json::Array();
      if (source->IsArray()) {
        for (const Json& path : source->Items()) {
          // With more to be said of it the path is a member.
          Json listed = path;
          if (path.IsObject()) {
            listed.Set("path", Absolute(Here(folder, path.At("path").AsText())));
          } else {
            listed = Absolute(Here(folder, path.AsText()));
          }
          placedSource.Append(std::move(listed));
        }
      } else {
        placedSource = Absolute(Here(folder, source->AsText()));
      }
      one.Set("source", std::move(placedSource));
    }
    const Json* recipe = input.Find("recipe");
    if (recipe != nullptr && recipe->IsText()) {
      const std::string path = Here(folder, recipe->AsText());
      if (IsTaken(path)) one.Set("recipe", Absolute(path));
    }
    placed.Append(one);
  }
  return placed;
}

QualifiedSide SideFrom(const Json& json, const std::string& folder) {
  HoldToKeys(json, {"model", "config", "runtime", "program", "inputs"});
  QualifiedSide side;
  side.model = Here(folder, json.At("model").AsText());
  if (const Json* config = json.Find("config")) side.config = Here(folder, config->AsText());
  if (const Json* runtime = json.Find("runtime")) side.runtime = Here(folder, runtime->AsText());
  if (const Json* program = json.Find("program")) {
    side.program = Here(folder, program->AsText());
  }
  if (const Json* inputs = json.Find("inputs")) side.job = WithPaths(*inputs, folder);
  return side;
}

struct JudgeKey {
  const char* key;
  bool isPath;
};
constexpr std::array kJudgeKeys{JudgeKey{"map", true}, JudgeKey{"rules", true},
                                JudgeKey{"preset", false}, JudgeKey{"labels", true}};

Qualification QualificationFrom(const Json& json, const std::string& folder) {
  HoldToKeys(json, {"schema", "run", "device", "reference", "floor", "expected", "batch", "most",
                    "chunk", "map", "rules", "preset", "labels"});
  HoldToSchema(json, 1);
  Qualification qualification;
  if (const Json* run = json.Find("run")) qualification.run = Here(folder, run->AsText());
  qualification.device = SideFrom(json.At("device"), folder);
  if (const Json* reference = json.Find("reference")) {
    qualification.reference = SideFrom(*reference, folder);
    if (!qualification.reference->job) qualification.reference->job = qualification.device.job;
  }
  if (const Json* floor = json.Find("floor")) qualification.floor = Here(folder, floor->AsText());
  if (const Json* expected = json.Find("expected")) {
    qualification.expected = Here(folder, expected->AsText());
  }
  if (const Json* batch = json.Find("batch")) qualification.batch = batch->AsUnsigned();
  if (const Json* most = json.Find("most")) qualification.most = most->AsUnsigned();
  if (const Json* chunk = json.Find("chunk")) qualification.chunk = chunk->AsUnsigned();
  if (qualification.batch == 0 || qualification.most == 0U || qualification.chunk == 0U) {
    throw JsonError("batch, most and chunk are 1 at least");
  }
  for (const JudgeKey& key : kJudgeKeys) {
    const Json* value = json.Find(key.key);
    if (value == nullptr) continue;
    const std::string& text = value->AsText();
    qualification.judgeWords.insert(
        qualification.judgeWords.end(),
        {std::string("--") + key.key, key.isPath ? Here(folder, text) : text});
  }
  return qualification;
}

// ---- The steps ----------------------------------------------------------------------------------

class Steps {
 public:
  Steps(const Qualification& qualification, const std::function<void(const QualifyStep&)>& show)
      : qualification_(qualification),
        show_(show),
        run_(WithoutDetours(Absolute(qualification.run))) {
    if (!qualification.reference || !qualification.floor) return;
    floor_ = *qualification.reference;
    floor_->config = qualification.floor;
  }

  std::vector<QualifyStep> Run() {
    MakeFolder();
    if (DescribeAll() && RunAll()) Judge();
    WriteRecord();
    return std::move(steps_);
  }

 private:
  [[nodiscard]] std::string Path(const std::string& name) const { return run_ + "/" + name; }

  void MakeFolder() {
    CheckWhatIsThere();
    std::error_code error;
    fs::create_directories(run_, error);
    if (error) {
      throw Fault(ExitStatus::kLimit,
                  "the folder " + Quoted(run_) + " cannot be made: " + error.message());
    }
    lock_.emplace(run_, "qualify");
    CheckWhatIsThere();
    // What is in it from here on is known to be ours.
    ClearPlace(Path(kQualifyFile));
    WriteWholeFile(Path(kQualifyFile), "{\"schema\": 1, \"state\": \"running\"}\n");
    // Of a time before: if a step fails, nobody is to take it for that of this time.
    for (const char* file : {kVerdictFile, "verdict.xml"}) {
      if (unlink(Path(file).c_str()) == 0 || errno == ENOENT) continue;
      throw Fault(ExitStatus::kLimit,
                  Quoted(Path(file)) + " cannot be removed: " + SystemReason(errno));
    }
  }

  // A folder that is no qualification's is left alone: runs in it are removed when they are old.
  void CheckWhatIsThere() const {
    if (IsTaken(Path(kQualifyFile))) {
      if (IsRecord(Path(kQualifyFile))) return;
      throw Fault(ExitStatus::kUsage, Quoted(Path(kQualifyFile)) +
                                          " is there, and is no record of a qualification; give "
                                          "another folder with --run");
    }
    std::error_code error;
    const std::string unfinished = std::string(kQualifyFile) + ".";
    if (IsTaken(run_) && !fs::is_directory(run_, error)) {
      throw Fault(ExitStatus::kUsage, Quoted(run_) + " is no folder; give another one");
    }
    for (const auto& entry : fs::directory_iterator(run_, error)) {
      const std::string name = entry.path().filename().string();
      if (name == kFolderLockFile) continue;
      // One that was killed when it had only begun.
      if (name.starts_with(unfinished) && name.ends_with(kUnfinishedSuffix)) continue;
      throw Fault(ExitStatus::kUsage,
                  "the folder " + Quoted(run_) +
                      " is not empty, and no qualification was made in it; give "
                      "another one");
    }
  }

  // What a person writes for this verb may have the same name, and says no state.
  static bool IsRecord(const std::string& path) {
    try {
      const Json record =
          ParseJson(ReadWholeFile(path, "the record", ExitStatus::kInput, kMostFileBytes));
      return record.Find("state") != nullptr;
    } catch (const Fault&) {
      return false;
    } catch (const JsonError&) {
      return false;
    }
  }

  // Before anything runs: what is wrong with a model or a configuration is not to be told behind
  // hours of work.
  bool DescribeAll() {
    return Describe(qualification_.device, "device") &&
           (!qualification_.reference || Describe(*qualification_.reference, "reference")) &&
           (!floor_ || Describe(*floor_, "floor"));
  }

  bool RunAll() {
    if (!PrepareAndRun(qualification_.device, "device")) return false;
    if (!qualification_.reference) return true;
    if (!PrepareAndRun(*qualification_.reference, "reference")) return false;
    // It is the same model, and takes what the reference takes.
    return !floor_ || RunOne(*floor_, "floor", Path("reference.inputs/list.txt"));
  }

  bool Describe(const QualifiedSide& side, const std::string& name) {
    const ExitStatus described =
        Take({"describe the " + name, DescribeCall(side, ConfigOf(side), name), {}, ""});
    if (described != ExitStatus::kDone || WasStopped()) return false;
    const std::string description = Path(name + ".model.json");
    ClearPlace(description);
    WriteWholeFile(description, steps_.back().out);
    return true;
  }

  bool PrepareAndRun(const QualifiedSide& side, const std::string& name) {
    const std::string inputs = Path(name + ".inputs");
    const ExitStatus prepared =
        Take({"prepare the " + name + "'s inputs", PrepareCall(side, inputs, name), {}, ""});
    if (prepared != ExitStatus::kDone && prepared != ExitStatus::kPartial) return false;
    if (WasStopped()) return false;
    return RunOne(side, name, inputs + "/list.txt");
  }

  bool RunOne(const QualifiedSide& side, const std::string& name, const std::string& list) {
    const std::string run = Path(name);
    const std::string config = ConfigOf(side);
    if (!IsRunOf(run, side, config, list)) fs::remove_all(run);
    const ExitStatus launched =
        Take({"run the " + name, LaunchCall(side, config, list, run), {}, ""});
    return (launched == ExitStatus::kDone || launched == ExitStatus::kPartial) && !WasStopped();
  }

  std::string ConfigOf(const QualifiedSide& side) const {
    if (side.config) return Absolute(*side.config);
    std::string path = Path("empty.json");
    if (!IsTaken(path)) WriteWholeFile(path, "{}\n");
    return path;
  }

  VerbCall DescribeCall(const QualifiedSide& side, const std::string& config,
                        const std::string& name) const {
    VerbCall call{.verb = "inspect", .words = {"-m", side.model, "-j", config, "--json"}};
    if (side.runtime) {
      call.words.insert(call.words.end(), {"--runtime", Absolute(*side.runtime)});
    }
    call.environment = SearchOf(side, name);
    return call;
  }

  VerbCall PrepareCall(const QualifiedSide& side, const std::string& folder,
                       const std::string& name) const {
    VerbCall call{.verb = "prepare",
                  .words = {"--model-json", Path(name + ".model.json"), "-o", folder}};
    const auto add = [&](std::initializer_list<std::string> words) {
      call.words.insert(call.words.end(), words);
    };
    if (side.job) {
      const std::string path = Path(name + ".job.json");
      ClearPlace(path);
      WriteWholeFile(path, ToText(Json::Object({{"schema", 1}, {"inputs", *side.job}}), 2) + "\n");
      add({"--job", path});
    }
    for (const std::string& input : side.inputs) add({"--input", input});
    for (const std::string& recipe : side.recipes) add({"--recipe", recipe});
    if (qualification_.batch > 1) add({"-b", std::to_string(qualification_.batch)});
    if (qualification_.most) add({"--most", std::to_string(*qualification_.most)});
    if (qualification_.areFaultsLeftOut) add({"--keep-going"});
    if (qualification_.isQuiet) add({"--quiet"});
    if (IsTaken(folder)) add({"--resume"});
    return call;
  }

  VerbCall LaunchCall(const QualifiedSide& side, const std::string& config, const std::string& list,
                      const std::string& run) const {
    VerbCall call{.verb = "launch",
                  .words = {"-m", side.model, "-j", config, "-i", list, "--run", run,
                            "--model-json", run + ".model.json", "--no-text"}};
    const auto add = [&](std::initializer_list<std::string> words) {
      call.words.insert(call.words.end(), words);
    };
    if (qualification_.batch > 1) add({"-b", std::to_string(qualification_.batch)});
    if (qualification_.chunk) add({"--chunk", std::to_string(*qualification_.chunk)});
    if (side.program) add({"--program", *side.program});
    if (qualification_.isQuiet) add({"--quiet"});
    if (IsTaken(run + "/" + kRunFile)) add({"--resume"});
    call.environment = SearchOf(side, fs::path(run).filename().string());
    return call;
  }

  // vorn-run takes the libvorn.so that the loader finds, by that name. The reference is the host
  // runtime, whatever a person has in LD_LIBRARY_PATH for the device.
  std::vector<std::pair<std::string, std::optional<std::string>>> SearchOf(
      const QualifiedSide& side, const std::string& name) const {
    if (!side.runtime) {
      if (name != "device") return {{"LD_LIBRARY_PATH", std::nullopt}};
      return {};
    }
    const fs::path runtime = Absolute(*side.runtime);
    std::string folder = runtime.parent_path().string();
    if (runtime.filename() != kLibrary) {
      folder = Path(name + ".runtime");
      std::error_code error;
      fs::create_directories(folder, error);
      fs::remove(folder + "/" + kLibrary, error);
      fs::create_symlink(runtime, folder + "/" + kLibrary, error);
    }
    // Its own libraries may lie where the path said.
    const char* before = std::getenv("LD_LIBRARY_PATH");
    if (before != nullptr && *before != '\0') folder += std::string(":") + before;
    return {{"LD_LIBRARY_PATH", folder}};
  }

  // Whether a run that is there is one of the same model, configuration and list, so that it can be
  // gone on with. What of its inputs changed, the launch finds out.
  bool IsRunOf(const std::string& run, const QualifiedSide& side, const std::string& config,
               const std::string& list) const {
    if (!IsTaken(run + "/" + kRunFile)) return !IsTaken(run);
    try {
      const RunFacts facts = ReadRun(run);
      const auto isSame = [](const std::optional<FileIdentity>& before, const std::string& path) {
        return before && before->xxh3 &&
               before->xxh3 == IdentifyFile(path, "the file", ExitStatus::kInput).xxh3;
      };
      if (facts.configurationFiles && facts.configurationFiles != FilesNamedIn(config))
        return false;
      const std::string program = side.program.value_or(OwnFolder() + "/vorn-run");
      if (facts.program && !isSame(facts.program, program)) return false;
      // The runtime that the model was described by a moment ago.
      const auto described = FromJson(ReadWholeFile(run + ".model.json", "the description",
                                                    ExitStatus::kModel, kMostFileBytes));
      const bool isSameRuntime =
          !facts.runtime || !described.runtime || facts.runtime->xxh3 == described.runtime->xxh3;
      return isSame(facts.model, side.model) && isSame(facts.configuration, config) &&
             isSame(facts.list, list) && isSameRuntime;
    } catch (const Fault&) {
      return false;
    }
  }

  void Judge() {
    const std::string expected =
        qualification_.reference ? Path("reference") : qualification_.expected.value_or("");
    VerbCall call{.verb = "judge", .words = {Path("device"), "--expected", expected, "-o", run_}};
    if (floor_) call.words.insert(call.words.end(), {"--floor", Path("floor")});
    call.words.insert(call.words.end(), qualification_.judgeWords.begin(),
                      qualification_.judgeWords.end());
    Take({"judge", std::move(call), {}, ""});
  }

  ExitStatus Take(QualifyStep step) {
    show_(step);
    VerbEnd end = RunVerbProcess(step.call);
    step.status = end.status;
    step.out = std::move(end.out);
    step.wasStopped = end.asked != 0;
    show_(step);
    steps_.push_back(std::move(step));
    return end.status;
  }

  [[nodiscard]] bool WasStopped() const { return !steps_.empty() && steps_.back().wasStopped; }

  void WriteRecord() const {
    Json steps = Json::Array();
    for (const QualifyStep& step : steps_) {
      steps.Append(Json::Object({{"name", step.name},
                                 {"command", CommandText(step.call)},
                                 {"status", static_cast<int64_t>(*step.status)}}));
    }
    const Json record = Json::Object({{"schema", 1},
                                      {"state", WasStopped() ? "stopped" : "done"},
                                      {"status", static_cast<int64_t>(StatusOf(steps_))},
                                      {"steps", steps}});
    WriteWholeFile(Path(kQualifyFile), ToText(record, 2) + "\n");
  }

  const Qualification& qualification_;
  const std::function<void(const QualifyStep&)>& show_;
  std::string run_;
  std::optional<QualifiedSide> floor_;  // the reference, rounded
  std::optional<FolderLock> lock_;
  std::vector<QualifyStep> steps_;
};

void CheckSide(const QualifiedSide& side, const char* name) {
  if (side.model.empty()) {
    throw Fault(ExitStatus::kUsage, std::string("the model of the ") + name + " is missing");
  }
  if (side.inputs.empty() && !side.job) {
    throw Fault(ExitStatus::kUsage, std::string("nothing says what the ") + name +
                                        " is given; give --input, or \"inputs\" in a file");
  }
}

// Of a floor that rounds nothing everything would be worse.
void CheckFloor(const Qualification& qualification) {
  const std::string& path = *qualification.floor;
  if (!qualification.reference) {
    throw Fault(ExitStatus::kUsage,
                "--floor runs the reference rounded, and there is none; give --reference MODEL");
  }
  try {
    const Json config = ParseJson(
        ReadWholeFile(path, "the floor's configuration", ExitStatus::kModel, kMostFileBytes));
    const Json* model = config.IsObject() ? config.Find("model") : nullptr;
    if (model != nullptr && model->IsObject() && model->Find("round") != nullptr) return;
  } catch (const JsonError&) {
    return;  // the runtime tells what is wrong with it
  }
  throw Fault(ExitStatus::kModel,
              "the floor's configuration " + Quoted(path) +
                  " rounds nothing; a floor has \"model\": {\"round\": …} in it, \"float16\", "
                  "\"bfloat16\" or {\"int8\": RANGES}");
}

}  // namespace

Qualification ReadQualification(const std::string& path) {
  const std::string text =
      ReadWholeFile(path, "the qualification", ExitStatus::kInput, kMostFileBytes);
  const size_t slash = path.rfind('/');
  try {
    return QualificationFrom(ParseJson(text),
                             slash == std::string::npos ? "" : path.substr(0, slash));
  } catch (const JsonError& error) {
    throw Fault(ExitStatus::kInput, "the qualification " + Quoted(path) + ": " + error.what());
  }
}

std::vector<QualifyStep> Qualify(const Qualification& qualification,
                                 const std::function<void(const QualifyStep&)>& show) {
  CheckSide(qualification.device, "device");
  if (qualification.reference) CheckSide(*qualification.reference, "reference");
  if (qualification.reference.has_value() == qualification.expected.has_value()) {
    throw Fault(ExitStatus::kUsage,
                qualification.expected
                    ? "a reference and what is expected are given; one of them is enough"
                    : "nothing says what is right: give --reference MODEL, or --expected PATH");
  }
  if (qualification.run.find('\n') != std::string::npos) {
    throw Fault(ExitStatus::kUsage, "--run " + Quoted(qualification.run) + " holds a line end");
  }
  if (qualification.floor) CheckFloor(qualification);
  return Steps(qualification, show).Run();
}

ExitStatus StatusOf(const std::vector<QualifyStep>& steps) {
  constexpr std::array kOrder{ExitStatus::kUsage,      ExitStatus::kInput,   ExitStatus::kModel,
                              ExitStatus::kRuntime,    ExitStatus::kLimit,   ExitStatus::kPartial,
                              ExitStatus::kDiffers,    ExitStatus::kSlower,  ExitStatus::kNothing,
                              ExitStatus::kCannotTell, ExitStatus::kOwnFault};
  for (const ExitStatus status : kOrder) {
    const bool holds = std::any_of(steps.begin(), steps.end(),
                                   [&](const QualifyStep& step) { return step.status == status; });
    if (holds) return status;
  }
  return ExitStatus::kDone;
}

}  // namespace vorn::kit
