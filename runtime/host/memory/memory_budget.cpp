// Taking memory of a device, and giving it back.
#include "host/memory/memory_budget.h"

#include <unistd.h>

#include <utility>

namespace vorn::host {
namespace {

thread_local BudgetScope* current = nullptr;

}  // namespace

uint64_t MachineMemoryBytes() {
  const long pages = sysconf(_SC_PHYS_PAGES);
  const long pageBytes = sysconf(_SC_PAGESIZE);
  if (pages <= 0 || pageBytes <= 0) return UINT64_C(1) << 40;
  return static_cast<uint64_t>(pages) * static_cast<uint64_t>(pageBytes);
}

bool MemoryBudget::Take(uint64_t bytes) noexcept {
  uint64_t taken = taken_;
  do {
    if (bytes > limit_ - taken) return false;
  } while (!taken_.compare_exchange_weak(taken, taken + bytes));
  return true;
}

BudgetScope::BudgetScope(std::shared_ptr<MemoryBudget> budget)
    : budget_(std::move(budget)), outer_(std::exchange(current, this)) {}

BudgetScope::~BudgetScope() { current = outer_; }

BudgetScope* BudgetScope::Current() { return current; }

bool BudgetScope::Take(uint64_t bytes) noexcept {
  if (budget_ == nullptr || budget_->Take(bytes)) return true;
  Note(bytes);
  return false;
}

void BudgetScope::Refuse(uint64_t bytes) noexcept {
  if (budget_ != nullptr) budget_->GiveBack(bytes);
  Note(bytes);
}

void BudgetScope::Note(uint64_t bytes) noexcept {
  refusedBytes_ = bytes;
  takenAtRefusal_ = budget_ == nullptr ? 0 : budget_->taken();
}

}  // namespace vorn::host
