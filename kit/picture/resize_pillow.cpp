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
#ifdef __x86_64__
#include <immintrin.h>
#endif

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
    // Pixels whose centres lie within the support, these rounded half up.
    const double lower = std::max(centre - support + 0.5, 0.0);
    const double upper = centre + support + 0.5;
    const auto first = static_cast<int64_t>(lower);
    const auto end = std::min(static_cast<int64_t>(upper), int64_t{inSize});
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
// Lanes are values that are worked on at once.
struct Bytes {
  using Value = uint8_t;
  using Weight = int32_t;
  using Sum = int32_t;
  static constexpr size_t kLanes = 16;
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
  static constexpr size_t kLanes = 8;
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
  static constexpr size_t kLanes = 8;
  static constexpr Sum kStart = 0;
  static Weight WeightOf(double weight) { return weight; }
  static Value ValueOf(Sum sum) { return static_cast<Value>(sum); }
};

// Rows of values of somebody else's, `values` in each.
template <typename Value>
struct Rows {
  const Value* first;
  size_t values;
  uint32_t count;

  [[nodiscard]] const Value* Row(size_t y) const { return first + y * values; }
};

template <typename Kind>
std::vector<typename Kind::Weight> WeightsOf(const Taps& taps) {
  std::vector<typename Kind::Weight> weights(taps.weights.size());
  std::transform(taps.weights.begin(), taps.weights.end(), weights.begin(), Kind::WeightOf);
  return weights;
}

// What is inlined into a function for a newer processor is compiled for that.
#define VORN_ALWAYS_INLINE inline __attribute__((always_inline))

// As an array of fixed length, whose loops the compiler makes vector instructions of.
template <typename Kind>
struct Sums {
  typename Kind::Sum lanes[Kind::kLanes];

  VORN_ALWAYS_INLINE void Start() {
    for (size_t lane = 0; lane < Kind::kLanes; ++lane) lanes[lane] = Kind::kStart;
  }
  VORN_ALWAYS_INLINE void Add(const typename Kind::Value* values, typename Kind::Weight weight) {
    for (size_t lane = 0; lane < Kind::kLanes; ++lane) lanes[lane] += values[lane] * weight;
  }
  VORN_ALWAYS_INLINE void Store(typename Kind::Value* to) const {
    for (size_t lane = 0; lane < Kind::kLanes; ++lane) to[lane] = Kind::ValueOf(lanes[lane]);
  }
};

// Columns of several rows at once, which lie beside each other: from[place][channel][row], and so
// `to`.
template <typename Kind>
VORN_ALWAYS_INLINE void ResizeColumnsOfBlock(const typename Kind::Value* from, uint32_t channels,
                                             const Taps& taps, const typename Kind::Weight* weights,
                                             typename Kind::Value* to) {
  const size_t pixel = channels * Kind::kLanes;
  for (size_t x = 0; x < taps.first.size(); ++x, weights += taps.most) {
    const typename Kind::Value* first = from + taps.first[x] * pixel;
    const uint32_t count = taps.count[x];
    for (uint32_t c = 0; c < channels; ++c, first += Kind::kLanes, to += Kind::kLanes) {
      Sums<Kind> sums;
      sums.Start();
      for (uint32_t i = 0; i < count; ++i) sums.Add(first + i * pixel, weights[i]);
      sums.Store(to);
    }
  }
}

// One row out of those that it takes, the first of which is `from`.
template <typename Kind>
VORN_ALWAYS_INLINE void ResizeOneRow(const typename Kind::Value* from, size_t values,
                                     uint32_t count, const typename Kind::Weight* weights,
                                     typename Kind::Value* to) {
  size_t x = 0;
  for (; x + Kind::kLanes <= values; x += Kind::kLanes) {
    Sums<Kind> sums;
    sums.Start();
    for (uint32_t i = 0; i < count; ++i) sums.Add(from + i * values + x, weights[i]);
    sums.Store(to + x);
  }
  for (; x < values; ++x) {
    typename Kind::Sum sum = Kind::kStart;
    for (uint32_t i = 0; i < count; ++i) sum += from[i * values + x] * weights[i];
    to[x] = Kind::ValueOf(sum);
  }
}

template <typename Kind>
using ColumnsFunction = void (*)(const typename Kind::Value*, uint32_t, const Taps&,
                                 const typename Kind::Weight*, typename Kind::Value*);
