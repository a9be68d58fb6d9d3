// Tests the scripted runtime through vorn.h, as a caller meets it. What it calls a violation is
// provoked here on purpose.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "scripted/scripted.h"

namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

const std::string kNothingLives =
    "live: blocks=0 buffers=0 datasets=0 descs=0 contexts=0 streams=0 models=0 at=finalize";

class ScriptedRuntime : public testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = (fs::temp_directory_path() / "vorn-scripted-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    folder_ = pattern;
    setenv("VORN_RECORD", (folder_ / "record").c_str(), 1);
    Begin("");
  }

  void TearDown() override {
    vorn_scripted_restart();
    fs::remove_all(folder_);
  }

  /// A new life under this script.
  void Begin(const std::string& script) {
    vorn_scripted_restart();
    fs::remove(folder_ / "record");
    std::ofstream(folder_ / "script") << script;
    setenv("VORN_SCRIPT", (folder_ / "script").c_str(), 1);
  }

  /// The same, initialised and with a context; its record is not shown.
  void BeginReady(const std::string& script) {
    Begin(script);
    ASSERT_EQ(vorn_init("config.json"), 0);
    ASSERT_EQ(vorn_rt_create_context(&context_, 0), 0);
    (void)Record();
  }

  /// A loaded and described model.
  void BeginWithModel(const std::string& script) {
    BeginReady(script);
    void* image = Malloc(4);
    ASSERT_EQ(vorn_mdl_load_from_mem(image, 4, &model_), 0);
    desc_ = vorn_mdl_create_desc();
    ASSERT_EQ(vorn_mdl_get_desc(desc_, model_), 0);
    (void)Record();
  }

  static void* Malloc(uint64_t size) {
    void* block = nullptr;
    EXPECT_EQ(vorn_rt_malloc(&block, size, VORN_MEM_NORMAL_ONLY), 0);
    return block;
  }

  /// A dataset of fresh buffers of the given sizes; their blocks go into `blocks`.
  static vorn_mdl_dataset* Dataset(const std::vector<uint64_t>& sizes, std::vector<void*>* blocks) {
    vorn_mdl_dataset* dataset = vorn_mdl_create_dataset();
    for (const uint64_t size : sizes) {
      blocks->push_back(Malloc(size));
      EXPECT_EQ(
          vorn_mdl_add_dataset_buffer(dataset, vorn_create_data_buffer(blocks->back(), size, size)),
          0);
    }
    return dataset;
  }

  /// The lines recorded since the last question.
  Lines Record() {
    std::ifstream file(folder_ / "record");
    Lines lines;
    std::string line;
    while (std::getline(file, line)) lines.push_back(line);
    fs::resize_file(folder_ / "record", 0);
    return lines;
  }

  fs::path folder_;
  vorn_rt_context* context_ = nullptr;
  vorn_mdl_desc* desc_ = nullptr;
  uint32_t model_ = 0;
};

TEST_F(ScriptedRuntime, RecordsALifeFromInitToFinalize) {
  ASSERT_EQ(vorn_init("a \"b\"\n.json"), 0);
  ASSERT_EQ(vorn_rt_set_device(0), 0);
  ASSERT_EQ(vorn_rt_set_op_wait_timeout(0), 0);
  vorn_rt_context* context = nullptr;
  ASSERT_EQ(vorn_rt_create_context(&context, 0), 0);
  vorn_rt_stream* stream = nullptr;
  ASSERT_EQ(vorn_rt_create_stream(&stream), 0);
  vorn_rt_run_mode mode = -1;
  ASSERT_EQ(vorn_rt_get_run_mode(&mode), 0);
  EXPECT_EQ(mode, 0);
  ASSERT_EQ(vorn_rt_destroy_stream(stream), 0);
  ASSERT_EQ(vorn_rt_destroy_context(context), 0);
  ASSERT_EQ(vorn_rt_reset_device(0), 0);
  ASSERT_EQ(vorn_finalize(), 0);
  EXPECT_EQ(Record(),
            (Lines{"vorn_init(\"a \\\"b\\\"\\x0a.json\") = 0", "vorn_rt_set_device(0) = 0",
                   "vorn_rt_set_op_wait_timeout(0) = 0", "vorn_rt_create_context(0) = 0 context#1",
                   "vorn_rt_create_stream() = 0 stream#1", "vorn_rt_get_run_mode() = 0 0",
                   "vorn_rt_destroy_stream(stream#1) = 0", "vorn_rt_destroy_context(context#1) = 0",
                   "vorn_rt_reset_device(0) = 0", "vorn_finalize() = 0", kNothingLives}));
}

