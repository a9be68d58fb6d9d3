// The course of one contract.
#include "contract.h"

#include <unistd.h>

#include "child.h"

namespace conformance {
namespace {

constexpr uint32_t kSecondsOfAChild = 300;

/// Thrown behind a recorded failure.
struct Stop {};

/// Thrown where there is nothing to test.
struct NothingToTest {
  std::string reason;
};

void Skip(const std::string& reason) {
  if (Given().noSkips) {
    ADD_FAILURE() << "left out: " << reason;
  } else {
    GTEST_SKIP() << reason;
  }
}

std::string NameOfThisTest() {
  const testing::TestInfo* test = testing::UnitTest::GetInstance()->current_test_info();
  return std::string(test->test_suite_name()) + "." + test->name();
}

}  // namespace

void Contract::LeaveOut(const std::string& reason) { throw NothingToTest{reason}; }

void Contract::TestBody() {
  if (const std::string lacks = Lacks(); !lacks.empty()) return Skip(lacks);
  if (Given().inProcess) return HoldHere();
  const ChildEnd end = RunAsChild(NameOfThisTest(), Given().seconds.value_or(kSecondsOfAChild));
  if (end.hasSkipped) {
    Skip(end.output);
  } else if (!end.hasPassed) {
    ADD_FAILURE() << "in a process of its own, which " << end.how << ":\n" << end.output;
  }
}

void Contract::HoldHere() {
  // Ends the process where the runtime does not return; the parent goes on with the next contract.
  if (Given().seconds) alarm(*Given().seconds);
  const std::string problem = OpenRuntime(Given().runtime);
  ASSERT_EQ(problem, "");
  try {
    Begin();
    Holds();
  } catch (const NothingToTest& nothing) {
    Skip(nothing.reason);
  } catch (const Stop&) {
    // The failure is recorded already.
  }
  End();
}

void Require(bool holds, const std::string& what, const char* file, int line) {
  if (holds) return;
  ADD_FAILURE_AT(file, line) << what;
  throw Stop{};
}

// The object is complete before the first step, so that its end follows if one of them throws.
Up::Up() : Up(NoStep{}) {
  Require(vorn_init(Given().config.c_str()) == VORN_SUCCESS, "vorn_init failed");
  isUp_ = true;
  Require(vorn_rt_set_device(Given().device) == VORN_SUCCESS, "vorn_rt_set_device failed");
  isDeviceSet_ = true;
  Require(vorn_rt_create_context(&context, Given().device) == VORN_SUCCESS,
          "vorn_rt_create_context failed");
  Require(context != nullptr, "vorn_rt_create_context gave null");
}

Up::~Up() {
  if (context != nullptr) {
    EXPECT_EQ(vorn_rt_destroy_context(context), VORN_SUCCESS);
  }
  if (isDeviceSet_) {
    EXPECT_EQ(vorn_rt_reset_device(Given().device), VORN_SUCCESS);
  }
  if (isUp_) {
    EXPECT_EQ(vorn_finalize(), VORN_SUCCESS);
  }
}

}  // namespace conformance
