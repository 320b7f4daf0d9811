#include <kes/Instance.h>
#include <kes/ManyAssociatedInstances.h>
#include <kes/One.h>
#include <kes/OneAssociatedInstance.h>

#include "object/DroppedPartners.h"

namespace Kes {

void OneAssociatedInstance::setFetched(bool isFetchedNow) {
    fetched = isFetchedNow;
    if (fetched)
        return;
    if (objectID != 0)
        DroppedPartners::note(this, objectID);

    // What a driver fills shows what is stored, and no rollback puts back older things.
    touched = touched && !DroppedPartners::isNoting();
    setInstance(nullptr);
}

void OneReference::setInstance(Instance* instance) {
    held = instance;
}

Instance* OneReference::getInstance() {
    return held;
}

std::vector<unsigned long> DroppedPartners::idsOf(ManyAssociatedInstances& ref) {
    std::vector<unsigned long> ids;
    for (ref.reset(); ref.next();)
        ids.push_back(ref.value()->getObjectID());
    return ids;
}

void ManyAssociatedInstances::setFetched(bool isFetchedNow) {
    if (fetched && !isFetchedNow)
        DroppedPartners::noteMembers(this);
    fetched = isFetchedNow;
    if (!fetched)
        clear();
}

void AssociatedOneForOne::add(Instance* instance) {
    held = instance;
}

void AssociatedOneForOne::remove(Instance* instance) {
    if (held == instance)
        held = nullptr;
}

void AssociatedOneForOne::reset() {
    iterating = false;
}

bool AssociatedOneForOne::next() {
    iterating = held != nullptr && !iterating;
    return iterating;
}

Instance* AssociatedOneForOne::value() {
    return iterating ? held : nullptr;
}

void AssociatedOneForOne::clear() {
    held = nullptr;
}

bool AssociatedOneForOne::contains(Instance* instance) {
    return held == instance;
}

void AssociatedOneForOne::setFetched(bool isFetchedNow) {
    fetched = isFetchedNow;
    if (!fetched)
        clear();
}

void DummyAssociatedMany::add(Instance*) {}
void DummyAssociatedMany::remove(Instance*) {}
void DummyAssociatedMany::reset() {}

bool DummyAssociatedMany::next() {
    return false;
}

Instance* DummyAssociatedMany::value() {
    return nullptr;
}

bool DummyAssociatedMany::contains(Instance*) const {
    return false;
}

void DummyAssociatedMany::clear() {}

}  // namespace Kes
