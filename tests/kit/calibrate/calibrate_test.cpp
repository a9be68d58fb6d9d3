// `vorn calibrate` as a program, on the digits; what it measures, as functions.
#include "kit/calibrate/calibrate.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "support/command.h"
#include "support/files.h"
#include "support/onnx_writer.h"

namespace vorn::kit {
namespace {

namespace fs = std::filesystem;
using support::Outcome;
using testing::HasSubstr;

const std::string kDigits = VORN_SOURCE_FOLDER "/examples/digits";

TEST(TensorRange, HoldsFiniteValuesAndCountsTheOthers) {
  TensorRange range;
  for (const float value : {NAN, 2.0F, -3.0F, INFINITY, -INFINITY, 0.5F}) range.Take(value);
  EXPECT_EQ(range.least, -3);
  EXPECT_EQ(range.most, 2);
  EXPECT_EQ(range.finite, 3U);
  EXPECT_EQ(range.notFinite, 3U);
}

TEST(PartRoom, HoldsAsManyInferencesAsTheDiskAndTwoGigabytesDo) {
  constexpr double kPlenty = 1e15;
  EXPECT_EQ((PartRoom{.keptEach = 1000, .textsOfOne = 5000}).Inferences(kPlenty), 2000000U);
  // A tenth of the disk stays free.
  EXPECT_EQ((PartRoom{.keptEach = 1000, .textsOfOne = 5000}).Inferences(10500), 4U);
  // One has to be tried, whatever it takes.
  EXPECT_EQ((PartRoom{.keptEach = 3000000000, .textsOfOne = 0}).Inferences(kPlenty), 1U);
  EXPECT_EQ((PartRoom{.keptEach = 1000, .textsOfOne = 5000}).Inferences(0), 1U);
  EXPECT_GE((PartRoom{.keptEach = 0, .textsOfOne = 0}).Inferences(kPlenty), 1U);
  EXPECT_EQ((PartRoom{.keptEach = 1000, .textsOfOne = 5000}).Of(3), 8000.0);
  EXPECT_GT((PartRoom{.keptEach = UINT64_MAX, .textsOfOne = UINT64_MAX}).Of(UINT64_MAX), 1e38);
}

TEST(RangesJson, LeavesOutWhatHasNoFiniteValue) {
  Ranges ranges;
  ranges.tensors["some"].Take(0.1F);
  ranges.tensors["none"].Take(NAN);
  const auto json = nlohmann::json::parse(RangesJson(ranges));
  EXPECT_EQ(json["kind"], "ranges");
  EXPECT_EQ(json["tensors"].size(), 1U);
  EXPECT_EQ(json["tensors"]["some"]["min"], 0.1);
}

class CalibrateVerb : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder_.Path() / name; }

  Outcome Run(std::vector<std::string> words) const {
    if (std::find(words.begin(), words.end(), "-o") == words.end()) {
      words.insert(words.begin(), {"-o", "ranges.json"});
    }
    words.insert(words.begin(), {"calibrate", "-m", kDigits + "/digits.onnx"});
    support::Command command;
    command.program = VORN_COMMAND;
    command.arguments = words;
    command.directory = folder_.Path();
    command.environment = {{"XDG_CACHE_HOME", Path("cache")}};
    return RunCommand(command);
  }

  nlohmann::json Tensors() const {
    return nlohmann::json::parse(support::ReadFile(Path("ranges.json")))["tensors"];
  }

  support::TempDir folder_;
};

