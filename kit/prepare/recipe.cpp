#include "kit/prepare/recipe.h"

#include <sys/stat.h>

#include <algorithm>
#include <cmath>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "kit/common/nearest.h"
#include "kit/common/printable.h"
#include "kit/json/json_members.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostRecipeBytes = 1 << 20;
constexpr uint64_t kMostSide = 65535;
constexpr size_t kMostSteps = 64;
constexpr size_t kMostChannels = 4;
constexpr uint64_t kRecipeSchema = 1;

// ---- Words --------------------------------------------------------------------------------------

template <typename Value>
struct Word {
  std::string_view word;
  Value value;
};

constexpr std::array kColours{
    Word<Colours>{"rgb", Colours::kRgb},
    Word<Colours>{"bgr", Colours::kBgr},
    Word<Colours>{"rgba", Colours::kRgba},
    Word<Colours>{"bgra", Colours::kBgra},
    Word<Colours>{"grey-pil", Colours::kGreyPil},
    Word<Colours>{"grey-opencv", Colours::kGreyOpencv},
};
constexpr std::array kFits{
    Word<ResizeStep::Fit>{"stretch", ResizeStep::Fit::kStretch},
    Word<ResizeStep::Fit>{"shorter", ResizeStep::Fit::kShorter},
    Word<ResizeStep::Fit>{"letterbox", ResizeStep::Fit::kLetterbox},
};
constexpr std::array kRoundings{
    Word<Rounding>{"down", Rounding::kDown},
    Word<Rounding>{"half-even", Rounding::kHalfEven},
};
constexpr std::array kSteps{
    Word<ValueStep::Kind>{"add", ValueStep::Kind::kAdd},
    Word<ValueStep::Kind>{"subtract", ValueStep::Kind::kSubtract},
    Word<ValueStep::Kind>{"multiply", ValueStep::Kind::kMultiply},
    Word<ValueStep::Kind>{"divide", ValueStep::Kind::kDivide},
};
constexpr std::array kLayouts{
    Word<PictureLayout>{"model", PictureLayout::kModel},
    Word<PictureLayout>{"NCHW", PictureLayout::kNchw},
    Word<PictureLayout>{"NHWC", PictureLayout::kNhwc},
};
constexpr std::array kOrientations{Word<bool>{"exif", true}, Word<bool>{"stored", false}};
constexpr std::array kDepths{Word<bool>{"upper-byte", false}, Word<bool>{"stored", true}};
constexpr std::array kResizedAs{Word<bool>{"stored", false}, Word<bool>{"float32", true}};
constexpr std::array kPlacements{Word<bool>{"centre", true}, Word<bool>{"top-left", false}};

template <typename Words>
std::string Listed(const Words& words) {
  std::string list;
  for (const auto& one : words) list += (list.empty() ? "" : ", ") + std::string(one.word);
  return list;
}

template <typename Words>
auto TakeWord(const Json& value, const char* key, const Words& words) {
  for (const auto& one : words) {
    if (value.IsText() && value.AsText() == one.word) return one.value;
  }
  throw JsonError(std::string(key) + " is " + ShownValue(value) + ", and takes one of " +
                  Listed(words));
}

template <typename Words, typename Value>
std::string_view WordOf(const Words& words, const Value& value) {
  for (const auto& one : words) {
    if (one.value == value) return one.word;
  }
  return "";
}

// ---- Reading ------------------------------------------------------------------------------------

uint32_t SideOf(const Json& value) {
  const uint64_t side = value.AsUnsigned();
  if (side == 0 || side > kMostSide) {
    throw JsonError("a side of " + std::to_string(side) + " pixels; it takes 1 to " +
                    std::to_string(kMostSide));
  }
  return static_cast<uint32_t>(side);
}

// "model" is none.
std::optional<PictureSize> SizeOf(const Json& value) {
  if (value.IsText() && value.AsText() == "model") return std::nullopt;
  if (!value.IsArray() || value.Items().size() != 2) {
    throw JsonError("size is " + ShownValue(value) + ", and takes \"model\" or [height, width]");
  }
  return PictureSize{.width = SideOf(value.Items()[1]), .height = SideOf(value.Items()[0])};
}

