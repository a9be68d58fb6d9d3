#include "kit/judge/verdict.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "kit/common/number_ranges.h"
#include "kit/common/printable.h"
#include "kit/common/text_table.h"
#include "kit/json/json.h"
#include "kit/judge/columns.h"
#include "kit/run/run_directory.h"

namespace vorn::kit {
namespace {

constexpr size_t kMostSamplesTold = 1000;
constexpr size_t kMostSamplesShown = 5;

bool IsWrong(const OutputVerdict& output) { return !output.wrong.empty(); }

bool IsNotJudged(const OutputVerdict& output) {
  return output.wrong.empty() && (!output.notJudged.empty() || output.samples.empty());
}

std::string StateText(const OutputVerdict& output) {
  if (IsWrong(output)) return "WRONG";
  return IsNotJudged(output) ? "not judged" : "right";
}

// The values of all samples at 0, 5, 50, 95 and 100 in 100.
struct Spread {
  double least = NAN;
  double p5 = NAN;
  double median = NAN;
  double p95 = NAN;
  double most = NAN;
};

Spread SpreadOf(const std::vector<SampleSketch>& samples, double SampleSketch::*figure) {
  std::vector<double> values;
  for (const SampleSketch& sample : samples) {
    // Of a sample without a finite pair there are none.
    if (!std::isnan(sample.*figure)) values.push_back(sample.*figure);
  }
  if (values.empty()) return {};
  std::sort(values.begin(), values.end());
  const auto at = [&](double share) {
    return values[static_cast<size_t>(std::lround(share * static_cast<double>(values.size() - 1)))];
  };
  return {values.front(), at(0.05), at(0.5), at(0.95), values.back()};
}

// ---- For people ---------------------------------------------------------------------------------

std::string CountText(uint64_t count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

// A dash where no pair could be measured.
std::string MeasureText(const Census& census, double measure) {
  return census.finite == 0 ? "-" : NumberText(measure);
}

std::string UlpText(const Census& census) {
  if (census.finite == 0) return "-";
  return std::to_string(census.ulp.Percentile(0.5)) + ", " +
         std::to_string(census.ulp.Percentile(0.99)) + ", " + std::to_string(census.maxUlp);
}

std::string Table(const Verdict& verdict) {
  TextTable table({{"output", false},
                   {"verdict", false},
                   {"samples", true},
                   {"wrong", true},
                   {"elements", true},
                   {"equal", true},
                   {"within", true},
                   {"outside", true},
                   {"max abs", true},
                   {"max rel", true},
                   {"RMSE", true},
                   {"cosine", true},
                   {"SNR dB", true},
                   {"PSNR dB", true},
                   {"ULP 50%, 99%, max", true}});
  for (const OutputVerdict& output : verdict.outputs) {
    const Census& census = output.census;
    table.Add({output.name, StateText(output), std::to_string(output.samples.size()),
               std::to_string(output.wrong.size()), std::to_string(census.elements),
               std::to_string(census.equal), std::to_string(census.within),
               std::to_string(census.outside), MeasureText(census, census.maxAbs),
               MeasureText(census, census.MaxRel()), MeasureText(census, census.Rmse()),
               MeasureText(census, census.Cosine()), MeasureText(census, census.Snr()),
               MeasureText(census, census.Psnr()), UlpText(census)});
  }
  return table.Text();
}

void AddFaults(std::string& text, const std::vector<SampleFault>& faults, const char* what) {
  for (size_t i = 0; i < std::min(faults.size(), kMostSamplesShown); ++i) {
    for (const std::string& reason : faults[i].reasons) {
      text +=
          "  sample " + std::to_string(faults[i].sample) + what + ": " + Printable(reason) + "\n";
    }
  }
  if (faults.size() > kMostSamplesShown) {
    text +=
        "  and " + CountText(faults.size() - kMostSamplesShown, "sample", "samples") + " more\n";
  }
}

// In the words of the page: what fits need not be what it was.
std::string FitText(const Cause& cause, const std::string& alike = "") {
  return cause.text + alike + "; that " + ExplainedText(cause.certainty);
}

// Where only other metrics have bounds, what is outside is counted and decides nothing.
std::string ToleranceText(const OutputRules& rules) {
  const bool isRule =
      std::any_of(rules.metrics.begin(), rules.metrics.end(), [](const MetricRule& rule) {
        return rule.metric == Metric::kOutside || rule.metric == Metric::kOutsideShare;
      });
  return (isRule ? "" : "only the rules below decide, and outside is counted by ") +
         TextOf(rules.tolerance.tolerance) + " (" + rules.tolerance.source + ")";
}

// The precision that all samples that were looked into are explained by, which is no fault of any
// element: none of them is worth a line.
const Cause* RoundingOf(const OutputVerdict& output) {
  constexpr std::string_view kRounded = "rounded-";
  const Cause* first = nullptr;
  for (const SampleCauses& sample : output.causes) {
    if (sample.causes.empty() || !sample.causes.front().id.starts_with(kRounded)) return nullptr;
    if (first != nullptr && sample.causes.front().id != first->id) return nullptr;
    if (first == nullptr || sample.causes.front().certainty < first->certainty) {
      first = &sample.causes.front();
    }
  }
  return first;
}

// Samples that the same cause explains best.
struct CauseGroup {
  std::vector<uint64_t> samples;
  std::vector<Cause> causes;  // of the first of them, the first one with the least certainty of all
  bool haveOneText = true;    // else the texts differ by their numbers
  std::string further{};      // then, behind the first text
};

// The stretch of one pattern that a wrong sample is one of.
const NeighbourStretch* StretchOf(const OutputVerdict& output, uint64_t sample) {
  for (const NeighbourStretch& stretch : output.stretches) {
    if (stretch.pattern != NeighbourPattern::kEither &&
        std::binary_search(stretch.wrong.begin(), stretch.wrong.end(), sample)) {
      return &stretch;
    }
  }
  return nullptr;
}

// The likeliest cause of all samples of a stretch in the same words.
std::vector<SampleCauses> CausesInWords(const OutputVerdict& output) {
  std::vector<SampleCauses> causes = output.causes;
  for (SampleCauses& sample : causes) {
    const NeighbourStretch* stretch = StretchOf(output, sample.sample);
    if (stretch == nullptr || sample.causes.empty()) continue;
    sample.causes.front().id = "neighbours-" + std::string(NeighbourPatternName(stretch->pattern));
    sample.causes.front().text = StretchText(*stretch);
  }
  return causes;
}

std::vector<CauseGroup> GroupsOf(const OutputVerdict& output) {
  std::vector<CauseGroup> groups;
  for (const SampleCauses& sample : CausesInWords(output)) {
    const std::string id = sample.causes.empty() ? "" : sample.causes.front().id;
    const auto group = std::find_if(groups.begin(), groups.end(), [&](const CauseGroup& one) {
      return id == (one.causes.empty() ? "" : one.causes.front().id);
    });
    if (group == groups.end()) {
      groups.push_back({{sample.sample}, sample.causes});
      continue;
    }
    group->samples.push_back(sample.sample);
    if (sample.causes.empty()) continue;
    Cause& cause = group->causes.front();
    const Cause& its = sample.causes.front();
    if (group->haveOneText && cause.text != its.text) {
      group->haveOneText = false;
      // One alone does not tell samples that were exchanged from those that came too late.
      group->further = its.id != "other-sample" ? ", others alike"
                                                : "; sample " + std::to_string(sample.sample) +
                                                      ": " + its.text + "; others alike";
    }
    cause.certainty = std::min(cause.certainty, its.certainty);
  }
  return groups;
}

void AddCauses(std::string& text, const OutputVerdict& output) {
  for (const CauseGroup& group : GroupsOf(output)) {
    const bool isOne = group.samples.size() == 1;
    const std::string who =
        (isOne ? "  sample " : "  samples ") + RangesText(group.samples, kMostSamplesShown);
    // What else one of many might be is in verdict.json.
    const size_t shown = isOne ? group.causes.size() : std::min<size_t>(group.causes.size(), 1);
    for (size_t i = 0; i < shown; ++i) {
      text += who + (i == 0 ? ": " : ", or: ") + FitText(group.causes[i], group.further) + "\n";
    }
    if (group.causes.empty()) {
      text += who + ": no known cause explains " + (isOne ? "it" : "them") + "\n";
    }
  }
  for (const NeighbourStretch& stretch : output.stretches) {
    for (const std::string& sentence : PassingTexts(stretch)) text += "  " + sentence + "\n";
  }
  if (output.causes.size() < output.wrong.size() && !output.causes.empty()) {
    text += "  causes were looked for in " + std::to_string(output.causes.size()) + " of " +
            CountText(output.wrong.size(), "wrong sample", "wrong samples") + "\n";
  }
}

std::string OutputText(const OutputVerdict& output) {
  std::string text = Printable(output.name) + ": ";
  if (!output.samples.empty()) {
    text += std::string(ElementName(output.type)) + " of " + TextOf(output.shape) + "; " +
            ToleranceText(output.rules);
  } else {
    text += StateText(output);
  }
  text += "\n";
  for (const MetricRule& rule : output.rules.metrics) text += "  rule: " + TextOf(rule) + "\n";
  const Census& census = output.census;
  if (census.actualNan + census.expectedNan + census.actualInfinite + census.expectedInfinite > 0) {
    text += "  NaN " + std::to_string(census.actualNan) + ", expected " +
            std::to_string(census.expectedNan) + "; infinite " +
            std::to_string(census.actualInfinite) + ", expected " +
            std::to_string(census.expectedInfinite) + "\n";
  }
  if (output.agreement.items > 0) {
    text += "  the same class first in " + std::to_string(output.agreement.top1) + " of " +
            CountText(output.agreement.items, "item", "items") +
            ", the expected one among the first five in " + std::to_string(output.agreement.top5) +
            "\n";
  }
  if (output.samples.size() > 1 && census.finite > 0) {
    const Spread spread = SpreadOf(output.samples, &SampleSketch::maxAbs);
    text += "  max abs over the samples: least " + NumberText(spread.least) + ", 5 % " +
            NumberText(spread.p5) + ", median " + NumberText(spread.median) + ", 95 % " +
            NumberText(spread.p95) + ", most " + NumberText(spread.most) + "\n";
  }
  AddFaults(text, output.notJudged, " is not judged");
  if (const Cause* rounding = RoundingOf(output)) {
    return text + "  " + CountText(output.wrong.size(), "sample is", "samples are") +
           " wrong: " + FitText(*rounding) + "\n";
  }
  AddFaults(text, output.wrong, "");
  for (const WorstElement& worst : output.worst) {
    text += "  sample " + std::to_string(worst.sample) + " at " +
            PlaceText(worst.difference.index, output.shape) + ": " +
            NumberText(static_cast<double>(worst.difference.actual)) + ", expected " +
            NumberText(static_cast<double>(worst.difference.expected)) + "\n";
  }
  AddCauses(text, output);
  return text;
}

std::string Conclusion(const Verdict& verdict) {
  uint64_t wrong = 0;
  uint64_t notJudged = 0;
  for (const OutputVerdict& output : verdict.outputs) {
    wrong += IsWrong(output) ? 1 : 0;
    notJudged += output.notJudged.empty() ? 0 : 1;
  }
  std::string text = CountText(verdict.samples, "sample", "samples") + ", " +
                     CountText(verdict.outputs.size(), "output", "outputs") + ": ";
  if (verdict.Status() == ExitStatus::kDone) return text + "all right\n";
  text += std::to_string(wrong) + " wrong";
  if (notJudged > 0) text += ", " + std::to_string(notJudged) + " not judged everywhere";
  if (!verdict.missing.empty()) {
    text += ", " + CountText(verdict.missing.size(), "sample", "samples") + " missing";
  }
  if (!verdict.unfinished.empty()) text += ", and not all samples were there";
  return text + "\n";
}

// ---- verdict.json -------------------------------------------------------------------------------

Json JsonOf(const Shape& shape) { return Json::ArrayOf(shape); }

Json JsonOf(const Census& census) {
  return Json::Object({{"elements", census.elements},
                       {"equal", census.equal},
                       {"within", census.within},
                       {"outside", census.outside},
                       {"actualNan", census.actualNan},
                       {"expectedNan", census.expectedNan},
                       {"onlyActualNan", census.onlyActualNan},
                       {"onlyExpectedNan", census.onlyExpectedNan},
                       {"actualInfinite", census.actualInfinite},
                       {"expectedInfinite", census.expectedInfinite},
                       {"onlyActualInfinite", census.onlyActualInfinite},
                       {"onlyExpectedInfinite", census.onlyExpectedInfinite},
                       {"oppositeInfinite", census.oppositeInfinite},
                       {"maxAbs", census.finite == 0 ? NAN : census.maxAbs},
                       {"meanAbs", census.MeanAbs()},
                       {"maxRel", census.MaxRel()},
                       {"rmse", census.Rmse()},
                       {"cosine", census.Cosine()},
                       {"snrDb", census.Snr()},
                       {"psnrDb", census.Psnr()},
                       {"ulpMedian", census.ulp.Percentile(0.5)},
                       {"ulp99", census.ulp.Percentile(0.99)},
                       {"ulpMax", census.maxUlp}});
}

Json JsonOf(const Spread& spread) {
  return Json::Object({{"least", spread.least},
                       {"p5", spread.p5},
                       {"median", spread.median},
                       {"p95", spread.p95},
                       {"most", spread.most}});
}

Json JsonOf(const std::vector<SampleFault>& faults) {
  Json array = Json::Array();
  for (size_t i = 0; i < std::min(faults.size(), kMostSamplesTold); ++i) {
    Json fault =
        Json::Object({{"sample", faults[i].sample}, {"reasons", Json::ArrayOf(faults[i].reasons)}});
    if (faults[i].nan > 0) fault.Set("nan", faults[i].nan);
    if (faults[i].infinite > 0) fault.Set("infinite", faults[i].infinite);
    array.Append(std::move(fault));
  }
  return array;
}

Json RulesJson(const OutputRules& rules) {
  Json metrics = Json::Array();
  for (const MetricRule& rule : rules.metrics) {
    metrics.Append(Json::Object(
        {{"metric", MetricName(rule.metric)}, {rule.isLeast ? "atLeast" : "atMost", rule.bound}}));
  }
  const Tolerance& tolerance = rules.tolerance.tolerance;
  return Json::Object({{"atol", tolerance.atol},
                       {"rtol", tolerance.rtol},
                       {"isNanExpected", tolerance.isNanExpected},
                       {"source", rules.tolerance.source},
                       {"metrics", metrics}});
}

Json WorstJson(const OutputVerdict& output) {
  Json array = Json::Array();
  for (const WorstElement& worst : output.worst) {
    array.Append(Json::Object({{"sample", worst.sample},
                               {"index", worst.difference.index},
                               {"place", PlaceText(worst.difference.index, output.shape)},
                               {"actual", static_cast<double>(worst.difference.actual)},
                               {"expected", static_cast<double>(worst.difference.expected)}}));
  }
  return array;
}

Json CausesJson(const OutputVerdict& output) {
  Json array = Json::Array();
  for (const SampleCauses& sample : output.causes) {
    Json causes = Json::Array();
    for (const Cause& cause : sample.causes) {
      causes.Append(
          Json::Object({{"id", cause.id}, {"text", cause.text}, {"certainty", cause.certainty}}));
    }
    array.Append(Json::Object({{"sample", sample.sample}, {"causes", causes}}));
  }
  return array;
}

Json StretchesJson(const OutputVerdict& output) {
  Json array = Json::Array();
  const auto some = [](std::vector<uint64_t> samples) {
    samples.resize(std::min(samples.size(), kMostSamplesTold));
    return Json::ArrayOf(samples);
  };
  for (size_t i = 0; i < std::min(output.stretches.size(), kMostSamplesTold); ++i) {
    const NeighbourStretch& stretch = output.stretches[i];
    array.Append(Json::Object({{"pattern", std::string(NeighbourPatternName(stretch.pattern))},
                               {"wrong", some(stretch.wrong)},
                               {"undecided", some(stretch.undecided)},
                               {"right", some(stretch.right)}}));
  }
  return array;
}

Json OutputJson(const OutputVerdict& output, size_t mostRows) {
  Json json = Json::Object({{"name", output.name},
                            {"verdict", IsWrong(output)       ? "wrong"
                                        : IsNotJudged(output) ? "notJudged"
                                                              : "right"}});
  if (!output.expectedName.empty()) json.Set("expectedName", output.expectedName);
  json.Set("type", ElementName(output.type));
  json.Set("shape", JsonOf(output.shape));
  json.Set("rules", RulesJson(output.rules));
  json.Set("samples", output.samples.size());
  json.Set("wrongSamples", output.wrong.size());
  json.Set("census", JsonOf(output.census));
  if (output.agreement.items > 0) {
    uint64_t leftOut = 0;
    Json pairs = PairsJson(output.agreement, leftOut);
    json.Set("agreement", Json::Object({{"items", output.agreement.items},
                                        {"top1", output.agreement.top1},
                                        {"top5", output.agreement.top5},
                                        {"tied1", output.agreement.tied1},
                                        {"tied5", output.agreement.tied5},
                                        {"pairs", std::move(pairs)},
                                        {"pairsLeftOut", leftOut}}));
  }
  json.Set("overSamples",
           Json::Object({{"maxAbs", JsonOf(SpreadOf(output.samples, &SampleSketch::maxAbs))},
                         {"rmse", JsonOf(SpreadOf(output.samples, &SampleSketch::rmse))},
                         {"cosine", JsonOf(SpreadOf(output.samples, &SampleSketch::cosine))}}));
  json.Set("columns", ColumnsJson(output.samples, mostRows));
  json.Set("wrong", JsonOf(output.wrong));
  json.Set("notJudged", JsonOf(output.notJudged));
  json.Set("worst", WorstJson(output));
  json.Set("causes", CausesJson(output));
  if (!output.stretches.empty()) json.Set("stretches", StretchesJson(output));
  return json;
}

// ---- JUnit --------------------------------------------------------------------------------------

std::string Xml(std::string_view text) {
  std::string escaped;
  // Printable leaves nothing that XML could not hold, but line ends have to stay.
  for (const char c : text) {
    switch (c) {
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '&':
        escaped += "&amp;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      default:
        escaped += c;
        break;
    }
  }
  return escaped;
}

// A class of the package "judge". The name of the run, whose points would end a package, keeps
// apart what several runs are judged to be.
std::string ClassOf(const Verdict& verdict) {
  std::string run = Printable(verdict.actualPath);
  std::replace(run.begin(), run.end(), '.', '_');
  return "judge." + run;
}

std::string TestCase(const Verdict& verdict, const std::string& name, const std::string& element,
                     const std::string& message, const std::string& body) {
  std::string text = "    <testcase classname=\"" + Xml(ClassOf(verdict)) + "\" name=\"" +
                     Xml(Printable(name)) + "\"";
  if (element.empty()) return text + "/>\n";
  return text + ">\n      <" + element + " message=\"" + Xml(message) + "\">" + Xml(body) + "</" +
         element + ">\n    </testcase>\n";
}

// Of inner tensors the table of all has it already: the model's own outputs alone, where they are
// known.
FloorReport ShownFloor(const Verdict& verdict) {
  FloorReport shown = *verdict.floor;
  if (!verdict.inside || verdict.inside->ownOutputs == 0) return shown;
  const size_t own = std::min(verdict.inside->ownOutputs, shown.outputs.size());
  shown.outputs.erase(shown.outputs.begin(), shown.outputs.end() - static_cast<ptrdiff_t>(own));
  return shown;
}

}  // namespace

ExitStatus Verdict::Status() const {
  if (!Unreadable().empty()) return ExitStatus::kInput;
  if (!missing.empty() || !unfinished.empty()) return ExitStatus::kPartial;
  bool isAnyNotJudged = false;
  bool isAnyCompared = false;
  for (const OutputVerdict& output : outputs) {
    if (IsWrong(output)) return ExitStatus::kDiffers;
    isAnyNotJudged = isAnyNotJudged || !output.notJudged.empty();
    isAnyCompared = isAnyCompared || !output.samples.empty();
  }
  return isAnyCompared && !isAnyNotJudged ? ExitStatus::kDone : ExitStatus::kNothing;
}

std::vector<std::string> Verdict::Unreadable() const {
  std::vector<std::string> texts;
  for (const OutputVerdict& output : outputs) {
    for (const SampleFault& fault : output.notJudged) {
      if (fault.isUnreadable) texts.push_back(fault.reasons.front());
    }
  }
  return texts;
}

std::string VerdictText(const Verdict& verdict, bool areAllWanted) {
  std::string text = verdict.inside ? InsideText(*verdict.inside, areAllWanted) : Table(verdict);
  if (!verdict.preparation.empty()) text += "\n" + PreparationText(verdict.preparation);
  // Of many tensors that follow from each other the first is what there is to know.
  const auto begin = verdict.inside ? verdict.inside->Begin() : std::nullopt;
  for (size_t i = 0; i < verdict.outputs.size(); ++i) {
    if (!verdict.inside || i == begin) text += "\n" + OutputText(verdict.outputs[i]);
  }
  if (verdict.floor) text += "\n" + FloorText(ShownFloor(verdict));
  if (!verdict.missing.empty()) text += "\n";
  for (size_t i = 0; i < std::min(verdict.missing.size(), kMostSamplesShown); ++i) {
    const MissingSample& missing = verdict.missing[i];
    text += "sample " + std::to_string(missing.sample) + " is missing" +
            (missing.isActualMissing ? "" : " on the expected side") + ": " +
            Printable(missing.reason) + "\n";
  }
  if (verdict.missing.size() > kMostSamplesShown) {
    text += "and " + CountText(verdict.missing.size() - kMostSamplesShown, "sample", "samples") +
            " more\n";
  }
  for (const Accuracy& accuracy : verdict.accuracy) {
    text += "\n" + Printable(accuracy.output) + ", " + accuracy.metric + ": " +
            NumberText(accuracy.actual) + ", expected side " + NumberText(accuracy.expected) +
            ", difference " + NumberText(accuracy.actual - accuracy.expected);
  }
  if (!verdict.accuracy.empty()) text += "\n";
  if (!verdict.unfinished.empty()) text += "\n";
  for (const std::string& reason : verdict.unfinished) text += Printable(reason) + "\n";
  for (const std::string& remark : verdict.remarks) text += Printable(remark) + "\n";
  return text + "\n" + Conclusion(verdict);
}

std::string VerdictJson(const Verdict& verdict) {
  Json outputs = Json::Array();
  const size_t mostRows = RowsAnOutput(verdict.outputs.size());
  for (const OutputVerdict& output : verdict.outputs) {
    outputs.Append(OutputJson(output, mostRows));
  }
  Json missing = Json::Array();
  for (size_t i = 0; i < std::min(verdict.missing.size(), kMostSamplesTold); ++i) {
    const MissingSample& sample = verdict.missing[i];
    missing.Append(Json::Object({{"sample", sample.sample},
                                 {"side", sample.isActualMissing ? "actual" : "expected"},
                                 {"reason", sample.reason}}));
  }
  Json accuracy = Json::Array();
  for (const Accuracy& one : verdict.accuracy) {
    accuracy.Append(Json::Object({{"output", one.output},
                                  {"metric", one.metric},
                                  {"actual", one.actual},
                                  {"expected", one.expected},
                                  {"difference", one.actual - one.expected}}));
  }
  Json json = Json::Object({{"schema", kVerdictSchema},
                            {"status", static_cast<int>(verdict.Status())},
                            {"actual", verdict.actualPath},
                            {"expected", verdict.expectedPath},
                            {"samples", verdict.samples},
                            {"missingSamples", verdict.missing.size()},
                            {"outputs", outputs},
                            {"missing", missing},
                            {"unfinished", Json::ArrayOf(verdict.unfinished)},
                            {"accuracy", accuracy},
                            {"remarks", Json::ArrayOf(verdict.remarks)}});
  if (!verdict.preparation.empty()) {
    json.Set("preparation", PreparationJson(verdict.preparation));
  }
  if (verdict.inside) json.Set("inside", InsideJson(*verdict.inside));
  if (verdict.floor) json.Set("floor", FloorJson(*verdict.floor));
  if (!verdict.command.empty()) json.Set("command", Json::ArrayOf(verdict.command));
  if (!verdict.map.empty()) json.Set("map", ParseJson(verdict.map));
  return ToText(json, 2) + "\n";
}

std::string VerdictJUnit(const Verdict& verdict) {
  std::string cases;
  size_t failures = 0;
  size_t errors = 0;
  size_t tests = 0;
  for (const OutputVerdict& output : verdict.outputs) {
    ++tests;
    const std::string body = "\n" + OutputText(output);
    if (IsWrong(output)) {
      ++failures;
      cases += TestCase(verdict, output.name, "failure",
                        CountText(output.wrong.size(), "sample", "samples") + " wrong", body);
    } else if (IsNotJudged(output)) {
      ++errors;
      cases += TestCase(verdict, output.name, "error", "could not be judged", body);
    } else {
      cases += TestCase(verdict, output.name, "", "", "");
    }
  }
  for (size_t i = 0; i < std::min(verdict.missing.size(), kMostSamplesTold); ++i) {
    ++tests;
    ++errors;
    const MissingSample& missing = verdict.missing[i];
    cases += TestCase(verdict, "sample " + std::to_string(missing.sample), "error", "missing",
                      "\n" + Printable(missing.reason) + "\n");
  }
  for (const std::string& reason : verdict.unfinished) {
    ++tests;
    ++errors;
    cases +=
        TestCase(verdict, "the whole run", "error", "not ended", "\n" + Printable(reason) + "\n");
  }
  if (tests == 0) {
    tests = errors = 1;
    cases = TestCase(verdict, "anything", "error", "nothing was compared", "\n");
  }
  const std::string counts = "tests=\"" + std::to_string(tests) + "\" failures=\"" +
                             std::to_string(failures) + "\" errors=\"" + std::to_string(errors) +
                             "\" skipped=\"0\"";
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<testsuites " + counts +
         ">\n  <testsuite name=\"vorn judge " + Xml(Printable(verdict.actualPath)) + "\" " +
         counts + ">\n" + cases + "  </testsuite>\n</testsuites>\n";
}

}  // namespace vorn::kit
