// Where a server is and how a session behaves, read from the texts of an open.

#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Kes::sql {

/// Limits in ms, most of which the server watches; 0 is for ever.
struct PostgresLimits {
    long lock = 5000;
    std::optional<long> statement;  // absent: as the server is set up
    long network = 0;               // of silence, watched by the driver itself
};

/// What stands between the driver and the server.
enum class Pooler : unsigned char {
    None,
    Session,     // it keeps a session of the server for each connection
    Transaction  // any session may serve a transaction
};

struct PostgresSource {
    /// Throws SqlFailure for an unknown or wrong option. `source` is a URL
    /// (postgresql://host:port/database), a text of key=value pairs or the name
    /// of a database; `options` may name every parameter of the client library.
    PostgresSource(const std::string& source, const std::string& password, const std::string& user,
                   const std::string& optionText);

    /// `source` as messages may show it: without a password.
    static std::string shown(const std::string& source);

    std::vector<std::pair<std::string, std::string>> parameters;  // of the client library
    PostgresLimits limits;
    std::string schema;     // empty: the first one of the server's search path
    std::string isolation;  // as SQL says it
    Pooler pooler = Pooler::None;
};

}  // namespace Kes::sql
