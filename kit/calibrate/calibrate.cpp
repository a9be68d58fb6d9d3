#include "kit/calibrate/calibrate.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <vector>

#include "kit/common/fault.h"
#include "kit/common/printable.h"
#include "kit/common/verb_process.h"
#include "kit/common/whole_file.h"
#include "kit/json/identity_json.h"
#include "kit/json/json.h"
#include "kit/json/json_members.h"
#include "kit/launch/checks.h"
#include "kit/launch/input_list.h"
#include "kit/model/model_json.h"
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

// The configuration of a person with every inner tensor to be given, and nothing rounded.
std::string ConfigWithAll(const std::optional<std::string>& path) {
  const std::string name = path ? "the configuration " + Quoted(*path) : "";
  try {
    Json config = path ? ParseJson(ReadWholeFile(*path, "the configuration", ExitStatus::kModel,
                                                 kMostConfigBytes))
                       : Json::Object();
    const Json* before = config.Find("model");
    Json model = Json::Object();
    if (before != nullptr) {
      for (const auto& [key, value] : before->Members()) {
        if (key != "round") model.Set(key, value);
      }
    }
    model.Set("expose", "all");
    config.Set("model", model);
    return ToText(config, 2) + "\n";
  } catch (const JsonError& error) {
    throw Fault(ExitStatus::kModel, name + ": " + error.what());
  }
}

class Calibration {
 public:
  Calibration(const CalibrateRequest& request, const std::function<void(uint64_t, uint64_t)>& show)
      : request_(request), show_(show) {}
  ~Calibration() {
    if (!isOwned_) return;
    std::error_code ignored;
    fs::remove_all(request_.work, ignored);
  }
  Calibration(const Calibration&) = delete;
  Calibration& operator=(const Calibration&) = delete;

  Ranges Run() {
    MakeFolder();
    config_ = request_.work + "/config.json";
    WriteWholeFile(config_, ConfigWithAll(request_.config));
    DescribeRequest describe{request_.model, config_, "libvorn.so"};
    const ModelDescription model = DescribeFiles(describe);
    ranges_.model = model.model;
    ReadList(DataInputs(model, 0));
    const uint64_t inferences = lines_.size() / perInference_;
    const uint64_t all = std::min(inferences, request_.most.value_or(inferences));
    for (uint64_t done = 0; done < all; done += request_.part) {
      RunPart(done, std::min(request_.part, all - done), model);
      ranges_.samples = std::min(all, done + request_.part);
      show_(ranges_.samples, all);
    }
    return std::move(ranges_);
  }

 private:
  void MakeFolder() {
    std::error_code error;
    if (fs::exists(request_.work, error)) {
      throw Fault(ExitStatus::kUsage, Quoted(request_.work) +
                                          " is there already, and is the place for what is removed "
                                          "again; remove it");
    }
    fs::create_directories(request_.work, error);
    if (error) {
      throw Fault(ExitStatus::kLimit,
                  "the folder " + Quoted(request_.work) + " cannot be made: " + error.message());
    }
    isOwned_ = true;
  }

  // Paths of a list are from its folder on, and the parts of it lie elsewhere.
  void ReadList(uint64_t perInference) {
    perInference_ = perInference;
    if (perInference_ == 0) throw Fault(ExitStatus::kModel, "the model takes no files");
    const fs::path folder = fs::absolute(FolderOfList(request_.list));
    std::error_code error;
    std::string front = fs::relative(folder, request_.work, error).string();
    for (const ListLine& line : SplitListLines(
             ReadWholeFile(request_.list, "the list", ExitStatus::kInput, kMostListBytes))) {
      const auto name = NameInLine(line.text);
      const size_t path = name ? name->size() + 1 : 0;
      lines_.push_back(line.text.substr(0, path) + front + "/" + line.text.substr(path));
    }
    if (lines_.empty())
      throw Fault(ExitStatus::kInput, "the list " + Quoted(request_.list) + " is empty");
    if (lines_.size() % perInference_ != 0) {
      throw Fault(ExitStatus::kInput,
                  "the list " + Quoted(request_.list) + " has " + Counted(lines_.size(), "line") +
                      ", and the model takes " + std::to_string(perInference_) + " an inference");
    }
  }

  void RunPart(uint64_t first, uint64_t count, const ModelDescription& model) {
    const std::string list = request_.work + "/list.txt";
    const std::string run = request_.work + "/run";
    std::string text;
    for (uint64_t i = first * perInference_; i < (first + count) * perInference_; ++i) {
      text += lines_[i] + "\n";
    }
    WriteWholeFile(list, text);
    VerbCall call{.verb = "launch",
                  .words = {"-m", request_.model, "-j", config_, "-i", list, "--run", run,
                            "--no-text", "--no-trace", "--quiet"}};
    if (request_.batch > 1) {
      call.words.insert(call.words.end(), {"-b", std::to_string(request_.batch)});
    }
    const VerbEnd end = RunVerbProcess(call);
    if (end.status != ExitStatus::kDone) {
      throw Fault(end.status, "the run of inferences " + std::to_string(first) + " to " +
                                  std::to_string(first + count - 1) +
                                  " failed: " + CommandText(call));
    }
    for (const SampleRecord& sample : ReadSamples(run)) Measure(run, sample, model);
    std::error_code ignored;
    fs::remove_all(run, ignored);
  }

  static bool IsFloat(const TensorDescription& tensor) { return tensor.type == VORN_FLOAT32; }

  void Measure(const std::string& run, const SampleRecord& sample, const ModelDescription& model) {
    for (const SampleOutput& output : sample.outputs) {
      if (output.index >= model.outputs.size() || !IsFloat(model.outputs[output.index])) continue;
      MeasureFile(run + "/" + output.path, output.name);
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
      for (size_t i = 0; i < taken; ++i) range.Take(values[i]);
    }
  }

  const CalibrateRequest& request_;
  const std::function<void(uint64_t, uint64_t)>& show_;
  bool isOwned_ = false;
  std::string config_;
  uint64_t perInference_ = 0;
  std::vector<std::string> lines_;
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

Ranges MeasureRanges(const CalibrateRequest& request,
                     const std::function<void(uint64_t, uint64_t)>& show) {
  return Calibration(request, show).Run();
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
