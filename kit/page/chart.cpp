#include "kit/page/chart.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <string_view>
#include <utility>

#include "kit/page/table.h"

namespace vorn::kit {
namespace {

constexpr double kInner = 1000;  // width and height of the inner drawing
constexpr size_t kStretchesDrawn = 400;
constexpr size_t kStretchesTold = 60;

const char* ClassOf(Ink ink) {
  switch (ink) {
    case Ink::kFirst:
      return "i1";
    case Ink::kSecond:
      return "i2";
    case Ink::kThird:
      return "i3";
    case Ink::kFourth:
      return "i4";
    case Ink::kQuiet:
      return "iq";
    case Ink::kGood:
      return "ig";
    case Ink::kBad:
      return "ib";
  }
  return "iq";
}

// ---- Scales -------------------------------------------------------------------------------------

// Where values of an axis lie: 0 at its beginning, 1 at its end.
class Scale {
 public:
  Scale(double from, double to, bool isLogarithmic)
      : from_(from), to_(to), isLogarithmic_(isLogarithmic) {}

  [[nodiscard]] double From() const { return from_; }
  [[nodiscard]] double To() const { return to_; }
  [[nodiscard]] bool IsLogarithmic() const { return isLogarithmic_; }

  [[nodiscard]] bool Holds(double value) const {
    return std::isfinite(value) && (!isLogarithmic_ || value > 0);
  }

  // A little beyond either end at most: what lies farther away is cut off anyway.
  [[nodiscard]] double At(double value) const {
    const double place =
        isLogarithmic_ ? (std::log(value) - std::log(from_)) / (std::log(to_) - std::log(from_))
                       : (value - from_) / (to_ - from_);
    return std::clamp(place, -0.1, 1.1);
  }

 private:
  double from_;
  double to_;
  bool isLogarithmic_;
};

struct Range {
  double low = std::numeric_limits<double>::infinity();
  double high = -std::numeric_limits<double>::infinity();