// A number, or one a channel.
std::vector<double> NumbersOf(const Json& value, const char* key) {
  std::vector<double> numbers;
  if (value.IsArray()) {
    for (const Json& one : value.Items()) numbers.push_back(FiniteNumber(one, key));
  } else {
    numbers.push_back(FiniteNumber(value, key));
  }
  if (numbers.empty() || numbers.size() > kMostChannels) {
    throw JsonError(std::string(key) + " has " + std::to_string(numbers.size()) +
                    " numbers; it takes one, or one a channel");
  }
  return numbers;
}

void HoldToChannels(size_t numbers, size_t channels, const char* key) {
  if (numbers == 1 || numbers == channels) return;
  throw JsonError(
      std::string(key) + " has " + std::to_string(numbers) + " numbers, and there " +
      (channels == 1 ? "is 1 channel" : "are " + std::to_string(channels) + " channels"));
}

ResizeRule RuleOf(const Json& value) {
  const auto rule = ResizeRuleNamed(value.AsText());
  if (rule) return *rule;
  std::vector<std::string> known;
  std::string list;
  for (const std::string_view name : ResizeRuleNames()) {
    known.emplace_back(name);
    list += (list.empty() ? "" : ", ") + std::string(name);
  }
  throw JsonError("there is no rule '" + Printable(value.AsText()) + "'" +
                  DidYouMean(value.AsText(), known) + "; rules are " + list +
                  ". \"Bilinear\" alone is none, since programs differ in it");
}

ResizeStep ResizeFrom(const Json& json, size_t channels) {
  HoldToKeys(json, {"rule", "fit", "size", "rounding", "as", "fill", "placement", "enlarge"});
  ResizeStep step;
  step.rule = RuleOf(json.At("rule"));
  if (const Json* fit = json.Find("fit")) step.fit = TakeWord(*fit, "fit", kFits);
  const Json* size = json.Find("size");
  if (step.fit == ResizeStep::Fit::kShorter) {
    step.shorter = SideOf(json.At("size"));
  } else if (size != nullptr) {
    step.size = SizeOf(*size);
  }
  const bool isLetterbox = step.fit == ResizeStep::Fit::kLetterbox;
  if (isLetterbox) step.rounding = Rounding::kHalfEven;
  if (const Json* rounding = json.Find("rounding")) {
    if (step.fit == ResizeStep::Fit::kStretch) {
      throw JsonError("rounding has no meaning where the fit is \"stretch\"");
    }
    step.rounding = TakeWord(*rounding, "rounding", kRoundings);
  }
  if (const Json* as = json.Find("as")) step.isFloat = TakeWord(*as, "as", kResizedAs);
  for (const char* key : {"fill", "placement", "enlarge"}) {
    if (json.Find(key) != nullptr && !isLetterbox) {
      throw JsonError(std::string(key) + " has a meaning only where the fit is \"letterbox\"");
    }
  }
  if (const Json* fill = json.Find("fill")) {
    step.fill = NumbersOf(*fill, "fill");
  } else if (channels != step.fill.size()) {
    step.fill = {step.fill.front()};
  }
  HoldToChannels(step.fill.size(), channels, "fill");
  if (const Json* place = json.Find("placement")) {
    step.isCentred = TakeWord(*place, "placement", kPlacements);
  }
  if (const Json* enlarge = json.Find("enlarge")) step.mayEnlarge = enlarge->AsBool();
  return step;
}

CropStep CropFrom(const Json& json) {
  HoldToKeys(json, {"size", "rounding"});
  CropStep step;
  if (const Json* size = json.Find("size")) step.size = SizeOf(*size);
  if (const Json* rounding = json.Find("rounding")) {
    step.rounding = TakeWord(*rounding, "rounding", kRoundings);
  }
  return step;
}

