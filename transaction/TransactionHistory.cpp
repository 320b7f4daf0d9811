// The part of the transaction manager that deals with the history.

#include <kes/Association.h>
#include <kes/DBDriver.h>
#include <kes/Exception.h>
#include <kes/Instance.h>
#include <kes/Model.h>
#include <kes/OneAssociatedInstance.h>

#include "identity/ObjectCache.h"
#include "object/InstanceState.h"
#include "object/ModelGate.h"
#include "transaction/LinkOutcome.h"
#include "transaction/Replay.h"
#include "transaction/UnitOfWork.h"

namespace Kes {

namespace {

bool isManyToMany(const Association* association) {
    return association->getPluralityFor(association->getOneRole()) == Association::Many &&
           association->getPluralityFor(association->getOtherRole()) == Association::Many;
}

}  // namespace

// Turns what a commit has written into steps.
//
// References of objects that the commit added need none: to take the add back
// is to remove the object, which dissolves its links. One-references are told by
// what they held before the transaction and what they hold now, whichever way
// led there.
class UnitOfWork::StepWriter {
public:
    StepWriter(const UnitOfWork& source, const LinkOutcome& stored)
        : manager(source),
          outcome(stored) {}

    std::vector<Step> write() {
        steps.reserve(manager.pending.size());
        for (const Action& action : manager.pending)
            write(action);
        for (const Remembered& entry : manager.journal) {
            if (entry.kind == Remembered::One && entry.isFirst)
                writeReference(entry);
            else if (entry.kind == Remembered::LostLink)
                writeLostLink(entry);
        }
        return std::move(steps);
    }

private:
    Step& add(Step::Kind kind, const Instance* object) {
        Step step{};
        step.kind = kind;
        step.id = object->getObjectID();
        step.cls = object->getClass();
        step.digest = InstanceState::fingerprint(object);
        steps.push_back(step);
        return steps.back();
    }

    bool isNew(const Instance* object) const { return manager.isNew(object); }

    void write(const Action& action) {
        switch (action.kind) {
        case Action::Add: add(Step::Added, action.first); break;
        case Action::Update: add(Step::Changed, action.first).image = action.image; break;
        case Action::Remove: {
            Step& step = add(Step::Removed, action.first);
            step.image = action.image;
            step.after = action.first->getVersion();
            break;
        }
        case Action::Link:
        case Action::Unlink: writeLink(action); break;
        case Action::Dropped:
        case Action::Superseded: break;
        }
    }

    void writeLink(const Action& action) {
        if (action.changedNothing || isNew(action.first) || isNew(action.second) ||
            !isManyToMany(action.association))
            return;
        Step& step = add(action.kind == Action::Link ? Step::Linked : Step::Unlinked, action.first);
        step.association = action.association;
        step.firstIsOne = action.firstIsOne;
        step.other = action.second->getObjectID();
    }

    void writeLostLink(const Remembered& entry) {
        if (InstanceState::isGone(entry.instance) || isNew(entry.owner) || isNew(entry.instance) ||
            !isManyToMany(entry.association))
            return;
        Step& step = add(Step::Unlinked, entry.owner);
        step.association = const_cast<Association*>(entry.association);
        step.firstIsOne = entry.ownerIsOne;
        step.other = entry.instance->getObjectID();
    }

    void writeReference(const Remembered& entry) {
        if (isNew(entry.owner))
            return;
        const unsigned long before = partnerBefore(entry);
        const unsigned long after = entry.owner->isRemoved() ? 0 : outcome.partnerOf(entry);
        if (before == after)
            return;
        Step& step = add(Step::Pointed, entry.owner);
        step.association = const_cast<Association*>(entry.association);
        step.firstIsOne = entry.ownerIsOne;
        step.other = before;
        step.after = after;
    }

    // A partner that an earlier transaction removed was none any more, and one
    // that came with this transaction was none yet.
    unsigned long partnerBefore(const Remembered& entry) const {
        const Instance* partner = inMemory(entry.fetched, entry.instance, entry.objectID);
        if (partner != nullptr)
            return InstanceState::isGone(partner) || isNew(partner) ? 0 : partner->getObjectID();
        return entry.fetched ? 0 : entry.objectID;
    }

    const Instance* inMemory(bool fetched, const Instance* held, unsigned long id) const {
        return fetched || id == 0 ? held : ModelGate::objects(manager.model).get(id);
    }

    const UnitOfWork& manager;
    const LinkOutcome& outcome;
    std::vector<Step> steps;
};

// Added by this commit, or never stored at all.
bool UnitOfWork::isNew(const Instance* object) const {
    if (InstanceState::entry(object) == 0)
        return false;
    const Action::Kind kind = pending[InstanceState::entry(object) - 1].kind;
    return kind == Action::Add || kind == Action::Dropped;
}

bool UnitOfWork::keepsSteps() const {
    return turning || history.newest(History::Undo) != nullptr;
}

// Of a change that no action stands for.
void UnitOfWork::noteStep(const Step& step) {
    (outcome->isPrepared ? outcome->draft.steps().steps : outcome->told).push_back(step);
}

void UnitOfWork::prepareOutcome(Outcome& left) {
    LinkOutcome stored(*this);
    stored.compare(left);
    if (keepsSteps()) {
        std::vector<Step>& steps = left.draft.steps().steps;
        steps = StepWriter(*this, stored).write();
        steps.insert(steps.end(), left.told.begin(), left.told.end());
    }
    left.isPrepared = true;
    announced.reserve(announced.size() + 1);
    if (!ModelGate::objects(model).isRead())
        return;
    for (const Action& action : pending)
        if (action.kind == Action::Remove)
            left.losses.emplace(action.first->getObjectID(), action.first->getVersion());
    ModelGate::objects(model).makeRoom(left.losses);
}

// Before the listeners hear of the commit: they may ask for the history, start
// a transaction or undo this one.
void UnitOfWork::settleHistory(Outcome& left) noexcept {
    History::Draft& draft = left.draft;
    ModelGate::objects(model).lose(left.losses);
    if (!draft.steps().steps.empty())
        draft.steps().images = std::move(images);
    if (turning)
        history.turn(*turning, draft);
    else
        history.keep(draft);
    turning.reset();
    for (const Action& action : pending)
        if (action.kind == Action::Remove || action.kind == Action::Dropped)
            InstanceState::setGone(action.first, true);
}

void UnitOfWork::turn(History::Direction direction) {
    door().end();
    // Changes without a transaction stand in the newest record, so to undo that
    // one is to take them back first.
    if (direction == History::Undo && !pending.empty())
        rollback();
    if (direction == History::Undo)
        history.dropVoid();
    bool conflict = false;
    if (replay(direction, conflict)) {
        commit();
        return;
    }
    if (conflict)
        Exception(Exception::ERROR, "Transaction::undo/redo", "UNDOREDO",
                  "Somebody else has removed or changed one of the objects you want to undo or "
                  "redo, Transaction is aborted")
            .handle();
}

// Records the reversing actions; false after a rollback when that is not to be.
bool UnitOfWork::replay(History::Direction direction, bool& conflict) {
    started = true;
    turning = direction;
    Replay reversal(model, *this);
    try {
        reversal.run(*history.newest(direction));
        return true;
    } catch (const Replay::Conflict&) {
        conflict = true;
    } catch (const Replay::Abandoned&) {
        // The error handler knows, and has returned.
    } catch (...) {
        reversal.giveUp();
        rollback();
        throw;
    }
    reversal.giveUp();
    rollback();
    return false;
}

}  // namespace Kes
