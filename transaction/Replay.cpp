#include "transaction/Replay.h"

#include <kes/Association.h>
#include <kes/Class.h>
#include <kes/DBDriver.h>
#include <kes/Handler.h>
#include <kes/ManyAssociatedInstances.h>
#include <kes/Model.h>
#include <kes/OneAssociatedInstance.h>

#include "core/RaisedErrors.h"
#include "identity/ObjectCache.h"
#include "object/FieldWalk.h"
#include "object/InstanceState.h"
#include "object/Links.h"
#include "object/ModelGate.h"
#include "object/Plurality.h"
#include "object/ReferenceState.h"
#include "object/Removal.h"
#include "transaction/ReferenceJournal.h"
#include "transaction/StoredState.h"
#include "transaction/UnitOfWork.h"

namespace Kes {

namespace {

const String& roleOf(const Step& step) {
    return step.firstIsOne ? step.association->getOneRole() : step.association->getOtherRole();
}

OneAssociatedInstance* oneReference(const Step& step, Instance* object) {
    RoleReader reader(step.association->getName(), roleOf(step));
    reader.read(object);
    return reader.one;
}

// An object that is stored again has no links but those that the reversal
// makes.
class ReferenceEmptier final : public EmptyHandler {
public:
    ReferenceEmptier(Changes& itsChanges, Instance* itsOwner)
        : changes(itsChanges),
          owner(itsOwner) {}

    void handleOneAssociated(const String& name, const String& role, OneAssociatedInstance* ref,
                             Association::ConsistencyRule) override {
        const Association* association = owner->getClass()->getModel()->getAssociation(name);
        if (association == nullptr)
            return;
        rememberReference(changes, owner, *ref, association, role);
        ref->setInstance(nullptr);
        ref->setObjectID(0);
        ref->setFetched(true);
    }

