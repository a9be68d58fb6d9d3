#include "host/config/ranges.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "host/config/json_values.h"
#include "runtime/host/refusal.h"
#include "support/files.h"

namespace vorn::host {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

const std::string kFile = R"({"schema": 1, "kind": "ranges", "producer": "x", "tensors": {
  "conv1": {"min": -1.5, "max": 3, "samples": 7}, "y": {"min": 0, "max": 0}}})";

std::string Refusal(const std::string& text) {
  return ReasonOf(VORN_ERROR_CONFIG, [&] { ParseRanges("the file", text); });
}

TEST(ParseRanges, ReadsThemAndPassesOverWhatElseAFileTells) {
  const auto ranges = ParseRanges("the file", kFile).tensors;
  ASSERT_EQ(ranges.size(), 2u);
  EXPECT_EQ(ranges.at("conv1"), (Range{-1.5, 3}));
  EXPECT_EQ(ranges.at("y"), (Range{0, 0}));
}

TEST(ParseRanges, RefusesWhatHoldsNone) {
  EXPECT_THAT(Refusal("["), StartsWith("the file is not JSON"));
  EXPECT_THAT(Refusal("{}"), StartsWith("the file holds no ranges"));
  EXPECT_THAT(Refusal(R"({"schema": 1, "kind": "verdict", "tensors": {}})"),
              HasSubstr("no ranges"));
  EXPECT_THAT(Refusal(R"({"schema": 2, "kind": "ranges", "tensors": {}})"),
              HasSubstr("another schema"));
  EXPECT_THAT(Refusal(R"({"schema": 1, "kind": "ranges", "tensors": []})"),
              HasSubstr("'tensors' is []"));
  EXPECT_THAT(Refusal(R"({"schema": 1, "kind": "ranges", "tensors": {"a": {"min": 2, "max": 1}}})"),
              HasSubstr("the least value is above the largest"));
}

// The digits are those of `xxhsum -H2` of "abc".
TEST(WhoseRanges, AreToldWhereTheModelIsAnother) {
  const auto whose = [](const std::string& model, std::string_view image) {
    const std::string text =
        R"({"schema": 1, "kind": "ranges", "tensors": {}, "model": )" + model + "}";
    return WhoseRanges("r.json", ParseRanges("the file", text), std::as_bytes(std::span(image)));
  };
  const std::string abc =
      R"({"path": "nets/abc.onnx", "xxh3_128": "06b05ab6733a618578af5f94892f3950"})";
  EXPECT_EQ(whose(abc, "abc"), "");
  EXPECT_EQ(whose(abc, ""),
            "the file of ranges 'r.json' was measured over another model, 'nets/abc.onnx' with the "
            "XXH3 06b05ab6733a618578af5f94892f3950, and this one has "
            "99aa06d3014798d86001c324468d497f; unless it is the same network, saved again, measure "
            "this one with vorn calibrate");
  for (const char* silent : {R"("abc")", "{}", R"({"path": "a", "xxh3_128": 7})", "null"}) {
    EXPECT_EQ(whose(silent, "abc"), "") << silent;
  }
}

TEST(ReadRange, TakesTwoNumbersAndNoOtherKey) {
  const auto read = [](const std::string& text) {
    return ReasonOf(VORN_ERROR_CONFIG, [&] { ReadRange("k", nlohmann::json::parse(text)); });
  };
  EXPECT_EQ(read(R"({"min": -1, "max": 2.5})"), "");
  EXPECT_THAT(read(R"({"min": -1})"), HasSubstr("'k' is"));
  EXPECT_THAT(read(R"([-1, 1])"), HasSubstr("give the least and the largest value"));
  EXPECT_THAT(read(R"({"min": "a", "max": 1})"), HasSubstr("'k.min' is \"a\"; give a number"));
  EXPECT_THAT(read(R"({"min": 0, "max": 1, "mean": 1})"), HasSubstr("'k.mean' is not known"));
}

TEST(ReadRangesFile, ReadsAFileAndSaysWhichItCannot) {
  const support::TempDir folder;
  const std::string path = (folder.Path() / "ranges.json").string();
  support::WriteFile(path, kFile);
  EXPECT_EQ(ReadRangesFile(path).tensors.size(), 2u);
  support::WriteFile(path, "{}");
  EXPECT_THAT(ReasonOf(VORN_ERROR_CONFIG, [&] { ReadRangesFile(path); }),
              HasSubstr("ranges.json'"));
  EXPECT_THAT(ReasonOf(VORN_ERROR_CONFIG, [&] { ReadRangesFile(path + "/none"); }),
              HasSubstr("cannot be read (Not a directory); give the path of a JSON file"));
}

TEST(ReadRangesFile, SaysWhereARelativePathLed) {
  const support::TempDir folder;
  const std::filesystem::path before = std::filesystem::current_path();
  const std::filesystem::path deep = folder.Path() / std::string(200, 'd');
  std::filesystem::create_directory(deep);
  std::filesystem::current_path(deep);
  const std::string meant = (std::filesystem::current_path() / "none/ranges.json").string();
  EXPECT_THAT(ReasonOf(VORN_ERROR_CONFIG, [&] { ReadRangesFile("there/../none/ranges.json"); }),
              HasSubstr("'there/../none/ranges.json' cannot be read (No such file or directory); "
                        "from the folder that the program runs in it is '" +
                        meant + "'; give the path of a JSON file"));
  std::filesystem::current_path(before);
}

}  // namespace
}  // namespace vorn::host
