#include "transaction/Rollback.h"

#include <algorithm>

#include "identity/ObjectCache.h"
#include "object/ListenerList.h"
#include "object/ModelGate.h"
#include "transaction/ReferenceJournal.h"
#include "transaction/StoredState.h"

namespace Kes {

namespace {

// Of several actions on one instance a later one may have failed to restore it.
void revertVersion(Instance* instance, unsigned long version) {
    if (!isUnread(instance))
        InstanceState::setVersion(instance, version);
}

void revertAction(const Model* model, const Changes& changes, const Action& action) {
    Instance* first = action.first;
    if (action.applied) {
        revertVersion(first, action.firstVersion);
        if (action.second != nullptr)
            revertVersion(action.second, action.secondVersion);
    }
    switch (action.kind) {
    case Action::Add:
    case Action::Dropped:
        if (action.restored) {
            first->setRemoved(true);
            InstanceState::setGone(first, true);
            break;
        }
        first->setRemoved(false);
        InstanceState::setFingerprint(first, action.digest);
        ModelGate::objects(model).orphan(first);
        break;
    case Action::Update:
    case Action::Superseded:
        first->setRemoved(false);
        if (action.digest != 0)
            InstanceState::setFingerprint(first, action.digest);
        if (action.snapshot != nullptr)
            restoreFields(changes, action.snapshot, first);
        break;
    case Action::Remove: first->setRemoved(false); break;
    case Action::Link:
    case Action::Unlink: break;
    }
}

}  // namespace

void revert(const Model* model, const Changes& changes, FirstFailure& failure) {
    revertReferences(changes);
    for (auto action = changes.pending.rbegin(); action != changes.pending.rend(); ++action)
        failure.attempt([&] { revertAction(model, changes, *action); });

    // An action of the same instance has found it raised, or left it to be raised.
    for (const Versioned& each : changes.raised)
        if (!isUnknown(each.instance))
            InstanceState::setVersion(each.instance,
                                      std::min(each.instance->getVersion(), each.version));
}

}  // namespace Kes
