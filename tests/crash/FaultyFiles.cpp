#include "tests/crash/FaultyFiles.h"

#include <sqlite3.h>

#include <csignal>
#include <stdexcept>

namespace Kes::testing {

namespace {

struct Plan {
    FaultyFiles::Fault fault = FaultyFiles::Fails;
    unsigned long at = 0;  // 0 for never
    bool goesOn = false;
    unsigned long count = 0;
    bool struck = false;
};

Plan plan;
sqlite3_vfs* real = nullptr;

// What SQLite holds of an open file; the real one follows it in memory.
struct File {
    sqlite3_file base;
    sqlite3_file* file;
};

sqlite3_file* realOf(sqlite3_file* file) {
    return reinterpret_cast<File*>(file)->file;
}

// Counts an operation; true when it has to fail.
bool isStruck(bool writes) {
    ++plan.count;
    const bool due =
        plan.at != 0 && (plan.count == plan.at || (plan.goesOn && plan.count > plan.at));
    if (!due || (plan.fault == FaultyFiles::Full && !writes))
        return false;
    plan.struck = true;
    if (plan.fault == FaultyFiles::Kills && !writes)
        std::raise(SIGKILL);
    return true;
}

int writeTo(sqlite3_file* file, const void* bytes, int size, sqlite3_int64 offset) {
    sqlite3_file* to = realOf(file);
    if (!isStruck(true))
        return to->pMethods->xWrite(to, bytes, size, offset);
    if (plan.fault == FaultyFiles::Full)
        return SQLITE_FULL;
    to->pMethods->xWrite(to, bytes, size / 2, offset);
    if (plan.fault == FaultyFiles::Kills)
        std::raise(SIGKILL);
    return SQLITE_IOERR_WRITE;
}

int truncateTo(sqlite3_file* file, sqlite3_int64 size) {
    sqlite3_file* to = realOf(file);
    return isStruck(false) ? SQLITE_IOERR_TRUNCATE : to->pMethods->xTruncate(to, size);
}

int syncTo(sqlite3_file* file, int flags) {
    sqlite3_file* to = realOf(file);
    return isStruck(false) ? SQLITE_IOERR_FSYNC : to->pMethods->xSync(to, flags);
}

// --- passed on ---

int closeFile(sqlite3_file* file) {
    sqlite3_file* to = realOf(file);
    return to->pMethods != nullptr ? to->pMethods->xClose(to) : SQLITE_OK;
}
int readFrom(sqlite3_file* file, void* bytes, int size, sqlite3_int64 offset) {
    return realOf(file)->pMethods->xRead(realOf(file), bytes, size, offset);
}
int sizeOf(sqlite3_file* file, sqlite3_int64* size) {
    return realOf(file)->pMethods->xFileSize(realOf(file), size);
}
int lockFile(sqlite3_file* file, int level) {
    return realOf(file)->pMethods->xLock(realOf(file), level);
}
int unlockFile(sqlite3_file* file, int level) {
    return realOf(file)->pMethods->xUnlock(realOf(file), level);
}
int checkLock(sqlite3_file* file, int* isReserved) {
    return realOf(file)->pMethods->xCheckReservedLock(realOf(file), isReserved);
}
int control(sqlite3_file* file, int operation, void* argument) {
    return realOf(file)->pMethods->xFileControl(realOf(file), operation, argument);
}
int sectorSizeOf(sqlite3_file* file) {
    return realOf(file)->pMethods->xSectorSize(realOf(file));
}
int traitsOf(sqlite3_file* file) {
    return realOf(file)->pMethods->xDeviceCharacteristics(realOf(file));
}
int mapShared(sqlite3_file* file, int page, int size, int extend, void volatile** memory) {
    return realOf(file)->pMethods->xShmMap(realOf(file), page, size, extend, memory);
}
int lockShared(sqlite3_file* file, int offset, int count, int flags) {
    return realOf(file)->pMethods->xShmLock(realOf(file), offset, count, flags);
}
void barrierShared(sqlite3_file* file) {
    realOf(file)->pMethods->xShmBarrier(realOf(file));
}
int unmapShared(sqlite3_file* file, int remove) {
    return realOf(file)->pMethods->xShmUnmap(realOf(file), remove);
}

// Of the version without mapped files.
const sqlite3_io_methods methods = {
    2,          closeFile,     readFrom,    writeTo, truncateTo,   syncTo,   sizeOf,
    lockFile,   unlockFile,    checkLock,   control, sectorSizeOf, traitsOf, mapShared,
    lockShared, barrierShared, unmapShared, nullptr, nullptr};

int openFile(sqlite3_vfs*, const char* name, sqlite3_file* file, int flags, int* outFlags) {
    auto* opened = reinterpret_cast<File*>(file);
    opened->file = reinterpret_cast<sqlite3_file*>(opened + 1);
    opened->file->pMethods = nullptr;
    opened->base.pMethods = nullptr;
    if (isStruck(false))
        return SQLITE_CANTOPEN;
    const int code = real->xOpen(real, name, opened->file, flags, outFlags);
    if (opened->file->pMethods != nullptr)
        opened->base.pMethods = &methods;
    return code;
}

int deleteFile(sqlite3_vfs*, const char* name, int syncsFolder) {
    return isStruck(false) ? SQLITE_IOERR_DELETE : real->xDelete(real, name, syncsFolder);
}

}  // namespace

void FaultyFiles::install() {
    static sqlite3_vfs layer;
    if (real != nullptr)
        return;
    real = sqlite3_vfs_find(nullptr);
    layer = *real;
    layer.zName = "faulty";
    layer.pNext = nullptr;
    layer.szOsFile = static_cast<int>(sizeof(File)) + real->szOsFile;
    layer.xOpen = openFile;
    layer.xDelete = deleteFile;
    if (sqlite3_vfs_register(&layer, 1) != SQLITE_OK)
        throw std::runtime_error("the file layer cannot be installed");
}

void FaultyFiles::set(Fault fault, unsigned long at, bool goesOn) {
    plan = Plan{fault, at, goesOn, 0, false};
}

void FaultyFiles::clear() {
    plan = Plan();
}

unsigned long FaultyFiles::count() {
    return plan.count;
}

bool FaultyFiles::hasStruck() {
    return plan.struck;
}

}  // namespace Kes::testing
