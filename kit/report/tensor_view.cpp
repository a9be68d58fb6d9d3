#include "kit/report/tensor_view.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <string>
#include <utility>

#include "kit/tensor/stored_tensor.h"

namespace vorn::kit {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

// Not both are numbers, or infinities of one sign, and they are not both NaN.
bool IsOddPair(float actual, float expected) {
  if (std::isfinite(actual) && std::isfinite(expected)) return false;
  if (std::isnan(actual) && std::isnan(expected)) return false;
  return actual != expected;
}

// How far apart two values are; infinite of an odd pair.
double Distance(float actual, float expected) {
  if (std::isfinite(actual) && std::isfinite(expected)) {
    return std::abs(static_cast<double>(actual) - static_cast<double>(expected));
  }
  return IsOddPair(actual, expected) ? kInfinity : 0;
}

struct Range {
  double low = kInfinity;
  double high = -kInfinity;

  void Take(float value) {
    if (!std::isfinite(value)) return;
    low = std::min(low, static_cast<double>(value));
    high = std::max(high, static_cast<double>(value));
  }
  [[nodiscard]] bool IsEmpty() const { return low > high; }
};

size_t BinOf(double value, const Range& range, size_t bins) {
  const double share = (value - range.low) / (range.high - range.low);
  return std::min(static_cast<size_t>(share * static_cast<double>(bins)), bins - 1);
}

void Count(std::span<const float> values, const Range& range, std::vector<uint64_t>& counts,
           uint64_t& notFinite) {
  for (const float value : values) {
    if (!std::isfinite(value)) {
      ++notFinite;
    } else {
      ++counts[counts.size() == 1 ? 0 : BinOf(static_cast<double>(value), range, counts.size())];
    }
  }
}

// The first element of bin `bin`.
uint64_t BinStart(uint64_t bin, uint64_t elements, uint64_t bins) {
  // Both are small enough that their product is.
  return bin * elements / bins;
}

// ---- Channels -----------------------------------------------------------------------------------

// The part of a channel that one place of a heatmap stands for.
struct Patch {
  uint64_t row = 0;
  uint64_t rowEnd = 0;
  uint64_t column = 0;
  uint64_t columnEnd = 0;
};

class Mean {
 public:
  void Take(float value) {
    if (!std::isfinite(value)) {
      odd_ = value;
      return;
    }
    sum_ += static_cast<double>(value);
    ++count_;
  }
  // Where nothing is finite, what is there instead.
  [[nodiscard]] double Value() const {
    return count_ > 0 ? sum_ / static_cast<double>(count_) : static_cast<double>(odd_);
  }

 private:
  double sum_ = 0;
  uint64_t count_ = 0;
  float odd_ = std::numeric_limits<float>::quiet_NaN();
};

class Channel {
 public:
  Channel(const TensorPair& pair, const ChannelLayout& layout, uint64_t channel)
      : pair_(pair), layout_(layout), channel_(channel), start_(layout.ChannelStart(channel)) {}

  // The square root of the mean square of all differences; infinite where a pair is odd.
  [[nodiscard]] double Badness() const {
    double squares = 0;
    ForEach({0, layout_.rows, 0, layout_.columns}, [&](float actual, float expected) {
      const double distance = Distance(actual, expected);
      squares += distance * distance;
    });
    return std::sqrt(squares / static_cast<double>(layout_.rows * layout_.columns));
  }

  [[nodiscard]] ReportHeatmap Draw(uint32_t mostSize) const {
    ReportHeatmap map;
    map.channel = channel_;
    map.place = Place();
    map.sourceRows = layout_.rows;
    map.sourceColumns = layout_.columns;
    map.rows = static_cast<uint32_t>(std::min<uint64_t>(layout_.rows, mostSize));
    map.columns = static_cast<uint32_t>(std::min<uint64_t>(layout_.columns, mostSize));
    Range range;
    for (uint64_t row = 0; row < map.rows; ++row) {
      for (uint64_t column = 0; column < map.columns; ++column) {
        DrawPatch({BinStart(row, layout_.rows, map.rows), BinStart(row + 1, layout_.rows, map.rows),
                   BinStart(column, layout_.columns, map.columns),
                   BinStart(column + 1, layout_.columns, map.columns)},
                  range, map);
      }
    }
    if (!range.IsEmpty()) {
      map.least = range.low;
      map.most = range.high;
    }
    TakeMeasures(map);
    return map;
  }

