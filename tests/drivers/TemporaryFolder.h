// A folder that lives as long as a test.

#pragma once

#include <sqlite3.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace Kes::testing {

class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string pattern = std::filesystem::temp_directory_path() / "kes-XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr)
            throw std::runtime_error("no temporary folder");
        folder = pattern;
    }
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder() {
        std::error_code ignored;
        std::filesystem::remove_all(folder, ignored);
    }

    std::string path(const std::string& name) const { return folder / name; }

    std::string write(const std::string& name, const std::string& text) const {
        std::ofstream(path(name)) << text;
        return path(name);
    }

private:
    std::filesystem::path folder;
};

/// A second way to a database file, past the library.
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
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(database, text.c_str(), -1, &statement, nullptr) != SQLITE_OK)
            throw std::runtime_error(sqlite3_errmsg(database));
        std::string answer;
        if (sqlite3_step(statement) == SQLITE_ROW)
            if (const auto* found = sqlite3_column_text(statement, 0))
                answer = reinterpret_cast<const char*>(found);
        sqlite3_finalize(statement);
        return answer;
    }

private:
    sqlite3* database = nullptr;
};

}  // namespace Kes::testing
