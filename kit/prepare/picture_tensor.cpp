#include "kit/prepare/picture_tensor.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>
#include <type_traits>
#include <utility>

#include "kit/common/fault.h"
#include "kit/common/printable.h"
#include "kit/prepare/stored_value.h"

namespace vorn::kit {
namespace {

constexpr uint8_t kOpaque = 255;
constexpr uint32_t kLanes = 8;  // floats of a vector of AVX2

std::string SizeTextOf(const PictureSize& size) {
  return std::to_string(size.width) + "x" + std::to_string(size.height);
}

PictureSize SizeOf(const Picture& picture) { return {picture.width, picture.height}; }

// ---- What an input takes ------------------------------------------------------------------------

bool CouldBeChannels(int64_t size) { return size == 1 || size == 3 || size == 4; }

[[noreturn]] void RefuseShape(const TensorDescription& input, const std::string& reason) {
  throw Fault(ExitStatus::kModel,
              "the input " + Quoted(input.name) + " is " + ShapeText(input.shape) + ", " + reason);
}

bool AreChannelsFirst(const TensorDescription& input, const std::vector<int64_t>& shape,
                      PictureLayout layout) {
  if (layout != PictureLayout::kModel) return layout == PictureLayout::kNchw;
  const bool couldBeFirst = CouldBeChannels(shape.front());
  const bool couldBeLast = CouldBeChannels(shape.back());
  if (couldBeFirst != couldBeLast) return couldBeFirst;
  if (input.format == 0 || input.format == 1) return input.format == 0;
  RefuseShape(input,
              "and does not tell where its channels are; put \"layout\": \"NCHW\" or \"NHWC\" into "
              "the recipe");
}

// ---- Colours ------------------------------------------------------------------------------------

uint8_t Blended(uint32_t value, uint32_t under, uint32_t alpha) {
  // Divided by 255 and rounded, without a division.
  const uint32_t sum = value * alpha + under * (kOpaque - alpha) + 128;
  return static_cast<uint8_t>(((sum >> 8) + sum) >> 8);
}

Picture PutOver(const Picture& picture, const std::array<uint8_t, 3>& under) {
  if (picture.type != PixelType::kUint8) {
    throw Fault(ExitStatus::kInput,
                "has alpha in " + std::string(NameOf(picture.type)) +
                    " values, and the recipe's \"over\" takes 8 bits; take \"alpha\": \"drop\"");
  }
  const size_t colours = picture.channels - 1;
  Picture flat = MakeUnclearedPicture(picture.width, picture.height, static_cast<uint32_t>(colours),
                                      PixelType::kUint8);
  const auto* from = reinterpret_cast<const uint8_t*>(picture.pixels.data());
  auto* to = reinterpret_cast<uint8_t*>(flat.pixels.data());
  const size_t pixels = size_t{picture.width} * picture.height;
  for (size_t i = 0; i < pixels; ++i) {
    const uint8_t alpha = from[colours];
    for (size_t c = 0; c < colours; ++c) *to++ = Blended(from[c], under[c], alpha);
    from += picture.channels;
  }
  return flat;
}

template <typename Value>
Value Opaque() {
  if constexpr (std::is_floating_point_v<Value>) {
    return 1;
  } else {
    return static_cast<Value>(~Value{0});
  }
}

// As cvtColor has it: 15 bits of each factor for whole numbers. Floats are what a processor with
// AVX2 makes of them: eight pixels at a time from the row's start, and the rest of the row one by
// one, which rounds in another order.
template <typename Value>
Value OpencvGrey(const Value* pixel, bool isOneOfEight) {
  if constexpr (std::is_floating_point_v<Value>) {
    constexpr float kRed = 0.299F;
    constexpr float kGreen = 0.587F;
    constexpr float kBlue = 0.114F;
    const float two = isOneOfEight ? std::fma(pixel[1], kGreen, pixel[2] * kBlue)
                                   : std::fma(pixel[2], kBlue, pixel[1] * kGreen);
    return std::fma(pixel[0], kRed, two);
  } else {
    return static_cast<Value>((uint32_t{pixel[0]} * 9798 + uint32_t{pixel[1]} * 19235 +
                               uint32_t{pixel[2]} * 3735 + (1U << 14)) >>
                              15);
  }
}

// Pillow has this for 8 bits alone; the rest follows the same factors.
template <typename Value>
Value PillowGrey(const Value* pixel) {
  if constexpr (sizeof(Value) == 1) {
    return static_cast<Value>((pixel[0] * 19595U + pixel[1] * 38470U + pixel[2] * 7471U + 0x8000) >>
                              16);
  } else {
    const double grey = 0.299 * static_cast<double>(pixel[0]) +
                        0.587 * static_cast<double>(pixel[1]) +
                        0.114 * static_cast<double>(pixel[2]);
    return static_cast<Value>(std::is_floating_point_v<Value> ? grey : std::nearbyint(grey));
  }
}

template <typename Value>
void TakeColours(Colours colours, const Picture& from, Picture& to) {
  const auto* pixel = reinterpret_cast<const Value*>(from.pixels.data());
  auto* out = reinterpret_cast<Value*>(to.pixels.data());
  const size_t pixels = size_t{from.width} * from.height;
  const bool isGrey = from.channels <= 2;
  const bool isBlueFirst = colours == Colours::kBgr || colours == Colours::kBgra;
  for (size_t i = 0; i < pixels; ++i, pixel += from.channels, out += to.channels) {
    if (to.channels == 1) {
      const bool isOneOfEight =
          std::is_floating_point_v<Value> && i % from.width < from.width - from.width % kLanes;
      *out = isGrey                         ? *pixel
             : colours == Colours::kGreyPil ? PillowGrey(pixel)
                                            : OpencvGrey(pixel, isOneOfEight);
      continue;
    }
    for (size_t c = 0; c < 3; ++c) out[c] = pixel[isGrey ? 0 : isBlueFirst ? 2 - c : c];
    if (to.channels == 4) {
      out[3] = from.HasAlpha() ? pixel[from.channels - 1] : Opaque<Value>();
    }
  }
}

// The channels in the order in which the network takes them.
Picture InColours(Picture picture, const Recipe& recipe) {
  const size_t channels = ChannelsOf(recipe.colours);
  if (picture.HasAlpha() && channels != 4 && recipe.under) {
    picture = PutOver(picture, *recipe.under);
  }
  const bool isAsItIs =
      picture.channels == channels &&
      (recipe.colours == Colours::kRgb || recipe.colours == Colours::kRgba || channels == 1);
  if (isAsItIs) return picture;
  Picture coloured = MakeUnclearedPicture(picture.width, picture.height,
                                          static_cast<uint32_t>(channels), picture.type);
  switch (picture.type) {
    case PixelType::kUint8:
      TakeColours<uint8_t>(recipe.colours, picture, coloured);
      break;
    case PixelType::kUint16:
      TakeColours<uint16_t>(recipe.colours, picture, coloured);
      break;
    case PixelType::kFloat32:
      TakeColours<float>(recipe.colours, picture, coloured);
      break;
  }
  return coloured;
}

// ---- Sizes --------------------------------------------------------------------------------------

Picture InFloats(const Picture& picture) {
  if (picture.type == PixelType::kFloat32) return picture;
  Picture floats =
      MakeUnclearedPicture(picture.width, picture.height, picture.channels, PixelType::kFloat32);
  auto* to = reinterpret_cast<float*>(floats.pixels.data());
  const size_t values = picture.RowValues() * picture.height;
  const auto* bytes = reinterpret_cast<const uint8_t*>(picture.pixels.data());
  const auto* words = reinterpret_cast<const uint16_t*>(picture.pixels.data());
  const bool areBytes = picture.type == PixelType::kUint8;
  for (size_t i = 0; i < values; ++i) to[i] = areBytes ? bytes[i] : words[i];
  return floats;
}

uint32_t Rounded(double value, Rounding rounding) {
  const double whole = rounding == Rounding::kDown ? std::floor(value) : std::nearbyint(value);
  return static_cast<uint32_t>(std::clamp<double>(whole, 0, UINT16_MAX));
}

PictureSize FitShorter(const PictureSize& picture, const ResizeStep& step) {
  const double shorter = std::min(picture.width, picture.height);
  const double longer = std::max(picture.width, picture.height);
  const uint32_t other = Rounded(step.shorter * longer / shorter, step.rounding);
  return picture.width <= picture.height ? PictureSize{step.shorter, other}
                                         : PictureSize{other, step.shorter};
}

PictureSize FitInside(const PictureSize& picture, const PictureSize& box, const ResizeStep& step) {
  double ratio = std::min(static_cast<double>(box.height) / picture.height,
                          static_cast<double>(box.width) / picture.width);
  if (!step.mayEnlarge) ratio = std::min(ratio, 1.0);
  return {std::clamp(Rounded(picture.width * ratio, step.rounding), 1U, box.width),
          std::clamp(Rounded(picture.height * ratio, step.rounding), 1U, box.height)};
}

// Half of what is left, where an odd pixel goes behind.
uint32_t Centred(uint32_t room, uint32_t taken) {
  // round(half − 0.1), as the letterbox of detectors has it.
  return static_cast<uint32_t>(std::nearbyint((room - taken) / 2.0 - 0.1) + 0.0);
}

// One pixel of the bars.
template <typename Value>
std::vector<Value> FillOf(const std::vector<double>& fill, uint32_t channels) {
  std::vector<Value> pixel(channels);
  for (size_t c = 0; c < channels; ++c) {
    const double value = fill[fill.size() == 1 ? 0 : c];
    if constexpr (std::is_floating_point_v<Value>) {
      pixel[c] = static_cast<Value>(value);
    } else {
      constexpr double kMost = std::numeric_limits<Value>::max();
      pixel[c] = static_cast<Value>(std::clamp(std::nearbyint(value), 0.0, kMost));
    }
  }
  return pixel;
}

// The bars around the picture, and the picture.
template <typename Value>
void Place(const Picture& picture, const std::vector<double>& fill, uint32_t left, uint32_t top,
           Picture& box) {
  const std::vector<Value> pixel = FillOf<Value>(fill, box.channels);
  std::vector<Value> bar(box.RowValues());
  for (size_t i = 0; i < bar.size(); ++i) bar[i] = pixel[i % box.channels];
  const size_t before = size_t{left} * box.channels;
  const size_t behind = bar.size() - before - picture.RowValues();
  for (uint32_t y = 0; y < box.height; ++y) {
    Value* to = box.Row<Value>(y);
    if (y < top || y - top >= picture.height) {
      std::copy_n(bar.data(), bar.size(), to);
      continue;
    }
    to = std::copy_n(bar.data(), before, to);
    to = std::copy_n(picture.Row<Value>(y - top), picture.RowValues(), to);
    std::copy_n(bar.data(), behind, to);
  }
}

// What of the geometry follows from the sizes alone.
PictureSize ResizedSize(const PictureSize& picture, const ResizeStep& step,
                        const PictureSize& box) {
  if (step.fit == ResizeStep::Fit::kShorter) return FitShorter(picture, step);
  if (step.fit == ResizeStep::Fit::kLetterbox) return FitInside(picture, box, step);
  return box;
}

void SetPlaced(const PictureSize& picture, const PictureSize& box, const ResizeStep& step,
               PictureGeometry& geometry) {
  if (picture == box || !step.isCentred) return;
  geometry.placedLeft = Centred(box.width, picture.width);
  geometry.placedTop = Centred(box.height, picture.height);
}

bool IsCutOut(const PictureSize& size, const PictureSize& picture) {
  return size.width <= picture.width && size.height <= picture.height;
}

void SetCut(const PictureSize& picture, const PictureSize& size, const CropStep& step,
            PictureGeometry& geometry) {
  geometry.cutLeft = Rounded((picture.width - size.width) / 2.0, step.rounding);
  geometry.cutTop = Rounded((picture.height - size.height) / 2.0, step.rounding);
}

Picture InBox(const Picture& picture, const PictureSize& box, const ResizeStep& step,
              const PictureGeometry& geometry) {
  Picture filled = MakeUnclearedPicture(box.width, box.height, picture.channels, picture.type);
  const auto place = [&](auto value) {
    Place<decltype(value)>(picture, step.fill, geometry.placedLeft, geometry.placedTop, filled);
  };
  switch (picture.type) {
    case PixelType::kUint8:
      place(uint8_t{});
      break;
    case PixelType::kUint16:
      place(uint16_t{});
      break;
    case PixelType::kFloat32:
      place(float{});
      break;
  }
  return filled;
}

Picture ResizeBy(Picture picture, const ResizeStep& step, const PictureSize& models,
                 PictureGeometry& geometry) {
  if (step.isFloat) picture = InFloats(picture);
  const PictureSize box = step.size.value_or(models);
  const PictureSize size = ResizedSize(SizeOf(picture), step, box);
  if (SizeOf(picture) != size) picture = Resize(picture, size.width, size.height, step.rule);
  geometry.resized = size;
  if (step.fit != ResizeStep::Fit::kLetterbox || size == box) return picture;
  SetPlaced(size, box, step, geometry);
  return InBox(picture, box, step, geometry);
}

Picture CropBy(Picture picture, const CropStep& step, const PictureSize& models,
               PictureGeometry& geometry) {
  const PictureSize size = step.size.value_or(models);
  if (size == SizeOf(picture)) return picture;
  if (!IsCutOut(size, SizeOf(picture))) {
    throw Fault(ExitStatus::kInput, "is " + SizeTextOf(SizeOf(picture)) +
                                        " where the recipe crops, and " + SizeTextOf(size) +
                                        " are to be cut out; resize to more before");
  }
  SetCut(SizeOf(picture), size, step, geometry);
  Picture cut = MakeUnclearedPicture(size.width, size.height, picture.channels, picture.type);
  const size_t pixelBytes = picture.channels * BytesOf(picture.type);
  for (uint32_t y = 0; y < size.height; ++y) {
    std::memcpy(cut.Row<std::byte>(y),
                picture.Row<std::byte>(geometry.cutTop + y) + geometry.cutLeft * pixelBytes,
                cut.RowBytes());
  }
  return cut;
}

// ---- Values -------------------------------------------------------------------------------------

[[noreturn]] void RefuseValue(float value, ElementType type) {
  throw Fault(ExitStatus::kInput, "comes to the value " + TextOfValue(static_cast<double>(value)) +
                                      ", which is none of " + std::string(ElementName(type)) +
                                      "; put a \"quantisation\" into the recipe");
}

// Where the value of a channel of a pixel goes.
struct Places {
  size_t pixelStep;
  size_t channelStep;
};

Places PlacesIn(const PictureTarget& target) {
  if (target.areChannelsFirst) return {1, size_t{target.size.width} * target.size.height};
  return {target.channels, 1};
}

void StoreOthers(const Picture& picture, const Recipe& recipe, const PictureTarget& target,
                 std::byte* bytes) {
  const Picture floats = InFloats(picture);
  const auto* from = reinterpret_cast<const float*>(floats.pixels.data());
  const Places places = PlacesIn(target);
  const size_t size = ElementBytes(target.type);
  const size_t pixels = size_t{picture.width} * picture.height;
  for (size_t i = 0; i < pixels; ++i) {
    for (size_t channel = 0; channel < target.channels; ++channel) {
      const float value = Computed(*from++, recipe.values, channel);
      const size_t place = i * places.pixelStep + channel * places.channelStep;
      if (!StoreValue(value, target.type, recipe.quantisation, bytes + place * size)) {
        RefuseValue(value, target.type);
      }
    }
  }
}

}  // namespace

PictureTarget TargetOf(const TensorDescription& input, const Recipe& recipe) {
  const auto type = input.type ? ElementOfCode(*input.type) : std::nullopt;
  if (!type) RefuseShape(input, "of an element type that is not known");
  std::vector<int64_t> shape = input.shape;
  while (shape.size() > 3 && shape.front() == 1) shape.erase(shape.begin());
  if (shape.size() == 2) shape.insert(shape.begin(), 1);
  if (shape.size() != 3) {
    RefuseShape(input,
                "which is no picture; pictures are [1, channels, height, width], or "
                "[1, height, width, channels]");
  }
  const bool areFirst = input.shape.size() == 2 || AreChannelsFirst(input, shape, recipe.layout);
  const size_t rows = areFirst ? 1 : 0;
  const int64_t channels = shape[areFirst ? 0 : 2];
  for (const int64_t side : {shape[rows], shape[rows + 1]}) {
    if (side < 1 || side > UINT16_MAX) RefuseShape(input, "a size that no picture is resized to");
  }
  PictureTarget target{.size = {.width = static_cast<uint32_t>(shape[rows + 1]),
                                .height = static_cast<uint32_t>(shape[rows])},
                       .channels = ChannelsOf(recipe.colours),
                       .areChannelsFirst = areFirst,
                       .type = *type};
  if (channels != static_cast<int64_t>(target.channels)) {
    RefuseShape(input, "with " + std::to_string(channels) + " channels" +
                           (areFirst ? " in front" : " at the end") + ", and the recipe '" +
                           Printable(recipe.name) + "' gives " + std::to_string(target.channels) +
                           "; change its \"colours\" or its \"layout\"");
  }
  return target;
}

float Computed(float value, std::span<const ValueStep> steps, size_t channel) {
  for (const ValueStep& step : steps) {
    const float by = step.by[step.by.size() == 1 ? 0 : channel];
    switch (step.kind) {
      case ValueStep::Kind::kAdd:
        value += by;
        break;
      case ValueStep::Kind::kSubtract:
        value -= by;
        break;
      case ValueStep::Kind::kMultiply:
        value *= by;
        break;
      case ValueStep::Kind::kDivide:
        value /= by;
        break;
    }
  }
  return value;
}

TensorMaker::TensorMaker(const Recipe& recipe, const PictureTarget& target)
    : recipe_(recipe), target_(target) {
  const size_t size = ElementBytes(target.type);
  std::vector<std::byte> elements(kByteValues * size);
  fits_.resize(target.channels);
  for (size_t channel = 0; channel < target.channels; ++channel) {
    for (size_t value = 0; value < kByteValues; ++value) {
      fits_[channel].at(value) =
          StoreValue(Computed(static_cast<float>(value), recipe.values, channel), target.type,
                     recipe.quantisation, &elements[value * size]);
    }
    tables_.emplace_back(size, elements);
  }
}

bool TensorMaker::Begin(const PictureHead& head) {
  geometry_ = {};
  const PictureSize picture{head.width, head.height};
  const auto window = head.type == PixelType::kUint8 ? WindowOf(head, picture) : std::nullopt;
  if (!window || !SetSources(head.channels)) return false;
  const bool fits = std::all_of(fits_.begin(), fits_.end(), [](const auto& values) {
    return std::find(values.begin(), values.end(), false) == values.end();
  });
  if (!fits) return false;
  resizer_ =
      MakeRowResizer({.width = head.width,
                      .height = head.height,
                      .channels = head.channels,
                      .newWidth = geometry_.resized.width,
                      .newHeight = geometry_.resized.height,
                      .rule = recipe_.resize ? recipe_.resize->rule : ResizeRule::kPilNearest,
                      .window = *window},
                     [this, width = window->width](uint32_t y, const uint8_t* row) {
                       StoreRow(geometry_.placedLeft, geometry_.placedTop + y, row, width);
                     });
  if (!resizer_) return false;
  bytes_->resize(target_.Bytes());
  FillAround(*window);
  return true;
}

void TensorMaker::Take(const std::byte* rows, uint32_t count) {
  resizer_->Add(reinterpret_cast<const uint8_t*>(rows), count);
}

// The part of the resized picture that the tensor holds, where that is all that there is to do;
// sets the geometry.
std::optional<PixelWindow> TensorMaker::WindowOf(const PictureHead& head,
                                                 const PictureSize& picture) {
  if (recipe_.followsExif && head.orientation != 1) return std::nullopt;
  geometry_.picture = picture;
  geometry_.resized = picture;
  PictureSize box = picture;
  if (const auto& step = recipe_.resize) {
    const bool isLetterbox = step->fit == ResizeStep::Fit::kLetterbox;
    if (step->isFloat || (isLetterbox && recipe_.crop)) return std::nullopt;
    box = step->size.value_or(target_.size);
    geometry_.resized = ResizedSize(picture, *step, box);
    if (isLetterbox) {
      SetPlaced(geometry_.resized, box, *step, geometry_);
    } else {
      box = geometry_.resized;
    }
  }
  PixelWindow window{0, 0, geometry_.resized.width, geometry_.resized.height};
  if (recipe_.crop) {
    const PictureSize size = recipe_.crop->size.value_or(target_.size);
    if (!IsCutOut(size, box)) return std::nullopt;
    SetCut(box, size, *recipe_.crop, geometry_);
    window = {geometry_.cutLeft, geometry_.cutTop, size.width, size.height};
    box = size;
  }
  if (box != target_.size) return std::nullopt;
  return window;
}

// Which value of a pixel each channel of the tensor is made of. False where it is made of several.
bool TensorMaker::SetSources(uint32_t channels) {
  pixelStep_ = channels;
  sources_.assign(target_.channels, 0);
  if (channels == 1) return target_.channels <= 3;
  if (channels != 3 || target_.channels != 3) return false;
  sources_ = {0, 1, 2};
  if (recipe_.colours == Colours::kBgr) std::swap(sources_.front(), sources_.back());
  return true;
}

std::byte* TensorMaker::PlaceOf(uint32_t x, uint32_t y, size_t channel) const {
  const size_t pixel = size_t{y} * target_.size.width + x;
  const Places places = PlacesIn(target_);
  return bytes_->data() +
         (pixel * places.pixelStep + channel * places.channelStep) * ElementBytes(target_.type);
}

void TensorMaker::StoreRow(uint32_t x, uint32_t y, const uint8_t* row, size_t count) {
  const size_t step = PlacesIn(target_).pixelStep;
  for (size_t channel = 0; channel < target_.channels; ++channel) {
    std::byte* to = PlaceOf(x, y, channel);
    tables_[channel].LookUp({row + sources_[channel], pixelStep_, count, to, step});
  }
}

// The bars around the picture.
void TensorMaker::FillAround(const PixelWindow& window) {
  const PictureSize& size = target_.size;
  if (window.width == size.width && window.height == size.height) return;
  const std::vector<uint8_t> fill =
      FillOf<uint8_t>(recipe_.resize->fill, static_cast<uint32_t>(target_.channels));
  const size_t step = PlacesIn(target_).pixelStep;
  const auto fillPart = [&](uint32_t x, uint32_t y, uint32_t count) {
    for (size_t channel = 0; channel < target_.channels; ++channel) {
      tables_[channel].Fill(fill[channel], count, PlaceOf(x, y, channel), step);
    }
  };
  const uint32_t right = geometry_.placedLeft + window.width;
  const uint32_t bottom = geometry_.placedTop + window.height;
  for (uint32_t y = 0; y < size.height; ++y) {
    const bool isBar = y < geometry_.placedTop || y >= bottom;
    fillPart(0, y, isBar ? size.width : geometry_.placedLeft);
    if (!isBar && right < size.width) fillPart(right, y, size.width - right);
  }
}

void TensorMaker::StoreBytes(const Picture& picture) {
  const auto* from = picture.Row<uint8_t>(0);
  for (size_t channel = 0; channel < target_.channels; ++channel) {
    const auto& fits = fits_[channel];
    if (std::find(fits.begin(), fits.end(), false) == fits.end()) continue;
    for (size_t i = channel; i < picture.pixels.size(); i += picture.channels) {
      if (!fits[from[i]]) RefuseValue(Computed(from[i], recipe_.values, channel), target_.type);
    }
  }
  pixelStep_ = picture.channels;
  sources_.resize(target_.channels);
  std::iota(sources_.begin(), sources_.end(), 0);
  for (uint32_t y = 0; y < picture.height; ++y) {
    StoreRow(0, y, picture.Row<uint8_t>(y), picture.width);
  }
}

PictureGeometry TensorMaker::Make(Picture picture, int orientation) {
  if (Begin({picture.width, picture.height, picture.channels, picture.type, orientation})) {
    Take(picture.pixels.data(), picture.height);
    return geometry_;
  }
  geometry_ = {};
  if (recipe_.followsExif && orientation != 1) {
    picture = ApplyOrientation(std::move(picture), orientation);
    geometry_.orientation = orientation;
  }
  if (!recipe_.isDepthKept) picture = UpperBytes(std::move(picture));
  picture = InColours(std::move(picture), recipe_);
  geometry_.picture = SizeOf(picture);
  geometry_.resized = SizeOf(picture);
  if (recipe_.resize) {
    picture = ResizeBy(std::move(picture), *recipe_.resize, target_.size, geometry_);
  }
  if (recipe_.crop) picture = CropBy(std::move(picture), *recipe_.crop, target_.size, geometry_);
  if (SizeOf(picture) != target_.size) {
    throw Fault(ExitStatus::kInput, "is " + SizeTextOf(SizeOf(picture)) +
                                        " at the end of the recipe '" + Printable(recipe_.name) +
                                        "', and the input takes " + SizeTextOf(target_.size) +
                                        "; put a \"resize\" or \"crop\" to \"model\" into it");
  }
  bytes_->resize(target_.Bytes());
  if (picture.type == PixelType::kUint8) {
    StoreBytes(picture);
  } else {
    StoreOthers(picture, recipe_, target_, bytes_->data());
  }
  return geometry_;
}

PictureGeometry MakeTensor(Picture picture, int orientation, const Recipe& recipe,
                           const PictureTarget& target, std::vector<std::byte>& bytes) {
  TensorMaker maker(recipe, target);
  maker.MakeInto(bytes);
  return maker.Make(std::move(picture), orientation);
}

std::string WhyNotStored(const Recipe& recipe, ElementType type) {
  std::array<std::byte, sizeof(uint64_t)> element{};
  const size_t channels = ChannelsOf(recipe.colours);
  for (size_t channel = 0; channel < channels; ++channel) {
    for (size_t value = 0; value < kByteValues; ++value) {
      const float computed = Computed(static_cast<float>(value), recipe.values, channel);
      if (StoreValue(computed, type, recipe.quantisation, element.data())) continue;
      return "a pixel of " + std::to_string(value) + " comes to " +
             TextOfValue(static_cast<double>(computed)) + ", which is none of " +
             std::string(ElementName(type)) +
             "; put a \"quantisation\" into the recipe, or leave out its \"values\"";
    }
  }
  return "";
}

}  // namespace vorn::kit
