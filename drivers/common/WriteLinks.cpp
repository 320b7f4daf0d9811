// The part of the write queue that deals with links.

#include <algorithm>

#include <kes/Class.h>
#include <kes/Model.h>
#include <kes/OneAssociatedInstance.h>

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

}  // namespace

void WriteQueue::link(bool made, Instance* first, const String& firstRole, Instance* second,
                      const String& secondRole, Association* association, bool linkFlag) {
    if (Tables::isManyToMany(association)) {
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
        emptyOthers(first, firstRole, second);
        emptyOthers(second, secondRole, first);
    }
    if (inFirst)
        setReference(first, firstRole, made ? second : nullptr, linkFlag, !linkFlag);
    if (inSecond)
        setReference(second, secondRole, made ? first : nullptr, second->inTransaction(), false);
}

void WriteQueue::setReference(Instance* owner, const String& role, Instance* partner,
                              bool elsewhere, bool raisedBefore) {
    if (owner->isRemoved() && owner->inTransaction())
        return;  // the row goes, whatever stands in it
    ClassTable& table = tables.of(owner->getClass());
    const int column = table.find(static_cast<const char*>(role));
    const unsigned long id = partner != nullptr && !partner->isRemoved() ? partner->getObjectID()
                                                                         : 0;
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
    owner->handle(&reader);
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
void WriteQueue::emptyOthers(Instance* owner, const String& role, Instance* partner) {
    const Operation* row = find(partner);
    if (row != nullptr && row->kind == Kind::Insert && row->links.empty())
        return;
    Operation& empty = add(Kind::Empty, owner);
    empty.other = partner;
    Association* association = nullptr;
    ClassTable& table = tables.of(owner->getClass());
    const int column = table.find(static_cast<const char*>(role));
    if (column >= 0)
        association = const_cast<Association*>(
            table.columns()[static_cast<std::size_t>(column)].association);
    empty.association = association;
    empty.role = role == association->getOneRole() ? &association->getOneRole()
                                                   : &association->getOtherRole();
}

void WriteQueue::executeEmpty(const Operation& operation) {
    const std::string column = dialect.quote(static_cast<const char*>(*operation.role));
    for (Class* holder :
         Tables::concreteClasses(operation.association->getClassFor(*operation.role))) {
        Statement& statement =
            kept("UPDATE " + tables.of(holder).table() + " SET " + column + " = NULL WHERE " +
                 column + " = ? AND " + dialect.quote("KesObjectID") + " <> ?");
        statement.bind(0, static_cast<std::int64_t>(operation.other->getObjectID()));
        statement.bind(1, static_cast<std::int64_t>(operation.instance->getObjectID()));
        statement.run();
    }
}

// The column named by a role holds the partner that the role leads to.
void WriteQueue::executeLink(const Operation& operation) {
    const bool made = operation.kind == Kind::Link;
    if (made)
        for (const Instance* end : {operation.instance, operation.other})
            if (const Instance* unsure = unlessWritten(end))
                checkPartner(unsure);
    const Association* association = operation.association;
    const std::string table = dialect.quote(static_cast<const char*>(association->getName()));
    const std::string own = dialect.quote(static_cast<const char*>(*operation.role));
    const std::string opposite = dialect.quote(
        static_cast<const char*>(association->getAssociatedRole(*operation.role)));
    Statement& statement =
        kept(made ? dialect.insertOrKeep(table + " (" + own + ", " + opposite + ") VALUES (?, ?)")
                  : "DELETE FROM " + table + " WHERE " + own + " = ? AND " + opposite + " = ?");
    statement.bind(0, static_cast<std::int64_t>(operation.other->getObjectID()));
    statement.bind(1, static_cast<std::int64_t>(operation.instance->getObjectID()));
    statement.run();
}

}  // namespace Kes::sql
