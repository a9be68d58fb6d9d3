// Bytes as the file of a trace: refused with a line that a person can read, or told in every way
// that there is.
#include "kit/trace/trace_file.h"

#include <algorithm>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "fuzz/property.h"
#include "fuzz/targets.h"
#include "kit/common/fault.h"
#include "kit/convert/perfetto.h"
#include "kit/convert/trace_csv.h"
#include "kit/json/json.h"
#include "kit/timing/times.h"
#include "kit/trace/trace_json.h"
#include "kit/trace/trace_summary.h"

namespace fuzz {
namespace {

namespace kit = vorn::kit;

void CheckCalls(const kit::TraceFile& file) {
  for (const kit::TracedCall& call : file.calls) {
    Require(call.number != 0, "a number from 1");
    Require(call.operation < file.operations.size(), "an operation with a name");
    Require(call.arguments.size() <= 4 && call.results.size() <= 4, "four words at most");
    Require(call.endedNs.value_or(call.beganNs) >= call.beganNs, "an end behind the beginning");
  }
}

void CheckSummaries(const kit::TraceFile& file) {
  const kit::Phases phases = kit::DivideIntoPhases(file);
  Require(phases.startNs + phases.loadNs + phases.copyInNs + phases.executeNs + phases.writeNs +
                  phases.otherCallsNs + phases.otherNs ==
              phases.wholeNs,
          "phases that add up to the whole");
  uint64_t ended = 0;
  for (const auto& times : kit::TimesByOperation(file)) ended += times.count;
  const auto isEnded = [](const kit::TracedCall& call) { return call.endedNs.has_value(); };
  Require(ended == static_cast<uint64_t>(std::ranges::count_if(file.calls, isEnded)),
          "each call that ended counted once");
  Require(!kit::TraceReport(file).empty(), "a report");
  const kit::Json object = kit::ParseJson(kit::TraceJson(file, "fuzzed"));
  Require(object.At("calls").AsUnsigned() == file.calls.size(), "a report for programs");
  const kit::MeasuredTimes measured = kit::TimesOfTrace(file);
  for (const double time : measured.series.at(0).timesNs) Require(time > 0, "a time above 0");
}

}  // namespace

void TraceBytes(std::span<const uint8_t> bytes) {
  kit::TraceFile file;
  try {
    file = kit::ParseTrace({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
  } catch (const kit::Fault& fault) {
    RequireReason(fault.what());
    return;
  }
  CheckCalls(file);
  CheckSummaries(file);
  // Twice on one line of time, the second a little later.
  kit::TraceFile later = file;
  later.realtimeNs += 1000;
  const auto placed = kit::PlaceOnTimeline(
      {{.name = "one", .file = std::move(file)}, {.name = "later", .file = std::move(later)}});
  Require(kit::ToCsv(placed).starts_with("trace,"), "a table");
  Require(!kit::ToPerfetto(placed).empty(), "a native trace");
}

}  // namespace fuzz
