#include "transaction/TransactionManager.h"

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
#include "fetch/SiblingLoader.h"
#include "identity/ObjectCache.h"
#include "object/ListenerList.h"
#include "transaction/CommitCount.h"

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

void TransactionManager::start() {
    started = true;
    history.start();
}

Action& TransactionManager::record(Action::Kind kind, Instance* first) {
    Action action{};
    action.kind = kind;
    action.first = first;
    first->setFlag(Instance::Ahead, false);
    if (!turning)
        history.noteStep();
    pending.push_back(action);
    return pending.back();
}

void TransactionManager::recordAdd(Instance* instance) {
    Action& action = record(Action::Add, instance);
    action.digest = instance->fingerprint;
    instance->pending = static_cast<std::uint32_t>(pending.size());
    instance->setInTransaction(true);
}

void TransactionManager::recordUpdate(Instance* instance) {
    if (instance->pending != WithoutEntry)
        return;
    try {
        FieldImage image = nullptr;
        if (takeForUpdate(instance, "Model::update", image))
            recordUpdate(instance, image);
    } catch (...) {
        // What was assigned may be in memory already.
        if (instance->pending == WithoutEntry && !isUnknown(instance))
            refuse(instance);
        throw;
    }
}

void TransactionManager::recordUpdate(Instance* instance, FieldImage image) {
    Action& action = record(Action::Update, instance);
    action.image = image;
    action.digest = instance->fingerprint;
    instance->pending = static_cast<std::uint32_t>(pending.size());
    instance->setInTransaction(true);
}

