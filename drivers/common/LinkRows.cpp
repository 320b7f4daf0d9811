#include "drivers/common/LinkRows.h"

#include <algorithm>
#include <limits>

#include <kes/Association.h>

namespace Kes::sql {

std::string LinkRows::query(const Association& association, const String& role,
                            const IdList& owners) const {
    const std::string owner =
        dialect.quote(static_cast<const char*>(association.getAssociatedRole(role)));
    return "SELECT " + owner + ", " + dialect.quote(static_cast<const char*>(role)) + " FROM " +
           dialect.quote(static_cast<const char*>(association.getName())) + " WHERE " +
           dialect.among(owner, owners.text()) + " LIMIT ?";
}

// The limit keeps the answer in bounds: of what is beyond nothing is used. What is no
// id is left to the query for one collection, which says what is wrong.
bool LinkRows::read(const Association& association, const String& role,
                    const std::vector<unsigned long>& owners, std::size_t most,
                    std::vector<StoredLink>& links) {
    constexpr auto largest = static_cast<std::size_t>(std::numeric_limits<std::int64_t>::max());
    const std::vector<std::int64_t> ids(owners.begin(), owners.end());
    for (std::size_t begin = 0; begin < ids.size(); begin += IdList::Longest) {
        const IdList list(ids, begin, IdList::Longest, dialect.takesLists());
        Statement& statement = statements.keep(query(association, role, list));
        list.bindTo(statement);
        const std::size_t limit = std::min(most - std::min(most, links.size()), largest - 1) + 1;
        statement.bind(list.parameters(), static_cast<std::int64_t>(limit));
        const Execution execution(statement);
        while (statement.step()) {
            const bool areIds =
                statement.kind(0) == Row::Integer && statement.kind(1) == Row::Integer;
            if (links.size() >= most || !areIds)
                return false;
            links.push_back({static_cast<unsigned long>(statement.integer(0)),
                             static_cast<unsigned long>(statement.integer(1))});
        }
    }
    return true;
}

}  // namespace Kes::sql
