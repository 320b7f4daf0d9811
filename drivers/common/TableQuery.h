// Values of rows, sums and groups by one statement.

#pragma once

#include <string>
#include <vector>

#include <kes/Tabulator.h>

#include "drivers/common/QueryPlan.h"
#include "drivers/common/RowLoader.h"
#include "drivers/common/StatementCache.h"
#include "drivers/common/TableMapping.h"

namespace Kes::sql {

class TableQuery {
public:
    TableQuery(const Dialect& itsDialect, StatementCache& itsStatements)
        : dialect(itsDialect),
          statements(itsStatements) {}

    /// Shows what is wanted of the rows that the plan has, of all sources, which
    /// are quoted and have the columns of the class.
    void read(const std::vector<std::string>& sources, const TableMapping& fields,
              const QueryPlan& plan, const Tabulation& wanted, TableReader& reader);

    /// A model goes, and with it the classes that the texts speak of.
    void forget() { statements.forget(); }

private:
    struct Cell;

    std::vector<Cell> cellsOf(const TableMapping& fields, const Tabulation& wanted) const;
    std::string textOf(const std::vector<std::string>& sources, const std::vector<Cell>& cells,
                       const QueryPlan& plan, const Tabulation& wanted) const;
    void show(Statement& row, const Cell& cell, const TableMapping& fields, TableReader& reader);

    const Dialect& dialect;
    StatementsByText statements;
    RowLoader loader;
};

}  // namespace Kes::sql
