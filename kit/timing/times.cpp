#include "kit/timing/times.h"

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <map>
#include <optional>
#include <set>
#include <tuple>
#include <utility>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "kit/common/printable.h"
#include "kit/json/json.h"
#include "shared/trace/trace_format.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostBytes = uint64_t{4} << 30;
constexpr std::string_view kRunColumn = "executeNs";
constexpr std::string_view kBlanks = " \t\r";

[[noreturn]] void RefuseTimes(const std::string& reason) {
  throw Fault(ExitStatus::kInput, reason);
}

std::string AtLine(size_t line) { return "line " + std::to_string(line) + ": "; }

// A clock may not have moved, and a ratio needs something to divide by.
double AsTime(uint64_t nanoseconds) {
  return static_cast<double>(std::max<uint64_t>(nanoseconds, 1));
}

std::string_view WithoutBlanks(std::string_view text) {
  const size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

template <typename Use>
void ForEachTextLine(std::string_view text, Use use) {
  for (size_t line = 1; !text.empty(); ++line) {
    const std::string_view one = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(text.size(), one.size() + 1));
    use(line, WithoutBlanks(one));
  }
}

// ---- A run
// ---------------------------------------------------------------------------------------

// A series of a run, and for each of its times what it stands beside in the other one.
struct RunSeries {
  Times times;
  std::vector<std::pair<uint64_t, size_t>> places;  // index, and which of its executions
};

// All of them, or those of a name.
RunSeries CollectSeries(const std::vector<TimesRecord>& records,
                        const std::optional<std::string>& name) {
  RunSeries series;
  series.times.name = name.value_or("");
  std::set<std::tuple<std::string, uint64_t, uint64_t>> begun;
  for (const TimesRecord& record : records) {
    if (name && record.series != name) continue;
    for (size_t i = 0; i < record.executeNs.size(); ++i) {
      const double time = AsTime(record.executeNs[i]);
      if (begun.emplace(record.host, record.chunk, record.attempt).second) {
        series.times.firstNs.push_back(time);
      } else {
        series.times.timesNs.push_back(time);
        series.places.emplace_back(record.index, i);
      }
    }
  }
  return series;
}

// Leaves of both what stands in both, in the order of places.
void PairUp(RunSeries& one, RunSeries& other) {
  std::map<std::pair<uint64_t, size_t>, double> ofOther;
  for (size_t i = 0; i < other.places.size(); ++i) {
    ofOther[other.places[i]] = other.times.timesNs[i];
  }
  std::vector<double> times;
  std::vector<double> otherTimes;
  for (size_t i = 0; i < one.places.size(); ++i) {
    const auto found = ofOther.find(one.places[i]);
    if (found == ofOther.end()) continue;
    times.push_back(one.times.timesNs[i]);
    otherTimes.push_back(found->second);
  }
  one.times.timesNs = std::move(times);
  other.times.timesNs = std::move(otherTimes);
}

// ---- A list
// --------------------------------------------------------------------------------------

class List {
 public:
  explicit List(const ListFormat& format) : unitNs_(format.unitNs), column_(format.column) {}

  void Add(double value, const std::string& where) {
    const double time = value * unitNs_;
    if (!std::isfinite(time) || time <= 0) {
      RefuseTimes(where + "a time is above 0, and this one is " + ToText(Json(value)));
    }
    times_.push_back(time);
  }

  void AddJson(const Json& value, const std::string& where) {
    if (value.IsArray()) {
      for (const Json& item : value.Items()) AddJson(item, where);
    } else if (value.IsObject()) {
      AddJson(value.At(column_.empty() ? kRunColumn : std::string_view(column_)), where);
    } else {
      Add(value.AsNumber(), where);
    }
  }

  // A line of numbers, of a table, or the titles of one.
  void AddLine(size_t line, std::string_view text) {
    text = WithoutBlanks(text.substr(0, text.find('#')));
    if (text.empty()) return;
    const std::vector<std::string_view> cells = Cells(text);
    if (!isBegun_) {
      isBegun_ = true;
      if (FindColumn(line, cells)) return;
    }
    if (place_) {
      if (*place_ >= cells.size()) RefuseTimes(AtLine(line) + "the column is missing");
      Add(Number(line, cells[*place_]), AtLine(line));
      return;
    }
    for (const std::string_view cell : cells) Add(Number(line, cell), AtLine(line));
  }

  std::vector<double> Take() { return std::move(times_); }

 private:
  // With commas in it they alone divide, so that titles may hold blanks.
  static std::vector<std::string_view> Cells(std::string_view text) {
    const bool hasCommas = text.find(',') != std::string_view::npos;
    const std::string_view dividers = hasCommas ? "," : kBlanks;
    std::vector<std::string_view> cells;
    while (true) {
      const size_t end = text.find_first_of(dividers);
      const std::string_view cell = WithoutBlanks(text.substr(0, end));
      if (hasCommas || !cell.empty()) cells.push_back(cell);
      if (end == std::string_view::npos) return cells;
      text.remove_prefix(end + 1);
    }
  }

