// The part of Model that compares objects in memory with what others have stored.

#include <kes/Class.h>
#include <kes/DBDriver.h>
#include <kes/Instance.h>
#include <kes/Model.h>
#include <kes/Pointer.h>

#include "core/RaisedErrors.h"
#include "fetch/ReferenceLoader.h"
#include "identity/ObjectCache.h"
#include "object/InstanceState.h"
#include "query/DriverDoor.h"
#include "session/Raise.h"
#include "transaction/StoredState.h"
#include "transaction/UnitOfWork.h"

namespace Kes {

bool Model::isOutdated(const Instance* instance, unsigned long storedVersion) const {
    return (storedVersion > instance->getVersion() || isUnread(instance)) && !isPending(instance);
}

void Model::lock(Instance* instance) {
    if (!isUsable(instance, "Model::lock", "locked"))
        return;
    transactions->noteLock();  // also where the driver throws after its work
    try {
        if (door->ask()->lock(instance))
            return;
    } catch (...) {
        rollback();
        throw;
    }
    const String reason = driver->getErrorMessage();
    rollback();
    raise("LOCKFAIL", "Instance::lock", reason);
}

void Model::refresh(Instance* instance) {
    if (!isUsable(instance, "Model::refresh", "refreshed"))
        return;
    const Pointer<Instance> keep(instance);
    const unsigned long before = instance->getVersion();
    const ErrorWatch watch;
    const bool isCurrent = door->ask()->refresh(instance);
    const DBDriverStatus* status = isCurrent ? nullptr : driver->getStatus();
    const bool isChanged = isCurrent || instance->getVersion() != before ||
                           (status != nullptr && status->code == DBDriverStatus::Changed);
    if (isChanged && !isPending(instance))
        references->onRefreshed(instance);

    // A query tells nobody of what it has brought.
    if (isCurrent && (watch.hasFailed() || !InstanceState::isUntold(instance)))
        return;
    const UnitOfWork::Telling telling(*transactions);

    // A driver that cannot tell any more has brought it up to date all the same.
    if (isCurrent || instance->getVersion() != before) {
        if (InstanceState::isGone(instance))
            instance->setRemoved(false);
        InstanceState::setUntold(instance, false);
        instance->getClass()->fireInstanceChanged(instance);
        return;
    }
    if (status == nullptr)
        raise("REFFAIL", "Instance::refresh", driver->getErrorMessage());
    else if (status->code == DBDriverStatus::Changed)
        instance->getClass()->fireInstanceChanged(instance);
    else if (noteRemoval(instance))
        instance->getClass()->fireInstanceRemoved(instance);
}

// Marks an object that is not stored any more; false when that is told already.
// A pending change or link is the commit's matter.
bool Model::noteRemoval(Instance* instance) {
    if (instance->getObjectID() == 0 || isPending(instance))
        return true;
    if (InstanceState::isGone(instance))
        return false;
    objects->news.noteRemoval(instance, instance->getVersion() + 1);
    instance->setRemoved(true);
    InstanceState::setGone(instance, true);
    InstanceState::setUntold(instance, true);
    references->onRemoved(instance);
    references->onRefreshed(instance);
    return true;
}

// The instance comes from a selection that began before this memory had a newer
// one, which was freed meanwhile. False when it cannot be read again, which was
// raised.
bool Model::renewOutdated(Instance* instance) {
    const RowNews::RowScope present(objects->news, RowNews::Present);
    const ErrorWatch watch;
    const bool isCurrent = door->enter()->refresh(instance);
    const DBDriverStatus* status = isCurrent ? nullptr : driver->getStatus();
    if (status != nullptr && status->code == DBDriverStatus::Removed)
        noteRemoval(instance);
    else
        InstanceState::setUntold(instance, false);
    if (watch.hasFailed())
        return false;
    if (isCurrent || status != nullptr)
        return true;
    raise("SELERR", "Selection::next", driver->getErrorMessage());
    return false;
}

}  // namespace Kes
