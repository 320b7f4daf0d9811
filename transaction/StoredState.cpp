#include "transaction/StoredState.h"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <limits>
#include <memory>
#include <new>
#include <utility>
#include <vector>

#include <kes/Class.h>
#include <kes/DBDriver.h>
#include <kes/Exception.h>
#include <kes/Model.h>
#include <kes/Pointer.h>

#include "core/RaisedErrors.h"
#include "object/Events.h"
#include "object/ListenerList.h"
#include "object/ModelGate.h"
#include "query/DriverDoor.h"

namespace Kes {

namespace {

// Of an instance whose change was refused, until it is read again. Databases
// hold the number and the one after it.
constexpr unsigned long UnknownVersion = std::numeric_limits<std::int64_t>::max() - 1;

// Of an instance that shows what was assigned to it, or what a rollback could put
// back of its fields: neither is stored. Whatever reads it next brings it back.
constexpr unsigned long UnreadVersion = UnknownVersion - 2;
constexpr unsigned long TornVersion = UnknownVersion - 4;

// Takes the snapshot of an instance that shows what is stored.
bool snapshotUnassigned(Changes& changes, Instance* instance, Snapshot& snapshot) {
    if (isUnknown(instance) || digestFields(instance) != InstanceState::fingerprint(instance))
        return false;
    snapshot = changes.snapshots.capture(instance);
    return true;
}

// False when there was no need to, or when it cannot be read: a rollback that
// works has nothing to tell of that.
bool reread(Model* model, Instance* instance, bool& isRemoved) {
    try {
        const ErrorSilence silence;
        const std::uint64_t digest = digestFields(instance);  // no driver fills what throws
        if (!isUnknown(instance) && digest == InstanceState::fingerprint(instance))
            return false;
        InstanceState::setVersion(instance, UnknownVersion);
        ModelGate::saveFailure(model);
        const DriverDoor::Passage driver = ModelGate::door(model).enter();
        const bool isCurrent = driver->refresh(instance);
        const DBDriverStatus* status = isCurrent ? nullptr : driver->getStatus();
        isRemoved = status != nullptr && status->code == DBDriverStatus::Removed;
    } catch (...) {
        InstanceState::setVersion(instance, UnreadVersion);
    }
    ModelGate::dropFailure(model);
    if (isUnknown(instance))
        InstanceState::setVersion(instance, UnreadVersion);
    return !isUnread(instance);
}

}  // namespace

bool isUnknown(const Instance* instance) {
    return instance->getVersion() == UnknownVersion || isUnread(instance);
}

bool isUnread(const Instance* instance) {
    return instance->getVersion() == UnreadVersion || instance->getVersion() == TornVersion;
}

// False when what is stored cannot be told, which was raised. The snapshot stays
// null when it is not the state that the instance was read with: the driver is
// going to refuse the change.
bool snapshotForUpdate(const Model* model, Changes& changes, Instance* instance,
                       const char* operation, Snapshot& snapshot) {
    if (snapshotUnassigned(changes, instance, snapshot))
        return true;

    // Refused until the contrary is certain: what is raised may throw.
    unsigned long version = instance->getVersion();
    const std::size_t refusals = changes.refused.size();
    const bool hadUnlisted = changes.hasUnlisted;
    refuse(changes, instance);
    const std::unique_ptr<Instance> reading(instance->getClass()->getDummy());
    reading->setObjectID(instance->getObjectID());
    const Stored stored = readStored(model, reading.get(), operation);
    if (stored == Stored::Unknown)
        return false;
    if (stored == Stored::Found) {
        const bool isRefused = version == UnknownVersion || version == UnreadVersion;
        if (isRefused && digestFields(reading.get()) == InstanceState::fingerprint(instance))
            version = reading->getVersion();
        if (version == reading->getVersion())
            snapshot = changes.snapshots.capture(reading.get());
    }
    InstanceState::setVersion(instance, version);
    changes.refused.resize(refusals);
    changes.hasUnlisted = hadUnlisted;
    return true;
}

// There is room for a few, also when there is no memory.
void refuse(Changes& changes, Instance* instance) noexcept {
    try {
        changes.refused.push_back({instance, instance->getVersion()});
        InstanceState::setVersion(instance, UnknownVersion);
    } catch (const std::bad_alloc&) {
        changes.hasUnlisted = true;
        InstanceState::setVersion(instance, UnreadVersion);
    }
}

void snapshotForRemoval(const Model* model, Changes& changes, Instance* instance,
                        Snapshot& snapshot) {
    if (snapshotUnassigned(changes, instance, snapshot))
        return;
    const std::unique_ptr<Instance> reading(instance->getClass()->getDummy());
    reading->setObjectID(instance->getObjectID());
    if (readStored(model, reading.get(), "Model::remove") == Stored::Found &&
        reading->getVersion() == instance->getVersion())
        snapshot = changes.snapshots.capture(reading.get());
}

// The driver fills an object that the model does not know with what is stored
// under its id.
Stored readStored(const Model* model, Instance* reading, const char* operation) {
    const DriverDoor::Scratch scratch(ModelGate::door(model), reading);
    InstanceState::setVersion(reading, std::numeric_limits<unsigned long>::max());
    const HandlerWatch handler;
    String failure;
    try {
        const DriverDoor::Passage driver = ModelGate::door(model).enter();
        if (driver->refresh(reading))
            return Stored::Unknown;  // nothing stored has that version: it was raised
        const DBDriverStatus* status = driver->getStatus();
        if (status != nullptr && status->code == DBDriverStatus::Changed)
            return Stored::Found;
        if (status != nullptr && status->code == DBDriverStatus::Removed)
            return Stored::Absent;
        failure = driver->getErrorMessage();
    } catch (const std::exception& thrown) {
        // The driver's own, unless the error handler has thrown it.
        if (handler.getThrown() != nullptr)
            throw;
        failure = thrown.what();
    }
    Exception(Exception::ERROR, "REFFAIL", operation, failure).handle();
    return Stored::Unknown;
}

bool hasRefused(const Changes& changes, String& failure) {
    for (const Versioned& entry : changes.refused)
        if (isUnknown(entry.instance)) {
            failure = String("the change of the ") + entry.instance->getClass()->getName() +
                      " object with id " + String(entry.instance->getObjectID()) +
                      " was refused, for what is stored of it could not be read; record the "
                      "changes again";
            return true;
        }
    if (changes.hasUnlisted)
        failure =
            "the change of an object was refused, for memory ran out; record the changes "
            "again";
    return changes.hasUnlisted;
}

// An instance whose fields could not all be put back shows nothing stored.
void restoreFields(const Changes& changes, Snapshot snapshot, Instance* instance) {
    try {
        changes.snapshots.restore(snapshot, instance);
    } catch (...) {
        InstanceState::setVersion(instance, TornVersion);
        throw;
    }
}

// What was assigned to them goes too. One that cannot be read now either stays
// as it is until something reads it, with a version that keeps it from being
// written.
void rereadRefused(Model* model, Changes& changes) {
    FirstFailure failure;
    std::vector<Pointer<Instance>> news;
    std::vector<Pointer<Instance>> gone;
    failure.attempt([&] {
        for (const auto& [instance, version] : changes.refused) {
            bool isRemoved = false;
            if (reread(model, instance, isRemoved) && instance->getVersion() != version)
                news.emplace_back(instance);
            if (!isRemoved)
                continue;
            InstanceState::setVersion(instance, version);
            if (ModelGate::noteRemoval(model, instance))
                gone.emplace_back(instance);
        }
    });
    changes.dropRefused();

    // Somebody else has changed them meanwhile.
    for (const Pointer<Instance>& changedOne : news) {
        InstanceState::setUntold(changedOne, false);
        failure.attempt([&] { Events::changed(changedOne); });
    }
    for (const Pointer<Instance>& removedOne : gone)
        failure.attempt([&] { Events::removed(removedOne); });
    failure.rethrow();
}

}  // namespace Kes