TEST_F(CalibrateVerb, MeasuresEveryTensorWhateverTheParts) {
  const Outcome ended = Run({"-i", kDigits + "/list.txt", "--most", "5", "--part", "2"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("over 5 inferences"));
  const nlohmann::json parts = Tensors();
  // What a ReLU gives begins at 0 and ends where its input does; the last one is a probability.
  EXPECT_EQ(parts["relu1"]["min"], 0.0);
  EXPECT_EQ(parts["relu1"]["max"], parts["conv1"]["max"]);
  EXPECT_LT(parts["conv1"]["min"], 0.0);
  EXPECT_LE(parts["probabilities"]["max"], 1.0);
  EXPECT_GT(parts["probabilities"]["max"], 0.5);
  EXPECT_FALSE(parts.contains("picture")) << "it is uint8";
  ASSERT_EQ(Run({"-i", kDigits + "/list.txt", "--most", "5"}).status, 0);
  EXPECT_EQ(Tensors(), parts);
  // Nothing else is left.
  for (const auto& entry : fs::directory_iterator(folder_.Path())) {
    EXPECT_THAT(entry.path().filename().string(), testing::AnyOf("ranges.json", "cache"));
  }
}

TEST_F(CalibrateVerb, MakesWhatRoundingTakes) {
  ASSERT_EQ(Run({"-i", kDigits + "/list.txt", "--most", "5"}).status, 0);
  support::WriteFile(Path("int8.json"), R"({"model": {"round": {"int8": "ranges.json"}}})");
  support::Command command;
  command.program = VORN_COMMAND;
  command.arguments = {"inspect", "-m", kDigits + "/digits.onnx", "-j", "int8.json"};
  command.directory = folder_.Path();
  const Outcome ended = RunCommand(command);
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  // A configuration that rounds is measured as if it did not.
  const std::string before = support::ReadFile(Path("ranges.json"));
  ASSERT_EQ(Run({"-i", kDigits + "/list.txt", "--most", "5", "-j", "int8.json"}).status, 0);
  EXPECT_EQ(support::ReadFile(Path("ranges.json")), before);
}

// Which the dumps cannot have.
TEST_F(CalibrateVerb, MeasuresTensorsOfLongNames) {
  const std::string inner = "block/" + std::string(240, 'n') + "/conv";
  const std::string own(250, 'o');
  // Dumps have it, and what a runtime tells beside the dimensions is cut.
  const std::string middle = "block/" + std::string(160, 'm') + "/relu";
  support::WriteFile(Path("model.onnx"), OnnxWriter()
                                             .Input("x", kOnnxFloat, {2})
                                             .Output(own, kOnnxFloat, {2})
                                             .Node("Neg", {"x"}, {inner})
                                             .Node("Abs", {inner}, {middle})
                                             .Node("Relu", {middle}, {own})
                                             .Image());
  support::WriteFile(Path("x.bin"), support::Bytes<float>({2, -3}));
  support::WriteFile(Path("list.txt"), "x.bin\n");
  support::Command command;
  command.program = VORN_COMMAND;
  command.directory = folder_.Path();
  command.environment = {{"XDG_CACHE_HOME", Path("cache")}};
  const auto run = [&](const std::vector<std::string>& words) {
    command.arguments = words;
    return RunCommand(command);
  };
  Outcome ended =
      run({"calibrate", "-m", "model.onnx", "-i", "list.txt", "-o", "ranges.json", "--quiet"});
  ASSERT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_EQ(Tensors(), (nlohmann::json{{"x", {{"min", -3.0}, {"max", 2.0}}},
                                       {inner, {{"min", -2.0}, {"max", 3.0}}},
                                       {middle, {{"min", 2.0}, {"max", 3.0}}},
                                       {own, {{"min", 2.0}, {"max", 3.0}}}}));
  // What rounds by them is judged by the same names.
  support::WriteFile(Path("float.json"), R"({"model": {"expose": "all"}})");
  support::WriteFile(Path("int8.json"),
                     R"({"model": {"expose": "all", "round": {"int8": "ranges.json"}}})");
  for (const std::string name : {"float", "int8"}) {
    ended = run({"launch", "-m", "model.onnx", "-i", "list.txt", "-j", name + ".json", "--run",
                 name + ".run", "--no-trace", "--quiet"});
    ASSERT_EQ(ended.status, 0) << ended.Describe();
  }
  ended = run({"judge", "int8.run", "--expected", "float.run", "--inside", "--rtol", "1"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.out, HasSubstr(" block_" + std::string(240, 'n') + "_conv "));
  EXPECT_THAT(ended.out, HasSubstr("the model's own outputs behind what was exposed"));
}

TEST_F(CalibrateVerb, SaysWhatIsWrongWithTheList) {
  Outcome ended = Run({"-i", "nowhere.txt"});
  EXPECT_EQ(ended.status, 3);
  support::WriteFile(Path("list.txt"), "\n");
  ended = Run({"-i", "list.txt"});
  EXPECT_EQ(ended.status, 3);
  EXPECT_THAT(ended.err, HasSubstr("the list 'list.txt' is empty"));
  support::WriteFile(Path("list.txt"), "gone.bin\n");
  ended = Run({"-i", "list.txt"});
  EXPECT_EQ(ended.status, 3);
  EXPECT_THAT(ended.err, HasSubstr("gone.bin"));
  EXPECT_FALSE(fs::exists(Path("ranges.json")));
}

// ---- Models of other kinds ----------------------------------------------------------------------

class CalibrateModel : public CalibrateVerb {
 protected:
  Outcome Vorn(const std::vector<std::string>& words) const {
    support::Command command;
    command.program = VORN_COMMAND;
    command.arguments = words;
    command.directory = folder_.Path();
    command.environment = {{"XDG_CACHE_HOME", Path("cache")}};
    return RunCommand(command);
  }

  void Configure(const std::string& members) const {
    const std::string round = R"("round": {"int8": "ranges.json"})";
    support::WriteFile(Path("host.json"), "{\"model\": {" + members + "}}");
    support::WriteFile(Path("int8.json"),
                       "{\"model\": {" + members + (members.empty() ? "" : ", ") + round + "}}");
  }

  Outcome Calibrate(const std::vector<std::string>& more) const {
    std::vector<std::string> words{"calibrate", "-m",       "model.onnx", "-j",         "host.json",
                                   "-i",        "list.txt", "-o",         "ranges.json"};
    words.insert(words.end(), more.begin(), more.end());
    return Vorn(words);
  }

  // Rounded by what was measured, with what the run takes else.
  Outcome LaunchRounded(const std::vector<std::string>& more) const {
    std::vector<std::string> words{"launch", "-m",       "model.onnx", "-j",       "int8.json",
                                   "-i",     "list.txt", "--run",      "int8.run", "--no-trace"};
    words.insert(words.end(), more.begin(), more.end());
    return Vorn(words);
  }

  static nlohmann::json Range(double least, double most) { return {{"min", least}, {"max", most}}; }
};

// What the thresholds cut off shows in the ranges behind them.
TEST_F(CalibrateModel, IsGivenItsThresholds) {
  support::WriteFile(Path("model.onnx"), OnnxWriter()
                                             .Input("limit", kOnnxFloat, {1, 4})
                                             .Input("x", kOnnxFloat, {1, 4})
                                             .Output("y", kOnnxFloat, {1, 4})
                                             .Node("Max", {"x", "limit"}, {"cut"})
                                             .Node("Neg", {"cut"}, {"y"})
                                             .Image());
  Configure(R"("netType": "detection", "rpn": "limit")");
  support::WriteFile(Path("a.bin"), support::Bytes<float>({1, -2, 3, 0.5}));
  support::WriteFile(Path("b.bin"), support::Bytes<float>({-8, 0.25, 0, 6}));
  support::WriteFile(Path("list.txt"), "a.bin\nb.bin\n");
  support::WriteFile(Path("limit.txt"), "2 0.5 1 1");
  for (const std::string part : {"1", "2"}) {
    const Outcome ended = Calibrate({"-r", "limit.txt", "--part", part});
    ASSERT_EQ(ended.status, 0) << ended.Describe();
    EXPECT_EQ(Tensors(), (nlohmann::json{
                             {"x", Range(-8, 6)}, {"cut", Range(0.5, 6)}, {"y", Range(-6, -0.5)}}));
  }
  Outcome ended = LaunchRounded({"-r", "limit.txt"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  // What is wrong with them is said before anything runs.
  support::WriteFile(Path("few.txt"), "2 0.5 1");
  ended = Calibrate({"--thresholds", "few.txt,limit.txt,none.txt"});
  EXPECT_EQ(ended.status, 2) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("the model takes 1 input of thresholds, and -r names 3 files"));
  ended = Calibrate({"-r", "few.txt"});
  EXPECT_EQ(ended.status, 3) << ended.Describe();
  EXPECT_EQ(ended.err,
            "vorn calibrate: the thresholds 'few.txt' holds 3 numbers, and input 'limit' (1x4) "
            "takes 4\n");
  ended = Calibrate({"-r", "none.txt"});
  EXPECT_EQ(ended.status, 3) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("'none.txt' is not there"));
}

// Behind what picks results out, as detectors do.
TEST_F(CalibrateModel, MeasuresWhatTheConfigurationNamesBesides) {
  support::WriteFile(Path("model.onnx"),
                     OnnxWriter()
                         .Input("x", kOnnxFloat, {4})
                         .Output("y", kOnnxFloat, {1, "count"})
                         .Node("Abs", {"x"}, {"size"})
                         .Node("NonZero", {"size"}, {"places"})
                         .Node("Cast", {"places"}, {"floats"}, {IntAttribute("to", kOnnxFloat)})
                         .Node("Neg", {"floats"}, {"y"})
                         .Image());
  support::WriteFile(Path("x.bin"), support::Bytes<float>({1, 0, 0, -3}));
  support::WriteFile(Path("list.txt"), "x.bin\n");
  Configure(R"("outputDims": {"y": [1, 4]})");
  Outcome ended = Calibrate({});
  ASSERT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("vorn calibrate: not measured are 2: 'places' may have another "
                                   "shape for other data; name it in a list, with 'outputDims'; "
                                   "'floats' may"));
  EXPECT_FALSE(Tensors().contains("floats"));
  ended = LaunchRounded({});
  EXPECT_EQ(ended.status, 4) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("needs the range of 'floats'"));

  Configure(R"("outputDims": {"y": [1, 4], "floats": [1, 4]}, "expose": ["floats"])");
  ended = Calibrate({});
  ASSERT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_EQ(Tensors(), (nlohmann::json{{"x", Range(-3, 1)},
                                       {"size", Range(0, 3)},
                                       {"floats", Range(0, 3)},
                                       {"y", Range(-3, 0)}}));
  fs::remove_all(Path("int8.run"));
  ended = LaunchRounded({});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
}

