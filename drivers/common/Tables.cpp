#include "drivers/common/Tables.h"

#include <set>

#include <kes/Model.h>

namespace Kes::sql {

// Rows of one class mostly come together.
ClassTable& Tables::of(Class* cls) {
    if (last != nullptr && last->getClass() == cls)
        return *last;
    std::unique_ptr<ClassTable>& table = tables[cls];
    if (table == nullptr)
        table = std::make_unique<ClassTable>(cls, dialect, connection);
    last = table.get();
    return *table;
}

bool Tables::isManyToMany(const Association* association) {
    auto* asked = const_cast<Association*>(association);
    return asked->getPluralityFor(asked->getOneRole()) == Association::Many &&
           asked->getPluralityFor(asked->getOtherRole()) == Association::Many;
}

std::vector<Class*> Tables::concreteClasses(const Class* end) {
    std::vector<Class*> list;
    for (Class* cls : end->getConcreteClasses())
        list.push_back(cls);
    return list;
}

std::vector<Referrer> Tables::referrersOf(const Class* cls) const {
    std::vector<Referrer> referrers;
    std::set<const Association*> seen;
    for (const Class* at = cls; at != nullptr; at = at->getSuperClass())
        for (const Association* association : at->getAssociations())
            seen.insert(association);
    for (const Association* association : seen) {
        const String* roles[] = {&association->getOneRole(), &association->getOtherRole()};
        for (const String* role : roles) {
            if (!cls->isA(association->getClassFor(*role)))
                continue;

            // Objects of the class stand in columns of the opposite role.
            const String& opposite = association->getAssociatedRole(*role);
            const std::string column = dialect.quote(static_cast<const char*>(opposite));
            if (isManyToMany(association)) {
                const char* table = association->getName();
                referrers.push_back({dialect.quote(table), column, true});
            } else if (association->getPluralityFor(opposite) == Association::One) {
                for (const Class* holder : concreteClasses(association->getClassFor(opposite)))
                    referrers.push_back(
                        {dialect.quote(static_cast<const char*>(holder->getName())), column,
                         false});
            }
        }
    }
    return referrers;
}

const std::vector<std::string>& Tables::dissolvers(const Class* cls) {
    const auto known = dissolving.find(cls);
    if (known != dissolving.end())
        return known->second;
    std::vector<std::string> texts;
    for (const Referrer& each : referrersOf(cls)) {
        const std::string change = each.isLink
                                       ? "DELETE FROM " + each.table
                                       : "UPDATE " + each.table + " SET " + each.column + " = NULL";
        texts.push_back(change + " WHERE " + each.column + " IN ");
    }
    return dissolving.emplace(cls, std::move(texts)).first->second;
}

}  // namespace Kes::sql
