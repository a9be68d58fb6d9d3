#include "kit/timing/times.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/common/fault.h"
#include "kit/trace/trace_bytes.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

std::vector<double> ListOf(const std::string& text, const ListFormat& format = {}) {
  const MeasuredTimes measured = TimesOfList(text, format);
  EXPECT_EQ(measured.kind, "list");
  EXPECT_THAT(measured.series.at(0).firstNs, IsEmpty());
  return measured.series.at(0).timesNs;
}

std::string FaultOfList(const std::string& text, const ListFormat& format = {}) {
  try {
    (void)TimesOfList(text, format);
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kInput);
    return fault.what();
  }
  return "no fault";
}

TEST(TimesOfList, ReadsNumbersInAnyForm) {
  for (const char* text :
       {"1\n2.5\n3e3\n", "1 2.5\t3000", "1,2.5,3000", "# ms\n1\n\n2.5 # late\r\n3000",
        "[1, 2.5, 3000]", " {\"executeNs\": [1, 2.5, 3000]}", "executeNs\n1\n2.5\n3000",
        "anything\n1\n2.5\n3000", "name,executeNs,more\na b,1,9\nc,2.5,9\nd,3000,",
        "[{\"executeNs\":1},{\"executeNs\":[2.5,3000]}]", "1, 2.5, 3000", "1,2.5\n3000",
        "\357\273\277executeNs\n1\n2.5\n3000", "\"executeNs\"\n\"1\"\n2.5\n\"3000\"",
        "\"a, \"\"b\"\"\", \"executeNs\" ,c\nrun #1,1,9\n\"c,d\",2.5,9\n# rest\nd,\"3000\",",
        "{\"executeNs\":1}\n\n{\"executeNs\":[2.5,3000]}\n"}) {
    EXPECT_THAT(ListOf(text), ElementsAre(1, 2.5, 3000)) << text;
  }
}

TEST(TimesOfList, TakesTheUnitAndTheColumn) {
  EXPECT_THAT(ListOf("1.5\n2", {.unitNs = 1e6, .column = {}}), ElementsAre(1.5e6, 2e6));
  EXPECT_THAT(ListOf("a,b\n1,2\n3,4", {.unitNs = 1, .column = "b"}), ElementsAre(2, 4));
  EXPECT_THAT(ListOf("[{\"a\":1,\"b\":2}]", {.unitNs = 1, .column = "b"}), ElementsAre(2));
}

TEST(TimesOfList, HoldsNothingWhereThereIsNothing) {
  EXPECT_THAT(ListOf(""), IsEmpty());
  EXPECT_THAT(ListOf("# nothing\n\n"), IsEmpty());
  EXPECT_THAT(ListOf("[]"), IsEmpty());
  EXPECT_THAT(ListOf("executeNs\n"), IsEmpty());
}

TEST(TimesOfList, RefusesWhatIsNoTime) {
  EXPECT_EQ(FaultOfList("1\nx\n"), "line 2: 'x' is no number");
  EXPECT_EQ(FaultOfList("1\n2,,3\n"), "line 2: '' is no number");
  EXPECT_EQ(FaultOfList("1\n-2\n"), "line 2: a time is above 0, and this one is -2");
  EXPECT_EQ(FaultOfList("0"), "line 1: a time is above 0, and this one is 0");
  EXPECT_EQ(FaultOfList("[1, 0]"), "value 2: a time is above 0, and this one is 0");
  EXPECT_THAT(FaultOfList("1\nnan\n"), HasSubstr("line 2: a time is above 0"));
  EXPECT_THAT(FaultOfList("1\ninf\n"), HasSubstr("line 2: inf ns is more than a hundred years"));
  EXPECT_THAT(FaultOfList("1e999\n2\n"), HasSubstr("line 1"));
  EXPECT_EQ(FaultOfList("a\x1b,b\n1,2"),
            "line 1: there is no column 'executeNs'; name one of these with --column: a\\x1B, b");
  EXPECT_EQ(FaultOfList("a,b\n1", {.unitNs = 1, .column = "b"}), "line 2: the column is missing");
  EXPECT_EQ(FaultOfList("1,2", {.unitNs = 1, .column = "b"}),
            "line 1: there are no titles, and so no column 'b'");
  EXPECT_THAT(FaultOfList("{\"a\":1}"), HasSubstr("executeNs"));
  EXPECT_THAT(FaultOfList("[\"x\"]"), HasSubstr("number"));
  EXPECT_NE(FaultOfList("[1, 2"), "no fault");
  EXPECT_THAT(FaultOfList("{\"executeNs\":1}\n{\n"), HasSubstr("line 2: "));
  EXPECT_EQ(FaultOfList("{\"executeNs\":1}\n{\"executeNs\":[2,null]}\n"),
            "line 2: value 3: null is no number");
}

