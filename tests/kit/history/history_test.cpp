// `vorn history` as a program, and what other verbs take out of it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "kit/history/made_run.h"
#include "support/command.h"
#include "support/files.h"
#include "support/json_schema.h"

namespace {

using support::MadeFacts;
using support::MakeRun;
using support::MakeVerdict;
using support::Outcome;
using support::TimesAround;
using testing::HasSubstr;
using testing::Not;

class History : public testing::Test {
 protected:
  std::string Path(const std::string& name) const { return (folder_.Path() / name).string(); }
  std::string Db() const { return Path("history.sqlite"); }

  Outcome Vorn(std::vector<std::string> words) const {
    support::Command command;
    command.program = VORN_COMMAND;
    command.arguments = std::move(words);
    command.environment["VORN_HISTORY"] = Db();
    command.environment["SOURCE_DATE_EPOCH"] = "1795000000";
    return RunCommand(command);
  }

  Outcome Run(std::vector<std::string> words) const {
    words.insert(words.begin(), "history");
    return Vorn(std::move(words));
  }

  // A run a day from the first of November on, in runs/DAY; its time steps with `stepAt`.
  void MakeDays(unsigned days, unsigned stepAt) const {
    for (unsigned day = 1; day <= days; ++day) {
      vorn::kit::RunFacts facts = MadeFacts(day);
      const bool isStepped = day >= stepAt;
      if (isStepped) facts.runtime->xxh3 = std::string(32, 'f');
      const uint64_t time = (isStepped ? 1200000 : 1000000) + day * 7919 % 10007;
      MakeRun(Path("runs/" + std::to_string(day)), facts, TimesAround(time));
    }
  }

  void AddDays(unsigned days, unsigned stepAt) const {
    MakeDays(days, stepAt);
    const Outcome added = Run({"add", Path("runs")});
    ASSERT_EQ(added.status, 0) << added.Describe();
  }

  size_t CountRuns() const { return support::SplitLines(Run({"list", "--json"}).out).size(); }

