#include "kit/launch/turns.h"

#include <algorithm>
#include <utility>
#include <vector>

#include "kit/common/whole_file.h"
#include "kit/run/run_directory.h"

namespace vorn::kit {

void MergeTimes(const std::string& folder) {
  std::vector<TimesRecord> merged;
  for (const char* series : kTurnFolders) {
    for (TimesRecord& record : ReadTimes(folder + "/" + series)) {
      record.series = series;
      merged.push_back(std::move(record));
    }
  }
  std::stable_sort(merged.begin(), merged.end(), [](const auto& one, const auto& other) {
    return one.startRealtimeNs < other.startRealtimeNs;
  });
  WholeFile file(folder + "/" + kTimesFile);
  for (const TimesRecord& record : merged) file.Append(ToLine(record));
  file.Finish();
}

}  // namespace vorn::kit
