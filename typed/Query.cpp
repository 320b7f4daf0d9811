#include <kes/Query.h>

#include <algorithm>
#include <utility>
#include <vector>

#include <kes/Calculator.h>
#include <kes/Error.h>
#include <kes/Selection.h>

#include "object/SelectionAccess.h"
#include "typed/DescribedClass.h"
#include "typed/Keyset.h"
#include "typed/PredicateNode.h"
#include "typed/QueryDefinition.h"
#include "typed/SchemaRecord.h"
#include "typed/Session.h"

namespace Kes {

// Empty values come before all others, whatever stands behind their marks.
void QueryBase::Definition::sort(Selection& selection) const {
    const PredicateScope scope{*session, cls, false};
    bool isDecided = false;
    for (const SortKeyData& key : keys) {
        const PredicateScope::Names names = scope.namesOf(key.field);
        if (names.flag.size() != 0)
            selection.orderBy(Attribute(cls, names.flag), key.isAscending);
        selection.orderBy(Attribute(cls, names.name), key.isAscending);
        isDecided = isDecided || key.field == nullptr;
    }
    if (!isDecided)
        selection.orderBy(Attribute(cls, scope.namesOf(nullptr).name));
    SelectionAccess::mergeFlags(selection);
}

void QueryBase::Definition::restrict(Selection& selection) const {
    selection.limit(most, skipped);
    if (conditions.empty() && !isBehind)
        return;
    const bool knowsNotLike = dynamic_cast<Calculator*>(session->getDriver()) != nullptr;
    const PredicateScope scope{*session, cls, knowsNotLike};
    std::vector<ConditionPtr> all;
    for (const NodePtr& each : conditions)
        all.push_back(each->build(scope, false));
    if (isBehind)
        all.push_back(conditionBehind(scope, keys, before));
    selection.setCondition(joined(std::move(all), Condition::AND).release());
}

struct QueryBase::Cursor::State {
    State(const Definition& definition, std::uint64_t most)
        : session(definition.session),
          selection(definition.cls) {
        guarded(*session, [&] {
            definition.restrict(selection);
            if (most < definition.most)
                selection.limit(most, definition.skipped);
            if (definition.isPart() || definition.isBehind || !definition.keys.empty() ||
                most != UINT64_MAX)
                definition.sort(selection);
        });
    }

    std::shared_ptr<Session> session;
    Selection selection;
};

QueryBase::QueryBase(const Start& start)
    : definition(std::make_shared<const Definition>(
          Definition{start.session, start.session->classOf(start.type), {}, {}})) {}

QueryBase::QueryBase(const QueryBase&) = default;
QueryBase::QueryBase(QueryBase&&) noexcept = default;
QueryBase& QueryBase::operator=(const QueryBase&) = default;
QueryBase& QueryBase::operator=(QueryBase&&) noexcept = default;
QueryBase::~QueryBase() = default;

QueryBase::QueryBase(const QueryBase& query, const PredicateBase& condition) {
    auto fresh = std::make_shared<Definition>(*query.definition);
    fresh->conditions.push_back(condition.getNode());
    definition = std::move(fresh);
}

QueryBase::QueryBase(const QueryBase& query, std::initializer_list<SortKeyData> keys) {
    auto fresh = std::make_shared<Definition>(*query.definition);
    fresh->keys.insert(fresh->keys.end(), keys.begin(), keys.end());
    definition = std::move(fresh);
}

QueryBase::QueryBase(const QueryBase& query, Part part, std::uint64_t count) {
    auto fresh = std::make_shared<Definition>(*query.definition);
    (part == First ? fresh->most : fresh->skipped) = count;
    definition = std::move(fresh);
}

QueryBase::QueryBase(const QueryBase& query, const RefBase& object) {
    auto fresh = std::make_shared<Definition>(*query.definition);
    fresh->before = object.getInstance();
    fresh->isBehind = true;
    requirePlace(*fresh->session, object.getInstance());
    definition = std::move(fresh);
}

Pointer<Instance> QueryBase::requireOne() const {
    Cursor cursor(*this, 2);
    const Pointer<Instance> found = cursor.current();
    const std::string cls = static_cast<const char*>(definition->cls->getName());
    if (found == nullptr)
        throw Error(ErrorKind::NotFound, "NOTFOUND", "Kes::Query::one",
                    "No " + cls +
                        " object is such as the query asks for; ask with first whether "
                        "there is one",
                    cls, 0);
    cursor.advance();
    if (cursor.current() != nullptr)
        throw Error(ErrorKind::Ambiguous, "AMBIGUOUS", "Kes::Query::one",
                    "Several " + cls + " objects are such as the query asks for, the objects " +
                        std::to_string(found->getObjectID()) + " and " +
                        std::to_string(cursor.current()->getObjectID()) +
                        " among them; ask for one of them, or with first",
                    cls, found->getObjectID());
    return found;
}

std::uint64_t QueryBase::countRows(std::uint64_t most) const {
    return guarded(*definition->session, [&] {
        Selection selection(definition->cls);
        definition->restrict(selection);
        selection.limit(std::min(most, definition->most), definition->skipped);
        return selection.count();
    });
}

QueryBase::Cursor::Cursor(const QueryBase& query) : Cursor(query, UINT64_MAX) {}

QueryBase::Cursor::Cursor(const QueryBase& query, std::uint64_t most)
    : state(std::make_unique<State>(*query.definition, most)) {
    advance();
}

QueryBase::Cursor::Cursor(Cursor&&) noexcept = default;
QueryBase::Cursor& QueryBase::Cursor::operator=(Cursor&&) noexcept = default;
QueryBase::Cursor::~Cursor() = default;

void QueryBase::Cursor::advance() {
    const bool hasMore = guarded(*state->session, [&] { return state->selection.next(); });
    instance = hasMore ? state->selection.value() : nullptr;
}

}  // namespace Kes
