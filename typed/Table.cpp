#include <kes/Table.h>

#include <cmath>
#include <limits>
#include <string>
#include <utility>

#include <kes/Error.h>

#include "typed/DescribedClass.h"
#include "typed/TableRows.h"

namespace Kes {

struct TableBase::Result {
    const Cell& cell(std::size_t column, std::size_t further = 0) const {
        return rows[current - 1][places[column] + further];
    }

    std::shared_ptr<Session> session;
    Class* cls;
    std::vector<TableColumn> columns;  // an average is two of them
    std::vector<std::size_t> places;   // of the columns that were asked for
    std::vector<CellRow> rows;
    std::size_t current = 0;  // counts from 1
};

namespace {

TableColumn::Function functionOf(ColumnData::Function function) {
    switch (function) {
    case ColumnData::Value: return TableColumn::Value;
    case ColumnData::Count: return TableColumn::Count;
    case ColumnData::Sum:
    case ColumnData::Average: return TableColumn::Sum;
    case ColumnData::Least: return TableColumn::Least;
    case ColumnData::Greatest: break;
    }
    return TableColumn::Greatest;
}

}  // namespace

TableBase::TableBase(const QueryBase& query, const std::vector<ColumnData>& columns)
    : result(std::make_unique<Result>()) {
    const QueryBase::Definition& definition = *query.definition;
    result->session = definition.session;
    result->cls = definition.cls;
    guarded(*definition.session, [&] {
        const TableRows rows(definition);
        for (const ColumnData& column : columns) {
            result->places.push_back(result->columns.size());
            result->columns.push_back(rows.columnOf(TableColumn::Value, column.field));
        }
        result->rows = rows.readObjects(result->columns);
    });
}

TableBase::TableBase(const QueryBase& query, const std::vector<ColumnData>& columns,
                     std::size_t keys)
    : result(std::make_unique<Result>()) {
    const QueryBase::Definition& definition = *query.definition;
    result->session = definition.session;
    result->cls = definition.cls;
    guarded(*definition.session, [&] {
        const TableRows rows(definition);
        for (const ColumnData& column : columns) {
            result->places.push_back(result->columns.size());
            result->columns.push_back(rows.columnOf(functionOf(column.function), column.field));
            if (column.function == ColumnData::Average)
                result->columns.push_back(rows.columnOf(TableColumn::Count, column.field));
        }
        result->rows = rows.readGroups(result->columns, keys);
    });
}

TableBase::~TableBase() = default;

bool TableBase::next() {
    if (result->current > 0)
        result->rows[result->current - 1] = {};
    return result->current++ < result->rows.size();
}

void TableBase::read(std::size_t column, const FieldCodec& codec, void* variable) const {
    const Cell& cell = result->cell(column);
    const bool isOptional = codec.form == FieldForm::Optional;
    const bool isEmpty = std::holds_alternative<std::monostate>(cell);
    if (isOptional && isEmpty)
        codec.access(variable, FieldCodec::Reset);
    if (isEmpty)
        return;
    void* value = isOptional ? codec.access(variable, FieldCodec::Emplace) : variable;
    CellGiver giver(cell);
    loadValue(giver, result->cls, result->columns[result->places[column]].field,
              isOptional ? *codec.inner : codec, value);
}

unsigned long TableBase::number(std::size_t column) const {
    const auto* number = std::get_if<unsigned long>(&result->cell(column));
    return number != nullptr ? *number : 0;
}

std::int64_t TableBase::wholeSum(std::size_t column) const {
    const WideInteger sum = totalOf(result->cell(column)).whole;
    if (sum >= std::numeric_limits<std::int64_t>::min() &&
        sum <= std::numeric_limits<std::int64_t>::max())
        return static_cast<std::int64_t>(sum);
    const std::string cls(static_cast<const char*>(result->cls->getName()));
    const std::string field(
        static_cast<const char*>(result->columns[result->places[column]].field));
    throw Error(ErrorKind::InvalidValue, "VALUEERR", "Kes::Query::sum",
                "The values of the field " + field + " of " + cls + " objects add up to " +
                    digitsOf(sum) + ", which 64 bits do not hold; ask for the sum of fewer objects",
                cls, 0, field);
}

double TableBase::realSum(std::size_t column) const {
    return totalOf(result->cell(column)).real;
}

std::optional<double> TableBase::average(std::size_t column, int places) const {
    const auto* count = std::get_if<unsigned long>(&result->cell(column, 1));
    if (count == nullptr || *count == 0)
        return std::nullopt;
    const Total sum = totalOf(result->cell(column));
    const auto whole =
        static_cast<long double>(sum.whole) / static_cast<long double>(std::pow(10.0L, places));
    return static_cast<double>((whole + static_cast<long double>(sum.real)) /
                               static_cast<long double>(*count));
}

}  // namespace Kes
