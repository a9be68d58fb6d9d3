// Where the dumps go and cannot go: folders that are missing, shut, read-only or full, names that
// are too long or hold odd bytes. Whatever happens there, the run is a success.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>

#include "e2e/expected.h"
#include "e2e/surroundings.h"

namespace e2e {
namespace {

namespace fs = std::filesystem;
using support::Stage;
using support::Transcript;

std::vector<std::string> OutputTo(const std::string& folder) {
  return {"-m", "model.om", "-i", "list.txt", "-j", "vorn.json", "-o", folder};
}

/// The two lines about the files of the plain run's output.
Lines NotMade(const std::string& folder) {
  return {"[ERROR] create output file [" + folder + "/prob.0.T.float] failed",
          "[ERROR] create output file [" + folder + "/prob.0.T.bin] failed"};
}

/// The run says that neither file could be made, and nothing else went wrong.
void ExpectNotMade(const Transcript& run, const std::string& folder) {
  ExpectStatus(run, 0);
  EXPECT_EQ(FromFirstError(run),
            Join({NotMade(folder), {"[INFO]  dump data success"}, Unloaded(), Success()}))
      << run.Describe();
  EXPECT_TRUE(run.files.empty());
  ExpectClean(run);
}

/// Puts an output of one float and this name, as it is asked for by index, on the stage.
void SetName(Stage* stage, const std::string& name) {
  stage->script.Input({"in0", {1, 4}, 4, 4, 4, 0})
      .Scratch()
      .Output({"short", {1, 1}, 0, 4, 4, 0})
      .Line("write 0 floats 1")
      .Answer("vorn_mdl_get_output_name_by_index", "always", name);
  stage->File("a.bin", "abcd").List({"a.bin"});
}

/// An output of so many floats that its text is many times longer than what `SetLarge` allows.
std::string LargeOutput() { return support::CountingBytes(1U << 16); }

void SetLarge(Stage* stage) {
  stage->script.Input({"in0", {1, 4}, 4, 4, 4, 0})
      .Scratch()
      .Output({"o", {1, 1 << 14}, 0, 1 << 16, 1 << 16, 0})
      .Line("write 0 counter 0");
  stage->File("a.bin", "abcd").List({"a.bin"});
}

std::string LargeText() {
  const std::string bytes = LargeOutput();
  std::vector<float> values(bytes.size() / sizeof(float));
  std::copy(bytes.begin(), bytes.end(), reinterpret_cast<char*>(values.data()));
  return TextDump(values);
}

TEST(OutputFolder, ThatIsAFileOrADeviceOrAPipeMakesNoFiles) {
  for (const char* name : {"file", "fifo", "/dev/null", "/proc/self"}) {
    SCOPED_TRACE(name);
    Stage stage;
    SetPlain(&stage);
    stage.File("file", "in the way");
    ASSERT_EQ(mkfifo((stage.Folder() / "fifo").c_str(), 0600), 0);
    ExpectNotMade(stage.RunWith(OutputTo(name)), std::string(name) + "/0");
    EXPECT_EQ(support::ReadFile(stage.Folder() / "file"), "in the way");
  }
}

TEST(OutputFolder, BehindACircleOfLinksMakesNoFiles) {
  Stage stage;
  SetPlain(&stage);
  fs::create_symlink("loop", stage.Folder() / "loop");
  ExpectNotMade(stage.RunWith(OutputTo("loop")), "loop/0");
}

TEST(OutputFolder, OfAnInferenceMayBeALink) {
  Stage stage;
  SetPlain(&stage);
  fs::create_directory(stage.Folder() / "elsewhere");
  fs::create_symlink("../elsewhere", stage.Folder() / "out/0");
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(run.lines, PlainRun(stage.script));
  EXPECT_EQ(support::ReadTree(stage.Folder() / "elsewhere").size(), 2u);
}

TEST(OutputFolder, OfAnInferenceInACircleMakesNoFiles) {
  Stage stage;
  SetPlain(&stage);
  fs::create_symlink("0", stage.Folder() / "out/0");
  ExpectNotMade(stage.Run(), "out/0");
}

TEST(OutputFolder, ThatIsAPipeForAnInferenceMakesNoFilesAndDoesNotHang) {
  Stage stage;
  SetPlain(&stage);
  ASSERT_EQ(mkfifo((stage.Folder() / "out/0").c_str(), 0600), 0);
  ExpectNotMade(stage.Run(), "out/0");
}

TEST(OutputFolder, ThatMayNotBeWrittenToMakesNoFiles) {
  for (const char* shut : {"out", "out/0"}) {
    SCOPED_TRACE(shut);
    Stage stage;
    SetPlain(&stage);
    stage.launcher = WithoutPrivileges();
    if (!CanLaunch(stage.launcher)) GTEST_SKIP() << "the superuser's rights cannot be dropped here";
    fs::create_directories(stage.Folder() / shut);
    fs::permissions(stage.Folder() / shut, fs::perms::owner_read | fs::perms::owner_exec);
    ExpectNotMade(stage.Run(), "out/0");
    fs::permissions(stage.Folder() / shut, fs::perms::owner_all);
  }
}

TEST(OutputFolder, OnAReadOnlyDiskMakesNoFiles) {
  Stage stage;
  SetPlain(&stage);
  stage.launcher = WithOwnMounts("mount -t tmpfs -o ro none out");
  if (!CanLaunch(WithOwnMounts("mount -t tmpfs none /mnt")))
    GTEST_SKIP() << "nothing can be mounted";
  ExpectNotMade(stage.Run(), "out/0");
}

// The name is put together as it is, so that no folder means the root of all files. The run is
// given a root that cannot be written to.
TEST(OutputFolder, ThatIsNotNamedMeansTheRoot) {
  Stage stage;
  SetPlain(&stage);
  const std::string above = stage.Folder().parent_path().string();
  stage.launcher =
      WithOwnMounts("mount --bind " + above + " " + above +
                    " && mount -o remount,bind,ro / && cd '" + stage.Folder().string() + "'");
  if (!CanLaunch(stage.launcher)) GTEST_SKIP() << "the root cannot be made read-only";
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"-m", "model.om", "-i", "list.txt", "-j", "vorn.json"},
        OutputTo("")}) {
    ExpectNotMade(stage.RunWith(words), "/0");
  }
}

