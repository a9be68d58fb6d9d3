// The runtime as a whole, device, context, stream, memory.
#include <gmock/gmock.h>
#include <sys/mman.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <thread>

#include "runtime/host/host_fixture.h"

namespace {

TEST(HostProcess, FinalizeAndResetAreHarmlessBeforeInit) {
  EXPECT_EQ(vorn_finalize(), VORN_ERROR_NOT_INITIALIZED);
  EXPECT_EQ(vorn_rt_reset_device(0), VORN_ERROR_NOT_INITIALIZED);
}

TEST(HostProcess, EverythingElseAnswersNotInitializedBeforeInit) {
  vorn_rt_context* context = nullptr;
  vorn_rt_stream* stream = nullptr;
  vorn_rt_run_mode mode = 7;
  void* block = nullptr;
  uint32_t modelId = 7;
  EXPECT_EQ(vorn_rt_set_device(0), VORN_ERROR_NOT_INITIALIZED);
  EXPECT_EQ(vorn_rt_set_op_wait_timeout(0), VORN_ERROR_NOT_INITIALIZED);
  EXPECT_EQ(vorn_rt_create_context(&context, 0), VORN_ERROR_NOT_INITIALIZED);
  EXPECT_EQ(vorn_rt_create_stream(&stream), VORN_ERROR_NOT_INITIALIZED);
  EXPECT_EQ(vorn_rt_get_run_mode(&mode), VORN_ERROR_NOT_INITIALIZED);
  EXPECT_EQ(vorn_rt_malloc(&block, 8, VORN_MEM_NORMAL_ONLY), VORN_ERROR_NOT_INITIALIZED);
  EXPECT_EQ(vorn_mdl_load_from_mem("x", 1, &modelId), VORN_ERROR_NOT_INITIALIZED);
  EXPECT_EQ(vorn_mdl_create_desc(), nullptr);
  EXPECT_EQ(vorn_mdl_create_dataset(), nullptr);
  EXPECT_EQ(modelId, 7u);
  EXPECT_EQ(mode, 7);
}

TEST(HostProcess, LooksAtThePlaceOfAResultFirst) {
  EXPECT_EQ(vorn_rt_get_run_mode(nullptr), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_rt_create_context(nullptr, 0), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_rt_create_stream(nullptr), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_rt_malloc(nullptr, 8, VORN_MEM_NORMAL_ONLY), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_mdl_load_from_mem("x", 1, nullptr), VORN_ERROR_INVALID_ARGUMENT);
}

TEST(HostProcess, ReportsAConfigurationThatItDoesNotTake) {
  EXPECT_EQ(vorn_init(nullptr), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_init("/nowhere/vorn.json"), VORN_ERROR_CONFIG);
  EXPECT_EQ(vorn_init(ConfigFile("{").path()), VORN_ERROR_CONFIG);
  EXPECT_EQ(vorn_init(ConfigFile(R"({"thread": 1})").path()), VORN_ERROR_CONFIG);
  EXPECT_EQ(vorn_init(ConfigFile(R"({"threads": 0})").path()), VORN_ERROR_CONFIG);
  EXPECT_EQ(vorn_finalize(), VORN_ERROR_NOT_INITIALIZED);
}

TEST(HostProcess, ComesUpAgainAfterFinalize) {
  const ConfigFile config("{}");
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(vorn_init(config.path()), VORN_SUCCESS);
    EXPECT_EQ(vorn_init(config.path()), VORN_ERROR_UNSUPPORTED);
    ASSERT_EQ(vorn_finalize(), VORN_SUCCESS);
  }
}

TEST(HostProcess, IsSilentUnlessAskedAndThenTellsOneLineAFault) {
  unsetenv("VORN_LOG");
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  EXPECT_NE(vorn_init("/nowhere/vorn.json"), VORN_SUCCESS);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");

  setenv("VORN_LOG", "error", 1);
  testing::internal::CaptureStderr();
  EXPECT_NE(vorn_init("/nowhere/vorn.json"), VORN_SUCCESS);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "vorn: vorn_init: the configuration file '/nowhere/vorn.json' cannot be read "
            "(No such file or directory); give the path of a JSON file\n");
  unsetenv("VORN_LOG");
}

