#include "kit/history/import_runs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/common/fault.h"
#include "kit/history/made_run.h"
#include "kit/json/json.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using support::MadeFacts;
using support::MakeRun;
using support::TimesAround;
using testing::ElementsAre;
using testing::HasSubstr;

class Import : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return folder_.Path() / name; }

  std::string Run(const std::vector<std::string>& runs, bool isDry = false) {
    std::optional<Ledger> ledger;
    if (!isDry) ledger.emplace(Ledger::ForWriting(Path("history")));
    refused_.clear();
    return TextOf(ImportRuns(
        ledger ? &*ledger : nullptr, runs, std::nullopt,
        [&](const RunEntry& run, Addition) { imported_.push_back(run.path); },
        [&](const std::string& message) { refused_.push_back(message); }));
  }

  std::string ExportOf(const std::string& history) const {
    std::string lines;
    const Ledger ledger = Ledger::ForReading(Path(history));
    ledger.ForEach({}, RunDetail::kTable, [&](const RunEntry& run) {
      lines += ToText(ToJson(ledger.Get(run.id), true)) + "\n";
    });
    return lines;
  }

  support::TempDir folder_;
  std::vector<std::string> imported_;
  std::vector<std::string> refused_;
};

TEST_F(Import, AddsOnceAndBringsUpToDate) {
  MakeRun(Path("1"), MadeFacts(1), TimesAround(1000000));
  MakeRun(Path("2"), MadeFacts(2), TimesAround(1000000));
  EXPECT_EQ(Run({Path("1"), Path("2")}), "2 added");
  EXPECT_EQ(Run({Path("1"), Path("2")}), "2 known already");
  support::MakeVerdict(Path("2"), 0);
  EXPECT_EQ(Run({Path("1"), Path("2"), Path("2")}), "1 brought up to date, 2 known already");
  EXPECT_THAT(imported_, testing::SizeIs(7));
}

TEST_F(Import, GoesOnBehindWhatIsDamaged) {
  MakeRun(Path("1"), MadeFacts(1), {});
  support::WriteFile(Path("2") + "/run.json", "{");
  EXPECT_EQ(Run({Path("2"), Path("1")}), "1 added, 1 not to be read");
  EXPECT_THAT(refused_, ElementsAre(HasSubstr("2/run.json")));
}

// They are kept together: one of them must not take the others with it.
TEST_F(Import, GoesOnBehindNumbersThatNothingReaches) {
  RunFacts facts = MadeFacts(2);
  facts.counts.inferences = UINT64_MAX;
  MakeRun(Path("1"), MadeFacts(1), {});
  MakeRun(Path("2"), facts, {});
  MakeRun(Path("3"), MadeFacts(3), {});
  EXPECT_EQ(Run({Path("1"), Path("2"), Path("3")}), "2 added, 1 not to be read");
  EXPECT_THAT(refused_, ElementsAre(HasSubstr(Path("2") + "': 'inferences' is a number")));
}

TEST_F(Import, AddsMoreThanGoTogether) {
  std::vector<std::string> runs;
  for (unsigned day = 1; day <= 150; ++day) {
    runs.push_back(Path(std::to_string(day)));
    MakeRun(runs.back(), MadeFacts(day), {});
  }
  EXPECT_EQ(Run(runs), "150 added");
  EXPECT_EQ(imported_, runs);
}

TEST_F(Import, WritesNothingWhereItIsToSayOnly) {
  MakeRun(Path("1"), MadeFacts(1), {});
  EXPECT_EQ(Run({Path("1")}, true), "1 added");
  EXPECT_FALSE(std::filesystem::exists(Path("history")));
}

TEST_F(Import, TakesWhatWasExported) {
  MakeRun(Path("1"), MadeFacts(1), TimesAround(1000000));
  support::MakeVerdict(Path("1"), 0, 0.5);
  MakeRun(Path("2"), MadeFacts(2), {});
  EXPECT_EQ(Run({Path("1"), Path("2")}), "2 added");
  Ledger::ForChanging(Path("history")).SetLevel(2, {.reason = "why", .setRealtimeNs = 4});
  support::WriteFile(Path("lines"), ExportOf("history"));
  Ledger other = Ledger::ForWriting(Path("other"));
  const auto nothing = [](const RunEntry&, Addition) {};
  EXPECT_EQ(TextOf(ImportLines(&other, Path("lines"), nothing)), "2 added");
  EXPECT_EQ(TextOf(ImportLines(&other, Path("lines"), nothing)), "2 known already");
  EXPECT_EQ(ExportOf("other"), ExportOf("history"));
}

TEST_F(Import, TakesLevelsOfRunsThatItKnows) {
  MakeRun(Path("1"), MadeFacts(1), {});
  EXPECT_EQ(Run({Path("1")}), "1 added");
  const auto nothing = [](const RunEntry&, Addition) {};
  const auto import = [&](const std::string& history) {
    Ledger ledger = Ledger::ForWriting(Path(history));
    return TextOf(ImportLines(&ledger, Path("lines"), nothing));
  };
  support::WriteFile(Path("lines"), ExportOf("history"));
  EXPECT_EQ(import("other"), "1 added");
  Ledger::ForChanging(Path("other")).SetLevel(1, {.reason = "why", .setRealtimeNs = 4});
  support::WriteFile(Path("lines"), ExportOf("other"));
  EXPECT_EQ(import("history"), "1 brought up to date");
  EXPECT_EQ(import("history"), "1 known already");
  EXPECT_EQ(ExportOf("history"), ExportOf("other"));
  // What was said here stays.
  Ledger::ForChanging(Path("history")).SetLevel(1, {.reason = "own", .setRealtimeNs = 5});
  EXPECT_EQ(import("history"), "1 known already");
  EXPECT_THAT(ExportOf("history"), HasSubstr("own"));
}

TEST_F(Import, TakesALastLineWithoutEndAndRefusesOneThatWasCut) {
  MakeRun(Path("1"), MadeFacts(1), {});
  MakeRun(Path("2"), MadeFacts(2), {});
  EXPECT_EQ(Run({Path("1"), Path("2")}), "2 added");
  const std::string lines = ExportOf("history");
  const auto import = [&](const std::string& text) {
    support::WriteFile(Path("lines"), text);
    std::filesystem::remove(Path("other"));
    Ledger other = Ledger::ForWriting(Path("other"));
    return TextOf(ImportLines(&other, Path("lines"), [](const RunEntry&, Addition) {}));
  };
  EXPECT_EQ(import(lines.substr(0, lines.size() - 1)), "2 added");
  try {
    (void)import(lines.substr(0, lines.size() - 2));
    FAIL();
  } catch (const Fault& fault) {
    EXPECT_THAT(fault.what(), HasSubstr("line 2: "));
  }
  EXPECT_EQ(ExportOf("other"), lines.substr(0, lines.find('\n') + 1));
}

TEST_F(Import, NamesTheLineThatIsNoExport) {
  support::WriteFile(Path("lines"), "\n{\"schema\":1}\n");
  Ledger ledger = Ledger::ForWriting(Path("history"));
  try {
    (void)ImportLines(&ledger, Path("lines"), [](const RunEntry&, Addition) {});
    FAIL();
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kInput);
    EXPECT_THAT(fault.what(), HasSubstr("line 2: 'identity' is missing"));
  }
}

}  // namespace
}  // namespace vorn::kit
