// The one loaded model of a run, with everything that belongs to it: image, description, datasets.
#ifndef VORN_SRC_MODEL_MODEL_PROCESS_H_
#define VORN_SRC_MODEL_MODEL_PROCESS_H_

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "common/stride_param.h"
#include "output/value_buffer.h"
#include "vorn/vorn.h"

namespace vorn::run {

/// Operations come in this order: load, `CreateDesc`, `CreateOutput`; then for each inference
/// `InitInput`, `CreateInputBuf`, `SetBatchSize`, `SetRpnData`, `CreateTaskBufAndWorkBuf`,
/// `Execute`, `DumpOutputData`, `DestroyInput`. Those that return an int return 0, or 1 after
/// having printed what failed; what they had made until then stays with the model and is released
/// with it. The runtime must be up, with a context current on the calling thread, for as long as
/// the model lives.
class ModelProcess {
 public:
  /// `batch` multiplies all block sizes, `totalT` counts the time steps of a recurrent model (-1
  /// when not given), `profiling` is on at 1 only. Touches no runtime state.
  ModelProcess(std::vector<std::string> rpnFileList, uint32_t batch, int32_t totalT,
               uint32_t profiling);
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

  /// The count of model inputs without task buffer and work buffer; wraps below 0.
  [[nodiscard]] uint64_t GetInputNum() const;

  /// Makes the output dataset, sized for the batch size in force now.
  [[nodiscard]] int CreateOutput();
  void DestroyOutput();

  /// Makes the empty input dataset of one inference.
  [[nodiscard]] int InitInput();
  void DestroyInput();

  /// Reads file k into a new block for model input k, for every k. A file may change the batch size
  /// and the time steps from there on.
  [[nodiscard]] int CreateInputBuf(std::span<const std::string> files);

  /// Hands the batch size to the runtime, for the current input dataset.
  [[nodiscard]] int SetBatchSize();

  /// Adds one block a rpn file with the thresholds that it holds. All files are checked before the
  /// first block is made.
  [[nodiscard]] int SetRpnData();

  /// Adds a zero-filled block for every model input that has none yet: task buffer and work buffer,
  /// and data inputs that no file was given for.
  [[nodiscard]] int CreateTaskBufAndWorkBuf();

  /// Runs the model once, or as often as `g_perfInfo` says when profiling, and records the time.
  [[nodiscard]] int Execute();

  /// Writes all outputs of the latest inference below `outputPath`.
  void DumpOutputData(const std::string& outputPath);

 private:
  /// Unloads a loaded model, destroys its description and frees its image; warns when there is
  /// none. For the destructor.
  void UnloadModel();
  void DestroyDesc();

  void PrintModelInfo(std::vector<std::string>& inputNames) const;

  [[nodiscard]] int CreateInput(void* block, uint64_t size, int32_t stride);
  [[nodiscard]] int CreateFileInput(const std::string& file, int32_t index);
  [[nodiscard]] int CreateExtraInput(uint32_t index);
  [[nodiscard]] int GetInputStrideParam(int32_t index, StrideParam& param) const;
  [[nodiscard]] uint64_t GetInputDataSize(int32_t index) const;

  [[nodiscard]] int CheckRpnPara(const std::vector<float>& detPara);
  [[nodiscard]] int CreateRpnBuffer(const std::vector<float>& detPara);
  [[nodiscard]] int SetNlpTotalT();

  uint32_t batchSize_;
  int32_t nlpTotalT_;
  std::vector<std::string> rpnFiles_;
  uint32_t profile_;
  uint32_t execCounter_ = 0;  ///< executions that succeeded
  uint32_t modelId_ = 0;
  uint64_t modelMemSize_ = 0;
  void* modelMemPtr_ = nullptr;  ///< the model image, from `vorn_rt_malloc`
  bool loadFlag_ = false;
  vorn_mdl_desc* modelDesc_ = nullptr;
  vorn_mdl_dataset* inputDataset_ = nullptr;
  vorn_mdl_dataset* outputDataset_ = nullptr;
  ValueBuffer outputValues_;  ///< of the output that is being written
  uint8_t classMode_ = 0;     ///< recorded only: 0 single class, 1 multi class
  uint32_t rpnHeight_ = 0;
  uint32_t rpnWidth_ = 0;
};

}  // namespace vorn::run

#endif  // VORN_SRC_MODEL_MODEL_PROCESS_H_
