// Samples are paired first, by names alone; then each pair of outputs is read once, side by side.
// Only where an output is wrong, and only for the first few of its samples, both tensors are held
// to look for the cause.
#include "kit/judge/judge.h"

#include <fnmatch.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <iterator>
#include <map>
#include <set>
#include <tuple>
#include <utility>

#include "kit/common/fault.h"
#include "kit/common/nearest.h"
#include "kit/common/printable.h"
#include "kit/judge/paired_tensor.h"
#include "kit/run/run_directory.h"

namespace vorn::kit {
namespace {

constexpr size_t kBlock = 32 * 1024;
constexpr size_t kFewestCauses = 3;  // samples of an output that are looked into
constexpr size_t kMostCauses = 64;
constexpr uint64_t kCauseElements = 1 << 20;  // of an output's samples together, beyond the fewest
constexpr uint64_t kMostCauseElements = 1 << 24;
constexpr uint64_t kMostLabelledElements = 1 << 26;
constexpr size_t kPrintSize = 32;  // values that tell an output from others

struct SamplePair {
  const SampleSource* actual = nullptr;
  const SampleSource* expected = nullptr;
  std::optional<uint64_t> position;  ///< among the samples, where the expected source is stacked
};

const SampleSource* FindSample(const TensorSource& source, uint64_t index) {
  const auto at = std::lower_bound(
      source.samples.begin(), source.samples.end(), index,
      [](const SampleSource& sample, uint64_t wanted) { return sample.index < wanted; });
  return at != source.samples.end() && at->index == index ? &*at : nullptr;
}

// ---- Pairs of samples ---------------------------------------------------------------------------

class SamplePairing {
 public:
  SamplePairing(const JudgeRequest& request, Verdict& verdict)
      : request_(request), verdict_(verdict) {}

  std::vector<SamplePair> Pairs() {
    if (IsStacked()) {
      PairStacked();
    } else if (request_.map.samples == Map::Samples::kListed) {
      PairListed();
    } else if (request_.map.samples == Map::Samples::kByInputs) {
      PairByInputs();
    } else {
      PairByIndex();
    }
    return std::move(pairs_);
  }

 private:
  bool IsStacked() const {
    const auto& samples = request_.actual.samples;
    return request_.expected.mayBeStacked && request_.map.samples == Map::Samples::kByIndex &&
           (samples.size() > 1 || (samples.size() == 1 && samples.front().index > 0));
  }

  void Miss(uint64_t sample, bool isActualMissing, const std::string& reason) {
    verdict_.missing.push_back({sample, isActualMissing, reason});
  }

  void Pair(const SampleSource& actual, const SampleSource& expected) {
    if (!actual.absence.empty()) return Miss(actual.index, true, actual.absence);
    if (!expected.absence.empty()) return Miss(actual.index, false, expected.absence);
    pairs_.push_back({&actual, &expected, {}});
  }

  void PairStacked() {
    uint64_t position = 0;
    for (const SampleSource& actual : request_.actual.samples) {
      const uint64_t own = position++;
      if (!actual.absence.empty()) {
        Miss(actual.index, true, actual.absence);
        continue;
      }
      pairs_.push_back({&actual, &request_.expected.samples.front(), own});
    }
  }

  void PairByIndex() {
    for (const SampleSource& actual : request_.actual.samples) {
      const SampleSource* expected = FindSample(request_.expected, actual.index);
      if (expected == nullptr) {
        Miss(actual.index, false, "nothing is expected of it");
      } else {
        Pair(actual, *expected);
      }
    }
    for (const SampleSource& expected : request_.expected.samples) {
      if (FindSample(request_.actual, expected.index) == nullptr) {
        Miss(expected.index, true, "it is expected and was not run");
      }
    }
  }

  void PairListed() {
    for (const auto& [actualIndex, expectedIndex] : request_.map.listed) {
      const SampleSource* actual = FindSample(request_.actual, actualIndex);
      const SampleSource* expected = FindSample(request_.expected, expectedIndex);
      if (actual == nullptr) {
        Miss(actualIndex, true, "the map names it, and it was not run");
      } else if (expected == nullptr) {
        Miss(actualIndex, false,
             "the map expects sample " + std::to_string(expectedIndex) +
                 " of it, which is not there");
      } else {
        Pair(*actual, *expected);
      }
    }
  }

  std::map<std::string, const SampleSource*> ByInputs(const TensorSource& source) {
    std::map<std::string, const SampleSource*> found;
    for (const SampleSource& sample : source.samples) {
      std::string key;
      for (const std::string& input : sample.inputs) key += input + '\n';
      if (key.empty()) {
        throw Fault(ExitStatus::kInput, "sample " + std::to_string(sample.index) + " of " +
                                            source.kind + " '" + Printable(source.path) +
                                            "' tells no inputs to be paired by; pair by index");
      }
      if (!found.try_emplace(key, &sample).second) {
        throw Fault(ExitStatus::kInput, "two samples of " + source.kind + " '" +
                                            Printable(source.path) + "' have the input '" +
                                            Printable(sample.inputs.front()) +
                                            "'; pair them by index or in the map");
      }
    }
    return found;
  }

  void PairByInputs() {
    const auto actual = ByInputs(request_.actual);
    const auto expected = ByInputs(request_.expected);
    for (const SampleSource& sample : request_.actual.samples) {
      std::string key;
      for (const std::string& input : sample.inputs) key += input + '\n';
      const auto at = expected.find(key);
      if (at == expected.end()) {
        Miss(sample.index, false, "nothing is expected of the input " + sample.inputs.front());
      } else {
        Pair(sample, *at->second);
      }
    }
    for (const auto& [key, sample] : expected) {
      if (actual.find(key) == actual.end()) {
        Miss(sample->index, true, "it is expected and was not run");
      }
    }
  }

