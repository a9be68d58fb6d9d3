// Against the transcripts of whole runs, and against lines that are not as they should be.
#include "kit/model/run_log.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "kit/common/fault.h"
#include "support/files.h"
#include "vorn/vorn.h"

namespace vorn::kit {
namespace {

using testing::ElementsAre;

std::string Golden(const std::string& name) {
  return support::ReadFile(std::string(VORN_GOLDEN_FOLDER) + "/" + name + "/expected/stdout");
}

TEST(ReadRunLog, ReadsARunAndTakesTheBatchOut) {
  const ModelDescription description = ReadRunLog(Golden("batch"));  // -b 2
  EXPECT_EQ(description.model.path, "$DIR/model.om");
  EXPECT_EQ(description.model.xxh3, std::nullopt);
  EXPECT_EQ(description.netType, std::nullopt);
  EXPECT_EQ(description.runtime, std::nullopt);
  ASSERT_EQ(description.inputs.size(), 3U);
  const TensorDescription& image = description.inputs[0];
  EXPECT_EQ(image.name, "image");
  EXPECT_EQ(image.role, TensorRole::kData);
  EXPECT_THAT(image.shape, ElementsAre(1, 1, 2, 3));
  EXPECT_EQ(image.type, uint32_t{VORN_UINT8});
  EXPECT_EQ(image.elementBits, 8U);
  EXPECT_EQ(image.format, VORN_FORMAT_NCHW);
  EXPECT_EQ(image.strideBytes, 8U);
  EXPECT_EQ(image.deviceBytes, 16U);
  EXPECT_EQ(image.DenseBytes(), 6U);
  EXPECT_EQ(description.inputs[1].role, TensorRole::kTask);
  EXPECT_EQ(description.inputs[2].role, TensorRole::kWork);
  ASSERT_EQ(description.outputs.size(), 1U);
  EXPECT_EQ(description.outputs[0].name, "same");
  EXPECT_EQ(description.outputs[0].role, TensorRole::kOutput);
  EXPECT_EQ(description.outputs[0].deviceBytes, 16U);
}

TEST(ReadRunLog, ReadsWhateverATerminalAndALoggerAdded) {
  std::string log;
  for (const std::string& line : support::SplitLines(Golden("detection"))) {
    log += "[  12.345678] board: " + line + "\r\n";
    log += "something of another program\r\n";
  }
  const ModelDescription description = ReadRunLog(log);
  ASSERT_EQ(description.inputs.size(), 4U);
  EXPECT_EQ(description.inputs[1].name, "thresholds");
  ASSERT_EQ(description.outputs.size(), 3U);
  EXPECT_EQ(description.outputs[2].name, "picture");
}

TEST(ReadRunLog, ReadsARunThatEndedBehindTheDescription) {
  std::string log = Golden("batch");
  log.resize(log.find("[INFO]  inputPath: ./two.bin"));
  EXPECT_EQ(ReadRunLog(log).outputs.size(), 1U);
  log.pop_back();
  EXPECT_EQ(ReadRunLog(log).outputs.size(), 1U);
}

constexpr const char* kFront = "[INFO]  ------------------ Input Info ------------------\n";
constexpr const char* kImage =
    "[INFO]  Input index: 0, name: a: b, c\n"
    "[INFO]  Shape: [-1, ]\n"
    "[INFO]  DataType: 99, stride: 18446744073709551615, format: -7, dataSizeWithStride: 0\n";
constexpr const char* kMiddle = "[INFO]  ------------------ Output Info ------------------\n";

TEST(ReadRunLog, ReadsNamesAndNumbersOfAnyKind) {
  const ModelDescription description = ReadRunLog(std::string(kFront) + kImage + kMiddle);
  ASSERT_EQ(description.inputs.size(), 1U);
  EXPECT_EQ(description.inputs[0].name, "a: b, c");
  EXPECT_THAT(description.inputs[0].shape, ElementsAre(-1));
  EXPECT_EQ(description.inputs[0].type, 99U);
  EXPECT_EQ(description.inputs[0].elementBits, std::nullopt);
  EXPECT_EQ(description.inputs[0].strideBytes, UINT64_MAX);
  EXPECT_EQ(description.inputs[0].format, -7);
}

std::string FaultOf(const std::string& log) {
  try {
    (void)ReadRunLog(log);
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kInput);
    return fault.what();
  }
  return "no fault";
}

std::string AtLine(int number, const std::string& reason) {
  return "line " + std::to_string(number) + " of the log: " + reason +
         "; it should hold all that vorn-run printed, from its first line on";
}

TEST(ReadRunLog, RefusesALogWithoutADescription) {
  EXPECT_EQ(FaultOf(""),
            "there is no line 'Input Info' in 0 lines of the log: vorn-run prints it once it has "
            "loaded a model");
  EXPECT_EQ(FaultOf("[ERROR] vorn init failed\n[INFO]  end\n"),
            "there is no line 'Input Info' in 2 lines of the log: vorn-run prints it once it has "
            "loaded a model");
}

TEST(ReadRunLog, NamesTheLineThatIsWrong) {
  const std::string front = kFront;
  EXPECT_EQ(FaultOf(front), AtLine(1, "it has no line 'Output Info' behind the inputs"));
  EXPECT_EQ(FaultOf(front + kImage), AtLine(4, "it has no line 'Output Info' behind the inputs"));
  EXPECT_EQ(FaultOf(front + "[INFO]  Input index: x, name: y\n"),
            AtLine(2, "'Input index: x, name: y' names no tensor"));
  EXPECT_EQ(FaultOf(front + "[INFO]  Input index: 0\n"),
            AtLine(2, "'Input index: 0' names no tensor"));
  EXPECT_EQ(FaultOf(front + "[INFO]  Input index: 1, name: y\n"),
            AtLine(2, "index 1 where 0 is next"));
  EXPECT_EQ(FaultOf(front + "[INFO]  Input index: 0, name: y\n[INFO]  Shape: [1, 2]\n"),
            AtLine(3, "'Shape: [1, 2]' is no shape"));
  EXPECT_EQ(FaultOf(front + "[INFO]  Input index: 0, name: y\n[INFO]  Shape: [1, \n"),
            AtLine(3, "'Shape: [1, ' is no shape"));
  EXPECT_EQ(FaultOf(front + "[INFO]  Input index: 0, name: y\n"), AtLine(2, "'' is no shape"));
  EXPECT_EQ(FaultOf(front + "[INFO]  Input index: 0, name: y\n[INFO]  Shape: [1, ]\n"
                            "[INFO]  DataType: 0, stride: 4, format: 0, dataSizeWithStride: 4 \n"),
            AtLine(4,
                   "'DataType: 0, stride: 4, format: 0, dataSizeWithStride: 4 ' is no type and "
                   "stride"));
  EXPECT_EQ(FaultOf("[INFO]  batchSize: x\n"), AtLine(1, "the batch size is no number"));
  EXPECT_EQ(FaultOf("[INFO]  batchSize: 0\n"), AtLine(1, "the batch size is no number"));
}

TEST(ReadRunLog, RefusesSizesThatAreNoMultipleOfTheBatch) {
  std::string log = Golden("batch");
  log.replace(log.find("dataSizeWithStride: 32"), 22, "dataSizeWithStride: 33");
  EXPECT_NE(FaultOf(log).find("the size of 'image', 33, is no multiple of the batch, 2"),
            std::string::npos)
      << FaultOf(log);
}

}  // namespace
}  // namespace vorn::kit
