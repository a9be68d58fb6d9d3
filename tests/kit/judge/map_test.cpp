#include "kit/judge/map.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/common/fault.h"

namespace vorn::kit {
namespace {

using testing::HasSubstr;

std::string Refusal(const std::string& text) {
  try {
    (void)ParseMap(text, "the map 'm'");
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kInput);
    EXPECT_THAT(fault.what(), testing::StartsWith("the map 'm': "));
    return fault.what();
  }
  return "taken";
}

std::string RefusalOfOutput(const std::string& output) {
  return Refusal(R"({"schema": 1, "outputs": [)" + output + "]}");
}

TEST(ParseMap, ReadsEverythingThatASideMayHave) {
  const Map map = ParseMap(R"({"schema": 1, "samples": "inputs", "outputs": [
      {"actual": {"name": "prob", "layout": "NHWC", "type": "int8", "scale": 0.5, "zeroPoint": -3},
       "expected": {"name": "gpu_0/prob:0", "layout": "CHW", "shape": [10, 7, 8]}},
      {"actual": {"name": "a"}, "expected": {"name": "b"}, "order": [1, 0]}]})",
                           "m");
  EXPECT_EQ(map.samples, Map::Samples::kByInputs);
  ASSERT_EQ(map.outputs.size(), 2U);
  const MappedOutput& first = map.outputs[0];
  EXPECT_EQ(first.actual.name, "prob");
  EXPECT_EQ(first.actual.layout, "NHWC");
  EXPECT_EQ(first.actual.type, ElementType::kInt8);
  EXPECT_EQ(first.actual.quantisation->scale, 0.5);
  EXPECT_EQ(first.actual.quantisation->zeroPoint, -3);
  EXPECT_EQ(first.expected.name, "gpu_0/prob:0");
  EXPECT_EQ(first.expected.shape, (Shape{10, 7, 8}));
  EXPECT_FALSE(first.expected.quantisation);
  EXPECT_EQ(map.outputs[1].order, (std::vector<size_t>{1, 0}));
}

TEST(ParseMap, ReadsPairsOfSamples) {
  const Map map = ParseMap(R"({"schema": 1, "samples": [[0, 3], [1, 3]]})", "m");
  EXPECT_EQ(map.samples, Map::Samples::kListed);
  EXPECT_EQ(map.listed, (std::vector<std::pair<uint64_t, uint64_t>>{{0, 3}, {1, 3}}));
  EXPECT_EQ(ParseMap(R"({"schema": 1, "samples": "index"})", "m").samples, Map::Samples::kByIndex);
}

TEST(ParseMap, ReadsScalesOfChannels) {
  const auto quantisation = [](const std::string& keys) {
    return *ParseMap(R"({"schema": 1, "outputs": [{"actual": {"name": "a", )" + keys +
                         R"(}, "expected": {"name": "b"}}]})",
                     "m")
                .outputs[0]
                .actual.quantisation;
  };
  const Quantisation both = quantisation(R"("scale": [0.5, -2], "zeroPoint": [3, -4], "axis": 1)");
  EXPECT_EQ(both.scales, (std::vector<double>{0.5, -2}));
  EXPECT_EQ(both.zeroPoints, (std::vector<double>{3, -4}));
  EXPECT_EQ(both.axis, 1U);
  EXPECT_EQ(both.Step(), 2);
  EXPECT_EQ(quantisation(R"("scale": [1, 2], "zeroPoint": 7, "axis": 0)").zeroPoints,
            (std::vector<double>{7, 7}));
  EXPECT_EQ(quantisation(R"("scale": [1, 2], "axis": 0)").zeroPoints, (std::vector<double>{0, 0}));
  const auto refusal = [](const std::string& keys) {
    return RefusalOfOutput(R"({"actual": {"name": "a", )" + keys +
                           R"(}, "expected": {"name": "b"}})");
  };
  EXPECT_THAT(refusal(R"("scale": [1, 2])"), HasSubstr("without the axis"));
  EXPECT_THAT(refusal(R"("scale": 1, "axis": 0)"), HasSubstr("without a list of scales"));
  EXPECT_THAT(refusal(R"("axis": 0)"), HasSubstr("without a list of scales"));
  EXPECT_THAT(refusal(R"("scale": [], "axis": 0)"), HasSubstr("the list of scales is empty"));
  EXPECT_THAT(refusal(R"("scale": [1, 0], "axis": 0)"), HasSubstr("a scale of 0"));
  EXPECT_THAT(refusal(R"("scale": [1, 2], "zeroPoint": [1], "axis": 0)"),
              HasSubstr("there are 1 zeroPoints for 2 scales"));
}

TEST(ParseMap, RefusesWhatItDoesNotKnow) {
  EXPECT_THAT(Refusal(R"({"schema": 1, "output": []})"),
              HasSubstr("no key 'output'; did you mean 'outputs'?"));
  EXPECT_THAT(RefusalOfOutput(R"({"actual": {"name": "a", "zeropoint": 1}})"),
              HasSubstr("no key 'zeropoint'; did you mean 'zeroPoint'?"));
  EXPECT_THAT(Refusal(R"({"schema": 2})"), HasSubstr("its schema is 2, and this program reads 1"));
  EXPECT_THAT(Refusal(R"({"schema": 1, "samples": "name"})"), HasSubstr("not by \"name\""));
  EXPECT_THAT(Refusal("[]"), HasSubstr("expected an object"));
  EXPECT_THAT(Refusal("{"), HasSubstr("the map 'm': "));
}

