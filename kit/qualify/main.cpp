// vorn-qualify: a device against its reference, in one command.
#include <cstdio>

#include "kit/common/command_line.h"
#include "kit/common/file_identity.h"
#include "kit/common/printable.h"
#include "kit/qualify/qualification.h"
#include "kit/qualify/summary.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostNumber = INT32_MAX;

constexpr std::string_view kForms[] = {
    "--model MODEL --input [NAME=]SOURCE... --reference MODEL --run RUN [OPTION...]",
    "QUALIFICATION.json [--run RUN] [OPTION...]",
};

constexpr Option kOptions[] = {
    {"model", 'm', "FILE", "The device's model."},
    {"config", 'j', "FILE", "The configuration of the device's runtime; without it an empty one."},
    {"runtime", 0, "FILE", "The device's libvorn.so; without it the one that vorn-run would get."},
    {"program", 0, "FILE",
     "The vorn-run of the device, or a script that does, as vorn launch takes it."},
    {"input", 0, "[NAME=]SOURCE", "What the device is given, as vorn prepare takes it.", true},
    {"recipe", 0, "[NAME=]RECIPE", "How pictures become tensors, as vorn prepare takes it.", true},
    {"reference", 0, "FILE", "The reference's model, which runs on the host runtime."},
    {"reference-config", 0, "FILE", "Its configuration; without it an empty one."},
    {"reference-runtime", 0, "FILE", "Another libvorn.so for the reference."},
    {"reference-input", 0, "[NAME=]SOURCE",
     "What the reference is given, where its inputs have other names. Without it the same.", true},
    {"reference-recipe", 0, "[NAME=]RECIPE",
     "How pictures become tensors of the reference. Without it as for the device.", true},
    {"floor", 0, "CONFIG",
     "A configuration that rounds the reference as the device does ({\"model\": {\"round\": "
     "...}}): "
     "the reference is run with it, too, and vorn judge --floor tells whether the device loses "
     "more "
     "than that has to."},
    {"expected", 0, "PATH", "Instead of a reference: what is expected, as vorn judge takes it."},
    {"run", 0, "RUN",
     "The folder for all of it. A second time in the same folder makes again only what changed."},
    {"batch", 'b', "N", "Items of a batch, of both."},
    {"most", 0, "N", "The first N samples alone."},
    {"chunk", 0, "N", "Samples a process of vorn-run, as vorn launch takes it."},
    {"keep-going", 0, "", "Leave out sources that cannot be used, and say so."},
    {"map", 0, "FILE", "Pairs outputs of other names, layouts, types, as vorn judge takes it."},
    {"rules", 0, "FILE", "What differences are right, as vorn judge takes it."},
    {"preset", 0, "NAME", "The same by name: float32, float16, bfloat16, onnx, exact."},
    {"labels", 0, "FILE", "What is really to be seen, as vorn judge takes it."},
    {"json", 0, "", "Print RUN/qualify.json on standard output, not the summary."},
    {"quiet", 'q', "",
     "Say nothing of the steps on standard error but why one could not be taken."},
};

constexpr Verb kQualify{
    .name = "qualify",
    .summary = "a device against its reference, from pictures to a verdict",
    .forms = kForms,
    .about =
        "Prepares the inputs of the device and of the reference, runs both, judges the outputs of\n"
        "the one by the other's, and prints what ran on what, right or wrong and why, and how\n"
        "fast. Every step is a verb, and is said as a command that can be called alone. The same\n"
        "as a file: {\"schema\": 1, \"run\", \"device\": {\"model\", \"config\", \"runtime\", "
        "\"inputs\"},\n"
        "\"reference\": {the same}, \"floor\", \"expected\", \"batch\", \"most\", \"chunk\", "
        "\"map\",\n"
        "\"rules\", \"preset\", \"labels\"}, where \"inputs\" are those of a job of vorn prepare; "
        "a\n"
        "reference without any has the device's.\n"
        "\n"
        "Ends with the status of the steps: 0 if all is right, 6 if outputs differ, 8 if samples\n"
        "are missing, and that of the step that failed.",
    .options = kOptions,
    .example =
        "build/release/vorn qualify -m examples/digits/digits.onnx --input "
        "examples/digits/pictures "
        "--expected examples/digits/expected.npy --run build/digits.qualified",
    .mostOperands = 1,
};