  support::TempDir folder_;
};

TEST_F(History, KeepsWhatRunsTell) {
  AddDays(3, 99);
  const Outcome list = Run({"list"});
  EXPECT_EQ(list.status, 0);
  EXPECT_THAT(list.out, HasSubstr("2026-11-03 00:00  board7  digits.onnx"));
  EXPECT_EQ(list.err, "vorn history: 3 runs\n");
  const Outcome again = Run({"add", Path("runs")});
  EXPECT_EQ(again.status, 0);
  EXPECT_EQ(again.out, "");
  EXPECT_EQ(again.err, "vorn history: '" + Db() + "': 3 known already\n");
  const Outcome show = Run({"show", "2"});
  EXPECT_THAT(show.out, HasSubstr("40 executions, median "));
  const auto lines = support::SplitLines(Run({"list", "--json", "--last", "1"}).out);
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(support::FaultBySchema("history_run", lines[0]), "");
  EXPECT_EQ(support::FaultBySchema("history_run", Run({"show", "--json", "2"}).out), "");
}

TEST_F(History, ChoosesRuns) {
  AddDays(3, 99);
  MakeVerdict(Path("runs/2"), 6);
  EXPECT_EQ(Run({"add", Path("runs/2")}).out, "updated 2  " + Path("runs/2") + "\n");
  const auto count = [&](std::vector<std::string> words) {
    words.insert(words.begin(), {"list", "--json"});
    return support::SplitLines(Run(words).out).size();
  };
  EXPECT_EQ(count({"--outcome", "wrong"}), 1U);
  EXPECT_EQ(count({"--outcome", "done"}), 2U);
  EXPECT_EQ(count({"--board", "board*"}), 3U);
  EXPECT_EQ(count({"--model", "other*"}), 0U);
  EXPECT_EQ(count({"--since", "2026-11-02"}), 2U);
  EXPECT_EQ(count({"--before", "2026-11-02"}), 1U);
  const std::string series = Run({"series"}).out;
  const std::string name = support::SplitLines(series).at(1).substr(0, 8);
  EXPECT_EQ(count({"--series", name}), 3U);
  EXPECT_EQ(count({"--series", "00000000"}), 0U);
}

TEST_F(History, TellsWhatChangedWhenAndTakesItBack) {
  AddDays(30, 21);
  const Outcome changes = Run({"changes"});
  EXPECT_EQ(changes.status, 10) << changes.Describe();
  EXPECT_THAT(changes.out, HasSubstr("2026-11-21 00:00  time: 1.0"));
  EXPECT_THAT(changes.out, HasSubstr("what is in the runtime libvorn.so: 44444444 -> ffffffff"));
  EXPECT_THAT(changes.out, HasSubstr("1 series, 1 change; times stand worse than before"));
  const auto lines = support::SplitLines(Run({"changes", "--json"}).out);
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(support::FaultBySchema("history_change", lines[0]), "");
  EXPECT_EQ(Run({"changes", "--ratio", "1.5"}).status, 0);
  EXPECT_EQ(Run({"changes", "--since", "2026-11-22"}).status, 0);
  EXPECT_EQ(Run({"level", "21", "--reason", "new firmware"}).status, 0);
  const Outcome accepted = Run({"changes"});
  EXPECT_EQ(accepted.status, 0);
  EXPECT_THAT(accepted.out, HasSubstr("a new level, set by hand: new firmware"));
  EXPECT_EQ(Run({"level", "21", "--remove"}).status, 0);
  EXPECT_EQ(Run({"changes"}).status, 10);
  EXPECT_EQ(Run({"changes", "--by", "model,runtime"}).status, 0);
}

TEST_F(History, WritesAPage) {
  AddDays(30, 21);
  const Outcome made = Run({"report", "-o", Path("history.html")});
  EXPECT_EQ(made.status, 10) << made.Describe();
  EXPECT_THAT(made.err, HasSubstr("1 of 1 series with 30 runs stands worse than before"));
  const std::string page = support::ReadFile(Path("history.html"));
  EXPECT_THAT(page, HasSubstr("href=\"./runs/21\""));
  EXPECT_THAT(page, HasSubstr("What got worse"));
  EXPECT_EQ(Run({"report", "-o", Path("history.html")}).status, 10);
  EXPECT_EQ(support::ReadFile(Path("history.html")), page);
}

TEST_F(History, LetsNoNameSteerTheTerminal) {
  for (unsigned day = 1; day <= 8; ++day) {
    const std::string run = Path("runs/" + std::to_string(day));
    vorn::kit::RunFacts facts = MadeFacts(day);
    facts.machine.host = "\x1b[31mboard\n";
    MakeRun(run, facts, {});
    const std::string name = R"("\u001b[31mp\n")";
    support::WriteFile(run + "/verdict.json", R"({"schema":1,"status":0,"accuracy":[{"output":)" +
                                                  name + R"(,"metric":)" + name + R"(,"actual":)" +
                                                  (day < 8 ? "0.5" : "0.25") +
                                                  R"(,"expected":1}],"outputs":[]})");
  }
  const auto told = [&](const std::vector<std::string>& words) {
    const Outcome ended = Run(words);
    std::string text = ended.out + ended.err;
    EXPECT_THAT(text, Not(HasSubstr("\x1b"))) << words[0];
    EXPECT_THAT(text, Not(HasSubstr("board\n"))) << words[0];
    EXPECT_THAT(text, Not(HasSubstr(R"(\\x1B)"))) << words[0];
    return text;
  };
  told({"add", Path("runs")});
  EXPECT_THAT(told({"list"}), HasSubstr(R"(\x1B[31mboard\x0A)"));
  EXPECT_THAT(told({"series"}), HasSubstr(R"(\x1B[31mboard\x0A)"));
  EXPECT_THAT(told({"show", "8"}), HasSubstr(R"(\x1B[31mboard\x0A)"));
  EXPECT_THAT(told({"changes"}), HasSubstr(R"(\x1B[31mp\x0A: 0.5 -> 0.25)"));
  EXPECT_THAT(told({"report", "-o", Path("history.html")}),
              HasSubstr(R"(\x1B[31mboard\x0A since)"));
}

TEST_F(History, GoesOutAndComesIn) {
  AddDays(3, 2);
  Run({"level", "2", "--reason", "why"});
  EXPECT_EQ(Run({"export", "-o", Path("lines")}).status, 0);
  const Outcome taken = Run({"import", Path("lines"), "--db", Path("other")});
  EXPECT_EQ(taken.status, 0) << taken.Describe();
  EXPECT_EQ(Run({"export", "--db", Path("other")}).out, support::ReadFile(Path("lines")));
  for (const std::string& line : support::SplitLines(support::ReadFile(Path("lines")))) {
    EXPECT_EQ(support::FaultBySchema("history_run", line), "");
  }
}

// They lack the single times, and a run that came so would never get them.
TEST_F(History, TakesNoLinesOfAListForAnExport) {
  AddDays(2, 99);
  support::WriteFile(Path("lines"), Run({"list", "--json"}).out);
  const Outcome refused = Run({"import", Path("lines"), "--db", Path("other")});
  EXPECT_EQ(refused.status, 3) << refused.Describe();
  EXPECT_THAT(refused.err, HasSubstr("line 1: 'executions' is 40, and 'times' tells 0"));
  EXPECT_EQ(Run({"list", "--db", Path("other")}).err, "vorn history: 0 runs\n");
}

TEST_F(History, WritesNothingInItsOwnPlace) {
  AddDays(2, 99);
  std::filesystem::create_symlink(Db(), Path("link"));
  for (const char* verb : {"report", "export"}) {
    for (const std::string& output : {Db(), Path("link"), Db() + "-journal"}) {
      const Outcome refused = Run({verb, "-o", output});
      EXPECT_EQ(refused.status, 2) << refused.Describe();
      EXPECT_THAT(refused.err, HasSubstr("is the history itself"));
    }
  }
  EXPECT_EQ(CountRuns(), 2U);
  EXPECT_FALSE(std::filesystem::exists(Db() + "-journal"));
}

TEST_F(History, ForgetsWhatItIsToldTo) {
  AddDays(5, 99);
  EXPECT_EQ(Run({"prune", "--keep", "2", "--dry-run"}).out, "1\n2\n3\n");
  EXPECT_EQ(CountRuns(), 5U);
  EXPECT_THAT(Run({"prune", "--before", "2026-11-02"}).err, HasSubstr("1 run gone"));
  EXPECT_EQ(Run({"prune", "--keep", "2"}).status, 0);
  EXPECT_EQ(CountRuns(), 2U);
  EXPECT_TRUE(std::filesystem::exists(Path("runs/1/run.json")));
}

// With runs of any model in a series all of them would be meant.
TEST_F(History, ChoosesSeriesByWhatTheyHaveInCommonAlone) {
  AddDays(3, 99);
  EXPECT_EQ(Run({"prune", "--keep", "1", "--model", "other*", "--by", "model"}).status, 0);
  EXPECT_EQ(Run({"prune", "--keep", "1", "--board", "other*"}).status, 0);
  const Outcome refused = Run({"prune", "--keep", "1", "--model", "other*", "--by", "board"});
  EXPECT_EQ(refused.status, 2) << refused.Describe();
  EXPECT_THAT(refused.err, HasSubstr("name 'model' in --by, too"));
  for (const char* verb : {"series", "changes"}) {
    EXPECT_EQ(Run({verb, "--board", "board7", "--by", "model"}).status, 2);
  }
  EXPECT_EQ(CountRuns(), 3U);
  EXPECT_EQ(Run({"list", "--board", "other", "--by", "model"}).err, "vorn history: 0 runs\n");
}

TEST_F(History, AddsWhatItCanAndSaysWhatItCannot) {
  MakeDays(2, 99);
  support::WriteFile(Path("runs/0/run.json"), "{");
  const Outcome added = Run({"add", Path("runs")});
  EXPECT_EQ(added.status, 3);
  EXPECT_THAT(added.err, HasSubstr("runs/0/run.json"));
  EXPECT_THAT(added.err, HasSubstr("2 added, 1 not to be read"));
  EXPECT_EQ(CountRuns(), 2U);
  EXPECT_EQ(Run({"add", Path("missing")}).status, 3);
  EXPECT_EQ(Run({"add", folder_.Path() / "runs/1/times.jsonl"}).status, 3);
  std::filesystem::create_directory(Path("empty"));
  EXPECT_THAT(Run({"add", Path("empty")}).err, HasSubstr("there is no run directory"));
}

TEST_F(History, SaysWhatWouldBeAdded) {
  MakeDays(3, 99);
  const std::string all = "vorn history: nothing is written, it would be: 3 added\n";
  EXPECT_EQ(Run({"add", Path("runs"), "--dry-run"}).err, all);
  EXPECT_FALSE(std::filesystem::exists(Db()));
  support::WriteFile(Db(), "");
  EXPECT_EQ(Run({"add", Path("runs"), "--dry-run"}).err, all);
  EXPECT_EQ(Run({"add", Path("runs/1"), Path("runs/2")}).status, 0);
  const std::string before = support::ReadFile(Db());
  MakeVerdict(Path("runs/2"), 0);
  const Outcome told = Run({"add", Path("runs"), "--dry-run"});
  EXPECT_EQ(told.status, 0) << told.Describe();
  EXPECT_EQ(told.out, "would update  " + Path("runs/2") + "\nwould add  " + Path("runs/3") + "\n");
  EXPECT_EQ(told.err,
            "vorn history: nothing is written, it would be: 1 added, 1 brought up to date, 1 known "
            "already\n");
  const auto lines = support::SplitLines(Run({"add", Path("runs"), "--dry-run", "--json"}).out);
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_THAT(lines[0], HasSubstr(R"("what":"known","isDryRun":true,"identity")"));
  EXPECT_EQ(support::ReadFile(Db()), before);
  EXPECT_EQ(Run({"add", Path("runs"), "--as-board", ""}).status, 2);
}

TEST_F(History, IsMadeWhereNobodyNamesIt) {
  MakeDays(1, 99);
  support::Command command;
  command.program = VORN_COMMAND;
  command.arguments = {"history", "add", Path("runs")};
  command.environment["VORN_HISTORY"] = std::nullopt;
  command.environment["XDG_DATA_HOME"] = Path("data");
  EXPECT_EQ(RunCommand(command).status, 0);
  EXPECT_TRUE(std::filesystem::exists(Path("data/vorn/history.sqlite")));
}

TEST_F(History, AddsABoardByAnotherName) {
  MakeDays(1, 99);
  EXPECT_EQ(Run({"add", Path("runs"), "--as-board", "rack 3"}).status, 0);
  EXPECT_THAT(Run({"list"}).out, HasSubstr("rack 3"));
}

// A nightly job that adds all there is does not know what was said of one.
TEST_F(History, KeepsTheNameThatABoardWasGiven) {
  MakeDays(2, 99);
  EXPECT_EQ(Run({"add", Path("runs/1"), "--as-board", "rack 3"}).status, 0);
  EXPECT_THAT(Run({"add", Path("runs")}).err, HasSubstr("1 added, 1 known already"));
  EXPECT_EQ(Run({"list", "--board", "rack 3"}).err, "vorn history: 1 run\n");
  MakeVerdict(Path("runs/1"), 0);
  EXPECT_THAT(Run({"add", Path("runs")}).err, HasSubstr("1 brought up to date, 1 known already"));
  EXPECT_EQ(Run({"list", "--board", "rack 3", "--outcome", "right"}).err, "vorn history: 1 run\n");
  EXPECT_EQ(Run({"add", Path("runs"), "--as-board", "board7"}).status, 0);
  EXPECT_EQ(Run({"list", "--board", "board7"}).err, "vorn history: 2 runs\n");
}

TEST_F(History, RefusesWordsThatMeanNothing) {
  AddDays(1, 99);
  const auto refusal = [&](const std::vector<std::string>& words) {
    const Outcome ended = Run(words);
    EXPECT_EQ(ended.status, 2) << ended.Describe();
    EXPECT_EQ(ended.out, "");
    return ended.err;
  };
  EXPECT_THAT(refusal({}), HasSubstr("what to do is missing"));
  EXPECT_THAT(refusal({"lost"}),
              HasSubstr("there is no 'vorn history lost'; did you mean 'list'?"));
  EXPECT_THAT(refusal({"list", "more"}), HasSubstr("takes nothing behind it, and got 1"));
  EXPECT_THAT(refusal({"show"}), HasSubstr("takes one word behind it, and got 0"));
  EXPECT_THAT(refusal({"show", "first"}), HasSubstr("'first' is none"));
  EXPECT_THAT(refusal({"list", "--keep", "1"}), HasSubstr("'vorn history list' takes no --keep"));
  EXPECT_THAT(refusal({"list", "--since", "soon"}), HasSubstr("--since takes a day"));
  EXPECT_THAT(refusal({"list", "--outcome", "rigth"}), HasSubstr("did you mean 'right'?"));
  EXPECT_THAT(refusal({"changes", "--by", "models"}), HasSubstr("did you mean 'model'?"));
  EXPECT_THAT(refusal({"changes", "--ratio", "0.5"}), HasSubstr("--ratio takes a number"));
  EXPECT_THAT(refusal({"level", "1"}), HasSubstr("either --reason TEXT"));
  EXPECT_THAT(refusal({"level", "1", "--reason", " "}), HasSubstr("--reason is empty"));
  EXPECT_THAT(refusal({"prune"}), HasSubstr("either --keep N"));
  EXPECT_THAT(refusal({"report"}), HasSubstr("--output FILE is missing"));
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"list"}, {"prune", "--keep", "0"}, {"level", "1", "--remove"}}) {
    std::vector<std::string> unnamed = words;
    unnamed.insert(unnamed.end(), {"--db", ""});
    EXPECT_THAT(refusal(unnamed), HasSubstr("--db is empty"));
  }
  EXPECT_EQ(CountRuns(), 1U);
  EXPECT_EQ(Run({"show", "99"}).status, 3);
  EXPECT_EQ(Run({"level", "99", "--reason", "why"}).status, 3);
}

