#include "host/common/failure.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

namespace vorn::host {
namespace {

TEST(Join, WritesThePartsOneBehindTheOther) {
  EXPECT_EQ(Join("input ", 3, " '", std::string("x"), "' is ", 2.5), "input 3 'x' is 2.5");
  EXPECT_EQ(Join("alone"), "alone");
}

TEST(Quoted, ListsNamesOrSaysThatThereAreNone) {
  EXPECT_EQ(Quoted(std::vector<std::string>{"b", "a"}), "'b', 'a'");
  EXPECT_EQ(Quoted(std::set<std::string>{"one"}), "'one'");
  EXPECT_EQ(Quoted(std::vector<std::string>{}), "none");
}

TEST(Counted, SaysOneOrMany) {
  EXPECT_EQ(Counted(0, "node"), "0 nodes");
  EXPECT_EQ(Counted(1, "node"), "1 node");
  EXPECT_EQ(Counted(2, "node"), "2 nodes");
}

TEST(Failure, HoldsItsStatusAndTheWholeReason) {
  const Failure failure(VORN_ERROR_TIMEOUT, "it took ", 3, " s");
  EXPECT_EQ(failure.status(), VORN_ERROR_TIMEOUT);
  EXPECT_STREQ(failure.what(), "it took 3 s");
}

}  // namespace
}  // namespace vorn::host
