// Rows of values: from the driver where it computes them, and otherwise from the
// objects themselves.

#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include <kes/Tabulator.h>

#include "typed/Cells.h"
#include "typed/QueryDefinition.h"

namespace Kes {

/// Groups rows, and combines what is known of parts of a group.
class GroupTable {
public:
    GroupTable(std::vector<TableColumn> itsColumns, std::size_t itsKeys);

    /// A row with what a driver has computed of some objects.
    void addPart(CellRow part);

    /// The stored values of one object, in the places of the columns.
    void addObject(const CellRow& values);

    /// Sorted by the keys.
    std::vector<CellRow> takeRows();

private:
    struct Less {
        bool operator()(const CellRow& a, const CellRow& b) const;
    };

    void combine(CellRow& whole, CellRow& part) const;

    std::vector<TableColumn> columns;
    std::size_t keys;
    std::map<CellRow, CellRow, Less> groups;
};

class TableRows {
public:
    explicit TableRows(const QueryBase::Definition& itsDefinition);

    /// A column of the field, or of the object id for null.
    TableColumn columnOf(TableColumn::Function function, FieldKey field) const;

    std::vector<CellRow> readObjects(const std::vector<TableColumn>& columns) const;
    std::vector<CellRow> readGroups(const std::vector<TableColumn>& columns,
                                    std::size_t keys) const;

private:
    struct Order;

    bool isSorted() const;
    std::vector<CellRow> readNatively(const std::vector<TableColumn>& columns) const;
    std::vector<CellRow> loadObjects(const std::vector<TableColumn>& columns) const;
    Order orderFrom(std::vector<TableColumn>& columns) const;

    const QueryBase::Definition& definition;
    Tabulator* tabulator;  // null where the driver is none
};

}  // namespace Kes
