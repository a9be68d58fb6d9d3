// A loaded model: its session, and the plan by which it is executed.
#ifndef VORN_RUNTIME_HOST_STATE_MODEL_H_
#define VORN_RUNTIME_HOST_STATE_MODEL_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <span>
#include <string>

#include "host/config/config.h"
#include "host/config/model_settings.h"
#include "host/engine/engine.h"
#include "host/memory/memory_budget.h"
#include "host/plan/plan.h"
#include "host/tensor/description.h"

namespace vorn::host {

/// How long an execution may take.
struct Timeout {
  uint32_t seconds = 0;  ///< 0: as long as it wants
};

/// Any thread may execute a model; executions of one model queue up.
class Model {
 public:
  /// Opens the model in `image`, which must outlive it, and plans its execution. It is loaded and
  /// executed with memory of `budget`, unless that is null. Fails with VORN_ERROR_MODEL, with
  /// VORN_ERROR_CONFIG for constants that are none, with VORN_ERROR_OUT_OF_MEMORY where the budget
  /// does not suffice, with VORN_ERROR_TIMEOUT if a trial execution takes longer than `timeout`.
  Model(Engine& engine, std::span<const std::byte> image, const Config& config,
        std::shared_ptr<MemoryBudget> budget = nullptr, Timeout timeout = {});

  /// Stays valid for whoever holds it, also after the model is gone.
  std::shared_ptr<const ModelDescription> description() const { return plan_->description(); }

  vorn_net_type netType() const { return netType_; }

  /// See `Plan`.
  void CheckFrames(uint64_t frames) const { plan_->CheckFrames(frames); }

  /// Executes as the plan does; fails as it does, with VORN_ERROR_OUT_OF_MEMORY where the budget
  /// does not suffice, and with VORN_ERROR_TIMEOUT if it takes longer: it is ended then behind the
  /// operator that it is at. Waiting for other executions of the model does not count.
  void Execute(const Call& call, Timeout timeout = {});

  /// Executes once over blocks of its own, all zero. Fails likewise, and with std::bad_alloc where
  /// the budget, or the machine, has not left what the blocks take.
  void Rehearse(Timeout timeout = {});

 private:
  void Open(Engine& engine, std::span<const std::byte> image, const Config& config,
            Timeout timeout);
  std::span<const std::byte> Edit(Engine& engine, std::span<const std::byte> image,
                                  const Config& config, ModelSettings& settings,
                                  std::map<std::string, std::string>& shortNames);
  template <typename Steps>
  void WithinMemory(Steps&& steps);
  [[noreturn]] void ThrowOutOfMemory(const BudgetScope& scope) const;
  template <typename Steps>
  void WithinTime(Timeout timeout, Steps&& steps);

  std::shared_ptr<MemoryBudget> budget_;
  std::mutex mutex_;
  std::string editedImage_;  // instead of the caller's, if the settings want it changed
  std::unique_ptr<Session> session_;
  vorn_net_type netType_ = VORN_NET_FEED_FORWARD;
  std::unique_ptr<Plan> plan_;
};

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_STATE_MODEL_H_
