// Runs that nobody would write down: plans made from a seed, sound ones and odd ones.
#ifndef VORN_TESTS_E2E_RANDOM_PLAN_H_
#define VORN_TESTS_E2E_RANDOM_PLAN_H_

#include <cstdint>

#include "e2e/run_plan.h"

namespace e2e {

/// The plan of a seed, the same on every machine. It runs in a few ms, writes no more than some 100
/// KB, and asks for nothing that the interface leaves undefined, such as a name for an output that
/// the model does not have.
[[nodiscard]] RunPlan RandomPlan(uint64_t seed);

}  // namespace e2e

#endif  // VORN_TESTS_E2E_RANDOM_PLAN_H_