// ---- A file that is not as it should be ---------------------------------------------------------

TEST_F(History, SaysThatThereIsNone) {
  for (const char* word : {"list", "series", "changes", "export"}) {
    const Outcome none = Run({word});
    EXPECT_EQ(none.status, 3);
    EXPECT_THAT(none.err, HasSubstr("there is no history at"));
  }
  EXPECT_FALSE(std::filesystem::exists(Db()));
}

TEST_F(History, SaysWhatIsNoHistory) {
  MakeDays(1, 99);
  support::WriteFile(Db(), std::string(10000, '\xa5'));
  EXPECT_EQ(Run({"list"}).status, 3);
  const Outcome added = Run({"add", Path("runs")});
  EXPECT_EQ(added.status, 3);
  EXPECT_THAT(added.err, HasSubstr("is no database"));
  EXPECT_EQ(support::ReadFile(Db()), std::string(10000, '\xa5'));
}

TEST_F(History, LeavesAFileThatIsCutShortAsItIs) {
  AddDays(20, 99);
  const std::string whole = support::ReadFile(Db());
  support::WriteFile(Db(), whole.substr(0, whole.size() / 2));
  for (const std::vector<std::string>& words :
       {std::vector<std::string>{"list"}, {"add", Path("runs")}, {"report", "-o", Path("page")}}) {
    const Outcome ended = Run(words);
    EXPECT_EQ(ended.status, 3) << ended.Describe();
    EXPECT_THAT(ended.err, HasSubstr("is damaged"));
  }
  EXPECT_EQ(support::ReadFile(Db()), whole.substr(0, whole.size() / 2));
  EXPECT_FALSE(std::filesystem::exists(Path("page")));
}

