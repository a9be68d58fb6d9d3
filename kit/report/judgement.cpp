#include "kit/report/judgement.h"

#include <algorithm>
#include <set>
#include <utility>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "kit/common/printable.h"
#include "kit/json/json.h"
#include "kit/json/json_members.h"
#include "kit/report/answer.h"
#include "kit/run/run_directory.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostVerdictBytes = 256 << 20;

// What a measure of the census may be left out of.
double NumberAt(const Json& object, const char* key) {
  const Json* value = object.Find(key);
  return value == nullptr ? 0 : value->AsNumber();
}

uint64_t CountAt(const Json& object, const char* key) {
  const Json* value = object.Find(key);
  return value == nullptr ? 0 : value->AsUnsigned();
}

std::string TextAt(const Json& object, const char* key) {
  const Json* value = object.Find(key);
  return value == nullptr ? "" : value->AsText();
}

bool BoolAt(const Json& object, const char* key) {
  const Json* value = object.Find(key);
  return value != nullptr && value->AsBool();
}

/// Items of an array that may be left out, `most` of them.
template <typename Take>
void ForEachOf(const Json& object, const char* key, size_t most, Take take) {
  const Json* array = object.Find(key);
  if (array == nullptr) return;
  const auto& items = array->Items();
  for (size_t i = 0; i < std::min(items.size(), most); ++i) take(items[i]);
}

std::vector<std::string> TextsAt(const Json& object, const char* key, size_t most) {
  std::vector<std::string> texts;
  ForEachOf(object, key, most, [&](const Json& item) { texts.push_back(item.AsText()); });
  return texts;
}

ReportVerdict VerdictOf(const std::string& name) {
  if (name == "right") return ReportVerdict::kRight;
  if (name == "wrong") return ReportVerdict::kWrong;
  return ReportVerdict::kNotJudged;
}

// ---- Outputs ------------------------------------------------------------------------------------

void TakeRules(const Json& rules, ReportOutput& output) {
  output.atol = NumberAt(rules, "atol");
  output.rtol = NumberAt(rules, "rtol");
  output.isNanExpected = BoolAt(rules, "isNanExpected");
  output.rulesSource = TextAt(rules, "source");
  ForEachOf(rules, "metrics", kMostReportFaults, [&](const Json& rule) {
    const Json* least = rule.Find("atLeast");
    const Json* bound = least != nullptr ? least : rule.Find("atMost");
    if (bound == nullptr) return;
    output.rules.push_back({rule.At("metric").AsText(), bound->AsNumber(), least != nullptr});
  });
}

// Names that are measured; all others are counts.
bool IsMeasure(const std::string& name) {
  static const std::set<std::string> measures{"maxAbs", "meanAbs", "maxRel", "rmse",
                                              "cosine", "snrDb",   "psnrDb"};
  return measures.count(name) > 0;
}

std::vector<ReportMeasure> CensusOf(const Json& census) {
  std::vector<ReportMeasure> measures;
  for (const auto& [name, value] : census.Members()) {
    if (!value.IsNumber() && !value.IsText()) continue;
    measures.push_back({name, value.AsNumber(), !IsMeasure(name)});
    if (measures.size() == kMostReportFaults) break;
  }
  return measures;
}

ReportSpread SpreadOf(const std::string& name, const Json& spread) {
  return {name,
          NumberAt(spread, "least"),
          NumberAt(spread, "p5"),
          NumberAt(spread, "median"),
          NumberAt(spread, "p95"),
          NumberAt(spread, "most")};
}

template <typename Value, typename Read>
std::vector<Value> ColumnOf(const Json& columns, const char* key, Read read) {
  std::vector<Value> column;
  ForEachOf(columns, key, kMostReportRows,
            [&](const Json& item) { column.push_back(static_cast<Value>(read(item))); });
  return column;
}

