#include "host/graph/wire.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "runtime/host/refusal.h"
#include "support/onnx_writer.h"

namespace vorn::host {
namespace {

using testing::HasSubstr;

// Number 1 as each wire type, one after the other.
const std::string kAllTypes(
    "\x08\xac\x02\x09"
    "12345678\x0a\x03"
    "abc\x0d"
    "1234",
    22);

TEST(FieldReader, TellsEachFieldAndWhereItStands) {
  FieldReader reader(BytesOf(kAllTypes));
  const auto varint = reader.Next();
  EXPECT_EQ(varint->value, 300u);
  EXPECT_EQ(TextOf(varint->whole), "\x08\xac\x02");
  EXPECT_EQ(TextOf(reader.Next()->whole),
            "\x09"
            "12345678");
  const auto text = reader.Next();
  EXPECT_EQ(TextOf(text->bytes), "abc");
  EXPECT_EQ(TextOf(text->whole),
            "\x0a\x03"
            "abc");
  EXPECT_EQ(TextOf(reader.Next()->whole),
            "\x0d"
            "1234");
  EXPECT_EQ(reader.Next(), std::nullopt);
}

TEST(FieldReader, RefusesEveryPrefixThatEndsWithinAField) {
  for (const size_t length : {1, 2, 4, 11, 13, 14, 16, 18, 21}) {
    EXPECT_THAT(ReasonOf(VORN_ERROR_MODEL,
                         [&] {
                           FieldReader reader(BytesOf(kAllTypes).first(length));
                           while (reader.Next()) {
                           }
                         }),
                HasSubstr("it ends inside a field"))
        << length;
  }
}

TEST(FieldReader, TakesThePackedNumbersOfAList) {
  FieldReader reader(BytesOf("\x01\xac\x02"));
  EXPECT_EQ(reader.TakeVarint(), 1u);
  EXPECT_FALSE(reader.IsAtEnd());
  EXPECT_EQ(reader.TakeVarint(), 300u);
  EXPECT_TRUE(reader.IsAtEnd());
}

TEST(TextIn, IsTheLastOfThatNumber) {
  const std::string message = WireWriter().Bytes(2, "a").Bytes(2, "b").Bytes(3, "c").str();
  EXPECT_EQ(TextIn(BytesOf(message), 2), "b");
  EXPECT_EQ(TextIn(BytesOf(message), 4), "");
}

TEST(MessageWriter, WritesWhatAnotherWriterDoes) {
  const std::string inner = WireWriter().Varint(1, 1ULL << 63).str();
  EXPECT_EQ(
      MessageWriter().Varint(3, 127).Varint(900, 128).Text(2, "text").Copy(BytesOf(inner)).str(),
      WireWriter().Varint(3, 127).Varint(900, 128).Bytes(2, "text").str() + inner);
}

}  // namespace
}  // namespace vorn::host
