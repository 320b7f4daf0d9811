#include "session/DriverCache.h"

#include <algorithm>
#include <memory>

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

void destroyNewest(PtrList<DriverCache>& parked) {
    const std::unique_ptr<DriverCache> entry(parked.removeAt(parked.size() - 1));
    if (entry->driver->close())
        return;
    Exception(Exception::FATAL, "DBCLSERR", "Model::close", entry->driver->getErrorMessage())
        .handle();

    // What the database did with a connection that cannot be closed is unknown.
    endProcess();
}

}  // namespace

void Model::cacheDriver(DBDriver* closed) {
    auto* entry = new DriverCache(closed, driverName, source, user, options);
    const MutexGuard guard(myMutex);
    leaveInherited(myDriverCache);
    myDriverCache.add(entry);
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