// Each would be taken for a time, and the table be full of digits.
TEST(TimesOfList, RefusesWhatNoExecutionTakes) {
  EXPECT_EQ(FaultOfList("5\n1e300\n"),
            "line 2: 1e300 ns is more than a hundred years, which is no time of an execution; "
            "--unit says what the numbers are of");
  EXPECT_THAT(FaultOfList("[5, 1e300]"), HasSubstr("value 2: 1e+300 ns is more than"));
  EXPECT_THAT(FaultOfList("1e12", {.unitNs = 1e9, .column = {}}),
              HasSubstr("line 1: 1e12 of the unit is more than a hundred years"));
  EXPECT_THAT(FaultOfList("1e-9"), HasSubstr("line 1: 1e-9 ns is less than a picosecond"));
}

TEST(TimesOfList, RefusesACommaThatMayBeADecimalSignOrDivideThousands) {
  for (const char* text : {"1,5", "1000,25", "1,234", "1,234,567", "12,345.5"}) {
    EXPECT_EQ(FaultOfList("7\n" + std::string(text) + " # late"),
              "line 2: '" + std::string(text) +
                  "' may be one number or several; write a full stop as the decimal sign, nothing "
                  "between thousands, and a blank behind a comma that divides");
  }
  EXPECT_THAT(ListOf("1, 5"), ElementsAre(1, 5));
  EXPECT_THAT(ListOf("1.5,2.5"), ElementsAre(1.5, 2.5));
  EXPECT_THAT(ListOf("1,5,234"), ElementsAre(1, 5, 234));
  EXPECT_THAT(ListOf("1234,5678,9"), ElementsAre(1234, 5678, 9));
  EXPECT_EQ(FaultOfList("executeNs\n1,5\n"),
            "line 2: there are 2 cells, and 1 title; a decimal sign is a full stop, and a cell "
            "with a comma stands in quotes");
  EXPECT_THAT(FaultOfList("a,executeNs\nx,1,5\n"), HasSubstr("line 2: there are 3 cells, and 2"));
}

TEST(TimesOfList, RefusesQuotesThatDoNotEnd) {
  EXPECT_EQ(FaultOfList("\"executeNs\n1"), "line 1: a quote is not closed: \"executeNs");
  EXPECT_EQ(FaultOfList("executeNs,b\n\"1\"2,3"),
            "line 2: behind the quotes of '1' stands more of the cell");
  EXPECT_EQ(FaultOfList("executeNs\n\"1,5\"\n"), "line 2: '1,5' is no number");
}

TEST(TimesOfTrace, TakesExecutionsAndSetsTheFirstApart) {
  TraceBytes bytes({"vorn_mdl_execute", "vorn_init"});
  bytes.Call({.operation = 1, .beganNs = 0, .endedNs = 9});
  bytes.Call({.operation = 0, .beganNs = 10, .endedNs = 60});
  bytes.Call({.operation = 0, .beganNs = 100, .endedNs = 120});
  bytes.Call({.operation = 0, .beganNs = 130, .endedNs = 190, .results = {7}});
  bytes.Call({.operation = 0, .beganNs = 200, .endedNs = 200});
  bytes.Call({.operation = 0, .beganNs = 300, .endedNs = 0});
  const MeasuredTimes measured = TimesOfTrace(ParseTrace(bytes.Text()));
  EXPECT_EQ(measured.kind, "trace");
  EXPECT_THAT(measured.series.at(0).firstNs, ElementsAre(50));
  EXPECT_THAT(measured.series.at(0).timesNs, ElementsAre(20, 1));
  EXPECT_EQ(measured.series.at(0).failed, 1U);
}

