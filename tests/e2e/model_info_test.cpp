// The description of the model and what is printed of it.
#include <gtest/gtest.h>

#include "e2e/expected.h"

namespace e2e {
namespace {

using support::Stage;
using support::Transcript;

constexpr char kInputs[] = "[INFO]  ------------------ Input Info ------------------";
constexpr char kOutputs[] = "[INFO]  ------------------ Output Info ------------------";

TEST(ModelInfo, ScalesTheSizesByTheBatchAndNotTheStrides) {
  Stage stage;
  SetPlain(&stage);
  stage.List({});
  const Transcript run = stage.Run({"-b", "4"});
  ExpectStatus(run, 0);
  EXPECT_EQ(run.lines, Join({{"[INFO]  batchSize: 4"},
                             UpToInfo(),
                             Info(stage.script, 4),
                             Plan(1, 0),
                             Unloaded(),
                             Success()}));
}

TEST(ModelInfo, PrintsWhateverTheRuntimeReports) {
  Stage stage;
  stage.script.Input({"", {}, 4000000000u, ~uint64_t{0}, uint64_t{1} << 40, -7})
      .Input({std::string(127, 'n'), {-1, 0, int64_t{1} << 62}, 99, 0, 0, 99})
      .Scratch()
      .Output({"a b%s\\", {1}, 11, 1, 1, 0});
  stage.List({});
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  ExpectLinesInOrder(run, Info(stage.script));
  EXPECT_TRUE(run.HasLine("[INFO]  Shape: []"));
  EXPECT_TRUE(
      run.HasLine("[INFO]  DataType: -294967296, stride: 18446744073709551615, format: -7, "
                  "dataSizeWithStride: 1099511627776"));
}

TEST(ModelInfo, ReadsANameThatFillsItsFieldAsFarAsTheFieldGoes) {
  Stage stage;
  stage.script.Input({std::string(200, 'n'), {1, 4}, 0, 16, 16, 0})
      .Scratch()
      .Output({"prob", {1}, 0, 4, 4, 0});
  stage.List({});
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_TRUE(run.HasLine("[INFO]  Input index: 0, name: " + std::string(128, 'n')))
      << run.Describe();
}

TEST(ModelInfo, StopsWhereTheFirstInputCannotBeAsked) {
  Stage stage;
  SetPlain(&stage);
  stage.script.AnswerAt("vorn_mdl_get_input_dims", 0, "1", "5");
  const Transcript run = stage.Run();
  // Without a name the entries cannot be grouped.
  EXPECT_TRUE(run.EndedByDivision()) << run.Describe();
  EXPECT_EQ(run.lines, Join({UpToInfo(), {kInputs, "[ERROR] get input dims failed"}}));
}

TEST(ModelInfo, StopsWhereALaterInputCannotBeAskedAndTheRunGoesOn) {
  Stage stage;
  SetPlain(&stage);
  stage.script.AnswerAt("vorn_mdl_get_input_dims", 1, "1", "5");
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  const Lines info = Info(stage.script);
  EXPECT_EQ(run.Between(kInputs, "[INFO]  inputPath: ./a.bin"),
            Join({Lines(info.begin(), info.begin() + 4), {"[ERROR] get input dims failed"}}));
  EXPECT_EQ(run.files.size(), 2u);
}

TEST(ModelInfo, StopsWhereAnOutputCannotBeAskedAndTheRunGoesOn) {
  Stage stage;
  SetPlain(&stage);
  stage.script.AnswerAt("vorn_mdl_get_output_dims", 0, "1", "5");
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(run.Between(kOutputs, "[INFO]  inputPath: ./a.bin"),
            (Lines{kOutputs, "[ERROR] get output dims failed"}));
  EXPECT_EQ(run.files.size(), 2u);
}

TEST(CreateDesc, WithoutAHandleEndsInTheDivisionByNoNames) {
  Stage stage;
  SetPlain(&stage);
  stage.script.Answer("vorn_mdl_create_desc", "1", "null");
  const Transcript run = stage.Run();
  EXPECT_TRUE(run.EndedByDivision()) << run.Describe();
  EXPECT_EQ(run.lines.back(), "[ERROR] create model description failed");
  EXPECT_TRUE(run.record.CallsOf("vorn_mdl_get_desc").empty());
}

TEST(CreateDesc, OfAModelThatWasRefusedEndsInTheDivisionByNoNames) {
  Stage stage;
  SetPlain(&stage);
  stage.script.Answer("vorn_mdl_load_from_mem", "1", "6");
  const Transcript run = stage.Run();
  EXPECT_TRUE(run.EndedByDivision()) << run.Describe();
  ExpectLinesInOrder(
      run, {"[INFO]  load model $DIR/model.om success", "[ERROR] get model description failed"});
  EXPECT_EQ(run.lines.back(), "[ERROR] get model description failed");
  // No model has the number that it is asked for.
  EXPECT_EQ(run.record.CallsOf("vorn_mdl_get_desc"), (Lines{"vorn_mdl_get_desc(desc#1, 0) = 2"}));
}

}  // namespace
}  // namespace e2e
