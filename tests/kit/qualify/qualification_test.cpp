// `vorn qualify` as a program, on the digits.
#include "kit/qualify/qualification.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

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
using testing::ContainsRegex;
using testing::HasSubstr;
using testing::Not;

const std::string kDigits = VORN_SOURCE_FOLDER "/examples/digits";

class QualifyVerb : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder_.Path() / name; }

  Outcome Run(std::vector<std::string> words) const {
    words.insert(words.begin(), "qualify");
    return Vorn(words);
  }

  Outcome Vorn(const std::vector<std::string>& words) const {
    support::Command command;
    command.program = VORN_COMMAND;
    command.arguments = words;
    command.directory = folder_.Path();
    // What is kept of models would be another test's.
    command.environment = {{"XDG_CACHE_HOME", Path("cache")}};
    return RunCommand(command);
  }

  Outcome Qualify(std::vector<std::string> words) const {
    words.insert(words.begin(), {"-m", kDigits + "/digits.onnx", "--input", kDigits + "/pictures",
                                 "--run", "run", "--most", "6"});
    return Run(words);
  }

  nlohmann::json Record() const {
    return nlohmann::json::parse(support::ReadFile(Path("run/qualify.json")));
  }

  support::TempDir folder_;
};

TEST_F(QualifyVerb, FindsThatADeviceIsRight) {
  const Outcome ended = Qualify({"--reference", kDigits + "/digits.onnx"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.out, HasSubstr("QUALIFIED: every output is right\n"));
  EXPECT_THAT(ended.out, HasSubstr("6 of 6 samples"));
  EXPECT_THAT(ended.out, HasSubstr("probabilities  right"));
  EXPECT_THAT(ended.err, HasSubstr("vorn qualify: vorn prepare --model-json "));
  EXPECT_EQ(Record()["steps"].size(), 7U);
  EXPECT_EQ(Record()["status"], 0);
  EXPECT_TRUE(fs::exists(Path("run/verdict.xml")));
}

TEST_F(QualifyVerb, FindsWhatADeviceGetsWrong) {
  support::WriteFile(Path("rounding.json"), R"({"model": {"round": "bfloat16"}})");
  const Outcome ended =
      Qualify({"-j", "rounding.json", "--reference", kDigits + "/digits.onnx", "--quiet"});
  EXPECT_EQ(ended.status, 6) << ended.Describe();
  EXPECT_THAT(ended.out, HasSubstr("NOT QUALIFIED: outputs differ\n"));
  EXPECT_THAT(ended.out, HasSubstr("probabilities  WRONG"));
  EXPECT_EQ(ended.err, "");
  // By a rule that is as wide as the device's precision it is right.
  support::WriteFile(Path("rules.json"),
                     R"({"schema": 1, "rules": [{"output": "*", "atol": 0.02, "rtol": 0}]})");
  const Outcome wide = Qualify({"-j", "rounding.json", "--reference", kDigits + "/digits.onnx",
                                "--quiet", "--rules", "rules.json"});
  EXPECT_EQ(wide.status, 0) << wide.Describe();
}

TEST_F(QualifyVerb, SaysWhatToDoAboutADeviceThatRounds) {
  support::WriteFile(Path("rounding.json"), R"({"model": {"round": "bfloat16"}})");
  const std::vector<std::string> words{"-j", "rounding.json", "--reference",
                                       kDigits + "/digits.onnx", "--quiet"};
  Outcome ended = Qualify(words);
  EXPECT_EQ(ended.status, 6) << ended.Describe();
  EXPECT_THAT(ended.out, HasSubstr("hint: the outputs look rounded to bfloat16, and were held to "
                                   "what float32 gives: say with --rules FILE or --preset "
                                   "bfloat16 how near is right, or give --floor CONFIG"));
  // Of a device that is wrong otherwise nothing is to be said.
  support::WriteFile(Path("wrong.json"), R"({"model": {"until": "scores"}})");
  const auto isHinted = [](const Outcome& one) {
    return one.out.find("hint:") != std::string::npos;
  };
  EXPECT_FALSE(isHinted(Qualify({"-j", "wrong.json", "--reference", kDigits + "/digits.onnx"})));
  std::vector<std::string> ruled = words;
  ruled.insert(ruled.end(), {"--preset", "exact"});
  EXPECT_FALSE(isHinted(Qualify(ruled)));
}

TEST_F(QualifyVerb, HoldsADeviceAgainstItsFloor) {
  support::WriteFile(Path("rounding.json"), R"({"model": {"round": "bfloat16"}})");
  std::vector<std::string> words{
      "-j", "rounding.json", "--reference", kDigits + "/digits.onnx", "--floor", "rounding.json"};
  Outcome ended = Qualify(words);
  EXPECT_EQ(ended.status, 6) << ended.Describe();
  EXPECT_THAT(ended.out, ContainsRegex("\nfloor  .*6 of 6 samples"));
  EXPECT_THAT(ended.out,
              HasSubstr("probabilities: within what bfloat16 has to lose: RMSE 1 times"));
  EXPECT_THAT(ended.out, HasSubstr("hint: every output is within what the floor has to lose; to "
                                   "let that decide, give --rules FILE with {\"schema\": 1"));
  // The hint is a file that does.
  const size_t begin = ended.out.find("{\"schema\": 1, \"rules\"");
  support::WriteFile(Path("rules.json"),
                     ended.out.substr(begin, ended.out.find('\n', begin) - begin));
  const std::string times = support::ReadFile(Path("run/floor/times.jsonl"));
  words.insert(words.end(), {"--rules", "rules.json"});
  ended = Qualify(words);
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_EQ(support::ReadFile(Path("run/floor/times.jsonl")), times) << "it was run again";
  // All models are described before anything is prepared, and the floor takes the reference's list.
  std::vector<std::string> names;
  const nlohmann::json record = Record();
  for (const auto& step : record["steps"]) names.push_back(step["name"]);
  EXPECT_THAT(names, testing::ElementsAre("describe the device", "describe the reference",
                                          "describe the floor", "prepare the device's inputs",
                                          "run the device", "prepare the reference's inputs",
                                          "run the reference", "run the floor", "judge"));
}

TEST_F(QualifyVerb, TellsThatAFloorsRangesAreOfAnotherModel) {
  ASSERT_EQ(Vorn({"calibrate", "-m", kDigits + "/digits.onnx", "-i", kDigits + "/list.txt", "-o",
                  "ranges.json", "--most", "2"})
                .status,
            0);
  nlohmann::json ranges = nlohmann::json::parse(support::ReadFile(Path("ranges.json")));
  ranges["model"] = {{"path", "old.onnx"}, {"xxh3_128", "00"}};
  support::WriteFile(Path("ranges.json"), ranges.dump());
  support::WriteFile(Path("rounding.json"), R"({"model": {"round": {"int8": "ranges.json"}}})");
  const std::vector<std::string> words{"--reference", kDigits + "/digits.onnx", "--floor",
                                       "rounding.json"};
  const std::string wanted =
      "run/floor': the file of ranges 'ranges.json' was measured over another model, "
      "'old.onnx' with the XXH3 00, and this one has ";
  Outcome ended = Qualify(words);
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.out, HasSubstr(wanted));
  // The second time nothing is run.
  ended = Qualify(words);
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.out, HasSubstr(wanted));
}

