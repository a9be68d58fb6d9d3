#include "kit/tensor/onnx_tensor.h"

#include <algorithm>
#include <array>
#include <bit>

#include "kit/common/fault.h"
#include "kit/tensor/input_file.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostNameBytes = 64 * 1024;
constexpr size_t kMostOnnxDimensions = 64;
constexpr uint64_t kMostDecoded = 1 << 26;

enum Wire : uint32_t { kVarint = 0, kEight = 1, kDelimited = 2, kFour = 5 };

struct OnnxType {
  uint64_t code;
  ElementType type;
};

constexpr std::array kOnnxTypes{
    OnnxType{1, ElementType::kFloat32},   OnnxType{2, ElementType::kUint8},
    OnnxType{3, ElementType::kInt8},      OnnxType{4, ElementType::kUint16},
    OnnxType{5, ElementType::kInt16},     OnnxType{6, ElementType::kInt32},
    OnnxType{7, ElementType::kInt64},     OnnxType{9, ElementType::kBool},
    OnnxType{10, ElementType::kFloat16},  OnnxType{11, ElementType::kFloat64},
    OnnxType{12, ElementType::kUint32},   OnnxType{13, ElementType::kUint64},
    OnnxType{16, ElementType::kBfloat16},
};

struct Piece {
  uint64_t offset = 0;
  uint64_t bytes = 0;
};

// The bytes of the file one after the other, through a small window.
class Wired {
 public:
  explicit Wired(const InputFile& file) : file_(file), end_(file.Bytes()) {}

  bool IsAtEnd() const { return at_ >= end_; }
  uint64_t At() const { return at_; }
  void MoveTo(uint64_t at) { at_ = at; }

  uint8_t Byte() {
    if (IsAtEnd()) file_.Refuse("ends within a field; it was cut off, or is no TensorProto");
    if (at_ < windowAt_ || at_ >= windowAt_ + windowBytes_) {
      windowAt_ = at_;
      windowBytes_ = std::min<uint64_t>(window_.size(), end_ - at_);
      file_.ReadAt(at_, std::as_writable_bytes(std::span(window_).first(windowBytes_)));
    }
    return window_[at_++ - windowAt_];
  }

  uint64_t Varint() {
    uint64_t value = 0;
    for (unsigned shift = 0; shift < 64; shift += 7) {
      const uint8_t byte = Byte();
      value |= static_cast<uint64_t>(byte & 0x7FU) << shift;
      if ((byte & 0x80U) == 0) return value;
    }
    file_.Refuse("is no TensorProto: a number in it has no end");
  }

  Piece Delimited() {
    const uint64_t bytes = Varint();
    if (bytes > end_ - at_)
      file_.Refuse("ends within a field; it was cut off, or is no TensorProto");
    const Piece piece{at_, bytes};
    at_ += bytes;
    return piece;
  }

  void Skip(uint32_t wire) {
    switch (wire) {
      case kVarint:
        (void)Varint();
        return;
      case kDelimited:
        (void)Delimited();
        return;
      case kEight:
      case kFour: {
        const uint64_t bytes = wire == kEight ? 8 : 4;
        if (bytes > end_ - at_) file_.Refuse("ends within a field");
        at_ += bytes;
        return;
      }
      default:
        file_.Refuse("is no TensorProto: a field of the unknown kind " + std::to_string(wire));
    }
  }

 private:
  const InputFile& file_;
  uint64_t end_;
  uint64_t at_ = 0;
  uint64_t windowAt_ = 0;
  uint64_t windowBytes_ = 0;
  std::array<uint8_t, 4096> window_{};
};

struct Message {
  Shape dims;
  uint64_t type = 0;
  std::string name;
  uint32_t valueField = 0;
  Piece values;
  bool isElsewhere = false;
};

bool IsValueField(uint32_t field) {
  constexpr std::array<uint32_t, 6> kFields{4, 5, 7, 9, 10, 11};
  return std::find(kFields.begin(), kFields.end(), field) != kFields.end();
}

void AddDim(const InputFile& file, Message& message, uint64_t dim) {
  if (message.dims.size() == kMostOnnxDimensions) {
    file.Refuse("is no tensor: it has more than 64 dimensions");
  }
  if (dim > INT64_MAX) file.Refuse("has a negative dimension");
  message.dims.push_back(dim);
}

void TakeDims(const InputFile& file, Wired& wired, uint32_t wire, Message& message) {
  if (wire == kVarint) return AddDim(file, message, wired.Varint());
  if (wire != kDelimited) file.Refuse("is no TensorProto: its dimensions are no whole numbers");
  const Piece packed = wired.Delimited();
  wired.MoveTo(packed.offset);
  while (wired.At() < packed.offset + packed.bytes) AddDim(file, message, wired.Varint());
}

void TakeValues(const InputFile& file, Wired& wired, uint32_t field, uint32_t wire,
                Message& message) {
  if (wire != kDelimited) {
    file.Refuse("holds its values one by one (field " + std::to_string(field) +
                "); write them packed, or as raw_data");
  }
  const Piece values = wired.Delimited();
  if (values.bytes == 0) return;
  if (message.valueField != 0) file.Refuse("holds values twice");
  message.valueField = field;
  message.values = values;
}

