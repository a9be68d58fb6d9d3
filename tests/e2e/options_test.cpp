// The command line: which word is whose value, the numbers, and what ends the process there.
#include <gtest/gtest.h>
#include <signal.h>

#include "e2e/expected.h"

namespace e2e {
namespace {

using support::Stage;
using support::Transcript;

constexpr char kUsage[] =
    "[ERROR] example: -m modelPath -i imagePath -j vornJsonPath [-t nlpTotalT] [-b batchSize] "
    "[-r rpnData] [-p profile] [-o outputPath]";

/// What follows when no model path was given.
const Lines kNoModelPath{"[INFO]  inputPath: ",
                         "[ERROR] inputPath size = 0, out of range (0, 4096] error"};

Transcript RunWords(const std::vector<std::string>& words) {
  Stage stage;
  SetPlain(&stage);
  return stage.RunWith(words);
}

void ExpectAbort(const Transcript& run, const std::string& error, const std::string& text) {
  EXPECT_EQ(run.signal, SIGABRT) << run.Describe();
  EXPECT_NE(run.err.find(error), std::string::npos) << run.err;
  EXPECT_NE(run.err.find(text), std::string::npos) << run.err;
  EXPECT_EQ(run.record.Lines(), Lines{}) << "the runtime was touched";
  EXPECT_FALSE(run.HasLine(kUsage));
}

TEST(Options, WithoutAnyTheModelPathIsRefused) {
  const Transcript run = RunWords({});
  ExpectStatus(run, 1);
  EXPECT_EQ(run.lines, kNoModelPath);
  EXPECT_EQ(run.err, "");
  EXPECT_EQ(run.record.Lines(), Lines{});
}

TEST(Options, ReportBatchSizeAndStepsButNotTheProfile) {
  const Transcript run = RunWords({"-b", "4", "-t", "20", "-p", "1"});
  ExpectStatus(run, 1);
  EXPECT_EQ(run.lines, Join({{"[INFO]  batchSize: 4", "[INFO]  nlpTotalT: 20"}, kNoModelPath}));
}

TEST(Options, LetTheLastOccurrenceWin) {
  Stage stage;
  SetPlain(&stage);
  stage.File("a.bin", std::string(5 * 24, 'x'));
  const Transcript run = stage.RunWith({"-m", "nothing.om", "-b", "3", "-i", "list.txt", "-j",
                                        "vorn.json", "-o", "out", "-m", "model.om", "-b", "5"});
  ExpectStatus(run, 0);
  EXPECT_EQ(run.lines[0], "[INFO]  batchSize: 3");
  EXPECT_EQ(run.lines[1], "[INFO]  batchSize: 5");
  EXPECT_EQ(run.lines[2], "[INFO]  inputPath: model.om");
  EXPECT_EQ(run.record.CallsOf("vorn_mdl_set_dynamic_batch_size"),
            (Lines{"vorn_mdl_set_dynamic_batch_size(1, dataset#2, 0, 5) = 0"}));
}

TEST(Options, ReadNumbersAsFarAsTheyGo) {
  EXPECT_EQ(RunWords({"-b", "2x"}).lines[0], "[INFO]  batchSize: 2");
  EXPECT_EQ(RunWords({"-b", " \t+7"}).lines[0], "[INFO]  batchSize: 7");
  EXPECT_EQ(RunWords({"-b", "-3"}).lines[0], "[INFO]  batchSize: -3");
  EXPECT_EQ(RunWords({"-b", "010"}).lines[0], "[INFO]  batchSize: 10");
  EXPECT_EQ(RunWords({"-b", "0x10"}).lines[0], "[INFO]  batchSize: 0");
  EXPECT_EQ(RunWords({"-t", "2147483647"}).lines[0], "[INFO]  nlpTotalT: 2147483647");
  EXPECT_EQ(RunWords({"-t", "-2147483648"}).lines[0], "[INFO]  nlpTotalT: -2147483648");
}

TEST(Options, EndTheProcessOverAWordThatIsNoNumber) {
  for (const char* option : {"-b", "-t", "-p"}) {
    for (const char* value : {"x2", "", "-", " "}) {
      SCOPED_TRACE(std::string(option) + " '" + value + "'");
      ExpectAbort(RunWords({option, value}), "std::invalid_argument", "stoi");
    }
  }
}

TEST(Options, EndTheProcessOverANumberThatDoesNotFit) {
  for (const char* option : {"-b", "-t", "-p"}) {
    for (const char* value : {"3000000000", "2147483648", "-2147483649", "99999999999999999999"}) {
      SCOPED_TRACE(std::string(option) + " " + value);
      ExpectAbort(RunWords({option, value}), "std::out_of_range", "stoi");
    }
  }
}

TEST(Options, ShowWhatWasSaidBeforeTheProcessEnded) {
  const Transcript run = RunWords({"-b", "4", "-t", "x"});
  ExpectAbort(run, "std::invalid_argument", "stoi");
  EXPECT_EQ(run.lines, (Lines{"[INFO]  batchSize: 4"}));
}

TEST(Options, GoOnAfterALetterThatIsUnknown) {
  const Transcript run = RunWords({"-x"});
  ExpectStatus(run, 1);
  EXPECT_EQ(run.lines, Join({{kUsage}, kNoModelPath}));
  EXPECT_NE(run.err.find("invalid option -- 'x'"), std::string::npos) << run.err;
}

TEST(Options, GoOnAfterAValueThatIsMissing) {
  const Transcript run = RunWords({"-b"});
  ExpectStatus(run, 1);
  EXPECT_EQ(run.lines, Join({{kUsage}, kNoModelPath}));
  EXPECT_NE(run.err.find("option requires an argument -- 'b'"), std::string::npos) << run.err;
}

// After -x the values are looked for two words on: -m gets "-i", -i gets "-j", -j the last word.
TEST(Options, ShiftTheValuesBehindAnUnknownLetter) {
  const Transcript run =
      RunWords({"-x", "-m", "model.om", "-i", "list.txt", "-j", "vorn.json", "tail"});
  ExpectStatus(run, 1);
  const Lines start(run.lines.begin(), run.lines.begin() + 5);
  EXPECT_EQ(start, (Lines{kUsage, "[INFO]  inputPath: -i", "[ERROR] open file -j failed",
                          "[INFO]  inputPath: tail", "[INFO]  vorn init success"}));
  EXPECT_TRUE(run.HasLine("[ERROR] load model from file failed, model file is $DIR/-i"));
}

TEST(Options, ShiftTheValuesBehindAnAttachedOne) {
  EXPECT_EQ(RunWords({"-b4", "7"}).lines[0], "[INFO]  batchSize: 7");
  ExpectAbort(RunWords({"-b4", "-m", "model.om"}), "std::invalid_argument", "stoi");
}

TEST(Options, EndTheProcessWhereTheWordsEndBeforeTheNumber) {
  for (const char* option : {"-b4", "-t4", "-p1"}) {
    SCOPED_TRACE(option);
    ExpectAbort(RunWords({option}), "std::logic_error",
                "basic_string::_M_construct null not valid");
  }
}

TEST(Options, SwitchProfilingOnWithOneOnly) {
  for (const char* value : {"0", "2", "-1"}) {
    SCOPED_TRACE(value);
    Stage stage;
    SetPlain(&stage);
    const Transcript run = stage.Run({"-p", value});
    ExpectStatus(run, 0);
    EXPECT_EQ(run.lines, PlainRun(stage.script));
    EXPECT_EQ(run.record.CallsOf("vorn_mdl_execute").size(), 1u);
  }
}

}  // namespace
}  // namespace e2e
