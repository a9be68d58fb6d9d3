#include "host/memory/staging.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <new>

#include "host/memory/memory_budget.h"

namespace vorn::host {
namespace {

TEST(Staging, KeepsItsAddressUntilMoreIsWanted) {
  Staging staging;
  EXPECT_EQ(staging.data(), nullptr);
  std::byte* first = staging.AtLeast(100);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(first) % 64, 0u);
  EXPECT_EQ(staging.AtLeast(100), first);
  EXPECT_EQ(staging.AtLeast(1), first);
  EXPECT_EQ(staging.data(), first);
  std::memset(staging.AtLeast(5000), 1, 5000);
}

TEST(Staging, GivesItsMemoryBack) {
  const auto budget = std::make_shared<MemoryBudget>(100'000);
  BudgetScope scope(budget);
  {
    Staging staging;
    staging.AtLeast(100);
    const uint64_t first = budget->taken();
    EXPECT_GE(first, 100u);
    staging.AtLeast(5000);
    EXPECT_EQ(budget->taken(), first + 4900);
  }
  EXPECT_EQ(budget->taken(), 0u);
}

TEST(Staging, TakesNothingForWhatItHas) {
  const auto budget = std::make_shared<MemoryBudget>(100'000);
  BudgetScope scope(budget);
  Staging staging;
  staging.AtLeast(1);
  const uint64_t least = budget->taken();
  staging.AtLeast(100);
  EXPECT_EQ(budget->taken(), least + 99);
  staging.AtLeast(50);
  EXPECT_EQ(budget->taken(), least + 99);
}

TEST(Staging, KeepsWhatItHadIfMoreCannotBeHad) {
  Staging staging;
  std::byte* first = staging.AtLeast(8);
#ifndef __SANITIZE_ADDRESS__  // which ends the process instead
  EXPECT_THROW(staging.AtLeast(UINT64_C(1) << 62), std::bad_alloc);
#endif
  EXPECT_EQ(staging.AtLeast(8), first);
}

}  // namespace
}  // namespace vorn::host
