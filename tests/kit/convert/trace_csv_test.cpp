#include "kit/convert/trace_csv.h"

#include <gtest/gtest.h>

#include "kit/trace/trace_bytes.h"

namespace vorn::kit {
namespace {

TEST(ToCsv, HasALineACallInTheOrderOfTime) {
  TraceBytes one({"vorn_init", "vorn_rt_malloc"}, 2);
  one.Call({.operation = 0, .beganNs = 1100, .endedNs = 1200, .arguments = {77}, .results = {0}});
  one.Call({.operation = 1, .beganNs = 1300, .endedNs = 0, .arguments = {1, 5, 2}});
  one.Put64(48, 9);
  TraceBytes other({"odd,\"name\""});
  other.Put64(64, 5150);  // 150 ns later
  other.Put(88, std::string("b\0ard", 5));
  other.Call(
      {.operation = 0, .beganNs = 1000, .endedNs = 1010, .arguments = {}, .results = {3, 4, 5}});
  const auto placed = PlaceOnTimeline({{.name = "one", .file = ParseTrace(one.Text())},
                                       {.name = "t,wo", .file = ParseTrace(other.Text())}});
  EXPECT_EQ(ToCsv(placed),
            "trace,host,process,thread,call,operation,startNs,durationNs,answer,arguments,results\n"
            "one,board,42,7,1,vorn_init,100,100,0,77,\n"
            "\"t,wo\",b,42,7,1,\"odd,\"\"name\"\"\",150,10,3,,4 5\n"
            "one,board,42,7,2,vorn_rt_malloc,300,,,1 5 2,\n"
            "one,board,42,,7,dropped,300,,,,\n");
}

// Names of a damaged trace: each cell stays in its line, steers no terminal and is no formula.
TEST(ToCsv, SpellsOutWhatIsNotPrintable) {
  TraceBytes trace({"a\nb\x1B[31m", "=1+2,\"x\"", "-1", "\xFF@"});
  for (uint16_t i = 0; i < 4; ++i) {
    trace.Call({.operation = i, .beganNs = 1000 + uint64_t{i}, .endedNs = 1010});
  }
  const auto placed = PlaceOnTimeline({{.name = "@x\r", .file = ParseTrace(trace.Text())}});
  EXPECT_EQ(ToCsv(placed),
            "trace,host,process,thread,call,operation,startNs,durationNs,answer,arguments,results\n"
            "'@x\\x0D,board,42,7,1,a\\x0Ab\\x1B[31m,0,10,0,,\n"
            "'@x\\x0D,board,42,7,2,\"'=1+2,\"\"x\"\"\",1,9,0,,\n"
            "'@x\\x0D,board,42,7,3,'-1,2,8,0,,\n"
            "'@x\\x0D,board,42,7,4,\\xFF@,3,7,0,,\n");
}

TEST(ToCsv, HasTitlesAloneWhereThereAreNoCalls) {
  const auto placed =
      PlaceOnTimeline({{.name = "one", .file = ParseTrace(TraceBytes({"vorn_init"}).Text())}});
  EXPECT_EQ(
      ToCsv(placed),
      "trace,host,process,thread,call,operation,startNs,durationNs,answer,arguments,results\n");
}

}  // namespace
}  // namespace vorn::kit
