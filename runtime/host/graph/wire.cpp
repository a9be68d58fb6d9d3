// Tags, varints and lengths.
#include "host/graph/wire.h"

#include "host/common/failure.h"

namespace vorn::host {
namespace {

[[noreturn]] void RefuseImage(const char* what) {
  throw Failure(VORN_ERROR_MODEL, "the image is no ONNX file (", what,
                "); give the whole bytes of one");
}

}  // namespace

std::optional<Field> FieldReader::Next() {
  if (rest_.empty()) return std::nullopt;
  const Bytes before = rest_;
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
  field.whole = before.first(before.size() - rest_.size());
  return field;
}

uint64_t FieldReader::TakeVarint() {
  uint64_t value = 0;
  for (unsigned shift = 0; shift < 64; shift += 7) {
    const auto byte = std::to_integer<uint64_t>(Take(1)[0]);
    value |= (byte & 0x7f) << shift;
    if (byte < 0x80) return value;
  }
  RefuseImage("an endless number");
}

Bytes FieldReader::Take(uint64_t count) {
  if (count > rest_.size()) RefuseImage("it ends inside a field");
  const Bytes taken = rest_.first(static_cast<size_t>(count));
  rest_ = rest_.subspan(static_cast<size_t>(count));
  return taken;
}

std::string_view TextOf(Bytes bytes) {
  return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

Bytes BytesOf(std::string_view text) { return std::as_bytes(std::span(text)); }

std::string_view TextIn(Bytes message, uint32_t number) {
  std::string_view text;
  ForEachField(message, number, [&](Bytes bytes) { text = TextOf(bytes); });
  return text;
}

void MessageWriter::Raw(uint64_t value) {
  for (; value >= 0x80; value >>= 7) bytes_.push_back(static_cast<char>((value & 0x7f) | 0x80));
  bytes_.push_back(static_cast<char>(value));
}

MessageWriter& MessageWriter::Varint(uint32_t number, uint64_t value) {
  Raw(uint64_t{number} << 3 | WireType::kVarint);
  Raw(value);
  return *this;
}

MessageWriter& MessageWriter::Text(uint32_t number, std::string_view text) {
  Raw(uint64_t{number} << 3 | WireType::kLength);
  Raw(text.size());
  bytes_ += text;
  return *this;
}

MessageWriter& MessageWriter::Copy(Bytes fields) {
  bytes_ += TextOf(fields);
  return *this;
}

}  // namespace vorn::host
