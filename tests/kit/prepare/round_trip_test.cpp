// An array that goes through vorn prepare and vorn launch and comes back as it was: for every type
// whose values a dump holds, several strides, with and without batches.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "support/command.h"
#include "support/files.h"
#include "support/onnx_writer.h"

namespace {

namespace fs = std::filesystem;
using support::Outcome;

struct Kind {
  const char* name;
  OnnxType type;
  const char* code;  ///< of .npy
  size_t bytes;
};

const std::vector<Kind> kKinds{
    {"float32", kOnnxFloat, "<f4", 4}, {"float16", kOnnxFloat16, "<f2", 2},
    {"int8", kOnnxInt8, "|i1", 1},     {"uint8", kOnnxUint8, "|u1", 1},
    {"int16", kOnnxInt16, "<i2", 2},   {"uint16", kOnnxUint16, "<u2", 2},
    {"int32", kOnnxInt32, "<i4", 4},   {"uint32", kOnnxUint32, "<u4", 4},
};

constexpr int kSamples = 4;
constexpr int kRows = 3;
constexpr int kColumns = 5;  // no multiple of any alignment

// [samples, rows, columns], version 1.
std::string Npy(const Kind& kind, const std::string& values) {
  std::string text = "{'descr': '" + std::string(kind.code) +
                     "', 'fortran_order': False, 'shape': (" + std::to_string(kSamples) + ", " +
                     std::to_string(kRows) + ", " + std::to_string(kColumns) + "), }";
  text.resize(128 - 10 - 1, ' ');
  text += '\n';
  return std::string("\x93NUMPY\x01\x00", 8) + static_cast<char>(text.size()) + '\0' + text +
         values;
}

// Any bits but those of floats that are no numbers, which a dump may bring back otherwise.
std::string Values(const Kind& kind) {
  std::mt19937 random(static_cast<unsigned>(kind.type));
  std::string bytes(kSamples * kRows * kColumns * kind.bytes, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  if (kind.type == kOnnxFloat || kind.type == kOnnxFloat16) {
    // The exponent's highest bit cleared.
    for (size_t at = kind.bytes - 1; at < bytes.size(); at += kind.bytes) {
      bytes[at] = static_cast<char>(bytes[at] & 0xBF);
    }
  }
  return bytes;
}

// The array that comes back has float32 where a dump holds the values as floats.
template <typename Value>
std::string AsFloats(const std::string& bytes) {
  std::string floats;
  for (size_t at = 0; at < bytes.size(); at += sizeof(Value)) {
    Value value{};
    std::memcpy(&value, bytes.data() + at, sizeof value);
    floats += support::Bytes<float>({static_cast<float>(value)});
  }
  return floats;
}

std::string Expected(const Kind& kind, const std::string& values) {
  switch (kind.type) {
    case kOnnxInt8:
      return AsFloats<int8_t>(values);
    case kOnnxUint8:
      return AsFloats<uint8_t>(values);
    case kOnnxInt16:
      return AsFloats<int16_t>(values);
    case kOnnxUint16:
      return AsFloats<uint16_t>(values);
    default:
      return values;
  }
}

std::string DataOf(const fs::path& npy) {
  const std::string bytes = support::ReadFile(npy);
  const size_t head = static_cast<unsigned char>(bytes.at(8)) +
                      256 * static_cast<size_t>(static_cast<unsigned char>(bytes.at(9)));
  return bytes.substr(10 + head);
}

class RoundTrip : public testing::TestWithParam<Kind> {
 protected:
  Outcome Run(std::vector<std::string> words) const {
    support::Command command;
    command.program = VORN_COMMAND;
    command.arguments = std::move(words);
    command.directory = folder_.Path();
    command.environment = {{"XDG_CACHE_HOME", (folder_.Path() / "cache").string()}};
    return RunCommand(command);
  }

  void Check(int alignment, int batch) const {
    const fs::path& folder = folder_.Path();
    const std::string name = std::to_string(alignment) + "." + std::to_string(batch);
    support::WriteFile(folder / "host.json", R"({"rowAlignment": )" + std::to_string(alignment) +
                                                 R"(, "outputTypes": "native"})");
    const Outcome prepared =
        Run({"prepare", "-m", "same.onnx", "-j", "host.json", "--input", "values.npy", "-b",
             std::to_string(batch), "-o", "inputs." + name});
    ASSERT_EQ(prepared.status, 0) << prepared.Describe();
    const Outcome launched =
        Run({"launch", "-m", "same.onnx", "-j", "host.json", "-i", "inputs." + name + "/list.txt",
             "-b", std::to_string(batch), "--run", "run." + name, "--npy", "--no-trace"});
    ASSERT_EQ(launched.status, 0) << launched.Describe();
    std::string back;
    for (int i = 0; i < (kSamples + batch - 1) / batch; ++i) {
      for (const auto& entry :
           fs::directory_iterator(folder / ("run." + name) / "dumps" / std::to_string(i))) {
        if (entry.path().extension() == ".npy") back += DataOf(entry.path());
      }
    }
    // The last batch is filled up.
    const std::string expected = Expected(GetParam(), values_);
    EXPECT_EQ(back.substr(0, expected.size()), expected)
        << "alignment " << alignment << ", batch " << batch;
  }

  support::TempDir folder_;
  std::string values_ = Values(GetParam());
};

TEST_P(RoundTrip, GivesBackTheArray) {
  OnnxWriter model;
  model.Input("x", GetParam().type, {"batch", kRows, kColumns})
      .Output("y", GetParam().type, {"batch", kRows, kColumns})
      .Node("Identity", {"x"}, {"y"});
  support::WriteFile(folder_.Path() / "same.onnx", model.Image());
  support::WriteFile(folder_.Path() / "values.npy", Npy(GetParam(), values_));
  for (const int alignment : {1, 64}) {
    for (const int batch : {1, 3}) Check(alignment, batch);
  }
}

INSTANTIATE_TEST_SUITE_P(EveryType, RoundTrip, testing::ValuesIn(kKinds),
                         [](const auto& about) { return std::string(about.param.name); });

}  // namespace
