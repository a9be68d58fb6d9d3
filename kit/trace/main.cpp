// vorn-trace: puts the trace layer under a program, or reads what it left.
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>

#include "kit/common/command_line.h"
#include "kit/common/duration.h"
#include "kit/common/file_identity.h"
#include "kit/common/printable.h"
#include "kit/trace/trace_file.h"
#include "kit/trace/trace_json.h"
#include "kit/trace/trace_summary.h"
#include "kit/trace/under_layer.h"
#include "kit/trace/watchdog.h"
#include "shared/trace/trace_settings.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostTraceBytes = uint64_t{4} << 30;
constexpr uint64_t kMostSettingsBytes = 65535;
constexpr uint64_t kMostCalls = uint64_t{1} << 24;

constexpr std::string_view kForms[] = {
    "[--output FILE] [--calls N] [--only CALLS] [--stuck TIME] [--json | --quiet] -- PROGRAM "
    "[WORD...]",
    "--read FILE|RUN [--json]",
};

// An option of the layer's own table.
constexpr Option FromSetting(const LayerSetting& setting) {
  return {setting.name, 0, setting.takes, setting.help};
}

constexpr Option kOptions[] = {
    {"output", 'o', "FILE",
     "Where the trace goes, vorn.vtrace without it. Further processes that made calls leave theirs "
     "beside it, with their process id behind the name."},
    FromSetting(trace::kTraceSettings[trace::kCallsSetting]),
    FromSetting(trace::kTraceSettings[trace::kOnlySetting]),
    {"settings", 0, "FILE",
     "Take settings that are no options here from lines such as trace.calls = 1000; "
     "VORN_TRACE_CALLS "
     "in the environment comes before it. What is in force stands in the trace."},
    {"stuck", 0, "TIME",
     "Tell, while it runs, of each call that has been inside for this long: 10s, 500ms."},
    {"json", 0, "", "Report as JSON, a line a process: docs/schema/trace.json."},
    {"quiet", 'q', "", "Print no report."},
    {"read", 0, "FILE",
     "Run nothing; report on this trace, also of a process that runs still, or on those in a "
     "folder "
     "such as the run directory of vorn launch."},
};

constexpr Verb kTrace{
    .name = "trace",
    .summary = "every call of a program to its runtime, with its time",
    .forms = kForms,
    .about =
        "Runs a program with a layer between it and its libvorn.so, which notes each call before\n"
        "it is made and behind it, in a file that is whole however the program ends. Then\n"
        "reports on standard error: times by operation, what the time went into, device\n"
        "memory, and the call that the program was inside of when it was killed.\n"
        "\n"
        "A program that opens its runtime by name, as a script does, finds the layer where the\n"
        "runtime would be: copy libvorn-trace.so to a folder of its own as libvorn.so, name the\n"
        "folder in LD_LIBRARY_PATH and the runtime in VORN_NEXT.\n"
        "\n"
        "Ends with the program's own status, or 128 and the number of the signal that ended\n"
        "it. 127: there is no such program; 126: it cannot be executed; 125: it was not traced,\n"
        "and why.",
    .options = kOptions,
    .example =
        "build/release/vorn trace -o build/digits.vtrace -- build/release/vorn-run "
        "-m examples/digits/digits.onnx -i examples/digits/list.txt "
        "-j examples/digits/host.json -o build/demo",
    .mostOperands = SIZE_MAX,
    .runsProgram = true,
};

std::string ReportOn(const std::string& path, bool asJson) {
  const TraceFile file =
      ParseTrace(ReadWholeFile(path, "the trace", ExitStatus::kInput, kMostTraceBytes));
  return asJson ? TraceJson(file, path) : TraceReport(file);
}

void PrintReports(const std::vector<std::string>& files, bool asJson) {
  if (files.empty() && !asJson)
    std::fputs("vorn trace: the program made no call by way of the layer\n", stderr);
  for (const std::string& file : files) {
    const std::string report = ReportOn(file, asJson);
    if (asJson) {
      std::fputs(report.c_str(), stderr);
    } else {
      std::fprintf(stderr, "\n%strace    %s\n", report.c_str(), Printable(file).c_str());
    }
  }
}

