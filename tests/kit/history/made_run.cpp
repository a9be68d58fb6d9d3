#include "kit/history/made_run.h"

#include "support/files.h"

namespace support {

using vorn::kit::RunEntry;
using vorn::kit::RunFacts;
using vorn::kit::RunState;
using vorn::kit::TimesRecord;

RunFacts MadeFacts(unsigned day) {
  RunFacts facts;
  facts.state = RunState::kDone;
  facts.status = 0;
  facts.command = {"vorn-launch", "--run", "somewhere"};
  facts.version = "0.1.0";
  facts.options = {{"-b", "2"}};
  facts.model = {"/models/digits.onnx", 100, std::string(32, '1')};
  facts.configuration = {"/models/device.json", 10, std::string(32, '2')};
  facts.list = {"lists/list.txt", 20, std::string(32, '3')};
  facts.runtime = {"/opt/libvorn.so", 1000, std::string(32, '4')};
  facts.mapped = {{"/opt/libvorn.so", "0a1b2c3d4e5f"}};
  facts.machine.host = "board7";
  facts.machine.kernel = "5.10";
  facts.machine.governor = "performance";
  facts.startRealtimeNs = kNovemberNs + (day - 1) * kDayNs;
  facts.endRealtimeNs = facts.startRealtimeNs + 60000000000;
  facts.counts = {.inferences = 41, .done = 41};
  return facts;
}

void MakeRun(const std::filesystem::path& folder, const RunFacts& facts,
             const std::vector<uint64_t>& timesNs) {
  WriteFile(folder / "run.json", ToJson(facts));
  if (timesNs.empty()) return;
  std::string lines;
  TimesRecord record;
  record.host = facts.machine.host;
  record.startRealtimeNs = facts.startRealtimeNs;
  record.executeNs = {2 * timesNs.front()};
  lines += ToLine(record);
  for (const uint64_t time : timesNs) {
    ++record.index;
    record.executeNs = {time};
    lines += ToLine(record);
  }
  WriteFile(folder / "times.jsonl", lines);
}

std::vector<uint64_t> TimesAround(uint64_t ns) {
  std::vector<uint64_t> times;
  for (uint64_t i = 0; i < 20; ++i) {
    const uint64_t off = (i * 7919 % 23) * ns / 5000;
    times.push_back(ns - off);
    times.push_back(ns + off);
  }
  return times;
}

void MakeVerdict(const std::filesystem::path& folder, int status, std::optional<double> accuracy) {
  std::string labels;
  if (accuracy) {
    labels = R"({"output":"probabilities","metric":"top 1","actual":)" + std::to_string(*accuracy) +
             R"(,"expected":0.98,"difference":0})";
  }
  WriteFile(folder / "verdict.json",
            R"({"schema":1,"status":)" + std::to_string(status) + R"(,"accuracy":[)" + labels +
                R"(],"outputs":[{"name":"probabilities","census":{"rmse":0.25},)"
                R"("agreement":{"items":4,"top1":3,"top5":4}}]})");
}

RunEntry MadeEntry(unsigned day, double medianNs) {
  RunEntry run = vorn::kit::EntryOf(MadeFacts(day), "");
  run.content = std::string(32, 'c');
  run.path = "/runs/" + std::to_string(day);
  run.executions = 2;
  run.medianNs = medianNs;
  run.madNs = 1.5;
  run.times = {.firstNs = {7}, .timesNs = {5, 300000}, .leftOut = 0};
  return run;
}

}  // namespace support
