#include "host/engine/engine_allocator.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <thread>

#include "host/memory/memory_budget.h"

namespace vorn::host {
namespace {

TEST(EngineAllocator, TakesOutOfTheBudgetOfTheScope) {
  EngineAllocator allocator(nullptr);
  const auto budget = std::make_shared<MemoryBudget>(10'000);
  void* memory = nullptr;
  {
    const BudgetScope scope(budget);
    memory = allocator.Alloc(&allocator, 1000);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(memory) % 64, 0u);
    std::memset(memory, 1, 1000);
    EXPECT_EQ(budget->taken(), 1064u);
    EXPECT_THROW(allocator.Alloc(&allocator, 9000), std::bad_alloc);
    EXPECT_EQ(scope.refusedBytes(), 9064u);
    EXPECT_THROW(allocator.Reserve(&allocator, SIZE_MAX), std::bad_alloc);
    EXPECT_EQ(budget->taken(), 1064u);
  }
  std::thread([&] { allocator.Free(&allocator, memory); }).join();
  EXPECT_EQ(budget->taken(), 0u);
}

TEST(EngineAllocator, SaysWhichInterfaceItIsWrittenFor) {
  const auto* info = reinterpret_cast<const OrtMemoryInfo*>(this);
  EngineAllocator allocator(info);
  EXPECT_EQ(allocator.version, uint32_t{ORT_API_VERSION});
  EXPECT_EQ(allocator.Info(&allocator), info);
}

TEST(EngineAllocator, ServesWhoHasNoBudget) {
  EngineAllocator allocator(nullptr);
  void* memory = allocator.Reserve(&allocator, 1);
  std::memset(memory, 1, 1);
  allocator.Free(&allocator, memory);
  allocator.Free(&allocator, nullptr);
  EXPECT_EQ(allocator.Alloc(&allocator, 0), nullptr);
}

TEST(EngineAllocator, KeepsABudgetForWhatIsLeft) {
  EngineAllocator allocator(nullptr);
  std::weak_ptr<MemoryBudget> budget;
  void* memory = nullptr;
  {
    const BudgetScope scope(std::make_shared<MemoryBudget>(1000));
    budget = scope.budget();
    memory = allocator.Alloc(&allocator, 8);
  }
  EXPECT_FALSE(budget.expired());
  allocator.Free(&allocator, memory);
  EXPECT_TRUE(budget.expired());
}

}  // namespace
}  // namespace vorn::host
