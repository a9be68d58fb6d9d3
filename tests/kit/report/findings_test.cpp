#include "kit/report/findings.h"

#include <gtest/gtest.h>

#include "kit/json/json.h"

namespace vorn::kit {
namespace {

TEST(FindingFromLine, TakesWhatIsThere) {
  const ReportFinding finding = FindingFromLine(
      R"({"schema": 1, "id": "a", "severity": "error", "count": 2, "message": "m",
          "operation": "vorn_rt_free", "later": []})");
  EXPECT_EQ(finding.id, "a");
  EXPECT_EQ(finding.severity, "error");
  EXPECT_EQ(finding.count, 2U);
  EXPECT_EQ(finding.message, "m");
  EXPECT_EQ(finding.operation, "vorn_rt_free");
  EXPECT_EQ(FindingFromLine(R"({"message": "m"})").count, 1U);
}

TEST(FindingFromLine, RefusesWhatIsNone) {
  for (const char* line : {"", "[]", "{}", "{\"id\": 5}", "{\"id\": \"a\", \"count\": -1}"}) {
    EXPECT_THROW((void)FindingFromLine(line), JsonError) << line;
  }
}

}  // namespace
}  // namespace vorn::kit
