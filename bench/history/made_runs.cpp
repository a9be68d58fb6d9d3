#include "history/made_runs.h"

#include <cmath>
#include <random>
#include <vector>

#include "kit/common/file_identity.h"
#include "kit/ledger/ledger.h"
#include "kit/timing/statistics.h"

namespace vorn::bench {
namespace {

constexpr size_t kTimes = 100;

kit::RunEntry MakeRun(size_t number, size_t series, std::mt19937_64& random) {
  std::normal_distribution<double> normal;
  const size_t of = number % series;
  const size_t place = number / series;
  // One series in ten gets a runtime that is 8 % slower with its 60th run.
  const bool isStepped = of % 10 == 0 && place >= 60;
  kit::RunEntry run;
  run.identity = kit::Xxh3Of("made run " + std::to_string(number));
  run.content = run.identity;
  run.path = "/srv/boards/board" + std::to_string(of % 20) + "/nightly/" + std::to_string(number);
  run.board = "board" + std::to_string(of % 20);
  run.model = "network" + std::to_string(of / 20) + ".onnx";
  run.modelXxh3 = kit::Xxh3Of(run.model);
  run.configuration = "device.json";
  run.configurationXxh3 = kit::Xxh3Of(run.configuration);
  run.list = "list.txt";
  run.listXxh3 = kit::Xxh3Of(run.list);
  run.options = "-b 1";
  run.runtime = "libvorn.so";
  run.runtimeXxh3 = kit::Xxh3Of(isStepped ? "new" : "old");
  run.mapped = "libvorn.so\t" + run.runtimeXxh3 + "\n";
  run.tool = "0.1.0";
  run.kernel = "5.10.0";
  run.processor = "made up";
  run.cores = 4;
  run.governor = "performance";
  run.state = "done";
  run.status = 0;
  constexpr uint64_t kHourNs = 3600000000000;
  run.startRealtimeNs = 1700000000000000000 + number * kHourNs / series;
  run.endRealtimeNs = run.startRealtimeNs + kHourNs / 100;
  run.inferences = run.done = kTimes;
  run.executions = kTimes;
  const double level =
      5e6 * (1 + static_cast<double>(of)) * (isStepped ? 1.08 : 1) * (1 + 0.01 * normal(random));
  std::vector<double> times;
  for (size_t i = 0; i < kTimes; ++i) {
    run.times.timesNs.push_back(
        static_cast<uint64_t>(level * (1 + 0.02 * std::abs(normal(random)))));
    times.push_back(static_cast<double>(run.times.timesNs.back()));
  }
  run.times.firstNs = {static_cast<uint64_t>(2 * level)};
  run.firstNs = 2 * level;
  run.medianNs = kit::Median(times);
  run.madNs = kit::MedianDeviation(times);
  run.verdict = "right";
  run.metrics = {{.output = "probabilities", .metric = "RMSE", .value = 1e-6, .expected = {}},
                 {.output = "probabilities", .metric = "top 1", .value = 0.97, .expected = 0.97}};
  return run;
}

}  // namespace

void MakeHistory(const std::string& path, size_t runs, size_t series) {
  constexpr size_t kTogether = 1000;
  std::mt19937_64 random(1);
  kit::Ledger ledger = kit::Ledger::ForWriting(path);
  std::vector<kit::RunEntry> some;
  for (size_t number = 0; number < runs; ++number) {
    some.push_back(MakeRun(number, series, random));
    if (some.size() < kTogether && number + 1 < runs) continue;
    (void)ledger.Add(some);
    some.clear();
  }
}

}  // namespace vorn::bench
