// write_pages FOLDER: the pages that scripts/browser_tests.sh opens.
#include <cmath>
#include <iostream>

#include "kit/history/history_page.h"
#include "kit/history/made_run.h"
#include "kit/report/made_report.h"
#include "kit/report/page.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

/// Three boards of fifty runs each, of which one became slower and one faster.
std::string MadeHistory() {
  std::vector<RunEntry> runs;
  std::vector<SeriesHistory> all;
  const std::vector<std::pair<std::string, double>> boards{
      {"board-6", 1.0}, {"board-7", 1.3}, {"board-8", 0.8}};
  for (const auto& [board, factor] : boards) {
    RunSeriesPoints points;
    points.key = {"digits.onnx", board, ""};
    for (unsigned i = 0; i < 50; ++i) {
      const double wave = 1 + 0.01 * std::sin(2.4 * i);
      RunEntry run = support::MadeEntry(i + 1, 8.1e6 * wave * (i < 30 ? 1 : factor));
      run.id = static_cast<int64_t>(runs.size() + 1);
      run.path = "/data/runs/" + std::to_string(run.id);
      RunPoint point;
      point.id = run.id;
      point.startRealtimeNs = run.startRealtimeNs;
      point.medianNs = 8.1e6 * wave * (i < 30 ? 1 : factor);
      points.runs.push_back(point);
      runs.push_back(std::move(run));
    }
    all.push_back(HistoryOf(std::move(points), KeyPartsOf("model,board"), {}));
  }
  return HistoryPage({.all = all,
                      .find = [&](int64_t id) { return runs[static_cast<size_t>(id - 1)]; },
                      .sinceNs = 0,
                      .ledger = "/data/history.sqlite",
                      .folder = "/data",
                      .nowNs = support::kNovemberNs});
}

/// Samples whose figures have every form that a number takes on a page.
ReportFacts MadeNumbers() {
  ReportFacts facts = MadeWrongRun();
  ReportColumns& columns = facts.runs[0].judgement->outputs[0].columns;
  constexpr double kRmse[] = {12345678, 12345.6,    1.23412e-05, 0.000123456, NAN,
                              INFINITY, 0.12345678, 1e-300,      3,           123456};
  for (size_t i = 0; i < std::size(kRmse); ++i) {
    columns.isWrong[i] = 1;
    columns.rmse[i] = columns.maxAbs[i] = kRmse[i];
    columns.cosine[i] = i == 4 ? NAN : 0.123456789 * static_cast<double>(i);
    columns.outside[i] = 12345 * i;
  }
  columns.sample[9] = 12345;
  return facts;
}

}  // namespace
}  // namespace vorn::kit

int main(int argc, char** argv) {
  using namespace vorn::kit;
  if (argc != 2) {
    std::cerr << "write_pages FOLDER\n";
    return 2;
  }
  const std::filesystem::path folder = argv[1];
  const std::string hostile =
      "</script><script>window.broken=1</script><img src=x "
      "onerror=window.broken=1>\"'\xE2\x80\xAE\n";
  const auto write = [&](const char* name, const ReportFacts& facts) {
    support::WriteFile(folder / (std::string(name) + ".html"), ReportPage(facts));
  };
  write("wrong", MadeWrongRun());
  write("right", MadeRightRun());
  write("numbers", MadeNumbers());
  write("comparison", MadeComparison());
  write("fleet", MadeFleet());
  write("hostile", MadeOfName(hostile));
  support::WriteFile(folder / "history.html", MadeHistory());
  write("large", MadeLargeRun(10000));
  return 0;
}
