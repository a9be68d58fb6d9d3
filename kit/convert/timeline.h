// Traces of several processes, maybe of several machines, on one line of time.
#ifndef VORN_KIT_CONVERT_TIMELINE_H_
#define VORN_KIT_CONVERT_TIMELINE_H_

#include <cstdint>
#include <string>
#include <vector>

#include "kit/trace/trace_file.h"

namespace vorn::kit {

struct NamedTrace {
  std::string name;
  TraceFile file;
};

/// One trace and where it lies. Each header has a moment by both clocks: the one that goes on
/// evenly, by which calls tell their time, and the one that machines share.
struct PlacedTrace {
  NamedTrace trace;
  uint64_t startNs = 0;  ///< when its layer was loaded, since the first one of all was

  /// 0 on the first trace's machine; others number their processes as they like.
  uint32_t machine = 0;

  /// A moment of the trace since the first layer of all was loaded.
  [[nodiscard]] uint64_t At(uint64_t monotonicNs) const;

  /// The last moment that the trace knows of, by its own clock.
  [[nodiscard]] uint64_t EndNs() const;
};

[[nodiscard]] std::vector<PlacedTrace> PlaceOnTimeline(std::vector<NamedTrace> traces);

}  // namespace vorn::kit

#endif  // VORN_KIT_CONVERT_TIMELINE_H_
