// A description of one input, settings, then the file's content. The reference is the rule put down
// step by step, byte by byte.
#include "model/input_file.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <string>
#include <vector>

#include "fuzz/byte_source.h"
#include "fuzz/division_fault.h"
#include "fuzz/model_runtime.h"
#include "fuzz/property.h"
#include "fuzz/targets.h"

namespace fuzz {
namespace {

namespace run = vorn::run;

constexpr uint64_t kLargestContent = 400 << 10;  // more than is read in one piece

struct Content {
  std::string start;
  uint64_t size = 0;  // zeros follow the start

  [[nodiscard]] unsigned char At(uint64_t at) const {
    return at < start.size() ? static_cast<unsigned char>(start[at]) : 0;
  }
};

enum class PathKind { kFile, kFolder, kNothing };

struct Case {
  Tensor tensor;
  uint64_t index = 0;
  uint32_t batch = 0;
  int32_t totalT = 0;
  vorn_status netTypeStatus = VORN_SUCCESS;
  vorn_net_type netType = VORN_NET_FEED_FORWARD;
  PathKind pathKind = PathKind::kFile;
  Content content;

  [[nodiscard]] uint64_t Rank() const { return std::min<uint64_t>(tensor.dims.dimCount, 128); }
  [[nodiscard]] uint64_t Elem() const { return tensor.bits / 8; }
  [[nodiscard]] uint64_t LastDim() const {
    return Rank() == 0 ? 0 : static_cast<uint64_t>(tensor.dims.dims[Rank() - 1]);
  }
  [[nodiscard]] uint64_t BytesFromDim(uint64_t first) const {
    uint64_t bytes = Elem();
    for (uint64_t i = first; i < Rank(); ++i) bytes *= static_cast<uint64_t>(tensor.dims.dims[i]);
    return bytes;
  }
};

// ---- From bytes to a case -----------------------------------------------------------------------

int64_t TakeDim(ByteSource& source) {
  const uint8_t byte = source.TakeByte();
  if (byte < 240) return byte % 24;
  if (byte < 254) return byte;
  return static_cast<int64_t>(source.TakeNumber(8));
}

void TakeDims(ByteSource& source, vorn_mdl_io_dims& dims) {
  const uint8_t byte = source.TakeByte();
  dims.dimCount = byte < 250 ? byte % 6 : source.Pick<uint64_t>({127, 128, 129, UINT64_MAX});
  for (uint64_t i = 0; i < std::min<uint64_t>(dims.dimCount, 128); ++i) {
    dims.dims[i] = i < 8 ? TakeDim(source) : 1;
  }
}

uint64_t TakeStride(ByteSource& source, uint64_t rowBytes) {
  switch (source.TakeBelow(6)) {
    case 0:
      return rowBytes;
    case 1:
      return (rowBytes + 15) / 16 * 16;
    case 2:
      return (rowBytes + 63) / 64 * 64;
    case 3:
      return source.TakeByte();
    case 4:
      return source.TakeNumber(2);
    default:
      return source.TakeNumber(8);
  }
}

uint64_t TakeSize(ByteSource& source, const Case& input) {
  uint64_t rows = 1;
  for (uint64_t i = 0; i + 1 < input.Rank(); ++i) {
    rows *= static_cast<uint64_t>(input.tensor.dims.dims[i]);
  }
  switch (source.TakeBelow(6)) {
    case 0:
    case 1:
      return rows * input.tensor.stride;
    case 2:
      return rows * input.tensor.stride + source.TakeByte();
    case 3:
      return source.TakeNumber(2);
    case 4:
      return source.TakeNumber(source.TakeRarely(16) ? 3 : 2);
    default:
      return source.TakeNumber(8);
  }
}

Content Counting(uint64_t size) {
  Content content{std::string(std::min(size, kLargestContent), '\0'), 0};
  content.size = content.start.size();
  for (size_t i = 0; i < content.start.size(); ++i) content.start[i] = static_cast<char>(i * 7 + 1);
  return content;
}

Content TakeContent(ByteSource& source, const Case& input) {
  switch (source.TakeBelow(6)) {
    case 0:
      return Counting(input.BytesFromDim(0) * source.TakeBelow(5));
    case 1:
      return Counting(input.tensor.size * source.TakeBelow(5) + source.TakeByte());
    case 2:
      return Counting(source.TakeNumber(source.TakeRarely(16) ? 3 : 2));
    case 3: {
      Content content{source.TakeText(64), 0};
      content.size = source.Pick<uint64_t>({0x7FFFFFFF, 0x80000000, 0x80000010, 0xC0000000,
                                            0xFFFFFFF0, 0x100000000, 0x100000010, 100}) +
                     source.TakeByte();
      content.start.resize(std::min<uint64_t>(content.start.size(), content.size));
      return content;
    }
    default: {
      Content content{source.TakeRest(), 0};
      content.size = content.start.size();
      return content;
    }
  }
}

Case TakeCase(ByteSource& source) {
  Case input;
  TakeDims(source, input.tensor.dims);
  input.tensor.type = static_cast<uint32_t>(source.TakeBelow(13));
  input.tensor.bits = source.Pick<uint64_t>({8, 16, 32, 64, 0, 7, 12, 24, 128, 1 << 20});
  input.tensor.stride = TakeStride(source, input.LastDim() * input.Elem());
  input.tensor.size = TakeSize(source, input);
  input.index = source.Pick<uint64_t>({0, 1, 2});
  input.batch = source.TakeRarely(16) ? static_cast<uint32_t>(source.TakeNumber(4))
                                      : static_cast<uint32_t>(source.TakeBelow(6));
  input.totalT = static_cast<int32_t>(source.TakeBelow(64)) - 1;
  input.netTypeStatus = source.TakeRarely(32) ? VORN_ERROR_INTERNAL : VORN_SUCCESS;
  input.netType = source.Pick<vorn_net_type>(
      {VORN_NET_FEED_FORWARD, VORN_NET_DETECTION, VORN_NET_RECURRENT, 3, VORN_NET_RECURRENT});
  if (source.TakeRarely(64)) {
    input.pathKind = source.Pick({PathKind::kFolder, PathKind::kNothing});
  }
  input.content = TakeContent(source, input);
  return input;
}

// Rows that overlap ask for more bytes than the block holds, and a sparse file has them all.
bool TakesTooLong(const Case& input) {
  return input.content.size > kLargestContent &&
         input.LastDim() * input.Elem() > input.tensor.stride;
}

// ---- The reference ------------------------------------------------------------------------------

enum class End { kNull, kBlock, kDivisionFault };

struct Outcome {
  End end = End::kNull;
  uint32_t batch = 0;
  int32_t totalT = 0;
  std::vector<uint64_t> blocks;  // the sizes of those that stay allocated
  std::string bytes;             // of the block that is returned

