#include "drivers/common/WriteQueue.h"

#include <algorithm>
#include <tuple>

#include <kes/Class.h>
#include <kes/Model.h>
#include <kes/OneAssociatedInstance.h>

#include "drivers/common/ObjectFields.h"

namespace Kes::sql {

namespace {

class ReferenceReader final : public EmptyHandler {
public:
    explicit ReferenceReader(const String& itsRole) : role(itsRole) {}

    void handleOneAssociated(const String&, const String& itsRole, OneAssociatedInstance* ref,
                             Association::ConsistencyRule) override {
        if (itsRole == role)
            found = ref;
    }

    OneAssociatedInstance* found = nullptr;

private:
    const String& role;
};

// Removed by this very commit, with all that refers to it.
bool isGoing(const Instance* instance) {
    return instance->isRemoved() && instance->inTransaction();
}

// Added and removed within one transaction.
bool wasNeverStored(const Instance* instance) {
    return instance->isRemoved() && !instance->inTransaction();
}

}  // namespace

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

void WriteQueue::link(bool made, Instance* first, const String& firstRole, Instance* second,
                      const String& secondRole, Association* association, bool linkFlag) {
    if (ModelMapping::isManyToMany(association)) {
        if (isGoing(first) || isGoing(second))
            return;
        Operation& row = add(made ? Kind::Link : Kind::Unlink, first);
        row.association = association;
        row.role = firstRole == association->getOneRole() ? &association->getOneRole()
                                                          : &association->getOtherRole();
        row.other = second;
        return;
    }
    const bool inFirst = association->getPluralityFor(firstRole) == Association::One;
    const bool inSecond = association->getPluralityFor(secondRole) == Association::One;

    // Whoever was linked to an object that then never came to be has lost the
    // partner before.
    const bool isLost = !made && (wasNeverStored(first) || wasNeverStored(second));
    if ((made || isLost) && inFirst && inSecond) {
        takeFromOthers(first, firstRole, second, association);
        takeFromOthers(second, secondRole, first, association);
    }
    const Change change = made ? Change::Make : isLost ? Change::Empty : Change::Dissolve;
    const bool isPair = inFirst && inSecond && (first->isRemoved() || second->isRemoved());
    const Instance* holder = inFirst ? first : second;
    if (!made && !isPair && !holder->isRemoved() && !hasParted(association))
        parted.push_back(association);
    if (inFirst)
        setReference(first, firstRole, second, change, linkFlag, !linkFlag);
    if (inSecond)
        setReference(second, secondRole, first, change, second->inTransaction(), false);
}

void WriteQueue::setReference(Instance* owner, const String& role, Instance* partner, Change change,
                              bool elsewhere, bool raisedBefore) {
    // The row goes, whatever stands in it, or has gone, or never came.
    if (owner->isRemoved() && (owner->inTransaction() || change != Change::Make))
        return;
    Operation* row = find(owner);
    if (row == nullptr) {
        const bool isStored = elsewhere && change == Change::Make && isAsInserted(owner) &&
                              holds(owner, role, partner);
        if (isStored)
            return;
        row = &addRow(owner, elsewhere, raisedBefore);
    } else if (raisedBefore && row->raised) {
        // One commit raises once: the library has done it by now.
        owner->previousVersion();
        row->raised = false;
    }
    const int column = tables.of(owner->getClass()).find(static_cast<const char*>(role));
    enterLink(*row, column, partner, change);
}

WriteQueue::Operation& WriteQueue::addRow(Instance* owner, bool elsewhere, bool raisedBefore) {
    Operation& row = add(Kind::Update, owner);
    const bool isRaised = raisedEarlier.contains(owner);
    row.raised = !elsewhere && !raisedBefore && !isRaised;
    if (row.raised)
        owner->nextVersion();
    if (raisedBefore && isRaised)
        owner->previousVersion();
    row.expected = owner->getVersion() - (row.raised || (raisedBefore && !isRaised) ? 1 : 0);
    enterColumn(row, TableMapping::VersionColumn);
    noteRewritten(owner);
    return row;
}

void WriteQueue::enterLink(Operation& row, int column, Instance* partner, Change change) {
    const unsigned long id = partner->getObjectID();
    const bool isMade = change == Change::Make && !partner->isRemoved();
    LinkValue value{column, isMade ? id : 0, isMade ? unlessWritten(partner) : nullptr};
    const auto known = std::find_if(row.links.begin(), row.links.end(),
                                    [&](const LinkValue& each) { return each.column == column; });
    if (change != Change::Dissolve) {
        if (known != row.links.end())
            *known = value;
        else
            row.links.push_back(value);
        return;
    }

    // Nothing but the link of the two: where the row leads elsewhere by now, or
    // turns out to be stored so, it stays.
    value.isDissolved = row.kind != Kind::Insert;
    value.partner = value.isDissolved ? id : 0;
    if (known == row.links.end())
        row.links.push_back(value);
    else if (known->isDissolved && known->partner != id)
        dissolved.push_back({static_cast<std::size_t>(&row - operations.data()), column,
                             static_cast<std::int64_t>(id)});
    else if (!known->isDissolved && known->partner == id)
        *known = {column, 0, nullptr};
}

// An insert that was flushed before its link came has written what the
// reference held in memory.
bool WriteQueue::holds(Instance* owner, const String& role, const Instance* partner) {
    ReferenceReader reader(role);
    handleFields(owner, &reader);
    return reader.found != nullptr && reader.found->isFetched() &&
           reader.found->getInstance() == partner;
}

bool WriteQueue::isAsInserted(const Instance* owner) {
    return wasInserted(owner->getObjectID()) && !rewritten.contains(owner);
}

void WriteQueue::noteRewritten(const Instance* owner) {
    if (!inserted.empty() && wasInserted(owner->getObjectID()))
        rewritten.insert(owner);
}

bool WriteQueue::wasInserted(unsigned long id) {
    if (!insertedIsSorted) {
        std::sort(inserted.begin(), inserted.end());
        insertedIsSorted = true;
    }
    return std::binary_search(inserted.begin(), inserted.end(), id);
}

void WriteQueue::noteInserted(const Instance* instance, bool asInMemory) {
    const unsigned long id = instance->getObjectID();
    insertedIsSorted = insertedIsSorted && (inserted.empty() || inserted.back() < id);
    inserted.push_back(id);
    if (!asInMemory)
        rewritten.insert(instance);
}

// Others that refer to the partner lose it: a one-to-one link has one pair. A row
// in the queue forgets what a later link takes away from it; what is stored is
// looked for at the flush. Nobody can refer yet to a partner that waits to be
// inserted, unless an insert that was flushed before has written what it held in
// memory.
void WriteQueue::takeFromOthers(Instance* owner, const String& role, Instance* partner,
                                Association* association) {
    Holder& holder = holders[{association, role == association->getOneRole(), partner}];
    if (holder.instance != nullptr && holder.instance != owner)
        if (Operation* row = find(holder.instance)) {
            const int column =
                tables.of(holder.instance->getClass()).find(static_cast<const char*>(role));
            for (LinkValue& known : row->links)
                if (known.column == column && !known.isDissolved &&
                    known.partner == partner->getObjectID())
                    known = {column, 0, nullptr};
        }
    holder.instance = owner;
    const Operation* row = find(partner);
    const bool isNew = row != nullptr && row->kind == Kind::Insert && inserted.empty();
    holder.mayHaveForerunner = holder.mayHaveForerunner || !(isNew || wasNeverStored(partner));
}

ColumnSet& WriteQueue::enterLinks(Operation& operation) {
    if (operation.kind != Kind::Update || operation.links.empty())
        return operation.set;
    const TableMapping& table = tables.of(operation.instance->getClass());
    for (const LinkValue& link : operation.links) {
        enterColumn(operation, link.column);
        if (link.isDissolved)
            enterColumn(operation, table.dissolvedBit(link.column));
    }
    return operation.set;
}

// What the row is going to have in the column anyway, where it does not go.
bool WriteQueue::isForgotten(Instance* owner, int column) {
    Operation* row = find(owner);
    if (row == nullptr)
        return isGoing(owner);
    for (const LinkValue& known : row->links)
        if (known.column == column)
            return !known.isDissolved;
    return row->kind == Kind::Remove;
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
