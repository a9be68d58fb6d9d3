// Traces as a table for spreadsheets and scripts.
#ifndef VORN_KIT_CONVERT_TRACE_CSV_H_
#define VORN_KIT_CONVERT_TRACE_CSV_H_

#include <span>
#include <string>

#include "kit/convert/timeline.h"

namespace vorn::kit {

/// A line a call, in the order of time, behind a line of titles: trace, host, process, thread, call
/// (its number), operation, startNs (since the first layer was loaded), durationNs, answer, then
/// arguments and results with blanks between them. A call that did not return has neither duration
/// nor answer. Where calls were dropped, a last line of their trace has the operation "dropped" and
/// as call how many.
[[nodiscard]] std::string ToCsv(std::span<const PlacedTrace> traces);

}  // namespace vorn::kit

#endif  // VORN_KIT_CONVERT_TRACE_CSV_H_
