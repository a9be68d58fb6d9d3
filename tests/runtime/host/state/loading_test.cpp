#include "host/state/loading.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "runtime/host/refusal.h"
#include "runtime/host/state/running.h"

namespace vorn::host {
namespace {

class LoadingTest : public RunningTest {
 protected:
  /// Why the bytes are not loaded.
  static std::string Refusal(vorn_status status, const void* image, uint64_t size) {
    return ReasonOf(status, [&] { LoadModel(image, size); });
  }

  /// A block with that image at its end, behind `front` bytes.
  static std::byte* BlockWith(const std::string& image, size_t front) {
    auto* block = static_cast<std::byte*>(Allocate(front + image.size()));
    std::memcpy(block + front, image.data(), image.size());
    return block;
  }

  const std::string image_ = Negating();
};

TEST_F(LoadingTest, GivesEachModelAnIdOfItsOwn) {
  const uint32_t first = LoadModel(image_.data(), image_.size());
  const uint32_t second = LoadModel(image_.data(), image_.size());
  EXPECT_EQ(second, first + 1);
  const Look tables;
  EXPECT_EQ(tables->models.Ids(), (std::vector<uint32_t>{first, second}));
  EXPECT_NE(tables->models.At(first), tables->models.At(second));
}

TEST_F(LoadingTest, RefusesNoImage) {
  EXPECT_EQ(Refusal(VORN_ERROR_INVALID_ARGUMENT, nullptr, 9),
            "the image is 0 of 9 bytes; give the bytes of an ONNX file");
  const std::string place = Join(static_cast<const void*>(image_.data()));
  EXPECT_EQ(Refusal(VORN_ERROR_INVALID_ARGUMENT, image_.data(), 0),
            "the image is " + place + " of 0 bytes; give the bytes of an ONNX file");
  EXPECT_EQ(Refusal(VORN_ERROR_MODEL, "\1", 1),
            "the image is no ONNX file (a field without a number); give the whole bytes of one");
}

TEST_F(LoadingTest, ReachesToTheEndOfItsBlockAndNotBeyond) {
  std::byte* block = BlockWith(image_, 5);
  EXPECT_NO_THROW(LoadModel(block + 5, image_.size()));
  EXPECT_EQ(
      Refusal(VORN_ERROR_INVALID_ARGUMENT, block + 5, image_.size() + 1),
      Join("the image has ", image_.size() + 1, " bytes; its block ends after ", image_.size()));
  Free(block);
}

TEST_F(LoadingTest, LetsTheBlockOfAnImageGoBackToTheSystem) {
  if (IsMemoryWatched()) GTEST_SKIP() << "nothing is kept here";
  std::byte* block = BlockWith(image_, 0);
  LoadModel(block, image_.size());
  Free(block);
  EXPECT_EQ(Look()->blocks.KeptBytes(), 0u);
  Free(BlockWith(image_, 0));
  EXPECT_EQ(Look()->blocks.KeptBytes(), image_.size());
}

TEST_F(LoadingTest, NeedsAContext) {
  Change()->devices.DestroyContext(context);
  EXPECT_EQ(Refusal(VORN_ERROR_NOT_INITIALIZED, image_.data(), image_.size()),
            "no context is current on this thread; create one on it");
  // Before it looks at what it is given.
  EXPECT_EQ(StatusOf([] { LoadModel(nullptr, 0); }), VORN_ERROR_NOT_INITIALIZED);
}

TEST_F(LoadingTest, TakesMemoryOfADeviceThatHasALimitAndOfNoOther) {
  const std::string weights =
      OnnxWriter()
          .Input("x", kOnnxFloat, {1, 64})
          .Constant<float>("w", kOnnxFloat, {64, 64}, std::vector<float>(64 * 64, 0.5F))
          .Output("y", kOnnxFloat, {1, 64})
          .Node("MatMul", {"x", "w"}, {"y"})
          .Image();
  LoadModel(weights.data(), weights.size());
  EXPECT_EQ(Look()->devices.CurrentMemory()->taken(), 0u);
  Restart(R"({"memoryLimit": 100000000})");
  LoadModel(weights.data(), weights.size());
  EXPECT_GT(Look()->devices.CurrentMemory()->taken(), 0u);
  Restart(R"({"memoryLimit": 4096})");
  EXPECT_EQ(StatusOf([&] { LoadModel(weights.data(), weights.size()); }), VORN_ERROR_OUT_OF_MEMORY);
}

TEST_F(LoadingTest, IsTheSameBehindAProbe) {
  Restart(R"({"probe": 60})");
  EXPECT_NO_THROW(LoadModel(image_.data(), image_.size()));
  EXPECT_NO_THROW(LoadModel(image_.data(), image_.size()));
  EXPECT_EQ(Refusal(VORN_ERROR_MODEL, "\1", 1),
            "the image is no ONNX file (a field without a number); give the whole bytes of one");
}

}  // namespace
}  // namespace vorn::host