TEST_F(CalibrateModel, IsGivenSequences) {
  support::WriteFile(Path("model.onnx"), OnnxWriter()
                                             .Input("x", kOnnxFloat, {1, 2})
                                             .Input("h", kOnnxFloat, {1, 2})
                                             .Output("y", kOnnxFloat, {1, 2})
                                             .Output("next", kOnnxFloat, {1, 2})
                                             .Node("Add", {"x", "h"}, {"sum"})
                                             .Node("Neg", {"sum"}, {"y"})
                                             .Node("Identity", {"sum"}, {"next"})
                                             .Image());
  Configure(R"("netType": "recurrent", "sequence": "steps", "maxFrames": 4,
               "states": {"h": "next"})");
  support::WriteFile(Path("x.bin"), support::Bytes<float>({1, -2, 3, -4, 5, -6}));
  support::WriteFile(Path("flags.bin"), std::string("\0\1\1", 3));
  support::WriteFile(Path("list.txt"), "x.bin\nflags.bin\n");
  Outcome ended = Calibrate({"-t", "3"});
  ASSERT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("-t 3 has no effect"));
  // Sums of 1, 2 and 3 frames, and the frame that there is not.
  EXPECT_EQ(Tensors().at("x"), Range(-6, 5));
  EXPECT_EQ(Tensors().at("sum"), Range(-12, 9));
  EXPECT_EQ(Tensors().at("y"), Range(-9, 12));
  const nlohmann::json tensors = Tensors();
  ended = Calibrate({});
  ASSERT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_EQ(Tensors(), tensors);
  ended = LaunchRounded({"-t", "3"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_EQ(Calibrate({"-t", "0"}).status, 2);
}

// Trained anew, with the same names.
TEST_F(CalibrateModel, MeasuresNoOtherModelUnnoticed) {
  const auto writeModel = [&](const std::string& op) {
    support::WriteFile(Path("model.onnx"), OnnxWriter()
                                               .Input("x", kOnnxFloat, {4})
                                               .Output("y", kOnnxFloat, {4})
                                               .Node(op, {"x"}, {"y"})
                                               .Image());
  };
  Configure("");
  support::WriteFile(Path("x.bin"), support::Bytes<float>({1, -2, 3, 0.5}));
  support::WriteFile(Path("list.txt"), "x.bin\nx.bin\n");
  writeModel("Neg");
  ASSERT_EQ(Calibrate({}).status, 0);
  const std::string words =
      "the file of ranges 'ranges.json' was measured over another model, 'model.onnx' with the "
      "XXH3 ";
  const auto warnings = [&] {
    return nlohmann::json::parse(support::ReadFile(Path("int8.run/run.json")))["warnings"];
  };
  Outcome ended = LaunchRounded({});
  ASSERT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_TRUE(warnings().empty()) << warnings();
  fs::remove_all(Path("int8.run"));

  writeModel("Abs");
  ended = LaunchRounded({"--chunk", "1"});
  ASSERT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("warning ranges-of-another-model, 2 times: " + words));
  ASSERT_EQ(warnings().size(), 1U);
  EXPECT_EQ(warnings()[0]["id"], "ranges-of-another-model");
  EXPECT_EQ(warnings()[0]["count"], 2);
  EXPECT_THAT(warnings()[0]["message"].get<std::string>(), testing::StartsWith(words));
  // Nothing is run again, and what was said is found again.
  ended = LaunchRounded({"--chunk", "1", "--resume"});
  ASSERT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_EQ(warnings().size(), 1U);
  EXPECT_EQ(warnings()[0]["count"], 2);

  ASSERT_EQ(Vorn({"launch", "-m", "model.onnx", "-i", "list.txt", "-j", "host.json", "--run",
                  "float.run", "--no-trace"})
                .status,
            0);
  ended = Vorn({"judge", "float.run", "--expected", "float.run", "--floor", "int8.run"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.out, HasSubstr("\nthe floor 'int8.run': " + words));
  ended = Vorn({"judge", "int8.run", "--expected", "float.run", "--rtol", "1"});
  EXPECT_THAT(ended.out, HasSubstr("\nthe run 'int8.run': " + words));
  ended = Vorn({"judge", "float.run", "--expected", "float.run"});
  EXPECT_THAT(ended.out, testing::Not(HasSubstr("another model")));
}

// ---- What is said -------------------------------------------------------------------------------

// Not those of the list of a part, which nobody has written and nobody finds again.
TEST_F(CalibrateVerb, NamesTheListAndItsLines) {
  fs::copy(kDigits + "/pictures/000.bin", Path("a.bin"));
  support::WriteFile(Path("short.bin"), "few");
  support::WriteFile(Path("list.txt"), "a.bin\n\na.bin\nshort.bin\nnone.bin\n");
  const Outcome ended = Run({"-i", "list.txt", "--part", "1"});
  EXPECT_EQ(ended.status, 3);
  EXPECT_EQ(support::SplitLines(ended.err),
            (std::vector<std::string>{
                "vorn calibrate: list.txt:4: 'short.bin' has 3 bytes, and input 'picture' takes 64 "
                "bytes (1x1x8x8 of uint8); the rest would hold what was there before",
                "vorn calibrate: list.txt:5: './none.bin' is not there"}))
      << ended.Describe();
  // What is not measured is not looked at.
  EXPECT_EQ(Run({"-i", "list.txt", "--most", "2"}).status, 0);
}

// Its records go with the folder that they lie in: what they tell has to be said before. The
// program writes a text of an inner tensor beyond what it may.
TEST_F(CalibrateVerb, SaysWhyARunFailed) {
  support::Command command;
  command.program = "/bin/sh";
  command.arguments = {"-c",
                       "ulimit -f 24; exec \"$@\"",
                       "sh",
                       VORN_COMMAND,
                       "calibrate",
                       "-m",
                       kDigits + "/digits.onnx",
                       "-i",
                       kDigits + "/list.txt",
                       "-o",
                       "ranges.json",
                       "--most",
                       "2"};
  command.directory = folder_.Path();
  command.environment = {{"XDG_CACHE_HOME", Path("cache")}};
  const Outcome ended = RunCommand(command);
  EXPECT_EQ(ended.status, 5) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("on) failed: ended by SIGXFSZ"));
}

