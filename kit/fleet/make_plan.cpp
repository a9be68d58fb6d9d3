#include "kit/fleet/make_plan.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <fstream>
#include <utility>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "kit/common/file_place.h"
#include "kit/common/folder_lock.h"
#include "kit/common/folder_names.h"
#include "kit/common/printable.h"
#include "kit/common/whole_file.h"
#include "kit/fleet/here_board.h"
#include "kit/fleet/job.h"
#include "kit/launch/run_folder.h"
#include "kit/model/model_json.h"
#include "kit/run/configuration_files.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMeasured = 16;
constexpr const char* kMeasuring = "here";
constexpr std::array kFilesOfPlan{kInputsFile, kPathsFile,   kModelFile,
                                  kPlanFile,   kCrossFolder, kJournalFolder};

// What a chunk costs beside its process: a connection, files there and back, two journal lines.
constexpr uint64_t kTransferNs = 500'000'000;

void CheckFindings(const Findings& findings, Console& console) {
  const std::string text = findings.Text("vorn fleet");
  if (findings.Status() != ExitStatus::kDone) throw Fault(findings.Status(), text);
  if (!findings.IsEmpty()) console.Say(text);
}

// What goes into JSON has to come out of it as it was.
void CheckPath(const std::string& path, const std::string& what) {
  std::string plain = path;
  std::erase(plain, '\\');  // which Printable doubles, and JSON keeps
  if (Printable(plain) == plain) return;
  throw Fault(ExitStatus::kUsage, what + " " + Quoted(path) +
                                      " has a name that a plan cannot hold; give it another one");
}

void CheckFolder(const std::string& fleet) {
  for (const std::string& name : NamesIn(fleet)) {
    if (name == kFolderLockFile) continue;
    throw Fault(ExitStatus::kUsage, Quoted(fleet) + " is not empty; name another folder with -o");
  }
}

// Its own relative files are laid beside a board's jobs.
void CheckConfigurationFile(const FileIdentity& file) {
  const bool isAbsolute = file.path.starts_with('/');
  const bool leadsOut = ("/" + file.path + "/").find("/../") != std::string::npos;
  const std::string first = file.path.substr(0, file.path.find('/'));
  const bool isTaken = first == "run" || first == "list.txt";
  if (!isAbsolute && (leadsOut || isTaken)) {
    throw Fault(ExitStatus::kModel, "the configuration names " + Quoted(file.path) +
                                        ", for which a board has no place; put it below this "
                                        "folder, not as 'run' or 'list.txt'");
  }
}

SampleRecord RecordOf(const std::vector<ListedInput>& inputs, uint64_t index) {
  SampleRecord record{.index = index, .status = {}, .inputs = {}, .outputs = {}, .reason = {}};
  record.status = SampleStatus::kMissing;
  for (const ListedInput& input : inputs) {
    record.inputs.push_back({.line = input.line,
                             .name = input.name,
                             .path = input.path,
                             .file = IdentifyFile(input.file, "the input", ExitStatus::kInput)});
  }
  return record;
}

// Where the lines of a file begin that was just written, asked for in their order.
class LineBegins {
 public:
  explicit LineBegins(const std::string& path) : path_(path), file_(path, std::ios::binary) {}

  uint64_t ByteOf(uint64_t line) {
    for (std::string text; line_ < line; ++line_) {
      if (!std::getline(file_, text)) {
        throw Fault(ExitStatus::kLimit, Quoted(path_) + " cannot be read again");
      }
      at_ += text.size() + 1;
    }
    return at_;
  }

 private:
  std::string path_;
  std::ifstream file_;
  uint64_t line_ = 0;
  uint64_t at_ = 0;
};

class Maker {
 public:
  Maker(const FleetPlanRequest& request, Console& console)
      : request_(request), fleet_(request.launch.run), console_(console) {}

