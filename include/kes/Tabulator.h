// What a driver may offer besides DBDriver: values in place of objects.

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <kes/Export.h>
#include <kes/Forward.h>
#include <kes/String.h>

namespace Kes {

/// One column of a Tabulation.
struct TableColumn {
    enum Function : std::uint8_t {
        Value,     ///< what is stored
        Count,     ///< how many rows have a value; of no field, how many rows there are
        Sum,       ///< of the values of a field that holds numbers
        Least,     ///< of the values of a field that databases sort by
        Greatest,  ///< the same
    };

    Function function = Value;
    String field;  ///< by name, as the class's handle operation reports it
    String mark;   ///< of a field that may be empty: the field that is 1 where it is not; or ""
};

/// What is wanted of the rows that a selection is about.
struct Tabulation {
    std::vector<TableColumn> columns;

    /// Rows that are alike in the first `keys` columns, which are values, become
    /// one; without keys all rows become one, also where there is none. The other
    /// columns are no values then.
    bool isGrouped = false;
    std::size_t keys = 0;

    /// Of rows that are not grouped: `count` at most of each concrete class, behind
    /// the first `offset` in the order of the selection. `offset` is 0 where there
    /// are several concrete classes. All rows of several classes come in any order.
    std::uint64_t offset = 0;
    std::uint64_t count = UINT64_MAX;
};

/// Takes the rows, cell by cell in the order of the columns.
class KES_EXPORT TableReader {
public:
    virtual ~TableReader();

    /// What the next cell is shown to, by one operation of its kind. A sum of whole
    /// numbers is shown as a text of its decimal digits, for it may be larger than
    /// any field; one of others as a double.
    virtual Handler& cell() = 0;

    /// The next cell has no value: the field is empty, or the sum, the least or the
    /// greatest one is that of no values.
    virtual void skip() = 0;

    /// All cells of a row have been shown.
    virtual void endRow() = 0;
};

/// A driver object may derive from it as well. Values, sums and groups are then
/// the database's work; without it the library loads the objects.
class KES_EXPORT Tabulator {
public:
    virtual ~Tabulator();

    /// Shows the table of what is stored, of one state of the database, class by
    /// class: rows of several concrete classes that are alike in the keys are not
    /// combined. False, with a message, on failure.
    virtual bool tabulate(AssociatedClass* associatedClass, const Tabulation& wanted,
                          TableReader& reader) = 0;
};

}  // namespace Kes
