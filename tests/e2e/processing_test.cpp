// Pairing the entries of the list with the model's inputs, and the loop over the groups.
#include <gtest/gtest.h>

#include <set>

#include "e2e/expected.h"

namespace e2e {
namespace {

using support::ModelScript;
using support::Stage;
using support::Transcript;

/// A model with the data inputs in0 and in1, 16 bytes each, and no output.
ModelScript TwoInputs(const std::string& first = "in0", const std::string& second = "in1") {
  ModelScript script;
  script.Input({first, {1, 4}, 0, 16, 16, 0})
      .Input({second, {1, 16}, 4, 16, 16, 0})
      .Scratch()
      .Line("see inputs hex");
  return script;
}

/// Writes files of 16 bytes, each filled with the first letter of its name.
void WriteInputs(Stage* stage, const Lines& names) {
  for (const std::string& name : names) stage->File(name, std::string(16, name[0]));
}

TEST(SortInputs, OrdersEachGroupByModelInputIndex) {
  Stage stage;
  stage.script = TwoInputs();
  WriteInputs(&stage, {"a", "b", "c", "d"});
  stage.List({"in1:b", "in0:a", "in0:c", "in1:d"});
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(EntriesChecked(run), (Lines{"./a", "./b", "./c", "./d"}));
  EXPECT_EQ(FilesRead(run), (Lines{"$DIR/a", "$DIR/b", "$DIR/c", "$DIR/d"}));
  EXPECT_EQ(InputsSeen(run, 1)[0].bytes, std::string(16, 'a'));
  EXPECT_EQ(InputsSeen(run, 1)[1].bytes, std::string(16, 'b'));
  EXPECT_EQ(InputsSeen(run, 2)[0].bytes, std::string(16, 'c'));
  EXPECT_EQ(InputsSeen(run, 2)[1].bytes, std::string(16, 'd'));
  ExpectClean(run);
}

TEST(SortInputs, NeverMovesAnEntryIntoAnotherGroup) {
  Stage stage;
  stage.script = TwoInputs();
  WriteInputs(&stage, {"a", "b", "c", "d"});
  // Both of the first group claim input 1; their order is not defined.
  stage.List({"in1:a", "in1:b", "in0:c", "in0:d"});
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  const Lines files = FilesRead(run);
  ASSERT_EQ(files.size(), 4u);
  EXPECT_EQ(std::set<std::string>(files.begin(), files.begin() + 2),
            (std::set<std::string>{"$DIR/a", "$DIR/b"}));
  EXPECT_EQ(std::set<std::string>(files.begin() + 2, files.end()),
            (std::set<std::string>{"$DIR/c", "$DIR/d"}));
}

TEST(SortInputs, StripsTheNameOfASingleInput) {
  Stage stage;
  SetPlain(&stage);
  stage.List({"in0:a.bin"});
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(run.lines, PlainRun(stage.script));
}

TEST(SortInputs, StripsUpToTheFirstColonOnly) {
  Stage stage;
  SetPlain(&stage);
  stage.File("b:c", support::Bytes(kPlainInput)).List({"in0:b:c"});
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(EntriesChecked(run), (Lines{"./b:c"}));
}

TEST(SortInputs, LetsALaterInputTakeANameThatOccursTwice) {
  Stage stage;
  stage.script = TwoInputs("in", "in");
  WriteInputs(&stage, {"a", "b"});
  stage.List({"in:a", "in:b"});
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  const Lines entries = EntriesChecked(run);
  EXPECT_EQ(std::set<std::string>(entries.begin(), entries.end()),
            (std::set<std::string>{"./a", "./b"}));
}

TEST(SortInputs, LeavesTheListAloneIfOneEntryHasNoName) {
  Stage stage;
  stage.script = TwoInputs();
  WriteInputs(&stage, {"a", "b"});
  stage.List({"in1:b", "a"});
  const Transcript run = stage.Run();
  ExpectStatus(run, 1);
  EXPECT_EQ(EntriesChecked(run), (Lines{"in1:./b", "./a"}));
  EXPECT_EQ(FromFirstError(run),
            FailedInput({"[ERROR] failed to get file " + Resolved(stage, "in1:./b"),
                         "[ERROR] get pic device buffer failed"}));
}

TEST(SortInputs, LeavesTheListAloneIfANameIsUnknown) {
  Stage stage;
  stage.script = TwoInputs();
  WriteInputs(&stage, {"a", "b"});
  stage.List({"in1:b", "IN0:a"});
  EXPECT_EQ(EntriesChecked(stage.Run()), (Lines{"in1:./b", "IN0:./a"}));
}

// A list cannot name the task buffer and the work buffer.
TEST(SortInputs, DoesNotKnowTheScratchInputs) {
  Stage stage;
  SetPlain(&stage);
  stage.List({"task:a.bin"});
  EXPECT_EQ(EntriesChecked(stage.Run()), (Lines{"task:./a.bin"}));
}

TEST(SortInputs, LeavesAListThatDoesNotDivideByTheNamesAlone) {
  Stage stage;
  stage.script = TwoInputs();
  WriteInputs(&stage, {"a", "b"});
  stage.List({"in1:b", "in0:a", "in0:a"});
  EXPECT_EQ(EntriesChecked(stage.Run()), (Lines{"in1:./b", "in0:./a", "in0:./a"}));
}

TEST(SortInputs, DividesByNoNamesForAModelOfTwoInputs) {
  Stage stage;
  stage.script.Scratch().Output({"prob", {1, 4}, 0, 16, 16, 0});
  stage.List({"a"});
  const Transcript run = stage.Run();
  EXPECT_TRUE(run.EndedByDivision()) << run.Describe();
  EXPECT_EQ(run.lines, Join({UpToInfo(), Info(stage.script)}));
}

TEST(Process, RunsWholeGroupsAndIgnoresTheRest) {
  Stage stage;
  stage.script = TwoInputs();
  WriteInputs(&stage, {"a", "b", "c", "d"});
  stage.List({"a", "b", "c", "d", "missing"});
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  ExpectLinesInOrder(run, Plan(2, 2));
  EXPECT_EQ(FilesRead(run), (Lines{"$DIR/a", "$DIR/b", "$DIR/c", "$DIR/d"}));
  EXPECT_EQ(run.record.CallsOf("vorn_mdl_execute").size(), 2u);
  ExpectClean(run);
}

TEST(Process, TakesTheThirdGroupFromItsPlaceInTheList) {
  Stage stage;
  stage.script.Input({"in0", {1, 4}, 0, 16, 16, 0})
      .Input({"in1", {1, 4}, 0, 16, 16, 0})
      .Input({"in2", {1, 4}, 0, 16, 16, 0})
      .Scratch();
  const Lines names{"a", "b", "c", "d", "e", "f", "g", "h", "i"};
  WriteInputs(&stage, names);
  stage.List(names);
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  ExpectLinesInOrder(run, Plan(3, 3));
  const Lines files = FilesRead(run);
  ASSERT_EQ(files.size(), 9u);
  EXPECT_EQ(Lines(files.begin() + 6, files.end()), (Lines{"$DIR/g", "$DIR/h", "$DIR/i"}));
}

TEST(Process, SucceedsWithoutAnInferenceOnTooFewEntries) {
  for (const Lines& list : {Lines{}, Lines{"a"}}) {
    Stage stage;
    stage.script = TwoInputs();
    WriteInputs(&stage, {"a"});
    stage.List(list);
    const Transcript run = stage.Run();
    ExpectStatus(run, 0);
    ExpectLinesInOrder(run, Join({Plan(2, 0), Unloaded(), Success()}));
    EXPECT_TRUE(run.record.CallsOf("vorn_mdl_execute").empty());
    EXPECT_TRUE(run.files.empty());
    ExpectClean(run);
  }
}

TEST(Process, CountsDownPastZeroForMoreRpnFilesThanInputs) {
  Stage stage;
  SetPlain(&stage);
  const Transcript run = stage.Run({"-r", "r1,r2"});
  ExpectStatus(run, 0);
  ExpectLinesInOrder(
      run, Join({{"[INFO]  Model inputNum: 18446744073709551615", "[INFO]  Model Iters : 0"},
                 Unloaded(),
                 Success()}));
  ExpectClean(run);
}

TEST(Process, DividesByZeroForAsManyRpnFilesAsInputs) {
  Stage stage;
  SetPlain(&stage);
  const Transcript run = stage.Run({"-r", "r1"});
  EXPECT_TRUE(run.EndedByDivision()) << run.Describe();
  EXPECT_EQ(run.lines.back(), "[INFO]  Model inputNum: 0");
}

TEST(Process, EndsAtAnEntryThatIsTooLong) {
  Stage stage;
  SetPlain(&stage);
  const std::string entry(4096, 'n');
  stage.List({"a.bin", entry, "b.bin"});
  const Transcript run = stage.Run();
  ExpectStatus(run, 1);
  EXPECT_EQ(EntriesChecked(run), (Lines{"./a.bin", "./" + entry}));
  EXPECT_EQ(FromFirstError(run),
            Join({{"[ERROR] inputPath size = 4098, out of range (0, 4096] error"},
                  Unloaded(),
                  ProcessFailed()}));
  ExpectClean(run);
}

TEST(UnloadModel, ReportsARefusalAndCarriesOn) {
  Stage stage;
  SetPlain(&stage);
  stage.script.Answer("vorn_mdl_unload", "1", "4");
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(FromFirstError(run),
            Join({{"[ERROR] unload model failed, modelId is 1"}, Unloaded(), Success()}));
  EXPECT_EQ(run.record.Live(),
            "blocks=0 buffers=0 datasets=0 descs=0 contexts=0 streams=0 models=1");
}

}  // namespace
}  // namespace e2e
