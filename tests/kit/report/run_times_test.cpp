#include "kit/report/run_times.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

namespace vorn::kit {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr uint64_t kStartNs = 1000;

TimesRecord Record(uint64_t index, uint64_t chunk, std::vector<uint64_t> executeNs) {
  TimesRecord record;
  record.index = index;
  record.chunk = chunk;
  record.startRealtimeNs = kStartNs + index * 100;
  record.executeNs = std::move(executeNs);
  return record;
}

TEST(SeriesOf, HasEveryExecutionInItsOrderAndTellsWarmUps) {
  const auto all =
      SeriesOf({Record(1, 0, {20, 30}), Record(0, 0, {90}), Record(2, 1, {80, 25})}, kStartNs);
  ASSERT_THAT(all, SizeIs(1));
  const ReportSeries& series = all[0];
  EXPECT_THAT(series.sample, ElementsAre(0, 1, 1, 2, 2));
  EXPECT_THAT(series.medianNs, ElementsAre(90, 20, 30, 80, 25));
  EXPECT_THAT(series.startNs, ElementsAre(0, 100, 100, 200, 200));
  EXPECT_THAT(series.isWarmUp, ElementsAre(1, 0, 0, 1, 0));
  EXPECT_THAT(series.leastNs, IsEmpty());
  EXPECT_EQ(series.warmUps + series.count, 5U);
}

TEST(SeriesOf, IsEmptyOfNothing) {
  EXPECT_THAT(SeriesOf({}, 0), IsEmpty());
  EXPECT_THAT(SeriesOf({Record(0, 0, {})}, 0), IsEmpty());
}

TEST(SeriesOf, TellsTheMedianWithinItsInterval) {
  std::vector<TimesRecord> records;
  for (uint64_t i = 0; i < 101; ++i) records.push_back(Record(i, 0, {1000 + (i * 37) % 100}));
  const ReportSeries series = SeriesOf(records, kStartNs).at(0);
  EXPECT_EQ(series.count, 100U);
  std::vector<uint64_t> sorted;
  for (size_t i = 1; i < records.size(); ++i) sorted.push_back(records[i].executeNs[0]);
  std::sort(sorted.begin(), sorted.end());
  EXPECT_DOUBLE_EQ(series.medianOfAllNs, static_cast<double>(sorted[49] + sorted[50]) / 2);
  EXPECT_LT(series.lowNs, series.medianOfAllNs);
  EXPECT_GT(series.highNs, series.medianOfAllNs);
  EXPECT_GT(series.lowNs, series.leastOfAllNs);
  EXPECT_LT(series.highNs, series.mostOfAllNs);
  uint64_t counted = 0;
  for (const uint64_t count : series.histogram) counted += count;
  EXPECT_EQ(counted, 100U);
}

TEST(SeriesOf, DrawsManyExecutionsTogether) {
  std::vector<TimesRecord> records;
  const uint64_t many = 2 * kMostReportTimes + 1;
  for (uint64_t i = 0; i < many; ++i) records.push_back(Record(i, 0, {i == 7 ? 5000U : 1000U}));
  const ReportSeries series = SeriesOf(records, kStartNs).at(0);
  EXPECT_EQ(series.executionsPerRow, 3U);
  EXPECT_EQ(series.sample.size(), (many + 2) / 3);
  EXPECT_EQ(series.mostNs[2], 5000);  // executions 6 to 8
  EXPECT_EQ(series.medianNs[2], 1000);
  EXPECT_EQ(series.leastNs[2], 1000);
}

TEST(SeriesOf, TellsWhereTheLevelChangesAndTheSlowestExecutions) {
  std::vector<TimesRecord> records;
  for (uint64_t i = 0; i < 200; ++i) {
    const uint64_t level = i < 120 ? 22000 : 35000;
    records.push_back(Record(i, 0, {level + (i * 37) % 1000}));
  }
  records[0].executeNs = {900000};  // warms up
  records[60].executeNs = {400000};
  records[30].executeNs = {300000};
  records[70].executeNs = {1};  // far off, and not slow
  const ReportSeries series = SeriesOf(records, kStartNs).at(0);
  ASSERT_THAT(series.steps, SizeIs(1));
  EXPECT_EQ(series.steps[0].execution, 120U);
  EXPECT_EQ(series.steps[0].sample, 120U);
  EXPECT_EQ(series.steps[0].countBefore, 119U);
  EXPECT_EQ(series.steps[0].countBehind, 80U);
  EXPECT_NEAR(series.steps[0].beforeNs, 22500, 100);
  EXPECT_NEAR(series.steps[0].behindNs, 35500, 100);
  ASSERT_THAT(series.slowest, SizeIs(2));
  EXPECT_EQ(series.slowest[0].sample, 60U);
  EXPECT_EQ(series.slowest[0].timeNs, 400000);
  EXPECT_EQ(series.slowest[1].sample, 30U);
  EXPECT_EQ(series.outliers, 3U);
  double sum = 0;
  for (const TimesRecord& record : records) sum += static_cast<double>(record.executeNs[0]);
  EXPECT_DOUBLE_EQ(series.sumNs, sum);
}

TEST(SeriesOf, KeepsTurnsApart) {
  TimesRecord one = Record(0, 0, {10, 11});
  one.series = "A";
  TimesRecord other = Record(0, 1, {20, 21});
  other.series = "B";
  const auto all = SeriesOf({one, other}, kStartNs);
  ASSERT_THAT(all, SizeIs(2));
  EXPECT_EQ(all[0].name, "A");
  EXPECT_THAT(all[0].medianNs, ElementsAre(10, 11));
  EXPECT_THAT(all[1].medianNs, ElementsAre(20, 21));
}

TEST(PhasesOf, AddUpToTheWhole) {
  uint64_t wholeNs = 0;
  const auto phases =
      PhasesOf({{"whole", 100}, {"load", 40}, {"start", 10}, {"later", 5}}, wholeNs);
  EXPECT_EQ(wholeNs, 100U);
  uint64_t sum = 0;
  for (const ReportPhase& phase : phases) {
    EXPECT_EQ(phase.beginNs, sum);
    sum += phase.durationNs;
  }
  EXPECT_EQ(sum, wholeNs);
  EXPECT_EQ(phases.front().id, "start");
  EXPECT_EQ(phases.back().id, "notTold");
  EXPECT_EQ(phases.back().durationNs, 45U);
}

TEST(PhasesOf, SurvivesNumbersThatNoTimeHas) {
  uint64_t wholeNs = 0;
  const auto phases = PhasesOf({{"load", UINT64_MAX}, {"execute", UINT64_MAX}}, wholeNs);
  EXPECT_EQ(wholeNs, UINT64_MAX);
  EXPECT_THAT(phases, SizeIs(2));
  EXPECT_THAT(PhasesOf({}, wholeNs), IsEmpty());
  EXPECT_EQ(wholeNs, 0U);
}

TEST(MachineOf, HasColumnsOfEqualLengths) {
  MachineMoment one;
  one.realtimeNs = kStartNs + 5;
  one.frequencyKhz = {3, 1, 2};
  one.temperatureMilliC = {{"cpu", 50000}};
  one.rssBytes = 7 << 20;
  MachineMoment other;
  other.realtimeNs = kStartNs - 1;  // the clock was set
  other.temperatureMilliC = {{"gpu", -1000}};
  other.rssBytes = 16 << 10;  // it had just begun
  const ReportMachine machine = MachineOf({one, other}, kStartNs);
  EXPECT_THAT(machine.atNs, ElementsAre(5, 0));
  EXPECT_EQ(machine.leastFrequencyKhz[0], 1U);
  EXPECT_EQ(machine.mostFrequencyKhz[0], 3U);
  EXPECT_FALSE(machine.mostFrequencyKhz[1].has_value());
  ASSERT_THAT(machine.zones, SizeIs(2));
  EXPECT_EQ(machine.zones[0].name, "cpu");
  EXPECT_EQ(machine.zones[0].milliC[0], 50000);
  EXPECT_FALSE(machine.zones[0].milliC[1].has_value());
  EXPECT_EQ(machine.zones[1].milliC[1], -1000);
  EXPECT_EQ(machine.rssBytes[0], 7U << 20U);
  EXPECT_FALSE(machine.rssBytes[1].has_value());
}

TEST(MachineOf, KeepsTheHottestZonesAndSomeMoments) {
  std::vector<MachineMoment> moments(3 * kMostReportMoments);
  for (MachineMoment& moment : moments) {
    for (int64_t zone = 0; zone < 40; ++zone) {
      moment.temperatureMilliC["zone" + std::to_string(zone)] = zone;
    }
  }
  const ReportMachine machine = MachineOf(moments, 0);
  EXPECT_EQ(machine.momentsPerRow, 3U);
  EXPECT_EQ(machine.atNs.size(), kMostReportMoments);
  ASSERT_THAT(machine.zones, SizeIs(kMostReportZones));
  for (const auto& zone : machine.zones) EXPECT_GE(*zone.milliC[0], 28);
}

}  // namespace
}  // namespace vorn::kit
