#include "kit/ledger/sqlite.h"

#include <sqlite3.h>

#include <algorithm>
#include <memory>
#include <new>

#include "kit/common/fault.h"
#include "kit/common/printable.h"

namespace vorn::kit {
namespace {

constexpr int kMostWaitMs = 10000;

// Longer texts than any run makes; what is damaged does not have the library take all memory.
constexpr int kMostTextBytes = 64 << 20;

// Whether the library asked for more than there is. Of tables that are damaged in some ways it says
// the same.
bool IsMemoryShort() {
  constexpr sqlite3_int64 kPlenty = 64 << 20;
  sqlite3_int64 now = 0;
  sqlite3_int64 most = 0;  // that it asked for at once
  (void)sqlite3_status64(SQLITE_STATUS_MALLOC_SIZE, &now, &most, 0);
  const auto bytes = static_cast<size_t>(std::max(kPlenty, 2 * most));
  const std::unique_ptr<char[]> probe(new (std::nothrow) char[bytes]);
  return probe == nullptr;
}

}  // namespace

// ---- Statement ----------------------------------------------------------------------------------

void Statement::Finalize::operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }

Statement::Statement(const Database& database, std::string_view sql) : database_(database) {
  sqlite3_stmt* statement = nullptr;
  Check(sqlite3_prepare_v2(database.database_.get(), sql.data(), static_cast<int>(sql.size()),
                           &statement, nullptr));
  statement_.reset(statement);
}

void Statement::Check(int result) const {
  if (result != SQLITE_OK) database_.Refuse(result);
}

Statement& Statement::Bind(int place, std::string_view text) {
  Check(sqlite3_bind_text64(statement_.get(), place, text.data() == nullptr ? "" : text.data(),
                            text.size(), SQLITE_TRANSIENT, SQLITE_UTF8));
  return *this;
}

Statement& Statement::BindBytes(int place, std::string_view bytes) {
  // Without an address the library would take them for null.
  Check(sqlite3_bind_blob64(statement_.get(), place, bytes.empty() ? "" : bytes.data(),
                            bytes.size(), SQLITE_TRANSIENT));
  return *this;
}

Statement& Statement::Bind(int place, int64_t number) {
  Check(sqlite3_bind_int64(statement_.get(), place, number));
  return *this;
}

Statement& Statement::Bind(int place, double number) {
  Check(sqlite3_bind_double(statement_.get(), place, number));
  return *this;
}

Statement& Statement::BindNull(int place) {
  Check(sqlite3_bind_null(statement_.get(), place));
  return *this;
}

bool Statement::Step() {
  const int result = sqlite3_step(statement_.get());
  if (result == SQLITE_ROW) return true;
  if (result != SQLITE_DONE) database_.Refuse(result);
  Reset();
  return false;
}

void Statement::Run() {
  while (Step()) {
  }
}

// What the last step failed with is told again here, and was told before.
void Statement::Reset() { (void)sqlite3_reset(statement_.get()); }

bool Statement::IsNull(int column) const {
  return sqlite3_column_type(statement_.get(), column) == SQLITE_NULL;
}

void Statement::HoldToKind(int column, int kind) const {
  if (sqlite3_column_type(statement_.get(), column) == kind) return;
  const char* name = sqlite3_column_name(statement_.get(), column);
  database_.RefuseDamaged("the column '" + Printable(name == nullptr ? "" : name) +
                          "' holds another kind of value than it is for");
}

std::string Statement::Text(int column) const {
  HoldToKind(column, SQLITE_TEXT);
  const unsigned char* text = sqlite3_column_text(statement_.get(), column);
  if (text == nullptr) throw std::bad_alloc();
  const int size = sqlite3_column_bytes(statement_.get(), column);
  return {reinterpret_cast<const char*>(text), static_cast<size_t>(size)};
}

std::string Statement::Bytes(int column) const {
  HoldToKind(column, SQLITE_BLOB);
  const void* bytes = sqlite3_column_blob(statement_.get(), column);
  const int size = sqlite3_column_bytes(statement_.get(), column);
  return {static_cast<const char*>(bytes), bytes == nullptr ? 0 : static_cast<size_t>(size)};
}

int64_t Statement::Integer(int column) const {
  HoldToKind(column, SQLITE_INTEGER);
  return sqlite3_column_int64(statement_.get(), column);
}

double Statement::Number(int column) const {
  HoldToKind(column, SQLITE_FLOAT);
  return sqlite3_column_double(statement_.get(), column);
}

// ---- Database -----------------------------------------------------------------------------------

// It may have to be kept until a statement that a fault left open is gone.
void Database::Close::operator()(sqlite3* database) const { sqlite3_close_v2(database); }

