// vorn-timing: whether one run is slower than another.
#include <algorithm>
#include <charconv>
#include <cstdio>

#include "kit/common/command_line.h"
#include "kit/common/duration.h"
#include "kit/common/printable.h"
#include "kit/ledger/base.h"
#include "kit/timing/timing_report.h"

namespace vorn::kit {
namespace {

constexpr std::string_view kForms[] = {
    "TIMES [TIMES...] [--ratio R] [--absolute TIME] [--json]",
    "RUN --with history[=FILE] [OPTION...]",
};

constexpr Option kOptions[] = {
    {"ratio", 'r', "R", "A difference counts from this ratio of the medians on, 1.03 without it."},
    {"absolute", 'a', "TIME", "And from this time on, as 10us, 0.5ms or 1s; 10us without it."},
    {"with", 'w', "history[=FILE]",
     "Compare RUN with the last run before it of its series and level, as vorn history keeps them; "
     "that run's directory need not be there any more."},
    {"unit", 'u', "UNIT", "Of the numbers in lists: ns, us, ms, s, min or h; ns without it."},
    {"column", 'c', "NAME",
     "The column of a table, or the key of objects, that holds the times; executeNs without it."},
    {"seed", 0, "N", "Of the bootstrap, 1 without it."},
    {"json", 0, "", "Print all of it as JSON: docs/schema/timing.json."},
    {"quiet", 'q', "", "Print nothing but faults, and what --json asks for; the status tells."},
};

constexpr Verb kTiming{
    .name = "timing",
    .summary = "slower, faster, alike, or cannot tell",
    .forms = kForms,
    .about =
        "Compares the times of executions of the first TIMES with those of each further one.\n"
        "TIMES is a run directory, a trace of vorn trace, or a list of numbers: a line each, a\n"
        "table with commas, or JSON; the decimal sign is a full stop. Of one alone it tells what\n"
        "its times are like, and of a run that took turns between A and B, how B compares with A:\n"
        "by pairs, if most of them began next to each other. Of an inference that a run holds\n"
        "twice the latest attempt counts. With --with the base is taken out of the history.\n"
        "\n"
        "First executions of a process are apart. A percentile is told where there are times\n"
        "enough to carry it. Slower or faster needs three things: ranks that differ by more than\n"
        "chance (1 in 20 over all comparisons), an interval of the ratio of medians that leaves\n"
        "out 1, and a difference that counts. Alike: any difference is one that does not count.\n"
        "Where neighbouring times are alike they are worth fewer. With fewer than 6 times a side\n"
        "nothing can be told.\n"
        "\n"
        "Ends with status 10 if one is slower, else 9 if one holds no time or there is no base,\n"
        "else 11 if one comparison cannot be told, else 0.",
    .options = kOptions,
    .example = "build/release/vorn timing build/digits.run build/digits.vtrace",
    .mostOperands = 1000,
};

double ListUnitNs(const std::string& name) {
  if (const auto ns = UnitNs(name)) return *ns;
  throw Fault(ExitStatus::kUsage,
              "--unit takes ns, us, ms, s, min or h, and got '" + Printable(name) + "'");
}

double RatioOf(const std::string& text) {
  double ratio = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), ratio);
  constexpr double kMost = 1000;
  const bool isNumber = error == std::errc{} && end == text.data() + text.size();
  if (isNumber && ratio >= 1 && ratio <= kMost) return ratio;
  throw Fault(ExitStatus::kUsage, "--ratio takes a number from 1 to 1000, and got '" +
                                      Printable(text) + "'; 1.05 means 5 % slower or faster");
}

double TimeOf(const std::string& text) {
  if (const auto time = DurationNs(text)) return *time;
  throw Fault(ExitStatus::kUsage,
              "--absolute takes a time with its unit, such as 10us, 0.5ms or 1s, and got '" +
                  Printable(text) + "'");
}

std::vector<double> AsTimes(const std::vector<uint64_t>& times) {
  std::vector<double> all;
  all.reserve(times.size());
  for (const uint64_t time : times) {
    all.push_back(std::max<double>(1, static_cast<double>(time)));
  }
  return all;
}

// The times as the history keeps them.
MeasuredTimes BaseOf(const std::string& with, const std::string& run) {
  const RunEntry base = FindBase(LedgerOfWith(with), run, BaseUse::kTimes);
  if (base.times.leftOut > 0) {
    std::fprintf(stderr,
                 "vorn timing: of the base, run %lld of the history, the first %zu times are kept "
                 "and compared\n",
                 static_cast<long long>(base.id), base.times.timesNs.size());
  }
  Times times;
  times.name = "run " + std::to_string(base.id) + ", " + base.path;
  times.firstNs = AsTimes(base.times.firstNs);
  times.timesNs = AsTimes(base.times.timesNs);
  return {.kind = "history", .series = {std::move(times)}};
}

ExitStatus Timing(const Arguments& arguments) {
  if (arguments.Operands().empty()) {
    throw Fault(ExitStatus::kUsage,
                "the times are missing: vorn timing TIMES [TIMES...]; --help tells more");
  }
  Gates gates;
  if (const auto ratio = arguments.Get("ratio")) gates.ratio = RatioOf(*ratio);
  if (const auto time = arguments.Get("absolute")) gates.absoluteNs = TimeOf(*time);
  const ListFormat format{.unitNs = ListUnitNs(arguments.Get("unit").value_or("ns")),
                          .column = arguments.Get("column").value_or("")};
  Bootstrap bootstrap;
  bootstrap.seed = arguments.GetNumber("seed", bootstrap.seed, 0, UINT64_MAX);

  std::vector<MeasuredTimes> sources;
  if (const auto with = arguments.Get("with")) {
    if (arguments.Operands().size() != 1) {
      throw Fault(ExitStatus::kUsage, "--with history compares one run with its base, and got " +
                                          std::to_string(arguments.Operands().size()) + " of them");
    }
    sources.push_back(BaseOf(*with, arguments.Operands().front()));
  }
  for (const std::string& path : arguments.Operands()) {
    sources.push_back(ReadMeasuredTimes(path, format));
  }
  const TimingResult result = CompareTimes(sources, gates, bootstrap);
  std::string text;
  if (arguments.Has("json")) {
    text = TimingJson(result);
  } else if (!arguments.Has("quiet")) {
    text = TimingText(result);
  }
  std::fwrite(text.data(), 1, text.size(), stdout);
  return StatusOf(result);
}

}  // namespace
}  // namespace vorn::kit

int main(int argc, char** argv) {
  return vorn::kit::RunVerb(vorn::kit::kTiming, argc, argv, vorn::kit::Timing);
}
