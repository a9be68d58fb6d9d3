// The rules of OpenCV, as its x86-64 build of Debian computes them.
//
//     scale of an axis = 1 / (size / old size)      place of output x = (x + 0.5) * scale - 0.5
//
// linear and cubic take 2 and 4 neighbours whatever the scale; at the border the last pixel counts
// instead of those beyond. uint8 has the weights as whole numbers of 11 bits, everything else as
// floats. area is the mean of what an output covers, with places to a thousandth; when an axis
// grows it is linear between other places. linear to exactly half the size is area.
#ifdef __x86_64__
#include <immintrin.h>
#endif

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <type_traits>
#include <utility>

#include "kit/picture/resize_rules.h"

namespace vorn::kit {
namespace {

constexpr int kWeightOne = 1 << 11;
constexpr size_t kMostTaps = 4;

double ScaleOf(uint32_t inSize, uint32_t outSize) {
  return 1.0 / (static_cast<double>(outSize) / inSize);
}

int64_t FloorOf(double value) { return static_cast<int64_t>(std::floor(value)); }

// To the nearest, half to the even one, and to what the type holds.
template <typename Value>
Value Saturated(float value) {
  if constexpr (std::is_same_v<Value, float>) {
    return value;
  } else {
    // From 2^23 to 2^24 the neighbours of a float are 1 apart: adding rounds. std::nearbyint is a
    // call into a library on the oldest x86-64.
    constexpr float kRounder = 12582912.0F;
    const float most = std::numeric_limits<Value>::max();
    const float rounded = std::min(std::max(value, 0.0F), most) + kRounder - kRounder;
    return static_cast<Value>(static_cast<int32_t>(rounded));
  }
}

struct Target {
  uint32_t width;
  uint32_t height;
  Instructions instructions;
};

// ---- nearest

std::vector<size_t> NearestPlaces(uint32_t inSize, uint32_t outSize) {
  const double scale = ScaleOf(inSize, outSize);
  std::vector<size_t> places(outSize);
  for (uint32_t out = 0; out < outSize; ++out) {
    places[out] = static_cast<size_t>(std::min(FloorOf(out * scale), int64_t{inSize} - 1));
  }
  return places;
}

template <size_t kBytes>
void TakePixels(const std::byte* from, const std::vector<size_t>& places, std::byte* to) {
  for (const size_t place : places) {
    std::memcpy(to, from + place * kBytes, kBytes);
    to += kBytes;
  }
}

using TakeFunction = void (*)(const std::byte*, const std::vector<size_t>&, std::byte*);

TakeFunction TakePixelsOf(size_t bytes) {
  switch (bytes) {
    case 1:
      return TakePixels<1>;
    case 2:
      return TakePixels<2>;
    case 3:
      return TakePixels<3>;
    case 4:
      return TakePixels<4>;
    case 6:
      return TakePixels<6>;
    case 8:
      return TakePixels<8>;
    case 12:
      return TakePixels<12>;
    default:
      return TakePixels<16>;
  }
}

Picture TakeNearest(const Picture& picture, uint32_t width, uint32_t height) {
  Picture resized = MakeUnclearedPicture(width, height, picture.channels, picture.type);
  const std::vector<size_t> columns = NearestPlaces(picture.width, width);
  const std::vector<size_t> rows = NearestPlaces(picture.height, height);
  const TakeFunction take = TakePixelsOf(picture.channels * BytesOf(picture.type));
  for (uint32_t y = 0; y < height; ++y) {
    take(picture.Row<std::byte>(static_cast<uint32_t>(rows[y])), columns,
         resized.Row<std::byte>(y));
  }
  return resized;
}

// ---- linear and cubic

// Weights are whole numbers for uint8 and floats for all else; what is between columns and rows,
// too. Of two taps the lower 4 bits are dropped then, and the rest has place in 16: at most 255
// times 2048, by 16, and a little for weights that were both rounded up.
template <typename Value>
using WorkOf = std::conditional_t<std::is_same_v<Value, uint8_t>, int32_t, float>;
template <typename Value, uint32_t kTaps>
using BetweenOf =
    std::conditional_t<std::is_same_v<Value, uint8_t> && kTaps == 2, int16_t, WorkOf<Value>>;

constexpr int kDroppedBits = 4;

template <typename Work>
Work WeightOf(float weight) {
  if constexpr (std::is_same_v<Work, float>) {
    return weight;
  } else {
    return static_cast<Work>(std::nearbyint(weight * static_cast<float>(kWeightOne)));
  }
}

enum class Interpolation { kLinear, kAreaGrowing, kCubic };

// The neighbours of an output along an axis.
template <typename Work>
struct Neighbours {
  uint32_t places[kMostTaps];
  Work weights[kMostTaps];
};

void CubicWeights(float x, float* weights) {
  constexpr float kA = -0.75F;
  weights[0] = ((kA * (x + 1) - 5 * kA) * (x + 1) + 8 * kA) * (x + 1) - 4 * kA;
  weights[1] = ((kA + 2) * x - (kA + 3)) * x * x + 1;
  weights[2] = ((kA + 2) * (1 - x) - (kA + 3)) * (1 - x) * (1 - x) + 1;
  weights[3] = 1.F - weights[0] - weights[1] - weights[2];
}

// `isColumns`: at the border a column counts wholly; of rows both weights count, of the same row.
template <typename Work>
std::vector<Neighbours<Work>> TapsOf(uint32_t inSize, uint32_t outSize, Interpolation interpolation,
                                     bool isColumns) {
  const double growth = static_cast<double>(outSize) / inSize;
  const double scale = 1.0 / growth;
  std::vector<Neighbours<Work>> outputs(outSize);
  for (uint32_t out = 0; out < outSize; ++out) {
    int64_t place = 0;
    float rest = 0;
    if (interpolation == Interpolation::kAreaGrowing) {
      place = FloorOf(out * scale);
      rest = static_cast<float>((out + 1) - static_cast<double>(place + 1) * growth);
      rest = rest <= 0 ? 0.F : rest - std::floor(rest);
    } else {
      rest = static_cast<float>((out + 0.5) * scale - 0.5);
      place = FloorOf(rest);
      rest -= static_cast<float>(place);
    }
    if (isColumns && interpolation != Interpolation::kCubic &&
        (place < 0 || place >= int64_t{inSize} - 1)) {
      place = place < 0 ? 0 : int64_t{inSize} - 1;
      rest = 0;
    }
    float weights[kMostTaps] = {1.F - rest, rest};
    if (interpolation == Interpolation::kCubic) CubicWeights(rest, weights);
    if (interpolation == Interpolation::kCubic) --place;
    for (size_t i = 0; i < kMostTaps; ++i) {
      const int64_t taken = std::clamp<int64_t>(place + static_cast<int64_t>(i), 0, inSize - 1);
      outputs[out].places[i] = static_cast<uint32_t>(taken);
      outputs[out].weights[i] = WeightOf<Work>(weights[i]);
    }
  }
  return outputs;
}

template <typename Value, uint32_t kChannels, uint32_t kTaps>
void ResizeRow(const Value* from, std::span<const Neighbours<WorkOf<Value>>> axis,
               BetweenOf<Value, kTaps>* to) {
  using Work = WorkOf<Value>;
  for (const Neighbours<Work>& output : axis) {
    const Value* pixels[kTaps];
    for (uint32_t i = 0; i < kTaps; ++i) pixels[i] = from + size_t{output.places[i]} * kChannels;
    for (uint32_t c = 0; c < kChannels; ++c) {
      Work sum = pixels[0][c] * output.weights[0];
      for (uint32_t i = 1; i < kTaps; ++i) sum += pixels[i][c] * output.weights[i];
      if constexpr (std::is_same_v<BetweenOf<Value, kTaps>, int16_t>) {
        *to++ = static_cast<int16_t>(sum >> kDroppedBits);
      } else {
        *to++ = sum;
      }
    }
  }
}

template <typename Value, uint32_t kTaps>
using RowFunction = void (*)(const Value*, std::span<const Neighbours<WorkOf<Value>>>,
                             BetweenOf<Value, kTaps>*);

#ifdef __x86_64__
#define VORN_VBMI __attribute__((target("avx512f,avx512bw,avx512vl,avx512vbmi")))

// Two taps of three bytes, which are bytes beside each other: at the border, where the second one
// is none, its weight is 0. Reads 8 bytes from the first tap on and writes 4 values beyond the
// last.
__attribute__((target("avx2"))) void ResizeThreesWithAvx2(const uint8_t* from,
                                                          std::span<const Neighbours<int32_t>> axis,
                                                          int16_t* to) {
  // To words by channels: the first tap, the second, and so on.
  const __m128i pairs = _mm_setr_epi8(0, -1, 3, -1, 1, -1, 4, -1, 2, -1, 5, -1, -1, -1, -1, -1);
  const __m128i both = _mm_setr_epi8(0, 1, 4, 5, 0, 1, 4, 5, 0, 1, 4, 5, 0, 1, 4, 5);
  const __m128i threes = _mm_setr_epi8(0, 1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13, -1, -1, -1, -1);
  const auto eightBytes = [](const void* place) {
    return _mm_loadl_epi64(static_cast<const __m128i*>(place));
  };
  for (size_t x = 0; x < axis.size(); x += 2, to += 6) {
    __m128i sums[2];
    for (size_t i = 0; i < 2; ++i) {
      const Neighbours<int32_t>& output = axis[std::min(x + i, axis.size() - 1)];
      const __m128i words =
          _mm_shuffle_epi8(eightBytes(from + size_t{output.places[0]} * 3), pairs);
      const __m128i weights = _mm_shuffle_epi8(eightBytes(output.weights), both);
      sums[i] = _mm_srai_epi32(_mm_madd_epi16(words, weights), kDroppedBits);
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to),
                     _mm_shuffle_epi8(_mm_packs_epi32(sums[0], sums[1]), threes));
  }
}

// The same by five outputs at once, whose bytes are all among 64 where a picture does not shrink to
// less than a fifth.
class FivesOfThrees {
 public:
  // None where the bytes of an output lie elsewhere.
  static std::optional<FivesOfThrees> Of(std::span<const Neighbours<int32_t>> axis,
                                         size_t rowBytes) {
    FivesOfThrees fives;
    for (size_t x = 0; x < axis.size(); x += kOutputs) {
      const auto outputs = axis.subspan(x, std::min(kOutputs, axis.size() - x));
      Five five{.from = size_t{outputs.front().places[0]} * 3};
      five.isThere = LowestBits(rowBytes - five.from);
      five.isGiven = static_cast<uint16_t>(LowestBits(outputs.size() * 3));
      for (size_t i = 0; i < outputs.size() * 3 * 2; ++i) {
        const Neighbours<int32_t>& output = outputs[i / 2 / 3];
        const size_t byte = size_t{output.places[i % 2]} * 3 + i / 2 % 3 - five.from;
        if (byte >= kBytes) return std::nullopt;
        five.bytes[i * 2] = static_cast<uint8_t>(byte);
        five.weights[i] = static_cast<int16_t>(output.weights[i % 2]);
      }
      fives.fives_.push_back(five);
    }
    return fives;
  }