TEST_F(History, IsReadWhereItMayNotBeWritten) {
  AddDays(2, 99);
  chmod(Db().c_str(), 0400);
  chmod(folder_.Path().c_str(), 0500);
  if (access(Db().c_str(), W_OK) == 0) {
    chmod(folder_.Path().c_str(), 0700);
    GTEST_SKIP() << "this user may write everywhere";
  }
  EXPECT_EQ(CountRuns(), 2U);
  const Outcome added = Run({"add", Path("runs")});
  EXPECT_EQ(added.status, 7) << added.Describe();
  EXPECT_THAT(added.err, HasSubstr("may only be read"));
  chmod(folder_.Path().c_str(), 0700);
}

// ---- What happens to somebody who adds ----------------------------------------------------------

// A child that adds the runs, left to itself.
pid_t StartAdding(const std::string& db, const std::string& runs, rlim_t mostBytes) {
  const pid_t child = fork();
  if (child != 0) return child;
  const int null = open("/dev/null", O_RDWR);
  dup2(null, STDOUT_FILENO);
  dup2(null, STDERR_FILENO);
  const rlimit limit{mostBytes, mostBytes};
  setrlimit(RLIMIT_FSIZE, &limit);
  execl(VORN_COMMAND, VORN_COMMAND, "history", "add", runs.c_str(), "--db", db.c_str(), nullptr);
  _exit(127);
}