    void handleManyAssociated(const String&, const String&, ManyAssociatedInstances* ref) override {
        if (ref->isFetched())
            for (ref->reset(); ref->next();)
                rememberMember(changes, owner, *ref, ref->value(), false);
        ref->clear();
        ref->setFetched(true);
    }

private:
    Changes& changes;
    Instance* owner;
};

}  // namespace

void Replay::run(const History::Record& record) {
    for (auto commit = record.commits.rbegin(); commit != record.commits.rend(); ++commit)
        reverse(*commit);
}

void Replay::giveUp() {
    for (Instance* object : doomed)
        if (!object->inTransaction())
            object->setRemoved(false);
}

void Replay::reverse(const CommittedSteps& commit) {
    const std::vector<Step>& steps = commit.steps;
    revived.clear();
    knownEnds.clear();
    for (const Step& step : steps)
        if (step.kind == Step::Removed)
            revive(step, commit.snapshots);
    for (const Step& step : steps)
        if (step.kind != Step::Removed)
            check(step);
    const auto backwards = [&](auto wanted, auto reversal) {
        for (auto step = steps.rbegin(); step != steps.rend(); ++step)
            if (wanted(*step))
                (this->*reversal)(*step);
    };
    for (auto step = steps.rbegin(); step != steps.rend(); ++step)
        if (step->kind == Step::Changed)
            restore(*step, commit.snapshots);
    backwards([](const Step& s) { return s.kind == Step::Pointed && isOneToOne(s.association); },
              &Replay::unpair);
    backwards([](const Step& s) { return s.kind == Step::Pointed; }, &Replay::point);
    backwards([](const Step& s) { return s.kind == Step::Linked || s.kind == Step::Unlinked; },
              &Replay::relink);
    backwards([](const Step& s) { return s.kind == Step::Added; }, &Replay::remove);
}

Class* Replay::partnerClass(const Step& step) const {
    return step.association->getClassFor(step.association->getAssociatedRole(roleOf(step)));
}

// --- comparing ---

void Replay::check(const Step& step) {
    if (step.kind == Step::Linked || step.kind == Step::Unlinked) {
        checkEnd(step.id, step.cls);
        checkEnd(step.other, partnerClass(step));
        return;
    }
    const bool isKnown = ModelGate::objects(model).get(step.id) != nullptr;
    Instance* object = find(step.id, step.cls);
    if (step.kind == Step::Pointed && step.other != 0)
        checkEnd(step.other, partnerClass(step));
    if (revived.contains(object))
        return;
    if (model->isPending(object))
        return checkPending(step, object);
    Instance* stored = isKnown ? readStored(step.id, step.cls) : object;
    if (stored == nullptr || stored->getVersion() != object->getVersion() ||
        (!step.isTold && digestFields(stored) != step.digest))
        throw Conflict{};
    if (step.kind != Step::Pointed)
        return;
    OneAssociatedInstance* ref = oneReference(step, stored);
    if (ref == nullptr || ReferenceState::partnerOf(*ref) != step.after)
        throw Conflict{};
}

// What this reversal, or the application without a transaction, has changed
// already is compared in memory.
void Replay::checkPending(const Step& step, Instance* object) const {
    if (!step.isTold && digestFields(object) != step.digest)
        throw Conflict{};
    if (step.kind != Step::Pointed)
        return;
    OneAssociatedInstance* ref = oneReference(step, object);
    if (ref == nullptr || ReferenceState::partnerOf(*ref) != step.after)
        throw Conflict{};
}

// Links raise no version, so an end of one has to be there and no more.
void Replay::checkEnd(unsigned long id, Class* cls) {
    if (!knownEnds.insert(id).second)
        return;
    const bool isKnown = ModelGate::objects(model).get(id) != nullptr;
    Instance* end = findEnd(id, cls);
    if (isKnown && !model->isPending(end) && readStored(id, end->getClass()) == nullptr)
        throw Conflict{};
}

Instance* Replay::find(unsigned long id, Class* cls) {
    Instance* object = ModelGate::objects(model).get(id);
    if (object == nullptr)
        object = load(id, cls);
    if (object == nullptr || object->isRemoved())
        throw Conflict{};
    return pin(object);
}

// Only the class at that end of the association is known, maybe a super class.
Instance* Replay::findEnd(unsigned long id, Class* cls) {
    if (ModelGate::objects(model).get(id) != nullptr)
        return find(id, cls);
    const ErrorWatch loading;
    Instance* object = model->getInstance(id, cls);
    if (loading.hasFailed())
        throw Abandoned{};
    if (object == nullptr || object->isRemoved())
        throw Conflict{};
    return pin(object);
}

Instance* Replay::pin(Instance* object) {
    changes.pinned.push_back(object);
    return object;
}

Instance* Replay::load(unsigned long id, Class* cls) {
    std::unique_ptr<Instance> fresh(cls->getDummy());
    fresh->setObjectID(id);
    if (!isStored(fresh.get()))
        return nullptr;
    Instance* object = pin(fresh.get());
    try {
        model->set(object);
    } catch (...) {
        if (ModelGate::objects(model).get(id) == object)
            static_cast<void>(fresh.release());
        else
            changes.pinned.pop_back();
        throw;
    }
    return fresh.release();
}

// The stored state, in an object of the replay's own; null when there is none.
Instance* Replay::readStored(unsigned long id, Class* cls) {
    std::unique_ptr<Instance>& reader = readers[cls];
    if (reader == nullptr)
        reader.reset(cls->getDummy());
    reader->setObjectID(id);
    return isStored(reader.get()) ? reader.get() : nullptr;
}

bool Replay::isStored(Instance* reading) {
    const auto stored = Kes::readStored(model, reading, "Transaction::undo/redo");
    if (stored == Stored::Unknown)
        throw Abandoned{};
    return stored == Stored::Found;
}

// --- reversing ---

void Replay::revive(const Step& step, const SnapshotStore& snapshots) {
    Instance* object = ModelGate::objects(model).get(step.id);
    if (object != nullptr && !object->isRemoved())
        throw Conflict{};
    if (step.snapshot == nullptr || readStored(step.id, step.cls) != nullptr)
        throw Conflict{};
    if (object == nullptr) {
        object = step.cls->getDummy();
        object->setObjectID(step.id);
        object->setRemoved(true);
        ModelGate::objects(model).file(object);
    }
    pin(object);
    ReferenceEmptier empty(changes, object);
    walkFields(object, empty);
    snapshots.restore(step.snapshot, object);
    InstanceState::setVersion(object, step.after);
    object->setRemoved(false);
    transactions.recordRestored(object);
    revived.insert(object);
}

void Replay::restore(const Step& step, const SnapshotStore& snapshots) {
    if (step.snapshot == nullptr)
        throw Conflict{};
    Instance* object = find(step.id, step.cls);
    transactions.recordUpdate(object);
    if (!object->inTransaction())
        throw Abandoned{};
    snapshots.restore(step.snapshot, object);
}

void Replay::unpair(const Step& step) {
    Instance* object = find(step.id, step.cls);
    OneAssociatedInstance* ref = oneReference(step, object);
    const unsigned long partner = ReferenceState::partnerOf(*ref);
    if (partner != 0 && partner != step.other)
        object->set(*ref, nullptr);
}

void Replay::point(const Step& step) {
    Instance* object = find(step.id, step.cls);
    OneAssociatedInstance* ref = oneReference(step, object);
    if (ReferenceState::partnerOf(*ref) == step.other)
        return;
    object->set(*ref, step.other != 0 ? findEnd(step.other, partnerClass(step)) : nullptr);
}

void Replay::relink(const Step& step) {
    Instance* object = find(step.id, step.cls);
    Instance* partner = findEnd(step.other, partnerClass(step));
    RoleReader reader(step.association->getName(), roleOf(step));
    reader.read(object);
    const bool make = step.kind == Step::Unlinked;
    if (reader.many->isFetched() && reader.many->contains(partner) == make)
        return;
    if (make)
        object->add(*reader.many, partner);
    else
        object->remove(*reader.many, partner);
}

void Replay::remove(const Step& step) {
    doomed.push_back(find(step.id, step.cls));
    doomed.back()->setRemoved(true);
    if (!Removal::runAlone(doomed.back()))
        throw Abandoned{};
}

}  // namespace Kes
