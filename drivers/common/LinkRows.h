// The rows of link tables, for many owners with one query.

#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include <kes/LinkReader.h>

#include "drivers/common/Connection.h"
#include "drivers/common/Dialect.h"

namespace Kes::sql {

class LinkRows {
public:
    LinkRows(const Dialect& itsDialect, Connection& itsConnection)
        : dialect(itsDialect),
          connection(itsConnection) {}

    /// False when there are more than `most`.
    bool read(const Association& association, const String& role,
              const std::vector<unsigned long>& owners, std::size_t most,
              std::vector<StoredLink>& links);

private:
    std::string query(const Association& association, const String& role,
                      const std::string& owners) const;

    const Dialect& dialect;
    Connection& connection;
    std::map<std::string, std::unique_ptr<Statement>> statements;  // by their texts
};

}  // namespace Kes::sql
