// vorn-convert: traces and dumps in formats of others.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <optional>

#include "kit/common/command_line.h"
#include "kit/common/file_identity.h"
#include "kit/common/file_place.h"
#include "kit/common/printable.h"
#include "kit/common/whole_file.h"
#include "kit/convert/arrays.h"
#include "kit/convert/perfetto.h"
#include "kit/convert/trace_csv.h"
#include "kit/run/run_directory.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostTraceBytes = uint64_t{4} << 30;

constexpr std::string_view kForms[] = {
    "TRACE [TRACE...] [--to perfetto|csv] [-o FILE]",
    "RUN --to npy [-o FOLDER]",
};

constexpr Option kOptions[] = {
    {"to", 't', "FORMAT",
     "perfetto, for ui.perfetto.dev, csv, or npy; without it csv for a FILE named .csv, and "
     "perfetto for others."},
    {"output", 'o', "FILE",
     "Where it goes; without it to standard output, and arrays beside their dumps."},
    {"quiet", 'q', "", "Say nothing of what is missing."},
};

constexpr Verb kConvert{
    .name = "convert",
    .summary = "traces and dumps in formats of others",
    .forms = kForms,
    .about =
        "Reads traces of vorn trace, or run directories that hold one, and puts them on one line\n"
        "of time by the clocks that each notes, of several machines as well.\n"
        "\n"
        "perfetto: the native trace of Perfetto, to be opened at ui.perfetto.dev, where it stays\n"
        "in the browser. A track for each process and thread, a slice for each call with its\n"
        "arguments and results, and device memory over time. csv: a line for each call, texts\n"
        "with \\xHH for what is not printable, and ' before one that a table would take for a\n"
        "formula.\n"
        "\n"
        "npy: an array for each output of each sample of a run directory, in its shape: beside "
        "the\n"
        "dump, as vorn launch --npy has it, or in FOLDER/SAMPLE/. Outputs of 64 bits and of bool\n"
        "are not in a dump and left out. Ends with status 8 if something is not there, or the run\n"
        "has not ended, 9 if nothing is there.",
    .options = kOptions,
    .example = "build/release/vorn convert build/digits.vtrace -o build/digits.pftrace",
    .mostOperands = 1000,
};

enum class Format { kPerfetto, kCsv, kArrays };

Format FormatOf(const Arguments& arguments) {
  const auto format = arguments.Get("to");
  if (!format) {
    const bool isCsv = arguments.Get("output").value_or("").ends_with(".csv");
    return isCsv ? Format::kCsv : Format::kPerfetto;
  }
  if (*format == "perfetto") return Format::kPerfetto;
  if (*format == "csv") return Format::kCsv;
  if (*format == "npy") return Format::kArrays;
  throw Fault(ExitStatus::kUsage,
              "--to takes perfetto, csv or npy, and got '" + Printable(*format) + "'");
}

// A name that tells of another format than what would be in the file: whoever opens it by its name
// finds it broken.
void CheckEnding(const std::string& output, Format format) {
  struct EndingRow {
    std::string_view ending;
    std::optional<Format> format;  // empty: none that is written
  };
  constexpr EndingRow kEndings[] = {
      {".csv", Format::kCsv},          {".txt", Format::kCsv},
      {".pftrace", Format::kPerfetto}, {".perfetto-trace", Format::kPerfetto},
      {".json", std::nullopt},         {".npy", std::nullopt},
      {".npz", std::nullopt},
  };
  const bool isCsv = format == Format::kCsv;
  for (const EndingRow& row : kEndings) {
    if (!output.ends_with(row.ending) || row.format == format) continue;
    throw Fault(ExitStatus::kUsage,
                Quoted(output) + " ends with " + std::string(row.ending) +
                    ", and what is written is " +
                    (isCsv ? "a table; name it .csv"
                           : "a binary trace of Perfetto; name it .pftrace, or .csv for a table"));
  }
}