TEST_F(QualifyVerb, TakesTheFloorOfItsFile) {
  support::WriteFile(Path("beside/rounding.json"), R"({"model": {"round": "float16"}})");
  fs::copy(kDigits + "/digits.onnx", Path("beside/digits.onnx"));
  fs::create_directories(Path("beside/pictures"));
  fs::copy(kDigits + "/pictures/000.bin", Path("beside/pictures/000.bin"));
  support::WriteFile(Path("beside/qualify.json"), R"({"schema": 1, "run": "run",
      "device": {"model": "digits.onnx", "inputs": [{"name": "picture", "source": "pictures"}]},
      "reference": {"model": "digits.onnx", "inputs": [{"name": "picture", "source": "pictures"}]},
      "floor": "rounding.json"})");
  const Outcome ended = Run({"beside/qualify.json"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_TRUE(fs::exists(Path("beside/run/floor/run.json")));
}

TEST_F(QualifyVerb, RefusesFloorsThatAreNone) {
  support::WriteFile(Path("plain.json"), R"({"model": {}})");
  Outcome ended = Qualify({"--reference", kDigits + "/digits.onnx", "--floor", "plain.json"});
  EXPECT_EQ(ended.status, 4);
  EXPECT_THAT(ended.err, HasSubstr("the floor's configuration 'plain.json' rounds nothing"));
  ended = Qualify({"--expected", kDigits + "/expected.npy", "--floor", "plain.json"});
  EXPECT_EQ(ended.status, 2);
  EXPECT_THAT(ended.err, HasSubstr("--floor stands without --reference MODEL"));
  EXPECT_FALSE(fs::exists(Path("run")));
}

// A fault of the reference is not to be told behind the run of the device.
TEST_F(QualifyVerb, DescribesBothModelsBeforeItRunsOne) {
  support::WriteFile(Path("none.onnx"), "no model");
  const Outcome ended = Qualify({"--reference", "none.onnx"});
  EXPECT_EQ(ended.status, 4) << ended.Describe();
  EXPECT_EQ(Record()["steps"].size(), 2U);
  EXPECT_FALSE(fs::exists(Path("run/device.inputs")));
}

TEST_F(QualifyVerb, NamesWhatWasLeftOut) {
  for (int i = 0; i < 8; ++i) {
    const std::string name = std::to_string(i) + ".bin";
    fs::create_directories(Path("some"));
    if (i % 4 == 3) {
      fs::copy(kDigits + "/pictures/000.bin", Path("some/" + name));
    } else {
      support::WriteFile(Path("some/" + name), "short");
    }
  }
  const Outcome ended = Run({"-m", kDigits + "/digits.onnx", "--input", "some", "--reference",
                             kDigits + "/digits.onnx", "--run", "run", "--keep-going"});
  EXPECT_EQ(ended.status, 8) << ended.Describe();
  EXPECT_THAT(ended.out, HasSubstr("\nleft out: 6 sources: 'some/0.bin', 'some/1.bin', "
                                   "'some/2.bin', 'some/4.bin', 'some/5.bin' and 1 more\n"));
}

TEST_F(QualifyVerb, RefusesALineEndInTheRun) {
  const Outcome ended = Run({"-m", kDigits + "/digits.onnx", "--input", kDigits + "/pictures",
                             "--reference", kDigits + "/digits.onnx", "--run", "a\nb"});
  EXPECT_EQ(ended.status, 2);
  EXPECT_EQ(ended.err, "vorn qualify: --run 'a\\x0Ab' holds a line end\n");
  EXPECT_FALSE(fs::exists(Path("a\nb")));
}

TEST_F(QualifyVerb, DoesAgainOnlyWhatChanged) {
  const std::vector<std::string> words{"--reference", kDigits + "/digits.onnx"};
  ASSERT_EQ(Qualify(words).status, 0);
  const std::string times = support::ReadFile(Path("run/device/times.jsonl"));
  const Outcome again = Qualify(words);
  EXPECT_EQ(again.status, 0) << again.Describe();
  EXPECT_THAT(again.err, HasSubstr("6 of them as they were"));
  EXPECT_THAT(again.err, HasSubstr("going on with 6 of 6 inferences done"));
  EXPECT_EQ(support::ReadFile(Path("run/device/times.jsonl")), times);
  // Another configuration is another device, and only of the device.
  support::WriteFile(Path("rounding.json"), R"({"model": {"round": "float16"}})");
  std::vector<std::string> other = words;
  other.insert(other.end(), {"-j", "rounding.json"});
  EXPECT_THAT(Qualify(other).err, HasSubstr("going on with 6 of 6 inferences done"));
  EXPECT_NE(support::ReadFile(Path("run/device/times.jsonl")), times);
}

TEST_F(QualifyVerb, RunsAgainWhereAFileOfTheConfigurationChanged) {
  const auto ranges = [&](const char* most) {
    std::string tensors;
    for (const char* name :
         {"conv1", "relu1", "conv2", "relu2", "pooled", "flat", "scaled", "probabilities"}) {
      tensors += std::string(tensors.empty() ? "" : ", ") + "\"" + name +
                 R"(": {"min": -10, "max": )" + most + "}";
    }
    support::WriteFile(
        Path("ranges.json"),
        R"({"schema": 1, "kind": "ranges", "tensors": {)" + tensors +
            R"(, "scores": {"min": -30, "max": 30}, "values": {"min": 0, "max": 16}}})");
  };
  support::WriteFile(Path("int8.json"), R"({"model": {"round": {"int8": "ranges.json"}}})");
  const std::vector<std::string> words{"-j", "int8.json", "--expected", kDigits + "/expected.npy",
                                       "--quiet"};
  ranges("10");
  const Outcome first = Qualify(words);
  ASSERT_TRUE(first.status == 6 || first.status == 8) << first.Describe();
  const std::string verdict = support::ReadFile(Path("run/verdict.json"));
  Qualify(words);
  EXPECT_EQ(support::ReadFile(Path("run/verdict.json")), verdict);
  ranges("3");
  Qualify(words);
  EXPECT_NE(support::ReadFile(Path("run/verdict.json")), verdict);
}

