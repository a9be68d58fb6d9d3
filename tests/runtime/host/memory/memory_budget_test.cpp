#include "host/memory/memory_budget.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <thread>
#include <vector>

namespace vorn::host {
namespace {

TEST(MemoryBudget, GivesUpToItsLimit) {
  MemoryBudget budget(100);
  EXPECT_TRUE(budget.Take(60));
  EXPECT_FALSE(budget.Take(41));
  EXPECT_EQ(budget.taken(), 60u);
  EXPECT_TRUE(budget.Take(40));
  EXPECT_FALSE(budget.Take(1));
  EXPECT_TRUE(budget.Take(0));
  budget.GiveBack(60);
  EXPECT_EQ(budget.taken(), 40u);
  EXPECT_FALSE(budget.Take(UINT64_MAX));
  EXPECT_TRUE(budget.Take(60));
}

TEST(MemoryBudget, IsThatOfTheMachineUnlessSaid) {
  EXPECT_EQ(MemoryBudget().limit(), MachineMemoryBytes());
  EXPECT_EQ(MachineMemoryBytes(), static_cast<uint64_t>(sysconf(_SC_PHYS_PAGES)) *
                                      static_cast<uint64_t>(sysconf(_SC_PAGESIZE)));
}

TEST(MemoryBudget, CountsWhatSeveralThreadsTake) {
  MemoryBudget budget(1000);
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 1000; ++round) {
        if (budget.Take(300)) budget.GiveBack(300);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(budget.taken(), 0u);
}

TEST(BudgetScope, CountsForItsThreadWhileItLives) {
  const auto outer = std::make_shared<MemoryBudget>(100);
  EXPECT_EQ(BudgetScope::Current(), nullptr);
  {
    BudgetScope scope(outer);
    EXPECT_TRUE(BudgetScope::Current()->Take(30));
    {
      BudgetScope free(nullptr);
      EXPECT_TRUE(BudgetScope::Current()->Take(UINT64_MAX));
      EXPECT_EQ(free.refusedBytes(), 0u);
    }
    std::thread([] { EXPECT_EQ(BudgetScope::Current(), nullptr); }).join();
    EXPECT_EQ(scope.refusedBytes(), 0u);
    EXPECT_FALSE(BudgetScope::Current()->Take(71));
    EXPECT_EQ(scope.refusedBytes(), 71u);
  }
  EXPECT_EQ(BudgetScope::Current(), nullptr);
  EXPECT_EQ(outer->taken(), 30u);
}

TEST(BudgetScope, GivesBackAndNotesWhatCouldNotBeHad) {
  const auto budget = std::make_shared<MemoryBudget>(100);
  BudgetScope scope(budget);
  EXPECT_TRUE(scope.Take(20));
  EXPECT_TRUE(scope.Take(30));
  scope.Refuse(30);
  EXPECT_EQ(budget->taken(), 20u);
  EXPECT_EQ(scope.refusedBytes(), 30u);
  EXPECT_EQ(scope.takenAtRefusal(), 20u);
}

TEST(BudgetScope, NotesWhatCouldNotBeHadWithoutALimit) {
  BudgetScope scope(nullptr);
  EXPECT_EQ(scope.takenAtRefusal(), 0u);
  scope.Refuse(30);
  EXPECT_EQ(scope.refusedBytes(), 30u);
  EXPECT_EQ(scope.takenAtRefusal(), 0u);
}

}  // namespace
}  // namespace vorn::host
