#include "host/plan/scratch.h"

#include <gtest/gtest.h>

#include <vector>

#include "host/common/failure.h"

namespace vorn::host {
namespace {

TEST(TaskTable, ReturnsTheEntryFromTheBlock) {
  std::vector<std::byte> block(3 * kScratchUnit + 1, std::byte{0xee});
  std::byte place{};
  TaskTable table({.address = block.data() + 1, .capacity = 2 * kScratchUnit, .stride = 1});
  const RowMove move = {.from = &place,
                        .fromStride = 5,
                        .to = &place,
                        .toStride = 6,
                        .rows = 7,
                        .columns = 8,
                        .fromType = VORN_INT8,
                        .toType = VORN_UINT8};
  const RowMove written = table.Put(1, move);
  EXPECT_EQ(written.from, &place);
  EXPECT_EQ(written.rows, 7u);
  EXPECT_EQ(written.toType, vorn_data_type{VORN_UINT8});
  EXPECT_EQ(block[kScratchUnit], std::byte{0xee});
  EXPECT_NE(block[kScratchUnit + 1 + 8], std::byte{0xee});
  EXPECT_EQ(block[2 * kScratchUnit + 1], std::byte{0xee});
}

TEST(WorkLayout, ReservesWholeUnits) {
  WorkLayout work;
  EXPECT_EQ(work.bytes(), kScratchUnit);
  EXPECT_EQ(work.Reserve(1), 0u);
  EXPECT_EQ(work.Reserve(65), 64u);
  EXPECT_EQ(work.Reserve(64), 192u);
  EXPECT_EQ(work.bytes(), 256u);
}

TEST(WorkLayout, RefusesMoreThanAnyMemory) {
  WorkLayout work;
  work.Reserve(kMostBytes / 2 + 1);
  EXPECT_THROW(work.Reserve(kMostBytes / 2 + 1), Failure);
  EXPECT_THROW(work.Reserve(UINT64_MAX), Failure);
}

TEST(PlaceIn, CountsFromTheFirstMultipleOf64) {
  alignas(64) std::byte block[256];
  EXPECT_EQ(PlaceIn({block, 256, 1}, 64, 192), block + 64);
  EXPECT_EQ(PlaceIn({block + 1, 255, 1}, 64, 64), block + 128);
}

TEST(PlaceIn, IsNullWhereTheBlockEnds) {
  alignas(64) std::byte block[256];
  EXPECT_EQ(PlaceIn({block, 256, 1}, 64, 193), nullptr);
  EXPECT_EQ(PlaceIn({block + 1, 255, 1}, 64, 129), nullptr);
  EXPECT_EQ(PlaceIn({block, 256, 1}, UINT64_MAX - 1, 8), nullptr);
  EXPECT_EQ(PlaceIn({block, 256, 1}, 8, UINT64_MAX - 1), nullptr);
}

}  // namespace
}  // namespace vorn::host