/// Everything that two refused models make the process write, with VORN_LOG of that value.
std::string WrittenOverRefusedModels(const char* log) {
  const ConfigFile config("{}");
  const std::string unknown =
      OnnxWriter().Output("y", kOnnxFloat, {1}).Node("No\nSuch", {}, {"y"}).Image();
  vorn_rt_context* context = nullptr;
  uint32_t id = 0;
  setenv("VORN_LOG", log, 1);
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  EXPECT_EQ(vorn_init(config.path()), VORN_SUCCESS);
  EXPECT_EQ(vorn_rt_set_device(0), VORN_SUCCESS);
  EXPECT_EQ(vorn_rt_create_context(&context, 0), VORN_SUCCESS);
  EXPECT_EQ(vorn_mdl_load_from_mem(unknown.data(), unknown.size(), &id), VORN_ERROR_MODEL);
  EXPECT_EQ(vorn_mdl_load_from_mem("garbage", 7, &id), VORN_ERROR_MODEL);
  EXPECT_EQ(vorn_rt_destroy_context(context), VORN_SUCCESS);
  EXPECT_EQ(vorn_rt_reset_device(0), VORN_SUCCESS);
  EXPECT_EQ(vorn_finalize(), VORN_SUCCESS);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  unsetenv("VORN_LOG");
  return testing::internal::GetCapturedStderr();
}

TEST(HostProcess, KeepsTheExecutionLibrarySilent) { EXPECT_EQ(WrittenOverRefusedModels("0"), ""); }

TEST(HostProcess, TellsEveryFaultOnceAndOnOneLine) {
  std::istringstream lines(WrittenOverRefusedModels("1"));
  std::string line;
  int count = 0;
  while (std::getline(lines, line)) {
    EXPECT_EQ(line.rfind("vorn: vorn_mdl_load_from_mem: the ", 0), 0u) << line;
    ++count;
  }
  EXPECT_EQ(count, 2);
}

TEST(HostProcess, BlamesNoMetadataForGarbage) {
  EXPECT_THAT(WrittenOverRefusedModels("1"), testing::Not(testing::HasSubstr("metadata")));
}

TEST(HostProcess, MarksEveryLineOfAFullLog) {
  std::istringstream lines(WrittenOverRefusedModels("info"));
  std::string line;
  while (std::getline(lines, line)) EXPECT_EQ(line.rfind("vorn: ", 0), 0u) << line;
}

using HostDevice = HostFixture;

