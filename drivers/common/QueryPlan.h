// A compiled query.

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include <kes/DBDriver.h>

#include "drivers/common/Connection.h"

namespace Kes::sql {

using Parameter = std::variant<std::int64_t, double, std::string, std::vector<std::int64_t>>;

inline void bindParameter(Statement& statement, int position, const Parameter& value) {
    if (const auto* integer = std::get_if<std::int64_t>(&value))
        statement.bind(position, *integer);
    else if (const auto* real = std::get_if<double>(&value))
        statement.bind(position, *real);
    else if (const auto* list = std::get_if<std::vector<std::int64_t>>(&value))
        statement.bindList(position, *list);
    else
        statement.bindText(position, std::get<std::string>(value).data(),
                           std::get<std::string>(value).size());
}

/// The rows of each class that count, in the order of the query.
struct RowRange {
    std::uint64_t offset = 0;
    std::uint64_t count = UINT64_MAX;

    bool isAll() const { return offset == 0 && count == UINT64_MAX; }
};

/// What all concrete classes of a query share.
struct QueryPlan {
    std::string tail;   // what follows the table: condition, order and range
    std::string order;  // the same as in the tail, or nothing
    std::vector<Parameter> parameters;
    bool isById = false;            // the only condition is an object id, the only parameter
    bool hasFew = false;            // rows: the only condition is a list of object ids
    std::vector<std::string> keys;  // the fields that are sorted by, each once
};

/// Cursors share the plan, so they outlive the definition.
class SqlDefinition final : public SelectionDefinition {
public:
    SqlDefinition(std::shared_ptr<const QueryPlan> itsPlan, Class* itsBase,
                  std::vector<Class*> itsClasses, std::uint64_t itsNumber)
        : plan(std::move(itsPlan)),
          base(itsBase),
          classes(std::move(itsClasses)),
          number(itsNumber) {}

    const std::shared_ptr<const QueryPlan> plan;
    Class* const base;                  // that is selected
    const std::vector<Class*> classes;  // each of which has a cursor
    const std::uint64_t number;         // of the definitions of this driver; never 0
};

}  // namespace Kes::sql
