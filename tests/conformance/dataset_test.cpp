// Data buffers and datasets.
#include "model.h"

namespace conformance {
namespace {

class Datasets : public UpContract {};

CONTRACT(Datasets, BuffersTellWhatTheyWrap) {
  const Block block(96);
  vorn_data_buffer* buffer = vorn_create_data_buffer(block.Address(), 64, 32);
  Require(buffer != nullptr, "vorn_create_data_buffer gave null");
  EXPECT_EQ(vorn_get_data_buffer_addr(buffer), block.Address());
  EXPECT_EQ(vorn_get_data_buffer_size(buffer), 64u);
  EXPECT_EQ(vorn_destroy_data_buffer(buffer), VORN_SUCCESS);
}

CONTRACT(Datasets, BuffersDoNotOwnTheirBlock) {
  Block block(64, std::byte{7});
  vorn_data_buffer* first = vorn_create_data_buffer(block.Address(), 64, 64);
  vorn_data_buffer* second = vorn_create_data_buffer(block.Address(), 32, 32);
  EXPECT_NE(first, second) << "vorn_create_data_buffer";
  EXPECT_EQ(vorn_destroy_data_buffer(first), VORN_SUCCESS);
  EXPECT_EQ(vorn_get_data_buffer_addr(second), block.Address());
  EXPECT_EQ(vorn_destroy_data_buffer(second), VORN_SUCCESS);
  EXPECT_EQ(block.Content()[63], std::byte{7}) << "vorn_destroy_data_buffer touched the block";
}

CONTRACT(Datasets, KeepTheirBuffersInOrder) {
  Dataset dataset;
  for (uint64_t i = 0; i < 40; ++i) {
    EXPECT_EQ(vorn_mdl_get_dataset_num_buffers(dataset.Handle()), i);
    dataset.Add(16 * (i + 1), 16, std::byte{0});
  }
  EXPECT_EQ(vorn_mdl_get_dataset_num_buffers(dataset.Handle()), 40u);
  for (uint64_t i = 0; i < 40; ++i) {
    vorn_data_buffer* buffer = vorn_mdl_get_dataset_buffer(dataset.Handle(), i);
    EXPECT_EQ(buffer, dataset.BufferAt(i)) << "vorn_mdl_get_dataset_buffer";
    EXPECT_EQ(vorn_get_data_buffer_size(buffer), 16 * (i + 1));
  }
}

CONTRACT(Datasets, DoNotOwnTheirBuffers) {
  const Block block(64);
  vorn_data_buffer* buffer = vorn_create_data_buffer(block.Address(), 64, 64);
  vorn_mdl_dataset* first = vorn_mdl_create_dataset();
  vorn_mdl_dataset* second = vorn_mdl_create_dataset();
  EXPECT_NE(first, second) << "vorn_mdl_create_dataset";
  EXPECT_EQ(vorn_mdl_add_dataset_buffer(first, buffer), VORN_SUCCESS);
  EXPECT_EQ(vorn_mdl_add_dataset_buffer(second, buffer), VORN_SUCCESS);
  EXPECT_EQ(vorn_mdl_destroy_dataset(first), VORN_SUCCESS);
  EXPECT_EQ(vorn_mdl_get_dataset_buffer(second, 0), buffer);
  EXPECT_EQ(vorn_get_data_buffer_addr(buffer), block.Address());
  EXPECT_EQ(vorn_destroy_data_buffer(buffer), VORN_SUCCESS);
  EXPECT_EQ(vorn_mdl_destroy_dataset(second), VORN_SUCCESS) << "after its buffer was destroyed";
}

CONTRACT(Datasets, HaveNothingBeyondTheirCount) {
  Dataset dataset;
  EXPECT_EQ(vorn_mdl_get_dataset_buffer(dataset.Handle(), 0), nullptr);
  dataset.Add(16, 16, std::byte{0});
  EXPECT_EQ(vorn_mdl_get_dataset_buffer(dataset.Handle(), 1), nullptr);
  EXPECT_EQ(vorn_mdl_get_dataset_buffer(dataset.Handle(), UINT64_MAX), nullptr);
}

CONTRACT(Datasets, RefuseNull) {
  Dataset dataset;
  dataset.Add(16, 16, std::byte{0});
  EXPECT_NE(vorn_mdl_add_dataset_buffer(dataset.Handle(), nullptr), VORN_SUCCESS);
  EXPECT_NE(vorn_mdl_add_dataset_buffer(nullptr, dataset.BufferAt(0)), VORN_SUCCESS);
  EXPECT_EQ(vorn_mdl_get_dataset_num_buffers(dataset.Handle()), 1u);
  EXPECT_EQ(vorn_mdl_get_dataset_num_buffers(nullptr), 0u);
  EXPECT_EQ(vorn_mdl_get_dataset_buffer(nullptr, 0), nullptr);
  EXPECT_EQ(vorn_get_data_buffer_addr(nullptr), nullptr);
  EXPECT_EQ(vorn_get_data_buffer_size(nullptr), 0u);
  EXPECT_NE(vorn_destroy_data_buffer(nullptr), VORN_SUCCESS);
  EXPECT_NE(vorn_mdl_destroy_dataset(nullptr), VORN_SUCCESS);
}

}  // namespace
}  // namespace conformance
