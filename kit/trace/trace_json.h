// What a trace tells, for programs.
#ifndef VORN_KIT_TRACE_TRACE_JSON_H_
#define VORN_KIT_TRACE_TRACE_JSON_H_

#include <string>

#include "kit/trace/trace_file.h"

namespace vorn::kit {

/// By docs/schema/trace.json, in one line with its end. `path` is where the trace lies.
[[nodiscard]] std::string TraceJson(const TraceFile& file, const std::string& path);

}  // namespace vorn::kit

#endif  // VORN_KIT_TRACE_TRACE_JSON_H_
