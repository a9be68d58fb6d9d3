// Which attempt each inference of a chunk is taken from.
//
// What a board left is not believed but looked at: an inference counts if it was made of the
// planned inputs by the planned model, and every output is a file of the attempt's own with the
// size and hash that were noted.
#ifndef VORN_KIT_FLEET_CHOICE_H_
#define VORN_KIT_FLEET_CHOICE_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "kit/fleet/fleet_plan.h"
#include "kit/run/run_directory.h"

namespace vorn::kit {

/// Where an attempt lies, and what the journals say of it.
struct AttemptPlace {
  std::string folder;  ///< the run directory
  std::string board;   ///< empty: no journal tells
  uint64_t attempt = 0;
  std::string outputs;  ///< OutputsHash that was noted of it; empty: none was
};

/// An attempt that was looked at.
struct AttemptLook {
  AttemptPlace place;
  std::string fault;              ///< why nothing of it counts; empty: some may
  std::optional<RunFacts> facts;  ///< empty: they cannot be read
  /// A record an inference, as the attempt has it; of one that it lacks an empty one.
  std::vector<SampleRecord> records;
  /// Why an inference that is said to be done does not count, beside each of `records`.
  std::vector<std::string> faults;

  [[nodiscard]] bool HasDone(size_t at) const;
};

/// Looks at an attempt at inferences that are `planned`, as inputs.jsonl has them. Reads every
/// output. Nothing is thrown for what is wrong with it.
[[nodiscard]] AttemptLook LookInto(const AttemptPlace& place, const FleetPlan& plan,
                                   const std::vector<SampleRecord>& planned);

/// An inference as a run in one piece has it: with its index in the list, its inputs there, and its
/// dumps in dumps/INDEX.
struct ChosenSample {
  SampleRecord record;
  std::optional<size_t> from;  ///< which of the attempts; empty: no attempt has it
};

/// Attempts that have an inference done, and not with the same outputs.
struct Difference {
  uint64_t index = 0;  ///< of the inference
  uint64_t line = 0;   ///< of the list, where its inputs begin; 0: it has none
  std::vector<size_t> attempts;
};

struct ChunkChoice {
  std::vector<ChosenSample> samples;
  std::vector<Difference> differences;
};

/// Of each inference the lowest attempt that has it done, of boards that are not in doubt first;
/// where none has, the lowest that tried.
[[nodiscard]] ChunkChoice ChooseSamples(const std::vector<AttemptLook>& attempts,
                                        const std::vector<SampleRecord>& planned,
                                        const std::set<std::string>& boardsInDoubt);

}  // namespace vorn::kit

#endif  // VORN_KIT_FLEET_CHOICE_H_
