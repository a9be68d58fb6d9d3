// A loaded model: its session, its description, and executing it over the caller's blocks.
#ifndef VORN_RUNTIME_HOST_MODEL_H_
#define VORN_RUNTIME_HOST_MODEL_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "host/config.h"
#include "host/description.h"
#include "host/engine.h"
#include "host/staging.h"

namespace vorn::host {

/// A caller's block for one input or output.
struct BlockView {
  std::byte* address = nullptr;
  uint64_t capacity = 0;  ///< bytes that may be touched from `address` on
  uint64_t stride = 0;    ///< bytes from row to row, which the caller may choose

  bool operator==(const BlockView&) const = default;
};

/// Any thread may execute a model; executions of one model queue up.
class Model {
 public:
  /// Opens the model in `image`, which must outlive it, and closes its shapes. Fails with
  /// VORN_ERROR_MODEL.
  Model(Engine& engine, std::span<const std::byte> image, const Config& config);

  /// Stays valid for whoever holds it, also after the model is gone.
  std::shared_ptr<const ModelDescription> description() const { return description_; }

  /// Executes `batch` items. Blocks stand in the description's order, scratch inputs included.
  ///
  /// A tensor that lies dense and naturally aligned in its block is bound where it lies; any other
  /// one goes through a staging place that the model keeps. An input block has to hold the whole
  /// batch. An output block has to hold one item; of a batch that it does not hold, the items that
  /// fit are written and the rest is dropped and logged. Padding of outputs is never written.
  ///
  /// A batch that is executed at once leaves everything bound: executing over the same blocks again
  /// copies what is staged, runs, and does nothing else; in particular it allocates nothing.
  ///
  /// Fails with VORN_ERROR_INVALID_ARGUMENT for blocks that do not fit the description, before
  /// anything is executed, and with VORN_ERROR_EXECUTION if the model fails.
  void Execute(std::span<const BlockView> inputs, std::span<const BlockView> outputs,
               uint64_t batch);

 private:
  /// What one data input or output needs during executions.
  struct Slot {
    Shape shape;  // that is bound: the model's own rank, the batch in front
    Staging staging;
    BlockView block;
    uint64_t itemBytes = 0;  // in the block, with the block's stride
    uint64_t itemsHeld = 0;  // of the batch
    bool isStaged = false;   // in the present run
  };

  /// What the last execution was over, if all of it is bound still; a batch of 0 otherwise.
  struct Bound {
    std::vector<BlockView> inputs;
    std::vector<BlockView> outputs;
    uint64_t batch = 0;
  };

  void Describe(const Config& config);
  std::vector<Shape> ShowOutputShapes(ClosedShapes& shapes);
  void CheckInputs(std::span<const BlockView> blocks, uint64_t batch);
  void CheckOutputs(std::span<const BlockView> blocks, uint64_t batch);
  void SetRunItems(uint64_t items);
  void BindInputs(uint64_t firstItem, uint64_t items);
  void BindOutputs(uint64_t firstItem, uint64_t items);
  bool IsBoundTo(std::span<const BlockView> inputs, std::span<const BlockView> outputs,
                 uint64_t batch) const;
  void RunBound(uint64_t firstItem, uint64_t items);
  void StageInputs(uint64_t firstItem, uint64_t items);
  void UnstageOutputs(uint64_t firstItem, uint64_t items);

  std::mutex mutex_;
  std::unique_ptr<Session> session_;
  std::shared_ptr<const ModelDescription> description_;
  bool isBatchFirst_ = false;  // a batch is executed at once
  std::vector<Slot> inputs_;
  std::vector<Slot> outputs_;
  Bound bound_;
};

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_MODEL_H_
