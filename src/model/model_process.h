// The one loaded model of a run, with everything that belongs to it: image, description, datasets.
#ifndef VORN_SRC_MODEL_MODEL_PROCESS_H_
#define VORN_SRC_MODEL_MODEL_PROCESS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "model/input_dataset.h"
#include "output/value_buffer.h"
#include "vorn/vorn.h"

namespace vorn::run {

/// Operations come in this order: load, `CreateDesc`, `CreateOutput`; then for each inference those
/// of `Inputs` with `Execute` and `DumpOutputData` before its `DestroyInput`. Those that return an
/// int return 0, or 1 after having printed what failed; what they had made by then stays with the
/// model and is released with it. The runtime must be up, with a context current on the calling
/// thread, for as long as the model lives.
class ModelProcess {
 public:
  /// `batchSize` multiplies all block sizes, `nlpTotalT` counts the time steps of a recurrent model
  /// (-1 when not given), `profile` is on at 1 only; `rpnFiles` are borrowed. Touches no runtime
  /// state.
  ModelProcess(const std::vector<std::string>& rpnFiles, uint32_t batchSize, int32_t nlpTotalT,
               uint32_t profile)
      : profile_(profile), inputs_(model_, rpnFiles, batchSize, nlpTotalT) {}
  ModelProcess(const ModelProcess&) = delete;
  ModelProcess& operator=(const ModelProcess&) = delete;

  /// Unloads the model, destroys the description, the input dataset, the output dataset: in that
  /// order, each step whatever became of the one before.
  ~ModelProcess();

  /// Reads the model file into runtime memory and hands it to the runtime. The result says whether
  /// the file could be opened and holds something; an image that the runtime rejects shows in
  /// `CreateDesc`.
  [[nodiscard]] int LoadModelFromFileWithMem(const std::string& modelFile);

  /// Describes the model, prints the description, appends the names of the data inputs to
  /// `inputNames` and records the model's sizes in `g_perfInfo`.
  [[nodiscard]] int CreateDesc(std::vector<std::string>& inputNames);

  /// Makes the output dataset, sized for the batch size in force now.
  [[nodiscard]] int CreateOutput();

  /// What the model is executed on; a dataset that is left there is released with the model.
  [[nodiscard]] InputDataset& Inputs() { return inputs_; }

  /// Runs the model once, or as often as `g_perfInfo` says when profiling, and records the time.
  [[nodiscard]] int Execute();

  /// Writes all outputs of the latest inference below `outputPath`.
  void DumpOutputData(const std::string& outputPath);

 private:
  /// Unloads a loaded model, destroys its description and frees its image; warns when there is
  /// none.
  void UnloadModel();
  void DestroyDesc();
  void DestroyOutput();

  uint32_t profile_;
  uint32_t execCounter_ = 0;  ///< executions that succeeded
  LoadedModel model_;
  uint64_t modelMemSize_ = 0;
  void* modelMemPtr_ = nullptr;  ///< the model image, from `vorn_rt_malloc`
  bool loadFlag_ = false;
  InputDataset inputs_;
  vorn_mdl_dataset* outputDataset_ = nullptr;
  ValueBuffer outputValues_;  ///< of the output that is being written
};

}  // namespace vorn::run

#endif  // VORN_SRC_MODEL_MODEL_PROCESS_H_
