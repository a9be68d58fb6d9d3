#include "kit/ledger/series_key.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/common/fault.h"
#include "kit/history/made_run.h"

namespace vorn::kit {
namespace {

using support::MadeEntry;
using testing::ElementsAre;
using testing::HasSubstr;

std::vector<std::string> Key(const RunEntry& run, std::string_view names) {
  return KeyOf(run, KeyPartsOf(names));
}

TEST(SeriesKey, IsWhatAPersonNamed) {
  const RunEntry run = MadeEntry(3, 1);
  EXPECT_THAT(Key(run, kUsualParts),
              ElementsAre("digits.onnx", "device.json", "list.txt", "-b 2", "board7", ""));
  RunEntry other = run;
  other.modelXxh3 = other.runtimeXxh3 = other.tool = other.governor = "changed";
  EXPECT_EQ(Key(other, kUsualParts), Key(run, kUsualParts));
  other.side = "B";
  EXPECT_NE(Key(other, kUsualParts), Key(run, kUsualParts));
}

TEST(SeriesKey, HasThePartsThatAreAskedFor) {
  const RunEntry run = MadeEntry(3, 1);
  EXPECT_THAT(Key(run, "board,model-hash,tool"),
              ElementsAre("board7", std::string(32, '1'), "0.1.0", ""));
  try {
    (void)KeyPartsOf("model,bord");
    FAIL();
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kUsage);
    EXPECT_THAT(fault.what(), HasSubstr("'bord' is none; did you mean 'board'?"));
  }
  EXPECT_THROW((void)KeyPartsOf(""), Fault);
  EXPECT_THROW((void)KeyPartsOf("model,"), Fault);
}

TEST(SeriesNameOf, KeepsKeysApart) {
  const std::vector<std::string> one{"ab", "c"};
  const std::vector<std::string> other{"a", "bc"};
  EXPECT_EQ(SeriesNameOf(one).size(), 8U);
  EXPECT_NE(SeriesNameOf(one), SeriesNameOf(other));
}

TEST(SeriesTextOf, LeavesOutWhatIsEmptyAndCutsHashes) {
  RunEntry run = MadeEntry(3, 1);
  run.options.clear();
  const auto parts = KeyPartsOf("model,options,runtime,board");
  EXPECT_EQ(SeriesTextOf(KeyOf(run, parts), parts), "digits.onnx, 44444444, board7");
}

}  // namespace
}  // namespace vorn::kit
