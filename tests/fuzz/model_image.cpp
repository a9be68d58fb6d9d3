// Any bytes as the image of a model, in the host runtime: probed and loaded with little memory and
// little time, looked at, executed, released. Whatever the bytes are, each operation has to end
// with a status, what is described has to fit together, and everything has to be given back.
//
// It is executed over zeros, as it was in the probe: the execution library does not stand every
// malformed model, and what it makes of other data is known to no probe.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/property.h"
#include "fuzz/targets.h"
#include "vorn/vorn.h"

namespace fuzz {
namespace {

constexpr unsigned long long kDeviceBytes = 64 << 20;
constexpr uint32_t kSeconds = 1;
constexpr uint64_t kMostBlockBytes = 4 << 20;  // larger tensors are described and not executed
constexpr int kRunsBetweenAudits = 32;

void RequireStatus(vorn_status status, const char* operation) {
  Require(status >= VORN_SUCCESS && status < VORN_ERROR_INTERNAL,
          std::string(operation) + " answers " + std::to_string(status));
}

void RequireSuccess(vorn_status status, const char* operation) {
  Require(status == VORN_SUCCESS, std::string(operation) + " answers " + std::to_string(status));
}

/// The runtime of the process, brought up for good.
void BringUp() {
  static const bool isUp = [] {
    char path[] = "/tmp/vorn_fuzz.XXXXXX";
    const int file = mkstemp(path);
    std::FILE* config = fdopen(file, "w");
    std::fprintf(config, R"({"memoryLimit": %llu, "probe": 5})", kDeviceBytes);
    std::fclose(config);
    RequireSuccess(vorn_init(path), "vorn_init");
    std::remove(path);
    vorn_rt_context* context = nullptr;
    RequireSuccess(vorn_rt_set_device(0), "vorn_rt_set_device");
    RequireSuccess(vorn_rt_create_context(&context, 0), "vorn_rt_create_context");
    RequireSuccess(vorn_rt_set_op_wait_timeout(kSeconds), "vorn_rt_set_op_wait_timeout");
    return true;
  }();
  static_cast<void>(isUp);
}

/// All the memory of the device can be had again: nothing of earlier runs is left.
void Audit() {
  static int runs = 0;
  if (++runs % kRunsBetweenAudits != 0) return;
  void* all = nullptr;
  RequireSuccess(vorn_rt_malloc(&all, kDeviceBytes, VORN_MEM_NORMAL_ONLY), "vorn_rt_malloc of all");
  RequireSuccess(vorn_rt_free(all), "vorn_rt_free");
}

struct Tensor {
  uint64_t size = 0;
  uint64_t stride = 0;
};

/// The queries for one side of a model.
struct Side {
  uint64_t (*count)(const vorn_mdl_desc*);
  uint64_t (*size)(const vorn_mdl_desc*, uint64_t);
  uint64_t (*stride)(const vorn_mdl_desc*, uint64_t);
  vorn_status (*dims)(const vorn_mdl_desc*, uint64_t, vorn_mdl_io_dims*);
  vorn_data_type (*type)(const vorn_mdl_desc*, uint64_t);
};

constexpr Side kInputs = {vorn_mdl_get_num_inputs, vorn_mdl_get_input_size_by_index,
                          vorn_mdl_get_input_default_stride, vorn_mdl_get_input_dims,
                          vorn_mdl_get_input_data_type};
constexpr Side kOutputs = {vorn_mdl_get_num_outputs, vorn_mdl_get_output_size_by_index,
                           vorn_mdl_get_output_default_stride, vorn_mdl_get_output_dims,
                           vorn_mdl_get_output_data_type};

/// What is described of one tensor, once it has been found to fit together.
Tensor CheckTensor(const vorn_mdl_desc* desc, const Side& side, uint64_t index) {
  const Tensor tensor = {.size = side.size(desc, index), .stride = side.stride(desc, index)};
  vorn_mdl_io_dims record;
  RequireSuccess(side.dims(desc, index, &record), "get_dims");
  Require(std::memchr(record.name, 0, sizeof(record.name)) != nullptr, "an unterminated name");
  Require(record.dimCount >= 1 && record.dimCount <= VORN_MAX_DIMS, "the count of dimensions");
  uint64_t rows = 1;
  for (uint64_t i = 0; i < record.dimCount; ++i) {
    Require(record.dims[i] >= 1, "a dimension below 1");
    if (i + 1 < record.dimCount) rows *= static_cast<uint64_t>(record.dims[i]);
  }
  const auto width = static_cast<uint64_t>(record.dims[record.dimCount - 1]);
  const uint64_t bits = vorn_data_type_size(side.type(desc, index));
  Require(bits != 0, "an unknown element type");
  Require(tensor.stride >= width * bits / 8, "a stride shorter than the row");
  Require(tensor.size == rows * tensor.stride, "a size that is not rows * stride");
  return tensor;
}

std::vector<Tensor> CheckTensors(const vorn_mdl_desc* desc, const Side& side, uint64_t least) {
  std::vector<Tensor> tensors;
  const uint64_t count = side.count(desc);
  Require(count >= least, "a model without outputs, or without task and work buffer");
  for (uint64_t i = 0; i < count; ++i) tensors.push_back(CheckTensor(desc, side, i));
  return tensors;
}

/// A dataset over blocks of the runtime's, each of exactly the size that is described.
class Blocks {
 public:
  Blocks(const std::vector<Tensor>& tensors, int filling) : dataset_(vorn_mdl_create_dataset()) {
    for (const Tensor& tensor : tensors) {
      void* block = nullptr;
      isWhole_ = isWhole_ && tensor.size <= kMostBlockBytes &&
                 vorn_rt_malloc(&block, tensor.size, VORN_MEM_NORMAL_ONLY) == VORN_SUCCESS;
      if (!isWhole_) return;
      std::memset(block, filling, tensor.size);
      blocks_.push_back(block);
      buffers_.push_back(vorn_create_data_buffer(block, tensor.size, tensor.stride));
      RequireSuccess(vorn_mdl_add_dataset_buffer(dataset_, buffers_.back()), "add_dataset_buffer");
    }
  }
  Blocks(const Blocks&) = delete;
  Blocks& operator=(const Blocks&) = delete;
  ~Blocks() {
    for (vorn_data_buffer* buffer : buffers_) vorn_destroy_data_buffer(buffer);
    for (void* block : blocks_) vorn_rt_free(block);
    vorn_mdl_destroy_dataset(dataset_);
  }

