#include <kes/Instance.h>

#include <kes/Class.h>
#include <kes/Exception.h>
#include <kes/Handler.h>
#include <kes/Listener.h>
#include <kes/Model.h>

#include "object/ListenerList.h"
#include "object/ModelGate.h"
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

// Null, which was raised, for an object that was made with a null class.
Model* Instance::modelFor(const char* operation) const {
    Model* model = cls != nullptr ? cls->getModel() : nullptr;
    if (model == nullptr)
        Exception(Exception::ERROR, "INSTERR", operation,
                  "The object has no class; open the model, which declares its classes, and make "
                  "it with the newInstance of one")
            .handle();
    return model;
}

// As modelFor, for the model's own thread alone.
Model* Instance::ownModel(const char* operation) const {
    Model* model = modelFor(operation);
    if (model != nullptr)
        ModelGate::thread(model).verify();
    return model;
}

// For what an object without a model can do as well. Null there.
const Model* Instance::checkedModel() const {
    const Model* model = cls != nullptr ? cls->getModel() : nullptr;
    if (model != nullptr)
        ModelGate::thread(model).verify();
    return model;
}

void Instance::add() {
    if (Model* model = modelFor("Instance::add"))
        ModelGate::add(model, this);
}

void Instance::change() {
    if (Model* model = modelFor("Instance::change"))
        ModelGate::update(model, this);
}

void Instance::remove() {
    if (!isRemoved() && modelFor("Instance::remove") != nullptr)
        Removal::run(this);
}

void Instance::refresh() {
    if (Model* model = modelFor("Instance::refresh"))
        model->refresh(this);
}

void Instance::lock() {
    if (Model* model = modelFor("Instance::lock"))
        model->lock(this);
}

bool Instance::inSameModel(const Instance* other) const {
    return checkedModel() == (other->cls != nullptr ? other->cls->getModel() : nullptr);
}

void Instance::addPointer(PointerBase* pointer) const {
    if (Model* model = modelFor("Instance::addPointer"))
        model->addPointer(pointer);
}

// One without a model has registered nothing.
void Instance::removePointer(PointerBase* pointer) const {
    if (cls != nullptr && cls->getModel() != nullptr)
        cls->getModel()->removePointer(pointer);
}

void Instance::addListener(Listener* listener) {
    checkedModel();
    addToListeners(listeners, listener);
}

void Instance::removeListener(Listener* listener) {
    checkedModel();
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
