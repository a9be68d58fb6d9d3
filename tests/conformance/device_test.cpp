// Device, context, stream.
#include <thread>

#include "contract.h"

namespace conformance {
namespace {

class Device : public UpContract {};

CONTRACT(Device, WaitsForOperatorsWithoutLimit) {
  EXPECT_EQ(vorn_rt_set_op_wait_timeout(0), VORN_SUCCESS);
}

CONTRACT(Device, TellsItsRunMode) {
  vorn_rt_run_mode mode = 77;
  EXPECT_EQ(vorn_rt_get_run_mode(&mode), VORN_SUCCESS);
  EXPECT_TRUE(mode == VORN_RUN_MODE_DEVICE || mode == VORN_RUN_MODE_HOST)
      << "vorn_rt_get_run_mode gave " << mode;
}

CONTRACT(Device, MakesStreams) {
  vorn_rt_stream* first = nullptr;
  vorn_rt_stream* second = nullptr;
  EXPECT_EQ(vorn_rt_create_stream(&first), VORN_SUCCESS);
  EXPECT_EQ(vorn_rt_create_stream(&second), VORN_SUCCESS);
  Require(first != nullptr && second != nullptr, "vorn_rt_create_stream gave null");
  EXPECT_NE(first, second) << "vorn_rt_create_stream";
  EXPECT_EQ(vorn_rt_destroy_stream(first), VORN_SUCCESS);
  EXPECT_EQ(vorn_rt_destroy_stream(second), VORN_SUCCESS);
}

CONTRACT(Device, ServesAnotherThreadWithAContextOfItsOwn) {
  std::thread([this] {
    vorn_rt_context* own = nullptr;
    void* block = nullptr;
    EXPECT_EQ(vorn_rt_set_device(Given().device), VORN_SUCCESS);
    ASSERT_EQ(vorn_rt_create_context(&own, Given().device), VORN_SUCCESS);
    EXPECT_NE(own, up->context) << "vorn_rt_create_context";
    EXPECT_EQ(vorn_rt_malloc(&block, 64, VORN_MEM_NORMAL_ONLY), VORN_SUCCESS);
    EXPECT_EQ(vorn_rt_free(block), VORN_SUCCESS);
    EXPECT_EQ(vorn_rt_destroy_context(own), VORN_SUCCESS);
  }).join();
  void* block = nullptr;
  EXPECT_EQ(vorn_rt_malloc(&block, 64, VORN_MEM_NORMAL_ONLY), VORN_SUCCESS);
  EXPECT_EQ(vorn_rt_free(block), VORN_SUCCESS);
}

CONTRACT(Device, RefusesNull) {
  EXPECT_NE(vorn_rt_create_context(nullptr, Given().device), VORN_SUCCESS);
  EXPECT_NE(vorn_rt_create_stream(nullptr), VORN_SUCCESS);
  EXPECT_NE(vorn_rt_get_run_mode(nullptr), VORN_SUCCESS);
  EXPECT_NE(vorn_rt_destroy_context(nullptr), VORN_SUCCESS);
  EXPECT_NE(vorn_rt_destroy_stream(nullptr), VORN_SUCCESS);
}

CONTRACT(Device, RefusesDevicesThatAreNotThere) {
  vorn_rt_context* other = nullptr;
  for (const int32_t device : {-1, INT32_MAX, INT32_MIN}) {
    EXPECT_NE(vorn_rt_set_device(device), VORN_SUCCESS) << device;
    EXPECT_NE(vorn_rt_create_context(&other, device), VORN_SUCCESS) << device;
    vorn_rt_reset_device(device);
  }
  EXPECT_EQ(other, nullptr) << "vorn_rt_create_context wrote its result after a failure";
}

}  // namespace
}  // namespace conformance
