#include "layers/common/call_set.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

namespace vorn::layers {
namespace {

constexpr const char* kNames[] = {"vorn_init", "vorn_rt_malloc", "vorn_rt_free",
                                  "vorn_mdl_execute"};
enum : size_t { kInit, kMalloc, kFree, kExecute };

std::string g_fileText;  // what stands in the file "calls"

bool ReadFake(const char* path, char* text, size_t size) {
  if (std::strcmp(path, "calls") != 0 || g_fileText.size() >= size) return false;
  std::memcpy(text, g_fileText.c_str(), g_fileText.size() + 1);
  return true;
}

std::string ReasonOf(const std::string& text, CallSet& set) {
  char reason[200] = "";
  if (ParseCallSet(text.c_str(), {kNames, 4}, ReadFake, set, reason, sizeof(reason))) return "none";
  return reason;
}

CallSet Parsed(const std::string& text) {
  CallSet set;
  EXPECT_EQ(ReasonOf(text, set), "none") << text;
  return set;
}

std::string Refused(const std::string& text) {
  CallSet set;
  return ReasonOf(text, set);
}

TEST(CallSet, HoldsEveryCallWithoutAnItem) {
  for (const char* text : {"", " ,\n", "# nothing\n"}) {
    EXPECT_TRUE(Parsed(text).Holds(kInit, 1, 1)) << text;
  }
}

TEST(CallSet, HoldsOperationsByNameAndPattern) {
  const CallSet set = Parsed("vorn_init,vorn_rt_*");
  EXPECT_TRUE(set.Holds(kInit, 9, 9));
  EXPECT_TRUE(set.Holds(kMalloc, 9, 9));
  EXPECT_TRUE(set.Holds(kFree, 9, 9));
  EXPECT_FALSE(set.Holds(kExecute, 9, 9));
  EXPECT_TRUE(Parsed("*free").Holds(kFree, 1, 1));
  EXPECT_FALSE(Parsed("*free").Holds(kMalloc, 1, 1));
  EXPECT_TRUE(Parsed("vorn_??_*e").Holds(kFree, 1, 1));
  EXPECT_FALSE(Parsed("vorn_??_*e").Holds(kExecute, 1, 1));
}

TEST(CallSet, HoldsEveryNthOfAnOperation) {
  const CallSet set = Parsed("vorn_mdl_execute/100");
  EXPECT_FALSE(set.Holds(kExecute, 100, 99));
  EXPECT_TRUE(set.Holds(kExecute, 5000, 100));
  EXPECT_TRUE(set.Holds(kExecute, 5001, 200));
  EXPECT_FALSE(set.Holds(kInit, 100, 100));
}

TEST(CallSet, HoldsCallsByTheirNumbers) {
  const CallSet set = Parsed("7 10-20\t500-");
  for (const uint64_t number : {7, 10, 20, 500, 100000}) EXPECT_TRUE(set.Holds(kInit, number, 1));
  for (const uint64_t number : {1, 8, 9, 21, 499}) EXPECT_FALSE(set.Holds(kInit, number, 7));
}

TEST(CallSet, IsReadFromAFileToo) {
  g_fileText = "# calls of interest\n10-20\r\n\nvorn_init # and this one\n";
  const CallSet set = Parsed("7,@calls");
  EXPECT_TRUE(set.Holds(kMalloc, 7, 1));
  EXPECT_TRUE(set.Holds(kMalloc, 15, 1));
  EXPECT_TRUE(set.Holds(kInit, 99, 1));
  EXPECT_FALSE(set.Holds(kMalloc, 99, 1));
  EXPECT_EQ(Refused("@missing"),
            "a file of calls cannot be read, or is longer than 16383 bytes: @missing");
  g_fileText = "@calls";
  EXPECT_EQ(Refused("@calls"), "a file of calls names no further one: @calls");
}

TEST(CallSet, RefusesWhatItCannotBe) {
  EXPECT_EQ(Refused("vorn_exec"), "there is no operation of this name: vorn_exec");
  EXPECT_EQ(Refused("vorn_x*"), "there is no operation of this name: vorn_x*");
  for (const char* text : {"0", "0-5", "5-4", "5-4x", "7x", "1-2-3", "99999999999999999999"}) {
    EXPECT_EQ(Refused(text),
              "calls are numbered from 1, as 7, 10-20 or 500-, and not: " + std::string(text));
  }
  for (const char* text : {"vorn_init/", "vorn_init/0", "vorn_init/x", "*/2/3"}) {
    EXPECT_EQ(Refused(text),
              "behind a slash stands a whole number from 1 on: " + std::string(text));
  }
  EXPECT_EQ(Refused(std::string(1024, 'x')), "an item is longer than 1023 characters");
  std::string many;
  for (int i = 0; i < 64; ++i) many += "1,";
  EXPECT_EQ(Parsed(many).count, 64U);
  EXPECT_EQ(Refused(many + "1"), "there are more than 64 items");
}

// By a pattern's meaning, tried out letter by letter.
bool SlowFits(const std::string& pattern, const std::string& name) {
  if (pattern.empty()) return name.empty();
  if (pattern[0] == '*') {
    for (size_t i = 0; i <= name.size(); ++i) {
      if (SlowFits(pattern.substr(1), name.substr(i))) return true;
    }
    return false;
  }
  return !name.empty() && (pattern[0] == '?' || pattern[0] == name[0]) &&
         SlowFits(pattern.substr(1), name.substr(1));
}

TEST(CallSet, FitsPatternsAsASlowReferenceDoes) {
  std::mt19937 random(1);
  for (int round = 0; round < 3000; ++round) {
    std::string name;
    std::string pattern;
    for (auto i = random() % 6; i > 0; --i) name += "ab"[random() % 2];
    for (auto i = 1 + random() % 5; i > 0; --i) pattern += "ab*?"[random() % 4];
    const char* names[] = {name.c_str()};
    CallSet set;
    char reason[200];
    EXPECT_EQ(ParseCallSet(pattern.c_str(), {names, 1}, ReadFake, set, reason, sizeof(reason)),
              SlowFits(pattern, name))
        << pattern << " " << name;
  }
}

}  // namespace
}  // namespace vorn::layers
