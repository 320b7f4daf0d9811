#include "transaction/UnitOfWork.h"

#include <exception>
#include <utility>

#include <kes/Association.h>
#include <kes/Class.h>
#include <kes/DBDriver.h>
#include <kes/Exception.h>
#include <kes/Model.h>
#include <kes/OneAssociatedInstance.h>
#include <kes/Pointer.h>

#include "core/FatalEnd.h"
#include "core/RaisedErrors.h"
#include "fetch/CommitCount.h"
#include "identity/ObjectCache.h"
#include "object/Events.h"
#include "object/InstanceState.h"
#include "object/ListenerList.h"
#include "object/ModelGate.h"
#include "object/ReferenceState.h"

namespace Kes {

namespace {

constexpr std::size_t WithoutEntry = 0;

// A driver that throws has failed like one that answers false. What else comes
// out of it is the application's, which its objects threw when it asked them.
template <class Call>
bool succeeds(Call call, String& failure) {
    try {
        return call();
    } catch (const Exception& thrown) {
        failure = thrown.getMessage();
    } catch (const std::exception& thrown) {
        failure = thrown.what();
    }
    return false;
}

}  // namespace

DriverDoor& UnitOfWork::door() const {
    return ModelGate::door(model);
}

void UnitOfWork::start() {
    door().end();
    started = true;
    history.start();
}

Action& UnitOfWork::record(Action::Kind kind, Instance* first) {
    Action action{};
    action.kind = kind;
    action.first = first;
    InstanceState::setAhead(first, false);
    if (!turning)
        history.noteStep();
    pending.push_back(action);
    return pending.back();
}

void UnitOfWork::recordAdd(Instance* instance) {
    Action& action = record(Action::Add, instance);
    action.digest = InstanceState::fingerprint(instance);
    InstanceState::setEntry(instance, pending.size());
    instance->setInTransaction(true);
}

void UnitOfWork::recordUpdate(Instance* instance) {
    if (InstanceState::entry(instance) != WithoutEntry)
        return;
    try {
        FieldImage image = nullptr;
        if (takeForUpdate(instance, "Model::update", image))
            recordUpdate(instance, image);
    } catch (...) {
        // What was assigned may be in memory already.
        if (InstanceState::entry(instance) == WithoutEntry && !isUnknown(instance))
            refuse(instance);
        throw;
    }
}

void UnitOfWork::recordUpdate(Instance* instance, FieldImage image) {
    Action& action = record(Action::Update, instance);
    action.image = image;
    action.digest = InstanceState::fingerprint(instance);
    InstanceState::setEntry(instance, pending.size());
    instance->setInTransaction(true);
}

void UnitOfWork::recordRemove(Instance* instance) {
    FieldImage image = nullptr;
    if (InstanceState::entry(instance) != WithoutEntry) {
        Action& entry = pending[InstanceState::entry(instance) - 1];
        if (entry.kind == Action::Add) {
            entry.kind = Action::Dropped;
            instance->setInTransaction(false);
            return;
        }
        if (entry.kind == Action::Remove || entry.kind == Action::Dropped)
            return;
        image = entry.image;
        entry.kind = Action::Superseded;
    }
    // Without an image it can be removed, though not brought back.
    if (image == nullptr && history.isKept())
        takeForRemoval(instance, image);
    record(Action::Remove, instance).image = image;
    InstanceState::setEntry(instance, pending.size());
    instance->setInTransaction(true);
}

void UnitOfWork::recordRestored(Instance* instance) {
    recordAdd(instance);
    pending.back().restored = true;
}

bool UnitOfWork::recordRevival(Instance* instance) {
    if (InstanceState::entry(instance) == WithoutEntry)
        return false;
    Action& entry = pending[InstanceState::entry(instance) - 1];
    if (entry.kind == Action::Dropped) {
        entry.kind = Action::Superseded;
        InstanceState::setEntry(instance, WithoutEntry);
        instance->setRemoved(false);
        recordAdd(instance);
        return true;
    }
    if (entry.kind != Action::Remove)
        return false;
    FieldImage image = std::exchange(entry.image, nullptr);
    if (image == nullptr && !takeForUpdate(instance, "Model::add", image))
        return true;
    entry.kind = Action::Superseded;
    instance->setRemoved(false);
    recordUpdate(instance, image);
    return true;
}

bool UnitOfWork::isDropped(const Instance* instance) const {
    return InstanceState::entry(instance) != WithoutEntry &&
           pending[InstanceState::entry(instance) - 1].kind == Action::Dropped;
}

bool UnitOfWork::getChangedFields(const Instance* instance, FieldSet& fields) const {
    if (instance != updating)
        return false;
    fields = changed;
    return true;
}

// Whatever is thrown, memory and database are as before the transaction by the
// time that the caller gets it.
void UnitOfWork::commit() {
    door().end();
    const HandlerWatch handler;
    String failure;
    std::optional<Outcome> left;
    bool isStored = false;
    try {
        outcome = &left.emplace();
        askForUnsureLinks();
        if (applyAll(failure)) {
            prepareOutcome(*left);
            const auto complete = [&] {
                std::optional<CommitCount::Scope> counted;
                if (!pending.empty())
                    counted.emplace();
                return door().enter()->commit();
            };
            isStored = succeeds(complete, failure);
        }
        outcome = nullptr;
    } catch (...) {
        outcome = nullptr;
        takeBack();  // what fails there comes second
        throw;
    }
    if (!isStored)
        return giveUp(failure, handler.getThrown());
    settleHistory(*left);
    repair(*left);
    finish(left->actions);
    announce(left->actions);
}

// `told` is what the error handler has thrown meanwhile: such a failure is known,
// and a driver that turned it into a false flag has no other one to tell.
void UnitOfWork::giveUp(String failure, const std::exception_ptr& told) {
    if (failure.size() == 0)
        failure = door().enter()->getErrorMessage();
    const bool isUnknown = model->getFailureKind() == FailureKind::UnknownOutcome;
    const std::exception_ptr later = takeBack(isUnknown);
    if (told != nullptr)
        std::rethrow_exception(told);
    Exception(Exception::ERROR, "COMFAIL", "Model::commit", failure).handle();
    if (later != nullptr)
        std::rethrow_exception(later);
}

bool UnitOfWork::applyAll(String& failure) {
    if (hasRefused(failure))
        return false;
    const DriverDoor::Passage driver = door().enter();
    for (Action& action : pending)
        if (!apply(action, driver, failure))
            return false;
    return true;
}

bool UnitOfWork::apply(Action& action, const DriverDoor::Passage& driver, String& failure) {
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

bool UnitOfWork::applyUpdate(Action& action, const DriverDoor::Passage& driver, String& failure) {
    Instance* first = action.first;
    first->nextVersion();
    if (action.image != nullptr) {
        changed.clear();
        images.compare(action.image, first, changed);
        updating = first;
    }
    InstanceState::setFingerprint(first, digestFields(first));
    const bool done = succeeds([&] { return driver->update(first); }, failure);
    updating = nullptr;
    return done;
}

void UnitOfWork::rollback() {
    door().end();
    if (const std::exception_ptr failure = takeBack())
        std::rethrow_exception(failure);
}

// Returns what objects and listeners have thrown meanwhile, the first of it.
//
// Where it is not known whether the transaction is stored, memory is as before it
// as well: each object shows one version of its row, and when that is not the
// stored one any more, no commit takes it for the stored one. Links that stand in
// rows of their own raise no version, so their collections are read again.
std::exception_ptr UnitOfWork::takeBack(bool mayBeStored) {
    String failure;
    if (!succeeds([&] { return door().enter()->rollback(); }, failure)) {
        if (failure.size() == 0)
            failure = door().enter()->getErrorMessage();
        refused.clear();
        forget();
        Exception(Exception::FATAL, "ROLLFAIL", "Model::rollback", failure).handle();

        // Memory and database have parted, and nothing can bring them together.
        endProcess();
    }
    FirstFailure first;
    revert(first);
    if (mayBeStored)
        unfetchCollections();
    history.rollBack();
    forget();
    first.attempt([&] { rereadRefused(); });
    return first.get();
}

void UnitOfWork::revert(FirstFailure& failure) {
    revertReferences();
    for (auto each = raised.rbegin(); each != raised.rend(); ++each)
        InstanceState::setVersion(each->instance, each->version);
    for (auto action = pending.rbegin(); action != pending.rend(); ++action)
        failure.attempt([&] { revertAction(*action); });
}

void UnitOfWork::revertAction(const Action& action) {
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
        if (action.image != nullptr)
            restoreFields(action.image, first);
        break;
    case Action::Remove: first->setRemoved(false); break;
    case Action::Link:
    case Action::Unlink: break;
    }
}

void UnitOfWork::forget() noexcept {
    release();
    pending.clear();
}

void UnitOfWork::finish(Actions& done) noexcept {
    release();
    refused.clear();
    done.swap(pending);
}

void UnitOfWork::release() noexcept {
    for (const Action& action : pending) {
        InstanceState::setEntry(action.first, WithoutEntry);
        InstanceState::endTransaction(action.first);
        if (action.second != nullptr)
            InstanceState::endTransaction(action.second);
    }
    for (const Remembered& entry : journal)
        if (entry.isFirst)
            ReferenceState::setTouched(*static_cast<OneAssociatedInstance*>(entry.ref), false);
    ModelGate::objects(model).release(pending.size());
    images.clear();
    journal.clear();
    links.clear();
    raised.clear();
    contested = false;
    pinned.clear();
    turning.reset();
    updating = nullptr;
    started = false;
    locked = false;
}

// The pending instances are gone by now, so their entries are only forgotten.
void UnitOfWork::close() {
    pending.clear();
    images.clear();
    journal.clear();
    links.clear();
    raised.clear();
    contested = false;
    refused.clear();
    history.clear();
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

void UnitOfWork::announce(Actions& committed) {
    const Telling now(*this);
    const Entered keep(announced, static_cast<const Actions*>(&committed));
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

void UnitOfWork::markInstances(Marker& marker) const {
    const auto markActions = [&](const Actions& actions) {
        for (const Action& action : actions) {
            marker.mark(action.first);
            if (action.second != nullptr)
                marker.mark(action.second);
        }
    };
    markActions(pending);
    for (const Actions* told : announced)
        markActions(*told);
    for (Instance* instance : pinned)
        marker.mark(instance);
    for (const Refused& entry : refused)
        marker.mark(entry.instance);
    for (const Remembered& entry : journal) {
        marker.mark(entry.owner);
        if (entry.instance != nullptr)
            marker.mark(entry.instance);
    }
}

}  // namespace Kes
