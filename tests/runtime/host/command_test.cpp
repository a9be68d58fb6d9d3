// The command on the host runtime: whole runs of small models that are made here.
#include "support/command.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "support/files.h"
#include "support/onnx_writer.h"
#include "support/stage.h"

namespace {

using support::Bytes;
using support::Outcome;
using testing::HasSubstr;

class HostCommand : public testing::Test {
 protected:
  /// Runs the command over that model and configuration, one inference of the input files.
  Outcome Run(const OnnxWriter& model, const std::string& json,
              const std::vector<std::string>& inputs, const std::vector<std::string>& more = {}) {
    const std::filesystem::path path = folder_.Path();
    support::WriteFile(path / "model.onnx", model.Image());
    support::WriteFile(path / "host.json", json);
    std::string list;
    for (size_t i = 0; i < inputs.size(); ++i) {
      const std::string name = std::to_string(i) + ".bin";
      support::WriteFile(path / name, inputs[i]);
      list += name + "\n";
    }
    support::WriteFile(path / "list.txt", list);
    std::filesystem::remove_all(path / "out");
    std::filesystem::create_directory(path / "out");
    support::Command command;
    command.program = support::VornRunPath();
    command.directory = path;
    command.arguments = {"-m", "model.onnx", "-i", "list.txt", "-j", "host.json", "-o", "out"};
    command.arguments.insert(command.arguments.end(), more.begin(), more.end());
    command.environment["VORN_LOG"] = log;
    return RunCommand(command);
  }

  /// The values of an output of the first inference. Of what ends with '~' the beginning of a name.
  std::vector<float> Dump(const std::string& output) const {
    for (const auto& [name, bytes] : support::ReadTree(folder_.Path() / "out" / "0")) {
      const bool isIt =
          name.starts_with(output + ".") || (output.ends_with('~') && name.starts_with(output));
      if (!isIt || !name.ends_with(".bin")) continue;
      std::vector<float> values(bytes.size() / sizeof(float));
      std::memcpy(values.data(), bytes.data(), bytes.size());
      return values;
    }
    ADD_FAILURE() << "no dump of " << output;
    return {};
  }

  void WriteFile(const std::string& name, const std::string& text) const {
    support::WriteFile(folder_.Path() / name, text);
  }

  std::string log = "1";  // what VORN_LOG asks for

