#include "kit/convert/timeline.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/trace/trace_bytes.h"

namespace vorn::kit {
namespace {

using testing::ElementsAre;

NamedTrace Loaded(const std::string& name, const std::string& host, uint64_t monotonicNs,
                  uint64_t realtimeNs) {
  NamedTrace trace{.name = name, .file = {}};
  trace.file.host = host;
  trace.file.monotonicNs = monotonicNs;
  trace.file.realtimeNs = realtimeNs;
  return trace;
}

TEST(PlaceOnTimeline, ShiftsEachByItsPairOfClocks) {
  const auto placed = PlaceOnTimeline({Loaded("a", "one", 500, 10000), Loaded("b", "two", 7, 9000),
                                       Loaded("c", "one", 90000, 9500)});
  ASSERT_EQ(placed.size(), 3U);
  EXPECT_EQ(placed[0].At(500), 1000U);
  EXPECT_EQ(placed[0].At(600), 1100U);
  EXPECT_EQ(placed[1].At(17), 10U);
  EXPECT_EQ(placed[2].At(90001), 501U);
  EXPECT_EQ(placed[0].At(0), 1000U);  // before the layer was loaded: the file was changed
  EXPECT_THAT((std::vector{placed[0].machine, placed[1].machine, placed[2].machine}),
              ElementsAre(0U, 1U, 0U));
}

TEST(PlacedTrace, EndsWithTheLastThatItKnowsOf) {
  TraceBytes bytes({"vorn_init"});
  bytes.Call({.operation = 0, .beganNs = 1100, .endedNs = 1900});
  bytes.Call({.operation = 0, .beganNs = 1200, .endedNs = 0});
  EXPECT_EQ((PlacedTrace{.trace = {.name = "", .file = ParseTrace(bytes.Text())}}).EndNs(), 1900U);
  bytes.Ended(2500);
  EXPECT_EQ((PlacedTrace{.trace = {.name = "", .file = ParseTrace(bytes.Text())}}).EndNs(), 2500U);
}

}  // namespace
}  // namespace vorn::kit
