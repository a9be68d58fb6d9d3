// The state of one run, and the runtime's life around it.
#ifndef VORN_SRC_SAMPLE_SAMPLE_PROCESS_H_
#define VORN_SRC_SAMPLE_SAMPLE_PROCESS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "model/processing_loop.h"
#include "vorn/vorn.h"

namespace vorn::run {

/// `InitResource`, then `Process` if that succeeded; the destructor takes the runtime down in every
/// case. Lives on one thread, on which the runtime's context is current in between.
class SampleProcess {
 public:
  /// Touches no runtime state.
  SampleProcess(const std::string& modelFile, const std::vector<std::string>& inputFiles,
                const std::string& jsonPath, const std::string& outputPath);
  SampleProcess(const SampleProcess&) = delete;
  SampleProcess& operator=(const SampleProcess&) = delete;
  ~SampleProcess();

  /// Brings the runtime up: configuration, device, operator wait time-out, context, stream, run
  /// mode. Returns 1 after printing the first step that failed; nothing is rolled back here, the
  /// destructor does that. The settings hold in either case.
  [[nodiscard]] int InitResource(std::vector<std::string> rpnFiles, int32_t batchSize,
                                 int32_t nlpTotalT, int32_t profile);

  /// Runs the model over all inputs; see `ModelRun`. Needs a runtime that is up.
  [[nodiscard]] int Process();

 private:
  [[nodiscard]] int OpenDevice() const;
  [[nodiscard]] int CreateContextAndStream();
  void DestroyResource();

  ModelRun run_;
  std::string jsonFile_;
  int32_t deviceId_ = 0;
  vorn_rt_context* context_ = nullptr;
  vorn_rt_stream* stream_ = nullptr;
};

}  // namespace vorn::run

#endif  // VORN_SRC_SAMPLE_SAMPLE_PROCESS_H_
