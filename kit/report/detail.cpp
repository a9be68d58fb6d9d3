#include "kit/report/detail.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <utility>

#include "kit/common/fault.h"
#include "kit/common/file_place.h"
#include "kit/common/printable.h"
#include "kit/judge/accuracy.h"
#include "kit/judge/manifest_facts.h"
#include "kit/judge/map.h"
#include "kit/judge/paired_tensor.h"
#include "kit/judge/top_agreement.h"
#include "kit/report/fault_kinds.h"
#include "kit/report/picture_fit.h"
#include "kit/report/tensor_view.h"
#include "kit/report/thumbnail.h"
#include "kit/run/run_directory.h"
#include "kit/tensor/tensor_source.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostElements = 1 << 24;
constexpr uint32_t kNhwc = 1;  // of vorn_format

// ---- Which of them ------------------------------------------------------------------------------

// By what is farthest off: what could not be measured, then what is no number, of which the
// measures of all others tell nothing.
bool IsWorse(const DetailChoice& one, const DetailChoice& other) {
  if (std::isnan(one.rmse) || std::isnan(other.rmse)) {
    return std::isnan(one.rmse) && !std::isnan(other.rmse);
  }
  if (one.notFinite != other.notFinite) return one.notFinite > other.notFinite;
  return one.rmse > other.rmse;
}

// The worst sample of each kind of fault, then the next one of each: many that are alike would hide
// the others. What has no kind that is told is one more.
void TakeKindsByTurns(const ReportOutput& output, std::vector<DetailChoice>& choices) {
  std::vector<FaultKind> kinds = FaultKindsOf(output);
  std::vector<std::vector<DetailChoice>> groups(kinds.size() + 1);
  for (const DetailChoice& choice : choices) {
    const auto kind = std::find_if(kinds.begin(), kinds.end(), [&](const FaultKind& one) {
      return std::binary_search(one.samples.begin(), one.samples.end(), choice.sample);
    });
    groups[static_cast<size_t>(kind - kinds.begin())].push_back(choice);
  }
  choices.clear();
  for (size_t turn = 0; !groups.empty(); ++turn) {
    std::erase_if(groups, [&](const auto& group) { return group.size() <= turn; });
    const size_t begin = choices.size();
    for (const auto& group : groups) choices.push_back(group[turn]);
    std::stable_sort(choices.begin() + static_cast<ptrdiff_t>(begin), choices.end(), IsWorse);
  }
}

std::vector<DetailChoice> ChoicesOf(const ReportOutput& output, size_t place, bool areWrong) {
  constexpr double kNan = std::numeric_limits<double>::quiet_NaN();
  const ReportColumns& columns = output.columns;
  std::vector<DetailChoice> choices;
  std::set<uint64_t> taken;
  for (size_t row = 0; row < columns.sample.size(); ++row) {
    if ((columns.isWrong[row] != 0) != areWrong) continue;
    if (!areWrong && !(columns.rmse[row] > 0)) continue;
    const uint64_t sample = columns.sample[row];
    const uint64_t expected = columns.expectedSample.empty() ? sample : columns.expectedSample[row];
    const uint64_t notFinite = columns.notFinite.empty() ? 0 : columns.notFinite[row];
    choices.push_back({sample, expected, place, columns.rmse[row], notFinite});
    taken.insert(sample);
  }
  // A verdict of an older version has no columns, and what could not be compared stands in none.
  for (const ReportFault& fault : output.wrong) {
    if (areWrong && columns.samplesPerRow == 1 && taken.count(fault.sample) == 0) {
      choices.push_back({fault.sample, fault.sample, place, kNan, fault.nan + fault.infinite});
    }
  }
  std::stable_sort(choices.begin(), choices.end(), IsWorse);
  if (areWrong) TakeKindsByTurns(output, choices);
  return choices;
}

// Of each output the worst, then of each the next one.
std::vector<DetailChoice> ByTurns(const std::vector<std::vector<DetailChoice>>& outputs,
                                  size_t most) {
  std::vector<DetailChoice> chosen;
  for (size_t rank = 0; chosen.size() < most; ++rank) {
    bool isAnyLeft = false;
    for (const auto& choices : outputs) {
      if (rank >= choices.size() || chosen.size() == most) continue;
      chosen.push_back(choices[rank]);
      isAnyLeft = true;
    }
    if (!isAnyLeft) break;
  }
  return chosen;
}

