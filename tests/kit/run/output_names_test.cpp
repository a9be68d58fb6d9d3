#include "kit/run/output_names.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/run/run_directory.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

TEST(LongNamesIn, ReadsTheLinesOfTheHostRuntime) {
  EXPECT_THAT(LongNamesIn("vorn: vorn_mdl_load_from_mem: 'a~1~z' stands for 'all'\n"
                          "vorn: vorn_mdl_load_from_mem: 'b~2~y' stands for 'bell's 'own''\n"
                          "vorn: vorn_mdl_load_from_mem: exposed 2 tensors\n"
                          "vorn: vorn_mdl_load_from_mem: 'a~1~z' stands for 'all'\n"),
              ElementsAre(Pair("a~1~z", "all"), Pair("b~2~y", "bell's 'own'")));
}

TEST(LongNamesIn, PassesOverWhatIsNone) {
  EXPECT_THAT(LongNamesIn(""), IsEmpty());
  EXPECT_THAT(LongNamesIn("'a' stands for 'b'\n"
                          "vorn: vorn_mdl_load_from_mem: 'a' stands for\n"
                          "vorn: vorn_mdl_load_from_mem: '\n"
                          "vorn: vorn_mdl_load_from_mem: 'a' stands for 'cut of"),
              IsEmpty());
}

TEST(LongNamesIn, LeavesOutNamesThatTwoStandFor) {
  EXPECT_THAT(LongNamesIn("vorn: vorn_mdl_load_from_mem: 'a' stands for 'x ... y'\n"
                          "vorn: vorn_mdl_load_from_mem: 'b' stands for 'x ... y'\n"
                          "vorn: vorn_mdl_load_from_mem: 'c' stands for 'z'\n"),
              ElementsAre(Pair("c", "z")));
}

TEST(ProgramErrorsOf, TakesTheFileAndElseTheRecord) {
  const support::TempDir folder;
  EXPECT_EQ(ProgramErrorsOf(folder.Path()), "");
  RunFacts facts;
  facts.standardError = "of the record";
  support::WriteFile(folder.Path() / "run.json", ToJson(facts));
  EXPECT_EQ(ProgramErrorsOf(folder.Path()), "of the record");
  support::WriteFile(folder.Path() / "errors.txt", "of the file");
  EXPECT_EQ(ProgramErrorsOf(folder.Path()), "of the file");
}

}  // namespace
}  // namespace vorn::kit
