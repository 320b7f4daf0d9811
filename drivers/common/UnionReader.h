// The rows of several classes by one statement.
//
// Where each statement of a transaction sees what others have committed until then,
// several would show several states.

#pragma once

#include <memory>
#include <string>
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
    /// aside. `base` is of the class that the plan is for, which has the fields that all
    /// of the tables have.
    std::vector<std::unique_ptr<RowBuffer>> read(const std::vector<TableMapping*>& tables,
                                                 const TableMapping& base, const QueryPlan& plan);

    /// A model goes, and with it the classes that the texts speak of.
    void forget() { statements.forget(); }

private:
    class Layout;

    std::string text(const std::vector<TableMapping*>& tables, const Layout& layout,
                     const QueryPlan& plan) const;
    std::string textOfOne(const std::vector<TableMapping*>& tables, const TableMapping& base,
                          const Layout& layout, const QueryPlan& plan) const;
    std::string placesOf(const std::vector<TableMapping*>& tables, std::size_t table,
                         const Layout& layout) const;
    Statement& statementOf(const std::string& text, bool hasFew);

    const Dialect& dialect;
    StatementsByText statements;
};

}  // namespace Kes::sql
