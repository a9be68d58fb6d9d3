#include "app/parse_args.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <vector>

namespace vorn::run {
namespace {

// `getopt` keeps its place in the command line between calls; 0 makes it start anew.
SampleOptions Parse(std::vector<std::string> words) {
  words.insert(words.begin(), "vorn-run");
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  optind = 0;
  SampleOptions options;
  ParseArgs(options, static_cast<int>(words.size()), argv.data());
  return options;
}

template <typename Exception>
std::string WhatIsThrown(const std::vector<std::string>& words) {
  try {
    Parse(words);
  } catch (const Exception& exception) {
    return exception.what();
  }
  return "nothing";
}

TEST(ParseArgs, KeepsDefaultsWithoutOptions) {
  const SampleOptions options = Parse({});
  EXPECT_EQ(options.modelPath, "");
  EXPECT_EQ(options.imagePath, "");
  EXPECT_EQ(options.vornJsonPath, "");
  EXPECT_EQ(options.rpnData, "");
  EXPECT_EQ(options.outputPath, "");
  EXPECT_EQ(options.batchSize, 1);
  EXPECT_EQ(options.nlpTotalT, -1);
  EXPECT_EQ(options.profile, 0);
}

TEST(ParseArgs, StoresEveryOptionInItsField) {
  const SampleOptions options = Parse({"-m", "a.om", "-i", "b.txt", "-j", "c.json", "-r", "d,e",
                                       "-o", "out", "-b", "4", "-t", "20", "-p", "1"});
  EXPECT_EQ(options.modelPath, "a.om");
  EXPECT_EQ(options.imagePath, "b.txt");
  EXPECT_EQ(options.vornJsonPath, "c.json");
  EXPECT_EQ(options.rpnData, "d,e");
  EXPECT_EQ(options.outputPath, "out");
  EXPECT_EQ(options.batchSize, 4);
  EXPECT_EQ(options.nlpTotalT, 20);
  EXPECT_EQ(options.profile, 1);
}

TEST(ParseArgs, PrintsTheNumbersItTook) {
  testing::internal::CaptureStdout();
  Parse({"-b", "3", "-p", "1", "-t", "20", "-b", "5"});
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "[INFO]  batchSize: 3\n[INFO]  nlpTotalT: 20\n[INFO]  batchSize: 5\n");
}

TEST(ParseArgs, LetsTheLastOccurrenceWin) {
  EXPECT_EQ(Parse({"-m", "a", "-m", "b"}).modelPath, "b");
  EXPECT_EQ(Parse({"-b", "3", "-b", "5"}).batchSize, 5);
}

TEST(ParseArgs, TakesTheWordAtTwiceTheOptionsNumber) {
  // -b2 is one word, so every later value is taken one word too far to the right.
  const SampleOptions options = Parse({"-b2", "7", "-m", "x", "-o", "y", "z"});
  EXPECT_EQ(options.batchSize, 7);
  EXPECT_EQ(options.modelPath, "x");
  EXPECT_EQ(options.outputPath, "y");
}

TEST(ParseArgs, CountsTwoWordsForAnUnknownOption) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  const std::string what = WhatIsThrown<std::logic_error>({"-x", "-m", "model", "-i", "list"});
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "[ERROR] example: -m modelPath -i imagePath -j vornJsonPath [-t nlpTotalT] "
            "[-b batchSize] [-r rpnData] [-p profile] [-o outputPath]\n");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "vorn-run: invalid option -- 'x'\n");
  EXPECT_EQ(what, "basic_string::_M_construct null not valid");
}

TEST(ParseArgs, RaisesALogicErrorForAMissingWord) {
  // The attached value satisfies getopt; the word that counts is past the end.
  EXPECT_EQ(WhatIsThrown<std::logic_error>({"-b4"}), "basic_string::_M_construct null not valid");
  EXPECT_EQ(WhatIsThrown<std::logic_error>({"-mfile"}),
            "basic_string::_M_construct null not valid");
}

TEST(StringToInt, TakesTheNumberAtTheStart) {
  EXPECT_EQ(StringToInt("12abc"), 12);
  EXPECT_EQ(StringToInt(" \t+7"), 7);
  EXPECT_EQ(StringToInt("-0"), 0);
  EXPECT_EQ(StringToInt("0x10"), 0);
}

TEST(StringToInt, ReachesBothEndsOfItsRange) {
  EXPECT_EQ(StringToInt("2147483647"), 2147483647);
  EXPECT_EQ(StringToInt("-2147483648"), -2147483647 - 1);
}

TEST(StringToInt, RefusesWhatIsNoNumber) {
  EXPECT_EQ(WhatIsThrown<std::invalid_argument>({"-b", "abc"}), "stoi");
  EXPECT_EQ(WhatIsThrown<std::invalid_argument>({"-t", ""}), "stoi");
}

TEST(StringToInt, RefusesWhatDoesNotFit) {
  EXPECT_EQ(WhatIsThrown<std::out_of_range>({"-b", "2147483648"}), "stoi");
  EXPECT_EQ(WhatIsThrown<std::out_of_range>({"-b", "-2147483649"}), "stoi");
  EXPECT_EQ(WhatIsThrown<std::out_of_range>({"-p", "99999999999999999999"}), "stoi");
}

TEST(StringToInt, IsNotMisledByAnEarlierError) {
  errno = ERANGE;
  EXPECT_EQ(StringToInt("7"), 7);
}

}  // namespace
}  // namespace vorn::run
