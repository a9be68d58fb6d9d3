// vorn-prepare: tensors and a list out of pictures and arrays.
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <thread>

#include "kit/common/command_line.h"
#include "kit/common/file_identity.h"
#include "kit/common/own_command.h"
#include "kit/common/printable.h"
#include "kit/common/progress_line.h"
#include "kit/common/text_table.h"
#include "kit/json/json.h"
#include "kit/model/model_json.h"
#include "kit/prepare/job.h"
#include "kit/prepare/prepare.h"
#include "kit/runtime/describe.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostDescriptionBytes = 64 << 20;
constexpr uint64_t kMostNumber = INT32_MAX;
constexpr uint64_t kMostWorkers = 1024;
constexpr uint64_t kMostMegabytes = 1 << 20;

constexpr std::string_view kForms[] = {
    "-m MODEL [-j CONFIG] --input [NAME=]SOURCE... [--recipe [NAME=]RECIPE...] -o FOLDER",
    "--model-json FILE --job FILE -o FOLDER",
    "--recipes | --show-recipe RECIPE",
};

constexpr Option kOptions[] = {
    {"model", 'm', "FILE", "The model, which a runtime is asked about."},
    {"config", 'j', "FILE", "The runtime's JSON configuration; without it an empty one."},
    {"runtime", 0, "FILE", "The libvorn.so to ask, as vorn inspect has it."},
    {"model-json", 0, "FILE",
     "What vorn inspect --json says of the model, instead of asking a runtime."},
    {"input", 0, "[NAME=]SOURCE",
     "What an input of the model is made of: a picture, an array (.npy, .npz), an ONNX tensor "
     "(.pb), "
     "raw values, a text of numbers, or a folder of them, which is taken in the order of the "
     "names; a "
     "folder of test_data_set_* folders; or a run, whose output of that name is taken. The name "
     "may "
     "be left out for a model with one input. Once an input.",
     true},
    {"recipe", 0, "[NAME=]RECIPE",
     "How pictures become what the input takes: a ready recipe, or a file of JSON. Once an input.",
     true},
    {"random", 0, "[NAME=]RULE",
     "Random numbers for an input, the same on every machine: uniform, normal, bool, or JSON such "
     "as "
     "{\"distribution\": \"integers\", \"low\": 0, \"high\": 255, \"seed\": 7}. Once an input.",
     true},
    {"count", 0, "N",
     "How many samples of random numbers, where there is nothing else; 1 without."},
    {"job", 0, "FILE",
     "The same as JSON, where names make it hard: {\"schema\": 1, \"inputs\": [{\"name\", "
     "\"source\", "
     "\"part\", \"recipe\", \"signal\", \"raw\", \"random\"}], \"count\", \"thresholds\"}. Signals "
     "and thresholds are said here alone. A source may be a list: of paths, and of {\"path\", "
     "\"part\", \"item\"}."},
    {"output", 'o', "FOLDER",
     "Where list.txt, manifest.json and the tensors go. It is made, and has to be empty unless "
     "--resume is given."},
    {"batch", 'b', "N",
     "Pack N items into a file, for vorn-run -b N. The last one is filled up with its last item."},
    {"most", 0, "N", "The first N samples alone."},
    {"keep-going", 0, "",
     "Leave out what cannot be used, name it, and end with status 8. Without it no list is written "
     "then, and the status is 3."},
    {"resume", 0, "",
     "Go on in FOLDER: a tensor that is whole, by its hash, and was made of the same source by the "
     "same recipe stays."},
    {"jobs", 0, "N", "Processes that work at once; as many as there are cores without."},
    {"time", 0, "SECONDS", "The longest that one item may take; 60 without."},
    {"memory", 0, "MB", "The most memory that one process may take; 4096 without."},
    {"dry-run", 0, "", "Find and check everything, and write nothing."},
    {"recipes", 0, "", "List the recipes that are ready."},
    {"show-recipe", 0, "RECIPE", "Print a recipe as JSON, to make another of it."},
    {"json", 0, "", "Print on standard output what was made."},
    {"quiet", 'q', "", "Say nothing on standard error but why it could not go on."},
};

