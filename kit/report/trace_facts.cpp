// Calls are drawn as they are if there is room. If not, those of a thread that are shorter than a
// limit are put together with their neighbours, into spans of at most some limits each, and the
// limit is doubled until all fits: what takes long stays by itself.
#include "kit/report/trace_facts.h"

#include <sys/stat.h>

#include <algorithm>
#include <map>
#include <utility>
#include <vector>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostTraceBytes = 256 << 20;

uint64_t EndOf(const TraceFile& file) {
  uint64_t end = std::max(file.monotonicNs, file.endedNs.value_or(0));
  for (const TracedCall& call : file.calls) {
    end = std::max(end, call.endedNs.value_or(call.beganNs));
  }
  return end;
}

uint64_t After(uint64_t begin, uint64_t moment) { return moment > begin ? moment - begin : 0; }

// Every call a span, in the order in which they began.
std::vector<ReportSpan> SpansOf(const TraceFile& file, uint64_t end) {
  std::map<uint32_t, uint32_t> lanes;
  std::vector<ReportSpan> spans;
  for (const TracedCall& call : file.calls) {
    const auto lane = lanes.emplace(call.thread, static_cast<uint32_t>(lanes.size())).first;
    ReportSpan span;
    span.beginNs = After(file.monotonicNs, call.beganNs);
    span.durationNs = After(call.beganNs, call.endedNs.value_or(end));
    span.operation = call.operation;
    span.lane = lane->second;
    span.isFailed = AnswersFailure(file, call);
    span.isOpen = !call.endedNs;
    spans.push_back(span);
  }
  std::stable_sort(spans.begin(), spans.end(), [](const ReportSpan& one, const ReportSpan& other) {
    return one.beginNs < other.beginNs;
  });
  return spans;
}

// One thread's spans with those below the limit put together.
class Drawing {
 public:
  explicit Drawing(uint64_t limitNs) : limitNs_(limitNs) {}

  void Add(const ReportSpan& span) {
    if (span.durationNs >= limitNs_ || span.isOpen) {
      End();
      drawn_.push_back(span);
      return;
    }
    const bool isNear = group_.calls > 0 && span.beginNs <= EndNs() + limitNs_ &&
                        span.beginNs + span.durationNs <= group_.beginNs + 4 * limitNs_;
    if (!isNear) End();
    Join(span);
  }

  std::vector<ReportSpan> Take() {
    End();
    return std::move(drawn_);
  }

 private:
  [[nodiscard]] uint64_t EndNs() const { return group_.beginNs + group_.durationNs; }

  void Join(const ReportSpan& span) {
    if (group_.calls == 0) {
      group_ = span;
      longestNs_ = span.durationNs;
      return;
    }
    if (span.durationNs > longestNs_) {
      longestNs_ = span.durationNs;
      group_.operation = span.operation;
    }
    const uint64_t end = std::max(EndNs(), span.beginNs + span.durationNs);
    group_.durationNs = end - group_.beginNs;
    group_.calls += span.calls;
    group_.isFailed = group_.isFailed || span.isFailed;
  }

  void End() {
    if (group_.calls > 0) drawn_.push_back(group_);
    group_.calls = 0;
  }

  uint64_t limitNs_;
  uint64_t longestNs_ = 0;
  ReportSpan group_{.calls = 0};
  std::vector<ReportSpan> drawn_;
};

std::vector<ReportSpan> DrawnTogether(const std::vector<ReportSpan>& spans, uint64_t limitNs) {
  std::map<uint32_t, Drawing> lanes;
  for (const ReportSpan& span : spans)
    lanes.try_emplace(span.lane, limitNs).first->second.Add(span);
  std::vector<ReportSpan> all;
  for (auto& [lane, drawing] : lanes) {
    for (const ReportSpan& span : drawing.Take()) all.push_back(span);
  }
  std::stable_sort(all.begin(), all.end(), [](const ReportSpan& one, const ReportSpan& other) {
    return one.beginNs < other.beginNs;
  });
  return all;
}