  const JudgeRequest& request_;
  Verdict& verdict_;
  std::vector<SamplePair> pairs_;
};

// ---- Pairs of outputs ---------------------------------------------------------------------------

struct OutputPair {
  std::string name;
  const OutputPlace* actual = nullptr;    ///< null: the actual side lacks it
  const OutputPlace* expected = nullptr;  ///< null: nothing is expected
  const MappedOutput* mapped = nullptr;
};

const OutputPlace* FindOutput(const SampleSource& sample, const std::string& name) {
  for (const OutputPlace& output : sample.outputs) {
    if (output.name == name) return &output;
  }
  return nullptr;
}

std::vector<std::string> NamesOf(const SampleSource& sample) {
  std::vector<std::string> names;
  for (const OutputPlace& output : sample.outputs) names.push_back(output.name);
  return names;
}

const MappedOutput* FindMapped(const Map& map, const std::string& name) {
  for (const MappedOutput& output : map.outputs) {
    if (SpelledAsDump(output.actual.name) == name) return &output;
  }
  return nullptr;
}

// Files without names are paired by their place, if there are as many.
const OutputPlace* FindByPlace(const SamplePair& pair, size_t place) {
  const auto& expected = pair.expected->outputs;
  const bool areNameless =
      std::all_of(expected.begin(), expected.end(),
                  [](const OutputPlace& output) { return output.name.empty(); });
  if (!areNameless || expected.size() != pair.actual->outputs.size()) return nullptr;
  return &expected[place];
}

bool IsWanted(const JudgeRequest& request, const std::string& name) {
  return !request.only || fnmatch(request.only->c_str(), name.c_str(), 0) == 0;
}

std::vector<OutputPair> PairOutputs(const JudgeRequest& request, const SamplePair& pair) {
  std::vector<OutputPair> outputs;
  for (size_t place = 0; place < pair.actual->outputs.size(); ++place) {
    const OutputPlace& actual = pair.actual->outputs[place];
    OutputPair output{actual.name, &actual, nullptr, FindMapped(request.map, actual.name)};
    const std::string wanted =
        output.mapped != nullptr ? SpelledAsDump(output.mapped->expected.name) : actual.name;
    output.expected = FindOutput(*pair.expected, wanted);
    if (output.expected == nullptr) output.expected = FindByPlace(pair, place);
    outputs.push_back(output);
  }
  for (const OutputPlace& expected : pair.expected->outputs) {
    const bool isPaired =
        std::any_of(outputs.begin(), outputs.end(),
                    [&](const OutputPair& output) { return output.expected == &expected; });
    // In a stacked folder there may be arrays of other things.
    if (!isPaired) outputs.push_back({expected.name, nullptr, &expected, nullptr});
  }
  std::erase_if(outputs, [&](const OutputPair& output) { return !IsWanted(request, output.name); });
  return outputs;
}

// ---- One output of one sample -------------------------------------------------------------------

// All values of an output, actual and expected.
using Sides = std::pair<std::vector<float>, std::vector<float>>;

// Values at evenly spread places, which tell one sample's output from another's.
using Print = std::array<float, kPrintSize>;

struct OutputState {
  OutputVerdict verdict;
  std::map<uint64_t, Print> prints;  ///< of what is expected, by sample
  std::vector<uint64_t> wrongSamples;
  std::optional<LabelJudge> labels;
  FloorComparison floor;
  /// Places in verdict.samples of those that are right, and of which no other rule says so.
  std::vector<size_t> rightByFloor;
  bool isPaired = false;  ///< in a sample at least
  bool isActual = false;  ///< where it is not: the side that has it
};

// By what the value with the greatest magnitude was multiplied, where that explains the others.
struct SampleScale {
  size_t place = 0;  ///< in OutputVerdict::causes
  double scale = 0;
  double explained = 0;
};

std::optional<SampleScale> ScaleOfSample(const CauseQuestion& question, size_t place) {
  constexpr double kMostUnexplained = 0.15;  // of the sum of differences
  constexpr double kLeastOff = 0.02;
  constexpr double kMostScale = 1000;
  if (question.expected.empty() || question.actual.size() != question.expected.size()) {
    return std::nullopt;
  }
  size_t greatest = 0;
  for (size_t i = 0; i < question.expected.size(); ++i) {
    if (std::abs(question.expected[i]) > std::abs(question.expected[greatest])) greatest = i;
  }
  const double scale = static_cast<double>(question.actual[greatest]) /
                       static_cast<double>(question.expected[greatest]);
  const bool isScale = scale > 1 / kMostScale && scale < kMostScale;
  if (!isScale || std::abs(scale - 1) < kLeastOff) return std::nullopt;
  double left = 0;
  double plain = 0;
  for (size_t i = 0; i < question.actual.size(); ++i) {
    const auto actual = static_cast<double>(question.actual[i]);
    const auto expected = static_cast<double>(question.expected[i]);
    left += std::abs(actual - scale * expected);
    plain += std::abs(actual - expected);
  }
  // What is not finite explains nothing.
  if (!(left <= kMostUnexplained * plain)) return std::nullopt;
  return SampleScale{place, scale, 1 - left / plain};
}

// One large value alone may be anything, and so is never called scaled. Where those of several
// samples were multiplied by the same number, all of them were.
void AddSharedScale(const std::vector<SampleScale>& scales, std::vector<SampleCauses>& samples) {
  constexpr size_t kFewest = 3;
  constexpr double kAlike = 0.005;
  std::vector<SampleScale> shared;
  for (const SampleScale& one : scales) {
    std::vector<SampleScale> alike;
    std::copy_if(scales.begin(), scales.end(), std::back_inserter(alike), [&](const auto& other) {
      return std::abs(other.scale - one.scale) <= kAlike * one.scale;
    });
    if (alike.size() > shared.size()) shared = std::move(alike);
  }
  if (shared.size() < kFewest) return;
  const double scale = shared[shared.size() / 2].scale;
  for (const SampleScale& one : shared) {
    std::vector<Cause>& causes = samples[one.place].causes;
    const auto isScaled = [](const Cause& cause) { return cause.id == "scaled"; };
    if (std::any_of(causes.begin(), causes.end(), isScaled)) continue;
    std::erase_if(causes, [](const Cause& cause) { return cause.id == "isolated"; });
    const auto place = std::find_if(causes.begin(), causes.end(), [&](const Cause& cause) {
      return cause.certainty < one.explained;
    });
    causes.insert(place,
                  {"scaled", "every value is " + NumberText(scale) + " times the expected one",
                   one.explained});
  }
}

class Judging {
 public:
  Judging(const JudgeRequest& request, const std::function<void(size_t, size_t)>& onProgress)
      : request_(request), onProgress_(onProgress) {}

