// `vorn judge` as a program.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "support/command.h"
#include "support/files.h"

namespace {

using support::Bytes;
using support::Outcome;
using testing::HasSubstr;

class JudgeVerb : public testing::Test {
 protected:
  JudgeVerb() {
    Dump("actual/0", {1, 2});
    Dump("expected/0", {1, 2});
  }

  std::string Path(const std::string& name) const { return folder_.Path() / name; }

  void Dump(const std::string& sample, const std::vector<float>& values) const {
    support::WriteFile(Path(sample + "/prob.0.17.bin"), Bytes(values));
  }

  Outcome Run(std::vector<std::string> words) const {
    words.insert(words.begin(), "judge");
    support::Command command;
    command.program = VORN_COMMAND;
    command.arguments = words;
    command.directory = folder_.Path();
    return RunCommand(command);
  }

  Outcome Judge(std::vector<std::string> words) const {
    words.insert(words.begin(), {"actual", "--expected", "expected"});
    return Run(words);
  }

  support::TempDir folder_;
};

TEST_F(JudgeVerb, PrintsATableAndEndsWithZero) {
  const Outcome ended = Judge({});
  EXPECT_EQ(ended.status, 0) << ended.Describe();
  EXPECT_THAT(ended.out, HasSubstr("prob    right          1      0         2      2"));
  EXPECT_THAT(ended.out, HasSubstr("1 sample, 1 output: all right\n"));
  EXPECT_EQ(ended.err, "");
}

TEST_F(JudgeVerb, EndsWithSixWhereSomethingDiffers) {
  Dump("actual/0", {1, 3});
  const Outcome ended = Judge({});
  EXPECT_EQ(ended.status, 6);
  EXPECT_THAT(ended.out, HasSubstr("sample 0 at [1]: 3, expected 2"));
}

TEST_F(JudgeVerb, EndsWithEightWhereASampleIsMissing) {
  Dump("expected/1", {1, 2});
  EXPECT_EQ(Judge({}).status, 8);
}

TEST_F(JudgeVerb, EndsWithNineWhereNothingIsCompared) {
  const Outcome ended = Judge({"--only", "porb"});
  EXPECT_EQ(ended.status, 9);
  EXPECT_EQ(ended.out, "");
  EXPECT_EQ(ended.err,
            "vorn judge: --only 'porb' fits the name of no output; did you mean 'prob'?\n");
}

TEST_F(JudgeVerb, EndsWithThreeForFilesThatCannotBeRead) {
  support::WriteFile(Path("actual/0/prob.0.17.bin"), "12345");
  const Outcome ended = Judge({});
  EXPECT_EQ(ended.status, 3);
  EXPECT_THAT(ended.out, HasSubstr("sample 0 is not judged: the dump 'actual/0/prob.0.17.bin'"));
  EXPECT_THAT(ended.err, HasSubstr("vorn judge: the dump 'actual/0/prob.0.17.bin' has 5 bytes"));
  EXPECT_EQ(Judge({"--quiet"}).err, ended.err);
  EXPECT_EQ(Run({"nowhere", "--expected", "expected"}).status, 3);
  EXPECT_EQ(Judge({"--map", "nowhere"}).status, 3);
}

TEST_F(JudgeVerb, EndsWithTwoForAWrongCommandLine) {
  EXPECT_EQ(Run({}).status, 2);
  EXPECT_EQ(Run({"actual"}).status, 2);
  EXPECT_EQ(Judge({"--exact", "--atol", "1"}).status, 2);
  EXPECT_THAT(Judge({"--atol", "-1"}).err,
              HasSubstr("takes a finite number from 0 on, and got '-1'"));
  for (const char* name : {"--atol", "--rtol"}) {
    const Outcome endless = Judge({name, "inf"});  // with which everything were right
    EXPECT_EQ(endless.status, 2) << name;
    EXPECT_EQ(endless.err, "vorn judge: " + std::string(name) +
                               " takes a finite number from 0 on, and got 'inf'\n");
  }
  EXPECT_THAT(Judge({"--preset", "int4"}).err,
              HasSubstr("there is no preset 'int4'; float32, float16, bfloat16, onnx, exact\n"));
  EXPECT_THAT(Judge({"--expectd", "x"}).err, HasSubstr("did you mean '--expected'?"));
}

TEST_F(JudgeVerb, TakesATolerance) {
  Dump("actual/0", {1, 2.25F});
  EXPECT_EQ(Judge({"--atol", "0.25"}).status, 0);
  EXPECT_EQ(Judge({"--rtol", "0.1"}).status, 6);
  EXPECT_EQ(Judge({"--rtol", "0.125"}).status, 0);
  EXPECT_EQ(Judge({"--preset", "onnx"}).status, 6);
  Dump("actual/0", {1, 2.0000002F});
  EXPECT_EQ(Judge({}).status, 0);
  EXPECT_EQ(Judge({"--exact"}).status, 6);
  EXPECT_EQ(Judge({"--preset", "exact"}).status, 6);
}

TEST_F(JudgeVerb, TakesRulesAndAMap) {
  Dump("actual/0", {2, 1});
  support::WriteFile(Path("rules"), R"({"schema": 1, "rules": [
      {"output": "p*", "metric": "maxAbs", "atMost": 0}]})");
  support::WriteFile(Path("map"), R"({"schema": 1, "outputs": [
      {"actual": {"name": "prob"}, "expected": {"name": "prob", "shape": [2, 1]},
       "order": [1, 0]}]})");
  const Outcome ended = Judge({"--rules", "rules", "--map", "map"});
  EXPECT_EQ(ended.status, 6) << ended.Describe();
  EXPECT_THAT(ended.out, HasSubstr("maxAbs is 1, and has to be at most 0"));
}

