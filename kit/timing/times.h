// Times of executions, wherever they were noted: a run directory, a trace, a list of numbers.
#ifndef VORN_KIT_TIMING_TIMES_H_
#define VORN_KIT_TIMING_TIMES_H_

#include <string>
#include <string_view>
#include <vector>

#include "kit/run/run_directory.h"
#include "kit/trace/trace_file.h"

namespace vorn::kit {

/// One series, in nanoseconds and in the order in which they were measured.
struct Times {
  std::string name;             ///< as a person knows it: a path, or A and B of one run
  std::vector<double> firstNs;  ///< first executions of a process, which warm things up
  std::vector<double> timesNs;  ///< all others
  size_t failed = 0;            ///< executions that failed, and have no time that counts
  bool isUnfinished = false;    ///< of a run that goes on, or was killed
  size_t repeated = 0;          ///< lines of a run that a later one of the same inference replaces
};

/// What one source holds. Two series are those of a run that took turns.
struct MeasuredTimes {
  std::string kind;  ///< "run", "trace" or "list"
  std::vector<Times> series;
  bool isPaired = false;  ///< value i of one series was measured next to value i of the other
};

/// How the numbers of a list are to be read.
struct ListFormat {
  double unitNs = 1;
  std::string column;  ///< of a table with a title line, or key of objects; empty: the only one
};

/// The executions of a trace that succeeded.
[[nodiscard]] MeasuredTimes TimesOfTrace(const TraceFile& file);

/// The lines of times.jsonl. Where they name A or B these two series, be one of them empty; else
/// all is one. They are paired where most of the same inferences began at most two chunks apart. Of
/// several lines of an inference the latest attempt counts, and of one attempt the last line.
[[nodiscard]] MeasuredTimes TimesOfRun(const std::vector<TimesRecord>& records);

/// Numbers in any of these forms: one a line, with commas or blanks between them, `#` before a
/// remark; a table with commas and a title line, its cells in quotes or not; a JSON array of
/// numbers or of objects; an object with such an array. Throws a Fault of kInput that names the
/// line, also of a comma that may be a decimal sign or divide thousands.
[[nodiscard]] MeasuredTimes TimesOfList(std::string_view text, const ListFormat& format);

/// The source at a path: a folder is a run, and so is its times.jsonl; a file that begins as a
/// trace is one, and any other a list. The path becomes its name. Throws a Fault of kInput.
[[nodiscard]] MeasuredTimes ReadMeasuredTimes(const std::string& path, const ListFormat& format);

}  // namespace vorn::kit

#endif  // VORN_KIT_TIMING_TIMES_H_
