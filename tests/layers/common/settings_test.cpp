#include "layers/common/settings.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "support/files.h"

namespace vorn::layers {
namespace {

using testing::ElementsAre;
using testing::EndsWith;

constexpr LayerSetting kRows[] = {{"file", "FILE", "here", ""}, {"calls", "N", "5", ""}};
constexpr SettingsTable kProbe{"probe", kRows, 2};

class Settings : public testing::Test {
 protected:
  ~Settings() override {
    for (const char* name : {"VORN_PROBE_FILE", "VORN_PROBE_CALLS", "VORN_PROBE_CALL",
                             "VORN_PROBER_X", "VORN_LAYER_SETTINGS"}) {
      unsetenv(name);
    }
  }

  std::string File(const std::string& text) {
    std::string path = (folder_.Path() / "settings").string();
    support::WriteFile(path, text);
    setenv("VORN_LAYER_SETTINGS", path.c_str(), 1);
    return path;
  }

  std::vector<std::string> Values() {
    const char* values[2];
    if (!ReadSettings(kProbe, values)) return {"refused"};
    return {values[0], values[1]};
  }

  // What it says as it refuses.
  std::string Refusal() {
    testing::internal::CaptureStderr();
    EXPECT_THAT(Values(), ElementsAre("refused"));
    return testing::internal::GetCapturedStderr();
  }

  support::TempDir folder_;
};

TEST_F(Settings, AreThoseOfTheTableWhereNoneIsGiven) {
  EXPECT_THAT(Values(), ElementsAre("here", "5"));
  setenv("VORN_PROBE_CALLS", "", 1);
  EXPECT_THAT(Values(), ElementsAre("here", "5"));
}

TEST_F(Settings, ComeFromTheFileAndBeforeItFromTheEnvironment) {
  File("# settings\n\n probe.calls = 7 \r\nprobe.file=a = b\nother.calls = 1");
  EXPECT_THAT(Values(), ElementsAre("a = b", "7"));
  setenv("VORN_PROBE_CALLS", "9", 1);
  setenv("VORN_PROBER_X", "1", 1);  // of another layer
  EXPECT_THAT(Values(), ElementsAre("a = b", "9"));
}

TEST_F(Settings, RefuseWhatTheLayerDoesNotHave) {
  const std::string path = File("probe.calls = 1\nprobe.call = 7\n");
  EXPECT_EQ(Refusal(), "vorn-layer: " + path +
                           ", line 2: there is no setting 'call' of the layer probe, which has "
                           "file, calls; it does nothing\n");
  File("calls = 7\n");
  EXPECT_THAT(Refusal(), EndsWith("line 1: there is no setting 'calls' of the layer probe, which "
                                  "has file, calls; it does nothing\n"));
  File("probe.calls 7\n");
  EXPECT_THAT(Refusal(), EndsWith("line 1: a setting is 'layer.name = value'; the layer probe does "
                                  "nothing\n"));
  unsetenv("VORN_LAYER_SETTINGS");
  setenv("VORN_PROBE_CALL", "7", 1);
  EXPECT_EQ(Refusal(),
            "vorn-layer: environment: there is no setting 'CALL' of the layer probe, which has "
            "file, calls; it does nothing\n");
}

TEST_F(Settings, RefuseAFileThatCannotBeRead) {
  for (const std::string& text : {std::string(70000, '#'), std::string("a\0b", 3)}) {
    File(text);
    EXPECT_THAT(Refusal(), EndsWith("which cannot be read, or is longer than 65535 bytes; the "
                                    "layer probe does nothing\n"));
  }
  setenv("VORN_LAYER_SETTINGS", "/no/such/file", 1);
  EXPECT_THAT(Refusal(), testing::StartsWith("vorn-layer: VORN_LAYER_SETTINGS names '/no/such/"));
}

TEST_F(Settings, AreDescribedALineEach) {
  const char* values[] = {"x", "y"};
  char text[16];
  DescribeSettings(kProbe, values, text, sizeof(text));
  EXPECT_STREQ(text, "file=x\ncalls=y\n");
  DescribeSettings(kProbe, values, text, 10);
  EXPECT_STREQ(text, "file=x\nca");
}

TEST(ReadTextFile, ReadsUpToItsSize) {
  const support::TempDir folder;
  const std::string path = (folder.Path() / "f").string();
  char text[4];
  support::WriteFile(path, "abc");
  EXPECT_TRUE(ReadTextFile(path.c_str(), text, sizeof(text)));
  EXPECT_STREQ(text, "abc");
  support::WriteFile(path, "abcd");
  EXPECT_FALSE(ReadTextFile(path.c_str(), text, sizeof(text)));
  EXPECT_FALSE(ReadTextFile(folder.Path().c_str(), text, sizeof(text)));
}

TEST(ReadTextFile, WaitsForNoPipe) {
  const support::TempDir folder;
  const std::string pipe = (folder.Path() / "pipe").string();
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  char text[4];
  EXPECT_FALSE(ReadTextFile(pipe.c_str(), text, sizeof(text)));
}

}  // namespace
}  // namespace vorn::layers
