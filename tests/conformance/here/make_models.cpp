// conformance-models FOLDER: writes small ONNX models for the host runtime, one of each kind, and
// the tensors that the first one is known to give.
//
//     feed_forward.onnx   two inputs and three outputs of two types, all rows padded, open batch
//     fixed_batch.onnx    the same, executed item by item
//     types.onnx          an input of every element type, and a name longer than a record holds
//     detection.onnx      y = max(x, thresholds)
//     recurrent.onnx      y = all x of the sequence so far, step by step
//     whole_sequence.onnx the same at once, and the sum of all frames
//     answers/            input<i>.bin, output<i>.bin of feed_forward.onnx, by plain loops
#include <array>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/onnx_writer.h"

namespace {

constexpr size_t kImage = 2 * 3 * 5;
constexpr std::array<float, 6> kWeights = {1, -2, 3, 4, -5, 6};  // [3, 2]

/// scaled = 2 * image, mixed = mask * weights, same = mask.
std::string FeedForward(const OnnxDim& batch) {
  return OnnxWriter()
      .Input("image", kOnnxFloat, {batch, 2, 3, 5})
      .Input("mask", kOnnxUint8, {batch, 3})
      .Output("scaled", kOnnxFloat, {batch, 2, 3, 5})
      .Output("mixed", kOnnxFloat, {batch, 2})
      .Output("same", kOnnxUint8, {batch, 3})
      .Constant<float>("two", kOnnxFloat, {}, {2})
      .Constant<float>("weights", kOnnxFloat, {3, 2}, {kWeights.begin(), kWeights.end()})
      .Node("Mul", {"image", "two"}, {"scaled"})
      .Node("Cast", {"mask"}, {"real"}, {IntAttribute("to", kOnnxFloat)})
      .Node("MatMul", {"real", "weights"}, {"mixed"})
      .Node("Identity", {"mask"}, {"same"})
      .Image();
}

/// Every input of [batch, 3] comes out as it is.
std::string AllTypes() {
  OnnxWriter model;
  const OnnxType types[] = {kOnnxFloat,   kOnnxUint8,  kOnnxInt8,   kOnnxUint16,
                            kOnnxInt16,   kOnnxInt32,  kOnnxInt64,  kOnnxBool,
                            kOnnxFloat16, kOnnxDouble, kOnnxUint32, kOnnxUint64};
  for (const OnnxType type : types) {
    const std::string number = std::to_string(type);
    model.Input("x" + number, type, {"batch", 3});
    model.Output("y" + number, type, {"batch", 3});
    model.Node("Identity", {"x" + number}, {"y" + number});
  }
  const std::string longName(200, 'n');
  model.Output(longName, kOnnxFloat, {"batch", 3}).Node("Neg", {"x1"}, {longName});
  return model.Image();
}

std::string Detection() {
  return OnnxWriter()
      .Input("thresholds", kOnnxFloat, {1, 4})
      .Input("x", kOnnxFloat, {"batch", 3, 4})
      .Output("y", kOnnxFloat, {"batch", 3, 4})
      .Node("Max", {"x", "thresholds"}, {"y"})
      .Metadata("vorn", R"({"netType": "detection", "rpn": "thresholds"})")
      .Image();
}

std::string Recurrent() {
  return OnnxWriter()
      .Input("x", kOnnxFloat, {1, 2})
      .Input("sum", kOnnxFloat, {1, 2})
      .Output("y", kOnnxFloat, {1, 2})
      .Output("next", kOnnxFloat, {1, 2})
      .Node("Add", {"x", "sum"}, {"y"})
      .Node("Identity", {"y"}, {"next"})
      .Metadata("vorn", R"({"netType": "recurrent", "sequence": "steps", "maxFrames": 5,
                            "states": {"sum": "next"}})")
      .Image();
}

std::string WholeSequence() {
  return OnnxWriter()
      .Input("x", kOnnxFloat, {"time", 2})
      .Output("y", kOnnxFloat, {"time", 2})
      .Output("all", kOnnxFloat, {1})
      .Constant<int64_t>("axis", kOnnxInt64, {}, {0})
      .Constant<int64_t>("flat", kOnnxInt64, {1}, {1})
      .Node("CumSum", {"x", "axis"}, {"y"})
      .Node("ReduceSum", {"x"}, {"sum"}, {IntAttribute("keepdims", 0)})
      .Node("Reshape", {"sum", "flat"}, {"all"})
      .Metadata("vorn", R"({"netType": "recurrent", "maxFrames": 5})")
      .Image();
}

bool Write(const std::filesystem::path& path, const void* bytes, size_t size) {
  std::ofstream file(path, std::ios::binary);
  file.write(static_cast<const char*>(bytes), static_cast<std::streamsize>(size));
  return file.good();
}

bool Write(const std::filesystem::path& path, const std::string& image) {
  return Write(path, image.data(), image.size());
}

template <typename Value>
bool Write(const std::filesystem::path& path, const std::vector<Value>& values) {
  return Write(path, values.data(), values.size() * sizeof(Value));
}

bool WriteAnswers(const std::filesystem::path& folder) {
  std::filesystem::create_directories(folder);
  const std::vector<uint8_t> mask = {3, 5, 7};
  std::vector<float> image(kImage);
  std::vector<float> scaled(kImage);
  std::vector<float> mixed(2);
  for (size_t i = 0; i < kImage; ++i) {
    image[i] = static_cast<float>(i) - 11;
    scaled[i] = image[i] + image[i];
  }
  for (size_t k = 0; k < mask.size(); ++k) {
    for (size_t c = 0; c < 2; ++c) mixed[c] += static_cast<float>(mask[k]) * kWeights[2 * k + c];
  }
  return Write(folder / "input0.bin", image) && Write(folder / "input1.bin", mask) &&
         Write(folder / "output0.bin", scaled) && Write(folder / "output1.bin", mixed) &&
         Write(folder / "output2.bin", mask);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: conformance-models FOLDER\n");
    return 2;
  }
  const std::filesystem::path folder = argv[1];
  std::filesystem::create_directories(folder);
  const bool isWritten =
      Write(folder / "feed_forward.onnx", FeedForward("batch")) &&
      Write(folder / "fixed_batch.onnx", FeedForward(1)) &&
      Write(folder / "types.onnx", AllTypes()) && Write(folder / "detection.onnx", Detection()) &&
      Write(folder / "recurrent.onnx", Recurrent()) &&
      Write(folder / "whole_sequence.onnx", WholeSequence()) &&
      Write(folder / "config.json", std::string("{}")) && WriteAnswers(folder / "answers");
  if (!isWritten) std::fprintf(stderr, "conformance-models: %s cannot be written\n", argv[1]);
  return isWritten ? 0 : 1;
}
