// Tests support/model_script.cpp against the reader of the scripts.
#include "support/model_script.h"

#include <gtest/gtest.h>

#include "scripted/script.h"

namespace support {
namespace {

TEST(ModelScript, IsReadBackAsItWasMeant) {
  ModelScript script;
  const std::string name = "a \"b\"\n\\#\xff";
  script.Input({name, {1, -2}, 7, 16, 32, -1})
      .Scratch()
      .Output({"", {}, 0, 8, 16, 0})
      .Net(2)
      .Answer("vorn_init", "2-", "5")
      .AnswerAt("vorn_mdl_get_output_size_by_index", 3, "1", "0")
      .WriteRows(0, 2, 8, std::string("\0\1\2", 3));
  scripted::Script read;
  ASSERT_EQ(scripted::ParseScript(script.Text(), &read), "");
  ASSERT_EQ(read.inputs.size(), 3u);
  EXPECT_EQ(read.inputs[0].name, name);
  EXPECT_EQ(read.inputs[0].dims, (std::vector<int64_t>{1, -2}));
  EXPECT_EQ(read.inputs[0].type, 7u);
  EXPECT_EQ(read.inputs[0].stride, 16u);
  EXPECT_EQ(read.inputs[0].size, 32u);
  EXPECT_EQ(read.inputs[0].format, -1);
  EXPECT_EQ(read.inputs[2].size, 64u);
  ASSERT_EQ(read.outputs.size(), 1u);
  EXPECT_TRUE(read.outputs[0].dims.empty());
  EXPECT_EQ(read.netType, 2);
  EXPECT_EQ(read.answers[1].index, 3u);
  EXPECT_EQ(read.writes[0].bytes, std::string("\0\1\2", 3));
  EXPECT_EQ(read.writes[0].strideBytes, 8u);
}

}  // namespace
}  // namespace support
