#include "drivers/sqlite/SqliteFile.h"

#include <sqlite3.h>

#include <cstring>
#include <filesystem>
#include <system_error>

#include "drivers/common/SqlFailure.h"

namespace Kes::sql {

namespace {

// The first bytes of a database file.
constexpr int HeaderSize = 100;
constexpr char Magic[] = "SQLite format 3";

// The first bytes of a log; the last bit tells the order of bytes in checksums.
constexpr unsigned LogMagic = 0x377F0682;

unsigned bigEndian(const unsigned char* at) {
    return static_cast<unsigned>(at[0]) << 24 | static_cast<unsigned>(at[1]) << 16 |
           static_cast<unsigned>(at[2]) << 8 | at[3];
}

// Null when it is not open.
sqlite3_file* fileOf(sqlite3* database, int which) {
    sqlite3_file* file = nullptr;
    if (sqlite3_file_control(database, "main", which, &file) != SQLITE_OK || file == nullptr ||
        file->pMethods == nullptr)
        return nullptr;
    return file;
}

// -1 when it cannot be asked.
std::int64_t sizeOf(sqlite3_file* file) {
    sqlite3_int64 size = 0;
    if (file == nullptr || file->pMethods->xFileSize(file, &size) != SQLITE_OK)
        return -1;
    return size;
}

}  // namespace

SqliteFile::SqliteFile(sqlite3* itsDatabase, bool keepsLog) : database(itsDatabase) {
    const char* name = sqlite3_db_filename(database, "main");
    path = name != nullptr ? name : "";
    if (path.empty())
        return;
    if (keepsLog) {
        log = path + "-wal";
        index = path + "-shm";
    }
    known = sizeOf(fileOf(database, SQLITE_FCNTL_FILE_POINTER));
}

void SqliteFile::fail(const std::string& what, FailureKind kind) {
    throw SqlFailure(what +
                         " while it was open, and what is written to it now is lost; close "
                         "the model, see to the file and open it again",
                     kind);
}

void SqliteFile::checkBefore() {
    if (path.empty())
        return;
    checkPlace(FailureKind::LostConnection);
    checkSize();
}

void SqliteFile::checkAfter() {
    if (path.empty())
        return;
    checkPlace(FailureKind::UnknownOutcome);
    if (!log.empty())
        checkLog();
    known = sizeOf(fileOf(database, SQLITE_FCNTL_FILE_POINTER));
}

void SqliteFile::checkPlace(FailureKind kind) const {
    int hasMoved = 0;
    sqlite3_file_control(database, "main", SQLITE_FCNTL_HAS_MOVED, &hasMoved);
    if (hasMoved != 0)
        fail("the file \"" + path + "\" was deleted, moved or replaced", kind);
}

// Other programs may make a file smaller; then its header says so too. Without
// a log this transaction may be writing the file already.
void SqliteFile::checkSize() {
    const std::int64_t size = sizeOf(fileOf(database, SQLITE_FCNTL_FILE_POINTER));
    if (size < known && (size == 0 || (!log.empty() && !isWhole(size))))
        fail("the file \"" + path + "\" was truncated from " + std::to_string(known) + " to " +
                 std::to_string(size) + " bytes",
             FailureKind::LostConnection);
    known = size;
}

bool SqliteFile::isWhole(std::int64_t size) const {
    unsigned char header[HeaderSize];
    sqlite3_file* file = fileOf(database, SQLITE_FCNTL_FILE_POINTER);
    if (size < HeaderSize || file->pMethods->xRead(file, header, HeaderSize, 0) != SQLITE_OK ||
        std::memcmp(header, Magic, sizeof Magic) != 0)
        return false;
    const bool knowsPages = bigEndian(header + 24) == bigEndian(header + 92);
    const int stored = header[16] << 8 | header[17];
    const std::int64_t pageSize = stored == 1 ? 65536 : stored;
    return !knowsPages || bigEndian(header + 28) * pageSize <= size;
}

// What is not in the file itself yet lies in the log, and the index is what
// keeps the programs that write to the log apart.
void SqliteFile::checkLog() const {
    std::error_code fault;
    const auto found = std::filesystem::file_size(log, fault);
    sqlite3_file* file = fileOf(database, SQLITE_FCNTL_JOURNAL_POINTER);
    if (fault)
        fail("the file \"" + log.string() + "\", a part of the database, was deleted or moved",
             FailureKind::UnknownOutcome);

    // An empty one was written back as a whole, perhaps a moment ago.
    unsigned char start[4];
    if (found != 0 && file != nullptr &&
        file->pMethods->xRead(file, start, sizeof start, 0) == SQLITE_OK &&
        (bigEndian(start) & ~1U) != LogMagic)
        fail("the file \"" + log.string() + "\", a part of the database, was truncated or replaced",
             FailureKind::UnknownOutcome);
    if (!std::filesystem::exists(index, fault))
        fail("the file \"" + index.string() + "\", a part of the database, was deleted or moved",
             FailureKind::UnknownOutcome);
}

}  // namespace Kes::sql
