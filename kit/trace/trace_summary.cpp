#include "kit/trace/trace_summary.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <map>

#include "kit/common/printable.h"
#include "kit/common/text_table.h"
#include "vorn/operations.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kLeastForP99 = 100;

std::string_view NameOf(const TraceFile& file, const TracedCall& call) {
  return file.operations[call.operation];
}

// By the table of this program; an operation that it does not know answers none.
bool AnswersStatus(std::string_view name) {
#define VORN_KIT_ANSWERS(operation, needs, role, thing, parameters) \
  if (name == #operation) return std::string_view(#thing) == "STATUS";
  VORN_OPERATIONS(VORN_KIT_ANSWERS, VORN_NO_PARAMETER)
#undef VORN_KIT_ANSWERS
  return false;
}

uint64_t AtRank(const std::vector<uint64_t>& sorted, double share) {
  const auto rank = static_cast<size_t>(share * static_cast<double>(sorted.size()));
  return sorted[std::min(rank, sorted.size() - 1)];
}

std::string Milliseconds(uint64_t nanoseconds) {
  std::array<char, 48> text{};
  std::snprintf(text.data(), text.size(), "%.3f", static_cast<double>(nanoseconds) / 1e6);
  return text.data();
}

std::string Share(uint64_t part, uint64_t whole) {
  if (whole == 0) return "-";
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f %%",
                100 * static_cast<double>(part) / static_cast<double>(whole));
  return text.data();
}

// The thread that executes, since a run is divided by what that one does; without one the first.
uint32_t LeadingThread(const TraceFile& file) {
  for (const TracedCall& call : file.calls) {
    if (NameOf(file, call) == "vorn_mdl_execute") return call.thread;
  }
  return file.calls.empty() ? 0 : file.calls.front().thread;
}

uint64_t EndOf(const TraceFile& file) {
  uint64_t end = std::max(file.monotonicNs, file.endedNs.value_or(0));
  for (const TracedCall& call : file.calls) {
    end = std::max(end, call.endedNs.value_or(call.beganNs));
  }
  return end;
}

}  // namespace

bool AnswersFailure(const TraceFile& file, const TracedCall& call) {
  return call.endedNs && AnswersStatus(NameOf(file, call)) && !call.results.empty() &&
         call.results.front() != 0;
}

std::vector<OperationTimes> TimesByOperation(const TraceFile& file) {
  std::map<uint16_t, std::vector<uint64_t>> durations;
  std::map<uint16_t, uint64_t> failed;
  for (const TracedCall& call : file.calls) {
    if (!call.endedNs) continue;
    durations[call.operation].push_back(*call.endedNs - call.beganNs);
    failed[call.operation] += AnswersFailure(file, call) ? 1 : 0;
  }
  std::vector<OperationTimes> all;
  for (auto& [operation, sorted] : durations) {
    std::sort(sorted.begin(), sorted.end());
    OperationTimes& times = all.emplace_back();
    times.name = file.operations[operation];
    times.count = sorted.size();
    times.failed = failed[operation];
    for (const uint64_t duration : sorted) times.totalNs += duration;
    times.medianNs = (sorted[(sorted.size() - 1) / 2] + sorted[sorted.size() / 2]) / 2;
    if (sorted.size() >= kLeastForP99) times.p99Ns = AtRank(sorted, 0.99);
    times.mostNs = sorted.back();
  }
  std::stable_sort(all.begin(), all.end(),
                   [](const OperationTimes& one, const OperationTimes& two) {
                     return one.totalNs > two.totalNs;
                   });
  return all;
}

void PhaseDivider::AddOutside(uint64_t until) {
  const uint64_t duration = until - std::min(now_, until);
  switch (outside_) {
    case Outside::kStart:
      phases_.startNs += duration;
      break;
    case Outside::kOther:
      phases_.otherNs += duration;
      break;
    case Outside::kCopyIn:
      phases_.copyInNs += duration;
      break;
    case Outside::kWrite:
      phases_.writeNs += duration;
      break;
  }
  now_ = std::max(now_, until);
}

void PhaseDivider::Leave(std::string_view operation, uint64_t endedNs) {
  const uint64_t inside = endedNs - std::min(now_, endedNs);
  now_ += inside;
  if (outside_ == Outside::kStart) outside_ = Outside::kOther;
  if (operation == "vorn_mdl_load_from_mem") {
    phases_.loadNs += inside;
  } else if (operation == "vorn_mdl_execute") {
    phases_.executeNs += inside;
    outside_ = Outside::kWrite;
  } else {
    phases_.otherCallsNs += inside;
    // The output dataset is made once, before any input's, and takes no time to speak of.
    if (operation == "vorn_mdl_create_dataset") outside_ = Outside::kCopyIn;
    if (operation == "vorn_mdl_unload") outside_ = Outside::kOther;
  }
}

