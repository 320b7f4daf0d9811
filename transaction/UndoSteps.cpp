#include "transaction/UndoSteps.h"

#include <utility>

#include <kes/Association.h>
#include <kes/Class.h>

#include "identity/ObjectCache.h"
#include "object/ModelGate.h"
#include "object/Plurality.h"

namespace Kes {

namespace {

// Turns what a commit has written into steps.
//
// References of objects that the commit added need none: to take the add back
// is to remove the object, which dissolves its links. One-references are told by
// what they held before the transaction and what they hold now, whichever way
// led there.
class StepWriter {
public:
    StepWriter(const Model* itsModel, const Changes& itsChanges, const LinkOutcome& stored)
        : model(itsModel),
          changes(itsChanges),
          outcome(stored) {}

    std::vector<Step> write() {
        steps.reserve(changes.pending.size());
        for (const Action& action : changes.pending)
            write(action);
        for (const Remembered& entry : changes.journal) {
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

    bool isNew(const Instance* object) const { return changes.isNew(object); }

    void write(const Action& action) {
        switch (action.kind) {
        case Action::Add: add(Step::Added, action.first); break;
        case Action::Update: add(Step::Changed, action.first).snapshot = action.snapshot; break;
        case Action::Remove: {
            Step& step = add(Step::Removed, action.first);
            step.snapshot = action.snapshot;
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
        return fetched || id == 0 ? held : ModelGate::objects(model).get(id);
    }

    const Model* model;
    const Changes& changes;
    const LinkOutcome& outcome;
    std::vector<Step> steps;
};

}  // namespace

std::vector<Step> writeSteps(const Model* model, const Changes& changes,
                             const LinkOutcome& outcome) {
    return StepWriter(model, changes, outcome).write();
}

}  // namespace Kes
