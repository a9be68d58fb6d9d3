#include "host/state/descriptions.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "runtime/host/refusal.h"

namespace vorn::host {
namespace {

using Filling = std::shared_ptr<const ModelDescription>;

TEST(Desc, IsRefusedUntilItIsFilled) {
  Desc desc;
  EXPECT_EQ(ReasonOf(VORN_ERROR_INVALID_ARGUMENT, [&] { desc.Model(); }),
            "the description is empty; get one of a model");
  const Filling model = std::make_shared<ModelDescription>();
  desc.Fill(model);
  EXPECT_EQ(desc.Model(), model);
}

TEST(Desc, ShowsTheLastModelAndKeepsTheOthers) {
  Desc desc;
  const Filling first = std::make_shared<ModelDescription>();
  const Filling second = std::make_shared<ModelDescription>();
  desc.Fill(first);
  desc.Fill(second);
  EXPECT_EQ(desc.Model(), second);
  EXPECT_EQ(first.use_count(), 2);
  desc.Fill(first);
  EXPECT_EQ(desc.Model(), first);
}

TEST(Desc, TakesNoMoreMemoryForTheSameModel) {
  Desc desc;
  const Filling model = std::make_shared<ModelDescription>();
  for (int i = 0; i < 3; ++i) desc.Fill(model);
  EXPECT_EQ(model.use_count(), 2);
}

TEST(Descriptions, LiveUntilTheyAreDestroyed) {
  Descriptions descriptions;
  vorn_mdl_desc* first = descriptions.Create();
  vorn_mdl_desc* second = descriptions.Create();
  EXPECT_EQ(descriptions.Handles(), (std::vector<const vorn_mdl_desc*>{first, second}));
  EXPECT_NE(&descriptions.At(first), &descriptions.At(second));
  descriptions.Destroy(first);
  EXPECT_EQ(descriptions.Handles(), std::vector<const vorn_mdl_desc*>{second});
  const std::string reason =
      ReasonOf(VORN_ERROR_INVALID_HANDLE, [&] { descriptions.Destroy(first); });
  EXPECT_TRUE(reason.ends_with(" is no description; it was destroyed, or is something else"));
  EXPECT_EQ(ReasonOf(VORN_ERROR_INVALID_HANDLE, [&] { descriptions.At(first); }), reason);
}

}  // namespace
}  // namespace vorn::host
