// What SQLite's error codes mean to a program and its user.

#pragma once

#include <string>

#include <kes/Failure.h>

struct sqlite3;

namespace Kes::sql {

struct SqliteSettings;

/// The words of the connection's last error, which had this code. They are such as
/// a user can act on, where SQLite's own are too short.
std::string explain(sqlite3* database, int code, const SqliteSettings& settings);

/// Waiting never helps where the snapshot is old. A lock that others hold too long
/// is no proof that they have changed what was read.
FailureKind kindOf(int code);

}  // namespace Kes::sql
