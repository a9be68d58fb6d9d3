// The length of an input file against the batch, and lengths around the ends of 32 bits: each just
// below a border, on it and just above.
#include <gtest/gtest.h>

#include "e2e/expected.h"

namespace e2e {
namespace {

using support::Stage;
using support::TensorSpec;
using support::Transcript;

constexpr uint64_t kGib = uint64_t{1} << 30;
constexpr char kMismatch[] = "[WARN]  The input data shape not match model's input shape [N,C,H,W]";
constexpr char kNoBuffer[] = "[ERROR] get pic device buffer failed";

std::string Reset(uint64_t batchSize) {
  return "[WARN]  Reset the batchSize to [" + std::to_string(batchSize) + "]";
}

std::string TooLong(uint64_t length, uint64_t room) {
  return "[ERROR] Input data size[" + std::to_string(length) +
         "] must be smaller than malloc size[" + std::to_string(room) + "]";
}

const TensorSpec kDense{"in0", {1, 16}, 4, 16, 16, 0};      // 16 bytes per item, in rows of 16
const TensorSpec kPadded{"in0", {1, 2, 12}, 4, 16, 32, 0};  // 24 bytes per item, laid out in 32

/// One length of a file, and the lines about it after that of the shape.
struct Length {
  const char* name;
  const TensorSpec* tensor;
  uint64_t batchSize;  // of the command line
  uint64_t length;
  Lines said;
  uint64_t batchAfter;  // 0: the file is refused
};

void PrintTo(const Length& length, std::ostream* out) { *out << length.name; }

class FileLength : public testing::TestWithParam<Length> {};

TEST_P(FileLength, DecidesBatchAndOutcome) {
  const Length& each = GetParam();
  Stage stage;
  stage.script.Input(*each.tensor).Scratch().Line("see inputs hex");
  const std::string file = support::CountingBytes(each.length);
  stage.File("a.bin", file).List({"a.bin"});
  const Transcript run = stage.Run({"-b", std::to_string(each.batchSize)});
  const Lines head = Join({Reading("$DIR/a.bin", *each.tensor, 1), each.said});
  const std::string start = "[INFO]  start to process file:$DIR/a.bin";
  if (each.batchAfter == 0) {
    ExpectStatus(run, 1);
    EXPECT_EQ(run.Between(start, kNoBuffer), head);
    EXPECT_EQ(run.record.Violations(), Lines{});
    return;
  }
  ExpectStatus(run, 0);
  EXPECT_EQ(run.Between(start, "[INFO]  model execute success"),
            Join({head, BatchSet(each.batchAfter)}));
  // What the rows of the batch take of the file, a byte at a time.
  std::string expected(each.batchAfter * each.tensor->size, '\xA5');
  const auto rowBytes = static_cast<size_t>(each.tensor->dims.back());
  for (size_t at = 0; at < file.size() && at / rowBytes * 16 < expected.size(); ++at) {
    expected[at / rowBytes * 16 + at % rowBytes] = file[at];
  }
  const auto inputs = InputsSeen(run);
  ASSERT_EQ(inputs.size(), 3u);
  EXPECT_EQ(inputs[0].bufferSize, each.batchSize * each.tensor->size);
  EXPECT_EQ(support::Hex(inputs[0].bytes.substr(0, expected.size())), support::Hex(expected));
  EXPECT_EQ(inputs[1].bufferSize, each.batchAfter * 32);
  ExpectClean(run);
}

std::string NameOf(const testing::TestParamInfo<Length>& info) { return info.param.name; }

INSTANTIATE_TEST_SUITE_P(
    OfDenseItems, FileLength,
    testing::Values(
        Length{"AByteShortOfOneIsKept", &kDense, 1, 15, {kMismatch}, 1},
        Length{"OfOneIsSilent", &kDense, 1, 16, {}, 1},
        Length{"AByteOverOneIsTooLong", &kDense, 1, 17, {TooLong(17, 16)}, 0},
        Length{"AByteShortOfTwoIsTooLongForOne", &kDense, 1, 31, {TooLong(31, 16)}, 0},
        Length{"OfTwoBecomesTwo", &kDense, 1, 32, {kMismatch, Reset(2)}, 2},
        Length{"AByteOverTwoIsTooLong", &kDense, 1, 33, {kMismatch, Reset(2), TooLong(33, 32)}, 0},
        Length{"OfTwoIsSilentForTwo", &kDense, 2, 32, {}, 2},
        Length{"AByteShortOfTwoIsResetAndTooLong",
               &kDense,
               2,
               31,
               {kMismatch, Reset(1), TooLong(31, 16)},
               0},
        Length{"AByteOverTwoIsTooLongForTwo", &kDense, 2, 33, {TooLong(33, 32)}, 0},
        Length{"AByteShortOfOneIsKeptForTwo", &kDense, 2, 15, {kMismatch}, 2},
        Length{"OfOneBecomesOneForTwo", &kDense, 2, 16, {kMismatch, Reset(1)}, 1},
        Length{"AByteOverOneIsTooLongForTwo",
               &kDense,
               2,
               17,
               {kMismatch, Reset(1), TooLong(17, 16)},
               0},
        Length{"AByteShortOfSeven", &kDense, 7, 111, {kMismatch, Reset(6), TooLong(111, 96)}, 0},
        Length{"OfSevenIsSilentForSeven", &kDense, 7, 112, {}, 7},
        Length{"AByteOverSevenIsTooLong", &kDense, 7, 113, {TooLong(113, 112)}, 0}),
    NameOf);

// The first comparison divides by the 24 bytes of an item, the reset by the 32 of its layout.
INSTANTIATE_TEST_SUITE_P(
    OfPaddedItems, FileLength,
    testing::Values(
        Length{"AByteShortOfOneIsKept", &kPadded, 1, 23, {kMismatch}, 1},
        Length{"OfOneIsSilent", &kPadded, 1, 24, {}, 1},
        Length{"AByteOverOneIsSilent", &kPadded, 1, 25, {}, 1},
        Length{"AByteShortOfTheLayoutIsSilent", &kPadded, 1, 31, {}, 1},
        Length{"OfTheLayoutIsSilent", &kPadded, 1, 32, {}, 1},
        Length{"AByteOverTheLayoutIsTooLong", &kPadded, 1, 33, {TooLong(33, 32)}, 0},
        Length{"AByteShortOfTwoIsTooLong", &kPadded, 1, 47, {TooLong(47, 32)}, 0},
        Length{"OfTwoIsResetToOneAndTooLong",
               &kPadded,
               1,
               48,
               {kMismatch, Reset(1), TooLong(48, 32)},
               0},
        Length{"AByteShortOfTwoLayoutsIsTooLong",
               &kPadded,
               1,
               63,
               {kMismatch, Reset(1), TooLong(63, 32)},
               0},
        Length{"OfTwoLayoutsBecomesTwo", &kPadded, 1, 64, {kMismatch, Reset(2)}, 2},
        Length{"AByteOverTwoLayoutsIsTooLong",
               &kPadded,
               1,
               65,
               {kMismatch, Reset(2), TooLong(65, 64)},
               0},
        Length{"OfThreeLayoutsBecomesThree", &kPadded, 1, 96, {kMismatch, Reset(3)}, 3},
        Length{"AByteShortOfOneIsKeptForTwo", &kPadded, 2, 23, {kMismatch}, 2},
        Length{"OfOneIsKeptForTwo", &kPadded, 2, 24, {kMismatch}, 2},
        Length{"AByteShortOfTheLayoutIsKeptForTwo", &kPadded, 2, 31, {kMismatch}, 2},
        Length{"OfTheLayoutBecomesOneForTwo", &kPadded, 2, 32, {kMismatch, Reset(1)}, 1},
        Length{"AByteShortOfTwoIsResetAndTooLong",
               &kPadded,
               2,
               47,
               {kMismatch, Reset(1), TooLong(47, 32)},
               0},
        Length{"OfTwoIsSilentForTwo", &kPadded, 2, 48, {}, 2},
        Length{"AByteOverTwoIsSilentForTwo", &kPadded, 2, 49, {}, 2},
        Length{"OfTwoLayoutsIsSilentForTwo", &kPadded, 2, 64, {}, 2},
        Length{"AByteOverTwoLayoutsIsTooLongForTwo", &kPadded, 2, 65, {TooLong(65, 64)}, 0},
        Length{"AByteShortOfThreeIsTooLongForTwo", &kPadded, 2, 71, {TooLong(71, 64)}, 0},
        Length{"OfThreeIsResetToTwoAndTooLong",
               &kPadded,
               2,
               72,
               {kMismatch, Reset(2), TooLong(72, 64)},
               0}),
    NameOf);

/// A run over one dense input whose file is that long and takes no room on the disk.
Transcript RunSparse(uint64_t length) {
  Stage stage;
  stage.script.Input(kDense).Scratch().Line("see inputs hex").Line("limit 1048576");
  support::WriteSparseFile(stage.Folder() / "a.bin", length);
  stage.List({"a.bin"});
  return stage.Run();
}

TEST(HugeInput, AByteShortOfTwoGibibytesIsMeasuredAsItIs) {
  const Transcript run = RunSparse(2 * kGib - 1);
  ExpectStatus(run, 1);
  ExpectLinesInOrder(run,
                     {kMismatch, Reset(134217727), TooLong(2147483647, 2147483632), kNoBuffer});
}

// The length is cut to a signed 32-bit number and widened again.
TEST(HugeInput, OfTwoGibibytesIsMeasuredAsNearlyEndless) {
  const Transcript run = RunSparse(2 * kGib);
  ExpectStatus(run, 1);
  ExpectLinesInOrder(
      run, {kMismatch, Reset(4160749568), TooLong(18446744071562067968U, 66571993088), kNoBuffer});
}

TEST(HugeInput, AByteShortOfFourGibibytesIsMeasuredAsTheLargestNumber) {
  const Transcript run = RunSparse(4 * kGib - 1);
  ExpectStatus(run, 1);
  ExpectLinesInOrder(run,
                     {kMismatch, Reset(4294967295), TooLong(~uint64_t{0}, 68719476720), kNoBuffer});
}

TEST(HugeInput, OfAWholeNumberOfFourGibibytesIsEmpty) {
  for (const uint64_t length : {4 * kGib, 8 * kGib}) {
    const Transcript run = RunSparse(length);
    ExpectStatus(run, 1);
    EXPECT_EQ(FromFirstError(run), FailedInput({"[ERROR] Empty file: $DIR/a.bin", kNoBuffer}));
  }
}

TEST(HugeInput, AByteOverFourGibibytesIsMeasuredAsOneByteAndCopied) {
  const Transcript run = RunSparse(4 * kGib + 1);
  ExpectStatus(run, 0);
  ExpectLinesInOrder(run, Join({{kMismatch}, BatchSet()}));
  EXPECT_EQ(InputsSeen(run)[0].bytes, std::string(16, '\0'));
  ExpectClean(run);
}

TEST(RaisedBatch, WithoutMemoryForItsBlockEndsTheRun) {
  Stage stage;
  stage.script.Input(kPadded).Scratch().Answer("vorn_rt_malloc", "3", "5");
  stage.File("a.bin", support::CountingBytes(64)).List({"a.bin"});
  const Transcript run = stage.Run();
  ExpectStatus(run, 1);
  EXPECT_EQ(FromFirstError(run),
            FailedInput({"[ERROR] malloc device buffer failed. size is 64", kNoBuffer}));
}

/// The first request for memory for a model of that length, and the lines that follow.
void ExpectModelRequest(uint64_t length, uint64_t requested, uint64_t shown) {
  Stage stage;
  SetPlain(&stage);
  stage.script.Line("limit 1048576");
  support::WriteSparseFile(stage.Folder() / "model.om", length);
  const Transcript run = stage.Run();
  EXPECT_TRUE(run.EndedByDivision()) << run.Describe();
  ExpectLinesInOrder(
      run, {"[ERROR] malloc device buffer failed. size is " + std::to_string(shown),
            "[INFO]  load model $DIR/model.om success", "[ERROR] get model description failed"});
  EXPECT_EQ(run.record.CallsOf("vorn_rt_malloc"),
            (Lines{"vorn_rt_malloc(" + std::to_string(requested) + ", 2) = 5"}));
  EXPECT_EQ(run.record.CallsOf("vorn_mdl_load_from_mem").front().substr(0, 31),
            "vorn_mdl_load_from_mem(null, 0)");
}

TEST(HugeModel, AByteShortOfTwoGibibytesAsksForItsLength) {
  ExpectModelRequest(2 * kGib - 1, 2147483647, 2147483647);
}

TEST(HugeModel, OfTwoGibibytesAsksForTooMuch) {
  ExpectModelRequest(2 * kGib, 18446744071562067968U, 2147483648);
}

TEST(HugeModel, AByteShortOfFourGibibytesAsksForEverything) {
  ExpectModelRequest(4 * kGib - 1, ~uint64_t{0}, 4294967295);
}

TEST(HugeModel, AByteOverFourGibibytesIsOneByteLong) {
  Stage stage;
  SetPlain(&stage);
  support::WriteSparseFile(stage.Folder() / "model.om", 4 * kGib + 1);
  const Transcript run = stage.Run({"-p", "1"});
  ExpectStatus(run, 0);
  EXPECT_EQ(run.record.CallsOf("vorn_mdl_load_from_mem"),
            (Lines{"vorn_mdl_load_from_mem(block#1, 1) = 0 model#1"}));
  EXPECT_TRUE(run.HasLine("[INFO]  Om Size:                   0.001 KB."));
}

// A tebibyte and a bit: only the low 32 bits of a position count anywhere.
TEST(HugeModel, OfATebibyteAndFiveBytesIsFiveBytesLong) {
  Stage stage;
  SetPlain(&stage);
  try {
    support::WriteSparseFile(stage.Folder() / "model.om", 1024 * kGib + 5);
  } catch (const std::exception&) {
    GTEST_SKIP() << "the disk has no file that long";
  }
  EXPECT_EQ(stage.Run().record.CallsOf("vorn_mdl_load_from_mem"),
            (Lines{"vorn_mdl_load_from_mem(block#1, 5) = 0 model#1"}));
}

}  // namespace
}  // namespace e2e
