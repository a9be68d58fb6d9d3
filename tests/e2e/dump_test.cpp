// The files of an inference: folders, names, and folders that cannot be written to.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstring>

#include "e2e/expected.h"

namespace e2e {
namespace {

namespace fs = std::filesystem;
using support::Stage;
using support::Transcript;

/// A stage whose outputs have these names, one float each.
void SetNames(Stage* stage, const Lines& names) {
  stage->script.Input({"in0", {1, 4}, 4, 4, 4, 0}).Scratch();
  for (size_t i = 0; i < names.size(); ++i) {
    stage->script.Output({names[i], {1, 1}, 0, 4, 4, 0});
    stage->script.Line("write " + std::to_string(i) + " floats " + std::to_string(i + 1));
  }
  stage->File("a.bin", "abcd").List({"a.bin"});
}

/// The names of the binary files, and the value in each.
std::map<std::string, int> Binaries(const Transcript& run) {
  std::map<std::string, int> values;
  for (const auto& [name, bytes] : run.files) {
    const size_t end = name.rfind(".T.bin");
    if (end == std::string::npos) continue;
    float value = 0;
    if (bytes.size() == sizeof value) std::memcpy(&value, bytes.data(), sizeof value);
    values[name.substr(0, end)] = static_cast<int>(value);
  }
  return values;
}

using Names = std::map<std::string, int>;

TEST(Dump, NumbersOutputsOfOneName) {
  Stage stage;
  SetNames(&stage, {"a.b", "c", "a.b", "a.b"});
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(Binaries(run), (Names{{"0/a_b.0", 1}, {"0/c.0", 2}, {"0/a_b.1", 3}, {"0/a_b.2", 4}}));
  EXPECT_EQ(run.files.size(), 8u);
}

TEST(Dump, ComparesNamesAfterTheReplacement) {
  Stage stage;
  SetNames(&stage, {"a.b", "a_b", "a/b", "a\\b"});
  EXPECT_EQ(Binaries(stage.Run()),
            (Names{{"0/a_b.0", 1}, {"0/a_b.1", 2}, {"0/a_b.2", 3}, {"0/a_b.3", 4}}));
}

TEST(Dump, CallsAnOutputWithoutANameOutput) {
  Stage stage;
  SetNames(&stage, {"", "output", "."});
  EXPECT_EQ(Binaries(stage.Run()), (Names{{"0/output.0", 1}, {"0/output.1", 2}, {"0/_.0", 3}}));
}

TEST(Dump, MakesNoFolderOfASlash) {
  Stage stage;
  SetNames(&stage, {"x/y", "../z"});
  EXPECT_EQ(Binaries(stage.Run()), (Names{{"0/x_y.0", 1}, {"0/___z.0", 2}}));
}

TEST(Dump, TakesTheNameByIndexAndNotTheRecords) {
  Stage stage;
  SetNames(&stage, {"plain"});
  stage.script.Answer("vorn_mdl_get_output_name_by_index", "always", "\"the whole name\"");
  EXPECT_EQ(Binaries(stage.Run()), (Names{{"0/the whole name.0", 1}}));
}

TEST(Dump, MakesOneFolderAnInference) {
  Stage stage;
  SetPlain(&stage);
  stage.List({"a.bin", "a.bin", "a.bin"});
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(run.files.size(), 6u);
  for (const char* folder : {"0", "1", "2"}) {
    EXPECT_EQ(run.files.count(std::string(folder) + "/prob.0.T.bin"), 1u) << folder;
  }
}

TEST(Dump, GivesTheFolderItsMode) {
  Stage stage;
  SetPlain(&stage);
  const mode_t mask = umask(0002);
  const Transcript run = stage.Run();
  umask(mask);
  struct stat info {};
  ASSERT_EQ(stat((stage.Folder() / "out/0").c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0775u);
}

TEST(Dump, UsesAFolderThatIsThere) {
  Stage stage;
  SetPlain(&stage);
  stage.File("out/0/old", "old");
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(run.files.size(), 3u);
  EXPECT_EQ(run.files.at("0/old"), "old");
}

TEST(Dump, MakesAnEmptyFolderForAModelWithoutOutputs) {
  Stage stage;
  SetNames(&stage, {});
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_TRUE(fs::is_directory(stage.Folder() / "out/0"));
  EXPECT_TRUE(run.files.empty());
  ExpectLinesInOrder(run, Join({ExecutedAndDumped({}), Unloaded()}));
}

TEST(Dump, ReportsEachFileThatCannotBeMadeAndSucceeds) {
  Stage stage;
  SetPlain(&stage);
  const Transcript run =
      stage.RunWith({"-m", "model.om", "-i", "list.txt", "-j", "vorn.json", "-o", "not/there"});
  ExpectStatus(run, 0);
  EXPECT_EQ(FromFirstError(run),
            Join({{"[ERROR] create output file [not/there/0/prob.0.T.float] failed",
                   "[ERROR] create output file [not/there/0/prob.0.T.bin] failed",
                   "[INFO]  dump data success"},
                  Unloaded(),
                  Success()}));
  EXPECT_FALSE(fs::exists(stage.Folder() / "not"));
  ExpectClean(run);
}

TEST(Dump, ReportsAFileInTheFoldersPlace) {
  Stage stage;
  SetPlain(&stage);
  stage.File("out/0", "in the way");
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  ExpectLinesInOrder(
      run, {"[ERROR] create output file [out/0/prob.0.T.float] failed",
            "[ERROR] create output file [out/0/prob.0.T.bin] failed", "[INFO]  dump data success"});
  EXPECT_EQ(run.files, (std::map<std::string, std::string>{{"0", "in the way"}}));
}

TEST(Dump, PutsASlashBehindTheFolderWhateverItEndsWith) {
  Stage stage;
  SetPlain(&stage);
  const Transcript run =
      stage.RunWith({"-m", "model.om", "-i", "list.txt", "-j", "vorn.json", "-o", "not/"});
  ExpectLinesInOrder(run, {"[ERROR] create output file [not//0/prob.0.T.float] failed"});
}

TEST(Dump, WritesEveryLineOfALargeOutput) {
  // More lines than one write takes, of lengths that put its border at any place in a line.
  constexpr size_t kValues = 20000;
  Stage stage;
  stage.script.Input({"in", {1, 4}, 0, 16, 16, 0})
      .Scratch()
      .Output({"o", {1, kValues}, 2, kValues, kValues, 0})
      .Line("write 0 counter 0");
  stage.File("a.bin", support::CountingBytes(16)).List({"a.bin"});
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  std::string text;
  std::vector<float> values;
  for (size_t i = 0; i < kValues; ++i) {
    const int value = i % 256 < 128 ? static_cast<int>(i % 256) : static_cast<int>(i % 256) - 256;
    text += std::to_string(value) + ".0000000000000000\n";
    values.push_back(static_cast<float>(value));
  }
  ASSERT_EQ(run.files.count("0/o.0.T.float"), 1u) << run.Describe();
  EXPECT_TRUE(run.files.at("0/o.0.T.float") == text);
  EXPECT_TRUE(run.files.at("0/o.0.T.bin") == support::Bytes(values));
}

}  // namespace
}  // namespace e2e
