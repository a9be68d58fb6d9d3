#include "kit/judge/rules.h"

#include <fnmatch.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>

#include "kit/common/fault.h"
#include "kit/common/nearest.h"
#include "kit/common/printable.h"
#include "kit/json/json.h"
#include "kit/json/json_members.h"

namespace vorn::kit {
namespace {

struct PresetRow {
  std::string_view name;
  double atol;
  double rtol;
  std::string_view source;
};

constexpr std::array kPresets{
    PresetRow{"float32", 1e-5, 1.3e-6, "float32, as torch.testing.assert_close has it"},
    PresetRow{"float16", 1e-5, 1e-3, "float16, as torch.testing.assert_close has it"},
    PresetRow{"bfloat16", 1e-5, 1.6e-2, "bfloat16, as torch.testing.assert_close has it"},
    PresetRow{"onnx", 1e-7, 1e-3, "as the ONNX backend tests have it"},
    PresetRow{"exact", 0, 0, "exact"},
};

struct MetricRow {
  Metric metric;
  std::string_view name;
};

constexpr std::array kMetrics{
    MetricRow{Metric::kOutside, "outside"},     MetricRow{Metric::kOutsideShare, "outsideShare"},
    MetricRow{Metric::kMaxAbs, "maxAbs"},       MetricRow{Metric::kMeanAbs, "meanAbs"},
    MetricRow{Metric::kMaxRel, "maxRel"},       MetricRow{Metric::kRmse, "rmse"},
    MetricRow{Metric::kCosine, "cosine"},       MetricRow{Metric::kSnr, "snrDb"},
    MetricRow{Metric::kPsnr, "psnrDb"},         MetricRow{Metric::kUlpMedian, "ulpMedian"},
    MetricRow{Metric::kUlp99, "ulp99"},         MetricRow{Metric::kUlpMax, "ulpMax"},
    MetricRow{Metric::kTop1, "top1"},           MetricRow{Metric::kTop5, "top5"},
    MetricRow{Metric::kOverFloor, "overFloor"},
};

double BoundOf(const Json& object, const char* key, bool mayBeNegative) {
  const Json* value = object.Find(key);
  if (value == nullptr) return 0;
  const double number = value->AsNumber();
  if (std::isnan(number) || (number < 0 && !mayBeNegative)) {
    throw JsonError(std::string(key) + " is " + ShownValue(*value) + ", and has to be 0 or more");
  }
  return number;
}

Metric MetricNamed(const std::string& name) {
  std::vector<std::string> names;
  for (const MetricRow& row : kMetrics) {
    if (row.name == name) return row.metric;
    names.emplace_back(row.name);
  }
  throw JsonError("there is no metric '" + Printable(name) + "'" + DidYouMean(name, names));
}

NamedTolerance PresetNamed(const std::string& name) {
  const auto preset = Preset(name);
  if (preset) return *preset;
  std::vector<std::string> names;
  for (const PresetRow& row : kPresets) names.emplace_back(row.name);
  throw JsonError("there is no preset '" + Printable(name) + "'" + DidYouMean(name, names));
}

void HoldRuleToKeys(const Json& entry) {
  const std::vector<std::string> known{"output", "atol",   "rtol",   "preset", "exact",
                                       "nan",    "metric", "atMost", "atLeast"};
  for (const auto& [key, value] : entry.Members()) {
    if (std::find(known.begin(), known.end(), key) != known.end()) continue;
    throw JsonError("there is no key '" + Printable(key) + "'" + DidYouMean(key, known));
  }
}

MetricRule MetricRuleOf(const Json& entry) {
  MetricRule rule;
  rule.output = entry.At("output").AsText();
  rule.metric = MetricNamed(entry.At("metric").AsText());
  rule.isLeast = entry.Find("atLeast") != nullptr;
  if (rule.isLeast == (entry.Find("atMost") != nullptr)) {
    throw JsonError("a metric needs either atMost or atLeast");
  }
  rule.bound = BoundOf(entry, rule.isLeast ? "atLeast" : "atMost", true);
  return rule;
}

ToleranceRule ToleranceRuleOf(const Json& entry) {
  ToleranceRule rule;
  rule.output = entry.At("output").AsText();
  const Json* preset = entry.Find("preset");
  const Json* exact = entry.Find("exact");
  const bool hasBounds = entry.Find("atol") != nullptr || entry.Find("rtol") != nullptr;
  if ((preset != nullptr ? 1 : 0) + (exact != nullptr ? 1 : 0) + (hasBounds ? 1 : 0) != 1) {
    throw JsonError("a rule needs one of: atol and rtol, preset, exact, metric");
  }
  if (preset != nullptr) {
    rule.tolerance = PresetNamed(preset->AsText());
  } else if (exact != nullptr) {
    if (!exact->AsBool()) throw JsonError("exact can only be true");
    rule.tolerance = PresetNamed("exact");
  } else {
    rule.tolerance.tolerance.atol = BoundOf(entry, "atol", false);
    rule.tolerance.tolerance.rtol = BoundOf(entry, "rtol", false);
    rule.tolerance.source = "the rules file";
  }
  if (const Json* nan = entry.Find("nan")) {
    if (nan->AsText() != "where expected") throw JsonError("nan can only be \"where expected\"");
    rule.tolerance.tolerance.isNanExpected = true;
  }
  return rule;
}

std::string_view PresetOfType(ElementType type) {
  switch (type) {
    case ElementType::kFloat32:
    case ElementType::kFloat64:
      return "float32";
    case ElementType::kFloat16:
      return "float16";
    case ElementType::kBfloat16:
      return "bfloat16";
    default:
      return "exact";
  }
}

// A difference of one step has that of its two values.
constexpr double kFloatNoise = 1e-6;

double AsShare(uint64_t part, uint64_t whole) {
  return whole == 0 ? 0 : static_cast<double>(part) / static_cast<double>(whole);
}

void AddUnusual(std::vector<std::string>& broken, uint64_t count, const char* what) {
  if (count > 0) broken.push_back(std::to_string(count) + " " + what);
}

std::optional<double> MeasureOf(const Census& census, double measure) {
  if (census.finite == 0) return std::nullopt;
  return measure;
}

}  // namespace

bool FitsName(const std::string& glob, const std::string& output) {
  return fnmatch(glob.c_str(), output.c_str(), 0) == 0;
}

std::string_view MetricName(Metric metric) {
  for (const MetricRow& row : kMetrics) {
    if (row.metric == metric) return row.name;
  }
  return "";
}

std::optional<NamedTolerance> Preset(std::string_view name) {
  for (const PresetRow& row : kPresets) {
    if (row.name != name) continue;
    return NamedTolerance{{.atol = row.atol, .rtol = row.rtol}, std::string(row.source)};
  }
  return std::nullopt;
}

Rules ParseRules(std::string_view text, const std::string& what) {
  size_t number = 0;
  try {
    const Json object = ParseJson(text);
    HoldToSchema(object, 1);
    for (const auto& [key, value] : object.Members()) {
      if (key != "schema" && key != "rules") {
        throw JsonError("there is no key '" + Printable(key) + "'; schema and rules are known");
      }
    }
    Rules rules;
    for (const Json& entry : object.At("rules").Items()) {
      ++number;
      HoldRuleToKeys(entry);
      if (entry.Find("metric") != nullptr) {
        rules.metrics.push_back(MetricRuleOf(entry));
      } else {
        rules.tolerances.push_back(ToleranceRuleOf(entry));
      }
    }
    return rules;
  } catch (const JsonError& error) {
    const std::string place = number == 0 ? "" : "rule " + std::to_string(number) + ": ";
    throw Fault(ExitStatus::kInput, what + ": " + place + error.what());
  }
}

OutputRules RulesFor(const Rules& rules, const std::string& output, ElementType type,
                     std::optional<double> step) {
  OutputRules found;
  for (const MetricRule& rule : rules.metrics) {
    if (FitsName(rule.output, output)) found.metrics.push_back(rule);
  }
  const ToleranceRule* given = nullptr;
  for (const ToleranceRule& rule : rules.tolerances) {
    if (given == nullptr && FitsName(rule.output, output)) given = &rule;
  }
  const bool isCounted =
      std::any_of(found.metrics.begin(), found.metrics.end(), [](const MetricRule& rule) {
        return rule.metric == Metric::kOutside || rule.metric == Metric::kOutsideShare;
      });
  // Who bounds how many are outside, or names nothing but other metrics, need not have none.
  const bool isDefault = given != nullptr ? !isCounted : found.metrics.empty();
  if (given != nullptr) {
    found.tolerance = given->tolerance;
  } else if (step) {
    found.tolerance = {{.atol = std::abs(*step), .rtol = kFloatNoise},
                       "one step of the quantised output"};
  } else {
    found.tolerance = *Preset(PresetOfType(type));
  }
  if (isDefault) found.metrics.push_back({output, Metric::kOutside, false, 0});
  return found;
}

bool RestsOnFloorAlone(const OutputRules& rules) {
  return !rules.metrics.empty() &&
         std::all_of(rules.metrics.begin(), rules.metrics.end(),
                     [](const MetricRule& rule) { return rule.metric == Metric::kOverFloor; });
}

std::optional<double> ValueOf(Metric metric, const Census& census, const TopAgreement& agreement,
                              std::optional<double> overFloor) {
  switch (metric) {
    case Metric::kOutside:
      return static_cast<double>(census.outside);
    case Metric::kOutsideShare:
      return AsShare(census.outside, census.elements);
    case Metric::kMaxAbs:
      return MeasureOf(census, census.maxAbs);
    case Metric::kMeanAbs:
      return MeasureOf(census, census.MeanAbs());
    case Metric::kMaxRel:
      return MeasureOf(census, census.MaxRel());
    case Metric::kRmse:
      return MeasureOf(census, census.Rmse());
    case Metric::kCosine:
      return MeasureOf(census, census.Cosine());
    case Metric::kSnr:
      return MeasureOf(census, census.Snr());
    case Metric::kPsnr:
      return MeasureOf(census, census.Psnr());
    case Metric::kUlpMedian:
      return MeasureOf(census, static_cast<double>(census.ulp.Percentile(0.5)));
    case Metric::kUlp99:
      return MeasureOf(census, static_cast<double>(census.ulp.Percentile(0.99)));
    case Metric::kUlpMax:
      return MeasureOf(census, static_cast<double>(census.maxUlp));
    case Metric::kTop1:
    case Metric::kTop5:
      if (agreement.items == 0) return std::nullopt;
      return AsShare(metric == Metric::kTop1 ? agreement.top1 : agreement.top5, agreement.items);
    case Metric::kOverFloor:
      return overFloor;
  }
  return std::nullopt;
}

std::vector<std::string> BrokenRules(const OutputRules& rules, const Census& census,
                                     const TopAgreement& agreement,
                                     std::optional<double> overFloor) {
  std::vector<std::string> broken;
  AddUnusual(broken, census.onlyActualNan, "NaN where a number is expected");
  AddUnusual(broken, census.onlyExpectedNan, "numbers where NaN is expected");
  if (!rules.tolerance.tolerance.isNanExpected) {
    AddUnusual(broken, census.actualNan - census.onlyActualNan,
               "NaN on both sides, which the rules do not allow");
  }
  AddUnusual(broken, census.onlyActualInfinite, "infinities that are not expected");
  AddUnusual(broken, census.onlyExpectedInfinite, "infinities expected that are none");
  AddUnusual(broken, census.oppositeInfinite, "infinities of the other sign");
  for (const MetricRule& rule : rules.metrics) {
    const auto value = ValueOf(rule.metric, census, agreement, overFloor);
    if (!value) {
      // Without a pair to measure nothing passes, whatever the rules: whoever judges sees to it.
      if (census.finite == 0) continue;
      broken.push_back(TextOf(rule) + (rule.metric == Metric::kOverFloor
                                           ? ": the floor has nothing to compare it with"
                                           : ": the output has none, it holds no probabilities"));
      continue;
    }
    // Written so that a metric that is no number breaks its rule.
    const bool holds = rule.isLeast ? *value >= rule.bound : *value <= rule.bound;
    if (holds) continue;
    if (rule.metric == Metric::kOutside && rule.bound == 0) {
      broken.push_back(std::to_string(census.outside) + " of " + std::to_string(census.elements) +
                       " elements outside " + TextOf(rules.tolerance.tolerance));
    } else {
      broken.push_back(std::string(MetricName(rule.metric)) + " is " + NumberText(*value) +
                       ", and has to be " + (rule.isLeast ? "at least " : "at most ") +
                       NumberText(rule.bound));
    }
  }
  return broken;
}

std::string NumberText(double value) {
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "%.6g", value);
  return text.data();
}

std::string TextOf(const Tolerance& tolerance) {
  if (tolerance.atol == 0 && tolerance.rtol == 0) return "a = r";
  std::string text = "|a − r| ≤ " + NumberText(tolerance.atol);
  if (tolerance.rtol != 0) text += " + " + NumberText(tolerance.rtol) + "·|r|";
  return text;
}

std::string TextOf(const MetricRule& rule) {
  return std::string(MetricName(rule.metric)) + (rule.isLeast ? " ≥ " : " ≤ ") +
         NumberText(rule.bound);
}

}  // namespace vorn::kit
