#include "kit/timing/times.h"

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <map>
#include <numeric>
#include <optional>
#include <set>
#include <tuple>
#include <utility>

#include "kit/common/fault.h"
#include "kit/common/file_identity.h"
#include "kit/common/file_place.h"
#include "kit/common/printable.h"
#include "kit/json/json.h"
#include "shared/trace/trace_format.h"

namespace vorn::kit {
namespace {

constexpr uint64_t kMostBytes = uint64_t{4} << 30;
constexpr std::string_view kRunColumn = "executeNs";
constexpr std::string_view kBlanks = " \t\r";

// What lies beyond these is no time of an execution but a slip, such as a wrong unit, and would
// make every table unreadable: a picosecond, a hundred years.
constexpr double kLeastNs = 1e-3;
constexpr double kMostNs = 100 * 365.25 * 24 * 3600 * 1e9;

[[noreturn]] void RefuseTimes(const std::string& reason) {
  throw Fault(ExitStatus::kInput, reason);
}

std::string AtLine(size_t line) { return "line " + std::to_string(line) + ": "; }

// A clock may not have moved, and a ratio needs something to divide by.
double AsTime(uint64_t nanoseconds, const std::string& where) {
  const auto time = static_cast<double>(std::max<uint64_t>(nanoseconds, 1));
  if (time <= kMostNs) return time;
  RefuseTimes(where + "an execution of " + std::to_string(nanoseconds) +
              " ns took more than a hundred years; the file is damaged");
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

// The first executions of a process stand apart, whether or not they count.
using Process = std::tuple<std::string, uint64_t, uint64_t>;

// A series of a run, and for each of its times what it stands beside in the other one.
struct RunSeries {
  Times times;
  // Of a named one alone: index, and which of its executions; each inference that counts.
  std::vector<std::pair<uint64_t, size_t>> places;
  std::map<uint64_t, uint64_t> begunNs;
};

Process ProcessOf(const TimesRecord& record) { return {record.host, record.chunk, record.attempt}; }

// A later attempt of the same chunk, or what stands further down in the file.
bool Replaces(const TimesRecord& later, const TimesRecord& former) {
  return later.chunk != former.chunk || later.attempt >= former.attempt;
}

// Which of the records of an inference counts; several of one are of a sample that was run again,
// or were written twice.
std::map<uint64_t, const TimesRecord*> ThoseThatCount(
    const std::vector<const TimesRecord*>& records) {
  std::map<uint64_t, const TimesRecord*> counting;
  for (const TimesRecord* record : records) {
    const auto [at, isNew] = counting.emplace(record->index, record);
    if (!isNew && Replaces(*record, *at->second)) at->second = record;
  }
  return counting;
}

// All of them, or those of a name.
RunSeries CollectSeries(const std::vector<TimesRecord>& records,
                        const std::optional<std::string>& name) {
  std::vector<const TimesRecord*> own;
  for (const TimesRecord& record : records) {
    if (!name || record.series == name) own.push_back(&record);
  }
  std::map<uint64_t, const TimesRecord*> counting = ThoseThatCount(own);
  // The same process cannot have run an inference twice: what it began with stays its first.
  std::map<Process, uint64_t> firstOf;
  for (const TimesRecord* record : own) {
    if (!record->executeNs.empty()) firstOf.emplace(ProcessOf(*record), record->index);
  }
  RunSeries series;
  series.times.name = name.value_or("");
  series.times.repeated = own.size() - counting.size();
  for (const TimesRecord* line : own) {
    // Each inference once, where its first line stands.
    const auto counts = counting.find(line->index);
    if (counts == counting.end()) continue;
    const TimesRecord& record = *counts->second;
    counting.erase(counts);
    const auto begun = firstOf.find(ProcessOf(record));
    // A single series stands beside nothing, and may be of millions.
    if (name) series.begunNs[record.index] = record.startRealtimeNs;
    const bool isFirst = begun != firstOf.end() && begun->second == record.index;
    for (size_t i = 0; i < record.executeNs.size(); ++i) {
      const double time =
          AsTime(record.executeNs[i], "inference " + std::to_string(record.index) + ": ");
      if (isFirst && i == 0) {
        series.times.firstNs.push_back(time);
      } else {
        series.times.timesNs.push_back(time);
        if (name) series.places.emplace_back(record.index, i);
      }
    }
  }
  return series;
}

// When each process of a series began to execute, and how long it did.
struct Span {
  uint64_t beginNs = UINT64_MAX;
  uint64_t endNs = 0;
};

std::map<Process, Span> SpansOf(const std::vector<TimesRecord>& records, std::string_view series) {
  std::map<Process, Span> spans;
  for (const TimesRecord& record : records) {
    if (record.series != series) continue;
    Span& span = spans[ProcessOf(record)];
    const uint64_t took =
        std::accumulate(record.executeNs.begin(), record.executeNs.end(), uint64_t{0});
    span.beginNs = std::min(span.beginNs, record.startRealtimeNs);
    span.endNs = std::max(span.endNs, record.startRealtimeNs + took);
  }
  return spans;
}

// How long a process of a series has its turn, with what it loads: mostly until the next one of
// either series begins. Of a single one it cannot be told when the next would have begun.
uint64_t TurnNs(const std::map<Process, Span>& own, const std::vector<uint64_t>& beginsOfAll) {
  constexpr uint64_t kLoadingNs = 60'000'000'000;
  if (own.size() == 1) {
    const Span& only = own.begin()->second;
    return only.endNs - only.beginNs + kLoadingNs;
  }
  std::vector<uint64_t> turns;
  for (const auto& [process, span] : own) {
    const auto next = std::upper_bound(beginsOfAll.begin(), beginsOfAll.end(), span.beginNs);
    if (next != beginsOfAll.end()) turns.push_back(*next - span.beginNs);
  }
  if (turns.empty()) return 0;
  const auto middle = turns.begin() + static_cast<ptrdiff_t>((turns.size() - 1) / 2);
  std::nth_element(turns.begin(), middle, turns.end());
  return *middle;
}

// Whether most of the same inferences of both began within two turns, as they do where chunk
// follows chunk. A series that was made later has met another machine: a warmer, a busier one.
bool TookTurns(const std::vector<TimesRecord>& records, const RunSeries& one,
               const RunSeries& other) {
  const auto ofOne = SpansOf(records, "A");
  const auto ofOther = SpansOf(records, "B");
  std::vector<uint64_t> begins;
  for (const auto& spans : {ofOne, ofOther}) {
    for (const auto& [process, span] : spans) begins.push_back(span.beginNs);
  }
  std::sort(begins.begin(), begins.end());
  const double near =
      2 * static_cast<double>(std::max(TurnNs(ofOne, begins), TurnNs(ofOther, begins)));
  size_t pairs = 0;
  size_t nearOnes = 0;
  for (const auto& [index, begunNs] : one.begunNs) {
    const auto found = other.begunNs.find(index);
    if (found == other.begunNs.end()) continue;
    const uint64_t apart = std::max(begunNs, found->second) - std::min(begunNs, found->second);
    ++pairs;
    nearOnes += static_cast<double>(apart) <= near ? 1 : 0;
  }
  return 2 * nearOnes > pairs;
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

// A line's cells, and whether commas divide them: then titles may hold blanks.
struct Cells {
  std::vector<std::string> texts;
  bool areDividedByCommas = false;
};

class List {
 public:
  explicit List(const ListFormat& format) : unitNs_(format.unitNs), column_(format.column) {}

  // `text` is the value as it stands in the file.
  void Add(double value, const std::string& text, const std::string& where) {
    const double time = value * unitNs_;
    if (!(value > 0)) RefuseTimes(where + "a time is above 0, and this one is " + text);
    const bool isTooLong = !(time <= kMostNs);
    if (isTooLong || time < kLeastNs) {
      RefuseTimes(where + text + (unitNs_ == 1 ? " ns is " : " of the unit is ") +
                  (isTooLong ? "more than a hundred years" : "less than a picosecond") +
                  ", which is no time of an execution; --unit says what the numbers are of");
    }
    times_.push_back(time);
  }

  void AddJson(const Json& value, const std::string& where) {
    if (value.IsArray()) {
      for (const Json& item : value.Items()) AddJson(item, where);
      return;
    }
    const std::string place = where + "value " + std::to_string(times_.size() + 1) + ": ";
    if (value.IsObject()) {
      const std::string_view key = column_.empty() ? kRunColumn : std::string_view(column_);
      const Json* times = value.Find(key);
      if (times == nullptr) {
        RefuseTimes(place + "the object has no key '" + PrintableExcerpt(key) +
                    "'; --column names the one that holds the times");
      }
      AddJson(*times, where);
    } else if (value.IsNumber()) {
      Add(value.AsNumber(), ToText(value), place);
    } else {
      RefuseTimes(place + PrintableExcerpt(ToText(value)) + " is no number");
    }
  }

  // A line of numbers, of a table, or the titles of one.
  void AddLine(size_t line, std::string_view text) {
    if (line == 1 && text.starts_with(kByteOrderMark)) text.remove_prefix(kByteOrderMark.size());
    // In a table a name may hold the sign.
    if (columns_ <= 1) text = text.substr(0, FindRemark(text));
    text = WithoutBlanks(text);
    if (text.empty() || text[0] == '#') return;
    const Cells cells = CellsOf(line, text);
    if (!isBegun_) {
      isBegun_ = true;
      if (FindColumn(line, cells.texts)) return;
    }
    if (!place_) {
      if (cells.areDividedByCommas) RefuseDoubtful(line, text);
      for (const std::string& cell : cells.texts) AddCell(line, cell);
      return;
    }
    if (cells.texts.size() > columns_) {
      RefuseTimes(AtLine(line) + "there are " + std::to_string(cells.texts.size()) +
                  " cells, and " + Counted(columns_, "title") +
                  "; a decimal sign is a full stop, and a cell with a comma stands in quotes");
    }
    if (*place_ >= cells.texts.size()) RefuseTimes(AtLine(line) + "the column is missing");
    AddCell(line, cells.texts[*place_]);
  }

  std::vector<double> Take() { return std::move(times_); }

 private:
  static constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

  // Behind the last character that is not in quotes.
  static size_t FindRemark(std::string_view text) {
    bool isQuoted = false;
    for (size_t i = 0; i < text.size(); ++i) {
      if (text[i] == '"') isQuoted = !isQuoted;
      if (text[i] == '#' && !isQuoted) return i;
    }
    return text.size();
  }

  // Takes one cell off the front, in quotes as RFC 4180 has them, up to a divider or the end.
  static std::string TakeCell(size_t line, std::string_view& rest, std::string_view dividers) {
    rest.remove_prefix(std::min(rest.find_first_not_of(kBlanks), rest.size()));
    if (!rest.starts_with('"')) {
      const std::string_view cell = rest.substr(0, rest.find_first_of(dividers));
      rest.remove_prefix(cell.size());
      return std::string(WithoutBlanks(cell));
    }
    std::string cell;
    for (size_t i = 1; i < rest.size(); ++i) {
      if (rest[i] != '"') {
        cell += rest[i];
      } else if (i + 1 < rest.size() && rest[i + 1] == '"') {
        cell += rest[i++];
      } else {
        rest.remove_prefix(i + 1);
        const size_t next = std::min(rest.find_first_of(dividers), rest.size());
        if (WithoutBlanks(rest.substr(0, next)).empty()) {
          rest.remove_prefix(next);
          return cell;
        }
        RefuseTimes(AtLine(line) + "behind the quotes of '" + PrintableExcerpt(cell) +
                    "' stands more of the cell");
      }
    }
    RefuseTimes(AtLine(line) + "a quote is not closed: " + PrintableExcerpt(rest));
  }

  static Cells CellsOf(size_t line, std::string_view rest) {
    // A comma within quotes divides as little as a blank there.
    bool isQuoted = false;
    Cells cells;
    for (const char c : rest) {
      if (c == '"') isQuoted = !isQuoted;
      if (c == ',' && !isQuoted) cells.areDividedByCommas = true;
    }
    const std::string_view dividers = cells.areDividedByCommas ? "," : kBlanks;
    while (true) {
      cells.texts.push_back(TakeCell(line, rest, dividers));
      if (!cells.areDividedByCommas) rest = WithoutBlanks(rest);
      if (rest.empty()) return cells;
      if (cells.areDividedByCommas) rest.remove_prefix(1);
    }
  }

  // 1,5 may be two times, or one of a person whose decimal sign is the comma; 1,234 and 1,234,567
  // may be thousands.
  static void RefuseDoubtful(size_t line, std::string_view text) {
    if (text.find_first_not_of("0123456789,.") != std::string_view::npos) return;
    const std::string_view whole = text.substr(0, text.find('.'));
    const bool isDecimal = whole.size() == text.size() && text.find(',') == text.rfind(',');
    bool areThousands =
        whole.find(',') <= 3 && text.find(',', whole.size()) == std::string_view::npos;
    for (size_t at = whole.find(','); at != std::string_view::npos; at = whole.find(',', at + 1)) {
      areThousands = areThousands && std::min(whole.find(',', at + 1), whole.size()) == at + 4;
    }
    if (!areThousands && !isDecimal) return;
    RefuseTimes(AtLine(line) + "'" + PrintableExcerpt(text) +
                "' may be one number or several; write a full stop as the decimal sign, nothing "
                "between thousands, and a blank behind a comma that divides");
  }

  static std::optional<double> AsNumber(std::string_view cell) {
    double value = 0;
    const auto [end, error] = std::from_chars(cell.data(), cell.data() + cell.size(), value);
    if (error != std::errc{} || end != cell.data() + cell.size()) return std::nullopt;
    return value;
  }

  void AddCell(size_t line, const std::string& cell) {
    const auto value = AsNumber(cell);
    if (!value) RefuseTimes(AtLine(line) + "'" + PrintableExcerpt(cell) + "' is no number");
    Add(*value, cell, AtLine(line));
  }

  // Whether the first line is one of titles, and so which column is meant.
  bool FindColumn(size_t line, const std::vector<std::string>& cells) {
    // What begins as a number and is none is a slip, and no title.
    const bool isTitles = cells[0].find_first_of("+-.0123456789") != 0 && !AsNumber(cells[0]);
    if (!isTitles && column_.empty()) return false;
    if (!isTitles)
      RefuseTimes(AtLine(line) + "there are no titles, and so no column '" +
                  PrintableExcerpt(column_) + "'");
    const std::string_view wanted = column_.empty() ? kRunColumn : std::string_view(column_);
    const auto found = std::find(cells.begin(), cells.end(), wanted);
    columns_ = cells.size();
    if (found != cells.end()) {
      place_ = static_cast<size_t>(found - cells.begin());
    } else if (cells.size() == 1 && column_.empty()) {
      place_ = 0;
    } else {
      std::string titles;
      for (const std::string& cell : cells) titles += (titles.empty() ? "" : ", ") + cell;
      RefuseTimes(AtLine(line) + "there is no column '" + PrintableExcerpt(wanted) +
                  "'; name one of these with --column: " + PrintableExcerpt(titles));
    }
    return true;
  }

  double unitNs_;
  std::string column_;
  bool isBegun_ = false;
  size_t columns_ = 0;           ///< that the titles name
  std::optional<size_t> place_;  ///< of the times among them
  std::vector<double> times_;
};

// The lines of a run's times.jsonl that was named itself, or nothing if it is another list.
std::optional<std::vector<TimesRecord>> RecordsIn(std::string_view text) {
  std::vector<TimesRecord> records;
  try {
    // A last line without its end is being written.
    ForEachTextLine(text.substr(0, text.rfind('\n') + 1), [&](size_t, std::string_view line) {
      if (!line.empty()) records.push_back(TimesFromLine(line));
    });
  } catch (const JsonError&) {
    return std::nullopt;
  }
  if (records.empty()) return std::nullopt;
  return records;
}

bool BeginsAsJson(std::string_view text) {
  const size_t begin = text.find_first_not_of(" \t\r\n");
  return begin != std::string_view::npos && (text[begin] == '[' || text[begin] == '{');
}

std::optional<Json> ParsedOrNot(std::string_view text, std::string& fault) {
  try {
    return ParseJson(text);
  } catch (const JsonError& error) {
    fault = error.what();
    return std::nullopt;
  }
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
    place.push_back(
        AsTime(*call.endedNs - call.beganNs, "call " + std::to_string(call.number) + ": "));
  }
  return measured;
}

MeasuredTimes TimesOfRun(const std::vector<TimesRecord>& records) {
  const bool isInTurns = std::any_of(records.begin(), records.end(), [](const auto& record) {
    return record.series == "A" || record.series == "B";
  });
  if (!isInTurns) return {.kind = "run", .series = {CollectSeries(records, std::nullopt).times}};
  RunSeries one = CollectSeries(records, "A");
  RunSeries other = CollectSeries(records, "B");
  MeasuredTimes measured;
  measured.kind = "run";
  // Beside an empty one nothing of the other would be left.
  if (!one.places.empty() && !other.places.empty()) {
    measured.isPaired = TookTurns(records, one, other);
    if (measured.isPaired) PairUp(one, other);
  }
  measured.series = {std::move(one.times), std::move(other.times)};
  return measured;
}

MeasuredTimes TimesOfList(std::string_view text, const ListFormat& format) {
  List list(format);
  if (!BeginsAsJson(text)) {
    ForEachTextLine(text,
                    [&](size_t number, std::string_view line) { list.AddLine(number, line); });
  } else if (std::string fault; const auto whole = ParsedOrNot(text, fault)) {
    list.AddJson(*whole, "");
  } else {
    // A value a line is no JSON as a whole.
    ForEachTextLine(text, [&](size_t number, std::string_view line) {
      if (line.empty()) return;
      std::string ofLine;
      const auto value = ParsedOrNot(line, ofLine);
      if (!value) RefuseTimes(number == 1 ? fault : AtLine(number) + ofLine);
      list.AddJson(*value, AtLine(number));
    });
  }
  return {.kind = "list", .series = {{.name = {}, .firstNs = {}, .timesNs = list.Take()}}};
}

namespace {

// A run.json of another hand may lack all else.
bool IsUnfinished(const std::string& run) {
  const std::string path = run + "/" + kRunFile;
  if (!IsThere(path)) return false;
  const std::string text = ReadWholeFile(path, "the run", ExitStatus::kInput, kMostBytes);
  try {
    const Json facts = ParseJson(text);
    const Json* state = facts.Find("state");
    return state != nullptr && state->AsText() == "running";
  } catch (const JsonError& error) {
    throw Fault(ExitStatus::kInput, "the run '" + Printable(path) + "': " + error.what());
  }
}

// Its times are put together when both have ended.
void RefuseTurns(const std::string& run) {
  const auto has = [&](const std::string& file) { return IsThere(run + "/" + file); };
  if (has(kTimesFile) || !has("A/" + std::string(kTimesFile))) return;
  throw Fault(ExitStatus::kInput,
              Quoted(run) +
                  " holds two runs that take turns, A and B, and has not ended: finish it with "
                  "vorn launch --interleave --resume, or name " +
                  Quoted(run + "/A") + " and " + Quoted(run + "/B"));
}

}  // namespace

MeasuredTimes ReadMeasuredTimes(const std::string& path, const ListFormat& format) {
  struct stat about {};
  MeasuredTimes measured;
  std::string run;  // whose times these are
  if (stat(path.c_str(), &about) == 0 && S_ISDIR(about.st_mode)) {
    RefuseTurns(path);
    measured = TimesOfRun(ReadTimes(path));
    run = path;
  } else {
    const std::string text = ReadWholeFile(path, "the times", ExitStatus::kInput, kMostBytes);
    const bool isTrace = text.starts_with(std::string_view(trace::kMagic, sizeof(trace::kMagic)));
    // Another column of the lines of a run is that of a list.
    const bool mayBeRun = !isTrace && (format.column.empty() || format.column == kRunColumn);
    try {
      if (const auto records = mayBeRun ? RecordsIn(text) : std::nullopt) {
        measured = TimesOfRun(*records);
        const size_t slash = path.rfind('/');
        run = slash == std::string::npos ? "." : path.substr(0, slash);
      } else {
        measured = isTrace ? TimesOfTrace(ParseTrace(text)) : TimesOfList(text, format);
      }
    } catch (const Fault& fault) {
      throw Fault(fault.Status(), "'" + Printable(path) + "': " + fault.what());
    }
  }
  for (Times& times : measured.series) {
    const bool isTurn = !times.name.empty();
    times.isUnfinished =
        !run.empty() && (IsUnfinished(run) || (isTurn && IsUnfinished(run + "/" + times.name)));
    times.name = isTurn ? path + " " + times.name : path;
  }
  return measured;
}

}  // namespace vorn::kit
