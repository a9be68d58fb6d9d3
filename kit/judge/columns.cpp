#include "kit/judge/columns.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <utility>

namespace vorn::kit {
namespace {

constexpr size_t kLeastRows = 100;

// Six digits tell one sample from another, and take a third of the room of all.
double Shortened(double value) {
  if (!std::isfinite(value)) return value;
  char text[32];
  std::snprintf(text, sizeof text, "%.6g", value);
  return std::strtod(text, nullptr);
}

// Of a sample that could not be measured nothing is known, which is worse than any difference.
bool IsWorse(const SampleSketch& one, const SampleSketch& other) {
  if (one.isRight != other.isRight) return !one.isRight;
  // The measures leave out what is no number, and so would tell little of it.
  if (one.notFinite != other.notFinite) return one.notFinite > other.notFinite;
  if (std::isnan(one.rmse) || std::isnan(other.rmse)) {
    return std::isnan(one.rmse) && !std::isnan(other.rmse);
  }
  return one.rmse > other.rmse;
}

template <typename Figure>
Json Column(const std::vector<const SampleSketch*>& rows, Figure figure) {
  Json column = Json::Array();
  for (const SampleSketch* row : rows) column.Append(figure(*row));
  return column;
}

}  // namespace

size_t RowsAnOutput(size_t outputs) {
  return std::clamp(kMostRowsOfAll / std::max<size_t>(outputs, 1), kLeastRows, kMostRows);
}

Json ColumnsJson(const std::vector<SampleSketch>& samples, size_t mostRows) {
  const size_t samplesPerRow = (samples.size() + mostRows - 1) / mostRows;
  std::vector<const SampleSketch*> rows;
  for (size_t first = 0; first < samples.size(); first += samplesPerRow) {
    const auto stretch =
        std::span(samples).subspan(first, std::min(samplesPerRow, samples.size() - first));
    // IsWorse comes first: of equal ones the first sample stands for all.
    rows.push_back(&*std::min_element(stretch.begin(), stretch.end(), IsWorse));
  }
  Json columns = Json::Object({{"samplesPerRow", std::max<size_t>(samplesPerRow, 1)}});
  const auto set = [&](const char* name, auto figure) { columns.Set(name, Column(rows, figure)); };
  set("sample", [](const SampleSketch& row) { return Json(row.sample); });
  const bool areMoved = std::any_of(rows.begin(), rows.end(), [](const SampleSketch* row) {
    return row->expectedSample != row->sample;
  });
  if (areMoved) {
    set("expectedSample", [](const SampleSketch& row) { return Json(row.expectedSample); });
  }
  set("isRight", [](const SampleSketch& row) { return Json(row.isRight ? 1 : 0); });
  set("outside", [](const SampleSketch& row) { return Json(row.outside); });
  const bool isAnyNotFinite = std::any_of(
      rows.begin(), rows.end(), [](const SampleSketch* row) { return row->notFinite > 0; });
  if (isAnyNotFinite) {
    set("notFinite", [](const SampleSketch& row) { return Json(row.notFinite); });
  }
  set("maxAbs", [](const SampleSketch& row) { return Json(Shortened(row.maxAbs)); });
  set("rmse", [](const SampleSketch& row) { return Json(Shortened(row.rmse)); });
  set("cosine", [](const SampleSketch& row) { return Json(Shortened(row.cosine)); });
  return columns;
}

Json PairsJson(const TopAgreement& agreement, uint64_t& leftOut) {
  using Pair = std::pair<std::pair<uint64_t, uint64_t>, uint64_t>;
  std::vector<Pair> pairs(agreement.pairs.begin(), agreement.pairs.end());
  std::stable_sort(pairs.begin(), pairs.end(),
                   [](const Pair& one, const Pair& other) { return one.second > other.second; });
  leftOut = agreement.pairsLeftOut;
  Json json = Json::Array();
  for (size_t i = 0; i < pairs.size(); ++i) {
    const auto& [classes, count] = pairs[i];
    if (i < kMostPairsTold) {
      json.Append(Json::Array({classes.first, classes.second, count}));
    } else {
      leftOut += count;
    }
  }
  return json;
}

}  // namespace vorn::kit
