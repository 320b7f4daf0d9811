// The part of the write queue that deals with links.

#include <algorithm>

#include <kes/Class.h>
#include <kes/Model.h>
#include <kes/OneAssociatedInstance.h>

#include "drivers/common/IdList.h"
#include "drivers/common/ObjectFields.h"
#include "drivers/common/SqlFailure.h"
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

// Written by this very commit, so nobody else can have removed it unnoticed.
const Instance* unlessWritten(const Instance* instance) {
    return instance != nullptr && !instance->inTransaction() ? instance : nullptr;
}

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
    if (Tables::isManyToMany(association)) {
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
        const bool isStored = elsewhere && change == Change::Make &&
                              wasInserted(owner->getObjectID()) && holds(owner, role, partner);
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
    enterColumn(row, ClassTable::VersionColumn);
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

// Takes the partners of the queue's one-to-one links from those who have them.
void WriteQueue::emptyTaken() {
    using Key = std::pair<Association*, bool>;
    std::map<Key, std::unordered_map<unsigned long, const Instance*>> takers;
    for (const auto& [held, holder] : holders) {
        const auto& [association, isOneRole, partner] = held;
        if (holder.mayHaveForerunner)
            takers[{association, isOneRole}][partner->getObjectID()] = holder.instance;
    }
    for (const auto& entry : takers) {
        const auto& key = entry.first;
        const auto& taken = entry.second;
        Association* association = key.first;
        const String& role = key.second ? association->getOneRole() : association->getOtherRole();
        std::vector<std::int64_t> partners;
        for (const auto& [partner, taker] : taken)
            partners.push_back(static_cast<std::int64_t>(partner));
        std::sort(partners.begin(), partners.end());
        for (Class* holder : Tables::concreteClasses(association->getClassFor(role))) {
            std::vector<StoredReference> found = readReferences(holder, role, partners);
            std::erase_if(found, [&](const StoredReference& each) {
                return taken.at(each.partner)->getObjectID() == each.id;
            });
            const std::uint32_t ticket =
                found.empty() ? 0 : positions.find(taken.at(found.front().partner));
            emptyRows(holder, association, role, found, ticket != InstanceMap::None ? ticket : 0);
        }
    }
}

// The rows that lead to one of the partners, which nobody else changes from then
// on.
std::vector<WriteQueue::StoredReference> WriteQueue::readReferences(
    Class* holder, const String& role, const std::vector<std::int64_t>& partners) {
    const ClassTable& table = tables.of(holder);
    const std::string id = table.column(ClassTable::IdColumn);
    const std::string column = dialect.quote(static_cast<const char*>(role));
    std::vector<StoredReference> found;
    for (std::size_t begin = 0; begin < partners.size(); begin += IdList::Longest) {
        const IdList list(partners, begin, IdList::Longest);
        Statement& asking =
            kept("SELECT " + id + ", " + column + " FROM " + table.table() + " WHERE " + column +
                 " IN " + list.text() + " ORDER BY " + id + dialect.rowLock());
        list.bindTo(asking);
        while (asking.step())
            found.push_back({holder, static_cast<unsigned long>(asking.integer(0)),
                             static_cast<unsigned long>(asking.integer(1))});
        asking.reset();
    }
    return found;
}

// Empties the references of rows that nobody else can change any more.
void WriteQueue::emptyRows(Class* holder, Association* association, const String& role,
                           const std::vector<StoredReference>& found, std::size_t ticket) {
    const int column = tables.of(holder).find(static_cast<const char*>(role));
    std::vector<std::int64_t> raised;
    std::vector<std::int64_t> others;
    for (const StoredReference& each : found) {
        Instance* owner = holder->getModel()->get(each.id);
        if (owner != nullptr && isForgotten(owner, column))
            continue;
        const bool raises = owner == nullptr || !isWritten(owner);
        (raises ? raised : others).push_back(static_cast<std::int64_t>(each.id));
        if (listener != nullptr)
            listener->referenceEmptied(association, role, each.id, holder, each.partner, raises);
    }
    postEmptied(holder, role, others, false, ticket);
    postEmptied(holder, role, raised, true, ticket);
}

// What the row is going to have in the column anyway.
bool WriteQueue::isForgotten(Instance* owner, int column) {
    Operation* row = find(owner);
    if (row == nullptr)
        return false;
    for (const LinkValue& known : row->links)
        if (known.column == column)
            return !known.isDissolved;
    return row->kind == Kind::Remove;
}

// By a call of this commit, which raises the version.
bool WriteQueue::isWritten(const Instance* owner) {
    return owner->inTransaction() || find(owner) != nullptr || raisedEarlier.contains(owner);
}

void WriteQueue::postEmptied(Class* holder, const String& role,
                             const std::vector<std::int64_t>& ids, bool raising,
                             std::size_t ticket) {
    const ClassTable& table = tables.of(holder);
    const std::string version = table.column(ClassTable::VersionColumn);
    const std::string change = "UPDATE " + table.table() + " SET " +
                               dialect.quote(static_cast<const char*>(role)) + " = NULL" +
                               (raising ? ", " + version + " = " + version + " + 1" : "") +
                               " WHERE " + table.column(ClassTable::IdColumn) + " IN ";
    for (std::size_t begin = 0; begin < ids.size(); begin += IdList::Longest) {
        const IdList list(ids, begin, IdList::Longest);
        Statement& statement = kept(change + list.text());
        list.bindTo(statement);
        statement.post(ticket, 0);
    }
}

// The row itself is written, with its version, by its own operation.
void WriteQueue::dissolveApart() {
    for (const Dissolved& each : dissolved) {
        const Operation& row = operations[each.position];
        if (row.kind != Kind::Update)
            continue;
        const ClassTable& table = tables.of(row.instance->getClass());
        const std::string column = table.column(each.column);
        Statement& statement =
            kept("UPDATE " + table.table() + " SET " + column + " = NULL WHERE " +
                 table.column(ClassTable::IdColumn) + " = ? AND " + column + " = ?");
        statement.bind(0, static_cast<std::int64_t>(row.instance->getObjectID()));
        statement.bind(1, each.partner);
        statement.post(each.position, 0);
    }
}

void WriteQueue::postLinks() {
    std::vector<std::size_t> order = all(isLink);
    if (connection.prefersRuns()) {
        keepLastOfPairs(order);
        sortIntoRuns(order);
    }
    postInOrder(order);
}

// Of what befalls one pair the last counts, so the order of the others is free.
void WriteQueue::keepLastOfPairs(std::vector<std::size_t>& order) const {
    const auto pairAt = [&](std::size_t position) {
        const Operation& row = operations[position];
        return std::pair(row.association, endsOf(row));
    };
    std::stable_sort(order.begin(), order.end(), [&](std::size_t left, std::size_t right) {
        return pairAt(left) < pairAt(right);
    });
    std::size_t count = 0;
    for (std::size_t i = 0; i < order.size(); ++i)
        if (i + 1 == order.size() || pairAt(order[i]) != pairAt(order[i + 1]))
            order[count++] = order[i];
    order.resize(count);
}

// Whom the one role leads to and whom the other role leads to, as the columns
// named by the roles hold them.
std::pair<const Instance*, const Instance*> WriteQueue::endsOf(const Operation& row) {
    return row.role == &row.association->getOneRole() ? std::pair(row.other, row.instance)
                                                      : std::pair(row.instance, row.other);
}

void WriteQueue::postLink(std::size_t position) {
    const Operation& operation = operations[position];
    const Association* association = operation.association;
    std::unique_ptr<Statement>& statement = linking[{association, operation.kind}];
    if (statement == nullptr) {
        const std::string table = dialect.quote(static_cast<const char*>(association->getName()));
        const std::string one = dialect.quote(static_cast<const char*>(association->getOneRole()));
        const std::string other =
            dialect.quote(static_cast<const char*>(association->getOtherRole()));
        statement = connection.prepare(
            operation.kind == Kind::Link
                ? dialect.insertOrKeep(table + " (" + one + ", " + other + ") VALUES (?, ?)")
                : "DELETE FROM " + table + " WHERE " + one + " = ? AND " + other + " = ?");
    }
    const auto [one, other] = endsOf(operation);
    statement->bind(0, static_cast<std::int64_t>(one->getObjectID()));
    statement->bind(1, static_cast<std::int64_t>(other->getObjectID()));
    statement->post(position, 0);
}

// A link to an object that somebody else has removed would dangle.
void WriteQueue::checkPartners() {
    std::unordered_map<Class*, std::vector<std::int64_t>> unsure;
    const Instance* last = nullptr;
    const auto note = [&](const Instance* partner) {
        if (partner == nullptr || partner == last)
            return;
        last = partner;
        unsure[partner->getClass()].push_back(static_cast<std::int64_t>(partner->getObjectID()));
    };
    for (std::size_t i = 0; i < used; ++i) {
        const Operation& operation = operations[i];
        if (operation.kind == Kind::Insert || operation.kind == Kind::Update)
            for (const LinkValue& link : operation.links)
                note(link.check);
        if (operation.kind == Kind::Link) {
            note(unlessWritten(operation.instance));
            note(unlessWritten(operation.other));
        }
    }
    for (auto& [cls, ids] : unsure) {
        std::sort(ids.begin(), ids.end());
        ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
        checkPartners(cls, ids);
    }
}

void WriteQueue::checkPartners(Class* cls, const std::vector<std::int64_t>& ids) {
    const ClassTable& table = tables.of(cls);
    const std::string id = table.column(ClassTable::IdColumn);
    for (std::size_t begin = 0; begin < ids.size(); begin += IdList::Longest) {
        const IdList list(ids, begin, IdList::Longest);
        const std::string where = " WHERE " + id + " IN " + list.text();
        const std::string change = dialect.touchPartners(table.table());
        if (!change.empty()) {
            Statement& touching = kept(change + where);
            list.bindTo(touching);
            touching.run();
        }
        // With the version, so that no index answers and is locked alone.
        Statement& asking = kept("SELECT " + id + ", " + table.column(ClassTable::VersionColumn) +
                                 " FROM " + table.table() + where + dialect.sharedLock());
        list.bindTo(asking);
        std::vector<std::int64_t> stored;
        while (asking.step())
            stored.push_back(asking.integer(0));
        asking.reset();
        std::sort(stored.begin(), stored.end());
        for (std::size_t i = begin; i < list.end(); ++i)
            if (!std::binary_search(stored.begin(), stored.end(), ids[i]))
                failOnPartner(ids[i]);
    }
}

void WriteQueue::failOnPartner(std::int64_t id) {
    const auto isMissing = [&](const Instance* partner) {
        return partner != nullptr && partner->getObjectID() == static_cast<unsigned long>(id);
    };
    for (std::size_t i = 0; i < used; ++i) {
        const Operation& operation = operations[i];
        const Instance* missing = nullptr;
        for (const LinkValue& link : operation.links)
            if (isMissing(link.check))
                missing = link.check;
        if (operation.kind == Kind::Link)
            for (const Instance* end : {operation.instance, operation.other})
                if (isMissing(end))
                    missing = end;
        if (missing != nullptr)
            throw PostFailure(i,
                              "its partner, the " + nameOf(missing) +
                                  ", is not stored: somebody else has removed it",
                              0, FailureKind::Conflict);
    }
    throw SqlFailure("object " + std::to_string(id) + " is not stored", FailureKind::Conflict);
}

}  // namespace Kes::sql
