#include "drivers/common/WriteQueue.h"

#include <algorithm>
#include <tuple>

#include <kes/Class.h>
#include <kes/Model.h>

namespace Kes::sql {

void WriteQueue::enterColumn(Operation& operation, int column) {
    const auto position = static_cast<std::size_t>(column);
    if (operation.set.size() <= position / 64)
        operation.set.resize(position / 64 + 1);
    operation.set[position / 64] |= std::uint64_t{1} << position % 64;
}

WriteQueue::Operation& WriteQueue::add(Kind kind, Instance* instance) {
    if (used == operations.size())
        operations.emplace_back();
    Operation& fresh = operations[used++];
    fresh.kind = kind;
    fresh.raised = false;
    fresh.instance = instance;
    fresh.expected = 0;
    fresh.set.clear();
    fresh.links.clear();
    fresh.association = nullptr;
    fresh.role = nullptr;
    if (!isRow(kind))
        return fresh;
    positions.set(instance, used - 1);
    if (instance->getClass() != lastClass) {
        lastClass = instance->getClass();
        holdsUnique = holdsUnique || tables.of(instance->getClass()).hasUnique();
    }
    return fresh;
}

WriteQueue::Operation* WriteQueue::find(const Instance* instance) {
    const std::uint32_t position = positions.find(instance);
    return position != InstanceMap::None ? &operations[position] : nullptr;
}

void WriteQueue::insert(Instance* instance) {
    add(Kind::Insert, instance);
}

void WriteQueue::update(Instance* instance) {
    const TableMapping& table = tables.of(instance->getClass());
    Operation* known = find(instance);
    if (known != nullptr && known->kind == Kind::Insert)
        return;
    if (known == nullptr) {
        known = &add(Kind::Update, instance);
        known->expected = instance->getVersion() - 1;
    } else if (known->raised) {
        // One commit raises once: the library has done it by now.
        instance->previousVersion();
        known->raised = false;
    }
    addColumns(*known, table, instance);
}

// The fields that differ from the stored ones, or all where that is unknown.
void WriteQueue::addColumns(Operation& operation, const TableMapping& table, Instance* instance) {
    enterColumn(operation, TableMapping::VersionColumn);
    const bool known = instance->getClass()->getModel()->getChangedFields(instance, changed);
    for (std::size_t field = 2; field < table.fieldCount(); ++field)
        if (!known || changed.contains(field))
            enterColumn(operation, table.columnOfField(field));
}

void WriteQueue::remove(Instance* instance) {
    unsigned long expected = instance->getVersion() - 1;
    if (Operation* known = find(instance)) {
        const bool neverStored = known->kind == Kind::Insert;
        expected = known->expected;
        if (known->raised)
            instance->previousVersion();
        known->kind = Kind::Nothing;
        positions.erase(instance);
        if (neverStored)
            return;
    }
    add(Kind::Remove, instance).expected = expected;
}

bool WriteQueue::isAsInserted(const Instance* owner) {
    return wasInserted(owner->getObjectID()) && !rewritten.contains(owner);
}

void WriteQueue::noteRewritten(const Instance* owner) {
    if (!inserted.empty() && wasInserted(owner->getObjectID()))
        rewritten.insert(owner);
}

void WriteQueue::noteInserted(const Instance* instance, bool asInMemory) {
    const unsigned long id = instance->getObjectID();
    insertedIsSorted = insertedIsSorted && (inserted.empty() || inserted.back() < id);
    inserted.push_back(id);
    if (!asInMemory)
        rewritten.insert(instance);
}

// By a call of this commit, which raises the version.
bool WriteQueue::isWritten(const Instance* owner) {
    return owner->inTransaction() || find(owner) != nullptr || raisedEarlier.contains(owner);
}

std::vector<std::size_t> WriteQueue::all(bool (*isWanted)(Kind)) const {
    std::vector<std::size_t> found;
    for (std::size_t i = 0; i < used; ++i)
        if (isWanted(operations[i].kind))
            found.push_back(i);
    return found;
}

void WriteQueue::sortIntoRuns(std::vector<std::size_t>& order) const {
    const auto keyOf = [&](std::size_t position) {
        const Operation& each = operations[position];
        return std::tuple<Kind, const Association*, const String*, const Class*, const ColumnSet&>(
            each.kind, each.association, each.role, each.instance->getClass(), each.set);
    };
    std::stable_sort(order.begin(), order.end(), [&](std::size_t left, std::size_t right) {
        return keyOf(left) < keyOf(right);
    });
}

void WriteQueue::finish(bool goesOn) {
    for (std::size_t i = 0; goesOn && i < used; ++i)
        if (operations[i].kind == Kind::Update && !operations[i].instance->inTransaction())
            raisedEarlier.insert(operations[i].instance);
    forget();
}

void WriteQueue::forget() {
    used = 0;
    positions.clear();
    holders.clear();
    dissolved.clear();
    holdsUnique = false;
    lastClass = nullptr;
}

void WriteQueue::clear() {
    forget();
    raisedEarlier.clear();
    rewritten.clear();
    parted.clear();
    inserted.clear();
    insertedIsSorted = true;
}

}  // namespace Kes::sql
