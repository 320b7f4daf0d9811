#include <kes/Instance.h>

#include <kes/Class.h>
#include <kes/Handler.h>
#include <kes/Listener.h>
#include <kes/Model.h>

#include "object/ListenerList.h"
#include "object/Removal.h"

namespace Kes {

Instance::Instance(Class* itsClass) : cls(itsClass) {}

Instance::~Instance() {
    delete listeners;
}

void Instance::handle(Handler* handler) {
    // Handlers of all threads see and copy the two names.
    static const String objectIDName = String::constant("KesObjectID");
    static const String versionName = String::constant("KesVersion");
    handler->handleULong(objectIDName, objectID);
    handler->handleULong(versionName, version);
}

void Instance::add() {
    cls->getModel()->add(this);
}

void Instance::change() {
    cls->getModel()->update(this);
}

void Instance::remove() {
    if (!isRemoved())
        Removal::run(this);
}

void Instance::refresh() {
    cls->getModel()->refresh(this);
}

void Instance::lock() {
    cls->getModel()->lock(this);
}

bool Instance::inSameModel(const Instance* other) const {
    return cls->getModel() == other->cls->getModel();
}

void Instance::addPointer(PointerBase* pointer) const {
    cls->getModel()->addPointer(pointer);
}

void Instance::removePointer(PointerBase* pointer) const {
    cls->getModel()->removePointer(pointer);
}

void Instance::addListener(Listener* listener) {
    addToListeners(listeners, listener);
}

void Instance::removeListener(Listener* listener) {
    removeFromListeners(listeners, listener);
}

void Instance::fireInstanceChanged() {
    const InstanceEvent event(cls, this);
    tellListeners(listeners, [&](Listener* l) { l->instanceChanged(event); });
}

void Instance::fireInstanceRemoved() {
    const InstanceEvent event(cls, this);
    FirstFailure failure;
    failure.attempt(
        [&] { tellListeners(listeners, [&](Listener* l) { l->instanceRemoved(event); }); });
    delete listeners;
    listeners = nullptr;
    failure.rethrow();
}

void Instance::fireAssociationAdded(Association* association, Instance* other) {
    const AssociationEvent event(this, other, association);
    tellListeners(listeners, [&](Listener* l) { l->associationAdded(event); });
}

void Instance::fireAssociationRemoved(Association* association, Instance* other) {
    const AssociationEvent event(this, other, association);
    tellListeners(listeners, [&](Listener* l) { l->associationRemoved(event); });
}

}  // namespace Kes