TimesRecord Record(uint64_t index, std::vector<uint64_t> executeNs) {
  TimesRecord record;
  record.index = index;
  record.executeNs = std::move(executeNs);
  return record;
}

TimesRecord InProcess(TimesRecord record, uint64_t chunk, uint64_t attempt,
                      const std::string& host) {
  record.chunk = chunk;
  record.attempt = attempt;
  record.host = host;
  return record;
}

TimesRecord InSeries(TimesRecord record, const std::string& series) {
  record.series = series;
  return record;
}

TEST(TimesOfRun, SetsTheFirstOfEachProcessApart) {
  const std::vector<TimesRecord> records{
      InProcess(Record(0, {90, 10, 11}), 0, 1, ""), InProcess(Record(1, {12}), 0, 1, ""),
      InProcess(Record(2, {80, 13}), 1, 1, ""), InProcess(Record(3, {70}), 1, 2, ""),
      InProcess(Record(4, {60, 0}), 1, 2, "other")};
  const MeasuredTimes measured = TimesOfRun(records);
  ASSERT_EQ(measured.series.size(), 1U);
  EXPECT_THAT(measured.series[0].firstNs, ElementsAre(90, 80, 70, 60));
  EXPECT_THAT(measured.series[0].timesNs, ElementsAre(10, 11, 12, 13, 1));
}

// A sample that was run again, or a line that was written twice, is one inference.
TEST(TimesOfRun, CountsEachInferenceOnce) {
  const std::vector<TimesRecord> records{
      InProcess(Record(0, {90, 10}), 0, 1, ""), InProcess(Record(1, {11}), 0, 1, ""),
      InProcess(Record(1, {11}), 0, 1, ""),  // the same line twice
      InProcess(Record(2, {12}), 0, 1, ""),     InProcess(Record(2, {70, 22}), 0, 2, ""),
      InProcess(Record(3, {23}), 0, 2, ""),     InProcess(Record(3, {13}), 0, 1, "")};
  const MeasuredTimes measured = TimesOfRun(records);
  ASSERT_EQ(measured.series.size(), 1U);
  EXPECT_THAT(measured.series[0].firstNs, ElementsAre(90, 70));
  EXPECT_THAT(measured.series[0].timesNs, ElementsAre(10, 11, 22, 23));
  EXPECT_EQ(measured.series[0].repeated, 3U);
}

// Also where what a process began with does not count any more: the next was warm.
TEST(TimesOfRun, HoldsTheSecondOfAProcessToBeWarm) {
  const std::vector<TimesRecord> records{InProcess(Record(0, {90}), 0, 1, ""),
                                         InProcess(Record(1, {11}), 0, 1, ""),
                                         InProcess(Record(0, {80}), 0, 2, "")};
  const MeasuredTimes measured = TimesOfRun(records);
  EXPECT_THAT(measured.series[0].firstNs, ElementsAre(80));
  EXPECT_THAT(measured.series[0].timesNs, ElementsAre(11));
}

TEST(TimesOfRun, RefusesATimeOfADamagedFile) {
  EXPECT_THROW((void)TimesOfRun({Record(0, {UINT64_MAX})}), Fault);
}

TEST(TimesOfRun, PairsEachOnce) {
  const std::vector<TimesRecord> records{
      InSeries(Record(0, {90}), "A"), InSeries(Record(0, {91}), "B"),
      InSeries(Record(1, {11}), "A"), InSeries(Record(1, {11}), "A"),
      InSeries(Record(1, {21}), "B")};
  const MeasuredTimes measured = TimesOfRun(records);
  EXPECT_THAT(measured.series[0].timesNs, ElementsAre(11));
  EXPECT_THAT(measured.series[1].timesNs, ElementsAre(21));
}

