// Association table mapping, reading: the rows of link tables, for many owners
// with one query.

#pragma once

#include <string>
#include <vector>

#include <kes/LinkReader.h>

#include "drivers/common/Dialect.h"
#include "drivers/common/IdList.h"
#include "drivers/common/StatementCache.h"

namespace Kes::sql {

class LinkRows {
public:
    LinkRows(const Dialect& itsDialect, StatementCache& itsStatements)
        : dialect(itsDialect),
          statements(itsStatements) {}

    /// False when there are more than `most`.
    bool read(const Association& association, const String& role,
              const std::vector<unsigned long>& owners, std::size_t most,
              std::vector<StoredLink>& links);

private:
    std::string query(const Association& association, const String& role,
                      const IdList& owners) const;

    const Dialect& dialect;
    StatementCache& statements;
};

}  // namespace Kes::sql