TEST_F(JudgeVerb, WritesTheVerdictWhereItIsAsked) {
  for (const char* quiet : {"--quiet", "-q"}) {
    const Outcome ended = Judge({"--output", ".", quiet});
    EXPECT_EQ(ended.status, 0);
    EXPECT_EQ(ended.out + ended.err, "");
  }
  EXPECT_THAT(support::ReadFile(Path("verdict.json")), HasSubstr("\"status\": 0"));
  EXPECT_THAT(support::ReadFile(Path("verdict.xml")), HasSubstr("failures=\"0\""));
}

TEST_F(JudgeVerb, NamesTheTurnsOfARun) {
  support::WriteFile(Path("run/A/run.json"), "{}");
  support::WriteFile(Path("run/B/run.json"), "{}");
  support::WriteFile(Path("run/times.jsonl"), "");
  const Outcome ended = Run({"run", "--expected", "expected"});
  EXPECT_EQ(ended.status, 3);
  EXPECT_EQ(ended.err,
            "vorn judge: 'run' holds two runs that took turns; name 'run/A' or 'run/B'\n");
}

// What was found out is not lost with the file.
TEST_F(JudgeVerb, PrintsTheVerdictThatItCannotWrite) {
  support::WriteFile(Path("run/run.json"), "{}");
  support::WriteFile(Path("run/dumps/0/prob.0.17.bin"), Bytes<float>({1, 2}));
  std::filesystem::create_directories(Path("run/verdict.json/in the way"));
  const Outcome ended = Run({"run", "--expected", "expected"});
  EXPECT_EQ(ended.status, 7);
  EXPECT_THAT(ended.out, HasSubstr("1 sample, 1 output: all right\n"));
  EXPECT_THAT(ended.err, HasSubstr("verdict.json"));
  EXPECT_THAT(Run({"run", "--expected", "expected", "--json"}).out,
              HasSubstr("\"verdict\": \"right\""));
}

// A run may come from elsewhere, and its links lead to files that nobody named.
TEST_F(JudgeVerb, WritesThroughNoLinkAndWaitsForNoPipe) {
  support::WriteFile(Path("run/run.json"), "{}");
  support::WriteFile(Path("run/dumps/0/prob.0.17.bin"), Bytes<float>({1, 2}));
  support::WriteFile(Path("other"), "mine");
  for (const char* name : {"run/verdict.json", "run/verdict.xml"}) {
    std::filesystem::create_symlink("../other", Path(name));
  }
  EXPECT_EQ(Run({"run", "--expected", "expected"}).status, 0);
  EXPECT_EQ(support::ReadFile(Path("other")), "mine");
  EXPECT_FALSE(std::filesystem::is_symlink(Path("run/verdict.json")));
  EXPECT_THAT(support::ReadFile(Path("run/verdict.json")), HasSubstr("\"verdict\": \"right\""));
  EXPECT_THAT(support::ReadFile(Path("run/verdict.xml")), HasSubstr("failures=\"0\""));
  std::filesystem::remove(Path("run/verdict.xml"));
  ASSERT_EQ(mkfifo(Path("run/verdict.xml").c_str(), 0600), 0);
  const Outcome piped = Run({"run", "--expected", "expected"});
  EXPECT_EQ(piped.status, 7);
  EXPECT_EQ(piped.err,
            "vorn judge: cannot write 'run/verdict.xml': a pipe is in its place; remove it\n");
}