TEST(TimesOfRun, PairsWhatTookTurns) {
  const std::vector<TimesRecord> records{
      InSeries(Record(0, {90, 10}), "A"), InSeries(Record(0, {91, 20}), "B"),
      InSeries(Record(1, {11, 12}), "A"), InSeries(Record(2, {13}), "A"),
      InSeries(Record(2, {23}), "B"),     InSeries(Record(1, {21}), "B")};
  const MeasuredTimes measured = TimesOfRun(records);
  ASSERT_EQ(measured.series.size(), 2U);
  EXPECT_EQ(measured.series[0].name, "A");
  EXPECT_THAT(measured.series[0].timesNs, ElementsAre(10, 11, 13));
  EXPECT_THAT(measured.series[1].timesNs, ElementsAre(20, 21, 23));
  EXPECT_THAT(measured.series[1].firstNs, ElementsAre(91));
}

// Not the times of the other alone, as if nothing had been meant to be compared.
TEST(TimesOfRun, HoldsASeriesWithoutTimesToBeEmpty) {
  const std::vector<TimesRecord> ofOne{InSeries(Record(0, {90, 10}), "A"),
                                       InSeries(Record(1, {11}), "A")};
  const MeasuredTimes without = TimesOfRun(ofOne);
  ASSERT_EQ(without.series.size(), 2U);
  EXPECT_THAT(without.series[0].timesNs, ElementsAre(10, 11));
  EXPECT_THAT(without.series[1].timesNs, IsEmpty());
  std::vector<TimesRecord> withFirst = ofOne;
  withFirst.push_back(InSeries(Record(0, {95}), "B"));
  const MeasuredTimes cold = TimesOfRun(withFirst);
  ASSERT_EQ(cold.series.size(), 2U);
  EXPECT_THAT(cold.series[0].timesNs, ElementsAre(10, 11));
  EXPECT_THAT(cold.series[1].firstNs, ElementsAre(95));
  EXPECT_THAT(cold.series[1].timesNs, IsEmpty());
  ASSERT_EQ(TimesOfRun({InSeries(Record(0, {90, 10}), "B")}).series.size(), 2U);
}

// Chunks of 3 inferences that take a second each, and a second of loading; a chunk of A and the
// same of B, then of B and of A. B begins later by `delaySeconds`.
std::vector<TimesRecord> Turns(uint64_t chunks, uint64_t delaySeconds) {
  constexpr uint64_t kSecond = 1'000'000'000;
  constexpr uint64_t kTurnSeconds = 4;
  std::vector<TimesRecord> records;
  for (uint64_t chunk = 0; chunk < chunks; ++chunk) {
    for (const char* series : {"A", "B"}) {
      const bool isB = *series == 'B';
      const bool isSecond = isB == (chunk % 2 == 0);
      const uint64_t began = (2 * chunk + (isSecond ? 1 : 0)) * kTurnSeconds;
      for (uint64_t i = 0; i < 3; ++i) {
        TimesRecord record = InSeries(Record(3 * chunk + i, {kSecond}), series);
        record.chunk = chunk;
        record.startRealtimeNs = (1000 + began + 1 + i + (isB ? delaySeconds : 0)) * kSecond;
        records.push_back(record);
      }
    }
  }
  return records;
}

// What was made 20 minutes later met another machine.
TEST(TimesOfRun, PairsOnlyWhatTookTurns) {
  for (const uint64_t chunks : {1U, 2U, 3U, 10U, 301U}) {
    EXPECT_TRUE(TimesOfRun(Turns(chunks, 0)).isPaired) << chunks;
    const MeasuredTimes later = TimesOfRun(Turns(chunks, 8 * chunks + 1200));
    ASSERT_EQ(later.series.size(), 2U);
    EXPECT_FALSE(later.isPaired) << chunks;
    EXPECT_EQ(later.series[1].timesNs.size(), 2 * chunks) << chunks;
  }
}

