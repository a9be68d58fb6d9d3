// A run as the ledger keeps it: what it was made of, what it took, what came of it.
#ifndef VORN_KIT_LEDGER_RUN_ENTRY_H_
#define VORN_KIT_LEDGER_RUN_ENTRY_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/json/json.h"
#include "kit/run/run_directory.h"

namespace vorn::kit {

/// A figure of a verdict, by what it is of.
struct RunMetric {
  std::string output;
  std::string metric;  ///< "top 1", "RMSE"
  double value = 0;
  std::optional<double> expected;  ///< the same of the expected side, where it has one

  bool operator==(const RunMetric&) const = default;
};

/// The executions of a run, in nanoseconds and in their order.
struct RunTimes {
  std::vector<uint64_t> firstNs;  ///< first executions of a process
  std::vector<uint64_t> timesNs;  ///< all others
  uint64_t leftOut = 0;           ///< of the others, behind those that are kept

  bool operator==(const RunTimes&) const = default;
};

/// So many of the others are kept: a run's middle hardly changes with more.
inline constexpr size_t kMostTimesKept = 20000;

/// "New level from here", set by a person.
struct RunLevel {
  std::string reason;
  uint64_t setRealtimeNs = 0;

  bool operator==(const RunLevel&) const = default;
};

/// What is not known is empty. Files are told by their names, which are what a person means by
/// them, and by the hashes of what is in them, which is what may have changed.
struct RunEntry {
  int64_t id = 0;        ///< of the ledger; 0 where it has none yet
  std::string identity;  ///< the same of a run in whatever folder, however far it is
  std::string content;   ///< of the files it was read from
  std::string path;      ///< of the run directory, absolute
  std::string side;      ///< "A" or "B" of a run that took turns
  std::string board;

  std::string model;
  std::string modelXxh3;
  std::string configuration;
  std::string configurationXxh3;  ///< and of the files that it names
  std::string list;
  std::string listXxh3;
  std::string options;  ///< of vorn-run
  std::string runtime;
  std::string runtimeXxh3;
  std::string mapped;  ///< a line a library: its name, a tab, its build-id
  std::string program;
  std::string programXxh3;
  std::string tool;   ///< the version of the kit
  std::string fleet;  ///< of a run merged of a fleet's attempts

  std::string kernel;
  std::string processor;
  std::optional<uint64_t> cores;
  std::string governor;
  std::string container;
  std::optional<double> loadAverage;
  std::optional<uint64_t> frequencyKhz;      ///< mean of all cores while it ran
  std::optional<int64_t> temperatureMilliC;  ///< the highest while it ran

  std::string state;  ///< "running", "done", "failed", "interrupted"
  std::optional<int64_t> status;
  std::string signal;
  uint64_t startRealtimeNs = 0;
  std::optional<uint64_t> endRealtimeNs;
  uint64_t inferences = 0;
  uint64_t done = 0;
  uint64_t failed = 0;
  uint64_t aside = 0;
  uint64_t missing = 0;

  uint64_t executions = 0;  ///< first ones not among them
  std::optional<double> firstNs;
  std::optional<double> medianNs;
  std::optional<double> madNs;
  std::string verdict;  ///< "right", "wrong", "partial", "not judged"; empty where nobody judged
  uint64_t addedRealtimeNs = 0;

  std::vector<RunMetric> metrics;  ///< by output and metric, each once
  RunTimes times;
  std::optional<RunLevel> level;

  bool operator==(const RunEntry&) const = default;
};

/// Calls `visit(name, member)` with each plain member but the id, in the order of the table `runs`
/// and of an export's lines: the names are those of columns and of keys.
template <typename Entry, typename Visit>
void VisitColumns(Entry& run, Visit&& visit) {
  visit("identity", run.identity);
  visit("content", run.content);
  visit("path", run.path);
  visit("side", run.side);
  visit("board", run.board);
  visit("model", run.model);
  visit("modelXxh3", run.modelXxh3);
  visit("configuration", run.configuration);
  visit("configurationXxh3", run.configurationXxh3);
  visit("list", run.list);
  visit("listXxh3", run.listXxh3);
  visit("options", run.options);
  visit("runtime", run.runtime);
  visit("runtimeXxh3", run.runtimeXxh3);
  visit("mapped", run.mapped);
  visit("program", run.program);
  visit("programXxh3", run.programXxh3);
  visit("tool", run.tool);
  visit("fleet", run.fleet);
  visit("kernel", run.kernel);
  visit("processor", run.processor);
  visit("cores", run.cores);
  visit("governor", run.governor);
  visit("container", run.container);
  visit("loadAverage", run.loadAverage);
  visit("frequencyKhz", run.frequencyKhz);
  visit("temperatureMilliC", run.temperatureMilliC);
  visit("state", run.state);
  visit("status", run.status);
  visit("signal", run.signal);
  visit("startRealtimeNs", run.startRealtimeNs);
  visit("endRealtimeNs", run.endRealtimeNs);
  visit("inferences", run.inferences);
  visit("done", run.done);
  visit("failed", run.failed);
  visit("aside", run.aside);
  visit("missing", run.missing);
  visit("executions", run.executions);
  visit("firstNs", run.firstNs);
  visit("medianNs", run.medianNs);
  visit("madNs", run.madNs);
  visit("verdict", run.verdict);
  visit("addedRealtimeNs", run.addedRealtimeNs);
}

/// What `facts` tells of a run, and its identity: by the moment it began, the machine, the model
/// and the list; of a merged run by the fleet. `side` is that of a run that took turns. What times
/// and a verdict tell is left as it is.
[[nodiscard]] RunEntry EntryOf(const RunFacts& facts, const std::string& side);

/// Whether the run of that identity lies in the folder now: folders are used again.
[[nodiscard]] bool HoldsRun(const std::string& folder, const std::string& identity);

/// "A" or "B" where the folder is one of a run that took turns, else empty.
[[nodiscard]] std::string SideOf(const std::string& run);

/// An export's line, without its end; docs/schema/history_run.json. `hasTimes`: with each single
/// time.
[[nodiscard]] Json ToJson(const RunEntry& run, bool hasTimes);

/// Throws a JsonError that names the key.
[[nodiscard]] RunEntry EntryFromJson(const Json& object);

/// What the ledger has no room for in a run: a number that no clock or counter reaches, or longer
/// texts than any run makes; empty where it can be kept.
[[nodiscard]] std::string WhyNotKept(const RunEntry& run);

/// Times in few bytes: each in groups of seven bits, the lowest first, as LEB128 has them.
[[nodiscard]] std::string PackTimes(const std::vector<uint64_t>& times);

/// Empty where the bytes are no such.
[[nodiscard]] std::optional<std::vector<uint64_t>> UnpackTimes(std::string_view bytes);

}  // namespace vorn::kit

#endif  // VORN_KIT_LEDGER_RUN_ENTRY_H_