  VORN_VBMI void Resize(const uint8_t* from, int16_t* to) const {
    constexpr uint64_t kLowerBytes = 0x5555555555555555;  // of words
    for (const Five& five : fives_) {
      const __m512i bytes = _mm512_maskz_loadu_epi8(five.isThere, from + five.from);
      const __m512i words =
          _mm512_maskz_permutexvar_epi8(kLowerBytes, _mm512_loadu_si512(five.bytes), bytes);
      const __m512i sums = _mm512_madd_epi16(words, _mm512_loadu_si512(five.weights));
      const __m256i dropped = _mm512_cvtepi32_epi16(_mm512_srai_epi32(sums, kDroppedBits));
      _mm256_mask_storeu_epi16(to, five.isGiven, dropped);
      to += kOutputs * 3;
    }
  }

 private:
  static constexpr size_t kOutputs = 5;
  static constexpr size_t kBytes = 64;

  // Words of the first tap and the second one, channel by channel and output by output.
  struct Five {
    uint8_t bytes[kBytes] = {};
    int16_t weights[kBytes / 2] = {};
    size_t from = 0;
    uint64_t isThere = 0;  // of the bytes from there on, those of the row
    uint16_t isGiven = 0;  // of the values that are stored
  };

  static uint64_t LowestBits(size_t bits) {
    return bits < 64 ? (uint64_t{1} << bits) - 1 : ~uint64_t{0};
  }