ValueStep StepFrom(const Json& json, size_t channels) {
  if (json.Members().size() != 1) {
    throw JsonError("a step of values is " + ShownValue(json) +
                    ", and takes one operation, such as {\"divide\": 255}");
  }
  const auto& [key, value] = json.Members().front();
  ValueStep step;
  step.kind = TakeWord(Json(key), "a step of values", kSteps);
  for (const double number : NumbersOf(value, key.c_str())) {
    step.by.push_back(static_cast<float>(number));
    if (!std::isfinite(step.by.back())) throw JsonError(key + " is beyond the range of float32");
    if (step.kind == ValueStep::Kind::kDivide && step.by.back() == 0) {
      throw JsonError("divide by 0");
    }
  }
  HoldToChannels(step.by.size(), channels, key.c_str());
  return step;
}

StoredScale QuantisationFrom(const Json& json) {
  HoldToKeys(json, {"scale", "zeroPoint"});
  StoredScale stored;
  stored.scale = static_cast<float>(FiniteNumber(json.At("scale"), "scale"));
  if (!(stored.scale > 0) || !std::isfinite(stored.scale)) {
    throw JsonError("scale is " + ShownValue(json.At("scale")) + ", and has to be above 0");
  }
  if (const Json* zero = json.Find("zeroPoint")) {
    stored.zeroPoint = static_cast<float>(FiniteNumber(*zero, "zeroPoint"));
    if (stored.zeroPoint != std::floor(stored.zeroPoint)) {
      throw JsonError("zeroPoint is " + ShownValue(*zero) + ", and has to be a whole number");
    }
  }
  return stored;
}

std::array<uint8_t, 3> UnderFrom(const Json& json) {
  HoldToKeys(json, {"over"});
  const std::vector<Json>& items = json.At("over").Items();
  if (items.size() != 3) throw JsonError("over takes three numbers: red, green, blue");
  std::array<uint8_t, 3> under{};
  for (size_t i = 0; i < under.size(); ++i) {
    const uint64_t value = items[i].AsUnsigned();
    if (value > UINT8_MAX) throw JsonError("over takes numbers of 0 to 255");
    under[i] = static_cast<uint8_t>(value);
  }
  return under;
}

// ---- Writing ------------------------------------------------------------------------------------

Json SizeJson(const std::optional<PictureSize>& size) {
  return size ? Json::Array({size->height, size->width}) : Json("model");
}

Json ResizeJson(const ResizeStep& step) {
  Json json = Json::Object({{"rule", NameOf(step.rule)}, {"fit", WordOf(kFits, step.fit)}});
  const bool isShorter = step.fit == ResizeStep::Fit::kShorter;
  json.Set("size", isShorter ? Json(step.shorter) : SizeJson(step.size));
  if (step.fit != ResizeStep::Fit::kStretch) {
    json.Set("rounding", WordOf(kRoundings, step.rounding));
  }
  json.Set("as", WordOf(kResizedAs, step.isFloat));
  if (step.fit == ResizeStep::Fit::kLetterbox) {
    json.Set("fill", Json::ArrayOf(step.fill));
    json.Set("placement", WordOf(kPlacements, step.isCentred));
    json.Set("enlarge", step.mayEnlarge);
  }
  return json;
}

Json ValuesJson(const std::vector<ValueStep>& steps) {
  Json json = Json::Array();
  for (const ValueStep& step : steps) {
    Json by = Json::Array();
    for (const float number : step.by) by.Append(ShortestDouble(number));
    json.Append(Json::Object({{std::string(WordOf(kSteps, step.kind)), by}}));
  }
  return json;
}

// ---- Ready recipes ------------------------------------------------------------------------------

struct ReadyRecipe {
  const char* name;
  const char* about;
  const char* json;  ///< without schema, name and version
};

