#include "transaction/Commit.h"

#include <optional>

#include <kes/Association.h>
#include <kes/DBDriver.h>
#include <kes/OneAssociatedInstance.h>

#include "fetch/CommitCount.h"
#include "identity/ObjectCache.h"
#include "object/InstanceState.h"
#include "object/Links.h"
#include "object/ModelGate.h"
#include "object/ReferenceState.h"
#include "transaction/StoredState.h"
#include "transaction/UndoSteps.h"
#include "transaction/UnsureLinks.h"

namespace Kes {

bool Commit::run(String& failure) {
    if (keepsSteps)
        askForUnsureLinks(model, changes);
    if (!applyAll(failure))
        return false;
    prepare();
    const auto complete = [&] {
        std::optional<CommitCount::Scope> counted;
        if (!changes.pending.empty())
            counted.emplace();
        return ModelGate::door(model).enter()->commit();
    };
    return succeeds(complete, failure);
}

bool Commit::applyAll(String& failure) {
    if (hasRefused(changes, failure))
        return false;
    const DriverDoor::Passage driver = ModelGate::door(model).enter();
    for (Action& action : changes.pending)
        if (!apply(action, driver, failure))
            return false;
    return true;
}

bool Commit::apply(Action& action, const DriverDoor::Passage& driver, String& failure) {
    Instance* first = action.first;
    action.applied = true;
    action.firstVersion = first->getVersion();
    switch (action.kind) {
    case Action::Add:
        InstanceState::setFingerprint(first, digestFields(first));
        return succeeds([&] { return driver->insert(first); }, failure);
    case Action::Update: return applyUpdate(action, driver, failure);
    case Action::Remove:
        first->nextVersion();
        return succeeds([&] { return driver->remove(first); }, failure);
    case Action::Link:
    case Action::Unlink: return succeeds([&] { return applyLink(action, driver); }, failure);
    case Action::Dropped:
    case Action::Superseded: break;
    }
    return true;
}

bool Commit::applyUpdate(Action& action, const DriverDoor::Passage& driver, String& failure) {
    Instance* first = action.first;
    first->nextVersion();
    if (action.snapshot != nullptr) {
        changed.clear();
        changes.snapshots.compare(action.snapshot, first, changed);
        updating = first;
    }
    InstanceState::setFingerprint(first, digestFields(first));
    const bool done = succeeds([&] { return driver->update(first); }, failure);
    updating = nullptr;
    return done;
}

// The row that holds a one-reference belongs to `first`. Its version is raised
// once in a commit: by the instance's own action where there is one, otherwise
// by the first link.
bool Commit::applyLink(Action& action, const DriverDoor::Passage& driver) {
    Instance* first = action.first;
    Instance* second = action.second;
    action.secondVersion = second->getVersion();

    // A partner that never came to be stored leaves an empty reference.
    Action::Kind kind = action.kind;
    if (changes.isDropped(first) || changes.isDropped(second))
        kind = Action::Unlink;
    Association* association = action.association;
    const String& oneRole = association->getOneRole();
    const String& firstRole = action.firstIsOne ? oneRole : association->getOtherRole();
    const String& secondRole = association->getAssociatedRole(firstRole);
    const bool holdsRow = association->getPluralityFor(firstRole) == Association::One;
    const bool secondHoldsRow = association->getPluralityFor(secondRole) == Association::One;
    if ((changes.isDropped(first) && (changes.isDropped(second) || !secondHoldsRow)) ||
        (changes.isDropped(second) && !holdsRow))
        return true;
    const bool linkFlag =
        holdsRow && (InstanceState::entry(first) != 0 || InstanceState::isRaised(first));
    if (holdsRow && !linkFlag) {
        first->nextVersion();
        InstanceState::setRaised(first);
    }
    return kind == Action::Link
               ? driver->addLink(first, firstRole, second, secondRole, association, linkFlag)
               : driver->removeLink(first, firstRole, second, secondRole, association, linkFlag);
}

void Commit::prepare() {
    const LinkOutcome stored(model, changes);
    stored.compare(repairs);
    if (keepsSteps) {
        std::vector<Step>& steps = draft.steps().steps;
        steps = writeSteps(model, changes, stored);
        steps.insert(steps.end(), told.begin(), told.end());
    }
    isPrepared = true;
    prepareNews();
}

// What is new was in no selection before, unless it is stored again.
void Commit::prepareNews() {
    RowNews& selections = ModelGate::objects(model).news;
    if (!selections.isAnyOpen())
        return;
    const auto note = [&](const Instance* instance, bool isRemoval) {
        if (selections.concerns(instance))
            news.insert_or_assign(instance->getObjectID(),
                                  RowNews::Entry{instance->getVersion(), isRemoval});
    };
    for (const Action& action : changes.pending) {
        if (action.kind == Action::Remove)
            note(action.first, true);
        else if (action.kind == Action::Update || action.restored ||
                 (action.second != nullptr && InstanceState::isRaised(action.first)))
            note(action.first, false);
    }
    for (const Versioned& each : changes.raised)
        if (!each.instance->isRemoved())
            note(each.instance, false);
    selections.makeRoom(news);
}

bool Commit::getChangedFields(const Instance* instance, FieldSet& fields) const {
    if (instance != updating)
        return false;
    fields = changed;
    return true;
}

// References that the transaction has touched are worked out anyway. The step is
// of a change that no action stands for.
void Commit::referenceEmptied(Association* association, const String& role, unsigned long id,
                              Class* cls, unsigned long partner, bool isRaised) {
    RoleReader reader(association->getName(), role);
    if (Instance* owner = ModelGate::objects(model).get(id)) {
        if (isRaised) {
            changes.raised.push_back({owner, owner->getVersion()});
            owner->nextVersion();
        }
        reader.read(owner);
    }
    if (reader.one != nullptr && ReferenceState::isTouched(*reader.one))
        return;
    if (reader.one != nullptr)
        repairs.ones.push_back({reader.one, 0});
    if (!keepsSteps)
        return;
    Step step{};
    step.kind = Step::Pointed;
    step.isTold = true;
    step.id = id;
    step.cls = cls;
    step.association = association;
    step.firstIsOne = role == association->getOneRole();
    step.other = partner;
    (isPrepared ? draft.steps().steps : told).push_back(step);
}

}  // namespace Kes
