#include "kit/prepare/thresholds.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <sstream>

#include "kit/common/fault.h"
#include "model/rpn_file.h"

namespace vorn::kit {
namespace {

using testing::HasSubstr;

// As vorn-run itself reads a file.
std::vector<float> ReadBack(const std::string& text) {
  std::istringstream stream(text);
  std::vector<float> values;
  EXPECT_EQ(run::ExtractRpnValues(stream, values), 0) << text;
  return values;
}

TensorDescription Input(TensorRole role, const std::string& name, std::vector<int64_t> shape) {
  TensorDescription input;
  input.role = role;
  input.name = name;
  input.shape = std::move(shape);
  return input;
}

ModelDescription Model(const std::vector<std::vector<int64_t>>& shapes) {
  ModelDescription model;
  model.inputs.push_back(Input(TensorRole::kData, "picture", {1, 3, 8, 8}));
  for (size_t i = 0; i < shapes.size(); ++i) {
    model.inputs.push_back(Input(TensorRole::kThresholds, "rpn:" + std::to_string(i), shapes[i]));
  }
  model.inputs.push_back(Input(TensorRole::kTask, "", {}));
  model.inputs.push_back(Input(TensorRole::kWork, "", {}));
  return model;
}

std::vector<ThresholdFile> Make(const std::string& text, const ModelDescription& model) {
  return MakeThresholds(ParseJson(text), model);
}

std::string Refusal(const std::string& text, const ModelDescription& model) {
  try {
    (void)Make(text, model);
  } catch (const JsonError& error) {
    return error.what();
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kModel);
    return std::string("model: ") + fault.what();
  }
  return "taken";
}

TEST(ThresholdText, ReadsBackBitForBit) {
  std::mt19937 random(20261122);
  std::vector<float> values{0.0F, -0.0F, 1e-45F, -1e-45F, 1.17549435e-38F, 3.40282347e+38F,
                            0.1F, 1};
  while (values.size() < 4 * 1000) {
    const auto bits = static_cast<uint32_t>(random());
    float value = 0;
    std::memcpy(&value, &bits, sizeof(value));
    if (std::isfinite(value)) values.push_back(value);
  }
  const std::vector<float> back = ReadBack(ThresholdText(values, 1000));
  ASSERT_EQ(back.size(), values.size());
  EXPECT_EQ(std::memcmp(back.data(), values.data(), values.size() * sizeof(float)), 0);
}

TEST(ThresholdText, HasALineAKind) {
  EXPECT_EQ(ThresholdText(std::vector<float>{1, 2, 3, 4, 5, 6, 7, 8}, 2), "1 2\n3 4\n5 6\n7 8");
  EXPECT_EQ(ThresholdText(std::vector<float>{0.5, 1e-5F, 0, -1}, 4), "0.5 1e-05 0 -1");
}

TEST(MakeThresholds, MakesAFileAnInputInTheirOrder) {
  const auto files =
      Make(R"({"rpn:1": [5, 6, 7, 8], "rpn:0": [1, 2, 3, 4]})", Model({{1, 4}, {1, 4}}));
  ASSERT_EQ(files.size(), 2U);
  EXPECT_EQ(files[0].input, "rpn:0");
  EXPECT_EQ(files[0].text, "1 2 3 4");
  EXPECT_EQ(files[1].input, "rpn:1");
  EXPECT_EQ(files[1].text, "5 6 7 8");
}

TEST(MakeThresholds, TakesRowsOrAllInOneList) {
  const ModelDescription model = Model({{4, 2}});
  const std::string text = "1 2\n3 4\n5 6\n7 8";
  EXPECT_EQ(Make(R"({"rpn:0": [1, 2, 3, 4, 5, 6, 7, 8]})", model)[0].text, text);
  EXPECT_EQ(Make(R"({"rpn:0": [[1, 2], [3, 4], [5, 6], [7, 8]]})", model)[0].text, text);
  EXPECT_EQ(Make(R"({"rpn:0": [[1, 2, 3, 4]]})", Model({{1, 4}}))[0].text, "1 2 3 4");
}

TEST(MakeThresholds, MakesNothingForAModelWithoutThem) {
  EXPECT_TRUE(Make("{}", Model({})).empty());
  EXPECT_EQ(Refusal(R"({"rpn": [1]})", Model({})),
            "the model has no input of thresholds 'rpn'; it takes none");
}

TEST(MakeThresholds, RefusesOtherCounts) {
  EXPECT_EQ(Refusal(R"({"rpn:0": [1, 2, 3]})", Model({{1, 4}})),
            "the thresholds of 'rpn:0' are 3 numbers, and 1x4 takes 4");
  EXPECT_EQ(Refusal(R"({"rpn:0": [1, 2, 3, 4]})", Model({{4, 3}})),
            "the thresholds of 'rpn:0' are 4 numbers, and 4x3 takes 12");
  EXPECT_EQ(Refusal(R"({"rpn:0": [[1, 2], [3, 4, 5], [6], [7, 8]]})", Model({{4, 2}})),
            "the thresholds of 'rpn:0' have a list of 3 numbers, and each has to have 2");
  EXPECT_EQ(Refusal(R"({"rpn:0": [[1, 2], [3, 4]]})", Model({{4, 2}})),
            "the thresholds of 'rpn:0' are 4 numbers, and 4x2 takes 8");
  EXPECT_EQ(Refusal(R"({"rpn:0": []})", Model({{1, 4}})),
            "the thresholds of 'rpn:0' are 0 numbers, and 1x4 takes 4");
}

TEST(MakeThresholds, RefusesInputsThatAreNotThereOrLeftOut) {
  const ModelDescription model = Model({{1, 4}, {1, 4}});
  EXPECT_EQ(Refusal(R"({"rpn:0": [1, 2, 3, 4], "rpm:1": [1, 2, 3, 4]})", model),
            "the model has no input of thresholds 'rpm:1'; did you mean 'rpn:1'?");
  EXPECT_EQ(
      Refusal(R"({"rpn:0": [1, 2, 3, 4]})", model),
      "there are no thresholds for the input 'rpn:1' (1x4), and vorn-run needs a file for each");
  EXPECT_THAT(Refusal(R"({"picture": [1, 2, 3, 4]})", model), HasSubstr("'picture'"));
}

TEST(MakeThresholds, RefusesWhatVornRunWouldNotRead) {
  const ModelDescription model = Model({{1, 4}});
  for (const char* number : {"\"NaN\"", "\"Infinity\"", "1e39"}) {
    EXPECT_THAT(Refusal("{\"rpn:0\": [0, 0, 0, " + std::string(number) + "]}", model),
                HasSubstr("which vorn-run does not read; give a finite float32"))
        << number;
  }
  EXPECT_NE(Refusal(R"({"rpn:0": [0, 0, 0, "x"]})", model), "taken");
  EXPECT_NE(Refusal(R"({"rpn:0": 4})", model), "taken");
  EXPECT_NE(Refusal(R"({"rpn:0": [0, 0, 0, [1]]})", model), "taken");
}

TEST(MakeThresholds, RefusesAModelThatVornRunGivesNone) {
  for (const std::vector<int64_t>& shape :
       {std::vector<int64_t>{4}, {2, 4}, {1, 5}, {4, INT64_MAX}, {4, 0}, {4, -1}, {1, 1, 4}}) {
    EXPECT_THAT(Refusal(R"({"rpn:0": [1, 2, 3, 4]})", Model({shape})),
                HasSubstr("model: the input of thresholds 'rpn:0' is "));
  }
  EXPECT_EQ(Refusal(R"({"rpn:0": [1, 2, 3, 4], "rpn:1": [1, 2, 3, 4, 5, 6, 7, 8]})",
                    Model({{1, 4}, {4, 2}})),
            "model: the input of thresholds 'rpn:0' is 1x4, and vorn-run holds all thresholds to "
            "the shape of 'rpn:1', 4x2");
}

}  // namespace
}  // namespace vorn::kit
