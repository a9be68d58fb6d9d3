#include "kit/report/places.h"

#include <gtest/gtest.h>

#include "support/files.h"

namespace vorn::kit {
namespace {

TEST(Places, FindsWhatWasToldFromTheRunsOwnFolder) {
  const support::TempDir folder;
  const std::string top = folder.Path().string();
  support::WriteFile(folder.Path() / "there/build/reference/x", "");
  const Places places(top + "/there/build/run", {"build/run/"});
  EXPECT_EQ(places.Find("build/reference"), top + "/there/build/reference");
  EXPECT_EQ(places.Find("./build/reference"), top + "/there/./build/reference");
  EXPECT_EQ(places.Find("build/nothing"), "build/nothing");
  EXPECT_EQ(places.Find("/abs"), "/abs");
  EXPECT_EQ(places.Find(""), "");
  EXPECT_EQ(places.Folder(), top + "/there/");
}

TEST(Places, LeavesPathsOfARunThatWasMoved) {
  const support::TempDir folder;
  support::WriteFile(folder.Path() / "reference/x", "");
  const Places places((folder.Path() / "moved").string(), {"run", ""});
  EXPECT_EQ(places.Find("reference"), "reference");
}

}  // namespace
}  // namespace vorn::kit
