// The values of an output: rows without their padding, elements by their type, and what is refused.
#include <gtest/gtest.h>

#include <cstring>

#include "e2e/expected.h"

namespace e2e {
namespace {

using support::Stage;
using support::TensorSpec;
using support::Transcript;

constexpr char kTextFile[] = "0/o.0.T.float";
constexpr char kBinaryFile[] = "0/o.0.T.bin";

/// A stage whose only output is this; an execution writes the bytes to its start.
void SetOutput(Stage* stage, const TensorSpec& output, const std::string& bytes) {
  stage->script.Input({"in0", {1, 4}, 4, 4, 4, 0}).Scratch().Output(output);
  if (!bytes.empty()) stage->script.Line("write 0 bytes " + support::Hex(bytes));
  stage->File("a.bin", "abcd").List({"a.bin"});
}

float FromBits(uint32_t bits) {
  float value = 0;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

void ExpectValues(const Transcript& run, const std::vector<float>& values) {
  ExpectStatus(run, 0);
  ASSERT_EQ(run.files.size(), 2u) << run.Describe();
  EXPECT_EQ(support::Hex(run.files.at(kBinaryFile)), support::Hex(support::Bytes(values)));
  EXPECT_EQ(run.files.at(kTextFile), TextDump(values));
}

TEST(OutputValues, DropTheRestOfEachRow) {
  Stage stage;
  SetOutput(&stage, {"o", {1, 3}, 0, 16, 16, 0}, support::Bytes<float>({1, 2, 3, 4}));
  const Transcript run = stage.Run();
  ExpectValues(run, {1, 2, 3});
  ExpectClean(run);
}

TEST(OutputValues, RunOverTheWholeBatch) {
  Stage stage;
  SetOutput(&stage, {"o", {1, 2, 2}, 0, 32, 64, 0}, support::CountingBytes(128));
  stage.File("a.bin", "abcdefgh");
  const Transcript run = stage.Run({"-b", "2"});
  std::vector<float> expected;
  for (const size_t offset : {0, 4, 32, 36, 64, 68, 96, 100}) {
    const std::string bytes = support::CountingBytes(4, static_cast<unsigned>(offset));
    float value = 0;
    std::memcpy(&value, bytes.data(), sizeof value);
    expected.push_back(value);
  }
  ExpectValues(run, expected);
}

TEST(OutputValues, AreReadByTheirTypeCode) {
  const struct {
    uint32_t type;
    int64_t count;
    std::string bytes;
    std::vector<float> values;
  } cases[] = {
      {0, 2, support::Bytes<float>({-0.1F, 3e38F}), {-0.1F, 3e38F}},
      {1, 2, "\xFF\xFF\x01\x02", {65535, 513}},
      {2, 4, "\xFF\x80\x7F\x01", {-1, -128, 127, 1}},
      {3, 1, support::Bytes<int32_t>({1}), {FromBits(1)}},
      {4, 4, "\xFF\x80\x7F\x01", {255, 128, 127, 1}},
      {5, 1, support::Bytes<uint32_t>({0x80000001}), {FromBits(0x80000001)}},
      {6, 2, "\xFF\xFF\x01\x80", {-1, -32767}},
      {7, 2, "\xFF\xFF\x01\x80", {65535, 32769}},
      {8, 2, support::Bytes<uint32_t>({7, 9}), {FromBits(7), FromBits(9)}},
      {10, 2, support::Bytes<double>({1.0}), {FromBits(0), FromBits(0x3FF00000)}},
      {11, 1, support::Bytes<float>({2.5F}), {2.5F}},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE("type " + std::to_string(each.type));
    Stage stage;
    SetOutput(&stage, {"o", {1, each.count}, each.type, 16, 16, 0}, each.bytes);
    const Transcript run = stage.Run();
    ExpectValues(run, each.values);
    EXPECT_TRUE(
        run.HasLine("[INFO]  The value of vorn_data_type is [" + std::to_string(each.type) + "]"));
  }
}

TEST(OutputValues, TakeAnUnknownCodeForFloats) {
  Stage stage;
  SetOutput(&stage, {"o", {1, 2}, 4000000000u, 16, 16, 0}, support::Bytes<float>({1.5F, -2}));
  stage.script.Line("bits 4000000000 32");
  const Transcript run = stage.Run();
  ExpectValues(run, {1.5F, -2});
  EXPECT_TRUE(run.HasLine("[INFO]  The value of vorn_data_type is [4000000000]"));
}

// Rows are stepped over in elements of the runtime's size and read in elements of the code's own.
TEST(OutputValues, StepByTheRuntimesElementSize) {
  Stage stage;
  SetOutput(&stage, {"o", {2, 2}, 10, 16, 32, 0}, support::Bytes<float>({1, 2, 3, 4, 5, 6, 7, 8}));
  ExpectValues(stage.Run(), {1, 2, 3, 4});
}

TEST(OutputValues, StepByTheRuntimesElementSizeForShortsToo) {
  Stage stage;
  SetOutput(&stage, {"o", {2, 2}, 7, 16, 32, 0},
            support::Bytes<uint16_t>({1, 2, 3, 4, 5, 6, 7, 8}));
  stage.script.Line("bits 7 32");
  ExpectValues(stage.Run(), {1, 2, 5, 6});
}

TEST(OutputValues, AreNoneForAnOutputSmallerThanItsStride) {
  Stage stage;
  SetOutput(&stage, {"o", {1, 2}, 0, 16, 8, 0}, support::Bytes<float>({1, 2}));
  ExpectValues(stage.Run(), {});
}

TEST(OutputValues, MayBeNoNumbersAtAll) {
  Stage stage;
  SetOutput(&stage, {"o", {1, 4}, 0, 16, 16, 0},
            support::Bytes<uint32_t>({0x7F800000, 0xFF800000, 0x7FC00000, 0x80000000}));
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(run.files.at(kTextFile), "inf\n-inf\nnan\n-0.0000000000000000\n");
}

TEST(OutputValues, KeepSixteenDigits) {
  Stage stage;
  SetOutput(&stage, {"o", {1, 3}, 0, 16, 16, 0}, support::Bytes<float>({0.1F, 1e10F, -1e-20F}));
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(run.files.at(kTextFile),
            "0.1000000014901161\n10000000000.0000000000000000\n-0.0000000000000000\n");
}

/// A refusal comes once for each of the two files.
Transcript ExpectRefused(Stage* stage, const Lines& cause) {
  Transcript run = stage->Run();
  ExpectStatus(run, 0);
  const Lines once = Join({cause, {"[ERROR] GetOutputWithOutStride fail"}});
  EXPECT_EQ(FromFirstError(run),
            Join({once, once, {"[INFO]  dump data success"}, Unloaded(), Success()}))
      << run.Describe();
  EXPECT_TRUE(run.files.empty());
  return run;
}

TEST(OutputValues, RefuseAShapeWithoutALastDimension) {
  for (const std::vector<int64_t>& dims :
       {std::vector<int64_t>{}, std::vector<int64_t>{3, 0}, std::vector<int64_t>{3, -1}}) {
    SCOPED_TRACE(InfoShape(dims));
    Stage stage;
    SetOutput(&stage, {"o", dims, 0, 16, 16, 0}, "");
    ExpectRefused(&stage, {"[ERROR] Error, dims para invalid"});
  }
}

TEST(OutputValues, RefuseAnElementOfNoWholeByte) {
  for (const char* bits : {"0", "7"}) {
    Stage stage;
    SetOutput(&stage, {"o", {1, 4}, 99, 16, 16, 0}, "");
    stage.script.Line(std::string("bits 99 ") + bits);
    ExpectRefused(&stage, {"[ERROR] Error, dataSize == 0 invalid"});
  }
}

// The first answers went into the printed description, the statistics and the dataset; behind the
// one that is refused nothing is asked any more.
TEST(OutputValues, RefuseWhatTheRuntimeDoesNotTell) {
  const struct {
    const char* operation;
    const char* calls;
    const char* value;
    const char* error;
    const char* next;
    size_t nextCalls;
  } cases[] = {
      {"vorn_mdl_get_output_dims", "2-", "5", "[ERROR] vorn_mdl_get_output_dims error!",
       "vorn_mdl_get_output_default_stride", 2},
      {"vorn_mdl_get_output_default_stride", "3-", "0",
       "[ERROR] vorn_mdl_get_output_default_stride error!", "vorn_mdl_get_output_size_by_index", 3},
      {"vorn_mdl_get_output_size_by_index", "4-", "0",
       "[ERROR] vorn_mdl_get_output_size_by_index error!", "vorn_mdl_get_output_data_type", 2},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.operation);
    Stage stage;
    SetOutput(&stage, {"o", {1, 4}, 0, 16, 16, 0}, "");
    stage.script.Answer(each.operation, each.calls, each.value);
    const Transcript run =
        ExpectRefused(&stage, {each.error, "[ERROR] Error, GetOutputStrideParam failed"});
    EXPECT_EQ(run.record.CallsOf(each.next).size(), each.nextCalls);
  }
}

TEST(OutputValues, RefuseABufferThatIsNotThere) {
  Stage stage;
  SetOutput(&stage, {"o", {1, 4}, 0, 16, 16, 0}, "");
  stage.script.AnswerAt("vorn_mdl_get_dataset_buffer", 0, "1-2", "null");
  const Transcript run = ExpectRefused(&stage, {"[ERROR] output[0] dataBuffer nullptr invalid"});
  for (const std::string& call : run.record.CallsOf("vorn_get_data_buffer_addr")) {
    EXPECT_EQ(call.find("(null)"), std::string::npos) << call;
  }
}

TEST(OutputValues, RefuseABufferWithoutABlockOrASize) {
  Stage stage;
  SetOutput(&stage, {"o", {1, 4}, 0, 16, 16, 0}, "");
  stage.script.Answer("vorn_get_data_buffer_addr", "1-2", "null");
  ExpectRefused(&stage, {"[ERROR] output[0] data or size(16) invalid"});
  Stage other;
  SetOutput(&other, {"o", {1, 4}, 0, 16, 16, 0}, "");
  other.script.Answer("vorn_get_data_buffer_size", "1-2", "0");
  ExpectRefused(&other, {"[ERROR] output[0] data or size(0) invalid"});
}

TEST(OutputValues, OfOneOutputAreRefusedWithoutTheOthers) {
  Stage stage;
  SetOutput(&stage, {"o", {1, 0}, 0, 16, 16, 0}, "");
  stage.script.Output({"p", {1, 1}, 0, 4, 4, 0}).Line("write 1 floats 2");
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(run.files.size(), 2u);
  EXPECT_EQ(run.files.at("0/p.0.T.float"), "2.0000000000000000\n");
}

}  // namespace
}  // namespace e2e
