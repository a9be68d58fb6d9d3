// A trace, drawn together until a page can hold it.
#ifndef VORN_KIT_REPORT_TRACE_FACTS_H_
#define VORN_KIT_REPORT_TRACE_FACTS_H_

#include <cstddef>
#include <string>

#include "kit/report/report_facts.h"
#include "kit/trace/trace_file.h"

namespace vorn::kit {

/// `path` is noted. There are at most `mostSpans`, 1 or more.
[[nodiscard]] ReportTrace FactsOfTrace(const TraceFile& file, const std::string& path,
                                       size_t mostSpans = kMostReportSpans);

/// Throws a Fault of kInput that says what is wrong with the file; of kLimit where it is too large
/// to be drawn.
[[nodiscard]] ReportTrace ReadTraceFacts(const std::string& path);

/// When a trace began, since the start of the run: empty where the clocks do not tell one line of
/// time, and where the run rested so long before, to be gone on with, that the trace would be
/// nothing beside that.
[[nodiscard]] std::optional<uint64_t> SinceStartOf(const RunFacts& run, const ReportTrace& trace);

}  // namespace vorn::kit

#endif  // VORN_KIT_REPORT_TRACE_FACTS_H_
