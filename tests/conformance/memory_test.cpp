// Runtime memory, and the sizes of element types.
#include <algorithm>
#include <cstdint>
#include <utility>
#include <vector>

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
  std::vector<vorn_data_type> unknown;
  for (vorn_data_type code = VORN_BOOL + 1; code <= 4096; ++code) unknown.push_back(code);
  // What a runtime numbers for itself alone is likely a single bit, or counted from one on or down
  // from all of them.
  for (int bit = 12; bit < 32; ++bit) {
    const vorn_data_type high = vorn_data_type{1} << bit;
    for (vorn_data_type low = 0; low < 16; ++low) unknown.push_back(high + low);
  }
  for (vorn_data_type code = 0; code < 16; ++code) {
    unknown.push_back(UINT32_MAX - code);
    unknown.push_back(INT32_MAX - code);
  }
  for (const vorn_data_type code : unknown) {
    EXPECT_EQ(vorn_data_type_size(code), 0u) << "vorn_data_type_size(" << code << ")";
  }
}

}  // namespace
}  // namespace conformance