  Outcome& Ends(End how) {
    end = how;
    return *this;
  }
};

// Rows in the order of the file, each byte where it belongs unless that is outside of the block.
void CopyRows(const Case& input, uint32_t batches, std::string& block) {
  const auto rows = static_cast<int32_t>(input.tensor.size / input.tensor.stride);
  const uint64_t rowBytes = input.LastDim() * input.Elem();
  if (rows <= 0 || rowBytes == 0 || rowBytes > INT64_MAX) return;
  uint64_t at = 0;
  for (uint64_t b = 0; b < batches; ++b) {
    for (uint64_t r = 0; r < static_cast<uint64_t>(rows); ++r) {
      uint64_t batchStart = 0;
      uint64_t start = 0;
      if (__builtin_mul_overflow(b, input.tensor.size, &batchStart)) return;
      if (__builtin_add_overflow(batchStart, r * input.tensor.stride, &start)) return;
      if (start >= block.size()) return;
      for (uint64_t k = 0; k < rowBytes; ++k, ++at) {
        if (at >= input.content.size) return;
        if (start + k >= block.size()) {
          at += rowBytes - k;
          break;
        }
        block[start + k] = static_cast<char>(input.content.At(at));
      }
    }
  }
}

// Adapts the batch size to the file; false where that is the end.
bool CheckShapeOf(const Case& input, uint64_t fileSize, Outcome& outcome) {
  const uint64_t dense = input.BytesFromDim(0);
  const uint64_t single = input.tensor.size;
  if (dense == 0) return outcome.Ends(End::kDivisionFault), false;
  if (fileSize / dense != outcome.batch && single <= fileSize) {
    if (single == 0) return outcome.Ends(End::kDivisionFault), false;
    outcome.batch = static_cast<uint32_t>(fileSize / single);
  }
  return outcome.batch * single >= fileSize;
}

Outcome Expect(const Case& input) {
  Outcome outcome;
  outcome.batch = input.batch;
  outcome.totalT = input.totalT;
  if (input.pathKind != PathKind::kFile || input.Elem() == 0) return outcome;
  const auto length = static_cast<int32_t>(static_cast<uint32_t>(input.content.size));
  if (length == 0) return outcome;
  const auto fileSize = static_cast<uint64_t>(int64_t{length});

  const uint64_t early = input.batch * input.tensor.size;
  if (early > ModelRuntime::kBlockLimit) return outcome;
  outcome.blocks = {early};
  if (input.netTypeStatus != VORN_SUCCESS) return outcome;
  if (input.netType == VORN_NET_RECURRENT && input.index == 0) {
    const uint64_t frameBytes = input.BytesFromDim(1);
    if (frameBytes == 0) return outcome.Ends(End::kDivisionFault);
    outcome.totalT = static_cast<int32_t>(fileSize / frameBytes);
    outcome.batch = 1;
  } else if (input.netType != VORN_NET_RECURRENT || input.index != 1) {
    if (!CheckShapeOf(input, fileSize, outcome)) return outcome;
  }

  const uint64_t needed = std::max(early, outcome.batch * input.tensor.size);
  if (needed > ModelRuntime::kBlockLimit) {
    outcome.blocks.clear();
    return outcome;
  }
  outcome.blocks = {needed};
  if (input.tensor.stride == 0) return outcome.Ends(End::kDivisionFault);
  outcome.bytes.assign(needed, static_cast<char>(ModelRuntime::kFill));
  CopyRows(input, outcome.batch, outcome.bytes);
  return outcome.Ends(End::kBlock);
}

// ---- The reading --------------------------------------------------------------------------------

// The path of one file in memory, holding the content.
std::string PathOf(const Case& input) {
  if (input.pathKind == PathKind::kFolder) return "/";
  if (input.pathKind == PathKind::kNothing) return "/proc/self/fd/nothing";
  static const int file = memfd_create("input", MFD_CLOEXEC);
  const auto size = static_cast<off_t>(input.content.size);
  const std::string& start = input.content.start;
  if (ftruncate(file, 0) != 0 || ftruncate(file, size) != 0) std::abort();
  if (pwrite(file, start.data(), start.size(), 0) != static_cast<ssize_t>(start.size())) {
    std::abort();
  }
  return "/proc/self/fd/" + std::to_string(file);
}

Outcome Read(const Case& input) {
  g_modelRuntime.Reset();
  g_modelRuntime.inputs.resize(input.index + 1);
  g_modelRuntime.inputs[input.index] = input.tensor;
  // The inputs before it are of a type of their own.
  for (uint64_t i = 0; i < input.index; ++i) g_modelRuntime.inputs[i].type = 99;
  g_modelRuntime.netType = input.netType;
  g_modelRuntime.netTypeStatus = input.netTypeStatus;

  Outcome outcome;
  outcome.batch = input.batch;
  outcome.totalT = input.totalT;
  const run::InputFileTarget target{
      .dims = input.tensor.dims, .modelDesc = nullptr, .index = input.index, .modelId = 7};
  void* block = nullptr;
  try {
    block = run::ReadInputFile(PathOf(input), target, outcome.batch, outcome.totalT);
    outcome.end = block == nullptr ? End::kNull : End::kBlock;
  } catch (const DivisionFault&) {
    outcome.end = End::kDivisionFault;
  }
  for (const auto& [address, size] : g_modelRuntime.blocks) outcome.blocks.push_back(size);
  if (block != nullptr) {
    Require(g_modelRuntime.blocks.contains(block), "what is returned is no live block");
    outcome.bytes.assign(static_cast<const char*>(block), g_modelRuntime.blocks[block]);
  }
  return outcome;
}

}  // namespace

void InputFile(std::span<const uint8_t> bytes) {
  ByteSource source(bytes);
  const Case input = TakeCase(source);
  if (TakesTooLong(input)) return;
  const Outcome expected = Expect(input);
  const Outcome actual = Read(input);
  g_modelRuntime.Reset();
  Require(actual.end == expected.end, "how it ends");
  Require(actual.batch == expected.batch, "the batch size");
  Require(actual.totalT == expected.totalT, "the time steps");
  Require(actual.blocks == expected.blocks, "the blocks that stay allocated");
  Require(actual.bytes == expected.bytes, "the bytes of the block");
}

}  // namespace fuzz
