#include "kit/ledger/sqlite.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "kit/common/fault.h"
#include "support/files.h"

namespace vorn::kit {
namespace {

using testing::HasSubstr;

ExitStatus StatusOfFault(const std::function<void()>& action, std::string* message) {
  try {
    action();
  } catch (const Fault& fault) {
    *message = fault.what();
    return fault.Status();
  }
  *message = "no fault";
  return ExitStatus::kDone;
}

TEST(Database, KeepsTextsNumbersAndBytes) {
  Database database;
  database.Run("CREATE TABLE t(a TEXT, b INTEGER, c REAL, d BLOB, e TEXT) STRICT");
  Statement put(database, "INSERT INTO t VALUES(?, ?, ?, ?, ?)");
  const std::string text("a\0b\xff", 4);
  put.Bind(1, std::string_view(text)).Bind(2, int64_t{-7}).Bind(3, 0.5).BindBytes(4, text);
  put.BindNull(5).Run();
  Statement get(database, "SELECT * FROM t");
  ASSERT_TRUE(get.Step());
  EXPECT_EQ(get.Text(0), text);
  EXPECT_EQ(get.Integer(1), -7);
  EXPECT_EQ(get.Number(2), 0.5);
  EXPECT_EQ(get.Bytes(3), text);
  EXPECT_TRUE(get.IsNull(4));
  EXPECT_FALSE(get.Step());
}

TEST(Database, KeepsEmptyTextsAndBytesApartFromNothing) {
  Database database;
  database.Run("CREATE TABLE t(a TEXT NOT NULL, b BLOB NOT NULL) STRICT");
  Statement put(database, "INSERT INTO t VALUES(?, ?)");
  put.Bind(1, std::string_view()).BindBytes(2, std::string_view()).Run();
  Statement get(database, "SELECT * FROM t");
  ASSERT_TRUE(get.Step());
  EXPECT_EQ(get.Text(0) + get.Bytes(1), "");
}

TEST(Database, RefusesAnotherKindOfValueThanIsAskedFor) {
  Database database;
  database.Run("CREATE TABLE t(a INTEGER) STRICT; INSERT INTO t VALUES(1)");
  Statement get(database, "SELECT a FROM t");
  ASSERT_TRUE(get.Step());
  std::string message;
  EXPECT_EQ(StatusOfFault([&] { (void)get.Text(0); }, &message), ExitStatus::kInput);
  EXPECT_THAT(message, HasSubstr("the column 'a' holds another kind of value"));
}

TEST(Database, SaysWhatIsNoDatabase) {
  const support::TempDir folder;
  const std::string path = folder.Path() / "file";
  support::WriteFile(path, std::string(4096, 'x'));
  std::string message;
  const auto open = [&] {
    const Database database(path, DatabaseUse::kRead);
    (void)database.Integer("PRAGMA user_version");
  };
  EXPECT_EQ(StatusOfFault(open, &message), ExitStatus::kInput);
  EXPECT_THAT(message, HasSubstr("is no database"));
  const auto missing = [&] { const Database none(path + "s", DatabaseUse::kRead); };
  EXPECT_EQ(StatusOfFault(missing, &message), ExitStatus::kLimit);
  EXPECT_THAT(message, HasSubstr("cannot be opened: No such file or directory"));
}

// What a process leaves that is killed while it commits: the file has changed, and beside it lies a
// journal of what it was.
TEST(Database, TakesBackWhatWasNotCommittedAlsoForReading) {
  const support::TempDir folder;
  const std::string path = folder.Path() / "file";
  Database(path, DatabaseUse::kMake).Run("CREATE TABLE t(a TEXT); INSERT INTO t VALUES('before')");
  std::string changed;
  std::string journal;
  {
    Database database(path, DatabaseUse::kWrite);
    // Pages go to the file before the commit.
    database.Run("PRAGMA cache_size = 1; PRAGMA cache_spill = 1; BEGIN");
    for (int i = 0; i < 50; ++i) database.Run("INSERT INTO t VALUES(hex(randomblob(2000)))");
    changed = support::ReadFile(path);
    journal = support::ReadFile(path + "-journal");
  }
  support::WriteFile(path, changed);
  support::WriteFile(path + "-journal", journal);
  ASSERT_GT(changed.size(), 20000U);
  const Database database(path, DatabaseUse::kRead);
  EXPECT_EQ(database.Integer("SELECT count(*) FROM t"), 1);
}

TEST(Database, WritesNothingWhereItIsToRead) {
  const support::TempDir folder;
  const std::string path = folder.Path() / "file";
  Database(path, DatabaseUse::kMake).Run("CREATE TABLE t(a TEXT)");
  Database database(path, DatabaseUse::kRead);
  std::string message;
  EXPECT_EQ(StatusOfFault([&] { database.Run("INSERT INTO t VALUES('x')"); }, &message),
            ExitStatus::kLimit);
  EXPECT_THAT(message, HasSubstr("may only be read"));
}

TEST(Transaction, LeavesNothingWithoutCommit) {
  Database database;
  database.Run("CREATE TABLE t(a INTEGER) STRICT");
  {
    const Transaction transaction(database);
    database.Run("INSERT INTO t VALUES(1)");
  }
  EXPECT_EQ(database.Integer("SELECT count(*) FROM t"), 0);
  Transaction transaction(database);
  database.Run("INSERT INTO t VALUES(1)");
  transaction.Commit();
  EXPECT_EQ(database.Integer("SELECT count(*) FROM t"), 1);
}

}  // namespace
}  // namespace vorn::kit
