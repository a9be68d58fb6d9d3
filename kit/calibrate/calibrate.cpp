#include "kit/calibrate/calibrate.h"

#include <sys/statvfs.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <thread>
#include <vector>

#include "kit/calibrate/work_folder.h"
#include "kit/common/fault.h"
#include "kit/common/printable.h"
#include "kit/common/verb_process.h"
#include "kit/common/whole_file.h"
#include "kit/json/identity_json.h"
#include "kit/json/json.h"
#include "kit/json/json_members.h"
#include "kit/launch/checks.h"
#include "kit/launch/input_list.h"
#include "kit/launch/plan.h"
#include "kit/launch/program_log.h"
#include "kit/launch/run_folder.h"
#include "kit/launch/run_report.h"
#include "kit/model/model_json.h"
#include "kit/run/output_names.h"
#include "kit/run/run_directory.h"
#include "kit/runtime/describe.h"
#include "kit/tensor/tensor_reader.h"
#include "kit/tensor/tensor_source.h"
#include "vorn/vorn.h"

namespace vorn::kit {
namespace {

namespace fs = std::filesystem;

constexpr uint64_t kMostListBytes = uint64_t{1} << 30;
constexpr uint64_t kMostConfigBytes = 64 << 20;
constexpr size_t kPiece = 1 << 16;

Json Without(const Json& object, const std::vector<std::string>& keys) {
  Json rest = Json::Object();
  for (const auto& [key, value] : object.Members()) {
    if (std::find(keys.begin(), keys.end(), key) == keys.end()) rest.Set(key, value);
  }
  return rest;
}

struct ExposingConfigs {
  std::vector<std::string> named;  ///< tensors that the person's configuration exposes itself
  std::string all;                 ///< every inner tensor is given that has one shape
  Json withNamed;                  ///< what is given is still to be filled in
};

// Of the configuration of a person, with nothing rounded.
ExposingConfigs ConfigsOf(const std::optional<std::string>& path) {
  const std::string name = path ? "the configuration " + Quoted(*path) : "";
  try {
    ExposingConfigs configs;
    Json config = path ? ParseJson(ReadWholeFile(*path, "the configuration", ExitStatus::kModel,
                                                 kMostConfigBytes))
                       : Json::Object();
    const Json* before = config.Find("model");
    Json model = before == nullptr ? Json::Object() : Without(*before, {"round"});
    config.Set("model", model);
    configs.withNamed = config;
    const Json* exposed = model.Find("expose");
    if (exposed != nullptr && exposed->IsArray()) {
      for (const Json& item : exposed->Items()) configs.named.push_back(item.AsText());
    }
    // Sizes of what is not given are refused.
    const Json* sizes = model.Find("outputDims");
    if (sizes != nullptr && sizes->IsObject()) {
      model.Set("outputDims", Without(*sizes, configs.named));
    }
    model.Set("expose", "all");
    config.Set("model", model);
    configs.all = ToText(config, 2) + "\n";
    return configs;
  } catch (const JsonError& error) {
    throw Fault(ExitStatus::kModel, name + ": " + error.what());
  }
}

// What the host runtime said of tensors that "all" does not give; empty: it gives all of them.
std::string WhatIsLeftOut(std::string_view errors) {
  constexpr std::string_view kLeftOut = " and left out ";
  const size_t begin = errors.find(kLeftOut);
  if (begin == std::string_view::npos) return "";
  errors.remove_prefix(begin + kLeftOut.size());
  return Printable(std::string(errors.substr(0, errors.find('\n'))));
}

// ---- Signals ------------------------------------------------------------------------------------

volatile sig_atomic_t g_askedToEnd = 0;

// What asks this process to end is noted, and found between two steps: what lies on the disk has to
// go first.
class EndAsked {
 public:
  EndAsked() {
    g_askedToEnd = 0;
    struct sigaction note {};
    note.sa_handler = [](int number) { g_askedToEnd = number; };
    note.sa_flags = SA_RESTART;
    for (size_t i = 0; i < kSignals.size(); ++i) {
      sigaction(kSignals[i], nullptr, &before_[i]);
      if (before_[i].sa_handler != SIG_IGN) sigaction(kSignals[i], &note, nullptr);
    }
  }
  ~EndAsked() {
    for (size_t i = 0; i < kSignals.size(); ++i) sigaction(kSignals[i], &before_[i], nullptr);
  }
  EndAsked(const EndAsked&) = delete;
  EndAsked& operator=(const EndAsked&) = delete;

