// Random networks, files, options and refusals: whole transcripts against the model.
//
//   VORN_RANDOM_RUNS=N   runs in place of the ordinary number, divided among the tests
//   VORN_RANDOM_SEED=S   the seed of the first; the next ones count on
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <map>

#include "e2e/compare_run.h"
#include "e2e/random_plan.h"

namespace e2e {
namespace {

constexpr uint64_t kParts = 4;  // that ctest runs side by side

uint64_t FromEnvironment(const char* name, uint64_t otherwise) {
  const char* value = std::getenv(name);
  return value == nullptr ? otherwise : std::strtoull(value, nullptr, 10);
}

/// For the sum at the end: `status 0`, `signal 8`.
std::string EndOf(const ForetoldRun& run) {
  if (run.signal) return "signal " + std::to_string(*run.signal);
  return "status " + std::to_string(*run.status) + (run.files.empty() ? "" : " with files");
}

class RandomRuns : public testing::TestWithParam<uint64_t> {};

TEST_P(RandomRuns, AgreeWithTheModel) {
  const uint64_t runs = FromEnvironment("VORN_RANDOM_RUNS", 1000);
  const uint64_t firstSeed = FromEnvironment("VORN_RANDOM_SEED", 20261);
  std::map<std::string, uint64_t> ends;
  int wrong = 0;
  for (uint64_t n = GetParam(); n < runs && wrong < 5; n += kParts) {
    const RunPlan plan = RandomPlan(firstSeed + n);
    ForetoldRun foretold;
    try {
      foretold = ModelOfRun(plan);
    } catch (const OutsideTheFolder&) {
      ++ends["left out"];
      continue;
    }
    const Keeping keeping = n / kParts % 2 == 0 ? Keeping::kTogether : Keeping::kApart;
    const std::string difference = Difference(plan, foretold, Play(plan, keeping), keeping);
    if (!difference.empty()) {
      ++wrong;
      ADD_FAILURE() << "VORN_RANDOM_RUNS=1 VORN_RANDOM_SEED=" << firstSeed + n << "\n"
                    << difference;
    }
    ++ends[EndOf(foretold)];
  }
  std::cout << "seeds from " << firstSeed + GetParam() << " in steps of " << kParts;
  for (const auto& [end, count] : ends) std::cout << ", " << count << " " << end;
  std::cout << "\n";
}

INSTANTIATE_TEST_SUITE_P(Part, RandomRuns, testing::Range(uint64_t{0}, kParts));

}  // namespace
}  // namespace e2e
