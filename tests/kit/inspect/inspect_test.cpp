// `vorn inspect` as a program: on the scripted runtime, on the host runtime, and without any.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "support/command.h"
#include "support/files.h"
#include "support/model_script.h"
#include "support/onnx_writer.h"
#include "support/stage.h"

namespace {

using support::Outcome;
using testing::HasSubstr;
using testing::StartsWith;
using Json = nlohmann::json;

class Inspect : public testing::Test {
 protected:
  Inspect() {
    support::WriteFile(Path("model.om"), "24 bytes of a model file");
    script_.Net(1);
    script_.Input({.name = "image", .dims = {1, 1, 2, 3}, .type = 4, .stride = 8, .size = 16});
    script_.Input({.name = "limits", .dims = {1, 4}, .stride = 16, .size = 16, .format = 2});
    script_.Scratch();
    script_.Output({.name = "same", .dims = {2, 3}, .type = 4, .stride = 8, .size = 16});
  }

  std::string Path(const std::string& name) const { return (folder_.Path() / name).string(); }

  Outcome Run(std::vector<std::string> words) {
    support::WriteFile(Path("script"), script_.Text());
    support::Command command;
    command.program = VORN_COMMAND;
    words.insert(words.begin(), "inspect");
    command.arguments = words;
    command.directory = folder_.Path();
    command.environment = {{"VORN_SCRIPT", Path("script")},
                           {"VORN_RECORD", Path("record")},
                           {"LD_LIBRARY_PATH", std::nullopt},
                           {"VORN_LOG", std::nullopt}};
    return RunCommand(command);
  }

  Outcome RunScripted(std::vector<std::string> words) {
    words.insert(words.end(), {"--runtime", VORN_SCRIPTED_LIBRARY});
    return Run(words);
  }

