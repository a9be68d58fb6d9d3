// The table, against the texts that stand in the source of vorn-run.
#include "kit/launch/explanations.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <set>

#include "support/files.h"

namespace {

using vorn::kit::AllExplanations;
using vorn::kit::Explain;
using vorn::kit::Explanation;
using vorn::kit::LineRole;

// All texts of src/ that begin with [ERROR] or [WARN], literals that follow each other joined, as
// printf takes them and without the line end.
std::set<std::string> TextsOfSource() {
  std::set<std::string> texts;
  const std::regex literals(R"re("\[(?:ERROR|WARN)\](?:[^"\\]|\\.)*"(?:\s*"(?:[^"\\]|\\.)*")*)re");
  const std::regex between(R"re("\s*")re");
  for (const auto& [name, bytes] : support::ReadTree(VORN_SOURCE_FOLDER "/src")) {
    for (std::sregex_iterator at(bytes.begin(), bytes.end(), literals), end; at != end; ++at) {
      std::string text = std::regex_replace(at->str(), between, "");
      text = text.substr(1, text.size() - 2);
      EXPECT_TRUE(text.ends_with("\\n")) << text;
      texts.insert(text.substr(0, text.size() - 2));
    }
  }
  return texts;
}

std::string WithConversionsAs(const std::string& text, const std::string& value) {
  return std::regex_replace(text, std::regex("%[a-z]+"), value);
}

TEST(Explanations, KnowEveryTextOfVornRunAndNoOther) {
  std::set<std::string> expected;
  for (const std::string& text : TextsOfSource()) expected.insert(WithConversionsAs(text, "*"));
  EXPECT_GT(expected.size(), 80U);
  std::set<std::string> known;
  for (const Explanation& explanation : AllExplanations()) {
    EXPECT_TRUE(known.insert(std::string(explanation.pattern)).second) << explanation.pattern;
  }
  EXPECT_EQ(known, expected);
}

TEST(Explanations, FindTheOneOfALine) {
  for (const std::string& text : TextsOfSource()) {
    for (const char* value : {"", "7", "/a b/[ERROR] c"}) {
      const Explanation* found = Explain(WithConversionsAs(text, value));
      ASSERT_NE(found, nullptr) << text;
      EXPECT_EQ(found->pattern, WithConversionsAs(text, "*")) << value;
    }
  }
}

TEST(Explanations, SayNothingOfOtherLines) {
  for (const char* line : {"", "[ERROR]", "[ERROR] something else", "[INFO]  vorn init success",
                           "[ERROR] vorn init failed ", "[ERROR]  vorn init failed"}) {
    EXPECT_EQ(Explain(line), nullptr) << line;
  }
}

TEST(Explanations, HaveIdsOfTheirOwnAndAllTheirTexts) {
  std::set<std::string_view> ids;
  for (const Explanation& explanation : AllExplanations()) {
    EXPECT_TRUE(ids.insert(explanation.id).second) << explanation.id;
    EXPECT_FALSE(explanation.means.empty()) << explanation.id;
    EXPECT_EQ(explanation.advice.empty(), explanation.role == LineRole::kOrdinary)
        << explanation.id;
    EXPECT_EQ(explanation.id.find_first_not_of("abcdefghijklmnopqrstuvwxyz-"),
              std::string_view::npos);
  }
}

}  // namespace
