#include "kit/prepare/wav.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/common/fault.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr uint32_t kUnknown = 0xFFFFFFFF;

std::string Little(uint64_t value, int bytes) {
  std::string text;
  for (int i = 0; i < bytes; ++i) text += static_cast<char>(value >> (8 * i) & 255U);
  return text;
}

// A chunk as it stands in a file.
std::string Chunk(const std::string& id, const std::string& bytes) {
  return id + Little(bytes.size(), 4) + bytes + (bytes.size() % 2 != 0 ? std::string(1, '\0') : "");
}

std::string Format(uint64_t kind, uint64_t channels, uint64_t bits, uint64_t rate = 16000) {
  return Little(kind, 2) + Little(channels, 2) + Little(rate, 4) +
         Little(rate * channels * bits / 8, 4) + Little(channels * bits / 8, 2) + Little(bits, 2);
}

// The kind is the begin of a GUID there.
std::string Extensible(uint64_t kind, uint64_t channels, uint64_t bits) {
  return Format(0xFFFE, channels, bits) + Little(22, 2) + Little(bits, 2) + Little(3, 4) +
         Little(kind, 2) + support::Unhex("000000001000800000aa00389b71");
}

std::string Riff(const std::string& chunks) {
  return "RIFF" + Little(chunks.size() + 4, 4) + "WAVE" + chunks;
}

class Wav : public testing::Test {
 protected:
  SignalSource Open(const std::string& bytes) const {
    const std::string path = folder_.Path() / "s.wav";
    support::WriteFile(path, bytes);
    return OpenWav(path);
  }

  std::vector<float> Read(const std::string& bytes,
                          const std::string& recipe = R"({"window": 1, "hop": 1})") const {
    return ReadSignal(Open(bytes), ParseSignalRecipe(ParseJson(recipe)), 1 << 20).samples;
  }

  std::string Refusal(const std::string& bytes) const {
    try {
      (void)Open(bytes);
    } catch (const Fault& fault) {
      EXPECT_EQ(fault.Status(), ExitStatus::kInput);
      EXPECT_THAT(fault.what(), HasSubstr("the sound '"));
      return fault.what();
    }
    return "taken";
  }

  std::string Folder() const { return folder_.Path(); }

 private:
  support::TempDir folder_;
};

std::string Plain(const std::string& format, const std::string& data) {
  return Riff(Chunk("fmt ", format) + Chunk("data", data));
}

TEST_F(Wav, HasPcmAndFloats) {
  EXPECT_THAT(Read(Plain(Format(1, 1, 8), support::Unhex("0080ff"))),
              ElementsAre(-1, 0, 127.0F / 128));
  EXPECT_THAT(Read(Plain(Format(1, 1, 16), support::Unhex("00800040"))), ElementsAre(-1, 0.5));
  EXPECT_THAT(Read(Plain(Format(1, 1, 24), support::Unhex("000080000040"))), ElementsAre(-1, 0.5));
  EXPECT_THAT(Read(Plain(Format(1, 1, 32), support::Unhex("0000008000000040"))),
              ElementsAre(-1, 0.5));
  EXPECT_THAT(Read(Plain(Format(3, 1, 32), support::Bytes<float>({1.5, -2}))),
              ElementsAre(1.5, -2));
  EXPECT_THAT(Read(Plain(Format(3, 1, 64), support::Bytes<double>({1.5, -2}))),
              ElementsAre(1.5, -2));
}

TEST_F(Wav, TellsChannelsAndRate) {
  const SignalSource source = Open(Plain(Format(1, 2, 16, 44100), std::string(12, 'x')));
  EXPECT_EQ(source.channels, 2U);
  EXPECT_EQ(source.rate, 44100U);
  EXPECT_EQ(source.samples, 3U);
}

TEST_F(Wav, HasTheExtensibleKind) {
  EXPECT_THAT(Read(Plain(Extensible(1, 1, 24), support::Unhex("000040"))), ElementsAre(0.5));
  EXPECT_THAT(Read(Plain(Extensible(3, 2, 32), support::Bytes<float>({1, 2})),
                   R"({"window": 1, "hop": 1, "channel": 1})"),
              ElementsAre(2));
  std::string other = Extensible(1, 1, 16);
  other.back() = 'x';
  EXPECT_THAT(Refusal(Plain(other, "")), HasSubstr("an extensible kind that is not known"));
  EXPECT_THAT(Refusal(Plain(Extensible(1, 1, 16).substr(0, 30), "")), HasSubstr("extensible kind"));
}

TEST_F(Wav, MayHaveOtherChunksAndOddOnes) {
  const std::string data = Chunk("data", support::Unhex("0040"));
  EXPECT_THAT(Read(Riff(Chunk("LIST", "odd") + Chunk("fmt ", Format(1, 1, 16)) +
                        Chunk("fact", "12345") + data + Chunk("id3 ", "behind"))),
              ElementsAre(0.5));
}

TEST_F(Wav, MayComeOutOfAPipe) {
  const std::string format = Chunk("fmt ", Format(1, 1, 16));
  const std::string samples = support::Unhex("00400040");
  for (const uint32_t whole : {0U, kUnknown}) {
    for (const uint32_t data : {0U, kUnknown}) {
      EXPECT_THAT(
          Read("RIFF" + Little(whole, 4) + "WAVE" + format + "data" + Little(data, 4) + samples),
          ElementsAre(0.5, 0.5));
    }
  }
  // Without any samples, and not from a pipe.
  EXPECT_THAT(Read(Riff(format + Chunk("data", "")) + "behind"), ElementsAre());
}

