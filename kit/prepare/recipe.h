// How a picture, or an array, becomes what a model takes: named, versioned, and in JSON.
//
//     {"schema": 1, "name": "imagenet-torchvision", "version": 1,
//      "orientation": "exif",                        or "stored": training code often ignores EXIF
//      "depth": "upper-byte",                        or "stored": what becomes of 16 bits a value
//      "colours": "rgb",                             "bgr", "rgba", "bgra", "grey-pil",
//      "grey-opencv" "alpha": "drop",                              or {"over": [255, 255, 255]}
//      "resize": {"rule": "pil-bilinear",            see kit/picture/resize.h
//                 "fit": "shorter", "size": 256,     or "stretch", "letterbox"; a size is "model",
//                                                    [height, width], or of "shorter" one number
//                 "rounding": "down",                of the longer side; or "half-even"
//                 "as": "stored"},                   or "float32": the type that is resized in
//      "crop": {"size": "model", "rounding": "half-even"},      the middle
//      "values": [{"divide": 255}, {"subtract": [0.485, 0.456, 0.406]}, …],
//      "layout": "model",                            or "NCHW", "NHWC"
//      "quantisation": {"scale": 0.02, "zeroPoint": 128}}
//
//     a letterbox has: "fill": [114, 114, 114], "placement": "centre" or "top-left",
//                      "enlarge": true, "rounding": "half-even" or "down"
//
// What is left out is as shown first, and "resize", "crop", "values", "quantisation" are nothing.
// Steps are taken in the order in which they stand here. Values are float32 from "values" on, each
// step rounded to the nearest; channels are in the order of "colours".
#ifndef VORN_KIT_PREPARE_RECIPE_H_
#define VORN_KIT_PREPARE_RECIPE_H_

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kit/json/json.h"
#include "kit/picture/resize.h"

namespace vorn::kit {

/// What channels mean, in their order.
enum class Colours { kRgb, kBgr, kRgba, kBgra, kGreyPil, kGreyOpencv };

[[nodiscard]] size_t ChannelsOf(Colours colours);

struct PictureSize {
  uint32_t width = 0;
  uint32_t height = 0;

  bool operator==(const PictureSize&) const = default;
};

/// How a size or a place that is no whole number becomes one.
enum class Rounding {
  kDown,
  kHalfEven,  ///< to the nearest, halves to the even one, as Python rounds
};

struct ResizeStep {
  enum class Fit {
    kStretch,    ///< to the size, whatever becomes of the proportions
    kShorter,    ///< the shorter side becomes `shorter`, proportions stay
    kLetterbox,  ///< into the size, proportions stay, the rest is filled
  };
  ResizeRule rule = ResizeRule::kPilBilinear;
  Fit fit = Fit::kStretch;
  std::optional<PictureSize> size;  ///< empty: the model's
  uint32_t shorter = 0;
  Rounding rounding = Rounding::kDown;
  bool isFloat = false;                     ///< values are float32 before it
  std::vector<double> fill{114, 114, 114};  ///< of a letterbox: a value a channel, or one for all
  bool isCentred = true;
  bool mayEnlarge = true;

  bool operator==(const ResizeStep&) const = default;
};

struct CropStep {
  std::optional<PictureSize> size;  ///< empty: the model's
  Rounding rounding = Rounding::kHalfEven;

  bool operator==(const CropStep&) const = default;
};

/// A number a channel, or one for all.
struct ValueStep {
  enum class Kind { kAdd, kSubtract, kMultiply, kDivide };
  Kind kind = Kind::kAdd;
  std::vector<float> by;

  bool operator==(const ValueStep&) const = default;
};

/// stored = value / scale rounded to the nearest, ties to even, + zeroPoint, held to the type.
struct StoredScale {
  float scale = 1;
  float zeroPoint = 0;

  bool operator==(const StoredScale&) const = default;
};

enum class PictureLayout { kModel, kNchw, kNhwc };

struct Recipe {
  std::string name;
  uint64_t version = 1;
  bool followsExif = true;
  bool isDepthKept = false;
  Colours colours = Colours::kRgb;
  std::optional<std::array<uint8_t, 3>> under;  ///< what is seen through alpha; empty: drop it
  std::optional<ResizeStep> resize;
  std::optional<CropStep> crop;
  std::vector<ValueStep> values;
  PictureLayout layout = PictureLayout::kModel;
  std::optional<StoredScale> quantisation;

  /// Whether something is done that only pictures have done to them.
  [[nodiscard]] bool NeedsPicture() const;
};

/// Throws a JsonError that names the key and what it takes.
[[nodiscard]] Recipe RecipeFromJson(const Json& json);

/// Everything said, nothing left to be known: the text that is kept, and whose hash tells whether a
/// tensor has to be made again.
[[nodiscard]] Json ToJson(const Recipe& recipe);

/// Those that need no file, in the order in which help shows them.
[[nodiscard]] std::vector<std::string> ReadyRecipes();

/// Half a sentence on a ready recipe.
[[nodiscard]] std::string AboutReadyRecipe(std::string_view name);

/// The ready recipe of that name, or that of the file. Throws a Fault of kInput that says what is
/// wrong with the file, and of kUsage where it is neither, naming the nearest.
[[nodiscard]] Recipe FindRecipe(const std::string& nameOrPath);

}  // namespace vorn::kit

#endif  // VORN_KIT_PREPARE_RECIPE_H_
