#include "kit/judge/labels.h"

#include <charconv>
#include <cmath>

#include "kit/common/fault.h"
#include "kit/common/printable.h"
#include "kit/json/json.h"
#include "kit/json/json_members.h"
#include "kit/tensor/npy.h"
#include "kit/tensor/tensor_reader.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostMaskElements = 1 << 26;

OutputLabels ParseClassLines(std::string_view text) {
  OutputLabels labels;
  uint64_t number = 0;
  while (!text.empty()) {
    ++number;
    const size_t end = std::min(text.find('\n'), text.size());
    std::string_view line = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (line.ends_with('\r')) line.remove_suffix(1);
    uint64_t label = 0;
    const auto [stop, error] = std::from_chars(line.data(), line.data() + line.size(), label);
    if (error != std::errc{} || stop != line.data() + line.size()) {
      throw JsonError("line " + std::to_string(number) + " is '" + Printable(line.substr(0, 40)) +
                      "', and no number of a class");
    }
    labels.classes.push_back(label);
  }
  return labels;
}

Box BoxOf(const Json& row) {
  constexpr size_t kNumbers = 5;
  if (row.Items().size() != kNumbers) {
    throw JsonError("a box needs five numbers: left, top, right, bottom, class");
  }
  Box box{row.Items()[0].AsNumber(), row.Items()[1].AsNumber(), row.Items()[2].AsNumber(),
          row.Items()[3].AsNumber(), row.Items()[4].AsSigned(), 0};
  // Written so that NaN is refused, too.
  if (!(box.right >= box.left && box.bottom >= box.top)) {
    throw JsonError("a box ends before it begins: " + ShownValue(row));
  }
  return box;
}

OutputLabels ParseOutputLabels(const Json& object, const std::string& folder) {
  OutputLabels labels;
  labels.output = object.At("output").AsText();
  const Json* classes = object.Find("classes");
  const Json* masks = object.Find("masks");
  const Json* boxes = object.Find("boxes");
  if ((classes != nullptr ? 1 : 0) + (masks != nullptr ? 1 : 0) + (boxes != nullptr ? 1 : 0) != 1) {
    throw JsonError("an output needs one of: classes, masks, boxes");
  }
  for (const auto& [key, value] : object.Members()) {
    if (key != "output" && key != "classes" && key != "masks" && key != "boxes" &&
        key != "ignore") {
      throw JsonError("there is no key '" + Printable(key) + "'");
    }
  }
  if (const Json* ignored = object.Find("ignore")) labels.ignored = ignored->AsUnsigned();
  if (classes != nullptr) {
    for (const Json& label : classes->Items()) labels.classes.push_back(label.AsUnsigned());
  } else if (masks != nullptr) {
    labels.kind = OutputLabels::Kind::kMasks;
    const std::string& path = masks->AsText();
    labels.masksPath = path.starts_with('/') ? path : folder + "/" + path;
  } else {
    labels.kind = OutputLabels::Kind::kBoxes;
    for (const Json& sample : boxes->Items()) {
      labels.boxes.emplace_back();
      for (const Json& row : sample.Items()) labels.boxes.back().push_back(BoxOf(row));
    }
  }
  return labels;
}

void TakeItems(std::span<const float> scores, uint64_t items, std::span<const uint64_t> labels,
               ClassAccuracy& accuracy) {
  const size_t classes = scores.size() / items;
  for (uint64_t item = 0; item < items; ++item) {
    accuracy.Take(scores.subspan(item * classes, classes), labels[item]);
  }
}

}  // namespace

std::vector<OutputLabels> ParseLabels(std::string_view text, const std::string& what,
                                      const std::string& folder) {
  try {
    const size_t first = text.find_first_not_of(" \t\r\n");
    if (first == std::string_view::npos) throw JsonError("there is nothing in it");
    if (text[first] != '{') return {ParseClassLines(text)};
    const Json object = ParseJson(text);
    HoldToSchema(object, 1);
    std::vector<OutputLabels> labels;
    for (const Json& output : object.At("outputs").Items()) {
      labels.push_back(ParseOutputLabels(output, folder));
    }
    return labels;
  } catch (const JsonError& error) {
    throw Fault(ExitStatus::kInput, what + ": " + error.what());
  }
}