  [[nodiscard]] bool isWhole() const { return isWhole_; }
  [[nodiscard]] vorn_mdl_dataset* dataset() const { return dataset_; }

 private:
  vorn_mdl_dataset* dataset_;
  std::vector<void*> blocks_;
  std::vector<vorn_data_buffer*> buffers_;
  bool isWhole_ = true;
};

void Execute(uint32_t modelId, const std::vector<Tensor>& inputs,
             const std::vector<Tensor>& outputs) {
  vorn_net_type netType = VORN_NET_FEED_FORWARD;
  RequireSuccess(vorn_ext_get_mdl_net_type(modelId, &netType), "vorn_ext_get_mdl_net_type");
  const Blocks in(inputs, 0);
  const Blocks out(outputs, 0xee);
  if (!in.isWhole() || !out.isWhole()) return;
  if (netType == VORN_NET_RECURRENT) {
    RequireSuccess(vorn_mdl_set_total_t(modelId, in.dataset(), 1), "vorn_mdl_set_total_t");
  }
  RequireStatus(vorn_mdl_execute(modelId, in.dataset(), out.dataset()), "vorn_mdl_execute");
}

}  // namespace

void ModelImage(std::span<const uint8_t> bytes) {
  BringUp();
  // In memory of its own size, so that reading beyond it is seen.
  const auto image = std::make_unique<uint8_t[]>(bytes.size());
  if (!bytes.empty()) std::memcpy(image.get(), bytes.data(), bytes.size());
  uint32_t modelId = 0;
  const vorn_status status = vorn_mdl_load_from_mem(image.get(), bytes.size(), &modelId);
  RequireStatus(status, "vorn_mdl_load_from_mem");
  Require((status == VORN_SUCCESS) == (modelId != 0), "a status beside the id");
  if (status == VORN_SUCCESS) {
    vorn_mdl_desc* desc = vorn_mdl_create_desc();
    RequireSuccess(vorn_mdl_get_desc(desc, modelId), "vorn_mdl_get_desc");
    Execute(modelId, CheckTensors(desc, kInputs, 2), CheckTensors(desc, kOutputs, 1));
    RequireSuccess(vorn_mdl_destroy_desc(desc), "vorn_mdl_destroy_desc");
    RequireSuccess(vorn_mdl_unload(modelId), "vorn_mdl_unload");
  }
  Audit();
}

}  // namespace fuzz