std::optional<std::string> FirstInside(const ReportJudgement& judgement) {
  if (!judgement.inside || !judgement.inside->begin) return std::nullopt;
  return judgement.inside->tensors[*judgement.inside->begin].name;
}

bool IsAnyWrong(const ReportJudgement& judgement) {
  return std::any_of(
      judgement.outputs.begin(), judgement.outputs.end(),
      [](const ReportOutput& output) { return output.verdict == ReportVerdict::kWrong; });
}

// ---- Opening ------------------------------------------------------------------------------------

// A side that is read as judge has read it.
struct Side {
  std::optional<TensorSource> source;
  std::string obstacle;
};

Side OpenSource(const std::string& path, const std::set<uint64_t>& samples) {
  Side side;
  try {
    side.source = FindTensors(path, samples);
  } catch (const Fault& fault) {
    side.obstacle = fault.what();
  }
  return side;
}

const SampleSource* FindSample(const TensorSource& source, uint64_t index) {
  for (const SampleSource& sample : source.samples) {
    if (sample.index == index) return &sample;
  }
  return nullptr;
}

// Why there is nothing to show, as it goes on behind a sample's name.
[[noreturn]] void Stop(const std::string& reason) { throw NotJudgeable(reason); }

const SampleSource& NeedSample(const Side& side, uint64_t index) {
  if (!side.source) Stop(side.obstacle);
  // The one sample of a stacked source holds all of them.
  const TensorSource& source = *side.source;
  const bool isStacked = source.mayBeStacked && source.samples.size() == 1;
  const SampleSource* sample = isStacked ? &source.samples.front() : FindSample(source, index);
  if (sample == nullptr) {
    Stop("sample " + std::to_string(index) + " is not in " + source.kind + " " +
         Quoted(source.path));
  }
  if (!sample->absence.empty()) Stop(sample->absence);
  return *sample;
}

const OutputPlace* FindOutput(const SampleSource& sample, const std::string& name) {
  for (const OutputPlace& output : sample.outputs) {
    if (output.name == name) return &output;
  }
  return nullptr;
}

// By name; files without names by their place, if there are as many.
const OutputPlace& PartnerOf(const SampleSource& actual, const OutputPlace& output,
                             const SampleSource& expected, const std::string& name) {
  if (const OutputPlace* found = FindOutput(expected, name)) return *found;
  const bool areNameless = std::all_of(expected.outputs.begin(), expected.outputs.end(),
                                       [](const OutputPlace& other) { return other.name.empty(); });
  if (areNameless && expected.outputs.size() == actual.outputs.size()) {
    return expected.outputs[static_cast<size_t>(&output - actual.outputs.data())];
  }
  Stop("there is no output " + Quoted(name) + " on the expected side");
}

const ModelDescription* ModelOf(const TensorSource& source) {
  return source.model ? &*source.model : nullptr;
}

// An output's description, by the name that a dump has.
const TensorDescription* DescribedOutput(const TensorSource& source, const std::string& name) {
  if (!source.model) return nullptr;
  for (const TensorDescription& output : source.model->outputs) {
    if (SpelledAsDump(output.name) == name) return &output;
  }
  return nullptr;
}

std::vector<float> ValuesOf(const ReadableTensor& tensor) {
  if (tensor.Elements() > kMostElements) {
    Stop("it has " + std::to_string(tensor.Elements()) + " elements, and " +
         std::to_string(kMostElements) + " are shown at most");
  }
  TensorReader reader = tensor.Read();
  return ReadAll(reader, kMostElements);
}

struct OpenPair {
  std::vector<float> actual;
  std::vector<float> expected;
  Shape shape;
  bool areChannelsLast = false;
};

// ---- What is shown of a pair --------------------------------------------------------------------