 private:
  support::TempDir folder_;
};

/// Where each row is largest, whether that is a lot, and the row halved.
OnnxWriter Ranking(const OnnxDim& first) {
  return OnnxWriter()
      .Input("x", kOnnxFloat, {first, 3})
      .Output("at", kOnnxInt64, {first, 1})
      .Output("isMuch", kOnnxBool, {first, 3})
      .Output("half", kOnnxFloat16, {first, 3})
      .Constant<float>("much", kOnnxFloat, {1}, {10})
      .Constant<float>("two", kOnnxFloat, {1}, {2})
      .Node("ArgMax", {"x"}, {"at"}, {IntAttribute("axis", 1)})
      .Node("Greater", {"x", "much"}, {"isMuch"})
      .Node("Div", {"x", "two"}, {"halved"})
      .Node("Cast", {"halved"}, {"half"}, {IntAttribute("to", kOnnxFloat16)});
}

TEST_F(HostCommand, DumpsTheValuesOfEveryOutputType) {
  const Outcome outcome = Run(Ranking(1), "{}", {Bytes<float>({3, 11, 7})});
  ASSERT_EQ(outcome.status, 0) << outcome.Describe();
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(Dump("at"), std::vector<float>{1});
  EXPECT_EQ(Dump("isMuch"), (std::vector<float>{0, 1, 0}));
  EXPECT_EQ(Dump("half"), (std::vector<float>{1.5F, 5.5F, 3.5F}));
}

TEST_F(HostCommand, DumpsInnerTensorsOfABatchToo) {
  const Outcome outcome = Run(Ranking("n"), R"({"model": {"expose": "all", "round": "bfloat16"}})",
                              {Bytes<float>({3, 11, 7.01F, 20, 1, 1})}, {"-b", "2"});
  ASSERT_EQ(outcome.status, 0) << outcome.Describe();
  EXPECT_EQ(outcome.err,
            "vorn: vorn_mdl_load_from_mem: rounded 2 weights, 1 input and 1 result to bfloat16; "
            "exposed 1 tensor\n");
  EXPECT_EQ(Dump("halved"), (std::vector<float>{1.5F, 5.5F, 3.5F, 10, 0.5F, 0.5F}));
  EXPECT_EQ(Dump("half"), Dump("halved"));
}

// The file of a dump is called after its output, and a file's name ends at 255 bytes.
TEST_F(HostCommand, DumpsInnerTensorsWhoseNamesNoFileCanHave) {
  const std::string inner = "model/" + std::string(240, 'n') + "/inner";
  const std::string own(250, 'o');
  const OnnxWriter model = OnnxWriter()
                               .Input("x", kOnnxFloat, {3})
                               .Output(own, kOnnxFloat, {3})
                               .Node("Neg", {"x"}, {inner})
                               .Node("Relu", {inner}, {own});
  const Outcome outcome = Run(model, R"({"model": {"expose": "all"}})", {Bytes<float>({3, -1, 7})});
  ASSERT_EQ(outcome.status, 0) << outcome.Describe();
  const std::string line = "vorn: vorn_mdl_load_from_mem: ";
  EXPECT_THAT(outcome.err, testing::MatchesRegex(
                               line + "'model/n{34}~[0-9a-f]{16}~n{34}/inner' stands for '" +
                               inner + "'\n" + line + "'o{40}~[0-9a-f]{16}~o{40}' stands for '" +
                               own + "'\n" + line + "exposed 1 tensor\n"));
  EXPECT_EQ(Dump("model_" + std::string(34, 'n') + "~"), (std::vector<float>{-3, 1, -7}));
  EXPECT_EQ(Dump(std::string(40, 'o') + "~"), (std::vector<float>{0, 1, 0}));
}

TEST_F(HostCommand, ExecutesABatchOfTheOptionAndOfTheFile) {
  const std::string items = Bytes<float>({3, 11, 7, 20, 1, 1, 0, 0, 12, 1, 2, 3});
  for (const OnnxDim& first : {OnnxDim("n"), OnnxDim(1)}) {
    const Outcome outcome = Run(Ranking(first), "{}", {items}, {"-b", "4"});
    ASSERT_EQ(outcome.status, 0) << outcome.Describe();
    EXPECT_THAT(outcome.out, HasSubstr("set batchsize to 4\n"));
    EXPECT_EQ(Dump("at"), (std::vector<float>{1, 0, 2, 2}));
    EXPECT_EQ(Dump("half").size(), 12u);
    // A file of other items than the option says, in rows without padding: the file decides.
    for (const size_t count : {2, 3}) {
      const Outcome reset =
          Run(Ranking(first), R"({"rowAlignment": 4})", {items.substr(0, 12 * count)}, {"-b", "4"});
      ASSERT_EQ(reset.status, 0) << reset.Describe();
      EXPECT_THAT(reset.out, HasSubstr("set batchsize to " + std::to_string(count) + "\n"));
      EXPECT_EQ(Dump("at").front(), 1);
      EXPECT_EQ(Dump("at")[1], 0);
    }
  }
}

TEST_F(HostCommand, RunsStepModelsOverTheFramesOfAFile) {
  const auto model = OnnxWriter()
                         .Input("x", kOnnxFloat, {1, 3})
                         .Input("h", kOnnxFloat, {1, 3})
                         .Output("y", kOnnxFloat, {1, 3})
                         .Output("hn", kOnnxFloat, {1, 3})
                         .Node("Add", {"x", "h"}, {"y"})
                         .Node("Identity", {"y"}, {"hn"})
                         .Metadata("vorn", R"({"netType": "recurrent", "sequence": "steps",
                                               "maxFrames": 6, "states": {"h": "hn"}})");
  const std::string frames = Bytes<float>({1, 2, 3, 10, 20, 30, 100, 200, 300, 7, 8, 9});
  const Outcome outcome =
      Run(model, "{}", {frames, Bytes<uint8_t>({0, 1, 1, 0})}, {"-p", "1", "-b", "2"});
  ASSERT_EQ(outcome.status, 0) << outcome.Describe();
  EXPECT_THAT(outcome.out, HasSubstr("model type: 2\n"));
  EXPECT_THAT(outcome.out, HasSubstr("set total_t to 4\n"));
  EXPECT_EQ(Dump("y"), (std::vector<float>{1, 2, 3, 11, 22, 33, 111, 222, 333, 7, 8, 9,  //
                                           0, 0, 0, 0, 0, 0}));
  const Outcome tooLong =
      Run(model, R"({"model": {"maxFrames": 3}})", {frames, Bytes<uint8_t>({0, 1, 1, 0})});
  EXPECT_EQ(tooLong.status, 1);
  EXPECT_THAT(tooLong.out, HasSubstr("frames[4] must be smaller"));
  EXPECT_THAT(tooLong.err, HasSubstr("a sequence of 4 frames; the model takes 1 to 3"));
  const Outcome tooShort = Run(model, "{}", {frames.substr(0, 8), Bytes<uint8_t>({0})});
  EXPECT_EQ(tooShort.status, 1);
  EXPECT_THAT(tooShort.err, HasSubstr("a sequence of 0 frames"));
}