  std::vector<Five> fives_;
};
#endif

template <typename Value, uint32_t kTaps>
RowFunction<Value, kTaps> RowFunctionOf(uint32_t channels) {
  switch (channels) {
    case 1:
      return ResizeRow<Value, 1, kTaps>;
    case 2:
      return ResizeRow<Value, 2, kTaps>;
    case 3:
      return ResizeRow<Value, 3, kTaps>;
    default:
      return ResizeRow<Value, 4, kTaps>;
  }
}

// What another function than the general one does for the first outputs of a row; those behind it
// would have it read beyond the row.
template <typename Value, uint32_t kTaps>
struct FastPart {
  RowFunction<Value, kTaps> resize = nullptr;
  size_t outputs = 0;
};

template <typename Value, uint32_t kTaps>
FastPart<Value, kTaps> FastPartOf(size_t rowValues, uint32_t channels,
                                  std::span<const Neighbours<WorkOf<Value>>> columns,
                                  Instructions instructions) {
#ifdef __x86_64__
  if constexpr (std::is_same_v<Value, uint8_t> && kTaps == 2) {
    if (instructions < Instructions::kAvx2 || channels != 3) return {};
    const auto end = std::partition_point(columns.begin(), columns.end(), [&](const auto& output) {
      return size_t{output.places[0]} * 3 + 8 <= rowValues;
    });
    return {ResizeThreesWithAvx2, static_cast<size_t>(end - columns.begin())};
  }
#endif
  (void)rowValues;
  (void)channels;
  (void)columns;
  (void)instructions;
  return {};
}

uint8_t ByteOf(int32_t value) { return static_cast<uint8_t>(std::clamp(value, 0, 255)); }

#ifdef __x86_64__
// As many as make whole vectors; returns how many.
size_t MixLinearWithSse2(const int16_t* first, const int16_t* second, int32_t a, int32_t b,
                         size_t values, uint8_t* to) {
  const __m128i weightA = _mm_set1_epi16(static_cast<int16_t>(a));
  const __m128i weightB = _mm_set1_epi16(static_cast<int16_t>(b));
  const auto mix = [&](size_t i) {
    const __m128i one = _mm_loadu_si128(reinterpret_cast<const __m128i*>(first + i));
    const __m128i other = _mm_loadu_si128(reinterpret_cast<const __m128i*>(second + i));
    const __m128i sum =
        _mm_add_epi16(_mm_mulhi_epi16(one, weightA), _mm_mulhi_epi16(other, weightB));
    return _mm_srai_epi16(_mm_add_epi16(sum, _mm_set1_epi16(2)), 2);
  };
  size_t i = 0;
  for (; i + 16 <= values; i += 16) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to + i), _mm_packus_epi16(mix(i), mix(i + 8)));
  }
  return i;
}
#endif

