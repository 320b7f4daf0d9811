// The rows of several classes by one statement.
//
// Where each statement of a transaction sees what others have committed until then,
// several would show several states.

#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "drivers/common/QueryPlan.h"
#include "drivers/common/RowBuffer.h"
#include "drivers/common/StatementCache.h"
#include "drivers/common/TableMapping.h"

namespace Kes::sql {

class UnionReader {
public:
    UnionReader(const Dialect& itsDialect, StatementCache& itsStatements)
        : dialect(itsDialect),
          statements(itsStatements) {}

    /// For each of the tables its rows that the plan has, in the plan's order, taken
    /// aside.
    std::vector<std::unique_ptr<RowBuffer>> read(const std::vector<TableMapping*>& tables,
                                                 const QueryPlan& plan);

    /// A model goes, and with it the classes that the texts speak of.
    void forget() { kept.clear(); }

private:
    class Layout;

    // Programs have few shapes of queries; see TableMapping.
    static constexpr std::size_t MostShapes = 500;

    std::string text(const std::vector<TableMapping*>& tables, const Layout& layout,
                     const QueryPlan& plan) const;
    Statement& statementOf(const std::string& text, bool hasFew);

    const Dialect& dialect;
    StatementCache& statements;
    std::unordered_map<std::string, std::unique_ptr<Statement>> kept;
};

}  // namespace Kes::sql
