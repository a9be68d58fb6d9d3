// Everything that decides what a run of `vorn-run` does, as plain data: the network that the
// runtime pretends to have loaded, the command line, the files, and where the runtime refuses. A
// plan is played twice: by the executable on the scripted runtime, and by the model
// (e2e/model_of_run.h).
#ifndef VORN_TESTS_E2E_RUN_PLAN_H_
#define VORN_TESTS_E2E_RUN_PLAN_H_

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "support/model_script.h"

namespace e2e {

/// One model input or output; what the two more fields mean is said in scripted/script.h.
struct PlannedTensor : support::TensorSpec {
  std::optional<uint64_t> rank;         // instead of the count of `dims`
  std::optional<std::string> fullName;  // of an output, instead of `name`
};

/// A range of calls, counted from 1, both ends included.
struct CallRange {
  uint64_t first = 1;
  uint64_t last = 1;
};

/// Calls of the runtime as a whole that fail: with the status, null, or 0.
struct PlannedFailure {
  CallRange calls;
  int32_t status = 13;
};

/// Calls of one operation that are answered otherwise.
struct PlannedAnswer {
  std::string operation;
  std::optional<uint64_t> index;  // only the calls about this one, and counted among those
  CallRange calls;
  bool isNull = false;  // for a handle or an address; then `number` does not count
  uint64_t number = 0;  // a status, a size or a count
  bool effect = false;  // of a status: the work is done all the same
};

struct RunPlan {
  std::vector<PlannedTensor> inputs;  // the task buffer and the work buffer are the last two
  std::vector<PlannedTensor> outputs;
  int32_t netType = 0;
  int32_t runMode = 0;
  std::map<uint32_t, uint64_t> bits;  // of a type code, where the interface knows another number
  uint64_t limitBytes = 1 << 20;      // of a block

  /// What every execution writes from the start of each output's block; empty: nothing.
  std::vector<std::string> outputBytes;

  std::vector<std::string> words;            // of the command line, without the program's name
  std::map<std::string, std::string> files;  // below the folder of the run, by relative name
  std::set<std::string> folders{"out"};      // below it likewise

  std::vector<PlannedFailure> failures;
  std::vector<PlannedAnswer> answers;  // the last one that fits a call wins
};

/// The plan as a script of the scripted runtime.
[[nodiscard]] std::string ScriptOf(const RunPlan& plan);

/// The plan for a person who has to find out what went wrong.
[[nodiscard]] std::string Describe(const RunPlan& plan);

/// The size of one element of a type code in bits, as `vorn.h` has it; 0 for an unknown code.
[[nodiscard]] uint64_t BitsOf(const RunPlan& plan, uint32_t type);

}  // namespace e2e

#endif  // VORN_TESTS_E2E_RUN_PLAN_H_
