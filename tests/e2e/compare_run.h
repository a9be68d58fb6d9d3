// Plays a plan for real and compares the outcome with what the model foretells.
#ifndef VORN_TESTS_E2E_COMPARE_RUN_H_
#define VORN_TESTS_E2E_COMPARE_RUN_H_

#include <string>

#include "e2e/model_of_run.h"
#include "e2e/run_plan.h"
#include "support/stage.h"

namespace e2e {

/// How the lines and the calls of a run are kept: by themselves, or as they come.
enum class Keeping { kApart, kTogether };

/// Runs the executable with the plan in a fresh stage.
[[nodiscard]] support::Transcript Play(const RunPlan& plan, Keeping keeping);

/// What differs, part by part, with the plan below it; empty if nothing does.
[[nodiscard]] std::string Difference(const RunPlan& plan, const ForetoldRun& foretold,
                                     const support::Transcript& run, Keeping keeping);

/// Plays the plan and returns what differs from the model; lines and calls come together.
[[nodiscard]] std::string PlayAndCompare(const RunPlan& plan);

}  // namespace e2e

#endif  // VORN_TESTS_E2E_COMPARE_RUN_H_
