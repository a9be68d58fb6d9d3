// Handles that are no longer alive, or never were what they are taken for. A runtime that trusts
// its callers need not notice; `--trusting` leaves these contracts out.
#include <thread>

#include "model.h"

namespace conformance {
namespace {

constexpr const char* kTrusting = "--trusting is given";

class Handles : public UpContract {
 protected:
  std::string Lacks() const override { return Given().trusting ? kTrusting : ""; }
};

CONTRACT(Handles, OfContextsEndOnce) {
  vorn_rt_context* other = nullptr;
  Require(vorn_rt_create_context(&other, Given().device) == VORN_SUCCESS,
          "vorn_rt_create_context failed");
  EXPECT_EQ(vorn_rt_destroy_context(other), VORN_SUCCESS);
  EXPECT_NE(vorn_rt_destroy_context(other), VORN_SUCCESS);
}

CONTRACT(Handles, OfStreamsEndOnce) {
  vorn_rt_stream* stream = nullptr;
  Require(vorn_rt_create_stream(&stream) == VORN_SUCCESS, "vorn_rt_create_stream failed");
  EXPECT_EQ(vorn_rt_destroy_stream(stream), VORN_SUCCESS);
  EXPECT_NE(vorn_rt_destroy_stream(stream), VORN_SUCCESS);
}

CONTRACT(Handles, OfDescriptionsEndOnce) {
  vorn_mdl_io_dims dims;
  vorn_mdl_desc* desc = vorn_mdl_create_desc();
  EXPECT_EQ(vorn_mdl_destroy_desc(desc), VORN_SUCCESS);
  EXPECT_NE(vorn_mdl_destroy_desc(desc), VORN_SUCCESS);
  EXPECT_EQ(vorn_mdl_get_num_inputs(desc), 0u);
  EXPECT_EQ(vorn_mdl_get_num_outputs(desc), 0u);
  EXPECT_NE(vorn_mdl_get_input_dims(desc, 0, &dims), VORN_SUCCESS);
  EXPECT_NE(vorn_mdl_get_output_dims(desc, 0, &dims), VORN_SUCCESS);
  EXPECT_EQ(vorn_mdl_get_output_name_by_index(desc, 0), nullptr);
  EXPECT_EQ(vorn_mdl_get_input_size_by_index(desc, 0), 0u);
  EXPECT_EQ(vorn_mdl_get_output_size_by_index(desc, 0), 0u);
  EXPECT_EQ(vorn_mdl_get_input_default_stride(desc, 0), 0u);
  EXPECT_EQ(vorn_mdl_get_output_default_stride(desc, 0), 0u);
}

CONTRACT(Handles, OfBuffersEndOnce) {
  const Block block(64);
  vorn_mdl_dataset* dataset = vorn_mdl_create_dataset();
  vorn_data_buffer* buffer = vorn_create_data_buffer(block.Address(), 64, 64);
  EXPECT_EQ(vorn_destroy_data_buffer(buffer), VORN_SUCCESS);
  EXPECT_NE(vorn_destroy_data_buffer(buffer), VORN_SUCCESS);
  EXPECT_EQ(vorn_get_data_buffer_addr(buffer), nullptr);
  EXPECT_EQ(vorn_get_data_buffer_size(buffer), 0u);
  EXPECT_NE(vorn_mdl_add_dataset_buffer(dataset, buffer), VORN_SUCCESS);
  EXPECT_EQ(vorn_mdl_get_dataset_num_buffers(dataset), 0u);
  EXPECT_EQ(vorn_mdl_destroy_dataset(dataset), VORN_SUCCESS);
}

CONTRACT(Handles, OfDatasetsEndOnce) {
  const Block block(64);
  vorn_data_buffer* buffer = vorn_create_data_buffer(block.Address(), 64, 64);
  vorn_mdl_dataset* dataset = vorn_mdl_create_dataset();
  EXPECT_EQ(vorn_mdl_destroy_dataset(dataset), VORN_SUCCESS);
  EXPECT_NE(vorn_mdl_destroy_dataset(dataset), VORN_SUCCESS);
  EXPECT_NE(vorn_mdl_add_dataset_buffer(dataset, buffer), VORN_SUCCESS);
  EXPECT_EQ(vorn_mdl_get_dataset_num_buffers(dataset), 0u);
  EXPECT_EQ(vorn_mdl_get_dataset_buffer(dataset, 0), nullptr);
  EXPECT_EQ(vorn_destroy_data_buffer(buffer), VORN_SUCCESS);
}

CONTRACT(Handles, OfAnotherKindAreRefused) {
  const Block block(64);
  vorn_mdl_dataset* dataset = vorn_mdl_create_dataset();
  vorn_mdl_desc* desc = vorn_mdl_create_desc();
  vorn_data_buffer* buffer = vorn_create_data_buffer(block.Address(), 64, 64);
  EXPECT_NE(vorn_mdl_destroy_desc(reinterpret_cast<vorn_mdl_desc*>(dataset)), VORN_SUCCESS);
  EXPECT_NE(vorn_mdl_destroy_dataset(reinterpret_cast<vorn_mdl_dataset*>(desc)), VORN_SUCCESS);
  EXPECT_NE(vorn_destroy_data_buffer(reinterpret_cast<vorn_data_buffer*>(dataset)), VORN_SUCCESS);
  EXPECT_NE(vorn_rt_destroy_stream(reinterpret_cast<vorn_rt_stream*>(up->context)), VORN_SUCCESS);
  EXPECT_NE(vorn_rt_destroy_context(reinterpret_cast<vorn_rt_context*>(buffer)), VORN_SUCCESS);
  EXPECT_NE(vorn_mdl_add_dataset_buffer(dataset, reinterpret_cast<vorn_data_buffer*>(desc)),
            VORN_SUCCESS);
  EXPECT_EQ(vorn_mdl_get_num_inputs(reinterpret_cast<vorn_mdl_desc*>(dataset)), 0u);
  EXPECT_EQ(vorn_mdl_destroy_desc(desc), VORN_SUCCESS);
  EXPECT_EQ(vorn_mdl_destroy_dataset(dataset), VORN_SUCCESS);
  EXPECT_EQ(vorn_destroy_data_buffer(buffer), VORN_SUCCESS);
}

CONTRACT(Handles, OfNothingAreRefused) {
  uint64_t own[8] = {};
  EXPECT_NE(vorn_mdl_destroy_desc(reinterpret_cast<vorn_mdl_desc*>(own)), VORN_SUCCESS);
  EXPECT_NE(vorn_mdl_destroy_dataset(reinterpret_cast<vorn_mdl_dataset*>(own)), VORN_SUCCESS);
  EXPECT_NE(vorn_destroy_data_buffer(reinterpret_cast<vorn_data_buffer*>(own)), VORN_SUCCESS);
  EXPECT_NE(vorn_rt_destroy_stream(reinterpret_cast<vorn_rt_stream*>(own)), VORN_SUCCESS);
  EXPECT_NE(vorn_rt_destroy_context(reinterpret_cast<vorn_rt_context*>(own)), VORN_SUCCESS);
  EXPECT_EQ(vorn_mdl_get_num_inputs(reinterpret_cast<vorn_mdl_desc*>(own)), 0u);
  EXPECT_EQ(vorn_mdl_get_dataset_num_buffers(reinterpret_cast<vorn_mdl_dataset*>(own)), 0u);
  EXPECT_EQ(vorn_get_data_buffer_size(reinterpret_cast<vorn_data_buffer*>(own)), 0u);
}

CONTRACT(Handles, OfBlocksEndOnce) {
  void* block = nullptr;
  uint64_t own[8] = {};
  Require(vorn_rt_malloc(&block, 64, VORN_MEM_NORMAL_ONLY) == VORN_SUCCESS,
          "vorn_rt_malloc failed");
  EXPECT_NE(vorn_rt_free(static_cast<char*>(block) + 16), VORN_SUCCESS);
  EXPECT_EQ(vorn_rt_free(block), VORN_SUCCESS);
  EXPECT_NE(vorn_rt_free(block), VORN_SUCCESS);
  EXPECT_NE(vorn_rt_free(own), VORN_SUCCESS);
}

/// With a model, whose execution meets handles that are gone.
class HandlesInUse : public ModelContract {
 protected:
  std::string Lacks() const override {
    return Given().trusting ? kTrusting : ModelContract::Lacks();
  }

