// vorn-inspect: what a model takes and gives.
#include <cstdio>

#include "kit/common/command_line.h"
#include "kit/common/file_identity.h"
#include "kit/model/model_json.h"
#include "kit/model/model_text.h"
#include "kit/model/run_log.h"
#include "kit/runtime/describe.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostLogBytes = 256 << 20;
constexpr uint64_t kMostBatch = UINT32_MAX;

constexpr std::string_view kForms[] = {
    "-m MODEL [-j CONFIG] [--runtime FILE] [-b N] [--json | --layout NAME]",
    "--log FILE [-b N] [--json | --layout NAME]",
};

constexpr Option kOptions[] = {
    {"model", 'm', "FILE", "The model."},
    {"config", 'j', "FILE", "The runtime's JSON configuration; without it an empty one."},
    {"runtime", 0, "FILE",
     "The libvorn.so to ask. Without it the one that vorn-run beside this program would get, which "
     "LD_LIBRARY_PATH decides first."},
    {"log", 0, "FILE",
     "Read the description out of what vorn-run printed, on a board for instance, and ask no "
     "runtime."},
    {"batch", 'b', "N", "Give the sizes of files and blocks for N items, not for one."},
    {"layout", 0, "NAME", "Draw rows, padding and items of this input or output."},
    {"json", 0, "", "Print model.json, of one item whatever the batch."},
};

constexpr Verb kInspect{
    .name = "inspect",
    .summary = "what a model takes and gives",
    .forms = kForms,
    .about =
        "Loads the model once, in a process of its own, and prints its inputs and outputs with\n"
        "shape, element type, the bytes that a file has to hold, the stride of rows and the\n"
        "bytes on the device; the scratch buffers; which libvorn.so was asked.",
    .options = kOptions,
    .example = "build/release/vorn inspect -m examples/digits/digits.onnx",
};

ModelDescription ReadLog(const Arguments& arguments) {
  for (const char* other : {"model", "config", "runtime"}) {
    if (arguments.Has(other)) {
      throw Fault(ExitStatus::kUsage,
                  "--log takes the place of --" + std::string(other) + "; leave one of them out");
    }
  }
  return ReadRunLog(
      ReadWholeFile(arguments.Need("log"), "the log", ExitStatus::kInput, kMostLogBytes));
}

ModelDescription AskRuntime(const Arguments& arguments) {
  if (!arguments.Has("model")) {
    throw Fault(ExitStatus::kUsage, "-m MODEL or --log FILE is missing; --help tells more");
  }
  return DescribeFiles({.modelPath = arguments.Need("model"),
                        .configPath = arguments.Get("config"),
                        .runtimePath = arguments.Get("runtime").value_or("libvorn.so")});
}

ExitStatus Inspect(const Arguments& arguments) {
  const uint64_t batch = arguments.GetNumber("batch", 1, 1, kMostBatch);
  if (arguments.Has("json") && arguments.Has("layout")) {
    throw Fault(ExitStatus::kUsage, "--json and --layout exclude each other");
  }
  const ModelDescription description =
      arguments.Has("log") ? ReadLog(arguments) : AskRuntime(arguments);
  std::string text;
  if (arguments.Has("json")) {
    text = ToJson(description);
  } else if (const auto name = arguments.Get("layout")) {
    text = DrawLayout(FindTensor(description, *name), batch);
  } else {
    text = DescribeModel(description, batch);
  }
  std::fwrite(text.data(), 1, text.size(), stdout);
  return ExitStatus::kDone;
}

}  // namespace
}  // namespace vorn::kit

int main(int argc, char** argv) {
  return vorn::kit::RunVerb(vorn::kit::kInspect, argc, argv, vorn::kit::Inspect);
}