LabelJudge::LabelJudge(const OutputLabels& labels)
    : labels_(labels), pixels_{MaskAccuracy(labels.ignored), MaskAccuracy(labels.ignored)} {
  if (labels.kind == OutputLabels::Kind::kMasks) masks_ = OpenNpy(labels.masksPath);
}

void LabelJudge::Refuse(uint64_t index, const std::string& reason) const {
  const std::string output =
      labels_.output.empty() ? "" : " of '" + Printable(labels_.output) + "'";
  throw Fault(ExitStatus::kInput,
              "the labels" + output + ": sample " + std::to_string(index) + " " + reason);
}

void LabelJudge::Take(uint64_t index, uint64_t items, std::span<const float> actual,
                      std::span<const float> expected) {
  switch (labels_.kind) {
    case OutputLabels::Kind::kClasses:
      return TakeClasses(index, items, actual, expected);
    case OutputLabels::Kind::kMasks:
      return TakeMask(index, actual, expected);
    case OutputLabels::Kind::kBoxes:
      return TakeBoxes(index, actual, expected);
  }
}

void LabelJudge::TakeClasses(uint64_t index, uint64_t items, std::span<const float> actual,
                             std::span<const float> expected) {
  const auto& classes = labels_.classes;
  if (items == 0 || classes.size() / items <= index) {
    Refuse(index, "has none; there are " + std::to_string(classes.size()));
  }
  const auto own = std::span(classes).subspan(index * items, items);
  TakeItems(actual, items, own, classes_.actual);
  TakeItems(expected, items, own, classes_.expected);
}

void LabelJudge::TakeMask(uint64_t index, std::span<const float> actual,
                          std::span<const float> expected) {
  const ElementOrder all = ElementOrder::Of(*masks_);
  if (all.shape.empty() || all.shape.front() <= index) {
    Refuse(index, "has none; the masks are " + TextOf(all.shape));
  }
  TensorReader reader(*masks_, all.Slice(index));
  const std::vector<float> mask = ReadAll(reader, kMostMaskElements);
  if (mask.empty() || actual.size() % mask.size() != 0) {
    Refuse(index, "has " + std::to_string(actual.size()) + " elements, and its mask " +
                      std::to_string(mask.size()) + " pixels");
  }
  pixels_.actual.Take(actual, mask);
  pixels_.expected.Take(expected, mask);
}

void LabelJudge::TakeBoxes(uint64_t index, std::span<const float> actual,
                           std::span<const float> expected) {
  if (labels_.boxes.size() <= index) {
    Refuse(index, "has none; there are " + std::to_string(labels_.boxes.size()));
  }
  const auto found = BoxesOf(actual);
  const auto wanted = BoxesOf(expected);
  if (!found || !wanted) {
    Refuse(index, "has " + std::to_string(actual.size()) +
                      " elements, which are no rows of left, top, right, bottom, score, class");
  }
  boxes_.actual.Take(*found, labels_.boxes[index]);
  boxes_.expected.Take(*wanted, labels_.boxes[index]);
}

std::vector<Accuracy> LabelJudge::Result(const std::string& output) const {
  const auto join = [&](const auto& sides) {
    std::vector<Accuracy> accuracies;
    const auto actual = sides.actual.Scores();
    const auto expected = sides.expected.Scores();
    for (size_t i = 0; i < actual.size(); ++i) {
      accuracies.push_back({output, actual[i].metric, actual[i].value, expected[i].value});
    }
    return accuracies;
  };
  switch (labels_.kind) {
    case OutputLabels::Kind::kMasks:
      return join(pixels_);
    case OutputLabels::Kind::kBoxes:
      return join(boxes_);
    default:
      return join(classes_);
  }
}

}  // namespace vorn::kit
