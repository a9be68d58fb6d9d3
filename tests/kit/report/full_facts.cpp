#include "kit/report/full_facts.h"

#include <cmath>
#include <utility>

namespace vorn::kit {
namespace {

ReportJudgement Judgement() {
  ReportOutput output;
  output.name = kHostileName;
  output.expectedName = "other";
  output.verdict = ReportVerdict::kWrong;
  output.type = "float32";
  output.shape = {1, 2, 3, 4};
  output.atol = 1e-5;
  output.rulesSource = kHostileName;
  output.rules = {{"cosine", 0.99, true}, {"maxAbs", INFINITY, false}};
  output.samples = 200;
  output.wrongSamples = 1;
  output.census = {{"elements", 24, true}, {"maxAbs", 0.5, false}, {"rmse", NAN, false}};
  output.spreads = {{"maxAbs", 0, 0.1, 0.2, 0.3, 0.5}};
  output.columns = {1, {7, 8}, {17, 18}, {1, 0}, {3, 0}, {1, 0}, {0.5, 0}, {NAN, 0}, {0.5, 1}};
  output.agreement = ReportOutput::Agreement{200, 198, 199, 1, 1};
  output.wrong = {{7, {kHostileName}, {{"stale", kHostileName, 0.9}}, 1, 2}};
  output.notJudged = {{9, {"gone"}, {}}};
  output.worst = {{7, 3, "[0, 0, 0, 3]", INFINITY, 1}};
  output.stretches = {{NeighbourPattern::kExchanged, {7, 8}, {9}, {10}}};
  output.confusion = {{3, 4, 2}};
  output.confusionItems = 200;
  ReportJudgement judgement;
  judgement.path = "run/verdict.json";
  judgement.status = 6;
  judgement.actual = "run";
  judgement.expected = kHostileName;
  judgement.samples = 200;
  judgement.missing = {{3, "actual", "ended"}};
  judgement.outputs = {output};
  judgement.command = {"vorn", "judge", kHostileName};
  judgement.accuracy = {{"x", "top 1", 0.5, 0.6, -0.1}};
  judgement.remarks = {"r"};
  judgement.preparation = {"p"};
  judgement.floor =
      ReportFloor{"floor", "int8", 1.25, {{"x", "worse", 200, 2, 1, 2, 10, 16, false, ""}}};
  ReportInside inside;
  inside.order = "that of the model";
  inside.tensors = {{"t", ReportVerdict::kWrong, 1, 0.5, 3, 0.1, "worse", 9.0, 2.0}};
  inside.begin = 0;
  inside.largestStep = 0;
  inside.largestStepFallDb = 3;
  judgement.inside = inside;
  return judgement;
}

ReportDetail Detail() {
  ReportDetail detail;
  detail.sample = 7;
  detail.verdict = ReportVerdict::kWrong;
  detail.reasons = {"3 elements outside"};
  detail.causes = {{"stale", kHostileName, 0.9}};
  detail.inputs = {kHostileName};
  detail.actualPath = "a";
  detail.elements = 24;
  detail.outside = 3;
  detail.maxAbs = 0.5;
  detail.rmse = 0.25;
  detail.histogram = {0, 1, {1, 2}, {2, 1}, 0, 1};
  detail.envelope = {24, {-1, NAN}, {1, NAN}, {0, 1}};
  ReportHeatmap map;
  map.rows = 1;
  map.columns = 2;
  map.actual = {1, 2};
  map.expected = {1, NAN};
  map.difference = {0, NAN};
  detail.heatmaps = {map};
  detail.worst = {{7, 3, "[0]", NAN, 1}};
  detail.actualTop = {{3, 0.5}, {0, 0, 0.1, 9}};
  detail.expectedTop = {{4, 0.6}};
  detail.actualBoxes = {{0, 0, 0.5, 1, 2, 0.9}};
  detail.mask = ReportMask{1, 1, {2}, {3}};
  ReportPicture picture;
  picture.png = "\x89PNG";
  picture.width = picture.height = 4;
  picture.name = kHostileName;
  detail.pictures = {picture};
  return detail;
}

void TakeMeasured(ReportRun& run) {
  ReportSeries series;
  series.sample = {0, 1};
  series.isWarmUp = {1, 0};
  series.medianNs = {200, 100};
  series.startNs = {0, 1000};
  series.warmUps = series.count = 1;
  series.firstNs = 200;
  series.medianOfAllNs = series.lowNs = series.highNs = 100;
  series.p90Ns = 100;
  series.drift = 0.1;
  series.sumNs = 300;
  series.steps = {{1, 1, 10, 10, 200, 100}};
  series.slowest = {{0, 0, 200}};
  series.histogramLowNs = 50;
  series.histogramHighNs = 150;
  series.histogram = {0, 1, 5};
  run.times.series = {series};
  run.times.phases = {{"load", kHostileName, 0, 75}, {"execute", "executing", 75, 25}};
  run.times.wholeNs = 100;
  ReportMachine machine;
  machine.atNs = {0};
  machine.rssBytes = {uint64_t{5} << 20};
  machine.memoryAvailableBytes = {std::nullopt};
  machine.leastFrequencyKhz = machine.mostFrequencyKhz = {std::nullopt};
  machine.zones = {{kHostileName, {54000}}};
  run.machine = machine;
  ReportTrace trace;
  trace.path = "run/trace.vtrace";
  trace.operations = {{kHostileName, 100, 1, 1000, 10, 12, 20}};
  trace.names = {kHostileName};
  trace.spans = {{0, 10, 0, 0, 1, true, false}};
  trace.memory = {{0, 5}};
  trace.beganNs = 40;
  run.trace = trace;
}

}  // namespace

ReportFacts FullFacts() {
  ReportRun run;
  run.path = kHostileName;
  run.name = kHostileName;
  run.precision = kHostileName;
  run.answer = {
      ReportTone::kBad, "wrong", std::string("the answer of ") + kHostileName, {kHostileName}};
  run.facts.model.path = kHostileName;
  run.facts.command = {kHostileName};
  run.facts.machine.host = kHostileName;
  run.facts.standardError = kHostileName;
  run.tensors = {{"data", kHostileName, "float32", "1x2", "NCHW"}};
  run.remarks = {{ReportRemark::Kind::kWarning, "id", 3, kHostileName},
                 {ReportRemark::Kind::kMissing, "", 0, "no trace"},
                 {ReportRemark::Kind::kNote, "", 0, kHostileName}};
  run.judgement = Judgement();
  run.details = {Detail()};
  run.detailsRule = "the worst";
  ReportDetail closed;
  closed.obstacle = kHostileName;
  run.details.push_back(closed);
  run.undone = {{3, "aside", kHostileName, {kHostileName}}};
  TakeMeasured(run);
  run.findings = {{kHostileName, "error", 2, kHostileName, kHostileName}};
  run.areFindingsKnown = true;
  ReportFleet fleet;
  ReportBoard board;
  board.name = board.host = board.reason = kHostileName;
  board.isAside = true;
  board.samplesPerSecond = 12.5;
  board.highestTemperatureMilliC = 70000;
  board.disagreesAt = {1};
  board.phases = {{"send", 5}};
  fleet.boards = {board};
  fleet.unequal = {kHostileName};
  run.fleet = fleet;
  run.commands = {{"run it again", std::string("```") + kHostileName}};

  ReportFacts facts;
  facts.title = kHostileName;
  facts.version = "1";
  facts.runs = {run, ReportRun()};
  facts.runs[1].name = "second";
  ReportComparison comparison;
  comparison.other = 1;
  comparison.times.verdict = TimingVerdict::kSlower;
  comparison.times.needed = 5;
  comparison.outputs = {{kHostileName, 1, 2, 0, 0, 4}};
  comparison.environment = {{"runtime", kHostileName, "none"}};
  comparison.verdicts = {{kHostileName, "right", "wrong"}};
  comparison.remarks = {kHostileName};
  facts.comparisons = {comparison};
  facts.answer = run.answer;
  return facts;
}

}  // namespace vorn::kit
