// A second way to a MariaDB server, past the library.

#pragma once

#include <mysql.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace Kes::testing {

class PlainMariadb {
public:
    /// `source` is host:port/database.
    PlainMariadb(const std::string& source, const std::string& user, const std::string& password)
        : connection(mysql_init(nullptr), mysql_close) {
        const std::size_t colon = source.find(':');
        const std::size_t slash = source.find('/');
        const auto port =
            static_cast<unsigned>(std::stoul(source.substr(colon + 1, slash - colon - 1)));
        mysql_options(connection.get(), MYSQL_SET_CHARSET_NAME, "utf8mb4");
        if (mysql_real_connect(connection.get(), source.substr(0, colon).c_str(), user.c_str(),
                               password.c_str(), source.substr(slash + 1).c_str(), port, nullptr,
                               0) == nullptr)
            throw std::runtime_error(mysql_error(connection.get()));
        run("SET sql_mode = 'STRICT_ALL_TABLES,ANSI_QUOTES,NO_BACKSLASH_ESCAPES', "
            "autocommit = 1, lock_wait_timeout = 5");
    }

    void run(const std::string& text) { askAll(text); }

    /// On a cluster: sees from now on what was committed on other nodes before.
    void catchUp() {
        run("SET SESSION wsrep_sync_wait = 15");
        ask("SELECT 1");
    }

    /// The first column of the first row, "" for NULL or no row.
    std::string ask(const std::string& text) {
        const std::vector<std::string> all = askAll(text);
        return all.empty() ? "" : all.front();
    }

    /// The first column of all rows.
    std::vector<std::string> askAll(const std::string& text) {
        if (mysql_real_query(connection.get(), text.data(), text.size()) != 0)
            throw std::runtime_error(mysql_error(connection.get()));
        const std::unique_ptr<MYSQL_RES, decltype(&mysql_free_result)> result(
            mysql_store_result(connection.get()), mysql_free_result);
        std::vector<std::string> all;
        while (MYSQL_ROW row = result == nullptr ? nullptr : mysql_fetch_row(result.get()))
            all.emplace_back(row[0] != nullptr ? row[0] : "");
        return all;
    }

private:
    std::unique_ptr<MYSQL, decltype(&mysql_close)> connection;
};

}  // namespace Kes::testing
