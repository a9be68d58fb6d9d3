#include "kit/ledger/ledger.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "kit/common/fault.h"
#include "kit/common/file_place.h"
#include "kit/common/printable.h"
#include "kit/ledger/ledger_place.h"
#include "kit/ledger/schema.h"

namespace vorn::kit {
namespace {

// ---- A run's columns ----------------------------------------------------------------------------

// What a row of a table shows.
constexpr std::array<std::string_view, 14> kTableColumns{
    "path",  "side",   "board",   "model",           "configuration", "list", "options",
    "state", "signal", "verdict", "startRealtimeNs", "inferences",    "done", "medianNs"};

bool IsOf(RunDetail detail, std::string_view column) {
  return detail == RunDetail::kAll ||
         std::find(kTableColumns.begin(), kTableColumns.end(), column) != kTableColumns.end();
}

// "id, identity, content, ..., reason, setRealtimeNs": what RowReader reads.
std::string SelectRuns(const std::string& condition, RunDetail detail = RunDetail::kAll) {
  std::string columns = "runs.id";
  RunEntry run;
  VisitColumns(run, [&](const char* name, const auto&) {
    if (IsOf(detail, name)) columns += std::string(", runs.") + name;
  });
  return "SELECT " + columns +
         ", levels.reason, levels.setRealtimeNs FROM runs "
         "LEFT JOIN levels ON levels.run = runs.id " +
         condition;
}

uint64_t Unsigned(const Statement& row, int column) {
  // A hostile file's may be below 0; no run's is.
  return static_cast<uint64_t>(std::max<int64_t>(row.Integer(column), 0));
}

void Take(const Statement& row, int column, std::string& member) { member = row.Text(column); }
void Take(const Statement& row, int column, uint64_t& member) { member = Unsigned(row, column); }
void Take(const Statement& row, int column, std::optional<uint64_t>& member) {
  if (!row.IsNull(column)) member = Unsigned(row, column);
}
void Take(const Statement& row, int column, std::optional<int64_t>& member) {
  if (!row.IsNull(column)) member = row.Integer(column);
}
void Take(const Statement& row, int column, std::optional<double>& member) {
  if (!row.IsNull(column)) member = row.Number(column);
}

// Rows as SelectRuns asks for them.
class RowReader {
 public:
  explicit RowReader(RunDetail detail) {
    RunEntry run;
    VisitColumns(run,
                 [&](const char* name, const auto&) { isRead_.push_back(IsOf(detail, name)); });
  }

  RunEntry Read(const Statement& row) const {
    RunEntry run;
    int column = 0;
    run.id = row.Integer(column++);
    size_t member = 0;
    VisitColumns(run, [&](const char*, auto& value) {
      if (isRead_[member++]) Take(row, column++, value);
    });
    if (!row.IsNull(column)) {
      run.level = RunLevel{.reason = row.Text(column), .setRealtimeNs = Unsigned(row, column + 1)};
    }
    return run;
  }

