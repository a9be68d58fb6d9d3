#include "host/block_store.h"

#include <gtest/gtest.h>

#include <cstring>

#include "host/failure.h"

namespace vorn::host {
namespace {

vorn_status StatusOfAllocating(BlockStore& blocks, uint64_t size) {
  try {
    blocks.Allocate(size);
    return VORN_SUCCESS;
  } catch (const Failure& e) {
    return e.status();
  }
}

TEST(BlockStore, AllocatesAlignedBlocksOfAnySize) {
  BlockStore blocks;
  for (const uint64_t size : {1, 63, 64, 65, 100000}) {
    void* block = blocks.Allocate(size);
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

TEST(BlockStore, KnowsHowFarABlockReaches) {
  BlockStore blocks;
  auto* block = static_cast<std::byte*>(blocks.Allocate(100));
  EXPECT_EQ(blocks.BytesFrom(block), 100u);
  EXPECT_EQ(blocks.BytesFrom(block + 99), 1u);
  EXPECT_FALSE(blocks.BytesFrom(block + 100));
  EXPECT_FALSE(blocks.BytesFrom(block - 1));
  EXPECT_FALSE(blocks.BytesFrom(nullptr));
}

TEST(BlockStore, FreesItsOwnBlocksOnce) {
  BlockStore blocks;
  auto* block = static_cast<std::byte*>(blocks.Allocate(100));
  int foreign = 0;
  EXPECT_FALSE(blocks.Free(block + 1));
  EXPECT_FALSE(blocks.Free(&foreign));
  EXPECT_TRUE(blocks.Free(block));
  EXPECT_FALSE(blocks.Free(block));
  EXPECT_FALSE(blocks.BytesFrom(block));
}

}  // namespace
}  // namespace vorn::host
