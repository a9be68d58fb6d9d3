#include "output/value_buffer.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdint>
#include <fstream>
#include <new>

namespace vorn::run {
namespace {

// More than the compiler lets a program ask for, whatever memory there is.
constexpr size_t kTooMany = SIZE_MAX / 2;

void ExpectRoom(ValueBuffer& buffer, size_t count) {
  const std::span<float> values = buffer.Get(count);
  ASSERT_EQ(values.size(), count);
  ASSERT_NE(values.data(), nullptr);
  for (size_t i = 0; i < count; ++i) values[i] = static_cast<float>(i);
  EXPECT_EQ(values[count - 1], static_cast<float>(count - 1));
}

TEST(ValueBuffer, HasRoomForEveryCountFromOneOn) {
  for (const size_t first : {1, 2, 1000}) {
    ValueBuffer buffer;
    ExpectRoom(buffer, first);
    ExpectRoom(buffer, 1);
    ExpectRoom(buffer, first + 1);
    ExpectRoom(buffer, 3 * first);
  }
}

TEST(ValueBuffer, HasRoomAfterARequestThatFailed) {
  for (const size_t first : {1, 2, 1000}) {
    ValueBuffer buffer;
    ExpectRoom(buffer, first);
    EXPECT_THROW((void)buffer.Get(kTooMany), std::bad_alloc);
    ExpectRoom(buffer, 1);
    ExpectRoom(buffer, first);
  }
}

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define __SANITIZE_ADDRESS__ 1  // clang's spelling of it
#endif
#endif

// In a process of its own, which may take little more than one of the two.
TEST(ValueBufferDeathTest, LetsGoOfItsMemoryBeforeItTakesMore) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the sanitizer needs the address space that is to be limited";
#endif
  const auto grow = [] {
    uint64_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    const uint64_t taken = pages * static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    constexpr uint64_t kMiB = 1 << 20;
    const rlimit limit{taken + 192 * kMiB, taken + 192 * kMiB};
    if (setrlimit(RLIMIT_AS, &limit) != 0) _exit(2);
    ValueBuffer buffer;
    try {
      (void)buffer.Get(100 * kMiB / sizeof(float));
      (void)buffer.Get(128 * kMiB / sizeof(float));
    } catch (const std::bad_alloc&) {
      _exit(1);
    }
    _exit(0);
  };
  EXPECT_EXIT(grow(), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace vorn::run
