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
    if (made && inFirst && inSecond) {
        emptyOthers(first, firstRole, second, association);
        emptyOthers(second, secondRole, first, association);
    }
    if (inFirst)
        setReference(first, firstRole, made ? second : nullptr, linkFlag, !linkFlag);
    if (inSecond)
        setReference(second, secondRole, made ? first : nullptr, second->inTransaction(), false);
}

void WriteQueue::setReference(Instance* owner, const String& role, Instance* partner,
                              bool elsewhere, bool raisedBefore) {
    // The row goes, whatever stands in it, or has gone, or never came.
    if (owner->isRemoved() && (owner->inTransaction() || partner == nullptr))
        return;
    ClassTable& table = tables.of(owner->getClass());
    const int column = table.find(static_cast<const char*>(role));
    const unsigned long id =
        partner != nullptr && !partner->isRemoved() ? partner->getObjectID() : 0;
    Operation* row = find(owner);
    if (row == nullptr) {
        if (elsewhere && wasInserted(owner->getObjectID()) && holds(owner, role, partner))
            return;
        row = &add(Kind::Update, owner);
        row->raised = !elsewhere && !raisedBefore;
        if (row->raised)
            owner->nextVersion();
        row->expected = owner->getVersion() - (row->raised || raisedBefore ? 1 : 0);
        enterColumn(*row, ClassTable::VersionColumn);
    }
    for (LinkValue& known : row->links)
        if (known.column == column) {
            known = {column, id, id != 0 ? unlessWritten(partner) : nullptr};
            return;
        }
    row->links.push_back({column, id, id != 0 ? unlessWritten(partner) : nullptr});
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

// Others that refer to the partner lose it: a one-to-one link has one pair.
// Nobody can refer yet to a partner that waits to be inserted without a link.
void WriteQueue::emptyOthers(Instance* owner, const String& role, Instance* partner,
                             Association* association) {
    takeOver(owner, role, partner, association);
    const Operation* row = find(partner);
    if (row != nullptr && row->kind == Kind::Insert && row->links.empty())
        return;
    Operation& empty = add(Kind::Empty, owner);
    empty.other = partner;
    empty.association = association;
    empty.role = role == association->getOneRole() ? &association->getOneRole()
                                                   : &association->getOtherRole();
    hasEmpties = true;
}

// References in the database are emptied before rows are written, so a row in
// the queue must forget by itself what a later link takes away from it.
void WriteQueue::takeOver(Instance* owner, const String& role, Instance* partner,
                          const Association* association) {
    Instance*& holder = holders[{association, role == association->getOneRole(), partner}];
    if (holder != nullptr && holder != owner)
        if (Operation* row = find(holder)) {
            const int column = tables.of(holder->getClass()).find(static_cast<const char*>(role));
            for (LinkValue& known : row->links)
                if (known.column == column && known.partner == partner->getObjectID())
                    known = {column, 0, nullptr};
        }
    holder = owner;
}

// They take away from all but one, so their order is free.
void WriteQueue::postEmpties() {
    std::vector<std::size_t> order = all(isEmpty);
    if (connection.prefersRuns())
        sortIntoRuns(order);
    postInOrder(order);
}

void WriteQueue::postEmpty(std::size_t position) {
    const Operation& operation = operations[position];
    const std::string column = dialect.quote(static_cast<const char*>(*operation.role));
    for (Class* holder :
         Tables::concreteClasses(operation.association->getClassFor(*operation.role))) {
        Statement& statement =
            kept("UPDATE " + tables.of(holder).table() + " SET " + column + " = NULL WHERE " +
                 column + " = ? AND " + dialect.quote("KesObjectID") + " <> ?");
        statement.bind(0, static_cast<std::int64_t>(operation.other->getObjectID()));
        statement.bind(1, static_cast<std::int64_t>(operation.instance->getObjectID()));
        statement.post(position, 0);
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
        const std::string change = dialect.touch(table.table());
        if (!change.empty()) {
            Statement& touching = kept(change + where);
            list.bindTo(touching);
            touching.run();
        }
        Statement& asking =
            kept("SELECT " + id + " FROM " + table.table() + where + dialect.sharedLock());
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