ExitStatus ConvertRun(const Arguments& arguments) {
  if (arguments.Operands().size() > 1) {
    throw Fault(ExitStatus::kUsage,
                "arrays are made of one run at a time: vorn convert RUN --to npy");
  }
  const ArraysWritten written = WriteArrays(arguments.Operands().front(), arguments.Get("output"));
  if (!arguments.Has("quiet")) {
    constexpr size_t kMostTold = 10;
    const auto say = [](const std::string& line) {
      std::fprintf(stderr, "vorn convert: %s\n", line.c_str());
    };
    for (size_t i = 0; i < std::min(written.why.size(), kMostTold); ++i) say(written.why[i]);
    if (written.why.size() > kMostTold) {
      say("and " + std::to_string(written.why.size() - kMostTold) + " more");
    }
    say(Counted(written.arrays, "array") + " of " + Counted(written.samples, "sample"));
  }
  if (written.absent > 0 || written.isUnfinished) return ExitStatus::kPartial;
  if (written.arrays == 0) return ExitStatus::kNothing;
  return written.why.empty() ? ExitStatus::kDone : ExitStatus::kPartial;
}

// Where the trace of an operand is: that of a run lies in its folder.
std::string TraceAt(const std::string& path) {
  struct stat about {};
  const bool isFolder = stat(path.c_str(), &about) == 0 && S_ISDIR(about.st_mode);
  if (!isFolder) return path;
  std::string trace = path + "/" + kTraceFile;
  if (IsThere(trace)) return trace;
  const std::string none = Quoted(path) + " holds no " + kTraceFile + ": ";
  if (IsThere(path + "/" + kRunFile) || IsThere(path + "/" + kSamplesFile)) {
    throw Fault(ExitStatus::kInput,
                none +
                    "a run in chunks leaves no trace unless one of them failed, none does with "
                    "--no-trace, and none before it has ended");
  }
  if (IsThere(path + "/A/" + kRunFile)) {
    throw Fault(ExitStatus::kInput,
                none +
                    "it holds two runs that took turns, A and B, and their chunks leave no "
                    "trace unless one of them failed");
  }
  throw Fault(ExitStatus::kInput, none + "it is no run directory");
}

NamedTrace ReadTrace(const std::string& path) {
  const std::string file = TraceAt(path);
  const std::string bytes = ReadWholeFile(file, "the trace", ExitStatus::kInput, kMostTraceBytes);
  try {
    return {.name = path, .file = ParseTrace(bytes)};
  } catch (const Fault& fault) {
    throw Fault(fault.Status(), "'" + Printable(file) + "': " + fault.what());
  }
}

ExitStatus Convert(const Arguments& arguments) {
  if (arguments.Operands().empty()) {
    throw Fault(ExitStatus::kUsage,
                "the trace is missing: vorn convert TRACE...; --help tells more");
  }
  const Format format = FormatOf(arguments);
  if (format == Format::kArrays) return ConvertRun(arguments);
  const bool wantsCsv = format == Format::kCsv;
  const auto output = arguments.Get("output");
  if (output) CheckEnding(*output, format);
  if (!output && !wantsCsv && isatty(STDOUT_FILENO) == 1) {
    throw Fault(ExitStatus::kUsage, "this is nothing for a terminal; name a file with -o");
  }
  std::vector<NamedTrace> traces;
  for (const std::string& path : arguments.Operands()) {
    std::error_code unknown;
    if (output && std::filesystem::equivalent(TraceAt(path), *output, unknown)) {
      throw Fault(ExitStatus::kUsage,
                  Quoted(*output) + " is a trace that is read; name another file with -o");
    }
    traces.push_back(ReadTrace(path));
  }
  for (const NamedTrace& trace : traces) {
    const auto lacks = [&](uint64_t calls, const char* why) {
      std::fprintf(stderr, "vorn convert: %s lacks its last %s: %s\n", Quoted(trace.name).c_str(),
                   Counted(calls, "call").c_str(), why);
    };
    if (trace.file.cut != 0) lacks(trace.file.cut, "the file was cut");
    if (trace.file.dropped != 0 && !arguments.Has("quiet")) {
      lacks(trace.file.dropped, "there was no room");
    }
  }
  const std::vector<PlacedTrace> placed = PlaceOnTimeline(std::move(traces));
  const std::string bytes = wantsCsv ? ToCsv(placed) : ToPerfetto(placed);
  if (output) {
    WriteWholeFile(*output, bytes);
  } else {
    std::fwrite(bytes.data(), 1, bytes.size(), stdout);
  }
  return ExitStatus::kDone;
}

}  // namespace
}  // namespace vorn::kit

int main(int argc, char** argv) {
  return vorn::kit::RunVerb(vorn::kit::kConvert, argc, argv, vorn::kit::Convert);
}