Database::Database() : path_(":memory:") {
  sqlite3* database = nullptr;
  const int result = sqlite3_open(path_.c_str(), &database);
  database_.reset(database);
  if (result != SQLITE_OK) Refuse(result);
}

Database::Database(std::string path, DatabaseUse use) : path_(std::move(path)) {
  int flags = SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
  // To read as well: what a process left that was killed while it wrote has to be taken back first.
  // The library opens for reading what may not be written, and says so with the first write.
  flags |= SQLITE_OPEN_READWRITE;
  if (use == DatabaseUse::kMake) flags |= SQLITE_OPEN_CREATE;
  sqlite3* database = nullptr;
  const int result = sqlite3_open_v2(path_.c_str(), &database, flags, nullptr);
  database_.reset(database);
  if (result != SQLITE_OK) Refuse(result);
  if (use != DatabaseUse::kRead && sqlite3_db_readonly(database, "main") == 1) {
    Refuse(SQLITE_READONLY);
  }
  sqlite3_busy_timeout(database, kMostWaitMs);
  sqlite3_limit(database, SQLITE_LIMIT_LENGTH, kMostTextBytes);
  // A file of somebody else's may hold more than rows: none of it is run.
  sqlite3_db_config(database, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
  sqlite3_db_config(database, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
  sqlite3_db_config(database, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
  sqlite3_db_config(database, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
  sqlite3_db_config(database, SQLITE_DBCONFIG_ENABLE_FKEY, 1, nullptr);
  if (use == DatabaseUse::kRead) Run("PRAGMA query_only = 1");
}

void Database::Run(const std::string& sql) {
  const int result = sqlite3_exec(database_.get(), sql.c_str(), nullptr, nullptr, nullptr);
  if (result != SQLITE_OK) Refuse(result);
}

int64_t Database::Integer(std::string_view sql) const {
  Statement statement(*this, sql);
  if (!statement.Step()) RefuseDamaged("a number is missing");
  return statement.Integer(0);
}

int64_t Database::LastRowId() const { return sqlite3_last_insert_rowid(database_.get()); }

int64_t Database::Changes() const { return sqlite3_changes64(database_.get()); }

void Database::RefuseDamaged(const std::string& what) const {
  throw Fault(ExitStatus::kInput,
              "the history " + Quoted(path_) + " is damaged: " + what +
                  "; move it away, and make it anew of an export or of the run directories");
}

void Database::Refuse(int result) const {
  const std::string name = "the history " + Quoted(path_);
  const int error = database_ == nullptr ? 0 : sqlite3_system_errno(database_.get());
  const std::string reason = error == 0 ? sqlite3_errstr(result) : SystemReason(error);
  switch (result & 0xff) {
    case SQLITE_NOMEM:
      if (!IsMemoryShort()) RefuseDamaged("its tables cannot be read");
      throw std::bad_alloc();
    case SQLITE_NOTADB:
      throw Fault(ExitStatus::kInput,
                  name + " is no database; name the right file with --db, or move this one away");
    case SQLITE_CORRUPT:
    case SQLITE_CONSTRAINT:
    case SQLITE_MISMATCH:
    case SQLITE_TOOBIG:
    case SQLITE_ERROR:
    case SQLITE_SCHEMA:
      RefuseDamaged(database_ == nullptr ? std::string(sqlite3_errstr(result))
                                         : PrintableExcerpt(sqlite3_errmsg(database_.get())));
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      throw Fault(ExitStatus::kLimit, name + " was held by another process for 10 s; try again");
    case SQLITE_FULL:
      throw Fault(ExitStatus::kLimit,
                  name + " cannot grow, the disk is full; what was written before stays");
    case SQLITE_READONLY:
    case SQLITE_PERM:
    case SQLITE_AUTH:
      throw Fault(ExitStatus::kLimit, name + " may only be read; name another one with --db");
    case SQLITE_CANTOPEN:
      throw Fault(ExitStatus::kLimit, name + " cannot be opened: " + reason);
    case SQLITE_IOERR:
      throw Fault(ExitStatus::kLimit, name + " cannot be read or written: " + reason +
                                          "; what was written before stays");
    default:
      throw std::logic_error("SQLite: " + std::string(sqlite3_errstr(result)));
  }
}

// ---- Transaction --------------------------------------------------------------------------------

Transaction::Transaction(Database& database) : database_(database) {
  database_.Run("BEGIN IMMEDIATE");
}

Transaction::~Transaction() {
  if (!isOpen_) return;
  try {
    database_.Run("ROLLBACK");
  } catch (const std::exception&) {
    // The library has done it by itself where it could not go on.
  }
}

void Transaction::Commit() {
  database_.Run("COMMIT");
  isOpen_ = false;
}

}  // namespace vorn::kit