// Of the last value of the five there may be more classes than have room: which of them would stand
// there is chance, and so it is of classes that have nothing. They are one entry.
void FoldEqual(std::span<const float> values, std::vector<ReportLabel>& labels) {
  if (labels.empty()) return;
  const double last = labels.back().value;
  const auto isLast = [&](double value) { return value == last; };
  const auto all = static_cast<uint64_t>(std::count_if(values.begin(), values.end(), isLast));
  const auto first = std::find_if(labels.begin(), labels.end(),
                                  [&](const ReportLabel& label) { return isLast(label.value); });
  const auto listed = static_cast<uint64_t>(labels.end() - first);
  if (all == listed && (last != 0 || all == 1)) return;
  first->sharing = all;
  labels.erase(first + 1, labels.end());
}

std::vector<ReportLabel> TopOf(std::span<const float> values, std::span<const float> others) {
  TopFive top;
  for (size_t i = 0; i < values.size(); ++i) top.Take(values[i], i);
  std::vector<ReportLabel> labels;
  for (size_t rank = 0; rank < top.Count(); ++rank) {
    const uint64_t label = top.Index(rank);
    labels.push_back(
        {label, static_cast<double>(values[label]), static_cast<double>(others[label])});
  }
  FoldEqual(values, labels);
  return labels;
}

// Of several items the first whose classes are not in the same order on both sides.
void TakeLabels(const OpenPair& pair, ReportDetail& detail) {
  const auto classes = ClassesOf(pair.shape);
  if (!classes || pair.actual.size() % *classes != 0) return;
  for (size_t at = 0; at < pair.actual.size(); at += *classes) {
    const auto actualValues = std::span(pair.actual).subspan(at, *classes);
    const auto expectedValues = std::span(pair.expected).subspan(at, *classes);
    const auto actual = TopOf(actualValues, expectedValues);
    const auto expected = TopOf(expectedValues, actualValues);
    const bool isFirst = detail.actualTop.empty();
    const bool isOther =
        !actual.empty() && !expected.empty() && actual.front().label != expected.front().label;
    if (!isFirst && !isOther) continue;
    detail.actualTop = actual;
    detail.expectedTop = expected;
    if (isOther) return;
  }
}

// Rows and columns of the first picture that the model takes.
struct PictureSize {
  double width = 0;
  double height = 0;
};

std::optional<PictureSize> SizeOfInput(const TensorSource& source) {
  if (!source.model) return std::nullopt;
  for (const TensorDescription& input : source.model->inputs) {
    if (input.role != TensorRole::kData) continue;
    const auto shape = PictureTensorOf(input.shape, input.format == kNhwc);
    if (shape) {
      return PictureSize{static_cast<double>(shape->columns), static_cast<double>(shape->rows)};
    }
  }
  return std::nullopt;
}

// In shares of the picture, whether the model tells pixels or shares.
std::vector<ReportBox> BoxesIn(std::span<const float> values,
                               const std::optional<PictureSize>& size) {
  constexpr double kMostShare = 2;  // a box may reach beyond the picture
  auto found = BoxesOf(values);
  if (!found) return {};
  std::stable_sort(found->begin(), found->end(),
                   [](const Box& one, const Box& other) { return one.score > other.score; });
  if (found->size() > kMostReportBoxes) found->resize(kMostReportBoxes);
  const bool areShares = std::all_of(found->begin(), found->end(), [](const Box& box) {
    return std::abs(box.right) <= kMostShare && std::abs(box.bottom) <= kMostShare;
  });
  if (!areShares && !size) return {};
  const double width = areShares ? 1 : size->width;
  const double height = areShares ? 1 : size->height;
  std::vector<ReportBox> boxes;
  for (const Box& box : *found) {
    boxes.push_back({box.left / width, box.top / height, box.right / width, box.bottom / height,
                     box.label, box.score});
  }
  return boxes;
}

bool IsMeasured(const ReportJudgement& judgement, const std::string& output,
                const std::string& metric) {
  return std::any_of(
      judgement.accuracy.begin(), judgement.accuracy.end(), [&](const ReportAccuracy& accuracy) {
        return accuracy.output == output && accuracy.metric.find(metric) != std::string::npos;
      });
}