  Verdict Run() {
    verdict_.actualPath = request_.actual.path;
    verdict_.expectedPath = request_.expected.path;
    for (const TensorSource* source : {&request_.actual, &request_.expected}) {
      if (!source->unfinished.empty()) verdict_.unfinished.push_back(source->unfinished);
    }
    TellOfRanges();
    CheckNames();
    CheckOnly();
    CheckFloor();
    pairs_ = SamplePairing(request_, verdict_).Pairs();
    verdict_.samples = pairs_.size();
    for (size_t i = 0; i < pairs_.size(); ++i) {
      for (const OutputPair& output : PairOutputs(request_, pairs_[i])) JudgeOutput(i, output);
      if (onProgress_) onProgress_(i + 1, pairs_.size());
    }
    MissItems();
    for (auto& [name, state] : states_) WithdrawByLostFloor(state);
    if (request_.isInside) OrderByGraph();
    if (request_.floor) {
      verdict_.floor = FloorReport{
          request_.floor->path, PrecisionOf(*request_.floor), request_.mostOverFloor, {}};
    }
    for (const std::string& name : order_) {
      OutputState& state = states_.at(name);
      if (state.labels) {
        for (const Accuracy& accuracy : state.labels->Result(name)) {
          verdict_.accuracy.push_back(accuracy);
        }
      }
      if (!request_.isInside || IsBeginning(state)) FindCausesOf(state);
      if (request_.floor) {
        state.floor.output = name;
        verdict_.floor->outputs.push_back(std::move(state.floor));
      }
      verdict_.outputs.push_back(std::move(state.verdict));
    }
    if (verdict_.inside) TellTensors();
    SuspectInputs();
    return std::move(verdict_);
  }

 private:
  // What int8 has to lose by them is not what this network has to lose.
  void TellOfRanges() {
    const auto tell = [&](const std::string& side, const TensorSource& source) {
      for (const RunWarning& warning : WarningsOf(source)) {
        if (warning.id != kOtherRangesWarning) continue;
        verdict_.remarks.push_back(side + " '" + source.path + "': " + warning.message);
      }
    };
    tell("the run", request_.actual);
    tell("the run of what is expected", request_.expected);
    if (request_.floor) tell("the floor", *request_.floor);
  }

  // A run of another hand need not have a record.
  static std::vector<RunWarning> WarningsOf(const TensorSource& source) {
    if (!source.isRun) return {};
    try {
      return ReadRun(source.path).warnings;
    } catch (const Fault&) {
      return {};
    }
  }

  void SuspectInputs() {
    const bool isAnyWrong =
        std::any_of(verdict_.outputs.begin(), verdict_.outputs.end(),
                    [](const OutputVerdict& output) { return !output.wrong.empty(); });
    if (!isAnyWrong || !request_.actual.isRun || !request_.expected.isRun) return;
    std::vector<std::pair<uint64_t, uint64_t>> samples;
    for (const SamplePair& pair : pairs_) {
      samples.emplace_back(pair.actual->index, pair.expected->index);
    }
    verdict_.preparation =
        ComparePreparation(request_.actual.path, request_.expected.path, samples);
  }

  // A name that no sample has would be passed over: what was to be held would hold nothing.
  void CheckNames() const {
    if (request_.actual.samples.empty()) return;
    std::vector<std::string> names;
    for (const SampleSource& sample : request_.actual.samples) {
      if (!sample.outputs.empty()) names = NamesOf(sample);
      if (!names.empty()) break;
    }
    if (names.empty()) return;
    for (const OutputLabels& labels : request_.labels) {
      if (labels.output.empty() && names.size() == 1) continue;
      const std::string name = SpelledAsDump(labels.output);
      if (std::find(names.begin(), names.end(), name) != names.end()) continue;
      throw Fault(ExitStatus::kInput,
                  labels.output.empty()
                      ? "the labels are a list of classes, and the samples have several outputs; "
                        "say which one in a labels file of JSON"
                      : "the labels name the output '" + Printable(labels.output) +
                            "', and there is none" + DidYouMean(name, names));
    }
    for (const MappedOutput& mapped : request_.map.outputs) {
      const std::string name = SpelledAsDump(mapped.actual.name);
      if (std::find(names.begin(), names.end(), name) != names.end()) continue;
      throw Fault(ExitStatus::kInput, "the map names the actual output '" +
                                          Printable(mapped.actual.name) + "', and there is none" +
                                          DidYouMean(name, names));
    }
    for (const ToleranceRule& rule : request_.rules.tolerances) CheckRule(rule.output, names);
    for (const MetricRule& rule : request_.rules.metrics) CheckRule(rule.output, names);
  }

  // What is bounded against a floor would be wrong in every sample.
  void CheckFloor() const {
    for (const MetricRule& rule : request_.rules.metrics) {
      if (rule.metric != Metric::kOverFloor || request_.floor) continue;
      throw Fault(ExitStatus::kInput,
                  "the rules bound overFloor, and there is no floor to compare with; give --floor");
    }
  }

