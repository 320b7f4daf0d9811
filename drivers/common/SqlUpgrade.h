// Moving the rows of a class into its new table.

#pragma once

#include <string>
#include <vector>

#include "drivers/common/TableMapping.h"

namespace Kes::sql {

/// Columns that stay are copied, and converted where their kind has changed;
/// new ones take what a fresh object of the class has. Throws SqlFailure for
/// the first value that does not fit, with class, field and object named.
class SqlUpgrade {
public:
    SqlUpgrade(const TableMapping& itsTable, const Dialect& itsDialect, Connection& itsConnection)
        : table(itsTable),
          dialect(itsDialect),
          connection(itsConnection) {}

    /// `quotedTarget` has the columns of the class as it is now declared. With
    /// `inSteps` the rows are committed now and then, and at the end.
    void moveRows(const std::string& quotedTarget, bool inSteps);

private:
    struct Kept {
        int source;  // column of the old table's query
        int target;  // column of the class
    };

    std::vector<Kept> keptColumns(std::string& list);
    void beginStep(bool isFirst);
    void convert(Row& row, const Kept& kept, Statement& target);
    void toInteger(Row& row, const Kept& kept, Statement& target);
    void toReal(Row& row, const Kept& kept, Statement& target);
    void toText(Row& row, const Kept& kept, Statement& target);
    void toTime(Row& row, const Kept& kept, Statement& target);
    void toBlob(Row& row, const Kept& kept, Statement& target);
    [[noreturn]] void refuse(Row& row, const Kept& kept) const;

    const TableMapping& table;
    const Dialect& dialect;
    Connection& connection;
    std::vector<std::string> texts;  // converted values of the row at hand
};

}  // namespace Kes::sql
