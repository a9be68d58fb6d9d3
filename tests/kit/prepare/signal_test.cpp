#include "kit/prepare/signal.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <numeric>

#include "kit/common/fault.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr uint64_t kMost = 1 << 20;

SignalRecipe Recipe(const std::string& text) { return ParseSignalRecipe(ParseJson(text)); }

Array ArrayOf(ElementType type, Shape shape, const std::string& bytes) {
  Array array;
  array.type = type;
  array.shape = std::move(shape);
  array.bytes.resize(bytes.size());
  if (!bytes.empty()) std::memcpy(array.bytes.data(), bytes.data(), bytes.size());
  return array;
}

Signal Counting(size_t samples) {
  Signal signal;
  signal.samples.resize(samples);
  std::iota(signal.samples.begin(), signal.samples.end(), 1.0F);
  return signal;
}

template <typename Call>
std::string Refusal(Call call, ExitStatus status = ExitStatus::kInput) {
  try {
    call();
  } catch (const Fault& fault) {
    EXPECT_EQ(fault.Status(), status);
    return fault.what();
  } catch (const JsonError& error) {
    return std::string("json: ") + error.what();
  }
  return "taken";
}

std::string RefusedRecipe(const std::string& text) {
  return Refusal([&] { (void)Recipe(text); });
}

// ---- Frames -------------------------------------------------------------------------------------

// A frame is appended for every begin that has enough samples behind it, or any new ones.
std::vector<float> SlowFrames(const std::vector<float>& samples, uint64_t window, uint64_t hop,
                              bool isFilledUp) {
  std::vector<float> frames;
  uint64_t seen = 0;
  for (uint64_t begin = 0; begin < samples.size(); begin += hop) {
    const bool isWhole = begin + window <= samples.size();
    if (!isWhole && (!isFilledUp || seen >= samples.size())) continue;
    for (uint64_t i = begin; i < begin + window; ++i) {
      frames.push_back(i < samples.size() ? samples[i] : 0);
    }
    seen = begin + window;
  }
  return frames;
}

TEST(CutIntoFrames, TakesTheSamplesThatASlowLoopTakes) {
  for (uint64_t samples = 1; samples < 14; ++samples) {
    for (uint64_t window = 1; window < 7; ++window) {
      for (uint64_t hop = 1; hop < 9; ++hop) {
        for (const bool isFilledUp : {false, true}) {
          SignalRecipe recipe;
          recipe.window = window;
          recipe.hop = hop;
          recipe.isFilledUp = isFilledUp;
          SCOPED_TRACE(std::to_string(samples) + " " + std::to_string(window) + " " +
                       std::to_string(hop) + (isFilledUp ? " zeros" : ""));
          const Signal signal = Counting(samples);
          const std::vector<float> wanted = SlowFrames(signal.samples, window, hop, isFilledUp);
          if (wanted.empty()) {
            EXPECT_THROW((void)CutIntoFrames(signal, recipe, "s", kMost), Fault);
            continue;
          }
          const Frames frames = CutIntoFrames(signal, recipe, "s", kMost);
          EXPECT_EQ(frames.values, wanted);
          EXPECT_EQ(frames.count * window, wanted.size());
          const auto zeros = std::count(wanted.begin(), wanted.end(), 0.0F);
          EXPECT_EQ(frames.filledUp, static_cast<uint64_t>(zeros));
          const auto last = static_cast<uint64_t>(*std::max_element(wanted.begin(), wanted.end()));
          EXPECT_EQ(frames.leftOut, samples - last);
        }
      }
    }
  }
}

TEST(CutIntoFrames, TakesTheFirstFramesOnly) {
  const Frames frames =
      CutIntoFrames(Counting(100), Recipe(R"({"window": 2, "hop": 3, "most": 2})"), "s", kMost);
  EXPECT_THAT(frames.values, ElementsAre(1, 2, 4, 5));
  EXPECT_EQ(frames.leftOut, 95U);
}

TEST(CutIntoFrames, SaysWhatIsTooShortOrTooMuch) {
  EXPECT_EQ(Refusal([] {
              (void)CutIntoFrames(Counting(3), Recipe(R"({"window": 4, "hop": 1})"), "the x",
                                  kMost);
            }),
            "the x has 3 samples, and a frame takes 4; \"pad\": \"zeros\" fills it up");
  EXPECT_EQ(Refusal([] {
              (void)CutIntoFrames(Counting(0), Recipe(R"({"window": 4, "hop": 1, "pad": "zeros"})"),
                                  "the x", kMost);
            }),
            "the x has 0 samples, and a frame takes 4");
  EXPECT_THAT(Refusal(
                  [] {
                    (void)CutIntoFrames(Counting(100), Recipe(R"({"window": 50, "hop": 1})"),
                                        "the x", 10000);
                  },
                  ExitStatus::kLimit),
              HasSubstr("the x makes 51 frames of 50 samples, more than the 9.8 KiB"));
  EXPECT_THAT(Refusal(
                  [] {
                    (void)CutIntoFrames(
                        Counting(1),
                        Recipe(R"({"window": 1099511627776, "hop": 1, "pad": "zeros"})"), "the x",
                        kMost);
                  },
                  ExitStatus::kLimit),
              HasSubstr("makes 1 frame of 1099511627776 samples"));
}

