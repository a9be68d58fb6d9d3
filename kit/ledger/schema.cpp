#include "kit/ledger/schema.h"

#include <sys/stat.h>

#include <array>

#include "kit/common/fault.h"
#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

// "vorn", as `file` shows it.
constexpr int64_t kApplication = 0x766f726e;

// What was released is never changed: a file that was made with it is compared with it.
constexpr std::array<const char*, kSchemaVersion> kMigrations{
    R"(CREATE TABLE runs(
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  identity TEXT NOT NULL UNIQUE,
  content TEXT NOT NULL,
  path TEXT NOT NULL,
  side TEXT NOT NULL,
  board TEXT NOT NULL,
  model TEXT NOT NULL,
  modelXxh3 TEXT NOT NULL,
  configuration TEXT NOT NULL,
  configurationXxh3 TEXT NOT NULL,
  list TEXT NOT NULL,
  listXxh3 TEXT NOT NULL,
  options TEXT NOT NULL,
  runtime TEXT NOT NULL,
  runtimeXxh3 TEXT NOT NULL,
  mapped TEXT NOT NULL,
  program TEXT NOT NULL,
  programXxh3 TEXT NOT NULL,
  tool TEXT NOT NULL,
  fleet TEXT NOT NULL,
  kernel TEXT NOT NULL,
  processor TEXT NOT NULL,
  cores INTEGER,
  governor TEXT NOT NULL,
  container TEXT NOT NULL,
  loadAverage REAL,
  frequencyKhz INTEGER,
  temperatureMilliC INTEGER,
  state TEXT NOT NULL,
  status INTEGER,
  signal TEXT NOT NULL,
  startRealtimeNs INTEGER NOT NULL,
  endRealtimeNs INTEGER,
  inferences INTEGER NOT NULL,
  done INTEGER NOT NULL,
  failed INTEGER NOT NULL,
  aside INTEGER NOT NULL,
  missing INTEGER NOT NULL,
  executions INTEGER NOT NULL,
  firstNs REAL,
  medianNs REAL,
  madNs REAL,
  verdict TEXT NOT NULL,
  addedRealtimeNs INTEGER NOT NULL
) STRICT;
CREATE INDEX runsByStart ON runs(startRealtimeNs, id);
CREATE TABLE metrics(
  run INTEGER NOT NULL REFERENCES runs(id) ON DELETE CASCADE,
  output TEXT NOT NULL,
  metric TEXT NOT NULL,
  value REAL NOT NULL,
  expected REAL,
  PRIMARY KEY(run, output, metric)
) STRICT, WITHOUT ROWID;
CREATE TABLE times(
  run INTEGER PRIMARY KEY REFERENCES runs(id) ON DELETE CASCADE,
  first BLOB NOT NULL,
  later BLOB NOT NULL,
  leftOut INTEGER NOT NULL
) STRICT;
)",
    R"(CREATE TABLE levels(
  run INTEGER PRIMARY KEY REFERENCES runs(id) ON DELETE CASCADE,
  reason TEXT NOT NULL,
  setRealtimeNs INTEGER NOT NULL
) STRICT;
)"};

void Migrate(Database& database, int64_t from, int64_t to) {
  for (int64_t version = from; version < to; ++version) database.Run(MigrationFrom(version));
}

// All tables and indices with the texts that made them. What ANALYZE leaves is the library's own.
std::string LayoutOf(const Database& database) {
  Statement statement(database,
                      "SELECT type || ' ' || name || ' ' || coalesce(sql, '') FROM sqlite_schema "
                      "WHERE name NOT LIKE 'sqlite!_stat%' ESCAPE '!' ORDER BY type, name");
  std::string layout;
  while (statement.Step()) layout += statement.Text(0) + "\n";
  return layout;
}

void HoldToLayout(const Database& database, int64_t version) {
  Database reference;
  Migrate(reference, 0, version);
  if (LayoutOf(database) == LayoutOf(reference)) return;
  database.RefuseDamaged("its tables are not those of version " + std::to_string(version));
}

// What is cut off may be of a table that nobody asks for today. In a transaction, so that nobody
// makes it smaller meanwhile.
void HoldToSize(const Database& database) {
  const int64_t whole =
      database.Integer("PRAGMA page_count") * database.Integer("PRAGMA page_size");
  struct stat about {};
  const bool isKnown = stat(database.Path().c_str(), &about) == 0;
  if (!isKnown || about.st_size >= whole) return;
  database.RefuseDamaged("it has " + std::to_string(about.st_size) + " bytes of " +
                         std::to_string(whole));
}

int64_t VersionOf(const Database& database) {
  const int64_t application = database.Integer("PRAGMA application_id");
  const int64_t version = database.Integer("PRAGMA user_version");
  const bool isEmpty = database.Integer("SELECT count(*) FROM sqlite_schema") == 0;
  if (application == 0 && version == 0 && isEmpty) return 0;
  const std::string name = "the history " + Quoted(database.Path());
  if (application != kApplication) {
    throw Fault(ExitStatus::kInput,
                name + " is a database of another program; name the right file with --db");
  }
  if (version > kSchemaVersion) {
    throw Fault(ExitStatus::kInput, name + " is of version " + std::to_string(version) +
                                        ", and this program knows up to " +
                                        std::to_string(kSchemaVersion) + "; take a newer one");
  }
  if (version < 1) database.RefuseDamaged("it is of version " + std::to_string(version));
  HoldToLayout(database, version);
  return version;
}

}  // namespace

std::string MigrationFrom(int64_t from) {
  return std::string(kMigrations.at(static_cast<size_t>(from))) +
         "PRAGMA application_id = " + std::to_string(kApplication) +
         ";\nPRAGMA user_version = " + std::to_string(from + 1) + ";\n";
}

bool IsUpToDate(Database& database) {
  // Of one moment: another process may be making the tables.
  database.Run("BEGIN");
  HoldToSize(database);
  const int64_t version = VersionOf(database);
  database.Run("COMMIT");
  return version == kSchemaVersion;
}

void BringUpToDate(Database& database) {
  if (IsUpToDate(database)) return;
  Transaction transaction(database);
  // Another process may have been first.
  Migrate(database, VersionOf(database), kSchemaVersion);
  transaction.Commit();
}

}  // namespace vorn::kit
