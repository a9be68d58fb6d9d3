// The pages of the verbs in docs/verbs, against what the verbs say of themselves.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <set>
#include <string>

#include "support/command.h"
#include "support/files.h"

namespace {

using support::Outcome;

Outcome Say(const std::string& verb, const std::string& word) {
  support::Command command;
  command.program = VORN_COMMAND;
  command.arguments = {verb, word};
  return RunCommand(command);
}

std::set<std::string> VerbsWithAPage() {
  std::set<std::string> verbs;
  for (const auto& page : std::filesystem::directory_iterator(VORN_SOURCE_FOLDER "/docs/verbs")) {
    verbs.insert(page.path().stem());
  }
  return verbs;
}

class Pages : public testing::TestWithParam<std::string> {};

TEST_P(Pages, AreWhatTheVerbSays) {
  const std::string page = "docs/verbs/" + GetParam() + ".md";
  const Outcome said = Say(GetParam(), "--help=page");
  EXPECT_EQ(said.status, 0) << said.Describe();
  EXPECT_EQ(said.out, support::ReadFile(VORN_SOURCE_FOLDER "/" + page))
      << "write it anew: vorn " << GetParam() << " --help=page > " << page;
}

TEST_P(Pages, AreManualPagesToo) {
  const Outcome said = Say(GetParam(), "--help=man");
  EXPECT_EQ(said.status, 0) << said.Describe();
  EXPECT_THAT(said.out, testing::StartsWith(".TH "));
}

INSTANTIATE_TEST_SUITE_P(Verb, Pages, testing::ValuesIn(VerbsWithAPage()),
                         [](const auto& verb) { return verb.param; });

}  // namespace