TEST_F(JudgeVerb, RefusesAFolderThatIsNotThereBeforeItJudges) {
  support::WriteFile(Path("file"), "");
  support::WriteFile(Path("actual/0/prob.0.17.bin"), "12345");  // cannot be read
  const Outcome missing = Judge({"--output", "nowhere"});
  EXPECT_EQ(missing.status, 7);
  EXPECT_EQ(missing.out, "");
  EXPECT_EQ(missing.err,
            "vorn judge: --output 'nowhere' is not there; name a folder that is, or make it\n");
  EXPECT_THAT(Judge({"--output", "file"}).err, HasSubstr("--output 'file' is no folder; "));
}

TEST_F(JudgeVerb, WritesTheVerdictIntoARun) {
  support::WriteFile(Path("run/run.json"), "{}");
  support::WriteFile(Path("run/dumps/0/prob.0.17.bin"), Bytes<float>({1, 2}));
  EXPECT_EQ(Run({"run", "--expected", "expected"}).status, 0);
  EXPECT_THAT(support::ReadFile(Path("run/verdict.json")), HasSubstr("\"verdict\": \"right\""));
  EXPECT_EQ(support::ReadTree(Path("expected")).size(), 1U);
}

TEST_F(JudgeVerb, ComparesBothSidesWithLabels) {
  support::WriteFile(Path("labels.txt"), "1\n");
  EXPECT_THAT(Judge({"--labels", "labels.txt"}).out,
              HasSubstr("prob, top 1: 1, expected side 1, difference 0\n"));
  support::WriteFile(Path("labels.txt"), R"({"schema": 1, "outputs": [
      {"output": "prov", "classes": [1]}]})");
  const Outcome refused = Judge({"--labels", "labels.txt"});
  EXPECT_EQ(refused.status, 3);
  EXPECT_THAT(refused.err, HasSubstr("'prov', and there is none; did you mean 'prob'?"));
}

TEST_F(JudgeVerb, TellsWhereInsideTheDifferenceBegins) {
  for (const char* side : {"actual", "expected"}) {
    const float wrong = side == std::string("actual") ? 0.5F : 0;
    support::WriteFile(Path(side + std::string("/0/conv.0.17.bin")), Bytes<float>({1, 2}));
    support::WriteFile(Path(side + std::string("/0/mean.0.17.bin")), Bytes<float>({1 + wrong}));
  }
  support::WriteFile(Path("actual/0/extra.0.17.bin"), Bytes<float>({1, 2}));
  const Outcome ended = Judge({"--inside"});
  EXPECT_EQ(ended.status, 6) << ended.Describe();
  EXPECT_THAT(ended.out, HasSubstr("the difference begins at 'mean' (tensor 2 of 3)"));
  EXPECT_THAT(ended.out, HasSubstr("on the actual side only: extra\n"));
  EXPECT_THAT(Judge({"--inside", "--json"}).out, HasSubstr("\"largestStep\""));
  EXPECT_EQ(Judge({"--inside", "--all", "--rtol", "0.5"}).status, 0);
  EXPECT_THAT(Judge({"--all"}).err, HasSubstr("--all is for --inside, which is missing"));
  EXPECT_EQ(Judge({"--rtol", "0.5"}).status, 9);  // nothing is expected of the extra one
}

TEST_F(JudgeVerb, PrintsJson) {
  // All but how it was asked, which comes last.
  const auto judged = [](const Outcome& outcome) {
    const size_t asked = outcome.out.find("\n  \"command\": [");
    EXPECT_NE(asked, std::string::npos) << outcome.Describe();
    return outcome.out.substr(0, asked);
  };
  const Outcome ended = Judge({"--json"});
  EXPECT_EQ(judged(Judge({"--json", "--quiet"})), judged(ended));
  EXPECT_THAT(ended.out, testing::StartsWith("{\n  \"schema\": 1,\n  \"status\": 0,"));
}

}  // namespace
