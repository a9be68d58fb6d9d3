// Messages in the wire format of Protocol Buffers, of which writing takes little:
//
//     field = key, value        key = varint of (number << 3 | kind)
//     kind 0: varint, seven bits a byte, the lowest first, all but the last byte with bit 7 set
//     kind 2: length as a varint, then so many bytes: a text or another message
#ifndef VORN_KIT_CONVERT_PROTOBUF_WRITER_H_
#define VORN_KIT_CONVERT_PROTOBUF_WRITER_H_

#include <cstdint>
#include <string>
#include <string_view>

namespace vorn::kit {

class ProtobufMessage {
 public:
  ProtobufMessage& Number(uint32_t field, uint64_t value);
  ProtobufMessage& Text(uint32_t field, std::string_view text);
  ProtobufMessage& Message(uint32_t field, const ProtobufMessage& message) {
    return Text(field, message.bytes_);
  }

  [[nodiscard]] const std::string& Bytes() const { return bytes_; }

 private:
  void Varint(uint64_t value);

  std::string bytes_;
};

}  // namespace vorn::kit

#endif  // VORN_KIT_CONVERT_PROTOBUF_WRITER_H_