 private:
  std::vector<bool> isRead_;  // by the order of VisitColumns
};

RunEntry EntryOfRow(const Statement& row) { return RowReader(RunDetail::kAll).Read(row); }

void Put(Statement& statement, int place, const std::string& member) {
  statement.Bind(place, std::string_view(member));
}
// What cannot be kept is no number of a run: the largest of the two kinds stand 292 years apart.
void Put(Statement& statement, int place, uint64_t member) {
  if (!std::in_range<int64_t>(member)) {
    throw Fault(ExitStatus::kInput, "the run tells a number of " + std::to_string(member) +
                                        ", which no clock or counter reaches; it is damaged");
  }
  statement.Bind(place, static_cast<int64_t>(member));
}
void Put(Statement& statement, int place, const std::optional<uint64_t>& member) {
  if (member) {
    Put(statement, place, *member);
  } else {
    statement.BindNull(place);
  }
}
void Put(Statement& statement, int place, const std::optional<int64_t>& member) {
  if (member) {
    statement.Bind(place, *member);
  } else {
    statement.BindNull(place);
  }
}
void Put(Statement& statement, int place, const std::optional<double>& member) {
  if (member && std::isfinite(*member)) {
    statement.Bind(place, *member);
  } else {
    statement.BindNull(place);
  }
}

std::string SqlOfInsert() {
  std::string names;
  std::string places;
  RunEntry run;
  VisitColumns(run, [&](const char* name, const auto&) {
    names += (names.empty() ? "" : ", ") + std::string(name);
    places += places.empty() ? "?" : ", ?";
  });
  return "INSERT INTO runs(" + names + ") VALUES(" + places + ")";
}

std::string SqlOfUpdate() {
  std::string settings;
  RunEntry run;
  VisitColumns(run, [&](const char* name, const auto&) {
    settings += (settings.empty() ? "" : ", ") + std::string(name) + " = ?";
  });
  return "UPDATE runs SET " + settings + " WHERE id = ?";
}

int PutColumns(Statement& statement, const RunEntry& run) {
  int place = 0;
  VisitColumns(run, [&](const char*, const auto& member) { Put(statement, ++place, member); });
  return place;
}

// How far a run had come, to tell a copy of its middle from its end.
auto ProgressOf(const RunEntry& run) {
  return std::make_tuple(run.state == "done", run.endRealtimeNs.value_or(0), run.done,
                         run.executions, !run.verdict.empty());
}

constexpr const char* kByStart = " ORDER BY runs.startRealtimeNs, runs.id";
constexpr const char* kWithinSpan = " WHERE runs.startRealtimeNs >= ? AND runs.startRealtimeNs < ?";

void BindSpan(Statement& statement, const StartSpan& span) {
  constexpr uint64_t kMost = std::numeric_limits<int64_t>::max();
  statement.Bind(1, static_cast<int64_t>(std::min(span.sinceNs, kMost)));
  statement.Bind(2, static_cast<int64_t>(std::min(span.beforeNs, kMost)));
}

RunMetric MetricOfRow(const Statement& row, int column) {
  RunMetric metric;
  metric.output = row.Text(column);
  metric.metric = row.Text(column + 1);
  metric.value = row.Number(column + 2);
  if (!row.IsNull(column + 3)) metric.expected = row.Number(column + 3);
  return metric;
}

// Figures of a run that went wrong say nothing.
bool IsDone(RunOutcome outcome) {
  return outcome != RunOutcome::kFailed && outcome != RunOutcome::kUnfinished;
}

std::unique_ptr<Database> OpenDatabase(const std::string& path, DatabaseUse use) {
  HoldToLocalFile(path);
  return std::make_unique<Database>(path, use);
}

[[noreturn]] void RefuseMissing(const std::string& path) {
  throw Fault(ExitStatus::kInput, "there is no history at " + Quoted(path) +
                                      "; vorn history add RUN... makes it, --db names another one");
}

}  // namespace

RunOutcome OutcomeOf(std::string_view state, std::string_view verdict) {
  if (state == "failed") return RunOutcome::kFailed;
  if (state != "done") return RunOutcome::kUnfinished;
  if (verdict == "right") return RunOutcome::kRight;
  return verdict == "wrong" ? RunOutcome::kWrong : RunOutcome::kNotJudged;
}

// ---- Writing ------------------------------------------------------------------------------------

// The statements of an addition, prepared once.
class Ledger::Writer {
 public:
  explicit Writer(Database& database)
      : database_(database),
        find_(database, "SELECT id, content, path, board FROM runs WHERE identity = ?"),
        get_(database, SelectRuns("WHERE runs.id = ?")),
        insert_(database, SqlOfInsert()),
        update_(database, SqlOfUpdate()),
        move_(database, "UPDATE runs SET path = ? WHERE id = ?"),
        forgetMetrics_(database, "DELETE FROM metrics WHERE run = ?"),
        putMetric_(database,
                   "INSERT OR REPLACE INTO metrics(run, output, metric, value, expected) "
                   "VALUES(?, ?, ?, ?, ?)"),
        putTimes_(database,
                  "INSERT OR REPLACE INTO times(run, first, later, leftOut) VALUES(?, ?, ?, ?)"),
        putLevel_(database,
                  "INSERT OR IGNORE INTO levels(run, reason, setRealtimeNs) VALUES(?, ?, ?)") {}

  Addition Add(RunEntry& run, BoardOf board) {
    find_.Bind(1, std::string_view(run.identity));
    if (!find_.Step()) {
      PutColumns(insert_, run);
      insert_.Run();
      run.id = database_.LastRowId();
      PutRest(run);
      return Addition::kAdded;
    }
    run.id = find_.Integer(0);
    if (board == BoardOf::kLedger) run.board = find_.Text(3);
    const bool isSame = find_.Text(1) == run.content && find_.Text(3) == run.board;
    const std::string before = find_.Text(2);
    find_.Reset();
    if (isSame) {
      KeepPlace(run, before);
      return PutLevel(run) ? Addition::kUpdated : Addition::kKnown;
    }
    if (ProgressOf(run) < ProgressOf(Present(run.id))) {
      (void)PutLevel(run);
      return Addition::kOlder;
    }
    const int places = PutColumns(update_, run);
    update_.Bind(places + 1, run.id).Run();
    forgetMetrics_.Bind(1, run.id).Run();
    PutRest(run);
    return Addition::kUpdated;
  }