ReportColumns ColumnsOf(const Json& json) {
  const auto whole = [](const Json& item) { return item.AsUnsigned(); };
  const auto number = [](const Json& item) { return item.AsNumber(); };
  ReportColumns columns;
  columns.samplesPerRow = std::max<uint64_t>(CountAt(json, "samplesPerRow"), 1);
  columns.sample = ColumnOf<uint64_t>(json, "sample", whole);
  columns.expectedSample = ColumnOf<uint64_t>(json, "expectedSample", whole);
  columns.isWrong = ColumnOf<uint8_t>(
      json, "isRight", [](const Json& item) { return item.AsUnsigned() == 0 ? 1 : 0; });
  columns.outside = ColumnOf<uint64_t>(json, "outside", whole);
  columns.notFinite = ColumnOf<uint64_t>(json, "notFinite", whole);
  columns.maxAbs = ColumnOf<double>(json, "maxAbs", number);
  columns.rmse = ColumnOf<double>(json, "rmse", number);
  columns.cosine = ColumnOf<double>(json, "cosine", number);
  const size_t rows = columns.sample.size();
  if (columns.isWrong.size() != rows || columns.outside.size() != rows ||
      columns.maxAbs.size() != rows || columns.rmse.size() != rows ||
      columns.cosine.size() != rows ||
      (!columns.notFinite.empty() && columns.notFinite.size() != rows) ||
      (!columns.expectedSample.empty() && columns.expectedSample.size() != rows)) {
    throw JsonError("its columns are of different lengths");
  }
  return columns;
}

// Of many outputs fewer each, and a hundred at least.
size_t FaultsAnOutput(size_t outputs) {
  constexpr size_t kMostOfAll = 20 * kMostReportFaults;
  return std::clamp<size_t>(kMostOfAll / std::max<size_t>(outputs, 1), 100, kMostReportFaults);
}

std::vector<ReportFault> FaultsOf(const Json& output, const char* key, size_t most) {
  std::vector<ReportFault> faults;
  ForEachOf(output, key, most, [&](const Json& fault) {
    faults.push_back({fault.At("sample").AsUnsigned(),
                      TextsAt(fault, "reasons", 20),
                      {},
                      CountAt(fault, "nan"),
                      CountAt(fault, "infinite")});
  });
  return faults;
}

std::vector<ReportCause> CausesOf(const Json& sample) {
  std::vector<ReportCause> causes;
  ForEachOf(sample, "causes", 20, [&](const Json& cause) {
    causes.push_back({TextAt(cause, "id"), TextAt(cause, "text"), NumberAt(cause, "certainty")});
  });
  return causes;
}

void TakeCauses(const Json& json, ReportOutput& output) {
  ForEachOf(json, "causes", kMostReportFaults, [&](const Json& one) {
    const uint64_t sample = one.At("sample").AsUnsigned();
    const auto at = std::find_if(output.wrong.begin(), output.wrong.end(),
                                 [&](const ReportFault& fault) { return fault.sample == sample; });
    if (at != output.wrong.end()) at->causes = CausesOf(one);
  });
}

std::vector<uint64_t> SamplesAt(const Json& object, const char* key) {
  std::vector<uint64_t> samples;
  ForEachOf(object, key, kMostReportFaults,
            [&](const Json& item) { samples.push_back(item.AsUnsigned()); });
  // They are looked up.
  if (!std::is_sorted(samples.begin(), samples.end())) {
    throw JsonError("samples of a stretch are not in their order");
  }
  return samples;
}

void TakeStretches(const Json& json, ReportOutput& output) {
  ForEachOf(json, "stretches", kMostReportStretches, [&](const Json& one) {
    NeighbourStretch stretch{NeighbourPatternOf(TextAt(one, "pattern")), SamplesAt(one, "wrong"),
                             SamplesAt(one, "undecided"), SamplesAt(one, "right")};
    if (!stretch.wrong.empty()) output.stretches.push_back(std::move(stretch));
  });
}

ReportElement ElementOf(const Json& json) {
  return {json.At("sample").AsUnsigned(), json.At("index").AsUnsigned(), TextAt(json, "place"),
          NumberAt(json, "actual"), NumberAt(json, "expected")};
}

void TakeConfusion(const Json& agreement, ReportOutput& output) {
  ForEachOf(agreement, "pairs", kMostReportConfusion, [&](const Json& json) {
    const auto& pair = json.Items();
    if (pair.size() != 3) throw JsonError("a pair of classes is no list of three numbers");
    output.confusion.push_back({pair[0].AsUnsigned(), pair[1].AsUnsigned(), pair[2].AsUnsigned()});
    output.confusionItems += pair[2].AsUnsigned();
  });
  output.confusionLeftOut = CountAt(agreement, "pairsLeftOut");
  output.confusionItems += output.confusionLeftOut;
}