TEST(ParseMap, RefusesAnOutputInTwoPairs) {
  const auto refusal = [](const std::string& one, const std::string& other) {
    return RefusalOfOutput(R"({"actual": {"name": ")" + one +
                           R"("}, "expected": {"name": "x"}}, {"actual": {"name": ")" + other +
                           R"("}, "expected": {"name": "x"}})");
  };
  EXPECT_THAT(refusal("a", "a"), HasSubstr("the actual output 'a' stands in two pairs"));
  EXPECT_THAT(refusal("a.b", "a/b"), HasSubstr("the actual output 'a/b' stands in two pairs"));
  EXPECT_EQ(refusal("a", "b"), "taken");  // which may well be expected to be alike
}

TEST(ParseMap, RefusesWhatHasNoMeaning) {
  const std::string b = R"(, "expected": {"name": "b"}})";
  EXPECT_THAT(RefusalOfOutput(R"({"actual": {"name": "a"}})"), HasSubstr("expected"));
  EXPECT_THAT(RefusalOfOutput(R"({"actual": {"name": "a", "scale": 0})" + b),
              HasSubstr("a scale of 0"));
  EXPECT_THAT(RefusalOfOutput(R"({"actual": {"name": "a", "scale": "NaN"})" + b),
              HasSubstr("scale is no finite number"));
  EXPECT_THAT(RefusalOfOutput(R"({"actual": {"name": "a", "zeroPoint": 1})" + b),
              HasSubstr("without a scale"));
  EXPECT_THAT(RefusalOfOutput(R"({"actual": {"name": "a", "type": "int9"})" + b),
              HasSubstr("no type 'int9'"));
  EXPECT_THAT(RefusalOfOutput(R"({"actual": {"name": "a", "layout": "NCCW"})" + b),
              HasSubstr("has 'C' twice"));
  EXPECT_THAT(RefusalOfOutput(R"({"actual": {"name": "a", "layout": "NC"})" + b),
              HasSubstr("on one side only"));
  EXPECT_THAT(RefusalOfOutput(R"({"actual": {"name": "a"}, "order": [0, 2])" + b.substr(0, 0) +
                              R"(, "expected": {"name": "b"}})"),
              HasSubstr("every dimension from 0 on once"));
  EXPECT_THAT(RefusalOfOutput(R"({"actual": {"name": "a", "layout": "NC"}, "order": [0],
                                  "expected": {"name": "b", "layout": "CN"}})"),
              HasSubstr("exclude each other"));
  EXPECT_THAT(RefusalOfOutput(R"({"actual": {"name": "a", "shape": [4294967296, 4294967296]})" + b),
              HasSubstr("does not fit memory"));
  EXPECT_THAT(RefusalOfOutput(R"({"actual": {"name": "a", "shape": [-1]})" + b),
              HasSubstr("the map 'm': "));
  EXPECT_THAT(Refusal(R"({"schema": 1, "samples": [[0, 1], [0, 2]]})"),
              HasSubstr("sample 0 stands in two pairs"));
  EXPECT_THAT(Refusal(R"({"schema": 1, "samples": [[0]]})"), HasSubstr("two numbers"));
}

ElementOrder Dense(const Shape& shape) {
  StoredTensor tensor;
  tensor.shape = shape;
  return ElementOrder::Of(tensor);
}

TEST(BroughtIntoLayout, MovesDimensionsToTheirLetters) {
  const ElementOrder brought = BroughtIntoLayout(Dense({2, 3, 4, 5}), "NCHW", "NHWC", "m");
  EXPECT_EQ(brought.shape, (Shape{2, 4, 5, 3}));
  EXPECT_EQ(brought.strides, (Shape{60, 5, 1, 20}));
}

TEST(BroughtIntoLayout, AddsAndDropsDimensionsOfOne) {
  const ElementOrder added = BroughtIntoLayout(Dense({3, 4, 5}), "CHW", "NHWC", "m");
  EXPECT_EQ(added.shape, (Shape{1, 4, 5, 3}));
  const ElementOrder dropped = BroughtIntoLayout(Dense({1, 3, 4}), "NCW", "CW", "m");
  EXPECT_EQ(dropped.shape, (Shape{3, 4}));
  EXPECT_TRUE(dropped.IsDense());
}

TEST(BroughtIntoLayout, RefusesWhatDoesNotFit) {
  const auto refusal = [](const Shape& shape, const char* from, const char* to) -> std::string {
    try {
      (void)BroughtIntoLayout(Dense(shape), from, to, "the map of 'p'");
    } catch (const Fault& fault) {
      return fault.what();
    }
    return "taken";
  };
  EXPECT_THAT(refusal({2, 3}, "NCH", "NHC"), HasSubstr("3 letters and the expected tensor 2"));
  EXPECT_THAT(refusal({2, 3}, "NC", "C"),
              HasSubstr("the map of 'p': 'N' is missing on the actual side, and is more than 1"));
}

}  // namespace
}  // namespace vorn::kit
