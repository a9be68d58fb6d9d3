// Loading and unloading.
#include <algorithm>
#include <random>

#include "model.h"

namespace conformance {
namespace {

/// The runtime is up; models are loaded by the contracts themselves.
class Loading : public UpContract {
 protected:
  std::string Lacks() const override { return Given().model.empty() ? "--model is not given" : ""; }

  static void ExpectRefused(const Bytes& image, const std::string& what) {
    uint32_t id = 77;
    const Block block(image);
    EXPECT_NE(vorn_mdl_load_from_mem(block.Address(), block.size(), &id), VORN_SUCCESS) << what;
    EXPECT_EQ(id, 77u) << "vorn_mdl_load_from_mem wrote its result after a failure";
  }
};

CONTRACT(Loading, LoadsTheSameModelTwice) {
  Model first(Given().model);
  Model second(Given().model);
  EXPECT_NE(first.Id(), second.Id()) << "vorn_mdl_load_from_mem";
  const auto expected = first.Execute(first.Inputs(1));
  first.Unload();
  second.ExpectSame(expected, second.Execute(second.Inputs(1)), 0, "of a model loaded twice");
}

CONTRACT(Loading, LoadsAgainAfterTheUnload) {
  std::vector<Bytes> expected;
  for (int round = 0; round < 3; ++round) {
    Model model(Given().model);
    const auto results = model.Execute(model.Inputs(1));
    if (round == 0) expected = results;
    model.ExpectSame(expected, results, 0, "of a model loaded again");
  }
}

CONTRACT(Loading, OnlyReadsTheImage) {
  const Bytes image = ReadFile(Given().model);
  Model model(Given().model);
  model.Execute(model.Inputs(1));
  EXPECT_TRUE(std::ranges::equal(model.Image().Content(), image))
      << "vorn_mdl_load_from_mem or vorn_mdl_execute changed the image";
}

CONTRACT(Loading, NeedsNoImageAfterTheUnload) {
  Model kept(Given().model);
  {
    Model gone(Given().model);
    gone.Execute(gone.Inputs(1));
    gone.Unload();
    std::ranges::fill(gone.Image().Content(), std::byte{0xFF});
  }
  kept.Execute(kept.Inputs(2));
}

CONTRACT(Loading, TellsTheNetType) {
  const Model model(Given().model);
  vorn_net_type type = 77;
  EXPECT_EQ(vorn_ext_get_mdl_net_type(model.Id(), &type), VORN_SUCCESS);
  EXPECT_EQ(type, VORN_NET_FEED_FORWARD) << "vorn_ext_get_mdl_net_type";
}

CONTRACT(Loading, RefusesNull) {
  const Bytes bytes = ReadFile(Given().model);
  const Block image(bytes);
  uint32_t id = 77;
  EXPECT_NE(vorn_mdl_load_from_mem(nullptr, image.size(), &id), VORN_SUCCESS);
  EXPECT_NE(vorn_mdl_load_from_mem(nullptr, 0, &id), VORN_SUCCESS);
  EXPECT_NE(vorn_mdl_load_from_mem(image.Address(), 0, &id), VORN_SUCCESS);
  EXPECT_NE(vorn_mdl_load_from_mem(image.Address(), image.size(), nullptr), VORN_SUCCESS);
  EXPECT_EQ(id, 77u) << "vorn_mdl_load_from_mem wrote its result after a failure";
  const Model model(Given().model);
  EXPECT_NE(vorn_ext_get_mdl_net_type(model.Id(), nullptr), VORN_SUCCESS);
}

CONTRACT(Loading, RefusesTheFirstPartOfAnImage) {
  const Bytes image = ReadFile(Given().model);
  for (const size_t quarters : {1, 2, 3}) {
    ExpectRefused({image.begin(), image.begin() + static_cast<ptrdiff_t>(std::max<size_t>(
                                                      1, image.size() * quarters / 4))},
                  std::to_string(quarters) + " quarters of an image");
  }
  ExpectRefused({image[0]}, "the first byte of an image");
  Model model(Given().model);
  model.Execute(model.Inputs(1));
}

CONTRACT(Loading, RefusesWhatIsNoImage) {
  const size_t size = ReadFile(Given().model).size();
  std::mt19937 random(1);
  Bytes noise(size);
  for (std::byte& b : noise) b = static_cast<std::byte>(random() % 256);
  ExpectRefused(noise, "noise");
  ExpectRefused(Bytes(size, std::byte{0}), "zeros");
  ExpectRefused(Bytes(size, std::byte{0xFF}), "ones");
  Model model(Given().model);
  model.Execute(model.Inputs(1));
}

/// Ids that no model has: one that was never given, and one whose model is unloaded.
std::vector<uint32_t> IdsOfNoModel() {
  Model gone(Given().model);
  gone.Unload();
  return {gone.Id(), gone.Id() + 1000};
}

CONTRACT(Loading, RefusesToTellOfNoModel) {
  vorn_mdl_desc* desc = vorn_mdl_create_desc();
  for (const uint32_t id : IdsOfNoModel()) {
    vorn_net_type type = 77;
    EXPECT_NE(vorn_ext_get_mdl_net_type(id, &type), VORN_SUCCESS);
    EXPECT_EQ(type, 77) << "vorn_ext_get_mdl_net_type wrote its result after a failure";
    EXPECT_NE(vorn_mdl_get_desc(desc, id), VORN_SUCCESS);
    EXPECT_NE(vorn_mdl_unload(id), VORN_SUCCESS);
  }
  EXPECT_EQ(vorn_mdl_destroy_desc(desc), VORN_SUCCESS);
}

CONTRACT(Loading, RefusesToExecuteNoModel) {
  Model model(Given().model);
  const Dataset in = model.Inputs(1);
  const Dataset out = model.Outputs();
  for (const uint32_t id : IdsOfNoModel()) {
    EXPECT_NE(vorn_mdl_set_dynamic_batch_size(id, in.Handle(), 0, 1), VORN_SUCCESS);
    EXPECT_NE(vorn_mdl_set_total_t(id, in.Handle(), 1), VORN_SUCCESS);
    EXPECT_NE(vorn_mdl_execute(id, in.Handle(), out.Handle()), VORN_SUCCESS);
  }
  EXPECT_TRUE(std::ranges::all_of(out.Content(0), [](std::byte b) { return b == std::byte{0xEE}; }))
      << "vorn_mdl_execute wrote an output after a failure";
  model.Execute(in);
}

}  // namespace
}  // namespace conformance
