// The part of a statement that deals with the rows of its result.

#include <mysql.h>

#include <algorithm>

#include "drivers/mariadb/MariadbStatement.h"

namespace Kes::sql {

namespace {

// Bytes of room for each text or blob of a row: at first, and those above which the room
// is given back when the query is done.
constexpr std::size_t ShortValue = 256;
constexpr std::size_t LongValue = std::size_t{1} << 20;

constexpr unsigned BinaryCharacterSet = 63;

Row::Kind kindOf(const MYSQL_FIELD& field) {
    switch (field.type) {
    case MYSQL_TYPE_TINY:
    case MYSQL_TYPE_SHORT:
    case MYSQL_TYPE_INT24:
    case MYSQL_TYPE_LONG:
    case MYSQL_TYPE_LONGLONG:
    case MYSQL_TYPE_YEAR: return Row::Integer;
    case MYSQL_TYPE_FLOAT:
    case MYSQL_TYPE_DOUBLE: return Row::Real;
    case MYSQL_TYPE_TINY_BLOB:
    case MYSQL_TYPE_MEDIUM_BLOB:
    case MYSQL_TYPE_LONG_BLOB:
    case MYSQL_TYPE_BLOB:
    case MYSQL_TYPE_STRING:
    case MYSQL_TYPE_VAR_STRING:
        return field.charsetnr == BinaryCharacterSet ? Row::Bytes : Row::Text;
    default: return Row::Text;
    }
}

}  // namespace

void MariadbStatement::describeResult() {
    fields.clear();
    MYSQL_RES* result = mysql_stmt_result_metadata(handle);
    if (result == nullptr)
        return;
    const MYSQL_FIELD* described = mysql_fetch_fields(result);
    fields.resize(mysql_num_fields(result));
    for (std::size_t i = 0; i < fields.size(); ++i) {
        fields[i].kind = kindOf(described[i]);
        if (fields[i].kind == Text || fields[i].kind == Bytes)
            fields[i].data.resize(ShortValue);
    }
    mysql_free_result(result);
}

Row::Kind MariadbStatement::kind(int column) {
    if (kept != nullptr)
        return kept->kind(column);
    const Field& field = fields[static_cast<std::size_t>(column)];
    return field.isNull != 0 ? Null : field.kind;
}

std::int64_t MariadbStatement::integer(int column) {
    if (kept != nullptr)
        return kept->integer(column);
    return fields[static_cast<std::size_t>(column)].integer;
}

double MariadbStatement::real(int column) {
    if (kept != nullptr)
        return kept->real(column);
    const Field& field = fields[static_cast<std::size_t>(column)];
    return field.kind == Integer ? static_cast<double>(field.integer) : field.real;
}

const char* MariadbStatement::text(int column, std::size_t& size) {
    if (kept != nullptr)
        return kept->text(column, size);
    const Field& field = fields[static_cast<std::size_t>(column)];
    const bool isThere = field.isNull == 0 && !field.data.empty();
    size = isThere ? field.size : 0;
    return isThere ? field.data.data() : "";
}

const void* MariadbStatement::bytes(int column, std::size_t& size) {
    return text(column, size);
}

void MariadbStatement::bindResult() {
    std::vector<MYSQL_BIND> binds(fields.size(), MYSQL_BIND());
    for (std::size_t i = 0; i < fields.size(); ++i) {
        Field& field = fields[i];
        MYSQL_BIND& target = binds[i];
        target.is_null = &field.isNull;
        target.error = &field.isCut;
        target.length = &field.size;
        if (field.kind == Integer) {
            target.buffer_type = MYSQL_TYPE_LONGLONG;
            target.buffer = &field.integer;
        } else if (field.kind == Real) {
            target.buffer_type = MYSQL_TYPE_DOUBLE;
            target.buffer = &field.real;
        } else {
            target.buffer_type = field.kind == Text ? MYSQL_TYPE_STRING : MYSQL_TYPE_BLOB;
            target.buffer = field.data.data();
            target.buffer_length = static_cast<unsigned long>(field.data.size() - 1);
        }
    }
    if (mysql_stmt_bind_result(handle, binds.data()) != 0)
        connection.fail(handle);
}

// False at the end, at which the wire is free again.
bool MariadbStatement::fetch() {
    const int code = mysql_stmt_fetch(handle);
    if (code == 1) {
        connection.streaming = nullptr;
        connection.fail(handle);
    }
    if (code == MYSQL_NO_DATA) {
        connection.streaming = nullptr;
        connection.readStatusBehindRows();
        return false;
    }
    if (code == MYSQL_DATA_TRUNCATED)
        widen();
    for (Field& field : fields)
        if (field.isNull == 0 && !field.data.empty())
            field.data[field.size] = '\0';
    return true;
}

// Fetches again what did not fit.
void MariadbStatement::widen() {
    for (std::size_t i = 0; i < fields.size(); ++i) {
        Field& field = fields[i];
        if (field.data.empty() || field.isNull != 0 || field.size < field.data.size())
            continue;
        field.data.resize(std::max<std::size_t>(field.size + 1, field.data.size() * 2));
        MYSQL_BIND target = MYSQL_BIND();
        target.buffer_type = field.kind == Text ? MYSQL_TYPE_STRING : MYSQL_TYPE_BLOB;
        target.buffer = field.data.data();
        target.buffer_length = static_cast<unsigned long>(field.data.size() - 1);
        target.is_null = &field.isNull;
        target.error = &field.isCut;
        target.length = &field.size;
        if (mysql_stmt_fetch_column(handle, &target, static_cast<unsigned>(i), 0) != 0)
            connection.fail(handle);
    }
    bindResult();
}

// A failure on the way belongs to this query, not to the one that needs the
// wire.
void MariadbStatement::stepAside() {
    auto rows = std::make_unique<RowBuffer>(static_cast<int>(fields.size()));
    if (onRow)
        rows->append(*this);
    try {
        while (fetch())
            rows->append(*this);
    } catch (const SqlFailure& failure) {
        breakOff(failure);
    }
    if (onRow)
        rows->advance();
    kept = std::move(rows);
}

void MariadbStatement::giveRoomBack() noexcept {
    for (Field& field : fields)
        if (field.data.size() > LongValue)
            std::vector<char>(ShortValue).swap(field.data);
}

}  // namespace Kes::sql
