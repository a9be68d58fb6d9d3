// The command `vorn`, which becomes the program of a verb.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>

#include "support/command.h"
#include "support/files.h"

namespace {

using support::Outcome;
using testing::HasSubstr;
using testing::Not;

class Dispatch : public testing::Test {
 protected:
  Dispatch() {
    std::filesystem::copy_file(VORN_COMMAND, folder_.Path() / "vorn");
    Verb("vorn-say", "#!/bin/sh\nprintf '%s|' \"$0\" \"$@\"\nexit 9\n");
    Verb("vorn-die", "#!/bin/sh\nkill -TERM $$\n");
    Verb("vorn-run", "#!/bin/sh\n");
    Verb("vorn-old.bak", "#!/bin/sh\n");
    support::WriteFile(folder_.Path() / "vorn-notes", "no program");
  }

  void Verb(const std::string& name, const std::string& text) const {
    support::WriteFile(folder_.Path() / name, text);
    std::filesystem::permissions(folder_.Path() / name, std::filesystem::perms::owner_all);
  }

  Outcome Run(const std::vector<std::string>& words) const {
    support::Command command;
    command.program = (folder_.Path() / "vorn").string();
    command.arguments = words;
    return RunCommand(command);
  }

  support::TempDir folder_;
};

TEST_F(Dispatch, GivesAVerbItsWordsAndEndsAsItDoes) {
  const Outcome said = Run({"say", "--help", "two words", ""});
  EXPECT_EQ(said.status, 9);
  EXPECT_EQ(said.out, (folder_.Path() / "vorn-say").string() + "|--help|two words||");
  EXPECT_EQ(Run({"die"}).signal, SIGTERM);
}

TEST_F(Dispatch, ListsTheVerbsBesideIt) {
  for (const char* word : {"--help", "-h", "help"}) {
    const Outcome helped = Run({word});
    EXPECT_EQ(helped.status, 0);
    EXPECT_THAT(helped.out, HasSubstr("The verbs here:\n\n  die\n  say\n"));
    EXPECT_THAT(helped.out, Not(HasSubstr("notes")));
    EXPECT_EQ(helped.err, "");
  }
  const Outcome nothing = Run({});
  EXPECT_EQ(nothing.status, 2);
  EXPECT_EQ(nothing.out, "");
  EXPECT_THAT(nothing.err, HasSubstr("  say\n"));
}

TEST_F(Dispatch, ShowsWhatVerbsSayOfThemselves) {
  Verb("vorn-longer",
       "#!/bin/sh\n[ \"$1\" = --help=summary ] && printf 'what it \\033does\\nmore\\n'\n");
  Verb("vorn-fails", "#!/bin/sh\necho no\nexit 2\n");
  Verb("vorn-full", "#!/bin/sh\nyes | tr -d '\\n'\n");
  EXPECT_THAT(Run({"--help"}).out, testing::EndsWith("  die\n  fails\n  full\n"
                                                     "  longer  what it \\x1Bdoes\n  say\n"));
  support::Command command;
  command.program = VORN_COMMAND;
  command.arguments = {"--help"};
  const std::string help = RunCommand(command).out;
  EXPECT_THAT(help, testing::ContainsRegex(
                        "\n  trace  +every call of a program to its runtime, with its time\n"));
  EXPECT_THAT(help, HasSubstr("\n  timing   "));
}

TEST_F(Dispatch, NamesTheNearestVerb) {
  const Outcome ended = Run({"sya"});
  EXPECT_EQ(ended.status, 2);
  EXPECT_EQ(ended.err,
            "vorn: there is no verb 'sya'; did you mean 'say'?; vorn --help lists those in " +
                folder_.Path().string() + "\n");
  EXPECT_EQ(Run({"../evil\n"}).err,
            "vorn: there is no verb '../evil\\x0A'; vorn --help lists those in " +
                folder_.Path().string() + "\n");
  EXPECT_EQ(Run({"run"}).status, 2);
}

TEST_F(Dispatch, TellsWhyAVerbCannotStart) {
  Verb("vorn-broken", "#!/no/such/shell\n");
  const Outcome ended = Run({"broken"});
  EXPECT_EQ(ended.status, 1);
  EXPECT_EQ(ended.err, "vorn: cannot start '" + (folder_.Path() / "vorn-broken").string() +
                           "': No such file or directory\n");
}

}  // namespace
