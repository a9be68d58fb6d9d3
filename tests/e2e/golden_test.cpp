// Runs the golden cases (support/golden.h). VORN_UPDATE_GOLDEN=1 rewrites what they expect; the
// diff of that is then read like code.
#include "support/golden.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>

namespace e2e {
namespace {

using support::GoldenFiles;

class Golden : public testing::TestWithParam<std::string> {};

TEST_P(Golden, RunsAsItIsWritten) {
  const std::filesystem::path folder = std::filesystem::path(VORN_GOLDEN_FOLDER) / GetParam();
  const GoldenFiles actual = support::RunGolden(folder);
  if (support::MustUpdateGolden()) {
    support::WriteGolden(folder, actual);
    return;
  }
  const GoldenFiles expected = support::ReadGolden(folder);
  for (const auto& [name, bytes] : expected) {
    const auto found = actual.find(name);
    if (found == actual.end()) {
      ADD_FAILURE() << name << " is missing";
    } else {
      EXPECT_EQ(found->second, bytes) << "in " << name;
    }
  }
  for (const auto& [name, bytes] : actual) {
    EXPECT_EQ(expected.count(name), 1u) << name << " is not expected";
  }
}

INSTANTIATE_TEST_SUITE_P(Case, Golden,
                         testing::ValuesIn(support::ListGoldenCases(VORN_GOLDEN_FOLDER)),
                         [](const auto& test) {
                           std::string name = test.param;
                           std::replace_if(
                               name.begin(), name.end(),
                               [](unsigned char c) { return !std::isalnum(c); }, '_');
                           return name;
                         });

}  // namespace
}  // namespace e2e
