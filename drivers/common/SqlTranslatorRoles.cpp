// Tests of roles against objects and nested selections.

#include <cstdint>
#include <string>
#include <utility>

#include <kes/Instance.h>
#include <kes/Model.h>

#include "drivers/common/ConditionDepth.h"
#include "drivers/common/SqlFailure.h"
#include "drivers/common/SqlTranslator.h"
#include "drivers/common/TextForms.h"

namespace Kes::sql {

SqlTranslator::End SqlTranslator::endOf(const Role& role) {
    Association* association = role.getAssociation();
    const std::string name = textOf(role.getRole());
    if (association == nullptr)
        refuse("no role or association \"" + name + "\" for the condition to test");
    if (role.getRole() != association->getOneRole() &&
        role.getRole() != association->getOtherRole())
        refuse("no role \"" + name + "\" in the association " + textOf(association->getName()));
    const Class* holder = association->getClassFor(role.getRole());
    if (!scopes.back().table->getClass()->isA(holder))
        refuse("no role \"" + name + "\" of its own: it is played by " + textOf(holder->getName()) +
               " objects");
    const String& opposite = association->getAssociatedRole(role.getRole());
    return {association,
            dialect.quote(name),
            dialect.quote(textOf(opposite)),
            association->getClassFor(opposite),
            association->getPluralityFor(role.getRole()) == Association::One,
            ModelMapping::isManyToMany(association)};
}

std::string SqlTranslator::idColumn() const {
    return scopes.back().alias + "." + dialect.quote("KesObjectID");
}

std::string SqlTranslator::idIn(const std::string& subquery, bool equal) const {
    return idColumn() + (equal ? " IN (" : " NOT IN (") + subquery + ")";
}

// An id says nothing about an object of another database, and one of another
// class is nobody's partner.
void SqlTranslator::requirePartner(const End& end, const Role& role,
                                   const Instance* instance) const {
    const Class* given = instance->getClass();
    const std::string named =
        textOf(given->getName()) + " object " + std::to_string(instance->getObjectID());
    if (given->getModel() != end.partner->getModel())
        refuse("a role \"" + textOf(role.getRole()) + "\" that cannot be compared with the " +
               named + ", which belongs to another model: look it up in this one");
    if (!given->isA(end.partner))
        refuse("a role \"" + textOf(role.getRole()) + "\" that cannot be compared with the " +
               named + ": its partners are " + textOf(end.partner->getName()) + " objects");
}

void SqlTranslator::translate(Role* role, Condition::AssociationOperator op, Instance* instance) {
    const End end = endOf(*role);
    if (instance != nullptr)
        requirePartner(end, *role, instance);
    const std::string ownColumn = scopes.back().alias + "." + end.own;
    const bool equal = op == Condition::Associations::EQUAL;
    if (end.isOne) {
        current.text = instance == nullptr ? ownColumn + (equal ? " IS NULL" : " IS NOT NULL")
                       : equal             ? ownColumn + " = ?"
                               : "(" + ownColumn + " IS NULL OR " + ownColumn + " <> ?)";
    } else if (end.isManyToMany) {
        const std::string owners =
            "SELECT " + end.opposite + " FROM " + dialect.quote(textOf(end.association->getName()));
        current.text = instance == nullptr ? idIn(owners, !equal)
                                           : idIn(owners + " WHERE " + end.own + " = ?", equal);
    } else {
        const std::string from = instance == nullptr ? tables.of(end.partner).source()
                                                     : tables.of(instance->getClass()).table();
        const std::string owners =
            "SELECT " + end.opposite + " FROM " + from + " WHERE " + end.opposite + " IS NOT NULL";
        current.text = instance == nullptr
                           ? idIn(owners, !equal)
                           : idIn(owners + " AND " + dialect.quote("KesObjectID") + " = ?", equal);
    }
    current.depth += end.isOne ? 0 : QueryDepth;
    current.parameters.clear();
    if (instance != nullptr)
        current.parameters = {static_cast<std::int64_t>(instance->getObjectID())};
}

void SqlTranslator::translate(Role* role, Condition::AssociationOperator op,
                              AssociatedClass* associatedClass) {
    const End end = endOf(*role);
    const bool equal = op == Condition::Associations::EQUAL;
    const std::string alias = textOf(getNewAlias());
    if (associatedClass->getClass() == nullptr)
        throw SqlFailure(
            "a nested selection has no class: it was made without one, or its model was "
            "destroyed; make it anew");
    TableMapping& partners = tables.of(associatedClass->getClass());
    if (!partners.getClass()->isA(end.partner) && !end.partner->isA(partners.getClass()))
        refuse("no partners of the class " + partners.name() + " in its role \"" +
               textOf(role->getRole()) + "\"");
    Piece nested;
    if (associatedClass->getCondition() != nullptr) {
        scopes.push_back({&partners, alias});
        nested = piece(associatedClass->getCondition());
        scopes.pop_back();
    }
    nested.ids = 0;
    nested.depth += QueryDepth;
    const std::string ids = alias + "." + dialect.quote("KesObjectID");
    const std::string from = " FROM " + partners.source() + " AS " + alias;
    const std::string where = " WHERE " + nested.text;
    const std::string also = nested.text.empty() ? where : where + " AND ";
    if (end.isOne) {
        const std::string ownColumn = scopes.back().alias + "." + end.own;
        const std::string found = apart(nested, ids, from + (nested.text.empty() ? "" : where));
        nested.text =
            equal ? ownColumn + " IN (" + found + ")"
                  : "(" + ownColumn + " NOT IN (" + found + ") OR " + ownColumn + " IS NULL)";
        nested.depth += equal ? 0 : FirstDepth;
    } else if (end.isManyToMany) {
        // One query for both tables: databases limit how many there are within each
        // other. The partners first, where the order is kept: what they have to be
        // may be in an index.
        const std::string link = alias + "l";
        nested.text =
            idIn(apart(nested, link + "." + end.opposite,
                       from + " CROSS JOIN " + dialect.quote(textOf(end.association->getName())) +
                           " AS " + link + also + link + "." + end.own + " = " + ids),
                 equal);
    } else {
        const std::string back = alias + "." + end.opposite;
        nested.text = idIn(apart(nested, back, from + also + back + " IS NOT NULL"), equal);
    }
    current = std::move(nested);
}

}  // namespace Kes::sql
