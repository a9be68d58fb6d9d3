#include "kit/model/model_text.h"

#include <gtest/gtest.h>

#include <functional>

#include "kit/common/fault.h"
#include "vorn/vorn.h"

namespace vorn::kit {
namespace {

TensorDescription Tensor(const std::string& name, std::vector<int64_t> shape, uint32_t type,
                         uint64_t strideBytes, uint64_t deviceBytes, int32_t format) {
  return {.role = TensorRole::kData,
          .name = name,
          .shape = std::move(shape),
          .type = type,
          .elementBits = BitsOfType(type),
          .format = format,
          .strideBytes = strideBytes,
          .deviceBytes = deviceBytes};
}

ModelDescription Detector() {
  ModelDescription description;
  description.netType = VORN_NET_DETECTION;
  description.model = {.path = "model.om", .sizeBytes = 2048, .xxh3 = "ab"};
  description.runtime = FileIdentity{.path = "/opt/libvorn.so", .sizeBytes = 7, .xxh3 = "cd"};
  description.inputs = {Tensor("image", {1, 1, 2, 3}, VORN_UINT8, 8, 16, VORN_FORMAT_NCHW),
                        Tensor("thresholds", {4, 3}, VORN_FLOAT32, 32, 128, VORN_FORMAT_ND),
                        Tensor("task", {16}, VORN_UINT8, 16, 16, VORN_FORMAT_ND),
                        Tensor("work", {32}, VORN_UINT8, 16, 32, VORN_FORMAT_ND)};
  description.outputs = {Tensor("boxes", {4, 5}, VORN_FLOAT32, 32, 128, VORN_FORMAT_ND)};
  AssignRoles(description);
  return description;
}

TEST(DescribeModel, ShowsWhatAFileHasToHold) {
  EXPECT_EQ(DescribeModel(Detector(), 1),
            "model    model.om, 2.0 KiB, XXH3-128 ab\n"
            "network  detection\n"
            "runtime  /opt/libvorn.so, 7 bytes, XXH3-128 cd\n"
            "batch    1 item\n"
            "scratch  task buffer 16 bytes, work buffer 32 bytes\n"
            "\n"
            "input  name        shape    type     format     file bytes  stride  device bytes\n"
            "    0  image       1x1x2x3  uint8    NCHW                6       8            16\n"
            "    1  thresholds  4x3      float32  ND      numbers of -r      32           128\n"
            "\n"
            "output  name   shape  type     format  dense bytes  stride  device bytes\n"
            "     0  boxes  4x5    float32  ND               80      32           128\n");
}

TEST(DescribeModel, MultipliesWhatGrowsWithTheBatch) {
  EXPECT_EQ(DescribeModel(Detector(), 3),
            "model    model.om, 2.0 KiB, XXH3-128 ab\n"
            "network  detection\n"
            "runtime  /opt/libvorn.so, 7 bytes, XXH3-128 cd\n"
            "batch    3 items\n"
            "scratch  task buffer 48 bytes, work buffer 96 bytes\n"
            "\n"
            "input  name        shape    type     format     file bytes  stride  device bytes\n"
            "    0  image       1x1x2x3  uint8    NCHW               18       8            48\n"
            "    1  thresholds  4x3      float32  ND      numbers of -r      32           128\n"
            "\n"
            "output  name   shape  type     format  dense bytes  stride  device bytes\n"
            "     0  boxes  4x5    float32  ND              240      32           384\n");
}

TEST(DescribeModel, SaysWhatIsNotKnown) {
  ModelDescription description;
  description.model.path = "model.om";
  description.inputs.resize(3);
  description.inputs[0].name = "image";
  AssignRoles(description);
  EXPECT_EQ(DescribeModel(description, 1),
            "model    model.om\n"
            "network  unknown\n"
            "batch    1 item\n"
            "scratch  task buffer unknown bytes, work buffer unknown bytes\n"
            "\n"
            "input  name   shape  type     format   file bytes   stride  device bytes\n"
            "    0  image         unknown  unknown     unknown  unknown       unknown\n"
            "\n"
            "output  name  shape  type  format  dense bytes  stride  device bytes\n");
}

TEST(DescribeModel, TellsTheFramesOfARecurrentModel) {
  ModelDescription description = Detector();
  description.netType = VORN_NET_RECURRENT;
  description.inputs[0].shape = {9, 1, 3};
  EXPECT_NE(DescribeModel(description, 1).find("frames   input 0 takes 1 to 9 of 3 bytes each\n"),
            std::string::npos);
}

TEST(DescribeModel, NamesNoFormatThatTheShapeContradicts) {
  const auto text = [](const std::vector<int64_t>& shape, int32_t format) {
    ModelDescription description = Detector();
    description.inputs[0].shape = shape;
    description.inputs[0].format = format;
    return DescribeModel(description, 1);
  };
  EXPECT_EQ(text({1, 224, 224, 3}, VORN_FORMAT_NCHW).find("NCHW"), std::string::npos);
  EXPECT_EQ(text({1, 28, 28, 1}, VORN_FORMAT_NCHW).find("NCHW"), std::string::npos);
  EXPECT_NE(text({1, 224, 224, 3}, VORN_FORMAT_NHWC).find("NHWC"), std::string::npos);
  for (const std::vector<int64_t>& shape : std::vector<std::vector<int64_t>>{
           {1, 3, 224, 224}, {1, 64, 3, 3}, {1, 64, 1, 1}, {1, 80, 3000, 1}}) {
    EXPECT_NE(text(shape, VORN_FORMAT_NCHW).find("NCHW"), std::string::npos);
  }
}

TEST(DescribeModel, SaysThatASizeDoesNotFit) {
  ModelDescription description = Detector();
  description.inputs[0].deviceBytes = UINT64_MAX;
  EXPECT_NE(DescribeModel(description, 2).find("NCHW               12       8       unknown"),
            std::string::npos)
      << DescribeModel(description, 2);
}

TEST(DrawLayout, ShowsWhereRowsBegin) {
  EXPECT_EQ(DrawLayout(Detector().inputs[0], 2),
            "image: 1x1x2x3 of uint8, 2 rows of 3 bytes, 8 apart\n"
            "dense (a file)  12 bytes\n"
            "block           32 bytes, of which 20 are padding\n"
            "item 0\n"
            "  row 0       file 0..3                 block 0..3, padding to 8\n"
            "  row 1       file 3..6                 block 8..11, padding to 16\n"
            "item 1\n"
            "  row 0       file 6..9                 block 16..19, padding to 24\n"
            "  row 1       file 9..12                block 24..27, padding to 32\n");
}

TEST(DrawLayout, LeavesOutTheMiddleOfMany) {
  const TensorDescription tensor = Tensor("t", {5, 4}, VORN_UINT8, 4, 20, VORN_FORMAT_ND);
  EXPECT_EQ(DrawLayout(tensor, 4),
            "t: 5x4 of uint8, 5 rows of 4 bytes, 4 apart\n"
            "dense (a file)  80 bytes\n"
            "block           80 bytes, of which 0 are padding\n"
            "item 0\n"
            "  row 0       file 0..4                 block 0..4\n"
            "  row 1       file 4..8                 block 4..8\n"
            "  ...\n"
            "  row 4       file 16..20               block 16..20\n"
            "item 1\n"
            "  row 0       file 20..24               block 20..24\n"
            "  row 1       file 24..28               block 24..28\n"
            "  ...\n"
            "  row 4       file 36..40               block 36..40\n"
            "item 2 to 2\n"
            "  ...\n"
            "item 3\n"
            "  row 0       file 60..64               block 60..64\n"
            "  row 1       file 64..68               block 64..68\n"
            "  ...\n"
            "  row 4       file 76..80               block 76..80\n");
}

std::string FaultOf(const std::function<void()>& action, ExitStatus status) {
  try {
    action();
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), status);
    return fault.what();
  }
  return "no fault";
}

TEST(DrawLayout, RefusesWhatIsNotKnown) {
  TensorDescription tensor = Detector().inputs[0];
  tensor.strideBytes = std::nullopt;
  EXPECT_EQ(FaultOf([&] { (void)DrawLayout(tensor, 1); }, ExitStatus::kModel),
            "the layout of 'image' is not known: its type, its stride or its size is missing, or "
            "too large");
}

TEST(FindTensor, LooksAmongInputsAndOutputs) {
  const ModelDescription detector = Detector();
  EXPECT_EQ(&FindTensor(detector, "image"), &detector.inputs[0]);
  EXPECT_EQ(&FindTensor(detector, "boxes"), &detector.outputs[0]);
}

TEST(FindTensor, NamesTheNearest) {
  const ModelDescription detector = Detector();
  EXPECT_EQ(FaultOf([&] { (void)FindTensor(detector, "imgae"); }, ExitStatus::kUsage),
            "the model has no 'imgae'; did you mean 'image'?; it has image, thresholds, task, "
            "work, boxes");
}

}  // namespace
}  // namespace vorn::kit
