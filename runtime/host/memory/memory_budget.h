// How much memory a device has, and how much of it is taken.
//
// Two kinds of takers share one: blocks that a caller allocates, and what models keep and
// executions use, where that is counted (counted_memory.h). The execution library does not say for
// whom it allocates, so whoever calls it opens a BudgetScope around the call.
#ifndef VORN_RUNTIME_HOST_MEMORY_MEMORY_BUDGET_H_
#define VORN_RUNTIME_HOST_MEMORY_MEMORY_BUDGET_H_

#include <atomic>
#include <cstdint>
#include <memory>

namespace vorn::host {

/// Bytes of memory that this machine has.
uint64_t MachineMemoryBytes();

/// Any thread may take and give back.
class MemoryBudget {
 public:
  explicit MemoryBudget(uint64_t limit = MachineMemoryBytes()) : limit_(limit) {}

  /// False, and nothing taken, where less is left.
  [[nodiscard]] bool Take(uint64_t bytes) noexcept;
  void GiveBack(uint64_t bytes) noexcept { taken_ -= bytes; }

  uint64_t limit() const { return limit_; }  ///< bytes
  uint64_t taken() const { return taken_; }  ///< bytes

 private:
  const uint64_t limit_;
  std::atomic<uint64_t> taken_ = 0;
};

/// Says, for the calling thread and as long as it lives, whose memory is counted.
class BudgetScope {
 public:
  /// A null budget has no limit and counts nothing.
  explicit BudgetScope(std::shared_ptr<MemoryBudget> budget);
  BudgetScope(const BudgetScope&) = delete;
  BudgetScope& operator=(const BudgetScope&) = delete;
  ~BudgetScope();

  /// The innermost one of the calling thread; null outside of any.
  static BudgetScope* Current();

  /// False, and the refusal noted, where less is left.
  [[nodiscard]] bool Take(uint64_t bytes) noexcept;

  /// Gives back what was taken and could not be had after all, and notes the refusal.
  void Refuse(uint64_t bytes) noexcept;

  const std::shared_ptr<MemoryBudget>& budget() const { return budget_; }

  /// What was asked for last and was not to be had, 0 while everything was; and what was taken of
  /// the budget then.
  uint64_t refusedBytes() const { return refusedBytes_; }
  uint64_t takenAtRefusal() const { return takenAtRefusal_; }

 private:
  void Note(uint64_t bytes) noexcept;

  std::shared_ptr<MemoryBudget> budget_;
  uint64_t refusedBytes_ = 0;
  uint64_t takenAtRefusal_ = 0;
  BudgetScope* outer_;
};

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_MEMORY_MEMORY_BUDGET_H_