TEST(OutputFolder, OnAFullDiskIsWrittenAsFarAsItGoes) {
  Stage stage;
  SetLarge(&stage);
  // Four pages hold neither of the files; what fits is left for the test to see.
  const std::string script =
      "mount -t tmpfs -o size=16k none out && \"$@\"; status=$?; "
      "mkdir copy && cp -r out/0 copy; exit $status";
  stage.launcher = {"unshare", geteuid() == 0 ? "-m" : "-Urm", "/bin/sh", "-c", script, "sh"};
  if (!CanLaunch(WithOwnMounts("mount -t tmpfs none /mnt")))
    GTEST_SKIP() << "nothing can be mounted";
  stage.outputFolder = "copy";
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(FromFirstError(run), Lines{});
  ExpectLinesInOrder(run, ExecutedAndDumped({0}));
  ASSERT_EQ(run.files.size(), 2u) << run.Describe();
  const std::string& text = run.files.at("0/o.0.T.float");
  const std::string whole = LargeText();
  EXPECT_GT(text.size(), 0u);
  EXPECT_LT(text.size(), whole.size());
  EXPECT_EQ(text, whole.substr(0, text.size()));
  const std::string& binary = run.files.at("0/o.0.T.bin");
  EXPECT_EQ(binary, LargeOutput().substr(0, binary.size()));
  ExpectClean(run);
}

TEST(OutputFile, BeyondTheSizeLimitIsWrittenAsFarAsItGoes) {
  Stage stage;
  SetLarge(&stage);
  stage.launcher = AfterShell("trap '' XFSZ && ulimit -f 64");
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(FromFirstError(run), Lines{});
  ASSERT_EQ(run.files.size(), 2u) << run.Describe();
  const std::string& text = run.files.at("0/o.0.T.float");
  const std::string whole = LargeText();
  EXPECT_GT(text.size(), 0u);
  EXPECT_LT(text.size(), whole.size());
  EXPECT_EQ(text, whole.substr(0, text.size()));
  const std::string& binary = run.files.at("0/o.0.T.bin");
  EXPECT_EQ(binary, LargeOutput().substr(0, binary.size()));
}