ReportOutput OutputOf(const Json& json, size_t mostFaults) {
  ReportOutput output;
  output.name = json.At("name").AsText();
  output.expectedName = TextAt(json, "expectedName");
  output.verdict = VerdictOf(json.At("verdict").AsText());
  output.type = TextAt(json, "type");
  ForEachOf(json, "shape", 64,
            [&](const Json& size) { output.shape.push_back(size.AsUnsigned()); });
  if (const Json* rules = json.Find("rules")) TakeRules(*rules, output);
  output.samples = CountAt(json, "samples");
  output.wrongSamples = CountAt(json, "wrongSamples");
  if (const Json* census = json.Find("census")) output.census = CensusOf(*census);
  if (const Json* spreads = json.Find("overSamples")) {
    for (const auto& [name, spread] : spreads->Members()) {
      output.spreads.push_back(SpreadOf(name, spread));
      if (output.spreads.size() == kMostReportFaults) break;
    }
  }
  if (const Json* columns = json.Find("columns")) output.columns = ColumnsOf(*columns);
  if (const Json* agreement = json.Find("agreement")) {
    output.agreement = ReportOutput::Agreement{
        CountAt(*agreement, "items"), CountAt(*agreement, "top1"), CountAt(*agreement, "top5"),
        CountAt(*agreement, "tied1"), CountAt(*agreement, "tied5")};
    TakeConfusion(*agreement, output);
  }
  output.wrong = FaultsOf(json, "wrong", mostFaults);
  output.notJudged = FaultsOf(json, "notJudged", mostFaults);
  ForEachOf(json, "worst", kMostReportFaults,
            [&](const Json& element) { output.worst.push_back(ElementOf(element)); });
  TakeCauses(json, output);
  TakeStretches(json, output);
  return output;
}

// ---- All but the outputs ------------------------------------------------------------------------

std::string PreparationText(const Json& json) {
  const std::string input = TextAt(json, "input");
  std::string text = "the input " + InQuotes(input) + " was not made alike on both sides:";
  bool isFirst = true;
  ForEachOf(json, "differences", 50, [&](const Json& difference) {
    text += (isFirst ? " " : "; ") + TextAt(difference, "name") + " is " +
            InQuotes(TextAt(difference, "actual")) + ", and " +
            InQuotes(TextAt(difference, "expected")) + " on the expected side";
    isFirst = false;
  });
  if (const Json* sources = json.Find("otherSources")) {
    text += std::string(isFirst ? " " : "; ") + Counted(CountAt(*sources, "samples"), "sample") +
            " of another source, the first " + std::to_string(CountAt(*sources, "first")) + ": " +
            InQuotes(TextAt(*sources, "actual")) + ", and " +
            InQuotes(TextAt(*sources, "expected")) + " on the expected side";
  }
  return text;
}

ReportFloor FloorOf(const Json& json) {
  ReportFloor floor;
  floor.path = TextAt(json, "path");
  floor.precision = TextAt(json, "precision");
  floor.most = NumberAt(json, "most");
  ForEachOf(json, "outputs", kMostReportTensors, [&](const Json& output) {
    floor.outputs.push_back({TextAt(output, "name"), TextAt(output, "answer"),
                             CountAt(output, "samples"), NumberAt(output, "rmse"),
                             NumberAt(output, "floorRmse"), NumberAt(output, "times"),
                             NumberAt(output, "snrDb"), NumberAt(output, "floorSnrDb"),
                             BoolAt(output, "isFloorLost"), TextAt(output, "leftOut")});
  });
  return floor;
}

ReportInside::Tensor TensorOf(const Json& json) {
  ReportInside::Tensor tensor;
  tensor.name = json.At("name").AsText();
  tensor.verdict = VerdictOf(TextAt(json, "verdict"));
  tensor.maxAbs = NumberAt(json, "maxAbs");
  tensor.relativeRmse = NumberAt(json, "relativeRmse");
  tensor.snrDb = NumberAt(json, "snrDb");
  tensor.outsideShare = NumberAt(json, "outsideShare");
  tensor.floor = TextAt(json, "floor");
  if (const Json* snr = json.Find("floorSnrDb")) tensor.floorSnrDb = snr->AsNumber();
  if (const Json* times = json.Find("timesFloor")) tensor.timesFloor = times->AsNumber();
  return tensor;
}

/// Which tensors of a graph too large to be shown are: the first and last ones, those around the
/// places that are named, and of the others every n-th.
std::vector<size_t> ShownTensors(size_t count, const std::vector<size_t>& named) {
  std::set<size_t> shown;
  if (count == 0) return {};
  const auto take = [&](size_t place) {
    if (place < count) shown.insert(place);
  };
  for (const size_t place : named) {
    for (size_t near = place < 2 ? 0 : place - 2; near <= place + 2; ++near) take(near);
  }
  take(count - 1);
  const size_t step = count <= kMostReportTensors ? 1 : 2 * count / kMostReportTensors + 1;
  for (size_t place = 0; place < count; place += step) take(place);
  return {shown.begin(), shown.end()};
}

