// The part of Model that deals with objects and with recording their changes.

#include <memory>

#include <kes/Association.h>
#include <kes/Class.h>
#include <kes/DBDriver.h>
#include <kes/Instance.h>
#include <kes/ManyAssociatedInstances.h>
#include <kes/Model.h>
#include <kes/OneAssociatedInstance.h>
#include <kes/Pointer.h>
#include <kes/Selection.h>

#include "core/RaisedErrors.h"
#include "fetch/ReferenceLoader.h"
#include "identity/ObjectCache.h"
#include "object/InstanceState.h"
#include "object/Plurality.h"
#include "query/DriverDoor.h"
#include "session/Raise.h"
#include "transaction/Snapshot.h"
#include "transaction/StoredState.h"
#include "transaction/UnitOfWork.h"

namespace Kes {

namespace {

String describe(const Instance* instance) {
    return instance->getClass()->getName() + " object with id " + String(instance->getObjectID());
}

}  // namespace

Instance* Model::get(unsigned long objectID) const {
    threadCheck.verify();
    Instance* known = objects->get(objectID);
    return known != nullptr && (!InstanceState::isAhead(known) || door->isEntered()) ? known
                                                                                     : nullptr;
}

Instance* Model::getInstance(unsigned long objectID, Class* cls) {
    threadCheck.verify();
    Instance* known = objects->get(objectID);
    if (known != nullptr && !InstanceState::isLost(known) && !isUnread(known) &&
        references->handOut(known))
        return known;
    if (objectID == 0 || cls == nullptr)
        return nullptr;
    Selection selection(cls);
    selection.setCondition(new AttributeCondition<unsigned long>(new Attribute(cls, "KesObjectID"),
                                                                 Condition::EQUAL, objectID));
    if (!selection.next() || InstanceState::isGone(selection.value()))
        return nullptr;
    return selection.value();
}

void Model::set(Instance* instance) {
    threadCheck.verify();
    if (door->isScratch(instance))
        return;
    InstanceState::setFingerprint(instance, digestFields(instance));
    if (objects->get(instance->getObjectID()) == instance) {
        references->onRenewed(instance);
        if (InstanceState::isGone(instance) && !objects->news.hasLost(instance))
            instance->setRemoved(false);
        if (!instance->isRemoved())
            objects->news.note(instance);

        // What the application has not had yet is no change to it.
        InstanceState::setUntold(instance, !InstanceState::isAhead(instance));
    } else {
        references->onFiled(instance);
        if (objects->news.hasLost(instance)) {
            instance->setRemoved(true);
            InstanceState::setGone(instance, true);
        } else {
            // Nobody gets it before it was read again.
            if (objects->news.isOutdated(instance))
                InstanceState::setAhead(instance, true);
            objects->news.note(instance);
        }
        objects->file(instance);
    }
    if (objects->isCollectionDue())
        objects->collect([this](Marker& marker) { transactions->markInstances(marker); });
}

void Model::garbageCollect() {
    threadCheck.doit();
    objects->collect([this](Marker& marker) { transactions->markInstances(marker); });
}

void Model::addPointer(PointerBase* pointer) {
    threadCheck.verify();
    objects->pointers.add(pointer);
}

void Model::removePointer(PointerBase* pointer) {
    threadCheck.verify();
    objects->pointers.remove(pointer);
}

// Says what stands against writing the instance.
bool Model::isUsable(const Instance* instance, const char* operation, const char* verb) const {
    threadCheck.verify();
    if (instance == nullptr)
        raise("INSTERR", operation, String("Null cannot be ") + verb + "; give it an instance");
    else if (instance->getClass() == nullptr)
        raise("INSTERR", operation,
              String("An object without a class cannot be ") + verb +
                  "; make it with the newInstance of a class");
    else if (instance->getClass()->getModel() != this)
        raise("INSTERR", operation,
              String("The ") + describe(instance) + " belongs to the model " +
                  instance->getClass()->getModel()->getName() + " and cannot be " + verb +
                  " in the model " + name);
    else if (driver == nullptr)
        raise("INSTERR", operation,
              String("The ") + describe(instance) + " cannot be " + verb + ": the model " + name +
                  " is not open; open it first");
    else
        return true;
    return false;
}

void Model::add(Instance* instance) {
    if (!isUsable(instance, "Model::add", "added"))
        return;
    const Pointer<Instance> keep(instance);
    const bool resurrected = instance->isRemoved() && isPending(instance);
    if (instance->getObjectID() != 0 && !instance->isRemoved()) {
        raise("INSTERR", "Model::add",
              String("The ") + describe(instance) +
                  " was added before; call change to store what was assigned");
        return;
    }
    if (instance->getClass()->isAbstract()) {
        raise("INSTERR", "Model::add",
              String("The class ") + instance->getClass()->getName() +
                  " is abstract and has no objects of its own; add one of a sub class");
        return;
    }
    if (resurrected && transactions->recordRevival(instance))
        return;
    const unsigned long id = door->enter()->newObjectID();
    if (id == 0) {
        raise("OIDERR", "Model::add", driver->getErrorMessage());
        return;
    }
    if (instance->getObjectID() != 0)
        objects->orphan(instance);
    instance->setObjectID(id);
    InstanceState::setVersion(instance, 0);
    instance->setRemoved(false);
    objects->file(instance);
    references->onNewObject(instance->getClass());
    transactions->recordAdd(instance);
    if (objects->isCollectionDue())
        objects->collect([this](Marker& marker) { transactions->markInstances(marker); });
}

void Model::update(Instance* instance) {
    if (!isUsable(instance, "Model::update", "changed"))
        return;
    if (instance->getObjectID() == 0 || (instance->isRemoved() && !isPending(instance))) {
        raise("INSTERR", "Model::update",
              String("The ") + describe(instance) + " cannot be changed: it " +
                  (instance->isRemoved() ? "was removed" : "was never added; call add first"));
        return;
    }
    transactions->recordUpdate(instance);
}

bool Model::isAdded(const Instance* instance, const char* operation) const {
    if (instance->getObjectID() == 0)
        raise("INSTERR", operation,
              String("The ") + describe(instance) +
                  " cannot be removed: it was never added; call add first");
    return instance->getObjectID() != 0;
}

void Model::remove(Instance* instance) {
    if (!isUsable(instance, "Model::remove", "removed"))
        return;

    if (isAdded(instance, "Model::remove"))
        transactions->recordRemove(instance);
}

void Model::add(Instance* first, const String& firstRole, Instance* second,
                const String& secondRole, Association* association) {
    transactions->getChanges().contested = true;
    link(true, first, firstRole, second, secondRole, association);
    if (isManyToMany(association))
        transactions->noteUnsureLink(first, second);
}

void Model::remove(Instance* first, const String& firstRole, Instance* second,
                   const String& secondRole, Association* association) {
    transactions->getChanges().contested = true;
    link(false, first, firstRole, second, secondRole, association);
    if (isManyToMany(association))
        transactions->noteUnsureLink(first, second);
}

void Model::link(bool made, Instance* first, const String& firstRole, Instance* second,
                 const String& secondRole, Association* association) {
    const char* operation = made ? "Model::add" : "Model::remove";
    const char* verb = made ? "linked" : "unlinked";
    if (isUsable(first, operation, verb) && isUsable(second, operation, verb))
        recordLink(made, first, firstRole, second, secondRole, association);
}

void Model::recordLink(bool made, Instance* first, const String& firstRole, Instance* second,
                       const String& secondRole, Association* association) {
    const char* operation = made ? "Model::add" : "Model::remove";
    if (association == nullptr || association->getAssociatedRole(firstRole) != secondRole) {
        raise("INSTERR", operation,
              String("The roles ") + firstRole + " and " + secondRole +
                  " are not the two ends of " +
                  (association != nullptr ? String("the association ") + association->getName()
                                          : String("one association")));
        return;
    }
    if (made && (first->getObjectID() == 0 || second->getObjectID() == 0)) {
        raise("INSTERR", operation,
              String("The ") + describe(first) + " and the " + describe(second) +
                  " cannot be linked before both are added; call add first");
        return;
    }
    transactions->recordLink(made ? Action::Link : Action::Unlink, first, firstRole, second,
                             association);
}

bool Model::isPending(const Instance* instance) const {
    threadCheck.verify();
    return InstanceState::isPending(instance);
}

bool Model::getChangedFields(const Instance* instance, FieldSet& fields) const {
    threadCheck.verify();
    return transactions->getChangedFields(instance, fields);
}

SelectionDefinition* Model::defineSelection(AssociatedClass* associatedClass) {
    threadCheck.doit();
    return driver != nullptr ? door->ask()->defineSelection(associatedClass) : nullptr;
}

DBDriverSelection* Model::fetch(Class* cls, SelectionDefinition* definition) {
    threadCheck.doit();
    return driver != nullptr ? door->enter()->fetch(cls, definition) : nullptr;
}

}  // namespace Kes
