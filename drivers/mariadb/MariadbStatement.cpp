#include "drivers/mariadb/MariadbStatement.h"

#include <mysql.h>
#include <mysqld_error.h>

#include <algorithm>
#include <cstring>
#include <exception>

#include "drivers/mariadb/MariadbTrace.h"

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

struct MariadbStatement::Field {
    Kind kind = Null;
    std::int64_t integer = 0;
    double real = 0;
    std::vector<char> data;
    unsigned long size = 0;
    my_bool isNull = 0;
    my_bool isCut = 0;
};

MariadbStatement::MariadbStatement(MariadbConnection& itsConnection, const std::string& itsText)
    : connection(itsConnection),
      sql(itsText),
      many(itsText) {
    connection.makeWay(nullptr);
    try {
        prepare();
    } catch (...) {
        mysql_stmt_close(handle);
        throw;
    }
    parameters.resize(mysql_stmt_param_count(handle));
}

MariadbStatement::~MariadbStatement() {
    if (connection.posting == this)
        connection.posting = nullptr;
    finish();
    makeWayToClose();
    mysql_stmt_close(handle);
}

// The client library takes whatever is on the wire for this statement's.
void MariadbStatement::makeWayToClose() noexcept {
    MariadbStatement* other = connection.streaming;
    if (other == nullptr)
        return;
    try {
        other->stepAside();
    } catch (const std::exception& failure) {
        other->breakOff(SqlFailure(failure.what()));
    }
}

// Done again when the connection was made anew.
void MariadbStatement::prepare() {
    if (handle != nullptr)
        mysql_stmt_close(handle);
    generation = connection.currentGeneration();
    handle = mysql_stmt_init(connection.client());
    if (mysql_stmt_prepare(handle, sql.data(), sql.size()) != 0)
        connection.fail(handle);
    describeResult();
}

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

// --- the current row ---

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

// --- parameters ---

// Whoever gives an execution up at its failure does not say so, and binds the
// values of the next one.
MariadbValue& MariadbStatement::parameter(int position) {
    if (broken.has_value())
        reset();
    MariadbValue& value = parameters[static_cast<std::size_t>(position)];
    value = MariadbValue();
    return value;
}

void MariadbStatement::bindNull(int position) {
    parameter(position);
}

void MariadbStatement::bind(int position, std::int64_t number) {
    MariadbValue& value = parameter(position);
    value.kind = Integer;
    value.integer = number;
}

void MariadbStatement::bind(int position, double number) {
    MariadbValue& value = parameter(position);
    value.kind = Real;
    value.real = number;
}

void MariadbStatement::bindText(int position, const char* text, std::size_t size) {
    MariadbValue& value = parameter(position);
    value.kind = Text;
    value.data = text;
    value.size = size;
}

void MariadbStatement::bindBytes(int position, const void* bytes, std::size_t size) {
    bindText(position, static_cast<const char*>(bytes), size);
    parameters[static_cast<std::size_t>(position)].kind = Bytes;
}

// --- execution ---

bool MariadbStatement::send(const std::vector<MariadbValue>& values) {
    std::vector<MYSQL_BIND> binds(values.size(), MYSQL_BIND());
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i].bind(binds[i]);
    return (binds.empty() || mysql_stmt_bind_param(handle, binds.data()) == 0) &&
           mysql_stmt_execute(handle) == 0;
}

// A node of a cluster that gives way to another one may drop a statement while it
// prepares it, and say nothing. It has not executed it then, so it is prepared
// anew, unless the transaction is gone too.
void MariadbStatement::execute(const std::vector<MariadbValue>& values) {
    checkSize(values);
    if (generation != connection.currentGeneration())
        prepare();
    const auto begun = MariadbConnection::Clock::now();
    bool done = send(values);
    if (!done && mysql_stmt_errno(handle) == ER_UNKNOWN_STMT_HANDLER) {
        prepare();
        connection.confirmTransaction();
        done = send(values);
    }
    if (connection.isTraced())
        connection.write(expanded(sql, values), begun);
    if (!done)
        failExecution();
    connection.noteUse();
    if (fields.empty())
        connection.checkTransaction();
}

void MariadbStatement::failExecution() {
    const bool locks = fields.empty() || sql.find(" FOR UPDATE") != std::string::npos ||
                       sql.find(" LOCK IN SHARE MODE") != std::string::npos;
    if (!locks)
        connection.failRead(handle);
    connection.fail(handle);
}

// A packet beyond the server's limit would cost the connection.
void MariadbStatement::checkSize(const std::vector<MariadbValue>& values) const {
    std::size_t size = PacketOverhead;
    for (const MariadbValue& value : values)
        size += value.packed();
    if (connection.largestPacket() != 0 && size > connection.largestPacket())
        throw SqlFailure("its values have " + std::to_string(size) +
                         " bytes together, more than the server's max_allowed_packet of " +
                         std::to_string(connection.largestPacket()) +
                         "; raise that, or make them smaller");
}

bool MariadbStatement::step() {
    if (!isRunning) {
        connection.makeWay(this);
        execute(parameters);
        isRunning = true;
        if (!fields.empty()) {
            connection.streaming = this;
            bindResult();
        }
    }
    if (kept != nullptr)
        onRow = kept->advance();
    else
        onRow = connection.streaming == this && advance();
    if (!onRow && broken.has_value())
        throw SqlFailure(*broken);
    return onRow;
}

// False at the end, and when there are no more rows because of a failure.
bool MariadbStatement::advance() {
    try {
        return fetch();
    } catch (const SqlFailure& failure) {
        breakOff(failure);
        return false;
    }
}

// It has begun, and goes on failing until it begins anew.
void MariadbStatement::breakOff(const SqlFailure& failure) {
    broken.emplace(failure);
    finish();
    isRunning = true;
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

// Reads what is left on the wire; the server has sent it anyway.
void MariadbStatement::finish() noexcept {
    isRunning = false;
    if (connection.streaming != this)
        return;
    connection.streaming = nullptr;
    mysql_stmt_free_result(handle);
    connection.noteEndOfRows();
}

void MariadbStatement::reset() noexcept {
    finish();
    onRow = false;
    kept.reset();
    broken.reset();
    for (Field& field : fields)
        if (field.data.size() > LongValue)
            std::vector<char>(ShortValue).swap(field.data);
}

long MariadbStatement::run() {
    connection.makeWayToWrite(nullptr);
    return sendOne(parameters);
}

}  // namespace Kes::sql