TEST_F(QualifyVerb, TakesAFileWhosePathsAreItsOwn) {
  fs::create_directories(Path("beside"));
  fs::copy(kDigits + "/digits.onnx", Path("beside/digits.onnx"));
  fs::copy(kDigits + "/pictures", Path("beside/pictures"));
  support::WriteFile(Path("beside/qualify.json"), R"({"schema": 1, "run": "run", "most": 3,
      "device": {"model": "digits.onnx", "inputs": [{"name": "picture", "source": "pictures"}]},
      "reference": {"model": "digits.onnx", "inputs": [{"name": "picture", "source": "pictures"}]},
      "preset": "exact"})");
  const Outcome ended = Run({"beside/qualify.json"});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.out, HasSubstr("3 of 3 samples"));
  EXPECT_TRUE(fs::exists(Path("beside/run/verdict.json")));
}

TEST_F(QualifyVerb, StopsBehindAStepThatFailed) {
  const Outcome ended = Run({"-m", kDigits + "/digits.onnx", "--input", "nowhere", "--run", "run",
                             "--expected", kDigits + "/expected.npy"});
  EXPECT_EQ(ended.status, 3) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("'nowhere' is not there"));
  EXPECT_THAT(ended.out, HasSubstr("NOT JUDGED: could not prepare the device's inputs (status 3)"));
  EXPECT_EQ(Record()["steps"].size(), 2U);
}

