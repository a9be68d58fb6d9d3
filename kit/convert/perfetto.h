// Traces for ui.perfetto.dev: a track for each process and thread, a slice for each call, a counter
// of device memory.
#ifndef VORN_KIT_CONVERT_PERFETTO_H_
#define VORN_KIT_CONVERT_PERFETTO_H_

#include <span>
#include <string>

#include "kit/convert/timeline.h"

namespace vorn::kit {

/// Perfetto's native trace. Calls that did not return stay open; what was dropped, and a process
/// that ended without taking its layer down, are marked where the trace ends.
[[nodiscard]] std::string ToPerfetto(std::span<const PlacedTrace> traces);

}  // namespace vorn::kit

#endif  // VORN_KIT_CONVERT_PERFETTO_H_
