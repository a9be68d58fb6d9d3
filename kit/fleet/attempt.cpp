#include "kit/fleet/attempt.h"

#include <algorithm>
#include <utility>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "kit/common/printable.h"
#include "kit/fleet/sample_proof.h"

namespace vorn::kit {
std::vector<SampleRecord> ReadPlanned(const std::string& fleet, const FleetPlan& plan,
                                      const std::optional<uint64_t>& chunk) {
  std::vector<SampleRecord> planned;
  const auto take = [&](SampleRecord record, uint64_t index) {
    if (record.index != index) {
      throw Fault(ExitStatus::kInput, Quoted(fleet + "/" + kInputsFile) + " has inference " +
                                          std::to_string(record.index) + " where inference " +
                                          std::to_string(index) +
                                          " is planned; it was changed since the plan was made");
    }
    planned.push_back(std::move(record));
  };
  if (chunk) {
    const FleetChunk& about = plan.chunks.at(*chunk);
    ForEachInput(fleet, about.inputsAt, about.inferences, [&](SampleRecord record) {
      take(std::move(record), about.first + planned.size());
    });
    return planned;
  }
  for (const uint64_t index : plan.crossCheck) {
    // The lines of its chunk before it are read as well.
    const FleetChunk& about = plan.chunks.at(ChunkOf(plan, index));
    uint64_t at = about.first;
    ForEachInput(fleet, about.inputsAt, index - about.first + 1, [&](SampleRecord record) {
      if (at++ == index) take(std::move(record), index);
    });
  }
  return planned;
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

AttemptSaid ReadAttempt(const std::string& run) {
  for (const char* file : {kRunFile, kSamplesFile}) {
    if (IsOwnFile(run + "/" + file)) continue;
    throw Fault(ExitStatus::kInput,
                "its " + std::string(file) + " is not there, or no regular file");
  }
  return {.facts = ReadRun(run), .samples = ReadSamples(run)};
}

std::string WhyNotOfPlan(const RunFacts& facts, const FleetPlan& plan) {
  if (facts.model.xxh3 == plan.model.xxh3) return "";
  return "it ran another model (" + Quoted(facts.model.path) + ")";
}

AttemptFound LookAtAttempt(const std::string& run, const FleetPlan& plan,
                           const std::vector<SampleRecord>& planned,
                           const std::function<bool()>& isStopped) {
  AttemptFound found;
  try {
    AttemptSaid said = ReadAttempt(run);
    found.samples = std::move(said.samples);
    found.facts = std::move(said.facts);
    found.fault = WhyNotOfPlan(*found.facts, plan);
    found.hasOtherFiles = !found.fault.empty();
    if (found.hasOtherFiles) return found;
  } catch (const Fault& fault) {
    found.fault = fault.what();
    return found;
  }
  if (found.samples.size() != planned.size()) {
    found.fault = "it has " + std::to_string(found.samples.size()) + " of " +
                  Counted(planned.size(), "inference");
    return found;
  }
  for (size_t i = 0; i < planned.size() && !isStopped(); ++i) {
    const SampleRecord& sample = found.samples[i];
    if (sample.status != SampleStatus::kDone) {
      found.notDone += sample.status == SampleStatus::kMissing ? 0 : 1;
      continue;
    }
    ++found.done;
    found.hasOtherFiles = sample.index == i && !HasPlannedInputs(planned[i], sample);
    const std::string fault = sample.index == i ? WhyNotDone(run, planned[i], sample, plan.outputs)
                                                : "it stands where another belongs";
    if (fault.empty()) continue;
    found.fault = "inference " + std::to_string(planned[i].index) + ": " + fault;
    return found;
  }
  return found;
}

}  // namespace vorn::kit
