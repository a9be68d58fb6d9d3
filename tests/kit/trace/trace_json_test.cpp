#include "kit/trace/trace_json.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/trace/trace_bytes.h"
#include "support/json_schema.h"

namespace vorn::kit {
namespace {

using testing::HasSubstr;

TEST(TraceJson, KeepsToItsSchemaAndTellsAll) {
  TraceBytes bytes({"vorn_init", "vorn_rt_malloc"}, 102);
  bytes.Call({.operation = 1,
              .beganNs = 1010,
              .endedNs = 1012,
              .arguments = {1, 9, 2},
              .results = {0, 7}});
  for (uint64_t i = 0; i < 100; ++i) {
    bytes.Call({.operation = 0, .beganNs = 2000 + 10 * i, .endedNs = 2004 + 10 * i});
  }
  bytes.Call({.operation = 0, .beganNs = 5000, .endedNs = 0});
  bytes.Put64(48, 105);
  bytes.Put64(3416, 4);
  bytes.Put(3424, "calls=102\nonly=vorn_*=\n");
  const std::string text = TraceJson(ParseTrace(bytes.Text()), "a.vtrace");
  EXPECT_EQ(support::FaultBySchema("trace", text), "") << text;
  EXPECT_EQ(text.find('\n'), text.size() - 1);
  for (const char* part :
       {R"("trace":"a.vtrace")", R"("settings":{"calls":"102","only":"vorn_*="})",
        R"("calls":102,"dropped":3,"cut":0,"passed":4)", R"("takenDown":false)",
        R"("count":100,"failed":0,"totalNs":400,"medianNs":4,"mostNs":4,"p99Ns":4)",
        R"("deviceMemory":{"peakBytes":9,"leftBytes":9})",
        R"("unfinished":[{"call":102,"operation":"vorn_init","thread":7,"beganNs":4000}])"}) {
    EXPECT_THAT(text, HasSubstr(part));
  }
}

TEST(TraceJson, BearsATraceWithoutCallsAndSettings) {
  const std::string text = TraceJson(ParseTrace(TraceBytes({"vorn_init"}).Text()), "\xff");
  EXPECT_EQ(support::FaultBySchema("trace", text), "") << text;
  EXPECT_THAT(text, HasSubstr(R"("settings":{})"));
}

}  // namespace
}  // namespace vorn::kit
