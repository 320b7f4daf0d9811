#include <kes/Class.h>

#include <kes/Exception.h>
#include <kes/InitAssocHandler.h>
#include <kes/Instance.h>
#include <kes/Listener.h>
#include <kes/Model.h>
#include <kes/Pointer.h>

#include "object/FieldWalk.h"
#include "object/InstanceState.h"
#include "object/ListenerList.h"
#include "object/ModelGate.h"

namespace Kes {

namespace {

bool isNull(const void* object) {
    return object == nullptr;
}

}  // namespace

Class::Class(const String& className, int classVersion, Model* owner, Factory make)
    : name(className.unshared()),
      version(classVersion),
      model(owner),
      factory(make) {}

Class::~Class() {
    delete listeners;
    forgetFields(this);
}

void Class::subclassOf(Class* super) {
    superClass = super;
    if (super != nullptr)
        super->subClasses.add(this);
}

bool Class::isA(const Class* other) const {
    for (const Class* cls = this; cls != nullptr; cls = cls->superClass)
        if (cls == other || cls->superClass == other)
            return true;
    return false;
}

PtrList<Class> Class::getConcreteClasses() const {
    PtrList<Class> concrete;
    if (!abstract)
        concrete.add(const_cast<Class*>(this));
    for (const Class* sub : subClasses)
        concrete += sub->getConcreteClasses();
    return concrete;
}

void Class::addIndex(const String& fields, bool unique) {
    indices.add(Index(fields, unique));
}

void Class::addAssociation(Association* association) {
    associations.add(association);
}

Instance* Class::getDummy() {
    return factory(this);
}

Instance* Class::newInstance() {
    // A member of a model is null until the model was opened, and its first use
    // is here. This file is compiled so that the test stays.
    if (isNull(this) || model == nullptr) {
        Exception(Exception::ERROR, "INSTERR", "Class::newInstance",
                  "There is no class to make an object of; open the model, which declares its "
                  "classes, before")
            .handle();
        return nullptr;
    }
    ModelGate::thread(model).verify();
    Instance* instance = factory(this);
    Pointer<Instance> keep(instance);
    try {
        InitAssocHandler initialise;
        walkFields(instance, initialise);
        instance->add();
    } catch (...) {
        // What has no id yet is in no model, and nobody else knows of it.
        keep.makeNull();
        if (instance->getObjectID() == 0)
            delete instance;
        throw;
    }
    return instance;
}

void Class::addListener(Listener* listener) {
    if (model != nullptr)
        ModelGate::thread(model).verify();
    addToListeners(listeners, listener);
}

void Class::removeListener(Listener* listener) {
    if (model != nullptr)
        ModelGate::thread(model).verify();
    removeFromListeners(listeners, listener);
}

void Class::fireInstanceAdded(Instance* instance) {
    const InstanceEvent event(this, instance);
    tellListeners(listeners, [&](Listener* l) { l->instanceAdded(event); });
}

void Class::fireInstanceChanged(Instance* instance) {
    FirstFailure failure;
    failure.attempt([&] { InstanceState::fireChanged(instance); });
    const InstanceEvent event(this, instance);
    failure.attempt(
        [&] { tellListeners(listeners, [&](Listener* l) { l->instanceChanged(event); }); });
    failure.rethrow();
}

void Class::fireInstanceRemoved(Instance* instance) {
    FirstFailure failure;
    failure.attempt([&] { InstanceState::fireRemoved(instance); });
    const InstanceEvent event(this, instance);
    failure.attempt(
        [&] { tellListeners(listeners, [&](Listener* l) { l->instanceRemoved(event); }); });
    failure.rethrow();
}

}  // namespace Kes