 private:
  RunEntry Present(int64_t id) {
    get_.Bind(1, id);
    if (!get_.Step()) database_.RefuseDamaged("a run is gone");
    RunEntry present = EntryOfRow(get_);
    get_.Reset();
    return present;
  }

  // A run that was moved is found where it is now; a copy is not taken for it.
  void KeepPlace(const RunEntry& run, const std::string& before) {
    if (run.path == before || HoldsRun(before, run.identity)) return;
    move_.Bind(1, std::string_view(run.path)).Bind(2, run.id).Run();
  }

  void PutRest(const RunEntry& run) {
    for (const RunMetric& metric : run.metrics) {
      if (!std::isfinite(metric.value)) continue;
      putMetric_.Bind(1, run.id)
          .Bind(2, std::string_view(metric.output))
          .Bind(3, std::string_view(metric.metric))
          .Bind(4, metric.value);
      Put(putMetric_, 5, metric.expected);
      putMetric_.Run();
    }
    putTimes_.Bind(1, run.id)
        .BindBytes(2, PackTimes(run.times.firstNs))
        .BindBytes(3, PackTimes(run.times.timesNs));
    Put(putTimes_, 4, run.times.leftOut);
    putTimes_.Run();
    (void)PutLevel(run);
  }

  // What a person said in another history, unless one said it here. Returns whether it is new.
  bool PutLevel(const RunEntry& run) {
    if (!run.level) return false;
    putLevel_.Bind(1, run.id).Bind(2, std::string_view(run.level->reason));
    Put(putLevel_, 3, run.level->setRealtimeNs);
    putLevel_.Run();
    return database_.Changes() > 0;
  }

  Database& database_;
  Statement find_;
  Statement get_;
  Statement insert_;
  Statement update_;
  Statement move_;
  Statement forgetMetrics_;
  Statement putMetric_;
  Statement putTimes_;
  Statement putLevel_;
};

std::vector<Addition> Ledger::Add(std::span<RunEntry> runs, BoardOf board) {
  if (writer_ == nullptr) writer_ = std::make_unique<Writer>(*database_);
  Transaction transaction(*database_);
  std::vector<Addition> additions;
  additions.reserve(runs.size());
  for (RunEntry& run : runs) additions.push_back(writer_->Add(run, board));
  if (!isTried_) transaction.Commit();
  return additions;
}

void Ledger::SetLevel(int64_t id, const RunLevel& level) {
  Transaction transaction(*database_);
  HoldToRun(id);
  Statement put(*database_,
                "INSERT OR REPLACE INTO levels(run, reason, setRealtimeNs) VALUES(?, ?, ?)");
  put.Bind(1, id).Bind(2, std::string_view(level.reason));
  Put(put, 3, level.setRealtimeNs);
  put.Run();
  transaction.Commit();
}

bool Ledger::RemoveLevel(int64_t id) {
  Transaction transaction(*database_);
  HoldToRun(id);
  Statement remove(*database_, "DELETE FROM levels WHERE run = ?");
  remove.Bind(1, id).Run();
  const bool wasThere = database_->Changes() > 0;
  transaction.Commit();
  return wasThere;
}

void Ledger::Remove(std::span<const int64_t> ids) {
  Transaction transaction(*database_);
  Statement remove(*database_, "DELETE FROM runs WHERE id = ?");
  for (const int64_t id : ids) remove.Bind(1, id).Run();
  transaction.Commit();
}

bool Ledger::Shrink() {
  if (database_->Integer("PRAGMA freelist_count") == 0) return true;
  try {
    database_->Run("VACUUM");
  } catch (const Fault& fault) {
    if (fault.Status() != ExitStatus::kLimit) throw;
    return false;
  }
  return true;
}

// ---- Opening ------------------------------------------------------------------------------------

Ledger::Ledger(std::unique_ptr<Database> database) : database_(std::move(database)) {}
Ledger::Ledger(Ledger&&) noexcept = default;
Ledger& Ledger::operator=(Ledger&&) noexcept = default;
Ledger::~Ledger() = default;

const std::string& Ledger::Path() const { return database_->Path(); }

Ledger Ledger::ForReading(const std::string& path) {
  if (!IsThere(path)) RefuseMissing(path);
  auto database = OpenDatabase(path, DatabaseUse::kRead);
  if (!IsUpToDate(*database)) {
    // Questions are asked of the present layout alone, so an older file is brought there first.
    if (database->Integer("PRAGMA user_version") == 0) {
      throw Fault(ExitStatus::kInput, "the history " + Quoted(path) +
                                          " is empty; vorn history add RUN... puts runs there");
    }
    auto older = OpenDatabase(path, DatabaseUse::kWrite);
    BringUpToDate(*older);
    older.reset();
    database = OpenDatabase(path, DatabaseUse::kRead);
  }
  database->Run("BEGIN");
  return Ledger(std::move(database));
}

Ledger Ledger::ForWriting(const std::string& path) {
  auto database = OpenDatabase(path, DatabaseUse::kMake);
  BringUpToDate(*database);
  return Ledger(std::move(database));
}

Ledger Ledger::ForChanging(const std::string& path) {
  if (!IsThere(path)) RefuseMissing(path);
  auto database = OpenDatabase(path, DatabaseUse::kWrite);
  BringUpToDate(*database);
  return Ledger(std::move(database));
}

Ledger Ledger::ForTrying(const std::string& path) {
  Ledger ledger = ForChanging(path);
  ledger.isTried_ = true;
  return ledger;
}

// ---- Questions ----------------------------------------------------------------------------------

class Ledger::Getter {
 public:
  explicit Getter(const Database& database)
      : database_(database),
        run_(database, SelectRuns("WHERE runs.id = ?")),
        metrics_(database,
                 "SELECT output, metric, value, expected FROM metrics WHERE run = ? "
                 "ORDER BY output, metric"),
        times_(database, "SELECT first, later, leftOut FROM times WHERE run = ?") {}