TEST_F(Wav, MayBeLarge) {
  const std::string format = Chunk("fmt ", Format(1, 1, 16));
  const std::string samples = support::Unhex("0040");
  const std::string sizes =
      Chunk("ds64", Little(90, 8) + Little(2, 8) + Little(1, 8) + Little(0, 4));
  for (const char* begin : {"RF64", "BW64"}) {
    const std::string head = begin + Little(kUnknown, 4) + "WAVE";
    EXPECT_THAT(Read(head + sizes + format + "data" + Little(kUnknown, 4) + samples + "behind"),
                ElementsAre(0.5));
    EXPECT_THAT(Read(head + format + "data" + Little(kUnknown, 4) + samples), ElementsAre(0.5));
  }
  const std::string huge =
      Chunk("ds64", Little(90, 8) + Little(UINT64_MAX - 1, 8) + Little(1, 8) + Little(0, 4));
  EXPECT_THAT(Refusal("RF64" + Little(kUnknown, 4) + "WAVE" + huge + format + "data" +
                      Little(kUnknown, 4) + samples),
              HasSubstr("was cut off: it tells of 16.0 EiB of samples"));
  EXPECT_THAT(Refusal("RF64" + Little(kUnknown, 4) + "WAVE" + Chunk("ds64", std::string(15, '\0')) +
                      format + "data" + Little(kUnknown, 4) + samples),
              HasSubstr("has a chunk 'ds64' of 15 bytes, and it takes 16 at least"));
}

TEST_F(Wav, RefusesWhatIsNone) {
  EXPECT_THAT(Refusal(""), HasSubstr("is no WAV: it ends within its head"));
  EXPECT_THAT(Refusal("RIFF....AVI and so on"), HasSubstr("is no WAV: it does not begin with"));
  EXPECT_THAT(Refusal("RIFX....WAVE"), HasSubstr("other order (RIFX)"));
  EXPECT_THROW((void)OpenWav(Folder()), Fault);
  EXPECT_TRUE(IsWav(Riff("")));
  EXPECT_FALSE(IsWav("RIFF"));
  EXPECT_FALSE(IsWav("OggS........"));
}

TEST_F(Wav, RefusesKindsThatAreNotRead) {
  EXPECT_THAT(Refusal(Plain(Format(7, 1, 8), "x")), HasSubstr("has samples of kind 7 with 8 bits"));
  EXPECT_THAT(Refusal(Plain(Format(1, 1, 12), "x")), HasSubstr("kind 1 with 12 bits"));
  EXPECT_THAT(Refusal(Plain(Format(3, 1, 16), "x")), HasSubstr("kind 3 with 16 bits"));
  EXPECT_THAT(Refusal(Plain(Format(1, 0, 16), "")), HasSubstr("contradicts itself: 0 channels"));
  EXPECT_THAT(Refusal(Plain(Format(1, 1, 16, 0), "")), HasSubstr("0 a second"));
  std::string other = Format(1, 1, 16);
  other[12] = 3;
  EXPECT_THAT(Refusal(Plain(other, "")), HasSubstr("3 bytes together"));
}

TEST_F(Wav, RefusesWhatWasCutOff) {
  const std::string whole =
      Riff(Chunk("LIST", "four") + Chunk("fmt ", Format(1, 2, 16)) + Chunk("data", "12345678"));
  EXPECT_EQ(Open(whole).samples, 2U);
  for (size_t bytes = 0; bytes < whole.size(); ++bytes) {
    EXPECT_NE(Refusal(whole.substr(0, bytes)), "taken") << bytes;
  }
  EXPECT_THAT(Refusal(whole.substr(0, whole.size() - 1)),
              HasSubstr("was cut off: it tells of 8 bytes of samples, and 7 bytes follow"));
  EXPECT_THAT(Refusal(Plain(Format(1, 2, 16), "123456")),
              HasSubstr("ends within a sample: 6 bytes of samples are no multiple of 4"));
}

TEST_F(Wav, RefusesChunksThatDoNotFit) {
  const std::string format = Chunk("fmt ", Format(1, 1, 16));
  EXPECT_THAT(Refusal(Riff(Chunk("data", "12") + format)), HasSubstr("before it tells what they"));
  EXPECT_THAT(Refusal(Riff(format + format)), HasSubstr("tells twice"));
  EXPECT_THAT(Refusal(Riff(Chunk("fmt ", "short"))), HasSubstr("takes 16 at least"));
  EXPECT_THAT(Refusal(Riff("LIST" + Little(kUnknown, 4) + "x")),
              HasSubstr("its chunk 'LIST' has 4.0 GiB, and 1 byte"));
  EXPECT_THAT(Refusal(Riff(format)), HasSubstr("it ends before its samples"));
  EXPECT_THAT(Refusal(Riff("")), HasSubstr("it ends before its format"));
  std::string many;
  for (int i = 0; i < 5000; ++i) many += Chunk("junk", "");
  EXPECT_THAT(Refusal(Riff(many)), HasSubstr("more than 4096 chunks"));
}

}  // namespace
}  // namespace vorn::kit