constexpr Verb kPrepare{
    .name = "prepare",
    .summary = "tensors and a list out of pictures, arrays and test folders",
    .forms = kForms,
    .about =
        "Makes what a model takes out of what people have, in processes of their own, so that a\n"
        "broken picture costs a line and no more. What a file is, its bytes say. Sizes, shapes\n"
        "and types are held against the model before anything is written; each tensor is noted\n"
        "in manifest.json with its source, hashes, recipe and decoder.\n"
        "\n"
        "Ends with 0: all is made; 2: usage; 3: a source cannot be used; 4: the model; 7: disk,\n"
        "or it was stopped; 8: some were left out, with --keep-going.",
    .options = kOptions,
    .example =
        "build/release/vorn prepare -m examples/digits/digits.onnx --input "
        "examples/digits/pictures "
        "-o build/digits.inputs",
};

volatile sig_atomic_t isAskedToStop = 0;

void AskToStop(int /*signal*/) { isAskedToStop = 1; }

void StopInOrder() {
  struct sigaction action {};
  action.sa_handler = AskToStop;
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction before {};
    if (sigaction(signal, nullptr, &before) == 0 && before.sa_handler != SIG_IGN) {
      sigaction(signal, &action, nullptr);
    }
  }
}

ModelDescription DescribeModel(const Arguments& arguments) {
  if (const auto path = arguments.Get("model-json")) {
    for (const char* other : {"model", "config", "runtime"}) {
      if (arguments.Has(other)) {
        throw Fault(ExitStatus::kUsage, "--model-json takes the place of --" + std::string(other) +
                                            "; leave one of them out");
      }
    }
    return FromJson(
        ReadWholeFile(*path, "the description", ExitStatus::kModel, kMostDescriptionBytes));
  }
  if (!arguments.Has("model")) {
    throw Fault(ExitStatus::kUsage, "-m MODEL or --model-json FILE is missing; --help tells more");
  }
  return DescribeFiles({.modelPath = arguments.Need("model"),
                        .configPath = arguments.Get("config"),
                        .runtimePath = arguments.Get("runtime").value_or("libvorn.so")});
}

Job JobOf(const Arguments& arguments, const ModelDescription& model) {
  const std::vector<std::string> sources = arguments.GetAll("input");
  const std::vector<std::string> recipes = arguments.GetAll("recipe");
  const std::vector<std::string> randoms = arguments.GetAll("random");
  if (const auto job = arguments.Get("job")) {
    if (!sources.empty() || !recipes.empty() || !randoms.empty() || arguments.Has("count")) {
      throw Fault(ExitStatus::kUsage,
                  "--job takes the place of --input, --recipe, --random and --count");
    }
    return ReadJob(*job);
  }
  Job named;
  named.inputs = InputsFromWords(sources, recipes, randoms, model);
  if (arguments.Has("count")) named.count = arguments.GetNumber("count", 1, 1, kMostSamples);
  return named;
}

std::string ProgressText(const PrepareProgress& progress) {
  std::string text = std::to_string(progress.done) + " of " + Counted(progress.all, "tensor");
  if (progress.faults > 0) text += ", " + Counted(progress.faults, "fault");
  return text;
}

std::string ResultJson(const PrepareResult& result) {
  Json left = Json::Array();
  for (const LeftOut& one : result.left) {
    left.Append(Json::Object({{"source", one.source}, {"reason", one.reason}}));
  }
  return ToText(Json::Object({{"schema", 1},
                              {"samples", result.samples},
                              {"made", result.made},
                              {"kept", result.kept},
                              {"list", result.list},
                              {"thresholds", Json::ArrayOf(result.thresholds)},
                              {"sizeBytes", result.sizeBytes},
                              {"left", left},
                              {"remarks", Json::ArrayOf(result.remarks)}}),
                2) +
         "\n";
}