// The class of a place: its value, or the channel with the greatest one.
uint32_t ClassAt(std::span<const float> values, uint64_t classes, uint64_t places, uint64_t place) {
  if (classes == 1) {
    const float value = values[place];
    return value >= 0 && value < 4e9F ? static_cast<uint32_t>(value) : 0;
  }
  uint64_t best = 0;
  for (uint64_t one = 1; one < classes; ++one) {
    if (values[one * places + place] > values[best * places + place]) best = one;
  }
  return static_cast<uint32_t>(best);
}

// Of `count` places drawn as `drawn` the one in the middle of what place `at` stands for; behind
// the last where a fit leads out of the tensor.
uint64_t MaskPlace(uint64_t at, uint64_t drawn, uint64_t count, const AxisFit* fit) {
  if (fit == nullptr) return (2 * at + 1) * count / (2 * drawn);
  const double middle = (static_cast<double>(at) + 0.5) / static_cast<double>(drawn);
  const double place = std::floor(fit->ToInput(middle) * static_cast<double>(count));
  return place >= 0 && place < static_cast<double>(count) ? static_cast<uint64_t>(place) : count;
}

// Of a batch the first item, classes before rows and columns. With a fit it covers the picture, and
// what of that the network has not seen is of class 0.
std::optional<ReportMask> MaskOf(const OpenPair& pair, const std::optional<PictureFit>& fit) {
  const Shape& shape = pair.shape;
  if (shape.size() < 2) return std::nullopt;
  const uint64_t rows = shape[shape.size() - 2];
  const uint64_t columns = shape[shape.size() - 1];
  const uint64_t classes = shape.size() < 3 || shape.size() > 4 ? 1 : shape[shape.size() - 3];
  const uint64_t places = rows * columns;
  if (places == 0 || classes == 0 || classes * places > pair.actual.size()) return std::nullopt;
  ReportMask mask;
  mask.rows = static_cast<uint32_t>(std::min<uint64_t>(rows, kMostReportHeatmap));
  mask.columns = static_cast<uint32_t>(std::min<uint64_t>(columns, kMostReportHeatmap));
  for (uint64_t row = 0; row < mask.rows; ++row) {
    for (uint64_t column = 0; column < mask.columns; ++column) {
      const uint64_t y = MaskPlace(row, mask.rows, rows, fit ? &fit->y : nullptr);
      const uint64_t x = MaskPlace(column, mask.columns, columns, fit ? &fit->x : nullptr);
      const bool isSeen = y < rows && x < columns;
      const uint64_t place = y * columns + x;
      mask.actual.push_back(isSeen ? ClassAt(pair.actual, classes, places, place) : 0);
      mask.expected.push_back(isSeen ? ClassAt(pair.expected, classes, places, place) : 0);
    }
  }
  return mask;
}

// ---- One after the other ------------------------------------------------------------------------

class DetailMaker {
 public:
  DetailMaker(const DetailSource& source, const std::vector<DetailChoice>& choices)
      : source_(source), judgement_(source.judgement->facts) {
    std::set<uint64_t> actual;
    std::set<uint64_t> expected;
    for (const DetailChoice& choice : choices) {
      actual.insert(choice.sample);
      expected.insert(choice.expectedSample);
    }
    actual_ = OpenSource(source.run, actual);
    expected_ = OpenSource(source.places->Find(judgement_.expected), expected);
    TakeMap();
    TakeRecords(actual);
  }

  ReportDetail Make(const DetailChoice& choice) {
    const ReportOutput& output = judgement_.outputs[choice.output];
    ReportDetail detail;
    detail.sample = choice.sample;
    detail.output = choice.output;
    detail.verdict = output.verdict;
    TakeFault(output, detail);
    TakePictures(detail);
    try {
      TakeTensors(choice, output, detail);
    } catch (const Fault& fault) {
      detail.obstacle = fault.what();
    } catch (const NotJudgeable& reason) {
      detail.obstacle = reason.what();
    } catch (const UnreadableTensor& reason) {
      detail.obstacle = reason.what();
    }
    return detail;
  }

 private:
  void TakeMap() {
    const std::string& map = source_.judgement->map;
    if (map.empty()) return;
    try {
      map_ = ParseMap(map, "the map of the verdict");
    } catch (const Fault& fault) {
      actual_ = {std::nullopt, fault.what()};
    }
  }

