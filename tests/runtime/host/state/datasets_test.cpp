#include "host/state/datasets.h"

#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <string>
#include <vector>

#include "runtime/host/refusal.h"

namespace vorn::host {
namespace {

class DatasetsTest : public testing::Test {
 protected:
  void* Allocate(uint64_t size) { return blocks_.Allocate(size, std::make_shared<MemoryBudget>()); }

  /// A dataset of one data buffer, and its only view.
  BlockView ViewOf(void* block, uint64_t registeredBytes, Side side) {
    vorn_mdl_dataset* dataset = datasets_.Create();
    datasets_.Add(dataset, datasets_.CreateBuffer(block, registeredBytes, 16));
    std::vector<BlockView> views;
    datasets_.ViewsOf(datasets_.At(dataset), side, views);
    EXPECT_EQ(views.size(), 1U);
    return views.at(0);
  }

  BlockStore blocks_{/*keeps=*/false};
  Datasets datasets_{blocks_};
};

TEST_F(DatasetsTest, InputReachesToTheEndOfItsBlock) {
  auto* block = static_cast<std::byte*>(Allocate(100));
  EXPECT_EQ(ViewOf(block, 64, Side::kInput).capacity, 100U);
  EXPECT_EQ(ViewOf(block, 640, Side::kInput).capacity, 100U);
  EXPECT_EQ(ViewOf(block + 36, 64, Side::kInput).capacity, 64U);
  EXPECT_EQ(ViewOf(block + 36, 64, Side::kInput).address, block + 36);
  EXPECT_EQ(ViewOf(block, 64, Side::kInput).stride, 16U);
}

TEST_F(DatasetsTest, OutputEndsWithWhatWasRegisteredOrWithItsBlock) {
  auto* block = static_cast<std::byte*>(Allocate(100));
  EXPECT_EQ(ViewOf(block, 64, Side::kOutput).capacity, 64U);
  EXPECT_EQ(ViewOf(block, 640, Side::kOutput).capacity, 100U);
}

TEST_F(DatasetsTest, MemoryOfTheCallerReachesAsFarAsRegistered) {
  std::array<std::byte, 100> memory{};
  EXPECT_EQ(ViewOf(memory.data(), 64, Side::kInput).capacity, 64U);
  EXPECT_EQ(ViewOf(memory.data(), 64, Side::kOutput).capacity, 64U);
}

TEST_F(DatasetsTest, RefusesABlockThatWasFreed) {
  void* kept = Allocate(8);
  void* freed = Allocate(8);
  vorn_mdl_dataset* dataset = datasets_.Create();
  for (void* block : {kept, freed}) datasets_.Add(dataset, datasets_.CreateBuffer(block, 8, 8));
  blocks_.Free(freed);
  std::vector<BlockView> views;
  EXPECT_EQ(ReasonOf(VORN_ERROR_INVALID_ARGUMENT,
                     [&] { datasets_.ViewsOf(datasets_.At(dataset), Side::kOutput, views); }),
            "the block of output 1 was freed; register a live one");
}

TEST_F(DatasetsTest, KeepsBuffersInTheOrderInWhichTheyCame) {
  void* block = Allocate(8);
  vorn_mdl_dataset* dataset = datasets_.Create();
  vorn_data_buffer* first = datasets_.CreateBuffer(block, 8, 8);
  vorn_data_buffer* second = datasets_.CreateBuffer(block, 8, 8);
  datasets_.Add(dataset, second);
  datasets_.Add(dataset, first);
  EXPECT_EQ(datasets_.BufferAt(dataset, 0), second);
  EXPECT_EQ(datasets_.BufferAt(dataset, 1), first);
  EXPECT_EQ(ReasonOf(VORN_ERROR_INVALID_ARGUMENT, [&] { datasets_.BufferAt(dataset, 2); }),
            "index is 2; the dataset has 2 buffers");
}

TEST_F(DatasetsTest, RefusesWhatDoesNotLive) {
  vorn_mdl_dataset* dataset = datasets_.Create();
  vorn_data_buffer* buffer = datasets_.CreateBuffer(Allocate(8), 8, 8);
  datasets_.Destroy(dataset);
  datasets_.DestroyBuffer(buffer);
  EXPECT_EQ(StatusOf([&] { datasets_.At(dataset); }), VORN_ERROR_INVALID_HANDLE);
  EXPECT_EQ(StatusOf([&] { datasets_.Destroy(dataset); }), VORN_ERROR_INVALID_HANDLE);
  EXPECT_EQ(StatusOf([&] { datasets_.Buffer(buffer); }), VORN_ERROR_INVALID_HANDLE);
  EXPECT_EQ(StatusOf([&] { datasets_.DestroyBuffer(buffer); }), VORN_ERROR_INVALID_HANDLE);
  EXPECT_EQ(StatusOf([&] { datasets_.At(nullptr); }), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(StatusOf([&] { datasets_.Buffer(nullptr); }), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_TRUE(datasets_.Handles().empty());
  EXPECT_TRUE(datasets_.BufferHandles().empty());
}

TEST_F(DatasetsTest, TakesABatchAtIndex0) {
  vorn_mdl_dataset* dataset = datasets_.Create();
  EXPECT_EQ(datasets_.At(dataset).batch, 1u);
  EXPECT_EQ(datasets_.At(dataset).frames, 0u);
  datasets_.SetBatch(dataset, 0, 7);
  const auto refusal = [&](uint64_t index, uint64_t batch) {
    return ReasonOf(VORN_ERROR_INVALID_ARGUMENT,
                    [&] { datasets_.SetBatch(dataset, index, batch); });
  };
  EXPECT_EQ(refusal(0, 0), "the batch size is 0; it has to be at least 1");
  EXPECT_EQ(refusal(1, 2), "index is 1; it has to be 0");
  EXPECT_EQ(refusal(2, 0), "index is 2; it has to be 0");
  EXPECT_EQ(datasets_.At(dataset).batch, 7u);
}

TEST_F(DatasetsTest, NamesTheKindOfAHandle) {
  EXPECT_EQ(ReasonOf(VORN_ERROR_INVALID_ARGUMENT, [&] { datasets_.At(nullptr); }),
            "the dataset is null");
  EXPECT_EQ(ReasonOf(VORN_ERROR_INVALID_ARGUMENT, [&] { datasets_.Buffer(nullptr); }),
            "the data buffer is null");
}

TEST_F(DatasetsTest, RefusesABufferOfNothing) {
  void* block = Allocate(8);
  EXPECT_EQ(ReasonOf(VORN_ERROR_INVALID_ARGUMENT, [&] { datasets_.CreateBuffer(nullptr, 8, 8); }),
            "a block at 0 of 8 bytes with a stride of 8; none of the three may be 0");
  EXPECT_EQ(StatusOf([&] { datasets_.CreateBuffer(block, 0, 8); }), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(StatusOf([&] { datasets_.CreateBuffer(block, 8, 0); }), VORN_ERROR_INVALID_ARGUMENT);
}

}  // namespace
}  // namespace vorn::host
