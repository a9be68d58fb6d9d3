// Blocks, datasets and models, with everything given back in the end.
#include "model.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>
#include <utility>

namespace conformance {
namespace {

constexpr std::byte kGuard{0xC3};
constexpr std::byte kZero{0};

/// What all inputs have, scratch among them.
Tensor DescribeInput(const vorn_mdl_desc* desc, uint64_t index) {
  Tensor tensor;
  tensor.size = vorn_mdl_get_input_size_by_index(desc, index);
  tensor.stride = vorn_mdl_get_input_default_stride(desc, index);
  tensor.type = vorn_mdl_get_input_data_type(desc, index);
  tensor.elementBytes = vorn_data_type_size(tensor.type) / 8;
  return tensor;
}

Tensor DescribeOutput(const vorn_mdl_desc* desc, uint64_t index) {
  Tensor tensor;
  tensor.size = vorn_mdl_get_output_size_by_index(desc, index);
  tensor.stride = vorn_mdl_get_output_default_stride(desc, index);
  tensor.type = vorn_mdl_get_output_data_type(desc, index);
  tensor.elementBytes = vorn_data_type_size(tensor.type) / 8;
  return tensor;
}

void TakeShape(const vorn_mdl_io_dims& dims, Tensor& tensor) {
  tensor.name.assign(dims.name, strnlen(dims.name, VORN_MAX_NAME));
  tensor.dims.assign(dims.dims, dims.dims + std::min<uint64_t>(dims.dimCount, VORN_MAX_DIMS));
}

/// Everything below touches memory by what the description says, so it has to make sense.
void RequireSense(const Tensor& tensor, const std::string& what) {
  const std::string where = "vorn_mdl_get_" + what + "_";
  Require(tensor.elementBytes != 0, where + "data_type or vorn_data_type_size: no whole bytes");
  Require(!tensor.dims.empty() && tensor.dims.back() > 0, where + "dims: no last dimension");
  Require(
      tensor.stride != 0 && tensor.stride >= tensor.RowBytes(),
      where + "default_stride: less than a row by " + where + "dims and " + where + "data_type");
  Require(tensor.size != 0 && tensor.size % tensor.stride == 0,
          where + "size_by_index: no whole rows");
}

}  // namespace

// ---- Memory -------------------------------------------------------------------------------------

Block::Block(uint64_t size, std::byte fill) : size_(size) {
  Require(
      vorn_rt_malloc(&address_, size, VORN_MEM_NORMAL_ONLY) == VORN_SUCCESS && address_ != nullptr,
      "vorn_rt_malloc gave no block of " + std::to_string(size) + " bytes");
  std::fill_n(static_cast<std::byte*>(address_), size, fill);
}

Block::Block(const Bytes& content) : Block(content.size()) {
  std::copy(content.begin(), content.end(), Content().begin());
}

Block::Block(Block&& other) noexcept
    : address_(std::exchange(other.address_, nullptr)), size_(other.size_) {}

Block::~Block() { Free(); }

void Block::Free() {
  if (address_ == nullptr) return;
  EXPECT_EQ(vorn_rt_free(std::exchange(address_, nullptr)), VORN_SUCCESS);
}

Bytes ReadFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  Require(!text.empty(), "the file " + path + " cannot be read, or is empty");
  Bytes bytes(text.size());
  std::memcpy(bytes.data(), text.data(), text.size());
  return bytes;
}

// ---- Datasets -----------------------------------------------------------------------------------

Dataset::Dataset() : dataset_(vorn_mdl_create_dataset()) {
  Require(dataset_ != nullptr, "vorn_mdl_create_dataset gave null");
}

Dataset::Dataset(Dataset&& other) noexcept
    : dataset_(std::exchange(other.dataset_, nullptr)),
      buffers_(std::exchange(other.buffers_, {})),
      blocks_(std::move(other.blocks_)),
      sizes_(std::exchange(other.sizes_, {})) {}

Dataset::~Dataset() {
  for (size_t i = 0; i < buffers_.size(); ++i) DestroyBuffer(i);
  if (dataset_ != nullptr) {
    EXPECT_EQ(vorn_mdl_destroy_dataset(dataset_), VORN_SUCCESS);
  }
}

void Dataset::Add(uint64_t size, uint64_t stride, std::byte fill, uint64_t guardBytes) {
  blocks_.emplace_back(size + guardBytes, fill);
  sizes_.push_back(size);
  std::ranges::fill(blocks_.back().Content().subspan(size), kGuard);
  vorn_data_buffer* buffer = vorn_create_data_buffer(blocks_.back().Address(), size, stride);
  Require(buffer != nullptr, "vorn_create_data_buffer gave null");
  buffers_.push_back(buffer);
  Require(vorn_mdl_add_dataset_buffer(dataset_, buffer) == VORN_SUCCESS,
          "vorn_mdl_add_dataset_buffer failed");
}

std::span<std::byte> Dataset::Content(size_t index) const {
  return blocks_.at(index).Content().first(sizes_.at(index));
}

void Dataset::CheckGuards() const {
  for (size_t i = 0; i < blocks_.size(); ++i) {
    const auto guard = blocks_[i].Content().subspan(sizes_[i]);
    EXPECT_TRUE(std::ranges::all_of(guard, [](std::byte b) { return b == kGuard; }))
        << "vorn_mdl_execute wrote behind the " << sizes_[i] << " bytes of buffer " << i;
  }
}

void Dataset::DestroyBuffer(size_t index) {
  if (buffers_.at(index) == nullptr) return;
  EXPECT_EQ(vorn_destroy_data_buffer(std::exchange(buffers_[index], nullptr)), VORN_SUCCESS);
}

// ---- Models -------------------------------------------------------------------------------------

