// Every operation that takes a handle, with every handle that is none: a status with a reason in
// the log, and nothing lost.
#include <gmock/gmock.h>

#include <algorithm>
#include <functional>
#include <thread>

#include "runtime/host/host_fixture.h"

namespace {

using testing::HasSubstr;
using testing::StartsWith;

/// An operation, and whether it is refused when it is called.
struct Use {
  const char* operation;
  std::function<bool(void* handle)> isRefused;
};

template <typename Opaque>
Opaque* As(void* handle) {
  return static_cast<Opaque*>(handle);
}

class HostHandles : public HostFixture {
 protected:
  void SetUp() override {
    HostFixture::SetUp();
    ASSERT_EQ(Load(OnnxWriter()
                       .Input("x", kOnnxFloat, {4})
                       .Output("y", kOnnxFloat, {4})
                       .Node("Relu", {"x"}, {"y"})),
              VORN_SUCCESS);
    ASSERT_EQ(vorn_rt_create_stream(&stream), VORN_SUCCESS);
    dataset = vorn_mdl_create_dataset();
    buffer = vorn_create_data_buffer(memory, sizeof(memory), 16);
  }

  void TearDown() override {
    EXPECT_EQ(vorn_destroy_data_buffer(buffer), VORN_SUCCESS);
    EXPECT_EQ(vorn_mdl_destroy_dataset(dataset), VORN_SUCCESS);
    EXPECT_EQ(vorn_rt_destroy_stream(stream), VORN_SUCCESS);
    HostFixture::TearDown();
  }

  /// A handle of each kind that was destroyed.
  std::vector<void*> Destroyed() {
    vorn_rt_stream* deadStream = nullptr;
    EXPECT_EQ(vorn_rt_create_stream(&deadStream), VORN_SUCCESS);
    EXPECT_EQ(vorn_rt_destroy_stream(deadStream), VORN_SUCCESS);
    vorn_mdl_dataset* deadDataset = vorn_mdl_create_dataset();
    EXPECT_EQ(vorn_mdl_destroy_dataset(deadDataset), VORN_SUCCESS);
    vorn_mdl_desc* deadDesc = vorn_mdl_create_desc();
    EXPECT_EQ(vorn_mdl_destroy_desc(deadDesc), VORN_SUCCESS);
    vorn_data_buffer* deadBuffer = vorn_create_data_buffer(memory, 16, 16);
    EXPECT_EQ(vorn_destroy_data_buffer(deadBuffer), VORN_SUCCESS);
    return {deadStream, deadDataset, deadDesc, deadBuffer};
  }

  void ExpectRefused(const std::vector<Use>& uses, void* own) {
    std::vector<void*> handles = {nullptr, memory, this, reinterpret_cast<void*>(1),
                                  reinterpret_cast<void*>(UINTPTR_MAX)};
    for (void* dead : Destroyed()) handles.push_back(dead);
    for (void* live : std::initializer_list<void*>{context, stream, desc, dataset, buffer}) {
      if (live != own) handles.push_back(live);
    }
    for (const Use& use : uses) {
      for (void* handle : handles) {
        const std::string log =
            LogOf([&] { EXPECT_TRUE(use.isRefused(handle)) << use.operation << ' ' << handle; });
        EXPECT_THAT(log, StartsWith(std::string("vorn: ") + use.operation + ": "));
        EXPECT_THAT(log, HasSubstr(handle == nullptr ? " is null" : " is no ")) << use.operation;
      }
    }
  }