// Of more threads than there is room for spans.
void KeepLongest(std::vector<ReportSpan>& spans, size_t most) {
  if (spans.size() <= most) return;
  std::stable_sort(spans.begin(), spans.end(), [](const ReportSpan& one, const ReportSpan& other) {
    return one.durationNs > other.durationNs;
  });
  spans.resize(most);
  std::stable_sort(spans.begin(), spans.end(), [](const ReportSpan& one, const ReportSpan& other) {
    return one.beginNs < other.beginNs;
  });
}

// Of neighbours the one with the most memory, and always the last moment.
std::vector<MemoryMoment> ThinnedOut(const std::vector<MemoryMoment>& moments, uint64_t beginNs) {
  std::vector<MemoryMoment> shown;
  const size_t step = moments.size() / kMostReportMoments + 1;
  for (size_t first = 0; first < moments.size(); first += step) {
    const auto from = moments.begin() + static_cast<ptrdiff_t>(first);
    const auto to = from + static_cast<ptrdiff_t>(std::min(step, moments.size() - first));
    MemoryMoment moment = *std::max_element(
        from, to, [](const auto& one, const auto& other) { return one.bytes < other.bytes; });
    if (to == moments.end()) moment = moments.back();
    shown.push_back({After(beginNs, moment.monotonicNs), moment.bytes});
  }
  return shown;
}

}  // namespace

ReportTrace FactsOfTrace(const TraceFile& file, const std::string& path, size_t mostSpans) {
  ReportTrace trace;
  const uint64_t end = EndOf(file);
  trace.path = path;
  trace.calls = file.calls.size();
  trace.dropped = file.dropped + file.cut;
  trace.clockNs = file.clockNs;
  trace.wholeNs = After(file.monotonicNs, end);
  trace.beganRealtimeNs = file.realtimeNs;
  trace.isEnded = file.endedNs.has_value();
  trace.operations = TimesByOperation(file);
  trace.names = file.operations;
  const std::vector<ReportSpan> spans = SpansOf(file, end);
  trace.spans = spans;
  // Beyond the whole nothing is left to be put together.
  for (uint64_t limit = trace.wholeNs / mostSpans / 64 + 1;
       trace.spans.size() > mostSpans && limit / 2 <= trace.wholeNs && limit <= UINT64_MAX >> 4;
       limit *= 2) {
    trace.spans = DrawnTogether(spans, limit);
  }
  KeepLongest(trace.spans, mostSpans);
  const DeviceMemory memory = FollowMemory(file);
  trace.peakBytes = memory.peakBytes;
  trace.leftBytes = memory.leftBytes;
  trace.memory = ThinnedOut(MemoryOverTime(file), file.monotonicNs);
  return trace;
}

std::optional<uint64_t> SinceStartOf(const RunFacts& run, const ReportTrace& trace) {
  constexpr uint64_t kMostTimesWhole = 20;
  if (run.startRealtimeNs == 0 || trace.beganRealtimeNs < run.startRealtimeNs) return std::nullopt;
  if (run.endRealtimeNs && trace.beganRealtimeNs > *run.endRealtimeNs) return std::nullopt;
  const uint64_t began = trace.beganRealtimeNs - run.startRealtimeNs;
  return began / kMostTimesWhole > trace.wholeNs ? std::nullopt : std::optional(began);
}

ReportTrace ReadTraceFacts(const std::string& path) {
  struct stat about {};
  if (stat(path.c_str(), &about) == 0 && static_cast<uint64_t>(about.st_size) > kMostTraceBytes) {
    throw Fault(
        ExitStatus::kLimit,
        "the trace " + Quoted(path) + " has " + SizeText(static_cast<uint64_t>(about.st_size)) +
            ", which is too much to be drawn; vorn convert makes a file of it for a viewer");
  }
  const std::string bytes = ReadWholeFile(path, "the trace", ExitStatus::kInput, kMostTraceBytes);
  try {
    return FactsOfTrace(ParseTrace(bytes), path);
  } catch (const Fault& fault) {
    throw Fault(fault.Status(), "the trace " + Quoted(path) + ": " + fault.what());
  }
}

}  // namespace vorn::kit