// Two rows into one. The products of uint8 lose bits before they are added up.
template <typename Value>
void MixLinear(const BetweenOf<Value, 2>* const* rows, const WorkOf<Value>* weights, size_t values,
               Instructions instructions, Value* to) {
  const auto* first = rows[0];
  const auto* second = rows[1];
  const auto a = weights[0];
  const auto b = weights[1];
  size_t i = 0;
#ifdef __x86_64__
  if constexpr (std::is_same_v<Value, uint8_t>) {
    if (instructions != Instructions::kPlain) {
      i = MixLinearWithSse2(first, second, a, b, values, to);
    }
  }
#endif
  (void)instructions;
  for (; i < values; ++i) {
    if constexpr (std::is_same_v<Value, uint8_t>) {
      to[i] = ByteOf(((first[i] * a >> 16) + (second[i] * b >> 16) + 2) >> 2);
    } else {
      to[i] = Saturated<Value>(first[i] * a + second[i] * b);
    }
  }
}

// Four rows into one.
template <typename Value>
void MixCubic(const WorkOf<Value>* const* rows, const WorkOf<Value>* weights, size_t values,
              Value* to) {
  const auto* r0 = rows[0];
  const auto* r1 = rows[1];
  const auto* r2 = rows[2];
  const auto* r3 = rows[3];
  if constexpr (std::is_same_v<Value, uint8_t>) {
    constexpr float kScale = 1.F / (static_cast<float>(kWeightOne) * kWeightOne);
    const float a = static_cast<float>(weights[0]) * kScale;
    const float b = static_cast<float>(weights[1]) * kScale;
    const float c = static_cast<float>(weights[2]) * kScale;
    const float d = static_cast<float>(weights[3]) * kScale;
    const size_t vectors = values / 8 * 8;
    for (size_t i = 0; i < vectors; ++i) {
      to[i] = Saturated<uint8_t>(static_cast<float>(r0[i]) * a +
                                 (static_cast<float>(r1[i]) * b +
                                  (static_cast<float>(r2[i]) * c + static_cast<float>(r3[i]) * d)));
    }
    for (size_t i = vectors; i < values; ++i) {
      const int32_t sum =
          r0[i] * weights[0] + r1[i] * weights[1] + r2[i] * weights[2] + r3[i] * weights[3];
      to[i] = ByteOf((sum + (1 << 21)) >> 22);
    }
  } else {
    const size_t step = std::is_same_v<Value, float> ? 4 : 8;
    const size_t vectors = values / step * step;
    for (size_t i = 0; i < vectors; ++i) {
      to[i] = Saturated<Value>(r0[i] * weights[0] +
                               (r1[i] * weights[1] + (r2[i] * weights[2] + r3[i] * weights[3])));
    }
    for (size_t i = vectors; i < values; ++i) {
      to[i] = Saturated<Value>(r0[i] * weights[0] + r1[i] * weights[1] + r2[i] * weights[2] +
                               r3[i] * weights[3]);
    }
  }
}