  support::TempDir folder_;
  support::ModelScript script_;
};

// ---- On the scripted runtime --------------------------------------------------------------------

TEST_F(Inspect, ShowsAModel) {
  const Outcome ended = RunScripted({"-m", "model.om"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_EQ(ended.err, "");
  EXPECT_THAT(ended.out, StartsWith("model    model.om, 24 bytes, XXH3-128 "));
  EXPECT_THAT(ended.out, HasSubstr("network  detection\nruntime  " VORN_SCRIPTED_LIBRARY ", "));
  EXPECT_THAT(
      ended.out,
      HasSubstr("input  name    shape    type     format     file bytes  stride  device bytes\n"
                "    0  image   1x1x2x3  uint8    NCHW                6       8            16\n"
                "    1  limits  1x4      float32  ND      numbers of -r      16            16\n"));
}

TEST_F(Inspect, WritesModelJson) {
  const Outcome ended = RunScripted({"-m", "model.om", "--json", "-b", "7"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  const Json model = Json::parse(ended.out);
  EXPECT_EQ(model["schema"], 1);
  EXPECT_EQ(model["model"]["sizeBytes"], 24);
  EXPECT_EQ(model["runtime"]["path"], VORN_SCRIPTED_LIBRARY);
  EXPECT_EQ(model["netType"], "detection");
  ASSERT_EQ(model["inputs"].size(), 4U);
  EXPECT_EQ(model["inputs"][0]["denseBytes"], 6);
  EXPECT_EQ(model["inputs"][0]["deviceBytes"], 16);
  EXPECT_EQ(model["inputs"][1]["role"], "thresholds");
  EXPECT_EQ(model["inputs"][2]["role"], "task");
  EXPECT_EQ(model["outputs"][0]["name"], "same");
}

TEST_F(Inspect, DrawsALayout) {
  const Outcome ended = RunScripted({"-m", "model.om", "--layout", "image", "-b", "2"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.out, StartsWith("image: 1x1x2x3 of uint8, 2 rows of 3 bytes, 8 apart\n"));
  EXPECT_THAT(ended.out, HasSubstr("item 1\n"));
  const Outcome misspelt = RunScripted({"-m", "model.om", "--layout", "imgae"});
  EXPECT_EQ(misspelt.status, 2);
  EXPECT_THAT(misspelt.err, HasSubstr("the model has no 'imgae'; did you mean 'image'?"));
}

TEST_F(Inspect, TellsWhichCallARuntimeRefused) {
  script_.Answer("vorn_mdl_get_desc", "always", "17");
  const Outcome ended = RunScripted({"-m", "model.om"});
  EXPECT_EQ(ended.status, 4);
  EXPECT_EQ(ended.out, "");
  EXPECT_EQ(ended.err, "vorn inspect: vorn_mdl_get_desc failed with status 17\n");
}

// Each call that may fail, in the order in which they come.
TEST_F(Inspect, EndsWithAStatusForEachCallThatFails) {
  const std::vector<std::pair<std::string, int>> calls{{"vorn_init", 4},
                                                       {"vorn_rt_set_device", 5},
                                                       {"vorn_rt_create_context", 5},
                                                       {"vorn_mdl_load_from_mem", 4},
                                                       {"vorn_mdl_get_desc", 4},
                                                       {"vorn_mdl_get_input_dims", 4},
                                                       {"vorn_mdl_get_output_dims", 4}};
  const support::ModelScript whole = script_;
  for (const auto& [operation, status] : calls) {
    script_ = whole;
    script_.Answer(operation, "1", "3");
    const Outcome ended = RunScripted({"-m", "model.om"});
    EXPECT_EQ(ended.status, status) << operation;
    EXPECT_EQ(ended.err, "vorn inspect: " + operation + " failed with status 3\n");
  }
  script_ = whole;
  script_.Answer("vorn_mdl_create_desc", "1", "null");
  const Outcome ended = RunScripted({"-m", "model.om"});
  EXPECT_EQ(ended.status, 5);
  EXPECT_EQ(ended.err, "vorn inspect: vorn_mdl_create_desc failed\n");
}

TEST_F(Inspect, GoesOnWithoutANetType) {
  script_.Answer("vorn_ext_get_mdl_net_type", "always", "3");
  const Outcome ended = RunScripted({"-m", "model.om"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.out, HasSubstr("network  unknown\n"));
}

TEST_F(Inspect, ReleasesWhatItMade) {
  EXPECT_EQ(RunScripted({"-m", "model.om"}).status, 0);
  const std::string record = support::ReadFile(Path("record"));
  for (const char* call : {"vorn_mdl_destroy_desc", "vorn_mdl_unload", "vorn_rt_destroy_context",
                           "vorn_rt_reset_device", "vorn_finalize"}) {
    EXPECT_THAT(record, HasSubstr(call));
  }
}

TEST_F(Inspect, RefusesNumbersThatNoModelHas) {
  script_.Answer("vorn_mdl_get_num_inputs", "always", "18446744073709551614");
  const Outcome many = RunScripted({"-m", "model.om"});
  EXPECT_EQ(many.status, 5);
  EXPECT_THAT(many.err, HasSubstr("the runtime tells of 18446744073709551614 inputs or outputs"));
}

TEST_F(Inspect, RefusesMoreDimensionsThanARecordHolds) {
  script_.Line("input name=wide dims=1 rank=129");
  const Outcome ended = RunScripted({"-m", "model.om"});
  EXPECT_EQ(ended.status, 5);
  EXPECT_THAT(ended.err, HasSubstr("vorn_mdl_get_input_dims tells of 129 dimensions"));
}

// A line of the script that cannot be read ends the scripted runtime's process, with its own
// status.
TEST_F(Inspect, LivesOnWhereTheRuntimeEndsTheProcess) {
  script_.Line("nonsense");
  const Outcome ended = RunScripted({"-m", "model.om"});
  EXPECT_EQ(ended.status, 5);
  EXPECT_THAT(
      ended.err,
      HasSubstr("the runtime ended the process with status 99 inside vorn_init; it said: "));
}

// ---- Without a runtime, or a wrong one ----------------------------------------------------------

TEST_F(Inspect, TellsThatThereIsNoRuntime) {
  const Outcome ended = Run({"-m", "model.om", "--runtime", "/no/libvorn.so"});
  EXPECT_EQ(ended.status, 5);
  EXPECT_EQ(
      ended.err,
      "vorn inspect: cannot open the runtime: /no/libvorn.so: cannot open shared object file: "
      "No such file or directory. Name one with --runtime, or its folder in "
      "LD_LIBRARY_PATH\n");
}

TEST_F(Inspect, TellsThatALibraryIsNoRuntime) {
  const Outcome ended = Run({"-m", "model.om", "--runtime", "libm.so.6"});
  EXPECT_EQ(ended.status, 5);
  EXPECT_EQ(ended.err,
            "vorn inspect: 'libm.so.6' is no vorn runtime: it has no vorn_init. Name another with "
            "--runtime\n");
}

TEST_F(Inspect, TellsOfFilesThatAreNotThere) {
  const Outcome model = RunScripted({"-m", "nothing.om"});
  EXPECT_EQ(model.status, 4);
  EXPECT_EQ(model.err,
            "vorn inspect: the model 'nothing.om' cannot be opened: No such file or directory\n");
  const Outcome config = RunScripted({"-m", "model.om", "-j", "nothing.json"});
  EXPECT_EQ(config.status, 4);
  EXPECT_EQ(config.err,
            "vorn inspect: the configuration 'nothing.json' cannot be opened: No such file or "
            "directory\n");
}

TEST_F(Inspect, TellsWhatIsMissingOrTooMuch) {
  const Outcome nothing = Run({});
  EXPECT_EQ(nothing.status, 2);
  EXPECT_EQ(nothing.err, "vorn inspect: -m MODEL or --log FILE is missing; --help tells more\n");
  EXPECT_EQ(Run({"--log", "x", "-m", "y"}).err,
            "vorn inspect: --log takes the place of --model; leave one of them out\n");
  EXPECT_THAT(Run({"--log", "nowhere.txt"}).err,
              HasSubstr("the log 'nowhere.txt' cannot be opened"));
  EXPECT_EQ(Run({"-m", "model.om", "--json", "--layout", "x"}).err,
            "vorn inspect: --json and --layout exclude each other\n");
  EXPECT_EQ(Run({"-m", "model.om", "-b", "0"}).err,
            "vorn inspect: --batch takes a whole number from 1 to 4294967295, and got '0'\n");
}

// ---- Out of a log -------------------------------------------------------------------------------

TEST_F(Inspect, ReadsFromALogWhatARuntimeTells) {
  const std::string golden = VORN_SOURCE_FOLDER "/tests/golden/batch";
  const Outcome ended = Run({"--log", golden + "/expected/stdout", "--json"});
  ASSERT_EQ(ended.status, 0) << ended.Describe();
  Json logged = Json::parse(ended.out);

  support::WriteFile(Path("golden"), support::ReadFile(golden + "/script"));
  script_ = {};
  for (const std::string& line : support::SplitLines(support::ReadFile(golden + "/script"))) {
    script_.Line(line);
  }
  Json told = Json::parse(RunScripted({"-m", "model.om", "--json"}).out);
  EXPECT_EQ(logged["inputs"], told["inputs"]);
  EXPECT_EQ(logged["outputs"], told["outputs"]);
}

TEST_F(Inspect, RefusesAnotherLog) {
  support::WriteFile(Path("log"), "hello\n");
  const Outcome ended = Run({"--log", "log"});
  EXPECT_EQ(ended.status, 3);
  EXPECT_THAT(ended.err, StartsWith("vorn inspect: there is no line 'Input Info' in 1 lines"));
}

#ifdef VORN_HAS_HOST

// ---- On the host runtime ------------------------------------------------------------------------

TEST_F(Inspect, AsksTheRuntimeThatVornRunWouldGet) {
  const std::string digits = VORN_SOURCE_FOLDER "/examples/digits/";
  const Outcome ended = Run({"-m", digits + "digits.onnx", "-j", digits + "host.json", "--json"});
  ASSERT_EQ(ended.status, 0) << ended.Describe();
  const Json model = Json::parse(ended.out);
  EXPECT_TRUE(
      std::filesystem::equivalent(model["runtime"]["path"].get<std::string>(), VORN_RUNTIME));
  EXPECT_EQ(model["inputs"][0]["name"], "picture");
  EXPECT_EQ(model["inputs"][0]["denseBytes"], 64);
  EXPECT_EQ(model["outputs"][0]["shape"], Json({1, 10}));
}

TEST_F(Inspect, TellsTheHostRuntimesReason) {
  const Outcome ended = Run({"-m", "model.om"});
  EXPECT_EQ(ended.status, 4);
  EXPECT_THAT(ended.err,
              StartsWith("vorn inspect: vorn_mdl_load_from_mem failed with status 6; it said: "
                         "vorn: vorn_mdl_load_from_mem: the image is no ONNX file"));
}

TEST_F(Inspect, DraftsTheConfigurationThatIsMissing) {
  OnnxWriter model;
  model.Input("x", kOnnxFloat, {1, 3, "height"}).Output("y", kOnnxFloat, {1, 3, "height"});
  model.Node("Relu", {"x"}, {"y"});
  support::WriteFile(Path("open.onnx"), model.Image());
  const Outcome ended = Run({"-m", "open.onnx"});
  EXPECT_EQ(ended.status, 4);
  EXPECT_THAT(
      ended.err,
      HasSubstr("A configuration for -j that would do, with your numbers in the place of 1:\n"
                "{\"model\": {\"dims\": {\"height\": 1}}}\n"));
  support::WriteFile(Path("config.json"), R"({"model": {"dims": {"height": 5}}})");
  const Outcome sized = Run({"-m", "open.onnx", "-j", "config.json"});
  EXPECT_EQ(sized.status, 0) << sized.Describe();
  EXPECT_THAT(sized.out, HasSubstr("1x3x5"));
}

#endif

}  // namespace
