#include <kes/Query.h>

#include <kes/Selection.h>

#include "typed/Session.h"

namespace Kes {

struct QueryBase::Definition {
    std::shared_ptr<Session> session;
    Class* cls;
};

struct QueryBase::Cursor::State {
    explicit State(const Definition& definition)
        : session(definition.session),
          selection(definition.cls) {}

    std::shared_ptr<Session> session;
    Selection selection;
};

QueryBase::QueryBase(const Start& start)
    : definition(std::make_unique<Definition>(
          Definition{start.session, start.session->classOf(start.type)})) {}

QueryBase::QueryBase(QueryBase&&) noexcept = default;
QueryBase& QueryBase::operator=(QueryBase&&) noexcept = default;
QueryBase::~QueryBase() = default;

QueryBase::Cursor::Cursor(const QueryBase& query)
    : state(std::make_unique<State>(*query.definition)) {
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
