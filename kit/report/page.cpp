#include "kit/report/page.h"

#include <array>
#include <ctime>
#include <utility>

#include "kit/page/number_text.h"
#include "kit/report/page_parts.h"

namespace vorn::kit {
namespace {

struct Part {
  const char* id;
  const char* title;
  Html (*make)(const RunOnPage&);
};

constexpr std::array<Part, 11> kParts{{
    {"outputs", "Outputs", OutputsPart},
    {"worst", "Worst samples", DetailsPart},
    {"samples", "All samples", SamplesPart},
    {"inside", "Inside the network", InsidePart},
    {"boards", "Boards", BoardsPart},
    {"times", "Times", TimesPart},
    {"over-time", "Over the run", MachineOverTimePart},
    {"calls", "Calls", CallsPart},
    {"findings", "Findings", FindingsPart},
    {"machine", "Machine", MachinePart},
    {"commands", "Commands", CommandsPart},
}};

std::vector<PageSection> SectionsOf(const ReportRun& run) {
  std::vector<PageSection> sections;
  for (const Part& part : kParts) {
    sections.push_back({part.id, part.title, part.make({run, ""})});
  }
  return sections;
}

// One of several: its parts behind folds, the whole a section.
PageSection SectionOfRun(const ReportRun& run, size_t number) {
  const RunOnPage on{run, "run-" + std::to_string(number) + "-"};
  Html content = Paragraph(Pill(ToneOf(run.answer.tone), run.answer.verdict) + Raw(" ") +
                           Text(run.answer.sentence)) +
                 Sentences(run.answer.more) + Tiles(RunTiles(run));
  for (const Part& part : kParts) {
    const Html made = part.make(on);
    if (made.IsEmpty()) continue;
    content += Element("details", {{"class", "card"}, {"id", on.Id(part.id)}},
                       Element("summary", Element("strong", Text(part.title))) +
                           Element("div", {{"class", "inside"}}, made));
  }
  return {"run-" + std::to_string(number),
          "Run " + std::to_string(number) + ": " + NameExcerpt(run.name, 40), content};
}

bool HasTimeline(const ReportFacts& facts) {
  for (const ReportRun& run : facts.runs) {
    if (run.trace && !run.trace->spans.empty()) return true;
  }
  return false;
}

}  // namespace

std::string DayAndTime(uint64_t realtimeNs) {
  const auto seconds = static_cast<time_t>(realtimeNs / 1'000'000'000);
  std::tm moment{};
  if (gmtime_r(&seconds, &moment) == nullptr) return {};
  std::array<char, 40> text{};
  // Digits alone, so that no locale has a say.
  std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S UTC", &moment);
  return text.data();
}

Tone ToneOf(ReportTone tone) {
  switch (tone) {
    case ReportTone::kGood:
      return Tone::kGood;
    case ReportTone::kBad:
      return Tone::kBad;
    case ReportTone::kOpen:
      return Tone::kOpen;
  }
  return Tone::kOpen;
}

Html VerdictPill(ReportVerdict verdict) {
  switch (verdict) {
    case ReportVerdict::kRight:
      return Pill(Tone::kGood, "right");
    case ReportVerdict::kWrong:
      return Pill(Tone::kBad, "WRONG");
    case ReportVerdict::kNotJudged:
      return Pill(Tone::kOpen, "not judged");
  }
  return {};
}

Html Sentences(const std::vector<std::string>& sentences) {
  Html items;
  for (const std::string& sentence : sentences) {
    items += Element("li", Text(NameExcerpt(sentence, 1000)));
  }
  return items.IsEmpty() ? items : Element("ul", {{"class", "plain"}}, items);
}

std::string ReportPage(const ReportFacts& facts) {
  Page page;
  page.title = facts.title;
  page.tone = ToneOf(facts.answer.tone);
  page.verdict = facts.answer.verdict;
  page.answer = facts.answer.sentence;
  page.head = Sentences(facts.answer.more);
  if (facts.runs.size() == 1) {
    page.head += Tiles(RunTiles(facts.runs[0]));
    page.sections = SectionsOf(facts.runs[0]);
  } else {
    if (const std::vector<Tile> tiles = ComparisonTiles(facts); !tiles.empty()) {
      page.head += Tiles(tiles);
    }
    page.sections.push_back({"comparison", "Side by side", ComparisonPart(facts)});
    for (size_t i = 0; i < facts.runs.size(); ++i) {
      page.sections.push_back(SectionOfRun(facts.runs[i], i + 1));
    }
  }
  page.foot = Paragraph(Text("Made by vorn report " + facts.version + ", " +
                             DayAndTime(facts.madeRealtimeNs) +
                             ". One file: it fetches nothing and sends nothing."));
  page.hasTimeline = HasTimeline(facts);
  return PageText(page);
}

}  // namespace vorn::kit