// How a picture becomes another one, of which the window is wanted.
struct Steps {
  uint32_t width;
  uint32_t height;
  uint32_t channels;
  uint32_t newWidth;
  uint32_t newHeight;
  PixelWindow window;
  Interpolation interpolation;
  Instructions instructions;
};

// Rows as they come, the last few of those that are needed kept at the new width.
template <typename Value, uint32_t kTaps>
class InterpolatedRows {
 public:
  using Work = WorkOf<Value>;
  using Between = BetweenOf<Value, kTaps>;

  explicit InterpolatedRows(const Steps& steps)
      : steps_(steps),
        columns_(TapsOf<Work>(steps.width, steps.newWidth, steps.interpolation, true)),
        rows_(TapsOf<Work>(steps.height, steps.newHeight, steps.interpolation, false)),
        taken_(std::span(columns_).subspan(steps.window.left, steps.window.width)),
        resizeRow_(RowFunctionOf<Value, kTaps>(steps.channels)),
        fast_(FastPartOf<Value, kTaps>(RowValues(), steps.channels, taken_, steps.instructions)),
        row_(Values()) {
    constexpr size_t kBeyond = 8;  // that the fast part may write
    for (auto& row : kept_) row.resize(Values() + kBeyond);
#ifdef __x86_64__
    if constexpr (kIsBytesByTwo) {
      const bool isByFives = steps.channels == 3 && steps.instructions == Instructions::kAvx512;
      if (isByFives) fives_ = FivesOfThrees::Of(taken_, RowValues());
    }
#endif
  }
  InterpolatedRows(const InterpolatedRows&) = delete;
  InterpolatedRows& operator=(const InterpolatedRows&) = delete;

  // `take(y, values)` for each row of the window that is finished with these.
  template <typename Take>
  void Add(const Value* from, uint32_t count, const Take& take) {
    for (const uint32_t end = next_ + count; next_ < end; ++next_, from += RowValues()) {
      if (done_ == steps_.window.height) continue;
      const auto* places = Taken().places;
      // What a later one takes and this one does not is below all that this one takes.
      if (next_ < places[0]) continue;
      Narrow(from);
      while (done_ < steps_.window.height && Taken().places[kTaps - 1] <= next_) Mix(take);
    }
  }

 private:
  [[nodiscard]] size_t RowValues() const { return size_t{steps_.width} * steps_.channels; }
  [[nodiscard]] size_t Values() const { return size_t{steps_.window.width} * steps_.channels; }
  [[nodiscard]] const Neighbours<Work>& Taken() const { return rows_[steps_.window.top + done_]; }

