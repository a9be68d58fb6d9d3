// Whether what a board left of an inference is what was asked for.
//
// A board is not believed but looked at: an inference counts if it was made of the planned inputs,
// and every output is a file of its own folder with the size and hash that were noted.
#ifndef VORN_KIT_FLEET_SAMPLE_PROOF_H_
#define VORN_KIT_FLEET_SAMPLE_PROOF_H_

#include <cstdint>
#include <string>

#include "kit/run/run_directory.h"

namespace vorn::kit {

/// Whether an inference was made of the inputs that a record of inputs.jsonl plans: the same sizes
/// and hashes, in the same order.
[[nodiscard]] bool HasPlannedInputs(const SampleRecord& planned, const SampleRecord& found);

/// Why an inference that is said to be done does not count, in words behind its name; empty: it
/// does. `run` is its run directory, `outputs` how many the model has, each of which is read.
[[nodiscard]] std::string WhyNotDone(const std::string& run, const SampleRecord& planned,
                                     const SampleRecord& found, uint64_t outputs);

/// The same of one output of inference `index`.
[[nodiscard]] std::string WhyNotVerified(const std::string& run, uint64_t index,
                                         const SampleOutput& output);

/// Where the outputs of an inference lie in its run directory, with a slash behind it.
[[nodiscard]] std::string DumpsOf(uint64_t index);

/// The name of a file that lies right in a folder, which ends in a slash; empty if it does not.
[[nodiscard]] std::string NameBelow(const std::string& folder, const std::string& path);

/// Whether a file is there, and no link: what a board sent is not to lead elsewhere.
[[nodiscard]] bool IsOwnFile(const std::string& path);

}  // namespace vorn::kit

#endif  // VORN_KIT_FLEET_SAMPLE_PROOF_H_
