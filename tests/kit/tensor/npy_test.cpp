#include "kit/tensor/npy.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/common/fault.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using testing::HasSubstr;

// A head as version `version` has it, written from its description.
std::string Head(const std::string& text, int version = 1) {
  std::string bytes = "\x93NUMPY";
  bytes += static_cast<char>(version);
  bytes += '\0';
  for (int i = 0; i < (version == 1 ? 2 : 4); ++i) {
    bytes += static_cast<char>(text.size() >> (8 * i) & 255U);
  }
  return bytes + text;
}

std::string Dict(const std::string& descr, const std::string& order, const std::string& shape) {
  return "{'descr': '" + descr + "', 'fortran_order': " + order + ", 'shape': " + shape + ", }\n";
}

StoredTensor Parse(const std::string& head, uint64_t valueBytes) {
  return ParseNpy("a.npy", head, head.size() + valueBytes);
}

std::string Refusal(const std::string& head, uint64_t valueBytes = 1000) {
  try {
    (void)Parse(head, valueBytes);
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), ExitStatus::kInput);
    return fault.what();
  }
  return "taken";
}

TEST(ParseNpy, ReadsAHeadOfEachVersion) {
  for (const int version : {1, 2, 3}) {
    const std::string head = Head(Dict("<f4", "False", "(2, 3)"), version);
    const StoredTensor tensor = Parse(head, 24);
    EXPECT_EQ(tensor.type, ElementType::kFloat32);
    EXPECT_EQ(tensor.shape, (Shape{2, 3}));
    EXPECT_EQ(tensor.elements, 6U);
    EXPECT_EQ(tensor.offsetBytes, head.size());
    EXPECT_FALSE(tensor.isSwapped);
    EXPECT_FALSE(tensor.isColumnMajor);
  }
}

TEST(ParseNpy, KnowsTypesAndByteOrders) {
  const auto parsed = [](const std::string& descr) {
    return Parse(Head(Dict(descr, "False", "(1,)")), static_cast<uint64_t>(descr[2] - '0'));
  };
  EXPECT_EQ(parsed("<f2").type, ElementType::kFloat16);
  EXPECT_EQ(parsed("<f8").type, ElementType::kFloat64);
  EXPECT_EQ(parsed("|i1").type, ElementType::kInt8);
  EXPECT_EQ(parsed("|u1").type, ElementType::kUint8);
  EXPECT_EQ(parsed("<i8").type, ElementType::kInt64);
  EXPECT_EQ(parsed("=u2").type, ElementType::kUint16);
  EXPECT_EQ(parsed("|b1").type, ElementType::kBool);
  EXPECT_TRUE(parsed(">f4").isSwapped);
  EXPECT_FALSE(parsed("<f4").isSwapped);
  EXPECT_FALSE(parsed("=f4").isSwapped);
  EXPECT_FALSE(parsed(">i1").isSwapped);
}

TEST(ParseNpy, KnowsShapes) {
  const auto shape = [](const std::string& text, uint64_t bytes) {
    return *Parse(Head(Dict("|u1", "False", text)), bytes).shape;
  };
  EXPECT_EQ(shape("()", 1), Shape{});
  EXPECT_EQ(shape("(7,)", 7), Shape{7});
  EXPECT_EQ(shape("(3L, 4L)", 12), (Shape{3, 4}));
  EXPECT_EQ(shape("( 0 , 99999999999 )", 0), (Shape{0, 99999999999}));
  EXPECT_TRUE(Parse(Head(Dict("|u1", "True", "(3, 4)")), 12).isColumnMajor);
  EXPECT_FALSE(Parse(Head(Dict("|u1", "True", "(3,)")), 3).isColumnMajor);
}

TEST(ParseNpy, TakesKeysInAnyOrderAndEitherQuote) {
  const StoredTensor tensor =
      Parse(Head("{\"shape\":(2,),\"fortran_order\":False,\"descr\":\"<i2\"}"), 4);
  EXPECT_EQ(tensor.type, ElementType::kInt16);
}

TEST(ParseNpy, RefusesWhatIsNoArrayOfNumbers) {
  EXPECT_THAT(Refusal("PK\x05\x06"), HasSubstr("is no .npy file"));
  EXPECT_THAT(Refusal("\x93NUMPY"), HasSubstr("ends within its head"));
  EXPECT_THAT(Refusal(Head("{}", 4)), HasSubstr("has version 4; 1, 2 and 3 are read"));
  EXPECT_THAT(Refusal(Head(Dict("|O", "False", "(1,)"))), HasSubstr("holds Python objects"));
  EXPECT_THAT(Refusal(Head(Dict("<U5", "False", "(1,)"))), HasSubstr("of the type '<U5'"));
  EXPECT_THAT(Refusal(Head(Dict("<c8", "False", "(1,)"))), HasSubstr("of the type '<c8'"));
  EXPECT_THAT(Refusal(Head(Dict("", "False", "(1,)"))), HasSubstr("of the type ''"));
  EXPECT_THAT(Refusal(Head("{'descr': [('a', '<f4')], 'fortran_order': False, 'shape': (1,)}")),
              HasSubstr("records of several fields"));
}

