#include "kit/common/verb_process.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <utility>

#include "kit/common/fault.h"
#include "kit/common/own_folder.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

// A verb beside this test that is a script.
class VerbProcess : public testing::Test {
 protected:
  VerbProcess() : path_(OwnFolder() + "/vorn-trial" + std::to_string(getpid())) {}
  ~VerbProcess() override { std::filesystem::remove(path_); }

  VerbEnd Run(const std::string& script, VerbCall call = {}) const {
    support::WriteFile(path_, "#!/bin/sh\n" + script + "\n");
    chmod(path_.c_str(), 0755);
    call.verb = "trial" + std::to_string(getpid());
    return RunVerbProcess(call);
  }

  std::string path_;
};

TEST_F(VerbProcess, GivesStatusAndOutput) {
  const VerbEnd end =
      Run("printf '<%s>' \"$@\"; exit 8", {.verb = "", .words = {"a b", "", "c\n"}});
  EXPECT_EQ(end.status, ExitStatus::kPartial);
  EXPECT_EQ(end.out, "<a b><><c\n>");
}

TEST_F(VerbProcess, LaysVariablesOverTheEnvironment) {
  setenv("VORN_TRIAL_GONE", "here", 1);
  const VerbEnd end =
      Run("echo \"$VORN_TRIAL_SET ${VORN_TRIAL_GONE-gone}\"",
          {.verb = "",
           .words = {},
           .environment = {{"VORN_TRIAL_SET", "set"}, {"VORN_TRIAL_GONE", std::nullopt}}});
  EXPECT_EQ(end.out, "set gone\n");
  unsetenv("VORN_TRIAL_GONE");
}

// This process leaves it to the verb what Ctrl-C does, and the verb is to end of it.
TEST_F(VerbProcess, TakesSignalsAsTheyWere) {
  struct sigaction usual {};
  usual.sa_handler = SIG_DFL;
  struct sigaction before {};
  sigaction(SIGINT, &usual, &before);
  EXPECT_THROW((void)Run("kill -INT $$; exit 0"), Fault);
  struct sigaction behind {};
  sigaction(SIGINT, &before, &behind);
  EXPECT_EQ(behind.sa_handler, SIG_DFL);
}

// As some parents leave it: the system then tells nobody how a child ended.
TEST_F(VerbProcess, GivesTheStatusWhereTheEndOfChildrenIsIgnored) {
  struct sigaction ignored {};
  ignored.sa_handler = SIG_IGN;
  struct sigaction before {};
  sigaction(SIGCHLD, &ignored, &before);
  const VerbEnd end = Run("exit 3");
  struct sigaction after {};
  sigaction(SIGCHLD, &before, &after);
  EXPECT_EQ(end.status, ExitStatus::kInput);
  EXPECT_EQ(after.sa_handler, SIG_IGN);
}

volatile sig_atomic_t signalHere = 0;

// Only this process is told, and the other one is to end in order.
TEST_F(VerbProcess, HandsOnWhatAsksThisProcessToEnd) {
  struct sigaction note {};
  note.sa_handler = [](int number) { signalHere = number; };
  for (const auto& [number, name] :
       {std::pair(SIGTERM, "TERM"), {SIGHUP, "HUP"}, {SIGINT, "INT"}}) {
    struct sigaction before {};
    sigaction(number, &note, &before);
    signalHere = 0;
    const std::string signal = name;
    const VerbEnd end = Run("trap 'exit 8' " + signal + "; kill -" + signal +
                            " $PPID; for i in $(seq 200); do sleep 0.1; done");
    struct sigaction after {};
    sigaction(number, &before, &after);
    EXPECT_EQ(end.status, ExitStatus::kPartial) << signal;
    EXPECT_EQ(end.asked, number);
    // This one is told behind the end of the other, but of an interruption, which it goes on after.
    EXPECT_EQ(signalHere, number == SIGINT ? 0 : number);
    EXPECT_EQ(after.sa_handler, note.sa_handler);
  }
  EXPECT_EQ(Run("exit 0").asked, 0);
}

TEST_F(VerbProcess, IsAFaultWhereASignalEndedIt) {
  try {
    (void)Run("kill -9 $$");
    FAIL() << "it ended by itself";
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kRuntime);
    EXPECT_NE(std::string(fault.what()).find("was ended by signal 9 (Killed)"), std::string::npos);
  }
}

TEST(RunVerbProcess, NamesAVerbThatIsMissing) {
  try {
    (void)RunVerbProcess({.verb = "nothing-of-that-name", .words = {}});
    FAIL() << "it ran";
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kOwnFault);
    EXPECT_NE(std::string(fault.what()).find("the verb nothing-of-that-name is missing"),
              std::string::npos);
  }
}

TEST(CommandText, CanBeRepeated) {
  EXPECT_EQ(CommandText({.verb = "judge", .words = {"my run", "--exact"}}),
            "vorn judge 'my run' --exact");
  EXPECT_EQ(CommandText({.verb = "launch",
                         .words = {"-m", "x"},
                         .environment = {{"LD_LIBRARY_PATH", "/a"}, {"GONE", std::nullopt}}}),
            "env -u GONE LD_LIBRARY_PATH=/a vorn launch -m x");
}

}  // namespace
}  // namespace vorn::kit
