#include "kit/json/identity_json.h"

#include <gtest/gtest.h>

namespace vorn::kit {
namespace {

TEST(FromIdentity, IsReadBackAsTheSame) {
  const FileIdentity file{.path = "/models/a b.om", .sizeBytes = 7, .xxh3 = "00ff"};
  const Json object = FromIdentity(file);
  EXPECT_EQ(ToText(object), R"({"path":"/models/a b.om","sizeBytes":7,"xxh3_128":"00ff"})");
  const FileIdentity again = ToIdentity(object);
  EXPECT_EQ(again.path, file.path);
  EXPECT_EQ(again.sizeBytes, file.sizeBytes);
  EXPECT_EQ(again.xxh3, file.xxh3);
}

TEST(FromIdentity, LeavesOutWhatIsNotKnown) {
  const Json object = FromIdentity({.path = "x", .sizeBytes = {}, .xxh3 = {}});
  EXPECT_EQ(ToText(object), R"({"path":"x"})");
  EXPECT_FALSE(ToIdentity(object).sizeBytes);
  EXPECT_FALSE(ToIdentity(object).xxh3);
}

TEST(ToIdentity, RefusesAFileWithoutAPath) {
  EXPECT_THROW((void)ToIdentity(Json::Object()), JsonError);
  EXPECT_THROW((void)ToIdentity(Json::Object({{"path", "x"}, {"sizeBytes", -1}})), JsonError);
}

}  // namespace
}  // namespace vorn::kit