  static void Check() {
    if (g_askedToEnd != 0) RefuseToGoOn(g_askedToEnd);
  }
  [[noreturn]] static void RefuseToGoOn(int number) {
    throw Fault(ExitStatus::kPartial,
                std::string("was stopped by ") + strsignal(number) + "; no ranges were written");
  }

 private:
  static constexpr std::array kSignals{SIGINT, SIGTERM, SIGHUP};
  std::array<struct sigaction, kSignals.size()> before_{};
};

// What the run tells of why it is not done, which goes with it; empty where it tells nothing.
std::string WhyNotDone(const std::string& run) {
  try {
    for (const RunWarning& warning : ReadRun(run).warnings) {
      if (warning.id == kProgramEndWarning) return warning.message;
    }
    for (const SampleRecord& sample : ReadSamples(run)) {
      if (sample.reason) return *sample.reason;
    }
  } catch (const Fault&) {  // it was refused, or cut off, and has said so itself
  }
  return "";
}

// ---- How far a part is --------------------------------------------------------------------------

// Reads what the program of a run prints, from a thread of its own, while another waits for its
// end.
class RunWatch {
 public:
  RunWatch(const std::string& run, const std::function<void(uint64_t dumped)>& show)
      : log_(run + "/" + kLogFile), show_(show), thread_([this] { Watch(); }) {}
  ~RunWatch() {
    {
      const std::lock_guard lock(mutex_);
      isOver_ = true;
    }
    over_.notify_one();
    thread_.join();
  }
  RunWatch(const RunWatch&) = delete;
  RunWatch& operator=(const RunWatch&) = delete;

 private:
  void Watch() {
    constexpr std::chrono::milliseconds kBetween{200};
    std::unique_lock lock(mutex_);
    while (!over_.wait_for(lock, kBetween, [this] { return isOver_; })) Look();
  }

  void Look() {
    for (std::string piece; !(piece = ReadFrom(log_, at_, kPiece)).empty(); at_ += piece.size()) {
      lines_.Take(piece);
    }
    show_(lines_.Dumped());
  }

  std::string log_;
  const std::function<void(uint64_t)>& show_;
  ProgramLog lines_;
  uint64_t at_ = 0;
  bool isOver_ = false;
  std::mutex mutex_;
  std::condition_variable over_;
  std::thread thread_;  // last, so that all else is there for it
};

// ---- All of it ----------------------------------------------------------------------------------

class Calibration {
 public:
  Calibration(const CalibrateRequest& request, const CalibrateWatch& watch)
      : request_(request), watch_(watch), work_(request.output) {
    for (const std::string& folder : work_.Removed()) {
      watch_.say(Quoted(folder) + " was left by one that was killed, and is removed");
    }
  }

  Ranges Run() {
    TryOutput();
    config_ = work_.Path() + "/config.json";
    const ModelDescription model = Expose();
    ranges_.model = model.model;
    thresholds_ = LookAtThresholds(request_.thresholds.value_or(""));
    ReadList(model);
    TakeMost();
    CheckFiles(model);
    const uint64_t part = ChoosePart(model);
    for (uint64_t done = 0; done < all_; done += part) {
      watch_.show(done, all_);
      RunPart(done, std::min(part, all_ - done), model);
      ranges_.samples = std::min(all_, done + part);
    }
    watch_.show(all_, all_);
    EndAsked::Check();
    return std::move(ranges_);
  }

