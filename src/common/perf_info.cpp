// The statistics' own arithmetic, and their two forms as text.
#include "common/perf_info.h"

#include <fstream>
#include <iomanip>

#include "common/log.h"
#include "common/model_io.h"

namespace vorn::run {

PerfInfo g_perfInfo;

namespace {

double ToKb(uint32_t bytes) { return static_cast<double>(bytes) * 0.0009765625; }

double MeanExecuteTime(const PerfInfo& perfInfo) {
  return perfInfo.executeTime / perfInfo.executeCount;
}

// The index `back` places before the end, in 32 bits: below 0 where the model has fewer inputs.
int32_t IndexFromEnd(uint64_t inputs, uint32_t back) {
  return static_cast<int32_t>(static_cast<uint32_t>(inputs) - back);
}

uint32_t InputSize(const vorn_mdl_desc* modelDesc, int32_t index) {
  // An index below 0 is widened with its sign, for the runtime to refuse.
  const auto wideIndex = static_cast<uint64_t>(static_cast<int64_t>(index));
  return static_cast<uint32_t>(vorn_mdl_get_input_size_by_index(modelDesc, wideIndex));
}

}  // namespace

void CollectModelSizes(PerfInfo& perfInfo, const vorn_mdl_desc* modelDesc) {
  const uint64_t inputs = vorn_mdl_get_num_inputs(modelDesc);
  const uint64_t outputs = vorn_mdl_get_num_outputs(modelDesc);
  const int32_t taskBuffer = IndexFromEnd(inputs, kScratchInputs);
  for (int32_t i = 0; i < taskBuffer; ++i) perfInfo.inputSize += InputSize(modelDesc, i);
  perfInfo.taskBufSize = InputSize(modelDesc, taskBuffer);
  perfInfo.workBufSize = InputSize(modelDesc, IndexFromEnd(inputs, 1));
  for (uint64_t i = 0; i < outputs; ++i) {
    perfInfo.outputSize += static_cast<uint32_t>(vorn_mdl_get_output_size_by_index(modelDesc, i));
  }
}

void PrintPerfInfo(const PerfInfo& perfInfo) {
  PrintLine("[INFO]  ===================================================\n");
  PrintLine("[INFO]  Input Size:                %.3f KB.\n", ToKb(perfInfo.inputSize));
  PrintLine("[INFO]  Task Buffer Size:          %.3f KB.\n", ToKb(perfInfo.taskBufSize));
  PrintLine("[INFO]  Work Buffer Size:          %.3f KB.\n", ToKb(perfInfo.workBufSize));
  PrintLine("[INFO]  Output Size:               %.3f KB.\n", ToKb(perfInfo.outputSize));
  PrintLine("[INFO]  Om Size:                   %.3f KB.\n", ToKb(perfInfo.omSize));
  PrintLine("[INFO]  ---------------------------------------------------\n");
  PrintLine("[INFO]  Read Model File Time:      %.2f ms\n", perfInfo.readModelFileTime);
  PrintLine("[INFO]  Model Load Time:           %.2f ms\n", perfInfo.modelLoadTime);
  PrintLine("[INFO]  Model Execute Time:        %.2f ms\n", MeanExecuteTime(perfInfo));
  PrintLine("[INFO]  ===================================================\n");
}

void WriteProfileCsv(const PerfInfo& perfInfo, const std::string& path) {
  std::ofstream file(path);
  file << "Model Load Time(ms),Read Model File Time(ms),Model Execute Time(ms),Input Size(KB),"
          "Task Buffer Size(KB),Output Size(KB),Mapper Temp Buffer(KB),Online Model Size(KB),"
          "Vorn Init Memory Size(KB)\n";
  file << std::fixed << std::setprecision(2);
  file << perfInfo.modelLoadTime << ',' << perfInfo.readModelFileTime << ','
       << MeanExecuteTime(perfInfo) << ',';
  file << std::setprecision(3);
  file << ToKb(perfInfo.inputSize) << ',' << ToKb(perfInfo.taskBufSize) << ','
       << ToKb(perfInfo.outputSize) << ',' << ToKb(perfInfo.workBufSize) << ','
       << ToKb(perfInfo.omSize) << ",\n";
}

}  // namespace vorn::run