TEST(OutputFile, BeyondTheSizeLimitEndsTheRunByItsSignal) {
  Stage stage;
  SetLarge(&stage);
  stage.launcher = AfterShell("ulimit -f 64");
  EXPECT_EQ(stage.Run().signal, SIGXFSZ);
}

TEST(OutputFile, OfAnEarlierRunStays) {
  Stage stage;
  SetPlain(&stage);
  ExpectStatus(stage.Run(), 0);
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(run.lines, PlainRun(stage.script));
  EXPECT_EQ(run.rawFileNames.size(), 4u) << "the time stamps tell the runs apart";
}

// A file name has room for 255 bytes; `.0.`, the time stamp and `.float` take 25 of them.
TEST(OutputName, OfTwoHundredAndThirtyBytesFitsBothFiles) {
  Stage stage;
  const std::string name(230, 'n');
  SetName(&stage, '"' + name + '"');
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(FromFirstError(run), Lines{});
  EXPECT_EQ(run.files.count("0/" + name + ".0.T.float"), 1u);
  EXPECT_EQ(run.files.count("0/" + name + ".0.T.bin"), 1u);
}

TEST(OutputName, OfTwoHundredAndThirtyOneBytesFitsTheBinaryFileOnly) {
  Stage stage;
  const std::string name(231, 'n');
  SetName(&stage, '"' + name + '"');
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(FromFirstError(run),
            Join({{"[ERROR] create output file [out/0/" + name + ".0.T.float] failed",
                   "[INFO]  dump data success"},
                  Unloaded(),
                  Success()}));
  EXPECT_EQ(run.files.size(), 1u);
  EXPECT_EQ(run.files.count("0/" + name + ".0.T.bin"), 1u);
}

TEST(OutputName, ThatIsTooLongMakesNoFiles) {
  for (const size_t length : {233, 255, 256, 5000}) {
    SCOPED_TRACE(length);
    Stage stage;
    const std::string name(length, 'n');
    SetName(&stage, '"' + name + '"');
    const Transcript run = stage.Run();
    ExpectStatus(run, 0);
    ExpectLinesInOrder(run, {"[ERROR] create output file [out/0/" + name + ".0.T.float] failed",
                             "[ERROR] create output file [out/0/" + name + ".0.T.bin] failed",
                             "[INFO]  dump data success"});
    EXPECT_TRUE(run.files.empty());
    ExpectClean(run);
  }
}

TEST(OutputName, KeepsBytesThatAreNoText) {
  const struct {
    const char* script;
    std::string file;
  } cases[] = {
      {R"("a\nb")", "a\nb"},
      {R"("\xff\xfe\x80")", "\xff\xfe\x80"},
      {R"("\x01 \x7f\t")", "\x01 \x7f\t"},
      {R"("%s%n%d")", "%s%n%d"},
      {R"("-rf *")", "-rf *"},
      {R"("a\x00b")", "a"},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(each.script);
    Stage stage;
    SetName(&stage, each.script);
    const Transcript run = stage.Run();
    ExpectStatus(run, 0);
    EXPECT_EQ(run.files.count("0/" + each.file + ".0.T.bin"), 1u) << run.Describe();
    EXPECT_EQ(run.files.count("0/" + each.file + ".0.T.float"), 1u);
  }
}

TEST(OutputName, IsPrintedAsItIsWhereTheFileCannotBeMade) {
  Stage stage;
  SetName(&stage, R"("%s\n\xff")");
  const Transcript run = stage.RunWith(OutputTo("not"));
  ExpectLinesInOrder(run, {"[ERROR] create output file [not/0/%s", "\xff.0.T.float] failed",
                           "[ERROR] create output file [not/0/%s", "\xff.0.T.bin] failed"});
}

}  // namespace
}  // namespace e2e
