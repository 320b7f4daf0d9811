#include "drivers/common/TableQuery.h"

#include <algorithm>
#include <cmath>

#include "drivers/common/SqlFailure.h"

namespace Kes::sql {

namespace {

// Sums of 2^31 rows are exact in two halves of 64 bits each.
constexpr std::int64_t Half = std::int64_t{1} << 32;

__extension__ using Whole = __int128;

std::string digitsOf(Whole number) {
    const bool isNegative = number < 0;
    std::string digits;
    do {
        const int digit = static_cast<int>(number % 10);
        digits += static_cast<char>('0' + (digit < 0 ? -digit : digit));
        number /= 10;
    } while (number != 0);
    if (isNegative)
        digits += '-';
    std::reverse(digits.begin(), digits.end());
    return digits;
}

bool isReal(FieldKind kind) {
    return kind == FieldKind::Float || kind == FieldKind::Double;
}

bool isNumber(FieldKind kind) {
    switch (kind) {
    case FieldKind::ULong:
    case FieldKind::Long:
    case FieldKind::Int:
    case FieldKind::UInt: return true;
    default: return isReal(kind);
    }
}

// One column of a result, where a row of the table is expected.
class CellRow final : public Row {
public:
    CellRow(Row& itsRow, int itsColumn, int itsPosition, const TableMapping& itsFields)
        : row(itsRow),
          column(itsColumn),
          position(itsPosition),
          fields(itsFields) {}

    Kind kind(int asked) override { return row.kind(at(asked)); }
    std::int64_t integer(int asked) override { return row.integer(at(asked)); }
    double real(int asked) override { return row.real(at(asked)); }
    const char* text(int asked, std::size_t& size) override { return row.text(at(asked), size); }
    const void* bytes(int asked, std::size_t& size) override { return row.bytes(at(asked), size); }

private:
    // Whoever refuses a value asks for the object's id, which is not here.
    int at(int asked) const {
        if (asked == position)
            return column;
        throw SqlFailure("the field " + fields.columns()[static_cast<std::size_t>(position)].name +
                         " of some " + fields.name() +
                         " object has a stored value that it cannot hold; select the objects, "
                         "which tells whose, and mend the row in the database");
    }

