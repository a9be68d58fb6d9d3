#include "kit/convert/protobuf_writer.h"

#include <gtest/gtest.h>

#include "support/files.h"

namespace vorn::kit {
namespace {

using support::Hex;

// The examples of the format's own description: 150 in field 1, "testing" in field 2, and the first
// message in field 3 of another.
TEST(ProtobufMessage, IsAsTheFormatIsDescribed) {
  EXPECT_EQ(Hex(ProtobufMessage().Number(1, 150).Bytes()), Hex("\x08\x96\x01"));
  EXPECT_EQ(Hex(ProtobufMessage().Text(2, "testing").Bytes()), Hex("\x12\x07testing"));
  EXPECT_EQ(Hex(ProtobufMessage().Message(3, ProtobufMessage().Number(1, 150)).Bytes()),
            Hex("\x1a\x03\x08\x96\x01"));
}

TEST(ProtobufMessage, HoldsTheSmallestAndTheLargest) {
  EXPECT_EQ(Hex(ProtobufMessage().Number(1, 0).Number(16, UINT64_MAX).Bytes()),
            Hex(std::string("\x08\x00\x80\x01\xff\xff\xff\xff\xff\xff\xff\xff\xff\x01", 14)));
  EXPECT_EQ(Hex(ProtobufMessage().Text(1, std::string(128, 'x')).Bytes()),
            Hex("\x0a\x80\x01" + std::string(128, 'x')));
}

}  // namespace
}  // namespace vorn::kit
