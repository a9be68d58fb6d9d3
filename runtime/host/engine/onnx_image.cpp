// A walk over the fields of an ONNX file. Field numbers are those of the ONNX format.
#include "host/engine/onnx_image.h"

#include <cstdint>
#include <optional>

#include "host/common/failure.h"

namespace vorn::host {
namespace {

using Bytes = std::span<const std::byte>;

constexpr int kDeepestNesting = 100;  // what protocol-buffers readers allow, too

enum WireType : uint32_t { kVarint = 0, kFixed64 = 1, kLength = 2, kFixed32 = 5 };

struct Field {
  uint32_t number = 0;
  uint32_t wireType = kVarint;
  uint64_t value = 0;  // of a varint
  Bytes bytes;         // of a length-delimited field
};

[[noreturn]] void RefuseImage(const char* what) {
  throw Failure(VORN_ERROR_MODEL, "the image is no ONNX file (", what,
                "); give the whole bytes of one");
}

/// Takes the fields of one message off its front.
class FieldReader {
 public:
  explicit FieldReader(Bytes message) : rest_(message) {}

  /// The next field, or nothing at the end of the message.
  std::optional<Field> Next() {
    if (rest_.empty()) return std::nullopt;
    const uint64_t tag = TakeVarint();
    Field field;
    field.number = static_cast<uint32_t>(tag >> 3);
    field.wireType = static_cast<uint32_t>(tag & 7);
    if (tag > UINT32_MAX || field.number == 0) RefuseImage("a field without a number");
    switch (field.wireType) {
      case kVarint:
        field.value = TakeVarint();
        break;
      case kFixed64:
        Take(8);
        break;
      case kLength:
        field.bytes = Take(TakeVarint());
        break;
      case kFixed32:
        Take(4);
        break;
      default:
        RefuseImage("an unknown wire type");
    }
    return field;
  }

 private:
  uint64_t TakeVarint() {
    uint64_t value = 0;
    for (unsigned shift = 0; shift < 64; shift += 7) {
      const auto byte = std::to_integer<uint64_t>(Take(1)[0]);
      value |= (byte & 0x7f) << shift;
      if (byte < 0x80) return value;
    }
    RefuseImage("an endless number");
  }

  Bytes Take(uint64_t count) {
    if (count > rest_.size()) RefuseImage("it ends inside a field");
    const Bytes taken = rest_.first(static_cast<size_t>(count));
    rest_ = rest_.subspan(static_cast<size_t>(count));
    return taken;
  }

  Bytes rest_;
};

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
  if (depth > kDeepestNesting) RefuseImage("messages nested too deep");
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

/// Calls `visit` with the bytes of each length-delimited field of that number.
template <typename Visit>
void ForEachField(Bytes message, uint32_t number, Visit visit) {
  FieldReader reader(message);
  while (const std::optional<Field> field = reader.Next()) {
    if (field->number == number && field->wireType == kLength) visit(field->bytes);
  }
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

/// The text in a field of that number, the last one if there are several; empty if there is none.
std::string TextOf(Bytes message, uint32_t number) {
  std::string text;
  ForEachField(message, number, [&](Bytes bytes) {
    text.assign(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  });
  return text;
}

}  // namespace

OnnxImageFacts InspectOnnxImage(Bytes image) {
  OnnxImageFacts facts;
  facts.hasExternalData = HasExternalData(Message::kModel, image, 0);
  ForEachField(image, 7, [&](Bytes graph) {
    facts.hasGraph = true;
    ForEachField(graph, 11, [&](Bytes input) {
      if (!HasShape(input)) facts.shapelessInputs.insert(TextOf(input, 1));
    });
  });
  return facts;
}

std::set<std::string> OpenDimNames(Bytes image) {
  std::set<std::string> names;
  const auto visitShape = [&](Bytes shape) {
    ForEachField(shape, 1, [&](Bytes dim) {  // size 1 or name 2
      const std::string name = TextOf(dim, 2);
      if (!name.empty()) names.insert(name);
    });
  };
  ForEachField(image, 7, [&](Bytes graph) {
    for (const uint32_t inputsOrOutputs : {11U, 12U}) {
      ForEachField(graph, inputsOrOutputs, [&](Bytes value) { ForEachShape(value, visitShape); });
    }
  });
  return names;
}

std::optional<std::string> FindMetadata(Bytes image, std::string_view name) {
  std::optional<std::string> found;
  ForEachField(image, 14, [&](Bytes property) {  // name 1, text 2
    if (TextOf(property, 1) == name) found = TextOf(property, 2);
  });
  return found;
}

}  // namespace vorn::host
