// The execution library has one environment in a process; what holds it ends on any thread.
#include <gtest/gtest.h>

#include <atomic>
#include <exception>
#include <memory>
#include <string>
#include <thread>

#include "host/engine/engine.h"

namespace vorn::host {
namespace {

/// What CreateEngine throws, or nothing.
std::string Fault(std::unique_ptr<Engine>& engine) {
  try {
    engine = CreateEngine();
    return "";
  } catch (const std::exception& e) {
    return e.what();
  }
}

/// Takes a while that grows with `steps`.
void Linger(int steps) {
  for (int i = 0; i < steps; ++i) std::atomic_signal_fence(std::memory_order_seq_cst);
}

/// The moment in which one environment ends and the next begins lies within the library and cannot
/// be held, so many rounds with growing steps between the two look for it.
TEST(EngineEnvironment, ComesUpWhileTheOneBeforeGoesDownOnAnotherThread) {
  constexpr int kRounds = 4000;
  int faults = 0;
  std::string fault;
  std::unique_ptr<Engine> last = CreateEngine();
  for (int i = 0; i < kRounds; ++i) {
    std::atomic<int> ready = 0;
    const auto meet = [&] {
      ++ready;
      while (ready != 2) std::this_thread::yield();
    };
    std::thread other([&] {
      meet();
      last.reset();
    });
    meet();
    Linger(i % 500 * 40);
    std::unique_ptr<Engine> next;
    const std::string said = Fault(next);
    if (!said.empty()) {
      ++faults;
      fault = said;
    }
    other.join();
    last = std::move(next);
  }
  EXPECT_EQ(faults, 0) << "of " << kRounds << ": " << fault;
}

}  // namespace
}  // namespace vorn::host
