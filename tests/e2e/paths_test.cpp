// The paths of the command line and the entries of the list file.
#include <gtest/gtest.h>

#include <algorithm>

#include "e2e/expected.h"

namespace e2e {
namespace {

using support::Stage;
using support::Transcript;

/// A path to the stage's model that is `length` bytes long.
std::string LongModelPath(const Stage& stage, size_t length) {
  std::string path = stage.Folder().string();
  while (path.size() + std::string("/model.om").size() < length) path += '/';
  return path + "/model.om";
}

/// The lines about paths that come before the runtime does.
Lines Preparation(const Transcript& run) {
  return {run.lines.begin(),
          std::find(run.lines.begin(), run.lines.end(), "[INFO]  vorn init success")};
}

TEST(ListFile, PutsItsFolderBeforeEachEntry) {
  Stage stage;
  SetPlain(&stage);
  stage.File("data/list.txt", "a.bin\n\nin0:b.bin\n:x.bin\nx.bin:\n/abs/a.bin\nlast line.bin");
  const Transcript run =
      stage.RunWith({"-m", "model.om", "-i", "data/list.txt", "-j", "vorn.json", "-o", "out"});
  EXPECT_EQ(EntriesChecked(run), (Lines{"data/a.bin", "in0:data/b.bin", "data/:x.bin",
                                        "data/x.bin:", "data//abs/a.bin", "data/last line.bin"}));
}

TEST(ListFile, KeepsBlanksCarriageReturnsAndFurtherColons) {
  Stage stage;
  SetPlain(&stage);
  stage.File("data/list.txt", " a.bin \r\n\r\nin0:b:c\n");
  const Transcript run =
      stage.RunWith({"-m", "model.om", "-i", "data/list.txt", "-j", "vorn.json", "-o", "out"});
  EXPECT_EQ(EntriesChecked(run), (Lines{"data/ a.bin \r", "data/\r", "in0:data/b:c"}));
}

TEST(ListFile, StandsInThePresentFolderWithoutASlash) {
  Stage stage;
  SetPlain(&stage);
  const Transcript run = stage.Run();
  EXPECT_EQ(EntriesChecked(run), (Lines{"./a.bin"}));
}

TEST(ListFile, ThatCannotBeOpenedMakesAnEmptyList) {
  Stage stage;
  SetPlain(&stage);
  const Transcript run =
      stage.RunWith({"-m", "model.om", "-i", "none/list.txt", "-j", "vorn.json", "-o", "out"});
  ExpectStatus(run, 0);
  EXPECT_EQ(Preparation(run),
            (Lines{"[INFO]  inputPath: model.om", "[ERROR] open file none/list.txt failed",
                   "[INFO]  inputPath: vorn.json"}));
  ExpectLinesInOrder(run, Join({Plan(1, 0), Unloaded(), Success()}));
  ExpectClean(run);
}

TEST(ListFile, ThatIsNotNamedMakesAnEmptyListToo) {
  Stage stage;
  SetPlain(&stage);
  const Transcript run = stage.RunWith({"-m", "model.om", "-j", "vorn.json", "-o", "out"});
  ExpectStatus(run, 0);
  EXPECT_EQ(Preparation(run), (Lines{"[INFO]  inputPath: model.om", "[ERROR] open file  failed",
                                     "[INFO]  inputPath: vorn.json"}));
}

TEST(PreparePaths, ChecksModelThenConfigThenEachRpnFile) {
  Stage stage;
  SetPlain(&stage);
  const Transcript run = stage.Run({"-r", "r1,r2,"});
  EXPECT_EQ(Preparation(run), PathChecks({"model.om", "vorn.json", "r1", "r2"}));
}

TEST(PreparePaths, RefusesAnEmptyRpnPiece) {
  Stage stage;
  SetPlain(&stage);
  const Transcript run = stage.Run({"-r", "r1,,r2"});
  ExpectStatus(run, 1);
  EXPECT_EQ(run.lines, Join({PathChecks({"model.om", "vorn.json", "r1", ""}),
                             {"[ERROR] inputPath size = 0, out of range (0, 4096] error"}}));
  EXPECT_EQ(run.record.Lines(), Lines{});
}

TEST(PreparePaths, RefusesALeadingComma) {
  Stage stage;
  SetPlain(&stage);
  const Transcript run = stage.Run({"-r", ",r1"});
  ExpectStatus(run, 1);
  EXPECT_EQ(run.lines.back(), "[ERROR] inputPath size = 0, out of range (0, 4096] error");
}

TEST(PreparePaths, RefusesAMissingConfig) {
  Stage stage;
  SetPlain(&stage);
  const Transcript run = stage.RunWith({"-m", "model.om", "-i", "list.txt"});
  ExpectStatus(run, 1);
  EXPECT_EQ(run.lines, (Lines{"[INFO]  inputPath: model.om", "[INFO]  inputPath: ",
                              "[ERROR] inputPath size = 0, out of range (0, 4096] error"}));
}

TEST(PreparePaths, TakesAPathOf4096Bytes) {
  Stage stage;
  SetPlain(&stage);
  const std::string path = LongModelPath(stage, 4096);
  ASSERT_EQ(path.size(), 4096u);
  const Transcript run =
      stage.RunWith({"-m", path, "-i", "list.txt", "-j", "vorn.json", "-o", "out"});
  EXPECT_TRUE(run.HasLine("[INFO]  vorn init success")) << run.Describe();
  EXPECT_FALSE(run.HasLine("[ERROR] inputPath size = 4096, out of range (0, 4096] error"));
}

TEST(PreparePaths, RefusesAPathOf4097Bytes) {
  Stage stage;
  SetPlain(&stage);
  const std::string path = LongModelPath(stage, 4097);
  const Transcript run =
      stage.RunWith({"-m", path, "-i", "list.txt", "-j", "vorn.json", "-o", "out"});
  ExpectStatus(run, 1);
  EXPECT_EQ(run.lines, (Lines{"[INFO]  inputPath: " + stage.Normalise(path),
                              "[ERROR] inputPath size = 4097, out of range (0, 4096] error"}));
}

TEST(PreparePaths, SaysNothingAboutAPathThatDoesNotExist) {
  Stage stage;
  SetPlain(&stage);
  const Transcript run =
      stage.RunWith({"-m", "none.om", "-i", "list.txt", "-j", "none.json", "-o", "out"});
  EXPECT_EQ(Preparation(run), PathChecks({"none.om", "none.json"}));
  const std::string config = Resolved(stage, "none.json");
  EXPECT_EQ(run.record.Lines().front(), "vorn_init(\"" + config + "\") = 0");
}

TEST(PreparePaths, ReportsAPathThatCannotBeResolvedAndGoesOn) {
  Stage stage;
  SetPlain(&stage);
  const Transcript run =
      stage.RunWith({"-m", "model.om/below", "-i", "list.txt", "-j", "vorn.json", "-o", "out"});
  EXPECT_EQ(Preparation(run), (Lines{"[INFO]  inputPath: model.om/below",
                                     "[ERROR] realpath fail, input: model.om/below",
                                     "[INFO]  inputPath: vorn.json"}));
}

TEST(PreparePaths, FollowsLinksAndDots) {
  Stage stage;
  SetPlain(&stage);
  std::filesystem::create_symlink("model.om", stage.Folder() / "link.om");
  const Transcript run =
      stage.RunWith({"-m", "out/../link.om", "-i", "list.txt", "-j", "./vorn.json", "-o", "out"});
  ExpectStatus(run, 0);
  EXPECT_TRUE(run.HasLine("[INFO]  load model $DIR/model.om success"));
}

}  // namespace
}  // namespace e2e