// Whichever verb meets such a model first.
TEST_F(QualifyVerb, ShowsAConfigurationForAModelWithOpenSizes) {
  OnnxWriter model;
  model.Input("x", kOnnxFloat, {"batch", "rows", "columns"}).Output("y", kOnnxFloat, {"batch"});
  support::WriteFile(Path("open.onnx"), model.Node("Relu", {"x"}, {"y"}).Image());
  support::WriteFile(Path("empty.json"), "{}");
  support::WriteFile(Path("list.txt"), "x\n");
  support::WriteFile(Path("x"), "some");
  const std::vector<std::vector<std::string>> calls{
      {"inspect", "-m", "open.onnx"},
      {"prepare", "-m", "open.onnx", "--input", "x", "-o", "out"},
      {"launch", "-m", "open.onnx", "-j", "empty.json", "-i", "list.txt", "--run", "launched"},
      {"calibrate", "-m", "open.onnx", "-i", "list.txt", "-o", "ranges.json"},
      {"qualify", "-m", "open.onnx", "--input", "x", "--expected", "x", "--run", "run"},
  };
  for (const std::vector<std::string>& call : calls) {
    const Outcome ended = Vorn(call);
    EXPECT_EQ(ended.status, 4) << ended.Describe();
    EXPECT_THAT(
        ended.err,
        HasSubstr("\nA configuration for -j that would do, with your numbers in the place of 1:\n"
                  "{\"model\": {\"dims\": {\"rows\": 1, \"columns\": 1}}}\n"))
        << call.front();
  }
}

