#include "host/state/handle.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

#include "runtime/host/refusal.h"

namespace vorn::host {
namespace {

struct Opaque;

TEST(NewHandle, IsNeverHandedOutTwice) {
  std::vector<std::set<Opaque*>> perThread(4);
  std::vector<std::thread> threads;
  for (auto& handles : perThread) {
    threads.emplace_back([&handles] {
      for (int i = 0; i < 1000; ++i) handles.insert(NewHandle<Opaque>());
    });
  }
  for (std::thread& thread : threads) thread.join();
  std::set<Opaque*> all;
  for (const auto& handles : perThread) all.insert(handles.begin(), handles.end());
  EXPECT_EQ(all.size(), 4000u);
  EXPECT_FALSE(all.contains(nullptr));
}

TEST(Registry, FindsWhatLivesAndNothingElse) {
  Registry<const Opaque*, int> registry("thing");
  const Opaque* handle = NewHandle<Opaque>();
  registry.Add(handle, std::make_shared<int>(7));
  ASSERT_NE(registry.Find(handle), nullptr);
  EXPECT_EQ(*registry.Find(handle), 7);
  EXPECT_EQ(registry.Look(handle), registry.Find(handle).get());
  EXPECT_EQ(registry.Find(nullptr), nullptr);
  EXPECT_EQ(registry.Find(NewHandle<Opaque>()), nullptr);
  EXPECT_TRUE(registry.Remove(handle));
  EXPECT_FALSE(registry.Remove(handle));
  EXPECT_EQ(registry.Find(handle), nullptr);
  EXPECT_EQ(registry.Look(handle), nullptr);
}

TEST(Registry, RefusesHandlesWithoutAnObjectByTheNameOfTheirKind) {
  Registry<const Opaque*, int> registry("thing");
  const Opaque* handle = NewHandle<Opaque>();
  registry.Add(handle, std::make_shared<int>(7));
  EXPECT_EQ(registry.Require(handle), 7);
  registry.RequireRemoved(handle);
  const std::string reason = ReasonOf(VORN_ERROR_INVALID_HANDLE, [&] { registry.Require(handle); });
  EXPECT_TRUE(reason.ends_with(" is no thing; it was destroyed, or is something else")) << reason;
  EXPECT_EQ(ReasonOf(VORN_ERROR_INVALID_HANDLE, [&] { registry.RequireRemoved(handle); }), reason);
  EXPECT_EQ(ReasonOf(VORN_ERROR_INVALID_ARGUMENT, [&] { registry.Require(nullptr); }),
            "the thing is null");
}

TEST(Registry, LeavesAnObjectToWhoeverStillHoldsIt) {
  Registry<uint32_t, int> registry("thing");
  registry.Add(1, std::make_shared<int>(7));
  const std::shared_ptr<int> held = registry.Find(1);
  registry.Clear();
  EXPECT_EQ(registry.Count(), 0u);
  EXPECT_EQ(*held, 7);
}

}  // namespace
}  // namespace vorn::host