  vorn_rt_stream* stream = nullptr;
  vorn_mdl_dataset* dataset = nullptr;
  vorn_data_buffer* buffer = nullptr;
  alignas(16) char memory[16] = {};
};

TEST_F(HostHandles, OfContextsAreChecked) {
  ExpectRefused(
      {{"vorn_rt_destroy_context",
        [](void* h) { return vorn_rt_destroy_context(As<vorn_rt_context>(h)) != VORN_SUCCESS; }}},
      context);
}

TEST_F(HostHandles, OfStreamsAreChecked) {
  ExpectRefused(
      {{"vorn_rt_destroy_stream",
        [](void* h) { return vorn_rt_destroy_stream(As<vorn_rt_stream>(h)) != VORN_SUCCESS; }}},
      stream);
}

TEST_F(HostHandles, OfDescriptionsAreChecked) {
  const auto query = [](auto operation, auto refusal) {
    return [=](void* h) { return operation(As<vorn_mdl_desc>(h), 0) == refusal; };
  };
  const auto count = [](auto operation) {
    return [=](void* h) { return operation(As<vorn_mdl_desc>(h)) == 0; };
  };
  const auto dims = [](auto operation) {
    return [=](void* h) {
      vorn_mdl_io_dims record;
      return operation(As<vorn_mdl_desc>(h), 0, &record) != VORN_SUCCESS;
    };
  };
  const auto fill = [this](void* h) {
    return vorn_mdl_get_desc(As<vorn_mdl_desc>(h), modelId) != VORN_SUCCESS;
  };
  const auto destroy = [](void* h) {
    return vorn_mdl_destroy_desc(As<vorn_mdl_desc>(h)) != VORN_SUCCESS;
  };
  constexpr const char* kNoName = nullptr;
  ExpectRefused(
      {{"vorn_mdl_get_desc", fill},
       {"vorn_mdl_destroy_desc", destroy},
       {"vorn_mdl_get_num_inputs", count(vorn_mdl_get_num_inputs)},
       {"vorn_mdl_get_num_outputs", count(vorn_mdl_get_num_outputs)},
       {"vorn_mdl_get_input_dims", dims(vorn_mdl_get_input_dims)},
       {"vorn_mdl_get_output_dims", dims(vorn_mdl_get_output_dims)},
       {"vorn_mdl_get_output_name_by_index", query(vorn_mdl_get_output_name_by_index, kNoName)},
       {"vorn_mdl_get_input_data_type", query(vorn_mdl_get_input_data_type, UINT32_MAX)},
       {"vorn_mdl_get_output_data_type", query(vorn_mdl_get_output_data_type, UINT32_MAX)},
       {"vorn_mdl_get_input_size_by_index", query(vorn_mdl_get_input_size_by_index, 0u)},
       {"vorn_mdl_get_output_size_by_index", query(vorn_mdl_get_output_size_by_index, 0u)},
       {"vorn_mdl_get_input_default_stride", query(vorn_mdl_get_input_default_stride, 0u)},
       {"vorn_mdl_get_output_default_stride", query(vorn_mdl_get_output_default_stride, 0u)},
       {"vorn_mdl_get_input_format", query(vorn_mdl_get_input_format, -1)},
       {"vorn_mdl_get_output_format", query(vorn_mdl_get_output_format, -1)}},
      desc);
  EXPECT_EQ(vorn_mdl_get_num_inputs(desc), 3u);
}

TEST_F(HostHandles, OfDatasetsAreChecked) {
  Blocks in = Inputs();
  Blocks out = Outputs();
  using Dataset = vorn_mdl_dataset;
  ExpectRefused(
      {{"vorn_mdl_destroy_dataset",
        [](void* h) { return vorn_mdl_destroy_dataset(As<Dataset>(h)) != VORN_SUCCESS; }},
       {"vorn_mdl_add_dataset_buffer",
        [&](void* h) { return vorn_mdl_add_dataset_buffer(As<Dataset>(h), buffer) != 0; }},
       {"vorn_mdl_get_dataset_num_buffers",
        [](void* h) { return vorn_mdl_get_dataset_num_buffers(As<Dataset>(h)) == 0; }},
       {"vorn_mdl_get_dataset_buffer",
        [](void* h) { return vorn_mdl_get_dataset_buffer(As<Dataset>(h), 0) == nullptr; }},
       {"vorn_mdl_set_dynamic_batch_size",
        [&](void* h) {
          return vorn_mdl_set_dynamic_batch_size(modelId, As<Dataset>(h), 0, 1) != VORN_SUCCESS;
        }},
       {"vorn_mdl_set_total_t",
        [&](void* h) { return vorn_mdl_set_total_t(modelId, As<Dataset>(h), 1) != 0; }},
       {"vorn_mdl_execute",
        [&](void* h) { return vorn_mdl_execute(modelId, As<Dataset>(h), out.dataset) != 0; }},
       {"vorn_mdl_execute",
        [&](void* h) { return vorn_mdl_execute(modelId, in.dataset, As<Dataset>(h)) != 0; }}},
      dataset);
  EXPECT_EQ(vorn_mdl_execute(modelId, in.dataset, out.dataset), VORN_SUCCESS);
}

TEST_F(HostHandles, OfDataBuffersAreChecked) {
  using Buffer = vorn_data_buffer;
  ExpectRefused(
      {{"vorn_destroy_data_buffer",
        [](void* h) { return vorn_destroy_data_buffer(As<Buffer>(h)) != VORN_SUCCESS; }},
       {"vorn_get_data_buffer_addr",
        [](void* h) { return vorn_get_data_buffer_addr(As<Buffer>(h)) == nullptr; }},
       {"vorn_get_data_buffer_size",
        [](void* h) { return vorn_get_data_buffer_size(As<Buffer>(h)) == 0; }},
       {"vorn_mdl_add_dataset_buffer",
        [&](void* h) { return vorn_mdl_add_dataset_buffer(dataset, As<Buffer>(h)) != 0; }}},
      buffer);
  EXPECT_EQ(vorn_get_data_buffer_addr(buffer), memory);
}

TEST_F(HostHandles, OfModelsAreChecked) {
  const uint32_t live = modelId;
  Blocks in = Inputs();
  Blocks out = Outputs();
  for (const uint32_t id : {0u, live + 1, UINT32_MAX}) {
    vorn_net_type netType = 0;
    EXPECT_EQ(vorn_mdl_unload(id), VORN_ERROR_INVALID_HANDLE);
    EXPECT_EQ(vorn_ext_get_mdl_net_type(id, &netType), VORN_ERROR_INVALID_HANDLE);
    EXPECT_EQ(vorn_mdl_get_desc(desc, id), VORN_ERROR_INVALID_HANDLE);
    EXPECT_EQ(vorn_mdl_set_dynamic_batch_size(id, in.dataset, 0, 1), VORN_ERROR_INVALID_HANDLE);
    EXPECT_EQ(vorn_mdl_set_total_t(id, in.dataset, 1), VORN_ERROR_INVALID_HANDLE);
    EXPECT_EQ(vorn_mdl_execute(id, in.dataset, out.dataset), VORN_ERROR_INVALID_HANDLE);
    EXPECT_THAT(LogOf([&] { vorn_mdl_execute(id, in.dataset, out.dataset); }),
                HasSubstr("vorn_mdl_execute: no model is loaded under the id "));
  }
  EXPECT_EQ(vorn_mdl_execute(live, in.dataset, out.dataset), VORN_SUCCESS);
}

/// Everything that makes or uses something, each with its log; the count of those.
int ExpectAllNotInitialized(uint32_t modelId, Blocks& in, Blocks& out, vorn_mdl_desc* desc) {
  vorn_rt_stream* stream = nullptr;
  void* block = nullptr;
  uint32_t loaded = 7;
  vorn_net_type netType = 7;
  int memory = 0;
  const std::pair<const char*, std::function<bool()>> uses[] = {
      {"vorn_rt_create_stream", [&] { return vorn_rt_create_stream(&stream) == 3; }},
      {"vorn_rt_malloc", [&] { return vorn_rt_malloc(&block, 8, VORN_MEM_NORMAL_ONLY) == 3; }},
      {"vorn_mdl_load_from_mem", [&] { return vorn_mdl_load_from_mem("x", 1, &loaded) == 3; }},
      {"vorn_ext_get_mdl_net_type",
       [&] { return vorn_ext_get_mdl_net_type(modelId, &netType) == 3; }},
      {"vorn_mdl_create_desc", [] { return vorn_mdl_create_desc() == nullptr; }},
      {"vorn_mdl_get_desc", [&] { return vorn_mdl_get_desc(desc, modelId) == 3; }},
      {"vorn_create_data_buffer",
       [&] { return vorn_create_data_buffer(&memory, 4, 4) == nullptr; }},
      {"vorn_mdl_create_dataset", [] { return vorn_mdl_create_dataset() == nullptr; }},
      {"vorn_mdl_add_dataset_buffer",
       [&] { return vorn_mdl_add_dataset_buffer(in.dataset, in.buffers[0]) == 3; }},
      {"vorn_mdl_set_dynamic_batch_size",
       [&] { return vorn_mdl_set_dynamic_batch_size(modelId, in.dataset, 0, 1) == 3; }},
      {"vorn_mdl_set_total_t", [&] { return vorn_mdl_set_total_t(modelId, in.dataset, 1) == 3; }},
      {"vorn_mdl_execute",
       [&] { return vorn_mdl_execute(modelId, in.dataset, out.dataset) == 3; }}};
  static_assert(VORN_ERROR_NOT_INITIALIZED == 3);
  for (const auto& [operation, isRefused] : uses) EXPECT_TRUE(isRefused()) << operation;
  EXPECT_EQ(loaded, 7u);
  EXPECT_EQ(netType, 7);
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(stream, nullptr);
  return std::size(uses);
}

TEST_F(HostHandles, AreOfNoUseOnAThreadWithoutAContext) {
  Blocks in = Inputs();
  Blocks out = Outputs();
  const std::string log =
      LogOf([&] { std::thread([&] { ExpectAllNotInitialized(modelId, in, out, desc); }).join(); });
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 12);
  EXPECT_THAT(log, HasSubstr("vorn_mdl_execute: no context is current on this thread; create one"));
}

