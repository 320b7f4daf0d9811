// The beginning of a connection, and why there is none.

#include <libpq-fe.h>

#include <cstring>

#include "drivers/postgres/PostgresMessages.h"
#include "drivers/postgres/PostgresWire.h"

namespace Kes::sql {

namespace {

constexpr int OldestServer = 150000;  // the oldest that the tests run on

}  // namespace

PostgresWire::PostgresWire(const PostgresSource& source, const PostgresLimits& itsLimits)
    : limits(itsLimits) {
    std::vector<const char*> keywords;
    std::vector<const char*> values;
    for (const auto& [keyword, value] : source.parameters) {
        keywords.push_back(keyword.c_str());
        values.push_back(value.c_str());
    }
    keywords.push_back(nullptr);
    values.push_back(nullptr);
    connection = PQconnectdbParams(keywords.data(), values.data(), 1);
    try {
        greet();
    } catch (...) {
        PQfinish(connection);
        throw;
    }
}

PostgresWire::~PostgresWire() {
    PQfinish(connection);
}

void PostgresWire::greet() {
    if (PQstatus(connection) != CONNECTION_OK)
        throw SqlFailure(explainRefusal(), kindOfRefusedOpen());
    check();
    PQsetNoticeReceiver(connection, hearNotice, this);
    PQenterPipelineMode(connection);

    // The client library would wait without end.
    PQsetnonblocking(connection, 1);
}

int PostgresWire::process() const {
    return PQbackendPID(connection);
}

void PostgresWire::check() const {
    if (PQserverVersion(connection) < OldestServer)
        throw SqlFailure("the server is too old: it is version " +
                         std::string(PQparameterStatus(connection, "server_version")) +
                         ", and 15 or later is needed");
    const char* encoding = PQparameterStatus(connection, "server_encoding");
    if (encoding == nullptr || std::strcmp(encoding, "UTF8") != 0)
        throw SqlFailure("the database keeps texts as " +
                         std::string(encoding != nullptr ? encoding : "an unknown encoding") +
                         ", which cannot hold every text; make one with the encoding UTF8");
}

std::string PostgresWire::explainRefusal() const {
    std::string words =
        connection != nullptr ? onOneLine(PQerrorMessage(connection)) : "out of memory";
    if (PQconnectionNeedsPassword(connection) != 0)
        return words + "; the server asks for a password and none was given";
    if (says(words, "authentication failed"))
        return words + "; check the user and the password";
    if (says(words, "could not translate host name"))
        return words + "; check the name of the host";
    if (says(words, "Connection refused") || says(words, "No such file or directory"))
        return words + "; check the host and the port, and that the server runs";
    if (says(words, "timeout expired"))
        return words + "; check the host and the port, or allow more with connect_timeout";
    return words;
}

// What time, or another host, may mend.
FailureKind PostgresWire::kindOfRefusedOpen() const {
    const std::string words = PQerrorMessage(connection);
    for (const char* part : {"Connection refused", "No such file or directory", "timeout expired",
                             "starting up", "shutting down", "closed the connection"})
        if (says(words, part))
            return FailureKind::LostConnection;
    return FailureKind::Unclassified;
}

}  // namespace Kes::sql
