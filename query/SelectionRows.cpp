// The rows of a selection, from the first query to the last cursor.

#include <exception>
#include <memory>

#include <kes/Calculator.h>
#include <kes/Class.h>
#include <kes/Instance.h>
#include <kes/Model.h>
#include <kes/Selection.h>

#include "identity/ObjectCache.h"
#include "object/InstanceState.h"
#include "object/ModelGate.h"
#include "query/DeliveryObserver.h"
#include "query/DriverDoor.h"
#include "query/EmptiedTests.h"
#include "query/SelectionState.h"

namespace Kes {

// Of several classes each one may have all the rows that are asked for, so none
// is skipped before they are merged.
SelectionDefinition* Selection::define(Model* model) {
    const DriverDoor::Passage driver = ModelGate::door(model).enter();
    auto* calculator =
        most == UINT64_MAX && skipped == 0 ? nullptr : ModelGate::door(model).find<Calculator>();
    if (calculator == nullptr)
        return driver->defineSelection(frozen);
    if (cls->getConcreteClasses().size() > 1)
        return calculator->definePart(frozen, 0,
                                      most > UINT64_MAX - skipped ? UINT64_MAX : most + skipped);
    state->toSkip = 0;
    return calculator->definePart(frozen, skipped, most);
}

bool Selection::start() {
    if (!begin())
        return false;
    Model* model = cls->getModel();
    const EmptiedTests emptied;
    if (model->isOpen())
        definition = define(model);
    if (emptied.haveBeenMet())
        return failOnEmptied();
    if (definition == nullptr)
        return failOnDriver();
    state->delivery.when = observer->now();
    try {
        const bool isOpen = openCursors();
        return isOpen && emptied.haveBeenMet() ? failOnEmptied() : isOpen;
    } catch (...) {
        // Some classes would be missing: better no row than a part of them.
        cursors.clearAndDelete();
        throw;
    }
}

bool Selection::openCursors() {
    const DriverDoor::Passage driver = ModelGate::door(cls->getModel()).enter();
    const RowNews::RowScope rows(ModelGate::objects(cls->getModel()).news, state->reader.begun);
    const PtrList<Class> concrete = cls->getConcreteClasses();
    for (Class* each : concrete) {
        std::unique_ptr<DBDriverSelection> cursor(cls->getModel()->fetch(each, definition));
        if (cursor == nullptr)
            return failOnDriver();
        if (!cursor->next())
            continue;
        cursors.add(cursor.get());
        cursor.release();
    }
    if (sortOrders.size() > 0 && concrete.size() > 1)
        state->merge = std::make_unique<MergeHeap>(sortOrders, mergesFlags);
    return true;
}

bool Selection::advanceCurrent() {
    if (state->merge != nullptr)
        state->merge->advanced(current);
    bool more = false;
    try {
        const DriverDoor::Passage driver = ModelGate::door(cls->getModel()).enter();
        const RowNews::RowScope rows(ModelGate::objects(cls->getModel()).news, state->reader.begun);
        more = cursors[current]->next();
    } catch (...) {
        cursors.clearAndDelete();
        throw;
    }
    if (more)
        return true;
    delete cursors.removeAt(current);
    if (state->merge != nullptr)
        state->merge->ended(current);
    current = 0;
    return true;
}

// The next instance to deliver; null at the end and when an error has been handled.
Instance* Selection::read() {
    if (state != nullptr && state->toCome == 0)
        cursors.clearAndDelete();
    Instance* instance = readRow();
    for (; instance != nullptr && state->toSkip > 0; --state->toSkip)
        instance = readRow();
    if (instance == nullptr)
        return nullptr;
    if (state->toCome == 0) {
        cursors.clearAndDelete();
        state->reader = {};
        return nullptr;
    }
    --state->toCome;
    observer->read(state->delivery, instance);
    return instance;
}

// The next row's instance.
Instance* Selection::readRow() {
    if (state == nullptr) {
        if (!start())
            return nullptr;
    } else if (cursors.size() > 0 && !advanceCurrent()) {
        return nullptr;
    }
    if (cursors.size() == 0) {
        state->reader = {};
        return nullptr;
    }
    RowNews& news = ModelGate::objects(cls->getModel()).news;
    const DriverDoor::Passage driver = ModelGate::door(cls->getModel()).enter();
    const RowNews::RowScope rows(news, state->reader.begun);
    if (state->merge != nullptr && cursors.size() > 1) {
        current = state->merge->choose(cursors);
        if (current < 0) {
            failOnDriver();
            return nullptr;
        }
    }
    Instance* instance = cursors[current]->getInstance();
    if (instance == nullptr) {
        failOnDriver();
        return nullptr;
    }
    if (news.isOutdated(instance) && !ModelGate::renewOutdated(cls->getModel(), instance)) {
        cursors.clearAndDelete();
        return nullptr;
    }
    return instance;
}

// What the error handler throws is the application's when it gets there. One that
// returns has heard of it already: the rows end where they fail.
void Selection::readAhead() try {
    std::size_t count = observer->wantedAhead(state->delivery);
    if (count == 0)
        return;
    const DeliveryObserver::AheadScope ahead(*observer);
    for (; count > 0; --count) {
        Instance* instance = read();
        if (instance == nullptr)
            return;
        state->ahead.emplace_back(instance);
    }
} catch (...) {
    state->failure = std::current_exception();
}

bool Selection::deliverAhead() {
    currentValue = state->ahead.front();
    state->ahead.pop_front();
    if (currentValue != nullptr) {
        if (InstanceState::isAhead(currentValue))
            observer->delivered(currentValue);
        return true;
    }

    // The model was closed meanwhile.
    state->ahead.clear();
    state->failure = nullptr;
    return false;
}

}  // namespace Kes