template <typename Kind>
using RowFunction = void (*)(const typename Kind::Value*, size_t, uint32_t,
                             const typename Kind::Weight*, typename Kind::Value*);

template <typename Kind>
void ResizeColumnsAnywhere(const typename Kind::Value* from, uint32_t channels, const Taps& taps,
                           const typename Kind::Weight* weights, typename Kind::Value* to) {
  ResizeColumnsOfBlock<Kind>(from, channels, taps, weights, to);
}

template <typename Kind>
void ResizeRowAnywhere(const typename Kind::Value* from, size_t values, uint32_t count,
                       const typename Kind::Weight* weights, typename Kind::Value* to) {
  ResizeOneRow<Kind>(from, values, count, weights, to);
}

#ifdef __x86_64__
template <typename Kind>
__attribute__((target("avx2"))) void ResizeColumnsWithAvx2(const typename Kind::Value* from,
                                                           uint32_t channels, const Taps& taps,
                                                           const typename Kind::Weight* weights,
                                                           typename Kind::Value* to) {
  ResizeColumnsOfBlock<Kind>(from, channels, taps, weights, to);
}

template <typename Kind>
__attribute__((target("avx2"))) void ResizeRowWithAvx2(const typename Kind::Value* from,
                                                       size_t values, uint32_t count,
                                                       const typename Kind::Weight* weights,
                                                       typename Kind::Value* to) {
  ResizeOneRow<Kind>(from, values, count, weights, to);
}

// The compiler finds no vectors in bytes that become 32 bits. 16 sums, of which each half is a
// vector.
struct ByteSums {
  __m256i lower;
  __m256i upper;
};

__attribute__((target("avx2"))) VORN_ALWAYS_INLINE ByteSums AddBytes(const uint8_t* first,
                                                                     size_t stride, uint32_t count,
                                                                     const int32_t* weights) {
  ByteSums sums{_mm256_set1_epi32(Bytes::kStart), _mm256_set1_epi32(Bytes::kStart)};
  for (uint32_t i = 0; i < count; ++i) {
    const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(first + i * stride));
    const __m256i weight = _mm256_set1_epi32(weights[i]);
    const __m256i lower = _mm256_cvtepu8_epi32(bytes);
    const __m256i upper = _mm256_cvtepu8_epi32(_mm_unpackhi_epi64(bytes, bytes));
    sums.lower = _mm256_add_epi32(sums.lower, _mm256_mullo_epi32(lower, weight));
    sums.upper = _mm256_add_epi32(sums.upper, _mm256_mullo_epi32(upper, weight));
  }
  return sums;
}

__attribute__((target("avx2"))) VORN_ALWAYS_INLINE void StoreBytes(const ByteSums& sums,
                                                                   uint8_t* to) {
  const __m256i words = _mm256_packs_epi32(_mm256_srai_epi32(sums.lower, kWeightBits),
                                           _mm256_srai_epi32(sums.upper, kWeightBits));
  const __m256i inOrder = _mm256_permute4x64_epi64(words, 0xd8);
  _mm_storeu_si128(
      reinterpret_cast<__m128i*>(to),
      _mm_packus_epi16(_mm256_castsi256_si128(inOrder), _mm256_extracti128_si256(inOrder, 1)));
}

template <>
__attribute__((target("avx2"))) void ResizeColumnsWithAvx2<Bytes>(
    const uint8_t* from, uint32_t channels, const Taps& taps, const int32_t* weights, uint8_t* to) {
  const size_t pixel = channels * Bytes::kLanes;
  for (size_t x = 0; x < taps.first.size(); ++x, weights += taps.most) {
    const uint8_t* first = from + taps.first[x] * pixel;
    for (uint32_t c = 0; c < channels; ++c, first += Bytes::kLanes, to += Bytes::kLanes) {
      StoreBytes(AddBytes(first, pixel, taps.count[x], weights), to);
    }
  }
}