Model::Model(const std::string& path) : image_(ReadFile(path)) {
  const vorn_status status = vorn_mdl_load_from_mem(image_.Address(), image_.size(), &id_);
  Require(status == VORN_SUCCESS, "vorn_mdl_load_from_mem refused " + path);
  isLoaded_ = true;
}

Model::~Model() {
  if (desc_ != nullptr) {
    EXPECT_EQ(vorn_mdl_destroy_desc(desc_), VORN_SUCCESS);
  }
  if (isLoaded_) Unload();
}

void Model::Unload() {
  isLoaded_ = false;
  EXPECT_EQ(vorn_mdl_unload(id_), VORN_SUCCESS);
}

const std::vector<Tensor>& Model::inputs() {
  Describe();
  return inputs_;
}

const std::vector<Tensor>& Model::outputs() {
  Describe();
  return outputs_;
}

void Model::Describe() {
  if (desc_ != nullptr) return;
  desc_ = vorn_mdl_create_desc();
  Require(desc_ != nullptr, "vorn_mdl_create_desc gave null");
  Require(vorn_mdl_get_desc(desc_, id_) == VORN_SUCCESS, "vorn_mdl_get_desc failed");
  Require(vorn_ext_get_mdl_net_type(id_, &netType_) == VORN_SUCCESS,
          "vorn_ext_get_mdl_net_type failed");
  const uint64_t inputCount = vorn_mdl_get_num_inputs(desc_);
  const uint64_t outputCount = vorn_mdl_get_num_outputs(desc_);
  Require(inputCount >= 2, "vorn_mdl_get_num_inputs: no task buffer and work buffer");
  Require(outputCount >= 1, "vorn_mdl_get_num_outputs: no output");
  vorn_mdl_io_dims dims;
  for (uint64_t i = 0; i < inputCount; ++i) {
    Tensor& tensor = inputs_.emplace_back(DescribeInput(desc_, i));
    if (i + 2 >= inputCount) {  // all of a scratch block is one row of bytes, whatever it says
      Require(tensor.size != 0, "vorn_mdl_get_input_size_by_index gave 0");
      Require(tensor.stride != 0, "vorn_mdl_get_input_default_stride gave 0");
      continue;
    }
    Require(vorn_mdl_get_input_dims(desc_, i, &dims) == VORN_SUCCESS,
            "vorn_mdl_get_input_dims failed");
    TakeShape(dims, tensor);
    RequireSense(tensor, "input");
  }
  for (uint64_t i = 0; i < outputCount; ++i) {
    Tensor& tensor = outputs_.emplace_back(DescribeOutput(desc_, i));
    Require(vorn_mdl_get_output_dims(desc_, i, &dims) == VORN_SUCCESS,
            "vorn_mdl_get_output_dims failed");
    TakeShape(dims, tensor);
    RequireSense(tensor, "output");
  }
}

uint64_t Model::ItemsOf(size_t input, uint64_t batch) {
  const bool isRpn = netType_ == VORN_NET_DETECTION && !IsScratch(input) &&
                     input + Given().rpnInputs >= DataInputCount();
  return isRpn ? 1 : batch;
}

Dataset Model::Inputs(uint32_t seed, uint64_t batch, std::byte padding) {
  Dataset in;
  for (size_t i = 0; i < inputs().size(); ++i) {
    const Tensor& tensor = inputs_[i];
    in.Add(ItemsOf(i, batch) * tensor.size, tensor.stride, kZero);
    if (!IsScratch(i)) FillPadding(in.Content(i), tensor, padding);
  }
  for (uint64_t item = 0; item < batch; ++item) {
    FillItem(in, item, seed + static_cast<uint32_t>(item));
  }
  return in;
}

void Model::FillItem(Dataset& in, uint64_t item, uint32_t seed) {
  for (size_t i = 0; i < DataInputCount(); ++i) {
    const Tensor& tensor = inputs_[i];
    if (ItemsOf(i, 2) == 1) {
      FillRowsWith(in.Content(i), tensor, 0);  // the same thresholds in every batch
    } else {
      FillRows(in.Content(i).subspan(item * tensor.size, tensor.size), tensor,
               1000 * seed + static_cast<uint32_t>(i));
    }
  }
}

Dataset Model::Outputs(uint64_t batch, std::byte fill) {
  Dataset out;
  for (const Tensor& tensor : outputs()) out.Add(batch * tensor.size, tensor.stride, fill);
  return out;
}

std::vector<Bytes> Model::Results(const Dataset& out, uint64_t item) {
  std::vector<Bytes> results;
  for (size_t i = 0; i < outputs().size(); ++i) {
    const uint64_t size = outputs_[i].size;
    results.push_back(DenseRows(out.Content(i).subspan(item * size, size), outputs_[i]));
  }
  return results;
}

std::vector<Bytes> Model::Execute(const Dataset& in, uint64_t item, uint64_t batch) {
  Dataset out = Outputs(batch);
  Require(vorn_mdl_execute(id_, in.Handle(), out.Handle()) == VORN_SUCCESS,
          "vorn_mdl_execute failed");
  in.CheckGuards();
  out.CheckGuards();
  return Results(out, item);
}

void Model::ExpectSame(const std::vector<Bytes>& expected, const std::vector<Bytes>& actual,
                       double tolerance, const std::string& when) {
  for (size_t i = 0; i < outputs().size(); ++i) {
    EXPECT_EQ(Difference(expected.at(i), actual.at(i), outputs_[i], tolerance), "")
        << "output " << i << " of vorn_mdl_execute, " << when;
  }
}

void ModelContract::Begin() {
  UpContract::Begin();
  model.emplace(Path());
}

void ModelContract::End() {
  model.reset();
  UpContract::End();
}

}  // namespace conformance
