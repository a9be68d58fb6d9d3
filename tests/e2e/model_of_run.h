// A second `vorn-run`, small, slow and obvious, that only plays: its files are strings, its runtime
// is a model too, and it dies by saying so. It shares no code with the command and does everything
// in the order in which the command has to do it, so that a whole run can be foretold, whatever the
// network looks like and whichever call the runtime refuses.
#ifndef VORN_TESTS_E2E_MODEL_OF_RUN_H_
#define VORN_TESTS_E2E_MODEL_OF_RUN_H_

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "e2e/run_plan.h"

namespace e2e {

/// What a run comes to, in the words of a transcript of the stage (support/stage.h).
struct ForetoldRun {
  std::optional<int> status;
  std::optional<int> signal;
  std::vector<std::string> lines;            // of standard output
  std::vector<std::string> errors;           // of standard error, the program's name as `vorn-run`
  std::vector<std::string> record;           // every line of it, what is left live included
  std::vector<std::string> together;         // both, in the order in which they come
  std::map<std::string, std::string> files;  // below the folder `out`, without their time stamps
};

/// A plan that would look or write outside the folder of its run.
struct OutsideTheFolder {};

/// Throws OutsideTheFolder.
[[nodiscard]] ForetoldRun ModelOfRun(const RunPlan& plan);

}  // namespace e2e

#endif  // VORN_TESTS_E2E_MODEL_OF_RUN_H_
