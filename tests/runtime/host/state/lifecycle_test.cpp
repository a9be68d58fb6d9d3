#include "host/state/lifecycle.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "host/state/loading.h"
#include "runtime/host/refusal.h"
#include "runtime/host/state/running.h"

namespace vorn::host {
namespace {

class LifecycleTest : public RunningTest {
 protected:
  static std::string LogOfStop() {
    return LogOf([] { StopRuntime(); });
  }

  /// The line about what is left.
  static std::string Left(const std::string& what) { return "vorn: vorn_finalize: " + what + "\n"; }

  static std::string NameOf(const void* handle) { return Join(handle); }
};

TEST_F(LifecycleTest, StartsOnceUntilItStops) {
  EXPECT_EQ(ReasonOf(VORN_ERROR_UNSUPPORTED, [] { StartRuntime("/nowhere"); }),
            "the runtime is up already; finalize it first");
  EXPECT_NE(Look()->engine, nullptr);
  StopRuntime();
  EXPECT_EQ(Look()->engine, nullptr);
  EXPECT_EQ(ReasonOf(VORN_ERROR_NOT_INITIALIZED, [] { StopRuntime(); }),
            "the runtime is not up; call vorn_init first");
}

TEST_F(LifecycleTest, StaysDownWithoutAConfiguration) {
  StopRuntime();
  EXPECT_EQ(ReasonOf(VORN_ERROR_INVALID_ARGUMENT, [] { StartRuntime(nullptr); }),
            "the path is null; give that of a JSON file");
  EXPECT_EQ(ReasonOf(VORN_ERROR_CONFIG, [] { StartRuntime("/nowhere/vorn.json"); }),
            "the configuration file '/nowhere/vorn.json' cannot be read (No such file or "
            "directory); give the path of a JSON file");
  EXPECT_EQ(Look()->engine, nullptr);
  EXPECT_EQ(StatusOf([] { Look()->devices.RequireUp(); }), VORN_ERROR_NOT_INITIALIZED);
}

TEST_F(LifecycleTest, TakesWhatTheConfigurationSaysAndNothingOfTheOneBefore) {
  Change()->timeout.seconds = 7;
  Restart(R"({"devices": 3, "rowAlignment": 64})");
  EXPECT_EQ(Look()->timeout.seconds, 0u);
  EXPECT_EQ(Look()->config.rowAlignment, 64u);
  EXPECT_EQ(StatusOf([] { Change()->devices.Set(2); }), VORN_SUCCESS);
  Restart("{}");
  EXPECT_EQ(Look()->config, Config{});
  EXPECT_EQ(StatusOf([] { Change()->devices.Set(2); }), VORN_ERROR_INVALID_ARGUMENT);
}

TEST_F(LifecycleTest, EndsModelsDevicesAndKeptBlocks) {
  const std::string image = Negating();
  LoadModel(image.data(), image.size());
  Free(Allocate(4096));
  StopRuntime();
  const Look tables;
  EXPECT_TRUE(tables->models.Ids().empty());
  EXPECT_TRUE(tables->devices.Contexts().empty());
  EXPECT_EQ(tables->blocks.KeptBytes(), 0u);
}

TEST_F(LifecycleTest, TellsWhatIsLeftOfEachKind) {
  const std::string image = Negating();
  const uint32_t model = LoadModel(image.data(), image.size());
  void* large = Allocate(4096);
  vorn_mdl_desc* desc = Change()->descriptions.Create();
  vorn_mdl_dataset* first = Change()->datasets.Create();
  vorn_mdl_dataset* second = Change()->datasets.Create();
  vorn_data_buffer* buffer = Change()->datasets.CreateBuffer(large, 4096, 16);
  vorn_rt_stream* stream = Change()->devices.CreateStream();
  EXPECT_EQ(LogOfStop(),
            Left(Join("1 model(s) were not unloaded: ", model)) +
                Left("1 block(s) were not freed: " + NameOf(large) + " of 4096 bytes") +
                Left("1 description(s) were not destroyed: " + NameOf(desc)) +
                Left("2 dataset(s) were not destroyed: " + NameOf(first) + ", " + NameOf(second)) +
                Left("1 data buffer(s) were not destroyed: " + NameOf(buffer)) +
                Left("1 stream(s) were not destroyed: " + NameOf(stream)) +
                Left("1 context(s) were not destroyed: " + NameOf(context)) +
                Left("1 device(s) were not reset: 0"));
  const Change tables;
  tables->datasets.DestroyBuffer(buffer);
  tables->datasets.Destroy(first);
  tables->datasets.Destroy(second);
  tables->descriptions.Destroy(desc);
  EXPECT_TRUE(tables->blocks.Free(large));
}

TEST_F(LifecycleTest, NamesEightAtMost) {
  Change()->devices.Reset(0);
  std::vector<vorn_mdl_desc*> descs;
  std::string names;
  for (int i = 0; i < 8; ++i) {
    descs.push_back(Change()->descriptions.Create());
    names += (i == 0 ? "" : ", ") + NameOf(descs.back());
  }
  EXPECT_EQ(LogOfStop(), Left("8 description(s) were not destroyed: " + names));
  Start("{}");
  Change()->devices.Reset(0);
  descs.push_back(Change()->descriptions.Create());
  EXPECT_EQ(LogOfStop(), Left("9 description(s) were not destroyed: " + names + ", ..."));
  for (vorn_mdl_desc* desc : descs) Change()->descriptions.Destroy(desc);
}

TEST_F(LifecycleTest, TellsNothingWhereNothingIsLeftOrNobodyListens) {
  testing::internal::CaptureStderr();
  StopRuntime();
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  Start("{}");
  Change()->devices.Reset(0);
  EXPECT_EQ(LogOfStop(), "");
}

}  // namespace
}  // namespace vorn::host