TEST_F(HostDevice, HasOneDevice) {
  vorn_rt_context* other = nullptr;
  EXPECT_EQ(vorn_rt_set_device(1), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_rt_set_device(-1), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_rt_reset_device(1), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_rt_create_context(&other, 1), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(other, nullptr);
}

TEST_F(HostDevice, RunsOnTheDeviceAndWaitsWithoutLimit) {
  vorn_rt_run_mode mode = 7;
  EXPECT_EQ(vorn_rt_get_run_mode(&mode), VORN_SUCCESS);
  EXPECT_EQ(mode, VORN_RUN_MODE_DEVICE);
  EXPECT_EQ(vorn_rt_set_op_wait_timeout(0), VORN_SUCCESS);
}

TEST(HostContext, NeedsADevice) {
  const ConfigFile config("{}");
  vorn_rt_context* context = nullptr;
  ASSERT_EQ(vorn_init(config.path()), VORN_SUCCESS);
  EXPECT_EQ(vorn_rt_create_context(&context, 0), VORN_ERROR_NOT_INITIALIZED);
  EXPECT_EQ(vorn_rt_reset_device(0), VORN_ERROR_NOT_INITIALIZED);
  EXPECT_EQ(vorn_finalize(), VORN_SUCCESS);
}

using HostContextTest = HostFixture;

TEST_F(HostContextTest, IsCurrentOnItsThreadOnly) {
  vorn_status onOther = VORN_SUCCESS;
  vorn_status withOwn = VORN_ERROR_INTERNAL;
  std::thread([&] {
    void* block = nullptr;
    onOther = vorn_rt_malloc(&block, 8, VORN_MEM_NORMAL_ONLY);
    vorn_rt_context* own = nullptr;
    vorn_rt_create_context(&own, 0);
    withOwn = vorn_rt_malloc(&block, 8, VORN_MEM_NORMAL_ONLY);
    vorn_rt_free(block);
    vorn_rt_destroy_context(own);
  }).join();
  EXPECT_EQ(onOther, VORN_ERROR_NOT_INITIALIZED);
  EXPECT_EQ(withOwn, VORN_SUCCESS);
}

TEST_F(HostContextTest, IsGoneAfterItsDestruction) {
  void* block = nullptr;
  ASSERT_EQ(vorn_rt_destroy_context(context), VORN_SUCCESS);
  EXPECT_EQ(vorn_rt_malloc(&block, 8, VORN_MEM_NORMAL_ONLY), VORN_ERROR_NOT_INITIALIZED);
  EXPECT_EQ(vorn_rt_destroy_context(context), VORN_ERROR_INVALID_HANDLE);
  ASSERT_EQ(vorn_rt_create_context(&context, 0), VORN_SUCCESS);
  EXPECT_EQ(vorn_rt_malloc(&block, 8, VORN_MEM_NORMAL_ONLY), VORN_SUCCESS);
  EXPECT_EQ(vorn_rt_free(block), VORN_SUCCESS);
}

TEST_F(HostContextTest, RefusesHandlesOfAnotherKindAndNull) {
  vorn_rt_stream* stream = nullptr;
  ASSERT_EQ(vorn_rt_create_stream(&stream), VORN_SUCCESS);
  EXPECT_EQ(vorn_rt_destroy_context(reinterpret_cast<vorn_rt_context*>(stream)),
            VORN_ERROR_INVALID_HANDLE);
  EXPECT_EQ(vorn_rt_destroy_stream(reinterpret_cast<vorn_rt_stream*>(context)),
            VORN_ERROR_INVALID_HANDLE);
  EXPECT_EQ(vorn_rt_destroy_context(nullptr), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_rt_destroy_stream(nullptr), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_rt_create_context(nullptr, 0), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_rt_create_stream(nullptr), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_rt_get_run_mode(nullptr), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_rt_destroy_stream(stream), VORN_SUCCESS);
  EXPECT_EQ(vorn_rt_destroy_stream(stream), VORN_ERROR_INVALID_HANDLE);
}

using HostMemory = HostFixture;

TEST_F(HostMemory, AllocatesAlignedBlocks) {
  void* block = nullptr;
  ASSERT_EQ(vorn_rt_malloc(&block, 1000, VORN_MEM_NORMAL_ONLY), VORN_SUCCESS);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 64, 0u);
  std::memset(block, 1, 1000);
  EXPECT_EQ(vorn_rt_free(block), VORN_SUCCESS);
}