  FleetPlan Make() {
    const LaunchRequest& launch = request_.launch;
    CheckPath(launch.model, "the model");
    CheckPath(launch.config, "the configuration");
    CheckPath(launch.list, "the list");
    CheckPath(Absolute("."), "the current folder");  // from which all files of the plan count
    CheckFolder(fleet_);
    look_ = MakePlan(launch);
    CheckFindings(look_.findings, console_);
    if (!look_.isModelKnown) {
      throw Fault(ExitStatus::kModel,
                  "nothing is known of the model's sizes; name a libvorn.so that can load it, or "
                  "its description with --model-json");
    }
    if (look_.inferences == 0) {
      throw Fault(ExitStatus::kInput, "the list " + Quoted(launch.list) + " names no inference");
    }
    MakeFolders(fleet_);
    const FolderLock lock(fleet_, "fleet");
    CheckFolder(fleet_);
    try {
      Write();
    } catch (...) {
      RemoveFiles();
      throw;
    }
    return std::move(plan_);
  }

 private:
  void Write() {
    FillPlan();
    WriteInputs();
    plan_.chunks = ChunksOf(request_.chunk.value_or(look_.inferences));
    if (!request_.chunk && look_.inferences > 1) Measure();
    WriteWholeFile(fleet_ + "/" + kModelFile, ToJson(look_.model));
    for (const char* name : {kInputsFile, kModelFile}) {
      plan_.ownFiles.push_back(
          IdentifyFile(fleet_ + "/" + name, "a file of the plan", ExitStatus::kLimit));
      plan_.ownFiles.back().path = name;
    }
    plan_.id = IdOf(plan_);
    WriteWholeFile(fleet_ + "/" + kPlanFile, ToJson(plan_));
  }

  // Whoever mends what was wrong takes the same folder.
  void RemoveFiles() const {
    try {
      for (const char* name : kFilesOfPlan) RemoveTree(fleet_ + "/" + name);
    } catch (const Fault&) {
      // The first fault is the one to tell of.
    }
  }

  void FillPlan() {
    const LaunchRequest& launch = request_.launch;
    plan_.version = launch.version;
    for (const std::string& word : launch.command) plan_.command.push_back(Printable(word));
    plan_.from = Absolute(".");
    plan_.model = look_.model.model;
    plan_.configuration = look_.model.configuration.value_or(FileIdentity{});
    plan_.configurationFiles = FilesNamedIn(launch.config);
    for (const FileIdentity& file : plan_.configurationFiles) CheckConfigurationFile(file);
    std::string left = launch.thresholds.value_or("");
    while (!left.empty()) {
      const std::string path = left.substr(0, left.find(','));
      left = path.size() == left.size() ? "" : left.substr(path.size() + 1);
      CheckPath(path, "the thresholds");
      plan_.thresholds.push_back(IdentifyFile(path, "the thresholds", ExitStatus::kInput));
    }
    plan_.list = look_.list.value_or(FileIdentity{});
    plan_.runtime = look_.model.runtime;
    plan_.program = look_.program;
    plan_.options = {.batch = launch.batch,
                     .totalT = launch.totalT,
                     .isProfiled = launch.isProfiled,
                     .isTextKept = launch.isTextKept,
                     .areArrays = launch.areArrays,
                     .isTraced = launch.isTraced,
                     .sampleLimitS = {}};
    if (launch.sampleLimit) {
      plan_.options.sampleLimitS = static_cast<uint64_t>(launch.sampleLimit->count());
    }
    plan_.inferences = look_.inferences;
    plan_.perInference = look_.perInference;
    plan_.outputs = look_.model.outputs.size();
    plan_.areNamesKept = AreNamesKept(look_);
    const uint64_t checked = std::min(request_.crossCheck, plan_.inferences);
    for (uint64_t i = 0; i < checked; ++i) {
      plan_.crossCheck.push_back(i * plan_.inferences / checked);
    }
  }

  // Every input is read once, and its hash is what every board is held to.
  void WriteInputs() {
    WholeFile inputs(fleet_ + "/" + kInputsFile);
    WholeFile paths(fleet_ + "/" + kPathsFile);
    const auto began = std::chrono::steady_clock::now();
    for (uint64_t index = 0; index < look_.inferences; ++index) {
      const std::vector<ListedInput> listed = look_.InputsOf(index);
      inputs.Append(ToLine(RecordOf(listed, index)));
      for (const ListedInput& input : listed) paths.Append(Absolute(input.file) + "\n");
      console_.Show({.series = {},
                     .done = index + 1,
                     .all = look_.inferences,
                     .doneHere = index + 1,
                     .faults = 0,
                     .elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(
                         std::chrono::steady_clock::now() - began)});
    }
    inputs.Finish();
    paths.Finish();
    const FileIdentity now = IdentifyFile(request_.launch.list, "the list", ExitStatus::kInput);
    if (now.xxh3 == plan_.list.xxh3) return;
    throw Fault(ExitStatus::kInput, "the list " + Quoted(request_.launch.list) +
                                        " was changed while it was read; start again");
  }