 private:
  // All that has one shape, and what the person names besides, with its size in "outputDims".
  ModelDescription Expose() const {
    const DescribeRequest describe{request_.model, config_, "libvorn.so"};
    const ExposingConfigs configs = ConfigsOf(request_.config);
    WriteWholeFile(config_, configs.all);
    ModelDescription model = DescribeFiles(describe);
    if (configs.named.empty()) return model;
    std::vector<std::string> names = configs.named;
    for (const TensorDescription& output : model.outputs) {
      if (std::find(names.begin(), names.end(), output.name) == names.end()) {
        names.push_back(output.name);
      }
    }
    Json config = configs.withNamed;
    Json exposing = config.At("model");
    exposing.Set("expose", Json::ArrayOf(names));
    config.Set("model", exposing);
    WriteWholeFile(config_, ToText(config, 2) + "\n");
    return DescribeFiles(describe);
  }

  // Not behind hours of work. A pipe's reader would take the trial for all.
  void TryOutput() const {
    std::error_code error;
    const auto status = fs::status(request_.output, error);
    if (fs::exists(status) && !fs::is_regular_file(status)) return;
    const WholeFile trial(request_.output);
  }

  void ReadList(const ModelDescription& model) {
    if (DataInputs(model, 0) == 0) throw Fault(ExitStatus::kModel, "the model takes no files");
    perInference_ = DataInputs(model, thresholds_.size());
    list_ = InputList::OfBytes(
        ReadWholeFile(request_.list, "the list", ExitStatus::kInput, kMostListBytes),
        FolderOfList(request_.list));
    if (list_.Lines() == 0)
      throw Fault(ExitStatus::kInput, "the list " + Quoted(request_.list) + " is empty");
    // With another number of thresholds than the model takes it is these to blame.
    if (perInference_ == 0 || list_.Lines() % perInference_ != 0) {
      CheckFiles(model);
      throw Fault(ExitStatus::kInput,
                  "the list " + Quoted(request_.list) + " has " + Counted(list_.Lines(), "line") +
                      ", and the model takes " + std::to_string(perInference_) + " an inference");
    }
  }

  void TakeMost() {
    const uint64_t inferences = list_.Lines() / perInference_;
    all_ = std::min(inferences, request_.most.value_or(inferences));
    list_ = list_.FirstOf(all_ * perInference_);
  }

  // By the person's list and its lines, before a part of it is told of.
  void CheckFiles(const ModelDescription& model) const {
    const Findings found = CheckList({.listPath = request_.list,
                                      .batch = static_cast<int64_t>(request_.batch),
                                      .totalT = request_.totalT,
                                      .thresholds = thresholds_},
                                     model, list_.SortedBy(NamedInputs(model)), LookAtFile);
    if (found.Status() != ExitStatus::kDone) {
      throw Fault(found.Status(), found.Text("vorn calibrate"));
    }
    for (const Finding& remark : found.First()) watch_.say(remark.message);
  }

