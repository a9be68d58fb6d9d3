// How the ledger's file is laid out, in each version that there was.
//
//     runs      a row a run
//     metrics   a row a figure of a run's verdict
//     times     the executions of a run, packed, apart: most questions do without them
//     levels    since version 2: where a person said that a new level begins, and why
//
// The version stands in the file as SQLite's user_version, whose file it is as application_id.
#ifndef VORN_KIT_LEDGER_SCHEMA_H_
#define VORN_KIT_LEDGER_SCHEMA_H_

#include <cstdint>
#include <string>

#include "kit/ledger/sqlite.h"

namespace vorn::kit {

inline constexpr int64_t kSchemaVersion = 2;

/// What brings a file of version `from` to the next one; of 0, which is an empty file, to 1.
[[nodiscard]] std::string MigrationFrom(int64_t from);

/// Whether the file is laid out as this version has it. Throws a Fault of kInput where it is a
/// database of another program, of a later version of this one, laid out otherwise than its
/// version says, or cut short. An empty file is of version 0.
[[nodiscard]] bool IsUpToDate(Database& database);

/// Brings the file to this version, all of it or nothing. Does nothing where it is.
void BringUpToDate(Database& database);

}  // namespace vorn::kit

#endif  // VORN_KIT_LEDGER_SCHEMA_H_