QualifiedSide SideOf(const Arguments& arguments, const std::string& front) {
  QualifiedSide side;
  side.config = arguments.Get(front + "config");
  side.runtime = arguments.Get(front + "runtime");
  side.inputs = arguments.GetAll(front + "input");
  side.recipes = arguments.GetAll(front + "recipe");
  return side;
}

Qualification FromOptions(const Arguments& arguments) {
  Qualification qualification;
  qualification.device = SideOf(arguments, "");
  qualification.device.model = arguments.Need("model");
  qualification.device.program = arguments.Get("program");
  qualification.expected = arguments.Get("expected");
  qualification.floor = arguments.Get("floor");
  if (const auto model = arguments.Get("reference")) {
    QualifiedSide side = SideOf(arguments, "reference-");
    side.model = *model;
    if (side.inputs.empty()) side.inputs = qualification.device.inputs;
    if (side.recipes.empty()) side.recipes = qualification.device.recipes;
    qualification.reference = std::move(side);
    return qualification;
  }
  for (const char* other :
       {"reference-config", "reference-runtime", "reference-input", "reference-recipe", "floor"}) {
    if (arguments.Has(other)) {
      throw Fault(ExitStatus::kUsage,
                  "--" + std::string(other) + " stands without --reference MODEL");
    }
  }
  return qualification;
}

Qualification FromFile(const Arguments& arguments) {
  for (const char* other :
       {"model", "config", "runtime", "input", "recipe", "reference", "reference-config",
        "reference-runtime", "reference-input", "reference-recipe", "expected", "floor"}) {
    if (arguments.Has(other)) {
      throw Fault(ExitStatus::kUsage, "--" + std::string(other) +
                                          " stands beside a file, which says it; change it there");
    }
  }
  return ReadQualification(arguments.Operands().front());
}

void Complete(const Arguments& arguments, Qualification& qualification) {
  if (const auto run = arguments.Get("run")) qualification.run = *run;
  while (qualification.run.size() > 1 && qualification.run.back() == '/') {
    qualification.run.pop_back();
  }
  if (qualification.run.empty()) {
    throw Fault(ExitStatus::kUsage, "--run RUN is missing; --help tells more");
  }
  qualification.batch = arguments.GetNumber("batch", qualification.batch, 1, kMostNumber);
  if (arguments.Has("most")) qualification.most = arguments.GetNumber("most", 0, 1, kMostNumber);
  if (arguments.Has("chunk")) {
    qualification.chunk = arguments.GetNumber("chunk", 0, 1, kMostNumber);
  }
  qualification.areFaultsLeftOut = arguments.Has("keep-going");
  for (const char* name : {"map", "rules", "preset", "labels"}) {
    if (const auto value = arguments.Get(name)) {
      qualification.judgeWords.insert(qualification.judgeWords.end(),
                                      {std::string("--") + name, *value});
    }
  }
}

ExitStatus QualifyDevice(const Arguments& arguments) {
  Qualification qualification =
      arguments.Operands().empty() ? FromOptions(arguments) : FromFile(arguments);
  Complete(arguments, qualification);
  qualification.isQuiet = arguments.Has("quiet");
  const std::vector<QualifyStep> steps = Qualify(qualification, [&](const QualifyStep& step) {
    if (!qualification.isQuiet && !step.status) {
      std::fprintf(stderr, "vorn qualify: %s\n", CommandText(step.call).c_str());
    }
  });
  const std::string text = arguments.Has("json")
                               ? ReadWholeFile(qualification.run + "/qualify.json", "the record",
                                               ExitStatus::kOwnFault, 64 << 20)
                               : SummaryText(qualification, steps);
  std::fwrite(text.data(), 1, text.size(), stdout);
  return StatusOf(steps);
}

}  // namespace
}  // namespace vorn::kit

int main(int argc, char** argv) {
  return vorn::kit::RunVerb(vorn::kit::kQualify, argc, argv, vorn::kit::QualifyDevice);
}
