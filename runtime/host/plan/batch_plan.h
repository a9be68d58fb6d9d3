// Executing batch items, at once or one after the other.
#ifndef VORN_RUNTIME_HOST_PLAN_BATCH_PLAN_H_
#define VORN_RUNTIME_HOST_PLAN_BATCH_PLAN_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "host/config/config.h"
#include "host/engine/engine.h"
#include "host/memory/staging.h"
#include "host/plan/plan.h"
#include "host/plan/scratch.h"
#include "host/plan/signature.h"
#include "host/tensor/presentation.h"
#include "host/tensor/shape.h"

namespace vorn::host {

/// A model that has the batch as the first dimension of every tensor takes all items in one run;
/// any other one is run item by item, [1, ..] at a time.
///
/// A tensor that lies dense and naturally aligned in its block, with the values of the model's own
/// type, is bound where it lies; any other one goes through a dense place. That place is in the
/// work buffer where the description foresaw it, and the plan's own where a caller chose another
/// stride than described.
///
/// An input block has to hold the whole batch, thresholds one item. An output block has to hold one
/// item; of a batch that it does not hold, the items that fit are written and the rest is dropped
/// and logged. Padding of outputs is never written.
///
/// A batch that is executed at once leaves everything bound: executing over the same blocks again
/// moves what is staged, runs, and does nothing else; in particular it allocates nothing.
class BatchPlan : public Plan {
 public:
  /// Closes the shapes of the session's tensors; `session` must outlive the plan. Fails with
  /// VORN_ERROR_MODEL for a model that cannot be described.
  BatchPlan(Session& session, Signature signature, const Config& config);

  std::shared_ptr<const ModelDescription> description() const override { return description_; }
  void CheckFrames(uint64_t frames) const override;
  void Execute(const Call& call) override;

 private:
  /// What one data input or output needs during executions.
  struct Slot {
    size_t port;        // of the session
    Shape shape;        // that is bound: the model's own rank, the batch in front
    RowMove move;       // of one item; places and strides are those of the present run
    uint64_t rowBytes;  // of a dense row in the model's own type
    std::optional<uint64_t> workOffset;  // of one item; none where no place was foreseen
    Staging staging;                     // instead of the work buffer
    BlockView block;                     // the caller's, in the present execution
    std::byte* place;                    // where it lies dense, if it is staged
    uint64_t itemBytes;                  // in the block, with the block's stride
    uint64_t itemsHeld;                  // of the batch
    bool isOfAnyShape;                   // kept by the engine, and fitted into the place then
    bool isShared;                       // by all items of a batch
    bool isStaged;                       // in the present run

    uint64_t DenseBytes() const { return move.rows * rowBytes; }  // of one item
  };

  /// What the last execution was over, if all of it is bound still; a batch of 0 otherwise.
  struct Bound {
    std::vector<BlockView> inputs;
    std::vector<BlockView> outputs;
    uint64_t batch = 0;
  };

  Slot SlotFor(const Port& port, const TensorDescription& tensor, const Shape& shape,
               WorkLayout& work) const;
  std::vector<Shape> ShowOutputShapes(ClosedShapes& shapes);
  std::vector<Shape> Try(const std::vector<Shape>& inputShapes);
  void CheckInputs(const Call& call);
  void CheckOutputs(const Call& call);
  void SetRunItems(uint64_t items);
  void BindInputs(uint64_t firstItem, uint64_t items);
  void BindOutputs(uint64_t firstItem, uint64_t items);
  std::byte* PlaceFor(Slot& slot, uint64_t items);
  bool IsBoundTo(const Call& call) const;
  void RunBound(uint64_t firstItem, uint64_t items);
  void StageInputs(uint64_t firstItem, uint64_t items);
  void UnstageOutputs(uint64_t firstItem, uint64_t items);

  Session& session_;
  Signature signature_;
  std::shared_ptr<const ModelDescription> description_;
  bool isBatchFirst_ = false;        // a batch is executed at once
  bool areShapesFromTrial_ = false;  // of some outputs
  std::vector<Slot> inputs_;
  std::vector<Slot> outputs_;
  BlockView task_;  // the caller's scratch blocks (scratch.h), in the present execution
  BlockView work_;
  Bound bound_;
};

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_PLAN_BATCH_PLAN_H_
