// The command on the host runtime with the digits network: no part of it is scripted here.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <regex>
#include <string>
#include <vector>

#include "digits/report.h"
#include "digits/results.h"
#include "support/command.h"
#include "support/files.h"
#include "support/golden.h"
#include "support/stage.h"

namespace {

namespace fs = std::filesystem;
using support::Command;
using support::Outcome;
using support::TempDir;

const fs::path kDigits = DIGITS_FOLDER;

Command DigitsRun(const fs::path& list, const fs::path& outputFolder) {
  Command command;
  command.program = support::VornRunPath();
  command.arguments = {"-m", kDigits / "digits.onnx",
                       "-i", list,
                       "-j", kDigits / "host.json",
                       "-o", outputFolder,
                       "-p", "1"};
  command.environment["LC_ALL"] = "C";
  return command;
}

// Folders, time stamps and measured times taken out.
std::string Normalise(std::string text, const fs::path& folder) {
  const auto replaceAll = [&text](const std::string& from, const std::string& to) {
    for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at)) {
      text.replace(at, from.size(), to);
    }
  };
  replaceAll(kDigits.string(), "$DIGITS");
  replaceAll(folder.string(), "$DIR");
  return std::regex_replace(text, std::regex(R"(( Time: +)-?[0-9]+\.[0-9][0-9] ms)"), "$1T ms");
}

std::vector<float> ReadFloats(const std::string& bytes) {
  std::vector<float> values(bytes.size() / sizeof(float));
  std::memcpy(values.data(), bytes.data(), values.size() * sizeof(float));
  return values;
}

std::string TextOf(const std::vector<float>& values) {
  std::string text;
  for (const float value : values) {
    char line[80];
    std::snprintf(line, sizeof(line), "%.16f\n", static_cast<double>(value));
    text += line;
  }
  return text;
}

TEST(DigitsRun, SaysWhatItIsExpectedToSay) {
  const TempDir folder;
  support::WriteFile(folder.Path() / "list.txt", "007.bin\npicture:050.bin\n160.bin\n");
  for (const char* name : {"007.bin", "160.bin"}) {
    fs::copy(kDigits / "pictures" / name, folder.Path() / name);
  }
  // An entry that names its input is only sorted where all do; this one is a path, and missing.
  const Outcome failed = RunCommand(DigitsRun(folder.Path() / "list.txt", folder.Path()));
  EXPECT_EQ(failed.status, 1) << failed.Describe();
  EXPECT_THAT(failed.out, testing::HasSubstr("[ERROR] sample process failed\n"));

  support::WriteFile(folder.Path() / "list.txt",
                     "picture:007.bin\npicture:050.bin\npicture:160.bin\n");
  fs::copy(kDigits / "pictures/050.bin", folder.Path() / "050.bin");
  fs::create_directory(folder.Path() / "out");
  const Outcome outcome = RunCommand(DigitsRun(folder.Path() / "list.txt", folder.Path() / "out"));
  EXPECT_EQ(outcome.status, 0) << outcome.Describe();
  EXPECT_EQ(outcome.err, "");
  const fs::path golden = DIGITS_GOLDEN;
  const std::string said = Normalise(outcome.out, folder.Path());
  if (support::MustUpdateGolden()) support::WriteFile(golden, said);
  EXPECT_EQ(said, support::ReadFile(golden));
}

TEST(DigitsRun, RecognisesPicturesItHasNeverSeen) {
  const TempDir folder;
  const Outcome outcome = RunCommand(DigitsRun(kDigits / "list.txt", folder.Path()));
  ASSERT_EQ(outcome.status, 0) << outcome.Describe();

  std::vector<digits::Result> results;
  ASSERT_EQ(digits::LoadResults(kDigits.string(), folder.Path().string(), results), 0);
  ASSERT_EQ(results.size(), 200U);
  size_t recognised = 0;
  for (const digits::Result& result : results) recognised += digits::IsMisread(result) ? 0 : 1;
  EXPECT_GT(recognised, 190U);
}

TEST(DigitsRun, LeavesTheSameValuesAsTextAndAsBinary) {
  const TempDir folder;
  ASSERT_EQ(RunCommand(DigitsRun(kDigits / "list.txt", folder.Path())).status, 0);
  const auto files = support::ReadTree(folder.Path());
  ASSERT_EQ(files.size(), 400U);
  for (const auto& [name, bytes] : files) {
    if (!name.ends_with(".bin")) continue;
    const std::vector<float> values = ReadFloats(bytes);
    ASSERT_EQ(values.size(), 10U) << name;
    float sum = 0;
    for (const float value : values) sum += value;
    EXPECT_NEAR(sum, 1.0F, 1e-5F) << name;
    EXPECT_EQ(files.at(name.substr(0, name.size() - 4) + ".float"), TextOf(values)) << name;
  }
}