  void Take(double value, bool isLogarithmic) {
    if (!std::isfinite(value) || (isLogarithmic && value <= 0)) return;
    low = std::min(low, value);
    high = std::max(high, value);
  }
  [[nodiscard]] bool IsEmpty() const { return low > high; }
};

// The data's range with a little room, and with zero where that is near.
Scale ScaleFor(const ChartAxis& axis, Range range, bool wantsRoom) {
  if (axis.from) range = {*axis.from, std::max(range.high, *axis.from)};
  if (axis.to) range = {std::min(range.low, *axis.to), *axis.to};
  if (range.IsEmpty()) range = {axis.isLogarithmic ? 1.0 : 0.0, axis.isLogarithmic ? 10.0 : 1.0};
  if (axis.isLogarithmic) {
    if (range.high / range.low < 1.001) range = {range.low / 2, range.high * 2};
    const double room = wantsRoom ? std::pow(range.high / range.low, 0.04) : 1;
    return {axis.from.value_or(range.low / room), axis.to.value_or(range.high * room), true};
  }
  // Half of each, since the whole may be more than a double holds.
  if (range.high / 2 - range.low / 2 > std::numeric_limits<double>::max() / 4) {
    range = {range.low / 4, range.high / 4};
  }
  const double width = range.high - range.low;
  if (width <= std::abs(range.high) * 1e-12) {
    const double half = range.high == 0 ? 1 : std::abs(range.high) * 0.1;
    range = {range.low - half, range.high + half};
  } else if (wantsRoom) {
    if (range.low > 0 && range.low < width) range.low = 0;
    if (range.high < 0 && -range.high < width) range.high = 0;
    const double room = (range.high - range.low) * 0.05;
    if (range.low != 0) range.low -= room;
    if (range.high != 0) range.high += room;
  }
  Scale scale(axis.from.value_or(range.low), axis.to.value_or(range.high), false);
  if (!(scale.From() < scale.To())) return {range.low, range.high, false};
  return scale;
}

// ---- Thinning -----------------------------------------------------------------------------------

// Neighbouring values drawn together.
struct Stretch {
  double fromX = 0;
  double toX = 0;
  double least = 0;
  double median = 0;
  double most = 0;
};

double MiddleOf(std::vector<double>& values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

std::vector<Stretch> Stretches(const std::vector<double>& x, const std::vector<double>& y,
                               size_t count) {
  std::vector<Stretch> stretches;
  const size_t all = std::min(x.size(), y.size());
  std::vector<double> finite;
  for (size_t i = 0; i < count; ++i) {
    const size_t begin = all * i / count;
    const size_t end = all * (i + 1) / count;
    finite.clear();
    for (size_t k = begin; k < end; ++k) {
      if (std::isfinite(y[k])) finite.push_back(y[k]);
    }
    if (finite.empty()) continue;
    const auto [least, most] = std::minmax_element(finite.begin(), finite.end());
    Stretch stretch{x[begin], x[end - 1], *least, 0, *most};
    stretch.median = MiddleOf(finite);
    stretches.push_back(stretch);
  }
  return stretches;
}

// ---- Marks in the inner drawing -----------------------------------------------------------------

class Pen {
 public:
  Pen(const Scale& x, const Scale& y) : x_(x), y_(y) {}

  [[nodiscard]] bool Holds(double x, double y) const { return x_.Holds(x) && y_.Holds(y); }
  void Move(double x, double y) { path_ += "M" + Place(x, y); }
  void Line(double x, double y) { path_ += "L" + Place(x, y); }
  void Dot(double x, double y) { path_ += "M" + Place(x, y) + "h0"; }
  void LineToBottom(double x) { path_ += "L" + PlaceText(x_.At(x) * kInner) + " 1000"; }
  void MoveToBottom(double x) { path_ += "M" + PlaceText(x_.At(x) * kInner) + " 1000"; }
  void Close() { path_ += "Z"; }
  [[nodiscard]] const std::string& Path() const { return path_; }

 private:
  [[nodiscard]] std::string Place(double x, double y) const {
    // A tenth of a thousandth is finer than any screen.
    return Short(x_.At(x)) + " " + Short(1 - y_.At(y));
  }
  static std::string Short(double share) { return PlaceText(std::round(share * kInner * 10) / 10); }

  const Scale& x_;
  const Scale& y_;
  std::string path_;
};

Html PathOf(const Pen& pen, const std::string& classes) {
  if (pen.Path().empty()) return {};
  return Element("path", {{"class", classes}, {"d", pen.Path()}});
}

Html DrawStretches(const ChartSeries& series, const Scale& x, const Scale& y) {
  Pen range(x, y);
  Pen middle(x, y);
  for (const Stretch& stretch : Stretches(series.x, series.y, kStretchesDrawn)) {
    const double at = (stretch.fromX + stretch.toX) / 2;
    if (!range.Holds(at, stretch.least)) continue;
    range.Move(at, stretch.least);
    range.Line(at, stretch.most);
    middle.Dot(at, std::min(stretch.median, y.To()));
  }
  const std::string ink = ClassOf(series.ink);
  return PathOf(range, "range " + ink) + PathOf(middle, "dots " + ink);
}

Html DrawLine(const ChartSeries& series, const Scale& x, const Scale& y, bool isStepped) {
  Pen pen(x, y);
  bool isDown = false;
  double last = 0;
  for (size_t i = 0; i < std::min(series.x.size(), series.y.size()); ++i) {
    if (!pen.Holds(series.x[i], series.y[i])) {
      isDown = false;
      continue;
    }
    if (isDown && isStepped) pen.Line(series.x[i], last);
    if (isDown) {
      pen.Line(series.x[i], series.y[i]);
    } else {
      pen.Dot(series.x[i], series.y[i]);  // a lone value shows too
    }
    isDown = true;
    last = series.y[i];
  }
  return PathOf(pen, std::string("line ") + ClassOf(series.ink));
}

Html DrawDots(const ChartSeries& series, const Scale& x, const Scale& y) {
  Pen pen(x, y);
  for (size_t i = 0; i < std::min(series.x.size(), series.y.size()); ++i) {
    if (pen.Holds(series.x[i], series.y[i])) {
      pen.Dot(series.x[i], std::min(series.y[i], y.To()));
    }
  }
  return PathOf(pen, std::string("dots ") + ClassOf(series.ink));
}

Html DrawBars(const ChartSeries& series, const Scale& x, const Scale& y) {
  Pen pen(x, y);
  for (size_t i = 0; i + 1 < series.x.size() && i < series.y.size(); ++i) {
    if (!pen.Holds(series.x[i], series.y[i]) || series.y[i] == 0) continue;
    pen.MoveToBottom(series.x[i]);
    pen.Line(series.x[i], series.y[i]);
    pen.Line(series.x[i + 1], series.y[i]);
    pen.LineToBottom(series.x[i + 1]);
    pen.Close();
  }
  return PathOf(pen, std::string("bars ") + ClassOf(series.ink));
}

Html DrawBand(const ChartSeries& series, const Scale& x, const Scale& y) {
  Pen pen(x, y);
  const size_t count = std::min({series.x.size(), series.y.size(), series.top.size()});
  const auto holds = [&](size_t i) {
    return pen.Holds(series.x[i], series.y[i]) && y.Holds(series.top[i]);
  };
  for (size_t begin = 0; begin < count;) {
    if (!holds(begin)) {
      ++begin;
      continue;
    }
    size_t end = begin;
    while (end < count && holds(end)) ++end;
    pen.Move(series.x[begin], series.top[begin]);
    for (size_t i = begin + 1; i < end; ++i) pen.Line(series.x[i], series.top[i]);
    for (size_t i = end; i > begin; --i) pen.Line(series.x[i - 1], series.y[i - 1]);
    pen.Close();
    begin = end;
  }
  return PathOf(pen, std::string("band ") + ClassOf(series.ink));
}

Html DrawSeries(const ChartSeries& series, const Scale& x, const Scale& y) {
  using Style = ChartSeries::Style;
  const bool isMuch = series.y.size() > kMostDrawn;
  switch (series.style) {
    case Style::kDots:
      return isMuch ? DrawStretches(series, x, y) : DrawDots(series, x, y);
    case Style::kLine:
      return isMuch ? DrawStretches(series, x, y) : DrawLine(series, x, y, false);
    case Style::kSteps:
      return DrawLine(series, x, y, true);
    case Style::kBars:
      return DrawBars(series, x, y);
    case Style::kBand:
      return DrawBand(series, x, y);
  }
  return {};
}

// ---- What stands around it ----------------------------------------------------------------------

std::string Percent(double share) { return PlaceText(share * 100) + "%"; }

double LargestOf(const Scale& scale) {
  return std::max(std::abs(scale.From()), std::abs(scale.To()));
}

// Of a logarithmic axis, whose values may differ by powers of ten, each tick has a unit of its own.
std::string TickText(double value, const ChartAxis& axis, const Unit& unit) {
  if (axis.isLogarithmic && axis.quantity != Quantity::kNumber) {
    return QuantityText(value, axis.quantity);
  }
  const double shown = value * unit.factor;
  if (axis.quantity == Quantity::kCount && shown >= 0) return QuantityText(shown, axis.quantity);
  return NumberText(shown);
}

std::string AxisLabel(const ChartAxis& axis, const Unit& unit) {
  if (unit.name.empty() || axis.isLogarithmic) return axis.label;
  return axis.label + " (" + unit.name + ")";
}

// At numbers that are round in the unit that is shown.
std::vector<double> TicksOf(const Scale& scale, const ChartAxis& axis, const Unit& unit,
                            size_t wanted) {
  const double factor = scale.IsLogarithmic() ? 1 : unit.factor;
  std::vector<double> ticks =
      RoundTicks(scale.From() * factor, scale.To() * factor, wanted, scale.IsLogarithmic());
  for (double& tick : ticks) tick /= factor;
  // Between two of what is counted there is nothing.
  if (axis.quantity == Quantity::kCount) {
    std::erase_if(ticks, [](double tick) { return std::abs(tick - std::round(tick)) > 1e-6; });
  }
  return ticks;
}

Html YTicks(const Scale& scale, const ChartAxis& axis, const Unit& unit, unsigned height) {
  Html html;
  for (const double tick : TicksOf(scale, axis, unit, height / 40)) {
    const std::string at = Percent(1 - scale.At(tick));
    html += Element("line", {{"class", "grid"}, {"x2", "100%"}, {"y1", at}, {"y2", at}});
    html += Element(
        "text",
        {{"class", "tick"}, {"x", "-6"}, {"y", at}, {"dy", ".32em"}, {"text-anchor", "end"}},
        Text(TickText(tick, axis, unit)));
  }
  return html;
}

// A tick of an axis along the page, and how its text stands by it.
struct Tick {
  double share = 0;
  std::string text;
  const char* anchor = "middle";
  const char* kind = nullptr;  ///< style.css hides some where it is narrow; none: no room anywhere

  // Whether two texts have room beside each other in a drawing so wide, in pixels.
  [[nodiscard]] bool HasRoomBeside(const Tick& other, double width) const {
    constexpr double kGap = 8;
    const auto [from, to] = Reach(width);
    const auto [otherFrom, otherTo] = other.Reach(width);
    return from >= otherTo + kGap || otherFrom >= to + kGap;
  }

 private:
  [[nodiscard]] std::pair<double, double> Reach(double width) const {
    constexpr double kCharacter = 7.5;  // of 12 pixels, at most what digits take
    const auto isFirstByte = [](char byte) {
      return (static_cast<unsigned char>(byte) & 0xC0) != 0x80;
    };
    const double length =
        kCharacter * static_cast<double>(std::count_if(text.begin(), text.end(), isFirstByte));
    const std::string_view how = anchor;
    const double begin = share * width - (how == "end" ? length : how == "middle" ? length / 2 : 0);
    return {begin, begin + length};
  }
};

// From which width on a text is shown, as style.css has it.
struct TickWidth {
  double pixels;
  const char* kind;
};
using TickWidths = std::array<TickWidth, 4>;

// The same drawing stands on a desk and on a phone: what has no room on the narrow one is shown
// from that width on at which it has, beside those that are shown there already.
std::vector<Tick> XTicksOf(const Scale& scale, const ChartAxis& axis, const Unit& unit,
                           double firstEnd, double lastBegin, const TickWidths& widths) {
  std::vector<Tick> ticks;
  for (const double at : TicksOf(scale, axis, unit, 5)) {
    const double share = scale.At(at);
    // At the ends a text must not reach out of a phone's screen.
    ticks.push_back({.share = share,
                     .text = TickText(at, axis, unit),
                     .anchor = share > lastBegin  ? "end"
                               : share < firstEnd ? "start"
                                                  : "middle"});
  }
  for (const TickWidth& width : widths) {
    for (Tick& tick : ticks) {
      const bool hasRoom = std::all_of(ticks.begin(), ticks.end(), [&](const Tick& other) {
        return other.kind == nullptr || tick.HasRoomBeside(other, width.pixels);
      });
      if (tick.kind == nullptr && hasRoom) tick.kind = width.kind;
    }
  }
  return ticks;
}

Html XTicks(const Scale& scale, const ChartAxis& axis, const Unit& unit) {
  constexpr TickWidths kWidths{
      {{200, "tick"}, {270, "tick w1"}, {380, "tick w2"}, {640, "tick w3"}}};
  Html html;
  for (const Tick& tick : XTicksOf(scale, axis, unit, -1, 0.97, kWidths)) {
    const std::string at = Percent(tick.share);
    html += Element("line", {{"class", "grid"}, {"x1", at}, {"x2", at}, {"y2", "100%"}});
    if (tick.kind == nullptr) continue;
    html += Element("text",
                    {{"class", tick.kind},
                     {"x", at},
                     {"y", "100%"},
                     {"dy", "1.4em"},
                     {"text-anchor", tick.anchor}},
                    Text(tick.text));
  }
  return html;
}

Html Regions(const std::vector<ChartRegion>& regions, const Scale& x) {
  Html html;
  for (const ChartRegion& region : regions) {
    const double from = std::clamp(x.At(region.from), 0.0, 1.0);
    const double to = std::clamp(x.At(region.to), 0.0, 1.0);
    html += Element("rect", {{"class", "region"},
                             {"x", Percent(from)},
                             {"y", "0"},
                             {"width", Percent(to - from)},
                             {"height", "100%"}});
  }
  return html;
}

Html LevelOf(const ChartLevel& level, const Scale& scale) {
  const double share = level.isOnX ? scale.At(level.at) : 1 - scale.At(level.at);
  const std::string at = Percent(share);
  Html html;
  if (level.low < level.high) {
    const double low = std::clamp(scale.At(level.low), 0.0, 1.0);
    const double high = std::clamp(scale.At(level.high), 0.0, 1.0);
    html += level.isOnX ? Element("rect", {{"class", "interval"},
                                           {"x", Percent(low)},
                                           {"y", "0"},
                                           {"width", Percent(high - low)},
                                           {"height", "100%"}})
                        : Element("rect", {{"class", "interval"},
                                           {"x", "0"},
                                           {"y", Percent(1 - high)},
                                           {"width", "100%"},
                                           {"height", Percent(high - low)}});
  }
  if (level.isOnX) {
    html += Element("line", {{"class", "level"}, {"x1", at}, {"x2", at}, {"y2", "100%"}});
    const bool isRight = share > 0.6;
    return html + Element("text",
                          {{"class", "note"},
                           {"x", at},
                           {"y", "1em"},
                           {"dx", isRight ? "-5" : "5"},
                           {"text-anchor", isRight ? "end" : "start"}},
                          Text(level.text));
  }
  // Its text stands in the key, out of the way of marks.
  return html + Element("line", {{"class", "level"}, {"x2", "100%"}, {"y1", at}, {"y2", at}});
}

Html KeyEntry(const Html& sign, std::string_view text) {
  return Element(
      "li", Element("svg", {{"width", "16"}, {"height", "12"}, {"aria-hidden", "true"}}, sign) +
                Raw(" ") + Text(text));
}

Html SeriesSign(const ChartSeries& series) {
  using Style = ChartSeries::Style;
  const std::string ink = ClassOf(series.ink);
  switch (series.style) {
    case Style::kBars:
    case Style::kBand:
      return Element("rect",
                     {{"class", "area " + ink}, {"y", "2"}, {"width", "16"}, {"height", "9"}});
    case Style::kDots:
      return Element("path", {{"class", "dots " + ink}, {"d", "M8 6h0"}});
    case Style::kLine:
    case Style::kSteps:
      break;
  }
  return Element("path", {{"class", "line " + ink}, {"d", "M0 6h16"}});
}

// What the axis does not reach is drawn at its end, and said.
Html KeyOfBeyond(const Chart& chart, const Scale& y) {
  size_t count = 0;
  double most = 0;
  for (const ChartSeries& series : chart.series) {
    if (series.style != ChartSeries::Style::kDots) continue;
    for (const double value : series.y) {
      if (!std::isfinite(value) || value <= y.To()) continue;
      ++count;
      most = std::max(most, value);
    }
  }
  if (count == 0) return {};
  return KeyEntry(Element("path", {{"class", "line iq"}, {"d", "M2 10L8 2L14 10Z"}}),
                  CountText(count) + " above, up to " + QuantityText(most, chart.y.quantity) +
                      ", drawn at the edge");
}

Html Key(const Chart& chart, const Scale& y) {
  Html entries;
  for (const ChartSeries& series : chart.series) {
    if (!series.name.empty()) entries += KeyEntry(SeriesSign(series), series.name);
  }
  for (const ChartRegion& region : chart.regions) {
    if (region.text.empty()) continue;
    entries += KeyEntry(Element("rect", {{"class", "region"}, {"width", "16"}, {"height", "12"}}),
                        region.text);
  }
  for (const ChartLevel& level : chart.levels) {
    if (level.isOnX || level.text.empty()) continue;
    entries += KeyEntry(Element("path", {{"class", "level"}, {"d", "M0 6h16"}}), level.text);
  }
  entries += KeyOfBeyond(chart, y);
  return entries.IsEmpty() ? entries : Element("ul", {{"class", "key"}}, entries);
}

// ---- The data as a table ------------------------------------------------------------------------

// What is no number breaks a line, and is a dash here: not known, or not to be measured.
std::string Said(double value, Quantity quantity) {
  if (std::isnan(value)) return "–";
  return std::isfinite(value) ? QuantityText(value, quantity) : NumberText(value);
}

Cell SaidCell(double value, Quantity quantity) { return {Text(Said(value, quantity)), value}; }

Table WholeTable(const Chart& chart, const ChartSeries& series) {
  using Style = ChartSeries::Style;
  Table table;
  const bool isBars = series.style == Style::kBars;
  table.columns.push_back({isBars ? chart.x.label + ", from" : chart.x.label, true});
  if (isBars) table.columns.push_back({"to", true});
  table.columns.push_back({series.style == Style::kBand ? "least" : chart.y.label, true});
  if (series.style == Style::kBand) table.columns.push_back({"most", true});
  for (size_t i = 0; i < series.y.size() && i < series.x.size(); ++i) {
    std::vector<Cell> cells{SaidCell(series.x[i], chart.x.quantity)};
    if (isBars && i + 1 < series.x.size()) {
      cells.push_back(SaidCell(series.x[i + 1], chart.x.quantity));
    }
    cells.push_back(SaidCell(series.y[i], chart.y.quantity));
    if (i < series.top.size()) cells.push_back(SaidCell(series.top[i], chart.y.quantity));
    table.rows.push_back({std::move(cells)});
  }
  return table;
}

Table TableOfStretches(const Chart& chart, const ChartSeries& series) {
  Table table;
  table.columns = {{chart.x.label + ", from", true},
                   {"to", true},
                   {"least", true},
                   {"median", true},
                   {"most", true}};
  const std::vector<double>& tops = series.top.empty() ? series.y : series.top;
  const std::vector<Stretch> lower = Stretches(series.x, series.y, kStretchesTold);
  const std::vector<Stretch> upper = Stretches(series.x, tops, kStretchesTold);
  for (size_t i = 0; i < std::min(lower.size(), upper.size()); ++i) {
    table.rows.push_back(
        {{SaidCell(lower[i].fromX, chart.x.quantity), SaidCell(lower[i].toX, chart.x.quantity),
          SaidCell(lower[i].least, chart.y.quantity), SaidCell(lower[i].median, chart.y.quantity),
          SaidCell(upper[i].most, chart.y.quantity)}});
  }
  return table;
}

// Series over the same places share one table.
bool SharePlaces(const std::vector<ChartSeries>& series) {
  using Style = ChartSeries::Style;
  return std::all_of(series.begin(), series.end(), [&](const ChartSeries& one) {
    return one.x == series[0].x && one.style != Style::kBand &&
           (one.style == Style::kBars) == (series[0].style == Style::kBars);
  });
}

Html DataOf(const Chart& chart) {
  if (!chart.hasTable || chart.series.empty()) return {};
  Html tables;
  const bool isMuch = std::any_of(chart.series.begin(), chart.series.end(),
                                  [](const auto& series) { return series.y.size() > kMostTold; });
  if (!isMuch && chart.series.size() > 1 && SharePlaces(chart.series)) {
    Table table = WholeTable(chart, chart.series[0]);
    table.columns.back().title = chart.series[0].name;
    for (size_t s = 1; s < chart.series.size(); ++s) {
      table.columns.push_back({chart.series[s].name, true});
      for (size_t i = 0; i < table.rows.size() && i < chart.series[s].y.size(); ++i) {
        table.rows[i].cells.push_back(SaidCell(chart.series[s].y[i], chart.y.quantity));
      }
    }
    table.caption = chart.title;
    table.isSortable = false;
    return Details(Text("Data as a table"), Draw(table));
  }
  for (const ChartSeries& series : chart.series) {
    Table table =
        series.y.size() > kMostTold ? TableOfStretches(chart, series) : WholeTable(chart, series);
    table.caption = series.name.empty() ? chart.title : chart.title + ": " + series.name;
    table.showsCaption = chart.series.size() > 1;
    table.isSortable = false;
    tables += Draw(table);
  }
  return Details(Text("Data as a table"), tables);
}

Scale XScale(const Chart& chart) {
  Range range;
  for (const ChartSeries& series : chart.series) {
    for (const double x : series.x) range.Take(x, chart.x.isLogarithmic);
  }
  for (const ChartLevel& level : chart.levels) {
    if (level.isOnX) range.Take(level.at, chart.x.isLogarithmic);
  }
  const Scale scale = ScaleFor(chart.x, range, false);
  // The first and the last dot are whole.
  const bool hasDots = std::any_of(
      chart.series.begin(), chart.series.end(),
      [](const ChartSeries& series) { return series.style == ChartSeries::Style::kDots; });
  if (!hasDots || chart.x.from || chart.x.to || scale.IsLogarithmic()) return scale;
  const double room = (scale.To() - scale.From()) * 0.01;
  return {scale.From() - room, scale.To() + room, false};
}

Scale YScale(const Chart& chart) {
  Range range;
  bool standsOnZero = false;
  for (const ChartSeries& series : chart.series) {
    for (const double y : series.y) range.Take(y, chart.y.isLogarithmic);
    for (const double y : series.top) range.Take(y, chart.y.isLogarithmic);
    standsOnZero |= series.style == ChartSeries::Style::kBars;
  }
  for (const ChartLevel& level : chart.levels) {
    if (!level.isOnX) range.Take(level.at, chart.y.isLogarithmic);
  }
  if (standsOnZero) range.Take(0, chart.y.isLogarithmic);
  return ScaleFor(chart.y, range, true);
}

}  // namespace

Html Draw(const Chart& chart) {
  const Scale x = XScale(chart);
  const Scale y = YScale(chart);
  const Unit xUnit = UnitFor(LargestOf(x), chart.x.quantity);
  const Unit yUnit = UnitFor(LargestOf(y), chart.y.quantity);

  Html marks;
  for (const ChartSeries& series : chart.series) marks += DrawSeries(series, x, y);
  Html levels;
  for (const ChartLevel& level : chart.levels) levels += LevelOf(level, level.isOnX ? x : y);

  const std::string title = chart.id + "-title";
  const std::string description = chart.id + "-description";
  const std::string height = std::to_string(chart.height);
  Html drawing = Element("title", {{"id", title}}, Text(chart.title)) +
                 Element("desc", {{"id", description}}, Text(chart.description)) +
                 Regions(chart.regions, x) + YTicks(y, chart.y, yUnit, chart.height) +
                 XTicks(x, chart.x, xUnit) +
                 Element("svg",
                         {{"class", "marks"},
                          {"width", "100%"},
                          {"height", "100%"},
                          {"viewBox", "0 0 1000 1000"},
                          {"preserveAspectRatio", "none"}},
                         marks) +
                 levels;
  return Element("figure", {{"class", "chart"}, {"id", chart.id}},
                 Element("figcaption", Text(chart.title)) + Key(chart, y) +
                     Element("div", {{"class", "axis y"}, {"aria-hidden", "true"}},
                             Text(AxisLabel(chart.y, yUnit))) +
                     Element("div", {{"class", "plot"}},
                             Element("svg",
                                     {{"role", "img"},
                                      {"aria-labelledby", title},
                                      {"aria-describedby", description},
                                      {"width", "100%"},
                                      {"height", height}},
                                     drawing)) +
                     Element("div", {{"class", "axis x"}, {"aria-hidden", "true"}},
                             Text(AxisLabel(chart.x, xUnit))) +
                     DataOf(chart));
}

// ---- Rows that share a scale --------------------------------------------------------------------

namespace {

Html MarkOf(const RowPlot::Mark& mark, const Scale& scale) {
  if (!scale.Holds(mark.from) || !scale.Holds(mark.to)) return {};
  const double from = std::clamp(scale.At(std::min(mark.from, mark.to)), 0.0, 1.0);
  const double to = std::clamp(scale.At(std::max(mark.from, mark.to)), 0.0, 1.0);
  const std::string ink = ClassOf(mark.ink);
  if (mark.kind == RowPlot::Mark::Kind::kBar) {
    return Element("rect", {{"class", "bar " + ink},
                            {"x", Percent(from)},
                            {"y", "20%"},
                            {"width", Percent(std::max(to - from, 0.002))},
                            {"height", "60%"}});
  }
  Html html = Element("line", {{"class", "line " + ink},
                               {"x1", Percent(from)},
                               {"x2", Percent(to)},
                               {"y1", "50%"},
                               {"y2", "50%"}});
  if (scale.Holds(mark.at)) {
    html += Element("circle", {{"class", "bar " + ink},
                               {"cx", Percent(std::clamp(scale.At(mark.at), 0.0, 1.0))},
                               {"cy", "50%"},
                               {"r", "5"}});
  }
  return html;
}

// "2 s, 14 %": a number stays with its unit where the line is too short for both.
std::string WithUnits(const std::string& value) {
  constexpr std::array<std::string_view, 7> kUnits{"ns", "µs", "ms", "s", "min", "h", "%"};
  constexpr std::string_view kNoBreak = "\xC2\xA0";
  std::string text;
  for (size_t i = 0; i < value.size(); ++i) {
    const size_t end = std::min(value.find_first_of(" ,", i + 1), value.size());
    const auto word = std::string_view(value).substr(i + 1, end - i - 1);
    const bool isUnit =
        value[i] == ' ' && std::find(kUnits.begin(), kUnits.end(), word) != kUnits.end();
    text += isUnit ? kNoBreak : std::string_view(value).substr(i, 1);
  }
  return text;
}

Html RowDrawing(const Html& marks, const char* kind) {
  return Element("svg",
                 {{"class", kind}, {"aria-hidden", "true"}, {"width", "100%"}, {"height", "22"}},
                 marks);
}

}  // namespace

Html Draw(const RowPlot& plot) {
  Range range;
  for (const RowPlot::Row& row : plot.rows) {
    for (const RowPlot::Mark& mark : row.marks) {
      range.Take(mark.from, plot.axis.isLogarithmic);
      range.Take(mark.to, plot.axis.isLogarithmic);
    }
  }
  if (plot.reference) range.Take(*plot.reference, plot.axis.isLogarithmic);
  const Scale scale = ScaleFor(plot.axis, range, plot.reference.has_value());
  const Unit unit = UnitFor(LargestOf(scale), plot.axis.quantity);

  Html ticks;
  Html lines;
  constexpr TickWidths kWidths{
      {{100, "tick"}, {135, "tick w1"}, {260, "tick w2"}, {480, "tick w3"}}};
  for (const Tick& tick : XTicksOf(scale, plot.axis, unit, 0.06, 0.94, kWidths)) {
    const std::string at = Percent(tick.share);
    lines += Element("line", {{"class", "grid"}, {"x1", at}, {"x2", at}, {"y2", "100%"}});
    if (tick.kind == nullptr) continue;
    ticks += Element("text",
                     {{"class", tick.kind}, {"x", at}, {"y", "14"}, {"text-anchor", tick.anchor}},
                     Text(tick.text));
  }
  if (plot.reference) {
    const std::string at = Percent(scale.At(*plot.reference));
    lines += Element("line", {{"class", "level"}, {"x1", at}, {"x2", at}, {"y2", "100%"}});
  }

  Html rows;
  for (const RowPlot::Row& row : plot.rows) {
    Html marks = lines;
    for (const RowPlot::Mark& mark : row.marks) marks += MarkOf(mark, scale);
    std::vector<Attribute> attributes;
    if (row.isSum) attributes.push_back({"class", "sum"});
    rows += ElementOf("tr", attributes,
                      Element("th", {{"scope", "row"}}, row.label) +
                          Element("td", {{"class", "drawn"}}, RowDrawing(marks, "row")) +
                          Element("td", {{"class", "n"}}, Text(WithUnits(row.value))));
  }
  Html head = Element(
      "tr", Element("th", {{"scope", "col"}}, Text(plot.labelTitle)) +
                Element("th", {{"scope", "col"}, {"class", "drawn"}},
                        Element("span", {{"class", "axis"}}, Text(AxisLabel(plot.axis, unit))) +
                            Element("div", {{"class", "fit"}}, RowDrawing(ticks, "row ticks"))) +
                Element("th", {{"scope", "col"}, {"class", "n"}}, Text(plot.valueTitle)));
  Html table = Element(
      "table", {{"class", "rows"}},
      Element("caption", Text(plot.title)) + Element("thead", head) + Element("tbody", rows));
  if (!plot.referenceText.empty()) {
    table += Element("p", {{"class", "note"}}, Text(plot.referenceText));
  }
  return Element("div", {{"class", "rowplot"}}, table);
}

// ---- Small ones ---------------------------------------------------------------------------------

Html Draw(const Sparkline& line) {
  ChartSeries series;
  series.y = line.values;
  for (size_t i = 0; i < line.values.size(); ++i) series.x.push_back(static_cast<double>(i));
  series.ink = line.ink;
  Range range;
  for (const double value : line.values) range.Take(value, false);
  const Scale x(0, std::max<double>(static_cast<double>(line.values.size()) - 1, 1), false);
  const Scale y = ScaleFor({}, range, false);

  Html marks;
  for (const size_t mark : line.marks) {
    Pen pen(x, y);
    pen.Move(static_cast<double>(mark), y.From());
    pen.Line(static_cast<double>(mark), y.To());
    marks += PathOf(pen, "step");
  }
  marks += DrawSeries(series, x, y);
  return Element("svg",
                 {{"class", "spark"},
                  {"role", "img"},
                  {"width", "120"},
                  {"height", "28"},
                  {"viewBox", "-20 -60 1040 1120"},
                  {"preserveAspectRatio", "none"}},
                 Element("title", Text(line.title)) + marks);
}

std::vector<double> RoundTicks(double from, double to, size_t wanted, bool isLogarithmic) {
  std::vector<double> ticks;
  if (!(from < to) || !std::isfinite(from) || !std::isfinite(to) || wanted == 0) return ticks;
  if (isLogarithmic) {
    if (from <= 0) return ticks;
    const int first = static_cast<int>(std::floor(std::log10(from)));
    const int last = static_cast<int>(std::ceil(std::log10(to)));
    const int every = std::max(1, (last - first) / static_cast<int>(std::max<size_t>(wanted, 2)));
    for (int power = first; power <= last; power += every) {
      const double decade = std::pow(10.0, power);
      const bool isFew = last - first <= 3;
      for (const double step : {1.0, 2.0, 5.0}) {
        const double tick = decade * step;
        if ((step == 1 || isFew) && tick >= from * 0.999999 && tick <= to * 1.000001) {
          ticks.push_back(tick);
        }
      }
    }
    if (ticks.size() >= 2) return ticks;
    ticks.clear();  // within less than an octave round numbers of the other kind serve better
  }
  const double rough = (to - from) / static_cast<double>(wanted);
  const double power = std::pow(10.0, std::floor(std::log10(rough)));
  double step = power;
  for (const double factor : {1.0, 2.0, 5.0, 10.0}) {
    step = power * factor;
    if (step >= rough * 0.999999) break;
  }
  if (!(step > 0) || !std::isfinite(step)) return ticks;
  const double firstIndex = std::ceil(from / step - 1e-9);
  for (size_t i = 0; i < 4 * wanted + 4; ++i) {
    const double tick = (firstIndex + static_cast<double>(i)) * step;
    if (tick > to + step * 1e-9) break;
    ticks.push_back(tick);
  }
  return ticks;
}

}  // namespace vorn::kit
