// PostgreSQL's ways.

#pragma once

#include "drivers/common/Dialect.h"

namespace Kes::sql {

class PostgresDialect final : public Dialect {
public:
    std::string name() const override { return "postgres"; }
    std::string typeOf(FieldKind kind) const override;
    std::string nullOf(FieldKind kind) const override;
    std::string asLong(const std::string& expression) const override {
        return "CAST(" + expression + " AS pg_catalog.int8)";
    }
    std::string asDouble(const std::string& expression) const override {
        return "CAST(" + expression + " AS pg_catalog.float8)";
    }
    std::vector<std::string> idStore() const override;
    /// Keeps others from linking to the row too, which are content to share it.
    std::string rowLock() const override { return " FOR UPDATE"; }
    std::string sharedLock() const override { return " FOR KEY SHARE"; }
    std::string touchPartners(const std::string& quotedTable) const override;
    std::string columnsOf() const override;
    std::string nameFault(const std::string& identifier) const override;
    std::string columnFault(const std::string& identifier) const override;

    bool takesLists() const override { return true; }
    std::string inList(const std::string& column, bool isOneOf) const override {
        return column + (isOneOf ? " = ANY (?)" : " <> ALL (?)");
    }

    /// Of a table that it has not analysed yet the server believes that a list of
    /// some hundred values finds nearly every row, and reads all of them. It does
    /// not count what an array holds that it has to compute.
    std::string among(const std::string& column, const std::string& list) const override {
        return column + " = ANY (ARRAY(SELECT unnest" + list + "))";
    }

    /// Whether a transaction goes by what was stored when it began, and nobody
    /// checks what it read.
    void setKeepsSnapshot(bool does) { keepsSnapshot = does; }

private:
    bool keepsSnapshot = false;
};

}  // namespace Kes::sql
