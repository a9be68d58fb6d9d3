// Slurm's programs are scripts here: what they say, and how they fail, is chosen.
#include "kit/fleet/slurm.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdlib>

#include "kit/common/fault.h"
#include "support/files.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vorn::kit::ExitStatus;
using vorn::kit::Fault;
using vorn::kit::JobIdIn;
using vorn::kit::MaxArraySizeIn;
using vorn::kit::Slurm;
using vorn::kit::StopSignals;

TEST(JobIdIn, TakesWhatSbatchPrintsForPrograms) {
  EXPECT_EQ(JobIdIn("17\n"), "17");
  EXPECT_EQ(JobIdIn("17;cluster\n"), "17");
  EXPECT_EQ(JobIdIn("a word of the site\n18\n"), "18");
}

TEST(JobIdIn, TakesNothingElse) {
  for (const char* said : {"", "\n", "Submitted batch job 17\n", ";17\n", "-1\n"}) {
    EXPECT_EQ(JobIdIn(said), "") << said;
  }
}

TEST(MaxArraySizeIn, IsThatOfTheConfiguration) {
  EXPECT_EQ(MaxArraySizeIn("MailProg                = /bin/mail\n"
                           "MaxArraySize            = 1001\n"
                           "MaxBatchRequeue         = 5\n"),
            1001U);
  EXPECT_EQ(MaxArraySizeIn("MaxArraySizes = 7\nMaxArraySize=9"), 9U);
}

TEST(MaxArraySizeIn, IsNotKnownWithoutANumber) {
  for (const char* said : {"", "MaxArraySize", "MaxArraySize =", "MaxArraySize = many",
                           "MaxArraySize = 0", "x MaxArraySize = 3"}) {
    EXPECT_EQ(MaxArraySizeIn(said), std::nullopt) << said;
  }
}

class SlurmPrograms : public testing::Test {
 protected:
  SlurmPrograms() : before_(std::getenv("PATH")) {
    setenv("PATH", (folder_.Path().string() + ":" + before_).c_str(), 1);
    std::filesystem::create_directory(folder_.Path() / "scratch");
  }
  ~SlurmPrograms() override { setenv("PATH", before_.c_str(), 1); }

  void Program(const std::string& name, const std::string& script) const {
    const std::string path = folder_.Path() / name;
    support::WriteFile(path, "#!/bin/sh\n" + script + "\n");
    chmod(path.c_str(), 0755);
  }

  std::string Words() const { return support::ReadFile(folder_.Path() / "words"); }

  /// What a program does first: it notes its words and its input.
  std::string Note() const {
    return "{ printf '[%s]' \"$@\"; cat; } >'" + (folder_.Path() / "words").string() + "'; ";
  }

  StopSignals signals_;
  support::TempDir folder_;
  Slurm slurm_{folder_.Path() / "scratch", signals_};

 private:
  std::string before_;
};

TEST_F(SlurmPrograms, TakeAJobAndTellItsId) {
  Program("sbatch", Note() + "echo 17");
  EXPECT_EQ(
      slurm_.Submit({.words = {"--array=0-3", "--comment=two words"}, .script = "#!/bin/sh\n"}),
      "17");
  EXPECT_EQ(Words(), "[--parsable][--array=0-3][--comment=two words]#!/bin/sh\n");
}

TEST_F(SlurmPrograms, TakeNoJobAndSayWhy) {
  Program("sbatch", "echo 'sbatch: error: invalid partition specified: x' >&2; exit 1");
  try {
    (void)slurm_.Submit({.words = {"--partition=x"}, .script = ""});
    FAIL();
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kUsage);
    EXPECT_STREQ(fault.what(),
                 "Slurm took no job by 'sbatch --parsable --partition=x'; it said: sbatch: error: "
                 "invalid partition specified: x");
  }
}

TEST_F(SlurmPrograms, TellWhetherAJobIsThere) {
  Program("squeue", Note() + "echo 17_3; echo '17_[4-7]'");
  EXPECT_EQ(slurm_.PlaceOf("17"), Slurm::Place::kInQueue);
  EXPECT_EQ(Words(), "[--noheader][--jobs=17][--format=%i]");
  Program("squeue", "exit 0");
  EXPECT_EQ(slurm_.PlaceOf("17"), Slurm::Place::kGone);
  // So it says of a job that it has forgotten.
  Program("squeue", "echo 'slurm_load_jobs error: Invalid job id specified' >&2; exit 1");
  EXPECT_EQ(slurm_.PlaceOf("17"), Slurm::Place::kGone);
}

// A controller that is started anew has forgotten nothing.
TEST_F(SlurmPrograms, AreSilentAndNothingIsConcluded) {
  Program("squeue", "echo 'slurm_load_jobs error: Unable to contact slurm controller' >&2; exit 1");
  EXPECT_EQ(slurm_.PlaceOf("17"), Slurm::Place::kNotKnown);
}

TEST_F(SlurmPrograms, NameNodesOfSeveralPartitionsOnce) {
  Program("sinfo", "echo b1; echo b1; echo b2");
  EXPECT_THAT(slurm_.Nodes(), ElementsAre("b1", "b2"));
}

TEST_F(SlurmPrograms, AreMissing) {
  Program("sinfo", "echo 'sinfo: fatal: no configuration' >&2; exit 1");
  try {
    (void)slurm_.Nodes();
    FAIL();
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kUsage);
    EXPECT_STREQ(fault.what(),
                 "Slurm does not answer 'sinfo --noheader --Node --format=%N', it said: sinfo: "
                 "fatal: no configuration; look whether its programs are here and SLURM_CONF is "
                 "right");
  }
}

// What is asked to end asks Slurm to end its jobs, too.
TEST_F(SlurmPrograms, CancelForOneThatIsToStop) {
  Program("scancel", Note());
  raise(SIGTERM);
  signals_.Wait(std::chrono::milliseconds(0));
  ASSERT_EQ(signals_.Asked(), SIGTERM);
  EXPECT_TRUE(slurm_.Cancel("17"));
  EXPECT_EQ(Words(), "[17]");
  Program("scontrol", Note());
  EXPECT_TRUE(slurm_.Requeue("17_3"));
  EXPECT_EQ(Words(), "[requeue][17_3]");
}

}  // namespace