// One after the other; one that is none keeps back none of the others.
void PrintReportsOf(const std::string& folder, bool asJson) {
  const std::vector<std::string> files = TracesIn(folder);
  if (files.empty()) {
    throw Fault(ExitStatus::kInput,
                Quoted(folder) +
                    " holds no trace; launch keeps that of its last process, with "
                    "--chunk of one that ended badly, and with --no-trace none");
  }
  std::string fault;
  auto status = ExitStatus::kInput;
  bool isFirst = true;
  for (const std::string& file : files) {
    try {
      const std::string report = ReportOn(file, asJson);
      if (asJson) {
        std::fputs(report.c_str(), stdout);
      } else {
        std::printf("%s%strace    %s\n", isFirst ? "" : "\n", report.c_str(),
                    Printable(file).c_str());
      }
      isFirst = false;
    } catch (const Fault& its) {
      if (fault.empty()) {
        status = its.Status();
        fault = Quoted(file) + ": " + its.what();
      }
    }
  }
  if (!fault.empty()) throw Fault(status, fault);
}

// What the layer finds in its environment besides what RunUnderTrace puts there.
void SetForLayer(const Arguments& arguments) {
  if (const auto calls = arguments.Get("only")) setenv("VORN_TRACE_ONLY", calls->c_str(), 1);
  if (const auto file = arguments.Get("settings")) {
    (void)ReadWholeFile(*file, "the settings", ExitStatus::kUsage, kMostSettingsBytes);
    // Processes of the program may have another folder.
    const std::unique_ptr<char, void (*)(void*)> path(realpath(file->c_str(), nullptr), std::free);
    setenv(kSettingsVariable, path == nullptr ? file->c_str() : path.get(), 1);
  }
}

std::optional<uint64_t> StuckNs(const Arguments& arguments) {
  const auto text = arguments.Get("stuck");
  if (!text) return std::nullopt;
  const auto time = DurationNs(*text);
  constexpr double kMost = 1e18;
  if (time && *time > 0 && *time < kMost) return static_cast<uint64_t>(*time);
  throw Fault(ExitStatus::kUsage,
              "--stuck takes a time with its unit, such as 10s or 500ms, and got '" +
                  Printable(*text) + "'");
}

ExitStatus Trace(const Arguments& arguments) {
  if (const auto path = arguments.Get("read")) {
    if (!arguments.Operands().empty()) {
      throw Fault(ExitStatus::kUsage,
                  "--read reads a trace and runs nothing; leave out the program");
    }
    struct stat about {};
    if (stat(path->c_str(), &about) == 0 && S_ISDIR(about.st_mode)) {
      PrintReportsOf(*path, arguments.Has("json"));
      return ExitStatus::kDone;
    }
    const std::string report = ReportOn(*path, arguments.Has("json"));
    std::fwrite(report.data(), 1, report.size(), stdout);
    return ExitStatus::kDone;
  }
  if (arguments.Operands().empty()) {
    throw Fault(ExitStatus::kUsage, "the program is missing: vorn trace -- PROGRAM [WORD...]");
  }
  TraceRequest request{
      .command = {arguments.Operands().begin(), arguments.Operands().end()},
      .layer = FindTraceLayer(),
      .output = arguments.Get("output").value_or("vorn.vtrace"),
      .calls = {},
  };
  if (request.output.empty()) throw Fault(ExitStatus::kUsage, "--output names no file");
  if (arguments.Has("calls")) request.calls = arguments.GetNumber("calls", 0, 1, kMostCalls);

  const auto stuckNs = StuckNs(arguments);
  SetForLayer(arguments);
  const std::string reason = WhyNoTrace(request);
  if (!reason.empty()) throw Fault(ExitStatus::kUsage, reason);

  std::optional<Watchdog> watchdog;
  if (stuckNs) watchdog.emplace(request.output, *stuckNs);
  const TraceOutcome outcome = RunUnderTrace(request);
  watchdog.reset();
  if (!outcome.reason.empty()) {
    throw Fault(ExitStatus::kRuntime, outcome.reason);
  }
  if (!arguments.Has("quiet")) PrintReports(outcome.files, arguments.Has("json"));
  return ExitStatus{outcome.status};
}

}  // namespace
}  // namespace vorn::kit

int main(int argc, char** argv) {
  return vorn::kit::RunVerb(vorn::kit::kTrace, argc, argv, vorn::kit::Trace);
}
