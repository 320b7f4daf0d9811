// Values that no row has, for rows that wait for another one to give up its
// value in a unique index.
//
// The columns of most kinds can hold values that no field has. Texts, the widest
// signed numbers and reals have none to spare, so theirs are drawn from so many
// that nobody has them.

#pragma once

#include <cstdint>
#include <random>
#include <string>

#include "drivers/common/TableMapping.h"

namespace Kes::sql {

class SpareValues {
public:
    SpareValues();

    /// Binds a value for each column of the set, in order, to the parameters from
    /// 0 on, and returns the number of parameters. No two objects get the same.
    int bind(Statement& statement, const TableMapping& table, const ColumnSet& columns,
             unsigned long id);

private:
    void bind(Statement& statement, int parameter, FieldKind kind, unsigned long id);
    void bindText(Statement& statement, int parameter, std::string value);

    std::mt19937_64 random;
    std::uint32_t realsGiven = 0;
    std::vector<std::string> texts;  // of the row at hand
};

}  // namespace Kes::sql