TEST(ParseNpy, RefusesHeadsThatAreBroken) {
  EXPECT_THAT(Refusal(Head("")), HasSubstr("lacks '{' at its end"));
  EXPECT_THAT(Refusal(Head("{'descr': '<f4'}")),
              HasSubstr("without descr, fortran_order or shape"));
  EXPECT_THAT(Refusal(Head(Dict("<f4", "Maybe", "(1,)"))), HasSubstr("lacks True or False"));
  EXPECT_THAT(Refusal(Head(Dict("<f4", "False", "(-1,)"))), HasSubstr("lacks a dimension"));
  EXPECT_THAT(Refusal(Head(Dict("<f4", "False", "(99999999999999999999,)"))),
              HasSubstr("a dimension that fits 64 bits"));
  EXPECT_THAT(Refusal(Head(Dict("<f4", "False", "(1,)") + "x")), HasSubstr("lacks an end"));
  EXPECT_THAT(Refusal(Head("{'descr': '<f4")), HasSubstr("lacks the end of a text"));
  EXPECT_THAT(Refusal(Head("{'colour': 1}")), HasSubstr("unknown key 'colour'"));
  std::string many = "(";
  for (int i = 0; i < 65; ++i) many += "1,";
  EXPECT_THAT(Refusal(Head(Dict("<f4", "False", many + ")"))), HasSubstr("after 64 dimensions"));
}

TEST(ParseNpy, RefusesClaimsThatTheFileDoesNotBear) {
  EXPECT_THAT(Refusal(Head(Dict("<f4", "False", "(2, 3)")), 23),
              HasSubstr("should hold 2x3 of float32, and has 23 bytes of values"));
  EXPECT_THAT(Refusal(Head(Dict("<f8", "False", "(4294967296, 4294967296)"))),
              HasSubstr("should hold 4294967296x4294967296"));
  std::string huge = Head("", 2);
  huge.replace(8, 4, "\xFF\xFF\xFF\xFF");
  EXPECT_THAT(Refusal(huge), HasSubstr("claims a head of 4.0 GiB"));
  std::string cut = Head(Dict("<f4", "False", "(1,)"));
  cut.resize(30);
  EXPECT_THAT(Refusal(cut), HasSubstr("ends within its head"));
}

TEST(ParseNpy, ShowsNothingThatSteersATerminal) {
  EXPECT_THAT(Refusal(Head(Dict("\x1b[31m", "False", "(1,)"))), HasSubstr("'\\x1B[31m'"));
}

TEST(OpenNpy, ReadsAFile) {
  const support::TempDir folder;
  const std::string path = folder.Path() / "a.npy";
  support::WriteFile(path, Head(Dict("<f4", "False", "(1, 2)")) + support::Bytes<float>({1, 2}));
  EXPECT_EQ(OpenNpy(path).elements, 2U);
  EXPECT_THROW((void)OpenNpy(folder.Path()), Fault);
  EXPECT_THROW((void)OpenNpy(folder.Path() / "b.npy"), Fault);
}

TEST(ParseNpy, RefusesWhatStandsBehindTheValues) {
  EXPECT_EQ(Refusal(Head(Dict("<f4", "False", "(2, 3)")), 25),
            "the array 'a.npy' holds 2x3 of float32, and 1 byte more behind them, which nothing "
            "explains; save one array a file");
  EXPECT_THAT(Refusal(Head(Dict("<f4", "False", "(0, 3)")), 4), HasSubstr("and 4 bytes more"));
}

TEST(ParseNpy, RefusesKeysThatAreGivenTwice) {
  for (const char* key : {"'descr': '<f4'", "'fortran_order': False", "'shape': (2,)"}) {
    const std::string name = std::string(key).substr(1, std::string(key).find(':') - 2);
    EXPECT_EQ(Refusal(Head("{'descr': '<f8', 'fortran_order': True, 'shape': (1,), " +
                           std::string(key) + ", }"),
                      8),
              "the array 'a.npy' has a head that gives " + name + " twice");
  }
}

TEST(ParseNpy, SaysWhatToDoWithAnArchive) {
  EXPECT_EQ(Refusal("PK\x03\x04 and so on"),
            "the array 'a.npy' is an archive of arrays under the name of one; name it .npz");
}

}  // namespace
}  // namespace vorn::kit
