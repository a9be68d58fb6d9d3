#include "host/state/devices.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "runtime/host/refusal.h"

namespace vorn::host {
namespace {

constexpr const char* kNotUp = "the runtime is not up; call vorn_init first";
constexpr const char* kNoContext = "no context is current on this thread; create one on it";

class DevicesTest : public testing::Test {
 protected:
  void BringUp(int count, std::optional<uint64_t> limit = {}) {
    Config config;
    config.devices = count;
    config.memoryLimit = limit;
    devices_.BringUp(config);
  }

  template <typename Steps>
  std::string NotInitialized(Steps&& steps) {
    return ReasonOf(VORN_ERROR_NOT_INITIALIZED, steps);
  }
  template <typename Steps>
  std::string Invalid(Steps&& steps) {
    return ReasonOf(VORN_ERROR_INVALID_ARGUMENT, steps);
  }

  Devices devices_;
};

TEST_F(DevicesTest, AreNoneBeforeAndAfter) {
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(NotInitialized([&] { devices_.RequireUp(); }), kNotUp);
    EXPECT_EQ(NotInitialized([&] { devices_.Set(0); }), kNotUp);
    EXPECT_EQ(NotInitialized([&] { devices_.Reset(0); }), kNotUp);
    EXPECT_EQ(NotInitialized([&] { devices_.CreateContext(0); }), kNotUp);
    EXPECT_EQ(NotInitialized([&] { devices_.RequireContext(); }), kNotUp);
    EXPECT_EQ(NotInitialized([&] { devices_.CreateStream(); }), kNotUp);
    BringUp(1);
    devices_.RequireUp();
    devices_.Set(0);
    devices_.CreateContext(0);
    devices_.CreateStream();
    devices_.TakeDown();
    EXPECT_TRUE(devices_.Contexts().empty());
    EXPECT_TRUE(devices_.Streams().empty());
    EXPECT_TRUE(devices_.SetDevices().empty());
  }
}

TEST_F(DevicesTest, AreAsManyAsConfiguredAndNoneIsSet) {
  BringUp(3);
  EXPECT_TRUE(devices_.SetDevices().empty());
  devices_.Set(2);
  devices_.Set(0);
  devices_.Set(0);
  EXPECT_EQ(devices_.SetDevices(), (std::vector<int32_t>{0, 2}));
  EXPECT_EQ(Invalid([&] { devices_.Set(3); }),
            "device 3 does not exist; there are 3, from 0 on ('devices' of the configuration)");
  EXPECT_EQ(Invalid([&] { devices_.Reset(-1); }),
            "device -1 does not exist; there are 3, from 0 on ('devices' of the configuration)");
  EXPECT_EQ(Invalid([&] { devices_.CreateContext(INT32_MIN); }),
            "device -2147483648 does not exist; there are 3, from 0 on ('devices' of the "
            "configuration)");
}

TEST_F(DevicesTest, TakeContextsAndResetsWhileTheyAreSet) {
  BringUp(2);
  EXPECT_EQ(NotInitialized([&] { devices_.CreateContext(1); }),
            "device 1 is not set; set it first");
  EXPECT_EQ(NotInitialized([&] { devices_.Reset(1); }), "device 1 is not set");
  EXPECT_TRUE(devices_.Contexts().empty());
  devices_.Set(1);
  vorn_rt_context* context = devices_.CreateContext(1);
  EXPECT_EQ(devices_.RequireContext().deviceId, 1);
  EXPECT_EQ(devices_.Contexts(), std::vector<const vorn_rt_context*>{context});
  devices_.Reset(1);
  EXPECT_TRUE(devices_.SetDevices().empty());
  EXPECT_EQ(NotInitialized([&] { devices_.Reset(1); }), "device 1 is not set");
}

TEST_F(DevicesTest, EndWhatIsOnThemAndNothingElseWhenTheyAreReset) {
  BringUp(2);
  devices_.Set(0);
  devices_.Set(1);
  devices_.CreateContext(0);
  devices_.CreateStream();
  vorn_rt_context* other = devices_.CreateContext(1);
  vorn_rt_stream* otherStream = devices_.CreateStream();
  devices_.Reset(0);
  EXPECT_EQ(devices_.SetDevices(), std::vector<int32_t>{1});
  EXPECT_EQ(devices_.Contexts(), std::vector<const vorn_rt_context*>{other});
  EXPECT_EQ(devices_.Streams(), std::vector<const vorn_rt_stream*>{otherStream});
  EXPECT_EQ(devices_.RequireContext().deviceId, 1);
  devices_.Reset(1);
  EXPECT_EQ(NotInitialized([&] { devices_.RequireContext(); }), kNoContext);
}

TEST_F(DevicesTest, HaveContextsThatAreCurrentOnTheirThreadAlone) {
  BringUp(1);
  devices_.Set(0);
  EXPECT_EQ(NotInitialized([&] { devices_.RequireContext(); }), kNoContext);
  vorn_rt_context* first = devices_.CreateContext(0);
  std::thread([&] {
    EXPECT_EQ(NotInitialized([&] { devices_.RequireContext(); }), kNoContext);
    EXPECT_EQ(NotInitialized([&] { devices_.CreateStream(); }), kNoContext);
  }).join();
  // The last one that was created is current, and nothing comes in its place.
  vorn_rt_context* second = devices_.CreateContext(0);
  devices_.DestroyContext(second);
  EXPECT_EQ(NotInitialized([&] { devices_.RequireContext(); }), kNoContext);
  EXPECT_EQ(devices_.Contexts(), std::vector<const vorn_rt_context*>{first});
}

TEST_F(DevicesTest, RefuseHandlesThatDoNotLive) {
  BringUp(1);
  devices_.Set(0);
  vorn_rt_context* context = devices_.CreateContext(0);
  vorn_rt_stream* stream = devices_.CreateStream();
  devices_.DestroyStream(stream);
  devices_.DestroyContext(context);
  EXPECT_EQ(Invalid([&] { devices_.DestroyContext(nullptr); }), "the context is null");
  EXPECT_EQ(Invalid([&] { devices_.DestroyStream(nullptr); }), "the stream is null");
  EXPECT_EQ(ReasonOf(VORN_ERROR_INVALID_HANDLE, [&] { devices_.DestroyContext(context); }),
            Join(static_cast<const void*>(context),
                 " is no context; it was destroyed, or is something else"));
  EXPECT_EQ(ReasonOf(VORN_ERROR_INVALID_HANDLE, [&] { devices_.DestroyStream(stream); }),
            Join(static_cast<const void*>(stream),
                 " is no stream; it was destroyed, or is something else"));
}

TEST_F(DevicesTest, ShareTheMachineWithoutALimit) {
  BringUp(2);
  devices_.Set(0);
  devices_.Set(1);
  devices_.CreateContext(0);
  const auto first = devices_.CurrentMemory();
  devices_.CreateContext(1);
  EXPECT_EQ(devices_.CurrentMemory(), first);
  EXPECT_EQ(first->limit(), MachineMemoryBytes());
}

TEST_F(DevicesTest, HaveMemoryOfTheirOwnWithALimit) {
  BringUp(2, 1000);
  devices_.Set(0);
  devices_.Set(1);
  devices_.CreateContext(0);
  const auto first = devices_.CurrentMemory();
  devices_.CreateContext(1);
  EXPECT_NE(devices_.CurrentMemory(), first);
  EXPECT_EQ(first->limit(), 1000u);
  EXPECT_EQ(devices_.CurrentMemory()->limit(), 1000u);
}

}  // namespace
}  // namespace vorn::host
