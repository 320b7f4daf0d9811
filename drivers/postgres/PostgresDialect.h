// PostgreSQL's ways.

#pragma once

#include "drivers/common/Dialect.h"

namespace Kes::sql {

class PostgresDialect final : public Dialect {
public:
    std::string name() const override { return "postgres"; }
    std::string typeOf(FieldKind kind) const override;
    std::vector<std::string> idStore() const override;
    /// Keeps others from linking to the row too, which are content to share it.
    std::string rowLock() const override { return " FOR UPDATE"; }
    std::string sharedLock() const override { return " FOR KEY SHARE"; }
    std::string columnsOf() const override;
    std::string nameFault(const std::string& identifier) const override;
    std::string columnFault(const std::string& identifier) const override;
};

}  // namespace Kes::sql
