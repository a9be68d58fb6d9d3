#include "kit/picture/decode_worker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <memory>

#include "kit/common/fault.h"

namespace vorn::kit {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

constexpr uint64_t kMemory = 256 << 20;

// Does what the path asks for; else gives a picture whose pixels are the letters of the path.
DecodedPicture StandIn(const std::string& path, const DecodeLimits& limits) {
  if (path == "crash") raise(SIGSEGV);
  if (path == "abort") std::abort();
  if (path == "killed") raise(SIGKILL);
  if (path == "exit") _exit(3);
  if (path == "hang") {
    while (true) pause();
  }
  if (path == "eat") {
    std::vector<std::unique_ptr<std::vector<char>>> eaten;
    while (true) eaten.push_back(std::make_unique<std::vector<char>>(16 << 20, 'x'));
  }
  if (path == "refused") throw Fault(ExitStatus::kInput, "the picture 'refused' is refused");
  if (path == "strange") throw std::runtime_error("something strange");
  DecodedPicture decoded;
  decoded.format = "stand-in";
  decoded.decoder = "stand-in 1";
  decoded.orientation = 6;
  decoded.remarks = {"one", "two"};
  if (path == "huge") {  // more than is allowed, as a child that is under control would send
    decoded.picture =
        MakePicture(static_cast<uint32_t>(limits.mostPixels) + 1, 1, 1, PixelType::kUint8);
  } else if (path == "large") {
    decoded.picture = MakePicture(1000, 777, 3, PixelType::kUint8);
    for (size_t i = 0; i < decoded.picture.pixels.size(); ++i) {
      decoded.picture.pixels[i] = std::byte(i * i >> 7);
    }
  } else {
    decoded.picture = MakePicture(static_cast<uint32_t>(path.size()), 1, 1, PixelType::kUint8);
    for (size_t i = 0; i < path.size(); ++i) decoded.picture.pixels[i] = std::byte(path[i]);
  }
  return decoded;
}

WorkerLimits TightLimits() {
  WorkerLimits limits;
  limits.memoryBytes = kMemory;
  limits.decode.mostPixels = 1 << 20;
  return limits;
}

// What the future says: "" for a picture whose pixels are those of the path.
std::string AnswerOf(std::future<DecodedPicture> future, const std::string& path) {
  try {
    const DecodedPicture decoded = future.get();
    EXPECT_EQ(decoded.picture.pixels, StandIn(path, {}).picture.pixels) << path;
    return "";
  } catch (const Fault& fault) {
    return std::to_string(static_cast<int>(fault.Status())) + " " + fault.what();
  }
}

std::string AnswerOf(PictureWorkers& workers, const std::string& path) {
  return AnswerOf(workers.Decode(path), path);
}

TEST(PictureWorkers, GiveWhatTheDecoderGives) {
  PictureWorkers workers(1, TightLimits(), StandIn);
  const DecodedPicture decoded = workers.Decode("large").get();
  const DecodedPicture wanted = StandIn("large", {});
  EXPECT_EQ(decoded.picture.width, 1000U);
  EXPECT_EQ(decoded.picture.height, 777U);
  EXPECT_EQ(decoded.picture.channels, 3U);
  EXPECT_EQ(decoded.picture.pixels, wanted.picture.pixels);
  EXPECT_EQ(decoded.format, "stand-in");
  EXPECT_EQ(decoded.decoder, "stand-in 1");
  EXPECT_EQ(decoded.orientation, 6);
  EXPECT_THAT(decoded.remarks, ElementsAre("one", "two"));
}

TEST(PictureWorkers, PassOnWhatTheDecoderRefuses) {
  PictureWorkers workers(1, TightLimits(), StandIn);
  EXPECT_EQ(AnswerOf(workers, "refused"), "3 the picture 'refused' is refused");
  EXPECT_EQ(AnswerOf(workers, "strange"),
            "1 the picture 'strange' cannot be decoded: something strange");
  EXPECT_EQ(AnswerOf(workers, "fine"), "");
}

TEST(PictureWorkers, OutliveADecoderThatCrashes) {
  PictureWorkers workers(1, TightLimits(), StandIn);
  for (int round = 0; round < 3; ++round) {
    EXPECT_EQ(AnswerOf(workers, "crash"),
              "3 the picture 'crash' makes the decoder crash (signal 11)");
    EXPECT_EQ(AnswerOf(workers, "fine"), "");
    EXPECT_EQ(AnswerOf(workers, "abort"),
              "3 the picture 'abort' makes the decoder crash (signal 6)");
    EXPECT_EQ(AnswerOf(workers, "exit"),
              "3 the picture 'exit' makes the decoder end with status 3");
    EXPECT_THAT(AnswerOf(workers, "killed"),
                StartsWith("7 the picture 'killed' was being decoded "));
    EXPECT_EQ(AnswerOf(workers, "fine"), "");
  }
}

TEST(PictureWorkers, EndADecoderThatHangs) {
  WorkerLimits limits = TightLimits();
  limits.time = std::chrono::milliseconds(3000);
  PictureWorkers workers(1, limits, StandIn);
  EXPECT_EQ(AnswerOf(workers, "hang"),
            "7 the picture 'hang' takes longer than the limit of 3000 ms");
  EXPECT_EQ(AnswerOf(workers, "fine"), "");
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // they need all addresses
TEST(PictureWorkers, EndADecoderThatEatsMemory) {
  PictureWorkers workers(1, TightLimits(), StandIn);
  EXPECT_EQ(AnswerOf(workers, "eat"),
            "7 the picture 'eat' needs more memory than the limit of 256.0 MiB");
  EXPECT_EQ(AnswerOf(workers, "fine"), "");
}
#endif

TEST(PictureWorkers, BelieveNoPictureBeyondTheLimits) {
  PictureWorkers workers(1, TightLimits(), StandIn);
  EXPECT_EQ(AnswerOf(workers, "huge"), "3 the picture 'huge' makes the decoder answer nonsense");
  EXPECT_EQ(AnswerOf(workers, "fine"), "");  // what was left of it is no answer to this
}

TEST(PictureWorkers, ServeManyAtOnce) {
  PictureWorkers workers(3, TightLimits(), StandIn);
  const std::vector<std::string> kinds = {"a", "crash", "large", "refused", "bcd", "exit"};
  std::vector<std::pair<std::string, std::future<DecodedPicture>>> waiting;
  for (int i = 0; i < 60; ++i) {
    std::string path = kinds[static_cast<size_t>(i) % kinds.size()];
    std::future<DecodedPicture> future = workers.Decode(path);
    waiting.emplace_back(std::move(path), std::move(future));
  }
  for (auto& [path, future] : waiting) {
    const std::string answer = AnswerOf(std::move(future), path);
    if (path == "crash" || path == "refused" || path == "exit") {
      EXPECT_THAT(answer, StartsWith("3 the picture '" + path + "'"));
    } else {
      EXPECT_EQ(answer, "");
    }
  }
}

TEST(PictureWorkers, EndWhateverTheyAreAt) {
  std::future<DecodedPicture> hanging;
  std::future<DecodedPicture> waiting;
  {
    PictureWorkers workers(1, TightLimits(), StandIn);
    hanging = workers.Decode("hang");
    waiting = workers.Decode("fine");
  }
  EXPECT_THAT(AnswerOf(std::move(hanging), "hang"),
              StartsWith("7 the picture 'hang' is not decoded"));
  EXPECT_THAT(AnswerOf(std::move(waiting), "fine"),
              StartsWith("7 the picture 'fine' is not decoded"));
}

TEST(PictureWorkers, RefuseAPathThatIsTooLong) {
  PictureWorkers workers(1, TightLimits(), StandIn);
  EXPECT_THAT(AnswerOf(workers, std::string(5000, 'x')), HasSubstr("has too long a path"));
  EXPECT_EQ(AnswerOf(workers, "fine"), "");
}

TEST(PictureWorkers, DecodeFiles) {
  PictureWorkers workers(2, {});
  const std::string path = VORN_PICTURES "/files/rgb420.jpg";
  EXPECT_EQ(workers.Decode(path).get().picture.pixels, DecodePictureFile(path).picture.pixels);
  EXPECT_THROW(workers.Decode("/nowhere.png").get(), Fault);
}

}  // namespace
}  // namespace vorn::kit
