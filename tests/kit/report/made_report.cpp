#include "kit/report/made_report.h"

#include <algorithm>
#include <cmath>
#include <random>

#include "kit/page/heatmap.h"

namespace vorn::kit {
namespace {

// std::uniform_real_distribution is another one in each library.
class Random {
 public:
  double operator()() { return static_cast<double>(engine_()) / 4294967296.0; }

 private:
  std::mt19937 engine_{20};
};

constexpr uint64_t kSecond = 1'000'000'000;
constexpr uint64_t kStart = 1'700'000'000 * kSecond;

bool IsWrong(uint64_t sample) { return sample % 20 == 7; }

RunFacts MadeRunFacts(uint64_t samples) {
  RunFacts facts;
  facts.state = RunState::kDone;
  facts.status = 0;
  facts.programStatus = 0;
  facts.command = {"vorn", "launch", "--model", "detector.onnx"};
  facts.version = "1.2.0";
  facts.model = {"models/detector.onnx", 1'234'567, "00112233445566778899aabbccddeeff"};
  facts.configuration = FileIdentity{"models/board.json", 812, "ffeeddccbbaa99887766554433221100"};
  facts.runtime =
      FileIdentity{"/usr/lib/libvorn.so", 9'876'543, "0123456789abcdef0123456789abcdef"};
  facts.mapped = {{"/usr/lib/libvorn.so", "aa11"}, {"/usr/lib/libvorn_npu.so", "bb22"}};
  facts.machine = {.host = "board-7",
                   .kernel = "5.10.0",
                   .processor = "4 x 1.8 GHz",
                   .cores = 4,
                   .governor = "performance",
                   .loadAverage = 0.25,
                   .memoryTotalBytes = uint64_t{4} << 30,
                   .memoryAvailableBytes = uint64_t{3} << 30,
                   .container = {}};
  facts.startRealtimeNs = kStart;
  facts.endRealtimeNs = kStart + 42 * kSecond;
  facts.counts = {.inferences = samples, .done = samples, .failed = 0, .aside = 0, .missing = 0};
  facts.warnings = {{"load-before", 1, "the machine was busy before the run: load 0.25"}};
  facts.standardError = "driver: clock is held at 1.8 GHz\n";
  return facts;
}

ReportSeries MadeSeries(uint64_t count, double middleNs) {
  Random random;
  ReportSeries series;
  for (uint64_t i = 0; i < count; ++i) {
    const bool isWarmUp = i == 0;
    double time = middleNs * (0.97 + 0.06 * random());
    if (isWarmUp) time *= 5;
    if (i % 97 == 50) time *= 1.6;
    series.sample.push_back(i);
    series.isWarmUp.push_back(isWarmUp ? 1 : 0);
    series.medianNs.push_back(time);
    series.startNs.push_back(2 * kSecond + i * 40 * kSecond / std::max<uint64_t>(count, 1));
  }
  series.warmUps = 1;
  series.count = count - 1;
  series.firstNs = series.medianNs[0];
  std::vector<double> counted(series.medianNs.begin() + 1, series.medianNs.end());
  std::sort(counted.begin(), counted.end());
  series.medianOfAllNs = counted[counted.size() / 2];
  series.lowNs = counted[counted.size() * 2 / 5];
  series.highNs = counted[counted.size() * 3 / 5];
  series.deviationNs = middleNs * 0.015;
  series.leastOfAllNs = counted.front();
  series.mostOfAllNs = counted.back();
  series.p90Ns = counted[counted.size() * 9 / 10];
  series.histogramLowNs = counted.front();
  series.histogramHighNs = counted.back() * 1.0001;
  series.histogram.assign(24, 0);
  for (const double time : counted) {
    const double share = std::log(time / series.histogramLowNs) /
                         std::log(series.histogramHighNs / series.histogramLowNs);
    series.histogram[std::min<size_t>(static_cast<size_t>(share * 24), 23)] += 1;
  }
  return series;
}

std::vector<ReportPhase> MadePhases() {
  std::vector<ReportPhase> phases{
      {"start", "before the first call", 0, 300'000'000},
      {"load", "loading the model", 0, 1'700'000'000},
      {"copyIn", "reading inputs", 0, 6 * kSecond},
      {"execute", "executing", 0, 30 * kSecond},
      {"write", "writing dumps", 0, 3 * kSecond},
      {"otherCalls", "other calls of the runtime", 0, 600'000'000},
      {"other", "between calls", 0, 400'000'000},
  };
  uint64_t at = 0;
  for (ReportPhase& phase : phases) {
    phase.beginNs = at;
    at += phase.durationNs;
  }
  return phases;
}

ReportMachine MadeMachine(size_t moments) {
  Random random;
  ReportMachine machine;
  machine.zones.push_back({"npu-thermal", {}});
  machine.zones.push_back({"cpu-thermal", {}});
  for (size_t i = 0; i < moments; ++i) {
    machine.atNs.push_back(i * 42 * kSecond / std::max<size_t>(moments - 1, 1));
    const double warmth =
        1 - std::exp(-3.0 * static_cast<double>(i) / static_cast<double>(moments));
    machine.zones[0].milliC.emplace_back(static_cast<int64_t>(41000 + 33000 * warmth));
    machine.zones[1].milliC.emplace_back(
        static_cast<int64_t>(40000 + 18000 * warmth + 900 * random()));
    machine.leastFrequencyKhz.emplace_back(warmth > 0.8 ? 1'200'000 : 1'800'000);
    machine.mostFrequencyKhz.emplace_back(1'800'000);
    machine.rssBytes.emplace_back(static_cast<uint64_t>(80e6 + 20e6 * warmth));
    machine.memoryAvailableBytes.emplace_back(static_cast<uint64_t>(3.1e9 - 1e8 * warmth));
  }
  // A moment at which nothing could be read.
  if (moments > 4) machine.leastFrequencyKhz[2].reset();
  return machine;
}

ReportTrace MadeTrace(size_t calls) {
  Random random;
  ReportTrace trace;
  trace.path = "run/trace.vtrace";
  trace.calls = calls;
  trace.clockNs = 25;
  trace.isEnded = true;
  trace.names = {"vorn_mdl_execute", "vorn_rt_malloc", "vorn_rt_memcpy", "vorn_mdl_load_from_mem"};
  uint64_t at = 300'000'000;
  trace.spans.push_back({at, 1'700'000'000, 3, 0, 1, false, false});
  at += 1'800'000'000;
  for (size_t i = 1; i < calls; ++i) {
    const auto duration = static_cast<uint64_t>((i % 4 == 0 ? 8e6 : 3e5) * (0.8 + 0.4 * random()));
    const auto operation = static_cast<uint32_t>(i % 4 == 0 ? 0 : 1 + i % 2);
    trace.spans.push_back({at, duration, operation, i % 9 == 5 ? 1U : 0U, 1, i == 30, false});
    at += duration + 200'000;
  }
  trace.wholeNs = at;
  trace.beganNs = 40'000'000;
  trace.operations = {
      {"vorn_mdl_execute", calls / 4, 0, 30 * kSecond, 8'000'000, 9'500'000, 14'000'000},
      {"vorn_mdl_load_from_mem", 1, 0, 1'700'000'000, 1'700'000'000, {}, 1'700'000'000},
      {"vorn_rt_memcpy", calls / 2, 1, 240'000'000, 300'000, 410'000, 900'000},
      {"vorn_rt_malloc", calls / 4, 0, 90'000'000, 200'000, 310'000, 700'000},
  };
  trace.memory = {{300'000'000, 0},
                  {400'000'000, 1 << 20},
                  {2'000'000'000, 48 << 20},
                  {at - 1000, 48 << 20},
                  {at, 4096}};
  trace.peakBytes = 48 << 20;
  trace.leftBytes = 4096;
  return trace;
}

ReportOutput MadeOutput(const std::string& name, uint64_t samples, bool isRight) {
  Random random;
  ReportOutput output;
  output.name = name;
  output.type = "float32";
  output.shape = {1, 4, 12, 16};
  output.atol = 1e-3;
  output.rtol = 1e-3;
  output.rulesSource = "the defaults of float32";
  output.rules = {{"cosine", 0.999, true}};
  output.samples = samples;
  uint64_t outside = 0;
  for (uint64_t i = 0; i < samples; ++i) {
    const bool isWrong = !isRight && IsWrong(i);
    output.columns.sample.push_back(i);
    output.columns.isWrong.push_back(isWrong ? 1 : 0);
    output.columns.outside.push_back(isWrong ? 310 + i % 50 : 0);
    output.columns.maxAbs.push_back((isWrong ? 0.9 : 4e-4) * (0.5 + random() / 2));
    output.columns.rmse.push_back((isWrong ? 0.11 : 6e-5) * (0.5 + random() / 2));
    output.columns.cosine.push_back(isWrong ? 0.83 + 0.1 * random() : 0.999999);
    outside += output.columns.outside.back();
    if (!isWrong) continue;
    ++output.wrongSamples;
    ReportFault fault{i, {"310 elements are outside of the tolerance"}, {}};
    fault.causes = {{"stale", "it is the output of the sample before", 1.0}};
    if (output.wrong.size() < kMostReportFaults) output.wrong.push_back(std::move(fault));
  }
  output.verdict = output.wrongSamples > 0 ? ReportVerdict::kWrong : ReportVerdict::kRight;
  const auto elements = static_cast<double>(samples) * 768;
  output.census = {{"elements", elements, true},
                   {"equal", elements * 0.25, true},
                   {"outside", static_cast<double>(outside), true},
                   {"maxAbs", isRight ? 3.9e-4 : 0.871234, false},
                   {"rmse", isRight ? 5e-5 : 0.0217, false},
                   {"cosine", isRight ? 0.9999991 : 0.98765, false},
                   {"snrDb", isRight ? 83.1 : 16.4, false}};
  output.spreads = {{"maxAbs", 1e-4, 1.5e-4, 3e-4, 0.6, 0.87},
                    {"rmse", 1e-5, 2e-5, 5e-5, 0.1, 0.12}};
  if (!isRight) {
    output.worst = {{7, 431, "[0, 2, 2, 15]", 0.91, 0.04}, {27, 12, "[0, 0, 0, 12]", NAN, 0.5}};
  }
  return output;
}

ReportDetail MadeDetail(uint64_t sample) {
  Random random;
  ReportDetail detail;
  detail.sample = sample;
  detail.output = 0;
  detail.verdict = ReportVerdict::kWrong;
  detail.reasons = {"310 elements are outside of the tolerance"};
  detail.causes = {{"stale", "it is the output of the sample before", 1.0}};
  detail.inputs = {"pictures/" + std::to_string(sample) + ".jpg"};
  detail.actualPath = "dumps/" + std::to_string(sample) + "/scores.bin";
  detail.expectedPath = "../reference/dumps/" + std::to_string(sample) + "/scores.bin";
  detail.elements = 768;
  detail.outside = 310;
  detail.maxAbs = 0.871234;
  detail.rmse = 0.11;
  detail.cosine = 0.8412;
  detail.histogram = {-0.2, 1.0, {}, {}, 1, 0};
  for (int i = 0; i < 24; ++i) {
    const double at = (i - 5) / 4.0;
    detail.histogram.expected.push_back(static_cast<uint64_t>(160 * std::exp(-at * at)));
    detail.histogram.actual.push_back(static_cast<uint64_t>(110 * std::exp(-(at - 1) * (at - 1))));
  }
  detail.envelope.elements = 768;
  for (int i = 0; i < 96; ++i) {
    const double reach = i > 40 && i < 60 ? 0.8 : 0.02;
    detail.envelope.least.push_back(-reach * random());
    detail.envelope.most.push_back(reach * random());
    detail.envelope.hasNotFinite.push_back(i == 50 ? 1 : 0);
  }
  for (uint64_t channel : {2, 0}) {
    ReportHeatmap map{.channel = channel,
                      .place = "[0, " + std::to_string(channel) + ", :, :]",
                      .rows = 12,
                      .columns = 16,
                      .sourceRows = 12,
                      .sourceColumns = 16,
                      .expected = {},
                      .actual = {},
                      .difference = {},
                      .least = 0,
                      .most = 1,
                      .mostDifference = 0.8,
                      .rmse = channel == 2 ? 0.2 : 0.05};
    for (int row = 0; row < 12; ++row) {
      for (int column = 0; column < 16; ++column) {
        const double x = column - 8.0;
        const double y = row - 6.0;
        const double expected = std::exp(-(x * x + y * y) / 12);
        const double actual = std::exp(-((x + 4) * (x + 4) + (y - 2) * (y - 2)) / 12);
        map.expected.push_back(expected);
        map.actual.push_back(row == 3 && column == 14 ? NAN : actual);
        map.difference.push_back(actual - expected);
      }
    }
    detail.heatmaps.push_back(std::move(map));
  }
  detail.channels = 4;
  detail.worst = {{sample, 431, "[0, 2, 2, 15]", 0.91, 0.04},
                  {sample, 62, "[0, 0, 3, 14]", NAN, 0.5}};
  detail.actualTop = {{3, 0.61}, {7, 0.22}, {1, 0.09}};
  detail.expectedTop = {{7, 0.83}, {3, 0.11}, {1, 0.02}};
  detail.actualBoxes = {{0.18, 0.3, 0.42, 0.78, 3, 0.61}};
  detail.expectedBoxes = {{0.45, 0.2, 0.72, 0.7, 7, 0.83}};
  ReportMask mask{12, 16, {}, {}};
  for (uint32_t i = 0; i < 12 * 16; ++i) {
    mask.expected.push_back(i % 16 > 6 && i % 16 < 12 ? 7 : 0);
    mask.actual.push_back(i % 16 > 2 && i % 16 < 9 ? 3 : 0);
  }
  detail.mask = std::move(mask);
  std::vector<uint8_t> pixels;
  for (int row = 0; row < 48; ++row) {
    for (int column = 0; column < 64; ++column) {
      const double x = (column - 37) / 9.0;
      const double y = (row - 22) / 12.0;
      const double light = x * x + y * y < 1 ? 1.0 : 0.25 + 0.006 * row;
      pixels.push_back(static_cast<uint8_t>(230 * light));
      pixels.push_back(static_cast<uint8_t>(190 * light));
      pixels.push_back(static_cast<uint8_t>(140 * light + 40));
    }
  }
  detail.pictures = {{PngBytes(pixels, 64, 48, 3), 64, 48, 640, 480,
                      "pictures/" + std::to_string(sample) + ".jpg", false}};
  return detail;
}

ReportInside MadeInside() {
  ReportInside inside;
  inside.order = "that of the graph in models/detector.onnx";
  inside.decidedBy = "rules";
  for (int i = 0; i < 14; ++i) {
    const bool isWrong = i >= 9;
    inside.tensors.push_back({"backbone/block_" + std::to_string(i) + "/relu",
                              isWrong ? ReportVerdict::kWrong : ReportVerdict::kRight,
                              isWrong ? 0.8 : 1e-4 * (i + 1),
                              isWrong ? 0.2 : 1e-5 * (i + 1),
                              isWrong ? 18.0 - i : 90.0 - 2 * i,
                              isWrong ? 0.3 : 0.0,
                              "",
                              {},
                              {}});
  }
  inside.begin = 9;
  inside.greatest = 11;
  inside.largestStep = 9;
  inside.largestStepBehind = "backbone/block_8/relu";
  inside.largestStepFallDb = 65.0;
  inside.unpaired = {"'neck/up/resize' is on the expected side only"};
  return inside;
}

ReportRun MadeRun(uint64_t samples, bool isRight) {
  ReportRun run;
  run.path = "run";
  run.name = "run";
  run.facts = MadeRunFacts(samples);
  run.tensors = {{"data", "picture", "uint8", "1x3x96x128", "NCHW"},
                 {"output", "scores", "float32", "1x4x12x16", "NCHW"}};
  run.remarks = {{ReportRemark::Kind::kWarning, "load-before", 1,
                  "the machine was busy before the run: load 0.25"}};
  ReportJudgement judgement;
  judgement.path = "run/verdict.json";
  judgement.actual = "run";
  judgement.expected = "../reference";
  judgement.samples = samples;
  judgement.outputs = {MadeOutput("scores", samples, isRight)};
  run.judgement = std::move(judgement);
  run.times.series = {MadeSeries(samples, 8.1e6)};
  run.times.phases = MadePhases();
  run.times.wholeNs = 42 * kSecond;
  run.machine = MadeMachine(43);
  run.commands = {{"run the same once more, into a folder beside this one",
                   "vorn launch --model models/detector.onnx --run again"},
                  {"judge the same outputs once more, without a run",
                   "vorn judge run --expected ../reference"}};
  run.answer = isRight ? ReportAnswer{ReportTone::kGood,
                                      "right",
                                      "All 40 samples are right, at a median of 8.1 ms.",
                                      {}}
                       : ReportAnswer{ReportTone::kBad,
                                      "WRONG",
                                      "'detector.onnx' by the runtime 'npu/libvorn.so' on the host "
                                      "'board-7' is wrong in 2 of 40 samples of 'scores': the "
                                      "output of the sample before in 2 samples; measured against "
                                      "'../reference'; an execution takes 8.184 ms (median of 39).",
                                      {"Samples 7 and 27: it is the output of the sample before. "
                                       "That explains all that differs."}};
  return run;
}

ReportFacts MadeFacts(std::vector<ReportRun> runs) {
  ReportFacts facts;
  facts.title = "vorn report: " + runs[0].name;
  facts.version = "1.2.0";
  facts.madeRealtimeNs = kStart + 3600 * kSecond;
  facts.answer = runs[0].answer;
  facts.runs = std::move(runs);
  return facts;
}

}  // namespace

ReportFacts MadeWrongRun(uint64_t samples) {
  ReportRun run = MadeRun(samples, false);
  run.judgement->inside = MadeInside();
  run.judgement->outputs[0].agreement = ReportOutput::Agreement{samples, samples - 2, samples};
  run.judgement->outputs[0].confusion = {{7, 7, 30}, {3, 3, samples - 32}, {7, 3, 2}};
  run.judgement->outputs[0].confusionItems = samples;
  run.details = {MadeDetail(7), MadeDetail(27)};
  run.detailsRule = "The two samples with the greatest difference.";
  run.details[1].histogram = {};
  run.details[1].obstacle = "dumps/27/scores.bin was deleted";
  run.details[1].pictures.clear();
  run.details[1].pictureObstacle = "pictures/27.jpg is not there";
  run.trace = MadeTrace(120);
  run.findings = {{"double-free", "error", 2, "a block was freed twice", "vorn_rt_free"},
                  {"late-destroy", "note", 1, "a description outlived its model", ""}};
  run.areFindingsKnown = true;
  return MadeFacts({std::move(run)});
}

ReportFacts MadeRightRun() {
  ReportRun run = MadeRun(40, true);
  run.remarks.push_back(
      {ReportRemark::Kind::kMissing, "", 0, "there is no trace: --trace was not given"});
  return MadeFacts({std::move(run)});
}

ReportFacts MadeComparison() {
  ReportRun base = MadeRun(40, true);
  base.name = "before";
  ReportRun other = MadeRun(40, true);
  other.name = "after";
  other.path = "after";
  other.times.series = {MadeSeries(40, 9.4e6)};
  other.facts.runtime->path = "/opt/next/libvorn.so";
  ReportFacts facts = MadeFacts({std::move(base), std::move(other)});
  ReportComparison comparison;
  comparison.base = 0;
  comparison.other = 1;
  comparison.answer = {ReportTone::kBad, "slower", "after is 1.16 times as slow as before.", {}};
  comparison.times.verdict = TimingVerdict::kSlower;
  comparison.times.base = 39;
  comparison.times.other = 39;
  comparison.times.interval = {1.16, 1.14, 1.18};
  comparison.times.differenceNs = 1.3e6;
  comparison.times.p = 1e-7;
  comparison.times.gate = 1.03;
  comparison.outputs = {{"scores", 38, 2, 0, 0, 7}};
  comparison.environment = {{"runtime", "/usr/lib/libvorn.so", "/opt/next/libvorn.so"},
                            {"governor", "performance", "powersave"}};
  facts.answer = comparison.answer;
  facts.comparisons = {std::move(comparison)};
  return facts;
}

ReportFacts MadeFleet() {
  ReportRun run = MadeRun(40, true);
  ReportFleet fleet;
  fleet.id = "f1e2";
  for (int i = 0; i < 3; ++i) {
    ReportBoard board;
    board.name = "board-" + std::to_string(i + 1);
    board.host = "10.1.0." + std::to_string(i + 1);
    board.chunksDone = 4;
    board.samples = 13;
    board.samplesPerSecond = 11.5 - i;
    board.medianSampleNs = 8'100'000 + static_cast<uint64_t>(i) * 400'000;
    board.highestTemperatureMilliC = 61000 + 5000 * i;
    board.lowestFrequencyKhz = 1'800'000;
    board.isChecked = true;
    board.phases = {{"sending", 2 * kSecond}, {"running", 11 * kSecond}, {"fetching", kSecond}};
    fleet.boards.push_back(std::move(board));
  }
  fleet.boards[2].disagreesAt = {0, 20};
  fleet.boards[2].isAside = true;
  fleet.boards[2].reason = "its outputs are not those of the others";
  fleet.crossCheck = {0, 20};
  run.fleet = std::move(fleet);
  return MadeFacts({std::move(run)});
}

ReportFacts MadeOfName(const std::string& name) {
  ReportFacts facts = MadeWrongRun();
  facts.title = name;
  facts.version = name;
  facts.answer = {ReportTone::kOpen, name, name, {name}};
  ReportRun& run = facts.runs[0];
  run.path = run.name = name;
  run.answer = facts.answer;
  run.facts.model.path = run.facts.machine.host = run.facts.machine.processor = name;
  run.facts.runtime->path = run.facts.standardError = run.facts.version = name;
  run.facts.mapped = {{name, name}};
  for (ReportTensor& tensor : run.tensors) tensor = {name, name, name, name, name};
  run.remarks = {{ReportRemark::Kind::kWarning, name, 2, name},
                 {ReportRemark::Kind::kNote, name, 0, name}};
  ReportJudgement& judgement = *run.judgement;
  judgement.actual = judgement.expected = name;
  judgement.remarks = judgement.unfinished = judgement.preparation = {name};
  for (ReportOutput& output : judgement.outputs) {
    output.name = output.expectedName = output.type = output.rulesSource = name;
    for (ReportRule& rule : output.rules) rule.metric = name;
    for (ReportMeasure& measure : output.census) measure.name = name;
    for (ReportFault& fault : output.wrong) {
      fault.reasons = {name};
      fault.causes = {{name, name, 0.5}};
    }
    for (ReportElement& element : output.worst) element.place = name;
  }
  for (auto& tensor : judgement.inside->tensors) tensor.name = tensor.floor = name;
  judgement.inside->largestStepBehind = judgement.inside->order = name;
  for (ReportDetail& detail : run.details) {
    detail.reasons = detail.inputs = {name};
    detail.causes = {{name, name, 0.5}};
    detail.actualPath = detail.expectedPath = name;
    for (ReportHeatmap& map : detail.heatmaps) map.place = name;
    for (ReportPicture& picture : detail.pictures) picture.name = name;
  }
  run.times.series[0].name = name;
  for (ReportPhase& phase : run.times.phases) phase.text = name;
  for (auto& zone : run.machine->zones) zone.name = name;
  for (std::string& operation : run.trace->names) operation = name;
  for (OperationTimes& operation : run.trace->operations) operation.name = name;
  for (ReportFinding& finding : run.findings) finding = {name, name, 1, name, name};
  for (ReportCommand& command : run.commands) command = {name, name};
  return facts;
}

ReportFacts MadeLargeRun(uint64_t samples) {
  ReportFacts facts = MadeWrongRun(samples);
  ReportRun& run = facts.runs[0];
  run.facts.counts = {
      .inferences = samples, .done = samples, .failed = 0, .aside = 0, .missing = 0};
  run.answer.sentence = facts.answer.sentence =
      std::to_string(run.judgement->outputs[0].wrongSamples) + " of " + std::to_string(samples) +
      " samples are wrong, at a median of 8.1 ms.";
  run.details.clear();
  for (uint64_t i = 0; i < 10; ++i) run.details.push_back(MadeDetail(7 + 20 * i));
  run.trace = MadeTrace(kMostReportSpans);
  run.machine = MadeMachine(kMostReportMoments);
  return facts;
}

}  // namespace vorn::kit
