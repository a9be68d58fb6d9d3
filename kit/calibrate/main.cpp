// vorn-calibrate: the ranges of all tensors inside a network.
#include <unistd.h>

#include <cstdio>

#include "kit/calibrate/calibrate.h"
#include "kit/common/command_line.h"
#include "kit/common/printable.h"
#include "kit/common/progress_line.h"
#include "kit/common/whole_file.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostNumber = INT32_MAX;

constexpr std::string_view kForms[] = {"-m MODEL [-j CONFIG] -i LIST -o RANGES.json"};

constexpr Option kOptions[] = {
    {"model", 'm', "FILE", "The model, as ONNX: the host runtime opens it."},
    {"config", 'j', "FILE", "Its configuration; without it an empty one."},
    {"list", 'i', "FILE", "The list of inputs to measure over, as vorn-run takes it."},
    {"output", 'o', "FILE", "Where the ranges go."},
    {"batch", 'b', "N", "Items of a batch, as vorn-run takes it."},
    {"most", 0, "N", "The first N inferences alone."},
    {"part", 0, "N",
     "How many inferences lie on the disk at once, with all of their inner tensors; 16 without."},
    {"quiet", 'q', "", "Say nothing on standard error but why it could not go on."},
};

constexpr Verb kCalibrate{
    .name = "calibrate",
    .summary = "the ranges of all tensors inside a network, for rounding it to 8 bits",
    .forms = kForms,
    .about =
        "Runs the model on the host runtime with every inner tensor given, and notes the least\n"
        "and the largest finite value of each. The file is what \"round\": {\"int8\": "
        "\"RANGES.json\"}\n"
        "of the host runtime's configuration takes. Inputs that are representative make ranges\n"
        "that are: a hundred, unlike each other, are better than a thousand alike.",
    .options = kOptions,
    .example =
        "build/release/vorn calibrate -m examples/digits/digits.onnx -i examples/digits/list.txt "
        "--most 50 -o build/digits.ranges.json",
};

ExitStatus Calibrate(const Arguments& arguments) {
  CalibrateRequest request;
  request.model = arguments.Need("model");
  request.config = arguments.Get("config");
  request.list = arguments.Need("list");
  const std::string output = arguments.Need("output");
  request.work = output + "." + std::to_string(getpid()) + ".work";
  request.batch = arguments.GetNumber("batch", 1, 1, kMostNumber);
  if (arguments.Has("most")) request.most = arguments.GetNumber("most", 0, 1, kMostNumber);
  request.part = arguments.GetNumber("part", request.part, 1, kMostNumber);
  ProgressLine line(arguments.Has("quiet"));
  const Ranges ranges = MeasureRanges(request, [&](uint64_t done, uint64_t all) {
    line.Show([&] { return std::to_string(done) + " of " + Counted(all, "inference"); });
  });
  line.Clear();
  WriteWholeFile(output, RangesJson(ranges));
  if (arguments.Has("quiet")) return ExitStatus::kDone;
  for (const auto& [name, range] : ranges.tensors) {
    if (range.notFinite == 0) continue;
    std::fprintf(stderr, "vorn calibrate: %s of %s: NaN or infinite, and left out\n",
                 Counted(range.notFinite, "value").c_str(), Quoted(name).c_str());
  }
  std::fprintf(stderr, "vorn calibrate: %s over %s; the file is %s\n",
               Counted(ranges.tensors.size(), "tensor").c_str(),
               Counted(ranges.samples, "inference").c_str(), Quoted(output).c_str());
  return ExitStatus::kDone;
}

}  // namespace
}  // namespace vorn::kit

int main(int argc, char** argv) {
  return vorn::kit::RunVerb(vorn::kit::kCalibrate, argc, argv, vorn::kit::Calibrate);
}
