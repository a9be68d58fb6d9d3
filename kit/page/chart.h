// Charts as static SVG: they show without scripts, in print, and say themselves to a screen reader
// by <title>, <desc> and the data as a table behind a fold. Numbers and places are printed alike on
// every machine, so a chart of the same data is the same bytes.
//
// A chart is as wide as the page lets it be, and its texts keep their size: the marks are drawn
// into an inner SVG of 1000 x 1000 that is stretched, the texts stand around it by percentages.
// Dots are strokes of no length with round ends, which no stretching distorts.
#ifndef VORN_KIT_PAGE_CHART_H_
#define VORN_KIT_PAGE_CHART_H_

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "kit/page/html.h"
#include "kit/page/number_text.h"

namespace vorn::kit {

/// Colours of the theme. Two series also differ in the form of their marks.
enum class Ink { kFirst, kSecond, kThird, kFourth, kQuiet, kGood, kBad };

struct ChartAxis {
  std::string label = {};  ///< "execution", "time"; the unit is put behind it
  Quantity quantity = Quantity::kNumber;
  bool isLogarithmic = false;       ///< values that are not positive are left out then
  std::optional<double> from = {};  ///< else by the data
  std::optional<double> to = {};
};

/// Values that are not finite are left out of drawings and stand in the tables.
struct ChartSeries {
  enum class Style {
    kDots,
    kLine,   ///< broken where a value is missing (NaN)
    kSteps,  ///< a value holds until the next one
    kBars,   ///< y[i] stands between x[i] and x[i + 1]: x has one value more than y
    kBand,   ///< between y and top
  };
  std::string name = {};
  std::vector<double> x = {};  ///< rising
  std::vector<double> y = {};
  std::vector<double> top = {};  ///< of a band
  Style style = Style::kLine;
  Ink ink = Ink::kFirst;
};

/// A shaded part of the x axis: the warm-up.
struct ChartRegion {
  double from = 0;
  double to = 0;
  std::string text = {};
};

/// A level across the chart, with an interval around it where low < high: the median.
struct ChartLevel {
  double at = 0;
  double low = 0;
  double high = 0;
  std::string text = {};
  bool isOnX = false;  ///< it stands upright at a place of the x axis
};

struct Chart {
  std::string id;  ///< unique on the page: letters, digits, hyphens
  std::string title;
  std::string description;  ///< what is to be seen, in a sentence or two, for who does not see it
  ChartAxis x;
  ChartAxis y;
  std::vector<ChartSeries> series;
  std::vector<ChartRegion> regions;
  std::vector<ChartLevel> levels;
  unsigned height = 200;  ///< in pixels
  bool hasTable = true;
};

/// A figure. Of more than `kMostDrawn` values of a series stretches are drawn, each from its least
/// to its greatest with its median; of more than `kMostTold` the table tells stretches.
inline constexpr size_t kMostDrawn = 1500;
inline constexpr size_t kMostTold = 120;
[[nodiscard]] Html Draw(const Chart& chart);

// ---- Rows that share a scale --------------------------------------------------------------------

/// Bars, a waterfall, intervals (a forest plot): a table whose rows each have a small drawing. Says
/// everything in its last column, so that the drawing is decoration to who does not see it.
struct RowPlot {
  struct Mark {
    enum class Kind {
      kBar,       ///< from … to
      kInterval,  ///< from … to, with a dot at `at`
    };
    Kind kind = Kind::kBar;
    double from = 0;
    double to = 0;
    double at = 0;
    Ink ink = Ink::kFirst;
  };
  struct Row {
    Html label;
    std::vector<Mark> marks;
    std::string value;   ///< as text
    bool isSum = false;  ///< set apart from the rows above
  };
  std::string title;
  std::string labelTitle;  ///< heads of the columns
  std::string valueTitle;
  ChartAxis axis;
  std::optional<double> reference;  ///< a line through all rows: 1 of ratios
  std::string referenceText;
  std::vector<Row> rows;
};
[[nodiscard]] Html Draw(const RowPlot& plot);

// ---- Small ones ---------------------------------------------------------------------------------

/// A line without axes, for many beside each other.
struct Sparkline {
  std::string title;           ///< says what it shows, with its last value
  std::vector<double> values;  ///< NaN breaks the line
  std::vector<size_t> marks;   ///< places at which something changed: upright lines
  Ink ink = Ink::kFirst;
};
[[nodiscard]] Html Draw(const Sparkline& line);

/// Ticks of an axis at round numbers, within [from, to], about as many as wanted. Powers of ten,
/// and where these are few 2 and 5 times them, of a logarithmic one.
[[nodiscard]] std::vector<double> RoundTicks(double from, double to, size_t wanted,
                                             bool isLogarithmic = false);

}  // namespace vorn::kit

#endif  // VORN_KIT_PAGE_CHART_H_
