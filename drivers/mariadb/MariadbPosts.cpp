#include "drivers/mariadb/MariadbPosts.h"

#include <mysql.h>

namespace Kes::sql {

namespace {

constexpr std::size_t LargestKept = std::size_t{8} << 20;  // bytes, for the next rows

enum_field_types typeOf(Row::Kind kind) {
    switch (kind) {
    case Row::Real: return MYSQL_TYPE_DOUBLE;
    case Row::Text: return MYSQL_TYPE_STRING;
    case Row::Bytes: return MYSQL_TYPE_BLOB;
    default: return MYSQL_TYPE_LONGLONG;
    }
}

}  // namespace

void MariadbValue::bind(MYSQL_BIND& target) const {
    target.length_value = static_cast<unsigned long>(size);
    switch (kind) {
    case Row::Null: target.buffer_type = MYSQL_TYPE_NULL; return;
    case Row::Integer:
        target.buffer_type = MYSQL_TYPE_LONGLONG;
        target.buffer = const_cast<std::int64_t*>(&integer);
        return;
    case Row::Real:
        target.buffer_type = MYSQL_TYPE_DOUBLE;
        target.buffer = const_cast<double*>(&real);
        return;
    case Row::Text:
    case Row::Bytes:
        target.buffer_type = kind == Row::Text ? MYSQL_TYPE_STRING : MYSQL_TYPE_BLOB;
        target.buffer = const_cast<void*>(data);
        target.buffer_length = static_cast<unsigned long>(size);
        return;
    }
}

bool MariadbPosts::accepts(const std::vector<MariadbValue>& row) const {
    for (std::size_t i = 0; i < columns.size(); ++i)
        if (row[i].kind != Row::Null && columns[i].kind != Row::Null &&
            row[i].kind != columns[i].kind)
            return false;
    return true;
}

void MariadbPosts::add(const std::vector<MariadbValue>& row, std::size_t ticket, long least) {
    columns.resize(row.size());
    for (std::size_t i = 0; i < row.size(); ++i) {
        Column& column = columns[i];
        const MariadbValue& value = row[i];
        if (value.kind != Row::Null)
            column.kind = value.kind;
        column.isNull.push_back(value.kind == Row::Null ? 1 : 0);
        column.integers.push_back(value.integer);
        column.reals.push_back(value.real);
        column.offsets.push_back(column.bytes.size());
        column.sizes.push_back(static_cast<unsigned long>(value.size));
        if (value.size != 0)
            column.bytes.append(static_cast<const char*>(value.data), value.size);
        packed += value.packed();
    }
    tickets.push_back(ticket);
    leasts.push_back(least);
    leastRows += least;
}

void MariadbPosts::clear() {
    for (Column& column : columns) {
        column.kind = Row::Null;
        column.isNull.clear();
        column.integers.clear();
        column.reals.clear();
        column.bytes.clear();
        if (column.bytes.capacity() > LargestKept)
            column.bytes.shrink_to_fit();
        column.offsets.clear();
        column.sizes.clear();
    }
    tickets.clear();
    leasts.clear();
    packed = 0;
    leastRows = 0;
}

void MariadbPosts::bind(std::vector<MYSQL_BIND>& binds) {
    binds.assign(columns.size(), MYSQL_BIND());
    for (std::size_t i = 0; i < columns.size(); ++i) {
        Column& column = columns[i];
        MYSQL_BIND& target = binds[i];
        target.buffer_type = typeOf(column.kind);
        column.indicators.clear();
        for (const char isNull : column.isNull)
            column.indicators.push_back(isNull != 0 ? STMT_INDICATOR_NULL : STMT_INDICATOR_NONE);
        target.u.indicator = column.indicators.data();
        if (column.kind == Row::Text || column.kind == Row::Bytes) {
            column.pointers.clear();
            for (const std::size_t offset : column.offsets)
                column.pointers.push_back(column.bytes.data() + offset);
            target.buffer = column.pointers.data();
            target.length = column.sizes.data();
        } else if (column.kind == Row::Real) {
            target.buffer = column.reals.data();
        } else {
            target.buffer = column.integers.data();
        }
    }
}

MariadbValue MariadbPosts::value(std::size_t position, std::size_t parameter) const {
    const Column& column = columns[parameter];
    MariadbValue value;
    if (column.isNull[position] != 0)
        return value;
    value.kind = column.kind;
    value.integer = column.integers[position];
    value.real = column.reals[position];
    value.data = column.bytes.data() + column.offsets[position];
    value.size = column.sizes[position];
    return value;
}

std::vector<MariadbValue> MariadbPosts::row(std::size_t position) const {
    std::vector<MariadbValue> values;
    for (std::size_t i = 0; i < columns.size(); ++i)
        values.push_back(value(position, i));
    return values;
}

}  // namespace Kes::sql