TEST_F(HostMemory, RefusesSizesThatItCannotServe) {
  void* block = this;
  EXPECT_EQ(vorn_rt_malloc(&block, 0, VORN_MEM_NORMAL_ONLY), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(vorn_rt_malloc(&block, UINT64_MAX, VORN_MEM_NORMAL_ONLY), VORN_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(vorn_rt_malloc(nullptr, 8, VORN_MEM_NORMAL_ONLY), VORN_ERROR_INVALID_ARGUMENT);
  EXPECT_EQ(block, this);
}

TEST_F(HostMemory, FreesItsOwnBlocksOnceAndNullAlways) {
  void* block = nullptr;
  int foreign = 0;
  ASSERT_EQ(vorn_rt_malloc(&block, 8, VORN_MEM_NORMAL_ONLY), VORN_SUCCESS);
  EXPECT_EQ(vorn_rt_free(nullptr), VORN_SUCCESS);
  std::ostringstream name;
  name << static_cast<void*>(&foreign);
  EXPECT_EQ(LogOf([&] { EXPECT_EQ(vorn_rt_free(&foreign), VORN_ERROR_INVALID_HANDLE); }),
            "vorn: vorn_rt_free: " + name.str() +
                " is no block; it was destroyed, or is something else\n");
  EXPECT_EQ(vorn_rt_free(block), VORN_SUCCESS);
  EXPECT_EQ(vorn_rt_free(block), VORN_ERROR_INVALID_HANDLE);
}

#ifndef __SANITIZE_ADDRESS__  // under which nothing is kept, and what is freed stays mapped
/// So large that it comes from the system, and goes back to it, on its own.
constexpr uint64_t kLarge = uint64_t{64} << 20;

/// Whether the system has taken the block's memory back.
bool IsGone(void* block) {
  const auto page = reinterpret_cast<uintptr_t>(block) / 4096 * 4096 + 4096;
  unsigned char isResident = 0;
  return mincore(reinterpret_cast<void*>(page), 4096, &isResident) != 0;
}

TEST_F(HostMemory, KeepsWhatWasFreedUntilAModelGoes) {
  void* block = nullptr;
  ASSERT_EQ(vorn_rt_malloc(&block, kLarge, VORN_MEM_NORMAL_ONLY), VORN_SUCCESS);
  ASSERT_EQ(vorn_rt_free(block), VORN_SUCCESS);
  EXPECT_FALSE(IsGone(block));
  ASSERT_EQ(Load(OnnxWriter()
                     .Input("x", kOnnxFloat, {4})
                     .Output("y", kOnnxFloat, {4})
                     .Node("Relu", {"x"}, {"y"})),
            VORN_SUCCESS);
  EXPECT_FALSE(IsGone(block));
  Unload();
  EXPECT_TRUE(IsGone(block));
}

TEST_F(HostMemory, KeepsNothingOfWhatIsFreedWhenTheRuntimeIsDown) {
  void* block = nullptr;
  ASSERT_EQ(vorn_rt_malloc(&block, kLarge, VORN_MEM_NORMAL_ONLY), VORN_SUCCESS);
  ASSERT_EQ(vorn_finalize(), VORN_SUCCESS);
  EXPECT_FALSE(IsGone(block));
  EXPECT_EQ(vorn_rt_free(block), VORN_SUCCESS);
  EXPECT_TRUE(IsGone(block));
  Start("{}");
}
#endif

TEST(HostTeardown, GivesBackAfterFinalize) {
  const ConfigFile config("{}");
  vorn_rt_context* context = nullptr;
  void* block = nullptr;
  ASSERT_EQ(vorn_init(config.path()), VORN_SUCCESS);
  ASSERT_EQ(vorn_rt_set_device(0), VORN_SUCCESS);
  ASSERT_EQ(vorn_rt_create_context(&context, 0), VORN_SUCCESS);
  ASSERT_EQ(vorn_rt_malloc(&block, 8, VORN_MEM_NORMAL_ONLY), VORN_SUCCESS);
  vorn_mdl_desc* desc = vorn_mdl_create_desc();
  vorn_mdl_dataset* dataset = vorn_mdl_create_dataset();
  vorn_data_buffer* buffer = vorn_create_data_buffer(block, 8, 8);
  ASSERT_EQ(vorn_finalize(), VORN_SUCCESS);
  EXPECT_EQ(vorn_rt_destroy_context(context), VORN_ERROR_INVALID_HANDLE);
  EXPECT_EQ(vorn_mdl_destroy_desc(desc), VORN_SUCCESS);
  EXPECT_EQ(vorn_mdl_destroy_dataset(dataset), VORN_SUCCESS);
  EXPECT_EQ(vorn_destroy_data_buffer(buffer), VORN_SUCCESS);
  EXPECT_EQ(vorn_rt_free(block), VORN_SUCCESS);
}

TEST(HostElementTypes, AreKnownWithoutARuntime) {
  EXPECT_EQ(vorn_data_type_size(VORN_FLOAT32), 32u);
  EXPECT_EQ(vorn_data_type_size(VORN_BOOL), 8u);
  EXPECT_EQ(vorn_data_type_size(12), 0u);
}

}  // namespace
