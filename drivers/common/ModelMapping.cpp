#include "drivers/common/ModelMapping.h"

#include <set>

#include <kes/Model.h>

namespace Kes::sql {

// Rows of one class mostly come together.
TableMapping& ModelMapping::of(Class* cls) {
    if (last != nullptr && last->getClass() == cls)
        return *last;
    std::unique_ptr<TableMapping>& table = tables[cls];
    if (table == nullptr)
        table = std::make_unique<TableMapping>(cls, dialect, statements);
    last = table.get();
    return *table;
}

void ModelMapping::forget() {
    last = nullptr;
    tables.clear();
    referring.clear();
}

bool ModelMapping::isManyToMany(const Association* association) {
    auto* asked = const_cast<Association*>(association);
    return asked->getPluralityFor(asked->getOneRole()) == Association::Many &&
           asked->getPluralityFor(asked->getOtherRole()) == Association::Many;
}

std::vector<Class*> ModelMapping::concreteClasses(const Class* end) {
    std::vector<Class*> list;
    for (Class* cls : end->getConcreteClasses())
        list.push_back(cls);
    return list;
}

// A pair lies in both rows, and the library names both ends when one of them
// goes; so it does for what a removal takes along.
bool Referrer::isUnnamed() const {
    return holder != nullptr && association->getConsistencyRule() == Association::Unlink &&
           association->getPluralityFor(association->getAssociatedRole(*role)) == Association::Many;
}

Referrer ModelMapping::linkTable(Association* association, const String& role) const {
    const std::string table = dialect.quote(static_cast<const char*>(association->getName()));
    const std::string column = dialect.quote(static_cast<const char*>(role));
    return {table, column,  association,
            &role, nullptr, "DELETE FROM " + table + " WHERE " + column + " IN "};
}

Referrer ModelMapping::referenceOf(Class* holder, Association* association,
                                   const String& role) const {
    const std::string table = dialect.quote(static_cast<const char*>(holder->getName()));
    const std::string column = dialect.quote(static_cast<const char*>(role));
    const std::string version = dialect.quote("KesVersion");
    return {table,
            column,
            association,
            &role,
            holder,
            "UPDATE " + table + " SET " + column + " = NULL, " + version + " = " + version +
                " + 1 WHERE " + column + " IN "};
}

std::vector<Referrer> ModelMapping::referrersOf(const Class* cls) const {
    std::vector<Referrer> found;
    std::set<Association*> seen;
    for (const Class* at = cls; at != nullptr; at = at->getSuperClass())
        for (Association* association : at->getAssociations())
            seen.insert(association);
    for (Association* association : seen) {
        const String* roles[] = {&association->getOneRole(), &association->getOtherRole()};
        for (const String* role : roles) {
            if (!cls->isA(association->getClassFor(*role)))
                continue;

            // Objects of the class stand in columns of the opposite role.
            const String& opposite = association->getAssociatedRole(*role);
            if (isManyToMany(association))
                found.push_back(linkTable(association, opposite));
            else if (association->getPluralityFor(opposite) == Association::One)
                for (Class* holder : concreteClasses(association->getClassFor(opposite)))
                    found.push_back(referenceOf(holder, association, opposite));
        }
    }
    return found;
}

const std::vector<Referrer>& ModelMapping::referrers(const Class* cls) {
    const auto known = referring.find(cls);
    if (known != referring.end())
        return known->second;
    return referring.emplace(cls, referrersOf(cls)).first->second;
}

}  // namespace Kes::sql
