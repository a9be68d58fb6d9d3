#include "host/memory/counted_memory.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

#include "host/memory/block_store.h"
#include "host/memory/memory_budget.h"

namespace vorn::host {
namespace {

constexpr uint64_t kHeader = kBlockAlignment;  // in front of each piece

TEST(AllocateCounted, TakesOfTheBudgetWhatItNeedsAndGivesItBack) {
  const auto budget = std::make_shared<MemoryBudget>(10'000);
  void* memory = nullptr;
  {
    BudgetScope scope(budget);
    memory = AllocateCounted(100);
  }
  ASSERT_NE(memory, nullptr);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(memory) % kBlockAlignment, 0u);
  std::memset(memory, 1, 100);
  EXPECT_EQ(budget->taken(), 100 + kHeader);
  EXPECT_EQ(budget.use_count(), 2);
  ReleaseCounted(memory);  // outside of the scope: the memory knows whose it is
  EXPECT_EQ(budget->taken(), 0u);
  EXPECT_EQ(budget.use_count(), 1);
}

TEST(AllocateCounted, CountsNothingOutsideOfAScope) {
  void* memory = AllocateCounted(100);
  ASSERT_NE(memory, nullptr);
  std::memset(memory, 1, 100);
  ReleaseCounted(memory);
}

TEST(AllocateCounted, NeedsNothingForNoBytes) {
  EXPECT_EQ(AllocateCounted(0), nullptr);
  ReleaseCounted(nullptr);
}

TEST(AllocateCounted, FailsBeyondTheBudget) {
  const auto budget = std::make_shared<MemoryBudget>(1000);
  BudgetScope scope(budget);
  void* most = AllocateCounted(1000 - kHeader);
  EXPECT_THROW(AllocateCounted(1), std::bad_alloc);
  EXPECT_EQ(budget->taken(), 1000u);
  EXPECT_EQ(scope.refusedBytes(), 1 + kHeader);
  EXPECT_EQ(scope.takenAtRefusal(), 1000u);
  ReleaseCounted(most);
  EXPECT_EQ(budget->taken(), 0u);
}

TEST(AllocateCounted, FailsForMoreThanAnyMachineHas) {
  const auto budget = std::make_shared<MemoryBudget>(UINT64_MAX);
  BudgetScope scope(budget);
  EXPECT_THROW(AllocateCounted(SIZE_MAX), std::bad_alloc);
  EXPECT_EQ(budget->taken(), 0u);
  EXPECT_EQ(scope.refusedBytes(), 0u);  // nothing was asked for
#ifndef __SANITIZE_ADDRESS__            // which ends the process instead
  EXPECT_THROW(AllocateCounted(size_t{1} << 62), std::bad_alloc);
  EXPECT_EQ(budget->taken(), 0u);
  EXPECT_EQ(scope.refusedBytes(), (uint64_t{1} << 62) + kHeader);
#endif
}

}  // namespace
}  // namespace vorn::host