  // What the samples were made from. A run of another hand need not tell.
  void TakeRecords(const std::set<uint64_t>& samples) {
    const std::string path = source_.run + "/" + kSamplesFile;
    if (!IsThere(path)) return;
    try {
      ForEachLine(path, "the samples", ExitStatus::kInput, [&](std::string_view line) {
        const auto front = FrontOfSample(line);
        if (front && samples.count(front->index) == 0) return;
        SampleRecord record = SampleFromLine(line);
        if (samples.count(record.index) > 0) records_[record.index] = std::move(record);
      });
    } catch (const Fault&) {
      records_.clear();
    }
  }

  const MappedOutput* FindMapped(const std::string& name) const {
    for (const MappedOutput& output : map_.outputs) {
      if (SpelledAsDump(output.actual.name) == name) return &output;
    }
    return nullptr;
  }

  static void TakeFault(const ReportOutput& output, ReportDetail& detail) {
    for (const ReportFault& fault : output.wrong) {
      if (fault.sample != detail.sample) continue;
      detail.verdict = ReportVerdict::kWrong;
      detail.reasons = fault.reasons;
      detail.causes = fault.causes;
      return;
    }
    if (output.verdict == ReportVerdict::kWrong && output.wrong.size() < kMostReportFaults) {
      detail.verdict = ReportVerdict::kRight;
    }
  }

  void TakeTensors(const DetailChoice& choice, const ReportOutput& output, ReportDetail& detail) {
    const OpenPair pair = Open(choice, output, detail);
    const TensorPair sides{pair.actual, pair.expected};
    const PairMeasures measures = MeasurePair(sides, output.atol, output.rtol);
    HoldToVerdict(measures.rmse, choice.rmse);
    detail.elements = pair.actual.size();
    detail.outside = measures.outside;
    detail.maxAbs = measures.maxAbs;
    detail.rmse = measures.rmse;
    detail.cosine = measures.cosine;
    detail.histogram = HistogramOf(sides);
    detail.envelope = EnvelopeOf(sides);
    const ChannelLayout layout = LayoutOf(pair.shape, pair.areChannelsLast);
    detail.channels = layout.channels;
    detail.heatmaps = HeatmapsOf(sides, layout);
    detail.worst = WorstElements(sides, pair.shape, choice.sample);
    if (output.agreement) TakeLabels(pair, detail);
    if (IsMeasured(judgement_, output.name, "mAP")) {
      const auto size = SizeOfInput(*actual_.source);
      detail.actualBoxes = BoxesIn(pair.actual, size);
      detail.expectedBoxes = BoxesIn(pair.expected, size);
      if (const auto fit = FitOfPicture(choice.sample)) {
        for (auto* boxes : {&detail.actualBoxes, &detail.expectedBoxes}) {
          for (ReportBox& box : *boxes) box = fit->ToPicture(box);
        }
      }
    }
    if (IsMeasured(judgement_, output.name, "IoU")) {
      detail.mask = MaskOf(pair, FitOfPicture(choice.sample));
    }
  }

  OpenPair Open(const DetailChoice& choice, const ReportOutput& output, ReportDetail& detail) {
    const SampleSource& actual = NeedSample(actual_, choice.sample);
    const SampleSource& expected = NeedSample(expected_, choice.expectedSample);
    const OutputPlace* place = FindOutput(actual, output.name);
    if (place == nullptr) Stop("there is no output " + Quoted(output.name) + " any more");
    const OutputPlace& partner = PartnerOf(
        actual, *place, expected, output.expectedName.empty() ? output.name : output.expectedName);
    detail.actualPath = place->path;
    detail.expectedPath = partner.path;
    const MappedOutput* mapped = FindMapped(output.name);
    const ReadableTensor one =
        OpenSide(*place, mapped != nullptr ? &mapped->actual : nullptr, ModelOf(*actual_.source));
    ReadableTensor other = OpenSide(partner, mapped != nullptr ? &mapped->expected : nullptr,
                                    ModelOf(*expected_.source));
    if (expected_.source->mayBeStacked) {
      const auto items = ItemsIn(other, one.Elements());
      if (items && choice.expectedSample < *items) {
        other = ItemOf(other, choice.expectedSample, *items);
      }
    }
    if (mapped != nullptr) Align(*mapped, other, output.name);
    if (one.Elements() != other.Elements() || one.Elements() == 0) {
      Stop("it has " + Counted(one.Elements(), "element") + ", and " +
           Counted(other.Elements(), "element") + " on the expected side");
    }
    const TensorDescription* described = DescribedOutput(*actual_.source, output.name);
    return {ValuesOf(one), ValuesOf(other), one.hasShape ? one.order.shape : other.order.shape,
            described != nullptr && described->format == kNhwc};
  }