  void Narrow(const Value* from) {
    Between* to = kept_[next_ % kTaps].data();
#ifdef __x86_64__
    if constexpr (kIsBytesByTwo) {
      if (fives_) return fives_->Resize(from, to);
    }
#endif
    if (fast_.outputs > 0) fast_.resize(from, taken_.first(fast_.outputs), to);
    resizeRow_(from, taken_.subspan(fast_.outputs), to + fast_.outputs * steps_.channels);
  }

  template <typename Take>
  void Mix(const Take& take) {
    const Neighbours<Work>& output = Taken();
    const Between* rows[kTaps];
    for (uint32_t i = 0; i < kTaps; ++i) rows[i] = kept_[output.places[i] % kTaps].data();
    if constexpr (kTaps == 2) {
      MixLinear<Value>(rows, output.weights, Values(), steps_.instructions, row_.data());
    } else {
      MixCubic<Value>(rows, output.weights, Values(), row_.data());
    }
    take(done_, row_.data());
    ++done_;
  }

  Steps steps_;
  std::vector<Neighbours<Work>> columns_;
  std::vector<Neighbours<Work>> rows_;
  std::span<const Neighbours<Work>> taken_;  // of the columns
  RowFunction<Value, kTaps> resizeRow_;
  FastPart<Value, kTaps> fast_;
#ifdef __x86_64__
  static constexpr bool kIsBytesByTwo = std::is_same_v<Value, uint8_t> && kTaps == 2;
  std::optional<FivesOfThrees> fives_;
#endif
  std::vector<Value> row_;
  std::vector<Between> kept_[kTaps];  // a row by the rest of its number
  uint32_t next_ = 0;                 // row to come
  uint32_t done_ = 0;                 // rows of the window
};

template <typename Value, uint32_t kTaps>
Picture Interpolate(const Picture& picture, const Target& target, Interpolation interpolation) {
  Picture resized =
      MakeUnclearedPicture(target.width, target.height, picture.channels, picture.type);
  InterpolatedRows<Value, kTaps> rows(Steps{picture.width,
                                            picture.height,
                                            picture.channels,
                                            target.width,
                                            target.height,
                                            {0, 0, target.width, target.height},
                                            interpolation,
                                            target.instructions});
  rows.Add(picture.Row<Value>(0), picture.height, [&](uint32_t y, const Value* row) {
    std::copy_n(row, resized.RowValues(), resized.Row<Value>(y));
  });
  return resized;
}

class LinearRows final : public RowResizer {
 public:
  LinearRows(const Steps& steps, TakeRow take) : rows_(steps), take_(std::move(take)) {}

  void Add(const uint8_t* rows, uint32_t count) override { rows_.Add(rows, count, take_); }

 private:
  InterpolatedRows<uint8_t, 2> rows_;
  TakeRow take_;
};

// ---- area

struct Part {
  uint32_t out;
  uint32_t in;
  float weight;
};

// What outputs cover, in order; parts of less than a thousandth of a pixel do not count.
std::vector<Part> PartsOf(uint32_t inSize, uint32_t outSize) {
  constexpr double kLeast = 1e-3;
  const double scale = ScaleOf(inSize, outSize);
  std::vector<Part> parts;
  for (uint32_t out = 0; out < outSize; ++out) {
    const double from = out * scale;
    const double to = from + scale;
    const double covered = std::min(scale, inSize - from);
    const int64_t end = std::min(FloorOf(to), int64_t{inSize} - 1);
    const int64_t first = std::min(static_cast<int64_t>(std::ceil(from)), end);
    if (static_cast<double>(first) - from > kLeast) {
      parts.push_back({out, static_cast<uint32_t>(first - 1),
                       static_cast<float>((static_cast<double>(first) - from) / covered)});
    }
    for (int64_t in = first; in < end; ++in) {
      parts.push_back({out, static_cast<uint32_t>(in), static_cast<float>(1.0 / covered)});
    }
    if (to - static_cast<double>(end) > kLeast) {
      const double part = std::min(std::min(to - static_cast<double>(end), 1.0), covered);
      parts.push_back({out, static_cast<uint32_t>(end), static_cast<float>(part / covered)});
    }
  }
  return parts;
}

