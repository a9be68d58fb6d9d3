// The sizes and times of one run, and the two ways to show them: the console report and a CSV file.
#ifndef VORN_SRC_COMMON_PERF_INFO_H_
#define VORN_SRC_COMMON_PERF_INFO_H_

#include <cstdint>
#include <string>

#include "vorn/vorn.h"

namespace vorn::run {

/// Sizes in bytes (32 bits, wrapping), times in milliseconds.
struct PerfInfo {
  uint32_t inputSize = 0;  ///< all data inputs, one batch item
  uint32_t taskBufSize = 0;
  uint32_t workBufSize = 0;
  uint32_t outputSize = 0;  ///< all outputs, one batch item
  uint32_t omSize = 0;      ///< the model file
  double readModelFileTime = 0;
  double modelLoadTime = 0;
  /// Executions per inference. 21 is what profiling uses; without it, execution lowers it to 1.
  uint32_t executeCount = 21;
  double executeTime = 0;  ///< all executions of the latest inference together
};

/// The record of this process. Main thread only; never reset.
extern PerfInfo g_perfInfo;

/// Adds the model's buffer sizes, as its description reports them, to the size fields. The last two
/// inputs count as task buffer and work buffer, whatever they are.
void CollectModelSizes(PerfInfo& perfInfo, const vorn_mdl_desc* modelDesc);

/// Prints the report: sizes in KB (1024 bytes), the execute time as the mean of one execution.
void PrintPerfInfo(const PerfInfo& perfInfo);

/// Writes the report as a header line and a data line, replacing the file. A file that cannot be
/// opened is silently left alone. Readers of the file rely on its columns as they are: the
/// output size before the work buffer size, the last of the nine columns empty.
void WriteProfileCsv(const PerfInfo& perfInfo, const std::string& path);

}  // namespace vorn::run

#endif  // VORN_SRC_COMMON_PERF_INFO_H_