void TransactionManager::recordRemove(Instance* instance) {
    FieldImage image = nullptr;
    if (instance->pending != WithoutEntry) {
        Action& entry = pending[instance->pending - 1];
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
    instance->pending = static_cast<std::uint32_t>(pending.size());
    instance->setInTransaction(true);
}

void TransactionManager::recordRestored(Instance* instance) {
    recordAdd(instance);
    pending.back().restored = true;
}

bool TransactionManager::recordRevival(Instance* instance) {
    if (instance->pending == WithoutEntry)
        return false;
    Action& entry = pending[instance->pending - 1];
    if (entry.kind == Action::Dropped) {
        entry.kind = Action::Superseded;
        instance->pending = WithoutEntry;
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

bool TransactionManager::isPending(const Instance* instance) {
    return instance->pending != WithoutEntry || instance->flag(Instance::Linked);
}

bool TransactionManager::isDropped(const Instance* instance) const {
    return instance->pending != WithoutEntry &&
           pending[instance->pending - 1].kind == Action::Dropped;
}

bool TransactionManager::getChangedFields(const Instance* instance, FieldSet& fields) const {
    if (instance != updating)
        return false;
    fields = changed;
    return true;
}

// Whatever is thrown, memory and database are as before the transaction by the
// time that the caller gets it.
void TransactionManager::commit() {
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
                const SiblingLoader::DriverScope asking(model);
                std::optional<CommitCount::Scope> counted;
                if (!pending.empty())
                    counted.emplace();
                return model->driver->commit();
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
void TransactionManager::giveUp(String failure, const std::exception_ptr& told) {
    if (failure.size() == 0)
        failure = model->driver->getErrorMessage();
    const bool isUnknown = model->getFailureKind() == FailureKind::UnknownOutcome;
    const std::exception_ptr later = takeBack(isUnknown);
    if (told != nullptr)
        std::rethrow_exception(told);
    Exception(Exception::ERROR, "COMFAIL", "Model::commit", failure).handle();
    if (later != nullptr)
        std::rethrow_exception(later);
}

bool TransactionManager::applyAll(String& failure) {
    if (hasRefused(failure))
        return false;
    const SiblingLoader::DriverScope asking(model);
    for (Action& action : pending)
        if (!apply(action, failure))
            return false;
    return true;
}

bool TransactionManager::apply(Action& action, String& failure) {
    Instance* first = action.first;
    action.applied = true;
    action.firstVersion = first->getVersion();
    switch (action.kind) {
    case Action::Add:
        first->fingerprint = digestFields(first);
        return succeeds([&] { return model->driver->insert(first); }, failure);
    case Action::Update: return applyUpdate(action, failure);
    case Action::Remove:
        first->nextVersion();
        return succeeds([&] { return model->driver->remove(first); }, failure);
    case Action::Link:
    case Action::Unlink: return succeeds([&] { return applyLink(action); }, failure);
    case Action::Dropped:
    case Action::Superseded: break;
    }
    return true;
}

bool TransactionManager::applyUpdate(Action& action, String& failure) {
    Instance* first = action.first;
    first->nextVersion();
    if (action.image != nullptr) {
        changed.clear();
        images.compare(action.image, first, changed);
        updating = first;
    }
    first->fingerprint = digestFields(first);
    const bool done = succeeds([&] { return model->driver->update(first); }, failure);
    updating = nullptr;
    return done;
}

void TransactionManager::rollback() {
    if (const std::exception_ptr failure = takeBack())
        std::rethrow_exception(failure);
}

// Returns what objects and listeners have thrown meanwhile, the first of it.
//
// Where it is not known whether the transaction is stored, memory is as before it
// as well: each object shows one version of its row, and when that is not the
// stored one any more, no commit takes it for the stored one. Links that stand in
// rows of their own raise no version, so their collections are read again.
std::exception_ptr TransactionManager::takeBack(bool mayBeStored) {
    String failure;
    const auto complete = [&] {
        const SiblingLoader::DriverScope asking(model);
        return model->driver->rollback();
    };
    if (!succeeds(complete, failure)) {
        if (failure.size() == 0)
            failure = model->driver->getErrorMessage();
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

void TransactionManager::revert(FirstFailure& failure) {
    revertReferences();
    for (auto each = raised.rbegin(); each != raised.rend(); ++each)
        each->instance->version = each->version;
    for (auto action = pending.rbegin(); action != pending.rend(); ++action)
        failure.attempt([&] { revertAction(*action); });
}

void TransactionManager::revertAction(const Action& action) {
    Instance* first = action.first;
    if (action.applied) {
        first->version = action.firstVersion;
        if (action.second != nullptr)
            action.second->version = action.secondVersion;
    }
    switch (action.kind) {
    case Action::Add:
    case Action::Dropped:
        if (action.restored) {
            first->setRemoved(true);
            first->setFlag(Instance::Gone, true);
            break;
        }
        first->setRemoved(false);
        first->fingerprint = action.digest;
        model->objects->orphan(first);
        break;
    case Action::Update:
    case Action::Superseded:
        first->setRemoved(false);
        if (action.digest != 0)
            first->fingerprint = action.digest;
        if (action.image != nullptr)
            restoreFields(action.image, first);
        break;
    case Action::Remove: first->setRemoved(false); break;
    case Action::Link:
    case Action::Unlink: break;
    }
}

void TransactionManager::forget() noexcept {
    release();
    pending.clear();
}

void TransactionManager::finish(Actions& done) noexcept {
    release();
    refused.clear();
    done.swap(pending);
}

void TransactionManager::release() noexcept {
    constexpr std::uint32_t Passing = Instance::InTransaction | Instance::Linked | Instance::Raised;
    for (const Action& action : pending) {
        action.first->pending = WithoutEntry;
        action.first->flags &= ~Passing & 0xFFU;
        if (action.second != nullptr)
            action.second->flags &= ~Passing & 0xFFU;
    }
    for (const Remembered& entry : journal)
        if (entry.isFirst)
            static_cast<OneAssociatedInstance*>(entry.ref)->touched = false;
    model->objects->release(pending.size());
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
void TransactionManager::close() {
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

void TransactionManager::announce(Actions& committed) {
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

void TransactionManager::announceOne(const Action& action) {
    if (action.kind == Action::Update)
        action.first->setFlag(Instance::Untold, false);
    switch (action.kind) {
    case Action::Add: action.first->getClass()->fireInstanceAdded(action.first); break;
    case Action::Update: action.first->getClass()->fireInstanceChanged(action.first); break;
    case Action::Remove: action.first->getClass()->fireInstanceRemoved(action.first); break;
    case Action::Link: action.association->fireAssociationAdded(action.first, action.second); break;
    case Action::Unlink:
        action.association->fireAssociationRemoved(action.first, action.second);
        break;
    case Action::Dropped:
    case Action::Superseded: break;
    }
}

void TransactionManager::markInstances(Marker& marker) const {
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
