// vorn-trace: puts the trace layer under a program, or reads what it left.
#include <cstdio>

#include "kit/common/command_line.h"
#include "kit/common/file_identity.h"
#include "kit/trace/trace_file.h"
#include "kit/trace/trace_summary.h"
#include "kit/trace/under_layer.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostTraceBytes = uint64_t{4} << 30;
constexpr uint64_t kMostCalls = uint64_t{1} << 24;

constexpr std::string_view kForms[] = {
    "[--output FILE] [--calls N] [--quiet] -- PROGRAM [WORD...]",
    "--read FILE",
};

constexpr Option kOptions[] = {
    {"output", 'o', "FILE",
     "Where the trace goes, vorn.vtrace without it. Further processes that made calls leave theirs "
     "beside it, with their process id behind the name."},
    {"calls", 0, "N",
     "Make room for N calls, 131072 without it; a call takes 128 bytes. Later ones are counted."},
    {"quiet", 'q', "", "Print no report."},
    {"read", 0, "FILE", "Run nothing; report on this trace, also of a process that runs still."},
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
        "Ends with the program's own status, or 128 and the number of the signal that ended\n"
        "it. 127: there is no such program; 125: it was not traced, and why.",
    .options = kOptions,
    .example =
        "build/release/vorn trace -o build/digits.vtrace -- build/release/vorn-run "
        "-m examples/digits/digits.onnx -i examples/digits/list.txt "
        "-j examples/digits/host.json -o build/demo",
    .mostOperands = SIZE_MAX,
    .runsProgram = true,
};

std::string ReportOn(const std::string& path) {
  return TraceReport(
      ParseTrace(ReadWholeFile(path, "the trace", ExitStatus::kInput, kMostTraceBytes)));
}

ExitStatus Trace(const Arguments& arguments) {
  if (const auto path = arguments.Get("read")) {
    if (!arguments.Operands().empty()) {
      throw Fault(ExitStatus::kUsage,
                  "--read reads a trace and runs nothing; leave out the program");
    }
    const std::string report = ReportOn(*path);
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

  const TraceOutcome outcome = RunUnderTrace(request);
  if (!outcome.reason.empty()) {
    throw Fault(ExitStatus::kRuntime, outcome.reason);
  }
  if (!arguments.Has("quiet")) {
    if (outcome.files.empty()) std::fputs("vorn trace: the program made no call\n", stderr);
    for (const std::string& file : outcome.files) {
      std::fprintf(stderr, "\n%s", ReportOn(file).c_str());
      std::fprintf(stderr, "trace    %s\n", file.c_str());
    }
  }
  return ExitStatus{outcome.status};
}

}  // namespace
}  // namespace vorn::kit

int main(int argc, char** argv) {
  return vorn::kit::RunVerb(vorn::kit::kTrace, argc, argv, vorn::kit::Trace);
}
