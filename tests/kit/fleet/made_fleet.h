// A fleet made by hand: a plan, attempts that look as if boards had left them, and journals.
//
// Inference i has one input, in/I.bin on line i + 1 of the list, and one output of 4 bytes. Chunks
// are of one size but for the last one.
#ifndef VORN_TESTS_KIT_FLEET_MADE_FLEET_H_
#define VORN_TESTS_KIT_FLEET_MADE_FLEET_H_

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "kit/fleet/fleet_plan.h"
#include "kit/fleet/journal.h"
#include "kit/run/run_directory.h"
#include "support/files.h"

namespace fleet_test {

struct MadeAttempt {
  std::string board = "b1";
  std::string outputs;  ///< a byte an inference: its output is four of them; '.': it is missing,
                        ///< 'A': put aside, 'F': failed. Empty: all are as of a board that is right
  bool isNoted = true;  ///< in the journal
  uint64_t beginNs = 1'000'000'000;
  uint64_t endNs = 3'000'000'000;
  std::function<void(vorn::kit::RunFacts& facts)> change = [](vorn::kit::RunFacts&) {};
};

class MadeFleet {
 public:
  MadeFleet(uint64_t inferences, uint64_t chunk, std::vector<uint64_t> crossCheck = {});

  [[nodiscard]] std::string Folder() const { return Path("fleet"); }
  [[nodiscard]] std::string Path(const std::string& name) const {
    return (folder_.Path() / name).string();
  }
  [[nodiscard]] const vorn::kit::FleetPlan& Plan() const { return plan_; }

  /// What a board that is right gives for an inference.
  [[nodiscard]] static char OutputOf(uint64_t inference);

  /// An attempt at a chunk, and one at the cross-check of its board. Returns its folder.
  std::string Attempt(uint64_t chunk, uint64_t number, const MadeAttempt& attempt = {}) const;
  std::string CrossCheck(uint64_t number, const MadeAttempt& attempt) const;

  /// All chunks, each by its first attempt, on boards that take turns.
  void AllDone(const std::vector<std::string>& boards = {"b1"}) const;

  void Note(const vorn::kit::JournalRecord& record) const;

  /// The record of an inference in a run of the whole list, with this output.
  [[nodiscard]] vorn::kit::SampleRecord WholeRecord(uint64_t inference, char output) const;

 private:
  [[nodiscard]] vorn::kit::SampleRecord Planned(uint64_t inference) const;
  std::string Make(const std::vector<uint64_t>& inferences, const std::string& folder,
                   uint64_t number, const std::optional<uint64_t>& chunk,
                   const MadeAttempt& attempt) const;

  support::TempDir folder_;
  vorn::kit::FleetPlan plan_;
};

/// What `vorn launch` writes of an inference whose dumps lie in `folder`, "dumps/7".
[[nodiscard]] vorn::kit::SampleRecord WithOutput(vorn::kit::SampleRecord record, char output);

}  // namespace fleet_test

#endif  // VORN_TESTS_KIT_FLEET_MADE_FLEET_H_