// One row of sums. The parts of an output follow each other, so that its sums stay at hand.
template <typename Value, uint32_t kChannels>
void AddParts(const Value* from, const std::vector<Part>& parts, float* to) {
  float sums[kChannels] = {};
  uint32_t out = 0;
  for (const Part& part : parts) {
    if (part.out != out) {
      to = std::copy_n(sums, kChannels, to);
      std::fill_n(sums, kChannels, 0.F);
      out = part.out;
    }
    const Value* pixel = from + size_t{part.in} * kChannels;
    for (uint32_t c = 0; c < kChannels; ++c) sums[c] += static_cast<float>(pixel[c]) * part.weight;
  }
  std::copy_n(sums, kChannels, to);
}

template <typename Value>
auto AddPartsOf(uint32_t channels) {
  switch (channels) {
    case 1:
      return AddParts<Value, 1>;
    case 2:
      return AddParts<Value, 2>;
    case 3:
      return AddParts<Value, 3>;
    default:
      return AddParts<Value, 4>;
  }
}

template <typename Value>
Picture MeanOfParts(const Picture& picture, uint32_t width, uint32_t height) {
  const std::vector<Part> columns = PartsOf(picture.width, width);
  const std::vector<Part> rows = PartsOf(picture.height, height);
  Picture resized = MakeUnclearedPicture(width, height, picture.channels, picture.type);
  std::vector<float> sums(resized.RowValues());
  std::vector<float> row(resized.RowValues());
  const auto addParts = AddPartsOf<Value>(picture.channels);
  const auto finish = [&](uint32_t y) {
    std::transform(sums.begin(), sums.end(), resized.Row<Value>(y), Saturated<Value>);
  };
  uint32_t y = 0;
  bool isFirst = true;
  for (const Part& part : rows) {
    addParts(picture.Row<Value>(part.in), columns, row.data());
    if (part.out != y) {
      finish(y);
      y = part.out;
      isFirst = true;
    }
    for (size_t i = 0; i < sums.size(); ++i) {
      sums[i] = isFirst ? part.weight * row[i] : sums[i] + part.weight * row[i];
    }
    isFirst = false;
  }
  finish(y);
  return resized;
}

// Four pixels to one. Whole numbers are rounded with the half up, but of two channels, which there
// is no faster way for, with the half to even. Floats are added in pairs where they are vectors
// there.
template <typename Value, uint32_t kChannels>
void MixFours(const Value* above, const Value* below, uint32_t width, Value* to) {
  const uint32_t paired = kChannels == 4 ? width : kChannels == 1 ? width / 4 * 4 : 0;
  for (uint32_t x = 0; x < width; ++x) {
    for (uint32_t c = 0; c < kChannels; ++c) {
      const size_t left = size_t{x} * 2 * kChannels + c;
      const size_t right = left + kChannels;
      Value& mean = to[size_t{x} * kChannels + c];
      if constexpr (std::is_same_v<Value, float>) {
        const float sum = x < paired ? (above[left] + above[right]) + (below[left] + below[right])
                                     : above[left] + above[right] + below[left] + below[right];
        mean = sum * 0.25F;
      } else {
        const unsigned sum = unsigned{above[left]} + above[right] + below[left] + below[right];
        const unsigned half = kChannels == 2 ? 1 + (sum >> 2 & 1) : 2;
        mean = static_cast<Value>((sum + half) >> 2);
      }
    }
  }
}

template <typename Value>
auto MixFoursOf(uint32_t channels) {
  switch (channels) {
    case 1:
      return MixFours<Value, 1>;
    case 2:
      return MixFours<Value, 2>;
    case 3:
      return MixFours<Value, 3>;
    default:
      return MixFours<Value, 4>;
  }
}

template <typename Value>
Picture MeanOfFours(const Picture& picture) {
  Picture resized =
      MakeUnclearedPicture(picture.width / 2, picture.height / 2, picture.channels, picture.type);
  const auto mix = MixFoursOf<Value>(picture.channels);
  for (uint32_t y = 0; y < resized.height; ++y) {
    mix(picture.Row<Value>(y * 2), picture.Row<Value>(y * 2 + 1), resized.width,
        resized.Row<Value>(y));
  }
  return resized;
}

