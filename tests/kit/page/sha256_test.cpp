#include "kit/page/sha256.h"

#include <gtest/gtest.h>

#include "support/command.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

std::string Digits(std::string_view bytes) {
  const auto hash = Sha256(bytes);
  return support::Hex({reinterpret_cast<const char*>(hash.data()), hash.size()});
}

// FIPS 180-4's own examples.
TEST(Sha256, IsThatOfTheStandardsExamples) {
  EXPECT_EQ(Digits("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  EXPECT_EQ(Digits(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
  EXPECT_EQ(Digits("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
            "248d6a61d20638b8e5c026930c3e6039a33ce45964ff2167f6ecedd419db06c1");
}

TEST(Sha256, IsThatOfSha256sumAtEveryLengthAroundABlock) {
  const support::TempDir folder;
  for (size_t length = 54; length < 132; ++length) {
    const std::string bytes = support::CountingBytes(length);
    support::WriteFile(folder.Path() / std::to_string(length), bytes);
  }
  for (size_t length = 54; length < 132; ++length) {
    support::Command command;
    command.program = "/usr/bin/sha256sum";
    command.arguments = {std::to_string(length)};
    command.directory = folder.Path();
    const support::Outcome outcome = RunCommand(command);
    ASSERT_EQ(outcome.status, 0) << outcome.Describe();
    EXPECT_EQ(Digits(support::CountingBytes(length)), outcome.out.substr(0, 64)) << length;
  }
}

// RFC 4648, section 10.
TEST(Base64, IsThatOfTheStandardsExamples) {
  EXPECT_EQ(Base64(""), "");
  EXPECT_EQ(Base64("f"), "Zg==");
  EXPECT_EQ(Base64("fo"), "Zm8=");
  EXPECT_EQ(Base64("foo"), "Zm9v");
  EXPECT_EQ(Base64("foob"), "Zm9vYg==");
  EXPECT_EQ(Base64("\xff\xfe\xfd"), "//79");
}

TEST(PolicyHash, IsTheHashOfAnEmptyScript) {
  EXPECT_EQ(PolicyHash(""), "sha256-47DEQpj8HBSa+/TImW+5JCeuQeRkm5NMpJWZG3hSuFU=");
}

}  // namespace
}  // namespace vorn::kit
