// Limits on names, frames, values, rows, groups and numbers, each just below, on it and just above.
// (Lengths of files are in file_sizes_test.cpp, lengths of file names in output_places_test.cpp.)
#include <gtest/gtest.h>

#include "e2e/expected.h"

namespace e2e {
namespace {

using support::Stage;
using support::TensorSpec;
using support::Transcript;

// --- Paths: 4096 bytes are allowed. Whether the system resolves one that long is its business.

/// A path to `name` in the present folder that is `length` bytes long.
std::string Stretched(const std::string& name, size_t length) {
  std::string path = ".";
  while (path.size() + name.size() < length) path += '/';
  return path + name;
}

std::string OutOfRange(size_t length) {
  return "[ERROR] inputPath size = " + std::to_string(length) + ", out of range (0, 4096] error";
}

TEST(PathLength, Of4095BytesIsResolvedInEveryRole) {
  Stage stage;
  SetPlain(&stage);
  stage.List({Stretched("a.bin", 4093)});  // behind "./"
  const Transcript run = stage.RunWith({"-m", Stretched("model.om", 4095), "-i", "list.txt", "-j",
                                        Stretched("vorn.json", 4095), "-o", "out"});
  ExpectStatus(run, 0);
  EXPECT_EQ(FromFirstError(run), Lines{});
  EXPECT_EQ(FilesRead(run), (Lines{"$DIR/a.bin"}));
  EXPECT_EQ(run.record.CallsOf("vorn_init"), (Lines{"vorn_init(\"$DIR/vorn.json\") = 0"}));
}

/// The run got past the checks of its paths and said nothing about a length.
void ExpectPassed(const Transcript& run) {
  EXPECT_EQ(run.rawOut.find("out of range"), std::string::npos) << run.Describe();
  ExpectLinesInOrder(run, {"[INFO]  vorn init success"});
}

TEST(PathLength, Of4096BytesPassesForTheConfig) {
  Stage stage;
  SetPlain(&stage);
  const std::string path = Stretched("vorn.json", 4096);
  ASSERT_EQ(path.size(), 4096u);
  const Transcript run =
      stage.RunWith({"-m", "model.om", "-i", "list.txt", "-j", path, "-o", "out"});
  ExpectStatus(run, 0);
  ExpectLinesInOrder(run, {"[INFO]  inputPath: " + path});
  ExpectPassed(run);
}

TEST(PathLength, Of4097BytesIsRefusedForTheConfig) {
  Stage stage;
  SetPlain(&stage);
  const std::string path = Stretched("vorn.json", 4097);
  const Transcript run =
      stage.RunWith({"-m", "model.om", "-i", "list.txt", "-j", path, "-o", "out"});
  ExpectStatus(run, 1);
  EXPECT_EQ(run.lines, Join({PathChecks({"model.om", path}), {OutOfRange(4097)}}));
  EXPECT_EQ(run.record.Lines(), Lines{});
}

TEST(PathLength, Of4096BytesPassesForAnRpnFile) {
  Stage stage;
  SetPlain(&stage);
  const std::string path = Stretched("r", 4096);
  const Transcript run = stage.Run({"-r", path + "," + path});
  ExpectStatus(run, 0);
  ExpectLinesInOrder(run, {"[INFO]  inputPath: " + path, "[INFO]  inputPath: " + path});
  ExpectPassed(run);
}

TEST(PathLength, Of4097BytesIsRefusedForAnRpnFile) {
  Stage stage;
  SetPlain(&stage);
  const std::string path = Stretched("r", 4097);
  const Transcript run = stage.Run({"-r", "first," + path + ",third"});
  ExpectStatus(run, 1);
  EXPECT_EQ(run.lines,
            Join({PathChecks({"model.om", "vorn.json", "first", path}), {OutOfRange(4097)}}));
}

TEST(PathLength, Of4096BytesPassesForAnEntry) {
  Stage stage;
  SetPlain(&stage);
  const std::string entry = Stretched("a.bin", 4094);  // behind "./"
  stage.List({entry});
  const Transcript run = stage.Run();
  EXPECT_EQ(EntriesChecked(run), (Lines{"./" + entry}));
  ExpectLinesInOrder(run, Plan(1, 1));
  ExpectPassed(run);
}

TEST(PathLength, Of4097BytesIsRefusedForAnEntry) {
  Stage stage;
  SetPlain(&stage);
  stage.List({Stretched("a.bin", 4095)});
  const Transcript run = stage.Run();
  ExpectStatus(run, 1);
  EXPECT_EQ(FromFirstError(run), Join({{OutOfRange(4097)}, Unloaded(), ProcessFailed()}));
}

// --- Frames of a recurrent model.

/// The frame messages of a run over so many bytes for the first input and these shapes.
Lines FrameMessages(uint64_t bytes, const std::vector<int64_t>& frames, int64_t flags) {
  Stage stage;
  stage.script.Net(2)
      .Input({"x", frames, 4, 4, 64, 0})
      .Input({"mask", {1, flags}, 4, 64, 64, 0})
      .Scratch();
  stage.File("x", support::CountingBytes(bytes)).File("m", "m").List({"x", "m"});
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  Lines said;
  for (const std::string& line : run.lines) {
    if (line.find("number of frames") != std::string::npos) said.push_back(line);
  }
  for (const std::string& line : run.lines) {
    if (line.find("set total_t") != std::string::npos) said.push_back(line);
  }
  return said;
}

std::string TooMany(const std::string& frames, const std::string& most) {
  return "[ERROR] Current number of frames[" + frames +
         "] must be smaller than the recurrent_max_total_t[" + most + "]";
}

std::string TotalT(int steps) {
  return "[WARN]  vorn_mdl_set_total_t set total_t to " + std::to_string(steps);
}

TEST(Frames, AtTheFirstDimensionAreSilentAndOneMoreIsReported) {
  EXPECT_EQ(FrameMessages(7 * 4, {8, 4}, 64), (Lines{TotalT(7)}));
  EXPECT_EQ(FrameMessages(8 * 4, {8, 4}, 64), (Lines{TotalT(8)}));
  EXPECT_EQ(FrameMessages(9 * 4, {8, 4}, 64), (Lines{TooMany("9", "8"), TotalT(9)}));
}

TEST(Frames, AreCountedWhole) {
  EXPECT_EQ(FrameMessages(8 * 4 - 1, {8, 4}, 64), (Lines{TotalT(7)}));
  EXPECT_EQ(FrameMessages(8 * 4 + 3, {8, 4}, 64), (Lines{TotalT(8)}));
  EXPECT_EQ(FrameMessages(3, {8, 4}, 64), Lines{});
  EXPECT_EQ(FrameMessages(4, {8, 4}, 64), (Lines{TotalT(1)}));
}

TEST(Frames, AtTheFlagsAreSilentAndOneMoreIsReported) {
  EXPECT_EQ(FrameMessages(6 * 4, {16, 4}, 7), (Lines{TotalT(6)}));
  EXPECT_EQ(FrameMessages(7 * 4, {16, 4}, 7), (Lines{TotalT(7)}));
  EXPECT_EQ(FrameMessages(8 * 4, {16, 4}, 7), (Lines{TooMany("8", "7"), TotalT(8)}));
}

TEST(Frames, AreOneElementEachWithOneDimension) {
  EXPECT_EQ(FrameMessages(5, {5}, 64), (Lines{TotalT(5)}));
  EXPECT_EQ(FrameMessages(6, {5}, 64), (Lines{TooMany("6", "5"), TotalT(6)}));
}

TEST(Frames, AreComparedWithSignAndShownWithout) {
  EXPECT_EQ(FrameMessages(4, {-1, 4}, 64),
            (Lines{TooMany("1", "18446744073709551615"), TotalT(1)}));
  EXPECT_EQ(FrameMessages(4, {0, 4}, 64), (Lines{TooMany("1", "0"), TotalT(1)}));
}

TEST(Frames, AreCountedForNoOtherNetTypeThanTwo) {
  for (const int32_t type : {-2, 0, 1, 3, 258}) {
    SCOPED_TRACE(type);
    Stage stage;
    stage.script.Net(type).Input({"x", {8, 4}, 4, 4, 32, 0}).Scratch();
    stage.File("x", support::CountingBytes(32)).List({"x"});
    const Transcript run = stage.Run({"-t", "5"});
    ExpectStatus(run, 0);
    ExpectLinesInOrder(run,
                       {"[INFO]  The shape of the model is [8,4]",
                        "[INFO]  vorn_ext_get_mdl_net_type model type: " + std::to_string(type),
                        "[INFO]  model execute success"});
    EXPECT_TRUE(run.record.CallsOf("vorn_mdl_set_total_t").empty());
  }
}

// --- Values of an rpn file.

/// The first error of a run over this rpn shape and so many values; empty if there is none.
std::string RpnError(const std::vector<int64_t>& dims, int values) {
  Stage stage;
  stage.script.Input({"in0", {1, 4}, 0, 16, 16, 0}).Input({"rpn", dims, 0, 64, 256, 0}).Scratch();
  std::string text;
  for (int i = 0; i < values; ++i) text += (i == 0 ? "" : " ") + std::to_string(i);
  stage.File("a.bin", support::CountingBytes(16)).List({"a.bin"}).File("r", text);
  const Lines errors = FromFirstError(stage.Run({"-r", "r"}));
  return errors.empty() ? "" : errors[0];
}

std::string NotSingle(int shown) {
  return "[ERROR] [single thr]: detPara.size " + std::to_string(shown) +
         " should be 4, Please check rpn file.";
}

std::string NotMulti(int count, int area) {
  return "[ERROR] [multi thr]: detPara.size " + std::to_string(count) + " should be " +
         std::to_string(area);
}

TEST(RpnCount, OfASingleClassIsFourShownByQuarters) {
  EXPECT_EQ(RpnError({1, 4}, 3), NotSingle(0));
  EXPECT_EQ(RpnError({1, 4}, 4), "");
  EXPECT_EQ(RpnError({1, 4}, 5), NotSingle(1));
  EXPECT_EQ(RpnError({1, 4}, 7), NotSingle(1));
  EXPECT_EQ(RpnError({1, 4}, 8), NotSingle(2));
}

TEST(RpnCount, OfASingleClassWantsAWidthOfFour) {
  EXPECT_EQ(RpnError({1, 3}, 4), NotSingle(1));
  EXPECT_EQ(RpnError({1, 3}, 3), NotSingle(0));
  EXPECT_EQ(RpnError({1, 5}, 4), NotSingle(1));
  EXPECT_EQ(RpnError({1, 5}, 5), NotSingle(1));
}

TEST(RpnCount, OfOneOfSeveralClassesIsFour) {
  EXPECT_EQ(RpnError({4, 1}, 3), NotMulti(3, 4));
  EXPECT_EQ(RpnError({4, 1}, 4), "");
  EXPECT_EQ(RpnError({4, 1}, 5), NotMulti(5, 4));
}

TEST(RpnCount, OfSeveralClassesIsFourForEach) {
  EXPECT_EQ(RpnError({4, 5}, 19), NotMulti(19, 20));
  EXPECT_EQ(RpnError({4, 5}, 20), "");
  EXPECT_EQ(RpnError({4, 5}, 21), NotMulti(21, 20));
}

TEST(RpnCount, TakesANegativeWidthForNone) {
  EXPECT_EQ(RpnError({1, -4}, 4), NotSingle(1));
  EXPECT_EQ(RpnError({4, -1}, 4), NotMulti(4, 0));
}

// --- Rows against their stride.

/// The block of the first input, rows of 5 bytes of which the file has `length`.
std::string RowsOfFive(uint64_t stride, uint64_t size, size_t length) {
  Stage stage;
  stage.script.Input({"in0", {2, 5}, 4, stride, size, 0}).Scratch().Line("see inputs hex");
  stage.File("a.bin", support::CountingBytes(length)).List({"a.bin"});
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  ExpectClean(run);
  return support::Hex(InputsSeen(run)[0].bytes);
}

TEST(InputStride, OneMoreThanTheRowLeavesAByteBetween) {
  EXPECT_EQ(RowsOfFive(6, 12, 10), "0001020304a50506070809a5");
}

TEST(InputStride, OfTheRowLeavesNothingBetween) {
  EXPECT_EQ(RowsOfFive(5, 10, 10), "00010203040506070809");
}

TEST(InputStride, OneLessThanTheRowLetsTheNextRowWin) {
  EXPECT_EQ(RowsOfFive(4, 9, 9), "0001020305060708a5");
}

// Handed to the runtime as a signed 32-bit number, whatever the model said.
TEST(InputStride, IsCutToThirtyTwoBitsInTheDataBuffer) {
  const struct {
    uint64_t stride;
    const char* shown;
  } cases[] = {{(uint64_t{1} << 31) - 1, "2147483647"},
               {uint64_t{1} << 31, "18446744071562067968"},
               {(uint64_t{1} << 32) + 16, "16"}};
  for (const auto& each : cases) {
    SCOPED_TRACE(each.stride);
    Stage stage;
    stage.script.Input({"in0", {1, 16}, 4, each.stride, 16, 0}).Scratch();
    stage.File("a.bin", support::CountingBytes(16)).List({"a.bin"});
    const Transcript run = stage.Run();
    ExpectStatus(run, 0);
    EXPECT_TRUE(
        run.HasLine("[INFO]  The stride of model is [" + std::to_string(each.stride) + "]"));
    const auto call = support::ParseCall(run.record.CallsOf("vorn_create_data_buffer").front());
    const std::string& shown = call.arguments[2];
    EXPECT_TRUE(shown == each.shown || std::to_string(std::stoull(shown)) == each.shown) << shown;
  }
}

/// The values of an output of rows of 3 bytes, written one counting byte after the other.
Lines RowsOfThree(uint64_t stride, uint64_t size) {
  Stage stage;
  stage.script.Input({"in0", {1, 4}, 4, 4, 4, 0})
      .Scratch()
      .Output({"o", {2, 3}, 4, stride, size, 0})
      .Line("write 0 counter 0");
  stage.File("a.bin", "abcd").List({"a.bin"});
  Lines values;
  for (const std::string& line : support::SplitLines(stage.Run().files.at("0/o.0.T.float"))) {
    values.push_back(line.substr(0, line.find('.')));
  }
  return values;
}

TEST(OutputStride, OneMoreThanTheRowDropsAByte) {
  EXPECT_EQ(RowsOfThree(4, 8), (Lines{"0", "1", "2", "4", "5", "6"}));
}

TEST(OutputStride, OfTheRowDropsNothing) {
  EXPECT_EQ(RowsOfThree(3, 6), (Lines{"0", "1", "2", "3", "4", "5"}));
}

TEST(OutputStride, OneLessThanTheRowReadsAByteTwice) {
  EXPECT_EQ(RowsOfThree(2, 7), (Lines{"0", "1", "2", "2", "3", "4", "4", "5", "6"}));
}

TEST(OutputStride, OfTheWholeSizeIsOneRowAndOneMoreIsNone) {
  EXPECT_EQ(RowsOfThree(5, 4), Lines{});
  EXPECT_EQ(RowsOfThree(5, 5), (Lines{"0", "1", "2"}));
  EXPECT_EQ(RowsOfThree(5, 9), (Lines{"0", "1", "2"}));
  EXPECT_EQ(RowsOfThree(5, 10), (Lines{"0", "1", "2", "5", "6", "7"}));
}

// --- Shapes of inputs.

Transcript RunShape(const std::vector<int64_t>& dims) {
  Stage stage;
  stage.script.Input({"in0", dims, 4, 16, 16, 0}).Scratch().Line("see inputs hex");
  stage.File("a.bin", support::CountingBytes(16)).List({"a.bin"});
  return stage.Run();
}

TEST(InputShape, WithADimensionOfZeroDividesByItsSize) {
  for (const std::vector<int64_t>& dims : {std::vector<int64_t>{0, 16}, {1, 0}, {0}}) {
    SCOPED_TRACE(InfoShape(dims));
    const Transcript run = RunShape(dims);
    EXPECT_TRUE(run.EndedByDivision()) << run.Describe();
    EXPECT_EQ(run.lines.back(), "[INFO]  The shape of the model is [" + ReadShape(dims) + "]");
  }
}

TEST(InputShape, OfRankZeroIsOneElement) {
  const Transcript run = RunShape({});
  ExpectStatus(run, 0);
  ExpectLinesInOrder(run, {"[INFO]  The shape of the model is []",
                           "[WARN]  The input data shape not match model's input shape [N,C,H,W]",
                           "[WARN]  Reset the batchSize to [1]"});
}

TEST(InputShape, OfOneDimensionIsOneRow) {
  const Transcript run = RunShape({16});
  ExpectStatus(run, 0);
  EXPECT_EQ(InputsSeen(run)[0].bytes, support::CountingBytes(16));
  EXPECT_FALSE(run.HasLine("[WARN]  Reset the batchSize to [1]"));
}

// Minus one times minus sixteen is sixteen; minus sixteen alone is nearly 2^64.
TEST(InputShape, WithNegativeDimensionsMultipliesThemAsTheyAre) {
  const std::string reset = "[WARN]  Reset the batchSize to [1]";
  EXPECT_FALSE(RunShape({-1, -16}).HasLine(reset));
  EXPECT_TRUE(RunShape({-1, 16}).HasLine(reset));
}

// --- Entries of a list against a group of two.

TEST(GroupsOfTwo, AreCountedWhole) {
  const size_t iterations[] = {0, 0, 1, 1, 2, 2, 3};
  for (size_t entries = 0; entries < 7; ++entries) {
    SCOPED_TRACE(entries);
    Stage stage;
    stage.script.Input({"in0", {1, 4}, 4, 4, 4, 0}).Input({"in1", {1, 4}, 4, 4, 4, 0}).Scratch();
    stage.File("a", "abcd").List(Lines(entries, "a"));
    const Transcript run = stage.Run();
    ExpectStatus(run, 0);
    ExpectLinesInOrder(run, Plan(2, iterations[entries]));
    EXPECT_EQ(run.record.CallsOf("vorn_mdl_execute").size(), iterations[entries]);
    EXPECT_EQ(EntriesChecked(run).size(), entries);
  }
}

// --- Numbers at the ends of 32 bits.

/// The size printed of an input of 16 bytes, its list being empty.
std::string InfoSize(const std::string& batchSize) {
  Stage stage;
  stage.script.Input({"in0", {1, 16}, 4, 16, 16, 0}).Scratch();
  stage.List({});
  for (const std::string& line : stage.Run({"-b", batchSize}).lines) {
    const size_t at = line.find("dataSizeWithStride: ");
    if (at != std::string::npos) return line.substr(at + 20);
  }
  return "none";
}

TEST(BatchSize, IsTakenAsUnsignedAndMultipliedInSixtyFourBits) {
  EXPECT_EQ(InfoSize("2147483646"), "34359738336");
  EXPECT_EQ(InfoSize("2147483647"), "34359738352");
  EXPECT_EQ(InfoSize("-2147483648"), "34359738368");
  EXPECT_EQ(InfoSize("-2147483647"), "34359738384");
  EXPECT_EQ(InfoSize("-1"), "68719476720");
  EXPECT_EQ(InfoSize("0"), "0");
  EXPECT_EQ(InfoSize("1"), "16");
}

TEST(Profile, IsOnForOneAndForNoNumberNearIt) {
  const struct {
    const char* value;
    size_t runs;
  } cases[] = {{"0", 1}, {"1", 21},         {"01", 21},         {"+1x", 21},
               {"2", 1}, {"2147483647", 1}, {"-2147483648", 1}, {"257", 1}};
  for (const auto& each : cases) {
    SCOPED_TRACE(each.value);
    Stage stage;
    SetPlain(&stage);
    EXPECT_EQ(stage.Run({"-p", each.value}).record.CallsOf("vorn_mdl_execute").size(), each.runs);
  }
}

TEST(Report, CountsSizesInThirtyTwoBits) {
  Stage stage;
  const uint64_t wrap = uint64_t{1} << 32;
  stage.script.Input({"in0", {1, 4}, 4, 16, wrap + 1024, 0})
      .Input({"task", {1}, 4, 16, wrap + 512, 0})
      .Input({"work", {1}, 4, 16, wrap - 1, 0});
  stage.List({});
  const Transcript run = stage.Run({"-p", "1"});
  ExpectStatus(run, 0);
  ExpectLinesInOrder(run, {"[INFO]  Input Size:                1.000 KB.",
                           "[INFO]  Task Buffer Size:          0.500 KB.",
                           "[INFO]  Work Buffer Size:          4194303.999 KB."});
}

TEST(Report, WrapsASumOfInputsToo) {
  Stage stage;
  const uint64_t half = uint64_t{1} << 31;
  stage.script.Input({"in0", {1, 4}, 4, 16, half, 0})
      .Input({"in1", {1, 4}, 4, 16, half + 2048, 0})
      .Scratch();
  stage.List({});
  EXPECT_TRUE(stage.Run({"-p", "1"}).HasLine("[INFO]  Input Size:                2.000 KB."));
}

}  // namespace
}  // namespace e2e
