// Counting rows.

#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "drivers/common/QueryPlan.h"
#include "drivers/common/StatementCache.h"

namespace Kes::sql {

class RowCounter {
public:
    explicit RowCounter(StatementCache& itsStatements) : statements(itsStatements) {}

    /// Whether one statement has so many parameters, on every database.
    static bool takes(std::size_t parameters) { return parameters <= 30000; }

    /// The rows of all tables, which are quoted, that the plan has, or `most`: by
    /// one statement, and so of one state of the database.
    std::uint64_t count(const std::vector<std::string>& tables, const QueryPlan& plan,
                        std::uint64_t most);

    /// A model goes, and with it the classes that the texts speak of.
    void forget() { statements.forget(); }

private:
    StatementsByText statements;
};

}  // namespace Kes::sql
