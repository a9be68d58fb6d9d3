// Tests scripted/script.cpp.
#include "scripted/script.h"

#include <gtest/gtest.h>

#include <cstring>

namespace scripted {
namespace {

Script Parsed(const std::string& text) {
  Script script;
  EXPECT_EQ(ParseScript(text, &script), "");
  return script;
}

std::string Refused(const std::string& text) {
  Script script;
  script.netType = 77;
  std::string problem = ParseScript(text, &script);
  EXPECT_EQ(script.netType, 77) << "a refused script was stored";
  return problem;
}

TEST(ParseScript, ReadsTheModelAsItStands) {
  const Script script = Parsed(
      "# a model\n"
      "net 2\nrun-mode -1\nmodel-id 4294967295\n"
      "input name=\"a b\" dims=1,-3,0 type=4 stride=32 size=0x180 format=-7  # first\n"
      "output name=prob dims= full-name=\"\\x00long\\\"\" rank=200\n");
  EXPECT_EQ(script.netType, 2);
  EXPECT_EQ(script.runMode, -1);
  EXPECT_EQ(script.firstModelId, 4294967295u);
  ASSERT_EQ(script.inputs.size(), 1u);
  EXPECT_EQ(script.inputs[0].name, "a b");
  EXPECT_EQ(script.inputs[0].dims, (std::vector<int64_t>{1, -3, 0}));
  EXPECT_EQ(script.inputs[0].type, 4u);
  EXPECT_EQ(script.inputs[0].stride, 32u);
  EXPECT_EQ(script.inputs[0].size, 384u);
  EXPECT_EQ(script.inputs[0].format, -7);
  ASSERT_EQ(script.outputs.size(), 1u);
  EXPECT_TRUE(script.outputs[0].dims.empty());
  EXPECT_EQ(script.outputs[0].fullName, std::string("\0long\"", 6));
  EXPECT_EQ(script.outputs[0].rank, 200u);
}

TEST(ParseScript, ReadsAnswersWithTheirCalls) {
  const Script script = Parsed(
      "answer vorn_init always 3\n"
      "answer vorn_mdl_execute 2-20 -1 effect\n"
      "answer vorn_mdl_get_input_size_by_index index=4 2 0\n"
      "answer vorn_mdl_create_desc 3- null\n"
      "answer vorn_mdl_get_output_name_by_index 1 \"\"\n");
  ASSERT_EQ(script.answers.size(), 5u);
  EXPECT_TRUE(script.answers[0].calls.Has(1));
  EXPECT_EQ(script.answers[1].calls.first, 2u);
  EXPECT_EQ(script.answers[1].calls.last, 20u);
  EXPECT_EQ(static_cast<int32_t>(script.answers[1].number), -1);
  EXPECT_TRUE(script.answers[1].effect);
  EXPECT_EQ(script.answers[2].index, 4u);
  EXPECT_FALSE(script.answers[2].calls.Has(1));
  EXPECT_EQ(script.answers[3].kind, AnswerKind::kNull);
  EXPECT_TRUE(script.answers[3].calls.Has(1000000));
  EXPECT_EQ(script.answers[4].kind, AnswerKind::kText);
}

TEST(ParseScript, ReadsWhatExecutionsWrite) {
  const Script script = Parsed(
      "write 1 execute=2- at=8 frame=4,16 floats 1.5 0x7fc00000\n"
      "write 0 bytes 00ff 1\x30\n"
      "write 0 fill 5a\n"
      "write 0 counter 250\n"
      "write 0 file /tmp/some file\n"
      "write 0 copy 3\n");
  ASSERT_EQ(script.writes.size(), 6u);
  const WriteRule& floats = script.writes[0];
  EXPECT_EQ(floats.output, 1u);
  EXPECT_EQ(floats.executions.first, 2u);
  EXPECT_EQ(floats.offset, 8u);
  EXPECT_EQ(floats.rowBytes, 4u);
  EXPECT_EQ(floats.strideBytes, 16u);
  EXPECT_EQ(floats.bytes, std::string("\x00\x00\xc0\x3f\x00\x00\xc0\x7f", 8));
  EXPECT_EQ(script.writes[1].bytes, std::string("\x00\xff\x10", 3));
  EXPECT_EQ(script.writes[2].number, 0x5au);
  EXPECT_EQ(script.writes[3].number, 250u);
  EXPECT_EQ(script.writes[4].bytes, "/tmp/some file");
  EXPECT_EQ(script.writes[5].number, 3u);
}

TEST(ParseScript, NamesTheLineThatItCannotRead) {
  EXPECT_EQ(Refused("net 1\n\nfoo 2\n"), "line 3: 'foo' starts no statement");
  EXPECT_EQ(Refused("answer vorn_mdl_exec always 1\n"),
            "line 1: there is no operation 'vorn_mdl_exec'");
  EXPECT_EQ(Refused("pause vorn_mdl_exec 1\n"), "line 1: there is no operation 'vorn_mdl_exec'");
  EXPECT_EQ(Refused("net one\n"), "line 1: 'one' is not a number");
  EXPECT_EQ(Refused("net 1 2\n"), "line 1: '2' is one word too many");
  EXPECT_EQ(Refused("fail 0\n"), "line 1: calls are counted from 1 upwards");
  EXPECT_EQ(Refused("write 0 bytes 0\n"), "line 1: two hexadecimal digits are wanted in '0'");
  EXPECT_EQ(Refused("input name=\"a\n"), "line 1: a quote is left open");
  EXPECT_EQ(Refused("input size=18446744073709551616\n"),
            "line 1: '18446744073709551616' is not a number");
}

TEST(BitsOf, AnswersForTheKnownCodesAndLetsTheScriptDisagree) {
  const uint64_t known[] = {32, 16, 8, 32, 8, 32, 16, 16, 64, 64, 64, 8};
  for (uint32_t code = 0; code < 12; ++code) EXPECT_EQ(Script().BitsOf(code), known[code]) << code;
  EXPECT_EQ(Script().BitsOf(12), 0u);
  const Script script = Parsed("bits 0 16\nbits 40 4\nbits 0 8\n");
  EXPECT_EQ(script.BitsOf(0), 8u);
  EXPECT_EQ(script.BitsOf(40), 4u);
}

}  // namespace
}  // namespace scripted