  // Outputs that stand on the expected side alone are meant, too: they are missed.
  void CheckOnly() const {
    if (!request_.only) return;
    std::set<std::string> names;
    for (const TensorSource* source : {&request_.actual, &request_.expected}) {
      for (const SampleSource& sample : source->samples) {
        for (const OutputPlace& output : sample.outputs) {
          if (IsWanted(request_, output.name)) return;
          if (!output.name.empty()) names.insert(output.name);
        }
      }
    }
    if (names.empty()) return;
    const std::vector<std::string> all(names.begin(), names.end());
    const std::string meant = DidYouMean(*request_.only, all);
    throw Fault(ExitStatus::kNothing, "--only '" + Printable(*request_.only) +
                                          "' fits the name of no output" +
                                          (meant.empty() ? "; there is " + Listed(all) : meant));
  }

  // The first names of some.
  static std::string Listed(const std::vector<std::string>& names) {
    constexpr size_t kMostListed = 5;
    std::string text;
    for (size_t i = 0; i < std::min(names.size(), kMostListed); ++i) {
      text += (i == 0 ? "'" : ", '") + Printable(names[i]) + "'";
    }
    if (names.size() > kMostListed) {
      text += " and " + std::to_string(names.size() - kMostListed) + " more";
    }
    return text;
  }

  static void CheckRule(const std::string& glob, const std::vector<std::string>& names) {
    const auto isMeant = [&](const std::string& name) { return FitsName(glob, name); };
    if (std::any_of(names.begin(), names.end(), isMeant)) return;
    throw Fault(ExitStatus::kInput, "the rules name the output '" + Printable(glob) +
                                        "', and there is none" + DidYouMean(glob, names));
  }

  OutputState& StateOf(const std::string& name) {
    const auto [at, isNew] = states_.try_emplace(name);
    if (isNew) {
      order_.push_back(name);
      at->second.verdict.name = name;
      for (const OutputLabels& labels : request_.labels) {
        if (labels.output.empty() || SpelledAsDump(labels.output) == name) {
          at->second.labels.emplace(labels);
        }
      }
    }
    return at->second;
  }

  uint64_t SampleOf(size_t pair) const { return pairs_[pair].actual->index; }

  void JudgeOutput(size_t pair, const OutputPair& output) {
    OutputState& state = StateOf(output.name);
    OutputVerdict& verdict = state.verdict;
    const uint64_t sample = SampleOf(pair);
    const bool isOnBoth = output.actual != nullptr && output.expected != nullptr;
    // What the map pairs is meant to be on both sides.
    state.isPaired = state.isPaired || isOnBoth || output.mapped != nullptr;
    state.isActual = output.actual != nullptr;
    if (output.actual == nullptr) {
      verdict.wrong.push_back({sample,
                               {"it is expected, and the actual side has no such output" +
                                DidYouMean(output.name, NamesOf(*pairs_[pair].actual))}});
      return;
    }
    if (output.expected == nullptr) {
      verdict.notJudged.push_back(
          {sample,
           {"nothing is expected of it" + DidYouMean(output.name, NamesOf(*pairs_[pair].expected)) +
            "; outputs of other names are paired with --map"}});
      return;
    }
    if (output.expected->name != output.name) verdict.expectedName = output.expected->name;
    try {
      const auto [actual, expected] = Open(pair, output);
      Compare(pair, output, actual, expected, state);
    } catch (const NotJudgeable& reason) {
      verdict.notJudged.push_back({sample, {reason.what()}});
    } catch (const UnreadableTensor& reason) {
      verdict.notJudged.push_back({sample, {reason.what()}, true});
    }
  }

  std::pair<ReadableTensor, ReadableTensor> Open(size_t pair, const OutputPair& output) {
    const auto modelOf = [](const TensorSource& source) {
      return source.model ? &*source.model : nullptr;
    };
    const MappedOutput* mapped = output.mapped;
    ReadableTensor actual =
        OpenSide(*output.actual, mapped ? &mapped->actual : nullptr, modelOf(request_.actual));
    ReadableTensor expected = OpenSide(*output.expected, mapped ? &mapped->expected : nullptr,
                                       modelOf(request_.expected));
    if (pairs_[pair].position) expected = ItemFor(pair, expected, actual.Elements());
    if (mapped != nullptr) Align(*mapped, expected, output.name);
    return {std::move(actual), std::move(expected)};
  }

  // A stacked source holds a sample by its index, and those that were not run, too. Where it does
  // not reach as far and holds as many as there are, it holds them in their order.
  ReadableTensor ItemFor(size_t pair, const ReadableTensor& stacked, uint64_t itemElements) {
    const auto& samples = request_.actual.samples;
    const auto items = ItemsIn(stacked, itemElements);
    const bool isByIndex = items && samples.back().index < *items;
    if (!isByIndex && items != samples.size()) {
      throw Fault(ExitStatus::kInput,
                  "'" + Printable(stacked.stored.path) + "' holds " + TextOf(stacked.order.shape) +
                      ", and for " + Counted(samples.size(), "sample") +
                      (samples.back().index + 1 == samples.size()
                           ? ""
                           : " up to number " + std::to_string(samples.back().index)) +
                      " of " + std::to_string(itemElements) +
                      " elements its first dimension has to be theirs");
    }
    if (isByIndex) items_ = std::max(items_, *items);
    return ItemOf(stacked, isByIndex ? SampleOf(pair) : *pairs_[pair].position, *items);
  }

  // Of a stacked source what ItemFor has taken.
  uint64_t ExpectedSampleOf(size_t pair) const {
    if (!pairs_[pair].position) return pairs_[pair].expected->index;
    return items_ > 0 ? SampleOf(pair) : *pairs_[pair].position;
  }

  // Of a stacked source, those that were not run.
  void MissItems() {
    for (uint64_t item = 0; item < items_; ++item) {
      if (FindSample(request_.actual, item) == nullptr) {
        verdict_.missing.push_back({item, true, "it is expected and was not run"});
      }
    }
  }

  static Shape ShapeFor(const ReadableTensor& actual, const ReadableTensor& expected) {
    return actual.hasShape ? actual.order.shape : expected.order.shape;
  }