// The mean of whole pixels, `columns` times `rows` of them an output, added four at a time.
template <typename Value>
Picture MeanOfBlocks(const Picture& picture, uint32_t columns, uint32_t rows) {
  using Sum = std::conditional_t<std::is_same_v<Value, uint8_t>, int32_t, float>;
  if (columns == 2 && rows == 2) return MeanOfFours<Value>(picture);
  const uint32_t channels = picture.channels;
  Picture resized =
      MakeUnclearedPicture(picture.width / columns, picture.height / rows, channels, picture.type);
  const float scale = 1.F / static_cast<float>(columns * rows);
  const size_t area = size_t{columns} * rows;
  std::vector<size_t> places(area);
  for (size_t i = 0; i < area; ++i) {
    places[i] = i / columns * picture.RowValues() + i % columns * channels;
  }
  for (uint32_t y = 0; y < resized.height; ++y) {
    const Value* from = picture.Row<Value>(y * rows);
    Value* to = resized.Row<Value>(y);
    for (uint32_t x = 0; x < resized.width; ++x) {
      for (uint32_t c = 0; c < channels; ++c) {
        const Value* block = from + size_t{x} * columns * channels + c;
        Sum sum = 0;
        size_t i = 0;
        for (; i + 4 <= area; i += 4) {
          sum += static_cast<Sum>(block[places[i]]) + static_cast<Sum>(block[places[i + 1]]) +
                 static_cast<Sum>(block[places[i + 2]]) + static_cast<Sum>(block[places[i + 3]]);
        }
        for (; i < area; ++i) sum += static_cast<Sum>(block[places[i]]);
        *to++ = Saturated<Value>(static_cast<float>(sum) * scale);
      }
    }
  }
  return resized;
}

// Whether an output takes whole pixels, by the scale: 49 to 1, of which the double is a little
// less, is no such scale.
bool IsWhole(uint32_t inSize, uint32_t outSize) {
  return inSize % outSize == 0 && ScaleOf(inSize, outSize) == inSize / outSize;
}

template <typename Value>
Picture ResizeArea(const Picture& picture, const Target& target) {
  const uint32_t width = target.width;
  const uint32_t height = target.height;
  if (width > picture.width || height > picture.height) {
    return Interpolate<Value, 2>(picture, target, Interpolation::kAreaGrowing);
  }
  if (IsWhole(picture.width, width) && IsWhole(picture.height, height)) {
    return MeanOfBlocks<Value>(picture, picture.width / width, picture.height / height);
  }
  return MeanOfParts<Value>(picture, width, height);
}

template <typename Value>
Picture ResizeValues(const Picture& picture, const Target& target, ResizeRule rule) {
  if (rule == ResizeRule::kOpencvArea) return ResizeArea<Value>(picture, target);
  if (rule == ResizeRule::kOpencvCubic) {
    return Interpolate<Value, 4>(picture, target, Interpolation::kCubic);
  }
  if (picture.width == uint64_t{target.width} * 2 &&
      picture.height == uint64_t{target.height} * 2) {
    return ResizeArea<Value>(picture, target);
  }
  return Interpolate<Value, 2>(picture, target, Interpolation::kLinear);
}

}  // namespace

std::unique_ptr<RowResizer> MakeOpencvRows(const RowResize& resize, TakeRow take,
                                           Instructions instructions) {
  const bool isHalf = resize.width == uint64_t{resize.newWidth} * 2 &&
                      resize.height == uint64_t{resize.newHeight} * 2;
  if (resize.rule != ResizeRule::kOpencvLinear || isHalf) return nullptr;
  return std::make_unique<LinearRows>(
      Steps{resize.width, resize.height, resize.channels, resize.newWidth, resize.newHeight,
            resize.window, Interpolation::kLinear, instructions},
      std::move(take));
}

Picture ResizeAsOpencv(const Picture& picture, uint32_t width, uint32_t height, ResizeRule rule,
                       Instructions instructions) {
  if (picture.width == width && picture.height == height) return picture;
  if (rule == ResizeRule::kOpencvNearest) return TakeNearest(picture, width, height);
  const Target target{width, height, instructions};
  switch (picture.type) {
    case PixelType::kUint8:
      return ResizeValues<uint8_t>(picture, target, rule);
    case PixelType::kUint16:
      return ResizeValues<uint16_t>(picture, target, rule);
    case PixelType::kFloat32:
      return ResizeValues<float>(picture, target, rule);
  }
  return picture;
}

}  // namespace vorn::kit
