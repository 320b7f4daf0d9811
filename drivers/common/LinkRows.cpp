#include "drivers/common/LinkRows.h"

#include <kes/Association.h>

#include "drivers/common/IdList.h"

namespace Kes::sql {

std::string LinkRows::query(const Association& association, const String& role,
                            const std::string& owners) const {
    const std::string owner =
        dialect.quote(static_cast<const char*>(association.getAssociatedRole(role)));
    return "SELECT " + owner + ", " + dialect.quote(static_cast<const char*>(role)) + " FROM " +
           dialect.quote(static_cast<const char*>(association.getName())) + " WHERE " +
           dialect.among(owner, owners);
}

bool LinkRows::read(const Association& association, const String& role,
                    const std::vector<unsigned long>& owners, std::size_t most,
                    std::vector<StoredLink>& links) {
    const std::vector<std::int64_t> ids(owners.begin(), owners.end());
    for (std::size_t begin = 0; begin < ids.size(); begin += IdList::Longest) {
        const IdList list(ids, begin, IdList::Longest);
        Statement& statement = statements.keepCursor(query(association, role, list.text()));
        list.bindTo(statement);
        const Execution execution(statement);
        while (statement.step()) {
            if (links.size() >= most)
                return false;
            links.push_back({static_cast<unsigned long>(statement.integer(0)),
                             static_cast<unsigned long>(statement.integer(1))});
        }
    }
    return true;
}

}  // namespace Kes::sql
