// vorn-judge: outputs against what is expected of them.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>

#include "kit/common/command_line.h"
#include "kit/common/file_identity.h"
#include "kit/common/file_place.h"
#include "kit/common/own_command.h"
#include "kit/common/printable.h"
#include "kit/common/whole_file.h"
#include "kit/judge/judge.h"
#include "kit/judge/reference.h"
#include "kit/ledger/base.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostTextBytes = 64 << 20;
constexpr uint64_t kMostWorst = 1000;
constexpr uint64_t kShownWorst = 5;

constexpr std::string_view kForms[] = {
    "RUN --expected PATH [--map FILE] [--rules FILE | --preset NAME | --exact | --atol A --rtol R]",
    "RUN --reference MODEL [--reference-config FILE] [--reference-recipe [NAME=]RECIPE...]",
    "RUN --with history[=FILE] [OPTION...]",
};

constexpr Option kOptions[] = {
    {"expected", 0, "PATH",
     "What is expected: another run, a folder of dumps, arrays (.npy, .npz), test folders of ONNX "
     "(test_data_set_*), or one such file."},
    {"with", 0, "history[=FILE]",
     "Instead of --expected: the last run before RUN of its series and level, as vorn history "
     "keeps "
     "them, that was not judged wrong. Its directory has to be there as it was."},
    {"reference", 0, "MODEL",
     "Instead of --expected: run this model (ONNX) with the host runtime over the samples of RUN, "
     "and expect what it gives. What it takes is made anew by vorn prepare, of the sources that "
     "the "
     "manifest.json beside RUN's tensors tells; where it takes what RUN's model takes and no "
     "recipe "
     "is given, RUN's own files serve. All of it goes into RUN/reference, and what is unchanged "
     "there stays."},
    {"reference-config", 0, "FILE",
     "The host runtime's configuration for it; without it an empty "
     "one."},
    {"reference-recipe", 0, "[NAME=]RECIPE",
     "How pictures become what an input of the reference takes, as vorn prepare --recipe has it. "
     "Once an input.",
     true},
    {"reference-runtime", 0, "FILE",
     "Another libvorn.so for it than the host runtime; it has to have that name."},
    {"map", 0, "FILE",
     "JSON that pairs outputs of other names, layouts, types and quantisation, and samples."},
    {"rules", 0, "FILE", "JSON with tolerances and bounds of metrics by the names of outputs."},
    {"preset", 0, "NAME",
     "A tolerance for all outputs: float32, float16, bfloat16, onnx, exact. Without any, that of "
     "the "
     "output's element type; whole numbers have to be equal."},
    {"exact", 0, "", "Every element has to be equal."},
    {"atol", 0, "A", "With --rtol the tolerance |a - r| <= A + R*|r| for all outputs."},
    {"rtol", 0, "R", "See --atol. What is left out is 0."},
    {"labels", 0, "FILE",
     "What is really to be seen: the number of a class a line, or JSON with classes, masks or "
     "boxes. "
     "Tells how often each side names it, and the difference."},
    {"only", 0, "GLOB", "Judge outputs of such names alone."},
    {"inside", 0, "",
     "Put all outputs into the order of the graph, inner tensors that both sides expose too, and "
     "name the first that differs, how the difference grows, and its largest step. Outputs that "
     "one "
     "side alone has are listed, and no fault. With --floor the floor decides where it begins: at "
     "the "
     "first tensor that is worse than its precision has to be."},
    {"all", 0, "",
     "With --inside: every tensor. Without it a table of more than 40 is folded to the first ones, "
     "where the difference begins, the largest steps, and the outputs."},
    {"floor", 0, "RUN",
     "A run of the reference rounded to the device's precision: tells for each output whether it "
     "loses more than that precision has to."},
    {"floor-ratio", 0, "R",
     "With --floor: up to R times the floor's RMSE is within; 1.25 without."},
    {"worst", 0, "N", "Show the N worst elements of each output; 5 without."},
    {"output", 'o', "FOLDER",
     "Where verdict.json and verdict.xml (JUnit) go: a folder that is there. Without it into RUN, "
     "if that is a run directory."},
    {"json", 0, "", "Print verdict.json, not the table."},
    {"quiet", 'q', "", "Print nothing but faults, and what --json asks for."},
};

constexpr Verb kJudge{
    .name = "judge",
    .summary = "outputs against what is expected of them",
    .forms = kForms,
    .about =
        "Compares each output of RUN, a run directory or a folder of dumps, with what is\n"
        "expected of it: a census of its elements, the usual measures, the worst elements by\n"
        "their places, the verdict, and for what is wrong its likely cause. Ends with status 0\n"
        "if everything is right, 6 if an output differs, 8 if samples are missing on either\n"
        "side or a run has not ended, 9 if something could not be compared or the history has\n"
        "no base, and 3 if a file of an output is damaged; all others are judged.",
    .options = kOptions,
    .example = "build/release/vorn judge build/demo --expected examples/digits/expected.npy",
    .mostOperands = 1,
};

