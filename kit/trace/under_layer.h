// A program of the user's, run with the trace layer in it.
#ifndef VORN_KIT_TRACE_UNDER_LAYER_H_
#define VORN_KIT_TRACE_UNDER_LAYER_H_

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace vorn::kit {

struct TraceRequest {
  std::vector<std::string>
      command;         ///< the program, by its path or to be found in PATH, and its words
  std::string layer;   ///< libvorn-trace.so
  std::string output;  ///< the trace of the process that made the most calls
  std::optional<uint64_t> calls;  ///< for how many there is room; empty: what the layer takes
};

struct TraceOutcome {
  int status = 0;  ///< as a shell tells it: the program's own, or 128 and the signal
  std::vector<std::string> files;  ///< those with calls, the one at `output` first
  std::string reason;              ///< why there is none, where there should be; else empty
};

/// Runs the command to its end with this process's descriptors. While it runs, the keys that end
/// programs reach it alone. Throws a Fault if it cannot be started, with a status of 127 if there
/// is no such program and 126 otherwise.
///
/// Every process of the command leaves a trace beside `output`, which get their names as this ends;
/// those without a call are removed. The file at `output` is replaced.
[[nodiscard]] TraceOutcome RunUnderTrace(const TraceRequest& request);

/// What RunUnderTrace does around the program, for whoever runs it in another way: before it starts
/// removes the traces of an earlier run that was killed, and tells the variables that put the layer
/// into it, LD_PRELOAD with what stands there already; behind its end names what it left. The layer
/// of the request has to be a path that can be preloaded. `status` is 0. `launcher` started the
/// program: this process, or one that was killed.
[[nodiscard]] std::vector<std::pair<std::string, std::string>> PrepareTrace(
    const TraceRequest& request);
[[nodiscard]] TraceOutcome CollectTrace(const TraceRequest& request, pid_t launcher);

/// The traces that grow for `output` in processes that the process `launcher` started; maybe some
/// that are no traces yet.
[[nodiscard]] std::vector<std::string> GrowingTraces(const std::string& output, pid_t launcher);

/// The traces in a folder and in those of the jobs of a run that goes on, by their names and, where
/// these leave it open, by how they begin; those of the folder itself first.
[[nodiscard]] std::vector<std::string> TracesIn(const std::string& folder);

/// The trace that has the most calls by now, unfinished and without its name yet. Empty: there is
/// none.
[[nodiscard]] std::string FindRunningTrace(const std::string& output);

/// Why a program would not be traced, before it is started: what the layer has to say of its
/// settings in this environment, or why there can be no file at `output`, if that is not empty.
/// Empty: nothing is known to be in the way. Runs this program anew, for its help, under the layer.
[[nodiscard]] std::string WhyNoTrace(const TraceRequest& request);

/// libvorn-trace.so beside this program or in the lib folder of the tree that it is installed in.
/// Throws a Fault of kOwnFault if it is in neither.
[[nodiscard]] std::string FindTraceLayer();

}  // namespace vorn::kit

#endif  // VORN_KIT_TRACE_UNDER_LAYER_H_
