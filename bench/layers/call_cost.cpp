// What a call costs here and now: call_cost CALLS prints nanoseconds a call of the cheapest
// operation, and of one reading of the clock. A layer in the process is a part of the first.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <vector>

#include "vorn/vorn.h"

namespace {

double NowNs() {
  return std::chrono::duration<double, std::nano>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

// The median of batches that are short enough to be seldom interrupted.
template <typename Work>
double CostNs(long count, Work work) {
  constexpr long kBatch = 100;
  std::vector<double> costs;
  for (long done = 0; done < count; done += kBatch) {
    const double start = NowNs();
    for (long i = 0; i < kBatch; ++i) work();
    costs.push_back((NowNs() - start) / kBatch);
  }
  std::nth_element(costs.begin(), costs.begin() + static_cast<long>(costs.size() / 2), costs.end());
  return costs[costs.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  const long calls = argc > 1 ? std::strtol(argv[1], nullptr, 10) : 0;
  if (calls < 1) {
    std::fputs("call_cost: give the number of calls, 1 at least\n", stderr);
    return 2;
  }
  vorn_data_type_size(VORN_FLOAT32);  // the first call finds the runtime and makes the room
  volatile uint64_t sink = 0;
  const double call = CostNs(calls, [&] { sink = sink + vorn_data_type_size(VORN_FLOAT32); });
  const double clock = CostNs(calls, [&] {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    sink = sink + static_cast<uint64_t>(now.tv_nsec);
  });
  std::printf("%.3f %.3f\n", call, clock);
  return 0;
}