  // Files that were written anew would be shown as what they are not.
  static void HoldToVerdict(double found, double judged) {
    constexpr double kSlack = 1e-4;
    if (std::isnan(judged) || std::isnan(found)) return;
    if (std::abs(found - judged) <= kSlack * std::max(found, judged)) return;
    Stop("its files are no longer those that were judged: their RMSE is " + std::to_string(found) +
         ", and was " + std::to_string(judged) +
         "; vorn judge makes a verdict on what is there now");
  }

  // ---- Pictures ---------------------------------------------------------------------------------

  void TakePictures(ReportDetail& detail) {
    const auto record = records_.find(detail.sample);
    if (record == records_.end()) {
      detail.pictureObstacle = "the run does not tell what the sample was made from";
      return;
    }
    for (const SampleInput& input : record->second.inputs) detail.inputs.push_back(input.path);
    const auto known = pictures_.find(detail.sample);
    if (known != pictures_.end()) {
      detail.pictures = known->second.pictures;
      detail.pictureObstacle = known->second.pictureObstacle;
      return;
    }
    for (size_t i = 0; i < record->second.inputs.size(); ++i) {
      TakePicture(record->second, i, detail);
    }
    pictures_[detail.sample] = detail;
  }

  // The picture itself where the manifest tells it, else the tensor drawn.
  void TakePicture(const SampleRecord& record, size_t place, ReportDetail& detail) {
    constexpr size_t kMostPictures = 4;
    if (detail.pictures.size() == kMostPictures) return;
    const std::string tensor = source_.places->Find(record.inputs[place].file.path);
    try {
      if (const auto* items = SourcesOf(tensor)) {
        for (const SourceOfItem& item : *items) {
          if (item.path.empty() || detail.pictures.size() == kMostPictures) continue;
          TakeThumbnail(item, detail);
        }
        if (!detail.pictures.empty()) return;
      }
    } catch (const Fault& fault) {
      detail.pictureObstacle = fault.what();
    }
    try {
      if (auto picture = TensorPicture(record, place, tensor)) {
        picture->name = tensor;
        detail.pictures.push_back(std::move(*picture));
      }
    } catch (const Fault& fault) {
      if (detail.pictureObstacle.empty()) detail.pictureObstacle = fault.what();
    }
  }

  // A picture that the recipe did not turn as its file says would not lie below what was found.
  void TakeThumbnail(const SourceOfItem& item, ReportDetail& detail) {
    ReportPicture picture = ThumbnailOf(item.path, item.xxh3);
    std::optional<PictureFit> fit;
    if (const auto size = InputSize(); size && item.geometry) {
      fit = FitOf(*item.geometry, size->width, size->height);
    }
    if (fit && (fit->width != picture.sourceWidth || fit->height != picture.sourceHeight)) return;
    if (fit && detail.pictures.empty()) fits_[detail.sample] = *fit;
    detail.pictures.push_back(std::move(picture));
  }

  [[nodiscard]] std::optional<PictureSize> InputSize() const {
    return actual_.source ? SizeOfInput(*actual_.source) : std::nullopt;
  }

  // Of the first picture that is shown of the sample, where it is one that a recipe was about.
  [[nodiscard]] std::optional<PictureFit> FitOfPicture(uint64_t sample) const {
    const auto at = fits_.find(sample);
    return at == fits_.end() ? std::nullopt : std::optional(at->second);
  }

