#include "kit/convert/protobuf_writer.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kVarintKind = 0;
constexpr uint64_t kLengthKind = 2;

uint64_t KeyOf(uint32_t field, uint64_t kind) { return uint64_t{field} << 3 | kind; }

}  // namespace

ProtobufMessage& ProtobufMessage::Number(uint32_t field, uint64_t value) {
  Varint(KeyOf(field, kVarintKind));
  Varint(value);
  return *this;
}

ProtobufMessage& ProtobufMessage::Text(uint32_t field, std::string_view text) {
  Varint(KeyOf(field, kLengthKind));
  Varint(text.size());
  bytes_ += text;
  return *this;
}

void ProtobufMessage::Varint(uint64_t value) {
  constexpr uint64_t kMore = 0x80;
  for (; value >= kMore; value >>= 7) bytes_ += static_cast<char>((value & (kMore - 1)) | kMore);
  bytes_ += static_cast<char>(value);
}

}  // namespace vorn::kit
