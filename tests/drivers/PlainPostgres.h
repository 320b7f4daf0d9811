// A second way to a PostgreSQL server, past the library.

#pragma once

#include <libpq-fe.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace Kes::testing {

class PlainPostgres {
public:
    /// `source` is a connection URL.
    explicit PlainPostgres(const std::string& source)
        : connection(PQconnectdb(source.c_str()), PQfinish) {
        if (PQstatus(connection.get()) != CONNECTION_OK)
            throw std::runtime_error(PQerrorMessage(connection.get()));
        PQsetNoticeProcessor(
            connection.get(), [](void*, const char*) {}, nullptr);
    }

    void run(const std::string& text) { execute(text); }

    /// The first column of the first row, "" for NULL or no row.
    std::string ask(const std::string& text) {
        const std::vector<std::string> all = askAll(text);
        return all.empty() ? "" : all.front();
    }

    /// The first column of all rows.
    std::vector<std::string> askAll(const std::string& text) {
        const Result result = execute(text);
        std::vector<std::string> all;
        for (int row = 0; row < PQntuples(result.get()); ++row)
            all.emplace_back(PQgetvalue(result.get(), row, 0));
        return all;
    }

private:
    using Result = std::unique_ptr<PGresult, decltype(&PQclear)>;

    Result execute(const std::string& text) {
        Result result(PQexec(connection.get(), text.c_str()), PQclear);
        const ExecStatusType status = PQresultStatus(result.get());
        if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK)
            throw std::runtime_error(PQerrorMessage(connection.get()));
        return result;
    }

    std::unique_ptr<PGconn, decltype(&PQfinish)> connection;
};

}  // namespace Kes::testing
