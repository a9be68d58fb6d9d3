// `vorn timing` as a program.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/command.h"
#include "support/files.h"

namespace {

using support::Outcome;
using testing::HasSubstr;
using testing::StartsWith;

class Timing : public testing::Test {
 protected:
  Timing() {
    std::string fast;
    std::string slow;
    for (int i = 0; i < 40; ++i) {
      const int wobble = i * 7919 % 41;
      fast += std::to_string(1000000 + 100 * wobble) + "\n";
      slow += std::to_string(1500000 + 100 * wobble) + "\n";
    }
    support::WriteFile(Path("fast"), fast);
    support::WriteFile(Path("slow"), slow);
    support::WriteFile(Path("few"), "1000000\n1000001\n1000002\n");
    support::WriteFile(Path("none"), "");
  }

  std::string Path(const std::string& name) const { return (folder_.Path() / name).string(); }

  Outcome Run(std::vector<std::string> words) const {
    words.insert(words.begin(), "timing");
    support::Command command;
    command.program = VORN_COMMAND;
    command.arguments = std::move(words);
    return RunCommand(command);
  }

  support::TempDir folder_;
};

TEST_F(Timing, EndsWithItsVerdict) {
  const Outcome slower = Run({Path("fast"), Path("slow")});
  EXPECT_EQ(slower.status, 10);
  EXPECT_THAT(slower.out, HasSubstr("2 against 1: slower. +"));
  EXPECT_EQ(slower.err, "");
  const Outcome faster = Run({Path("slow"), Path("fast")});
  EXPECT_EQ(faster.status, 0);
  EXPECT_THAT(faster.out, HasSubstr("2 against 1: faster. -"));
  const Outcome alike = Run({Path("fast"), Path("fast")});
  EXPECT_EQ(alike.status, 0);
  EXPECT_THAT(alike.out, HasSubstr("2 against 1: alike. "));
  EXPECT_EQ(Run({Path("fast"), Path("few")}).status, 11);
  EXPECT_EQ(Run({Path("fast"), Path("none")}).status, 9);
  EXPECT_EQ(Run({Path("fast")}).status, 0);
}

TEST_F(Timing, EndsWithNineWhereOneOfTheTurnsHoldsNoTime) {
  std::string lines;
  for (int i = 0; i < 9; ++i) {
    lines += R"({"schema":1,"index":)" + std::to_string(i) +
             R"(,"chunk":0,"attempt":1,"host":"","startRealtimeNs":1,"executeNs":[1000000],)"
             R"("series":"A"})"
             "\n";
  }
  support::WriteFile(Path("run/times.jsonl"), lines);
  const Outcome ended = Run({Path("run")});
  EXPECT_EQ(ended.status, 9) << ended.Describe();
  EXPECT_THAT(ended.out, HasSubstr("2 against 1: nothing measured in 2\n"));
}

TEST_F(Timing, PrintsTheSameTwice) {
  EXPECT_EQ(Run({"--json", Path("fast"), Path("slow")}).out,
            Run({"--json", Path("fast"), Path("slow")}).out);
}

TEST_F(Timing, PrintsJsonAloneWhereItIsQuiet) {
  const Outcome quiet = Run({"--quiet", Path("fast"), Path("slow")});
  EXPECT_EQ(quiet.status, 10);
  EXPECT_EQ(quiet.out + quiet.err, "");
  EXPECT_EQ(Run({"--quiet", "--json", Path("fast"), Path("slow")}).out,
            Run({"--json", Path("fast"), Path("slow")}).out);
}

TEST_F(Timing, GoesByTheGatesThatAreGiven) {
  EXPECT_EQ(Run({Path("fast"), Path("slow"), "--ratio", "1.6"}).status, 0);
  EXPECT_EQ(Run({Path("fast"), Path("slow"), "--absolute", "1ms"}).status, 0);
  EXPECT_EQ(Run({Path("fast"), Path("slow"), "--absolute", "0.4ms"}).status, 10);
}

TEST_F(Timing, RefusesWordsThatMeanNothing) {
  const auto fault = [&](std::vector<std::string> words, int status) {
    const Outcome ended = Run(std::move(words));
    EXPECT_EQ(ended.status, status);
    EXPECT_EQ(ended.out, "");
    return ended.err;
  };
  EXPECT_EQ(
      fault({}, 2),
      "vorn timing: the times are missing: vorn timing TIMES [TIMES...]; --help tells more\n");
  EXPECT_EQ(fault({Path("fast"), "--ratio", "0.9"}, 2),
            "vorn timing: --ratio takes a number from 1 to 1000, and got '0.9'; 1.05 means 5 % "
            "slower or faster\n");
  EXPECT_THAT(fault({Path("fast"), "--absolute", "10"}, 2),
              StartsWith("vorn timing: --absolute takes a time with its unit"));
  EXPECT_THAT(fault({Path("fast"), "--unit", "days"}, 2),
              HasSubstr("--unit takes ns, us, ms, s, min or h"));
  EXPECT_THAT(fault({Path("missing")}, 3), HasSubstr("missing'"));
  EXPECT_THAT(fault({folder_.Path().string()}, 3), HasSubstr("times.jsonl"));
}

}  // namespace