TEST_F(ScriptedRuntime, TakesAFinalizeThatComesWithoutAnInit) {
  EXPECT_NE(vorn_rt_reset_device(0), 0);
  EXPECT_NE(vorn_finalize(), 0);
  EXPECT_EQ(Record(), (Lines{"vorn_rt_reset_device(0) = 3", "vorn_finalize() = 3", kNothingLives}));
}

TEST_F(ScriptedRuntime, DescribesTheScriptedModel) {
  BeginWithModel(
      "net 2\n"
      "input name=in0 dims=1,3,4,5 type=4 stride=32 size=384 format=-1\n"
      "output name=" +
      std::string(130, 'n') +
      " dims= type=6 stride=2 size=2 format=9\n"
      "output name=a full-name=abc\n");
  EXPECT_EQ(vorn_mdl_get_num_inputs(desc_), 1u);
  EXPECT_EQ(vorn_mdl_get_num_outputs(desc_), 2u);
  vorn_mdl_io_dims dims;
  ASSERT_EQ(vorn_mdl_get_input_dims(desc_, 0, &dims), 0);
  EXPECT_STREQ(dims.name, "in0");
  ASSERT_EQ(dims.dimCount, 4u);
  EXPECT_EQ(dims.dims[3], 5);
  EXPECT_LT(dims.dims[4], 0) << "a dimension behind the last has to be useless";
  EXPECT_EQ(vorn_mdl_get_input_data_type(desc_, 0), 4u);
  EXPECT_EQ(vorn_mdl_get_input_default_stride(desc_, 0), 32u);
  EXPECT_EQ(vorn_mdl_get_input_size_by_index(desc_, 0), 384u);
  EXPECT_EQ(vorn_mdl_get_input_format(desc_, 0), -1);
  ASSERT_EQ(vorn_mdl_get_output_dims(desc_, 0, &dims), 0);
  EXPECT_EQ(std::string(dims.name, 128), std::string(128, 'n')) << "no terminating zero";
  EXPECT_EQ(dims.dimCount, 0u);
  EXPECT_EQ(vorn_mdl_get_output_name_by_index(desc_, 0), std::string(130, 'n'));
  EXPECT_STREQ(vorn_mdl_get_output_name_by_index(desc_, 1), "abc");
  vorn_net_type net = 0;
  ASSERT_EQ(vorn_ext_get_mdl_net_type(model_, &net), 0);
  EXPECT_EQ(net, 2);
  EXPECT_EQ(vorn_data_type_size(VORN_INT16), 16u);
}

TEST_F(ScriptedRuntime, AnswersNothingForAnIndexThatIsNotThere) {
  BeginWithModel("input name=in0 size=8 stride=8\n");
  vorn_mdl_io_dims dims;
  EXPECT_NE(vorn_mdl_get_input_dims(desc_, 1, &dims), 0);
  EXPECT_EQ(vorn_mdl_get_input_size_by_index(desc_, ~uint64_t{0}), 0u);
  EXPECT_EQ(vorn_mdl_get_output_name_by_index(desc_, 0), nullptr);
  EXPECT_EQ(Record(), (Lines{"vorn_mdl_get_input_dims(desc#1, 1) = 1",
                             "vorn_mdl_get_input_size_by_index(desc#1, 18446744073709551615) = 0",
                             "vorn_mdl_get_output_name_by_index(desc#1, 0) = null"}));
}

TEST_F(ScriptedRuntime, FillsFreshBlocksSoThatTheyAreNotZero) {
  BeginReady("");
  void* block = Malloc(3);
  EXPECT_EQ(std::memcmp(block, "\xA5\xA5\xA5", 3), 0);
  EXPECT_EQ(vorn_rt_free(block), 0);
  EXPECT_EQ(vorn_rt_free(nullptr), 0) << "harmless, and no violation";
  EXPECT_EQ(Record(), (Lines{"vorn_rt_malloc(3, 2) = 0 block#1", "vorn_rt_free(block#1) = 0",
                             "vorn_rt_free(null) = 0"}));
}

