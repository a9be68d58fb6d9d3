#include "output/text_lines.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <limits>
#include <random>
#include <string>
#include <vector>

#include "common/file.h"
#include "output/float_text.h"

namespace vorn::run {
namespace {

std::string Written(const std::vector<float>& values) {
  std::string name = testing::TempDir() + "text_lines_test.XXXXXX";
  const FileDescriptor file(mkstemp(name.data()));
  unlink(name.c_str());
  WriteTextLines(file.Get(), values);
  std::string content(static_cast<size_t>(SeekEnd(file)), '\0');
  content.resize(ReadFullyAt(file.Get(), content.data(), content.size(), 0));
  return content;
}

std::string LineByLine(const std::vector<float>& values) {
  std::string lines;
  char text[kMaxFloatText];
  for (const float value : values) lines.append(text, WriteFloatText(value, text)) += '\n';
  return lines;
}

TEST(WriteTextLines, WritesNothingForNoValues) { EXPECT_EQ(Written({}), ""); }

TEST(WriteTextLines, WritesALineAValue) {
  EXPECT_EQ(Written({1.5F, -0.25F}), "1.5000000000000000\n-0.2500000000000000\n");
}

TEST(WriteTextLines, WritesMoreThanFitsIntoAPiece) {
  std::mt19937 random(5);
  std::normal_distribution<float> normal(0, 1000);
  std::vector<float> values(300001);
  for (float& value : values) value = normal(random);
  EXPECT_EQ(Written(values), LineByLine(values));
}

TEST(WriteTextLines, HasRoomForTheLongestLines) {
  const std::vector<float> values(100000, -std::numeric_limits<float>::max());
  EXPECT_EQ(Written(values), LineByLine(values));
}

}  // namespace
}  // namespace vorn::run
