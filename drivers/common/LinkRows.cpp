#include "drivers/common/LinkRows.h"

#include <algorithm>
#include <bit>

#include <kes/Association.h>

namespace Kes::sql {

namespace {

constexpr std::size_t OwnersAtOnce = 1024;

// Ends an execution also when a step has thrown.
class Execution {
public:
    explicit Execution(Statement& itsStatement) : statement(itsStatement) {}
    Execution(const Execution&) = delete;
    Execution& operator=(const Execution&) = delete;
    ~Execution() { statement.reset(); }

private:
    Statement& statement;
};

}  // namespace

// Lists are filled up to a power of two, so that few statements serve all
// lengths.
std::string LinkRows::query(const Association& association, const String& role,
                            std::size_t owners) const {
    const std::string owner =
        dialect.quote(static_cast<const char*>(association.getAssociatedRole(role)));
    std::string text = "SELECT " + owner + ", " + dialect.quote(static_cast<const char*>(role)) +
                       " FROM " +
                       dialect.quote(static_cast<const char*>(association.getName())) +
                       " WHERE " + owner + " IN (?";
    for (std::size_t i = 1; i < std::bit_ceil(owners); ++i)
        text += ",?";
    return text + ")";
}

bool LinkRows::read(const Association& association, const String& role,
                    const std::vector<unsigned long>& owners, std::size_t most,
                    std::vector<StoredLink>& links) {
    for (std::size_t from = 0; from < owners.size(); from += OwnersAtOnce) {
        const std::size_t count = std::min(owners.size() - from, OwnersAtOnce);
        const std::string text = query(association, role, count);
        std::unique_ptr<Statement>& statement = statements[text];
        if (statement == nullptr)
            statement = connection.prepareCursor(text);
        for (std::size_t i = 0; i < std::bit_ceil(count); ++i)
            statement->bind(static_cast<int>(i),
                            static_cast<std::int64_t>(owners[from + std::min(i, count - 1)]));
        const Execution execution(*statement);
        while (statement->step()) {
            if (links.size() >= most)
                return false;
            links.push_back({static_cast<unsigned long>(statement->integer(0)),
                             static_cast<unsigned long>(statement->integer(1))});
        }
    }
    return true;
}

}  // namespace Kes::sql
