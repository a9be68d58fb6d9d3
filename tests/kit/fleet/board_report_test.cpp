#include "kit/fleet/board_report.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "support/json_schema.h"

namespace {

using vorn::kit::BoardReport;
using vorn::kit::BoardTimes;
using vorn::kit::FolderNameOf;
using vorn::kit::JournalEvent;
using vorn::kit::JournalRecord;
using vorn::kit::MedianOf;

JournalRecord Record(JournalEvent event, uint64_t chunk, uint64_t ns, uint64_t done = 0) {
  JournalRecord record;
  record.event = event;
  record.board = "b";
  record.chunk = chunk;
  record.attempt = 1;
  record.realtimeNs = ns;
  record.done = done;
  return record;
}

std::optional<double> RateOf(const std::vector<JournalRecord>& records) {
  BoardTimes times;
  for (const JournalRecord& record : records) times.Take(record);
  return times.SamplesPerSecond("b");
}

constexpr uint64_t kSecond = 1'000'000'000;
constexpr auto kBegin = JournalEvent::kBegin;
constexpr auto kEnd = JournalEvent::kEnd;

TEST(BoardTimes, CountsWhatSlotsShareOnce) {
  // 0 to 4 and 2 to 6, then 10 to 12 within 9 to 13: ten seconds.
  EXPECT_EQ(RateOf({Record(kBegin, 0, 0), Record(kBegin, 1, 2 * kSecond),
                    Record(kEnd, 0, 4 * kSecond, 10), Record(kEnd, 1, 6 * kSecond, 10),
                    Record(kBegin, 2, 9 * kSecond), Record(kBegin, 3, 10 * kSecond),
                    Record(kEnd, 3, 12 * kSecond, 40), Record(kEnd, 2, 13 * kSecond, 40)}),
            10);
}

TEST(BoardTimes, CountsNothingThatDidNothing) {
  EXPECT_EQ(RateOf({}), std::nullopt);
  EXPECT_EQ(RateOf({Record(kBegin, 0, 0)}), std::nullopt);
  EXPECT_EQ(RateOf({Record(kBegin, 0, 0), Record(kEnd, 0, kSecond, 0)}), std::nullopt);
  EXPECT_EQ(RateOf({Record(kEnd, 0, kSecond, 5)}), std::nullopt);  // its begin was lost
  // A clock that was set back meanwhile.
  EXPECT_EQ(RateOf({Record(kBegin, 0, kSecond), Record(kEnd, 0, 1, 5)}), std::nullopt);
  // Nobody knows when it ended that was found later.
  EXPECT_EQ(RateOf({Record(kBegin, 0, 0), Record(JournalEvent::kFound, 0, kSecond, 5)}),
            std::nullopt);
}

TEST(BoardReport, IsWhatTheSchemaSays) {
  EXPECT_EQ(support::FaultBySchema("boards", ToJson(BoardReport{.fleet = std::string(32, 'a'),
                                                                .boards = {},
                                                                .crossCheck = {},
                                                                .notDeterministic = 0,
                                                                .unequal = {},
                                                                .unfitAttempts = 0,
                                                                .unfit = {}})),
            "");
  vorn::kit::MergedBoard board;
  board.name = "b";
  board.folder = "boards/b";
  board.state.host = "h";
  board.state.machineId = "m";
  board.state.bootIds = {"1", "2"};
  board.state.phases = {{"launch", 5}};
  board.state.reason = "why";
  board.state.sampleNs = {1, 2};
  board.samplesPerSecond = 1.5;
  board.highestTemperatureMilliC = -5;
  board.lowestFrequencyKhz = 7;
  board.runtime = vorn::kit::FileIdentity{.path = "/l", .sizeBytes = {}, .xxh3 = {}};
  board.disagreesAt = {3};
  const BoardReport report{.fleet = std::string(32, 'a'),
                           .boards = {board},
                           .crossCheck = {3},
                           .notDeterministic = 1,
                           .unequal = {{.index = 3,
                                        .line = 4,
                                        .attempts = {{.board = "b",
                                                      .attempt = 1,
                                                      .outputs = std::string(32, '0'),
                                                      .isCrossCheck = true}}}},
                           .unfitAttempts = 1,
                           .unfit = {{.chunk = 0, .attempt = 1, .board = "b", .reason = "gone"}}};
  EXPECT_EQ(support::FaultBySchema("boards", ToJson(report)), "");
}

TEST(FolderNameOf, IsAPlainNameOfEachBoard) {
  const std::string names[] = {"b1",
                               "b1 ",
                               "B1",
                               "",
                               ".",
                               "..",
                               "...",
                               ".hidden",
                               "a/b",
                               "a%2Fb",
                               "%2E",
                               std::string("a\0b", 3),
                               "a\nb",
                               "\xff\xfe",
                               "boards",
                               std::string(200, 'n'),
                               std::string(201, 'n'),
                               std::string(255, 'n'),
                               std::string(255, 'n') + "m",
                               std::string(199, 'n') + "//"};
  std::set<std::string> folders;
  for (const std::string& name : names) {
    const std::string folder = FolderNameOf(name);
    EXPECT_TRUE(folders.insert(folder).second) << name;
    EXPECT_FALSE(folder.empty() || folder.size() > 255 || folder[0] == '.') << name;
    EXPECT_TRUE(std::all_of(folder.begin(), folder.end(), [](char c) {
      return c > ' ' && c < '\x7f' && c != '/';
    })) << name;
  }
  EXPECT_EQ(FolderNameOf("rack-2.b_1@x"), "rack-2.b_1@x");
}

TEST(MedianOf, IsTheOneInTheMiddle) {
  EXPECT_EQ(MedianOf({}), std::nullopt);
  EXPECT_EQ(MedianOf({3}), 3);
  EXPECT_EQ(MedianOf({9, 1, 4}), 4);
  EXPECT_EQ(MedianOf({9, 1, 4, 2}), 3);
}

}  // namespace