  const std::vector<SourceOfItem>* SourcesOf(const std::string& tensor) {
    return manifests_.SourcesOf(Absolute(tensor));
  }

  // The model's input at that place among those that take files, or of that name.
  const TensorDescription* DescribedInput(const SampleRecord& record, size_t place) const {
    if (!actual_.source || !actual_.source->model) return nullptr;
    const TensorDescription* found = nullptr;
    size_t at = 0;
    for (const TensorDescription& input : actual_.source->model->inputs) {
      if (input.role != TensorRole::kData) continue;
      if (record.inputs[place].name == input.name) return &input;
      if (at++ == place) found = &input;
    }
    return found;
  }

  std::optional<ReportPicture> TensorPicture(const SampleRecord& record, size_t place,
                                             const std::string& path) const {
    const TensorDescription* input = DescribedInput(record, place);
    if (input == nullptr || !input->type) return std::nullopt;
    const auto shape = PictureTensorOf(input->shape, input->format == kNhwc);
    const auto type = ElementOfCode(*input->type);
    if (!shape || !type) return std::nullopt;
    const FileHead head = ReadFileHead(path, "the input", 0);
    const auto& told = record.inputs[place].file.sizeBytes;
    if (head.fileBytes < shape->Elements() * ElementBytes(*type) ||
        (told && *told != head.fileBytes)) {
      throw Fault(ExitStatus::kInput, "the input " + Quoted(path) + " has " +
                                          std::to_string(head.fileBytes) +
                                          " bytes now, which is not what the sample was made from");
    }
    StoredTensor stored;
    stored.path = path;
    stored.type = *type;
    stored.elements = shape->Elements();
    TensorReader reader(stored, ElementOrder::Of(stored));
    return DrawTensor(ReadAll(reader, shape->Elements()), *shape);
  }

  const DetailSource& source_;
  const ReportJudgement& judgement_;
  Side actual_;
  Side expected_;
  Map map_;
  std::map<uint64_t, SampleRecord> records_;
  std::map<uint64_t, ReportDetail> pictures_;  // of samples that were shown before
  std::map<uint64_t, PictureFit> fits_;
  Manifests manifests_;
};

}  // namespace

std::vector<DetailChoice> ChooseDetails(const ReportJudgement& judgement, size_t most) {
  const bool areWrong = IsAnyWrong(judgement);
  const auto first = FirstInside(judgement);
  std::vector<DetailChoice> chosen;
  std::vector<std::vector<DetailChoice>> outputs;
  for (size_t place = 0; place < judgement.outputs.size(); ++place) {
    const ReportOutput& output = judgement.outputs[place];
    auto choices = ChoicesOf(output, place, areWrong);
    if (areWrong && output.name == first && !choices.empty() && most > 0) {
      chosen.push_back(choices.front());
      choices.erase(choices.begin());
    }
    outputs.push_back(std::move(choices));
  }
  if (!areWrong) {
    // All outputs together: one that is equal everywhere has nothing to show.
    std::vector<DetailChoice> all;
    for (const auto& choices : outputs) all.insert(all.end(), choices.begin(), choices.end());
    std::stable_sort(all.begin(), all.end(), IsWorse);
    all.resize(std::min({all.size(), most, kMostRightDetails}));
    return all;
  }
  for (const DetailChoice& choice : ByTurns(outputs, most - std::min(most, chosen.size()))) {
    chosen.push_back(choice);
  }
  return chosen;
}

std::string DetailsRule(const ReportJudgement& judgement) {
  if (!IsAnyWrong(judgement)) {
    return "Nothing is wrong; these are the samples with the greatest RMSE.";
  }
  const std::string which =
      "of each wrong output the worst sample of each kind of fault, then the next worst of each.";
  return FirstInside(judgement) ? "The first tensor that is wrong, then " + which
                                : "O" + which.substr(1);
}

std::vector<ReportDetail> MakeDetails(const DetailSource& source,
                                      const std::vector<DetailChoice>& choices) {
  std::vector<ReportDetail> details;
  if (choices.empty()) return details;
  DetailMaker maker(source, choices);
  for (const DetailChoice& choice : choices) details.push_back(maker.Make(choice));
  return details;
}

}  // namespace vorn::kit
