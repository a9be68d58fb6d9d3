#include "kit/judge/map.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <set>

#include "kit/common/fault.h"
#include "kit/common/nearest.h"
#include "kit/common/printable.h"
#include "kit/json/json.h"
#include "kit/json/json_members.h"
#include "kit/tensor/tensor_source.h"

namespace vorn::kit {
namespace {

constexpr size_t kMostMapDimensions = 64;

Shape ShapeOf(const Json& value) {
  Shape shape;
  for (const Json& size : value.Items()) shape.push_back(size.AsUnsigned());
  if (shape.size() > kMostMapDimensions) throw JsonError("a shape has more than 64 dimensions");
  if (!CountElements(shape)) throw JsonError("a shape does not fit memory: " + TextOf(shape));
  return shape;
}

std::string LayoutOf(const Json& value) {
  const std::string& layout = value.AsText();
  for (size_t i = 0; i < layout.size(); ++i) {
    if (layout.find(layout[i], i + 1) != std::string::npos) {
      throw JsonError("the layout '" + Printable(layout) + "' has '" +
                      Printable(layout.substr(i, 1)) + "' twice");
    }
  }
  return layout;
}

double ScaleOf(const Json& value) {
  const double scale = FiniteNumber(value, "scale");
  if (scale == 0) throw JsonError("a scale of 0 leaves nothing to compare");
  return scale;
}

// One scale, or a list of them and the dimension that they go along.
std::optional<Quantisation> QuantisationOf(const Json& object) {
  const Json* scale = object.Find("scale");
  const Json* zeroPoint = object.Find("zeroPoint");
  const Json* axis = object.Find("axis");
  if (scale == nullptr) {
    if (zeroPoint != nullptr) throw JsonError("a zeroPoint stands without a scale");
    if (axis != nullptr) throw JsonError("an axis stands without a list of scales");
    return std::nullopt;
  }
  Quantisation quantisation;
  if (!scale->IsArray()) {
    if (axis != nullptr) throw JsonError("an axis stands without a list of scales");
    quantisation.scale = ScaleOf(*scale);
    if (zeroPoint != nullptr) quantisation.zeroPoint = FiniteNumber(*zeroPoint, "zeroPoint");
    return quantisation;
  }
  if (axis == nullptr)
    throw JsonError("a list of scales stands without the axis that it goes along");
  quantisation.axis = axis->AsUnsigned();
  for (const Json& one : scale->Items()) quantisation.scales.push_back(ScaleOf(one));
  if (quantisation.scales.empty()) throw JsonError("the list of scales is empty");
  quantisation.zeroPoints.assign(quantisation.scales.size(), 0);
  if (zeroPoint == nullptr) return quantisation;
  if (zeroPoint->IsArray() && zeroPoint->Items().size() != quantisation.scales.size()) {
    throw JsonError("there are " + std::to_string(zeroPoint->Items().size()) + " zeroPoints for " +
                    std::to_string(quantisation.scales.size()) + " scales");
  }
  for (size_t i = 0; i < quantisation.zeroPoints.size(); ++i) {
    quantisation.zeroPoints[i] =
        FiniteNumber(zeroPoint->IsArray() ? zeroPoint->Items()[i] : *zeroPoint, "zeroPoint");
  }
  return quantisation;
}

MappedSide SideOf(const Json& object) {
  HoldToKeys(object, {"name", "shape", "layout", "type", "scale", "zeroPoint", "axis"});
  MappedSide side;
  side.name = object.At("name").AsText();
  if (const Json* shape = object.Find("shape")) side.shape = ShapeOf(*shape);
  if (const Json* layout = object.Find("layout")) side.layout = LayoutOf(*layout);
  if (const Json* type = object.Find("type")) {
    side.type = ElementNamed(type->AsText());
    if (!side.type) throw JsonError("there is no type '" + Printable(type->AsText()) + "'");
  }
  side.quantisation = QuantisationOf(object);
  return side;
}

MappedOutput OutputOf(const Json& object) {
  HoldToKeys(object, {"actual", "expected", "order"});
  MappedOutput output;
  output.actual = SideOf(object.At("actual"));
  output.expected = SideOf(object.At("expected"));
  if (const Json* order = object.Find("order")) {
    for (const Json& axis : order->Items()) output.order.push_back(axis.AsUnsigned());
    if (output.order.size() > kMostMapDimensions)
      throw JsonError("an order has more than 64 dimensions");
    std::vector<size_t> sorted = output.order;
    std::sort(sorted.begin(), sorted.end());
    for (size_t i = 0; i < sorted.size(); ++i) {
      if (sorted[i] != i) throw JsonError("an order has to hold every dimension from 0 on once");
    }
  }
  const bool hasLayouts = !output.actual.layout.empty() || !output.expected.layout.empty();
  if (hasLayouts && !output.order.empty()) {
    throw JsonError("an order and a layout exclude each other");
  }
  if (hasLayouts && (output.actual.layout.empty() || output.expected.layout.empty())) {
    throw JsonError("a layout stands on one side only");
  }
  return output;
}

void SetSamples(const Json& value, Map& map) {
  if (value.IsText()) {
    if (value.AsText() == "inputs") {
      map.samples = Map::Samples::kByInputs;
    } else if (value.AsText() != "index") {
      throw JsonError("samples are paired by \"index\" or \"inputs\", not by \"" +
                      Printable(value.AsText()) + "\"");
    }
    return;
  }
  map.samples = Map::Samples::kListed;
  for (const Json& pair : value.Items()) {
    if (pair.Items().size() != 2) throw JsonError("a pair of samples has to hold two numbers");
    map.listed.emplace_back(pair.Items()[0].AsUnsigned(), pair.Items()[1].AsUnsigned());
  }
  std::vector<uint64_t> actual;
  for (const auto& pair : map.listed) actual.push_back(pair.first);
  std::sort(actual.begin(), actual.end());
  const auto twice = std::adjacent_find(actual.begin(), actual.end());
  if (twice != actual.end()) {
    throw JsonError("sample " + std::to_string(*twice) + " stands in two pairs");
  }
}

// The second would be passed over. As dumps spell them, by which they are found.
void RefuseTwice(const std::vector<MappedOutput>& outputs) {
  std::set<std::string> names;
  for (const MappedOutput& output : outputs) {
    if (names.insert(SpelledAsDump(output.actual.name)).second) continue;
    throw JsonError("the actual output '" + Printable(output.actual.name) +
                    "' stands in two pairs");
  }
}

}  // namespace

Map ParseMap(std::string_view text, const std::string& what) {
  try {
    const Json object = ParseJson(text);
    HoldToKeys(object, {"schema", "samples", "outputs"});
    HoldToSchema(object, 1);
    Map map;
    if (const Json* samples = object.Find("samples")) SetSamples(*samples, map);
    if (const Json* outputs = object.Find("outputs")) {
      for (const Json& output : outputs->Items()) map.outputs.push_back(OutputOf(output));
    }
    RefuseTwice(map.outputs);
    return map;
  } catch (const JsonError& error) {
    throw Fault(ExitStatus::kInput, what + ": " + error.what());
  }
}

ElementOrder BroughtIntoLayout(const ElementOrder& expected, const std::string& expectedLayout,
                               const std::string& actualLayout, const std::string& what) {
  const auto refuse = [&](const std::string& reason) {
    throw Fault(ExitStatus::kInput,
                what + ": " + reason + " (expected " + Printable(expectedLayout) + " of " +
                    TextOf(expected.shape) + ", actual " + Printable(actualLayout) + ")");
  };
  if (expectedLayout.size() != expected.shape.size()) {
    refuse("the layout has " + std::to_string(expectedLayout.size()) +
           " letters and the expected tensor " + std::to_string(expected.shape.size()) +
           " dimensions");
  }
  for (size_t axis = 0; axis < expectedLayout.size(); ++axis) {
    const bool isGone = actualLayout.find(expectedLayout[axis]) == std::string::npos;
    if (isGone && expected.shape[axis] != 1) {
      refuse(std::string("'") + expectedLayout[axis] +
             "' is missing on the actual side, and is more than 1 here");
    }
  }
  ElementOrder brought;
  brought.first = expected.first;
  for (const char letter : actualLayout) {
    const size_t axis = expectedLayout.find(letter);
    const bool isNew = axis == std::string::npos;
    brought.shape.push_back(isNew ? 1 : expected.shape[axis]);
    brought.strides.push_back(isNew ? 0 : expected.strides[axis]);
  }
  return brought;
}

}  // namespace vorn::kit
