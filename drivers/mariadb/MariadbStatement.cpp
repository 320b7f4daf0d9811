#include "drivers/mariadb/MariadbStatement.h"

#include <mysql.h>
#include <mysqld_error.h>

#include <exception>

#include "drivers/mariadb/MariadbTrace.h"

namespace Kes::sql {

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
    giveRoomBack();
}

long MariadbStatement::run() {
    connection.makeWayToWrite(nullptr);
    return sendOne(parameters);
}

}  // namespace Kes::sql
