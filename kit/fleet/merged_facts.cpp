#include "kit/fleet/merged_facts.h"

#include <algorithm>

#include "kit/common/printable.h"
#include "kit/launch/job.h"
#include "kit/launch/run_report.h"

namespace vorn::kit {
namespace {

std::string JoinedPaths(const std::vector<FileIdentity>& files) {
  std::string joined;
  for (const FileIdentity& file : files) joined += (joined.empty() ? "" : ",") + file.path;
  return joined;
}

// The words of vorn-run, as a launch of the whole list would have them.
std::vector<std::string> OptionsOfPlan(const FleetPlan& plan) {
  LaunchRequest request;
  request.batch = plan.options.batch;
  request.totalT = plan.options.totalT;
  request.isProfiled = plan.options.isProfiled;
  if (!plan.thresholds.empty()) request.thresholds = JoinedPaths(plan.thresholds);
  std::vector<std::string> options = OptionsOf(request);
  for (std::string& word : options) word = Printable(word);
  return options;
}

template <typename Value>
void KeepIfSame(Value& kept, const Value& other) {
  if (kept != other) kept = Value();
}

// "a, b, c and 5 more".
std::string JoinedHosts(const std::set<std::string>& hosts) {
  constexpr size_t kMostNamed = 8;
  std::string joined;
  size_t named = 0;
  for (const std::string& host : hosts) {
    if (named++ == kMostNamed) break;
    joined += (joined.empty() ? "" : ", ") + host;
  }
  if (hosts.size() > kMostNamed) {
    joined += " and " + std::to_string(hosts.size() - kMostNamed) + " more";
  }
  return joined;
}

bool IsOfTraces(const std::string& warning) {
  return warning == kNotTracedWarning || warning == kDroppedWarning;
}

}  // namespace

MergedFacts::MergedFacts(const FleetPlan& plan) {
  facts_.fleet = plan.id;
  facts_.options = OptionsOfPlan(plan);
  facts_.model = plan.model;
  facts_.configuration = plan.configuration;
  facts_.configurationFiles = plan.configurationFiles;
  facts_.list = plan.list;
  facts_.runtime = plan.runtime;
  facts_.program = plan.program;
  facts_.counts.inferences = plan.inferences;
}

void MergedFacts::Take(const RunFacts& part, const std::string& told, bool isWhole) {
  TakeTimes(part);
  TakeMachine(part.machine);
  TakeRuntime(part);
  CompareConfiguration(part, told);
  for (const auto& [phase, duration] : part.phases) facts_.phases[phase] += duration;
  for (const RunWarning& warning : part.warnings) {
    // That of repeated outputs is found again, over the bounds of chunks too.
    if (warning.id == kRepeatedWarning || (isWhole && warning.id == kProgramEndWarning)) continue;
    Warn(warning.id, warning.count, told + ": " + warning.message);
  }
  if (part.programStatus) facts_.programStatus = part.programStatus;
  if (!isWhole && part.signal) facts_.signal = part.signal;
  if (facts_.standardError.empty()) facts_.standardError = part.standardError;
  hasPart_ = true;
}

void MergedFacts::Warn(const std::string& id, uint64_t count, const std::string& message) {
  for (RunWarning& warning : facts_.warnings) {
    if (warning.id != id) continue;
    warning.count += count;
    return;
  }
  facts_.warnings.push_back({.id = id, .count = count, .message = message});
}

void MergedFacts::Finish(bool areAllTimed) {
  if (areAllTimed) {
    std::erase_if(facts_.warnings,
                  [](const RunWarning& warning) { return IsOfTraces(warning.id); });
  }
  if (hasPart_) facts_.machine.host = JoinedHosts(hosts_);
  if (runtimes_.size() < 2) return;
  std::string told;
  for (const auto& [hash, path] : runtimes_) {
    told += (told.empty() ? "" : ", ") + Quoted(path) + " (" + hash + ")";
  }
  Warn("runtimes-differ", runtimes_.size(), "boards had different runtimes: " + told);
}

void MergedFacts::TakeTimes(const RunFacts& part) {
  if (!hasPart_ || part.startRealtimeNs < facts_.startRealtimeNs) {
    facts_.startRealtimeNs = part.startRealtimeNs;
  }
  const uint64_t end = part.endRealtimeNs.value_or(part.startRealtimeNs);
  facts_.endRealtimeNs = std::max(facts_.endRealtimeNs.value_or(0), end);
}

// What machines have in common. Their load and free memory were those of a moment.
void MergedFacts::TakeMachine(const MachineFacts& machine) {
  hosts_.insert(machine.host);
  MachineFacts& kept = facts_.machine;
  if (!hasPart_) {
    kept = machine;
    kept.loadAverage.reset();
    kept.memoryAvailableBytes.reset();
    return;
  }
  KeepIfSame(kept.kernel, machine.kernel);
  KeepIfSame(kept.processor, machine.processor);
  KeepIfSame(kept.cores, machine.cores);
  KeepIfSame(kept.governor, machine.governor);
  KeepIfSame(kept.memoryTotalBytes, machine.memoryTotalBytes);
  KeepIfSame(kept.container, machine.container);
}

void MergedFacts::TakeRuntime(const RunFacts& part) {
  if (part.runtime && part.runtime->xxh3) {
    if (runtimes_.empty()) facts_.runtime = part.runtime;
    runtimes_.emplace(*part.runtime->xxh3, part.runtime->path);
  }
  if (!hasPart_) facts_.program = part.program ? part.program : facts_.program;
  for (const MappedFile& file : part.mapped) {
    if (mapped_.emplace(file.path, file.buildId.value_or("")).second) {
      facts_.mapped.push_back(file);
    }
  }
}

// A board may have one of its own.
void MergedFacts::CompareConfiguration(const RunFacts& part, const std::string& told) {
  const bool areKnown = part.configuration && part.configuration->xxh3 && facts_.configuration &&
                        facts_.configuration->xxh3;
  if (!areKnown || part.configuration->xxh3 == facts_.configuration->xxh3) return;
  Warn("configurations-differ", 1,
       told + " had another configuration than planned, " + Quoted(part.configuration->path));
}

}  // namespace vorn::kit
