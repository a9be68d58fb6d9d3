#include "kit/launch/runtime_words.h"

#include <gtest/gtest.h>

namespace {

using vorn::kit::RunWarning;
using vorn::kit::WarningsInWords;

TEST(RuntimeWords, TellOfRangesOfAnotherModelOnce) {
  const std::string first = "the file of ranges 'r.json' was measured over another model, 'a.onnx'";
  const std::string second =
      "the file of ranges 's.json' was measured over another model, 'b.onnx'";
  EXPECT_EQ(WarningsInWords("vorn: vorn_mdl_load_from_mem: rounded 2 weights to int8\n"
                            "vorn: vorn_mdl_load_from_mem: " +
                            first + "\tx\nnoise\nvorn: vorn_mdl_load_from_mem: " + second),
            (std::vector<RunWarning>{
                {.id = "ranges-of-another-model", .count = 2, .message = first + "\\x09x"}}));
}

TEST(RuntimeWords, SayNothingOfOtherLines) {
  for (const char* errors :
       {"", "\n\n", "vorn: ", "vorn: x", "vorn: x: ", "vorn: x: y\n",
        "the file of ranges 'r' was measured over another model, 'a'\n",
        "somebody: x: the file of ranges 'r' was measured over another model, 'a'\n",
        "vorn: x: he said: the file of ranges 'r' was measured over another model, 'a'\n",
        "vorn: x: the file of ranges 'r' was measured over this model, 'a'\n"}) {
    EXPECT_TRUE(WarningsInWords(errors).empty()) << errors;
  }
}

}  // namespace