  std::vector<FleetChunk> ChunksOf(uint64_t size) const {
    LineBegins inputs(fleet_ + "/" + kInputsFile);
    LineBegins paths(fleet_ + "/" + kPathsFile);
    std::vector<FleetChunk> chunks;
    for (uint64_t first = 0; first < look_.inferences; first += chunks.back().inferences) {
      chunks.push_back({.first = first,
                        .inferences = std::min(size, look_.inferences - first),
                        .inputsAt = inputs.ByteOf(first),
                        .pathsAt = paths.ByteOf(first * plan_.perInference)});
    }
    return chunks;
  }

  // A process over a few inferences here tells what starting one costs.
  void Measure() {
    FleetPlan few = plan_;
    few.crossCheck.clear();
    for (uint64_t i = 0; i < std::min(kMeasured, few.inferences); ++i) few.crossCheck.push_back(i);
    console_.Say("measuring " + Counted(few.crossCheck.size(), "inference") +
                 " here to tell how long a chunk has to be (--chunk N says it)");
    StopSignals signals;
    JournalRecord record;
    std::vector<TimesRecord> times;
    {
      Journal journal(fleet_, kMeasuring);
      const AttemptRequest attempt{.fleet = Absolute(fleet_),
                                   .chunk = {},
                                   .board = kMeasuring,
                                   .slot = 1,
                                   .config = {},
                                   .limit = {}};
      record =
          RunAttempt(
              few, attempt, FilesOnBoard::kHere,
              [&](const BoardWork& work) { return RunHere(work, plan_.from, signals); }, journal)
              .record;
      if (record.outcome == AttemptOutcome::kDone) {
        times = ReadTimes(CrossFolder(fleet_, kMeasuring) + "/" + std::to_string(record.attempt));
      }
    }
    RemoveTree(fleet_ + "/" + kCrossFolder);
    RemoveTree(fleet_ + "/" + kJournalFolder);
    const auto launch = record.phases.find("launch");
    if (times.size() < 2 || launch == record.phases.end()) {
      throw Fault(ExitStatus::kRuntime,
                  "a chunk cannot be sized by what a process costs here" +
                      (record.reason.empty() ? "" : " (" + record.reason + ")") +
                      "; say how many inferences with --chunk");
    }
    const auto [first, last] =
        std::minmax_element(times.begin(), times.end(), [](const auto& one, const auto& other) {
          return one.startRealtimeNs < other.startRealtimeNs;
        });
    FleetCost cost;
    cost.sampleNs = std::max<uint64_t>(
        (last->startRealtimeNs - first->startRealtimeNs) / (times.size() - 1), 1);
    cost.startNs = launch->second - std::min(launch->second, cost.sampleNs * times.size());
    plan_.cost = cost;
    plan_.chunks = ChunksOf(ChunkFor(cost, plan_.inferences));
  }

  const FleetPlanRequest& request_;
  const std::string& fleet_;
  Console& console_;
  Plan look_;
  FleetPlan plan_;
};

}  // namespace

uint64_t ChunkFor(const FleetCost& cost, uint64_t inferences) {
  constexpr double kParts = 19;
  const double beside = static_cast<double>(cost.startNs) + static_cast<double>(kTransferNs);
  const double needed = std::ceil(kParts * beside / static_cast<double>(cost.sampleNs));
  return static_cast<uint64_t>(std::clamp(needed, 1.0, static_cast<double>(inferences)));
}

FleetPlan MakeFleetPlan(const FleetPlanRequest& request, Console& console) {
  return Maker(request, console).Make();
}

}  // namespace vorn::kit
