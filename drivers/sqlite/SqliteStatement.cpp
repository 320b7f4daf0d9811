#include "drivers/sqlite/SqliteStatement.h"

#include <sqlite3.h>

#include <string>

#include "drivers/common/SqlFailure.h"
#include "drivers/sqlite/SqliteConnection.h"
#include "drivers/sqlite/SqliteErrors.h"

namespace Kes::sql {

SqliteStatement::~SqliteStatement() {
    sqlite3_finalize(statement);
}

Row::Kind SqliteStatement::kind(int column) {
    switch (sqlite3_column_type(statement, column)) {
    case SQLITE_INTEGER: return Integer;
    case SQLITE_FLOAT: return Real;
    case SQLITE_TEXT: return Text;
    case SQLITE_BLOB: return Bytes;
    default: return Null;
    }
}

std::int64_t SqliteStatement::integer(int column) {
    return sqlite3_column_int64(statement, column);
}

double SqliteStatement::real(int column) {
    return sqlite3_column_double(statement, column);
}

const char* SqliteStatement::text(int column, std::size_t& size) {
    const void* found = sqlite3_column_text(statement, column);
    size = static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
    return found != nullptr ? static_cast<const char*>(found) : "";
}

const void* SqliteStatement::bytes(int column, std::size_t& size) {
    const void* found = sqlite3_column_blob(statement, column);
    size = static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
    return found;
}

void SqliteStatement::bindNull(int parameter) {
    check(sqlite3_bind_null(statement, parameter + 1));
}

void SqliteStatement::bind(int parameter, std::int64_t value) {
    check(sqlite3_bind_int64(statement, parameter + 1, value));
}

void SqliteStatement::bind(int parameter, double value) {
    check(sqlite3_bind_double(statement, parameter + 1, value));
}

void SqliteStatement::bindText(int parameter, const char* text, std::size_t size) {
    check(sqlite3_bind_text64(statement, parameter + 1, text, size, SQLITE_STATIC, SQLITE_UTF8));
}

// A null pointer would be bound as NULL, which is another value.
void SqliteStatement::bindBytes(int parameter, const void* bytes, std::size_t size) {
    check(
        sqlite3_bind_blob64(statement, parameter + 1, size != 0 ? bytes : "", size, SQLITE_STATIC));
}

bool SqliteStatement::step() {
    const int code = sqlite3_step(statement);
    if (code == SQLITE_ROW)
        return true;
    if (code != SQLITE_DONE)
        fail(code);
    return false;
}

void SqliteStatement::reset() noexcept {
    sqlite3_reset(statement);
}

long SqliteStatement::run() {
    while (step())
        continue;
    const long written = sqlite3_changes(database);
    sqlite3_reset(statement);
    return written;
}

// A row that breaks a rule leaves those before it written.
void SqliteStatement::post(std::size_t ticket, long least) {
    try {
        if (run() >= least)
            return;
    } catch (const SqlFailure& failure) {
        const bool isRule = (failed & 0xFF) == SQLITE_CONSTRAINT;
        throw PostFailure(ticket, failure,
                          isRule ? static_cast<std::size_t>(sqlite3_changes(database)) : 0);
    }
    throw PostFailure(ticket);
}

void SqliteStatement::check(int code) {
    if (code != SQLITE_OK)
        fail(code);
}

void SqliteStatement::fail(int code) {
    failed = code;
    const std::string words = explain(database, code, settings);
    sqlite3_reset(statement);
    throw SqlFailure(words, kindOf(code));
}

}  // namespace Kes::sql
