// Whether the files of a database are still those that were opened.
//
// Whoever deletes, moves, replaces or truncates a file takes it away from the
// programs that have it open: they go on writing to what no path leads to, and
// no call fails. A commit therefore looks at the files before and after it.

#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include <kes/Failure.h>

struct sqlite3;
struct sqlite3_file;

namespace Kes::sql {

class SqliteFile {
public:
    /// `itsDatabase` is open, and has read something if `keepsLog` tells that
    /// its journal mode is wal.
    SqliteFile(sqlite3* itsDatabase, bool keepsLog);

    /// Call it in a write transaction, and again after its commit. Throw
    /// SqlFailure when what was, or is to be, written is lost.
    void checkBefore();
    void checkAfter();

private:
    void checkPlace(FailureKind kind) const;
    void checkSize();
    void checkLog() const;
    [[nodiscard]] bool isWhole(std::int64_t size) const;
    [[noreturn]] static void fail(const std::string& what, FailureKind kind);

    sqlite3* database;
    std::string path;  // absolute; empty where there is no file

    // Paths already, for nothing may need memory once the commit stands. Both are
    // empty in the other journal modes.
    std::filesystem::path log;
    std::filesystem::path index;
    std::int64_t known = 0;  // bytes that the file had
};

}  // namespace Kes::sql
