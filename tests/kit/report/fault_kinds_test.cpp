#include "kit/report/fault_kinds.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/judge/cause.h"

namespace vorn::kit {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

ReportFault Odd(uint64_t sample, uint64_t nan, uint64_t infinite) {
  return {sample, {"r"}, {}, nan, infinite};
}

ReportFault Caused(uint64_t sample, const char* id, const char* text, double certainty) {
  return {sample, {"r"}, {{id, text, certainty}, {"second", "or this", 0.1}}};
}

TEST(FaultKindsOf, TellsNanBesideCausesAndWhatHasNone) {
  ReportOutput output;
  output.wrong = {Odd(17, 1, 0),
                  Odd(18, 4, 2),
                  Caused(58, "stale", "it is stale", 0.8),
                  Caused(60, "stale", "it is", 0.9),
                  Caused(61, "stale", "it is stale", 0.7),
                  Odd(70, 0, 3),
                  {90, {"r"}, {}},
                  Caused(95, "of-tomorrow", "what nobody knows yet", 1)};
  const auto kinds = FaultKindsOf(output);
  ASSERT_THAT(kinds, SizeIs(5));
  EXPECT_EQ(kinds[0].words, "the output of the sample before");
  EXPECT_EQ(kinds[0].sentence, "it is stale, others alike");
  EXPECT_EQ(kinds[0].explained, 0.7);
  EXPECT_THAT(kinds[0].samples, ElementsAre(58, 60, 61));
  EXPECT_EQ(kinds[1].words, "NaN");
  EXPECT_EQ(kinds[1].sentence, "1 to 4 elements are wrong by NaN");
  EXPECT_THAT(kinds[1].samples, ElementsAre(17, 18));
  EXPECT_EQ(kinds[2].sentence, "3 elements are wrong by infinities");
  EXPECT_EQ(kinds[3].words, "differences");
  EXPECT_THAT(kinds[3].samples, ElementsAre(90));
  EXPECT_EQ(kinds[4].words, "what nobody knows yet");
}

TEST(FaultKindsOf, TellsASampleOfSeveralOutputsOnceAKind) {
  ReportJudgement judgement;
  judgement.outputs.resize(2);
  judgement.outputs[0].wrong = {Caused(3, "stale", "s", 1), {5, {"r"}, {}}};
  judgement.outputs[1].wrong = {Caused(3, "stale", "s", 1), {3, {"r"}, {}}, Odd(5, 1, 0)};
  const auto kinds = FaultKindsOf(judgement);
  ASSERT_THAT(kinds, SizeIs(2));
  EXPECT_THAT(kinds[0].samples, ElementsAre(3));
  EXPECT_EQ(kinds[1].sentence, "1 element is wrong by NaN");
}

TEST(FaultKindsOf, ShowsTwoOfSamplesThatAreThoseOfOthers) {
  ReportOutput output;
  output.wrong = {Caused(8, "other-sample", "it is A", 0.9),
                  Caused(9, "other-sample", "it is B", 0.9),
                  Caused(10, "other-sample", "it is C", 0.9)};
  const auto kinds = FaultKindsOf(output);
  ASSERT_THAT(kinds, SizeIs(1));
  EXPECT_EQ(kinds[0].sentence, "it is A; sample 9: it is B; others alike");
}

// The words of each tell of another sample; that they are each other's is what is wrong.
TEST(FaultKindsOf, TellsAnExchangeOfNeighboursAsOne) {
  ReportOutput output;
  output.wrong = {Caused(8, "other-sample", "it is 9", 0.9), Caused(9, "stale", "it is 8", 0.8),
                  Caused(30, "other-sample", "it is 2", 1)};
  output.stretches = {{NeighbourPattern::kExchanged, {8, 9}, {}, {}}};
  const auto kinds = FaultKindsOf(output);
  ASSERT_THAT(kinds, SizeIs(2));
  EXPECT_EQ(kinds[0].words, "exchanged neighbours");
  EXPECT_EQ(kinds[0].sentence,
            "each holds the output of its neighbour, 8 that of 9 and 9 that of 8, and so on by "
            "pairs");
  EXPECT_THAT(kinds[0].samples, ElementsAre(8, 9));
  EXPECT_EQ(kinds[0].explained, 0.8);
  EXPECT_THAT(kinds[1].samples, ElementsAre(30));
}

// The first of them still has the old bytes, all others have none that stood there before.
TEST(FaultKindsOf, TellsSamplesThatComeLateAsOne) {
  ReportOutput output;
  output.wrong = {Caused(8, "stale", "it is stale", 0.9),
                  Caused(9, "other-sample", "it is what was expected of the sample before", 0.9)};
  output.stretches = {{NeighbourPattern::kBefore, {8, 9}, {}, {}}};
  const auto kinds = FaultKindsOf(output);
  ASSERT_THAT(kinds, SizeIs(1));
  EXPECT_EQ(kinds[0].words, "the output of the sample before");
  EXPECT_EQ(kinds[0].sentence, "each holds what belongs to the sample before it");
}

TEST(SamplesText, NamesTheFirst) {
  EXPECT_EQ(SamplesText({17}), "sample 17");
  EXPECT_EQ(SamplesText({17, 58}), "samples 17 and 58");
  EXPECT_EQ(SamplesText({1, 2, 3, 4, 5}), "samples 1 to 5");
  EXPECT_EQ(SamplesText({1, 3, 5, 7, 9, 11, 13}), "samples 1, 3, 5, 7, 9 and 2 more");
  EXPECT_EQ(SamplesText({1, 2, 4}, 2), "samples 1, 2 and 1 more");
}

TEST(ExplainedText, SaysHowMuch) {
  EXPECT_EQ(ExplainedText(1), "explains all that differs");
  EXPECT_EQ(ExplainedText(0.9), "explains at least 90 % of what differs");
  EXPECT_EQ(ExplainedText(0.99999), "explains at least 99.9 % of what differs");
}

}  // namespace
}  // namespace vorn::kit