int StatusOf(pid_t child) {
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

TEST_F(History, OutlivesImportersThatAreKilled) {
  MakeDays(70, 99);  // more than are kept together
  for (int round = 0; round < 20; ++round) {
    const pid_t child = StartAdding(Db(), Path("runs"), RLIM_INFINITY);
    usleep(static_cast<useconds_t>(round * 3000));
    kill(child, SIGKILL);
    (void)StatusOf(child);
    const Outcome list = Run({"list", "--json"});
    // Before the first one was far enough there is none.
    if (list.status != 0) {
      EXPECT_THAT(list.err, testing::AnyOf(HasSubstr("there is no history"), HasSubstr("is empty")))
          << round;
    }
  }
  EXPECT_EQ(Run({"add", Path("runs")}).status, 0);
  EXPECT_EQ(CountRuns(), 70U);
}

TEST_F(History, TakesTwoImportersAtOnce) {
  MakeDays(70, 99);
  const pid_t one = StartAdding(Db(), Path("runs"), RLIM_INFINITY);
  const pid_t other = StartAdding(Db(), Path("runs"), RLIM_INFINITY);
  EXPECT_EQ(StatusOf(one), 0);
  EXPECT_EQ(StatusOf(other), 0);
  EXPECT_EQ(CountRuns(), 70U);
}

// As on a full disk: no file can grow beyond so many bytes.
TEST_F(History, SaysThatTheDiskIsFullAndStaysAsItWas) {
  MakeDays(70, 99);
  EXPECT_EQ(Run({"add", Path("runs/1")}).status, 0);
  const auto size = static_cast<rlim_t>(std::filesystem::file_size(Db()));
  EXPECT_EQ(StatusOf(StartAdding(Db(), Path("runs"), size + 4096)), 7);
  EXPECT_EQ(CountRuns(), 1U);
  EXPECT_EQ(Run({"add", Path("runs")}).status, 0);
  EXPECT_EQ(CountRuns(), 70U);
}

// ---- What other verbs take out of it ------------------------------------------------------------

TEST_F(History, IsTheBaseOfTiming) {
  AddDays(2, 99);
  MakeRun(Path("today"), MadeFacts(3), TimesAround(1500000));
  const Outcome slower = Vorn({"timing", Path("today"), "--with", "history"});
  EXPECT_EQ(slower.status, 10) << slower.Describe();
  EXPECT_THAT(slower.out, HasSubstr("1  history  run 2, " + Path("runs/2")));
  EXPECT_THAT(slower.out, HasSubstr("2 against 1: slower."));
  std::filesystem::remove_all(Path("runs"));
  MakeRun(Path("today"), MadeFacts(3), TimesAround(1000000));
  const Outcome alike = Vorn({"timing", Path("today"), "--json", "--with", "history=" + Db()});
  EXPECT_EQ(alike.status, 0) << alike.Describe();
  EXPECT_EQ(support::FaultBySchema("timing", alike.out), "");
  // It is its own base as little once it was added.
  EXPECT_EQ(Run({"add", Path("today")}).status, 0);
  EXPECT_THAT(Vorn({"timing", Path("today"), "--with", "history"}).out, HasSubstr("run 2, "));
}

TEST_F(History, IsNoBaseOfTimingForTheFirstRun) {
  AddDays(1, 99);
  const Outcome first = Vorn({"timing", Path("runs/1"), "--with", "history"});
  EXPECT_EQ(first.status, 9);
  EXPECT_THAT(first.err, HasSubstr("nothing is compared"));
  EXPECT_EQ(support::SplitLines(first.err).size(), 1U);
  EXPECT_EQ(Vorn({"timing", Path("runs/1"), Path("runs/1"), "--with", "history"}).status, 2);
  EXPECT_EQ(Vorn({"timing", Path("runs/1"), "--with", "memory"}).status, 2);
}

TEST_F(History, IsNoBaseOfJudgeOnceItIsGone) {
  AddDays(1, 99);
  MakeRun(Path("today"), MadeFacts(2), {});
  std::filesystem::remove_all(Path("runs"));
  const Outcome gone = Vorn({"judge", Path("today"), "--with", "history"});
  EXPECT_EQ(gone.status, 9) << gone.Describe();
  EXPECT_THAT(gone.err, HasSubstr("its directory '" + Path("runs/1") + "' is gone"));
  EXPECT_EQ(Vorn({"judge", Path("today"), "--with", "history", "--expected", "x"}).status, 2);
}

}  // namespace
