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

}  // namespace vorn::kit
