// Tests support/call_record.cpp.
#include "support/call_record.h"

#include <gtest/gtest.h>

namespace support {
namespace {

using Lines = std::vector<std::string>;

TEST(ParseCall, TakesTheLineApart) {
  const RecordedCall call = ParseCall("vorn_rt_malloc(16, 2) = 0 block#1");
  EXPECT_EQ(call.operation, "vorn_rt_malloc");
  EXPECT_EQ(call.arguments, (Lines{"16", "2"}));
  EXPECT_EQ(call.answer, "0");
  EXPECT_EQ(call.shown, "block#1");
  EXPECT_FALSE(call.scripted);
}

TEST(ParseCall, IsNotMisledByQuotesAndParentheses) {
  const RecordedCall init = ParseCall("vorn_init(\"a, b) = 1 \\\" [scripted]\") = 3 [scripted]");
  EXPECT_EQ(init.arguments, (Lines{"\"a, b) = 1 \\\" [scripted]\""}));
  EXPECT_EQ(init.answer, "3");
  EXPECT_EQ(init.shown, "");
  EXPECT_TRUE(init.scripted);
  const RecordedCall release = ParseCall("vorn_rt_free(block#1 (released)) = 1");
  EXPECT_EQ(release.arguments, (Lines{"block#1 (released)"}));
  EXPECT_EQ(release.answer, "1");
  EXPECT_TRUE(ParseCall("vorn_finalize() = 0").arguments.empty());
  EXPECT_EQ(ParseCall("vorn_mdl_get_output_name_by_index(desc#1, 0) = \"a b\"").answer, "\"a b\"");
}

TEST(CallRecord, SortsTheLinesByWhatTheySay) {
  const CallRecord record(
      {"vorn_init(\"x\") = 0", "vorn_mdl_get_num_inputs(desc#1) = 3",
       "vorn_mdl_execute(1, dataset#1, dataset#2) = 0", "saw input 0: buffer=2 block=3 hex=00ff10",
       "vorn_mdl_execute(1, dataset#1, dataset#2) = 7 [scripted]",
       "saw output 12: buffer=2 block=3 hash=0123456789abcdef", "note: n", "violation: v",
       "live: blocks=1 models=0 at=finalize", "live: blocks=0 models=0 at=exit"});
  EXPECT_EQ(record.Calls().size(), 4u);
  EXPECT_EQ(record.CallsWithoutQueries(),
            (Lines{"vorn_init(\"x\") = 0", "vorn_mdl_execute(1, dataset#1, dataset#2) = 0",
                   "vorn_mdl_execute(1, dataset#1, dataset#2) = 7 [scripted]"}));
  EXPECT_EQ(record.CallsOf("vorn_mdl_get_num_inputs").size(), 1u);
  EXPECT_TRUE(record.CallsOf("vorn_mdl_get_num").empty());
  EXPECT_EQ(record.Violations(), (Lines{"violation: v"}));
  EXPECT_EQ(record.Notes(), (Lines{"note: n"}));
  EXPECT_EQ(record.Live(), "blocks=0 models=0");
  EXPECT_TRUE(record.HasScripted());
  const std::vector<Sight> sights = record.Sights();
  ASSERT_EQ(sights.size(), 2u);
  EXPECT_EQ(sights[0].execution, 1u);
  EXPECT_TRUE(sights[0].isInput);
  EXPECT_EQ(sights[0].bufferSize, 2u);
  EXPECT_EQ(sights[0].bytes, std::string("\x00\xff\x10", 3));
  EXPECT_EQ(sights[1].execution, 2u);
  EXPECT_FALSE(sights[1].isInput);
  EXPECT_EQ(sights[1].index, 12u);
  EXPECT_EQ(sights[1].hash, "0123456789abcdef");
}

}  // namespace
}  // namespace support
