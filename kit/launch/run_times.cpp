#include "kit/launch/run_times.h"

#include <algorithm>

namespace vorn::kit {

void RunTimes::Append(const ExecutionTimes& times, const std::vector<uint64_t>& indices,
                      uint64_t chunk, uint64_t attempt,
                      const std::function<bool(uint64_t index)>& isWanted) {
  std::string lines;
  const size_t count = std::min(times.inferences.size(), indices.size());
  for (size_t i = 0; i < count; ++i) {
    if (!isWanted(indices[i])) continue;
    lines += ToLine(TimesRecord{.index = indices[i],
                                .chunk = chunk,
                                .attempt = attempt,
                                .host = times.host,
                                .startRealtimeNs = times.inferences[i].startRealtimeNs,
                                .executeNs = times.inferences[i].executeNs,
                                .series = {}});
  }
  file_.Append(lines);
}

std::map<uint64_t, uint64_t> RunTimes::Attempts() const {
  std::map<uint64_t, uint64_t> attempts;
  ForEach([&](const TimesRecord& record, std::string_view) {
    uint64_t& most = attempts[record.chunk];
    most = std::max(most, record.attempt);
  });
  return attempts;
}

std::vector<bool> RunTimes::Timed(uint64_t inferences,
                                  const std::function<bool(const TimesRecord&)>& isCounted) const {
  std::vector<bool> isTimed(inferences, false);
  ForEach([&](const TimesRecord& record, std::string_view) {
    if (record.index < isTimed.size() && isCounted(record)) isTimed[record.index] = true;
  });
  return isTimed;
}

void RunTimes::KeepLastOf(const std::vector<bool>& isDone) {
  std::vector<uint64_t> last(isDone.size(), 0);  // lines, from 1
  uint64_t lines = 0;
  ForEach([&](const TimesRecord& record, std::string_view) {
    ++lines;
    if (record.index < last.size() && isDone[record.index]) last[record.index] = lines;
  });
  const auto kept = std::count_if(last.begin(), last.end(), [](uint64_t at) { return at != 0; });
  if (static_cast<uint64_t>(kept) == lines) return;
  WholeFile file(path_);
  uint64_t number = 0;
  ForEach([&](const TimesRecord& record, std::string_view line) {
    ++number;
    if (record.index >= last.size() || last[record.index] != number) return;
    file.Append(line);
    file.Append("\n");
  });
  file.Finish();
  file_ = LineFile(path_);
}

void RunTimes::ForEach(
    const std::function<void(const TimesRecord& record, std::string_view line)>& take) const {
  ForEachLine(path_, "the times of the run", ExitStatus::kInput,
              [&](std::string_view line) { take(TimesFromLine(line), line); });
}

}  // namespace vorn::kit
