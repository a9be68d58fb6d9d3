// Executing a sequence of frames, whole or step by step (recurrent_layout.h).
#ifndef VORN_RUNTIME_HOST_PLAN_RECURRENT_PLAN_H_
#define VORN_RUNTIME_HOST_PLAN_RECURRENT_PLAN_H_

#include <cstdint>
#include <memory>
#include <vector>

#include "host/config/config.h"
#include "host/config/model_settings.h"
#include "host/engine/engine.h"
#include "host/memory/staging.h"
#include "host/plan/plan.h"
#include "host/plan/recurrent_layout.h"
#include "host/plan/signature.h"

namespace vorn::host {

/// Each run: frames and flags go from the caller's blocks to their dense places, the session runs,
/// outputs go from their places into the caller's blocks, and the states that the run left go to
/// where the next one reads them.
///
/// The places lie in the caller's work buffer, or in memory of the plan's own where that buffer is
/// too small once it is aligned. They stay bound, so that executing again over the same work buffer
/// allocates nothing; a model that takes any count of frames is bound anew for another count.
class RecurrentPlan : public Plan {
 public:
  /// Learns the shapes of the outputs from trials; `session` must outlive the plan. Fails with
  /// VORN_ERROR_MODEL for settings that do not fit the model, and says which.
  RecurrentPlan(Session& session, Signature signature, const ModelSettings& settings,
                const Config& config);

  std::shared_ptr<const ModelDescription> description() const override {
    return {layout_, &layout_->description};
  }
  void CheckFrames(uint64_t frames) const override;
  void Execute(const Call& call) override;

 private:
  void ProvideInputs();
  std::vector<Shape> TryFrames(const RecurrentLayout& layout, uint64_t frames);
  void Locate(const BlockView& work);
  void Bind(uint64_t frames);
  void BeginSequence();
  void Feed(const Call& call, FrameSpan span);
  void Take(const Call& call, FrameSpan span);
  void CarryStates();

  Session& session_;
  Signature signature_;
  std::shared_ptr<const RecurrentLayout> layout_;
  Staging ownWork_;            // where the caller's work buffer is too small
  std::byte* work_ = nullptr;  // where the places lie
  uint64_t boundFrames_ = 0;   // in a run over what is bound there; 0 while something is not bound
};

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_PLAN_RECURRENT_PLAN_H_
