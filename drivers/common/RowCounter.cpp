#include "drivers/common/RowCounter.h"

#include <algorithm>
#include <limits>

namespace Kes::sql {

namespace {

std::string countOf(const std::string& table, const std::string& tail, bool isLimited) {
    const std::string rows = table + " AS t" + tail;
    return isLimited ? "SELECT COUNT(*) FROM (SELECT 1 AS one FROM " + rows + " LIMIT ?) AS x"
                     : "SELECT COUNT(*) FROM " + rows;
}

}  // namespace

std::uint64_t RowCounter::count(const std::vector<std::string>& tables, const QueryPlan& plan,
                                std::uint64_t most) {
    constexpr auto largest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    const bool isLimited = most < largest;
    std::string text;
    for (const std::string& table : tables)
        text += (text.empty() ? "SELECT (" : " + (") + countOf(table, plan.tail, isLimited) + ")";
    if (tables.empty())
        return 0;
    Statement& statement =
        statements.of(text, [&](StatementCache& cache) { return cache.make(text); });
    int position = 0;
    for (std::size_t i = 0; i < tables.size(); ++i) {
        for (const Parameter& value : plan.parameters)
            bindParameter(statement, position++, value);
        if (isLimited)
            statement.bind(position++, static_cast<std::int64_t>(most));
    }
    const Execution execution(statement);
    const bool hasRow = statement.step();
    return hasRow ? std::min(most, static_cast<std::uint64_t>(statement.integer(0))) : 0;
}

}  // namespace Kes::sql
