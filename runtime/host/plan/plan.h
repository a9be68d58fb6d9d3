// How one execution of a model becomes runs of its session.
//
// A plan is made when a model is loaded. It decides what the model shows of itself, and keeps
// whatever the session is bound to between executions. There is one kind for each way of going
// through a tensor: `BatchPlan` for batch items, which do not know of each other, and
// `RecurrentPlan` for the frames of a sequence, which do.
#ifndef VORN_RUNTIME_HOST_PLAN_PLAN_H_
#define VORN_RUNTIME_HOST_PLAN_PLAN_H_

#include <cstdint>
#include <memory>
#include <span>

#include "host/tensor/block_view.h"
#include "host/tensor/description.h"

namespace vorn::host {

/// What a caller asks for. Blocks stand in the description's order, scratch inputs included, and
/// have to live until the execution returns; they may be others each time.
struct Call {
  std::span<const BlockView> inputs;
  std::span<const BlockView> outputs;
  uint64_t batch = 1;   ///< items in the blocks, at least 1
  uint64_t frames = 0;  ///< of a recurrent model that count; 0 where nobody said
};

/// Not synchronised.
class Plan {
 public:
  virtual ~Plan() = default;

  /// Never changes; whoever holds it may outlive the plan.
  virtual std::shared_ptr<const ModelDescription> description() const = 0;

  /// Fails with VORN_ERROR_UNSUPPORTED for a model that knows no frames, and with
  /// VORN_ERROR_INVALID_ARGUMENT for a count that it does not take.
  virtual void CheckFrames(uint64_t frames) const = 0;

  /// Runs the session as often as it takes. Fails with VORN_ERROR_INVALID_ARGUMENT for blocks that
  /// do not fit the description, before anything is executed, with VORN_ERROR_EXECUTION if the
  /// model fails, and with VORN_ERROR_OUT_OF_MEMORY or std::bad_alloc without memory. Outputs may
  /// be partly written then. Nothing of an execution that failed is relied upon in the next one.
  virtual void Execute(const Call& call) = 0;
};

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_PLAN_PLAN_H_
