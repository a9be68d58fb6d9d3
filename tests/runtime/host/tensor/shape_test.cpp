#include "host/tensor/shape.h"

#include <gtest/gtest.h>

namespace vorn::host {
namespace {

DeclaredDim Fixed(int64_t size) { return {.size = size, .symbol = ""}; }
DeclaredDim Open(const char* symbol) { return {.size = DeclaredDim::kOpen, .symbol = symbol}; }

ClosedShapes Close(const std::vector<DeclaredShape>& inputs,
                   const std::vector<DeclaredShape>& outputs,
                   const std::map<std::string, int64_t>& sizes = {}) {
  return CloseShapes(inputs, outputs, sizes);
}

TEST(CloseShapes, TakesAnOpenFirstDimensionForTheBatch) {
  const auto closed = Close({{Open("n"), Fixed(3)}}, {{Open("n"), Fixed(2)}});
  EXPECT_EQ(closed.inputs[0], (Shape{1, 3}));
  EXPECT_EQ(closed.outputs[0], (Shape{1, 2}));
  EXPECT_TRUE(closed.isBatchFirst);
  EXPECT_FALSE(closed.HasUnknownOutput());
}

TEST(CloseShapes, KeepsAFixedFirstDimension) {
  const auto closed = Close({{Fixed(4), Fixed(3)}}, {{Fixed(4), Fixed(2)}});
  EXPECT_EQ(closed.inputs[0], (Shape{4, 3}));
  EXPECT_FALSE(closed.isBatchFirst);
}

TEST(CloseShapes, ClosesInnerDimensionsByNameOrWith1) {
  const std::vector<DeclaredShape> inputs = {{Open("n"), Open("s"), Open("")}};
  const std::vector<DeclaredShape> outputs = {{Open("n"), Open("s")}};
  const auto plain = Close(inputs, outputs);
  EXPECT_EQ(plain.inputs[0], (Shape{1, 1, 1}));
  EXPECT_EQ(plain.outputs[0], (Shape{1, 1}));
  const auto sized = Close(inputs, outputs, {{"s", 7}});
  EXPECT_EQ(sized.inputs[0], (Shape{1, 7, 1}));
  EXPECT_EQ(sized.outputs[0], (Shape{1, 7}));
  EXPECT_TRUE(sized.isBatchFirst);
}

TEST(CloseShapes, ASizedBatchIsNoLongerTheBatch) {
  const auto closed = Close({{Open("n"), Fixed(3)}}, {{Open("n")}}, {{"n", 4}});
  EXPECT_EQ(closed.inputs[0], (Shape{4, 3}));
  EXPECT_EQ(closed.outputs[0], Shape{4});
  EXPECT_FALSE(closed.isBatchFirst);
}

TEST(CloseShapes, NeedsTheBatchInFrontOfEveryTensor) {
  EXPECT_FALSE(Close({{Open("n")}, {Fixed(1)}}, {{Open("n")}}).isBatchFirst);
  EXPECT_FALSE(Close({{Open("n")}}, {{Open("n")}, {Fixed(1)}}).isBatchFirst);
  EXPECT_FALSE(Close({{Open("n"), Open("n")}}, {{Open("n")}}).isBatchFirst);
  EXPECT_FALSE(Close({{Open("n")}}, {{Open("n"), Open("n")}}).isBatchFirst);
  EXPECT_FALSE(Close({{Open("n")}}, {{Fixed(2), Open("n")}}).isBatchFirst);
  EXPECT_FALSE(Close({{Open("n"), Open("s")}}, {{Open("s"), Fixed(2)}}).isBatchFirst);
  EXPECT_FALSE(Close({}, {{Fixed(2)}}).isBatchFirst);
  EXPECT_FALSE(Close({{Open("n")}, {}}, {{Open("n")}}).isBatchFirst);
}

TEST(CloseShapes, LeavesAnOutputUnknownThatNoInputExplains) {
  EXPECT_TRUE(Close({{Open("n")}}, {{Open("n"), Open("other")}}).HasUnknownOutput());
  EXPECT_TRUE(Close({{Open("")}}, {{Open("")}}).HasUnknownOutput());
  EXPECT_TRUE(Close({{Open("n")}}, {{}}).HasUnknownOutput());
  EXPECT_FALSE(Close({{Open("n")}}, {{Open("other")}}, {{"other", 5}}).HasUnknownOutput());
}

TEST(WithBatch, MultipliesTheFirstDimension) {
  EXPECT_EQ(WithBatch({2, 3}, 4), (Shape{8, 3}));
  EXPECT_EQ(WithBatch({}, 4), Shape{});
}

TEST(ShapeText, ShowsOpenDimensionsAsQuestions) {
  EXPECT_EQ(ShapeText(Shape{1, -1, 3}), "[1, ?, 3]");
  EXPECT_EQ(ShapeText(Shape{}), "[]");
}

}  // namespace
}  // namespace vorn::host
