// The worst samples: one fold each, with all outputs of it that are worth looking at.
#include <algorithm>
#include <cmath>
#include <map>

#include "kit/common/printable.h"
#include "kit/judge/cause.h"
#include "kit/page/chart.h"
#include "kit/page/heatmap.h"
#include "kit/page/table.h"
#include "kit/report/fault_kinds.h"
#include "kit/report/page_parts.h"

namespace vorn::kit {
namespace {

constexpr size_t kOpenAtFirst = 2;

std::string OutputName(const RunOnPage& on, const ReportDetail& detail) {
  if (!on.run.judgement || detail.output >= on.run.judgement->outputs.size()) return "output";
  return on.run.judgement->outputs[detail.output].name;
}

// ---- Pictures, with what was found in them ------------------------------------------------------

Html BoxElements(const std::vector<ReportBox>& boxes, const char* ink) {
  Html html;
  for (const ReportBox& box : boxes) {
    if (!std::isfinite(box.left + box.top + box.right + box.bottom)) continue;
    const double left = std::clamp(std::min(box.left, box.right), 0.0, 1.0);
    const double right = std::clamp(std::max(box.left, box.right), 0.0, 1.0);
    const double top = std::clamp(std::min(box.top, box.bottom), 0.0, 1.0);
    const double bottom = std::clamp(std::max(box.top, box.bottom), 0.0, 1.0);
    html += Element("rect", {{"class", ink},
                             {"x", PlaceText(left * 100) + "%"},
                             {"y", PlaceText(top * 100) + "%"},
                             {"width", PlaceText((right - left) * 100) + "%"},
                             {"height", PlaceText((bottom - top) * 100) + "%"}});
  }
  return html;
}

Html BoxesOver(const ReportDetail& detail) {
  if (detail.actualBoxes.empty() && detail.expectedBoxes.empty()) return {};
  return Element("svg", {{"aria-hidden", "true"}},
                 BoxElements(detail.expectedBoxes, "i1") + BoxElements(detail.actualBoxes, "i2"));
}

uint32_t ShownWidth(uint32_t width, uint32_t height, uint32_t side) {
  const uint32_t longer = std::max({width, height, 1U});
  return longer >= side ? width : width * (side / longer);
}

Html PictureFigure(const ReportPicture& picture, const ReportDetail& detail) {
  const std::string size =
      std::to_string(picture.sourceWidth) + " x " + std::to_string(picture.sourceHeight);
  const std::string what = picture.isTensor ? "Input tensor drawn as a picture" : "Picture";
  Html image =
      PictureOf(picture.png, what + " of sample " + std::to_string(detail.sample), picture.width,
                picture.height, ShownWidth(picture.width, picture.height, 160));
  Html caption = Text(what + ", " + size + ": ") + Name(picture.name);
  return Element("figure", Element("div", {{"class", "over"}}, image + BoxesOver(detail)) +
                               Element("figcaption", caption));
}

Html BoxTable(const ReportDetail& detail) {
  if (detail.actualBoxes.empty() && detail.expectedBoxes.empty()) return {};
  Table table;
  table.caption = "Boxes";
  table.columns = {{"side"},      {"class", true}, {"score", true}, {"left", true},
                   {"top", true}, {"right", true}, {"bottom", true}};
  const auto add = [&](const std::vector<ReportBox>& boxes, const char* side) {
    for (const ReportBox& box : boxes) {
      table.rows.push_back({{TextCell(side),
                             {Text(std::to_string(box.label)), static_cast<double>(box.label)},
                             NumberCell(box.score),
                             NumberCell(box.left),
                             NumberCell(box.top),
                             NumberCell(box.right),
                             NumberCell(box.bottom)}});
    }
  };
  add(detail.expectedBoxes, "expected");
  add(detail.actualBoxes, "actual");
  return Note(
             Text("Boxes over the picture: expected drawn through, actual dashed. Places in shares "
                  "of the picture.")) +
         Details(Text("Boxes as a table"), Draw(table));
}

// Classes as colours far apart; 0, mostly the background, is black, which covers nothing.
std::string ClassPicture(const std::vector<uint32_t>& classes, uint32_t columns, uint32_t rows) {
  std::vector<uint8_t> pixels;
  pixels.reserve(classes.size() * 3);
  for (const uint32_t one : classes) {
    const double hue = std::fmod(one * 0.618033988749895, 1.0) * 6;
    for (const double shift : {0.0, 4.0, 2.0}) {
      const double distance = std::abs(std::fmod(hue + shift, 6.0) - 3) - 1;
      const double light = one == 0 ? 0 : 0.15 + 0.85 * std::clamp(distance, 0.0, 1.0);
      pixels.push_back(static_cast<uint8_t>(std::lround(255 * light)));
    }
  }
  return PngBytes(pixels, columns, rows, 3);
}

// Over the picture where there is one: a mask of the whole sample covers all of it.
Html MaskFigure(const ReportMask& mask, const std::vector<uint32_t>& classes, const char* title,
                const ReportPicture* picture) {
  const std::string png = ClassPicture(classes, mask.columns, mask.rows);
  if (picture == nullptr) {
    return Element("figure", PictureOf(png, title, mask.columns, mask.rows,
                                       ShownWidth(mask.columns, mask.rows, 160)) +
                                 Element("figcaption", Text(title)));
  }
  const uint32_t width = ShownWidth(picture->width, picture->height, 160);
  Html both =
      PictureOf(picture->png, "", picture->width, picture->height, width) +
      Element("div", {{"class", "cover"}}, PictureOf(png, title, mask.columns, mask.rows, width));
  return Element("figure",
                 Element("div", {{"class", "over"}}, both) +
                     Element("figcaption", Text(std::string(title) + ", over the picture")));
}

Html MaskFigures(const ReportDetail& detail) {
  const ReportMask& mask = *detail.mask;
  const size_t places = static_cast<size_t>(mask.rows) * mask.columns;
  if (places == 0 || mask.actual.size() != places || mask.expected.size() != places) return {};
  std::vector<double> differs(places);
  size_t different = 0;
  for (size_t i = 0; i < places; ++i) {
    differs[i] = mask.actual[i] == mask.expected[i] ? 0 : 1;
    different += mask.actual[i] == mask.expected[i] ? 0 : 1;
  }
  const ReportPicture* picture = detail.pictures.empty() ? nullptr : detail.pictures.data();
  const double share = static_cast<double>(different) / static_cast<double>(places);
  return Element(
             "div", {{"class", "maps"}},
             MaskFigure(mask, mask.expected, "Mask, expected", picture) +
                 MaskFigure(mask, mask.actual, "Mask, actual", picture) +
                 Element("figure", Draw(Heatmap{differs, mask.rows, mask.columns, -1, 1,
                                                Palette::kDiverging, "Where the masks differ"}) +
                                       Element("figcaption", Text("Where they differ")))) +
         Note(Text(PercentText(share) + " of the places have another class."));
}

// ---- Values -------------------------------------------------------------------------------------

Html HistogramChart(const ReportHistogram& histogram, const std::string& id) {
  const size_t bins = std::min(histogram.actual.size(), histogram.expected.size());
  if (bins == 0) return {};
  std::vector<double> edges;
  const bool isOne = !(histogram.low < histogram.high);
  for (size_t i = 0; i <= bins; ++i) {
    // By parts, since the width may be more than a double holds.
    const double share = static_cast<double>(i) / static_cast<double>(bins);
    edges.push_back(isOne ? histogram.low + static_cast<double>(i) - 0.5
                          : histogram.low * (1 - share) + histogram.high * share);
  }
  Chart chart;
  chart.id = id;
  chart.title = "Values of both sides";
  chart.description = "How many elements have which value: of what was expected, and of what came.";
  if (histogram.actualNotFinite + histogram.expectedNotFinite > 0) {
    chart.description += " Beside these " + CountText(histogram.expectedNotFinite) +
                         " expected and " + CountText(histogram.actualNotFinite) +
                         " actual values are NaN or infinite.";
  }
  chart.x = {.label = "value"};
  chart.y = {.label = "elements", .quantity = Quantity::kCount};
  chart.height = 170;
  const auto series = [&](const char* name, const std::vector<uint64_t>& counts, Ink ink) {
    return ChartSeries{.name = name,
                       .x = edges,
                       .y = {counts.begin(), counts.begin() + static_cast<std::ptrdiff_t>(bins)},
                       .style = ChartSeries::Style::kBars,
                       .ink = ink};
  };
  chart.series = {series("expected", histogram.expected, Ink::kFirst),
                  series("actual", histogram.actual, Ink::kSecond)};
  return Draw(chart);
}

Html EnvelopeChart(const ReportEnvelope& envelope, const std::string& id) {
  const size_t bins = std::min(envelope.least.size(), envelope.most.size());
  if (bins == 0) return {};
  ChartSeries series{
      .name = "", .x = {}, .y = {}, .style = ChartSeries::Style::kBars, .ink = Ink::kThird};
  size_t odd = 0;
  std::vector<double> edges;
  for (size_t i = 0; i <= bins; ++i) {
    edges.push_back(static_cast<double>(envelope.elements) * static_cast<double>(i) /
                    static_cast<double>(bins));
  }
  // A step for each bin, as a band with two corners.
  ChartSeries band{
      .name = "", .x = {}, .y = {}, .style = ChartSeries::Style::kBand, .ink = Ink::kThird};
  for (size_t i = 0; i < bins; ++i) {
    for (const double edge : {edges[i], edges[i + 1]}) {
      band.x.push_back(edge);
      band.y.push_back(std::min(envelope.least[i], 0.0));
      band.top.push_back(std::max(envelope.most[i], 0.0));
    }
    odd += i < envelope.hasNotFinite.size() && envelope.hasNotFinite[i] != 0 ? 1 : 0;
  }
  Chart chart;
  chart.id = id;
  chart.title = "Difference over the index";
  chart.description =
      "Actual less expected of each element in the order of the dump, from the least "
      "to the greatest of a stretch.";
  if (odd > 0) {
    chart.description += " In " + CountText(odd) + (odd == 1 ? " stretch" : " stretches") +
                         " a NaN or an infinity stands on one side alone.";
  }
  chart.x = {.label = "index of the element", .quantity = Quantity::kCount};
  chart.y = {.label = "actual − expected"};
  chart.height = 170;
  chart.series = {std::move(band)};
  chart.hasTable = false;
  Table table;
  table.caption = chart.title;
  table.isSortable = false;
  table.columns = {{"index, from", true}, {"to", true}, {"least", true}, {"most", true}};
  const size_t rows = std::min<size_t>(bins, 48);
  for (size_t r = 0; r < rows; ++r) {
    const size_t begin = bins * r / rows;
    const size_t end = bins * (r + 1) / rows;
    double least = NAN;
    double most = NAN;
    for (size_t i = begin; i < end; ++i) {
      least = std::fmin(least, envelope.least[i]);
      most = std::fmax(most, envelope.most[i]);
    }
    table.rows.push_back(
        {{CountCell(static_cast<uint64_t>(edges[begin])),
          CountCell(static_cast<uint64_t>(edges[end])), MeasureCell(least), MeasureCell(most)}});
  }
  return Draw(chart) + Details(Text("Data as a table"), Draw(table));
}

Html HeatmapsOf(const ReportDetail& detail) {
  Html html;
  for (const ReportHeatmap& map : detail.heatmaps) {
    const auto figure = [&](const char* title, const std::vector<double>& values, double low,
                            double high, Palette palette) {
      Heatmap heatmap{values,
                      map.rows,
                      map.columns,
                      low,
                      high,
                      palette,
                      std::string(title) + ", channel " + map.place + ", " +
                          std::to_string(map.sourceRows) + " x " +
                          std::to_string(map.sourceColumns) + " values"};
      return Element("figure", Draw(heatmap) + Element("figcaption", Text(title)) +
                                   Legend(palette, low, high));
    };
    const double reach = map.mostDifference;
    html += Heading(
        3, "Channel " + map.place +
               (map.rows < map.sourceRows || map.columns < map.sourceColumns ? ", drawn smaller"
                                                                             : "") +
               (std::isnan(map.rmse) ? ", of no finite pair" : ", RMSE " + NumberText(map.rmse)));
    html += Element(
        "div", {{"class", "maps"}},
        figure("expected", map.expected, map.least, map.most, Palette::kScale) +
            figure("actual", map.actual, map.least, map.most, Palette::kScale) +
            figure("actual − expected", map.difference, -reach, reach, Palette::kDiverging));
  }
  if (detail.channels > detail.heatmaps.size() && !detail.heatmaps.empty()) {
    html += Note(Text("These are the " + CountText(detail.heatmaps.size()) + " worst of " +
                      CountText(detail.channels) +
                      " channels. The same colours mean the same on both sides; NaN is magenta."));
  }
  return html;
}

// Where the class that is expected at a place has the value of the one that stands there.
bool IsTied(const ReportDetail& detail, size_t place) {
  if (detail.expectedTop[place].sharing > 1) return true;  // one of them may be it
  return detail.expectedTop[place].other == detail.actualTop[place].value;
}

bool HasEqualValues(const std::vector<ReportLabel>& top) {
  return std::adjacent_find(top.begin(), top.end(), [](const auto& one, const auto& other) {
           return one.value == other.value;
         }) != top.end();
}

bool IsEqualTo(const std::vector<ReportLabel>& top, size_t place, size_t other) {
  return other < top.size() && top[place].value == top[other].value;
}

// A class and its value; of classes that have it together how many they are.
void AddLabelCells(const std::vector<ReportLabel>& top, size_t place, Table::Row& row) {
  if (place >= top.size()) {
    row.cells.insert(row.cells.end(), 2, Cell{});
    return;
  }
  const ReportLabel& label = top[place];
  const std::string value = NumberText(label.value);
  if (label.sharing > 1) {
    row.cells.push_back(
        {Text(CountText(label.sharing) + (place == 0 ? " classes" : " others")), {}});
    row.cells.push_back({Text(value + " each"), label.value});
    return;
  }
  const bool isTied =
      IsEqualTo(top, place, place + 1) || (place > 0 && IsEqualTo(top, place, place - 1));
  row.cells.push_back(CountCell(label.label));
  row.cells.push_back({Text(value + (isTied ? ", equal" : "")), label.value});
}

Html LabelTable(const ReportDetail& detail) {
  if (detail.actualTop.empty() && detail.expectedTop.empty()) return {};
  Table table;
  table.caption = "First classes of both sides";
  table.showsCaption = true;
  table.isSortable = false;
  table.columns = {{"place", true},
                   {"expected class", true},
                   {"value", true},
                   {"actual class", true},
                   {"value", true}};
  const size_t rows = std::max(detail.actualTop.size(), detail.expectedTop.size());
  for (size_t i = 0; i < rows; ++i) {
    Table::Row row;
    row.cells.push_back(CountCell(i + 1));
    for (const auto* side : {&detail.expectedTop, &detail.actualTop}) {
      AddLabelCells(*side, i, row);
    }
    row.isBad = i < detail.actualTop.size() && i < detail.expectedTop.size() &&
                detail.actualTop[i].label != detail.expectedTop[i].label && !IsTied(detail, i);
    table.rows.push_back(std::move(row));
  }
  const bool isAnyTied = HasEqualValues(detail.actualTop) || HasEqualValues(detail.expectedTop);
  return Draw(table) +
         (isAnyTied ? Note(Text("Classes of equal values share their places; they stand in the "
                                "order of their numbers."))
                    : Html());
}

Html ElementTable(const ReportDetail& detail) {
  if (detail.worst.empty()) return {};
  Table table;
  table.caption = "Worst elements";
  table.showsCaption = true;
  table.columns = {{"place"}, {"actual", true}, {"expected", true}, {"difference", true}};
  for (const ReportElement& element : detail.worst) {
    table.rows.push_back(
        {{TextCell(element.place), NumberCell(element.actual), NumberCell(element.expected),
          MeasureCell(element.actual - element.expected)}});
  }
  return Draw(table);
}

Html CauseWords(const ReportDetail& detail) {
  Html html;
  for (const ReportCause& cause : detail.causes) {
    html += Paragraph(Text(html.IsEmpty() ? "What fits: " : "Or: ") +
                      Element("strong", Text(cause.text)) +
                      Text("; " + ExplainedText(cause.certainty) + "."));
  }
  return html.IsEmpty() ? html : Element("div", {{"class", "callout"}}, html);
}

bool HasOddPairs(const ReportDetail& detail) {
  const auto& odd = detail.envelope.hasNotFinite;
  return std::find(odd.begin(), odd.end(), 1) != odd.end();
}

std::string MeasuresText(const ReportDetail& detail) {
  if (std::isnan(detail.rmse)) return "no pair of them is finite on both sides.";
  return std::string(HasOddPairs(detail) ? "of the finite ones the " : "") +
         "greatest difference " + NumberText(detail.maxAbs) + ", RMSE " + NumberText(detail.rmse) +
         ", cosine " + NumberText(detail.cosine, 6) + ".";
}

Html WordsOf(const ReportDetail& detail) {
  Html html = CauseWords(detail) + Sentences(detail.reasons);
  if (!detail.obstacle.empty()) {
    html += Paragraph(Text("There is no more to show: " + detail.obstacle));
  } else {
    html += Note(Text(CountText(detail.outside) + " of " + CountText(detail.elements) +
                      " elements are outside of the tolerance; " + MeasuresText(detail)));
  }
  return html;
}

// `pictures` stand beside the words of the first output.
Html OutputOfDetail(const RunOnPage& on, const ReportDetail& detail, const std::string& id,
                    bool isOnly, const Html& pictures) {
  Html html;
  if (!isOnly) {
    html += Element("h3", VerdictPill(detail.verdict) + Raw(" ") + Name(OutputName(on, detail)));
  }
  html += SideBySide({pictures, WordsOf(detail)});
  html += SideBySide({LabelTable(detail), ElementTable(detail)});
  html += SideBySide({HistogramChart(detail.histogram, id + "-values"),
                      EnvelopeChart(detail.envelope, id + "-difference")});
  html += HeatmapsOf(detail);
  if (detail.mask) html += MaskFigures(detail);
  html += BoxTable(detail);
  html += Details(
      Text("Files"),
      FactList({{"actual", detail.actualPath.empty() ? Html() : Name(detail.actualPath)},
                {"expected", detail.expectedPath.empty() ? Html() : Name(detail.expectedPath)}}));
  return html;
}

Html PicturesOf(const ReportDetail& detail) {
  Html html;
  for (const ReportPicture& picture : detail.pictures) html += PictureFigure(picture, detail);
  if (html.IsEmpty()) {
    return detail.pictureObstacle.empty() ? html
                                          : Note(Text("No picture: " + detail.pictureObstacle));
  }
  return Element("div", {{"class", "maps"}}, html);
}

ReportVerdict WorstVerdict(const std::vector<const ReportDetail*>& details) {
  ReportVerdict worst = ReportVerdict::kRight;
  for (const ReportDetail* detail : details) {
    if (detail->verdict == ReportVerdict::kWrong) return ReportVerdict::kWrong;
    if (detail->verdict == ReportVerdict::kNotJudged) worst = ReportVerdict::kNotJudged;
  }
  return worst;
}

std::string ShortCause(const std::vector<const ReportDetail*>& details) {
  for (const ReportDetail* detail : details) {
    if (!detail->causes.empty()) return detail->causes[0].text;
  }
  for (const ReportDetail* detail : details) {
    if (!detail->reasons.empty()) return PrintableExcerpt(detail->reasons[0]);
  }
  return {};
}

Html SampleCard(const RunOnPage& on, const std::vector<const ReportDetail*>& details, bool isOpen) {
  const uint64_t sample = details[0]->sample;
  Html content;
  Html inputs;
  for (const std::string& input : details[0]->inputs) {
    if (!inputs.IsEmpty()) inputs += Text(", ");
    inputs += Name(input);
  }
  // The picture is of the sample, whichever output has boxes to be drawn over it.
  const auto boxed = std::find_if(details.begin(), details.end(), [](const ReportDetail* detail) {
    return !detail->actualBoxes.empty() || !detail->expectedBoxes.empty();
  });
  const ReportDetail& shown = boxed == details.end() ? *details[0] : **boxed;
  Html pictures = PicturesOf(shown);
  if (shown.inputs.size() != 1 || shown.pictures.size() != 1 ||
      shown.pictures[0].name != shown.inputs[0]) {
    pictures += Note(Text("Input: ") + inputs);
  }
  for (const ReportDetail* detail : details) {
    content += OutputOfDetail(
        on, *detail, on.SampleId(sample) + "-" + std::to_string(detail->output),
        details.size() == 1 && on.run.judgement && on.run.judgement->outputs.size() == 1,
        detail == details[0] ? pictures : Html());
  }
  Html summary = VerdictPill(WorstVerdict(details)) + Raw(" ") +
                 Element("strong", Text("Sample " + std::to_string(sample)));
  if (const std::string cause = ShortCause(details); !cause.empty()) {
    summary += Text(": " + cause);
  }
  std::vector<Attribute> attributes{{"class", "card"}};
  if (isOpen) attributes.push_back({"open", ""});
  return Element(
      "div", {{"id", on.SampleId(sample)}},
      ElementOf("details", attributes,
                Element("summary", summary) + Element("div", {{"class", "inside"}}, content)));
}

}  // namespace

Html DetailsPart(const RunOnPage& on) {
  if (on.run.details.empty()) return {};
  // By sample, in the order in which they come: the worst first.
  std::vector<std::vector<const ReportDetail*>> samples;
  std::map<uint64_t, size_t> places;
  for (const ReportDetail& detail : on.run.details) {
    const auto [place, isNew] = places.try_emplace(detail.sample, samples.size());
    if (isNew) samples.emplace_back();
    samples[place->second].push_back(&detail);
  }
  Html html;
  if (!on.run.detailsRule.empty()) html += Note(Text(on.run.detailsRule));
  for (size_t i = 0; i < samples.size(); ++i) {
    html += SampleCard(on, samples[i], i < kOpenAtFirst && on.idPrefix.empty());
  }
  return html;
}

}  // namespace vorn::kit