double TakeBound(const Arguments& arguments, const char* name) {
  const std::string text = arguments.Get(name).value_or("0");
  double bound = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), bound);
  if (error != std::errc{} || stop != text.data() + text.size() || !std::isfinite(bound) ||
      bound < 0) {
    throw Fault(ExitStatus::kUsage, "--" + std::string(name) +
                                        " takes a finite number from 0 on, and got '" +
                                        Printable(text) + "'");
  }
  return bound;
}

Rules TakeRules(const Arguments& arguments) {
  const bool hasBounds = arguments.Has("atol") || arguments.Has("rtol");
  const std::array<bool, 4> given{arguments.Has("rules"), arguments.Has("preset"),
                                  arguments.Has("exact"), hasBounds};
  if (std::count(given.begin(), given.end(), true) > 1) {
    throw Fault(ExitStatus::kUsage,
                "--rules, --preset, --exact and --atol with --rtol exclude each other");
  }
  if (const auto path = arguments.Get("rules")) {
    return ParseRules(ReadWholeFile(*path, "the rules", ExitStatus::kInput, kMostTextBytes),
                      "the rules '" + Printable(*path) + "'");
  }
  std::optional<NamedTolerance> tolerance;
  if (const auto name = arguments.Get("preset")) {
    tolerance = Preset(*name);
    if (!tolerance) {
      throw Fault(ExitStatus::kUsage, "there is no preset '" + Printable(*name) +
                                          "'; float32, float16, bfloat16, onnx, exact");
    }
  } else if (arguments.Has("exact")) {
    tolerance = Preset("exact");
  } else if (hasBounds) {
    tolerance =
        NamedTolerance{{.atol = TakeBound(arguments, "atol"), .rtol = TakeBound(arguments, "rtol")},
                       "the command line"};
  }
  Rules rules;
  if (tolerance) rules.tolerances.push_back({"*", *tolerance});
  return rules;
}

void ShowProgress(size_t done, size_t all) {
  // About a hundred times, and on a terminal only.
  if (all < 100 || (done % (all / 100) != 0 && done != all)) return;
  std::fprintf(stderr, "\r%zu of %zu samples%s", done, all, done == all ? "\n" : "");
}

void WriteVerdict(const std::string& folder, const Verdict& verdict) {
  const std::string json = folder + "/verdict.json";
  const std::string junit = folder + "/verdict.xml";
  for (const std::string& path : {json, junit}) ClearPlace(path);
  WriteWholeFile(json, VerdictJson(verdict));
  WriteWholeFile(junit, VerdictJUnit(verdict));
}

// Before everything is read and compared for nothing.
void HoldToFolder(const std::string& folder) {
  struct stat about {};
  const bool isThere = stat(folder.c_str(), &about) == 0;
  if (isThere && S_ISDIR(about.st_mode)) return;
  throw Fault(ExitStatus::kLimit, "--output '" + Printable(folder) + "' is " +
                                      (isThere ? "no folder" : "not there") +
                                      "; name a folder that is, or make it");
}

void TakeFloor(const Arguments& arguments, JudgeRequest& request) {
  const auto floor = arguments.Get("floor");
  if (arguments.Has("floor-ratio")) {
    if (!floor) throw Fault(ExitStatus::kUsage, "--floor-ratio is for --floor, which is missing");
    request.mostOverFloor = TakeBound(arguments, "floor-ratio");
  }
  if (!floor) return;
  request.floor = FindTensors(*floor);
}

// vorn-run finds it by its name.
std::optional<std::string> TakeReferenceRuntime(const Arguments& arguments) {
  auto runtime = arguments.Get("reference-runtime");
  if (!runtime) return std::nullopt;
  const std::string name = runtime->substr(runtime->rfind('/') + 1);
  if (name == "libvorn.so" && access(runtime->c_str(), R_OK) == 0) return runtime;
  throw Fault(ExitStatus::kUsage, "--reference-runtime " + Quoted(*runtime) +
                                      (name == "libvorn.so" ? " cannot be read"
                                                            : " is not named libvorn.so, by which "
                                                              "vorn-run finds it; link to it so"));
}