constexpr std::array kReady{
    ReadyRecipe{"imagenet-torchvision",
                "as torchvision evaluates: shorter side to 256, the middle, ImageNet's mean",
                R"({"resize": {"rule": "pil-bilinear", "fit": "shorter", "size": 256},
                    "crop": {},
                    "values": [{"divide": 255}, {"subtract": [0.485, 0.456, 0.406]},
                               {"divide": [0.229, 0.224, 0.225]}]})"},
    ReadyRecipe{"imagenet-opencv", "the same with OpenCV's resizing, which smooths nothing",
                R"({"orientation": "exif",
                    "resize": {"rule": "opencv-linear", "fit": "shorter", "size": 256},
                    "crop": {"rounding": "down"},
                    "values": [{"divide": 255}, {"subtract": [0.485, 0.456, 0.406]},
                               {"divide": [0.229, 0.224, 0.225]}]})"},
    ReadyRecipe{"imagenet-bgr",
                "blue first and the mean colour taken off, as networks of Caffe's time",
                R"({"colours": "bgr",
                    "resize": {"rule": "opencv-linear", "fit": "shorter", "size": 256},
                    "crop": {"rounding": "down"},
                    "values": [{"subtract": [103.939, 116.779, 123.68]}]})"},
    ReadyRecipe{"detector-letterbox",
                "detectors: proportions kept, grey bars of 114, values of 0 to 1",
                R"({"resize": {"rule": "opencv-linear", "fit": "letterbox"},
                    "values": [{"divide": 255}]})"},
    ReadyRecipe{"signed-one", "stretched with OpenCV's bilinear, values of -1 to 1",
                R"({"resize": {"rule": "opencv-linear"},
                    "values": [{"divide": 127.5}, {"subtract": 1}]})"},
    ReadyRecipe{"zero-one", "stretched with OpenCV's bilinear, values of 0 to 1",
                R"({"resize": {"rule": "opencv-linear"}, "values": [{"divide": 255}]})"},
    ReadyRecipe{"bytes", "stretched with OpenCV's bilinear, values of 0 to 255 as they are",
                R"({"resize": {"rule": "opencv-linear"}})"},
    ReadyRecipe{"bytes-bgr", "the same, blue first",
                R"({"colours": "bgr", "resize": {"rule": "opencv-linear"}})"},
    ReadyRecipe{"grey", "one channel, stretched with OpenCV's bilinear, values of 0 to 1",
                R"({"colours": "grey-opencv", "resize": {"rule": "opencv-linear"},
                    "values": [{"divide": 255}]})"},
};

std::optional<Recipe> ReadyNamed(std::string_view name) {
  for (const ReadyRecipe& ready : kReady) {
    if (ready.name != name) continue;
    Json json = ParseJson(ready.json);
    json.Set("schema", kRecipeSchema);
    json.Set("name", ready.name);
    return RecipeFromJson(json);
  }
  return std::nullopt;
}

}  // namespace

size_t ChannelsOf(Colours colours) {
  switch (colours) {
    case Colours::kRgb:
    case Colours::kBgr:
      return 3;
    case Colours::kRgba:
    case Colours::kBgra:
      return 4;
    case Colours::kGreyPil:
    case Colours::kGreyOpencv:
      break;
  }
  return 1;
}

bool Recipe::NeedsPicture() const { return resize || crop; }

