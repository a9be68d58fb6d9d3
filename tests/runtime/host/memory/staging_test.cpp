#include "host/memory/staging.h"

#include <gtest/gtest.h>

#include <cstring>
#include <new>

namespace vorn::host {
namespace {

TEST(Staging, KeepsItsAddressUntilMoreIsWanted) {
  Staging staging;
  EXPECT_EQ(staging.data(), nullptr);
  std::byte* first = staging.AtLeast(100);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(first) % 64, 0u);
  EXPECT_EQ(staging.AtLeast(100), first);
  EXPECT_EQ(staging.AtLeast(1), first);
  EXPECT_EQ(staging.data(), first);
  std::memset(staging.AtLeast(5000), 1, 5000);
}

TEST(Staging, KeepsWhatItHadIfMoreCannotBeHad) {
  Staging staging;
  std::byte* first = staging.AtLeast(8);
#ifndef __SANITIZE_ADDRESS__  // which ends the process instead
  EXPECT_THROW(staging.AtLeast(UINT64_C(1) << 62), std::bad_alloc);
#endif
  EXPECT_EQ(staging.AtLeast(8), first);
}

}  // namespace
}  // namespace vorn::host
