// Links, of which those to one partner are columns of their holders' rows.

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include <kes/OneAssociatedInstance.h>

#include "drivers/common/ObjectFields.h"
#include "drivers/common/WriteQueue.h"

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

bool WriteQueue::wasInserted(unsigned long id) {
    if (!insertedIsSorted) {
        std::sort(inserted.begin(), inserted.end());
        insertedIsSorted = true;
    }
    return std::binary_search(inserted.begin(), inserted.end(), id);
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

}  // namespace Kes::sql