Recipe RecipeFromJson(const Json& json) {
  HoldToKeys(json, {"schema", "name", "version", "orientation", "depth", "colours", "alpha",
                    "resize", "crop", "values", "layout", "quantisation"});
  HoldToSchema(json, kRecipeSchema);
  Recipe recipe;
  recipe.name = json.At("name").AsText();
  if (recipe.name.empty()) throw JsonError("name is empty");
  if (const Json* version = json.Find("version")) recipe.version = version->AsUnsigned();
  if (const Json* value = json.Find("orientation")) {
    recipe.followsExif = TakeWord(*value, "orientation", kOrientations);
  }
  if (const Json* value = json.Find("depth")) {
    recipe.isDepthKept = TakeWord(*value, "depth", kDepths);
  }
  if (const Json* value = json.Find("colours")) {
    recipe.colours = TakeWord(*value, "colours", kColours);
  }
  const size_t channels = ChannelsOf(recipe.colours);
  if (const Json* alpha = json.Find("alpha")) {
    if (alpha->IsObject()) {
      recipe.under = UnderFrom(*alpha);
    } else if (!alpha->IsText() || alpha->AsText() != "drop") {
      throw JsonError("alpha is " + ShownValue(*alpha) +
                      ", and takes \"drop\" or {\"over\": [red, green, blue]}");
    }
    if (channels == 4) throw JsonError("alpha is kept where the colours are rgba or bgra");
  }
  if (const Json* resize = json.Find("resize")) recipe.resize = ResizeFrom(*resize, channels);
  if (const Json* crop = json.Find("crop")) recipe.crop = CropFrom(*crop);
  if (const Json* values = json.Find("values")) {
    if (values->Items().size() > kMostSteps) throw JsonError("values has more than 64 steps");
    for (const Json& step : values->Items()) recipe.values.push_back(StepFrom(step, channels));
  }
  if (const Json* layout = json.Find("layout")) {
    recipe.layout = TakeWord(*layout, "layout", kLayouts);
  }
  if (const Json* stored = json.Find("quantisation")) {
    recipe.quantisation = QuantisationFrom(*stored);
  }
  return recipe;
}

Json ToJson(const Recipe& recipe) {
  Json json = Json::Object({{"schema", kRecipeSchema},
                            {"name", recipe.name},
                            {"version", recipe.version},
                            {"orientation", WordOf(kOrientations, recipe.followsExif)},
                            {"depth", WordOf(kDepths, recipe.isDepthKept)},
                            {"colours", WordOf(kColours, recipe.colours)}});
  if (recipe.under) {
    Json over = Json::Array();
    for (const uint8_t value : *recipe.under) over.Append(uint64_t{value});
    json.Set("alpha", Json::Object({{"over", over}}));
  } else if (ChannelsOf(recipe.colours) != 4) {
    json.Set("alpha", "drop");
  }
  if (recipe.resize) json.Set("resize", ResizeJson(*recipe.resize));
  if (recipe.crop) {
    json.Set("crop", Json::Object({{"size", SizeJson(recipe.crop->size)},
                                   {"rounding", WordOf(kRoundings, recipe.crop->rounding)}}));
  }
  if (!recipe.values.empty()) json.Set("values", ValuesJson(recipe.values));
  json.Set("layout", WordOf(kLayouts, recipe.layout));
  if (recipe.quantisation) {
    json.Set("quantisation",
             Json::Object({{"scale", ShortestDouble(recipe.quantisation->scale)},
                           {"zeroPoint", ShortestDouble(recipe.quantisation->zeroPoint)}}));
  }
  return json;
}

std::vector<std::string> ReadyRecipes() {
  std::vector<std::string> names;
  for (const ReadyRecipe& ready : kReady) names.emplace_back(ready.name);
  return names;
}

std::string AboutReadyRecipe(std::string_view name) {
  for (const ReadyRecipe& ready : kReady) {
    if (ready.name == name) return ready.about;
  }
  return "";
}

Recipe FindRecipe(const std::string& nameOrPath) {
  if (const auto ready = ReadyNamed(nameOrPath)) return *ready;
  struct stat about {};
  if (stat(nameOrPath.c_str(), &about) != 0) {
    const std::vector<std::string> names = ReadyRecipes();
    throw Fault(ExitStatus::kUsage, "there is no recipe " + Quoted(nameOrPath) + ", and no file" +
                                        DidYouMean(nameOrPath, names) +
                                        "; vorn prepare --recipes lists those that are ready");
  }
  const std::string text =
      ReadWholeFile(nameOrPath, "the recipe", ExitStatus::kInput, kMostRecipeBytes);
  try {
    return RecipeFromJson(ParseJson(text));
  } catch (const JsonError& error) {
    throw Fault(ExitStatus::kInput, "the recipe " + Quoted(nameOrPath) + ": " + error.what());
  }
}

}  // namespace vorn::kit
