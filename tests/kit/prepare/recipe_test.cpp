#include "kit/prepare/recipe.h"

#include <gtest/gtest.h>

#include "kit/common/fault.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

Recipe Read(const std::string& members) {
  return RecipeFromJson(ParseJson(R"({"schema": 1, "name": "mine")" + members + "}"));
}

std::string WhyNot(const std::string& members) {
  try {
    (void)Read(members);
  } catch (const JsonError& error) {
    return error.what();
  }
  return "it is taken";
}

TEST(Recipe, IsWhatIsSaidAndNothingElse) {
  const Recipe recipe = Read("");
  EXPECT_EQ(recipe.name, "mine");
  EXPECT_TRUE(recipe.followsExif);
  EXPECT_EQ(recipe.colours, Colours::kRgb);
  EXPECT_FALSE(recipe.resize || recipe.crop || recipe.quantisation || recipe.NeedsPicture());
  EXPECT_TRUE(recipe.values.empty());
}

TEST(Recipe, SurvivesBeingWrittenAndRead) {
  for (const std::string& name : ReadyRecipes()) {
    const Recipe recipe = FindRecipe(name);
    const std::string text = ToText(ToJson(recipe));
    EXPECT_EQ(ToText(ToJson(RecipeFromJson(ParseJson(text)))), text) << name;
    EXPECT_FALSE(AboutReadyRecipe(name).empty()) << name;
  }
  const Recipe full = Read(
      R"(, "version": 3, "orientation": "stored", "depth": "stored", "colours": "bgr",
          "alpha": {"over": [1, 2, 3]}, "crop": {"size": [5, 6], "rounding": "down"},
          "resize": {"rule": "pil-bicubic", "fit": "letterbox", "size": [7, 9], "as": "float32",
                     "fill": 3, "placement": "top-left", "enlarge": false, "rounding": "down"},
          "values": [{"add": 1}, {"multiply": [1, 2, 3]}], "layout": "NHWC",
          "quantisation": {"scale": 0.1, "zeroPoint": -3})");
  const Recipe again = RecipeFromJson(ParseJson(ToText(ToJson(full))));
  EXPECT_EQ(again.version, 3U);
  EXPECT_FALSE(again.followsExif);
  EXPECT_TRUE(again.isDepthKept);
  EXPECT_EQ(again.colours, Colours::kBgr);
  EXPECT_EQ(again.under, full.under);
  EXPECT_EQ(again.crop, full.crop);
  EXPECT_EQ(again.resize, full.resize);
  EXPECT_EQ(again.resize->size, (PictureSize{.width = 9, .height = 7}));
  EXPECT_EQ(again.values, full.values);
  EXPECT_EQ(again.layout, PictureLayout::kNhwc);
  EXPECT_EQ(again.quantisation, full.quantisation);
}

TEST(Recipe, NamesWhatIsWrong) {
  EXPECT_EQ(WhyNot(R"(, "resise": {})"), "there is no key 'resise'; did you mean 'resize'?");
  EXPECT_EQ(WhyNot(R"(, "colours": "yuv")"),
            "colours is \"yuv\", and takes one of rgb, bgr, rgba, bgra, grey-pil, grey-opencv");
  EXPECT_NE(WhyNot(R"(, "resize": {"rule": "bilinear"})").find("there is no rule 'bilinear'"),
            std::string::npos);
  EXPECT_EQ(WhyNot(R"(, "resize": {"rule": "pil-box", "size": 224})"),
            "size is 224, and takes \"model\" or [height, width]");
  EXPECT_EQ(WhyNot(R"(, "resize": {"rule": "pil-box", "size": [0, 4]})"),
            "a side of 0 pixels; it takes 1 to 65535");
  EXPECT_EQ(WhyNot(R"(, "resize": {"rule": "pil-box", "fill": 3})"),
            "fill has a meaning only where the fit is \"letterbox\"");
  EXPECT_EQ(WhyNot(R"(, "resize": {"rule": "pil-box", "rounding": "down"})"),
            "rounding has no meaning where the fit is \"stretch\"");
  EXPECT_EQ(WhyNot(R"(, "values": [{"divide": 0}])"), "divide by 0");
  EXPECT_EQ(WhyNot(R"(, "values": [{"divide": [1, 2]}])"),
            "divide has 2 numbers, and there are 3 channels");
  EXPECT_EQ(WhyNot(R"(, "values": [{"divide": []}])"),
            "divide has 0 numbers; it takes one, or one a channel");
  EXPECT_EQ(WhyNot(R"(, "values": [{"divide": [1, 2, 3, 4, 5]}])"),
            "divide has 5 numbers; it takes one, or one a channel");
  EXPECT_EQ(WhyNot(R"(, "values": [{"divide": 1, "add": 2}])"),
            "a step of values is {\"divide\":1,\"add\":2}, and takes one operation, such as "
            "{\"divide\": 255}");
  EXPECT_EQ(WhyNot(R"(, "quantisation": {"scale": 0})"), "scale is 0, and has to be above 0");
  EXPECT_EQ(WhyNot(R"(, "quantisation": {"scale": 1, "zeroPoint": 0.5})"),
            "zeroPoint is 0.5, and has to be a whole number");
  EXPECT_EQ(WhyNot(R"(, "alpha": "keep")"),
            "alpha is \"keep\", and takes \"drop\" or {\"over\": [red, green, blue]}");
}

TEST(FindRecipe, ReadsAFileAndNamesItsFaults) {
  const support::TempDir folder;
  const std::string path = folder.Path() / "mine.json";
  support::WriteFile(path, R"({"schema": 1, "name": "mine", "colours": "bgr"})");
  EXPECT_EQ(FindRecipe(path).colours, Colours::kBgr);
  support::WriteFile(path, R"({"schema": 2, "name": "mine"})");
  try {
    (void)FindRecipe(path);
    FAIL() << "it was taken";
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kInput);
    EXPECT_EQ(std::string(fault.what()),
              "the recipe '" + path + "': its schema is 2, and this program reads 1");
  }
}

TEST(FindRecipe, NamesTheNearestReadyOne) {
  try {
    (void)FindRecipe("imagenet-torchvison");
    FAIL() << "it was taken";
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kUsage);
    EXPECT_NE(std::string(fault.what()).find("did you mean 'imagenet-torchvision'?"),
              std::string::npos);
  }
}

}  // namespace
}  // namespace vorn::kit
