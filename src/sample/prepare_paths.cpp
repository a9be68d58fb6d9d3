// Standard output shows the order in which paths are checked.
#include "sample/prepare_paths.h"

#include "common/path.h"
#include "sample/input_list.h"

namespace vorn::run {

int PreparePaths(const SampleOptions& options, ResolvedPaths& paths) {
  if (GetRealPath(options.modelPath, paths.modelFile) != 0) return 1;
  paths.inputFiles = ReadInputListFile(options.imagePath);
  if (GetRealPath(options.vornJsonPath, paths.jsonFile) != 0) return 1;
  for (const std::string& file : SplitString(options.rpnData, ',')) {
    std::string rpnFile;
    if (GetRealPath(file, rpnFile) != 0) return 1;
    paths.rpnFiles.push_back(rpnFile);
  }
  return 0;
}

}  // namespace vorn::run
