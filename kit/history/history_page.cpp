#include "kit/history/history_page.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <map>
#include <set>
#include <utility>

#include "kit/common/file_place.h"
#include "kit/common/printable.h"
#include "kit/history/moment.h"
#include "kit/page/chart.h"
#include "kit/page/page.h"
#include "kit/page/table.h"
#include "kit/run/run_directory.h"
#include "kit/timing/statistics.h"

namespace vorn::kit {
namespace {

constexpr size_t kMostDetailed = 24;  // series at length
constexpr size_t kMostChangesTold = 500;
constexpr size_t kMostChangesOfSeries = 100;
constexpr size_t kMostRunsTold = 30;  // of a series at length
constexpr size_t kManySeries = 200;   // from here on the small pictures are coarser
constexpr size_t kFineValues = 120;
constexpr size_t kCoarseValues = 40;

std::string IdOf(const SeriesHistory& series) { return "series-" + series.name; }

bool StandsWorse(const HistoryChange& change) {
  return change.isLast && change.isWorse && !change.isByHand;
}

bool StandsBetter(const HistoryChange& change) {
  return change.isLast && !change.isWorse && !change.isByHand;
}

// How far a series is off, to put the worst first: outputs before times.
double BadnessOf(const HistoryChange& change) {
  if (change.figure == nullptr || change.figure->kind != FigureKind::kTime) {
    return std::numeric_limits<double>::infinity();
  }
  const auto& levels = change.figure->levels;
  return levels[change.level].median / levels[change.level - 1].median;
}

// A series with what the page tells of it.
struct Told {
  const SeriesHistory* series = nullptr;
  std::vector<ToldChange> changes;  // of many the latest
  size_t changesInAll = 0;
  double badness = 0;
  bool isWorse = false;
  bool isBetter = false;
};

std::vector<Told> TellAll(const HistoryPageRequest& request) {
  std::vector<Told> all;
  for (const SeriesHistory& series : request.all) {
    Told one{.series = &series, .changes = {}};
    for (const HistoryChange& change : ChangesOf(series)) {
      if (series.runs[change.after].startRealtimeNs < request.sinceNs) continue;
      ++one.changesInAll;
      if (StandsWorse(change)) {
        one.isWorse = true;
        one.badness = std::max(one.badness, BadnessOf(change));
      }
      one.isBetter = one.isBetter || StandsBetter(change);
    }
    all.push_back(std::move(one));
  }
  std::stable_sort(all.begin(), all.end(), [](const Told& one, const Told& other) {
    return std::make_tuple(!one.isWorse, -one.badness, one.changesInAll == 0) <
           std::make_tuple(!other.isWorse, -other.badness, other.changesInAll == 0);
  });
  // The worst first: where there are more than a page holds, these are told.
  size_t told = 0;
  for (Told& one : all) {
    if (told >= kMostChangesTold) break;
    one.changes = TellChanges(*one.series, request.sinceNs, request.find, kMostChangesOfSeries);
    told += one.changes.size();
  }
  return all;
}

// ---- Links --------------------------------------------------------------------------------------

class RunLinks {
 public:
  /// In a page that will lie in this folder.
  explicit RunLinks(std::string folder) : folder_(std::move(folder)) {}

  // The run's own report where there is one, else its folder; neither where another run lies by
  // now. A report may be all that was kept of a run.
  Html To(const RunEntry& run, const Html& content) const {
    const bool isThere = IsThere(run.path + "/" + kRunFile);
    if (isThere && !IsOfRun(run)) return content;
    if (IsThere(run.path + "/report.html")) return ToPath(run.path + "/report.html", content);
    return isThere ? ToPath(run.path, content) : content;
  }

 private:
  // Each is asked for in several tables, and where a folder is used again by many runs.
  bool IsOfRun(const RunEntry& run) const {
    const auto [place, isNew] = isOfRun_.emplace(std::pair(run.path, run.identity), false);
    if (isNew) place->second = HoldsRun(run.path, run.identity);
    return place->second;
  }

