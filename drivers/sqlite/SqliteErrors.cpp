#include "drivers/sqlite/SqliteErrors.h"

#include <sqlite3.h>

#include <cerrno>
#include <system_error>

#include "drivers/sqlite/SqliteConnection.h"

namespace Kes::sql {

namespace {

// What the operating system has said, where it was asked. SQLite opens a file
// that it may not make once more for reading, and then it is not there.
std::string reasonOf(sqlite3* database) {
    const int number = sqlite3_system_errno(database);
    if (number == ENOENT)
        return ": it, or a journal beside it, cannot be made in the folder; the folder has to be "
               "writable";
    return number == 0 ? "" : " (" + std::generic_category().message(number) + ")";
}

}  // namespace

std::string explain(sqlite3* database, int code, const SqliteSettings& settings) {
    std::string words = sqlite3_errmsg(database);
    switch (code & 0xFF) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        return words + "; another connection has kept the database locked for longer than " +
               std::to_string(settings.busyTimeout) +
               " ms: let it commit, roll back or close, then try again, or open this one with a "
               "larger busy_timeout";
    case SQLITE_FULL: return words + "; make room and try again";
    case SQLITE_READONLY:
        if (code == SQLITE_READONLY_DIRECTORY)
            return words + ": no journal can be made beside it; the folder has to be writable";
        if (code == SQLITE_READONLY_DBMOVED)
            return words +
                   ": it was deleted, moved or replaced while it was open; close the model, "
                   "see to the file and open it again";
        return words + "; the file or its folder cannot be written";
    case SQLITE_CANTOPEN:
    case SQLITE_IOERR: return words + reasonOf(database);
    case SQLITE_NOTADB: return words + " (\"" + settings.file + "\")";
    default: return words;
    }
}

FailureKind kindOf(int code) {
    return code == SQLITE_BUSY_SNAPSHOT ? FailureKind::Conflict : FailureKind::Unclassified;
}

}  // namespace Kes::sql
