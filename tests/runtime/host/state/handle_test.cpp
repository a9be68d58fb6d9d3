#include "host/state/handle.h"

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <thread>
#include <vector>

#include "host/state/probe.h"
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

constexpr uintptr_t kCounts[] = {1, 2, 0xffff, uintptr_t{1} << 32, (uintptr_t{1} << 51) - 1};

/// Bits `from` down to `to` of a value.
constexpr uintptr_t Bits(uintptr_t value, int from, int to) {
  return value >> to & ((uintptr_t{1} << (from - to + 1)) - 1);
}

constexpr bool AreAllTheSame(uintptr_t value, int from, int to) {
  const uintptr_t bits = Bits(value, from, to);
  return bits == 0 || bits == Bits(UINTPTR_MAX, from, to);
}

/// The rules of both machines for an address that a program may reach, whichever this one is.
constexpr bool IsReachableOnAarch64(uintptr_t value) { return Bits(value, 55, 55) == 0; }
constexpr bool IsReachableOnX86(uintptr_t value) {
  const bool isCanonical = AreAllTheSame(value, 63, 47) || AreAllTheSame(value, 63, 56);
  const bool isOfTheProgram = Bits(value, 63, 63) == 0;
  const bool isMasked = Bits(value, 47, 47) == 0 || Bits(value, 56, 56) == 0;
  return isOfTheProgram && (isCanonical || isMasked);
}

static_assert([] {
  for (const uintptr_t count : kCounts) {
    const uintptr_t value = HandleValue(count);
    if (IsReachableOnAarch64(value) || IsReachableOnX86(value) || value % 16 != 0) return false;
  }
  return true;
}());
// The rules know an address when they see one, also behind a tag.
static_assert(IsReachableOnAarch64(0x0000'7fff'1234'5678) &&
              IsReachableOnAarch64(0x4000'0000'0040'0010));
static_assert(IsReachableOnX86(0x0000'7fff'1234'5678) && IsReachableOnX86(0x00ff'ffff'1234'5678));

TEST(HandleValue, IsNotCanonicalOnX86) {
  for (const uintptr_t count : kCounts) {
    EXPECT_FALSE(AreAllTheSame(HandleValue(count), 63, 47)) << count;
    EXPECT_FALSE(AreAllTheSame(HandleValue(count), 63, 56)) << count;
  }
}

TEST(HandleValue, IsWhatIsHandedOut) {
  const auto first = reinterpret_cast<uintptr_t>(NewHandle<Opaque>());
  const uintptr_t count = Bits(first, 54, 4);
  EXPECT_EQ(first, HandleValue(count));
  EXPECT_EQ(reinterpret_cast<uintptr_t>(NewHandle<Opaque>()), HandleValue(count + 1));
}

TEST(HandleValue, FaultsWhereItIsUsedAsAPointer) {
  for (const uintptr_t count : kCounts) {
    const auto* handle = reinterpret_cast<const volatile char*>(HandleValue(count));
    EXPECT_EQ(Probe(0, [=] { static_cast<void>(*handle); }).how, "Segmentation fault") << count;
  }
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
