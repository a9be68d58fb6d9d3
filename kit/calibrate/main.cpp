// vorn-calibrate: the ranges of all tensors inside a network.
#include <chrono>

#include "kit/calibrate/calibrate.h"
#include "kit/common/command_line.h"
#include "kit/common/printable.h"
#include "kit/common/whole_file.h"
#include "kit/launch/console.h"

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
    {"total-t", 't', "N", "Frames of a sequence, as vorn-run takes it."},
    {"thresholds", 'r', "FILES", "Files of thresholds, with commas between them."},
    {"most", 0, "N", "The first N inferences alone."},
    {"part", 0, "N",
     "How many inferences lie on the disk at once, with all of their inner tensors. Without it as "
     "many as take about 2 GB, fewer where the disk has less, and one at least."},
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
        "that are: a hundred, unlike each other, are better than a thousand alike.\n"
        "\n"
        "Tensors whose shape depends on the data, as behind what picks boxes out, are measured "
        "where\n"
        "CONFIG names them in \"expose\", with their largest sizes in \"outputDims\".\n"
        "\n"
        "The dumps of all inner tensors lie in RANGES.json.PID.work, a part of the list after the\n"
        "other, and are gone at its end, also where a signal asks it to end. One that was killed\n"
        "leaves its folder, which the next calibrate with the same -o removes.",
    .options = kOptions,
    .example =
        "build/release/vorn calibrate -m examples/digits/digits.onnx -i examples/digits/list.txt "
        "--most 50 -o build/digits.ranges.json",
};

Ranges Measure(const CalibrateRequest& request, Console& console) {
  const auto began = std::chrono::steady_clock::now();
  const CalibrateWatch watch{
      [&](const std::string& line) { console.Say(line); },
      [&](uint64_t done, uint64_t all) {
        const auto elapsed = std::chrono::steady_clock::now() - began;
        console.Show({.series = "",
                      .done = done,
                      .all = all,
                      .doneHere = done,
                      .faults = 0,
                      .elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(elapsed)});
      }};
  return MeasureRanges(request, watch);
}

ExitStatus Calibrate(const Arguments& arguments) {
  CalibrateRequest request;
  request.model = arguments.Need("model");
  request.config = arguments.Get("config");
  request.list = arguments.Need("list");
  const std::string output = arguments.Need("output");
  request.output = output;
  request.batch = arguments.GetNumber("batch", 1, 1, kMostNumber);
  request.thresholds = arguments.Get("thresholds");
  if (arguments.Has("total-t")) {
    request.totalT = static_cast<int64_t>(arguments.GetNumber("total-t", 1, 1, kMostNumber));
  }
  if (arguments.Has("most")) request.most = arguments.GetNumber("most", 0, 1, kMostNumber);
  if (arguments.Has("part")) request.part = arguments.GetNumber("part", 0, 1, kMostNumber);
  Console console(arguments.Has("quiet"), "calibrate");
  const Ranges ranges = Measure(request, console);
  WriteWholeFile(output, RangesJson(ranges));
  for (const auto& [name, range] : ranges.tensors) {
    if (range.notFinite == 0) continue;
    console.Say(Counted(range.notFinite, "value") + " of " + Quoted(name) +
                ": NaN or infinite, and left out");
  }
  console.Say(Counted(ranges.tensors.size(), "tensor") + " over " +
              Counted(ranges.samples, "inference") + "; the file is " + Quoted(output));
  return ExitStatus::kDone;
}

}  // namespace
}  // namespace vorn::kit

int main(int argc, char** argv) {
  return vorn::kit::RunVerb(vorn::kit::kCalibrate, argc, argv, vorn::kit::Calibrate);
}