// A few that were made again later do not part the others.
TEST(TimesOfRun, PairsWhatMostlyTookTurns) {
  std::vector<TimesRecord> records = Turns(10, 0);
  for (TimesRecord& record : records) {
    if (record.chunk < 4 && record.series == "B") record.startRealtimeNs += 1'200'000'000'000;
  }
  EXPECT_TRUE(TimesOfRun(records).isPaired);
}

TEST(ReadMeasuredTimes, TakesTheTimesOfARunForTheRun) {
  const support::TempDir folder;
  const auto path = [&](const char* name) { return (folder.Path() / name).string(); };
  std::string lines;
  for (const TimesRecord& record : Turns(3, 0)) lines += ToLine(record);
  support::WriteFile(path("run/times.jsonl"), lines + "{\"schema\":1,\"ind");
  support::WriteFile(path("run/B/run.json"), "{\"state\": \"running\"}");
  const MeasuredTimes measured = ReadMeasuredTimes(path("run/times.jsonl"), {});
  EXPECT_EQ(measured.kind, "run");
  ASSERT_EQ(measured.series.size(), 2U);
  EXPECT_EQ(measured.series[1].name, path("run/times.jsonl") + " B");
  EXPECT_THAT(measured.series[1].timesNs, ElementsAre(1e9, 1e9, 1e9, 1e9, 1e9, 1e9));
  EXPECT_FALSE(measured.series[0].isUnfinished);
  EXPECT_TRUE(measured.series[1].isUnfinished);
  // Asked for another column it is a list as any other.
  support::WriteFile(path("run/times.jsonl"), lines);
  const ListFormat other{.unitNs = 1, .column = "startRealtimeNs"};
  EXPECT_EQ(ReadMeasuredTimes(path("run/times.jsonl"), other).kind, "list");
}

TEST(ReadMeasuredTimes, NamesTheTurnsOfARunThatHasNotEnded) {
  const support::TempDir folder;
  const std::string run = (folder.Path() / "run").string();
  support::WriteFile(run + "/A/times.jsonl", ToLine(Record(0, {5, 6})));
  try {
    (void)ReadMeasuredTimes(run, {});
    FAIL();
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.what(), "'" + run +
                                "' holds two runs that take turns, A and B, and has not ended: "
                                "finish it with vorn launch --interleave --resume, or name '" +
                                run + "/A' and '" + run + "/B'");
  }
}

TEST(ReadMeasuredTimes, KnowsEachKindAndNamesItsFile) {
  const support::TempDir folder;
  const auto path = [&](const char* name) { return (folder.Path() / name).string(); };
  support::WriteFile(path("list"), "1\n2\n");
  support::WriteFile(path("run/times.jsonl"), ToLine(Record(0, {5, 6})));
  support::WriteFile(path("trace"), TraceBytes({"vorn_mdl_execute"}).Text());
  support::WriteFile(path("bad"), "x\ny\n");
  EXPECT_EQ(ReadMeasuredTimes(path("list"), {}).series.at(0).name, path("list"));
  EXPECT_THAT(ReadMeasuredTimes(path("run"), {}).series.at(0).timesNs, ElementsAre(6));
  EXPECT_FALSE(ReadMeasuredTimes(path("run"), {}).series.at(0).isUnfinished);
  support::WriteFile(path("run/run.json"), "{\"state\": \"running\"}");
  EXPECT_TRUE(ReadMeasuredTimes(path("run"), {}).series.at(0).isUnfinished);
  support::WriteFile(path("run/run.json"), "{\"state\": 5}");
  EXPECT_THROW((void)ReadMeasuredTimes(path("run"), {}), Fault);
  EXPECT_EQ(ReadMeasuredTimes(path("trace"), {}).kind, "trace");
  try {
    (void)ReadMeasuredTimes(path("bad"), {});
    FAIL();
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.what(), "'" + path("bad") + "': line 2: 'y' is no number");
  }
  EXPECT_THROW((void)ReadMeasuredTimes(path("missing"), {}), Fault);
}

}  // namespace
}  // namespace vorn::kit
