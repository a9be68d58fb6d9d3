#include "kit/report/facts_json.h"

#include <gtest/gtest.h>

#include "kit/json/json.h"
#include "kit/report/full_facts.h"
#include "support/json_schema.h"

namespace vorn::kit {
namespace {

TEST(FactsJson, IsWhatTheSchemaSays) {
  EXPECT_EQ(support::FaultBySchema("report", FactsJson(FullFacts())), "");
  ReportFacts least;
  least.runs.emplace_back();
  EXPECT_EQ(support::FaultBySchema("report", FactsJson(least)), "");
}

TEST(FactsJson, TellsAllOfIt) {
  const Json json = ParseJson(FactsJson(FullFacts()));
  const Json& run = json.At("runs").Items().at(0);
  const Json& output = run.At("judgement").At("outputs").Items().at(0);
  EXPECT_EQ(output.At("census").At("elements").AsUnsigned(), 24U);
  EXPECT_EQ(output.At("census").At("rmse").AsText(), "NaN");
  EXPECT_EQ(output.At("columns").At("expectedSample").Items().at(1).AsUnsigned(), 18U);
  EXPECT_EQ(output.At("confusion").At("pairs").Items().at(0).At("actualClass").AsUnsigned(), 4U);
  const Json& detail = run.At("details").Items().at(0);
  EXPECT_EQ(detail.At("pictures").Items().at(0).At("png").AsText(), "iVBORw==");
  EXPECT_EQ(detail.At("mask").At("expected").Items().at(0).AsUnsigned(), 3U);
  EXPECT_TRUE(run.At("machine").At("memoryAvailableBytes").Items().at(0).IsNull());
  EXPECT_EQ(run.At("trace").At("spans").At("isFailed").Items().at(0).AsUnsigned(), 1U);
  EXPECT_EQ(run.At("fleet").At("boards").Items().at(0).At("phases").At("sendNs").AsUnsigned(), 5U);
  EXPECT_EQ(json.At("comparisons").Items().at(0).At("times").At("verdict").AsText(), "slower");
  // Of a detail that could not be opened there is nothing else.
  EXPECT_EQ(run.At("details").Items().at(1).Find("histogram"), nullptr);
  EXPECT_EQ(json.At("runs").Items().at(1).Find("judgement"), nullptr);
}

}  // namespace
}  // namespace vorn::kit
