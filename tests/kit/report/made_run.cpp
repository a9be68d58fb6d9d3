#include "kit/report/made_run.h"

#include <utility>

#include "kit/common/file_identity.h"
#include "kit/judge/judge.h"
#include "kit/model/model_json.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kStartNs = 1'700'000'000'000'000'000;
constexpr uint64_t kSecondNs = 1'000'000'000;

ModelDescription ModelOf(const MadeRun& run) {
  ModelDescription model;
  model.netType = 0;
  TensorDescription picture;
  picture.name = "picture";
  picture.shape = {1, 1, 4, 4};
  picture.type = 4;  // uint8
  picture.elementBits = 8;
  picture.format = 0;
  model.inputs = {picture};
  TensorDescription output;
  output.role = TensorRole::kOutput;
  output.name = run.output;
  output.shape = run.shape;
  output.type = 0;
  output.elementBits = 32;
  output.format = 0;
  model.outputs = {output};
  model.model.path = run.facts.model.path;
  return model;
}

SampleRecord WriteSample(const MadeRun& run, uint64_t index) {
  SampleRecord record;
  record.index = index;
  record.status = SampleStatus::kDone;
  const auto input = run.folder.parent_path() / "inputs" / (std::to_string(index) + ".bin");
  support::WriteFile(input, support::CountingBytes(16, static_cast<unsigned>(index)));
  record.inputs.push_back({index + 1, std::nullopt, input.string(),
                           IdentifyFile(input.string(), "the input", ExitStatus::kInput)});
  const std::string path = "dumps/" + std::to_string(index) + "/prob.0.1.bin";
  const std::string bytes = support::Bytes(run.samples[index]);
  support::WriteFile(run.folder / path, bytes);
  record.outputs.push_back({0, run.output, path, std::nullopt, bytes.size(), Xxh3Of(bytes)});
  return record;
}

}  // namespace

MadeRun::MadeRun(std::filesystem::path place) : folder(std::move(place)) {
  samples = {{0.7F, 0.1F, 0.1F, 0.1F},
             {0.1F, 0.7F, 0.1F, 0.1F},
             {0.1F, 0.1F, 0.7F, 0.1F},
             {0.1F, 0.1F, 0.1F, 0.7F}};
  timesNs = {9000, 1010, 1000, 1020};
  facts.state = RunState::kDone;
  facts.status = 0;
  facts.command = {"vorn", "launch", "--run", folder.string()};
  facts.version = "0.1.0";
  facts.model.path = "nets/digits.onnx";
  facts.machine.host = "board-7";
  facts.machine.processor = "Cortex-A55";
  facts.startRealtimeNs = kStartNs;
  facts.endRealtimeNs = kStartNs + 2 * kSecondNs;
  facts.phases = {{"start", 10}, {"load", 50}, {"execute", 30}, {"other", 10}, {"whole", 100}};
}

void MadeRun::Write() const {
  std::filesystem::create_directories(folder);
  RunFacts written = facts;
  written.counts.inferences = samples.size();
  written.counts.done = samples.size();
  std::string records;
  std::string times;
  for (uint64_t i = 0; i < samples.size(); ++i) {
    records += ToLine(WriteSample(*this, i));
    if (i >= timesNs.size()) continue;
    TimesRecord record;
    record.index = i;
    record.host = facts.machine.host;
    record.startRealtimeNs = kStartNs + i * 10000;
    record.executeNs = {timesNs[i]};
    times += ToLine(record);
  }
  MachineMoment moment;
  moment.realtimeNs = kStartNs + kSecondNs;
  moment.frequencyKhz = {1000000, 1800000};
  moment.temperatureMilliC = {{"cpu", 54200}};
  moment.rssBytes = 40 << 20;
  support::WriteFile(folder / kRunFile, ToJson(written));
  support::WriteFile(folder / kModelFile, ToJson(ModelOf(*this)));
  support::WriteFile(folder / kSamplesFile, records);
  support::WriteFile(folder / kTimesFile, times);
  support::WriteFile(folder / kMachineFile, ToLine(moment));
}

void JudgeRuns(const std::filesystem::path& actual, const std::filesystem::path& expected) {
  JudgeRequest request;
  request.actual = FindTensors(actual.string());
  request.expected = FindTensors(expected.string());
  support::WriteFile(actual / "verdict.json", VerdictJson(Judge(request)));
}

}  // namespace vorn::kit