  void Compare(size_t pair, const OutputPair& output, const ReadableTensor& actual,
               const ReadableTensor& expected, OutputState& state) {
    OutputVerdict& verdict = state.verdict;
    const uint64_t sample = SampleOf(pair);
    if (verdict.samples.empty()) {
      verdict.type = actual.type;
      std::optional<double> step;
      if (output.mapped != nullptr && output.mapped->actual.quantisation) {
        step = output.mapped->actual.quantisation->Step();
      }
      verdict.rules = RulesFor(request_.rules, output.name, actual.type, step);
      verdict.shape = ShapeFor(actual, expected);
    }
    if (actual.Elements() != expected.Elements()) {
      verdict.wrong.push_back(
          {sample,
           {"it has " + std::to_string(actual.Elements()) + " elements (" +
            TextOf(actual.order.shape) + "), and " + std::to_string(expected.Elements()) +
            " are expected (" + TextOf(expected.order.shape) + ")"}});
      return;
    }
    if (actual.Elements() == 0) {
      verdict.notJudged.push_back({sample, {"it has no elements on either side"}});
      return;
    }
    const Shape shape = ShapeFor(actual, expected);
    CensusTaker taker(verdict.rules.tolerance.tolerance, request_.worst);
    const auto classes = ClassesOf(shape);
    TopAgreementTaker top(classes.value_or(1));
    auto [actualReader, expectedReader] =
        ReadingTensors([&] { return std::pair(actual.Read(), expected.Read()); });
    // Both have as many elements, so a block of one side is never longer than the other's.
    const auto next = [&, &actualReader = actualReader, &expectedReader = expectedReader] {
      const size_t got = actualReader.Next(actualBlock_);
      (void)expectedReader.Next(std::span(expectedBlock_).first(got));
      return got;
    };
    Print print{};
    uint64_t done = 0;
    while (const size_t got = ReadingTensors(next)) {
      const auto actualValues = std::span<const float>(actualBlock_).first(got);
      const auto expectedValues = std::span<const float>(expectedBlock_).first(got);
      taker.Take(actualValues, expectedValues);
      if (classes) top.Take(actualValues, expectedValues);
      TakePrint(expectedValues, done, actual.Elements(), print);
      done += got;
    }
    state.prints[sample] = print;
    std::optional<double> overFloor;
    if (request_.floor) overFloor = CompareFloor(pair, output, taker.Result(), state);
    Note(pair, taker, top.Result(), overFloor, state);
    if (state.labels) TakeLabels(sample, actual, expected, shape, *state.labels);
  }

  // Once more, whole: outputs that have labels are small.
  static void TakeLabels(uint64_t sample, const ReadableTensor& actual,
                         const ReadableTensor& expected, const Shape& shape, LabelJudge& labels) {
    TensorReader actualReader = actual.Read();
    TensorReader expectedReader = expected.Read();
    labels.Take(sample, shape.size() < 2 ? 1 : shape.front(),
                ReadAll(actualReader, kMostLabelledElements),
                ReadAll(expectedReader, kMostLabelledElements));
  }

  // The places of a print lie in the middles of equal parts.
  static void TakePrint(std::span<const float> block, uint64_t first, uint64_t all, Print& print) {
    for (size_t i = 0; i < kPrintSize; ++i) {
      const uint64_t place = PrintPlace(i, all);
      if (place >= first && place < first + block.size()) print[i] = block[place - first];
    }
  }

  static uint64_t PrintPlace(size_t i, uint64_t all) {
    return static_cast<uint64_t>((static_cast<double>(i) + 0.5) / kPrintSize *
                                 static_cast<double>(all));
  }

  static std::string NothingFinite(const Census& census) {
    return "nothing of it could be measured: none of " + std::to_string(census.elements) +
           " pairs is of finite numbers (" + std::to_string(census.actualNan) + " NaN and " +
           std::to_string(census.actualInfinite) + " infinities)";
  }

  static uint64_t WrongByNan(const Census& census, const Tolerance& tolerance) {
    const uint64_t onBoth = census.actualNan - census.onlyActualNan;
    return census.onlyActualNan + census.onlyExpectedNan + (tolerance.isNanExpected ? 0 : onBoth);
  }

  void Note(size_t pair, const CensusTaker& taker, const TopAgreement& agreement,
            std::optional<double> overFloor, OutputState& state) {
    OutputVerdict& verdict = state.verdict;
    const uint64_t sample = SampleOf(pair);
    const Census& census = taker.Result();
    auto broken = BrokenRules(verdict.rules, census, agreement, overFloor);
    const uint64_t nan = WrongByNan(census, verdict.rules.tolerance.tolerance);
    const uint64_t infinite =
        census.onlyActualInfinite + census.onlyExpectedInfinite + census.oppositeInfinite;
    if (census.finite > 0 || !broken.empty()) {
      verdict.samples.push_back({sample, broken.empty(), census.outside,
                                 census.finite > 0 ? census.maxAbs : NAN, census.Rmse(),
                                 census.Cosine(), ExpectedSampleOf(pair), nan + infinite});
    } else {
      verdict.notJudged.push_back({sample, {NothingFinite(census)}});
    }
    verdict.census.Merge(census);
    verdict.agreement.Merge(agreement);
    for (const Difference& difference : taker.Worst()) {
      verdict.worst.push_back({sample, difference});
    }
    std::stable_sort(verdict.worst.begin(), verdict.worst.end(),
                     [](const WorstElement& a, const WorstElement& b) {
                       return a.difference.size > b.difference.size;
                     });
    if (verdict.worst.size() > request_.worst) verdict.worst.resize(request_.worst);
    if (broken.empty()) {
      const bool isDifferent = census.finite > 0 && census.Rmse() > 0;
      if (isDifferent && RestsOnFloorAlone(verdict.rules)) {
        state.rightByFloor.push_back(verdict.samples.size() - 1);
      }
      return;
    }
    verdict.wrong.push_back({sample, std::move(broken), false, nan, infinite});
    state.wrongSamples.push_back(sample);
  }

