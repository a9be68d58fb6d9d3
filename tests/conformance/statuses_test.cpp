// The named failures of vorn.h. Callers only test for 0, so a runtime may choose its own;
// `--named-statuses` is for one that gives these.
#include "model.h"

namespace conformance {
namespace {

std::string LacksNames() { return Given().namedStatuses ? "" : "--named-statuses is not given"; }

class Statuses : public ModelContract {
 protected:
  std::string Lacks() const override {
    const std::string lacks = LacksNames();
    return lacks.empty() ? ModelContract::Lacks() : lacks;
  }
};

class StatusesDown : public Contract {
 protected:
  std::string Lacks() const override { return LacksNames(); }
};

CONTRACT(StatusesDown, NotInitialized) {
  vorn_rt_context* context = nullptr;
  void* block = nullptr;
  EXPECT_EQ(vorn_finalize(), VORN_ERROR_NOT_INITIALIZED);
  EXPECT_EQ(vorn_rt_set_device(Given().device), VORN_ERROR_NOT_INITIALIZED);
  EXPECT_EQ(vorn_rt_reset_device(Given().device), VORN_ERROR_NOT_INITIALIZED);
  EXPECT_EQ(vorn_rt_create_context(&context, Given().device), VORN_ERROR_NOT_INITIALIZED);
  EXPECT_EQ(vorn_rt_malloc(&block, 64, VORN_MEM_NORMAL_ONLY), VORN_ERROR_NOT_INITIALIZED);
}

CONTRACT(StatusesDown, Config) {
  EXPECT_EQ(vorn_init(nullptr), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_init("/nonexistent/vorn.json"), VORN_ERROR_CONFIG);
}

CONTRACT(Statuses, InvalidArgument) {
  vorn_mdl_io_dims dims;
  const Dataset in = model->Inputs(1);
  const Dataset out = model->Outputs();
  EXPECT_EQ(vorn_rt_set_device(-1), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_rt_get_run_mode(nullptr), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_rt_malloc(nullptr, 64, VORN_MEM_NORMAL_ONLY), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_mdl_get_input_dims(model->Desc(), UINT64_MAX, &dims), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_mdl_set_dynamic_batch_size(model->Id(), in.Handle(), 0, 0),
            VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_mdl_execute(model->Id(), out.Handle(), out.Handle()), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_mdl_destroy_dataset(nullptr), VORN_ERROR_INVALID_ARGUMENT);
}

CONTRACT(Statuses, InvalidHandle) {
  const Dataset in = model->Inputs(1);
  const Dataset out = model->Outputs();
  vorn_mdl_dataset* dataset = vorn_mdl_create_dataset();
  vorn_net_type type = 0;
  EXPECT_EQ(vorn_mdl_destroy_dataset(dataset), VORN_SUCCESS);
  EXPECT_EQ(vorn_mdl_destroy_dataset(dataset), VORN_ERROR_INVALID_HANDLE);
  EXPECT_EQ(vorn_mdl_execute(model->Id(), dataset, out.Handle()), VORN_ERROR_INVALID_HANDLE);
  EXPECT_EQ(vorn_mdl_execute(model->Id() + 1000, in.Handle(), out.Handle()),
            VORN_ERROR_INVALID_HANDLE);
  EXPECT_EQ(vorn_mdl_unload(model->Id() + 1000), VORN_ERROR_INVALID_HANDLE);
  EXPECT_EQ(vorn_ext_get_mdl_net_type(model->Id() + 1000, &type), VORN_ERROR_INVALID_HANDLE);
  EXPECT_EQ(vorn_rt_destroy_context(reinterpret_cast<vorn_rt_context*>(dataset)),
            VORN_ERROR_INVALID_HANDLE);
}

CONTRACT(Statuses, OutOfMemory) {
  void* block = nullptr;
  EXPECT_EQ(vorn_rt_malloc(&block, UINT64_MAX, VORN_MEM_NORMAL_ONLY), VORN_ERROR_OUT_OF_MEMORY);
}

CONTRACT(Statuses, OfModels) {
  uint32_t id = 0;
  const Block noise(64);
  EXPECT_EQ(vorn_mdl_load_from_mem(noise.Address(), noise.size(), &id), VORN_ERROR_MODEL);
  EXPECT_EQ(vorn_mdl_load_from_mem(nullptr, 64, &id), VORN_ERROR_INVALID_ARGUMENT);
}

CONTRACT(Statuses, Unsupported) {
  const Dataset in = model->Inputs(1);
  EXPECT_EQ(vorn_init(Given().config.c_str()), VORN_ERROR_UNSUPPORTED) << "while it is up";
  EXPECT_EQ(vorn_mdl_set_total_t(model->Id(), in.Handle(), 1), VORN_ERROR_UNSUPPORTED)
      << "of a model that is not recurrent";
}

}  // namespace
}  // namespace conformance
