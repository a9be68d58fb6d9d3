// A job whose launch was killed with it: what it was about stands beside its dumps, and how far it
// came in the log.
#ifndef VORN_KIT_LAUNCH_LEFT_JOB_H_
#define VORN_KIT_LAUNCH_LEFT_JOB_H_

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vorn::kit {

struct JobNote {
  std::vector<uint64_t> indices;   ///< of the inferences, ascending
  std::vector<std::string> words;  ///< of the program, but for its list and the folder of its dumps
  uint64_t logAt = 0;              ///< where its lines begin in log.txt
  pid_t launcher = -1;

  bool operator==(const JobNote&) const = default;
};

/// Puts a note into a job's folder. Throws a Fault of kLimit.
void WriteJobNote(const std::string& folder, const JobNote& note);

/// Empty where there is none that can be read, and where the machine has been started anew: what a
/// log tells may have reached the disk before the dumps that it tells of.
/// `inferences` is how many there are of the run.
[[nodiscard]] std::optional<JobNote> ReadJobNote(const std::string& folder, uint64_t inferences);

struct LeftJob {
  std::string folder;
  uint64_t chunk = 0;
  uint64_t attempt = 0;
};

/// The jobs that are left below RUN/chunks, in order.
[[nodiscard]] std::vector<LeftJob> FindLeftJobs(const std::string& chunks);

}  // namespace vorn::kit

#endif  // VORN_KIT_LAUNCH_LEFT_JOB_H_