  // ---- The floor --------------------------------------------------------------------------------

  // The same sample of the floor beside what was found; empty where it has none.
  std::optional<double> CompareFloor(size_t pair, const OutputPair& output, const Census& actual,
                                     OutputState& state) {
    FloorComparison& comparison = state.floor;
    try {
      const Census floor = FloorCensus(pair, output, actual.elements);
      ++comparison.samples;
      comparison.actual.Merge(actual);
      comparison.floor.Merge(floor);
      const double times = TimesFloor(actual, floor);
      return std::isnan(times) ? std::nullopt : std::optional(times);
    } catch (const NotJudgeable& reason) {
      NoteLeftOut(pair, reason.what(), comparison);
    } catch (const UnreadableTensor& reason) {
      NoteLeftOut(pair, reason.what(), comparison);
    }
    return std::nullopt;
  }

  // To be as good as a floor that has lost the output is not to be right. Whether it has is known
  // of all samples together only: in one that holds nothing there is nothing to lose. What is worse
  // than such a floor stays wrong.
  static void WithdrawByLostFloor(OutputState& state) {
    if (!HasLostIt(state.floor.floor)) return;
    OutputVerdict& verdict = state.verdict;
    const std::string reason =
        "no rule but overFloor is about it, and the floor itself has lost this output (SNR " +
        NumberText(RoundedTo(state.floor.floor.Snr(), 0.1)) +
        " dB); bound another metric, top1 or snrDb, or measure the floor's ranges anew";
    for (const size_t place : state.rightByFloor) {
      verdict.samples[place].isRight = false;
      verdict.notJudged.push_back({verdict.samples[place].sample, {reason}});
    }
  }

  void NoteLeftOut(size_t pair, const std::string& reason, FloorComparison& comparison) const {
    if (!comparison.leftOut.empty()) return;
    comparison.leftOut = "sample " + std::to_string(SampleOf(pair)) + ", " + reason;
  }

  // In the order of the expected side's file, in which both are read alike.
  Census FloorCensus(size_t pair, const OutputPair& output, uint64_t elements) {
    const SamplePair& samples = pairs_[pair];
    const uint64_t index = samples.position ? samples.actual->index : samples.expected->index;
    const SampleSource* sample = FindSample(*request_.floor, index);
    if (sample == nullptr) throw NotJudgeable("the floor has no sample " + std::to_string(index));
    if (!sample->absence.empty()) throw NotJudgeable("of the floor: " + sample->absence);
    const std::string& name = output.expected->name.empty() ? output.name : output.expected->name;
    const OutputPlace* place = FindOutput(*sample, name);
    if (place == nullptr) {
      throw NotJudgeable("the floor has no output '" + name + "'" +
                         DidYouMean(name, NamesOf(*sample)));
    }
    const MappedSide* side = output.mapped != nullptr ? &output.mapped->expected : nullptr;
    const auto modelOf = [](const TensorSource& source) {
      return source.model ? &*source.model : nullptr;
    };
    const ReadableTensor floor = OpenSide(*place, side, modelOf(*request_.floor));
    ReadableTensor expected = OpenSide(*output.expected, side, modelOf(request_.expected));
    if (samples.position) expected = ItemFor(pair, expected, elements);
    if (floor.Elements() != expected.Elements()) {
      throw NotJudgeable("the floor has " + std::to_string(floor.Elements()) + " elements, and " +
                         std::to_string(expected.Elements()) + " are expected");
    }
    return ReadingTensors([&] { return CensusOf(floor.Read(), expected.Read()); });
  }

  Census CensusOf(TensorReader actual, TensorReader expected) {
    CensusTaker taker(Tolerance{}, 0);
    while (const size_t got = actual.Next(actualBlock_)) {
      (void)expected.Next(std::span(expectedBlock_).first(got));
      taker.Take(std::span<const float>(actualBlock_).first(got),
                 std::span<const float>(expectedBlock_).first(got));
    }
    return taker.Result();
  }

  // ---- Inside -----------------------------------------------------------------------------------

  // The reference's order before that of the run that is judged: a compiler for a device may list
  // what it exposes as it likes.
  void OrderByGraph() {
    Inside inside;
    const auto expected = GraphOrderOf(request_.expected);
    const auto actual = GraphOrderOf(request_.actual);
    const bool isExpected = expected && (expected->isTold || !actual || !actual->isTold);
    if (isExpected || actual) {
      const GraphOrder& order = isExpected ? *expected : *actual;
      inside.order = std::string("that of the ") + (isExpected ? "expected" : "actual") +
                     " side's model.json" +
                     (order.isTold ? ", the model's own outputs behind what was exposed" : "");
      SortBy(order.names, isExpected);
      inside.ownOutputs = order.own;
    } else {
      inside.order = "that of the files: neither side has a model.json";
    }
    std::erase_if(order_, [&](const std::string& name) {
      const OutputState& state = states_.at(name);
      if (!state.isPaired) inside.unpaired.push_back({name, state.isActual});
      return !state.isPaired;
    });
    verdict_.inside = std::move(inside);
  }

  // Names that are not listed stay behind the others.
  void SortBy(const std::vector<std::string>& names, bool areExpected) {
    std::map<std::string, size_t> places;
    for (size_t i = 0; i < names.size(); ++i) places.try_emplace(names[i], i);
    const auto placeOf = [&](const std::string& name) {
      const std::string& other = states_.at(name).verdict.expectedName;
      const auto found = places.find(areExpected && !other.empty() ? other : name);
      return found == places.end() ? names.size() : found->second;
    };
    std::stable_sort(order_.begin(), order_.end(), [&](const std::string& a, const std::string& b) {
      return placeOf(a) < placeOf(b);
    });
  }

