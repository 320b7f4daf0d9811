// A second way to a database file, past the library.

#pragma once

#include <sqlite3.h>

#include <stdexcept>
#include <string>
#include <vector>

namespace Kes::testing {

class PlainSqlite {
public:
    explicit PlainSqlite(const std::string& file) {
        if (sqlite3_open(file.c_str(), &database) != SQLITE_OK)
            throw std::runtime_error("cannot open " + file);
    }
    PlainSqlite(const PlainSqlite&) = delete;
    PlainSqlite& operator=(const PlainSqlite&) = delete;
    ~PlainSqlite() { sqlite3_close(database); }

    void run(const std::string& text) {
        if (sqlite3_exec(database, text.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
            throw std::runtime_error(sqlite3_errmsg(database));
    }

    /// The first column of the first row, "" for NULL or no row.
    std::string ask(const std::string& text) {
        const std::vector<std::string> all = askAll(text);
        return all.empty() ? "" : all.front();
    }

    /// The first column of all rows.
    std::vector<std::string> askAll(const std::string& text) {
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(database, text.c_str(), -1, &statement, nullptr) != SQLITE_OK)
            throw std::runtime_error(sqlite3_errmsg(database));
        std::vector<std::string> all;
        while (sqlite3_step(statement) == SQLITE_ROW) {
            const auto* found = sqlite3_column_text(statement, 0);
            all.emplace_back(found != nullptr ? reinterpret_cast<const char*>(found) : "");
        }
        sqlite3_finalize(statement);
        return all;
    }

private:
    sqlite3* database = nullptr;
};

}  // namespace Kes::testing