// The folder of what is expected: named, or made.
std::string TakeExpected(const Arguments& arguments, JudgeRequest& request) {
  const auto model = arguments.Get("reference");
  const auto with = arguments.Get("with");
  if (with && (model || arguments.Has("expected"))) {
    throw Fault(ExitStatus::kUsage, "--with takes the place of --expected and of --reference");
  }
  if (!model) {
    for (const char* name : {"reference-config", "reference-recipe", "reference-runtime"}) {
      if (!arguments.Has(name)) continue;
      throw Fault(ExitStatus::kUsage,
                  "--" + std::string(name) + " is for --reference, which is missing");
    }
    if (!with) return arguments.Need("expected");
    const RunEntry base =
        FindBase(LedgerOfWith(*with), arguments.Operands().front(), BaseUse::kOutputs);
    if (!arguments.Has("quiet")) {
      std::fprintf(stderr, "vorn judge: the base is run %lld of the history, %s\n",
                   static_cast<long long>(base.id), Printable(base.path).c_str());
    }
    return base.path;
  }
  if (arguments.Has("expected")) {
    throw Fault(ExitStatus::kUsage, "--reference takes the place of --expected");
  }
  if (request.map.samples != Map::Samples::kByIndex) {
    throw Fault(ExitStatus::kUsage,
                "--reference runs RUN's own samples, and the map pairs them otherwise; leave "
                "\"samples\" out of it");
  }
  const bool isQuiet = arguments.Has("quiet");
  ReferenceRun made =
      MakeReference({arguments.Operands().front(), *model, arguments.Get("reference-config"),
                     arguments.GetAll("reference-recipe"), TakeReferenceRuntime(arguments)},
                    [&](const VerbCall& call) {
                      if (isQuiet) return;
                      std::fprintf(stderr, "vorn judge: %s\n", CommandText(call).c_str());
                    });
  if (!made.samples.empty()) {
    request.map.samples = Map::Samples::kListed;
    request.map.listed = std::move(made.samples);
  }
  return made.path;
}

ExitStatus JudgeRun(const Arguments& arguments) {
  if (arguments.Operands().empty()) {
    throw Fault(ExitStatus::kUsage,
                "the run is missing: vorn judge RUN --expected PATH; --help tells more");
  }
  JudgeRequest request;
  request.rules = TakeRules(arguments);
  std::string map;
  if (const auto path = arguments.Get("map")) {
    map = ReadWholeFile(*path, "the map", ExitStatus::kInput, kMostTextBytes);
    request.map = ParseMap(map, "the map '" + Printable(*path) + "'");
  }
  if (const auto path = arguments.Get("labels")) {
    const size_t slash = path->rfind('/');
    request.labels =
        ParseLabels(ReadWholeFile(*path, "the labels", ExitStatus::kInput, kMostTextBytes),
                    "the labels '" + Printable(*path) + "'",
                    slash == std::string::npos ? "." : path->substr(0, slash));
  }
  request.worst = arguments.GetNumber("worst", kShownWorst, 0, kMostWorst);
  request.only = arguments.Get("only");
  request.isInside = arguments.Has("inside");
  if (arguments.Has("all") && !request.isInside) {
    throw Fault(ExitStatus::kUsage, "--all is for --inside, which is missing");
  }
  const auto folder = arguments.Get("output");
  if (folder) HoldToFolder(*folder);
  const std::string expected = TakeExpected(arguments, request);
  TakeFloor(arguments, request);
  request.actual = FindTensors(arguments.Operands().front());
  request.expected = FindTensors(expected);

  const bool showsProgress = !arguments.Has("quiet") && isatty(STDERR_FILENO) != 0;
  Verdict verdict =
      Judge(request, showsProgress ? std::function<void(size_t, size_t)>(ShowProgress) : nullptr);
  verdict.command = OwnCommand("judge");
  verdict.map = std::move(map);
  std::string text;
  if (arguments.Has("json")) {
    text = VerdictJson(verdict);
  } else if (!arguments.Has("quiet")) {
    text = VerdictText(verdict, arguments.Has("all"));
  }
  if (const auto unreadable = verdict.Unreadable(); !unreadable.empty()) {
    const std::string more =
        unreadable.size() == 1 ? "" : "; and " + std::to_string(unreadable.size() - 1) + " more";
    std::fprintf(stderr, "vorn judge: %s%s\n", unreadable.front().c_str(), more.c_str());
  }
  // Before the files, which may not be to be written: what was found out is told all the same.
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
  if (folder) {
    WriteVerdict(*folder, verdict);
  } else if (request.actual.isRun) {
    WriteVerdict(request.actual.path, verdict);
  }
  return verdict.Status();
}

}  // namespace
}  // namespace vorn::kit

int main(int argc, char** argv) {
  return vorn::kit::RunVerb(vorn::kit::kJudge, argc, argv, vorn::kit::JudgeRun);
}