TEST_F(HostHandles, AreOfNoUseAfterTheRuntime) {
  Blocks in = Inputs();
  Blocks out = Outputs();
  ASSERT_EQ(vorn_rt_destroy_stream(stream), VORN_SUCCESS);
  ASSERT_EQ(vorn_rt_destroy_context(context), VORN_SUCCESS);
  ASSERT_EQ(vorn_finalize(), VORN_SUCCESS);
  const std::string log =
      LogOf([&] { EXPECT_EQ(ExpectAllNotInitialized(modelId, in, out, desc), 12); });
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 12);
  EXPECT_THAT(log, HasSubstr("vorn_mdl_execute: the runtime is not up; call vorn_init first"));
  EXPECT_EQ(vorn_mdl_unload(modelId), VORN_ERROR_INVALID_HANDLE);
  EXPECT_EQ(vorn_finalize(), VORN_ERROR_NOT_INITIALIZED);
  // What a caller was given before can still be looked at, and given back.
  EXPECT_EQ(vorn_mdl_get_num_inputs(desc), 3u);
  EXPECT_EQ(vorn_mdl_destroy_desc(desc), VORN_SUCCESS);
  modelId = 0;
  desc = nullptr;
  Start("{}");
  ASSERT_EQ(vorn_rt_create_stream(&stream), VORN_SUCCESS);
}

}  // namespace
