// The run directory, in which all verbs meet: docs/schema tells its files.
//
//     RUN/run.json          what ran                         RunFacts
//     RUN/samples.jsonl     a line an inference              SampleRecord
//     RUN/times.jsonl       a line an executed inference     TimesRecord
//     RUN/machine.jsonl     a line a second                  MachineMoment
//     RUN/model.json        the description of the model     kit/model/model_json.h
//     RUN/dumps/0/ 1/ ...   what vorn-run wrote
//     RUN/verdict.json      what a judgement found           kit/judge/verdict.h
//
// A folder of a qualification has one of these for its device, and beside it qualify.json and the
// verdict on it.
//
// Readers pass over members and lines' members that they do not know, and over a last line without
// its end, which is being written.
#ifndef VORN_KIT_RUN_RUN_DIRECTORY_H_
#define VORN_KIT_RUN_RUN_DIRECTORY_H_

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/common/file_identity.h"

namespace vorn::kit {

inline constexpr const char* kRunFile = "run.json";
inline constexpr const char* kModelFile = "model.json";
inline constexpr const char* kSamplesFile = "samples.jsonl";
inline constexpr const char* kTimesFile = "times.jsonl";
inline constexpr const char* kMachineFile = "machine.jsonl";
inline constexpr const char* kLogFile = "log.txt";
inline constexpr const char* kErrorsFile = "errors.txt";
inline constexpr const char* kTraceFile = "trace.vtrace";
inline constexpr const char* kChunksFolder = "chunks";  ///< while it runs
inline constexpr const char* kDumpsFolder = "dumps";
inline constexpr const char* kVerdictFile = "verdict.json";
inline constexpr uint64_t kVerdictSchema = 1;
inline constexpr const char* kQualifyFile = "qualify.json";  ///< of a qualification
inline constexpr const char* kDeviceFolder = "device";       ///< its run of the device

/// Where the verdict on a run lies, if there is one: in its folder; on the device of a
/// qualification beside that.
[[nodiscard]] std::string VerdictPathOf(const std::string& run);

// ---- samples.jsonl ------------------------------------------------------------------------------

enum class SampleStatus {
  kDone,     ///< all of its outputs are there
  kFailed,   ///< the program said that it failed, or outputs are missing
  kAside,    ///< it ended the program, or took too long
  kMissing,  ///< it was not run
};

struct SampleInput {
  uint64_t line = 0;                ///< of the list, from 1
  std::optional<std::string> name;  ///< of the model's input, where the list names it
  std::string path;                 ///< as the list has it
  FileIdentity file;

  bool operator==(const SampleInput&) const = default;
};

struct SampleOutput {
  uint64_t index = 0;  ///< of the model's output
  std::string name;
  std::string path;                 ///< of the .bin, from RUN on
  std::optional<std::string> text;  ///< of the .float, from RUN on, if it was kept
  uint64_t sizeBytes = 0;           ///< of the .bin
  std::string xxh3;                 ///< of the .bin

  bool operator==(const SampleOutput&) const = default;
};

/// An inference. Nothing in it was measured: two runs that did the same have the same records, but
/// for the time stamps in the names of the dumps.
struct SampleRecord {
  uint64_t index = 0;
  SampleStatus status = SampleStatus::kMissing;
  std::vector<SampleInput> inputs;  ///< in the order of the model's inputs
  std::vector<SampleOutput> outputs;
  std::optional<std::string> reason;  ///< why it is not done

  bool operator==(const SampleRecord&) const = default;
};

/// One line, with its end.
[[nodiscard]] std::string ToLine(const SampleRecord& record);

/// Throws a JsonError that tells what is wrong with the line.
[[nodiscard]] SampleRecord SampleFromLine(std::string_view line);

/// Whether an inference has the outputs of the one right before it to the byte, and other inputs.
[[nodiscard]] bool IsRepeated(const SampleRecord& before, const SampleRecord& now);

/// The warning of a run about such inferences; it counts them all, and names the first one.
inline constexpr const char* kRepeatedWarning = "output-repeated";
[[nodiscard]] std::string RepeatedText(uint64_t index, const std::string& place);

/// What stands in front of a sample's line.
struct SampleFront {
  uint64_t index = 0;
  bool isDone = false;
};

/// Without reading the rest, where the line begins as ToLine has it: whoever wants some lines of a
/// million passes over the others. Empty where that cannot be told.
[[nodiscard]] std::optional<SampleFront> FrontOfSample(std::string_view line);

// ---- times.jsonl --------------------------------------------------------------------------------

struct TimesRecord {
  uint64_t index = 0;
  uint64_t chunk = 0;
  uint64_t attempt = 1;  ///< of the chunk: what is left of one after a crash is a new attempt
  std::string host;
  uint64_t startRealtimeNs = 0;     ///< of its first execution
  std::vector<uint64_t> executeNs;  ///< of each execution, in their order
  std::optional<std::string> series;

