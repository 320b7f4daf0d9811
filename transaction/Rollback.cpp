#include "transaction/Rollback.h"

#include "identity/ObjectCache.h"
#include "object/ListenerList.h"
#include "object/ModelGate.h"
#include "transaction/ReferenceJournal.h"
#include "transaction/StoredState.h"

namespace Kes {

namespace {

void revertAction(const Model* model, const Changes& changes, const Action& action) {
    Instance* first = action.first;
    if (action.applied) {
        InstanceState::setVersion(first, action.firstVersion);
        if (action.second != nullptr)
            InstanceState::setVersion(action.second, action.secondVersion);
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
    for (auto each = changes.raised.rbegin(); each != changes.raised.rend(); ++each)
        InstanceState::setVersion(each->instance, each->version);
    for (auto action = changes.pending.rbegin(); action != changes.pending.rend(); ++action)
        failure.attempt([&] { revertAction(model, changes, *action); });
}

}  // namespace Kes