TEST_F(ScriptedRuntime, RefusesABlockAboveTheLimit) {
  BeginReady("limit 100\n");
  void* block = &folder_;
  EXPECT_EQ(vorn_rt_malloc(&block, 101, 2), VORN_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(block, &folder_) << "a failure leaves the place for the result alone";
  EXPECT_EQ(vorn_rt_malloc(&block, ~uint64_t{0} - 3, 2), VORN_ERROR_OUT_OF_MEMORY);
  EXPECT_EQ(vorn_rt_malloc(&block, 100, 2), 0);
  EXPECT_EQ(vorn_rt_free(block), 0);
}

TEST_F(ScriptedRuntime, FailsTheScriptedCallsOnly) {
  BeginReady("answer vorn_rt_malloc 2 55\nanswer vorn_mdl_create_dataset 1 null\n");
  void* block = Malloc(1);
  void* refused = nullptr;
  EXPECT_EQ(vorn_rt_malloc(&refused, 1, 2), 55);
  EXPECT_EQ(refused, nullptr);
  void* last = Malloc(1);
  EXPECT_EQ(vorn_mdl_create_dataset(), nullptr);
  vorn_mdl_dataset* dataset = vorn_mdl_create_dataset();
  EXPECT_NE(dataset, nullptr);
  EXPECT_EQ(
      Record(),
      (Lines{"vorn_rt_malloc(1, 2) = 0 block#1", "vorn_rt_malloc(1, 2) = 55 [scripted]",
             "vorn_rt_malloc(1, 2) = 0 block#2", "vorn_mdl_create_dataset() = null [scripted]",
             "vorn_mdl_create_dataset() = dataset#1"}));
  EXPECT_EQ(vorn_rt_free(block) + vorn_rt_free(last) + vorn_mdl_destroy_dataset(dataset), 0);
}

TEST_F(ScriptedRuntime, CountsCallsOfOneIndexApart) {
  BeginWithModel(
      "input size=8\ninput size=9\nanswer vorn_mdl_get_input_size_by_index index=1 2 0\n");
  EXPECT_EQ(vorn_mdl_get_input_size_by_index(desc_, 1), 9u);
  EXPECT_EQ(vorn_mdl_get_input_size_by_index(desc_, 0), 8u);
  EXPECT_EQ(vorn_mdl_get_input_size_by_index(desc_, 0), 8u);
  EXPECT_EQ(vorn_mdl_get_input_size_by_index(desc_, 1), 0u);
  EXPECT_EQ(vorn_mdl_get_input_size_by_index(desc_, 1), 9u);
}

TEST_F(ScriptedRuntime, LetsTheLastRuleThatFitsWin) {
  Begin("answer vorn_rt_set_device always 1\nanswer vorn_rt_set_device 2 7\n");
  (void)vorn_init("");
  EXPECT_EQ(vorn_rt_set_device(0), 1);
  EXPECT_EQ(vorn_rt_set_device(0), 7);
  EXPECT_EQ(vorn_rt_set_device(0), 1);
}

TEST_F(ScriptedRuntime, FailsTheNthCallOfAll) {
  Begin("fail 2 9\nfail 4-5\nfail 7\n");
  EXPECT_EQ(vorn_init(""), 0);
  EXPECT_EQ(vorn_rt_set_device(0), 9);
  vorn_rt_context* context = nullptr;
  EXPECT_EQ(vorn_rt_create_context(&context, 0), 0);
  EXPECT_EQ(vorn_mdl_create_desc(), nullptr);
  EXPECT_EQ(vorn_data_type_size(VORN_FLOAT32), 0u);
  EXPECT_EQ(vorn_data_type_size(VORN_FLOAT32), 32u);
  EXPECT_EQ(vorn_mdl_get_input_data_type(nullptr, 0), 0u) << "counted; it has no way to fail";
  EXPECT_EQ(vorn_rt_set_device(0), 0);
}

TEST_F(ScriptedRuntime, ReportsAFailureOfWorkThatItDidNevertheless) {
  BeginReady("answer vorn_mdl_load_from_mem 1 6 effect\nanswer vorn_mdl_load_from_mem 2 0\n");
  void* image = Malloc(4);
  uint32_t id = 0;
  EXPECT_EQ(vorn_mdl_load_from_mem(image, 4, &id), 6);
  EXPECT_EQ(id, 1u);
  EXPECT_EQ(vorn_mdl_load_from_mem(nullptr, 0, &id), 0) << "success is ordered too";
  EXPECT_EQ(id, 2u);
  EXPECT_NE(vorn_mdl_load_from_mem(nullptr, 0, &id), 0);
  EXPECT_EQ(vorn_mdl_unload(1) + vorn_mdl_unload(2), 0);
  EXPECT_NE(vorn_mdl_unload(2), 0);
  EXPECT_EQ(vorn_rt_free(image), 0);
}

TEST_F(ScriptedRuntime, AnswersNamesAndAddressesAsOrdered) {
  BeginWithModel(
      "output name=prob size=4 stride=4\n"
      "answer vorn_mdl_get_output_name_by_index 1 null\n"
      "answer vorn_mdl_get_output_name_by_index 2 \"a.b\"\n"
      "answer vorn_get_data_buffer_addr 1 null\nanswer vorn_get_data_buffer_size 1 0\n");
  EXPECT_EQ(vorn_mdl_get_output_name_by_index(desc_, 0), nullptr);
  EXPECT_STREQ(vorn_mdl_get_output_name_by_index(desc_, 0), "a.b");
  EXPECT_STREQ(vorn_mdl_get_output_name_by_index(desc_, 0), "prob");
  void* block = Malloc(4);
  vorn_data_buffer* buffer = vorn_create_data_buffer(block, 4, 4);
  EXPECT_EQ(vorn_get_data_buffer_addr(buffer), nullptr);
  EXPECT_EQ(vorn_get_data_buffer_addr(buffer), block);
  EXPECT_EQ(vorn_get_data_buffer_size(buffer), 0u);
  EXPECT_EQ(vorn_get_data_buffer_size(buffer), 4u);
}

TEST_F(ScriptedRuntime, WritesOutputsExecutionByExecution) {
  BeginWithModel(
      "input size=4\noutput size=12\noutput size=4\n"
      "write 0 at=1 frame=2,4 bytes 01020304 05\n"
      "write 1 execute=2 floats 1.5\n"
      "write 1 execute=3 copy 0\n"
      "write 1 execute=4 counter 254\n"
      "write 1 execute=5 fill 7f\n");
  std::vector<void*> in;
  std::vector<void*> out;
  vorn_mdl_dataset* input = Dataset({4}, &in);
  vorn_mdl_dataset* output = Dataset({12, 4}, &out);
  std::memset(out[0], 0, 12);
  const std::string second[] = {"\xA5\xA5\xA5\xA5", std::string("\0\0\xC0\x3F", 4),
                                "\xA5\xA5\xA5\xA5", std::string("\xFE\xFF\0\x01", 4),
                                "\x7F\x7F\x7F\x7F"};
  for (int execution = 0; execution < 5; ++execution) {
    ASSERT_EQ(vorn_mdl_execute(model_, input, output), 0);
    EXPECT_EQ(std::memcmp(out[0], "\0\1\2\0\0\3\4\0\0\5\0\0", 12), 0);
    EXPECT_EQ(std::memcmp(out[1], second[execution].data(), 4), 0) << execution;
  }
}

TEST_F(ScriptedRuntime, CutsOffWhatDoesNotFitAndSaysSo) {
  BeginWithModel("output size=2\nwrite 0 bytes 010203\nwrite 5 bytes 01\n");
  std::vector<void*> out;
  vorn_mdl_dataset* input = vorn_mdl_create_dataset();
  vorn_mdl_dataset* output = Dataset({2}, &out);
  (void)Record();
  ASSERT_EQ(vorn_mdl_execute(model_, input, output), 0);
  EXPECT_EQ(std::memcmp(out[0], "\1\2", 2), 0);
  EXPECT_EQ(Record(), (Lines{"vorn_mdl_execute(1, dataset#1, dataset#2) = 0",
                             "note: the script's bytes for output 0 did not fit",
                             "note: the script's bytes for output 5 have no block"}));
}

TEST_F(ScriptedRuntime, TellsWhatAnExecutionSaw) {
  BeginWithModel("input size=2\noutput size=1\nsee inputs hex\nsee outputs hash\ndump " +
                 folder_.string() + "\n");
  vorn_mdl_dataset* input = vorn_mdl_create_dataset();
  void* block = Malloc(4);
  std::memcpy(block, "\x00\x11\x22\xff", 4);
  vorn_data_buffer* buffer = vorn_create_data_buffer(block, 2, 2);
  ASSERT_EQ(vorn_mdl_add_dataset_buffer(input, buffer), 0);
  std::vector<void*> out;
  vorn_mdl_dataset* output = Dataset({1}, &out);
  std::memcpy(out[0], "a", 1);
  (void)Record();
  ASSERT_EQ(vorn_mdl_execute(model_, input, output), 0);
  // The hash of "a" is one of the published values of 64-bit FNV-1a.
  EXPECT_EQ(Record(), (Lines{"vorn_mdl_execute(1, dataset#1, dataset#2) = 0",
                             "saw input 0: buffer=2 block=4 hex=001122ff",
                             "saw output 0: buffer=1 block=1 hash=af63dc4c8601ec8c"}));
  std::ifstream dump(folder_ / "execute1.input0.bin", std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(dump), std::istreambuf_iterator<char>()};
  EXPECT_EQ(bytes, std::string("\x00\x11\x22\xff", 4));
}

TEST_F(ScriptedRuntime, NoticesHandlesThatAreNoneOrGoneOrOfAnotherKind) {
  BeginReady("");
  vorn_mdl_dataset* dataset = vorn_mdl_create_dataset();
  EXPECT_EQ(vorn_mdl_destroy_dataset(dataset), 0);
  (void)Record();
  EXPECT_NE(vorn_mdl_destroy_dataset(dataset), 0);
  EXPECT_NE(vorn_mdl_destroy_dataset(nullptr), 0);
  EXPECT_NE(vorn_destroy_data_buffer(reinterpret_cast<vorn_data_buffer*>(this)), 0);
  EXPECT_NE(vorn_rt_destroy_stream(reinterpret_cast<vorn_rt_stream*>(context_)), 0);
  EXPECT_EQ(vorn_mdl_get_dataset_num_buffers(dataset), 0u);
  EXPECT_EQ(Record(),
            (Lines{"vorn_mdl_destroy_dataset(dataset#1 (released)) = 2",
                   "violation: vorn_mdl_destroy_dataset: dataset#1 (released) is used",
                   "vorn_mdl_destroy_dataset(null) = 2",
                   "violation: vorn_mdl_destroy_dataset: null is no dataset",
                   "vorn_destroy_data_buffer(foreign) = 2",
                   "violation: vorn_destroy_data_buffer: a foreign address is no buffer",
                   "vorn_rt_destroy_stream(context#1) = 2",
                   "violation: vorn_rt_destroy_stream: context#1 is no stream",
                   "vorn_mdl_get_dataset_num_buffers(dataset#1 (released)) = 0",
                   "violation: vorn_mdl_get_dataset_num_buffers: dataset#1 (released) is used"}));
}

TEST_F(ScriptedRuntime, NoticesBlocksThatAreNoneOrGone) {
  BeginReady("");
  void* block = Malloc(8);
  EXPECT_NE(vorn_rt_free(static_cast<char*>(block) + 4), 0);
  EXPECT_EQ(vorn_rt_free(block), 0);
  EXPECT_NE(vorn_rt_free(block), 0);
  EXPECT_NE(vorn_rt_free(this), 0);
  EXPECT_NE(vorn_create_data_buffer(nullptr, 4, 4), nullptr);
  EXPECT_NE(vorn_create_data_buffer(block, 4, 4), nullptr);
  void* small = Malloc(8);
  EXPECT_NE(vorn_create_data_buffer(small, 9, 9), nullptr);
  const Lines record = Record();
  Lines violations;
  for (const auto& line : record) {
    if (line.rfind("violation: ", 0) == 0) violations.push_back(line);
  }
  ASSERT_EQ(violations.size(), 6u);
  EXPECT_EQ(violations[0], "violation: vorn_rt_free: block#1+4 cannot be released");
  EXPECT_EQ(violations[1], "violation: vorn_rt_free: block#1 (released) cannot be released");
  EXPECT_EQ(violations[2], "violation: vorn_rt_free: foreign cannot be released");
  EXPECT_EQ(violations[3], "violation: vorn_create_data_buffer: null is no block");
  EXPECT_EQ(violations[4], "violation: vorn_create_data_buffer: block#1 (released) is no block");
  EXPECT_EQ(violations[5],
            "violation: vorn_create_data_buffer: the buffer is larger than block#2 of 8 bytes");
}

TEST_F(ScriptedRuntime, NoticesAnExecutionOverReleasedOrMissingBuffers) {
  BeginWithModel("input size=4\ninput size=4\n");
  std::vector<void*> in;
  vorn_mdl_dataset* input = Dataset({4}, &in);
  vorn_mdl_dataset* output = vorn_mdl_create_dataset();
  (void)Record();
  EXPECT_EQ(vorn_mdl_execute(model_ + 1, input, output), 0);
  EXPECT_EQ(vorn_rt_free(in[0]), 0);
  EXPECT_NE(vorn_mdl_execute(model_, input, output), 0);
  EXPECT_EQ(Record(),
            (Lines{"vorn_mdl_execute(2, dataset#1, dataset#2) = 0",
                   "violation: vorn_mdl_execute: model 2 is not loaded",
                   "violation: vorn_mdl_execute: dataset#1 has 1 buffers, the model wants 2",
                   "vorn_rt_free(block#2) = 0", "vorn_mdl_execute(1, dataset#1, dataset#2) = 2",
                   "violation: vorn_mdl_execute: dataset#1 has 1 buffers, the model wants 2",
                   "violation: vorn_mdl_execute: block#2 (released) lies behind buffer#1"}));
}

TEST_F(ScriptedRuntime, NoticesAnImageThatGoesBeforeItsModel) {
  BeginReady("");
  void* image = Malloc(4);
  uint32_t id = 0;
  ASSERT_EQ(vorn_mdl_load_from_mem(image, 4, &id), 0);
  (void)Record();
  EXPECT_EQ(vorn_rt_free(image), 0);
  EXPECT_EQ(Record(), (Lines{"vorn_rt_free(block#1) = 0",
                             "violation: vorn_rt_free: block#1 is the image of model 1"}));
}

TEST_F(ScriptedRuntime, NoticesCallsBeforeInitAndWithoutAContext) {
  (void)vorn_mdl_destroy_dataset(vorn_mdl_create_dataset());
  EXPECT_EQ(Record()[1], "violation: vorn_mdl_create_dataset: the runtime is not initialised");
  (void)vorn_init("");
  (void)Record();
  (void)vorn_rt_free(nullptr);
  EXPECT_EQ(Record(), (Lines{"vorn_rt_free(null) = 0",
                             "violation: vorn_rt_free: no context is current on this thread"}));
  vorn_rt_context* context = nullptr;
  ASSERT_EQ(vorn_rt_create_context(&context, 0), 0);
  std::thread([] { (void)vorn_rt_free(nullptr); }).join();
  EXPECT_EQ(Record().back(), "violation: vorn_rt_free: no context is current on this thread");
}

#if !defined(__SANITIZE_ADDRESS__)
TEST_F(ScriptedRuntime, NoticesWritingOutsideABlock) {
  BeginReady("");
  auto* first = static_cast<char*>(Malloc(5));
  auto* second = static_cast<char*>(Malloc(5));
  auto* third = static_cast<char*>(Malloc(5));
  first[5] = 1;
  second[-1] = 1;
  third[5] = 1;
  (void)Record();
  EXPECT_EQ(vorn_rt_free(first), 0);
  EXPECT_EQ(vorn_rt_free(second), 0);
  vorn_scripted_restart();
  const std::string live =
      "live: blocks=1 buffers=0 datasets=0 descs=0 contexts=1 streams=0 models=0 at=exit";
  EXPECT_EQ(Record(), (Lines{"vorn_rt_free(block#1) = 0",
                             "violation: vorn_rt_free: block#1 was written behind its end",
                             "vorn_rt_free(block#2) = 0",
                             "violation: vorn_rt_free: block#2 was written before its start",
                             "violation: block#3 was written behind its end", live}));
}
#endif

TEST_F(ScriptedRuntime, CountsWhatIsLeftAtTheEnd) {
  BeginWithModel("");
  (void)vorn_mdl_create_dataset();
  (void)vorn_create_data_buffer(Malloc(1), 1, 1);
  vorn_rt_stream* stream = nullptr;
  (void)vorn_rt_create_stream(&stream);
  (void)Record();
  vorn_scripted_restart();
  EXPECT_EQ(Record(), (Lines{"live: blocks=2 buffers=1 datasets=1 descs=1 contexts=1 streams=1 "
                             "models=1 at=exit"}));
}

TEST_F(ScriptedRuntime, LeavesTheRecordOfAProcessThatDies) {
  EXPECT_DEATH(
      {
        (void)vorn_init("x");
        std::abort();
      },
      "");
  EXPECT_EQ(Record(), (Lines{"vorn_init(\"x\") = 0"}));
}

TEST_F(ScriptedRuntime, EndsTheProcessOverAScriptThatItCannotRead) {
  Begin("\nnonsense\n");
  EXPECT_EXIT((void)vorn_init(""), testing::ExitedWithCode(99),
              "line 2: 'nonsense' starts no statement");
}

}  // namespace
