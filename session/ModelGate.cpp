// What objects ask of their model, answered by the rooms above them.

#include "object/ModelGate.h"

#include <kes/Failure.h>
#include <kes/ManyAssociatedInstances.h>
#include <kes/OneAssociatedInstance.h>
#include <kes/Pointer.h>

#include "fetch/ReferenceLoader.h"
#include "identity/ObjectCache.h"
#include "object/InstanceState.h"
#include "query/DriverDoor.h"
#include "transaction/PendingLinks.h"
#include "transaction/ReferenceJournal.h"
#include "transaction/StoredState.h"
#include "transaction/UnitOfWork.h"

namespace Kes {

namespace {

Model* modelOf(const Instance* instance) {
    return instance->getClass()->getModel();
}

}  // namespace

DeliveryObserver& ModelGate::observer(const Model* model) {
    return *model->references;
}

void ModelGate::noteUnchangedLink(Model* model, const Instance* first, const Instance* second) {
    model->transactions->noteUnchangedLink(first, second);
}

void ModelGate::noteUnsureLink(Model* model, const Instance* first, const Instance* second) {
    model->transactions->noteUnsureLink(first, second);
}

void ModelGate::noteContestedLink(Model* model) {
    model->transactions->getChanges().contested = true;
}

void ModelGate::rememberReference(Instance* owner, OneAssociatedInstance& ref,
                                  const Association* association, const String& role) {
    Kes::rememberReference(modelOf(owner)->transactions->getChanges(), owner, ref, association,
                           role);
}

void ModelGate::rememberMember(Instance* owner, ManyAssociatedInstances& ref, Instance* member,
                               bool added) {
    Kes::rememberMember(modelOf(owner)->transactions->getChanges(), owner, ref, member, added);
}

void ModelGate::rememberLostLink(Instance* owner, Instance* member, Association* association,
                                 const String& role) {
    Kes::rememberLostLink(modelOf(owner)->transactions->getChanges(), owner, member, association,
                          role);
}

// Whom a removal concerns is needed to take it back. Most drivers tell.
bool ModelGate::mustKnowReferrers(const Model* model) {
    return model->transactions->getHistory().isKept() && !model->transactions->hearsOfEmptied();
}

std::size_t ModelGate::markReferences(const Model* model) {
    return model->transactions->getChanges().journal.size();
}

void ModelGate::revertLastReferences(const Model* model, std::size_t mark) noexcept {
    Kes::revertLastReferences(model->transactions->getChanges(), mark);
}

void ModelGate::noteMember(const Instance* owner, const ManyAssociatedInstances& ref,
                           const Instance* member, const Association* association,
                           const String& role) {
    modelOf(owner)->references->noteMember(owner, ref, member, association, role);
}

bool ModelGate::hasPending(const Model* model) {
    return model->transactions->hasPending();
}

void ModelGate::loadPartner(Instance* owner, OneAssociatedInstance& ref, Association* association,
                            const String& role, bool force) {
    const Model* model = modelOf(owner);
    ReferenceLoader& references = *model->references;
    if (force)
        model->door->end();
    const unsigned long id = ref.getObjectID();
    if (id != 0) {
        Instance* partner = model->objects->get(id);
        const bool isReady =
            partner != nullptr && !isUnread(partner) && references.handOut(partner);
        if (!isReady && model->isOpen()) {
            const Pointer<Instance> keep(owner);

            // The next read tries again.
            if (!references.loadPartner(owner, id, association, role, partner))
                return;
        }

        // A partner that is removed for good is kept in memory by pointers only.
        if (partner != nullptr)
            references.reveal(partner);
        if (partner != nullptr && InstanceState::isGone(partner))
            partner = nullptr;
        ref.setInstance(partner);
    }
    ref.setFetched(true);
}

void ModelGate::loadMembers(Instance* owner, ManyAssociatedInstances& ref, Association* association,
                            const String& role, bool force) {
    const Model* model = modelOf(owner);
    ReferenceLoader& references = *model->references;
    if (force)
        model->door->end();
    const Pointer<Instance> keep(owner);
    references.beforeReload(owner, ref, association, role);
    ref.setFetched(false);
    const bool isStored = owner->getObjectID() != 0 && model->isOpen();
    if (isStored && !references.loadMembers(owner, association, role, ref)) {
        ref.clear();
        return;
    }
    ref.setFetched(true);
    applyPendingLinks(model->transactions->getChanges(), owner, ref, association, role);
    try {
        references.noteCollection(owner, ref, association, role);
    } catch (...) {
        ref.setFetched(false);  // the other sides may not have followed
        throw;
    }
}

void ModelGate::dropFailure(Model* model) {
    if (model->failures != nullptr)
        model->failures->forgetFailure();
}

// A pointer that is destroyed goes whoever destroys it.
void ModelGate::forgetPointer(const Instance* from, PointerBase* pointer) noexcept {
    const Model* model = from->getClass() != nullptr ? modelOf(from) : nullptr;
    if (model == nullptr)
        return;
    model->threadCheck.note();
    model->objects->pointers.remove(pointer);
}

}  // namespace Kes
