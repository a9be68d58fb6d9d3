#include "kit/fleet/attempt.h"

#include <algorithm>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "kit/common/printable.h"
#include "kit/launch/dumps.h"

namespace vorn::kit {
namespace {

bool HasPlannedInputs(const SampleRecord& planned, const SampleRecord& found) {
  return std::equal(
      planned.inputs.begin(), planned.inputs.end(), found.inputs.begin(), found.inputs.end(),
      [](const auto& one, const auto& other) { return one.file.xxh3 == other.file.xxh3; });
}

std::string WhyNotWhole(const std::string& run, const SampleRecord& sample, uint64_t outputs,
                        bool areOutputsRead) {
  if (sample.outputs.size() != outputs) {
    return "has " + std::to_string(sample.outputs.size()) + " of " + Counted(outputs, "output");
  }
  if (!areOutputsRead) return "";
  for (const SampleOutput& output : sample.outputs) {
    // A board's word for where a file is leads nowhere else.
    const bool isInside = output.path.starts_with("dumps/") &&
                          ("/" + output.path + "/").find("/../") == std::string::npos;
    if (!isInside || !DoesVerify(run, output))
      return "output " + Quoted(output.path) + " has changed";
  }
  return "";
}

}  // namespace

std::vector<uint64_t> InferencesOf(const FleetPlan& plan, uint64_t chunk) {
  const FleetChunk& about = plan.chunks.at(chunk);
  std::vector<uint64_t> inferences(about.inferences);
  for (uint64_t i = 0; i < about.inferences; ++i) inferences[i] = about.first + i;
  return inferences;
}

std::string OutputsHash(const std::vector<SampleRecord>& samples) {
  Xxh3Stream hash;
  for (const SampleRecord& sample : samples) {
    hash.Add(sample.status == SampleStatus::kDone ? "done\n" : "not done\n");
    if (sample.status != SampleStatus::kDone) continue;
    for (const SampleOutput& output : sample.outputs) {
      hash.Add(std::to_string(output.index) + " " + std::to_string(output.sizeBytes) + " " +
               output.xxh3 + "\n");
    }
  }
  return hash.Digits();
}

AttemptFound LookAtAttempt(const std::string& run, const std::vector<SampleRecord>& planned,
                           uint64_t outputs, bool areOutputsRead) {
  AttemptFound found;
  try {
    found.samples = ReadSamples(run);
  } catch (const Fault& fault) {
    found.fault = fault.what();
    return found;
  }
  if (found.samples.size() != planned.size()) {
    found.fault = "it has " + std::to_string(found.samples.size()) + " of " +
                  Counted(planned.size(), "inference");
    return found;
  }
  for (size_t i = 0; i < planned.size(); ++i) {
    const SampleRecord& sample = found.samples[i];
    if (sample.status != SampleStatus::kDone) {
      found.notDone += sample.status == SampleStatus::kMissing ? 0 : 1;
      continue;
    }
    ++found.done;
    std::string fault = "was made of other inputs";
    if (sample.index == i && HasPlannedInputs(planned[i], sample)) {
      fault = WhyNotWhole(run, sample, outputs, areOutputsRead);
    }
    if (fault.empty()) continue;
    found.fault = "inference " + std::to_string(planned[i].index) + " " + fault;
    return found;
  }
  return found;
}

}  // namespace vorn::kit
