#include "session/DriverCache.h"

#include <algorithm>
#include <memory>
#include <new>

#include <kes/Exception.h>
#include <kes/Model.h>

#include "core/FatalEnd.h"

namespace Kes {

Mutex Model::myMutex;
PtrList<DriverCache> Model::myDriverCache;
int Model::myDriverCacheSize = 0;

namespace {

// They lie before all others. Nothing is freed but the entry.
void leaveInherited(PtrList<DriverCache>& parked) {
    while (parked.size() > 0 && parked[0]->isInherited())
        std::unique_ptr<DriverCache>(parked.removeAt(0))->release();
}

void closeForGood(DBDriver& driver) {
    if (driver.close())
        return;
    Exception(Exception::FATAL, "DBCLSERR", "Model::close", driver.getErrorMessage()).handle();

    // What the database did with a connection that cannot be closed is unknown.
    endProcess();
}

void destroyNewest(PtrList<DriverCache>& parked) {
    const std::unique_ptr<DriverCache> entry(parked.removeAt(parked.size() - 1));
    closeForGood(*entry->driver);
}

}  // namespace

// A driver that finds no memory for its place is closed.
void Model::cacheDriver(DBDriver* closed) {
    std::unique_ptr<DBDriver> owned(closed);
    const MutexGuard guard(myMutex);
    leaveInherited(myDriverCache);
    if (myDriverCacheSize == 0)
        return closeForGood(*owned);
    try {
        std::unique_ptr<DriverCache> entry(
            new DriverCache(nullptr, driverName, source, user, options));
        myDriverCache.add(entry.get());
        entry.release()->driver = owned.release();
    } catch (const std::bad_alloc&) {
        return closeForGood(*owned);
    }
    while (myDriverCache.size() > myDriverCacheSize)
        destroyNewest(myDriverCache);
}

DBDriver* Model::getCachedDriver() {
    const MutexGuard guard(myMutex);
    leaveInherited(myDriverCache);
    int position = 0;
    for (DriverCache* entry : myDriverCache) {
        if (entry->driverName == driverName && entry->source == source && entry->user == user &&
            entry->options == options) {
            const std::unique_ptr<DriverCache> found(myDriverCache.removeAt(position));
            return found->release();
        }
        ++position;
    }
    return nullptr;
}

bool Model::keepsDrivers() {
    const MutexGuard guard(myMutex);
    return myDriverCacheSize > 0;
}

void Model::setDriverCacheSize(int size) {
    const MutexGuard guard(myMutex);
    myDriverCacheSize = std::max(size, 0);
    leaveInherited(myDriverCache);
    while (myDriverCache.size() > myDriverCacheSize)
        destroyNewest(myDriverCache);
}

}  // namespace Kes
