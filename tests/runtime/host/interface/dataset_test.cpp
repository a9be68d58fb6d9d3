// Data buffers and datasets.
#include "runtime/host/host_fixture.h"

namespace {

using HostDataset = HostFixture;

TEST_F(HostDataset, KeepsItsBuffersInOrder) {
  Blocks blocks;
  EXPECT_EQ(vorn_mdl_get_dataset_num_buffers(blocks.dataset), 0u);
  blocks.Add(32, 16, 16).Add(64, 64, 32);
  EXPECT_EQ(vorn_mdl_get_dataset_num_buffers(blocks.dataset), 2u);
  EXPECT_EQ(vorn_mdl_get_dataset_buffer(blocks.dataset, 0), blocks.buffers[0]);
  EXPECT_EQ(vorn_mdl_get_dataset_buffer(blocks.dataset, 1), blocks.buffers[1]);
  EXPECT_EQ(vorn_mdl_get_dataset_buffer(blocks.dataset, 2), nullptr);
  EXPECT_EQ(vorn_get_data_buffer_size(blocks.buffers[0]), 16u);
  EXPECT_NE(vorn_get_data_buffer_addr(blocks.buffers[0]), nullptr);
}

TEST_F(HostDataset, IsDestroyedAfterItsBuffers) {
  int block = 0;
  vorn_mdl_dataset* dataset = vorn_mdl_create_dataset();
  vorn_data_buffer* buffer = vorn_create_data_buffer(&block, 4, 4);
  ASSERT_EQ(vorn_mdl_add_dataset_buffer(dataset, buffer), VORN_SUCCESS);
  EXPECT_EQ(vorn_destroy_data_buffer(buffer), VORN_SUCCESS);
  EXPECT_EQ(vorn_mdl_get_dataset_num_buffers(dataset), 1u);
  EXPECT_EQ(vorn_mdl_destroy_dataset(dataset), VORN_SUCCESS);
  EXPECT_EQ(vorn_mdl_destroy_dataset(dataset), VORN_ERROR_INVALID_HANDLE);
}

TEST_F(HostDataset, RefusesBuffersOverNothing) {
  int block = 0;
  EXPECT_EQ(vorn_create_data_buffer(nullptr, 4, 4), nullptr);
  EXPECT_EQ(vorn_create_data_buffer(&block, 0, 4), nullptr);
  EXPECT_EQ(vorn_create_data_buffer(&block, 4, 0), nullptr);
}

TEST_F(HostDataset, RefusesDeadForeignAndWrongHandles) {
  int block = 0;
  vorn_mdl_dataset* dataset = vorn_mdl_create_dataset();
  vorn_data_buffer* buffer = vorn_create_data_buffer(&block, 4, 4);
  ASSERT_EQ(vorn_destroy_data_buffer(buffer), VORN_SUCCESS);
  EXPECT_EQ(vorn_destroy_data_buffer(buffer), VORN_ERROR_INVALID_HANDLE);
  EXPECT_EQ(vorn_destroy_data_buffer(nullptr), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_get_data_buffer_addr(buffer), nullptr);
  EXPECT_EQ(vorn_get_data_buffer_size(buffer), 0u);
  EXPECT_EQ(vorn_get_data_buffer_size(nullptr), 0u);
  EXPECT_EQ(vorn_mdl_add_dataset_buffer(dataset, buffer), VORN_ERROR_INVALID_HANDLE);
  EXPECT_EQ(vorn_mdl_add_dataset_buffer(dataset, nullptr), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_mdl_add_dataset_buffer(dataset, reinterpret_cast<vorn_data_buffer*>(dataset)),
            VORN_ERROR_INVALID_HANDLE);
  EXPECT_EQ(vorn_mdl_get_dataset_num_buffers(dataset), 0u);
  EXPECT_EQ(vorn_mdl_get_dataset_num_buffers(reinterpret_cast<vorn_mdl_dataset*>(&block)), 0u);
  EXPECT_EQ(vorn_mdl_get_dataset_buffer(nullptr, 0), nullptr);
  EXPECT_EQ(vorn_mdl_destroy_dataset(dataset), VORN_SUCCESS);
}

}  // namespace