  vorn_status Execute(const Dataset& in, const Dataset& out) {
    return vorn_mdl_execute(model->Id(), in.Handle(), out.Handle());
  }
};

CONTRACT(HandlesInUse, DestroyedBuffersAreRefused) {
  for (const bool isInput : {true, false}) {
    Dataset in = model->Inputs(1);
    Dataset out = model->Outputs();
    EXPECT_EQ(Execute(in, out), VORN_SUCCESS) << "vorn_mdl_execute";
    (isInput ? in : out).DestroyBuffer(0);
    EXPECT_NE(Execute(in, out), VORN_SUCCESS)
        << "vorn_mdl_execute, " << (isInput ? "input" : "output");
  }
}

CONTRACT(HandlesInUse, FreedBlocksAreRefused) {
  for (const bool isInput : {true, false}) {
    Dataset in = model->Inputs(1);
    Dataset out = model->Outputs();
    EXPECT_EQ(Execute(in, out), VORN_SUCCESS) << "vorn_mdl_execute";
    (isInput ? in : out).BlockAt(0).Free();
    EXPECT_NE(Execute(in, out), VORN_SUCCESS)
        << "vorn_mdl_execute, " << (isInput ? "input" : "output");
  }
}

CONTRACT(HandlesInUse, DestroyedDatasetsAreRefused) {
  vorn_mdl_dataset* gone = vorn_mdl_create_dataset();
  EXPECT_EQ(vorn_mdl_destroy_dataset(gone), VORN_SUCCESS);
  const Dataset in = model->Inputs(1);
  const Dataset out = model->Outputs();
  EXPECT_NE(vorn_mdl_execute(model->Id(), gone, out.Handle()), VORN_SUCCESS);
  EXPECT_NE(vorn_mdl_execute(model->Id(), in.Handle(), gone), VORN_SUCCESS);
  EXPECT_NE(vorn_mdl_set_dynamic_batch_size(model->Id(), gone, 0, 1), VORN_SUCCESS);
  EXPECT_NE(vorn_mdl_set_total_t(model->Id(), gone, 1), VORN_SUCCESS);
  EXPECT_EQ(Execute(in, out), VORN_SUCCESS) << "vorn_mdl_execute";
}

CONTRACT(HandlesInUse, ThreadsWithoutAContextAreRefused) {
  const Dataset in = model->Inputs(1);
  const Dataset out = model->Outputs();
  std::thread([&] {
    void* block = nullptr;
    EXPECT_NE(vorn_rt_malloc(&block, 64, VORN_MEM_NORMAL_ONLY), VORN_SUCCESS);
    EXPECT_NE(Execute(in, out), VORN_SUCCESS) << "vorn_mdl_execute";
    EXPECT_EQ(vorn_mdl_create_dataset(), nullptr);
  }).join();
  EXPECT_EQ(Execute(in, out), VORN_SUCCESS) << "vorn_mdl_execute";
}

CONTRACT(HandlesInUse, DestroyedContextsServeNoLonger) {
  const Dataset in = model->Inputs(1);
  const Dataset out = model->Outputs();
  void* block = nullptr;
  EXPECT_EQ(vorn_rt_destroy_context(up->context), VORN_SUCCESS);
  EXPECT_NE(Execute(in, out), VORN_SUCCESS) << "vorn_mdl_execute";
  EXPECT_NE(vorn_rt_malloc(&block, 64, VORN_MEM_NORMAL_ONLY), VORN_SUCCESS);
  up->context = nullptr;
  Require(vorn_rt_create_context(&up->context, Given().device) == VORN_SUCCESS,
          "vorn_rt_create_context failed");
  EXPECT_EQ(Execute(in, out), VORN_SUCCESS) << "vorn_mdl_execute";
}

}  // namespace
}  // namespace conformance
