// SQLite's ways.

#pragma once

#include "drivers/common/Dialect.h"

namespace Kes::sql {

class SqliteDialect final : public Dialect {
public:
    std::string name() const override { return "sqlite"; }
    std::string typeOf(FieldKind kind) const override;
    std::string idType() const override { return "INTEGER PRIMARY KEY"; }
    std::string linkTableOptions() const override { return " WITHOUT ROWID"; }

    // Without OR FAIL each page would be copied aside before it changes. Whoever
    // is refused a row rolls back the whole transaction.
    std::string insertRows() const override { return "INSERT OR FAIL INTO "; }
    std::size_t insertedRows(std::size_t columns) const override;
    std::string columnsOf() const override;
    std::string nameFault(const std::string& identifier) const override;
    std::string fold(const std::string& identifier) const override;
    std::size_t mostColumns() const override { return 2000; }

    /// The parser of most libraries holds a hundred symbols, 21 of them those of the query
    /// around the condition, at most.
    std::size_t mostDepth() const override { return 78; }
};

}  // namespace Kes::sql
