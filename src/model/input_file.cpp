// The steps of reading an input file, in the order in which they report.
#include "model/input_file.h"

#include <cstddef>
#include <span>

#include "common/file.h"
#include "common/log.h"
#include "common/model_io.h"
#include "common/path.h"
#include "common/runtime_memory.h"
#include "model/division.h"
#include "model/input_shape.h"
#include "model/row_reader.h"

namespace vorn::run {
namespace {

// What the runtime says of one batch item of the input, in bytes.
struct InputLayout {
  uint64_t singleBatch;
  uint64_t stride;
  uint64_t elementSize;
};

struct InputFile {
  FileDescriptor descriptor;
  uint64_t size = 0;
};

int QueryLayout(const InputFileTarget& target, InputLayout& layout) {
  layout.singleBatch = vorn_mdl_get_input_size_by_index(target.modelDesc, target.index);
  PrintLine("[INFO]  The amount of data required for inference in a single batch is [%zu]\n",
            layout.singleBatch);
  layout.stride = vorn_mdl_get_input_default_stride(target.modelDesc, target.index);
  PrintLine("[INFO]  The stride of model is [%zu]\n", layout.stride);
  const vorn_data_type type = vorn_mdl_get_input_data_type(target.modelDesc, target.index);
  layout.elementSize = vorn_data_type_size(type) >> 3;
  PrintLine("[INFO]  The data size of data type is [%zu]\n", layout.elementSize);
  if (layout.elementSize == 0) {
    PrintLine("[ERROR] GetInputDataSize == 0 error\n");
    return 1;
  }
  return 0;
}

int OpenInputFile(const std::string& path, InputFile& file) {
  file.descriptor = OpenForReading(path);
  PrintLine("[INFO]  Reading bin file [%s]\n", path.c_str());
  if (!file.descriptor.IsOpen()) {
    PrintLine("[ERROR] open file %s failed\n", path.c_str());
    return 1;
  }
  // Lengths are carried in 32 bits, signed: from 2 GiB on the size is too large for any block.
  const auto length = static_cast<int32_t>(SeekEnd(file.descriptor));
  if (length == 0) {
    PrintLine("[ERROR] Empty file: %s\n", path.c_str());
    return 1;
  }
  file.size = static_cast<uint64_t>(static_cast<int64_t>(length));
  return 0;
}

int CheckShape(std::span<const int64_t> dimensions, const InputLayout& layout, uint64_t fileSize,
               uint32_t& batchSize) {
  PrintLine("[INFO]  The shape of the model is [%s]\n", JoinDimensions(dimensions).c_str());
  // The test divides by the dense size, the reset by the padded one: a file of the right dense size
  // keeps the batch size even where rows are padded.
  const uint64_t denseBytes = DenseBytes(dimensions, layout.elementSize);
  if (DivideOrFault(fileSize, denseBytes) != batchSize) {
    PrintLine("[WARN]  The input data shape not match model's input shape [N,C,H,W]\n");
    if (layout.singleBatch <= fileSize) {
      batchSize = static_cast<uint32_t>(DivideOrFault(fileSize, layout.singleBatch));
      PrintLine("[WARN]  Reset the batchSize to [%zu]\n", size_t{batchSize});
    }
  }
  const uint64_t expected = batchSize * layout.singleBatch;
  if (expected < fileSize) {
    PrintLine("[ERROR] Input data size[%zu] must be smaller than malloc size[%zu]\n", fileSize,
              expected);
    return 1;
  }
  return 0;
}

// More frames than the model takes are reported; the run goes on.
void ReportTooManyFrames(int32_t frames, uint64_t maxFrames) {
  PrintLine(
      "[ERROR] Current number of frames[%u] must be smaller than the recurrent_max_total_t[%zu]\n",
      static_cast<uint32_t>(frames), maxFrames);
}

void CountFrames(std::span<const int64_t> dimensions, const InputLayout& layout, uint64_t fileSize,
                 uint32_t& batchSize, int32_t& nlpTotalT) {
  const uint64_t frameBytes = FrameBytes(dimensions, layout.elementSize);
  nlpTotalT = static_cast<int32_t>(DivideOrFault(fileSize, frameBytes));
  batchSize = 1;
  const int64_t maxFrames = dimensions.empty() ? 0 : dimensions.front();
  if (nlpTotalT > maxFrames) ReportTooManyFrames(nlpTotalT, static_cast<uint64_t>(maxFrames));
}

// The second input's row holds one flag per frame. Its length counts as unsigned, unlike the first
// dimension above.
void CheckFlags(std::span<const int64_t> dimensions, int32_t nlpTotalT) {
  const auto flags = static_cast<uint64_t>(RowElements(dimensions));
  if (static_cast<uint64_t>(int64_t{nlpTotalT}) > flags) ReportTooManyFrames(nlpTotalT, flags);
}

void* MallocInputBlock(uint64_t size) {
  void* block = MallocRuntimeMemory(size);
  if (block == nullptr) PrintLine("[ERROR] malloc device buffer failed. size is %zu\n", size);
  return block;
}

// A batch size that the file has raised needs a larger block than the one that was allocated before
// the shape was checked.
void* GrowBlock(void* block, uint64_t& blockBytes, uint64_t neededBytes) {
  if (neededBytes <= blockBytes) return block;
  vorn_rt_free(block);
  blockBytes = neededBytes;
  return MallocInputBlock(neededBytes);
}

}  // namespace

void* ReadInputFile(const std::string& path, const InputFileTarget& target, uint32_t& batchSize,
                    int32_t& nlpTotalT) {
  if (CheckPathIsFile(path) != 0) return nullptr;
  InputLayout layout{};
  if (QueryLayout(target, layout) != 0) return nullptr;
  InputFile file;
  if (OpenInputFile(path, file) != 0) return nullptr;

  uint64_t blockBytes = batchSize * layout.singleBatch;
  void* block = MallocInputBlock(blockBytes);
  if (block == nullptr) return nullptr;
  vorn_net_type netType = VORN_NET_FEED_FORWARD;
  const vorn_status status = vorn_ext_get_mdl_net_type(target.modelId, &netType);
  if (status != VORN_SUCCESS) {
    PrintLine("[ERROR] vorn_ext_get_mdl_net_type fail! ret = %d\n", status);
    return nullptr;  // the block stays allocated, see the header; so does it below
  }

  const auto dimensions = Dimensions(target.dims);
  if (netType == VORN_NET_RECURRENT && target.index == 0) {
    CountFrames(dimensions, layout, file.size, batchSize, nlpTotalT);
  } else if (netType == VORN_NET_RECURRENT && target.index == 1) {
    CheckFlags(dimensions, nlpTotalT);
  } else if (CheckShape(dimensions, layout, file.size, batchSize) != 0) {
    return nullptr;
  }

  block = GrowBlock(block, blockBytes, batchSize * layout.singleBatch);
  if (block == nullptr) return nullptr;
  // The row count is carried in 32 bits, signed; below 0 there are no rows.
  const auto rows = static_cast<int32_t>(DivideOrFault(layout.singleBatch, layout.stride));
  const uint64_t rowBytes = static_cast<uint64_t>(RowElements(dimensions)) * layout.elementSize;
  ReadRows(file.descriptor.Get(), {static_cast<std::byte*>(block), blockBytes},
           {.batches = batchSize,
            .batchBytes = layout.singleBatch,
            .rows = rows < 0 ? 0 : static_cast<uint64_t>(rows),
            .stride = layout.stride,
            .rowBytes = rowBytes});
  return block;
}

}  // namespace vorn::run