    Row& row;
    int column;
    int position;
    const TableMapping& fields;
};

}  // namespace

// What a column of the table becomes in the result.
struct TableQuery::Cell {
    TableColumn::Function function;
    int position;         // in the class's table; -1 for none
    FieldKind kind;       // of the field
    std::string operand;  // NULL where the field is empty
    std::string mark;     // for blobs, of which NULL is a value
    int column;           // the first in the result
};

std::vector<TableQuery::Cell> TableQuery::cellsOf(const TableMapping& fields,
                                                  const Tabulation& wanted) const {
    const auto find = [&](const String& name) {
        const int position = fields.find(static_cast<const char*>(name));
        if (position < 0 ||
            fields.columns()[static_cast<std::size_t>(position)].kind == FieldKind::Reference)
            throw SqlFailure("the class " + fields.name() + " has no field \"" +
                             static_cast<const char*>(name) + "\" with values");
        return position;
    };
    std::vector<Cell> cells;
    int column = 0;
    for (const TableColumn& each : wanted.columns) {
        Cell cell{each.function, -1, FieldKind::ULong, "", "", column++};
        if (each.field.size() != 0) {
            cell.position = find(each.field);
            cell.kind = fields.columns()[static_cast<std::size_t>(cell.position)].kind;
            cell.operand = "t." + fields.column(cell.position);
        }
        const bool isTwice = (cell.function == TableColumn::Sum && !isReal(cell.kind)) ||
                             (cell.kind == FieldKind::Blob && each.mark.size() != 0);
        if (each.mark.size() != 0) {
            const std::string mark = "t." + fields.column(find(each.mark));
            if (cell.kind == FieldKind::Blob)
                cell.mark = mark;
            else
                cell.operand = "CASE WHEN " + mark + " = 1 THEN " + cell.operand + " END";
        }
        if (cell.function == TableColumn::Sum && !isNumber(cell.kind))
            throw SqlFailure("the field " + std::string(static_cast<const char*>(each.field)) +
                             " of the class " + fields.name() + " holds no numbers to add up");
        if (isTwice)
            ++column;
        cells.push_back(std::move(cell));
    }
    return cells;
}

std::string TableQuery::textOf(const std::vector<std::string>& sources,
                               const std::vector<Cell>& cells, const QueryPlan& plan,
                               const Tabulation& wanted) const {
    // Each has a name of its own, for a table of a query cannot have one twice.
    std::string list;
    int count = 0;
    const auto add = [&](const std::string& expression) {
        list += (list.empty() ? "" : ", ") + expression + " AS c" + std::to_string(count++);
    };
    for (const Cell& cell : cells) {
        switch (cell.function) {
        case TableColumn::Value:
            if (!cell.mark.empty())
                add(cell.mark);
            add(cell.operand);
            break;
        case TableColumn::Count:
            add("COUNT(" + (cell.operand.empty() ? "*" : cell.operand) + ")");
            break;
        case TableColumn::Sum:
            if (isReal(cell.kind)) {
                add("SUM(" + dialect.asDouble(cell.operand) + ")");
            } else {
                const std::string half = std::to_string(Half);
                add(dialect.asLong("SUM(" + dialect.quotient(cell.operand, half) + ")"));
                add(dialect.asLong("SUM((" + cell.operand + ") % " + half + ")"));
            }
            break;
        case TableColumn::Least: add("MIN(" + cell.operand + ")"); break;
        case TableColumn::Greatest: add("MAX(" + cell.operand + ")"); break;
        }
    }
    std::string keys;
    for (std::size_t i = 0; wanted.isGrouped && i < wanted.keys; ++i)
        keys += (keys.empty() ? " GROUP BY " : ", ") + std::to_string(cells[i].column + 1);

    // Databases know an order and a limit of a part of a union within parentheses
    // only, and not all of them know those.
    const bool isBounded = !wanted.isGrouped && sources.size() > 1 &&
                           (wanted.count != UINT64_MAX || !plan.order.empty());
    std::string whole;
    for (const std::string& source : sources) {
        const std::string part = "SELECT " + list + " FROM " + source + " AS t" + plan.tail + keys;
        whole += whole.empty() ? "" : " UNION ALL ";
        whole += isBounded ? "SELECT * FROM (" + part + ") AS x" : part;
    }
    return whole;
}

void TableQuery::read(const std::vector<std::string>& sources, const TableMapping& fields,
                      const QueryPlan& plan, const Tabulation& wanted, TableReader& reader) {
    if (sources.empty())
        return;
    const std::vector<Cell> cells = cellsOf(fields, wanted);
    // One row for each class, or many.
    const bool isShort = wanted.isGrouped && wanted.keys == 0;
    const std::string text = textOf(sources, cells, plan, wanted);
    Statement& statement = statements.of(text, [&](StatementCache& cache) {
        return isShort ? cache.make(text) : cache.makeCursor(text);
    });
    int position = 0;
    for (std::size_t i = 0; i < sources.size(); ++i)
        for (const Parameter& value : plan.parameters)
            bindParameter(statement, position++, value);
    const Execution execution(statement);
    while (statement.step()) {
        for (const Cell& cell : cells)
            show(statement, cell, fields, reader);
        reader.endRow();
    }
}

void TableQuery::show(Statement& row, const Cell& cell, const TableMapping& fields,
                      TableReader& reader) {
    static const String name = String::constant("");
    if (cell.function == TableColumn::Count) {
        auto count = static_cast<unsigned long>(row.integer(cell.column));
        reader.cell().handleULong(name, count);
        return;
    }
    const bool isEmpty = cell.mark.empty()
                             ? row.kind(cell.column) == Row::Null && cell.kind != FieldKind::Blob
                             : row.integer(cell.column) == 0;
    if (isEmpty) {
        reader.skip();
        return;
    }
    if (cell.function != TableColumn::Sum) {
        CellRow source(row, cell.column + (cell.mark.empty() ? 0 : 1), cell.position, fields);
        loader.show(source, fields, cell.position, reader.cell());
    } else if (isReal(cell.kind)) {
        double sum = row.real(cell.column);
        if (!std::isfinite(sum))
            throw SqlFailure("the sum of the field " +
                             fields.columns()[static_cast<std::size_t>(cell.position)].name +
                             " is larger than any number; restrict the query to fewer objects");
        reader.cell().handleDouble(name, sum);
    } else {
        const Whole sum =
            Whole{row.integer(cell.column)} * Half + Whole{row.integer(cell.column + 1)};
        String digits(digitsOf(sum).c_str());
        reader.cell().handleString(name, digits, 0);
    }
}

}  // namespace Kes::sql