  // Asked of one output behind the other.
  [[nodiscard]] bool IsBeginning(const OutputState& state) const {
    if (request_.floor) {
      const auto isWorse = [&](const FloorComparison& one) {
        return one.Answer(request_.mostOverFloor) == FloorAnswer::kWorse;
      };
      const auto& before = verdict_.floor->outputs;
      return isWorse(state.floor) && std::none_of(before.begin(), before.end(), isWorse);
    }
    return !state.verdict.wrong.empty() &&
           std::all_of(verdict_.outputs.begin(), verdict_.outputs.end(),
                       [](const OutputVerdict& before) { return before.wrong.empty(); });
  }

  void TellTensors() {
    for (const OutputVerdict& output : verdict_.outputs) {
      InsideTensor tensor{output.name, InsideState::kRight, output.census};
      if (!output.wrong.empty()) {
        tensor.state = InsideState::kWrong;
      } else if (!output.notJudged.empty() || output.samples.empty()) {
        tensor.state = InsideState::kNotJudged;
      }
      verdict_.inside->tensors.push_back(std::move(tensor));
    }
    if (!verdict_.floor) return;
    verdict_.inside->floor = InsideFloor{verdict_.floor->precision, verdict_.floor->most};
    for (size_t i = 0; i < verdict_.inside->tensors.size(); ++i) {
      const FloorComparison& floor = verdict_.floor->outputs[i];
      if (floor.samples > 0) verdict_.inside->tensors[i].floor = floor;
    }
  }

  // ---- Causes -----------------------------------------------------------------------------------

  size_t PairOf(uint64_t sample) const {
    for (size_t i = 0; i < pairs_.size(); ++i) {
      if (SampleOf(i) == sample) return i;
    }
    return pairs_.size();
  }

  // The values of an output on one side; none where it is too large, or is not to be had.
  std::optional<Sides> Load(size_t pair, const std::string& name) {
    try {
      return LoadWhole(pair, name);
    } catch (const UnreadableTensor&) {
      return std::nullopt;
    }
  }

  std::optional<Sides> LoadWhole(size_t pair, const std::string& name) {
    for (const OutputPair& output : PairOutputs(request_, pairs_[pair])) {
      if (output.name != name || output.actual == nullptr || output.expected == nullptr) continue;
      const auto [actual, expected] = Open(pair, output);
      if (actual.Elements() > kMostCauseElements || actual.Elements() != expected.Elements()) {
        return std::nullopt;
      }
      return ReadingTensors([&actual = actual, &expected = expected] {
        TensorReader actualReader = actual.Read();
        TensorReader expectedReader = expected.Read();
        return Sides{ReadAll(actualReader, kMostCauseElements),
                     ReadAll(expectedReader, kMostCauseElements)};
      });
    }
    return std::nullopt;
  }

  // The sample whose expected output has most values of this print in their places, to the bit
  // before by the tolerance, if it is half of them and not the sample itself.
  static std::optional<uint64_t> SampleLike(const OutputState& state, uint64_t own,
                                            const std::vector<float>& actual,
                                            const Tolerance& tolerance) {
    std::optional<uint64_t> best;
    constexpr size_t kHalf = kPrintSize / 2;
    // Whether all are equal, how many are alike, and how near it is: a device mixes up samples that
    // it has at one time.
    std::tuple<bool, size_t, uint64_t> most;
    for (const auto& [sample, print] : state.prints) {
      if (sample == own) continue;
      size_t equal = 0;
      size_t alike = 0;
      for (size_t i = 0; i < kPrintSize; ++i) {
        const auto a = static_cast<double>(actual[PrintPlace(i, actual.size())]);
        const auto e = static_cast<double>(print[i]);
        equal += a == e ? 1 : 0;
        alike += std::abs(a - e) <= tolerance.atol + tolerance.rtol * std::abs(e) ? 1 : 0;
      }
      const uint64_t distance = sample > own ? sample - own : own - sample;
      const std::tuple now{equal == kPrintSize, alike, UINT64_MAX - distance};
      if (alike > kHalf && (!best || now > most)) {
        most = now;
        best = sample;
      }
    }
    return best;
  }

  // From the first to the last of them: a fault that began later may be another one.
  static std::vector<uint64_t> SamplesToLookInto(const OutputState& state) {
    const std::vector<uint64_t>& wrong = state.wrongSamples;
    const uint64_t samples = std::max<uint64_t>(state.verdict.samples.size(), 1);
    const uint64_t elements = std::max<uint64_t>(state.verdict.census.elements / samples, 1);
    const size_t most =
        std::clamp(static_cast<size_t>(kCauseElements / elements), kFewestCauses, kMostCauses);
    if (wrong.size() <= most) return wrong;
    std::vector<uint64_t> chosen;
    for (size_t i = 0; i < most; ++i) chosen.push_back(wrong[i * (wrong.size() - 1) / (most - 1)]);
    return chosen;
  }

  void FindCausesOf(OutputState& state) {
    std::vector<SampleScale> scales;
    for (const uint64_t sample : SamplesToLookInto(state)) {
      const size_t pair = PairOf(sample);
      auto loaded = Load(pair, state.verdict.name);
      if (!loaded) continue;
      CauseQuestion question;
      question.actual = loaded->first;
      question.expected = loaded->second;
      question.shape = state.verdict.shape;
      question.tolerance = state.verdict.rules.tolerance.tolerance;
      const Census& census = state.verdict.census;
      if (census.finite > 0) {
        question.reach = std::max(std::abs(static_cast<double>(census.leastExpected)),
                                  std::abs(static_cast<double>(census.greatestExpected)));
      }
      std::optional<Sides> before;
      if (pair > 0) before = Load(pair - 1, state.verdict.name);
      if (before) {
        question.before = before->second;
        question.former = before->first;
      }
      question.sample = sample;
      question.otherSample = SampleLike(state, sample, loaded->first, question.tolerance);
      std::optional<Sides> other;
      if (question.otherSample) other = Load(PairOf(*question.otherSample), state.verdict.name);
      if (other) question.other = other->second;
      const auto scale = ScaleOfSample(question, state.verdict.causes.size());
      if (scale) scales.push_back(*scale);
      state.verdict.causes.push_back({sample, FindCauses(question)});
    }
    AddSharedScale(scales, state.verdict.causes);
    PreferShared(state.verdict.causes);
    FindStretchesOf(state);
  }

