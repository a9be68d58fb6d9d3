// What stands where a file is expected: folders, devices, pipes, links in circles, files that may
// not be read or are not as long as they say. Each of them in each of the roles a file has.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "e2e/expected.h"
#include "e2e/surroundings.h"

namespace e2e {
namespace {

namespace fs = std::filesystem;
using support::Stage;
using support::TensorSpec;
using support::Transcript;

constexpr char kNoBuffer[] = "[ERROR] get pic device buffer failed";
constexpr char kNoRpn[] = "[ERROR] read rpn para error";

/// The words of a plain command line, with other files in two of the roles.
std::vector<std::string> Words(const std::string& model, const std::string& list,
                               const std::string& config = "vorn.json") {
  return {"-m", model, "-i", list, "-j", config, "-o", "out"};
}

void MakeFifo(const Stage& stage, const std::string& name) {
  ASSERT_EQ(mkfifo((stage.Folder() / name).c_str(), 0600), 0);
}

/// Two links that point at each other.
void MakeCircle(const Stage& stage, const std::string& name) {
  fs::create_symlink(name + "2", stage.Folder() / name);
  fs::create_symlink(name, stage.Folder() / (name + "2"));
}

void Forbid(const Stage& stage, const std::string& name) {
  fs::permissions(stage.Folder() / name, fs::perms::none);
}

/// A stage with one data input, one rpn input and a file for the first.
void SetRpn(Stage* stage) {
  stage->script.Input({"in0", {1, 4}, 0, 16, 16, 0}).Input({"rpn", {1, 4}, 0, 16, 16, 0}).Scratch();
  stage->File("a.bin", support::CountingBytes(16)).List({"a.bin"});
}

Lines NotLoaded(const std::string& model) {
  return Join({{"[ERROR] load model from file failed, model file is " + model,
                "[ERROR] execute LoadModelFromFileWithMem failed",
                "[WARN]  no model had been loaded, unload failed"},
               ProcessFailed()});
}

Lines RpnFailed(const Lines& cause) {
  return Join({cause, {kNoRpn, "[ERROR] Set rpn data failed"}, Unloaded(), ProcessFailed()});
}

/// The run ended by itself in a failure, printed these lines, and released everything.
void ExpectFailure(const Transcript& run, const Lines& told) {
  ExpectStatus(run, 1);
  EXPECT_EQ(FromFirstError(run), told) << run.Describe();
  ExpectClean(run);
}

// --- The model.

TEST(ModelFile, ThatIsADeviceIsNoFileAndEmpty) {
  for (const char* device : {"/dev/null", "/dev/zero"}) {
    SCOPED_TRACE(device);
    Stage stage;
    SetPlain(&stage);
    const std::string name = device;
    ExpectFailure(stage.RunWith(Words(name, "list.txt")),
                  Join({{"[ERROR] " + name + " is not a file, please enter a file",
                         "[ERROR] binfile is empty, filename is " + name},
                        NotLoaded(name)}));
  }
}

// What a pipe answers to a seek decides whether the second reader counts it as loaded; a writer
// that never comes must not keep the run waiting either way.
TEST(ModelFile, ThatIsAPipeIsNoFileAndDoesNotHang) {
  Stage stage;
  SetPlain(&stage);
  MakeFifo(stage, "fifo");
  const Transcript run = stage.RunWith(Words("fifo", "list.txt"));
  EXPECT_TRUE(run.status == 1 || run.EndedByDivision()) << run.Describe();
  ExpectLinesInOrder(run, {"[ERROR] $DIR/fifo is not a file, please enter a file"});
  EXPECT_EQ(run.record.CallsOf("vorn_mdl_load_from_mem").front().substr(0, 31),
            "vorn_mdl_load_from_mem(null, 0)");
}

TEST(ModelFile, BehindACircleOfLinksIsReportedAndNotFound) {
  Stage stage;
  SetPlain(&stage);
  MakeCircle(stage, "loop");
  const Transcript run = stage.RunWith(Words("loop", "list.txt"));
  const std::string left = Resolved(stage, "loop");
  ExpectStatus(run, 1);
  EXPECT_EQ(run.lines,
            Join({{"[INFO]  inputPath: loop", "[ERROR] realpath fail, input: loop",
                   "[INFO]  inputPath: vorn.json"},
                  BringUp(),
                  {"[ERROR] failed to get file " + left, "[ERROR] open file " + left + " failed"},
                  NotLoaded(left)}));
}

TEST(ModelFile, ThatMayNotBeReadIsReportedOnceForEachReading) {
  Stage stage;
  SetPlain(&stage);
  stage.launcher = WithoutPrivileges();
  if (!CanLaunch(stage.launcher)) GTEST_SKIP() << "the superuser's rights cannot be dropped here";
  Forbid(stage, "model.om");
  ExpectFailure(
      stage.Run(),
      Join({{"[ERROR] open file $DIR/model.om failed", "[ERROR] open file $DIR/model.om failed"},
            NotLoaded("$DIR/model.om")}));
}

TEST(ModelFile, InAFolderThatMayNotBeEnteredIsReportedAndNotFound) {
  Stage stage;
  SetPlain(&stage);
  stage.launcher = WithoutPrivileges();
  if (!CanLaunch(stage.launcher)) GTEST_SKIP() << "the superuser's rights cannot be dropped here";
  stage.File("shut/model.om", "m");
  Forbid(stage, "shut");
  const Transcript run = stage.RunWith(Words("shut/model.om", "list.txt"));
  fs::permissions(stage.Folder() / "shut", fs::perms::owner_all);
  ExpectStatus(run, 1);
  EXPECT_EQ(run.lines[1], "[ERROR] realpath fail, input: shut/model.om");
  ExpectLinesInOrder(run, {"[INFO]  vorn init success"});
  EXPECT_EQ(run.record.CallsOf("vorn_mdl_load_from_mem"),
            (Lines{"vorn_mdl_load_from_mem(null, 0) = 1"}));
}

// --- The configuration, which is the runtime's to read.

TEST(ConfigFile, OfAnyKindIsHandedToTheRuntime) {
  Stage stage;
  SetPlain(&stage);
  MakeFifo(stage, "fifo");
  for (const auto& [given, resolved] : std::map<std::string, std::string>{
           {"out", "$DIR/out"}, {"fifo", "$DIR/fifo"}, {"/dev/null", "/dev/null"}}) {
    SCOPED_TRACE(given);
    const Transcript run = stage.RunWith(Words("model.om", "list.txt", given));
    ExpectStatus(run, 0);
    EXPECT_EQ(run.record.CallsOf("vorn_init"), (Lines{"vorn_init(\"" + resolved + "\") = 0"}));
  }
}

TEST(ConfigFile, BehindACircleOfLinksIsReportedAndHandedOn) {
  Stage stage;
  SetPlain(&stage);
  MakeCircle(stage, "loop");
  const Transcript run = stage.RunWith(Words("model.om", "list.txt", "loop"));
  ExpectStatus(run, 0);
  ExpectLinesInOrder(run, {"[INFO]  inputPath: loop", "[ERROR] realpath fail, input: loop",
                           "[INFO]  vorn init success"});
  EXPECT_EQ(run.record.CallsOf("vorn_init"),
            (Lines{"vorn_init(\"" + Resolved(stage, "loop") + "\") = 0"}));
}

TEST(ConfigFile, ThatMayNotBeReadIsHandedOnWithoutAWord) {
  Stage stage;
  SetPlain(&stage);
  stage.launcher = WithoutPrivileges();
  if (!CanLaunch(stage.launcher)) GTEST_SKIP() << "the superuser's rights cannot be dropped here";
  Forbid(stage, "vorn.json");
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(run.lines, PlainRun(stage.script));
}

// --- The list.

/// The run goes on with no entry, and says nothing about the list, or this line.
void ExpectEmptyList(const Transcript& run, const Lines& told) {
  ExpectStatus(run, 0);
  EXPECT_EQ(run.lines[0], "[INFO]  inputPath: model.om");
  EXPECT_EQ(FromFirstError(run).empty(), told.empty()) << run.Describe();
  ExpectLinesInOrder(run, Join({told, Plan(1, 0), Unloaded(), Success()}));
  ExpectClean(run);
}

TEST(ListFile, ThatIsAFolderOrADeviceHasNoEntries) {
  for (const char* list : {"out", "/dev/null"}) {
    SCOPED_TRACE(list);
    Stage stage;
    SetPlain(&stage);
    ExpectEmptyList(stage.RunWith(Words("model.om", list)), {});
  }
}

TEST(ListFile, BehindACircleOfLinksCannotBeOpened) {
  Stage stage;
  SetPlain(&stage);
  MakeCircle(stage, "loop");
  ExpectEmptyList(stage.RunWith(Words("model.om", "loop")), {"[ERROR] open file loop failed"});
}

TEST(ListFile, ThatMayNotBeReadCannotBeOpened) {
  Stage stage;
  SetPlain(&stage);
  stage.launcher = WithoutPrivileges();
  if (!CanLaunch(stage.launcher)) GTEST_SKIP() << "the superuser's rights cannot be dropped here";
  Forbid(stage, "list.txt");
  ExpectEmptyList(stage.Run(), {"[ERROR] open file list.txt failed"});
}

TEST(ListFile, OnStandardInputIsReadFromAFileAndFromAPipe) {
  if (!fs::exists("/dev/stdin")) GTEST_SKIP() << "/dev/stdin leads nowhere here";
  Stage stage;
  SetPlain(&stage);
  stage.File("piped", "a.bin\nb.bin\n");
  const Lines entries{"/dev/a.bin", "/dev/b.bin"};
  stage.launcher = AfterShell("exec <piped");
  EXPECT_EQ(EntriesChecked(stage.RunWith(Words("model.om", "/dev/stdin"))), entries);
  stage.launcher = {"/bin/sh", "-c", "cat piped | \"$@\"", "sh"};
  EXPECT_EQ(EntriesChecked(stage.RunWith(Words("model.om", "/dev/stdin"))), entries);
}

TEST(ListFile, FromAPipeIsWaitedForUntilItsWriterIsDone) {
  if (!fs::exists("/dev/stdin")) GTEST_SKIP() << "/dev/stdin leads nowhere here";
  Stage stage;
  SetPlain(&stage);
  stage.launcher = {"/bin/sh", "-c",
                    "(sleep 0.2; printf 'a.bin\\n'; sleep 0.2; printf 'b.bin\\n') | \"$@\"", "sh"};
  EXPECT_EQ(EntriesChecked(stage.RunWith(Words("model.om", "/dev/stdin"))),
            (Lines{"/dev/a.bin", "/dev/b.bin"}));
}

TEST(ListFile, ThatIsAPipeWithANameIsReadOnceItHasAWriter) {
  Stage stage;
  SetPlain(&stage);
  MakeFifo(stage, "fifo");
  stage.launcher = {"/bin/sh", "-c", "{ sleep 0.2; echo a.bin; } >fifo & \"$@\"", "sh"};
  const Transcript run = stage.RunWith(Words("model.om", "fifo"));
  ExpectStatus(run, 0);
  EXPECT_EQ(run.lines, PlainRun(stage.script));
}

// --- The input files.

TEST(InputEntry, ThatIsAPipeOrADeviceIsNoFile) {
  for (const char* name : {"fifo", "null", "zero"}) {
    SCOPED_TRACE(name);
    Stage stage;
    SetPlain(&stage);
    MakeFifo(stage, "fifo");
    fs::create_symlink("/dev/null", stage.Folder() / "null");
    fs::create_symlink("/dev/zero", stage.Folder() / "zero");
    stage.List({name});
    const std::string resolved =
        name == std::string("fifo") ? "$DIR/fifo" : "/dev/" + std::string(name);
    const Transcript run = stage.Run();
    ExpectFailure(run, FailedInput({"[ERROR] " + resolved + " is not a file, please enter a file",
                                    kNoBuffer}));
    EXPECT_EQ(run.Between("[INFO]  start to process file:" + resolved,
                          "[ERROR] " + resolved + " is not a file, please enter a file")
                  .size(),
              1u)
        << "nothing is asked about an input whose file is none";
  }
}

TEST(InputEntry, BehindACircleOfLinksIsReportedTwice) {
  Stage stage;
  SetPlain(&stage);
  MakeCircle(stage, "loop");
  stage.List({"loop"});
  const Transcript run = stage.Run();
  ExpectStatus(run, 1);
  const std::string left = Resolved(stage, "./loop");
  const Lines errors = FromFirstError(run);
  ASSERT_GT(errors.size(), 5u);
  EXPECT_EQ(errors[0], "[ERROR] realpath fail, input: ./loop");
  EXPECT_EQ(Lines(errors.begin() + 4, errors.end()),
            Join({{"[INFO]  start to process file:" + left},
                  FailedInput({"[ERROR] failed to get file " + left, kNoBuffer})}));
}

TEST(InputEntry, ThatMayNotBeReadIsReportedAfterItsMeasures) {
  Stage stage;
  SetPlain(&stage);
  stage.launcher = WithoutPrivileges();
  if (!CanLaunch(stage.launcher)) GTEST_SKIP() << "the superuser's rights cannot be dropped here";
  Forbid(stage, "a.bin");
  const Transcript run = stage.Run();
  ExpectFailure(run, FailedInput({"[ERROR] open file $DIR/a.bin failed", kNoBuffer}));
  ExpectLinesInOrder(run, Join({ReadingHead("$DIR/a.bin", stage.script.inputs()[0], 4),
                                {"[ERROR] open file $DIR/a.bin failed"}}));
}

// Such a file says one page and holds a few bytes; how many were read does not matter.
TEST(InputEntry, ShorterThanItsLengthSaysIsCopiedAsFarAsItReaches) {
  const char* kShort = "/sys/devices/system/cpu/online";
  std::error_code error;
  const uint64_t claimed = fs::file_size(kShort, error);
  if (error) GTEST_SKIP() << "no file here claims more than it holds";
  const std::string held = support::ReadFile(kShort);
  if (claimed <= held.size()) GTEST_SKIP() << "no file here claims more than it holds";
  Stage stage;
  const TensorSpec tensor{"in0", {1, static_cast<int64_t>(claimed)}, 4, claimed, claimed, 0};
  stage.script.Input(tensor).Scratch().Line("see inputs hex");
  fs::create_symlink(kShort, stage.Folder() / "short");
  stage.List({"short"});
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  const Lines files = FilesRead(run);
  ASSERT_EQ(files.size(), 1u);
  EXPECT_EQ(
      run.Between("[INFO]  start to process file:" + files[0], "[INFO]  model execute success"),
      Join({Reading(files[0], tensor, 1), BatchSet()}));
  EXPECT_EQ(support::Hex(InputsSeen(run)[0].bytes),
            support::Hex(held + std::string(claimed - held.size(), '\xA5')));
}

// The runtime of the test writes the first inference's input into the second one's file.
TEST(InputEntry, IsReadAsItIsWhenItsTurnComes) {
  for (const char* before : {"", "much longer than it is going to be"}) {
    SCOPED_TRACE(before);
    Stage stage;
    const TensorSpec tensor{"in0", {1, 16}, 4, 16, 16, 0};
    stage.script.Input(tensor)
        .Scratch()
        .Line("see inputs hex")
        .Line("dump " + stage.Folder().string());
    stage.File("a.bin", support::CountingBytes(16)).List({"a.bin", "execute1.input0.bin"});
    if (*before != '\0') stage.File("execute1.input0.bin", before);
    const Transcript run = stage.Run();
    ExpectStatus(run, 0);
    EXPECT_EQ(InputsSeen(run, 2)[0].bytes, support::CountingBytes(16));
    EXPECT_EQ(FromFirstError(run), Lines{});
    ExpectClean(run);
  }
}

// --- The rpn files.

TEST(RpnFile, ThatIsAPipeOrADeviceIsNoFile) {
  Stage stage;
  SetRpn(&stage);
  MakeFifo(stage, "fifo");
  for (const auto& [given, resolved] : std::map<std::string, std::string>{
           {"fifo", "$DIR/fifo"}, {"/dev/null", "/dev/null"}, {"/dev/zero", "/dev/zero"}}) {
    SCOPED_TRACE(given);
    ExpectFailure(stage.Run({"-r", given}),
                  RpnFailed({"[ERROR] " + resolved + " is not a file, please enter a file"}));
  }
}

TEST(RpnFile, BehindACircleOfLinksIsReportedAndNotFound) {
  Stage stage;
  SetRpn(&stage);
  MakeCircle(stage, "loop");
  const Transcript run = stage.Run({"-r", "loop"});
  ExpectStatus(run, 1);
  ExpectLinesInOrder(run,
                     Join({{"[ERROR] realpath fail, input: loop", "[INFO]  vorn init success"},
                           RpnFailed({"[ERROR] failed to get file " + Resolved(stage, "loop")})}));
}

TEST(RpnFile, ThatMayNotBeReadCannotBeOpened) {
  Stage stage;
  SetRpn(&stage);
  stage.launcher = WithoutPrivileges();
  if (!CanLaunch(stage.launcher)) GTEST_SKIP() << "the superuser's rights cannot be dropped here";
  stage.File("r", "1 2 3 4");
  Forbid(stage, "r");
  ExpectFailure(stage.Run({"-r", "r"}), RpnFailed({"[ERROR] open file $DIR/r failed"}));
}

TEST(RpnFile, WithoutAByteHoldsOneValue) {
  Stage stage;
  SetRpn(&stage);
  stage.File("r", "");
  ExpectFailure(stage.Run({"-r", "r"}),
                Join({{"[ERROR] [single thr]: detPara.size 0 should be 4, Please check rpn file.",
                       "[ERROR] Set rpn data failed"},
                      Unloaded(),
                      ProcessFailed()}));
}

TEST(RpnFile, IsReadAsItIsAtEachInference) {
  Stage stage;
  stage.script.Input({"in0", {1, 7}, 4, 7, 7, 0})
      .Input({"rpn", {1, 4}, 0, 16, 16, 0})
      .Scratch()
      .Line("see inputs hex")
      .Line("dump " + stage.Folder().string());
  // The second inference finds the first one's input in the rpn file.
  stage.File("a.bin", "5 6 7 8").List({"a.bin", "a.bin"}).File("execute1.input0.bin", "1 2 3 4");
  const Transcript run = stage.Run({"-r", "execute1.input0.bin"});
  ExpectStatus(run, 0);
  EXPECT_EQ(InputsSeen(run, 1)[1].bytes, support::Bytes<float>({1, 2, 3, 4}));
  EXPECT_EQ(InputsSeen(run, 2)[1].bytes, support::Bytes<float>({5, 6, 7, 8}));
}

// Every file is closed again: a run opens far more of them than a process may have open at a time.
TEST(OpenFiles, AreFewHoweverLongTheList) {
  Stage stage;
  SetPlain(&stage);
  stage.List(Lines(60, "a.bin"));
  stage.launcher = AfterShell("ulimit -n 16");
  const Transcript run = stage.Run();
  ExpectStatus(run, 0);
  EXPECT_EQ(run.files.size(), 120u) << run.Describe();
  ExpectClean(run);
}

}  // namespace
}  // namespace e2e
