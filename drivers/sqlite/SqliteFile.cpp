#include "drivers/sqlite/SqliteFile.h"

#include <sqlite3.h>

#include <cstring>

#include "drivers/common/SqlFailure.h"

namespace Kes::sql {

namespace {

// The first bytes of a database file.
constexpr int HeaderSize = 100;
constexpr char Magic[] = "SQLite format 3";

// The first bytes of a log; the last bit tells the order of bytes in checksums.
constexpr unsigned LogMagic = 0x377F0682;
constexpr int LogHeaderSize = 32;
constexpr int FrameHeaderSize = 24;
constexpr int SaltsAt = 16;

// Words of the log's index.
constexpr std::uint32_t IndexFormat = 3007000;
constexpr int FramesAt = 4;
constexpr int IndexSaltsAt = 8;

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

const volatile std::uint32_t* logIndexOf(sqlite3* database) {
    constexpr int RegionSize = 32768;
    sqlite3_file* file = fileOf(database, SQLITE_FCNTL_FILE_POINTER);
    void volatile* region = nullptr;
    if (file == nullptr || file->pMethods->iVersion < 2 ||
        file->pMethods->xShmMap(file, 0, RegionSize, 0, &region) != SQLITE_OK)
        return nullptr;
    return static_cast<const volatile std::uint32_t*>(region);
}

SqliteFile::SqliteFile(sqlite3* itsDatabase, bool itKeepsLog)
    : database(itsDatabase),
      keepsLog(itKeepsLog) {
    const char* name = sqlite3_db_filename(database, "main");
    path = name != nullptr ? name : "";
    if (path.empty())
        return;
    log.path = path + "-wal";
    index.path = path + "-shm";
    if (keepsLog) {
        platform::identify(log.path.c_str(), log.id);
        platform::identify(index.path.c_str(), index.id);
    }
    known = sizeOf(fileOf(database, SQLITE_FCNTL_FILE_POINTER));
}

void SqliteFile::fail(const std::string& what, FailureKind kind) {
    throw SqlFailure(what +
                         " while it was open, and what is written to it now is lost; close "
                         "the model, see to the file and open it again",
                     kind);
}

void SqliteFile::failOnLog(const std::string& what, const std::string& how, FailureKind kind) {
    fail("the file \"" + what + "\", a part of the database, was " + how, kind);
}

// Without a log nobody else writes the file from now on, and what the transaction
// writes before its commit makes it only longer.
void SqliteFile::noteBegin() {
    if (!keepsLog && !path.empty())
        known = sizeOf(fileOf(database, SQLITE_FCNTL_FILE_POINTER));
}

void SqliteFile::checkBefore() {
    if (path.empty())
        return;
    checkPlace(FailureKind::LostConnection);
    checkSize();
    if (!keepsLog)
        return;
    checkCompanions(FailureKind::LostConnection);
    checkLog();
}

void SqliteFile::checkAfter() {
    if (path.empty())
        return;
    checkPlace(FailureKind::UnknownOutcome);
    if (keepsLog) {
        checkCompanions(FailureKind::UnknownOutcome);
        checkLogStart();
    }
    known = sizeOf(fileOf(database, SQLITE_FCNTL_FILE_POINTER));
}

void SqliteFile::checkPlace(FailureKind kind) const {
    int hasMoved = 0;
    sqlite3_file_control(database, "main", SQLITE_FCNTL_HAS_MOVED, &hasMoved);
    if (hasMoved != 0)
        fail("the file \"" + path + "\" was deleted, moved or replaced", kind);
}

// What is not in the file itself yet lies in the log, and the index is what
// keeps the programs that write to the log apart. SQLite leaves both alone as
// long as anybody has the database open.
void SqliteFile::checkCompanions(FailureKind kind) const {
    for (const Companion* each : {&log, &index}) {
        platform::FileId found;
        if (!platform::identify(each->path.c_str(), found) || found != each->id)
            failOnLog(each->path, "deleted, moved or replaced", kind);
    }
}

// Other programs may make a file with a log smaller; then its header says so too.
void SqliteFile::checkSize() {
    const std::int64_t size = sizeOf(fileOf(database, SQLITE_FCNTL_FILE_POINTER));
    if (size < known && (!keepsLog || !isWhole(size)))
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

// Nobody else writes to the log while this transaction does, so it has to be the
// one that the index tells of. A frame that is missing takes those behind it along.
void SqliteFile::checkLog() const {
    const volatile std::uint32_t* words = logIndexOf(database);
    sqlite3_file* file = fileOf(database, SQLITE_FCNTL_JOURNAL_POINTER);
    if (words == nullptr || file == nullptr || words[0] != IndexFormat || words[FramesAt] == 0)
        return;
    const std::uint32_t salts[] = {words[IndexSaltsAt], words[IndexSaltsAt + 1]};
    unsigned char start[LogHeaderSize];
    const std::int64_t size = sizeOf(file);
    if (size < LogHeaderSize || file->pMethods->xRead(file, start, sizeof start, 0) != SQLITE_OK ||
        (bigEndian(start) & ~1U) != LogMagic ||
        std::memcmp(start + SaltsAt, salts, sizeof salts) != 0 ||
        size < LogHeaderSize + std::int64_t{words[FramesAt]} *
                                   (FrameHeaderSize + std::int64_t{bigEndian(start + 8)}))
        failOnLog(log.path, "truncated or overwritten", FailureKind::LostConnection);
}

// Others may have begun it anew by now. An empty one was written back as a whole,
// perhaps a moment ago.
void SqliteFile::checkLogStart() const {
    unsigned char start[4];
    sqlite3_file* file = fileOf(database, SQLITE_FCNTL_JOURNAL_POINTER);
    if (sizeOf(file) > 0 && file->pMethods->xRead(file, start, sizeof start, 0) == SQLITE_OK &&
        (bigEndian(start) & ~1U) != LogMagic)
        failOnLog(log.path, "truncated or overwritten", FailureKind::UnknownOutcome);
}

}  // namespace Kes::sql
