// What vorn-run wrote for one inference: found, measured, looked into.
#ifndef VORN_KIT_LAUNCH_DUMPS_H_
#define VORN_KIT_LAUNCH_DUMPS_H_

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "kit/model/model_description.h"
#include "kit/run/run_directory.h"

namespace vorn::kit {

struct DumpRequest {
  bool isTextKept = true;  ///< else the .float files are removed
  bool areArrays = false;  ///< a .npy is put beside each .bin that holds the values
  uint64_t batch = 1;
};

struct DumpsFound {
  std::vector<SampleOutput> outputs;  ///< those that are there, paths within the folder only
  std::vector<std::string> faults;    ///< what is missing or wrong, a text an output
  uint64_t nans = 0;                  ///< in outputs of float32
  uint64_t infinities = 0;
  std::vector<std::string> unfit;  ///< names of the outputs that hold such
};

/// Looks at all outputs of the model in a folder. Throws a Fault of kLimit where something cannot
/// be read, removed or written.
[[nodiscard]] DumpsFound InspectDumps(const std::string& folder, const ModelDescription& model,
                                      const DumpRequest& request);

/// Removes the texts of one inference's folder that are whole, while vorn-run may still be at work
/// in it: the text of an output is written before its dump. None is a fault.
void RemoveWholeTexts(const std::string& folder);

/// Whether the files of an output are still what they were, `run` being the run directory. False
/// also as soon as `mayGoOn`, which is asked again and again, says no.
[[nodiscard]] bool DoesVerify(
    const std::string& run, const SampleOutput& output,
    const std::function<bool()>& mayGoOn = [] { return true; });

}  // namespace vorn::kit

#endif  // VORN_KIT_LAUNCH_DUMPS_H_