TEST_F(QualifyVerb, NamesTheModelThatTheRuntimeRefuses) {
  support::WriteFile(Path("broken.onnx"), "no model");
  const Outcome ended =
      Run({"-m", "broken.onnx", "--input", "x", "--run", "run", "--expected", "y"});
  EXPECT_EQ(ended.status, 4) << ended.Describe();
  EXPECT_THAT(ended.out, HasSubstr("NOT JUDGED: could not describe the device (status 4)"));
}

TEST_F(QualifyVerb, RunsAScriptAsTheDevice) {
  const std::string script = Path("device.sh");
  support::WriteFile(script, "#!/bin/sh\nexec '" + fs::path(VORN_RUNTIME).parent_path().string() +
                                 "/vorn-run' \"$@\"\n");
  fs::permissions(script, fs::perms::owner_all);
  const std::vector<std::string> words{"--program", "./device.sh", "--reference",
                                       kDigits + "/digits.onnx"};
  EXPECT_EQ(Qualify(words).status, 0);
  const Outcome again = Qualify(words);
  EXPECT_EQ(again.status, 0) << again.Describe();
  EXPECT_THAT(again.err, HasSubstr("going on with 6 of 6 inferences done"));
  // Another script is another device.
  support::WriteFile(script, support::ReadFile(script) + "# changed\n");
  const std::string times = support::ReadFile(Path("run/device/times.jsonl"));
  EXPECT_EQ(Qualify(words).status, 0);
  EXPECT_NE(support::ReadFile(Path("run/device/times.jsonl")), times);
}

TEST_F(QualifyVerb, RunsAgainOnAnotherRuntime) {
  const std::vector<std::string> words{"--reference", kDigits + "/digits.onnx"};
  ASSERT_EQ(Qualify(words).status, 0);
  // As after an update: the run says that it was made by another one.
  const std::string path = Path("run/device/run.json");
  auto facts = nlohmann::json::parse(support::ReadFile(path));
  facts["runtime"]["xxh3_128"] = "00000000000000000000000000000000";
  support::WriteFile(path, facts.dump());
  const Outcome again = Qualify(words);
  EXPECT_EQ(again.status, 0) << again.Describe();
  EXPECT_NE(nlohmann::json::parse(support::ReadFile(path))["runtime"]["xxh3_128"],
            "00000000000000000000000000000000");
}

TEST_F(QualifyVerb, TouchesNoFolderOfOthers) {
  support::WriteFile(Path("run/mine"), "precious");
  const Outcome ended = Qualify({"--expected", kDigits + "/expected.npy"});
  EXPECT_EQ(ended.status, 2);
  EXPECT_THAT(ended.err, HasSubstr("the folder '" + Path("run") +
                                   "' is not empty, and no qualification was made in it; give "
                                   "another one\n"));
  EXPECT_EQ(support::ReadFile(Path("run/mine")), "precious");
}

