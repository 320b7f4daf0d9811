#include "drivers/common/SqlTranslator.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>

#include "drivers/common/ConditionDepth.h"
#include "drivers/common/SqlFailure.h"
#include "drivers/common/TextForms.h"

namespace Kes::sql {

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

// The query for the ids, kept from being joined with those around it where it is joined
// with too many already.
std::string SqlTranslator::apart(Piece& nested, const std::string& ids,
                                 const std::string& rest) const {
    if (++nested.joined < dialect.mostJoined())
        return "SELECT " + ids + rest;
    nested.joined = 0;
    return "SELECT x.k FROM (SELECT DISTINCT " + ids + " AS k" + rest + ") AS x";
}

}  // namespace Kes::sql
