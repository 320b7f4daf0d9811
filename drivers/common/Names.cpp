#include "drivers/common/Names.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <set>

#include "drivers/common/SqlFailure.h"
#include "drivers/common/TextForms.h"

namespace Kes::sql {

namespace {

std::string trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(' ');
    return first == std::string::npos ? ""
                                      : text.substr(first, text.find_last_not_of(' ') - first + 1);
}

std::string knownColumns(const TableMapping& table) {
    std::string known;
    for (const Column& column : table.columns())
        known += (known.empty() ? "" : ", ") + column.name;
    return known;
}

// The columns that a declared list names.
std::vector<std::string> parse(const TableMapping& table, const std::string& list) {
    if (table.find(list) >= 0)
        return {list};
    std::vector<std::string> columns;
    for (std::size_t at = 0; at <= list.size();) {
        const std::size_t end = std::min(list.find(',', at), list.size());
        const std::string name = trimmed(list.substr(at, end - at));
        at = end + 1;
        if (table.find(name) < 0 ||
            std::find(columns.begin(), columns.end(), name) != columns.end())
            throw SqlFailure("the index \"" + list + "\" of the class " + table.name() +
                             " names \"" + name +
                             "\", which is no field of the class or named twice; its fields "
                             "are " +
                             knownColumns(table));
        columns.push_back(name);
    }
    return columns;
}

// Sixteen digits for a name that is too long.
std::string digestOf(const std::string& name) {
    std::uint64_t digest = 0xCBF29CE484222325U;
    for (const char c : name)
        digest = (digest ^ static_cast<unsigned char>(c)) * 0x100000001B3U;
    char digits[17];
    std::snprintf(digits, sizeof digits, "%016llx", static_cast<unsigned long long>(digest));
    return digits;
}

}  // namespace

std::vector<IndexPlan> Names::indexesOf(const TableMapping& table) {
    std::vector<IndexPlan> plans;
    for (const Column& column : table.columns())
        if (column.kind == FieldKind::Reference)
            plans.push_back({table.name() + "." + column.name, {column.name}, false});
    for (const Class* cls = table.getClass(); cls != nullptr; cls = cls->getSuperClass()) {
        for (const Index& index : cls->getIndices()) {
            const std::vector<std::string> columns = parse(table, textOf(index.getFields()));
            std::string name = table.name() + ".";
            for (const std::string& column : columns)
                name += (column == columns.front() ? "" : ",") + column;
            name += index.isUnique() ? " unique" : "";
            const bool known = std::any_of(plans.begin(), plans.end(),
                                           [&](const IndexPlan& p) { return p.name == name; });
            if (!known)
                plans.push_back({name, columns, index.isUnique()});
        }
    }
    return plans;
}

std::string Names::secondIndexOf(const std::string& association) const {
    const std::string name = std::string(Own) + "second_" + association;
    const bool fits = dialect.nameFault(name).empty();
    return fits ? name : std::string(Own) + "second_" + digestOf(association);
}

// The names of views do not begin so unless the class's name does, or is "kes",
// and no name of the library ends like one of a view.
void Names::checkOwner(const std::string& name, const std::string& owner) const {
    if (dialect.fold(name).starts_with(Own))
        throw SqlFailure("the name \"" + name + "\" of " + owner +
                         " is not possible: names that begin with " + Own +
                         " are the library's own");
}

void Names::claim(const std::string& name, const std::string& owner) {
    const std::string fault = dialect.nameFault(name);
    if (!fault.empty())
        throw SqlFailure("the name \"" + name + "\" of " + owner + " is not possible: " + fault);
    const auto [place, isFree] = owners.emplace(dialect.fold(name), std::pair(name, owner));
    if (!isFree)
        throw SqlFailure("the name \"" + name + "\" of " + owner + " is the same as \"" +
                         place->second.first + "\" of " + place->second.second +
                         " to the database; rename one of them");
}

void Names::checkColumns(const TableMapping& table) {
    std::map<std::string, std::string> seen;
    const bool hasView = table.getClass()->getSubClasses().size() > 0;
    for (const Column& column : table.columns()) {
        const std::string fault =
            hasView && dialect.foldColumn(column.name) == dialect.foldColumn("KesClass")
                ? "the view of a class with sub classes has a column of this name"
                : dialect.columnFault(column.name);
        if (!fault.empty())
            throw SqlFailure("the name \"" + column.name + "\" of a field of the class " +
                             table.name() + " is not possible: " + fault);
        const auto [place, isFree] = seen.emplace(dialect.foldColumn(column.name), column.name);
        if (!isFree)
            throw SqlFailure("the fields \"" + place->second + "\" and \"" + column.name +
                             "\" of the class " + table.name() +
                             " are the same column to the database; rename one of them");
    }
    if (table.columns().size() > dialect.mostColumns())
        throw SqlFailure(
            "the class " + table.name() + " has " + std::to_string(table.columns().size()) +
            " fields, more than the limit of " + std::to_string(dialect.mostColumns()));
}

void Names::checkAssociation(const Association& association) {
    const std::string name = textOf(association.getName());
    const std::string owner = "the association " + name;
    if (ModelMapping::isManyToMany(&association)) {
        checkOwner(name, owner);
        claim(name, owner);
    }
    for (const String* role : {&association.getOneRole(), &association.getOtherRole()}) {
        const std::string fault = dialect.columnFault(textOf(*role));
        if (!fault.empty())
            throw SqlFailure("the role \"" + textOf(*role) + "\" of " + owner +
                             " is not possible: " + fault);
    }
    if (dialect.foldColumn(textOf(association.getOneRole())) ==
        dialect.foldColumn(textOf(association.getOtherRole())))
        throw SqlFailure("both roles of " + owner + " are named \"" +
                         textOf(association.getOneRole()) + "\"; rename one of them");
}

void Names::check(const Model& model, ModelMapping& tables) {
    owners.clear();
    for (Class* cls : model.getDeclaredClasses()) {
        const std::string name = textOf(cls->getName());
        const std::string owner = "the class " + name;
        const std::string fault = dialect.nameFault(name);
        if (!fault.empty())
            throw SqlFailure("the name \"" + name + "\" of " + owner +
                             " is not possible: " + fault);
        checkOwner(name, owner);
        if (cls->getSubClasses().size() > 0)
            claim(TableMapping::viewName(cls), "the view of " + owner);
        const TableMapping& table = tables.of(cls);
        checkColumns(table);
        if (cls->isAbstract()) {
            indexesOf(table);
            continue;
        }
        claim(name, owner);
        for (const IndexPlan& index : indexesOf(table))
            claim(index.name, "an index of " + owner);
    }
    for (const Association* association : model.getDeclaredAssociations())
        checkAssociation(*association);
}

void Names::checkOthers(const Model& model, const std::vector<OtherOwner>& others) const {
    for (const OtherOwner& other : others) {
        const auto found = owners.find(dialect.fold(other.name));
        if (found == owners.end() || model.getClass(other.name.c_str()) != nullptr ||
            model.getAssociation(other.name.c_str()) != nullptr)
            continue;
        const auto& [name, owner] = found->second;
        throw SqlFailure("the name \"" + name + "\" of " + owner + " is the same as \"" +
                         other.name + "\" of the model " + other.model +
                         " to the database; rename one of them, or take another database");
    }
}

}  // namespace Kes::sql
