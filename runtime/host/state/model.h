// A loaded model: its session, and the plan by which it is executed.
#ifndef VORN_RUNTIME_HOST_STATE_MODEL_H_
#define VORN_RUNTIME_HOST_STATE_MODEL_H_

#include <cstddef>
#include <memory>
#include <mutex>
#include <span>

#include "host/config/config.h"
#include "host/engine/engine.h"
#include "host/plan/plan.h"
#include "host/tensor/description.h"

namespace vorn::host {

/// Any thread may execute a model; executions of one model queue up.
class Model {
 public:
  /// Opens the model in `image`, which must outlive it, and plans its execution. Fails with
  /// VORN_ERROR_MODEL, or VORN_ERROR_CONFIG for constants that are none.
  Model(Engine& engine, std::span<const std::byte> image, const Config& config);

  /// Stays valid for whoever holds it, also after the model is gone.
  std::shared_ptr<const ModelDescription> description() const { return plan_->description(); }

  vorn_net_type netType() const { return netType_; }

  /// See `Plan`.
  void CheckFrames(uint64_t frames) const { plan_->CheckFrames(frames); }

  /// Executes as the plan does; fails as it does.
  void Execute(const Call& call);

 private:
  std::mutex mutex_;
  std::unique_ptr<Session> session_;
  vorn_net_type netType_ = VORN_NET_FEED_FORWARD;
  std::unique_ptr<Plan> plan_;
};

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_STATE_MODEL_H_