void Tell(const PrepareRequest& request, const PrepareResult& result) {
  for (const std::string& remark : result.remarks) {
    std::fprintf(stderr, "vorn prepare: %s\n", remark.c_str());
  }
  for (const std::string& reason : FoldedReasons(result.left)) {
    std::fprintf(stderr, "vorn prepare: left out: %s\n", reason.c_str());
  }
  if (request.isDryRun) {
    std::fprintf(stderr, "vorn prepare: %s, %s; nothing is written\n",
                 Counted(result.samples, "sample").c_str(), SizeText(result.sizeBytes).c_str());
    return;
  }
  std::string kept;
  if (result.kept > 0) kept = ", " + std::to_string(result.kept) + " of them as they were";
  std::fprintf(stderr, "vorn prepare: %s of %s%s; the list is %s\n",
               Counted(result.made + result.kept, "tensor").c_str(),
               request.batch > 1 ? (std::to_string(result.samples) +
                                    (result.samples == 1 ? " batch of " : " batches of ") +
                                    std::to_string(request.batch))
                                       .c_str()
                                 : Counted(result.samples, "sample").c_str(),
               kept.c_str(), Quoted(result.list).c_str());
  std::string files;
  for (const std::string& file : result.thresholds) files += (files.empty() ? "" : ",") + file;
  if (!files.empty()) {
    std::fprintf(stderr, "vorn prepare: the thresholds are -r %s\n", files.c_str());
  }
}

void ListRecipes() {
  TextTable table({{"recipe"}, {"what it does"}});
  for (const std::string& name : ReadyRecipes()) table.Add({name, AboutReadyRecipe(name)});
  const std::string text = table.Text();
  std::fwrite(text.data(), 1, text.size(), stdout);
}

PrepareRequest RequestOf(const Arguments& arguments) {
  PrepareRequest request;
  request.folder = arguments.Need("output");
  while (request.folder.size() > 1 && request.folder.back() == '/') request.folder.pop_back();
  if (request.folder.empty()) throw Fault(ExitStatus::kUsage, "--output names nothing");
  request.model = DescribeModel(arguments);
  Job job = JobOf(arguments, request.model);
  request.inputs = std::move(job.inputs);
  request.count = job.count;
  request.thresholds = std::move(job.thresholds);
  request.batch = arguments.GetNumber("batch", 1, 1, kMostNumber);
  if (arguments.Has("most")) request.most = arguments.GetNumber("most", 0, 1, kMostNumber);
  request.areFaultsLeftOut = arguments.Has("keep-going");
  request.isResumed = arguments.Has("resume");
  request.isDryRun = arguments.Has("dry-run");
  const size_t cores = std::max(1U, std::thread::hardware_concurrency());
  request.workers = arguments.GetNumber("jobs", cores, 1, kMostWorkers);
  request.time = std::chrono::seconds(arguments.GetNumber("time", 60, 1, kMostNumber));
  request.memoryBytes = arguments.GetNumber("memory", 4096, 16, kMostMegabytes) << 20;
  request.command = OwnCommand("prepare");
  request.version = VORN_VERSION;
  return request;
}

ExitStatus PrepareInputs(const Arguments& arguments) {
  if (arguments.Has("recipes")) {
    ListRecipes();
    return ExitStatus::kDone;
  }
  if (const auto name = arguments.Get("show-recipe")) {
    const std::string text = ToText(ToJson(FindRecipe(*name)), 2) + "\n";
    std::fwrite(text.data(), 1, text.size(), stdout);
    return ExitStatus::kDone;
  }
  const PrepareRequest request = RequestOf(arguments);
  const bool isQuiet = arguments.Has("quiet");
  StopInOrder();
  ProgressLine line(isQuiet);
  const PrepareResult result = Prepare(
      request,
      [&](const PrepareProgress& progress) { line.Show([&] { return ProgressText(progress); }); },
      [] { return isAskedToStop != 0; });
  line.Clear();
  if (!isQuiet) Tell(request, result);
  if (arguments.Has("json")) {
    const std::string text = ResultJson(result);
    std::fwrite(text.data(), 1, text.size(), stdout);
  }
  return result.left.empty() ? ExitStatus::kDone : ExitStatus::kPartial;
}

}  // namespace
}  // namespace vorn::kit

int main(int argc, char** argv) {
  return vorn::kit::RunVerb(vorn::kit::kPrepare, argc, argv, vorn::kit::PrepareInputs);
}