  uint64_t ChoosePart(const ModelDescription& model) const {
    const bool isRecurrent = model.netType == int32_t{VORN_NET_RECURRENT};
    const uint64_t batch = isRecurrent ? 1 : request_.batch;
    struct statvfs disk {};
    const bool isKnown = statvfs(work_.Path().c_str(), &disk) == 0;
    const uint64_t kept = SizeOfDumps(model, batch, false).leastBytes;
    // A file takes whole blocks.
    const uint64_t blocks = isKnown ? model.outputs.size() * uint64_t{disk.f_frsize} : 0;
    const PartRoom room{kept + blocks, SizeOfDumps(model, batch, true).leastBytes - kept};
    const auto free = isKnown
                          ? static_cast<double>(disk.f_bavail) * static_cast<double>(disk.f_frsize)
                          : HUGE_VAL;
    const uint64_t part = std::min(request_.part.value_or(room.Inferences(free)), all_);
    const auto text = [](double bytes) {
      return SizeText(static_cast<uint64_t>(std::min(bytes, 9e18)));
    };
    if (room.Of(part) > free) {
      throw Fault(ExitStatus::kLimit,
                  "the disk of -o " + Quoted(request_.output) + " has " + text(free) +
                      " left, and " + Counted(part, "inference") + " with all inner tensors " +
                      (part == 1 ? "takes " : "take ") + text(room.Of(part)) + "; " +
                      (part > 1 && room.Of(1) <= free ? "give a smaller --part, or none"
                                                      : "name a file on another disk with -o"));
    }
    watch_.say(Counted(all_, "inference") + ", " +
               (part == all_ ? "all at once" : std::to_string(part) + " at a time") +
               ", with all inner tensors: " + text(room.Of(part)) +
               (isKnown ? " of the " + text(free) + " that the disk has left" : ""));
    return part;
  }

  // Paths of a list are from its folder on, and the parts of it lie elsewhere. A path to that
  // folder might hold a ':', behind which the path would seem to begin.
  std::string WriteListOfPart(uint64_t first, uint64_t count) const {
    constexpr const char* kFolder = "from";
    const std::string link = work_.Path() + "/" + kFolder;
    std::error_code error;
    if (!fs::is_symlink(link, error)) {
      fs::create_directory_symlink(fs::absolute(FolderOfList(request_.list)), link, error);
      if (error) {
        throw Fault(ExitStatus::kLimit, Quoted(link) + " cannot be made: " + error.message());
      }
    }
    std::string text;
    for (uint64_t i = first * perInference_; i < (first + count) * perInference_; ++i) {
      const std::string& line = list_.Input(i).text;
      const auto name = NameInLine(line);
      const size_t path = name ? name->size() + 1 : 0;
      text += line.substr(0, path) + kFolder + "/" + line.substr(path) + "\n";
    }
    std::string list = work_.Path() + "/list.txt";
    WriteWholeFile(list, text);
    return list;
  }

  void RunPart(uint64_t first, uint64_t count, const ModelDescription& model) {
    const std::string list = WriteListOfPart(first, count);
    const std::string run = work_.Path() + "/run";
    VerbCall call{.verb = "launch",
                  .words = {"-m", request_.model, "-j", config_, "-i", list, "--run", run,
                            "--no-text", "--no-trace", "--quiet"}};
    if (request_.batch > 1) {
      call.words.insert(call.words.end(), {"-b", std::to_string(request_.batch)});
    }
    if (request_.totalT) {
      call.words.insert(call.words.end(), {"-t", std::to_string(*request_.totalT)});
    }
    if (request_.thresholds) call.words.insert(call.words.end(), {"-r", *request_.thresholds});
    EndAsked::Check();
    const VerbEnd end = RunAndShow(call, run, first);
    EndAsked::Check();
    if (end.asked != 0) EndAsked::RefuseToGoOn(end.asked);
    if (end.status != ExitStatus::kDone) {
      const std::string why = WhyNotDone(run);
      throw Fault(end.status, "the run of inferences " + std::to_string(first) + " to " +
                                  std::to_string(first + count - 1) + " (" +
                                  Printable(request_.list) + ":" +
                                  std::to_string(list_.Input(first * perInference_).line) +
                                  " on) failed: " + (why.empty() ? CommandText(call) : why));
    }
    // Ranges go by the names of the model.
    const std::string errors = ProgramErrorsOf(run);
    longNames_ = LongNamesIn(errors);
    const std::string left = WhatIsLeftOut(errors);
    if (first == 0 && !left.empty()) {
      watch_.say("not measured are " + left + "; \"expose\" of -j CONFIG may name more");
    }
    for (const SampleRecord& sample : ReadSamples(run)) Measure(run, sample, model);
    std::error_code ignored;
    fs::remove_all(run, ignored);
  }

