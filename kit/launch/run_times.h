// The times of a run while it is made: times.jsonl.
#ifndef VORN_KIT_LAUNCH_RUN_TIMES_H_
#define VORN_KIT_LAUNCH_RUN_TIMES_H_

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "kit/common/whole_file.h"
#include "kit/launch/execution_times.h"
#include "kit/run/run_directory.h"

namespace vorn::kit {

class RunTimes {
 public:
  /// Opens the file, or makes it. Throws a Fault of kLimit that names it; so do all that write.
  explicit RunTimes(std::string path) : path_(std::move(path)), file_(path_) {}

  /// The times of one attempt at a chunk, in which inferences were executed in the order of
  /// `indices`, as far as they are wanted.
  void Append(const ExecutionTimes& times, const std::vector<uint64_t>& indices, uint64_t chunk,
              uint64_t attempt, const std::function<bool(uint64_t index)>& isWanted);

  /// The last attempt of each chunk that has a line. Reading throws a Fault of kInput.
  [[nodiscard]] std::map<uint64_t, uint64_t> Attempts() const;

  /// Which of `inferences` have a line for which `isCounted` holds.
  [[nodiscard]] std::vector<bool> Timed(
      uint64_t inferences, const std::function<bool(const TimesRecord&)>& isCounted) const;

  /// Leaves the last line of each inference that is done, and no other: what is run again is timed
  /// again.
  void KeepLastOf(const std::vector<bool>& isDone);

 private:
  void ForEach(
      const std::function<void(const TimesRecord& record, std::string_view line)>& take) const;

  std::string path_;
  LineFile file_;
};

}  // namespace vorn::kit

#endif  // VORN_KIT_LAUNCH_RUN_TIMES_H_
