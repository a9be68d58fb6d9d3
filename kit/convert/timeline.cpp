#include "kit/convert/timeline.h"

#include <algorithm>
#include <map>

namespace vorn::kit {

uint64_t PlacedTrace::At(uint64_t monotonicNs) const {
  const uint64_t loaded = trace.file.monotonicNs;
  return startNs + (std::max(monotonicNs, loaded) - loaded);
}

uint64_t PlacedTrace::EndNs() const {
  uint64_t end = std::max(trace.file.monotonicNs, trace.file.endedNs.value_or(0));
  for (const TracedCall& call : trace.file.calls) {
    end = std::max(end, call.endedNs.value_or(call.beganNs));
  }
  return end;
}

std::vector<PlacedTrace> PlaceOnTimeline(std::vector<NamedTrace> traces) {
  uint64_t first = UINT64_MAX;
  for (const NamedTrace& trace : traces) first = std::min(first, trace.file.realtimeNs);
  std::map<std::string, uint32_t> machines;
  std::vector<PlacedTrace> placed;
  for (NamedTrace& trace : traces) {
    const auto count = static_cast<uint32_t>(machines.size());
    const uint32_t machine = machines.emplace(trace.file.host, count).first->second;
    const uint64_t start = trace.file.realtimeNs - first;
    placed.push_back({.trace = std::move(trace), .startNs = start, .machine = machine});
  }
  return placed;
}

std::vector<MemoryMoment> MemoryOverTime(const TraceFile& file) {
  std::vector<const TracedCall*> calls;
  for (const TracedCall& call : file.calls) {
    const std::string& name = file.operations[call.operation];
    const bool isDone = call.endedNs && !call.results.empty() && call.results[0] == 0;
    if (isDone && (name == "vorn_rt_malloc" || name == "vorn_rt_free")) calls.push_back(&call);
  }
  std::stable_sort(calls.begin(), calls.end(), [](const TracedCall* one, const TracedCall* two) {
    return *one->endedNs < *two->endedNs;
  });
  std::map<uint64_t, uint64_t> blocks;  // by address
  std::vector<MemoryMoment> moments;
  uint64_t held = 0;
  for (const TracedCall* call : calls) {
    if (file.operations[call->operation] == "vorn_rt_malloc") {
      if (call->arguments.size() < 2 || call->results.size() < 2) continue;
      uint64_t& block = blocks[call->results[1]];
      held += call->arguments[1] - block;
      block = call->arguments[1];
    } else {
      const auto block = call->arguments.empty() ? blocks.end() : blocks.find(call->arguments[0]);
      if (block == blocks.end()) continue;
      held -= block->second;
      blocks.erase(block);
    }
    moments.push_back({.monotonicNs = *call->endedNs, .bytes = held});
  }
  return moments;
}

}  // namespace vorn::kit