// A qualification that a person wrote may have the name of the record, and their own folders lie
// beside it.
TEST_F(QualifyVerb, WritesNothingWhereAQualificationOfAPersonLies) {
  fs::create_directories(Path("mine/device"));
  support::WriteFile(Path("mine/device/notes.txt"), "of a person");
  const std::string text = R"({"schema": 1, "run": ".", "device": {"model": ")" + kDigits +
                           R"(/digits.onnx", "inputs": [{"name": "picture", "source": ")" +
                           kDigits + R"(/pictures"}]}, "expected": ")" + kDigits +
                           R"(/expected.npy"})";
  support::WriteFile(Path("mine/qualify.json"), text);
  const Outcome ended = Run({"mine/qualify.json"});
  EXPECT_EQ(ended.status, 2) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("qualify.json' is there, and is no record of a qualification"));
  EXPECT_EQ(support::ReadFile(Path("mine/qualify.json")), text);
  EXPECT_TRUE(fs::exists(Path("mine/device/notes.txt")));
}

// Who reads the verdict by machine does not look whether the steps before it failed.
TEST_F(QualifyVerb, LeavesNoVerdictOfATimeBefore) {
  ASSERT_EQ(Qualify({"--reference", kDigits + "/digits.onnx"}).status, 0);
  ASSERT_TRUE(fs::exists(Path("run/verdict.xml")));
  const Outcome ended = Run({"-m", kDigits + "/digits.onnx", "--input", "nowhere", "--run", "run",
                             "--reference", kDigits + "/digits.onnx"});
  EXPECT_EQ(ended.status, 3) << ended.Describe();
  EXPECT_FALSE(fs::exists(Path("run/verdict.json")));
  EXPECT_FALSE(fs::exists(Path("run/verdict.xml")));
  EXPECT_THAT(ended.out, ContainsRegex("device +did not run"));
}

TEST_F(QualifyVerb, IsAloneInItsFolder) {
  ASSERT_EQ(Qualify({"--reference", kDigits + "/digits.onnx"}).status, 0);
  const int fd = open(Path("run/.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(flock(fd, LOCK_EX | LOCK_NB), 0);
  const Outcome ended = Qualify({"--reference", kDigits + "/digits.onnx"});
  EXPECT_EQ(ended.status, 2) << ended.Describe();
  EXPECT_THAT(ended.err, HasSubstr("another vorn qualify is at work in "));
  EXPECT_TRUE(fs::exists(Path("run/verdict.json")));
  close(fd);
  EXPECT_EQ(Qualify({"--reference", kDigits + "/digits.onnx"}).status, 0);
}

TEST_F(QualifyVerb, HasToBeToldWhatIsRight) {
  EXPECT_THAT(Qualify({}).err, HasSubstr("give --reference MODEL, or --expected PATH"));
  EXPECT_EQ(Qualify({}).status, 2);
  EXPECT_EQ(Qualify({"--reference-recipe", "bytes", "--expected", "x"}).status, 2);
  EXPECT_EQ(Run({"--input", "x", "--run", "run"}).status, 2);
}

TEST_F(QualifyVerb, TakesListsAndRandomNumbersAsJobsDo) {
  support::WriteFile(Path("q.json"), R"({"schema": 1, "run": "run",
      "device": {"model": ")" + kDigits + R"(/digits.onnx", "inputs": [{"name": "picture",
        "source": [")" + kDigits + R"(/pictures/000.bin", ")" +
                                         kDigits + R"(/pictures/001.bin"]}]},
      "expected": ")" + kDigits + R"(/expected.npy"})");
  EXPECT_EQ(Run({"q.json"}).status, 8) << "two of two hundred";
  EXPECT_THAT(support::ReadFile(Path("run/device.inputs/list.txt")), HasSubstr("000001.bin"));
  support::WriteFile(Path("random.json"), R"({"schema": 1, "run": "noise", "preset": "exact",
      "device": {"model": ")" + kDigits + R"(/digits.onnx", "inputs": [{"name": "picture",
        "random": {"distribution": "integers", "low": 0, "high": 16}}]},
      "reference": {"model": ")" + kDigits + R"(/digits.onnx", "inputs": [{"name": "picture",
        "random": {"distribution": "integers", "low": 0, "high": 16}}]}})");
  const Outcome random = Run({"random.json"});
  EXPECT_EQ(random.status, 0) << random.Describe();
}

