// How a transaction ends: commit, rollback, undo and redo, and who hears of it.

#include "transaction/UnitOfWork.h"

#include <exception>
#include <utility>

#include <kes/DBDriver.h>
#include <kes/Exception.h>
#include <kes/Model.h>

#include "core/FatalEnd.h"
#include "core/RaisedErrors.h"
#include "identity/ObjectCache.h"
#include "object/Events.h"
#include "object/InstanceState.h"
#include "object/ListenerList.h"
#include "object/ModelGate.h"
#include "query/DriverDoor.h"
#include "transaction/Commit.h"
#include "transaction/ReferenceJournal.h"
#include "transaction/Replay.h"
#include "transaction/Rollback.h"
#include "transaction/StoredState.h"

namespace Kes {

// Whatever is thrown, memory and database are as before the transaction by the
// time that the caller gets it.
void UnitOfWork::commit() {
    ModelGate::door(model).end();
    const HandlerWatch handler;
    String failure;
    std::optional<Commit> done;
    bool isStored = false;
    try {
        announced.reserve(announced.size() + 1);
        underWay = &done.emplace(model, changes, keepsSteps());
        isStored = done->run(failure);
        underWay = nullptr;
    } catch (...) {
        underWay = nullptr;
        revertAll();  // what fails there comes second
        throw;
    }
    if (!isStored)
        return giveUp(failure, handler.getThrown());
    updateHistory(*done);
    done->repairs.apply();
    release();
    changes.dropRefused();
    done->actions.swap(changes.pending);
    announce(done->actions);
}

// `told` is what the error handler has thrown meanwhile: such a failure is known,
// and a driver that turned it into a false flag has no other one to tell.
void UnitOfWork::giveUp(String failure, const std::exception_ptr& told) {
    if (failure.size() == 0)
        failure = ModelGate::door(model).enter()->getErrorMessage();
    const bool isUnknown = model->getFailureKind() == FailureKind::UnknownOutcome;
    const std::exception_ptr later = revertAll(isUnknown);
    if (told != nullptr)
        std::rethrow_exception(told);
    Exception(Exception::ERROR, "COMFAIL", "Model::commit", failure).handle();
    if (later != nullptr)
        std::rethrow_exception(later);
}

void UnitOfWork::rollback() {
    ModelGate::door(model).end();
    if (const std::exception_ptr failure = revertAll())
        std::rethrow_exception(failure);
}

// Returns what objects and listeners have thrown meanwhile, the first of it.
//
// Where it is not known whether the transaction is stored, memory is as before it
// as well: each object shows one version of its row, and when that is not the
// stored one any more, no commit takes it for the stored one. Links that stand in
// rows of their own raise no version, so their collections are read again.
std::exception_ptr UnitOfWork::revertAll(bool mayBeStored) {
    String failure;
    if (!succeeds([&] { return ModelGate::door(model).enter()->rollback(); }, failure)) {
        if (failure.size() == 0)
            failure = ModelGate::door(model).enter()->getErrorMessage();
        changes.dropRefused();
        forget();
        Exception(Exception::FATAL, "ROLLFAIL", "Model::rollback", failure).handle();

        // Memory and database have parted, and nothing can bring them together.
        endProcess();
    }
    FirstFailure first;
    revert(model, changes, first);
    if (mayBeStored)
        unfetchCollections(changes);
    history.rollBack();
    forget();
    first.attempt([&] { rereadRefused(model, changes); });
    return first.get();
}

void UnitOfWork::forget() noexcept {
    release();
    changes.pending.clear();
}

void UnitOfWork::release() noexcept {
    for (const Action& action : changes.pending) {
        InstanceState::setEntry(action.first, 0);
        InstanceState::endTransaction(action.first);
        if (action.second != nullptr)
            InstanceState::endTransaction(action.second);
    }
    untouchReferences(changes);
    ModelGate::objects(model).release(changes.pending.size());
    changes.clearRecords();
    changes.pinned.clear();
    reversing.reset();
    started = false;
    locked = false;
}

// The pending instances are gone by now, so their entries are only forgotten.
void UnitOfWork::close() {
    changes.pending.clear();
    changes.clearRecords();
    changes.dropRefused();
    history.clear();
}

bool UnitOfWork::keepsSteps() const {
    return reversing || history.newest(History::Undo) != nullptr;
}

// Before the listeners hear of the commit: they may ask for the history, start
// a transaction or undo this one.
void UnitOfWork::updateHistory(Commit& done) noexcept {
    History::Draft& draft = done.draft;
    ModelGate::objects(model).news.note(done.news);
    if (!draft.steps().steps.empty())
        draft.steps().snapshots = std::move(changes.snapshots);
    if (reversing)
        history.reverseNewest(*reversing, draft);
    else
        history.keep(draft);
    reversing.reset();
    for (const Action& action : changes.pending)
        if (action.kind == Action::Remove || action.kind == Action::Dropped)
            InstanceState::setGone(action.first, true);
}

void UnitOfWork::reverse(History::Direction direction) {
    ModelGate::door(model).end();
    // Changes without a transaction stand in the newest record, so to undo that
    // one is to take them back first.
    if (direction == History::Undo && !changes.pending.empty())
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
    reversing = direction;
    Replay reversal(model, *this, changes);
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

namespace {

// Keeps a list known while it is worked off, also when a listener throws.
template <class List, class Item>
class Entered {
public:
    Entered(List& target, Item item) : list(target) { list.push_back(item); }
    Entered(const Entered&) = delete;
    Entered& operator=(const Entered&) = delete;
    ~Entered() { list.pop_back(); }

private:
    List& list;
};

}  // namespace

void UnitOfWork::announce(const Changes::Actions& committed) {
    const Telling now(*this);
    const Entered keep(announced, &committed);
    std::exception_ptr firstFailure;
    for (const Action& action : committed) {
        try {
            announceOne(action);
        } catch (...) {
            // The commit stands; every other listener still hears of it.
            if (firstFailure == nullptr)
                firstFailure = std::current_exception();
        }
    }
    if (firstFailure != nullptr)
        std::rethrow_exception(firstFailure);
}

void UnitOfWork::announceOne(const Action& action) {
    if (action.kind == Action::Update)
        InstanceState::setUntold(action.first, false);
    switch (action.kind) {
    case Action::Add: Events::added(action.first); break;
    case Action::Update: Events::changed(action.first); break;
    case Action::Remove: Events::removed(action.first); break;
    case Action::Link: Events::linked(action.association, action.first, action.second); break;
    case Action::Unlink: Events::unlinked(action.association, action.first, action.second); break;
    case Action::Dropped:
    case Action::Superseded: break;
    }
}

}  // namespace Kes
