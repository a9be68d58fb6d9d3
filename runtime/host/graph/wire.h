// Protocol-buffers messages, field by field, without knowing what they mean.
//
//     message := field*                           field := tag payload
//     tag     := varint(number << 3 | wire type)
//     payload := varint | 8 bytes | varint length, bytes | 4 bytes      (wire type 0, 1, 2, 5)
//
// Nothing is copied while reading: whoever keeps a field keeps the message. Fields that nobody asks
// for, also those of later versions of a format, can be handed on as the bytes that they are.
#ifndef VORN_RUNTIME_HOST_GRAPH_WIRE_H_
#define VORN_RUNTIME_HOST_GRAPH_WIRE_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace vorn::host {

using Bytes = std::span<const std::byte>;

enum WireType : uint32_t { kVarint = 0, kFixed64 = 1, kLength = 2, kFixed32 = 5 };

struct Field {
  uint32_t number = 0;
  uint32_t wireType = kVarint;
  uint64_t value = 0;  ///< of a varint
  Bytes bytes;         ///< of a length-delimited field
  Bytes whole;         ///< the field with its tag
};

/// Takes the fields of one message off its front. Fails with VORN_ERROR_MODEL where it is none.
class FieldReader {
 public:
  explicit FieldReader(Bytes message) : rest_(message) {}

  /// The next field, or nothing at the end of the message.
  std::optional<Field> Next();

  /// What stands in front of the fields that are still to come: one number of a packed list.
  uint64_t TakeVarint();
  bool IsAtEnd() const { return rest_.empty(); }

 private:
  Bytes Take(uint64_t count);

  Bytes rest_;
};

/// Calls `visit` with the bytes of each length-delimited field of that number.
template <typename Visit>
void ForEachField(Bytes message, uint32_t number, Visit visit) {
  FieldReader reader(message);
  while (const std::optional<Field> field = reader.Next()) {
    if (field->number == number && field->wireType == kLength) visit(field->bytes);
  }
}

std::string_view TextOf(Bytes bytes);
Bytes BytesOf(std::string_view text);

/// The text in a field of that number, the last one if there are several; empty if there is none.
std::string_view TextIn(Bytes message, uint32_t number);

/// One message as it grows.
class MessageWriter {
 public:
  MessageWriter& Varint(uint32_t number, uint64_t value);
  MessageWriter& Text(uint32_t number, std::string_view text);
  /// Fields as they stand in another message, tags included.
  MessageWriter& Copy(Bytes fields);

  const std::string& str() const { return bytes_; }
  std::string Take() { return std::move(bytes_); }

 private:
  void Raw(uint64_t value);

  std::string bytes_;
};

}  // namespace vorn::host

#endif  // VORN_RUNTIME_HOST_GRAPH_WIRE_H_
