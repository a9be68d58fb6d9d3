// Which of two faults is reported: the checks of a step run in a fixed order, and the first that
// fails speaks alone. And what is released first where a fault leaves something behind.
#include <gtest/gtest.h>

#include <algorithm>

#include "e2e/expected.h"
#include "e2e/surroundings.h"

namespace e2e {
namespace {

using support::Stage;
using support::TensorSpec;
using support::Transcript;

constexpr char kNoBuffer[] = "[ERROR] get pic device buffer failed";

/// A stage with this input and this output, and a file of 16 bytes for the input.
void Set(Stage* stage, const TensorSpec& input, const TensorSpec& output) {
  stage->script.Input(input).Scratch().Output(output);
  stage->File("a.bin", support::CountingBytes(16)).List({"a.bin"});
}

const TensorSpec kIn{"in0", {1, 16}, 4, 16, 16, 0};
const TensorSpec kOut{"o", {1, 4}, 0, 16, 16, 0};

/// The part of the calls of a plain run that lies behind the one that was refused.
Lines CallsBehindRefusal(const Transcript& run) {
  const Lines calls = run.record.CallsWithoutQueries();
  const auto refused = std::find_if(calls.begin(), calls.end(), [](const std::string& line) {
    return line.find("[scripted]") != std::string::npos;
  });
  return refused == calls.end() ? Lines{} : Lines(refused + 1, calls.end());
}

Lines Failed(const Lines& cause, const std::string& step) {
  return Join({cause, {step}, Unloaded(), ProcessFailed()});
}

TEST(InputChecks, TellTheShapeThenTheStrideThenTheSize) {
  Stage stage;
  Set(&stage, {"in0", {1, 16}, 99, 0, 0, 0}, kOut);
  stage.script.AnswerAt("vorn_mdl_get_input_dims", 0, "2-", "5");
  EXPECT_EQ(FromFirstError(stage.Run()), FailedInput({"[ERROR] vorn_mdl_get_input_dims error!",
                                                      "[ERROR] GetStrideParam error"}));
  Stage second;
  Set(&second, {"in0", {1, 16}, 99, 0, 0, 0}, kOut);
  EXPECT_EQ(FromFirstError(second.Run()),
            FailedInput({"[ERROR] vorn_mdl_get_input_default_stride error!",
                         "[ERROR] GetStrideParam error"}));
}

TEST(InputChecks, TellTheSizeBeforeTheElement) {
  Stage stage;
  Set(&stage, {"in0", {1, 16}, 99, 16, 0, 0}, kOut);
  stage.script.Line("bits 99 0");
  EXPECT_EQ(FromFirstError(stage.Run()),
            FailedInput({"[ERROR] vorn_mdl_get_input_size_by_index error!",
                         "[ERROR] GetStrideParam error"}));
}

TEST(InputChecks, TellTheElementBeforeTheFile) {
  Stage stage;
  Set(&stage, {"in0", {1, 16}, 99, 16, 16, 0}, kOut);
  stage.script.Line("bits 99 0");
  stage.List({"none.bin"});
  EXPECT_EQ(FromFirstError(stage.Run()), FailedInput({"[ERROR] GetInputDataSize == 0 error"}));
}

TEST(InputChecks, TellAnEmptyFileBeforeMemoryAndTheNetType) {
  Stage stage;
  Set(&stage, kIn, kOut);
  stage.File("a.bin", "");
  stage.script.Answer("vorn_rt_malloc", "3-", "5")
      .Answer("vorn_ext_get_mdl_net_type", "always", "6");
  EXPECT_EQ(FromFirstError(stage.Run()),
            FailedInput({"[ERROR] Empty file: $DIR/a.bin", kNoBuffer}));
}

TEST(InputChecks, TellMemoryBeforeTheNetTypeAndThatBeforeTheLength) {
  Stage stage;
  Set(&stage, kIn, kOut);
  stage.File("a.bin", support::CountingBytes(17));
  stage.script.Answer("vorn_rt_malloc", "3-", "5")
      .Answer("vorn_ext_get_mdl_net_type", "always", "6");
  EXPECT_EQ(FromFirstError(stage.Run()),
            FailedInput({"[ERROR] malloc device buffer failed. size is 16", kNoBuffer}));
  Stage second;
  Set(&second, kIn, kOut);
  second.File("a.bin", support::CountingBytes(17));
  second.script.Answer("vorn_ext_get_mdl_net_type", "always", "6");
  const Transcript run = second.Run();
  EXPECT_EQ(FromFirstError(run),
            FailedInput({"[ERROR] vorn_ext_get_mdl_net_type fail! ret = 6", kNoBuffer}));
  EXPECT_FALSE(run.HasLine("[INFO]  The shape of the model is [1,16]"));
}

TEST(Inference, TellsTheBatchBeforeTheRpnFileAndThatBeforeTheScratchBuffers) {
  const auto run = [](bool batchFails) {
    Stage stage;
    stage.script.Input(kIn).Input({"rpn", {1, 4}, 0, 16, 16, 0}).Scratch(0, 0);
    stage.File("a.bin", support::CountingBytes(16)).List({"a.bin"});
    if (batchFails) stage.script.Answer("vorn_mdl_set_dynamic_batch_size", "1", "8");
    return FromFirstError(stage.Run({"-r", "none"}));
  };
  EXPECT_EQ(run(true), Failed({"[ERROR] vorn_mdl_set_dynamic_batch_size fail! ret = 8"},
                              "[ERROR] Set batch size failed"));
  EXPECT_EQ(run(false),
            Failed({"[ERROR] failed to get file $DIR/none", "[ERROR] read rpn para error"},
                   "[ERROR] Set rpn data failed"));
}

TEST(RpnChecks, TellTheValuesBeforeTheShape) {
  Stage stage;
  stage.script.Input(kIn).Input({"rpn", {2, 4, 1}, 0, 16, 16, 0}).Scratch();
  stage.File("a.bin", support::CountingBytes(16)).List({"a.bin"}).File("r", "x");
  EXPECT_EQ(FromFirstError(stage.Run({"-r", "r"})),
            Failed({"[ERROR] read rpn para error"}, "[ERROR] Set rpn data failed"));
}

TEST(RpnChecks, TellAShapeThatCannotBeAsked) {
  Stage stage;
  stage.script.Input(kIn).Input({"rpn", {1, 4}, 0, 16, 16, 0}).Scratch();
  stage.File("a.bin", support::CountingBytes(16)).List({"a.bin"}).File("r", "1 2 3 4");
  stage.script.AnswerAt("vorn_mdl_get_input_dims", 1, "2-", "5");  // the first is printed
  const Transcript run = stage.Run({"-r", "r"});
  EXPECT_EQ(FromFirstError(run), Failed({"[ERROR] vorn_mdl_get_input_dims rpn_data error!"},
                                        "[ERROR] Set rpn data failed"));
  ExpectClean(run);
}

/// The errors about the one output before its text file is given up.
Lines OutputErrors(const TensorSpec& output, const Lines& statements) {
  Stage stage;
  Set(&stage, kIn, output);
  for (const std::string& statement : statements) stage.script.Line(statement);
  const Lines errors = FromFirstError(stage.Run());
  return {errors.begin(),
          std::find(errors.begin(), errors.end(), "[ERROR] GetOutputWithOutStride fail")};
}

TEST(OutputChecks, TellTheBlockBeforeTheShape) {
  EXPECT_EQ(OutputErrors(kOut, {"answer vorn_get_data_buffer_size 1-2 0",
                                "answer vorn_mdl_get_output_dims 2- 5"}),
            (Lines{"[ERROR] output[0] data or size(0) invalid"}));
}

TEST(OutputChecks, TellTheShapeThenTheStrideThenTheSize) {
  const std::string shape = "answer vorn_mdl_get_output_dims 2- 5";
  const std::string stride = "answer vorn_mdl_get_output_default_stride 3- 0";
  const std::string size = "answer vorn_mdl_get_output_size_by_index 4- 0";
  const std::string last = "[ERROR] Error, GetOutputStrideParam failed";
  EXPECT_EQ(OutputErrors(kOut, {shape, stride, size}),
            (Lines{"[ERROR] vorn_mdl_get_output_dims error!", last}));
  EXPECT_EQ(OutputErrors(kOut, {stride, size}),
            (Lines{"[ERROR] vorn_mdl_get_output_default_stride error!", last}));
}

TEST(OutputChecks, TellTheLastDimensionBeforeTheElement) {
  EXPECT_EQ(OutputErrors({"o", {1, 0}, 99, 16, 16, 0}, {"bits 99 0"}),
            (Lines{"[ERROR] Error, dims para invalid"}));
}

TEST(OutputChecks, TellTheElementEvenOfAnOutputWithoutRows) {
  EXPECT_EQ(OutputErrors({"o", {1, 4}, 99, 16, 8, 0}, {"bits 99 0"}),
            (Lines{"[ERROR] Error, dataSize == 0 invalid"}));
}

TEST(Description, IsAskedForTypeSizeStrideAndFormatInThisOrder) {
  Stage stage;
  Set(&stage, kIn, kOut);
  const Lines calls = stage.Run().record.Calls();
  for (const std::string side : {"input", "output"}) {
    const std::string start = "vorn_mdl_get_" + side + "_";
    const auto dims = std::find(calls.begin(), calls.end(), start + "dims(desc#1, 0) = 0");
    ASSERT_LT(dims + 4, calls.end());
    Lines asked;
    for (auto call = dims + 1; call != dims + 5; ++call)
      asked.push_back(call->substr(0, call->find('(')));
    EXPECT_EQ(asked, (Lines{start + "data_type", start + "size_by_index", start + "default_stride",
                            start + "format"}));
  }
}

TEST(Release, FreesTheBlockOfARpnFileBeforeItsBuffer) {
  Stage stage;
  stage.script.Input(kIn).Input({"rpn", {1, 4}, 0, 16, 16, 0}).Scratch();
  stage.File("a.bin", support::CountingBytes(16)).List({"a.bin"}).File("r", "1 2 3 4");
  stage.script.Answer("vorn_mdl_add_dataset_buffer", "2", "4");
  const Lines behind = CallsBehindRefusal(stage.Run({"-r", "r"}));
  ASSERT_GT(behind.size(), 2u);
  EXPECT_EQ(behind[0], "vorn_rt_free(block#3) = 0");
  EXPECT_EQ(behind[1], "vorn_destroy_data_buffer(buffer#2) = 0");
}

TEST(Release, DestroysTheBufferOfAnInputFileBeforeItsBlock) {
  Stage stage;
  Set(&stage, kIn, kOut);
  stage.script.Answer("vorn_mdl_add_dataset_buffer", "2", "4");
  const Lines behind = CallsBehindRefusal(stage.Run());
  ASSERT_GT(behind.size(), 2u);
  EXPECT_EQ(behind[0], "vorn_destroy_data_buffer(buffer#2) = 0");
  EXPECT_EQ(behind[1], "vorn_rt_free(block#3) = 0");
}

TEST(Release, LeavesTheFirstRpnBufferToTheModelsTeardown) {
  Stage stage;
  const TensorSpec rpn{"rpn", {1, 4}, 0, 16, 16, 0};
  stage.script.Input(kIn).Input(rpn).Input(rpn).Scratch();
  stage.File("a.bin", support::CountingBytes(16)).List({"a.bin"}).File("r", "1 2 3 4");
  // Model and input file come before.
  stage.script.Answer("vorn_rt_malloc", "4", "5");
  const Transcript run = stage.Run({"-r", "r,r"});
  ExpectStatus(run, 1);
  EXPECT_EQ(FromFirstError(run),
            Failed({"[ERROR] malloc device buffer failed", "[ERROR] SetDetParas error"},
                   "[ERROR] Set rpn data failed"));
  const Lines behind = CallsBehindRefusal(run);
  const Lines start(behind.begin(), std::min(behind.end(), behind.begin() + 7));
  EXPECT_EQ(start, (Lines{"vorn_mdl_unload(1) = 0", "vorn_mdl_destroy_desc(desc#1) = 0",
                          "vorn_rt_free(block#1) = 0", "vorn_rt_free(block#2) = 0",
                          "vorn_destroy_data_buffer(buffer#1) = 0", "vorn_rt_free(block#3) = 0",
                          "vorn_destroy_data_buffer(buffer#2) = 0"}));
  ExpectClean(run);
}

TEST(Release, FreesNothingOfAModelThatCouldNotBeRead) {
  Stage stage;
  SetPlain(&stage);
  const Transcript run =
      stage.RunWith({"-m", "none.om", "-i", "list.txt", "-j", "vorn.json", "-o", "out"});
  EXPECT_EQ(run.record.CallsOf("vorn_rt_free"), (Lines{"vorn_rt_free(null) = 0"}));
}

// --- Faults that only a runtime which changes its answers can bring about.

/// The first run in which the n-th answer about the count of inputs is `count` and this is said.
Transcript RunSaying(const std::string& line, uint64_t count, void (*prepare)(Stage*)) {
  Transcript run;
  for (int n = 1; n <= 8; ++n) {
    Stage stage;
    prepare(&stage);
    stage.script.Answer("vorn_mdl_get_num_inputs", std::to_string(n), std::to_string(count));
    run = stage.Run({"-p", "1"});
    if (run.HasLine(line)) return run;
  }
  ADD_FAILURE() << "nobody says " << line;
  return run;
}

TEST(ScratchBuffers, RefuseAModelOfTwoInputs) {
  const std::string error = "[ERROR] input dataset Num is error.";
  const Transcript run = RunSaying(error, 2, SetPlain);
  ExpectStatus(run, 1);
  ExpectLinesInOrder(run, Join({BatchSet(),
                                {error, "[ERROR] CreateTaskBufAndWorkBuf failed"},
                                Unloaded(),
                                ProcessFailed()}));
  EXPECT_EQ(run.record.CallsOf("vorn_create_data_buffer").size(), 2u) << "output and input file";
}

TEST(ScratchBuffers, RefuseADatasetWithoutBuffers) {
  Stage stage;
  SetPlain(&stage);
  stage.script.Answer("vorn_mdl_get_dataset_num_buffers", "1", "0");
  const Transcript run = stage.Run();
  ExpectStatus(run, 1);
  EXPECT_EQ(FromFirstError(run),
            Failed({"[ERROR] input dataset Num is 0."}, "[ERROR] CreateTaskBufAndWorkBuf failed"));
  ExpectClean(run);
}

TEST(ScratchBuffers, FillEveryInputThatGotNoFile) {
  const Transcript run = RunSaying("[INFO]  Model inputNum: 1", 3, [](Stage* stage) {
    stage->script.Input(kIn).Input({"in1", {1, 8}, 4, 8, 8, 0}).Scratch().Line("see inputs hex");
    stage->File("a.bin", support::CountingBytes(16)).List({"a.bin"});
  });
  ExpectStatus(run, 0);
  const auto inputs = InputsSeen(run);
  ASSERT_EQ(inputs.size(), 4u);
  EXPECT_EQ(inputs[0].bytes, support::CountingBytes(16));
  EXPECT_EQ(inputs[1].bytes, std::string(8, '\0'));
}

TEST(Report, TakesBothOfTwoInputsForTheScratchBuffers) {
  const Transcript run =
      RunSaying("[INFO]  Input Size:                0.000 KB.", 2, [](Stage* stage) {
        stage->script.Input({"in0", {1, 16}, 4, 16, 1024, 0}).Scratch(2048, 4096);
        stage->List({});
      });
  ExpectLinesInOrder(run, {"[INFO]  Task Buffer Size:          1.000 KB.",
                           "[INFO]  Work Buffer Size:          2.000 KB."});
}

TEST(ScratchBuffers, TellTheShapeThenTheStrideThenTheSize) {
  const struct {
    Lines statements;
    const char* error;
  } cases[] = {
      {{"answer vorn_mdl_get_input_dims index=1 2- 5",
        "answer vorn_mdl_get_input_default_stride index=1 2- 0"},
       "[ERROR] vorn_mdl_get_input_dims error!"},
      {{"answer vorn_mdl_get_input_default_stride index=1 2- 0",
        "answer vorn_mdl_get_input_size_by_index index=1 3- 0"},
       "[ERROR] vorn_mdl_get_input_default_stride error!"},
      {{"answer vorn_mdl_get_input_size_by_index index=1 3- 0"},
       "[ERROR] vorn_mdl_get_input_size_by_index error!"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.error);
    Stage stage;
    SetPlain(&stage);
    for (const std::string& statement : each.statements) stage.script.Line(statement);
    const Transcript run = stage.Run();
    ExpectStatus(run, 1);
    EXPECT_EQ(FromFirstError(run),
              Failed({each.error, "[ERROR] Error, GetInputStrideParam failed",
                      "[ERROR] execute Create taskBuffer and workBuffer failed"},
                     "[ERROR] CreateTaskBufAndWorkBuf failed"));
    ExpectClean(run);
  }
}

// --- What the order of the steps leaves no room for.

TEST(CreateDesc, ThatFailsWithoutEntriesEndsInTheDivisionAllTheSame) {
  Stage stage;
  SetPlain(&stage);
  stage.List({});
  stage.script.Answer("vorn_mdl_create_desc", "1", "null");
  const Transcript run = stage.Run();
  EXPECT_TRUE(run.EndedByDivision()) << run.Describe();
  EXPECT_EQ(run.lines.back(), "[ERROR] create model description failed");
}

TEST(SortInputs, GroupsByTheNamesAndNotByTheFilesOfAnInference) {
  const auto entries = [](const Lines& list) {
    Stage stage;
    stage.script.Input(kIn).Input({"rpn", {1, 4}, 0, 16, 16, 0}).Scratch();
    stage.File("r", "1 2 3 4").List(list);
    return EntriesChecked(stage.Run({"-r", "r"}));
  };
  EXPECT_EQ(entries({"in0:a"}), (Lines{"in0:./a"})) << "one entry is no group of two names";
  EXPECT_EQ(entries({"in0:a", "in0:b"}), (Lines{"./a", "./b"}));
  EXPECT_EQ(entries({"rpn:b", "in0:a"}), (Lines{"./a", "./b"})) << "the rpn input has a name too";
}

TEST(Options, LookForTheirValuesPastAStrayWord) {
  Stage stage;
  SetPlain(&stage);
  const Transcript run =
      stage.RunWith({"stray", "-m", "model.om", "-i", "list.txt", "-j", "vorn.json"});
  ASSERT_GT(run.lines.size(), 3u);
  EXPECT_EQ(
      Lines(run.lines.begin(), run.lines.begin() + 3),
      (Lines{"[INFO]  inputPath: -m", "[ERROR] open file -i failed", "[INFO]  inputPath: -j"}));
}

// ---- The order of a message and of the calls around it ------------------------------------------

/// The lines of a run and the calls of the runtime as they came one after the other: the runtime
/// writes what it is asked to where the command writes its lines.
Lines LinesAndCalls(Stage* stage, const Lines& arguments = {}) {
  stage->launcher = AfterShell("VORN_RECORD=/dev/stdout; export VORN_RECORD");
  return stage->Run(arguments).lines;
}

/// Expects these to stand in a row, from where the first of them comes.
void ExpectInARow(const Lines& all, const Lines& expected) {
  const auto first = std::ranges::find(all, expected.front());
  const auto count = std::min<ptrdiff_t>(all.end() - first, std::ssize(expected));
  EXPECT_EQ(Lines(first, first + count), expected);
}

TEST(LinesAndCalls, OfAnInputThatGetsNoBuffer) {
  Stage stage;
  Set(&stage, kIn, kOut);
  stage.script.Answer("vorn_create_data_buffer", "2", "null");
  ExpectInARow(LinesAndCalls(&stage),
               {"[ERROR] can't create data buffer, create input failed",
                "[ERROR] execute CreateInput failed", "vorn_rt_free(block#3) = 0",
                "[ERROR] CreateInputBuf failed", "vorn_mdl_unload(1) = 0",
                "vorn_mdl_destroy_desc(desc#1) = 0", "vorn_rt_free(block#1) = 0",
                "[INFO]  unload model success, modelId is 1"});
}

TEST(LinesAndCalls, OfAnInputThatIsNotAdded) {
  Stage stage;
  Set(&stage, kIn, kOut);
  stage.script.Answer("vorn_mdl_add_dataset_buffer", "2", "4");
  ExpectInARow(LinesAndCalls(&stage),
               {"[ERROR] add input dataset buffer failed", "vorn_destroy_data_buffer(buffer#2) = 0",
                "[ERROR] execute CreateInput failed", "vorn_rt_free(block#3) = 0",
                "[ERROR] CreateInputBuf failed"});
}

TEST(LinesAndCalls, OfAnOutputThatGetsNoBuffer) {
  Stage stage;
  Set(&stage, kIn, kOut);
  stage.script.Answer("vorn_create_data_buffer", "1", "null");
  ExpectInARow(LinesAndCalls(&stage),
               {"[ERROR] can't create data buffer, create output failed",
                "vorn_rt_free(block#2) = 0", "[ERROR] execute CreateOutput failed"});
}

TEST(LinesAndCalls, OfAnOutputThatIsNotAdded) {
  Stage stage;
  Set(&stage, kIn, kOut);
  stage.script.Answer("vorn_mdl_add_dataset_buffer", "1", "4");
  ExpectInARow(LinesAndCalls(&stage),
               {"[ERROR] can't add data buffer, create output failed", "vorn_rt_free(block#2) = 0",
                "vorn_destroy_data_buffer(buffer#1) = 0", "[ERROR] execute CreateOutput failed"});
}

void SetThresholds(Stage* stage) {
  stage->script.Input({"in0", {1, 4}, 0, 16, 16, 0}).Input({"rpn", {1, 4}, 0, 16, 16, 0});
  stage->script.Scratch().Net(1);
  stage->File("a.bin", support::CountingBytes(16)).List({"a.bin"}).File("r.txt", "1 2 3 4");
}

TEST(LinesAndCalls, OfThresholdsThatGetNoBuffer) {
  Stage stage;
  SetThresholds(&stage);
  stage.script.Answer("vorn_create_data_buffer", "2", "null");
  ExpectInARow(
      LinesAndCalls(&stage, {"-r", "r.txt"}),
      {"vorn_create_data_buffer(block#3, 16, 16) = null [scripted]", "vorn_rt_free(block#3) = 0",
       "[ERROR] can't create data buffer, create input failed", "[ERROR] SetDetParas error",
       "[ERROR] Set rpn data failed"});
}

TEST(LinesAndCalls, OfThresholdsThatAreNotAdded) {
  Stage stage;
  SetThresholds(&stage);
  stage.script.Answer("vorn_mdl_add_dataset_buffer", "2", "4");
  ExpectInARow(LinesAndCalls(&stage, {"-r", "r.txt"}),
               {"[ERROR] add input dataset buffer failed", "vorn_rt_free(block#3) = 0",
                "vorn_destroy_data_buffer(buffer#2) = 0", "[ERROR] SetDetParas error"});
}

TEST(LinesAndCalls, OfAnExecutionThatFails) {
  Stage stage;
  Set(&stage, kIn, kOut);
  stage.script.Answer("vorn_mdl_execute", "1", "6");
  ExpectInARow(LinesAndCalls(&stage),
               {"[ERROR] execute model failed, modelId is 1", "[ERROR] execute inference failed",
                "vorn_mdl_get_dataset_num_buffers(dataset#2) = 3"});
}

TEST(LinesAndCalls, OfAModelFileThatIsEmpty) {
  Stage stage;
  Set(&stage, kIn, kOut);
  stage.File("model.om", "");
  ExpectInARow(
      LinesAndCalls(&stage),
      {"[ERROR] binfile is empty, filename is $DIR/model.om", "vorn_mdl_load_from_mem(null, 0) = 1",
       "[ERROR] binfile is empty, filename is $DIR/model.om", "vorn_rt_free(null) = 0",
       "[ERROR] load model from file failed, model file is $DIR/model.om"});
}

// Nothing is asked, and nothing is said, between a refusal and its message.
TEST(LinesAndCalls, LeaveNothingBetweenARefusalAndItsMessage) {
  const struct {
    const char* operation;
    const char* calls;
    const char* value;
    const char* message;
  } cases[] = {
      {"vorn_mdl_create_dataset", "1", "null",
       "[ERROR] can't create dataset, create output failed"},
      {"vorn_mdl_get_output_default_stride", "2", "0",
       "[ERROR] Error, output default stride is 0."},
      {"vorn_mdl_get_output_size_by_index", "3", "0", "[ERROR] Error, output size is 0."},
      {"vorn_mdl_create_dataset", "2", "null", "[ERROR] can't create dataset, create input failed"},
      {"vorn_mdl_get_input_default_stride", "4", "0",
       "[ERROR] vorn_mdl_get_input_default_stride error!"},
      {"vorn_mdl_set_dynamic_batch_size", "1", "6",
       "[ERROR] vorn_mdl_set_dynamic_batch_size fail! ret = 6"},
      {"vorn_mdl_get_dataset_num_buffers", "1", "0", "[ERROR] input dataset Num is 0."},
      {"vorn_ext_get_mdl_net_type", "2", "6", "[ERROR] vorn_ext_get_mdl_net_type fail! ret = 6"},
      {"vorn_mdl_set_total_t", "1", "6", "[ERROR] vorn_mdl_set_total_t failed, ret = 6"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.message);
    Stage stage;
    Set(&stage, kIn, kOut);
    stage.script.Net(2).Answer(each.operation, each.calls, each.value);
    const Lines all = LinesAndCalls(&stage, {"-t", "1"});
    const auto refused = std::ranges::find_if(
        all, [](const std::string& line) { return line.ends_with(" [scripted]"); });
    ASSERT_LT(refused + 1, all.end());
    EXPECT_EQ(refused[1], each.message) << *refused;
  }
}

}  // namespace
}  // namespace e2e