  bool operator==(const TimesRecord&) const = default;
};

[[nodiscard]] std::string ToLine(const TimesRecord& record);
[[nodiscard]] TimesRecord TimesFromLine(std::string_view line);

// ---- machine.jsonl ------------------------------------------------------------------------------

/// What was not to be had is empty.
struct MachineMoment {
  uint64_t realtimeNs = 0;
  std::vector<uint64_t> frequencyKhz;                ///< a core, in the order of their numbers
  std::map<std::string, int64_t> temperatureMilliC;  ///< by the zone's name
  std::optional<uint64_t> rssBytes;                  ///< of the program
  std::optional<uint64_t> memoryAvailableBytes;

  bool operator==(const MachineMoment&) const = default;
};

[[nodiscard]] std::string ToLine(const MachineMoment& moment);
[[nodiscard]] MachineMoment MachineFromLine(std::string_view line);

// ---- run.json -----------------------------------------------------------------------------------

enum class RunState { kRunning, kDone, kFailed, kInterrupted };

struct MappedFile {
  std::string path;
  std::optional<std::string> buildId;  ///< hexadecimal digits

  bool operator==(const MappedFile&) const = default;
};

/// What was not to be had is empty.
struct MachineFacts {
  std::string host;
  std::string kernel;
  std::string processor;
  std::optional<uint64_t> cores;
  std::optional<std::string> governor;
  std::optional<double> loadAverage;  ///< of the last minute, before the run
  std::optional<uint64_t> memoryTotalBytes;
  std::optional<uint64_t> memoryAvailableBytes;
  std::optional<std::string> container;

  bool operator==(const MachineFacts&) const = default;
};

struct SampleCounts {
  uint64_t inferences = 0;
  uint64_t done = 0;
  uint64_t failed = 0;
  uint64_t aside = 0;
  uint64_t missing = 0;

  bool operator==(const SampleCounts&) const = default;
};

/// The runtime rounded by ranges of another model: neither the run nor what is judged by it need be
/// what they are taken for.
inline constexpr const char* kOtherRangesWarning = "ranges-of-another-model";

struct RunWarning {
  std::string id;
  uint64_t count = 0;
  std::string message;

  bool operator==(const RunWarning&) const = default;
};

struct RunFacts {
  RunState state = RunState::kRunning;
  std::optional<int> status;          ///< the verb's, once it has ended
  std::optional<int> programStatus;   ///< of the program's last process that ended by itself
  std::optional<std::string> signal;  ///< that ended a process of the program: "SIGFPE"
  std::vector<std::string> command;   ///< of the verb
  std::string version;
  std::optional<std::vector<std::string>> options;  ///< of vorn-run, beside its files: "-b", "2"
  FileIdentity model;
  std::optional<FileIdentity> configuration;
  std::optional<std::vector<FileIdentity>> configurationFiles;  ///< that the configuration names
  std::optional<FileIdentity> list;
  std::optional<FileIdentity> runtime;
  std::optional<FileIdentity> program;  ///< vorn-run, or a script that runs it
  std::vector<MappedFile> mapped;
  MachineFacts machine;
  uint64_t startRealtimeNs = 0;
  std::optional<uint64_t> endRealtimeNs;
  SampleCounts counts;
  std::map<std::string, uint64_t> phases;  ///< nanoseconds, by the name of the phase: "execute"
  std::vector<RunWarning> warnings;
  std::string standardError;         ///< of the program, its end where it is long
  std::optional<std::string> fleet;  ///< of a run merged of a fleet's attempts: the plan's id

  bool operator==(const RunFacts&) const = default;
};

/// The whole file, indented, with a line end.
[[nodiscard]] std::string ToJson(const RunFacts& facts);

/// Throws a JsonError that tells what is wrong with the text.
[[nodiscard]] RunFacts RunFromJson(std::string_view text);

// ---- A directory --------------------------------------------------------------------------------

/// Where lines come from.
enum class LineSource {
  kWritten,  ///< a regular file that may still be written: a last line without its end is no line
  kNamed,    ///< what a person named: a pipe, too, and what stands behind the last end is a line
};

/// Calls `take` with each whole line of a file, without its end. Reads in pieces. Throws a Fault of
/// `status` that says what `what` is and what is wrong with it, which a line beyond 64 MiB is, too;
/// a JsonError that `take` throws becomes one that names file and line.
void ForEachLine(const std::string& path, const std::string& what, ExitStatus status,
                 const std::function<void(std::string_view line)>& take,
                 LineSource source = LineSource::kWritten);

/// RUN/run.json. Throws a Fault of kInput that names the file.
[[nodiscard]] RunFacts ReadRun(const std::string& run);

/// RUN/samples.jsonl by index; of an index that stands there several times, while a run goes on,
/// the last line. Throws as above.
[[nodiscard]] std::vector<SampleRecord> ReadSamples(const std::string& run);

/// RUN/times.jsonl in the order of its lines. Throws as above.
[[nodiscard]] std::vector<TimesRecord> ReadTimes(const std::string& run);

/// RUN/machine.jsonl in the order of its lines. Throws as above.
[[nodiscard]] std::vector<MachineMoment> ReadMachine(const std::string& run);

}  // namespace vorn::kit

#endif  // VORN_KIT_RUN_RUN_DIRECTORY_H_
