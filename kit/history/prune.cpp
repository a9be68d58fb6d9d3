#include "kit/history/prune.h"

#include <algorithm>

namespace vorn::kit {

std::vector<int64_t> RunsToPrune(std::span<const RunSeriesPoints> all,
                                 const PruneRequest& request) {
  std::vector<int64_t> ids;
  for (const RunSeriesPoints& series : all) {
    for (size_t i = 0; i < series.runs.size(); ++i) {
      const bool isLate = request.keep && series.runs.size() - i <= *request.keep;
      const bool isYoung = request.beforeNs && series.runs[i].startRealtimeNs >= *request.beforeNs;
      if (!isLate && !isYoung) ids.push_back(series.runs[i].id);
    }
  }
  std::sort(ids.begin(), ids.end());
  return ids;
}

}  // namespace vorn::kit
