#include "drivers/common/SqlTranslator.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

#include <kes/Instance.h>
#include <kes/Model.h>

#include "drivers/common/SqlFailure.h"
#include "drivers/common/TextForms.h"

namespace Kes::sql {

namespace {

constexpr const char* Operators[] = {" = ", " <> ", " > ", " < ", " >= ", " <= "};
constexpr const char* Always = "1 = 1";
constexpr const char* Never = "1 = 0";

// Equal comparisons that OR joins become one list. Longer ones are cut: PostgreSQL and
// MariaDB take 65,535 parameters in a statement, SQLite 32,766.
constexpr std::size_t LongestList = 8192;

// What a query within a condition and one in parentheses hold of a database's parser:
// the first operand in parentheses waits for nothing but them.
constexpr std::size_t QueryDepth = 8;
constexpr std::size_t FirstDepth = 1;
constexpr std::size_t OtherDepth = 3;
constexpr std::size_t LeafDepth = 4;  // of a comparison with a pattern, the deepest one

// Chains are joined in groups of so many: a database limits how high its tree of terms
// may be, and another one the parentheses.
constexpr std::size_t LongestGroup = 32;

// So many rows of one class fit into memory; more are read one after the other.
constexpr std::size_t FewRows = 1024;

std::string textOf(const String& text) {
    return static_cast<const char*>(text);
}

bool isFamily(FieldKind kind, int family) {
    switch (kind) {
    case FieldKind::Text: return family == 1;
    case FieldKind::Timestamp: return family == 2;
    case FieldKind::Blob:
    case FieldKind::Reference: return false;
    default: return family == 0;
    }
}

// A pattern may end in a lone escape, which then stands for itself.
std::string completePattern(const std::string& pattern) {
    std::size_t escapes = 0;
    while (escapes < pattern.size() && pattern[pattern.size() - 1 - escapes] == '\\')
        ++escapes;
    return escapes % 2 == 0 ? pattern : pattern + '\\';
}

// Whether the nearest real is above the number, 1, below it, -1, or equal to it.
template <class Whole>
int roundingOf(Whole value) {
    const auto near = static_cast<double>(value);
    if (near >= std::ldexp(1.0, std::numeric_limits<Whole>::digits))
        return 1;
    const auto back = static_cast<Whole>(near);
    return back < value ? -1 : back > value ? 1 : 0;
}

}  // namespace

std::shared_ptr<const QueryPlan> SqlTranslator::render(AssociatedClass& selection,
                                                       const RowRange& range) {
    auto plan = std::make_shared<QueryPlan>(renderCondition(selection));
    plan->isById = plan->isById && selection.getSortOrders().size() == 0 && range.isAll();
    scopes.push_back({&tables.of(selection.getClass()), textOf(selection.getAlias())});
    plan->order = order(selection, plan->keys);
    plan->tail += plan->order;
    scopes.pop_back();
    if (!range.isAll())
        cut(*plan, range);
    return plan;
}

QueryPlan SqlTranslator::renderCondition(AssociatedClass& selection) {
    QueryPlan plan;
    if (selection.getCondition() == nullptr)
        return plan;
    Piece condition = whole(selection);
    plan.isById = condition.ids == 1;
    plan.hasFew = condition.ids > 1 && condition.ids <= FewRows;
    plan.tail = " WHERE " + condition.text;
    plan.parameters = std::move(condition.parameters);
    return plan;
}

// Parameters: the text is the same for each page. No table has more rows than
// the largest number that a parameter can be.
void SqlTranslator::cut(QueryPlan& plan, const RowRange& range) {
    constexpr auto largest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    plan.tail += " LIMIT ?";
    plan.parameters.emplace_back(static_cast<std::int64_t>(std::min(range.count, largest)));
    if (range.offset == 0)
        return;
    plan.tail += " OFFSET ?";
    plan.parameters.emplace_back(static_cast<std::int64_t>(std::min(range.offset, largest)));
}

std::string SqlTranslator::order(AssociatedClass& selection, std::vector<std::string>& names) {
    std::string keys;
    for (const SortOrder* key : selection.getSortOrders()) {
        const std::string name = textOf(key->getAttribute().getName());
        const TableMapping& table = *scopes.back().table;
        const int position = table.find(name);
        if (position < 0)
            refuse("no field \"" + name + "\" to sort by");
        const FieldKind kind = table.columns()[static_cast<std::size_t>(position)].kind;
        if (kind == FieldKind::Blob || kind == FieldKind::Reference)
            refuse("nothing to sort by in \"" + name + "\", which is no plain field");
        if (std::find(names.begin(), names.end(), name) == names.end())
            names.push_back(name);
        keys += (keys.empty() ? " ORDER BY " : ", ") + scopes.back().alias + "." +
                table.column(position) + (key->isAscending() ? "" : " DESC");
    }
    return keys;
}

void SqlTranslator::refuse(const std::string& why) const {
    throw SqlFailure("the class " + scopes.back().table->name() + " has " + why);
}

SqlTranslator::Piece SqlTranslator::whole(AssociatedClass& selection) {
    scopes.push_back({&tables.of(selection.getClass()), textOf(selection.getAlias())});
    Piece condition = piece(selection.getCondition());
    scopes.pop_back();
    if (condition.depth > dialect.mostDepth())
        refuseDepth();
    return condition;
}

// Each level has a depth of one or more, so that what is too deep for the database
// ends here before it is for the stack.
SqlTranslator::Piece SqlTranslator::piece(Condition* condition) {
    if (level > dialect.mostDepth())
        refuseDepth();
    ++level;
    current = Piece();
    current.depth = LeafDepth;
    condition->translate(this);
    --level;
    return std::move(current);
}

void SqlTranslator::refuseDepth() const {
    const std::size_t most = dialect.mostDepth() - LeafDepth;
    throw SqlFailure("the condition is nested too deep for the database, which takes " +
                     std::to_string(most / QueryDepth) +
                     " selections within each other, or && and || in turn within " +
                     std::to_string(most) +
                     " parentheses, or fewer of both: select the inner objects first and compare "
                     "their KesObjectID, or make several selections of it");
}

// A chain of one operator is gathered with a list, because it may be a million
// operands deep, and joined in groups, because databases limit the depth too.
void SqlTranslator::translate(Condition* left, Condition::LogicalOperator op, Condition* right) {
    if (gathering != nullptr) {
        if (op == gatheredOp) {
            gathering->push_back(right);
            gathering->push_back(left);
            gathered = true;
        }
        return;
    }
    std::vector<Piece> pieces = operands(left, op, right);
    list(pieces, {op == Condition::OR ? " = ?" : " <> ?", op == Condition::OR});
    current = join(pieces, op == Condition::OR ? " OR " : " AND ");
}

std::vector<SqlTranslator::Piece> SqlTranslator::operands(Condition* left,
                                                          Condition::LogicalOperator op,
                                                          Condition* right) {
    std::vector<Piece> pieces;
    std::vector<Condition*> pending{right, left};
    while (!pending.empty()) {
        Condition* next = pending.back();
        pending.pop_back();
        if (dynamic_cast<CombinationCondition*>(next) != nullptr) {
            gathering = &pending;
            gatheredOp = op;
            gathered = false;
            next->translate(this);
            gathering = nullptr;
            if (gathered)
                continue;
        }
        pieces.push_back(piece(next));
    }
    return pieces;
}

// Alternatives like `a = ? OR a = ?` become one list, and so does what excludes
// several values.
void SqlTranslator::list(std::vector<Piece>& pieces, const ListForm& form) const {
    const std::size_t longest = dialect.takesLists() ? FewRows : LongestList;
    std::vector<Piece> listed;
    for (std::size_t i = 0; i < pieces.size();) {
        std::size_t end = i + 1;
        const bool lists =
            pieces[i].parameters.size() == 1 && pieces[i].text.ends_with(form.ending);
        while (lists && end < pieces.size() && end - i < longest &&
               pieces[end].text == pieces[i].text)
            ++end;
        listed.push_back(end - i == 1 ? std::move(pieces[i]) : listOf(pieces, i, end, form));
        i = end;
    }
    pieces = std::move(listed);
}

// One parameter where the database takes a list of numbers. Elsewhere the list is
// filled up to a power of two, so that few statements serve all lengths.
SqlTranslator::Piece SqlTranslator::listOf(const std::vector<Piece>& pieces, std::size_t begin,
                                           std::size_t end, const ListForm& form) const {
    const Piece& first = pieces[begin];
    const std::string tested = first.text.substr(0, first.text.size() - form.ending.size());
    Piece list;
    list.ids = first.ids == 0 ? 0 : end - begin;
    list.depth = LeafDepth;
    if (dialect.takesLists() && std::holds_alternative<std::int64_t>(first.parameters.front())) {
        std::vector<std::int64_t> numbers;
        for (std::size_t i = begin; i < end; ++i)
            numbers.push_back(std::get<std::int64_t>(pieces[i].parameters.front()));
        list.text = dialect.inList(tested, form.isOneOf);
        list.parameters.emplace_back(std::move(numbers));
        return list;
    }
    for (std::size_t i = begin; i < end; ++i)
        list.parameters.push_back(pieces[i].parameters.front());
    list.parameters.resize(std::bit_ceil(end - begin), list.parameters.back());
    list.text = tested + (form.isOneOf ? " IN (?" : " NOT IN (?");
    for (std::size_t i = 1; i < list.parameters.size(); ++i)
        list.text += ",?";
    list.text += ")";
    return list;
}

// The deepest of a group comes first, where it costs least.
SqlTranslator::Piece SqlTranslator::join(std::vector<Piece>& pieces, const char* word) {
    while (pieces.size() > 1) {
        std::vector<Piece> groups;
        for (std::size_t i = 0; i < pieces.size(); i += LongestGroup)
            groups.push_back(group(pieces, i, std::min(i + LongestGroup, pieces.size()), word));
        pieces = std::move(groups);
    }
    return std::move(pieces.front());
}

SqlTranslator::Piece SqlTranslator::group(std::vector<Piece>& pieces, std::size_t begin,
                                          std::size_t end, const char* word) {
    if (end - begin == 1)
        return std::move(pieces[begin]);
    const auto first = pieces.begin() + static_cast<std::ptrdiff_t>(begin);
    const auto last = pieces.begin() + static_cast<std::ptrdiff_t>(end);
    const auto deepest = std::max_element(
        first, last, [](const Piece& a, const Piece& b) { return a.depth < b.depth; });
    std::rotate(first, deepest, deepest + 1);
    Piece all;
    all.depth = first->depth + FirstDepth;
    for (auto each = first; each != last; ++each) {
        all.text += (each == first ? "(" : word) + each->text;
        all.joined += each->joined;
        std::move(each->parameters.begin(), each->parameters.end(),
                  std::back_inserter(all.parameters));
        if (each != first)
            all.depth = std::max(all.depth, each->depth + OtherDepth);
    }
    all.text += ")";
    return all;
}

std::string SqlTranslator::column(const Attribute& attribute, Family family) {
    const std::string name = textOf(attribute.getName());
    const TableMapping& table = *scopes.back().table;
    const int position = table.find(name);
    if (position < 0)
        refuse("no field \"" + name + "\" for the condition to test");
    const FieldKind kind = table.columns()[static_cast<std::size_t>(position)].kind;
    if (!isFamily(kind, static_cast<int>(family)))
        refuse("a field \"" + name + "\" that cannot be compared with " +
               (family == Family::Number ? "a number"
                : family == Family::Text ? "a text"
                                         : "a time"));
    return scopes.back().alias + "." + table.column(position);
}

void SqlTranslator::compare(const Attribute& attribute, int op, Family family, Parameter value) {
    const std::string tested = column(attribute, family);
    if (op == Condition::LIKE || op == Condition::NOT_LIKE)
        current.text = (op == Condition::NOT_LIKE ? "NOT " : "") + dialect.like(tested, "?");
    else if (op >= Condition::EQUAL && op <= Condition::LESS_OR_EQUAL)
        current.text = tested + Operators[op] + "?";
    else
        refuse("no comparison with the code " + std::to_string(op));
    current.parameters = {std::move(value)};
    current.ids = op == Condition::EQUAL && attribute.getName() == "KesObjectID" ? 1 : 0;
}

void SqlTranslator::compareReal(const Attribute& attribute, int op, double value) {
    if (std::isnan(value)) {
        column(attribute, Family::Number);
        current.text = op == Condition::NOT_EQUAL ? Always : Never;
        return;
    }
    compare(attribute, op, Family::Number, value);
}

bool SqlTranslator::isReal(const Attribute& attribute) const {
    const TableMapping& table = *scopes.back().table;
    const int position = table.find(textOf(attribute.getName()));
    if (position < 0)
        return false;
    const FieldKind kind = table.columns()[static_cast<std::size_t>(position)].kind;
    return kind == FieldKind::Float || kind == FieldKind::Double;
}

// Between a whole number that no real equals and the nearest real there is no
// other: to be below the one is to be below the other.
bool SqlTranslator::compareBetweenReals(const Attribute& attribute, int op, double near,
                                        int rounding) {
    if (rounding == 0 || op < Condition::EQUAL || op > Condition::LESS_OR_EQUAL ||
        !isReal(attribute))
        return false;
    const bool isUp = rounding > 0;
    if (op == Condition::EQUAL || op == Condition::NOT_EQUAL)
        current.text = op == Condition::EQUAL ? Never : Always;
    else if (op == Condition::LESS || op == Condition::LESS_OR_EQUAL)
        compareReal(attribute, isUp ? Condition::LESS : Condition::LESS_OR_EQUAL, near);
    else
        compareReal(attribute, isUp ? Condition::GREATER_OR_EQUAL : Condition::GREATER, near);
    return true;
}

void SqlTranslator::compareUnsigned(const Attribute& attribute, int op, unsigned long value) {
    constexpr auto largest = static_cast<unsigned long>(std::numeric_limits<std::int64_t>::max());
    if (compareBetweenReals(attribute, op, static_cast<double>(value), roundingOf(value)))
        return;
    if (value > largest && isReal(attribute)) {
        compareReal(attribute, op, static_cast<double>(value));
        return;
    }
    if (value > largest) {
        // No stored whole number is that large.
        column(attribute, Family::Number);
        current.text =
            op == Condition::LESS || op == Condition::LESS_OR_EQUAL || op == Condition::NOT_EQUAL
                ? Always
                : Never;
        return;
    }
    compare(attribute, op, Family::Number, static_cast<std::int64_t>(value));
}

void SqlTranslator::translate(Attribute* attribute, int op, double value) {
    compareReal(*attribute, op, value);
}

void SqlTranslator::translate(Attribute* attribute, int op, float value) {
    compareReal(*attribute, op, static_cast<double>(value));
}

void SqlTranslator::translate(Attribute* attribute, int op, bool value) {
    compare(*attribute, op, Family::Number, std::int64_t{value ? 1 : 0});
}

void SqlTranslator::translate(Attribute* attribute, int op, const Timestamp& value) {
    char text[TimestampSize + 1];
    if (!writeTimestamp(value, text))
        refuse("no objects with a time outside the years 1 to 7899, which the condition on \"" +
               textOf(attribute->getName()) + "\" tests for");
    compare(*attribute, op, Family::Time, std::string(text));
}

void SqlTranslator::translate(Attribute* attribute, int op, const String& value) {
    std::string text = textOf(value);
    if (!isValidUtf8(text.data(), text.size()))
        refuse("no texts that are not valid UTF-8, which the condition on \"" +
               textOf(attribute->getName()) + "\" tests for");
    compare(*attribute, op, Family::Text,
            op == Condition::LIKE || op == Condition::NOT_LIKE ? completePattern(text)
                                                               : std::move(text));
}

void SqlTranslator::translate(Attribute* attribute, int op, int value) {
    compare(*attribute, op, Family::Number, std::int64_t{value});
}

void SqlTranslator::translate(Attribute* attribute, int op, unsigned int value) {
    compare(*attribute, op, Family::Number, std::int64_t{value});
}

void SqlTranslator::translate(Attribute* attribute, int op, long value) {
    if (compareBetweenReals(*attribute, op, static_cast<double>(value), roundingOf(value)))
        return;
    compare(*attribute, op, Family::Number, std::int64_t{value});
}

void SqlTranslator::translate(Attribute* attribute, int op, unsigned long value) {
    compareUnsigned(*attribute, op, value);
}

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

// The query for the ids, kept from being joined with those around it where it is joined
// with too many already.
std::string SqlTranslator::apart(Piece& nested, const std::string& ids,
                                 const std::string& rest) const {
    if (++nested.joined < dialect.mostJoined())
        return "SELECT " + ids + rest;
    nested.joined = 0;
    return "SELECT x.k FROM (SELECT DISTINCT " + ids + " AS k" + rest + ") AS x";
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
