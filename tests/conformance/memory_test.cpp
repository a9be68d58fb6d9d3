// Runtime memory, and the sizes of element types.
#include <algorithm>

#include "model.h"

namespace conformance {
namespace {

class Memory : public UpContract {};

CONTRACT(Memory, GivesBlocksThatKeepWhatIsWritten) {
  const uint64_t sizes[] = {1, 15, 64, 4096, 100003};
  std::vector<Block> blocks;
  for (size_t i = 0; i < std::size(sizes); ++i) {
    blocks.emplace_back(sizes[i], static_cast<std::byte>(i + 1));
    const auto address = reinterpret_cast<uintptr_t>(blocks[i].Address());
    EXPECT_EQ(address % 16, 0u) << "vorn_rt_malloc of " << sizes[i] << " bytes";
  }
  for (size_t i = 0; i < blocks.size(); ++i) {
    EXPECT_TRUE(std::ranges::all_of(
        blocks[i].Content(), [&](std::byte b) { return b == static_cast<std::byte>(i + 1); }))
        << "the block of vorn_rt_malloc of " << sizes[i] << " bytes overlaps another one";
  }
}

CONTRACT(Memory, GivesBlocksAgainAfterTheyWereFreed) {
  for (int round = 0; round < 1000; ++round) Block block(1 << 20, std::byte{1});
}

CONTRACT(Memory, FreesNull) {
  vorn_rt_free(nullptr);
  Block block(64);
}

CONTRACT(Memory, RefusesWhatCannotBeHad) {
  void* const before = this;
  void* block = before;
  EXPECT_NE(vorn_rt_malloc(&block, UINT64_MAX, VORN_MEM_NORMAL_ONLY), VORN_SUCCESS);
  EXPECT_NE(vorn_rt_malloc(&block, UINT64_MAX / 2, VORN_MEM_NORMAL_ONLY), VORN_SUCCESS);
  EXPECT_EQ(block, before) << "vorn_rt_malloc wrote its result after a failure";
  EXPECT_NE(vorn_rt_malloc(nullptr, 64, VORN_MEM_NORMAL_ONLY), VORN_SUCCESS);
  Block fits(64);
}

class ElementTypes : public UpContract {};

CONTRACT(ElementTypes, HaveTheirSizes) {
  const std::pair<vorn_data_type, uint64_t> bits[] = {
      {VORN_FLOAT32, 32}, {VORN_FLOAT16, 16}, {VORN_INT8, 8},     {VORN_INT32, 32},
      {VORN_UINT8, 8},    {VORN_UINT32, 32},  {VORN_INT16, 16},   {VORN_UINT16, 16},
      {VORN_INT64, 64},   {VORN_UINT64, 64},  {VORN_FLOAT64, 64}, {VORN_BOOL, 8}};
  for (const auto& [code, size] : bits) EXPECT_EQ(vorn_data_type_size(code), size) << code;
}

CONTRACT(ElementTypes, HaveNoSizeWhereTheyAreNotKnown) {
  EXPECT_EQ(vorn_data_type_size(UINT32_MAX), 0u);
  EXPECT_EQ(vorn_data_type_size(INT32_MAX), 0u);
}

}  // namespace
}  // namespace conformance