  std::optional<RunEntry> Get(int64_t id) {
    run_.Bind(1, id);
    if (!run_.Step()) return std::nullopt;
    RunEntry run = EntryOfRow(run_);
    run_.Reset();
    metrics_.Bind(1, id);
    while (metrics_.Step()) run.metrics.push_back(MetricOfRow(metrics_, 0));
    FillTimes(run);
    return run;
  }

  void FillTimes(RunEntry& run) {
    times_.Bind(1, run.id);
    if (!times_.Step()) return;
    const auto first = UnpackTimes(times_.Bytes(0));
    const auto later = UnpackTimes(times_.Bytes(1));
    if (!first || !later) {
      database_.RefuseDamaged("the times of run " + std::to_string(run.id) + " cannot be read");
    }
    run.times = {.firstNs = *first, .timesNs = *later, .leftOut = Unsigned(times_, 2)};
    times_.Reset();
  }

 private:
  const Database& database_;
  Statement run_;
  Statement metrics_;
  Statement times_;
};

Ledger::Getter& Ledger::Getting() const {
  if (getter_ == nullptr) getter_ = std::make_unique<Getter>(*database_);
  return *getter_;
}

void Ledger::HoldToRun(int64_t id) const {
  Statement find(*database_, "SELECT id FROM runs WHERE id = ?");
  find.Bind(1, id);
  if (find.Step()) return;
  throw Fault(ExitStatus::kInput, "the history " + Quoted(Path()) + " has no run " +
                                      std::to_string(id) + "; vorn history list shows them");
}

RunEntry Ledger::Get(int64_t id) const {
  auto run = Getting().Get(id);
  if (!run) HoldToRun(id);
  if (!run) database_->RefuseDamaged("a run is gone");
  return *std::move(run);
}

std::optional<RunEntry> Ledger::Find(const std::string& identity) const {
  Statement find(*database_, "SELECT id FROM runs WHERE identity = ?");
  find.Bind(1, std::string_view(identity));
  if (!find.Step()) return std::nullopt;
  return Get(find.Integer(0));
}

void Ledger::ForEach(const StartSpan& span, RunDetail detail,
                     const std::function<void(RunEntry& run)>& take) const {
  Statement runs(*database_, SelectRuns(std::string(kWithinSpan) + kByStart, detail));
  BindSpan(runs, span);
  const RowReader reader(detail);
  if (detail == RunDetail::kTable) {
    while (runs.Step()) {
      RunEntry run = reader.Read(runs);
      take(run);
    }
    return;
  }
  Statement metrics(*database_,
                    "SELECT runs.id, output, metric, value, expected FROM runs "
                    "JOIN metrics ON metrics.run = runs.id" +
                        std::string(kWithinSpan) + kByStart + ", output, metric");
  BindSpan(metrics, span);
  // Both come in one order.
  bool hasMetric = metrics.Step();
  while (runs.Step()) {
    RunEntry run = reader.Read(runs);
    while (hasMetric && metrics.Integer(0) == run.id) {
      run.metrics.push_back(MetricOfRow(metrics, 1));
      hasMetric = metrics.Step();
    }
    take(run);
  }
}

std::vector<RunSeriesPoints> Ledger::Series(std::span<const KeyPart> parts,
                                            const StartSpan& span) const {
  const std::unordered_set<int64_t> levels = RunsWithLevel();
  std::string columns = "SELECT id, startRealtimeNs, state, verdict, medianNs";
  for (const KeyPart& part : parts) columns += ", " + std::string(part.column);
  Statement rows(*database_, columns + " FROM runs" + kWithinSpan + kByStart);
  constexpr int kFirstPart = 5;
  BindSpan(rows, span);
  // Runs of many series come mixed: found by a text of the whole key, in which each value has its
  // size before it.
  std::unordered_map<std::string, size_t> places;
  std::vector<RunSeriesPoints> all;
  std::string text;
  std::vector<std::string> key(parts.size());
  while (rows.Step()) {
    text.clear();
    for (size_t i = 0; i < parts.size(); ++i) {
      key[i] = rows.Text(kFirstPart + static_cast<int>(i));
      text += std::to_string(key[i].size()) + ":" + key[i];
    }
    const auto [place, isNew] = places.emplace(text, all.size());
    if (isNew) all.push_back({.key = key, .runs = {}, .metrics = {}});
    RunPoint point;
    point.id = rows.Integer(0);
    point.startRealtimeNs = Unsigned(rows, 1);
    point.outcome = OutcomeOf(rows.Text(2), rows.Text(3));
    if (IsDone(point.outcome) && !rows.IsNull(4)) point.medianNs = rows.Number(4);
    point.beginsLevel = levels.contains(point.id);
    all[place->second].runs.push_back(point);
  }
  std::sort(all.begin(), all.end(),
            [](const auto& one, const auto& other) { return one.key < other.key; });
  TakeMetrics(all);
  return all;
}

std::unordered_set<int64_t> Ledger::RunsWithLevel() const {
  std::unordered_set<int64_t> runs;
  Statement rows(*database_, "SELECT run FROM levels");
  while (rows.Step()) runs.insert(rows.Integer(0));
  return runs;
}

void Ledger::TakeMetrics(std::vector<RunSeriesPoints>& series) const {
  struct Place {
    size_t series;
    size_t run;
  };
  std::unordered_map<int64_t, Place> places;
  for (size_t i = 0; i < series.size(); ++i) {
    for (size_t run = 0; run < series[i].runs.size(); ++run) {
      if (IsDone(series[i].runs[run].outcome)) places[series[i].runs[run].id] = {i, run};
    }
  }
  using Name = std::pair<std::string, std::string>;
  std::vector<std::map<Name, std::vector<std::pair<size_t, double>>>> found(series.size());
  Statement rows(*database_, "SELECT run, output, metric, value FROM metrics");
  while (rows.Step()) {
    const auto place = places.find(rows.Integer(0));
    if (place == places.end()) continue;
    found[place->second.series][Name(rows.Text(1), rows.Text(2))].emplace_back(place->second.run,
                                                                               rows.Number(3));
  }
  for (size_t i = 0; i < series.size(); ++i) {
    for (auto& [name, points] : found[i]) {
      std::sort(points.begin(), points.end());
      MetricPoints metric{.output = name.first, .metric = name.second, .runs = {}, .values = {}};
      for (const auto& [run, value] : points) {
        metric.runs.push_back(run);
        metric.values.push_back(value);
      }
      series[i].metrics.push_back(std::move(metric));
    }
  }
}

std::optional<RunEntry> Ledger::LastBefore(
    const RunEntry& run, std::span<const KeyPart> parts,
    const std::function<bool(const RunEntry&)>& isFit) const {
  const auto own = Find(run.identity);
  if (own && own->level) return std::nullopt;
  // Of those that began at the same moment the ones that were added before: no two are each the
  // one before the other.
  std::string condition = "WHERE (runs.startRealtimeNs, runs.id) < (?, ?)";
  for (const KeyPart& part : parts) condition += " AND runs." + std::string(part.column) + " = ?";
  Statement before(*database_,
                   SelectRuns(condition + " ORDER BY runs.startRealtimeNs DESC, runs.id DESC"));
  Put(before, 1, run.startRealtimeNs);
  before.Bind(2, own ? own->id : std::numeric_limits<int64_t>::max());
  int place = 2;
  for (const std::string& value : KeyOf(run, parts)) before.Bind(++place, std::string_view(value));
  while (before.Step()) {
    RunEntry candidate = EntryOfRow(before);
    if (isFit(candidate)) {
      Getting().FillTimes(candidate);
      return candidate;
    }
    if (candidate.level) break;
  }
  return std::nullopt;
}

}  // namespace vorn::kit