// ---- Stopped on its way -------------------------------------------------------------------------

// By a real SIGINT, while it is at a step that does not end by itself.
class QualifyStopped : public QualifyVerb {
 protected:
  void SetUp() override {
    // Verbs are looked for beside the program.
    const fs::path programs = fs::path(VORN_COMMAND).parent_path();
    fs::create_directory(Path("bin"));
    fs::copy(programs / "vorn-qualify", Path("bin/vorn-qualify"));
    for (const std::string verb : {"inspect", "prepare", "launch", "judge"}) {
      Script("bin/vorn-" + verb, "exec '" + (programs / ("vorn-" + verb)).string() + "' \"$@\"\n");
    }
  }

  void Script(const std::string& name, const std::string& text) const {
    support::WriteFile(Path(name), "#!/bin/sh\n" + text);
    fs::permissions(Path(name), fs::perms::owner_all);
  }

  /// A program that says that it was reached, and stays.
  void Block(const std::string& name) const {
    Script(name, ": >'" + Path("reached") + "'\nexec sleep 300\n");
  }

  void Write(const std::string& device, const std::string& reference,
             const std::string& source = R"("source": ")" + kDigits + "/pictures\"") const {
    const std::string side = R"({"model": ")" + kDigits + R"(/digits.onnx", "inputs": [{"name":
        "picture", )" + source +
                             "}]";
    support::WriteFile(Path("q.json"), R"({"schema": 1, "most": 4, "device": )" + side + device +
                                           R"(}, "reference": )" + side + reference + "}}");
  }

  /// What it says when it is stopped once that file is there.
  std::string Stop(const std::string& file = "reached") const {
    const pid_t child = fork();
    if (child == 0) {
      // Whoever started this may ignore them.
      for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) signal(number, SIG_DFL);
      setenv("XDG_CACHE_HOME", Path("cache").c_str(), 1);
      if (chdir(folder_.Path().c_str()) == 0 && freopen("said", "w", stdout) != nullptr &&
          freopen("errors", "w", stderr) != nullptr) {
        execl("bin/vorn-qualify", "bin/vorn-qualify", "q.json", "--run", "run", nullptr);
      }
      _exit(99);
    }
    int status = 0;
    while (!fs::exists(Path(file))) {
      if (waitpid(child, &status, WNOHANG) == child) {
        ADD_FAILURE() << "it ended by itself: " << support::ReadFile(Path("errors"));
        return "";
      }
      usleep(10000);
    }
    kill(child, SIGINT);
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status)) << status;
    EXPECT_THAT(WEXITSTATUS(status), testing::AnyOf(7, 8));
    EXPECT_EQ(Record()["state"], "stopped");
    const std::string said = support::ReadFile(Path("said"));
    return said.substr(0, said.find('\n'));
  }
};

TEST_F(QualifyStopped, SaysSoOfADescription) {
  Write("", "");
  Block("bin/vorn-inspect");
  EXPECT_EQ(Stop(), "STOPPED: could not describe the device; the same command goes on");
}

TEST_F(QualifyStopped, SaysSoOfInputs) {
  // More than are made before it is stopped.
  std::string numbers;
  for (int i = 0; i < 64; ++i) numbers += "1 ";
  for (int i = 0; i < 20000; ++i)
    support::WriteFile(Path("many/" + std::to_string(i) + ".txt"), numbers);
  Write("", "", R"("source": "many")");
  std::string text = support::ReadFile(Path("q.json"));
  text.replace(text.find("\"most\": 4"), 9, "\"most\": 20000");
  support::WriteFile(Path("q.json"), text);
  EXPECT_EQ(Stop("run/device.inputs/tensors/000000.bin"),
            "STOPPED: could not prepare the device's inputs; the same command goes on");
}

