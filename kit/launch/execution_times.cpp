// vorn-run makes one dataset for the outputs, then one for the inputs of each inference, which it
// executes once or, with -p 1, many times.
#include "kit/launch/execution_times.h"

#include <algorithm>

#include "kit/common/fault.h"
#include "kit/trace/trace_scan.h"
#include "kit/trace/trace_summary.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kLastCalls = 64;

std::map<std::string, uint64_t> Named(const Phases& phases) {
  return {{"start", phases.startNs},   {"load", phases.loadNs},
          {"copyIn", phases.copyInNs}, {"execute", phases.executeNs},
          {"write", phases.writeNs},   {"otherCalls", phases.otherCallsNs},
          {"other", phases.otherNs},   {"whole", phases.wholeNs}};
}

}  // namespace

ExecutionTimes ReadExecutionTimes(const std::string& trace) {
  TraceScan scan(trace);
  ExecutionTimes times{.host = scan.Host(),
                       .runtime = scan.Runtime(),
                       .inferences = {},
                       .phases = {},
                       .dropped = scan.Dropped()};
  PhaseDivider divider(scan.LoadedNs());
  uint64_t end = std::max(scan.LoadedNs(), scan.EndedNs().value_or(0));
  bool isNew = true;
  while (const auto call = scan.Next()) {
    divider.Add(call->operation, call->beganNs, call->endedNs);
    end = std::max(end, call->endedNs.value_or(call->beganNs));
    if (call->operation == "vorn_mdl_create_dataset") isNew = true;
    if (call->operation != "vorn_mdl_execute" || !call->endedNs) continue;
    if (isNew) {
      times.inferences.push_back(
          {.startRealtimeNs = scan.Realtime(call->beganNs), .executeNs = {}});
      isNew = false;
    }
    times.inferences.back().executeNs.push_back(*call->endedNs - call->beganNs);
  }
  // The executions of the last one may be among those for which there was no room.
  if (times.dropped > 0 && !times.inferences.empty()) times.inferences.pop_back();
  times.phases = Named(divider.Finish(end));
  return times;
}

std::string OperationInside(const std::string& trace) {
  if (trace.empty()) return "";
  try {
    TraceScan scan(trace);
    scan.SkipToLast(kLastCalls);
    std::string inside;
    while (const auto call = scan.Next()) {
      if (!call->endedNs) inside = call->operation;
    }
    return inside;
  } catch (const Fault&) {
    return "";
  }
}

// Counted in vorn-run, then rounded up: the tests hold this against real runs.
uint64_t CallsOfRun(uint64_t inputs, uint64_t outputs, uint64_t inferences,
                    uint64_t executionsEach) {
  constexpr uint64_t kOnce = 64;
  constexpr uint64_t kOnceATensor = 24;
  constexpr uint64_t kEach = 16;
  constexpr uint64_t kEachTensor = 24;
  const uint64_t tensors = inputs + outputs;
  return kOnce + kOnceATensor * tensors +
         inferences * (kEach + kEachTensor * tensors + executionsEach);
}

}  // namespace vorn::kit
