// What Slurm is asked, by its own programs.
#ifndef VORN_KIT_FLEET_SLURM_H_
#define VORN_KIT_FLEET_SLURM_H_

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "kit/launch/program.h"

namespace vorn::kit {

/// "17" of what sbatch --parsable prints: "17", or "17;cluster"; empty for anything else.
[[nodiscard]] std::string JobIdIn(std::string_view said);

/// Of what "scontrol show config" prints.
[[nodiscard]] std::optional<uint64_t> MaxArraySizeIn(std::string_view said);

class Slurm {
 public:
  /// What the programs say goes into `scratch`, a folder that is there.
  Slurm(std::string scratch, StopSignals& signals)
      : scratch_(std::move(scratch)), signals_(signals) {}

  /// How many tasks an array may have. Throws a Fault of kUsage where there is no Slurm, or it does
  /// not answer.
  [[nodiscard]] uint64_t MaxArraySize();

  /// The names of all nodes. Throws as above.
  [[nodiscard]] std::set<std::string> Nodes();

  struct Submission {
    std::vector<std::string> words;  ///< of sbatch
    std::string script;              ///< as sbatch takes it
  };

  /// Returns the id of the job. Throws a Fault of kUsage with what sbatch said.
  [[nodiscard]] std::string Submit(const Submission& submission);

  enum class Place { kInQueue, kGone, kNotKnown };

  /// Whether anything of a job waits or runs. kNotKnown: Slurm does not answer now.
  [[nodiscard]] Place PlaceOf(const std::string& id);

  /// Both do what they can although somebody asked this process to stop. Whether it was done.
  bool Cancel(const std::string& id);
  bool Requeue(const std::string& id);

  /// The last line that one of the programs said on standard error.
  [[nodiscard]] std::string Said() const;

 private:
  struct Answer {
    bool isDone = false;
    std::string text;
  };
  Answer Ask(const std::vector<std::string>& words, const std::string& input, StopSignals& signals);
  Answer Need(const std::vector<std::string>& words);

  std::string scratch_;
  StopSignals& signals_;
};

}  // namespace vorn::kit

#endif  // VORN_KIT_FLEET_SLURM_H_