// ---- Sequences ----------------------------------------------------------------------------------

TEST(SplitIntoSequences, FillsAllButTheLast) {
  EXPECT_THAT(SplitIntoSequences(10, 4), ElementsAre(4, 4, 2));
  EXPECT_THAT(SplitIntoSequences(8, 4), ElementsAre(4, 4));
  EXPECT_THAT(SplitIntoSequences(3, 4), ElementsAre(3));
  EXPECT_THAT(SplitIntoSequences(0, 4), ElementsAre());
}

TEST(ContinuationFlags, BeginEachSequenceWithZero) {
  EXPECT_THAT(ContinuationFlags(std::vector<uint64_t>{4}), ElementsAre(0, 1, 1, 1));
  EXPECT_THAT(ContinuationFlags(std::vector<uint64_t>{2, 1, 0, 3}), ElementsAre(0, 1, 0, 0, 1, 1));
  EXPECT_THAT(ContinuationFlags({}), ElementsAre());
}

// ---- Samples of files ---------------------------------------------------------------------------

class RawSignals : public testing::Test {
 protected:
  SignalSource Open(const std::string& bytes, const std::string& format) const {
    const std::string path = folder_.Path() / "s.raw";
    support::WriteFile(path, bytes);
    return OpenRawSignal(path, ParseJson(format));
  }

  std::vector<float> Read(const std::string& bytes, const std::string& format,
                          const std::string& more = "") const {
    return ReadSignal(Open(bytes, format), Recipe(R"({"window": 1, "hop": 1)" + more + "}"), kMost)
        .samples;
  }

 private:
  support::TempDir folder_;
};

TEST_F(RawSignals, HaveSamplesOfEveryType) {
  EXPECT_THAT(Read(support::Unhex("0080ff"), R"({"type": "uint8"})"),
              ElementsAre(-1, 0, 127.0F / 128));
  EXPECT_THAT(Read(support::Unhex("807fff"), R"({"type": "int8"})"),
              ElementsAre(-1, 127.0F / 128, -1.0F / 128));
  EXPECT_THAT(Read(support::Unhex("0080ff7f0100"), R"({"type": "int16"})"),
              ElementsAre(-1, 32767.0F / 32768, 1.0F / 32768));
  EXPECT_THAT(Read(support::Unhex("000080ffff7fffffff"), R"({"type": "int24"})"),
              ElementsAre(-1, 8388607.0F / 8388608, -1.0F / 8388608));
  EXPECT_THAT(Read(support::Unhex("0000008000000040"), R"({"type": "int32"})"),
              ElementsAre(-1, 0.5));
  EXPECT_THAT(Read(support::Bytes<float>({1.5, -2}), R"({"type": "float32"})"),
              ElementsAre(1.5, -2));
  EXPECT_THAT(Read(support::Bytes<double>({1.5, 1e300}), R"({"type": "float64"})"),
              ElementsAre(1.5, std::numeric_limits<float>::infinity()));
}

TEST_F(RawSignals, HaveSamplesInTheOtherByteOrder) {
  EXPECT_THAT(Read(support::Unhex("80007fff0001"), R"({"type": "int16", "order": "big"})"),
              ElementsAre(-1, 32767.0F / 32768, 1.0F / 32768));
  EXPECT_THAT(Read(support::Unhex("800000400000"), R"({"type": "int24", "order": "big"})"),
              ElementsAre(-1, 0.5));
  EXPECT_THAT(Read(support::Unhex("3fc00000"), R"({"type": "float32", "order": "big"})"),
              ElementsAre(1.5));
}

TEST_F(RawSignals, KeepWholeNumbersWhereAsked) {
  EXPECT_THAT(Read(support::Unhex("0080ff"), R"({"type": "uint8"})", R"(, "scale": false)"),
              ElementsAre(0, 128, 255));
  EXPECT_THAT(Read(support::Unhex("0080"), R"({"type": "int16"})", R"(, "scale": false)"),
              ElementsAre(-32768));
}

