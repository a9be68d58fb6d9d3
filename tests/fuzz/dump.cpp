// Descriptions of outputs with the blocks behind them. Their values are read with every element
// type and dumped to files; both are compared with values taken one by one.
#include "output/dump.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "fuzz/byte_source.h"
#include "fuzz/model_runtime.h"
#include "fuzz/property.h"
#include "fuzz/scratch_folder.h"
#include "fuzz/targets.h"
#include "output/output_values.h"

namespace fuzz {
namespace {

namespace run = vorn::run;

using Values = std::optional<std::vector<float>>;  // none where there are none to be had

constexpr uint64_t kMostValues = 1 << 15;
constexpr size_t kMaxFileName = 255;

enum class BufferKind { kBlock, kNoBuffer, kNoAddress };

struct Output {
  Tensor tensor;
  BufferKind kind = BufferKind::kBlock;
  std::unique_ptr<unsigned char[]> block;  // of exactly its size
  uint64_t blockSize = 0;

  [[nodiscard]] uint64_t Rank() const { return std::min<uint64_t>(tensor.dims.dimCount, 128); }
  [[nodiscard]] int64_t LastDim() const { return Rank() == 0 ? 0 : tensor.dims.dims[Rank() - 1]; }
};

struct Case {
  uint32_t batch = 1;
  uint32_t inference = 0;
  std::vector<Output> outputs;
};

// ---- From bytes to a case -----------------------------------------------------------------------

void TakeDims(ByteSource& source, vorn_mdl_io_dims& dims) {
  const uint8_t byte = source.TakeByte();
  dims.dimCount = byte < 248 ? byte % 5 : source.Pick<uint64_t>({127, 128, 129, UINT64_MAX});
  const uint8_t last = source.TakeByte();
  const int64_t lastDim = last < 250 ? last % 40 : static_cast<int64_t>(source.TakeNumber(8));
  for (int64_t& dim : dims.dims) dim = 1;
  if (dims.dimCount > 0) dims.dims[std::min<uint64_t>(dims.dimCount, 128) - 1] = lastDim;
}

uint64_t TakeBlockSize(ByteSource& source, uint64_t wanted) {
  switch (source.TakeBelow(4)) {
    case 0:
      return source.TakeNumber(2) % 2048;
    case 1:
      return std::min<uint64_t>(wanted, 8192) / 2;
    default:
      return std::min<uint64_t>(wanted, 8192);
  }
}

// Values that tell something, in front of the bytes that happen to be there.
void FillBlock(ByteSource& source, Output& output) {
  static constexpr uint32_t kPatterns[] = {0x00000000, 0x80000000, 0x7F800000, 0xFF800000,
                                           0x7FC00000, 0xFFC00001, 0x7F7FFFFF, 0x00000001,
                                           0x00800000, 0x3F800000, 0x4B7FFFFF, 0x33800000};
  output.block = std::make_unique<unsigned char[]>(output.blockSize);
  const std::string seed = source.TakeText(64);
  uint32_t state = 1;
  for (uint64_t i = 0; i < output.blockSize; ++i) {
    state = state * 1664525 + 1013904223;
    output.block[i] = i < seed.size() ? static_cast<unsigned char>(seed[i])
                                      : static_cast<unsigned char>(state >> 24);
  }
  if (source.TakeRarely(4)) {
    for (uint64_t i = 0; i + 4 <= output.blockSize; i += 12) {
      std::memcpy(output.block.get() + i, &kPatterns[i / 12 % std::size(kPatterns)], 4);
    }
  }
}

Output TakeOutput(ByteSource& source, uint32_t batch) {
  static constexpr uint64_t kBits[] = {32, 16, 8, 32, 8, 32, 16, 16, 64, 64, 64, 8};
  Output output;
  Tensor& tensor = output.tensor;
  TakeDims(source, tensor.dims);
  tensor.dimsStatus = source.TakeRarely(64) ? VORN_ERROR_INTERNAL : VORN_SUCCESS;
  tensor.type = source.TakeRarely(16) ? static_cast<uint32_t>(source.TakeNumber(4))
                                      : static_cast<uint32_t>(source.TakeBelow(12));
  tensor.bits = tensor.type < 12 ? kBits[tensor.type] : 32;
  if (source.TakeRarely(16)) tensor.bits = source.Pick<uint64_t>({0, 4, 8, 16, 32, 64, 256});
  const uint64_t rowBytes = static_cast<uint64_t>(output.LastDim()) * (tensor.bits / 8);
  tensor.stride = source.TakeRarely(4) ? source.TakeNumber(2) : (rowBytes + 15) / 16 * 16;
  tensor.size = source.TakeRarely(4) ? source.TakeNumber(2) : tensor.stride * source.TakeBelow(9);
  output.kind = source.TakeRarely(32) ? source.Pick({BufferKind::kNoBuffer, BufferKind::kNoAddress})
                                      : BufferKind::kBlock;
  output.blockSize = TakeBlockSize(source, tensor.size * batch);
  if (!source.TakeRarely(32)) {
    tensor.name = source.Pick<std::string>({"prob", "a.b", "a_b", "", "x/y", "\\", ".."});
  }
  if (source.TakeRarely(8)) tensor.name = source.TakeText(20);
  if (source.TakeRarely(64)) tensor.name = std::string(source.TakeByte() + 1, 'n');
  FillBlock(source, output);
  return output;
}

Case TakeCase(ByteSource& source) {
  Case dumped;
  dumped.batch = source.TakeRarely(16) ? static_cast<uint32_t>(source.TakeNumber(4))
                                       : static_cast<uint32_t>(source.TakeBelow(5));
  dumped.inference = static_cast<uint32_t>(source.TakeRarely(8) ? source.TakeNumber(4) : 0);
  const uint64_t outputs = source.TakeBelow(4);
  for (uint64_t i = 0; i < outputs; ++i) dumped.outputs.push_back(TakeOutput(source, dumped.batch));
  return dumped;
}

// ---- The reference ------------------------------------------------------------------------------

struct Rows {
  uint64_t rows = 0;
  uint64_t rowElements = 0;
  uint64_t lastDim = 0;
};

std::optional<Rows> RowsOf(const Output& output, uint64_t bits, uint32_t batch) {
  const Tensor& tensor = output.tensor;
  const bool hasBlock = output.kind == BufferKind::kBlock && output.blockSize > 0;
  const bool isDescribed = tensor.dimsStatus == 0 && tensor.stride != 0 && tensor.size != 0;
  if (!hasBlock || !isDescribed || output.LastDim() <= 0 || bits < 8) return {};
  return Rows{tensor.size / tensor.stride * batch, tensor.stride / (bits / 8),
              static_cast<uint64_t>(output.LastDim())};
}

// True if the rows ask for more values than a fuzzer has time for: nothing bounds them where rows
// overlap.
bool IsTooMuch(const Rows& rows, uint64_t blockSize) {
  uint64_t most = 0;
  return __builtin_mul_overflow(rows.rows, std::min(rows.lastDim, blockSize), &most) ||
         most > kMostValues;
}

template <typename Element>
Values ExpectedValues(const Output& output, const std::optional<Rows>& rows) {
  if (!rows) return {};
  std::vector<float> values;
  for (uint64_t r = 0; r < rows->rows; ++r) {
    for (uint64_t k = 0; k < rows->lastDim; ++k) {
      const uint64_t at = (r * rows->rowElements + k) * sizeof(Element);
      if (at + sizeof(Element) > output.blockSize) return values;
      Element element;
      std::memcpy(&element, output.block.get() + at, sizeof(Element));
      values.push_back(static_cast<float>(element));
    }
  }
  return values;
}

Values ExpectedValuesOfType(const Output& output, const std::optional<Rows>& rows) {
  const uint32_t type = output.tensor.type;
  if (type == 1 || type == 7) return ExpectedValues<uint16_t>(output, rows);
  if (type == 2) return ExpectedValues<int8_t>(output, rows);
  if (type == 4) return ExpectedValues<uint8_t>(output, rows);
  if (type == 6) return ExpectedValues<int16_t>(output, rows);
  return ExpectedValues<float>(output, rows);
}

std::string BinaryOf(const std::vector<float>& values) {
  return {reinterpret_cast<const char*>(values.data()), values.size() * sizeof(float)};
}

std::string TextOf(const std::vector<float>& values) {
  std::string text;
  for (const float value : values) {
    char line[64];
    text.append(line, static_cast<size_t>(std::snprintf(line, sizeof line, "%.16f\n", value)));
  }
  return text;
}

std::string ExpectedName(const Output& output) {
  const std::string whole = output.tensor.name ? output.tensor.name->c_str() : "";
  std::string name;
  for (const char c : whole) name += c == '.' || c == '/' || c == '\\' ? '_' : c;
  return name.empty() ? "output" : name;
}

// The files by name, the time stamp in it left out.
std::map<std::string, std::string> ExpectedFiles(const Case& dumped,
                                                 const std::vector<Values>& values,
                                                 size_t stampSize) {
  std::map<std::string, std::string> files;
  std::map<std::string, int> seen;
  for (size_t i = 0; i < dumped.outputs.size(); ++i) {
    const std::string name = ExpectedName(dumped.outputs[i]);
    const std::string base = name + "." + std::to_string(seen[name]++);
    if (!values[i]) continue;
    // A name that is too long for the file system has no file.
    const size_t room = kMaxFileName - 1 - stampSize;
    if (base.size() + 6 <= room) files[base + ".float"] = TextOf(*values[i]);
    if (base.size() + 4 <= room) files[base + ".bin"] = BinaryOf(*values[i]);
  }
  return files;
}

// ---- The dump -----------------------------------------------------------------------------------

template <typename Element>
void CheckValues(const run::OutputSource& source, uint64_t index, const Output& output,
                 const std::optional<Rows>& rows) {
  run::ValueBuffer buffer;
  std::span<const float> values;
  const int status = run::GetOutputWithOutStride<Element>(source, index, buffer, values);
  const Values expected = ExpectedValues<Element>(output, rows);
  Require(status == (expected ? 0 : 1), "status of the values");
  Require(BinaryOf({values.begin(), values.end()}) == (expected ? BinaryOf(*expected) : ""),
          "the values");
}

std::string WithoutStamp(const std::string& name, size_t& stampSize) {
  const size_t end = name.rfind('.');
  const size_t start = name.rfind('.', end - 1);
  stampSize = end - start - 1;
  const std::string stamp = name.substr(start + 1, stampSize);
  Require(!stamp.empty() && stamp.find_first_not_of("0123456789") == std::string::npos,
          "time stamp of " + name);
  return name.substr(0, start) + name.substr(end);
}

void CheckFiles(const run::OutputSource& source, const Case& dumped,
                const std::vector<Values>& values) {
  static ScratchFolder scratch;
  run::ValueBuffer buffer;
  run::DumpOutputs(source, scratch.Path(), dumped.inference, buffer);
  size_t stampSize = 16;
  std::map<std::string, std::string> files;
  for (const auto& [name, bytes] : scratch.Take(std::to_string(dumped.inference))) {
    files[WithoutStamp(name, stampSize)] = bytes;
  }
  Require(files == ExpectedFiles(dumped, values, stampSize), "the files");
}

}  // namespace

void Dump(std::span<const uint8_t> bytes) {
  ByteSource taken(bytes);
  const Case dumped = TakeCase(taken);

  g_modelRuntime.Reset();
  vorn_mdl_dataset dataset;
  for (const Output& output : dumped.outputs) {
    g_modelRuntime.outputs.push_back(output.tensor);
    void* address = output.kind == BufferKind::kNoAddress ? nullptr : output.block.get();
    dataset.buffers.push_back(vorn_data_buffer{address, output.blockSize});
    if (output.kind == BufferKind::kNoBuffer) dataset.buffers.back().reset();
  }
  std::vector<std::optional<Rows>> rows;
  for (const Output& output : dumped.outputs) {
    // Of outputs of one type the first says how large an element is.
    const uint64_t bits = vorn_data_type_size(output.tensor.type);
    rows.push_back(RowsOf(output, bits, dumped.batch));
    if (rows.back() && IsTooMuch(*rows.back(), output.blockSize)) return;
  }

  const run::OutputSource source{nullptr, &dataset, dumped.batch};
  std::vector<Values> values;
  for (size_t i = 0; i < dumped.outputs.size(); ++i) {
    const Output& output = dumped.outputs[i];
    CheckValues<float>(source, i, output, rows[i]);
    CheckValues<int8_t>(source, i, output, rows[i]);
    CheckValues<uint8_t>(source, i, output, rows[i]);
    CheckValues<int16_t>(source, i, output, rows[i]);
    CheckValues<uint16_t>(source, i, output, rows[i]);
    values.push_back(ExpectedValuesOfType(output, rows[i]));
  }
  CheckFiles(source, dumped, values);
}

}  // namespace fuzz
