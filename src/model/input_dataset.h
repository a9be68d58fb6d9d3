// The input dataset of a model: one block per input, in index order, made anew for each inference.
//
//     data inputs | rpn inputs | task buffer | work buffer
//     from files  | thresholds | zero-filled, as is every input before them that has no file
#ifndef VORN_SRC_MODEL_INPUT_DATASET_H_
#define VORN_SRC_MODEL_INPUT_DATASET_H_

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "common/model_io.h"
#include "vorn/vorn.h"

namespace vorn::run {

/// What the runtime knows the model by.
struct LoadedModel {
  uint32_t modelId = 0;
  vorn_mdl_desc* modelDesc = nullptr;  ///< owned by the model
};

/// Operations of one inference come in this order: `InitInput`, `CreateInputBuf`, `SetBatchSize`,
/// `SetRpnData`, `CreateTaskBufAndWorkBuf`, `SetNlpTotalT`, and `DestroyInput` once the model has
/// run. Those that return an int return 0, or 1 after having printed what failed; blocks that had
/// been added by then stay in the dataset. Batch size and time steps carry over from one inference
/// to the next.
///
/// The destructor releases nothing: a dataset that a failed inference leaves has to outlive the
/// model, whose owner calls `DestroyInput`.
class InputDataset {
 public:
  /// Borrows `model` and `rpnFiles`. `batchSize` multiplies the blocks' sizes, `nlpTotalT` counts
  /// the time steps of a recurrent model (-1 when not given).
  InputDataset(const LoadedModel& model, const std::vector<std::string>& rpnFiles,
               uint32_t batchSize, int32_t nlpTotalT)
      : model_(model), rpnFiles_(rpnFiles), batchSize_(batchSize), nlpTotalT_(nlpTotalT) {}
  InputDataset(const InputDataset&) = delete;
  InputDataset& operator=(const InputDataset&) = delete;

  /// The count of model inputs without task buffer and work buffer; wraps below 0.
  [[nodiscard]] uint64_t GetInputNum() const;

  /// The batch size in force now; a file may have changed it.
  [[nodiscard]] uint32_t BatchSize() const { return batchSize_; }

  /// Null before `InitInput` and after `DestroyInput`.
  [[nodiscard]] vorn_mdl_dataset* Handle() const { return inputDataset_; }

  /// Makes the empty dataset.
  [[nodiscard]] int InitInput();

  /// Reads file k into a new block for model input k, for every k. A file may change the batch size
  /// and the time steps from there on.
  [[nodiscard]] int CreateInputBuf(std::span<const std::string> files);

  /// Hands the batch size to the runtime.
  [[nodiscard]] int SetBatchSize();

  /// Adds one block per rpn file, holding its thresholds. All files are checked before the first
  /// block is made.
  [[nodiscard]] int SetRpnData();

  /// Adds a zero-filled block for every model input that has none yet: task buffer and work buffer,
  /// and data inputs without a file.
  [[nodiscard]] int CreateTaskBufAndWorkBuf();

  /// Hands the time steps to the runtime if there are any and the model is a recurrent one.
  [[nodiscard]] int SetNlpTotalT();

  /// Releases the dataset with its blocks; does nothing where there is none.
  void DestroyInput();

 private:
  [[nodiscard]] int CreateInput(void* block, uint64_t size, int32_t stride);
  [[nodiscard]] int CreateInputOrFree(void* block, const StrideParam& param);
  [[nodiscard]] int CreateFileInput(const std::string& file, int32_t index);
  [[nodiscard]] int CreateExtraInput(uint32_t index);
  [[nodiscard]] int GetInputStrideParam(int32_t index, StrideParam& param) const;
  [[nodiscard]] uint64_t GetInputDataSize(int32_t index) const;

  [[nodiscard]] int CheckRpnPara(const std::vector<float>& detPara);
  [[nodiscard]] int CreateRpnBuffer(const std::vector<float>& detPara);

  const LoadedModel& model_;
  const std::vector<std::string>& rpnFiles_;
  uint32_t batchSize_;
  int32_t nlpTotalT_;
  vorn_mdl_dataset* inputDataset_ = nullptr;
  uint8_t classMode_ = 0;  ///< recorded only: 0 single class, 1 multi class
  uint32_t rpnHeight_ = 0;
  uint32_t rpnWidth_ = 0;
};

}  // namespace vorn::run

#endif  // VORN_SRC_MODEL_INPUT_DATASET_H_
