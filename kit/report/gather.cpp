#include "kit/report/gather.h"

#include <algorithm>
#include <map>
#include <string_view>
#include <utility>

#include "kit/common/fault.h"
#include "kit/common/file_place.h"
#include "kit/common/printable.h"
#include "kit/report/answer.h"
#include "kit/report/compare.h"
#include "kit/report/run_facts.h"

namespace vorn::kit {
namespace {

// The last parts of the paths, as few as tell them apart.
std::vector<std::string> ShortNames(const std::vector<ReportRun>& runs) {
  std::vector<std::string> paths;
  for (const ReportRun& run : runs) {
    std::string path = run.path;
    while (path.size() > 1 && path.ends_with('/')) path.pop_back();
    paths.push_back(path);
  }
  const auto ending = [](const std::string& path, size_t parts) {
    size_t at = path.size();
    for (size_t part = 0; part < parts && at != 0 && at != std::string::npos; ++part) {
      at = path.rfind('/', at - 1);
    }
    return at == std::string::npos || at == 0 ? path : path.substr(at + 1);
  };
  constexpr size_t kMostParts = 20;
  std::vector<std::string> names = paths;
  for (size_t parts = 1; parts < kMostParts; ++parts) {
    std::map<std::string, size_t> counts;
    for (size_t i = 0; i < paths.size(); ++i) {
      names[i] = ending(paths[i], parts);
      ++counts[names[i]];
    }
    if (counts.size() == paths.size()) break;
  }
  // The same run twice.
  std::map<std::string, size_t> seen;
  for (std::string& name : names) {
    const size_t number = ++seen[name];
    if (number > 1) name += " (" + std::to_string(number) + ")";
  }
  return names;
}

// "digits.onnx, build/demo.run": many a folder is called "run".
std::string TitleOf(const ReportRun& run) {
  std::string path = Absolute(run.path);
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  const std::string folder = WithFolderAbove(path);
  const std::string& model = run.facts.model.path;
  return model.empty() ? folder : model.substr(model.rfind('/') + 1) + ", " + folder;
}

std::string TitleOf(const std::vector<ReportRun>& runs) {
  constexpr size_t kMostNamed = 3;
  if (runs.size() == 1) return TitleOf(runs.front());
  std::string title;
  for (size_t i = 0; i < std::min(runs.size(), kMostNamed); ++i) {
    title += (i == 0 ? "" : ", ") + runs[i].name;
  }
  if (runs.size() > kMostNamed)
    title += ", and " + std::to_string(runs.size() - kMostNamed) + " more";
  return title;
}

// Of two runs that of their comparison; of more the worst of all, and the others below it.
ReportAnswer AnswerOfAll(const ReportFacts& facts) {
  if (facts.comparisons.empty()) return facts.runs.front().answer;
  const auto worst = std::min_element(
      facts.comparisons.begin(), facts.comparisons.end(), [](const auto& one, const auto& other) {
        const auto rank = [](ReportTone tone) {
          return tone == ReportTone::kBad ? 0 : tone == ReportTone::kOpen ? 1 : 2;
        };
        return rank(one.answer.tone) < rank(other.answer.tone);
      });
  ReportAnswer answer = worst->answer;
  for (const ReportComparison& comparison : facts.comparisons) {
    if (&comparison != &*worst) answer.more.push_back(comparison.answer.sentence);
  }
  for (const ReportRun& run : facts.runs) {
    answer.more.push_back(InQuotes(run.name) + ": " + run.answer.sentence);
  }
  return answer;
}

}  // namespace

ReportFacts GatherReport(const ReportRequest& request) {
  ReportFacts facts;
  facts.version = request.version;
  facts.madeRealtimeNs = request.nowRealtimeNs;
  std::vector<RunPlace> places;
  for (const std::string& path : request.runs) {
    for (RunPlace& place : FindRuns(path)) places.push_back(std::move(place));
  }
  for (const RunPlace& place : places) facts.runs.push_back(GatherRun(place, request.samples));
  const std::vector<std::string> names = ShortNames(facts.runs);
  for (size_t i = 0; i < names.size(); ++i) facts.runs[i].name = names[i];
  facts.title = request.title.empty() ? TitleOf(facts.runs) : request.title;
  if (places.size() > 1) facts.comparisons = CompareRuns(places, facts.runs);
  facts.answer = AnswerOfAll(facts);
  return facts;
}

}  // namespace vorn::kit
