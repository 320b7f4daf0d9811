// What is stored and would be lost, or not be seen any more, by a change of the schema.

#include <memory>
#include <set>
#include <string>

#include <kes/Model.h>

#include "drivers/common/SqlFailure.h"
#include "drivers/common/SqlSchema.h"
#include "drivers/common/TextForms.h"

namespace Kes::sql {

// Nobody prepares the tables of abstract classes. The objects of one that has
// become abstract could not be seen any more.
void SqlSchema::checkAbstractClasses(const Model& model) {
    for (const Class* cls : model.getDeclaredClasses()) {
        const std::string name = textOf(cls->getName());
        if (cls->isAbstract() && getVersion(name, "CLASS") < cls->getVersion())
            checkAbstract(name);
    }
}

void SqlSchema::checkAbstract(const std::string& name) {
    if (!hasColumn(name, "KesObjectID") || !hasColumn(name, "KesVersion"))
        return;
    const std::unique_ptr<Statement> asking = connection.prepareCursor(
        "SELECT " + dialect.quote("KesObjectID") + " FROM " + dialect.quote(name));
    if (asking->step())
        throw SqlFailure("the class " + name + " has become abstract and its object " +
                         std::to_string(asking->integer(0)) +
                         " is still stored; remove the objects of the class, or leave it concrete");
}

std::string SqlSchema::findMissingColumn(Class* cls) {
    std::set<std::string> stored;
    const std::string table = textOf(cls->getName());
    const std::unique_ptr<Statement> asking = connection.prepare(dialect.columnsOf());
    asking->bindText(0, table.data(), table.size());
    while (asking->step()) {
        std::size_t size = 0;
        stored.insert(asking->text(0, size));
    }
    for (const Column& column : tables.of(cls).columns())
        if (!stored.empty() && !stored.contains(column.name))
            return column.name;
    return "";
}

bool SqlSchema::hasColumn(const std::string& table, const std::string& column) {
    const std::unique_ptr<Statement> asking = connection.prepare(dialect.columnsOf());
    asking->bindText(0, table.data(), table.size());
    while (asking->step()) {
        std::size_t size = 0;
        const char* text = asking->text(0, size);
        if (column == std::string(text, size))
            return true;
    }
    return false;
}

// Links do not move between rows and a table of their own, or from one end to
// the other. Where there are any, such a change of an association is refused.
void SqlSchema::checkLinks(const Class* cls) {
    for (const Class* at = cls; at != nullptr; at = at->getSuperClass())
        for (const Association* association : at->getAssociations())
            for (const String* role : {&association->getOneRole(), &association->getOtherRole()})
                if (cls->isA(association->getClassFor(*role)))
                    checkLinks(cls, *association, *role);
}

void SqlSchema::checkLinks(const Class* cls, const Association& association, const String& role) {
    const std::string table = textOf(cls->getName());
    const std::string links = textOf(association.getName());
    const std::string column = textOf(role);
    const std::string opposite = textOf(association.getAssociatedRole(role));
    const bool isTable = cls->getModel()->getClass(association.getName()) == nullptr &&
                         hasColumn(links, column) && hasColumn(links, opposite);
    if (isTable && !ModelMapping::isManyToMany(&association))
        refuseLinks(association, column, links);
    if (association.getPluralityFor(role) == Association::One || !hasColumn(table, column))
        return;
    for (const Class* holder :
         ModelMapping::concreteClasses(association.getClassFor(opposite.c_str())))
        if (hasColumn(textOf(holder->getName()), opposite))
            return;
    refuseLinks(association, column, table);
}

void SqlSchema::refuseLinks(const Association& association, const std::string& column,
                            const std::string& table) {
    const std::unique_ptr<Statement> asking = connection.prepareCursor(
        "SELECT " + dialect.quote(column) + " FROM " + dialect.quote(table) + " WHERE " +
        dialect.quote(column) + " IS NOT NULL");
    if (asking->step())
        throw SqlFailure("the association " + textOf(association.getName()) +
                         " has another plurality than before and still links the object " +
                         std::to_string(asking->integer(0)) + " by its role \"" + column +
                         "\"; dissolve its links or give the new association another name");
}

}  // namespace Kes::sql
