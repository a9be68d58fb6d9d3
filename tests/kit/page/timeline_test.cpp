#include "kit/page/timeline.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/json/json.h"

namespace vorn::kit {
namespace {

using testing::HasSubstr;

TEST(DrawTimeline, KeepsSpansAsColumns) {
  Timeline timeline;
  timeline.id = "t";
  timeline.title = "Calls";
  timeline.withoutScripts = "see the table";
  timeline.names = {"execute", "</script>"};
  timeline.lanes = {"first thread"};
  timeline.spans = {{1000, 50, 0, 0, 1, false}, {1500, 20, 1, 0, 3, true}};
  timeline.axis = "since the start";
  timeline.fromNs = 500;
  timeline.toNs = 2000;
  const std::string html = Draw(timeline).Bytes();
  EXPECT_THAT(html, HasSubstr("see the table"));
  const size_t begin = html.find("id=\"t-data\">") + 12;
  const Json data = ParseJson(html.substr(begin, html.find("</script>", begin) - begin));
  EXPECT_EQ(data.At("later").Items().at(0).AsUnsigned(), 1000U);
  EXPECT_EQ(data.At("later").Items().at(1).AsUnsigned(), 500U);
  EXPECT_EQ(data.At("duration").Items().at(1).AsUnsigned(), 20U);
  EXPECT_EQ(data.At("calls").Items().at(1).AsUnsigned(), 3U);
  EXPECT_EQ(data.At("bad").Items().at(1).AsUnsigned(), 1U);
  EXPECT_EQ(data.At("names").Items().at(1).AsText(), "</script>");
  EXPECT_EQ(data.At("axis").AsText(), "since the start");
  EXPECT_EQ(data.At("fromNs").AsUnsigned(), 500U);
  EXPECT_EQ(data.At("toNs").AsUnsigned(), 2000U);
}

}  // namespace
}  // namespace vorn::kit
