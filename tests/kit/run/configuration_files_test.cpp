#include "kit/run/configuration_files.h"

#include <gtest/gtest.h>

#include "support/files.h"

namespace vorn::kit {
namespace {

TEST(FilesNamedIn, AreThoseThatAreThere) {
  const support::TempDir folder;
  const std::string ranges = folder.Path() / "ranges.json";
  support::WriteFile(ranges, "one");
  const std::string config = folder.Path() / "host.json";
  support::WriteFile(config, R"({"model": {"round": {"int8": ")" + ranges + R"("}}, "dims": [")" +
                                 ranges + R"(", "nothing of the kind", "/dev/null", ""]})");
  const std::vector<FileIdentity> before = FilesNamedIn(config);
  ASSERT_EQ(before.size(), 1U);
  EXPECT_EQ(before[0].path, ranges);
  EXPECT_EQ(before[0].sizeBytes, 3U);
  support::WriteFile(ranges, "two");
  EXPECT_NE(FilesNamedIn(config), before);
}

TEST(FilesNamedIn, AreNoneWhereItIsNoJson) {
  const support::TempDir folder;
  const std::string config = folder.Path() / "host.json";
  support::WriteFile(config, "{");
  EXPECT_TRUE(FilesNamedIn(config).empty());
}

}  // namespace
}  // namespace vorn::kit
