// SQLite as the ledger uses it: a database and its statements, each with one owner, and faults
// instead of result codes. One source knows the library.
#ifndef VORN_KIT_LEDGER_SQLITE_H_
#define VORN_KIT_LEDGER_SQLITE_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace vorn::kit {

class Database;

/// A prepared statement. Places of values count from 1, columns from 0. Lives no longer than its
/// database. All of it throws a Fault as Database does.
class Statement {
 public:
  Statement(const Database& database, std::string_view sql);

  Statement& Bind(int place, std::string_view text);
  Statement& BindBytes(int place, std::string_view bytes);
  Statement& Bind(int place, int64_t number);
  Statement& Bind(int place, double number);
  Statement& BindNull(int place);

  /// Goes to the next row; false behind the last one, where the statement can be used anew and
  /// keeps its values.
  [[nodiscard]] bool Step();

  /// For one that has no rows.
  void Run();

  /// Back to before the first row.
  void Reset();

  /// Of the present row. Another kind of value than what is asked for is a damaged database.
  [[nodiscard]] bool IsNull(int column) const;
  [[nodiscard]] std::string Text(int column) const;
  [[nodiscard]] std::string Bytes(int column) const;
  [[nodiscard]] int64_t Integer(int column) const;
  [[nodiscard]] double Number(int column) const;

 private:
  void Check(int result) const;
  void HoldToKind(int column, int kind) const;

  struct Finalize {
    void operator()(sqlite3_stmt* statement) const;
  };
  const Database& database_;
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

enum class DatabaseUse {
  kRead,   ///< the file has to be there, and what it holds stays as it is
  kWrite,  ///< the file has to be there
  kMake,   ///< the file is made where there is none
};

/// A connection. A process that holds the file is waited for, ten seconds; then, and for whatever
/// else the library refuses, a Fault that names the file and says what to do: of kInput where it is
/// no database or damaged, else of kLimit.
class Database {
 public:
  Database(std::string path, DatabaseUse use);
  /// In memory, for nobody else.
  Database();

  [[nodiscard]] const std::string& Path() const { return path_; }

  /// One statement or several, whose rows nobody asks for.
  void Run(const std::string& sql);

  /// The first column of the first row: a number.
  [[nodiscard]] int64_t Integer(std::string_view sql) const;

  [[nodiscard]] int64_t LastRowId() const;
  [[nodiscard]] int64_t Changes() const;  ///< rows that the last statement changed

  [[noreturn]] void Refuse(int result) const;
  /// Of a file that is a database and holds what none of ours does.
  [[noreturn]] void RefuseDamaged(const std::string& what) const;

 private:
  friend class Statement;
  struct Close {
    void operator()(sqlite3* database) const;
  };
  std::string path_;
  std::unique_ptr<sqlite3, Close> database_;
};

/// From here to Commit all or nothing; without it, nothing. Takes the right to write at once, so
/// that what is read within it stays true.
class Transaction {
 public:
  explicit Transaction(Database& database);
  ~Transaction();
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  void Commit();

 private:
  Database& database_;
  bool isOpen_ = true;
};

}  // namespace vorn::kit

#endif  // VORN_KIT_LEDGER_SQLITE_H_
