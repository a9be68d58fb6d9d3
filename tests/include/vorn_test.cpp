#include "vorn/vorn.h"

#include <gtest/gtest.h>

#include <cstddef>

extern "C" size_t DimsRecordBytesInC(void);
extern "C" size_t DimCountOffsetInC(void);
extern "C" size_t DimsOffsetInC(void);

namespace {

TEST(VornHeader, DimsRecordIs1160BytesInC) { EXPECT_EQ(DimsRecordBytesInC(), 1160u); }

TEST(VornHeader, DimsRecordLiesAlikeInCAndCpp) {
  EXPECT_EQ(DimsRecordBytesInC(), sizeof(vorn_mdl_io_dims));
  EXPECT_EQ(DimCountOffsetInC(), offsetof(vorn_mdl_io_dims, dimCount));
  EXPECT_EQ(DimsOffsetInC(), offsetof(vorn_mdl_io_dims, dims));
  EXPECT_EQ(DimsOffsetInC(), 136u);
}

}  // namespace
