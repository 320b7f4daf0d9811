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

// The sum of some queries for a number each. A chain of hundreds of additions is
// deeper than databases evaluate.
std::string sumOf(const std::vector<std::string>& queries, std::size_t first, std::size_t end) {
    if (end - first == 1)
        return "(" + queries[first] + ")";
    const std::size_t middle = first + (end - first) / 2;
    return "(" + sumOf(queries, first, middle) + " + " + sumOf(queries, middle, end) + ")";
}

}  // namespace

std::uint64_t RowCounter::count(const std::vector<std::string>& tables, const QueryPlan& plan,
                                std::uint64_t most) {
    constexpr auto largest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    const bool isLimited = most < largest;
    if (tables.empty())
        return 0;
    std::vector<std::string> queries;
    queries.reserve(tables.size());
    for (const std::string& table : tables)
        queries.push_back(countOf(table, plan.tail, isLimited));
    const std::string text = "SELECT " + sumOf(queries, 0, queries.size());
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