void PhaseDivider::Add(std::string_view operation, uint64_t beganNs,
                       std::optional<uint64_t> endedNs) {
  if (!inside_.empty()) Leave(inside_, beganNs);
  inside_.clear();
  AddOutside(beganNs);
  if (endedNs) {
    Leave(operation, *endedNs);
  } else {
    inside_ = operation;
  }
}

Phases PhaseDivider::Finish(uint64_t endNs) {
  if (!inside_.empty()) Leave(inside_, endNs);
  inside_.clear();
  AddOutside(endNs);
  phases_.wholeNs = now_ - loadedNs_;
  return phases_;
}

Phases DivideIntoPhases(const TraceFile& file) {
  const uint32_t leading = LeadingThread(file);
  PhaseDivider divider(file.monotonicNs);
  for (const TracedCall& call : file.calls) {
    if (call.thread == leading) divider.Add(NameOf(file, call), call.beganNs, call.endedNs);
  }
  return divider.Finish(EndOf(file));
}

std::vector<MemoryMoment> MemoryOverTime(const TraceFile& file) {
  std::vector<const TracedCall*> calls;
  for (const TracedCall& call : file.calls) {
    const std::string_view name = NameOf(file, call);
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
    if (NameOf(file, *call) == "vorn_rt_malloc") {
      if (call->arguments.size() < 2 || call->results.size() < 2) continue;
      uint64_t& block = blocks[call->results[1]];
      held += call->arguments[1] - block;  // handed out again without a free: counted anew
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

DeviceMemory FollowMemory(const TraceFile& file) {
  DeviceMemory memory;
  for (const MemoryMoment& moment : MemoryOverTime(file)) {
    memory.peakBytes = std::max(memory.peakBytes, moment.bytes);
    memory.leftBytes = moment.bytes;
  }
  return memory;
}

std::string TraceReport(const TraceFile& file) {
  const Phases phases = DivideIntoPhases(file);
  std::string text = "program  " + Printable(file.program) + ", process " +
                     std::to_string(file.pid) + " on " + Printable(file.host) + "\n" + "runtime  " +
                     (file.runtime.empty() ? "-" : Printable(file.runtime)) + "\n\n";

  TextTable operations({{"operation"},
                        {"calls", true},
                        {"failed", true},
                        {"total ms", true},
                        {"median ms", true},
                        {"99th ms", true},
                        {"most ms", true},
                        {"share", true}});
  for (const OperationTimes& times : TimesByOperation(file)) {
    operations.Add({Printable(times.name), std::to_string(times.count),
                    times.failed == 0 ? "-" : std::to_string(times.failed),
                    Milliseconds(times.totalNs), Milliseconds(times.medianNs),
                    times.p99Ns ? Milliseconds(*times.p99Ns) : "-", Milliseconds(times.mostNs),
                    Share(times.totalNs, phases.wholeNs)});
  }
  text += operations.Text() + "\n";

  TextTable parts({{"phase"}, {"ms", true}, {"share", true}, {""}});
  const auto add = [&](const char* name, uint64_t duration, const char* what) {
    parts.Add({name, Milliseconds(duration), Share(duration, phases.wholeNs), what});
  };
  add("start", phases.startNs, "up to the first call");
  add("load", phases.loadNs, "inside vorn_mdl_load_from_mem");
  add("copy in", phases.copyInNs, "from a new dataset to its execution, outside the runtime");
  add("execute", phases.executeNs, "inside vorn_mdl_execute");
  add("write", phases.writeNs, "from an execution to the next dataset, outside the runtime");
  add("other calls", phases.otherCallsNs, "inside the runtime");
  add("other", phases.otherNs, "outside the runtime");
  add("whole", phases.wholeNs, "");
  text += parts.Text();

  const DeviceMemory memory = FollowMemory(file);
  text += "\ndevice memory " + SizeText(memory.peakBytes) + " at the peak, " +
          SizeText(memory.leftBytes) + " not freed\n";
  if (file.cut != 0) {
    text += Counted(file.cut, "call") + " are missing: the file was cut behind them\n";
  }
  if (file.dropped != 0) {
    text += std::to_string(file.dropped) +
            " later calls are not in the trace: there was no room; see --calls\n";
  }
  if (file.passed != 0) {
    text += std::to_string(file.passed) +
            " calls are not in the trace: the setting 'only' left them out\n";
  }
  const uint64_t end = EndOf(file);
  for (const TracedCall& call : file.calls) {
    if (call.endedNs) continue;
    text += "call " + std::to_string(call.number) + ", " + Printable(NameOf(file, call)) +
            ", had not returned after " + Milliseconds(end - call.beganNs) +
            " ms: the process ended inside of it, or runs still\n";
  }
  return text;
}

}  // namespace vorn::kit