// What stands before a ':' of a line is a name.
TEST_F(CalibrateVerb, TakesListsFromFoldersOfAnyName) {
  fs::create_directories(Path("a:b"));
  fs::copy(kDigits + "/pictures/000.bin", Path("a:b/x.bin"));
  support::WriteFile(Path("a:b/list.txt"), "x.bin\n");
  const Outcome ended = Run({"-i", "a:b/list.txt"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
}

TEST_F(CalibrateVerb, TellsTheRoomAndTakesPartsByIt) {
  const std::vector<std::string> words{"-i", kDigits + "/list.txt", "--most", "5"};
  Outcome ended = Run(words);
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.err, testing::ContainsRegex(
                             "5 inferences, all at once, with all inner tensors: [0-9.]+ KiB of "
                             "the [0-9.]+ [KMGT]iB that the disk has left\n"));
  std::vector<std::string> parts = words;
  parts.insert(parts.end(), {"--part", "2"});
  EXPECT_THAT(Run(parts).err, HasSubstr("5 inferences, 2 at a time, with all"));
}

TEST_F(CalibrateVerb, RefusesAnOutputBeforeItRuns) {
  fs::create_directories(Path("folder"));
  const auto run = [&](const std::string& output) {
    return Run({"-o", output, "-i", kDigits + "/list.txt"});
  };
  Outcome ended = run("folder");
  EXPECT_EQ(ended.status, 2) << ended.Describe();
  EXPECT_EQ(ended.err,
            "vorn calibrate: -o 'folder' is a folder; name the file that is to be made in it\n");
  support::WriteFile(Path("file"), "");
  ended = run("file/ranges.json");
  EXPECT_EQ(ended.status, 7) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("-o 'file/ranges.json' cannot be written"));
}