 private:
  template <typename Take>
  void ForEach(const Patch& patch, Take take) const {
    for (uint64_t row = patch.row; row < patch.rowEnd; ++row) {
      for (uint64_t column = patch.column; column < patch.columnEnd; ++column) {
        const uint64_t at = start_ + row * layout_.rowStride + column * layout_.columnStride;
        take(pair_.actual[at], pair_.expected[at]);
      }
    }
  }

  void DrawPatch(const Patch& patch, Range& range, ReportHeatmap& map) const {
    Mean actualMean;
    Mean expectedMean;
    double difference = 0;
    ForEach(patch, [&](float actual, float expected) {
      actualMean.Take(actual);
      expectedMean.Take(expected);
      const double here = static_cast<double>(actual) - static_cast<double>(expected);
      const double shown = IsOddPair(actual, expected) ? kNan : std::isfinite(here) ? here : 0;
      const bool isWorse = std::isnan(shown) || std::abs(shown) > std::abs(difference);
      if (!std::isnan(difference) && isWorse) difference = shown;
    });
    map.actual.push_back(actualMean.Value());
    map.expected.push_back(expectedMean.Value());
    map.difference.push_back(difference);
    range.Take(static_cast<float>(actualMean.Value()));
    range.Take(static_cast<float>(expectedMean.Value()));
  }

  void TakeMeasures(ReportHeatmap& map) const {
    double squares = 0;
    uint64_t finite = 0;
    ForEach({0, layout_.rows, 0, layout_.columns}, [&](float actual, float expected) {
      if (!std::isfinite(actual) || !std::isfinite(expected)) return;
      const double distance = Distance(actual, expected);
      map.mostDifference = std::max(map.mostDifference, distance);
      squares += distance * distance;
      ++finite;
    });
    map.rmse = finite == 0 ? kNan : std::sqrt(squares / static_cast<double>(finite));
  }

  // "[0, 3, :, :]", as numpy has it.
  [[nodiscard]] std::string Place() const {
    std::vector<uint64_t> indices(layout_.outer.size());
    uint64_t rest = channel_;
    for (size_t axis = layout_.outer.size(); axis-- > 0;) {
      indices[axis] = rest % layout_.outer[axis];
      rest /= layout_.outer[axis];
    }
    std::string text = "[";
    for (size_t axis = 0; axis < indices.size(); ++axis) {
      const bool isLast = axis + 1 == indices.size();
      if (isLast && layout_.areChannelsLast) text += ":, :, ";
      text += std::to_string(indices[axis]) + (isLast ? "" : ", ");
    }
    if (!layout_.areChannelsLast) text += indices.empty() ? ":, :" : ", :, :";
    return text + "]";
  }

  const TensorPair& pair_;
  const ChannelLayout& layout_;
  uint64_t channel_;
  uint64_t start_;
};

}  // namespace

PairMeasures MeasurePair(const TensorPair& pair, double atol, double rtol) {
  PairMeasures measures;
  double squares = 0;
  double actualSquares = 0;
  double expectedSquares = 0;
  double products = 0;
  uint64_t finite = 0;
  for (size_t i = 0; i < pair.actual.size(); ++i) {
    const auto a = static_cast<double>(pair.actual[i]);
    const auto r = static_cast<double>(pair.expected[i]);
    if (!std::isfinite(a) || !std::isfinite(r)) {
      measures.outside += IsOddPair(pair.actual[i], pair.expected[i]) ? 1 : 0;
      continue;
    }
    ++finite;
    const double distance = std::abs(a - r);
    measures.outside += distance > atol + rtol * std::abs(r) ? 1 : 0;
    measures.maxAbs = std::max(measures.maxAbs, distance);
    squares += distance * distance;
    actualSquares += a * a;
    expectedSquares += r * r;
    products += a * r;
  }
  const double norm = std::sqrt(actualSquares) * std::sqrt(expectedSquares);
  measures.rmse = finite == 0 ? kNan : std::sqrt(squares / static_cast<double>(finite));
  measures.cosine = finite == 0 ? kNan : norm > 0 ? products / norm : 0;
  if (finite > 0 && actualSquares == 0 && expectedSquares == 0) measures.cosine = 1;
  return measures;
}

ReportHistogram HistogramOf(const TensorPair& pair, size_t bins) {
  Range range;
  for (const auto side : {pair.actual, pair.expected}) {
    for (const float value : side) range.Take(value);
  }
  ReportHistogram histogram;
  if (!range.IsEmpty()) {
    histogram.low = range.low;
    histogram.high = range.high;
  }
  const size_t used = range.low < range.high ? bins : 1;
  histogram.actual.assign(used, 0);
  histogram.expected.assign(used, 0);
  Count(pair.actual, range, histogram.actual, histogram.actualNotFinite);
  Count(pair.expected, range, histogram.expected, histogram.expectedNotFinite);
  return histogram;
}