TEST_F(QualifyStopped, SaysSoOfTheDevice) {
  Write(R"(, "program": "device.sh")", "");
  Block("device.sh");
  EXPECT_EQ(Stop(), "STOPPED: could not run the device; the same command goes on");
}

TEST_F(QualifyStopped, SaysSoOfTheReference) {
  Write("", R"(, "program": "reference.sh")");
  Block("reference.sh");
  EXPECT_EQ(Stop(), "STOPPED: could not run the reference; the same command goes on");
  // And goes on.
  fs::remove(Path("reference.sh"));
  Script("reference.sh",
         "exec '" + (fs::path(VORN_COMMAND).parent_path() / "vorn-run").string() + "' \"$@\"\n");
  const Outcome again = Run({"q.json", "--run", "run"});
  EXPECT_EQ(again.status, 0) << again.Describe();
}

TEST_F(QualifyStopped, SaysSoOfTheJudgement) {
  Write("", "");
  Block("bin/vorn-judge");
  EXPECT_EQ(Stop(), "STOPPED: could not judge; the same command goes on");
}

TEST_F(QualifyVerb, NamesTheKeyOfAFileThatIsWrong) {
  support::WriteFile(Path("q.json"), R"({"schema": 1, "devise": {}})");
  const Outcome ended = Run({"q.json", "--run", "run"});
  EXPECT_EQ(ended.status, 3);
  EXPECT_THAT(ended.err, HasSubstr("there is no key 'devise'; did you mean 'device'?"));
}

TEST(ReadQualification, TakesEveryKeyOfASide) {
  const support::TempDir folder;
  const std::string path = folder.Path() / "q.json";
  support::WriteFile(path, R"({"schema": 1, "device": {"model": "m.om", "config": "c.json",
      "runtime": "lib/libvorn.so", "program": "device.sh", "inputs": []}})");
  const QualifiedSide side = ReadQualification(path).device;
  const std::string beside = folder.Path().string() + "/";
  EXPECT_EQ(side.model, beside + "m.om");
  EXPECT_EQ(side.config, beside + "c.json");
  EXPECT_EQ(side.runtime, beside + "lib/libvorn.so");
  EXPECT_EQ(side.program, beside + "device.sh");
  EXPECT_TRUE(side.job);
}

// As --reference without --reference-input.
TEST(ReadQualification, GivesTheReferenceWhatTheDeviceIsGiven) {
  const support::TempDir folder;
  const std::string path = folder.Path() / "q.json";
  const auto nameFor = [&](const std::string& inputs) {
    support::WriteFile(path, R"({"schema": 1, "device": {"model": "m.om", "inputs":
        [{"name": "x", "source": "pictures"}]}, "reference": {"model": "r.onnx")" +
                                 inputs + "}}");
    const auto job = ReadQualification(path).reference->job;
    return job ? job->Items().at(0).At("name").AsText() : "none";
  };
  EXPECT_EQ(nameFor(""), "x");
  EXPECT_EQ(nameFor(R"(, "inputs": [{"name": "y", "source": "pictures"}])"), "y");
}

TEST(StatusOf, IsTheFirstOfTheTableThatHolds) {
  const auto with = [](const std::vector<ExitStatus>& statuses) {
    std::vector<QualifyStep> steps;
    for (const ExitStatus status : statuses) steps.push_back({"", {}, status, ""});
    return StatusOf(steps);
  };
  EXPECT_EQ(with({}), ExitStatus::kDone);
  EXPECT_EQ(with({ExitStatus::kDone, ExitStatus::kDiffers}), ExitStatus::kDiffers);
  EXPECT_EQ(with({ExitStatus::kDiffers, ExitStatus::kPartial}), ExitStatus::kPartial);
  EXPECT_EQ(with({ExitStatus::kNothing, ExitStatus::kLimit}), ExitStatus::kLimit);
}

}  // namespace
}  // namespace vorn::kit