  static std::optional<double> AsNumber(std::string_view cell) {
    double value = 0;
    const auto [end, error] = std::from_chars(cell.data(), cell.data() + cell.size(), value);
    if (error != std::errc{} || end != cell.data() + cell.size()) return std::nullopt;
    return value;
  }

  static double Number(size_t line, std::string_view cell) {
    const auto value = AsNumber(cell);
    if (!value) RefuseTimes(AtLine(line) + "'" + PrintableExcerpt(cell) + "' is no number");
    return *value;
  }

  // Whether the first line is one of titles, and so which column is meant.
  bool FindColumn(size_t line, const std::vector<std::string_view>& cells) {
    // What begins as a number and is none is a slip, and no title.
    const bool isTitles = cells[0].find_first_of("+-.0123456789") != 0 && !AsNumber(cells[0]);
    if (!isTitles && column_.empty()) return false;
    if (!isTitles)
      RefuseTimes(AtLine(line) + "there are no titles, and so no column '" +
                  PrintableExcerpt(column_) + "'");
    const std::string_view wanted = column_.empty() ? kRunColumn : std::string_view(column_);
    const auto found = std::find(cells.begin(), cells.end(), wanted);
    if (found != cells.end()) {
      place_ = static_cast<size_t>(found - cells.begin());
    } else if (cells.size() == 1 && column_.empty()) {
      place_ = 0;
    } else {
      std::string titles;
      for (const std::string_view cell : cells)
        titles += (titles.empty() ? "" : ", ") + Printable(cell);
      RefuseTimes(AtLine(line) + "there is no column '" + PrintableExcerpt(wanted) +
                  "'; name one of these with --column: " + titles);
    }
    return true;
  }

  double unitNs_;
  std::string column_;
  bool isBegun_ = false;
  std::optional<size_t> place_;
  std::vector<double> times_;
};

bool BeginsAsJson(std::string_view text) {
  const size_t begin = text.find_first_not_of(" \t\r\n");
  return begin != std::string_view::npos && (text[begin] == '[' || text[begin] == '{');
}

}  // namespace

MeasuredTimes TimesOfTrace(const TraceFile& file) {
  MeasuredTimes measured{.kind = "trace", .series = {{}}};
  Times& times = measured.series[0];
  for (const TracedCall& call : file.calls) {
    if (file.operations[call.operation] != "vorn_mdl_execute" || !call.endedNs) continue;
    if (call.results.empty() || call.results[0] != 0) {
      ++times.failed;
      continue;
    }
    std::vector<double>& place = times.firstNs.empty() ? times.firstNs : times.timesNs;
    place.push_back(AsTime(*call.endedNs - call.beganNs));
  }
  return measured;
}

MeasuredTimes TimesOfRun(const std::vector<TimesRecord>& records) {
  RunSeries one = CollectSeries(records, "A");
  RunSeries other = CollectSeries(records, "B");
  if (!one.times.firstNs.empty() && !other.times.firstNs.empty()) {
    PairUp(one, other);
    return {.kind = "run", .series = {one.times, other.times}};
  }
  return {.kind = "run", .series = {CollectSeries(records, std::nullopt).times}};
}

MeasuredTimes TimesOfList(std::string_view text, const ListFormat& format) {
  List list(format);
  const bool isJson = BeginsAsJson(text);
  try {
    if (isJson) list.AddJson(ParseJson(text), "");
  } catch (const JsonError& whole) {
    // An object a line is no JSON as a whole.
    list = List(format);
    ForEachTextLine(text, [&](size_t number, std::string_view line) {
      if (line.empty()) return;
      try {
        list.AddJson(ParseJson(line), AtLine(number));
      } catch (const JsonError& error) {
        RefuseTimes(number == 1 ? whole.what() : AtLine(number) + error.what());
      }
    });
  }
  if (!isJson) {
    ForEachTextLine(text,
                    [&](size_t number, std::string_view line) { list.AddLine(number, line); });
  }
  return {.kind = "list", .series = {{.name = {}, .firstNs = {}, .timesNs = list.Take()}}};
}

MeasuredTimes ReadMeasuredTimes(const std::string& path, const ListFormat& format) {
  struct stat about {};
  MeasuredTimes measured;
  if (stat(path.c_str(), &about) == 0 && S_ISDIR(about.st_mode)) {
    measured = TimesOfRun(ReadTimes(path));
  } else {
    const std::string text = ReadWholeFile(path, "the times", ExitStatus::kInput, kMostBytes);
    const bool isTrace = text.starts_with(std::string_view(trace::kMagic, sizeof(trace::kMagic)));
    try {
      measured = isTrace ? TimesOfTrace(ParseTrace(text)) : TimesOfList(text, format);
    } catch (const Fault& fault) {
      throw Fault(fault.Status(), "'" + Printable(path) + "': " + fault.what());
    }
  }
  for (Times& times : measured.series) {
    times.name = times.name.empty() ? path : path + " " + times.name;
  }
  return measured;
}

}  // namespace vorn::kit
