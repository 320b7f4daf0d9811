// A prepared statement of SQLite, which steps through its rows in place.

#pragma once

#include <cstddef>
#include <cstdint>

#include "drivers/common/Connection.h"

struct sqlite3;
struct sqlite3_stmt;

namespace Kes::sql {

struct SqliteSettings;

class SqliteStatement final : public Statement {
public:
    /// Adopts the statement; the others are borrowed for life.
    SqliteStatement(sqlite3* itsDatabase, sqlite3_stmt* itsStatement,
                    const SqliteSettings& itsSettings)
        : database(itsDatabase),
          statement(itsStatement),
          settings(itsSettings) {}
    SqliteStatement(const SqliteStatement&) = delete;
    SqliteStatement& operator=(const SqliteStatement&) = delete;
    ~SqliteStatement() override;

    Kind kind(int column) override;
    std::int64_t integer(int column) override;
    double real(int column) override;
    const char* text(int column, std::size_t& size) override;
    const void* bytes(int column, std::size_t& size) override;

    void bindNull(int parameter) override;
    void bind(int parameter, std::int64_t value) override;
    void bind(int parameter, double value) override;
    void bindText(int parameter, const char* text, std::size_t size) override;
    void bindBytes(int parameter, const void* bytes, std::size_t size) override;

    bool step() override;
    void reset() noexcept override;
    long run() override;
    void post(std::size_t ticket, long least) override;

private:
    void check(int code);
    [[noreturn]] void fail(int code);

    sqlite3* database;
    sqlite3_stmt* statement;  // owned
    const SqliteSettings& settings;
    int failed = 0;  // the code of the last failure
};

}  // namespace Kes::sql