TEST_F(RawSignals, GiveOneChannelOrTheirMean) {
  const std::string bytes = support::Bytes<float>({1, 10, 2, 20, 3, 30});
  const std::string format = R"({"type": "float32", "channels": 2})";
  EXPECT_THAT(Read(bytes, format, R"(, "channel": 0)"), ElementsAre(1, 2, 3));
  EXPECT_THAT(Read(bytes, format, R"(, "channel": 1)"), ElementsAre(10, 20, 30));
  EXPECT_THAT(Read(bytes, format, R"(, "channel": "mean")"), ElementsAre(5.5, 11, 16.5));
  EXPECT_THAT(Refusal([&] { (void)Read(bytes, format); }),
              HasSubstr("s.raw' has 2 channels; say which is meant (\"channel\": 0), or \"mean\""));
  EXPECT_THAT(Refusal([&] { (void)Read(bytes, format, R"(, "channel": 2)"); }),
              HasSubstr("has 2 channels, and none with the number 2; the first one is 0"));
}

TEST_F(RawSignals, HaveTheRateThatIsAskedFor) {
  const std::string format = R"({"type": "int8", "rate": 44100})";
  EXPECT_THAT(Read("\x40", format, R"(, "rate": 44100)"), ElementsAre(0.5));
  EXPECT_THAT(Read("\x40", R"({"type": "int8"})", R"(, "rate": 44100)"), ElementsAre(0.5));
  EXPECT_THAT(Refusal([&] { (void)Read("\x40", format, R"(, "rate": 16000)"); }),
              HasSubstr("has 44100 samples a second, and 16000 are asked for; resample it"));
}

TEST_F(RawSignals, AreReadAsFarAsTheFramesGo) {
  const SignalSource source = Open(std::string(1000, '\x40'), R"({"type": "int8"})");
  const SignalRecipe recipe = Recipe(R"({"window": 10, "hop": 5, "most": 3})");
  const Signal signal = ReadSignal(source, recipe, 100);
  EXPECT_EQ(signal.samples.size(), 20U);
  EXPECT_EQ(signal.unread, 980U);
  EXPECT_EQ(CutIntoFrames(signal, recipe, "s", kMost).leftOut, 980U);
  EXPECT_THAT(Refusal([&] { (void)ReadSignal(source, recipe, 79); }, ExitStatus::kLimit),
              HasSubstr("has 20 samples, more than the 79 bytes of floats that are read at once"));
}

// More than is read at a time.
TEST_F(RawSignals, AreReadInPieces) {
  constexpr size_t kSamples = (3 << 20) / 6 + 1;
  std::vector<uint8_t> bytes(kSamples * 6);
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i * i >> 8 ^ i);
  const std::vector<float> samples =
      ReadSignal(Open(support::Bytes(bytes), R"({"type": "int24", "channels": 2})"),
                 Recipe(R"({"window": 1, "hop": 1, "channel": 1, "scale": false})"), 1 << 24)
          .samples;
  ASSERT_EQ(samples.size(), kSamples);
  for (size_t i = 0; i < kSamples; ++i) {
    const size_t at = i * 6 + 3;
    int value = bytes[at] + 256 * bytes[at + 1] + 65536 * bytes[at + 2];
    if (value >= 8388608) value -= 16777216;
    ASSERT_EQ(samples[i], static_cast<float>(value)) << i;
  }
}

TEST_F(RawSignals, RefuseWhatIsNotWhole) {
  EXPECT_THAT(Refusal([&] { (void)Open("12345", R"({"type": "int16", "channels": 2})"); }),
              HasSubstr("s.raw' has 5 bytes, no whole number of samples of 4 bytes (2 channels of "
                        "int16)"));
}

TEST_F(RawSignals, RefuseFormatsThatAreNotMeant) {
  const auto refused = [&](const std::string& format) {
    return Refusal([&] { (void)Open("", format); });
  };
  EXPECT_THAT(refused(R"({"type": "int61"})"),
              HasSubstr("no type of samples 'int61'; did you mean 'int16'?; there are uint8, "));
  EXPECT_THAT(refused("{}"), HasSubstr("type"));
  EXPECT_THAT(refused(R"({"type": "int16", "order": "middle"})"),
              HasSubstr("order is \"middle\", and can be \"little\" or \"big\""));
  EXPECT_THAT(refused(R"({"type": "int16", "channels": 0})"), HasSubstr("1 at least"));
  EXPECT_THAT(refused(R"({"type": "int16", "channels": 70000})"), HasSubstr("65535"));
  EXPECT_THAT(refused(R"({"type": "int16", "rat": 1})"), HasSubstr("did you mean 'rate'?"));
}

// ---- Arrays -------------------------------------------------------------------------------------

