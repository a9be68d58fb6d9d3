#include "kit/report/fleet_facts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "kit/fleet/board_report.h"
#include "kit/json/json.h"

namespace vorn::kit {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

// What a merge writes is what is read.
TEST(ParseFleetFacts, ReadsWhatAMergeWrites) {
  BoardReport report;
  report.fleet = std::string(32, 'f');
  MergedBoard board;
  board.name = "b1";
  board.folder = "boards/b1";
  board.samples = 100;
  board.inDoubt = 3;
  board.samplesPerSecond = 12.5;
  board.highestTemperatureMilliC = 71000;
  board.lowestFrequencyKhz = 600000;
  board.runtime = FileIdentity{"/usr/lib/libvorn.so", 5, std::string(32, 'a')};
  board.isChecked = true;
  board.disagreesAt = {7};
  board.state.done = 4;
  board.state.failed = 1;
  board.state.phases = {{"send", 50}};
  board.state.isAside = true;
  report.boards = {board};
  report.crossCheck = {0, 7};
  report.notDeterministic = 1;
  report.unequal = {{7, 8, {{"b1", 1, "x", false}, {"b2", 1, "y", false}, {"b3", 0, "y", true}}}};
  report.unfitAttempts = 1;
  report.unfit = {{2, 1, "b1", "no run.json"}};
  const ReportFleet fleet = ParseFleetFacts(ToJson(report));
  EXPECT_EQ(fleet.id, report.fleet);
  ASSERT_THAT(fleet.boards, SizeIs(1));
  const ReportBoard& read = fleet.boards[0];
  EXPECT_EQ(read.name, "b1");
  EXPECT_EQ(read.chunksDone, 4U);
  EXPECT_EQ(read.failedAttempts, 1U);
  EXPECT_EQ(read.samples, 100U);
  EXPECT_EQ(read.inDoubt, 3U);
  EXPECT_EQ(read.samplesPerSecond, 12.5);
  EXPECT_EQ(read.highestTemperatureMilliC, 71000);
  EXPECT_EQ(read.lowestFrequencyKhz, 600000U);
  EXPECT_EQ(read.runtimeHash, std::string(32, 'a'));
  EXPECT_TRUE(read.isChecked);
  EXPECT_TRUE(read.isAside);
  EXPECT_THAT(read.disagreesAt, ElementsAre(7));
  ASSERT_THAT(read.phases, SizeIs(1));
  EXPECT_EQ(read.phases[0].name, "send");
  EXPECT_EQ(read.phases[0].durationNs, 50U);
  EXPECT_THAT(fleet.crossCheck, ElementsAre(0, 7));
  EXPECT_THAT(fleet.unequal,
              ElementsAre("sample 7: one set of outputs by 'b1', other ones by 'b2' and 'b3'"));
  EXPECT_THAT(fleet.unfit, ElementsAre("chunk 2, attempt 1 of 'b1': no run.json"));
}

TEST(ParseFleetFacts, KeepsSomeOfVeryManyBoards) {
  std::string boards;
  for (size_t i = 0; i < kMostReportBoards + 5; ++i) {
    boards += std::string(i == 0 ? "" : ",") + R"({"name": "b"})";
  }
  const ReportFleet fleet = ParseFleetFacts(R"({"fleet": "f", "boards": [)" + boards + "]}");
  EXPECT_THAT(fleet.boards, SizeIs(kMostReportBoards));
  EXPECT_EQ(fleet.boardsLeftOut, 5U);
}

TEST(ParseFleetFacts, RefusesWhatIsNone) {
  EXPECT_THROW((void)ParseFleetFacts("{}"), JsonError);
  EXPECT_THROW((void)ParseFleetFacts(R"({"fleet": "f", "boards": [{}]})"), JsonError);
}

}  // namespace
}  // namespace vorn::kit
