#include "runtime/host/host_fixture.h"

#include <utility>

ConfigFile::ConfigFile(const std::string& json) : path_(folder_.Path() / "host.json") {
  support::WriteFile(path_, json);
}

Blocks::Blocks() : dataset(vorn_mdl_create_dataset()) { EXPECT_NE(dataset, nullptr); }

Blocks::Blocks(Blocks&& other) noexcept
    : dataset(std::exchange(other.dataset, nullptr)),
      buffers(std::exchange(other.buffers, {})),
      blocks_(std::exchange(other.blocks_, {})) {}

Blocks::~Blocks() {
  if (dataset == nullptr) return;  // moved from
  for (vorn_data_buffer* buffer : buffers) vorn_destroy_data_buffer(buffer);
  for (const Block& block : blocks_) vorn_rt_free(block.address);
  vorn_mdl_destroy_dataset(dataset);
}

Blocks& Blocks::Add(uint64_t blockBytes, uint64_t registeredBytes, uint64_t stride) {
  void* address = nullptr;
  EXPECT_EQ(vorn_rt_malloc(&address, blockBytes, VORN_MEM_NORMAL_ONLY), VORN_SUCCESS);
  std::memset(address, 0xee, blockBytes);
  blocks_.push_back({static_cast<std::byte*>(address), blockBytes, stride});
  buffers.push_back(vorn_create_data_buffer(address, registeredBytes, stride));
  EXPECT_NE(buffers.back(), nullptr);
  EXPECT_EQ(vorn_mdl_add_dataset_buffer(dataset, buffers.back()), VORN_SUCCESS);
  return *this;
}

std::vector<uint8_t> Blocks::Bytes(size_t index) const {
  std::vector<uint8_t> bytes(blocks_[index].bytes);
  std::memcpy(bytes.data(), blocks_[index].address, bytes.size());
  return bytes;
}

std::byte* Blocks::ElementAt(size_t index, size_t element, uint64_t rowLength,
                             size_t elementBytes) {
  const Block& block = blocks_.at(index);
  const uint64_t at =
      element / rowLength * block.stride + element % rowLength * uint64_t{elementBytes};
  EXPECT_LE(at + elementBytes, block.bytes);
  return block.address + at;
}

void HostFixture::Start(const std::string& json) {
  const ConfigFile config(json);
  ASSERT_EQ(vorn_init(config.path()), VORN_SUCCESS);
  ASSERT_EQ(vorn_rt_set_device(0), VORN_SUCCESS);
  ASSERT_EQ(vorn_rt_create_context(&context, 0), VORN_SUCCESS);
}

void HostFixture::Stop() {
  Unload();
  EXPECT_EQ(vorn_rt_destroy_context(context), VORN_SUCCESS);
  EXPECT_EQ(vorn_rt_reset_device(0), VORN_SUCCESS);
  EXPECT_EQ(vorn_finalize(), VORN_SUCCESS);
}

vorn_status HostFixture::Load(const std::string& bytes) {
  image = bytes;
  const vorn_status status = vorn_mdl_load_from_mem(image.data(), image.size(), &modelId);
  if (status != VORN_SUCCESS) return status;
  desc = vorn_mdl_create_desc();
  EXPECT_EQ(vorn_mdl_get_desc(desc, modelId), VORN_SUCCESS);
  return status;
}

std::string HostFixture::Refusal(const OnnxWriter& model) {
  vorn_status status = VORN_SUCCESS;
  std::string said = LogOf([&] { status = Load(model); });
  EXPECT_NE(status, VORN_SUCCESS);
  Unload();
  return said;
}

std::vector<int64_t> HostFixture::ShapeOfInput(uint64_t index) const {
  vorn_mdl_io_dims dims;
  EXPECT_EQ(vorn_mdl_get_input_dims(desc, index, &dims), VORN_SUCCESS);
  return {dims.dims, dims.dims + dims.dimCount};
}

std::vector<int64_t> HostFixture::ShapeOfOutput(uint64_t index) const {
  vorn_mdl_io_dims dims;
  EXPECT_EQ(vorn_mdl_get_output_dims(desc, index, &dims), VORN_SUCCESS);
  return {dims.dims, dims.dims + dims.dimCount};
}

std::string HostFixture::NameOfInput(uint64_t index) const {
  vorn_mdl_io_dims dims;
  EXPECT_EQ(vorn_mdl_get_input_dims(desc, index, &dims), VORN_SUCCESS);
  return dims.name;
}

void HostFixture::Unload() {
  if (modelId != 0) {
    EXPECT_EQ(vorn_mdl_unload(modelId), VORN_SUCCESS);
  }
  if (desc != nullptr) {
    EXPECT_EQ(vorn_mdl_destroy_desc(desc), VORN_SUCCESS);
  }
  modelId = 0;
  desc = nullptr;
}

Blocks HostFixture::Inputs(uint64_t batch) const {
  Blocks blocks;
  for (uint64_t i = 0; i < vorn_mdl_get_num_inputs(desc); ++i) {
    const uint64_t bytes = batch * vorn_mdl_get_input_size_by_index(desc, i);
    blocks.Add(bytes, bytes, vorn_mdl_get_input_default_stride(desc, i));
  }
  return blocks;
}

Blocks HostFixture::Outputs(uint64_t batch) const {
  Blocks blocks;
  for (uint64_t i = 0; i < vorn_mdl_get_num_outputs(desc); ++i) {
    const uint64_t bytes = batch * vorn_mdl_get_output_size_by_index(desc, i);
    blocks.Add(bytes, bytes, vorn_mdl_get_output_default_stride(desc, i));
  }
  return blocks;
}
