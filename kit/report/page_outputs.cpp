// What was judged: each output, its differences over the samples, and all samples in a table.
#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <numeric>

#include "kit/common/printable.h"
#include "kit/judge/cause.h"
#include "kit/page/chart.h"
#include "kit/page/heatmap.h"
#include "kit/page/table.h"
#include "kit/report/fault_kinds.h"
#include "kit/report/page_parts.h"

namespace vorn::kit {
namespace {

/// Of all outputs together; beyond it the worst rows stand in the tables.
constexpr size_t kMostRowsOnPage = 30000;

/// Outputs that have a part of their own: the wrong ones first.
constexpr size_t kMostCards = 16;
constexpr size_t kMostVerdicts = 200;

/// What is right differs from 1 far behind the point.
constexpr int kCosineDigits = 6;

std::string ShapeText(const std::vector<uint64_t>& shape) {
  std::string text;
  for (const uint64_t length : shape) text += (text.empty() ? "" : "x") + std::to_string(length);
  return text;
}

const ReportMeasure* FindMeasure(const ReportOutput& output, std::string_view name) {
  for (const ReportMeasure& measure : output.census) {
    if (measure.name == name) return &measure;
  }
  return nullptr;
}

Cell NamedMeasure(const ReportOutput& output, std::string_view name) {
  const ReportMeasure* measure = FindMeasure(output, name);
  if (measure == nullptr) return {};
  return measure->isCount && measure->value >= 0 ? CountCell(static_cast<uint64_t>(measure->value))
                                                 : MeasureCell(measure->value);
}

Html RulesText(const ReportOutput& output) {
  Html text =
      Text("within " + NumberText(output.atol) + " + " + NumberText(output.rtol) + " · |expected|");
  for (const ReportRule& rule : output.rules) {
    text += Text("; " + rule.metric + (rule.isAtLeast ? " at least " : " at most ") +
                 NumberText(rule.bound));
  }
  if (output.isNanExpected) text += Text("; a NaN may stand where one is expected");
  if (!output.rulesSource.empty()) text += Text(" (" + output.rulesSource + ")");
  return text;
}

// Places of at most that many outputs, in their order; of more the wrong ones before those that
// were not judged, and these before the right ones.
std::vector<size_t> ShownOutputs(const ReportJudgement& judgement, size_t most) {
  const auto& outputs = judgement.outputs;
  std::vector<size_t> places(outputs.size());
  std::iota(places.begin(), places.end(), 0);
  if (places.size() <= most) return places;
  const auto rank = [&](size_t place) {
    const ReportVerdict verdict = outputs[place].verdict;
    return verdict == ReportVerdict::kWrong ? 0 : verdict == ReportVerdict::kNotJudged ? 1 : 2;
  };
  std::stable_sort(places.begin(), places.end(),
                   [&](size_t one, size_t other) { return rank(one) < rank(other); });
  places.resize(most);
  std::sort(places.begin(), places.end());
  return places;
}

size_t CardCount(const RunOnPage& on) {
  return std::min(on.run.judgement->outputs.size(), kMostCards);
}

Html VerdictTable(const RunOnPage& on) {
  const ReportJudgement& judgement = *on.run.judgement;
  Table table;
  table.caption = "Verdict by output";
  table.columns = {{"output"},
                   {"verdict"},
                   {"samples", true},
                   {"wrong", true},
                   {"outside", true, "elements outside of the tolerance"},
                   {"max abs", true, "greatest difference"},
                   {"RMSE", true, "root of the mean square of the differences"},
                   {"cosine", true},
                   {"SNR dB", true, "signal to noise"}};
  const std::vector<size_t> cards = ShownOutputs(judgement, kMostCards);
  for (const size_t i : ShownOutputs(judgement, kMostVerdicts)) {
    const ReportOutput& output = judgement.outputs[i];
    const bool hasCard = std::binary_search(cards.begin(), cards.end(), i);
    Cell name{hasCard ? LinkTo(on.Id("output-" + std::to_string(i)), Name(output.name))
                      : Name(output.name),
              {}};
    if (!output.expectedName.empty() && output.expectedName != output.name) {
      name.content += Text(" against ") + Name(output.expectedName);
    }
    table.rows.push_back({{std::move(name),
                           {VerdictPill(output.verdict), {}},
                           CountCell(output.samples),
                           CountCell(output.wrongSamples),
                           NamedMeasure(output, "outside"),
                           NamedMeasure(output, "maxAbs"),
                           NamedMeasure(output, "rmse"),
                           NamedMeasure(output, "cosine"),
                           NamedMeasure(output, "snrDb")},
                          output.verdict == ReportVerdict::kWrong});
  }
  table.isFilterable = table.rows.size() > 10;
  Html html = Draw(table);
  const uint64_t all = judgement.outputs.size() + judgement.outputsLeftOut;
  if (all > table.rows.size()) {
    html += Note(Text("and " + CountedText(all - table.rows.size(), "more output") +
                      " in verdict.json; here stand the wrong ones first."));
  }
  return html;
}

// ---- Differences over samples -------------------------------------------------------------------

constexpr const char* kUndecided = "right, or a neighbour's";

// Whether a row is of one sample that passes and may have been exchanged all the same.
bool IsUndecided(const ReportOutput& output, size_t row) {
  const ReportColumns& columns = output.columns;
  if (columns.samplesPerRow > 1 || columns.isWrong[row] != 0) return false;
  return std::any_of(output.stretches.begin(), output.stretches.end(),
                     [&](const NeighbourStretch& stretch) {
                       return std::binary_search(stretch.undecided.begin(), stretch.undecided.end(),
                                                 columns.sample[row]);
                     });
}

Html DifferencesChart(const ReportOutput& output, const std::string& id) {
  const ReportColumns& columns = output.columns;
  ChartSeries undecided{.name = kUndecided,
                        .x = {},
                        .y = {},
                        .style = ChartSeries::Style::kDots,
                        .ink = Ink::kSecond};
  ChartSeries right{.name = "right", .x = {}, .y = {}, .style = ChartSeries::Style::kDots};
  ChartSeries wrong{
      .name = "wrong", .x = {}, .y = {}, .style = ChartSeries::Style::kDots, .ink = Ink::kBad};
  double least = INFINITY;
  double most = 0;
  for (size_t i = 0; i < columns.sample.size(); ++i) {
    ChartSeries& series = columns.isWrong[i] != 0  ? wrong
                          : IsUndecided(output, i) ? undecided
                                                   : right;
    series.x.push_back(static_cast<double>(columns.sample[i]));
    series.y.push_back(columns.rmse[i]);
    if (std::isfinite(columns.rmse[i]) && columns.rmse[i] > 0) {
      least = std::min(least, columns.rmse[i]);
      most = std::max(most, columns.rmse[i]);
    }
  }
  if (columns.sample.size() < 2) return {};
  Chart chart;
  chart.id = id;
  chart.title = "Difference over samples";
  chart.description =
      CountText(wrong.x.size()) + " of " + CountText(columns.sample.size()) +
      (columns.samplesPerRow > 1 ? " groups of samples" : " samples") +
      " are wrong. Root mean square of the differences of each, from " +
      (most > 0 ? NumberText(least) + " to " + NumberText(most) : std::string("0 to 0")) + ".";
  chart.x = {.label = "sample", .quantity = Quantity::kCount};
  chart.y = {.label = "RMSE"};
  // Equal samples have no place on a logarithmic axis, so it is for those alone where none is
  // equal.
  const bool hasZero =
      std::any_of(columns.rmse.begin(), columns.rmse.end(), [](double v) { return v == 0; });
  chart.y.isLogarithmic = !hasZero && most > 30 * least;
  for (ChartSeries* series : {&right, &undecided, &wrong}) {
    if (!series->x.empty()) chart.series.push_back(std::move(*series));
  }
  return Draw(chart);
}

// ---- All samples --------------------------------------------------------------------------------

// Wrong before right, the greatest difference first, and before that what a NaN or an infinity
// stands in: no measure tells of these.
std::vector<size_t> WorstRows(const ReportColumns& columns, size_t most) {
  std::vector<size_t> rows(columns.sample.size());
  for (size_t i = 0; i < rows.size(); ++i) rows[i] = i;
  const auto isWorse = [&](size_t a, size_t b) {
    if (columns.isWrong[a] != columns.isWrong[b]) return columns.isWrong[a] > columns.isWrong[b];
    if (!columns.notFinite.empty() && columns.notFinite[a] != columns.notFinite[b]) {
      return columns.notFinite[a] > columns.notFinite[b];
    }
    const bool isNanA = std::isnan(columns.rmse[a]);
    const bool isNanB = std::isnan(columns.rmse[b]);
    if (isNanA != isNanB) return isNanA;
    if (!isNanA && columns.rmse[a] != columns.rmse[b]) return columns.rmse[a] > columns.rmse[b];
    return a < b;
  };
  if (rows.size() <= most) {
    std::sort(rows.begin(), rows.end(), isWorse);
    return rows;
  }
  std::partial_sort(rows.begin(), rows.begin() + static_cast<std::ptrdiff_t>(most), rows.end(),
                    isWorse);
  rows.resize(most);
  return rows;
}

template <typename Value>
std::vector<double> Taken(const std::vector<Value>& values, const std::vector<size_t>& rows) {
  std::vector<double> taken;
  taken.reserve(rows.size());
  for (const size_t row : rows) taken.push_back(static_cast<double>(values[row]));
  return taken;
}

std::vector<uint64_t> DetailedSamples(const ReportRun& run) {
  std::vector<uint64_t> samples;
  for (const ReportDetail& detail : run.details) samples.push_back(detail.sample);
  std::sort(samples.begin(), samples.end());
  samples.erase(std::unique(samples.begin(), samples.end()), samples.end());
  return samples;
}

Cell SampleCell(const RunOnPage& on, uint64_t sample, const std::vector<uint64_t>& detailed) {
  Html text = Text(std::to_string(sample));
  if (std::binary_search(detailed.begin(), detailed.end(), sample)) {
    text = LinkTo(on.SampleId(sample), text);
  }
  return {std::move(text), static_cast<double>(sample)};
}

std::string FitText(const ReportFault& fault) {
  if (fault.causes.empty()) return {};
  const ReportCause& cause = fault.causes[0];
  return NameExcerpt(cause.text, 160) + "; " + ExplainedText(cause.certainty);
}

// The kinds of fault with the samples that have them, the most frequent first.
Html KindsTable(const RunOnPage& on, const ReportOutput& output) {
  // Of the only output that is wrong all of them stand beneath the answer.
  constexpr size_t kMostInAnswer = 5;
  const auto& outputs = on.run.judgement->outputs;
  const auto wrong = std::count_if(outputs.begin(), outputs.end(), [](const ReportOutput& one) {
    return one.verdict == ReportVerdict::kWrong;
  });
  if (wrong == 1 && FaultKindsOf(output).size() <= kMostInAnswer) return {};
  constexpr size_t kMostNamed = 5;
  constexpr size_t kMostKinds = 8;
  const std::vector<uint64_t> detailed = DetailedSamples(on.run);
  Html items;
  const std::vector<FaultKind> kinds = FaultKindsOf(output);
  for (size_t k = 0; k < std::min(kinds.size(), kMostKinds); ++k) {
    const FaultKind& kind = kinds[k];
    Html samples;
    for (size_t i = 0; i < kind.samples.size() && i < kMostNamed; ++i) {
      samples += Text(i == 0 ? " " : ", ") + SampleCell(on, kind.samples[i], detailed).content;
    }
    if (kind.samples.size() > kMostNamed) {
      samples += Text(" and " + CountText(kind.samples.size() - kMostNamed) + " more");
    }
    Html item = Text(kind.samples.size() == 1 ? "Sample" : "Samples") + samples + Text(": ") +
                Element("strong", Text(NameExcerpt(kind.sentence, 200)));
    if (kind.explained > 0) item += Text(", which " + ExplainedText(kind.explained));
    items += Paragraph(item + Text("."));
  }
  if (kinds.size() > kMostKinds) {
    items += Paragraph(
        Text("And " + CountedText(kinds.size() - kMostKinds, "further kind") + " of fault."));
  }
  for (const NeighbourStretch& stretch : output.stretches) {
    for (const std::string& sentence : PassingTexts(stretch)) items += Paragraph(Text(sentence));
  }
  return items.IsEmpty() ? items : Element("div", {{"class", "callout"}}, items);
}

Html FaultTable(const RunOnPage& on, const std::vector<ReportFault>& faults, uint64_t all,
                const char* caption, bool isBad) {
  if (faults.empty()) return {};
  constexpr size_t kMostOfAll = 600;
  constexpr size_t kMostOpen = 12;
  constexpr size_t kMostReasons = 2;
  const size_t most = std::min<size_t>(kMostOfAll / CardCount(on), 200);
  const std::vector<uint64_t> detailed = DetailedSamples(on.run);
  Table table;
  table.caption = caption;
  table.showsCaption = faults.size() <= kMostOpen;
  table.columns = {{"sample", true}, {"why"}, {"what fits"}};
  for (const ReportFault& fault : faults) {
    if (table.rows.size() == most) break;
    Html why;
    for (size_t i = 0; i < std::min(fault.reasons.size(), kMostReasons); ++i) {
      if (!why.IsEmpty()) why += Text("; ");
      why += Text(NameExcerpt(fault.reasons[i], 160));
    }
    if (fault.reasons.size() > kMostReasons) why += Text("; …");
    table.rows.push_back(
        {{SampleCell(on, fault.sample, detailed), {why, {}}, TextCell(FitText(fault))}, isBad});
  }
  table.isFilterable = table.rows.size() > kMostOpen;
  Html html = Draw(table);
  if (all > table.rows.size()) {
    html += Note(Text("These are the first " + CountText(table.rows.size()) + " of " +
                      CountText(all) + "; the table of all samples has the rest."));
  }
  if (faults.size() <= kMostOpen) return html;
  return Details(Text(std::string(caption) + ": " + CountText(all) + ", and why"), html);
}

// What no measure tells, since they are of finite numbers.
Html OddValues(const ReportOutput& output) {
  struct Odd {
    const char* measure;
    const char* words;
  };
  constexpr std::array<Odd, 5> kOdd{{{"onlyActualNan", "NaN where a number was expected"},
                                     {"onlyExpectedNan", "a number where NaN was expected"},
                                     {"onlyActualInfinite", "infinite where a number was expected"},
                                     {"onlyExpectedInfinite", "finite where it should be infinite"},
                                     {"oppositeInfinite", "infinite with the other sign"}}};
  std::vector<std::string> sentences;
  for (const Odd& odd : kOdd) {
    const ReportMeasure* measure = FindMeasure(output, odd.measure);
    if (measure == nullptr || !(measure->value >= 1)) continue;
    sentences.push_back(CountedText(static_cast<uint64_t>(measure->value), "element") + ": " +
                        odd.words);
  }
  return Sentences(sentences);
}

Html SamplesTable(const RunOnPage& on, const ReportOutput& output, const std::string& id,
                  size_t most) {
  const ReportColumns& columns = output.columns;
  if (columns.sample.empty()) return {};
  const std::vector<size_t> rows = WorstRows(columns, most);
  const std::vector<uint64_t> detailed = DetailedSamples(on.run);

  DataColumn verdicts{.title = "verdict", .kind = DataColumn::Kind::kChoice};
  verdicts.words = {"right", "wrong"};
  for (const size_t row : rows) {
    const bool isUndecided = IsUndecided(output, row);
    if (isUndecided && verdicts.words.size() == 2) verdicts.words.emplace_back(kUndecided);
    verdicts.choices.push_back(columns.isWrong[row] != 0 ? 1 : isUndecided ? 2 : 0);
  }
  DataColumn samples{.title = "sample",
                     .kind = DataColumn::Kind::kSamples,
                     .numbers = Taken(columns.sample, rows)};
  samples.linked = detailed;

  DataTable table;
  table.id = id;
  table.caption = "Samples of " + NameExcerpt(output.name, 60);
  table.linkBase = on.SampleId(0);
  table.linkBase.pop_back();
  table.columns = {
      std::move(samples),
      std::move(verdicts),
      {.title = "outside",
       .kind = DataColumn::Kind::kCounts,
       .numbers = Taken(columns.outside, rows)},
      {.title = "max abs", .numbers = Taken(columns.maxAbs, rows)},
      {.title = "RMSE", .numbers = Taken(columns.rmse, rows)},
      {.title = "cosine", .numbers = Taken(columns.cosine, rows), .digits = kCosineDigits}};

  // Without scripts the wrong ones, or the ten that differ most.
  const auto wrong = static_cast<size_t>(std::count_if(
      rows.begin(), rows.end(), [&](size_t row) { return columns.isWrong[row] != 0; }));
  constexpr size_t kMostOfAll = 1000;
  const size_t mostTold = std::clamp<size_t>(kMostOfAll / CardCount(on), 10, 100);
  const size_t told = std::min(rows.size(), std::clamp<size_t>(wrong, 10, mostTold));
  Table fallback;
  fallback.caption = table.caption;
  fallback.columns = {{"sample", true},  {"verdict"},    {"outside", true},
                      {"max abs", true}, {"RMSE", true}, {"cosine", true}};
  for (size_t i = 0; i < told; ++i) {
    const size_t row = rows[i];
    const bool isWrong = columns.isWrong[row] != 0;
    fallback.rows.push_back(
        {{SampleCell(on, columns.sample[row], detailed),
          TextCell(isWrong                    ? "wrong"
                   : IsUndecided(output, row) ? kUndecided
                                              : "right"),
          CountCell(columns.outside[row]), MeasureCell(columns.maxAbs[row]),
          MeasureCell(columns.rmse[row]), MeasureCell(columns.cosine[row], kCosineDigits)},
         isWrong});
  }
  table.fallback = Draw(fallback);
  if (told < rows.size()) {
    table.fallback +=
        Note(Text("These are the worst " + CountText(told) + " of " + CountText(rows.size()) +
                  " rows; with scripts all of them stand here. " + CountText(rows.size() - wrong) +
                  " of all rows are right."));
  }
  Html html;
  if (columns.samplesPerRow > 1) {
    html += Note(Text("A summary: each row stands for " + CountText(columns.samplesPerRow) +
                      " neighbouring samples and tells the worst of them."));
  }
  if (rows.size() < columns.sample.size()) {
    html += Note(Text("The worst " + CountText(rows.size()) + " of " +
                      CountText(columns.sample.size()) + " rows, so that the page stays small."));
  }
  return html + Draw(table);
}

// ---- Beside these -------------------------------------------------------------------------------

Html CensusTables(const ReportOutput& output) {
  Html html;
  if (!output.spreads.empty()) {
    Table spreads;
    spreads.caption = "A sample's measures";
    spreads.showsCaption = true;
    spreads.isSortable = false;
    spreads.columns = {{"measure"},      {"least", true}, {"5 %", true},
                       {"median", true}, {"95 %", true},  {"most", true}};
    for (const ReportSpread& spread : output.spreads) {
      spreads.rows.push_back(
          {{TextCell(spread.name), MeasureCell(spread.least), MeasureCell(spread.p5),
            MeasureCell(spread.median), MeasureCell(spread.p95), MeasureCell(spread.most)}});
    }
    html += Draw(spreads);
  }
  if (!output.census.empty()) {
    Table census;
    census.caption = "Census of all elements";
    census.showsCaption = true;
    census.isSortable = false;
    census.columns = {{"measure"}, {"value", true}};
    for (const ReportMeasure& measure : output.census) {
      census.rows.push_back({{TextCell(measure.name), NamedMeasure(output, measure.name)}});
    }
    html += Draw(census);
  }
  return html.IsEmpty() ? html : Details(Text("All counts and measures"), html);
}

Html WorstElements(const RunOnPage& on, const ReportOutput& output) {
  if (output.worst.empty()) return {};
  const std::vector<uint64_t> detailed = DetailedSamples(on.run);
  Table table;
  table.caption = "Worst elements";
  table.columns = {
      {"sample", true}, {"place"}, {"actual", true}, {"expected", true}, {"difference", true}};
  constexpr size_t kMostOfAll = 1000;
  for (const ReportElement& element : output.worst) {
    if (table.rows.size() == kMostOfAll / CardCount(on)) break;
    table.rows.push_back({{SampleCell(on, element.sample, detailed), TextCell(element.place),
                           NumberCell(element.actual), NumberCell(element.expected),
                           MeasureCell(element.actual - element.expected)}});
  }
  Html html = Draw(table);
  if (output.worst.size() > table.rows.size()) {
    html += Note(Text("verdict.json has " + CountText(output.worst.size()) + " of them."));
  }
  return Details(Text("Worst elements"), html);
}

// A square of counts, where the classes are few enough to be seen.
Html ConfusionMap(const ReportOutput& output) {
  constexpr uint64_t kMost = 64;
  uint64_t classes = 0;
  for (const auto& pair : output.confusion) {
    const uint64_t greatest = std::max(pair.expectedClass, pair.actualClass);
    if (greatest >= kMost) return {};
    classes = std::max(classes, greatest + 1);
  }
  if (classes == 0 || output.confusionLeftOut > 0) return {};
  std::vector<double> counts(classes * classes, 0);
  double most = 1;
  for (const auto& pair : output.confusion) {
    // By its root, so that a few do not vanish beside many.
    double& place = counts[pair.expectedClass * classes + pair.actualClass];
    place = std::sqrt(static_cast<double>(pair.count));
    most = std::max(most, place);
  }
  const auto side = static_cast<uint32_t>(classes);
  Heatmap map{counts,
              side,
              side,
              0,
              most,
              Palette::kScale,
              "Confusion: a row is an expected class, a column the class that was first; the table "
              "beside it tells the counts"};
  return Element("figure", {{"class", "aside"}},
                 Draw(map) + Element("figcaption", Text("rows expected, columns actual, class 0 at "
                                                        "the left and top")));
}

Html Confusion(const RunOnPage& on, const ReportOutput& output) {
  constexpr size_t kMostOfAll = 1000;
  const size_t most = std::min<size_t>(kMostOfAll / CardCount(on), 100);
  if (output.confusionItems == 0) return {};
  uint64_t same = 0;
  Table table;
  table.caption = "Classes that were taken for others";
  table.columns = {{"expected class", true}, {"actual class", true}, {"items", true}};
  for (const auto& pair : output.confusion) {
    if (pair.expectedClass == pair.actualClass) {
      same += pair.count;
      continue;
    }
    if (table.rows.size() == most) continue;
    table.rows.push_back(
        {{CountCell(pair.expectedClass), CountCell(pair.actualClass), CountCell(pair.count)}});
  }
  // Of one item that agrees nothing is left to say.
  if (same == 1 && output.confusionItems == 1) return {};
  Html html = Heading(3, "First class, both sides");
  html += Paragraph(
      Text("The same class is first in " + CountText(same) + " of " +
           CountedText(output.confusionItems, "item") +
           (output.agreement && output.agreement->tied1 > 0
                ? ", beside " + CountText(output.agreement->tied1) +
                      " in which equal values share the first place."
                : ".") +
           (output.confusionLeftOut > 0 ? " " + CountText(output.confusionLeftOut) +
                                              " items of rarer pairs are not counted here."
                                        : "")));
  if (table.rows.empty() && output.confusionLeftOut == 0) return html;
  return html + SideBySide({table.rows.empty() ? Html() : Draw(table), ConfusionMap(output)});
}

Html Agreement(const ReportOutput& output) {
  if (!output.agreement || output.agreement->items == 0) return {};
  const auto& agreement = *output.agreement;
  const auto items = static_cast<double>(agreement.items);
  const auto counted = [&](uint64_t count) {
    return PercentText(static_cast<double>(count) / items) + " (" + CountText(count) + ")";
  };
  if (agreement.items == 1 && agreement.tied1 + agreement.tied5 == 0) {
    return Paragraph(Text(agreement.top1 == 1   ? "The same class is first on both sides."
                          : agreement.top5 == 1 ? "Another class is first, and the expected one is "
                                                  "among the first five."
                                                : "Another class is first, and the expected one is "
                                                  "not among the first five."));
  }
  Html html = Paragraph(Text("Of " + CountedText(agreement.items, "item") + " " +
                             counted(agreement.top1) + " have the same class first, and " +
                             counted(agreement.top5) + " have it among the first five."));
  if (agreement.tied1 + agreement.tied5 == 0) return html;
  // Which of equal values stands first is chance.
  return html + Note(Text("Equal values count as a miss. If they stood in another order, " +
                          (agreement.tied1 > 0 ? CountText(agreement.tied1) +
                                                     " more could have the same class first" +
                                                     (agreement.tied5 > 0 ? ", and " : ".")
                                               : std::string()) +
                          (agreement.tied5 > 0 ? CountText(agreement.tied5) +
                                                     (agreement.tied1 > 0 ? " more have it"
                                                                          : " more could have it") +
                                                     " among the first five."
                                               : std::string())));
}

Html OutputCard(const RunOnPage& on, size_t place) {
  const ReportOutput& output = on.run.judgement->outputs[place];
  const std::string id = on.Id("output-" + std::to_string(place));
  Html content =
      Note(Text(output.type + (output.shape.empty() ? "" : ", ") + ShapeText(output.shape) + "; ") +
           RulesText(output));
  content += OddValues(output);
  content += Agreement(output);
  content += KindsTable(on, output);
  content += DifferencesChart(output, id + "-differences");
  content +=
      FaultTable(on, output.wrong, std::max<uint64_t>(output.wrongSamples, output.wrong.size()),
                 "Wrong samples", true);
  content += FaultTable(on, output.notJudged, output.notJudged.size(),
                        "Samples that could not be judged", false);
  content += Confusion(on, output);
  content += WorstElements(on, output);
  content += CensusTables(output);
  const bool isOpen = output.verdict != ReportVerdict::kRight || place == 0;
  std::vector<Attribute> attributes{{"class", "card"}};
  if (isOpen) attributes.push_back({"open", ""});
  return Element("div", {{"id", id}},
                 ElementOf("details", attributes,
                           Element("summary", VerdictPill(output.verdict) + Raw(" ") +
                                                  Element("strong", Name(output.name))) +
                               Element("div", {{"class", "inside"}}, content)));
}

Html AccuracyTable(const ReportJudgement& judgement) {
  if (judgement.accuracy.empty()) return {};
  Table table;
  table.caption = "Accuracy by labels";
  table.showsCaption = true;
  table.columns = {
      {"output"}, {"measure"}, {"actual", true}, {"expected", true}, {"difference", true}};
  for (const ReportAccuracy& accuracy : judgement.accuracy) {
    table.rows.push_back(
        {{NameCell(accuracy.output),
          TextCell(accuracy.metric),
          {Text(PercentText(accuracy.actual)), accuracy.actual},
          {Text(PercentText(accuracy.expected)), accuracy.expected},
          {Text(PercentagePointsText(accuracy.difference)), accuracy.difference}}});
  }
  return Draw(table);
}

Html FloorTable(const ReportJudgement& judgement) {
  if (!judgement.floor) return {};
  const ReportFloor& floor = *judgement.floor;
  Table table;
  table.caption = "Beside what " + floor.precision + " has to lose";
  table.showsCaption = true;
  table.columns = {{"output"},
                   {"answer"},
                   {"samples", true},
                   {"RMSE", true},
                   {"floor's RMSE", true},
                   {"times", true},
                   {"SNR dB", true},
                   {"floor's SNR dB", true}};
  for (const ReportFloor::Output& output : floor.outputs) {
    if (table.rows.size() == kMostVerdicts) break;
    table.rows.push_back(
        {{NameCell(output.name),
          TextCell(output.answer + (output.leftOut.empty() ? "" : ": " + output.leftOut)),
          CountCell(output.samples), MeasureCell(output.rmse), MeasureCell(output.floorRmse),
          MeasureCell(output.times), MeasureCell(output.snrDb), MeasureCell(output.floorSnrDb)},
         output.answer == "worse"});
  }
  Html html = Draw(table);
  if (floor.outputs.size() > table.rows.size()) {
    html += Note(Text("and " + CountText(floor.outputs.size() - table.rows.size()) +
                      " more in verdict.json"));
  }
  return html + Note(Text("Within is up to " + NumberText(floor.most) +
                          " times the floor's RMSE. The floor: ") +
                     Name(floor.path));
}

Html MissingTable(const ReportJudgement& judgement) {
  if (judgement.missingSamples == 0) return {};
  Table table;
  table.caption = "Samples that one side has not";
  table.columns = {{"sample", true}, {"missing on"}, {"why"}};
  for (const auto& missing : judgement.missing) {
    if (table.rows.size() == 200) break;
    table.rows.push_back({{CountCell(missing.sample), TextCell(missing.side),
                           TextCell(PrintableExcerpt(missing.reason))}});
  }
  Html html = Paragraph(Text(CountedText(judgement.missingSamples, "sample") +
                             " could not be compared, since one side has them not."));
  return table.rows.empty() ? html : html + Details(Text("Which these are"), Draw(table));
}

Html UndoneTable(const ReportRun& run) {
  if (run.undone.empty()) return {};
  Table table;
  table.caption = "Inferences that are not done";
  table.showsCaption = true;
  table.columns = {{"sample", true}, {"status"}, {"why"}, {"inputs"}};
  for (const ReportUndone& undone : run.undone) {
    Html inputs;
    for (const std::string& input : undone.inputs) {
      if (!inputs.IsEmpty()) inputs += Text(", ");
      inputs += Name(input);
    }
    table.rows.push_back({{CountCell(undone.sample),
                           TextCell(undone.status),
                           TextCell(PrintableExcerpt(undone.reason)),
                           {inputs, {}}},
                          true});
  }
  table.isFilterable = table.rows.size() > 10;
  return Draw(table);
}

// ---- Inside -------------------------------------------------------------------------------------

ChartSeries SeriesInside(const ReportInside& inside, bool isFloor) {
  ChartSeries series;
  series.name = isFloor ? "floor" : "signal to noise";
  series.ink = isFloor ? Ink::kSecond : Ink::kFirst;
  for (size_t i = 0; i < inside.tensors.size(); ++i) {
    series.x.push_back(static_cast<double>(i));
    series.y.push_back(isFloor ? inside.tensors[i].floorSnrDb.value_or(NAN)
                               : inside.tensors[i].snrDb);
  }
  return series;
}

Html InsideChart(const RunOnPage& on, const ReportInside& inside) {
  if (inside.tensors.size() < 2) return {};
  Chart chart;
  chart.id = on.Id("inside-growth");
  chart.title = "Signal to noise along the graph";
  chart.description =
      "Each inner tensor in the order of the graph, from the inputs to the outputs: how far the "
      "difference lies below the signal. A fall is where a difference comes in.";
  chart.x = {.label = "tensor, in the order of the graph", .quantity = Quantity::kCount};
  chart.y = {.label = "SNR in dB; up is better"};
  chart.series.push_back(SeriesInside(inside, false));
  const bool hasFloor =
      std::any_of(inside.tensors.begin(), inside.tensors.end(),
                  [](const auto& tensor) { return tensor.floorSnrDb.has_value(); });
  if (hasFloor) chart.series.push_back(SeriesInside(inside, true));
  if (std::any_of(inside.tensors.begin(), inside.tensors.end(),
                  [](const auto& tensor) { return std::isinf(tensor.snrDb); })) {
    chart.description += " Tensors that are equal have no place here.";
  }
  chart.hasTable = false;  // the table of tensors is beneath it
  if (inside.begin) {
    chart.levels.push_back(
        {.at = static_cast<double>(*inside.begin), .text = "wrong from here", .isOnX = true});
  }
  if (inside.largestStep && inside.largestStep != inside.begin) {
    chart.levels.push_back(
        {.at = static_cast<double>(*inside.largestStep), .text = "largest fall", .isOnX = true});
  }
  return Draw(chart);
}

Html InsideTable(const ReportInside& inside) {
  Table table;
  table.caption = "Inner tensors in the order of the graph";
  table.isFilterable = true;
  table.columns = {
      {"#", true},       {"tensor"},       {"verdict"}, {"SNR dB", true}, {"relative RMSE", true},
      {"max abs", true}, {"outside", true}};
  const bool hasFloor = std::any_of(inside.tensors.begin(), inside.tensors.end(),
                                    [](const auto& tensor) { return !tensor.floor.empty(); });
  if (hasFloor) {
    table.columns.push_back({"floor"});
    table.columns.push_back({"times floor", true});
  }
  for (size_t i = 0; i < inside.tensors.size(); ++i) {
    const ReportInside::Tensor& tensor = inside.tensors[i];
    Html verdict = VerdictPill(tensor.verdict);
    if (inside.begin == i) verdict += Text(" begins here");
    if (inside.largestStep == i) {
      verdict += Text(inside.begin == i ? ", with the largest fall" : " the largest fall");
    }
    std::vector<Cell> cells{CountCell(i),
                            NameCell(tensor.name),
                            {verdict, {}},
                            MeasureCell(tensor.snrDb),
                            MeasureCell(tensor.relativeRmse),
                            MeasureCell(tensor.maxAbs),
                            {Text(PercentText(tensor.outsideShare)), tensor.outsideShare}};
    if (hasFloor) {
      cells.push_back(TextCell(tensor.floor));
      cells.push_back(tensor.timesFloor ? MeasureCell(*tensor.timesFloor) : Cell{});
    }
    table.rows.push_back({std::move(cells), tensor.verdict == ReportVerdict::kWrong});
  }
  return Details(Text("All " + CountText(inside.tensors.size()) + " tensors"), Draw(table),
                 inside.tensors.size() <= 30);
}

Html InsideWords(const ReportInside& inside) {
  Html html;
  if (inside.begin) {
    html += Paragraph(Text("The first inner tensor that is ") +
                      Text(inside.decidedBy == "floor" ? "worse than its floor is " : "wrong is ") +
                      Name(inside.tensors.at(*inside.begin).name) + Text("."));
  } else {
    html += Paragraph(Text("No inner tensor is wrong by itself."));
  }
  if (inside.largestStep) {
    html += Paragraph(
        Text("Signal to noise falls most at ") + Name(inside.tensors.at(*inside.largestStep).name) +
        (inside.largestStepBehind.empty() ? Html()
                                          : Text(", behind ") + Name(inside.largestStepBehind)) +
        Text(inside.largestStepFallDb ? ": by " + NumberText(*inside.largestStepFallDb) + " dB."
                                      : "."));
  }
  if (inside.leftOut > 0) {
    html += Note(Text(CountedText(inside.leftOut, "tensor") + " between these, all right, " +
                      (inside.leftOut == 1 ? "is" : "are") + " left out."));
  }
  if (!inside.order.empty()) html += Note(Text("The order is " + inside.order + "."));
  return html;
}

}  // namespace

Html OutputsPart(const RunOnPage& on) {
  const ReportRun& run = on.run;
  if (!run.judgement) return UndoneTable(run);
  const ReportJudgement& judgement = *run.judgement;
  Html html = Paragraph(Text("Of ") + Name(judgement.actual) +
                        Text(" against what is expected by ") + Name(judgement.expected) +
                        Text(": " + CountedText(judgement.samples, "sample") + " on both sides."));
  html += VerdictTable(on);
  html += AccuracyTable(judgement);
  html += FloorTable(judgement);
  html += Sentences(judgement.preparation);
  html += Sentences(judgement.remarks);
  html += Sentences(judgement.unfinished);
  html += MissingTable(judgement);
  html += UndoneTable(run);
  for (const size_t i : ShownOutputs(judgement, kMostCards)) html += OutputCard(on, i);
  return html;
}

Html SamplesPart(const RunOnPage& on) {
  if (!on.run.judgement) return {};
  const auto& outputs = on.run.judgement->outputs;
  const size_t most = kMostRowsOnPage / std::max<size_t>(CardCount(on), 1);
  Html html;
  for (const size_t i : ShownOutputs(*on.run.judgement, kMostCards)) {
    const std::string id = on.Id("output-" + std::to_string(i) + "-samples");
    const Html table = SamplesTable(on, outputs[i], id, most);
    if (table.IsEmpty()) continue;
    const Html title = Text("Each sample of ") + Name(outputs[i].name);
    html += Element("details", {{"class", "card"}},
                    Element("summary", title) + Element("div", {{"class", "inside"}}, table));
  }
  return html;
}

Html InsidePart(const RunOnPage& on) {
  if (!on.run.judgement || !on.run.judgement->inside) return {};
  const ReportInside& inside = *on.run.judgement->inside;
  return InsideWords(inside) + InsideChart(on, inside) + InsideTable(inside) +
         Sentences(inside.unpaired);
}

}  // namespace vorn::kit