TEST(SignalOf, TakesOneDimension) {
  const Array array = ArrayOf(ElementType::kInt16, {2}, support::Bytes<int16_t>({-32768, 16384}));
  EXPECT_THAT(SignalOf(array, Recipe(R"({"window": 1, "hop": 1})"), "x", kMost).samples,
              ElementsAre(-1, 0.5));
}

TEST(SignalOf, TakesChannelsWhereTheyAreSaidToBe) {
  const Array array =
      ArrayOf(ElementType::kFloat32, {2, 3}, support::Bytes<float>({1, 2, 3, 10, 20, 30}));
  const auto samples = [&](const std::string& more) {
    return SignalOf(array, Recipe(R"({"window": 1, "hop": 1)" + more + "}"), "the x", kMost)
        .samples;
  };
  EXPECT_THAT(samples(R"(, "channels": "first", "channel": 1)"), ElementsAre(10, 20, 30));
  EXPECT_THAT(samples(R"(, "channels": "first", "channel": "mean")"), ElementsAre(5.5, 11, 16.5));
  EXPECT_THAT(samples(R"(, "channels": "last", "channel": 2)"), ElementsAre(3, 30));
  EXPECT_THAT(Refusal([&] { (void)samples(R"(, "channel": 0)"); }),
              HasSubstr("the x is 2x3; say which of the two counts channels"));
}

TEST(SignalOf, RefusesWhatIsNoSignal) {
  const SignalRecipe recipe = Recipe(R"({"window": 1, "hop": 1})");
  EXPECT_THAT(Refusal([&] {
                (void)SignalOf(ArrayOf(ElementType::kUint8, {1, 1, 1}, "x"), recipe, "x", kMost);
              }),
              HasSubstr("x is 1x1x1, and a signal has one dimension, or two with channels"));
  EXPECT_THAT(
      Refusal([&] { (void)SignalOf(ArrayOf(ElementType::kBool, {1}, "x"), recipe, "x", kMost); }),
      HasSubstr("has elements of bool, which no signal has"));
}

TEST(SignalOf, TakesAnArrayWithoutChannelsAsEmpty) {
  const SignalRecipe recipe =
      Recipe(R"({"window": 1, "hop": 1, "channels": "first", "channel": "mean"})");
  EXPECT_TRUE(
      SignalOf(ArrayOf(ElementType::kUint8, {0, 9}, ""), recipe, "x", kMost).samples.empty());
}

// ---- What is asked for --------------------------------------------------------------------------

TEST(ParseSignalRecipe, TakesAllOfIt) {
  const SignalRecipe recipe = Recipe(
      R"({"window": 400, "hop": 160, "pad": "zeros", "channel": "mean", "channels": "last",
          "scale": false, "rate": 16000, "most": 9})");
  EXPECT_EQ(recipe.window, 400U);
  EXPECT_EQ(recipe.hop, 160U);
  EXPECT_TRUE(recipe.isFilledUp);
  EXPECT_EQ(recipe.channel, SignalRecipe::Channel::kMean);
  EXPECT_EQ(recipe.channelAxis, SignalRecipe::Axis::kLast);
  EXPECT_FALSE(recipe.isScaled);
  EXPECT_EQ(recipe.rate, 16000U);
  EXPECT_EQ(recipe.mostFrames, 9U);
}

TEST(ParseSignalRecipe, RefusesWhatIsNotMeant) {
  EXPECT_THAT(RefusedRecipe("{}"), HasSubstr("window"));
  EXPECT_THAT(RefusedRecipe(R"({"window": 0, "hop": 1})"),
              HasSubstr("window is 0, and has to be 1 at least"));
  EXPECT_THAT(RefusedRecipe(R"({"window": 1, "hop": 0})"), HasSubstr("hop is 0"));
  EXPECT_THAT(RefusedRecipe(R"({"window": 18446744073709551615, "hop": 1})"),
              HasSubstr("2^40 at most"));
  EXPECT_THAT(RefusedRecipe(R"({"window": -1, "hop": 1})"), HasSubstr("-1"));
  EXPECT_THAT(RefusedRecipe(R"({"window": 1, "hop": 1, "pad": "edge"})"),
              HasSubstr("pad is \"edge\", and can be \"none\" or \"zeros\""));
  EXPECT_THAT(RefusedRecipe(R"({"window": 1, "hop": 1, "channel": "left"})"),
              HasSubstr("channel is \"left\", and can be a number or \"mean\""));
  EXPECT_THAT(RefusedRecipe(R"({"window": 1, "hop": 1, "most": 0})"), HasSubstr("most is 0"));
  EXPECT_THAT(RefusedRecipe(R"({"window": 1, "hops": 1})"),
              HasSubstr("a signal has no key 'hops'; did you mean 'hop'?"));
}

}  // namespace
}  // namespace vorn::kit
