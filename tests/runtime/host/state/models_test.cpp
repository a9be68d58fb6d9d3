#include "host/state/models.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "runtime/host/refusal.h"
#include "support/onnx_writer.h"

namespace vorn::host {
namespace {

class ModelsTest : public testing::Test {
 protected:
  std::shared_ptr<Model> Open() {
    return std::make_shared<Model>(*engine_, std::as_bytes(std::span(image_)), Config{});
  }

  const std::string image_ = OnnxWriter()
                                 .Input("x", kOnnxFloat, {4})
                                 .Output("y", kOnnxFloat, {4})
                                 .Node("Relu", {"x"}, {"y"})
                                 .Image();
  std::unique_ptr<Engine> engine_ = CreateEngine();
  Models models_;
};

TEST_F(ModelsTest, HaveIdsFrom1OnThatAreNotGivenAgain) {
  const std::shared_ptr<Model> first = Open();
  const std::shared_ptr<Model> second = Open();
  EXPECT_EQ(models_.Add(first), 1u);
  EXPECT_EQ(models_.Add(second), 2u);
  EXPECT_EQ(models_.At(1), first);
  EXPECT_EQ(models_.At(2), second);
  models_.Remove(2);
  EXPECT_EQ(models_.Add(second), 3u);
  EXPECT_EQ(models_.Ids(), (std::vector<uint32_t>{1, 3}));
  models_.Clear();
  EXPECT_TRUE(models_.Ids().empty());
  EXPECT_EQ(models_.Add(first), 4u);
}

TEST_F(ModelsTest, RefuseIdsOfNone) {
  models_.Add(Open());
  for (const uint32_t id : {0u, 2u, UINT32_MAX}) {
    const std::string reason = Join("no model is loaded under the id ", id);
    EXPECT_EQ(ReasonOf(VORN_ERROR_INVALID_HANDLE, [&] { models_.At(id); }), reason);
    EXPECT_EQ(ReasonOf(VORN_ERROR_INVALID_HANDLE, [&] { models_.Remove(id); }), reason);
  }
  models_.Remove(1);
  EXPECT_EQ(ReasonOf(VORN_ERROR_INVALID_HANDLE, [&] { models_.Remove(1); }),
            "no model is loaded under the id 1");
}

TEST_F(ModelsTest, LiveOnForWhoeverHoldsThem) {
  models_.Add(Open());
  const std::shared_ptr<Model> held = models_.At(1);
  models_.Remove(1);
  EXPECT_EQ(held->description()->inputs[0].name, "x");
}

}  // namespace
}  // namespace vorn::host
