#include "kit/runtime/draft.h"

#include <gtest/gtest.h>

namespace vorn::kit {
namespace {

TEST(DraftConfiguration, TakesTheKeyThatTheReasonNames) {
  EXPECT_EQ(DraftConfiguration("input 'x' leaves sizes open in [batch, 3, height]; give them, also "
                               "where 1 is meant, with 'dims' {\"height\": N}"),
            R"({"model": {"dims": {"height": 1}}})");
  EXPECT_EQ(DraftConfiguration("give it with 'inputDims' {\"x\": [-1, 3, N]}"),
            R"({"model": {"inputDims": {"x": [-1, 3, 1]}}})");
}

TEST(DraftConfiguration, LeavesNamesAsTheyAre) {
  EXPECT_EQ(DraftConfiguration(R"('dims' {"N \"N": N, "\\": N})"),
            R"({"model": {"dims": {"N \"N": 1, "\\": 1}}})");
}

TEST(DraftConfiguration, PrefersNamesOfDimensions) {
  EXPECT_EQ(DraftConfiguration("with 'inputDims' {\"x\": [N]} or 'dims' {\"w\": N}"),
            R"({"model": {"dims": {"w": 1}}})");
}

TEST(DraftConfiguration, CountsBracesAndStrings) {
  EXPECT_EQ(DraftConfiguration(R"('dims' {"a}\"{": N, "b": {"c": N}} or what)"),
            R"({"model": {"dims": {"a}\"{": 1, "b": {"c": 1}}}})");
  EXPECT_EQ(DraftConfiguration(R"('dims' {"a": N)"), std::nullopt);
}

TEST(DraftConfiguration, HasNoneForOtherReasons) {
  EXPECT_EQ(DraftConfiguration("the image is no ONNX file"), std::nullopt);
  EXPECT_EQ(DraftConfiguration("'dims' is what it is"), std::nullopt);
  EXPECT_EQ(DraftConfiguration(""), std::nullopt);
}

}  // namespace
}  // namespace vorn::kit
