// The outcome line comes before the teardown, which the destructor does.
#include "sample/run_sample.h"

#include "common/log.h"
#include "sample/sample_process.h"

namespace vorn::run {

int RunSample(const SampleOptions& options, const ResolvedPaths& paths) {
  SampleProcess sample(paths.modelFile, paths.inputFiles, paths.jsonFile, options.outputPath);
  if (sample.InitResource(paths.rpnFiles, options.batchSize, options.nlpTotalT, options.profile) !=
      0) {
    PrintLine("[ERROR] sample init resource failed\n");
    return 1;
  }
  if (sample.Process() != 0) {
    PrintLine("[ERROR] sample process failed\n");
    return 1;
  }
  PrintLine("[INFO]  execute sample success\n");
  return 0;
}

}  // namespace vorn::run
