#include "host/tensor/block_view.h"

#include <gtest/gtest.h>

#include <vector>

#include "runtime/host/refusal.h"

namespace vorn::host {
namespace {

/// Three rows of 10 bytes.
TensorDescription Tensor() { return DescribeTensor("input", "x", VORN_UINT8, {3, 10}, 16); }

BlockView Block(uint64_t capacity, uint64_t stride) {
  return {.address = nullptr, .capacity = capacity, .stride = stride, .registered = 0};
}

TEST(CheckBlockCount, WantsABlockForEveryTensor) {
  const std::vector<TensorDescription> tensors(2);
  const std::vector<BlockView> blocks(3);
  EXPECT_NO_THROW(CheckBlockCount("output", std::span(blocks).first(2), tensors));
  EXPECT_EQ(
      ReasonOf(VORN_ERROR_INVALID_ARGUMENT, [&] { CheckBlockCount("output", blocks, tensors); }),
      "the output dataset has 3 buffers; the model has 2 outputs");
  EXPECT_EQ(ReasonOf(VORN_ERROR_INVALID_ARGUMENT,
                     [&] { CheckBlockCount("input", std::span(blocks).first(1), tensors); }),
            "the input dataset has 1 buffers; the model has 2 inputs");
}

TEST(ItemBytesIn, CountsRowsByTheBlocksStride) {
  EXPECT_EQ(ItemBytesIn(Block(0, 10), "output", Tensor()), 30u);
  EXPECT_EQ(ItemBytesIn(Block(0, 16), "output", Tensor()), 48u);
}

TEST(ItemBytesIn, RefusesAStrideThatNoRowOrNoBlockHas) {
  EXPECT_EQ(
      ReasonOf(VORN_ERROR_INVALID_ARGUMENT, [] { ItemBytesIn(Block(0, 9), "output", Tensor()); }),
      "output 'x' has a stride of 9 bytes; a row has 10");
  EXPECT_EQ(ReasonOf(VORN_ERROR_INVALID_ARGUMENT,
                     [] { ItemBytesIn(Block(0, UINT64_MAX / 3 + 1), "input", Tensor()); }),
            "input 'x' has a stride of 6148914691236517206 bytes; its 3 rows reach beyond any "
            "block");
}

TEST(CheckInputBlock, WantsRoomForTheBatch) {
  EXPECT_EQ(CheckInputBlock(Block(96, 16), 4, Tensor(), 2), 48u);
  EXPECT_EQ(
      ReasonOf(VORN_ERROR_INVALID_ARGUMENT, [] { CheckInputBlock(Block(95, 16), 4, Tensor(), 2); }),
      "input 4 'x' holds 95 bytes; a batch of 2 needs 2 times 48");
}

TEST(CheckInputBlock, RefusesABatchBeyondWhatCanBeCounted) {
  // 3 * 2^61 bytes an item: two of them are below 2^64 and beyond 2^63, four beyond 2^64.
  const BlockView block = Block(UINT64_MAX, uint64_t{1} << 61);
  EXPECT_EQ(CheckInputBlock(block, 0, Tensor(), 1), 6917529027641081856u);
  for (const uint64_t batch : {2, 4}) {
    EXPECT_EQ(
        ReasonOf(VORN_ERROR_INVALID_ARGUMENT, [&] { CheckInputBlock(block, 0, Tensor(), batch); }),
        Join("input 0 'x' holds 18446744073709551615 bytes; a batch of ", batch, " needs ", batch,
             " times 6917529027641081856"));
  }
}

TEST(CheckInputBlock, TakesAllThatCanBeCounted) {
  const TensorDescription byte = DescribeTensor("input", "x", VORN_UINT8, {1}, 1);
  EXPECT_EQ(CheckInputBlock(Block(UINT64_MAX, 1), 0, byte, INT64_MAX), 1u);
  EXPECT_EQ(StatusOf([&] { CheckInputBlock(Block(UINT64_MAX, 1), 0, byte, kMostBytes + 1); }),
            VORN_ERROR_INVALID_ARGUMENT);
}

}  // namespace
}  // namespace vorn::host
