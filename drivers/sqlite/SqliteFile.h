// Whether the files of a database are still those that were opened.
//
// Whoever deletes, moves, replaces or truncates a file takes it away from the
// programs that have it open: they go on writing to what no path leads to, and
// no call fails. A commit therefore looks at the files before and after it.

#pragma once

#include <cstdint>
#include <string>

#include <kes/Failure.h>

#include "drivers/sqlite/Platform.h"

struct sqlite3;
struct sqlite3_file;

namespace Kes::sql {

/// The words of the index of the database's log, which all its connections have in
/// common; null when there is none.
const volatile std::uint32_t* logIndexOf(sqlite3* database);

class SqliteFile {
public:
    /// `itsDatabase` is open, and has read something if `keepsLog` tells that
    /// its journal mode is wal.
    SqliteFile(sqlite3* itsDatabase, bool keepsLog);

    /// To be called where a write transaction begins.
    void noteBegin();

    /// Call it in a write transaction, and again after its commit. Throw
    /// SqlFailure when what was, or is to be, written is lost.
    void checkBefore();
    void checkAfter();

private:
    // A file beside the database that stays the same as long as it is open.
    struct Companion {
        std::string path;
        platform::FileId id;
    };

    void checkPlace(FailureKind kind) const;
    void checkCompanions(FailureKind kind) const;
    void checkSize();
    void checkLog() const;
    void checkLogStart() const;
    [[nodiscard]] bool isWhole(std::int64_t size) const;
    [[noreturn]] static void fail(const std::string& what, FailureKind kind);
    [[noreturn]] static void failOnLog(const std::string& what, const std::string& how,
                                       FailureKind kind);

    sqlite3* database;
    std::string path;  // absolute; empty where there is no file
    bool keepsLog;

    // Known by now, for nothing may need memory once the commit stands.
    Companion log;
    Companion index;
    std::int64_t known = 0;  // bytes that the file had
};

}  // namespace Kes::sql