TEST_F(HostCommand, TellsHowManyFramesOfAFileCountAndWhereSequencesBegin) {
  const auto model = OnnxWriter()
                         .Input("x", kOnnxFloat, {1, 3})
                         .Output("y", kOnnxFloat, {1, 3})
                         .Node("Relu", {"x"}, {"y"})
                         .Metadata("vorn", R"({"netType": "recurrent", "sequence": "steps",
                                               "maxFrames": 6})");
  // Three frames and a third of the next one.
  const std::string frames = Bytes<float>({1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
  log = "info";
  const Outcome outcome = Run(model, "{}", {frames, Bytes<uint8_t>({0, 1, 0, 1, 1, 1})});
  ASSERT_EQ(outcome.status, 0) << outcome.Describe();
  EXPECT_THAT(outcome.err, HasSubstr("3 of at most 6 frames count; sequences begin at 0, 2\n"));
  EXPECT_EQ(Dump("y"), (std::vector<float>{1, 2, 3, 4, 5, 6, 7, 8, 9,  //
                                           0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(HostCommand, GivesThresholdFilesToDetectionNetworks) {
  // Adds x to every threshold, so that each is seen where it arrived.
  const auto model = [](const OnnxDim& rows, const OnnxDim& columns) {
    return OnnxWriter()
        .Input("thresholds", kOnnxFloat, {rows, columns})
        .Input("x", kOnnxFloat, {1, 1})
        .Output("y", kOnnxFloat, {rows, columns})
        .Node("Add", {"thresholds", "x"}, {"y"});
  };
  const std::string json = R"({"model": {"netType": "detection", "rpn": "thresholds"}})";
  WriteFile("single.txt", "0.5 0.25 2 4");
  const Outcome single = Run(model(1, 4), json, {Bytes<float>({1})}, {"-r", "single.txt"});
  ASSERT_EQ(single.status, 0) << single.Describe();
  EXPECT_EQ(Dump("y"), (std::vector<float>{1.5F, 1.25F, 3, 5}));
  WriteFile("multi.txt", "1 2 3\n4 5 6\n7 8 9\n10 11 12");
  const Outcome multi = Run(model(4, 3), json, {Bytes<float>({1})}, {"-r", "multi.txt"});
  ASSERT_EQ(multi.status, 0) << multi.Describe();
  EXPECT_EQ(Dump("y"), (std::vector<float>{2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13}));
}

TEST_F(HostCommand, FillsUpOutputsWhoseShapeDependsOnTheData) {
  const auto model = OnnxWriter()
                         .Input("x", kOnnxFloat, {5})
                         .Output("at", kOnnxInt64, {1, "count"})
                         .Node("NonZero", {"x"}, {"at"});
  const std::string x = Bytes<float>({0, 4, 0, 0, 5});
  const Outcome refused = Run(model, "{}", {x});
  EXPECT_NE(refused.status, 0);
  EXPECT_THAT(refused.err, HasSubstr("give the largest that it takes with 'outputDims'"));
  const Outcome outcome = Run(model, R"({"model": {"outputDims": {"at": [1, 5]}}})", {x});
  ASSERT_EQ(outcome.status, 0) << outcome.Describe();
  EXPECT_EQ(Dump("at"), (std::vector<float>{1, 4, 0, 0, 0}));
}

}  // namespace
