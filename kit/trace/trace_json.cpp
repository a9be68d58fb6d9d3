#include "kit/trace/trace_json.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "kit/json/json.h"
#include "kit/trace/trace_summary.h"

namespace vorn::kit {
namespace {

constexpr int kTraceSchema = 1;

Json OperationsJson(const TraceFile& file) {
  Json all = Json::Array();
  for (const OperationTimes& times : TimesByOperation(file)) {
    Json one = Json::Object({{"name", times.name},
                             {"count", times.count},
                             {"failed", times.failed},
                             {"totalNs", times.totalNs},
                             {"medianNs", times.medianNs},
                             {"mostNs", times.mostNs}});
    if (times.p99Ns) one.Set("p99Ns", *times.p99Ns);
    all.Append(std::move(one));
  }
  return all;
}

Json PhasesJson(const TraceFile& file) {
  const Phases phases = DivideIntoPhases(file);
  return Json::Object({{"startNs", phases.startNs},
                       {"loadNs", phases.loadNs},
                       {"copyInNs", phases.copyInNs},
                       {"executeNs", phases.executeNs},
                       {"writeNs", phases.writeNs},
                       {"otherCallsNs", phases.otherCallsNs},
                       {"otherNs", phases.otherNs},
                       {"wholeNs", phases.wholeNs}});
}

// Lines "calls=131072".
Json SettingsJson(std::string_view text) {
  Json settings = Json::Object();
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(text.size(), line.size() + 1));
    const size_t equals = line.find('=');
    if (equals != std::string_view::npos)
      settings.Set(line.substr(0, equals), line.substr(equals + 1));
  }
  return settings;
}

Json UnfinishedJson(const TraceFile& file) {
  Json all = Json::Array();
  for (const TracedCall& call : file.calls) {
    if (call.endedNs) continue;
    all.Append(
        Json::Object({{"call", call.number},
                      {"operation", file.operations[call.operation]},
                      {"thread", call.thread},
                      {"beganNs", call.beganNs - std::min(call.beganNs, file.monotonicNs)}}));
  }
  return all;
}

}  // namespace

std::string TraceJson(const TraceFile& file, const std::string& path) {
  const DeviceMemory memory = FollowMemory(file);
  const Json object = Json::Object(
      {{"schema", kTraceSchema},
       {"trace", path},
       {"program", file.program},
       {"process", file.pid},
       {"host", file.host},
       {"runtime", file.runtime},
       {"startRealtimeNs", file.realtimeNs},
       {"takenDown", file.endedNs.has_value()},
       {"clockNs", file.clockNs},
       {"settings", SettingsJson(file.settings)},
       {"calls", file.calls.size()},
       {"dropped", file.dropped},
       {"cut", file.cut},
       {"passed", file.passed},
       {"operations", OperationsJson(file)},
       {"phases", PhasesJson(file)},
       {"deviceMemory",
        Json::Object({{"peakBytes", memory.peakBytes}, {"leftBytes", memory.leftBytes}})},
       {"unfinished", UnfinishedJson(file)}});
  return ToText(object) + "\n";
}

}  // namespace vorn::kit
