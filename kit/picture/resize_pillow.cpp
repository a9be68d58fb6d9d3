// The rules of Pillow. A filter is as wide as it has to be so that no pixel is left out
// (antialias), columns come first and then rows, and the result between them is rounded to the type
// of the picture:
//
//     scale   = box / size             centre of output x = box.left + (x + 0.5) * scale
//     weights = filter((i + 0.5 - centre) / max(scale, 1)), all of one output scaled to the sum 1
//
// uint8 has the weights as whole numbers with 22 bits behind the point. uint16 is mode "I", whose
// whole numbers have 32 bits and a sign between columns and rows; float32 is mode "F". Both are
// added up as doubles, in the order of the pixels.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>
#include <utility>

#include "kit/picture/resize_rules.h"

namespace vorn::kit {
namespace {

constexpr int kWeightBits = 22;

struct Filter {
  double (*weight)(double);
  double support;
};

double BoxWeight(double x) { return x > -0.5 && x <= 0.5 ? 1 : 0; }

double BilinearWeight(double x) {
  x = std::abs(x);
  return x < 1 ? 1 - x : 0;
}

double HammingWeight(double x) {
  x = std::abs(x);
  if (x == 0) return 1;
  if (x >= 1) return 0;
  x *= std::numbers::pi;
  // These two are floats there, and show in the last bits.
  return std::sin(x) / x * (static_cast<double>(0.54F) + static_cast<double>(0.46F) * std::cos(x));
}

double BicubicWeight(double x) {
  constexpr double kA = -0.5;
  x = std::abs(x);
  if (x < 1) return ((kA + 2) * x - (kA + 3)) * x * x + 1;
  if (x < 2) return (((x - 5) * x + 8) * x - 4) * kA;
  return 0;
}

double Sinc(double x) {
  if (x == 0) return 1;
  x *= std::numbers::pi;
  return std::sin(x) / x;
}

double LanczosWeight(double x) { return x >= -3 && x < 3 ? Sinc(x) * Sinc(x / 3) : 0; }

Filter FilterOf(ResizeRule rule) {
  switch (rule) {
    case ResizeRule::kPilBox:
      return {BoxWeight, 0.5};
    case ResizeRule::kPilHamming:
      return {HammingWeight, 1};
    case ResizeRule::kPilBicubic:
      return {BicubicWeight, 2};
    case ResizeRule::kPilLanczos:
      return {LanczosWeight, 3};
    default:
      return {BilinearWeight, 1};
  }
}

// Which pixels an output takes, and how much of each. `most` weights for each output, side by side.
struct Taps {
  size_t most = 0;
  std::vector<uint32_t> first;
  std::vector<uint32_t> count;
  std::vector<double> weights;

  [[nodiscard]] uint32_t First() const { return first.front(); }
  [[nodiscard]] uint32_t End() const { return first.back() + count.back(); }
};

Taps TapsOf(uint32_t inSize, float from, float to, uint32_t outSize, const Filter& filter) {
  const double scale = static_cast<double>(to - from) / outSize;
  const double widening = std::max(scale, 1.0);
  const double support = filter.support * widening;
  Taps taps;
  taps.most = static_cast<size_t>(std::ceil(support)) * 2 + 1;
  taps.first.resize(outSize);
  taps.count.resize(outSize);
  taps.weights.resize(taps.most * outSize);
  for (uint32_t out = 0; out < outSize; ++out) {
    const double centre = static_cast<double>(from) + (out + 0.5) * scale;
    const double narrowing = 1.0 / widening;
    const auto first = static_cast<int64_t>(std::max(centre - support + 0.5, 0.0));
    const auto end = std::min(static_cast<int64_t>(centre + support + 0.5), int64_t{inSize});
    const auto count = static_cast<uint32_t>(end - first);
    double* weights = taps.weights.data() + out * taps.most;
    double sum = 0;
    for (uint32_t i = 0; i < count; ++i) {
      weights[i] = filter.weight((static_cast<double>(i + first) - centre + 0.5) * narrowing);
      sum += weights[i];
    }
    if (sum != 0) {
      for (uint32_t i = 0; i < count; ++i) weights[i] /= sum;
    }
    taps.first[out] = static_cast<uint32_t>(first);
    taps.count[out] = count;
  }
  return taps;
}

// How the values of a type are added up. Value is what a picture has between columns and rows, too.
struct Bytes {
  using Value = uint8_t;
  using Weight = int32_t;
  using Sum = int32_t;
  static constexpr Sum kStart = 1 << (kWeightBits - 1);
  static Weight WeightOf(double weight) {
    const double scaled = weight * (1 << kWeightBits);
    return static_cast<Weight>(weight < 0 ? scaled - 0.5 : scaled + 0.5);
  }
  static Value ValueOf(Sum sum) {
    return static_cast<Value>(std::clamp(sum >> kWeightBits, 0, 255));
  }
};

struct Integers {
  using Value = int32_t;
  using Weight = double;
  using Sum = double;
  static constexpr Sum kStart = 0;
  static Weight WeightOf(double weight) { return weight; }
  static Value ValueOf(Sum sum) {
    return static_cast<Value>(sum >= 0 ? std::floor(sum + 0.5) : -std::floor(std::abs(sum) + 0.5));
  }
};

struct Floats {
  using Value = float;
  using Weight = double;
  using Sum = double;
  static constexpr Sum kStart = 0;
  static Weight WeightOf(double weight) { return weight; }
  static Value ValueOf(Sum sum) { return static_cast<Value>(sum); }
};

// Values in rows; as a Picture, of a type that no picture has.
template <typename Value>
struct Plane {
  uint32_t width;
  uint32_t height;
  uint32_t channels;
  std::vector<Value> values;