  VerbEnd RunAndShow(const VerbCall& call, const std::string& run, uint64_t first) const {
    const std::function<void(uint64_t)> show = [&](uint64_t dumped) {
      watch_.show(std::min(first + dumped, all_), all_);
    };
    const RunWatch watch(run, show);
    return RunVerbProcess(call);
  }

  static bool IsFloat(const TensorDescription& tensor) { return tensor.type == VORN_FLOAT32; }

  void Measure(const std::string& run, const SampleRecord& sample, const ModelDescription& model) {
    for (const SampleOutput& output : sample.outputs) {
      if (output.index >= model.outputs.size() || !IsFloat(model.outputs[output.index])) continue;
      const auto longName = longNames_.find(output.name);
      MeasureFile(run + "/" + output.path,
                  longName == longNames_.end() ? output.name : longName->second);
    }
    for (size_t i = 0; i < std::min(sample.inputs.size(), model.inputs.size()); ++i) {
      if (!IsFloat(model.inputs[i]) || model.inputs[i].role != TensorRole::kData) continue;
      if (sample.inputs[i].file.path.empty()) continue;
      MeasureFile(sample.inputs[i].file.path, model.inputs[i].name);
    }
  }

  void MeasureFile(const std::string& path, const std::string& name) {
    const StoredTensor tensor = OpenDump(path);
    TensorReader reader(tensor, ElementOrder::Of(tensor));
    TensorRange& range = ranges_.tensors[name];
    std::vector<float> values(kPiece);
    while (const size_t taken = reader.Next(values)) {
      EndAsked::Check();
      for (size_t i = 0; i < taken; ++i) range.Take(values[i]);
    }
  }

  const CalibrateRequest& request_;
  const CalibrateWatch& watch_;
  const EndAsked signals_;  // before the folder, which goes first
  WorkFolder work_;
  std::string config_;
  std::map<std::string, std::string> longNames_;  // by those of the dumps
  std::vector<CheckRequest::Thresholds> thresholds_;
  uint64_t perInference_ = 0;
  uint64_t all_ = 0;  // inferences
  InputList list_;
  Ranges ranges_;
};

}  // namespace

void TensorRange::Take(float value) {
  if (!std::isfinite(value)) {
    ++notFinite;
    return;
  }
  least = finite == 0 ? value : std::min(least, value);
  most = finite == 0 ? value : std::max(most, value);
  ++finite;
}

double PartRoom::Of(uint64_t inferences) const {
  return static_cast<double>(keptEach) * static_cast<double>(inferences) +
         static_cast<double>(textsOfOne);
}

uint64_t PartRoom::Inferences(double freeBytes) const {
  constexpr double kMost = 2e9;
  // As many as are never asked for, where there is nothing to measure.
  constexpr double kMostInferences = 1e9;
  constexpr double kShare = 0.9;  // of the disk: there are records beside the dumps, and others
  const double room = std::min(kMost, kShare * freeBytes - static_cast<double>(textsOfOne));
  const double inferences = room / std::max(static_cast<double>(keptEach), 1.0);
  return static_cast<uint64_t>(std::clamp(inferences, 1.0, kMostInferences));
}

Ranges MeasureRanges(const CalibrateRequest& request, const CalibrateWatch& watch) {
  return Calibration(request, watch).Run();
}

std::string RangesJson(const Ranges& ranges) {
  Json tensors = Json::Object();
  for (const auto& [name, range] : ranges.tensors) {
    if (range.finite == 0) continue;
    tensors.Set(name, Json::Object({{"min", ShortestDouble(range.least)},
                                    {"max", ShortestDouble(range.most)}}));
  }
  return ToText(Json::Object({{"schema", 1},
                              {"kind", "ranges"},
                              {"samples", ranges.samples},
                              {"model", FromIdentity(ranges.model)},
                              {"tensors", tensors}}),
                2) +
         "\n";
}

}  // namespace vorn::kit
