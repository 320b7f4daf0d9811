// What is stored of the objects that a transaction changes, and what becomes of
// those of which it cannot be told.

#include <cstdint>
#include <exception>
#include <limits>
#include <memory>
#include <utility>
#include <vector>

#include <kes/Class.h>
#include <kes/DBDriver.h>
#include <kes/Exception.h>
#include <kes/Instance.h>
#include <kes/Model.h>
#include <kes/Pointer.h>

#include "core/RaisedErrors.h"
#include "object/Events.h"
#include "object/InstanceState.h"
#include "object/ListenerList.h"
#include "object/ModelGate.h"
#include "transaction/UnitOfWork.h"

namespace Kes {

namespace {

// Of an instance whose change was refused, until it is read again. Databases
// hold the number and the one behind it.
constexpr unsigned long UnknownVersion = std::numeric_limits<std::int64_t>::max() - 1;

}  // namespace

bool UnitOfWork::isUnknown(const Instance* instance) {
    return instance->getVersion() == UnknownVersion;
}

// Takes the image of an instance that shows what is stored.
bool UnitOfWork::takeUnassigned(Instance* instance, FieldImage& image) {
    if (isUnknown(instance) || digestFields(instance) != InstanceState::fingerprint(instance))
        return false;
    image = images.take(instance);
    return true;
}

// False when what is stored cannot be told, which was raised. The image stays
// null when it is not the state that the instance was read with: the driver is
// going to refuse the change.
bool UnitOfWork::takeForUpdate(Instance* instance, const char* operation, FieldImage& image) {
    if (takeUnassigned(instance, image))
        return true;

    // Refused until the contrary is certain: what is raised may throw.
    unsigned long version = instance->getVersion();
    refuse(instance);
    const std::unique_ptr<Instance> reading(instance->getClass()->getDummy());
    reading->setObjectID(instance->getObjectID());
    const Stored stored = readStored(reading.get(), operation);
    if (stored == Stored::Unknown)
        return false;
    if (stored == Stored::Found) {
        if (version == UnknownVersion &&
            digestFields(reading.get()) == InstanceState::fingerprint(instance))
            version = reading->getVersion();
        if (version == reading->getVersion())
            image = images.take(reading.get());
    }
    InstanceState::setVersion(instance, version);
    refused.pop_back();
    return true;
}

void UnitOfWork::refuse(Instance* instance) {
    refused.push_back({instance, instance->getVersion()});
    InstanceState::setVersion(instance, UnknownVersion);
}

void UnitOfWork::takeForRemoval(Instance* instance, FieldImage& image) {
    if (takeUnassigned(instance, image))
        return;
    const std::unique_ptr<Instance> reading(instance->getClass()->getDummy());
    reading->setObjectID(instance->getObjectID());
    if (readStored(reading.get(), "Model::remove") == Stored::Found &&
        reading->getVersion() == instance->getVersion())
        image = images.take(reading.get());
}

// The driver fills an object that the model does not know with what is stored
// under its id.
UnitOfWork::Stored UnitOfWork::readStored(Instance* reading, const char* operation) {
    const DriverDoor::Scratch scratch(door(), reading);
    InstanceState::setVersion(reading, std::numeric_limits<unsigned long>::max());
    const HandlerWatch handler;
    String failure;
    try {
        const DriverDoor::Passage driver = door().enter();
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

bool UnitOfWork::hasRefused(String& failure) const {
    for (const Refused& entry : refused)
        if (isUnknown(entry.instance)) {
            failure = String("the change of the ") + entry.instance->getClass()->getName() +
                      " object with id " + String(entry.instance->getObjectID()) +
                      " was refused, for what is stored of it could not be read; record the "
                      "changes again";
            return true;
        }
    return false;
}

// An instance whose fields could not all be put back shows nothing stored.
void UnitOfWork::restoreFields(FieldImage image, Instance* instance) {
    try {
        images.restore(image, instance);
    } catch (...) {
        InstanceState::setVersion(instance, UnknownVersion);
        throw;
    }
}

// What was assigned to them goes too. One that cannot be read now either stays
// as it is, with the version that keeps it from being written.
void UnitOfWork::rereadRefused() {
    FirstFailure failure;
    std::vector<Pointer<Instance>> news;
    std::vector<Pointer<Instance>> gone;
    failure.attempt([&] {
        for (const auto& [instance, version] : refused) {
            bool isRemoved = false;
            if (reread(instance, isRemoved) && instance->getVersion() != version)
                news.emplace_back(instance);
            if (!isRemoved)
                continue;
            InstanceState::setVersion(instance, version);
            if (ModelGate::noteRemoval(model, instance))
                gone.emplace_back(instance);
        }
    });
    refused.clear();

    // Somebody else has changed them meanwhile.
    for (const Pointer<Instance>& changedOne : news) {
        InstanceState::setUntold(changedOne, false);
        failure.attempt([&] { Events::changed(changedOne); });
    }
    for (const Pointer<Instance>& removedOne : gone)
        failure.attempt([&] { Events::removed(removedOne); });
    failure.rethrow();
}

// False when there was no need to, or when it cannot be read: a rollback that
// works has nothing to tell of that.
bool UnitOfWork::reread(Instance* instance, bool& isRemoved) {
    try {
        const ErrorSilence silence;
        const std::uint64_t digest = digestFields(instance);  // no driver fills what throws
        if (!isUnknown(instance) && digest == InstanceState::fingerprint(instance))
            return false;
        InstanceState::setVersion(instance, UnknownVersion);
        ModelGate::keepFailure(model);
        const DriverDoor::Passage driver = door().enter();
        const bool isCurrent = driver->refresh(instance);
        const DBDriverStatus* status = isCurrent ? nullptr : driver->getStatus();
        isRemoved = status != nullptr && status->code == DBDriverStatus::Removed;
    } catch (...) {
        InstanceState::setVersion(instance, UnknownVersion);
    }
    ModelGate::dropFailure(model);
    return !isUnknown(instance);
}

}  // namespace Kes