std::optional<size_t> PlaceAt(const Json& json, const char* key) {
  const Json* place = json.Find(key);
  if (place == nullptr) return std::nullopt;
  return place->At("place").AsUnsigned();
}

ReportInside InsideOf(const Json& json) {
  ReportInside inside;
  inside.order = TextAt(json, "order");
  inside.decidedBy = TextAt(json, "decidedBy");
  inside.begin = PlaceAt(json, "begin");
  inside.greatest = PlaceAt(json, "greatest");
  inside.largestStep = PlaceAt(json, "largestStep");
  if (const Json* step = json.Find("largestStep")) {
    inside.largestStepBehind = TextAt(*step, "behind");
    if (const Json* fall = step->Find("fallDb")) inside.largestStepFallDb = fall->AsNumber();
  }
  ForEachOf(json, "unpaired", kMostReportFaults, [&](const Json& one) {
    inside.unpaired.push_back(InQuotes(TextAt(one, "name")) + " is on the " + TextAt(one, "side") +
                              " side only");
  });
  const auto& tensors = json.At("tensors").Items();
  std::vector<size_t> named;
  for (const auto& place : {inside.begin, inside.greatest, inside.largestStep}) {
    if (place && *place < tensors.size()) named.push_back(*place);
  }
  const std::vector<size_t> shown = ShownTensors(tensors.size(), named);
  for (const size_t place : shown) inside.tensors.push_back(TensorOf(tensors[place]));
  inside.leftOut = tensors.size() - shown.size();
  for (auto* place : {&inside.begin, &inside.greatest, &inside.largestStep}) {
    if (!*place) continue;
    const auto at = std::lower_bound(shown.begin(), shown.end(), **place);
    if (at != shown.end() && *at == **place) {
      *place = static_cast<size_t>(at - shown.begin());
    } else {
      *place = std::nullopt;
    }
  }
  return inside;
}

}  // namespace

KeptJudgement ParseJudgement(std::string_view text, const std::string& path) {
  const Json json = ParseJson(text);
  HoldToSchema(json, kVerdictSchema);
  KeptJudgement kept;
  ReportJudgement& judgement = kept.facts;
  judgement.path = path;
  judgement.status = static_cast<int>(json.At("status").AsUnsigned() & 0xff);
  judgement.actual = json.At("actual").AsText();
  judgement.expected = json.At("expected").AsText();
  judgement.samples = json.At("samples").AsUnsigned();
  judgement.missingSamples = CountAt(json, "missingSamples");
  ForEachOf(json, "missing", kMostReportFaults, [&](const Json& missing) {
    judgement.missing.push_back(
        {missing.At("sample").AsUnsigned(), TextAt(missing, "side"), TextAt(missing, "reason")});
  });
  const size_t outputs = json.At("outputs").Items().size();
  ForEachOf(json, "outputs", kMostReportTensors, [&](const Json& output) {
    judgement.outputs.push_back(OutputOf(output, FaultsAnOutput(outputs)));
  });
  judgement.outputsLeftOut = outputs - judgement.outputs.size();
  ForEachOf(json, "accuracy", kMostReportFaults, [&](const Json& one) {
    judgement.accuracy.push_back({TextAt(one, "output"), TextAt(one, "metric"),
                                  NumberAt(one, "actual"), NumberAt(one, "expected"),
                                  NumberAt(one, "difference")});
  });
  judgement.remarks = TextsAt(json, "remarks", kMostReportFaults);
  judgement.unfinished = TextsAt(json, "unfinished", kMostReportFaults);
  judgement.command = TextsAt(json, "command", kMostReportFaults);
  ForEachOf(json, "preparation", kMostReportFaults,
            [&](const Json& one) { judgement.preparation.push_back(PreparationText(one)); });
  if (const Json* floor = json.Find("floor")) judgement.floor = FloorOf(*floor);
  if (const Json* inside = json.Find("inside")) judgement.inside = InsideOf(*inside);
  if (const Json* map = json.Find("map")) kept.map = ToText(*map);
  return kept;
}

KeptJudgement ReadJudgement(const std::string& path) {
  const std::string text =
      ReadWholeFile(path, "the verdict", ExitStatus::kInput, kMostVerdictBytes);
  try {
    return ParseJudgement(text, path);
  } catch (const JsonError& error) {
    throw Fault(ExitStatus::kInput, "the verdict " + Quoted(path) + ": " + error.what());
  }
}

}  // namespace vorn::kit