ReportEnvelope EnvelopeOf(const TensorPair& pair, size_t bins) {
  ReportEnvelope envelope;
  envelope.elements = pair.actual.size();
  const uint64_t used = std::min<uint64_t>(bins, envelope.elements);
  for (uint64_t bin = 0; bin < used; ++bin) {
    const uint64_t end = BinStart(bin + 1, envelope.elements, used);
    double least = kNan;
    double most = kNan;
    bool isOdd = false;
    for (uint64_t i = BinStart(bin, envelope.elements, used); i < end; ++i) {
      isOdd = isOdd || IsOddPair(pair.actual[i], pair.expected[i]);
      const double difference =
          static_cast<double>(pair.actual[i]) - static_cast<double>(pair.expected[i]);
      if (!std::isfinite(difference)) continue;
      // Of a number that is none the other one is taken.
      least = std::fmin(least, difference);
      most = std::fmax(most, difference);
    }
    envelope.least.push_back(least);
    envelope.most.push_back(most);
    envelope.hasNotFinite.push_back(isOdd ? 1 : 0);
  }
  return envelope;
}

std::vector<ReportElement> WorstElements(const TensorPair& pair, const std::vector<uint64_t>& shape,
                                         uint64_t sample, size_t most) {
  std::vector<std::pair<double, uint64_t>> worst;  // the farthest first
  for (uint64_t i = 0; i < pair.actual.size(); ++i) {
    const double distance = Distance(pair.actual[i], pair.expected[i]);
    if (distance == 0 || most == 0) continue;
    if (worst.size() == most && distance <= worst.back().first) continue;
    if (worst.size() == most) worst.pop_back();
    const auto at = std::find_if(worst.begin(), worst.end(),
                                 [&](const auto& other) { return other.first < distance; });
    worst.insert(at, {distance, i});
  }
  std::vector<ReportElement> elements;
  for (const auto& [distance, i] : worst) {
    elements.push_back({sample, i, PlaceText(i, shape), static_cast<double>(pair.actual[i]),
                        static_cast<double>(pair.expected[i])});
  }
  return elements;
}

uint64_t ChannelLayout::ChannelStart(uint64_t channel) const {
  if (!areChannelsLast) return channel * rows * columns;
  const uint64_t last = outer.back();
  return channel / last * rows * columns * last + channel % last;
}

ChannelLayout LayoutOf(const std::vector<uint64_t>& shape, bool areChannelsLast) {
  ChannelLayout layout;
  const size_t behind = areChannelsLast && shape.size() > 2 ? 1 : 0;
  if (shape.size() < 2 || !CountElements(shape)) return layout;
  const size_t at = shape.size() - 2 - behind;
  if (shape[at] < 2 || shape[at + 1] < 2) return layout;
  for (size_t axis = 0; axis < shape.size(); ++axis) {
    if (axis != at && axis != at + 1) layout.outer.push_back(shape[axis]);
  }
  layout.channels = 1;
  for (const uint64_t size : layout.outer) layout.channels *= size;
  if (layout.channels == 0) return {};
  layout.rows = shape[at];
  layout.columns = shape[at + 1];
  layout.areChannelsLast = behind == 1;
  layout.columnStride = behind == 1 ? shape.back() : 1;
  layout.rowStride = layout.columns * layout.columnStride;
  return layout;
}

std::vector<ReportHeatmap> HeatmapsOf(const TensorPair& pair, const ChannelLayout& layout,
                                      size_t most, uint32_t mostSize) {
  std::vector<ReportHeatmap> maps;
  if (layout.rows == 0 || layout.channels * layout.rows * layout.columns != pair.actual.size()) {
    return maps;
  }
  std::vector<std::pair<double, uint64_t>> channels;
  for (uint64_t channel = 0; channel < layout.channels; ++channel) {
    channels.emplace_back(Channel(pair, layout, channel).Badness(), channel);
  }
  std::stable_sort(channels.begin(), channels.end(),
                   [](const auto& one, const auto& other) { return one.first > other.first; });
  for (const auto& [badness, channel] :
       std::span(channels).first(std::min(most, channels.size()))) {
    maps.push_back(Channel(pair, layout, channel).Draw(mostSize));
  }
  return maps;
}

}  // namespace vorn::kit
