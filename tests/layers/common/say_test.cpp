#include "layers/common/say.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <string>

namespace vorn::layers {
namespace {

std::string Said(const std::string& words) {
  testing::internal::CaptureStderr();
  errno = EDOM;
  Say("%s", words.c_str());
  EXPECT_EQ(errno, EDOM);
  return testing::internal::GetCapturedStderr();
}

TEST(Say, IsALine) { EXPECT_EQ(Said("words"), "vorn-layer: words\n"); }

TEST(Say, IsCutToFiveHundredCharacters) {
  const std::string begin = "vorn-layer: ";
  for (const size_t size : {486U, 487U, 488U, 489U, 700U}) {
    const std::string words(size, 'w');
    EXPECT_EQ(Said(words), (begin + words).substr(0, 499) + "\n") << size;
  }
}

}  // namespace
}  // namespace vorn::layers
