// A walk over the fields of an ONNX file. Field numbers are those of the ONNX format.
#include "host/engine/onnx_image.h"

#include <cstdint>
#include <optional>
#include <string_view>

#include "host/common/failure.h"
#include "host/graph/wire.h"

namespace vorn::host {
namespace {

constexpr int kDeepestNesting = 100;  // what protocol-buffers readers allow, too

[[noreturn]] void RefuseNesting() {
  throw Failure(
      VORN_ERROR_MODEL,
      "the image is no ONNX file (messages nested too deep); give the whole bytes of one");
}

enum class Message {
  kModel,
  kTraining,
  kFunction,
  kGraph,
  kNode,
  kAttribute,
  kSparseTensor,
  kTensor,
  kOther  // holds no tensor
};

/// The kind of message that a length-delimited field of `parent` holds.
Message Child(Message parent, uint32_t number) {
  switch (parent) {
    case Message::kModel:
      if (number == 7) return Message::kGraph;
      if (number == 20) return Message::kTraining;
      if (number == 25) return Message::kFunction;
      break;
    case Message::kTraining:
      if (number == 1 || number == 2) return Message::kGraph;
      break;
    case Message::kFunction:
      if (number == 7) return Message::kNode;
      if (number == 11) return Message::kAttribute;
      break;
    case Message::kGraph:
      if (number == 1) return Message::kNode;
      if (number == 5) return Message::kTensor;
      if (number == 15) return Message::kSparseTensor;
      break;
    case Message::kNode:
      if (number == 5) return Message::kAttribute;
      break;
    case Message::kAttribute:
      if (number == 5 || number == 10) return Message::kTensor;
      if (number == 6 || number == 11) return Message::kGraph;
      if (number == 22 || number == 23) return Message::kSparseTensor;
      break;
    case Message::kSparseTensor:
      if (number == 1 || number == 2) return Message::kTensor;
      break;
    case Message::kTensor:
    case Message::kOther:
      break;
  }
  return Message::kOther;
}

/// Whether a field of a tensor says that its data lies in another file: entries that tell where
/// (13), or a location (14) other than "in here", which is 0.
bool PointsOutside(const Field& field) {
  return (field.number == 13 && field.wireType == kLength) ||
         (field.number == 14 && field.wireType == kVarint && field.value != 0);
}

bool HasExternalData(Message kind, Bytes message, int depth) {
  if (depth > kDeepestNesting) RefuseNesting();
  bool external = false;
  FieldReader reader(message);
  while (const std::optional<Field> field = reader.Next()) {
    if (kind == Message::kTensor) {
      external = external || PointsOutside(*field);
      continue;
    }
    if (field->wireType != kLength) continue;
    const Message child = Child(kind, field->number);
    if (child == Message::kOther) continue;
    external = HasExternalData(child, field->bytes, depth + 1) || external;
  }
  return external;
}

/// Calls `visit` with the shape (2) of a value (name 1, type 2) that is a tensor (type 1).
template <typename Visit>
void ForEachShape(Bytes value, Visit visit) {
  ForEachField(value, 2, [&](Bytes type) {
    ForEachField(type, 1, [&](Bytes tensor) { ForEachField(tensor, 2, visit); });
  });
}

bool HasShape(Bytes value) {
  bool found = false;
  ForEachShape(value, [&](Bytes) { found = true; });
  return found;
}

}  // namespace

OnnxImageFacts InspectOnnxImage(Bytes image) {
  OnnxImageFacts facts;
  facts.hasExternalData = HasExternalData(Message::kModel, image, 0);
  ForEachField(image, 7, [&](Bytes graph) {
    facts.hasGraph = true;
    ForEachField(graph, 11, [&](Bytes input) {
      if (!HasShape(input)) facts.shapelessInputs.emplace(TextIn(input, 1));
    });
  });
  return facts;
}

OnnxImageFacts RequireOneFile(Bytes image) {
  if (image.size() > INT32_MAX) {
    throw Failure(VORN_ERROR_MODEL, "the image is ", image.size(),
                  " bytes; an ONNX file has at most ", INT32_MAX);
  }
  OnnxImageFacts facts = InspectOnnxImage(image);
  if (!facts.hasGraph) {
    throw Failure(VORN_ERROR_MODEL, "the image holds no graph; give the bytes of an ONNX file");
  }
  if (facts.hasExternalData) {
    throw Failure(VORN_ERROR_MODEL, "the model keeps weights in other files, which are not read; ",
                  "save it as one file");
  }
  return facts;
}

std::set<std::string> OpenDimNames(Bytes image) {
  std::set<std::string> names;
  const auto visitShape = [&](Bytes shape) {
    ForEachField(shape, 1, [&](Bytes dim) {  // size 1 or name 2
      const std::string_view name = TextIn(dim, 2);
      if (!name.empty()) names.emplace(name);
    });
  };
  ForEachField(image, 7, [&](Bytes graph) {
    for (const uint32_t inputsOrOutputs : {11U, 12U}) {
      ForEachField(graph, inputsOrOutputs, [&](Bytes value) { ForEachShape(value, visitShape); });
    }
  });
  return names;
}

bool ImportsDomain(Bytes image, std::string_view domain) {
  bool imports = false;
  ForEachField(image, 8, [&](Bytes set) { imports |= TextIn(set, 1) == domain; });
  return imports;
}

std::optional<std::string> FindMetadata(Bytes image, std::string_view name) {
  std::optional<std::string> found;
  ForEachField(image, 14, [&](Bytes property) {  // name 1, text 2
    if (TextIn(property, 1) == name) found = TextIn(property, 2);
  });
  return found;
}

}  // namespace vorn::host