// ---- Ended on its way ---------------------------------------------------------------------------

class CalibrateStopped : public CalibrateVerb {
 protected:
  // A calibration of the digits, an inference a part, which is far from its end.
  pid_t Begin() const {
    const pid_t child = fork();
    if (child != 0) {
      while (!fs::exists(Work(child) + "/run/run.json")) usleep(10000);
      return child;
    }
    for (const int number : {SIGHUP, SIGINT, SIGTERM}) signal(number, SIG_DFL);
    setenv("XDG_CACHE_HOME", Path("cache").c_str(), 1);
    const std::string model = kDigits + "/digits.onnx";
    const std::string list = kDigits + "/list.txt";
    if (chdir(folder_.Path().c_str()) == 0 && freopen("said", "w", stderr) != nullptr) {
      execl(VORN_COMMAND, VORN_COMMAND, "calibrate", "-m", model.c_str(), "-i", list.c_str(), "-o",
            "ranges.json", "--part", "1", nullptr);
    }
    _exit(99);
  }

  std::string Work(pid_t pid) const { return Path("ranges.json." + std::to_string(pid) + ".work"); }

  static int Stop(pid_t pid, int signal) {
    kill(pid, signal);
    int status = 0;
    waitpid(pid, &status, 0);
    return status;
  }
};

TEST_F(CalibrateStopped, CleansUp) {
  for (const int number : {SIGTERM, SIGINT}) {
    const pid_t child = Begin();
    const int status = Stop(child, number);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 8) << status;
    EXPECT_FALSE(fs::exists(Work(child)));
    EXPECT_FALSE(fs::exists(Path("ranges.json")));
    EXPECT_THAT(support::ReadFile(Path("said")), HasSubstr("vorn calibrate: was stopped by "));
  }
}

TEST_F(CalibrateStopped, IsCleanedUpBehindByTheNext) {
  const pid_t child = Begin();
  EXPECT_TRUE(WIFSIGNALED(Stop(child, SIGKILL)));
  EXPECT_TRUE(fs::exists(Work(child)));
  // What it had started ends a moment later.
  const int lock = open((Work(child) + "/.lock").c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_EQ(flock(lock, LOCK_EX), 0);
  close(lock);
  const Outcome ended = Run({"-i", kDigits + "/list.txt", "--most", "1"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("was left by one that was killed, and is removed"));
  EXPECT_FALSE(fs::exists(Work(child)));
}

}  // namespace
}  // namespace vorn::kit
