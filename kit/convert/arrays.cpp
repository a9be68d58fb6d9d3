#include "kit/convert/arrays.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <set>
#include <system_error>

#include "kit/common/file_identity.h"
#include "kit/common/file_place.h"
#include "kit/common/printable.h"
#include "kit/common/whole_file.h"
#include "kit/model/dump_array.h"
#include "kit/model/model_json.h"
#include "kit/run/run_directory.h"

namespace vorn::kit {
namespace {

namespace fs = std::filesystem;

constexpr uint64_t kMostJsonBytes = 256 << 20;
constexpr std::string_view kBinary = ".bin";

// A path that leads out of the run was not written by a run.
bool LeadsOut(const std::string& path) {
  const fs::path parts(path);
  return parts.is_absolute() || std::find(parts.begin(), parts.end(), "..") != parts.end();
}

class ArrayWriter {
 public:
  ArrayWriter(std::string run, std::optional<std::string> folder)
      : run_(std::move(run)), folder_(std::move(folder)) {
    const std::string model = run_ + "/" + kModelFile;
    if (IsThere(model)) {
      outputs_ = FromJson(ReadWholeFile(model, "the run's description", ExitStatus::kModel,
                                        kMostJsonBytes))
                     .outputs;
    }
  }

  ArraysWritten Write() {
    if (!IsThere(run_ + "/" + kSamplesFile)) {
      if (IsThere(run_ + "/A/" + kSamplesFile)) {
        throw Fault(ExitStatus::kInput, Quoted(run_) + " holds two runs that took turns; name " +
                                            Quoted(run_ + "/A") + " or " + Quoted(run_ + "/B"));
      }
      throw Fault(ExitStatus::kInput, Quoted(run_) + " is no run directory: it has no " +
                                          kSamplesFile + "; vorn launch makes one");
    }
    const std::vector<SampleRecord> samples = ReadSamples(run_);
    NoteEnd(samples.size());
    for (const SampleRecord& sample : samples) WriteSample(sample);
    return std::move(written_);
  }

 private:
  // Nothing else is needed of run.json, which another hand may have left out or written otherwise.
  void NoteEnd(size_t samples) {
    if (!IsThere(run_ + "/" + kRunFile)) return;
    RunFacts facts;
    try {
      facts = ReadRun(run_);
    } catch (const Fault&) {
      return;
    }
    const bool isRunning = facts.state == RunState::kRunning;
    written_.isUnfinished = isRunning || samples < facts.counts.inferences;
    if (!written_.isUnfinished) return;
    std::string count = Counted(samples, "sample");
    if (samples < facts.counts.inferences)
      count += " of " + std::to_string(facts.counts.inferences);
    written_.why.push_back("the run " + Quoted(run_) +
                           (isRunning ? " has not ended (\"running\" in its run.json), and has "
                                      : " ended early, with ") +
                           count);
  }

  void WriteSample(const SampleRecord& sample) {
    const std::string told = "sample " + std::to_string(sample.index) + ": ";
    if (sample.status != SampleStatus::kDone) {
      Miss(told + sample.reason.value_or("it is not done"));
      return;
    }
    for (const SampleOutput& output : sample.outputs) {
      if (const auto change = WhatChanged(output)) {
        Miss(told + "the dump " + Quoted(output.path) + " " + *change);
        return;
      }
    }
    const uint64_t before = written_.arrays;
    for (const SampleOutput& output : sample.outputs) WriteOutput(sample.index, output);
    written_.samples += written_.arrays > before ? 1 : 0;
  }

  void Miss(std::string why) {
    ++written_.absent;
    written_.why.push_back(std::move(why));
  }

  std::optional<std::string> WhatChanged(const SampleOutput& output) const {
    if (LeadsOut(output.path) || !output.path.ends_with(kBinary)) return "is none of this run";
    struct stat about {};
    if (stat((run_ + "/" + output.path).c_str(), &about) != 0 || !S_ISREG(about.st_mode)) {
      return "is not there any more";
    }
    const auto bytes = static_cast<uint64_t>(about.st_size);
    if (bytes == output.sizeBytes && bytes % kDumpedValueBytes == 0) return std::nullopt;
    return "has " + std::to_string(bytes) + " bytes, and had " + std::to_string(output.sizeBytes) +
           " when the run ended";
  }

  // Of a run without a description an output is a row of floats.
  const TensorDescription& Describe(const SampleOutput& output) const {
    static const TensorDescription kUnknown;
    return output.index < outputs_.size() ? outputs_[output.index] : kUnknown;
  }

  void WriteOutput(uint64_t sample, const SampleOutput& output) {
    const TensorDescription& described = Describe(output);
    if (!AreValuesDumped(described)) {
      if (told_.insert(output.name).second) {
        written_.why.push_back("the output " + Quoted(output.name) + " is of " +
                               TypeName(*described.type) +
                               ", and a dump does not hold such values; take them from a capture");
      }
      return;
    }
    const uint64_t values = output.sizeBytes / kDumpedValueBytes;
    const std::string path = PathOf(sample, output);
    ClearPlace(path);
    WholeFile array(path);
    array.Append(
        ArrayHeader(described, ShapeOfDump(described, BatchOfDump(described, values), values)));
    const FileIdentity read =
        IdentifyFile(run_ + "/" + output.path, "the dump", ExitStatus::kInput,
                     [&](std::string_view piece) { array.Append(ArrayValues(described, piece)); });
    if (read.sizeBytes != output.sizeBytes) {
      throw Fault(ExitStatus::kInput,
                  "the dump " + Quoted(run_ + "/" + output.path) + " changed while it was read");
    }
    array.Finish();
    ++written_.arrays;
  }

  std::string PathOf(uint64_t sample, const SampleOutput& output) const {
    const std::string dump = output.path.substr(0, output.path.size() - kBinary.size()) + ".npy";
    if (!folder_) return run_ + "/" + dump;
    const std::string folder = *folder_ + "/" + std::to_string(sample);
    std::error_code error;
    fs::create_directories(folder, error);
    if (error) {
      throw Fault(ExitStatus::kLimit,
                  "cannot make the folder " + Quoted(folder) + ": " + error.message());
    }
    return folder + "/" + fs::path(dump).filename().string();
  }

  std::string run_;
  std::optional<std::string> folder_;
  std::vector<TensorDescription> outputs_;
  std::set<std::string> told_;  // outputs of which was said that there are no arrays
  ArraysWritten written_;
};

}  // namespace

ArraysWritten WriteArrays(const std::string& run, const std::optional<std::string>& folder) {
  return ArrayWriter(run, folder).Write();
}

}  // namespace vorn::kit