template <>
__attribute__((target("avx2"))) void ResizeRowWithAvx2<Bytes>(const uint8_t* from, size_t values,
                                                              uint32_t count,
                                                              const int32_t* weights, uint8_t* to) {
  const size_t whole = values / Bytes::kLanes * Bytes::kLanes;
  for (size_t x = 0; x < whole; x += Bytes::kLanes) {
    StoreBytes(AddBytes(from + x, values, count, weights), to + x);
  }
  for (size_t x = whole; x < values; ++x) {
    int32_t sum = Bytes::kStart;
    for (uint32_t i = 0; i < count; ++i) sum += from[i * values + x] * weights[i];
    to[x] = Bytes::ValueOf(sum);
  }
}

bool HasAvx2() { return __builtin_cpu_supports("avx2") != 0; }

template <typename Kind>
ColumnsFunction<Kind> ChosenColumns() {
  return HasAvx2() ? ResizeColumnsWithAvx2<Kind> : ResizeColumnsAnywhere<Kind>;
}

template <typename Kind>
RowFunction<Kind> ChosenRow() {
  return HasAvx2() ? ResizeRowWithAvx2<Kind> : ResizeRowAnywhere<Kind>;
}
#else
template <typename Kind>
ColumnsFunction<Kind> ChosenColumns() {
  return ResizeColumnsAnywhere<Kind>;
}

template <typename Kind>
RowFunction<Kind> ChosenRow() {
  return ResizeRowAnywhere<Kind>;
}
#endif

// to[column][row] = from[row][column]; strides from one row to the next.
template <typename Value>
void Transpose(const Value* from, size_t fromStride, size_t rows, size_t columns, Value* to,
               size_t toStride) {
  for (size_t row = 0; row < rows; ++row) {
    for (size_t column = 0; column < columns; ++column) {
      to[column * toStride + row] = from[row * fromStride + column];
    }
  }
}

// 16 times 16 bytes: four times, each vector of the one half is interleaved with one of the other.
void TransposeSquare(const uint8_t* from, size_t fromStride, uint8_t* to, size_t toStride) {
  typedef uint8_t Vector __attribute__((vector_size(16)));
  Vector vectors[2][16];
  for (size_t i = 0; i < 16; ++i) std::memcpy(&vectors[0][i], from + i * fromStride, 16);
  for (size_t round = 0; round < 4; ++round) {
    const Vector* old = vectors[round % 2];
    Vector* next = vectors[1 - round % 2];
    for (size_t i = 0; i < 8; ++i) {
      next[2 * i] = __builtin_shufflevector(old[i], old[i + 8], 0, 16, 1, 17, 2, 18, 3, 19, 4, 20,
                                            5, 21, 6, 22, 7, 23);
      next[2 * i + 1] = __builtin_shufflevector(old[i], old[i + 8], 8, 24, 9, 25, 10, 26, 11, 27,
                                                12, 28, 13, 29, 14, 30, 15, 31);
    }
  }
  for (size_t i = 0; i < 16; ++i) std::memcpy(to + i * toStride, &vectors[0][i], 16);
}

void Transpose(const uint8_t* from, size_t fromStride, size_t rows, size_t columns, uint8_t* to,
               size_t toStride) {
  const size_t wholeRows = rows / 16 * 16;
  const size_t wholeColumns = columns / 16 * 16;
  for (size_t row = 0; row < wholeRows; row += 16) {
    for (size_t column = 0; column < wholeColumns; column += 16) {
      TransposeSquare(from + row * fromStride + column, fromStride, to + column * toStride + row,
                      toStride);
    }
  }
  Transpose<uint8_t>(from + wholeColumns, fromStride, wholeRows, columns - wholeColumns,
                     to + wholeColumns * toStride, toStride);
  Transpose<uint8_t>(from + wholeRows * fromStride, fromStride, rows - wholeRows, columns,
                     to + wholeRows, toStride);
}

// Rows from `offset` on, at the new width; as many as `to` has room for.
template <typename Kind>
void ResizeColumns(const Rows<typename Kind::Value>& from, uint32_t channels, const Taps& taps,
                   uint32_t offset, std::vector<typename Kind::Value>& to) {
  using Value = typename Kind::Value;
  const auto weights = WeightsOf<Kind>(taps);
  const auto resize = ChosenColumns<Kind>();
  const size_t values = taps.first.size() * channels;
  const size_t count = to.size() / values;
  std::vector<Value> block(from.values * Kind::kLanes);
  std::vector<Value> resized(values * Kind::kLanes);
  for (size_t y = 0; y < count; y += Kind::kLanes) {
    const size_t rows = std::min(Kind::kLanes, count - y);  // the other lanes hold anything
    Transpose(from.Row(offset + y), from.values, rows, from.values, block.data(), Kind::kLanes);
    resize(block.data(), channels, taps, weights.data(), resized.data());
    Transpose(resized.data(), Kind::kLanes, values, rows, to.data() + y * values, values);
  }
}