TEST(DigitsRun, BatchOfPicturesGivesWhatEachPictureGives) {
  // Two pictures in one file with -b 2: one inference, the probabilities one after the other.
  const TempDir folder;
  std::string pictures;
  for (const char* name : {"007.bin", "160.bin"}) {
    pictures += support::ReadFile(kDigits / "pictures" / name);
    fs::copy(kDigits / "pictures" / name, folder.Path() / name);
  }
  support::WriteFile(folder.Path() / "both.bin", pictures);
  support::WriteFile(folder.Path() / "both.txt", "both.bin\n");
  support::WriteFile(folder.Path() / "single.txt", "007.bin\n160.bin\n");
  fs::create_directory(folder.Path() / "both");
  fs::create_directory(folder.Path() / "single");
  Command both = DigitsRun(folder.Path() / "both.txt", folder.Path() / "both");
  both.arguments.insert(both.arguments.end(), {"-b", "2"});
  const Outcome outcome = RunCommand(both);
  ASSERT_EQ(outcome.status, 0) << outcome.Describe();
  ASSERT_EQ(RunCommand(DigitsRun(folder.Path() / "single.txt", folder.Path() / "single")).status,
            0);

  std::vector<float> batched;
  std::vector<float> single;
  for (const auto& [name, bytes] : support::ReadTree(folder.Path() / "both")) {
    if (name.ends_with(".bin")) batched = ReadFloats(bytes);
  }
  for (const auto& [name, bytes] : support::ReadTree(folder.Path() / "single")) {
    if (!name.ends_with(".bin")) continue;
    const std::vector<float> values = ReadFloats(bytes);
    single.insert(single.end(), values.begin(), values.end());
  }
  ASSERT_EQ(batched.size(), 20U);
  ASSERT_EQ(single.size(), 20U);
  for (size_t i = 0; i < 20; ++i) EXPECT_NEAR(batched[i], single[i], 1e-5F) << i;
}

// What a traced run did besides reading: every call that could reach a network or change a file.
std::vector<std::string> Suspicious(const std::string& trace, const fs::path& outputFolder) {
  const std::regex network(R"(\b(socket|connect|bind|sendto|sendmsg)\()");
  const std::regex writing(
      R"(\b(mkdir|mkdirat|rename|renameat|renameat2|unlink|unlinkat|link|linkat|symlink|)"
      R"(symlinkat|truncate|creat|mknod|mknodat)\(|O_WRONLY|O_RDWR|O_CREAT)");
  std::vector<std::string> lines;
  for (const std::string& line : support::SplitLines(trace)) {
    const bool writes = std::regex_search(line, writing) &&
                        line.find("\"" + outputFolder.string() + "/") == std::string::npos &&
                        line.find("\"/dev/null\"") == std::string::npos;
    if (writes || std::regex_search(line, network)) lines.push_back(line);
  }
  return lines;
}

TEST(DigitsRun, ReachesNoNetworkAndWritesIntoItsOutputFolderOnly) {
  const TempDir folder;
  const fs::path trace = folder.Path() / "trace";
  for (const char* name : {"out", "home"}) fs::create_directory(folder.Path() / name);
  Command command = DigitsRun(kDigits / "list.txt", folder.Path() / "out");
  std::vector<std::string> words{
      "-f", "-qq", "-s", "4096", "-o", trace, "-e", "trace=%file,%network", command.program};
  words.insert(words.end(), command.arguments.begin(), command.arguments.end());
  command.program = "strace";
  command.arguments = words;
  command.environment["HOME"] = (folder.Path() / "home").string();
  command.environment["ASAN_OPTIONS"] = "detect_leaks=0";  // looking for leaks is tracing, too
  Outcome outcome;
  try {
    outcome = RunCommand(command);
  } catch (const std::runtime_error&) {
    GTEST_SKIP() << "strace is not installed; scripts/setup.sh installs it";
  }
  if (outcome.err.find("PTRACE") != std::string::npos ||
      outcome.err.find("ptrace") != std::string::npos) {
    GTEST_SKIP() << "this machine lets nobody trace: " << outcome.err;
  }
  ASSERT_EQ(outcome.status, 0) << outcome.Describe();

  const std::string seen = support::ReadFile(trace);
  ASSERT_THAT(seen, testing::HasSubstr("libonnxruntime"));  // the tracer saw what matters
  ASSERT_THAT(seen, testing::HasSubstr("/out/199/"));
  EXPECT_THAT(Suspicious(seen, folder.Path() / "out"), testing::IsEmpty());
  EXPECT_TRUE(fs::is_empty(folder.Path() / "home"));
}

}  // namespace
