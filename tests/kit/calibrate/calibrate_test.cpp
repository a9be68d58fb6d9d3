// `vorn calibrate` as a program, on the digits; what it measures, as functions.
#include "kit/calibrate/calibrate.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "support/command.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

namespace fs = std::filesystem;
using support::Outcome;
using testing::HasSubstr;

const std::string kDigits = VORN_SOURCE_FOLDER "/examples/digits";

TEST(TensorRange, HoldsFiniteValuesAndCountsTheOthers) {
  TensorRange range;
  for (const float value : {NAN, 2.0F, -3.0F, INFINITY, -INFINITY, 0.5F}) range.Take(value);
  EXPECT_EQ(range.least, -3);
  EXPECT_EQ(range.most, 2);
  EXPECT_EQ(range.finite, 3U);
  EXPECT_EQ(range.notFinite, 3U);
}

TEST(RangesJson, LeavesOutWhatHasNoFiniteValue) {
  Ranges ranges;
  ranges.tensors["some"].Take(0.1F);
  ranges.tensors["none"].Take(NAN);
  const auto json = nlohmann::json::parse(RangesJson(ranges));
  EXPECT_EQ(json["kind"], "ranges");
  EXPECT_EQ(json["tensors"].size(), 1U);
  EXPECT_EQ(json["tensors"]["some"]["min"], 0.1);
}

class CalibrateVerb : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder_.Path() / name; }

  Outcome Run(std::vector<std::string> words) const {
    words.insert(words.begin(), {"calibrate", "-m", kDigits + "/digits.onnx", "-o", "ranges.json"});
    support::Command command;
    command.program = VORN_COMMAND;
    command.arguments = words;
    command.directory = folder_.Path();
    command.environment = {{"XDG_CACHE_HOME", Path("cache")}};
    return RunCommand(command);
  }

  nlohmann::json Tensors() const {
    return nlohmann::json::parse(support::ReadFile(Path("ranges.json")))["tensors"];
  }

  support::TempDir folder_;
};

TEST_F(CalibrateVerb, MeasuresEveryTensorWhateverTheParts) {
  const Outcome ended = Run({"-i", kDigits + "/list.txt", "--most", "5", "--part", "2"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("over 5 inferences"));
  const nlohmann::json parts = Tensors();
  // What a ReLU gives begins at 0 and ends where its input does; the last one is a probability.
  EXPECT_EQ(parts["relu1"]["min"], 0.0);
  EXPECT_EQ(parts["relu1"]["max"], parts["conv1"]["max"]);
  EXPECT_LT(parts["conv1"]["min"], 0.0);
  EXPECT_LE(parts["probabilities"]["max"], 1.0);
  EXPECT_GT(parts["probabilities"]["max"], 0.5);
  EXPECT_FALSE(parts.contains("picture")) << "it is uint8";
  ASSERT_EQ(Run({"-i", kDigits + "/list.txt", "--most", "5"}).status, 0);
  EXPECT_EQ(Tensors(), parts);
  // Nothing else is left.
  for (const auto& entry : fs::directory_iterator(folder_.Path())) {
    EXPECT_THAT(entry.path().filename().string(), testing::AnyOf("ranges.json", "cache"));
  }
}

TEST_F(CalibrateVerb, MakesWhatRoundingTakes) {
  ASSERT_EQ(Run({"-i", kDigits + "/list.txt", "--most", "5"}).status, 0);
  support::WriteFile(Path("int8.json"), R"({"model": {"round": {"int8": "ranges.json"}}})");
  support::Command command;
  command.program = VORN_COMMAND;
  command.arguments = {"inspect", "-m", kDigits + "/digits.onnx", "-j", "int8.json"};
  command.directory = folder_.Path();
  const Outcome ended = RunCommand(command);
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  // A configuration that rounds is measured as if it did not.
  const std::string before = support::ReadFile(Path("ranges.json"));
  ASSERT_EQ(Run({"-i", kDigits + "/list.txt", "--most", "5", "-j", "int8.json"}).status, 0);
  EXPECT_EQ(support::ReadFile(Path("ranges.json")), before);
}

TEST_F(CalibrateVerb, SaysWhatIsWrongWithTheList) {
  Outcome ended = Run({"-i", "nowhere.txt"});
  EXPECT_EQ(ended.status, 3);
  support::WriteFile(Path("list.txt"), "\n");
  ended = Run({"-i", "list.txt"});
  EXPECT_EQ(ended.status, 3);
  EXPECT_THAT(ended.err, HasSubstr("the list 'list.txt' is empty"));
  support::WriteFile(Path("list.txt"), "gone.bin\n");
  ended = Run({"-i", "list.txt"});
  EXPECT_EQ(ended.status, 3);
  EXPECT_THAT(ended.err, HasSubstr("gone.bin"));
  EXPECT_FALSE(fs::exists(Path("ranges.json")));
}

}  // namespace
}  // namespace vorn::kit
