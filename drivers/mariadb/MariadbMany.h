// One statement for many rows, made of the statement for one.
//
// Where the protocol's command for many rows is not to be had, this is what saves
// the round trips. Such a statement takes effect as a whole or not at all, which a
// row of statements that are sent ahead of their answers does not: behind one that
// ended the transaction the others would take effect by themselves.

#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace Kes::sql {

class MariadbMany {
public:
    /// A parameter of the statement for one row, and the row.
    struct Place {
        std::size_t row;
        std::size_t parameter;
    };

    /// `one` is an INSERT of values, an UPDATE or a DELETE with a condition.
    explicit MariadbMany(const std::string& one);

    /// The most rows that one statement takes; 0 when there is none for many.
    std::size_t most() const { return rowsAtMost; }

    std::string text(std::size_t rows) const;

    /// What the parameters of that text are, in their order.
    std::vector<Place> places(std::size_t rows) const;

private:
    void readInsert(const std::string& one);
    void readUpdate(const std::string& one);
    void readDelete(const std::string& one);
    void readCondition(const std::string& condition);

    std::string head;                      // in front of what is there for each row
    std::vector<std::string> assignments;  // of values that differ by row, up to these
    std::string middle;
    std::string each;       // of one row
    std::string separator;  // between two of them
    std::size_t parameters = 0;
    std::size_t rowsAtMost = 0;
};

}  // namespace Kes::sql