Message ReadMessage(const InputFile& file) {
  enum Field : uint32_t { kDims = 1, kType = 2, kSegment = 3, kTexts = 6, kName = 8, kPlace = 14 };
  Wired wired(file);
  Message message;
  while (!wired.IsAtEnd()) {
    const uint64_t key = wired.Varint();
    const auto field = static_cast<uint32_t>(std::min<uint64_t>(key >> 3, UINT32_MAX));
    const auto wire = static_cast<uint32_t>(key & 7U);
    if (field == kDims) {
      TakeDims(file, wired, wire, message);
    } else if (field == kType && wire == kVarint) {
      message.type = wired.Varint();
    } else if (field == kName && wire == kDelimited) {
      const Piece name = wired.Delimited();
      if (name.bytes > kMostNameBytes) file.Refuse("has a name of more than 64 KiB");
      message.name.resize(name.bytes);
      file.ReadAt(name.offset, std::as_writable_bytes(std::span(message.name)));
    } else if (field == kPlace && wire == kVarint) {
      message.isElsewhere = wired.Varint() == 1;
    } else if (field == kSegment || field == kTexts) {
      file.Refuse("holds texts or a part of a tensor; numbers of a whole one are read");
    } else if (IsValueField(field)) {
      TakeValues(file, wired, field, wire, message);
    } else {
      wired.Skip(wire);
    }
  }
  return message;
}

// What a whole number of int32_data, int64_data or uint64_data means.
float MeaningOf(ElementType type, uint64_t varint) {
  switch (type) {
    case ElementType::kFloat16:
      return Float16Value(static_cast<uint16_t>(varint));
    case ElementType::kBfloat16:
      return Bfloat16Value(static_cast<uint16_t>(varint));
    case ElementType::kUint64:
    case ElementType::kUint32:
      return static_cast<float>(varint);
    case ElementType::kBool:
      return varint == 0 ? 0.0F : 1.0F;
    default:
      return static_cast<float>(static_cast<int64_t>(varint));
  }
}

void DecodeVarints(const InputFile& file, const Piece& piece, StoredTensor& tensor) {
  if (tensor.elements > kMostDecoded || tensor.elements > piece.bytes) {
    file.Refuse("should hold " + TextOf(*tensor.shape) + " values and has " +
                std::to_string(piece.bytes) + " bytes of numbers; write it with raw_data");
  }
  auto values = std::make_shared<std::vector<float>>();
  values->reserve(tensor.elements);
  Wired wired(file);
  wired.MoveTo(piece.offset);
  const uint64_t end = piece.offset + piece.bytes;
  while (wired.At() < end && values->size() < tensor.elements) {
    values->push_back(MeaningOf(tensor.type, wired.Varint()));
  }
  if (values->size() != tensor.elements || wired.At() != end) {
    file.Refuse("should hold " + TextOf(*tensor.shape) + " values and has another number of them");
  }
  tensor.decoded = std::move(values);
}

// Field, and the only type that it may hold where the values lie there as they are.
std::optional<ElementType> DenseTypeOf(uint32_t field, ElementType type) {
  constexpr uint32_t kFloats = 4;
  constexpr uint32_t kRaw = 9;
  constexpr uint32_t kDoubles = 10;
  if (field == kRaw) return type;
  if (field == kFloats) return ElementType::kFloat32;
  if (field == kDoubles) return ElementType::kFloat64;
  return std::nullopt;
}

}  // namespace

StoredTensor OpenOnnxTensor(const std::string& path) {
  const InputFile file(path, "the tensor");
  Message message = ReadMessage(file);
  if (message.isElsewhere) file.Refuse("keeps its values in another file, which is not read");
  const auto* known = std::find_if(kOnnxTypes.begin(), kOnnxTypes.end(),
                                   [&](const OnnxType& row) { return row.code == message.type; });
  if (known == kOnnxTypes.end()) {
    file.Refuse("has elements of type " + std::to_string(message.type) +
                ", which is none of numbers, or is no TensorProto");
  }
  StoredTensor tensor;
  tensor.path = path;
  tensor.name = std::move(message.name);
  tensor.type = known->type;
  tensor.shape = std::move(message.dims);
  const auto elements = CountElements(*tensor.shape);
  if (!elements) file.Refuse("has a shape that does not fit memory: " + TextOf(*tensor.shape));
  tensor.elements = *elements;
  const auto dense = DenseTypeOf(message.valueField, tensor.type);
  if (message.valueField == 0) {
    if (tensor.elements > 0) file.Refuse("has no values for its shape " + TextOf(*tensor.shape));
  } else if (!dense) {
    DecodeVarints(file, message.values, tensor);
  } else {
    const uint64_t size = ElementBytes(*dense);
    if (*dense != tensor.type || message.values.bytes % size != 0 ||
        message.values.bytes / size != tensor.elements) {
      file.Refuse("should hold " + TextOf(*tensor.shape) + " of " +
                  std::string(ElementName(tensor.type)) + ", and has " +
                  std::to_string(message.values.bytes) + " bytes of values");
    }
    tensor.offsetBytes = message.values.offset;
    tensor.isSwapped = std::endian::native == std::endian::big;
  }
  return tensor;
}

}  // namespace vorn::kit
