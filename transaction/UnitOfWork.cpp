#include "transaction/UnitOfWork.h"

#include <kes/Association.h>
#include <kes/DBDriver.h>
#include <kes/Model.h>

#include "identity/ObjectCache.h"
#include "object/InstanceState.h"
#include "object/ModelGate.h"
#include "query/DriverDoor.h"
#include "transaction/Commit.h"
#include "transaction/StoredState.h"

namespace Kes {

void UnitOfWork::start() {
    ModelGate::door(model).end();
    started = true;
    history.start();
}

Action* UnitOfWork::entryOf(const Instance* instance) {
    return const_cast<Action*>(changes.find(instance));
}

Action& UnitOfWork::record(Action::Kind kind, Instance* first) {
    Action action{};
    action.kind = kind;
    action.first = first;
    InstanceState::setAhead(first, false);
    if (!reversing)
        history.noteStep();
    changes.pending.push_back(action);
    return changes.pending.back();
}

void UnitOfWork::recordAdd(Instance* instance) {
    Action& action = record(Action::Add, instance);
    action.digest = InstanceState::fingerprint(instance);
    InstanceState::setEntry(instance, changes.pending.size());
    instance->setInTransaction(true);
}

void UnitOfWork::recordUpdate(Instance* instance) {
    if (changes.find(instance) != nullptr)
        return;
    try {
        Snapshot snapshot = nullptr;
        if (snapshotForUpdate(model, changes, instance, "Model::update", snapshot))
            recordUpdate(instance, snapshot);
    } catch (...) {
        // What was assigned may be in memory already.
        if (changes.find(instance) == nullptr && !isUnknown(instance))
            refuse(changes, instance);
        throw;
    }
}

void UnitOfWork::recordUpdate(Instance* instance, Snapshot snapshot) {
    Action& action = record(Action::Update, instance);
    action.snapshot = snapshot;
    action.digest = InstanceState::fingerprint(instance);
    InstanceState::setEntry(instance, changes.pending.size());
    instance->setInTransaction(true);
}

void UnitOfWork::recordRemove(Instance* instance) {
    Snapshot snapshot = nullptr;
    Action* update = nullptr;
    if (Action* known = entryOf(instance)) {
        Action& entry = *known;
        if (entry.kind == Action::Add) {
            entry.kind = Action::Dropped;
            instance->setInTransaction(false);
            return;
        }
        if (entry.kind == Action::Remove || entry.kind == Action::Dropped)
            return;
        snapshot = entry.snapshot;
        update = &entry;  // entries stay where they are
    }
    // Without a snapshot it can be removed, though not brought back.
    if (snapshot == nullptr && history.isKept())
        snapshotForRemoval(model, changes, instance, snapshot);
    record(Action::Remove, instance).snapshot = snapshot;
    if (update != nullptr)
        update->kind = Action::Superseded;
    InstanceState::setEntry(instance, changes.pending.size());
    instance->setInTransaction(true);
}

void UnitOfWork::recordRestored(Instance* instance) {
    recordAdd(instance);
    changes.pending.back().restored = true;
}

bool UnitOfWork::recordRevival(Instance* instance) {
    Action* known = entryOf(instance);
    if (known == nullptr)
        return false;
    Action& entry = *known;
    if (entry.kind == Action::Dropped) {
        recordAdd(instance);
        entry.kind = Action::Superseded;
        instance->setRemoved(false);
        return true;
    }
    if (entry.kind != Action::Remove)
        return false;
    Snapshot snapshot = entry.snapshot;
    if (snapshot == nullptr && !snapshotForUpdate(model, changes, instance, "Model::add", snapshot))
        return true;
    recordUpdate(instance, snapshot);
    entry.snapshot = nullptr;
    entry.kind = Action::Superseded;
    instance->setRemoved(false);
    return true;
}

void UnitOfWork::recordLink(Action::Kind kind, Instance* first, const String& firstRole,
                            Instance* second, Association* association) {
    Action& action = record(kind, first);
    action.second = second;
    action.association = association;
    action.firstIsOne = firstRole == association->getOneRole();
    InstanceState::setLinked(first);
    InstanceState::setLinked(second);
    InstanceState::setAhead(second, false);
}

void UnitOfWork::noteUnchangedLink(const Instance* first, const Instance* second) {
    if (!changes.pending.empty() && changes.pending.back().first == first &&
        changes.pending.back().second == second)
        changes.pending.back().changedNothing = true;
}

void UnitOfWork::noteUnsureLink(const Instance* first, const Instance* second) {
    if (!changes.pending.empty() && changes.pending.back().first == first &&
        changes.pending.back().second == second)
        changes.pending.back().isUnsure = true;
}

void UnitOfWork::listenTo(DBDriver* driver) {
    auto* emptying = dynamic_cast<EmptyingDriver*>(driver);
    isListening = emptying != nullptr && emptying->tellEmptiedTo(this);
}

void UnitOfWork::stopListening(DBDriver* driver) {
    if (isListening)
        dynamic_cast<EmptyingDriver*>(driver)->tellEmptiedTo(nullptr);
    isListening = false;
}

void UnitOfWork::referenceEmptied(Association* association, const String& role, unsigned long id,
                                  Class* cls, unsigned long partner, bool isRaised) {
    if (underWay != nullptr)
        underWay->referenceEmptied(association, role, id, cls, partner, isRaised);
}

bool UnitOfWork::getChangedFields(const Instance* instance, FieldSet& fields) const {
    return underWay != nullptr && underWay->getChangedFields(instance, fields);
}

void UnitOfWork::markInstances(Marker& marker) const {
    const auto markActions = [&](const Changes::Actions& actions) {
        for (const Action& action : actions) {
            marker.mark(action.first);
            if (action.second != nullptr)
                marker.mark(action.second);
        }
    };
    markActions(changes.pending);
    for (const Changes::Actions* told : announced)
        markActions(*told);
    for (Instance* instance : changes.pinned)
        marker.mark(instance);
    for (const Versioned& entry : changes.refused)
        marker.mark(entry.instance);
    for (const Remembered& entry : changes.journal) {
        marker.mark(entry.owner);
        if (entry.instance != nullptr)
            marker.mark(entry.instance);
    }
}

}  // namespace Kes
