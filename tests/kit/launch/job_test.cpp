#include "kit/launch/job.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using vorn::kit::JobEnd;
using vorn::kit::LaunchRequest;

TEST(Job, GivesVornRunItsWords) {
  LaunchRequest request;
  request.program = "/p/vorn-run";
  request.model = "m";
  request.config = "j";
  EXPECT_THAT(CommandOf(request, "l", "d"),
              ElementsAre("/p/vorn-run", "-m", "m", "-i", "l", "-j", "j", "-o", "d"));
  request.batch = 4;
  request.totalT = 9;
  request.thresholds = "a,b";
  request.isProfiled = true;
  EXPECT_THAT(CommandOf(request, "l", "d"),
              ElementsAre("/p/vorn-run", "-m", "m", "-i", "l", "-j", "j", "-o", "d", "-b", "4",
                          "-t", "9", "-r", "a,b", "-p", "1"));
}

TEST(Job, DescribesHowAProgramEnded) {
  LaunchRequest request;
  JobEnd end;
  end.program.status = 1;
  EXPECT_EQ(DescribeEnd(end, request), "ended with status 1");
  end.program = {.status = {}, .signal = SIGFPE};
  end.log.Take("[ERROR] get model description failed\n");
  end.words = "vorn: first\nvorn: vorn_mdl_load_from_mem: it has\ta fault\n\n";
  EXPECT_EQ(DescribeEnd(end, request),
            "ended by SIGFPE after 'get model description failed': the runtime refused the model; "
            "it said: vorn: vorn_mdl_load_from_mem: it has\\x09a fault");
}

TEST(Job, DescribesHowAProgramWasEnded) {
  LaunchRequest request;
  request.sampleLimit = std::chrono::seconds(7);
  request.limit = std::chrono::seconds(90);
  JobEnd end;
  end.program.signal = SIGTERM;
  end.inside = "vorn_mdl_execute";
  end.reason = JobEnd::Reason::kSampleLimit;
  EXPECT_EQ(DescribeEnd(end, request),
            "was ended after 7 s, the time for one inference (--sample-timeout) inside "
            "vorn_mdl_execute");
  end.reason = JobEnd::Reason::kLimit;
  EXPECT_EQ(DescribeEnd(end, request),
            "was ended after 90 s, the time for all (--timeout) inside vorn_mdl_execute");
  end.reason = JobEnd::Reason::kStopped;
  EXPECT_EQ(DescribeEnd(end, request), "was stopped");
}

TEST(Job, NamesSignals) {
  EXPECT_EQ(vorn::kit::SignalName(SIGSEGV), "SIGSEGV");
  EXPECT_EQ(vorn::kit::SignalName(99), "signal 99");
}

}  // namespace
