// MariaDB's ways.

#pragma once

#include "drivers/common/Dialect.h"

namespace Kes::sql {

/// Relies on the modes that the connection sets for its session: double quotes
/// are for names, and a backslash in a literal is a backslash.
class MariadbDialect final : public Dialect {
public:
    std::string name() const override { return "mariadb"; }
    std::string typeOf(FieldKind kind) const override;
    std::string keyTextType() const override;
    std::string hiddenColumns() const override;
    std::string touch(const std::string& quotedTable) const override;
    std::string indexed(const std::string& quotedColumn, FieldKind kind,
                        bool unique) const override;
    std::vector<std::string> createIndexes(const std::string& quotedTable,
                                           const std::vector<IndexText>& indexes) const override;
    std::string createView(const std::string& quotedName) const override;
    std::string insertOrKeep(const std::string& rest) const override;
    std::vector<std::string> idStore() const override;
    std::string rowLock() const override { return " FOR UPDATE"; }
    std::string sharedLock() const override { return " LOCK IN SHARE MODE"; }
    std::string columnsOf() const override;
    std::string nameFault(const std::string& identifier) const override;
    std::string columnFault(const std::string& identifier) const override;
    std::string fold(const std::string& identifier) const override;
    std::string foldColumn(const std::string& identifier) const override;
    std::string reasonToRefuse(double value) const override;
    std::size_t mostColumns() const override { return 1016; }
    std::string quotient(const std::string& number, const std::string& divisor) const override {
        return "(" + number + ") DIV " + divisor;
    }
    std::string asLong(const std::string& expression) const override {
        return "CAST(" + expression + " AS SIGNED)";
    }

    /// The server takes 63 queries within each other; those that are kept apart are two.
    std::size_t mostDepth() const override { return 240; }

    /// Of nine queries, each of two tables, the server looks for the best order for six
    /// seconds, and for a multiple of it with each further one.
    std::size_t mostJoined() const override { return 4; }

    void setClustered(bool is) { clustered = is; }
    void setFoldsTables(bool does) { foldsTables = does; }

private:
    bool clustered = false;
    bool foldsTables = false;
};

}  // namespace Kes::sql
