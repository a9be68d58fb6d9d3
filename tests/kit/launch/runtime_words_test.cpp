#include "kit/launch/runtime_words.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/files.h"

namespace {

using vorn::kit::AllRuntimeWords;
using vorn::kit::IsOfRuntimeWords;
using vorn::kit::RuntimeWords;
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

TEST(RuntimeWords, TellOfResultsThatAreNotWhole) {
  const std::string lines[] = {
      "output 'y' has the shape [3, 6]; what is beyond [2, 6] is cut off",
      "output 0 'y' holds 2 of 3 batch items; the rest is dropped",
      "input 0 'x' is registered with 8 bytes, which is 1 of 2 frames; the others are whatever "
      "lies behind them",
      "input 0 'x' is registered with 9 bytes, which ends within a frame of 8; that frame does not "
      "count"};
  const char* const ids[] = {"output-cut-off", "items-dropped", "frames-beyond-input",
                             "frame-in-part"};
  for (size_t i = 0; i < std::size(lines); ++i) {
    EXPECT_EQ(WarningsInWords("vorn: vorn_mdl_execute: " + lines[i] + "\n"),
              (std::vector<RunWarning>{{.id = ids[i], .count = 1, .message = lines[i]}}));
    EXPECT_TRUE(IsOfRuntimeWords(ids[i]));
  }
  EXPECT_FALSE(IsOfRuntimeWords("program-end"));
}

// What stands between the values of each has to stand in the source of the host runtime.
TEST(RuntimeWords, AreThoseOfTheHostRuntime) {
  std::string source;
  for (const auto& [name, bytes] : support::ReadTree(VORN_SOURCE_FOLDER "/runtime/host")) {
    source += bytes;
  }
  for (const RuntimeWords& words : AllRuntimeWords()) {
    std::string_view rest = words.pattern;
    while (!rest.empty()) {
      const std::string_view piece = rest.substr(0, rest.find('*'));
      EXPECT_THAT(source, testing::HasSubstr('"' + std::string(piece))) << words.id;
      rest.remove_prefix(std::min(rest.size(), piece.size() + 1));
    }
  }
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
