// Members have the names of the structs' fields. What is not known is left out; columns whose rows
// may lack a value have null there.
#include "kit/report/facts_json.h"

#include <cmath>
#include <optional>
#include <utility>
#include <vector>

#include "kit/json/json.h"
#include "kit/page/base64.h"

namespace vorn::kit {
namespace {

constexpr int kReportSchema = 1;

template <typename Items, typename Tell>
Json Each(const Items& items, Tell tell) {
  Json array = Json::Array();
  for (const auto& item : items) array.Append(tell(item));
  return array;
}

template <typename Items>
Json All(const Items& items) {
  return Each(items, [](const auto& item) { return Json(item); });
}

// A number that is none: null where that means "not known", the texts of ToText elsewhere.
template <typename Value>
Json ColumnOf(const std::vector<std::optional<Value>>& values) {
  return Each(values, [](const auto& value) { return value ? Json(*value) : Json(nullptr); });
}

template <typename Value>
void SetKnown(Json& object, const char* key, const std::optional<Value>& value) {
  if (value) object.Set(key, *value);
}

void SetText(Json& object, const char* key, const std::string& text) {
  if (!text.empty()) object.Set(key, text);
}

// ---- The answer ---------------------------------------------------------------------------------

const char* NameOf(ReportTone tone) {
  switch (tone) {
    case ReportTone::kGood:
      return "good";
    case ReportTone::kBad:
      return "bad";
    case ReportTone::kOpen:
      break;
  }
  return "open";
}

Json AnswerJson(const ReportAnswer& answer) {
  return Json::Object({{"tone", NameOf(answer.tone)},
                       {"verdict", answer.verdict},
                       {"sentence", answer.sentence},
                       {"more", All(answer.more)}});
}

Json RemarkJson(const ReportRemark& remark) {
  const char* kind = remark.kind == ReportRemark::Kind::kMissing   ? "missing"
                     : remark.kind == ReportRemark::Kind::kWarning ? "warning"
                                                                   : "note";
  Json json = Json::Object({{"kind", kind}, {"text", remark.text}});
  SetText(json, "id", remark.id);
  if (remark.count > 0) json.Set("count", remark.count);
  return json;
}

// ---- Verdict ------------------------------------------------------------------------------------

const char* NameOf(ReportVerdict verdict) {
  switch (verdict) {
    case ReportVerdict::kRight:
      return "right";
    case ReportVerdict::kWrong:
      return "wrong";
    case ReportVerdict::kNotJudged:
      break;
  }
  return "notJudged";
}

Json CauseJson(const ReportCause& cause) {
  return Json::Object({{"id", cause.id}, {"text", cause.text}, {"certainty", cause.certainty}});
}

Json FaultJson(const ReportFault& fault) {
  Json json = Json::Object({{"sample", fault.sample},
                            {"reasons", All(fault.reasons)},
                            {"causes", Each(fault.causes, CauseJson)}});
  if (fault.nan > 0) json.Set("nan", fault.nan);
  if (fault.infinite > 0) json.Set("infinite", fault.infinite);
  return json;
}

Json ElementJson(const ReportElement& element) {
  return Json::Object({{"sample", element.sample},
                       {"index", element.index},
                       {"place", element.place},
                       {"actual", element.actual},
                       {"expected", element.expected}});
}

Json RulesJson(const ReportOutput& output) {
  return Json::Object(
      {{"atol", output.atol},
       {"rtol", output.rtol},
       {"isNanExpected", output.isNanExpected},
       {"source", output.rulesSource},
       {"metrics", Each(output.rules, [](const ReportRule& rule) {
          return Json::Object(
              {{"metric", rule.metric}, {rule.isAtLeast ? "atLeast" : "atMost", rule.bound}});
        })}});
}

Json CensusJson(const ReportOutput& output) {
  Json census = Json::Object();
  for (const ReportMeasure& measure : output.census) {
    const bool isWhole = measure.isCount && measure.value >= 0 && measure.value < 0x1p63;
    census.Set(measure.name,
               isWhole ? Json(static_cast<uint64_t>(measure.value)) : Json(measure.value));
  }
  return census;
}

Json SpreadsJson(const ReportOutput& output) {
  Json spreads = Json::Object();
  for (const ReportSpread& spread : output.spreads) {
    spreads.Set(spread.name, Json::Object({{"least", spread.least},
                                           {"p5", spread.p5},
                                           {"median", spread.median},
                                           {"p95", spread.p95},
                                           {"most", spread.most}}));
  }
  return spreads;
}

Json ColumnsJson(const ReportColumns& columns) {
  Json json = Json::Object({{"samplesPerRow", columns.samplesPerRow},
                            {"sample", All(columns.sample)},
                            {"isWrong", All(columns.isWrong)},
                            {"outside", All(columns.outside)},
                            {"maxAbs", All(columns.maxAbs)},
                            {"rmse", All(columns.rmse)},
                            {"cosine", All(columns.cosine)}});
  if (!columns.expectedSample.empty()) json.Set("expectedSample", All(columns.expectedSample));
  if (!columns.notFinite.empty()) json.Set("notFinite", All(columns.notFinite));
  return json;
}

void SetConfusion(const ReportOutput& output, Json& json) {
  if (output.confusionItems == 0) return;
  json.Set("confusion", Json::Object({{"items", output.confusionItems},
                                      {"leftOut", output.confusionLeftOut},
                                      {"pairs", Each(output.confusion, [](const auto& pair) {
                                         return Json::Object({{"expectedClass", pair.expectedClass},
                                                              {"actualClass", pair.actualClass},
                                                              {"count", pair.count}});
                                       })}}));
}

Json StretchJson(const NeighbourStretch& stretch) {
  return Json::Object({{"pattern", std::string(NeighbourPatternName(stretch.pattern))},
                       {"wrong", All(stretch.wrong)},
                       {"undecided", All(stretch.undecided)},
                       {"right", All(stretch.right)}});
}

Json OutputJson(const ReportOutput& output) {
  Json json = Json::Object({{"name", output.name},
                            {"verdict", NameOf(output.verdict)},
                            {"type", output.type},
                            {"shape", All(output.shape)},
                            {"rules", RulesJson(output)},
                            {"samples", output.samples},
                            {"wrongSamples", output.wrongSamples},
                            {"census", CensusJson(output)},
                            {"spreads", SpreadsJson(output)},
                            {"columns", ColumnsJson(output.columns)},
                            {"wrong", Each(output.wrong, FaultJson)},
                            {"notJudged", Each(output.notJudged, FaultJson)},
                            {"worst", Each(output.worst, ElementJson)}});
  SetText(json, "expectedName", output.expectedName);
  if (output.agreement) {
    json.Set("agreement", Json::Object({{"items", output.agreement->items},
                                        {"top1", output.agreement->top1},
                                        {"top5", output.agreement->top5},
                                        {"tied1", output.agreement->tied1},
                                        {"tied5", output.agreement->tied5}}));
  }
  SetConfusion(output, json);
  if (!output.stretches.empty()) json.Set("stretches", Each(output.stretches, StretchJson));
  return json;
}

Json FloorJson(const ReportFloor& floor) {
  return Json::Object({{"path", floor.path},
                       {"precision", floor.precision},
                       {"most", floor.most},
                       {"outputs", Each(floor.outputs, [](const ReportFloor::Output& output) {
                          return Json::Object({{"name", output.name},
                                               {"answer", output.answer},
                                               {"samples", output.samples},
                                               {"rmse", output.rmse},
                                               {"floorRmse", output.floorRmse},
                                               {"times", output.times},
                                               {"snrDb", output.snrDb},
                                               {"floorSnrDb", output.floorSnrDb},
                                               {"isFloorLost", output.isFloorLost},
                                               {"leftOut", output.leftOut}});
                        })}});
}

Json TensorJson(const ReportInside::Tensor& tensor) {
  Json json = Json::Object({{"name", tensor.name},
                            {"verdict", NameOf(tensor.verdict)},
                            {"maxAbs", tensor.maxAbs},
                            {"relativeRmse", tensor.relativeRmse},
                            {"snrDb", tensor.snrDb},
                            {"outsideShare", tensor.outsideShare}});
  SetText(json, "floor", tensor.floor);
  SetKnown(json, "floorSnrDb", tensor.floorSnrDb);
  SetKnown(json, "timesFloor", tensor.timesFloor);
  return json;
}

Json InsideJson(const ReportInside& inside) {
  Json json = Json::Object({{"order", inside.order},
                            {"decidedBy", inside.decidedBy},
                            {"tensors", Each(inside.tensors, TensorJson)},
                            {"leftOut", inside.leftOut},
                            {"unpaired", All(inside.unpaired)}});
  SetKnown(json, "begin", inside.begin);
  SetKnown(json, "greatest", inside.greatest);
  SetKnown(json, "largestStep", inside.largestStep);
  SetText(json, "largestStepBehind", inside.largestStepBehind);
  SetKnown(json, "largestStepFallDb", inside.largestStepFallDb);
  return json;
}

Json JudgementJson(const ReportJudgement& judgement) {
  Json json =
      Json::Object({{"path", judgement.path},
                    {"status", judgement.status},
                    {"actual", judgement.actual},
                    {"expected", judgement.expected},
                    {"samples", judgement.samples},
                    {"missingSamples", judgement.missingSamples},
                    {"missing", Each(judgement.missing,
                                     [](const ReportJudgement::Missing& missing) {
                                       return Json::Object({{"sample", missing.sample},
                                                            {"side", missing.side},
                                                            {"reason", missing.reason}});
                                     })},
                    {"outputs", Each(judgement.outputs, OutputJson)},
                    {"outputsLeftOut", judgement.outputsLeftOut},
                    {"command", All(judgement.command)},
                    {"accuracy", Each(judgement.accuracy,
                                      [](const ReportAccuracy& accuracy) {
                                        return Json::Object({{"output", accuracy.output},
                                                             {"metric", accuracy.metric},
                                                             {"actual", accuracy.actual},
                                                             {"expected", accuracy.expected},
                                                             {"difference", accuracy.difference}});
                                      })},
                    {"remarks", All(judgement.remarks)},
                    {"unfinished", All(judgement.unfinished)},
                    {"preparation", All(judgement.preparation)}});
  if (judgement.floor) json.Set("floor", FloorJson(*judgement.floor));
  if (judgement.inside) json.Set("inside", InsideJson(*judgement.inside));
  return json;
}

// ---- Details ------------------------------------------------------------------------------------

Json PictureJson(const ReportPicture& picture) {
  return Json::Object({{"name", picture.name},
                       {"isTensor", picture.isTensor},
                       {"width", picture.width},
                       {"height", picture.height},
                       {"sourceWidth", picture.sourceWidth},
                       {"sourceHeight", picture.sourceHeight},
                       {"png", Base64(picture.png)}});
}

Json HeatmapJson(const ReportHeatmap& map) {
  return Json::Object({{"channel", map.channel},
                       {"place", map.place},
                       {"rows", map.rows},
                       {"columns", map.columns},
                       {"sourceRows", map.sourceRows},
                       {"sourceColumns", map.sourceColumns},
                       {"expected", All(map.expected)},
                       {"actual", All(map.actual)},
                       {"difference", All(map.difference)},
                       {"least", map.least},
                       {"most", map.most},
                       {"mostDifference", map.mostDifference},
                       {"rmse", map.rmse}});
}

Json HistogramJson(const ReportHistogram& histogram) {
  return Json::Object({{"low", histogram.low},
                       {"high", histogram.high},
                       {"actual", All(histogram.actual)},
                       {"expected", All(histogram.expected)},
                       {"actualNotFinite", histogram.actualNotFinite},
                       {"expectedNotFinite", histogram.expectedNotFinite}});
}

Json EnvelopeJson(const ReportEnvelope& envelope) {
  return Json::Object({{"elements", envelope.elements},
                       {"least", All(envelope.least)},
                       {"most", All(envelope.most)},
                       {"hasNotFinite", All(envelope.hasNotFinite)}});
}

Json LabelJson(const ReportLabel& label) {
  Json json =
      Json::Object({{"label", label.label}, {"value", label.value}, {"other", label.other}});
  if (label.sharing > 1) json.Set("sharing", label.sharing);
  return json;
}

Json BoxJson(const ReportBox& box) {
  return Json::Object({{"left", box.left},
                       {"top", box.top},
                       {"right", box.right},
                       {"bottom", box.bottom},
                       {"label", box.label},
                       {"score", box.score}});
}

// What was found in the tensors, where they could be opened.
void SetTensors(const ReportDetail& detail, Json& json) {
  json.Set("elements", detail.elements);
  json.Set("outside", detail.outside);
  json.Set("maxAbs", detail.maxAbs);
  json.Set("rmse", detail.rmse);
  json.Set("cosine", detail.cosine);
  json.Set("histogram", HistogramJson(detail.histogram));
  json.Set("envelope", EnvelopeJson(detail.envelope));
  json.Set("channels", detail.channels);
  json.Set("heatmaps", Each(detail.heatmaps, HeatmapJson));
  json.Set("worst", Each(detail.worst, ElementJson));
  if (!detail.expectedTop.empty() || !detail.actualTop.empty()) {
    json.Set("actualTop", Each(detail.actualTop, LabelJson));
    json.Set("expectedTop", Each(detail.expectedTop, LabelJson));
  }
  if (!detail.actualBoxes.empty() || !detail.expectedBoxes.empty()) {
    json.Set("actualBoxes", Each(detail.actualBoxes, BoxJson));
    json.Set("expectedBoxes", Each(detail.expectedBoxes, BoxJson));
  }
  if (detail.mask) {
    json.Set("mask", Json::Object({{"rows", detail.mask->rows},
                                   {"columns", detail.mask->columns},
                                   {"actual", All(detail.mask->actual)},
                                   {"expected", All(detail.mask->expected)}}));
  }
}

Json DetailJson(const ReportDetail& detail) {
  Json json = Json::Object({{"sample", detail.sample},
                            {"output", detail.output},
                            {"verdict", NameOf(detail.verdict)},
                            {"reasons", All(detail.reasons)},
                            {"causes", Each(detail.causes, CauseJson)},
                            {"inputs", All(detail.inputs)},
                            {"pictures", Each(detail.pictures, PictureJson)}});
  SetText(json, "pictureObstacle", detail.pictureObstacle);
  SetText(json, "actualPath", detail.actualPath);
  SetText(json, "expectedPath", detail.expectedPath);
  SetText(json, "obstacle", detail.obstacle);
  if (detail.obstacle.empty()) SetTensors(detail, json);
  return json;
}

// ---- Times, machine, trace ----------------------------------------------------------------------

Json SeriesJson(const ReportSeries& series) {
  Json json = Json::Object({{"name", series.name},
                            {"executionsPerRow", series.executionsPerRow},
                            {"sample", All(series.sample)},
                            {"isWarmUp", All(series.isWarmUp)},
                            {"medianNs", All(series.medianNs)},
                            {"leastNs", All(series.leastNs)},
                            {"mostNs", All(series.mostNs)},
                            {"startNs", All(series.startNs)},
                            {"warmUps", series.warmUps},
                            {"count", series.count},
                            {"failed", series.failed},
                            {"repeated", series.repeated}});
  if (series.warmUps > 0) json.Set("firstNs", series.firstNs);
  if (series.count == 0) return json;
  json.Set("medianOfAllNs", series.medianOfAllNs);
  json.Set("lowNs", series.lowNs);
  json.Set("highNs", series.highNs);
  json.Set("confidence", series.confidence);
  json.Set("deviationNs", series.deviationNs);
  SetKnown(json, "p90Ns", series.p90Ns);
  SetKnown(json, "p95Ns", series.p95Ns);
  SetKnown(json, "p99Ns", series.p99Ns);
  json.Set("leastOfAllNs", series.leastOfAllNs);
  json.Set("mostOfAllNs", series.mostOfAllNs);
  json.Set("outliers", series.outliers);
  json.Set("sumNs", series.sumNs);
  json.Set("steps", Each(series.steps, [](const ReportSeries::Step& step) {
             return Json::Object({{"execution", step.execution},
                                  {"sample", step.sample},
                                  {"countBefore", step.countBefore},
                                  {"countBehind", step.countBehind},
                                  {"beforeNs", step.beforeNs},
                                  {"behindNs", step.behindNs}});
           }));
  json.Set("slowest", Each(series.slowest, [](const ReportSeries::Slow& slow) {
             return Json::Object(
                 {{"execution", slow.execution}, {"sample", slow.sample}, {"timeNs", slow.timeNs}});
           }));
  SetKnown(json, "drift", series.drift);
  json.Set("histogramLowNs", series.histogramLowNs);
  json.Set("histogramHighNs", series.histogramHighNs);
  json.Set("histogram", All(series.histogram));
  return json;
}

Json TimesJson(const ReportTimes& times) {
  return Json::Object({{"series", Each(times.series, SeriesJson)},
                       {"phases", Each(times.phases,
                                       [](const ReportPhase& phase) {
                                         return Json::Object({{"id", phase.id},
                                                              {"text", phase.text},
                                                              {"beginNs", phase.beginNs},
                                                              {"durationNs", phase.durationNs}});
                                       })},
                       {"wholeNs", times.wholeNs}});
}

Json MachineJson(const ReportMachine& machine) {
  return Json::Object(
      {{"momentsPerRow", machine.momentsPerRow},
       {"atNs", All(machine.atNs)},
       {"rssBytes", ColumnOf(machine.rssBytes)},
       {"memoryAvailableBytes", ColumnOf(machine.memoryAvailableBytes)},
       {"leastFrequencyKhz", ColumnOf(machine.leastFrequencyKhz)},
       {"mostFrequencyKhz", ColumnOf(machine.mostFrequencyKhz)},
       {"zones", Each(machine.zones, [](const ReportMachine::Zone& zone) {
          return Json::Object({{"name", zone.name}, {"milliC", ColumnOf(zone.milliC)}});
        })}});
}

Json OperationJson(const OperationTimes& times) {
  Json json = Json::Object({{"name", times.name},
                            {"count", times.count},
                            {"failed", times.failed},
                            {"totalNs", times.totalNs},
                            {"medianNs", times.medianNs},
                            {"mostNs", times.mostNs}});
  SetKnown(json, "p99Ns", times.p99Ns);
  return json;
}

Json SpansJson(const std::vector<ReportSpan>& spans) {
  const auto column = [&](auto field) {
    return Each(spans, [&](const ReportSpan& span) { return Json(span.*field); });
  };
  return Json::Object(
      {{"beginNs", column(&ReportSpan::beginNs)},
       {"durationNs", column(&ReportSpan::durationNs)},
       {"operation", column(&ReportSpan::operation)},
       {"lane", column(&ReportSpan::lane)},
       {"calls", column(&ReportSpan::calls)},
       {"isFailed", Each(spans, [](const auto& span) { return Json(span.isFailed ? 1 : 0); })},
       {"isOpen", Each(spans, [](const auto& span) { return Json(span.isOpen ? 1 : 0); })}});
}

Json TraceJson(const ReportTrace& trace) {
  Json json = Json::Object(
      {{"path", trace.path},
       {"calls", trace.calls},
       {"dropped", trace.dropped},
       {"clockNs", trace.clockNs},
       {"wholeNs", trace.wholeNs},
       {"isEnded", trace.isEnded},
       {"operations", Each(trace.operations, OperationJson)},
       {"names", All(trace.names)},
       {"spans", SpansJson(trace.spans)},
       {"memoryAtNs", Each(trace.memory, [](const auto& one) { return Json(one.monotonicNs); })},
       {"memoryBytes", Each(trace.memory, [](const auto& one) { return Json(one.bytes); })},
       {"peakBytes", trace.peakBytes},
       {"leftBytes", trace.leftBytes}});
  SetKnown(json, "beganNs", trace.beganNs);
  return json;
}

// ---- Boards -------------------------------------------------------------------------------------

Json BoardJson(const ReportBoard& board) {
  Json phases = Json::Object();
  for (const auto& phase : board.phases) phases.Set(phase.name + "Ns", phase.durationNs);
  Json json = Json::Object({{"name", board.name},
                            {"chunksDone", board.chunksDone},
                            {"failedAttempts", board.failedAttempts},
                            {"samples", board.samples},
                            {"inDoubt", board.inDoubt},
                            {"isChecked", board.isChecked},
                            {"disagreesAt", All(board.disagreesAt)},
                            {"isAside", board.isAside},
                            {"phases", phases}});
  SetText(json, "host", board.host);
  SetText(json, "runtime", board.runtime);
  SetText(json, "runtimeXxh3_128", board.runtimeHash);
  SetText(json, "reason", board.reason);
  SetKnown(json, "samplesPerSecond", board.samplesPerSecond);
  SetKnown(json, "medianSampleNs", board.medianSampleNs);
  SetKnown(json, "highestTemperatureMilliC", board.highestTemperatureMilliC);
  SetKnown(json, "lowestFrequencyKhz", board.lowestFrequencyKhz);
  return json;
}

Json FleetJson(const ReportFleet& fleet) {
  return Json::Object({{"id", fleet.id},
                       {"boards", Each(fleet.boards, BoardJson)},
                       {"boardsLeftOut", fleet.boardsLeftOut},
                       {"crossCheck", All(fleet.crossCheck)},
                       {"notDeterministic", fleet.notDeterministic},
                       {"unequal", All(fleet.unequal)},
                       {"unfitAttempts", fleet.unfitAttempts},
                       {"unfit", All(fleet.unfit)}});
}

// ---- Runs ---------------------------------------------------------------------------------------

Json FindingJson(const ReportFinding& finding) {
  return Json::Object({{"id", finding.id},
                       {"severity", finding.severity},
                       {"count", finding.count},
                       {"message", finding.message},
                       {"operation", finding.operation}});
}

Json UndoneJson(const ReportUndone& undone) {
  return Json::Object({{"sample", undone.sample},
                       {"status", undone.status},
                       {"reason", undone.reason},
                       {"inputs", All(undone.inputs)}});
}

Json TensorJson(const ReportTensor& tensor) {
  return Json::Object({{"role", tensor.role},
                       {"name", tensor.name},
                       {"type", tensor.type},
                       {"shape", tensor.shape},
                       {"format", tensor.format}});
}

Json CommandJson(const ReportCommand& command) {
  return Json::Object({{"purpose", command.purpose}, {"command", command.command}});
}

Json RunJson(const ReportRun& run) {
  Json json = Json::Object(
      {{"path", run.path},
       {"name", run.name},
       {"answer", AnswerJson(run.answer)},
       {"run", ParseJson(ToJson(run.facts))},
       {"tensors",
        Each(run.tensors, [](const ReportTensor& tensor) { return TensorJson(tensor); })},
       {"remarks", Each(run.remarks, RemarkJson)},
       {"details", Each(run.details, DetailJson)},
       {"detailsRule", run.detailsRule},
       {"undone", Each(run.undone, UndoneJson)},
       {"times", TimesJson(run.times)},
       {"commands", Each(run.commands, CommandJson)}});
  if (!run.contradictions.empty()) json.Set("contradictions", All(run.contradictions));
  if (run.librariesLeftOut > 0) json.Set("librariesLeftOut", run.librariesLeftOut);
  SetText(json, "precision", run.precision);
  if (run.judgement) json.Set("judgement", JudgementJson(*run.judgement));
  if (run.machine) json.Set("machine", MachineJson(*run.machine));
  if (run.trace) json.Set("trace", TraceJson(*run.trace));
  if (run.areFindingsKnown) {
    json.Set("findings", Each(run.findings, FindingJson));
    json.Set("findingsLeftOut", run.findingsLeftOut);
  }
  if (run.fleet) json.Set("fleet", FleetJson(*run.fleet));
  return json;
}

// ---- Comparisons --------------------------------------------------------------------------------

Json ChangeJson(const ReportChange& change) {
  return Json::Object({{"what", change.what}, {"base", change.base}, {"other", change.other}});
}

Json OutputChangeJson(const ReportOutputChange& change) {
  Json json = Json::Object({{"output", change.output},
                            {"equal", change.equal},
                            {"different", change.different},
                            {"onlyBase", change.onlyBase},
                            {"onlyOther", change.onlyOther}});
  SetKnown(json, "firstDifferent", change.firstDifferent);
  return json;
}

Json ComparedTimesJson(const ReportComparison& comparison) {
  const Comparison& times = comparison.times;
  Json json = Json::Object({{"verdict", VerdictName(times.verdict)},
                            {"isPaired", times.isPaired},
                            {"base", times.base},
                            {"other", times.other}});
  if (times.verdict == TimingVerdict::kNothing) return json;
  json.Set("ratio", times.interval.ratio);
  json.Set("low", times.interval.low);
  json.Set("high", times.interval.high);
  json.Set("confidence", comparison.confidence);
  json.Set("differenceNs", times.differenceNs);
  json.Set("p", times.p);
  json.Set("gate", times.gate);
  SetKnown(json, "needed", times.needed);
  return json;
}

Json ComparisonJson(const ReportComparison& comparison) {
  return Json::Object({{"base", comparison.base},
                       {"other", comparison.other},
                       {"answer", AnswerJson(comparison.answer)},
                       {"times", ComparedTimesJson(comparison)},
                       {"outputs", Each(comparison.outputs, OutputChangeJson)},
                       {"environment", Each(comparison.environment, ChangeJson)},
                       {"verdicts", Each(comparison.verdicts, ChangeJson)},
                       {"remarks", All(comparison.remarks)}});
}

}  // namespace

std::string FactsJson(const ReportFacts& facts) {
  const Json json = Json::Object({{"schema", kReportSchema},
                                  {"title", facts.title},
                                  {"version", facts.version},
                                  {"madeRealtimeNs", facts.madeRealtimeNs},
                                  {"answer", AnswerJson(facts.answer)},
                                  {"runs", Each(facts.runs, RunJson)},
                                  {"comparisons", Each(facts.comparisons, ComparisonJson)}});
  return ToText(json, 1) + "\n";
}

}  // namespace vorn::kit