  // Where samples hold what belongs to their neighbours, those between them that pass need not be
  // their own.
  void FindStretchesOf(OutputState& state) {
    std::map<uint64_t, int> wrong;
    for (const uint64_t sample : state.wrongSamples) wrong[sample] = 0;
    for (const SampleCauses& sample : state.verdict.causes) {
      if (!sample.causes.empty()) wrong[sample.sample] = sample.causes.front().neighbour;
    }
    std::vector<uint64_t> right;
    for (const SampleSketch& sample : state.verdict.samples) {
      if (sample.isRight) right.push_back(sample.sample);
    }
    std::sort(right.begin(), right.end());
    Effort left;
    state.verdict.stretches = FindStretches(wrong, right, [&](uint64_t sample, uint64_t other) {
      return WouldPassFor(sample, other, state.verdict, left);
    });
  }

  // That may be made to hold outputs of one name against those of other samples.
  struct Effort {
    uint64_t questions = 2048;
    uint64_t elements = 1 << 24;
  };

  // Whether what came of a sample would be right if it were that of another one. Nothing of what
  // cannot be looked at, or is too much to be.
  std::optional<bool> WouldPassFor(uint64_t sample, uint64_t other, const OutputVerdict& verdict,
                                   Effort& left) {
    const size_t own = PairOf(sample);
    const size_t partner = PairOf(other);
    if (own == pairs_.size() || partner == pairs_.size()) return std::nullopt;
    if (left.elements == 0 || left.questions == 0) return std::nullopt;
    --left.questions;
    const auto ownSides = Load(own, verdict.name);
    const auto otherSides = Load(partner, verdict.name);
    if (!ownSides || !otherSides || ownSides->first.size() != otherSides->second.size()) {
      return std::nullopt;
    }
    left.elements -= std::min<uint64_t>(left.elements, ownSides->first.size());
    CensusTaker taker(verdict.rules.tolerance.tolerance, 0);
    taker.Take(ownSides->first, otherSides->second);
    const auto classes = ClassesOf(verdict.shape);
    TopAgreementTaker top(classes.value_or(1));
    if (classes) top.Take(ownSides->first, otherSides->second);
    // Of another sample there is no floor to be held against.
    OutputRules rules = verdict.rules;
    std::erase_if(rules.metrics,
                  [](const MetricRule& rule) { return rule.metric == Metric::kOverFloor; });
    if (rules.metrics.empty()) return std::nullopt;
    return BrokenRules(rules, taker.Result(), top.Result()).empty();
  }

  // One fault of a device mostly spoils several samples, and what explains them all is likelier
  // than what fits a little better and each in its own way: among sure scores of few classes a copy
  // of some other sample is found for nearly everything. Where it fits nearly all of them, however
  // much better something else fits some.
  static void PreferShared(std::vector<SampleCauses>& samples) {
    constexpr double kAsGood = 0.05;
    constexpr size_t kLeastShared = 5;
    constexpr double kNearlyAll = 0.8;
    // Where neighbours are exchanged, half of them have the one before and half the one behind.
    const auto keyOf = [](const Cause& cause) {
      return cause.neighbour != 0 ? std::pair<std::string, std::string>("neighbour", "")
                                  : std::pair(cause.id, cause.text);
    };
    std::map<std::pair<std::string, std::string>, size_t> counts;
    for (const SampleCauses& sample : samples) {
      for (const Cause& cause : sample.causes) ++counts[keyOf(cause)];
    }
    const auto told = static_cast<double>(
        std::count_if(samples.begin(), samples.end(),
                      [](const SampleCauses& sample) { return !sample.causes.empty(); }));
    for (SampleCauses& sample : samples) {
      if (sample.causes.empty()) continue;
      const bool isOfNearlyAll =
          std::any_of(sample.causes.begin(), sample.causes.end(), [&](const Cause& cause) {
            const size_t count = counts.at(keyOf(cause));
            return count >= kLeastShared && static_cast<double>(count) >= kNearlyAll * told;
          });
      const double least = isOfNearlyAll ? 0 : sample.causes.front().certainty - kAsGood;
      const auto last = std::find_if(sample.causes.begin(), sample.causes.end(),
                                     [&](const Cause& cause) { return cause.certainty < least; });
      std::stable_sort(sample.causes.begin(), last, [&](const Cause& one, const Cause& other) {
        return counts.at(keyOf(one)) > counts.at(keyOf(other));
      });
      KeepBehindTheFirst(sample.causes, kAsGood);
    }
  }

  // Another possibility that seems better than what is told first would leave a reader with two
  // answers: what fits one sample alone is left out, and of what fits nearly as well no more is
  // claimed.
  static void KeepBehindTheFirst(std::vector<Cause>& causes, double nearly) {
    const double most = causes.front().certainty;
    std::erase_if(causes, [&](const Cause& cause) { return cause.certainty > most + nearly; });
    for (Cause& cause : causes) cause.certainty = std::min(cause.certainty, most);
  }

  const JudgeRequest& request_;
  const std::function<void(size_t, size_t)>& onProgress_;
  Verdict verdict_;
  std::vector<SamplePair> pairs_;
  std::map<std::string, OutputState> states_;
  std::vector<std::string> order_;
  uint64_t items_ = 0;  ///< that a stacked source has, where they are taken by their index
  std::vector<float> actualBlock_ = std::vector<float>(kBlock);
  std::vector<float> expectedBlock_ = std::vector<float>(kBlock);
};

}  // namespace

Verdict Judge(const JudgeRequest& request, const std::function<void(size_t, size_t)>& onProgress) {
  return Judging(request, onProgress).Run();
}

}  // namespace vorn::kit