// `offset`: which row of the picture is the first of `from`.
template <typename Kind>
void ResizeRows(const Rows<typename Kind::Value>& from, const Taps& taps, uint32_t offset,
                typename Kind::Value* to) {
  const auto weights = WeightsOf<Kind>(taps);
  const auto resize = ChosenRow<Kind>();
  for (size_t y = 0; y < taps.first.size(); ++y, to += from.values) {
    resize(from.Row(taps.first[y] - offset), from.values, taps.count[y],
           weights.data() + y * taps.most, to);
  }
}

// How a picture becomes another one.
struct Plan {
  uint32_t channels;
  uint32_t width;
  uint32_t height;
  uint32_t newWidth;
  uint32_t newHeight;
  Filter filter;
  ResizeBox box;

  [[nodiscard]] bool NeedsColumns() const {
    return width != newWidth || box.left != 0 || box.right != static_cast<float>(newWidth);
  }
  [[nodiscard]] bool NeedsRows() const {
    return height != newHeight || box.top != 0 || box.bottom != static_cast<float>(newHeight);
  }
};

template <typename Kind>
void ResizeValues(const typename Kind::Value* from, const Plan& plan, typename Kind::Value* to) {
  using Value = typename Kind::Value;
  Rows<Value> rows{from, size_t{plan.width} * plan.channels, plan.height};
  const Taps down = TapsOf(plan.height, plan.box.top, plan.box.bottom, plan.newHeight, plan.filter);
  uint32_t offset = 0;
  std::vector<Value> between;
  if (plan.NeedsColumns()) {
    const Taps across =
        TapsOf(plan.width, plan.box.left, plan.box.right, plan.newWidth, plan.filter);
    // All rows that a row of the result takes.
    if (plan.NeedsRows()) {
      offset = down.First();
      rows.count = down.End() - offset;
    }
    const size_t values = size_t{plan.newWidth} * plan.channels;
    between.resize(values * rows.count);
    ResizeColumns<Kind>(rows, plan.channels, across, offset, between);
    rows.first = between.data();
    rows.values = values;
  }
  if (plan.NeedsRows()) {
    ResizeRows<Kind>(rows, down, offset, to);
  } else {
    std::copy_n(rows.first, rows.values * rows.count, to);
  }
}

template <typename Kind>
void ResizePixels(const Picture& picture, const Plan& plan, Picture& resized) {
  using Value = typename Kind::Value;
  ResizeValues<Kind>(picture.Row<Value>(0), plan, resized.Row<Value>(0));
}

// By way of mode "I".
void ResizeWholeNumbers(const Picture& picture, const Plan& plan, Picture& resized) {
  const auto* from = picture.Row<uint16_t>(0);
  const std::vector<int32_t> values(from, from + picture.RowValues() * picture.height);
  std::vector<int32_t> results(resized.RowValues() * resized.height);
  ResizeValues<Integers>(values.data(), plan, results.data());
  std::transform(results.begin(), results.end(), resized.Row<uint16_t>(0),
                 [](int32_t value) { return static_cast<uint16_t>(std::clamp(value, 0, 65535)); });
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
  const Plan plan{
      picture.channels, picture.width, picture.height, width, height, FilterOf(rule), box};
  Picture resized = MakePicture(width, height, picture.channels, picture.type);
  switch (picture.type) {
    case PixelType::kUint16:
      ResizeWholeNumbers(picture, plan, resized);
      return resized;
    case PixelType::kFloat32:
      ResizePixels<Floats>(picture, plan, resized);
      return resized;
    case PixelType::kUint8:
      break;
  }
  if (!picture.HasAlpha()) {
    ResizePixels<Bytes>(picture, plan, resized);
    return resized;
  }
  ResizePixels<Bytes>(MultipliedByAlpha(picture), plan, resized);
  DivideByAlpha(resized);
  return resized;
}

}  // namespace vorn::kit