  Html ToPath(const std::string& path, const Html& content) const {
    return LinkToFile(std::filesystem::path(path).lexically_relative(folder_).string(), content);
  }

  std::string folder_;
  mutable std::map<std::pair<std::string, std::string>, bool> isOfRun_;
};

Html RunText(const RunEntry& run, const RunLinks& links) {
  return links.To(run, Text("run " + std::to_string(run.id))) +
         Text(", " + MomentText(run.startRealtimeNs));
}

// ---- Tables of changes --------------------------------------------------------------------------

Html DifferencesHtml(const ToldChange& told) {
  Html list;
  if (told.change.isByHand) {
    list += Element("li", Text("a new level, set by hand: " +
                               (told.after.level ? told.after.level->reason : "")));
  }
  for (const RunDifference& difference : told.differences) {
    list += Element("li", Text(TextOf(difference)));
  }
  if (list.IsEmpty()) return Text("nothing that a run notes");
  return Element("ul", list);
}

Html ChangesTable(const std::string& caption, const std::vector<Told>& all, const RunLinks& links,
                  bool (*isMeant)(const HistoryChange&)) {
  Table table;
  table.caption = caption;
  table.columns = {{"when"},
                   {"series"},
                   {"what"},
                   {"the last before"},
                   {"the first since"},
                   {"what differs between them"}};
  table.isFilterable = true;
  for (const Told& told : all) {
    for (const ToldChange& change : told.changes) {
      if (!isMeant(change.change)) continue;
      Table::Row row;
      row.isBad = StandsWorse(change.change);
      row.cells = {TextCell(MomentText(change.after.startRealtimeNs)),
                   {LinkTo(IdOf(*told.series), Name(told.series->text)), std::nullopt},
                   TextCell(TextOf(change.change)),
                   {RunText(change.before, links), static_cast<double>(change.before.id)},
                   {RunText(change.after, links), static_cast<double>(change.after.id)},
                   {DifferencesHtml(change), std::nullopt}};
      table.rows.push_back(std::move(row));
    }
  }
  return table.rows.empty() ? Html() : Draw(table);
}

Html SuspicionsHtml(const std::vector<Told>& all) {
  Html list;
  for (const Told& told : all) {
    for (const FigureHistory& figure : told.series->figures) {
      if (!figure.suspicion) continue;
      list += Element("li", LinkTo(IdOf(*told.series), Name(told.series->text)) +
                                Text(": " + SuspicionText(figure)));
    }
  }
  return list.IsEmpty() ? Html() : Element("ul", list);
}

// ---- Small multiples ----------------------------------------------------------------------------

Sparkline SmallPicture(const FigureHistory& figure, const std::string& title, size_t most) {
  Sparkline line;
  line.title = title;
  const size_t count = figure.values.size();
  const size_t stretches = std::min(count, most);
  for (size_t i = 0; i < stretches; ++i) {
    const size_t from = i * count / stretches;
    const size_t to = (i + 1) * count / stretches;
    line.values.push_back(Median(std::span(figure.values).subspan(from, to - from)));
  }
  std::set<size_t> marks;
  for (size_t level = 1; level < figure.levels.size(); ++level) {
    marks.insert(figure.levels[level].first * stretches / count);
  }
  line.marks.assign(marks.begin(), marks.end());
  if (figure.levels.size() > 1) {
    const FigureLevel& last = figure.levels.back();
    const FigureLevel& before = figure.levels[figure.levels.size() - 2];
    const bool isWorse = IsWorse(figure.kind, before.median, last.median);
    if (!last.isByHand) line.ink = isWorse ? Ink::kBad : Ink::kGood;
  }
  return line;
}

std::string ValueText(const FigureHistory& figure, double value) {
  return figure.kind == FigureKind::kTime ? TimeText(value) : NumberText(value);
}

std::string FigureName(const FigureHistory& figure) {
  return (figure.output.empty() ? "" : NameExcerpt(figure.output) + ", ") + figure.metric;
}

// The time, and the figures that have stepped; where there is no time the first of all.
std::vector<const FigureHistory*> TellingFigures(const SeriesHistory& series) {
  std::vector<const FigureHistory*> telling;
  for (const FigureHistory& figure : series.figures) {
    if (figure.kind == FigureKind::kTime || figure.levels.size() > 1) telling.push_back(&figure);
  }
  if (telling.empty() && !series.figures.empty()) telling.push_back(&series.figures[0]);
  constexpr size_t kMost = 4;
  if (telling.size() > kMost) telling.resize(kMost);
  return telling;
}

Html StandingPill(const Told& told) {
  if (told.isWorse) return Pill(Tone::kBad, "worse");
  if (told.isBetter) return Pill(Tone::kGood, "better");
  return Pill(Tone::kOpen, "level");
}

Html SmallMultiples(const std::vector<Told>& all, const HistoryPageRequest& request,
                    const RunLinks& links, size_t detailed) {
  Table table;
  table.caption = "All series: a small picture each, upright lines where a level begins";
  table.columns = {{"series"}, {"stands"},     {"over its runs"},
                   {"now"},    {"runs", true}, {"last run"}};
  table.isFilterable = true;
  const size_t most = all.size() > kManySeries ? kCoarseValues : kFineValues;
  for (size_t i = 0; i < all.size(); ++i) {
    const Told& told = all[i];
    const SeriesHistory& series = *told.series;
    Html pictures;
    Html values;
    for (const FigureHistory* figure : TellingFigures(series)) {
      const std::string now = ValueText(*figure, figure->levels.back().median);
      pictures +=
          Element("div", Draw(SmallPicture(*figure, FigureName(*figure) + ", now " + now, most)));
      values += Element("div", Text(FigureName(*figure) + " " + now));
    }
    const RunEntry last = request.find(series.runs.back().id);
    const Html name = Name(series.text);
    Table::Row row;
    row.isBad = told.isWorse;
    row.cells = {
        {i < detailed ? LinkTo(IdOf(series), name) : Element("span", {{"id", IdOf(series)}}, name),
         std::nullopt},
        {StandingPill(told), told.isWorse ? told.badness : (told.isBetter ? -1 : 0)},
        {pictures, std::nullopt},
        {values, std::nullopt},
        CountCell(series.runs.size()),
        {RunText(last, links), static_cast<double>(last.startRealtimeNs)}};
    table.rows.push_back(std::move(row));
  }
  return Draw(table);
}

// ---- A series at length -------------------------------------------------------------------------

Chart ChartOf(const SeriesHistory& series, const FigureHistory& figure, size_t number) {
  const bool isTime = figure.kind == FigureKind::kTime;
  Chart chart;
  chart.id = IdOf(series) + "-" + std::to_string(number);
  chart.title = isTime ? "Median time of an execution" : FigureName(figure);
  chart.description =
      "A dot a run, in the order in which they began; the line is the middle of each "
      "level.";
  chart.x.label = "run of the series";
  chart.x.quantity = Quantity::kCount;
  chart.y.label = isTime ? "time" : figure.metric;
  chart.y.quantity = isTime ? Quantity::kNanoseconds : Quantity::kNumber;
  ChartSeries runs{.name = "runs", .x = {}, .y = figure.values, .style = ChartSeries::Style::kDots};
  for (const size_t run : figure.runs) runs.x.push_back(static_cast<double>(run + 1));
  ChartSeries levels{
      .name = "level", .x = {}, .y = {}, .style = ChartSeries::Style::kSteps, .ink = Ink::kSecond};
  for (const FigureLevel& level : figure.levels) {
    levels.x.push_back(static_cast<double>(figure.runs[level.first] + 1));
    levels.y.push_back(level.median);
  }
  levels.x.push_back(static_cast<double>(figure.runs.back() + 1));
  levels.y.push_back(figure.levels.back().median);
  chart.series = {std::move(runs), std::move(levels)};
  return chart;
}

Html LatestRuns(const SeriesHistory& series, const HistoryPageRequest& request,
                const RunLinks& links) {
  Table table;
  table.caption = "The latest runs of the series";
  table.columns = {{"run", true},    {"started"}, {"outcome"}, {"done", true},
                   {"median", true}, {"runtime"}, {"folder"}};
  const size_t count = std::min(series.runs.size(), kMostRunsTold);
  for (size_t i = series.runs.size(); i-- > series.runs.size() - count;) {
    const RunEntry run = request.find(series.runs[i].id);
    constexpr size_t kDigits = 8;
    const std::string outcome = run.state != "done"   ? run.state
                                : run.verdict.empty() ? "done"
                                                      : run.verdict;
    Table::Row row;
    row.isBad = outcome == "failed" || outcome == "wrong";
    row.cells = {{links.To(run, Text(std::to_string(run.id))), static_cast<double>(run.id)},
                 TextCell(MomentText(run.startRealtimeNs)),
                 TextCell(outcome),
                 TextCell(std::to_string(run.done) + "/" + std::to_string(run.inferences)),
                 run.medianNs ? TimeCell(*run.medianNs) : TextCell("-"),
                 TextCell(run.runtimeXxh3.substr(0, kDigits)),
                 NameCell(run.path)};
    table.rows.push_back(std::move(row));
  }
  return Details(
      Text("The latest " + Counted(count, "run") + " of " + CountText(series.runs.size())),
      Draw(table));
}

Html AtLength(const Told& told, const HistoryPageRequest& request, const RunLinks& links) {
  const SeriesHistory& series = *told.series;
  Html content = Element("h3", {{"id", IdOf(series)}}, Name(series.text));
  size_t number = 0;
  for (const FigureHistory* figure : TellingFigures(series)) {
    content += Draw(ChartOf(series, *figure, number++));
  }
  const std::vector<Told> own{told};
  content +=
      ChangesTable("Changes of the series", own, links, [](const HistoryChange&) { return true; });
  if (told.changes.size() < told.changesInAll) {
    content += Note(Text("The other " + CountText(told.changesInAll - told.changes.size()) +
                         " changes of the series are told by vorn history changes --series " +
                         series.name + "."));
  }
  return content + LatestRuns(series, request, links);
}

size_t RunsOf(std::span<const SeriesHistory> all) {
  size_t runs = 0;
  for (const SeriesHistory& series : all) runs += series.runs.size();
  return runs;
}

Html TilesOf(const HistoryPageRequest& request, const std::vector<Told>& all) {
  uint64_t first = std::numeric_limits<uint64_t>::max();
  uint64_t last = 0;
  for (const SeriesHistory& series : request.all) {
    first = std::min(first, series.runs.front().startRealtimeNs);
    last = std::max(last, series.runs.back().startRealtimeNs);
  }
  const auto worse = static_cast<uint64_t>(
      std::count_if(all.begin(), all.end(), [](const Told& told) { return told.isWorse; }));
  const auto better = static_cast<uint64_t>(std::count_if(
      all.begin(), all.end(), [](const Told& told) { return told.isBetter && !told.isWorse; }));
  return Tiles({{.title = "worse",
                 .value = CountText(worse),
                 .more = "series",
                 .tone = worse > 0 ? Tone::kBad : Tone::kGood,
                 .isToned = true},
                {.title = "better", .value = CountText(better), .more = "series"},
                {.title = "series", .value = CountText(request.all.size()), .more = ""},
                {.title = "runs",
                 .value = CountText(RunsOf(request.all)),
                 .more = last == 0 ? "" : MomentText(first) + " to " + MomentText(last)}});
}

Tone ToneOf(ExitStatus status) {
  if (status == ExitStatus::kDone) return Tone::kGood;
  return status == ExitStatus::kDiffers || status == ExitStatus::kSlower ? Tone::kBad : Tone::kOpen;
}

const char* PillText(ExitStatus status) {
  switch (status) {
    case ExitStatus::kDiffers:
      return "WORSE";
    case ExitStatus::kSlower:
      return "SLOWER";
    case ExitStatus::kDone:
      return "STEADY";
    default:
      return "CANNOT TELL";
  }
}

}  // namespace

std::string HistoryAnswer(std::span<const SeriesHistory> all, uint64_t sinceNs) {
  size_t worse = 0;
  double badness = -1;
  std::string worst;
  for (const SeriesHistory& series : all) {
    bool isWorse = false;
    for (const HistoryChange& change : ChangesOf(series)) {
      const uint64_t start = series.runs[change.after].startRealtimeNs;
      if (!StandsWorse(change) || start < sinceNs) continue;
      isWorse = true;
      if (BadnessOf(change) <= badness) continue;
      badness = BadnessOf(change);
      worst = series.text + " since " + MomentText(start) + " (" + TextOf(change) + ")";
    }
    worse += isWorse ? 1 : 0;
  }
  const std::string of =
      "of " + CountText(all.size()) + " series with " + Counted(RunsOf(all), "run");
  switch (StatusOf(all, sinceNs)) {
    case ExitStatus::kNothing:
      return "No run was timed or judged, " + of + ".";
    case ExitStatus::kCannotTell:
      return "No series has the runs that a step needs, " + of + ".";
    default:
      break;
  }
  if (worse == 0) return "Nothing stands worse than before, " + of + ".";
  return CountText(worse) + " " + of + (worse == 1 ? " stands" : " stand") +
         " worse than before; the worst: " + worst + ".";
}

std::string HistoryPage(const HistoryPageRequest& request) {
  const std::vector<Told> all = TellAll(request);
  const ExitStatus status = StatusOf(request.all, request.sinceNs);
  const auto changed = static_cast<size_t>(std::count_if(
      all.begin(), all.end(), [](const Told& told) { return !told.changes.empty(); }));
  // Those with changes come first. A history of few is told at length as it is.
  const size_t detailed =
      std::min(std::max(changed, std::min<size_t>(all.size(), 6)), kMostDetailed);
  const size_t shown = std::min(detailed, all.size());
  const RunLinks links(request.folder);
  Html atLength;
  for (size_t i = 0; i < shown; ++i) atLength += AtLength(all[i], request, links);
  if (shown < all.size()) {
    atLength += Note(Text("The other " + CountText(all.size() - shown) +
                          " series are in the table of all; vorn history changes tells the rest."));
  }
  Page page;
  page.title = "vorn history";
  page.tone = ToneOf(status);
  page.verdict = PillText(status);
  page.answer = HistoryAnswer(request.all, request.sinceNs);
  page.head = TilesOf(request, all);
  page.sections = {
      {"worse", "What got worse", ChangesTable("Stands worse now", all, links, StandsWorse)},
      {"better", "What got better", ChangesTable("Stands better now", all, links, StandsBetter)},
      {"perhaps", "Too early to tell", SuspicionsHtml(all)},
      {"all", "All series", all.empty() ? Html() : SmallMultiples(all, request, links, shown)},
      {"length", "Series at length", atLength},
  };
  page.foot = Paragraph(Text("Made by vorn history report of " + request.ledger + ", " +
                             MomentText(request.nowNs) +
                             " UTC. Steps are told by ranks over "
                             "the medians of runs: by chance about once in 200 runs, before those "
                             "that are too small to count are left out."));
  return PageText(page);
}

}  // namespace vorn::kit