  [[nodiscard]] size_t RowValues() const { return size_t{width} * channels; }
  [[nodiscard]] const Value* Row(size_t y) const { return values.data() + y * RowValues(); }
  [[nodiscard]] Value* Row(size_t y) { return values.data() + y * RowValues(); }
};

template <typename Kind>
std::vector<typename Kind::Weight> WeightsOf(const Taps& taps) {
  std::vector<typename Kind::Weight> weights(taps.weights.size());
  std::transform(taps.weights.begin(), taps.weights.end(), weights.begin(), Kind::WeightOf);
  return weights;
}

template <typename Kind, uint32_t kChannels>
void ResizeRow(const typename Kind::Value* from, const Taps& taps,
               const typename Kind::Weight* weights, uint32_t width, typename Kind::Value* to) {
  for (uint32_t x = 0; x < width; ++x, to += kChannels, weights += taps.most) {
    typename Kind::Sum sums[kChannels];
    std::fill_n(sums, kChannels, Kind::kStart);
    const auto* pixel = from + size_t{taps.first[x]} * kChannels;
    for (uint32_t i = 0; i < taps.count[x]; ++i, pixel += kChannels) {
      for (uint32_t c = 0; c < kChannels; ++c) sums[c] += pixel[c] * weights[i];
    }
    for (uint32_t c = 0; c < kChannels; ++c) to[c] = Kind::ValueOf(sums[c]);
  }
}

template <typename Kind>
auto RowFunctionOf(uint32_t channels) {
  switch (channels) {
    case 1:
      return ResizeRow<Kind, 1>;
    case 2:
      return ResizeRow<Kind, 2>;
    case 3:
      return ResizeRow<Kind, 3>;
    default:
      return ResizeRow<Kind, 4>;
  }
}

// Rows `first` to `end` of the plane, at the new width.
template <typename Kind>
Plane<typename Kind::Value> ResizeColumns(const Plane<typename Kind::Value>& from, const Taps& taps,
                                          uint32_t width, uint32_t first, uint32_t end) {
  Plane<typename Kind::Value> to{width, end - first, from.channels, {}};
  to.values.resize(to.RowValues() * to.height);
  const auto weights = WeightsOf<Kind>(taps);
  const auto resizeRow = RowFunctionOf<Kind>(from.channels);
  for (uint32_t y = first; y < end; ++y) {
    resizeRow(from.Row(y), taps, weights.data(), width, to.Row(y - first));
  }
  return to;
}

// `offset`: which row of the picture is the first of the plane.
template <typename Kind>
Plane<typename Kind::Value> ResizeRows(const Plane<typename Kind::Value>& from, const Taps& taps,
                                       uint32_t height, uint32_t offset) {
  Plane<typename Kind::Value> to{from.width, height, from.channels, {}};
  to.values.resize(to.RowValues() * to.height);
  const auto weights = WeightsOf<Kind>(taps);
  const size_t values = to.RowValues();
  std::vector<typename Kind::Sum> sums(values);
  for (uint32_t y = 0; y < height; ++y) {
    std::fill(sums.begin(), sums.end(), Kind::kStart);
    for (uint32_t i = 0; i < taps.count[y]; ++i) {
      const auto* row = from.Row(taps.first[y] - offset + i);
      const typename Kind::Weight weight = weights[y * taps.most + i];
      for (size_t x = 0; x < values; ++x) sums[x] += row[x] * weight;
    }
    std::transform(sums.begin(), sums.end(), to.Row(y), Kind::ValueOf);
  }
  return to;
}

template <typename Kind>
Plane<typename Kind::Value> ResizePlane(Plane<typename Kind::Value> plane, uint32_t width,
                                        uint32_t height, const Filter& filter,
                                        const ResizeBox& box) {
  const bool needsColumns =
      width != plane.width || box.left != 0 || box.right != static_cast<float>(width);
  const bool needsRows =
      height != plane.height || box.top != 0 || box.bottom != static_cast<float>(height);
  const Taps rows = TapsOf(plane.height, box.top, box.bottom, height, filter);
  uint32_t offset = 0;
  if (needsColumns) {
    const Taps columns = TapsOf(plane.width, box.left, box.right, width, filter);
    // All rows that a row of the result takes.
    uint32_t end = plane.height;
    if (needsRows) {
      offset = rows.First();
      end = rows.End();
    }
    plane = ResizeColumns<Kind>(plane, columns, width, offset, end);
  }
  if (needsRows) plane = ResizeRows<Kind>(plane, rows, height, offset);
  return plane;
}

template <typename Stored, typename Kind>
Picture ResizeValues(const Picture& picture, uint32_t width, uint32_t height, const Filter& filter,
                     const ResizeBox& box) {
  using Value = typename Kind::Value;
  Plane<Value> plane{picture.width, picture.height, picture.channels, {}};
  const auto* from = picture.Row<Stored>(0);
  plane.values.assign(from, from + picture.RowValues() * picture.height);
  plane = ResizePlane<Kind>(std::move(plane), width, height, filter, box);
  Picture resized = MakePicture(width, height, picture.channels, picture.type);
  std::transform(plane.values.begin(), plane.values.end(), resized.Row<Stored>(0), [](Value value) {
    if constexpr (std::is_same_v<Stored, Value>) return value;
    if constexpr (!std::is_same_v<Stored, Value>) {
      return static_cast<Stored>(std::clamp(value, Value{0}, Value{65535}));
    }
  });
  return resized;
}

uint8_t Of255(unsigned product) {
  product += 128;
  return static_cast<uint8_t>(((product >> 8) + product) >> 8);
}

Picture MultipliedByAlpha(const Picture& picture) {
  Picture multiplied = picture;
  const uint32_t colours = picture.channels - 1;
  auto* values = multiplied.Row<uint8_t>(0);
  for (size_t i = 0; i < multiplied.pixels.size(); i += picture.channels) {
    const unsigned alpha = values[i + colours];
    for (size_t c = i; c < i + colours; ++c) values[c] = Of255(values[c] * alpha);
  }
  return multiplied;
}

void DivideByAlpha(Picture& picture) {
  const uint32_t colours = picture.channels - 1;
  auto* values = picture.Row<uint8_t>(0);
  for (size_t i = 0; i < picture.pixels.size(); i += picture.channels) {
    const unsigned alpha = values[i + colours];
    if (alpha == 0 || alpha == 255) continue;
    for (size_t c = i; c < i + colours; ++c) {
      values[c] = static_cast<uint8_t>(std::min(255U, 255U * values[c] / alpha));
    }
  }
}

// Where each output is taken from: the places are added up, as Pillow does, and not multiplied.
std::vector<uint32_t> NearestPlaces(uint32_t inSize, float from, float to, uint32_t outSize) {
  const double step = static_cast<double>(to - from) / outSize;
  std::vector<uint32_t> places(outSize);
  double place = static_cast<double>(from) + step * 0.5;
  for (uint32_t& taken : places) {
    taken = std::min(static_cast<uint32_t>(place), inSize - 1);
    place += step;
  }
  return places;
}

Picture TakeNearest(const Picture& picture, uint32_t width, uint32_t height, const ResizeBox& box) {
  const auto columns = NearestPlaces(picture.width, box.left, box.right, width);
  const auto rows = NearestPlaces(picture.height, box.top, box.bottom, height);
  const size_t bytes = picture.channels * BytesOf(picture.type);
  Picture resized = MakePicture(width, height, picture.channels, picture.type);
  for (uint32_t y = 0; y < height; ++y) {
    const auto* from = picture.Row<std::byte>(rows[y]);
    auto* to = resized.Row<std::byte>(y);
    for (uint32_t x = 0; x < width; ++x, to += bytes) {
      std::memcpy(to, from + columns[x] * bytes, bytes);
    }
  }
  return resized;
}

}  // namespace

Picture ResizeAsPillow(const Picture& picture, uint32_t width, uint32_t height, ResizeRule rule,
                       const ResizeBox& box) {
  if (picture.width == width && picture.height == height && box.left == 0 && box.top == 0 &&
      box.right == static_cast<float>(width) && box.bottom == static_cast<float>(height)) {
    return picture;
  }
  if (rule == ResizeRule::kPilNearest) return TakeNearest(picture, width, height, box);
  const Filter filter = FilterOf(rule);
  switch (picture.type) {
    case PixelType::kUint16:
      return ResizeValues<uint16_t, Integers>(picture, width, height, filter, box);
    case PixelType::kFloat32:
      return ResizeValues<float, Floats>(picture, width, height, filter, box);
    case PixelType::kUint8:
      break;
  }
  if (!picture.HasAlpha()) {
    return ResizeValues<uint8_t, Bytes>(picture, width, height, filter, box);
  }
  Picture resized =
      ResizeValues<uint8_t, Bytes>(MultipliedByAlpha(picture), width, height, filter, box);
  DivideByAlpha(resized);
  return resized;
}

}  // namespace vorn::kit
