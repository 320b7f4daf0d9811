// The part of Model that deals with objects and with recording their changes.

#include <memory>

#include <kes/Association.h>
#include <kes/Class.h>
#include <kes/DBDriver.h>
#include <kes/Exception.h>
#include <kes/Instance.h>
#include <kes/ManyAssociatedInstances.h>
#include <kes/Model.h>
#include <kes/OneAssociatedInstance.h>
#include <kes/Pointer.h>
#include <kes/Selection.h>

#include "core/RaisedErrors.h"
#include "fetch/SiblingLoader.h"
#include "identity/ObjectCache.h"
#include "transaction/FieldImage.h"
#include "transaction/TransactionManager.h"

namespace Kes {

namespace {

void raise(const char* code, const char* context, const String& message) {
    Exception(Exception::ERROR, code, context, message).handle();
}

String describe(const Instance* instance) {
    return instance->getClass()->getName() + " object with id " + String(instance->getObjectID());
}

}  // namespace

Instance* Model::get(unsigned long objectID) const {
    threadCheck.verify();
    Instance* known = objects->get(objectID);
    return known != nullptr && siblings->isVisible(known) ? known : nullptr;
}

Instance* Model::getInstance(unsigned long objectID, Class* cls) {
    threadCheck.verify();
    Instance* known = objects->get(objectID);
    if (known != nullptr && !known->isLost() && siblings->handOut(known))
        return known;
    if (objectID == 0 || cls == nullptr)
        return nullptr;
    Selection selection(cls);
    selection.setCondition(new AttributeCondition<unsigned long>(new Attribute(cls, "KesObjectID"),
                                                                 Condition::EQUAL, objectID));
    if (!selection.next() || selection.value()->flag(Instance::Gone))
        return nullptr;
    return selection.value();
}

void Model::set(Instance* instance) {
    threadCheck.verify();
    if (instance == scratch)
        return;
    instance->fingerprint = digestFields(instance);
    if (objects->get(instance->getObjectID()) == instance) {
        siblings->noteRenewed(instance);
        if (instance->flag(Instance::Gone))
            instance->setRemoved(false);

        // What the application has not had yet is no change to it.
        instance->setFlag(Instance::Untold, !instance->flag(Instance::Ahead));
    } else {
        siblings->noteFiled(instance);
        if (objects->hasLost(instance)) {
            instance->setRemoved(true);
            instance->setFlag(Instance::Gone, true);
        }
        objects->file(instance);
    }
    if (objects->isCollectionDue())
        objects->collect(*transactions);
}

void Model::garbageCollect() {
    threadCheck.doit();
    objects->collect(*transactions);
}

void Model::addPointer(PointerBase* pointer) {
    threadCheck.verify();
    objects->pointers.add(pointer);
}

void Model::removePointer(PointerBase* pointer) {
    threadCheck.verify();
    objects->pointers.remove(pointer);
}

// A pointer that is destroyed goes whoever destroys it.
void Model::forgetPointer(PointerBase* pointer) noexcept {
    threadCheck.note();
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
    const unsigned long id = [&] {
        const SiblingLoader::DriverScope asking(this);
        return driver->newObjectID();
    }();
    if (id == 0) {
        raise("OIDERR", "Model::add", driver->getErrorMessage());
        return;
    }
    if (instance->getObjectID() != 0)
        objects->orphan(instance);
    instance->setObjectID(id);
    instance->version = 0;
    instance->setRemoved(false);
    objects->file(instance);
    siblings->noteNew(instance->getClass());
    transactions->recordAdd(instance);
    if (objects->isCollectionDue())
        objects->collect(*transactions);
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
    noteContestedLink();
    link(true, first, firstRole, second, secondRole, association);
}

void Model::remove(Instance* first, const String& firstRole, Instance* second,
                   const String& secondRole, Association* association) {
    noteContestedLink();
    link(false, first, firstRole, second, secondRole, association);
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
    return TransactionManager::isPending(instance);
}

bool Model::getChangedFields(const Instance* instance, FieldSet& fields) const {
    threadCheck.verify();
    return transactions->getChangedFields(instance, fields);
}

void Model::commit() {
    threadCheck.doit();
    if (!requireOpen("Model::commit"))
        return;
    siblings->forget();
    forgetFailure();
    transactions->commit();
}

void Model::rollback() {
    threadCheck.doit();
    if (!requireOpen("Model::rollback"))
        return;
    siblings->forget();
    transactions->rollback();
}

bool Model::requireOpen(const char* operation) const {
    if (driver == nullptr)
        raise("NOTOPEN", operation, String("The model ") + name + " is not open; open it first");
    return driver != nullptr;
}

void Model::lock(Instance* instance) {
    if (!isUsable(instance, "Model::lock", "locked"))
        return;
    siblings->forget();
    transactions->noteLock();  // also where the driver throws behind its work
    try {
        const SiblingLoader::DriverScope asking(this);
        if (driver->lock(instance))
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
    siblings->forget();
    const Pointer<Instance> keep(instance);
    const unsigned long before = instance->getVersion();
    const ErrorWatch watch;
    const bool isCurrent = [&] {
        const SiblingLoader::DriverScope asking(this);
        return driver->refresh(instance);
    }();
    if (!isPending(instance))
        siblings->noteRefreshed(instance);

    // A query tells nobody of what it has brought.
    if (isCurrent && (watch.hasFailed() || !instance->flag(Instance::Untold)))
        return;
    const TransactionManager::Telling telling(*transactions);

    // A driver that cannot tell any more has brought it up to date all the same.
    if (isCurrent || instance->getVersion() != before) {
        if (instance->flag(Instance::Gone))
            instance->setRemoved(false);
        instance->setFlag(Instance::Untold, false);
        instance->getClass()->fireInstanceChanged(instance);
        return;
    }
    const DBDriverStatus* status = driver->getStatus();
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
    if (instance->flag(Instance::Gone))
        return false;
    objects->lose(instance->getObjectID(), instance->getVersion() + 1);
    instance->setRemoved(true);
    instance->setFlag(Instance::Gone, true);
    instance->setFlag(Instance::Untold, true);
    return true;
}

SelectionDefinition* Model::defineSelection(AssociatedClass* associatedClass) {
    threadCheck.doit();
    siblings->noteQuery();
    const SiblingLoader::DriverScope asking(this);
    return driver != nullptr ? driver->defineSelection(associatedClass) : nullptr;
}

DBDriverSelection* Model::fetch(Class* cls, SelectionDefinition* definition) {
    threadCheck.doit();
    const SiblingLoader::DriverScope asking(this);
    return driver != nullptr ? driver->fetch(cls, definition) : nullptr;
}

void Model::rememberReference(Instance* owner, OneAssociatedInstance& ref,
                              const Association* association, const String& role) {
    transactions->rememberReference(owner, ref, association, role);
}

void Model::rememberMember(Instance* owner, ManyAssociatedInstances& ref, Instance* member,
                           bool added) {
    transactions->rememberMember(owner, ref, member, added);
}

void Model::rememberLostLink(Instance* owner, Instance* member, Association* association,
                             const String& role) {
    transactions->rememberLostLink(owner, member, association, role);
}

void Model::noteUnchangedLink(const Instance* first, const Instance* second) {
    transactions->noteUnchangedLink(first, second);
}

void Model::noteUnsureLink(const Instance* first, const Instance* second) {
    transactions->noteUnsureLink(first, second);
}

// Memory's references will have to be compared with what is going to be stored.
void Model::noteContestedLink() {
    transactions->contested = true;
}

// Whom a removal concerns is needed to take it back. Most drivers tell.
bool Model::mustKnowReferrers() const {
    return transactions->history.isKept() && !transactions->hearsOfEmptied;
}

void Model::forgetReadAhead() {
    siblings->forget();
}

void Model::loadPartner(Instance* owner, OneAssociatedInstance& ref, Association* association,
                        const String& role) {
    const unsigned long id = ref.getObjectID();
    if (id != 0) {
        Instance* partner = objects->get(id);
        const bool isReady = partner != nullptr && siblings->handOut(partner);
        if (!isReady && driver != nullptr) {
            const Pointer<Instance> keep(owner);

            // The next read tries again.
            if (!siblings->loadPartner(owner, id, association, role, partner))
                return;
        }

        // A partner that is removed for good is kept in memory by pointers only.
        if (partner != nullptr)
            siblings->reveal(partner);
        if (partner != nullptr && partner->flag(Instance::Gone))
            partner = nullptr;
        ref.setInstance(partner);
    }
    ref.setFetched(true);
}

void Model::loadPartners(Instance* owner, ManyAssociatedInstances& ref, Association* association,
                         const String& role) {
    const Pointer<Instance> keep(owner);
    ref.setFetched(false);
    const bool isStored = owner->getObjectID() != 0 && driver != nullptr;
    if (isStored && !siblings->loadMembers(owner, association, role, ref)) {
        ref.clear();
        return;
    }
    ref.setFetched(true);
    transactions->applyPendingLinks(owner, ref, association, role);
    siblings->noteCollection(owner, ref, association, role);
}

}  // namespace Kes
