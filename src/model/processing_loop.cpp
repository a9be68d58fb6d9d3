// A run as a list of steps, and an inference as another.
#include "model/processing_loop.h"

#include <span>
#include <string>
#include <vector>

#include "common/log.h"
#include "common/path.h"
#include "model/division.h"
#include "model/model_process.h"
#include "model/sort_inputs.h"

namespace vorn::run {
namespace {

// Fails at the first entry that is too short or too long for a path; the entries before it are
// resolved by then. Leaves `status` as it is for an empty list.
int ResolveInputFiles(std::vector<std::string>& inputFiles, int& status) {
  for (std::string& file : inputFiles) {
    status = GetRealPath(file, file);
    if (status != 0) return 1;
  }
  return 0;
}

int RunInference(ModelProcess& model, std::span<const std::string> files,
                 const std::string& outputPath) {
  InputDataset& inputs = model.Inputs();
  if (inputs.InitInput() != 0) {
    PrintLine("[ERROR] execute InitInput failed\n");
    return 1;
  }
  if (inputs.CreateInputBuf(files) != 0) {
    PrintLine("[ERROR] CreateInputBuf failed\n");
    return 1;
  }
  if (inputs.SetBatchSize() != 0) {
    PrintLine("[ERROR] Set batch size failed\n");
    return 1;
  }
  if (inputs.SetRpnData() != 0) {
    PrintLine("[ERROR] Set rpn data failed\n");
    return 1;
  }
  if (inputs.CreateTaskBufAndWorkBuf() != 0) {
    PrintLine("[ERROR] CreateTaskBufAndWorkBuf failed\n");
    return 1;
  }
  if (model.Execute() != 0) {
    PrintLine("[ERROR] execute inference failed\n");
    inputs.DestroyInput();
    return 1;
  }
  model.DumpOutputData(outputPath);
  inputs.DestroyInput();
  return 0;
}

int RunAllInferences(ModelProcess& model, const ResolvedPaths& paths,
                     const std::string& outputPath) {
  const uint64_t inputNum = model.Inputs().GetInputNum() - paths.rpnFiles.size();
  PrintLine("[INFO]  Model inputNum: %zu\n", inputNum);
  const uint64_t iterations = DivideOrFault(paths.inputFiles.size(), inputNum);
  PrintLine("[INFO]  Model Iters : %zu\n", iterations);

  const std::span files(paths.inputFiles);
  for (uint64_t i = 0; i < iterations; ++i) {
    if (RunInference(model, files.subspan(i * inputNum, inputNum), outputPath) != 0) return 1;
  }
  return 0;
}

}  // namespace

int Process(const SampleOptions& options, ResolvedPaths& paths) {
  ModelProcess model(paths.rpnFiles, static_cast<uint32_t>(options.batchSize), options.nlpTotalT,
                     static_cast<uint32_t>(options.profile));
  if (model.LoadModelFromFileWithMem(paths.modelFile) != 0) {
    PrintLine("[ERROR] execute LoadModelFromFileWithMem failed\n");
    return 1;
  }
  std::vector<std::string> inputNames;
  // One status for the description and the paths, on purpose: paths that resolve overrule a
  // description that failed.
  int status = model.CreateDesc(inputNames);
  SortInputsByName(paths.inputFiles, inputNames);
  if (ResolveInputFiles(paths.inputFiles, status) != 0) return 1;
  // An empty list would leave the status; but a description that failed leaves no input names
  // either, and sorting has then divided by their count.
  if (status != 0) {
    PrintLine("[ERROR] execute CreateDesc failed\n");
    return 1;
  }
  if (model.CreateOutput() != 0) {
    PrintLine("[ERROR] execute CreateOutput failed\n");
    return 1;
  }
  return RunAllInferences(model, paths, options.outputPath);
}

}  // namespace vorn::run
