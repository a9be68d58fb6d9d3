#include "host/memory/block_store.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "runtime/host/refusal.h"

namespace vorn::host {
namespace {

const auto kMachine = std::make_shared<MemoryBudget>();

vorn_status StatusOfAllocating(BlockStore& blocks, uint64_t size) {
  return StatusOf([&] { blocks.Allocate(size, kMachine); });
}

TEST(BlockStore, AllocatesAlignedBlocksOfAnySize) {
  BlockStore blocks;
  for (const uint64_t size : {1, 63, 64, 65, 100000}) {
    void* block = blocks.Allocate(size, kMachine);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % kBlockAlignment, 0u);
    std::memset(block, 0x5a, size);
  }
  EXPECT_EQ(blocks.Count(), 5u);
}

TEST(BlockStore, RefusesNothingAndTheImpossible) {
  BlockStore blocks;
  EXPECT_EQ(StatusOfAllocating(blocks, 0), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(StatusOfAllocating(blocks, UINT64_MAX), VORN_ERROR_OUT_OF_MEMORY);
  // A length of 2^31 bytes in a signed 32-bit number, widened.
  EXPECT_EQ(StatusOfAllocating(blocks, UINT64_MAX - 0x7fffffff), VORN_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(StatusOfAllocating(blocks, UINT64_C(1) << 50), VORN_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(blocks.Count(), 0u);
}

TEST(BlockStore, GivesBackWhatTheSystemDoesNotHave) {
  if (IsMemoryWatched()) GTEST_SKIP() << "what watches memory ends the process over such a size";
  BlockStore blocks;
  const auto all = std::make_shared<MemoryBudget>(UINT64_MAX);
  EXPECT_EQ(ReasonOf(VORN_ERROR_OUT_OF_MEMORY, [&] { blocks.Allocate(UINT64_C(1) << 62, all); }),
            "size is 4611686018427387904 bytes; the system has no such block");
  EXPECT_EQ(all->taken(), 0u);
}

TEST(BlockStore, SaysWhatItRefuses) {
  BlockStore blocks;
  const auto little = std::make_shared<MemoryBudget>(100);
  EXPECT_EQ(ReasonOf(VORN_ERROR_INVALID_ARGUMENT, [&] { blocks.Allocate(0, little); }),
            "size is 0; a block has at least 1 byte");
  blocks.Allocate(60, little);
  EXPECT_EQ(ReasonOf(VORN_ERROR_OUT_OF_MEMORY, [&] { blocks.Allocate(41, little); }),
            "size is 41 bytes; the device has 100, of which 60 are taken");
}

TEST(IsMemoryWatched, SeesValgrindByWhatItPreloads) {
  if (IsMemoryWatched()) GTEST_SKIP() << "it is";
  const char* before = getenv("LD_PRELOAD");
  const std::string kept = before == nullptr ? "" : before;
  setenv("LD_PRELOAD", "/usr/libexec/valgrind/vgpreload_memcheck-amd64-linux.so", 1);
  EXPECT_TRUE(IsMemoryWatched());
  setenv("LD_PRELOAD", "/usr/lib/libother.so", 1);
  EXPECT_FALSE(IsMemoryWatched());
  if (before == nullptr) unsetenv("LD_PRELOAD");
  if (before != nullptr) setenv("LD_PRELOAD", kept.c_str(), 1);
}

TEST(BlockStore, KnowsHowFarABlockReaches) {
  BlockStore blocks;
  auto* block = static_cast<std::byte*>(blocks.Allocate(100, kMachine));
  EXPECT_EQ(blocks.BytesFrom(block), 100u);
  EXPECT_EQ(blocks.BytesFrom(block + 99), 1u);
  EXPECT_FALSE(blocks.BytesFrom(block + 100));
  EXPECT_FALSE(blocks.BytesFrom(block - 1));
  EXPECT_FALSE(blocks.BytesFrom(nullptr));
}

TEST(BlockStore, FreesItsOwnBlocksOnce) {
  BlockStore blocks;
  auto* block = static_cast<std::byte*>(blocks.Allocate(100, kMachine));
  int foreign = 0;
  EXPECT_FALSE(blocks.Free(block + 1));
  EXPECT_FALSE(blocks.Free(&foreign));
  EXPECT_TRUE(blocks.Free(block));
  EXPECT_FALSE(blocks.Free(block));
  EXPECT_FALSE(blocks.BytesFrom(block));
}

TEST(BlockStore, KeepsNothingWhereUsesOfFreedMemoryAreWatchedFor) {
  BlockStore blocks(false);
  blocks.Free(blocks.Allocate(100, kMachine));
  EXPECT_EQ(blocks.KeptBytes(), 0u);
}

TEST(BlockStore, HandsAFreedBlockOutAgainForTheSameSizeOnly) {
  BlockStore blocks(true);
  void* block = blocks.Allocate(1000, kMachine);
  void* other = blocks.Allocate(500, kMachine);
  EXPECT_TRUE(blocks.Free(block));
  EXPECT_EQ(blocks.KeptBytes(), 1000u);
  EXPECT_FALSE(blocks.Free(block));
  EXPECT_FALSE(blocks.BytesFrom(block));
  EXPECT_EQ(blocks.Allocate(1000, kMachine), block);
  EXPECT_EQ(blocks.KeptBytes(), 0u);
  EXPECT_EQ(blocks.BytesFrom(block), 1000u);
  EXPECT_EQ(blocks.Count(), 2u);
  EXPECT_TRUE(blocks.Free(block));
  const void* shorter = blocks.Allocate(999, kMachine);
  EXPECT_EQ(blocks.BytesFrom(shorter), 999u);
  EXPECT_TRUE(blocks.Free(other));
}

TEST(BlockStore, GivesAnInferenceTheBlocksOfTheOneBefore) {
  BlockStore blocks(true);
  std::vector<void*> before;
  for (int i = 0; i < 4; ++i) before.push_back(blocks.Allocate(1000, kMachine));
  std::sort(before.begin(), before.end());
  for (const std::vector<size_t>& order :
       {std::vector<size_t>{0, 1, 2, 3}, {3, 2, 1, 0}, {2, 0, 3, 1}}) {
    for (const size_t i : order) EXPECT_TRUE(blocks.Free(before[i]));
    std::vector<void*> after;
    for (int i = 0; i < 4; ++i) after.push_back(blocks.Allocate(1000, kMachine));
    EXPECT_EQ(after, before);
  }
}

TEST(BlockStore, HoldsNeverMoreThanWasHandedOutAtOneTime) {
  BlockStore blocks(true);
  std::mt19937 random(1);
  std::map<void*, uint64_t> live;
  uint64_t liveBytes = 0;
  uint64_t most = 0;
  uint64_t recycled = 0;
  for (int step = 0; step < 5000; ++step) {
    if (live.empty() || random() % 2 == 0) {
      const uint64_t size = 64 + random() % 20;
      const uint64_t kept = blocks.KeptBytes();
      live[blocks.Allocate(size, kMachine)] = size;
      recycled += blocks.KeptBytes() < kept ? 1 : 0;
      liveBytes += size;
      most = std::max(most, liveBytes);
    } else {
      const auto [block, size] =
          *std::next(live.begin(), static_cast<long>(random() % live.size()));
      live.erase(block);
      liveBytes -= size;
      EXPECT_TRUE(blocks.Free(block));
    }
    ASSERT_LE(liveBytes + blocks.KeptBytes(), most);
    ASSERT_EQ(blocks.Count(), live.size());
  }
  EXPECT_GT(recycled, 0u);
}

TEST(BlockStore, LetsTheOldestBlocksGoForANewSize) {
  BlockStore blocks(true);
  void* first = blocks.Allocate(100, kMachine);
  void* second = blocks.Allocate(200, kMachine);
  void* third = blocks.Allocate(300, kMachine);
  for (void* block : {first, second, third}) blocks.Free(block);
  blocks.Allocate(150, kMachine);  // 600 bytes were out at most, so the 100 and the 200 have to go
  EXPECT_EQ(blocks.KeptBytes(), 300u);
  EXPECT_EQ(blocks.Allocate(300, kMachine), third);
}

TEST(BlockStore, KeepsAFewBlocksOnly) {
  BlockStore blocks(true);
  std::vector<void*> all;
  for (int i = 0; i < 1000; ++i) all.push_back(blocks.Allocate(16, kMachine));
  for (void* block : all) EXPECT_TRUE(blocks.Free(block));
  EXPECT_EQ(blocks.KeptBytes(), 256u * 16);
}

TEST(BlockStore, ReturnsWhatIsNotToBeKept) {
  BlockStore blocks(true);
  auto* image = static_cast<std::byte*>(blocks.Allocate(1000, kMachine));
  int foreign = 0;
  blocks.DoNotKeep(&foreign);
  blocks.DoNotKeep(image + 999);
  EXPECT_TRUE(blocks.Free(image));
  EXPECT_EQ(blocks.KeptBytes(), 0u);
}

TEST(BlockStore, ReleasesAllThatIsKept) {
  BlockStore blocks(true);
  void* stays = blocks.Allocate(10, kMachine);
  blocks.Free(blocks.Allocate(1000, kMachine));
  blocks.ReleaseKept();
  EXPECT_EQ(blocks.KeptBytes(), 0u);
  EXPECT_EQ(blocks.BytesFrom(stays), 10u);
  // What was out before counts no longer.
  blocks.Free(blocks.Allocate(500, kMachine));
  EXPECT_EQ(blocks.KeptBytes(), 500u);
  blocks.Allocate(100, kMachine);
  EXPECT_EQ(blocks.KeptBytes(), 0u);
}

}  // namespace
}  // namespace vorn::host
