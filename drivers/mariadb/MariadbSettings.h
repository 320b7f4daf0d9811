// What the connection texts of an open say.

#pragma once

#include <string>
#include <vector>

namespace Kes::sql {

/// One way to a server: a socket, or a host and a port.
struct MariadbHost {
    std::string socket;
    std::string name;
    unsigned port = 3306;

    /// As messages name it.
    std::string text() const;
};

struct MariadbSettings {
    std::vector<MariadbHost> hosts;  // tried in turn
    std::string database;
    std::string user;
    std::string password;

    long connectTimeout = 5;    // s, for each host
    long networkTimeout = 0;    // s; 0 to wait as long as the server takes
    long lockTimeout = 5000;    // ms
    long statementTimeout = 0;  // ms; 0 for none
    std::string isolation = "read committed";
    bool causalReads = true;  // on a cluster

    std::string tls = "off";
    std::string tlsCa;
    std::string tlsCert;
    std::string tlsKey;

    /// The server counts whole seconds.
    long lockSeconds() const { return (lockTimeout + 999) / 1000; }

    /// Reads `source`: `host[:port][,...]/database`, where a host that begins
    /// with a slash is a socket, in front of it perhaps `mariadb://[user@]`.
    /// Throws SqlFailure for another form, and for a password in it.
    void readSource(const std::string& source);
};

/// Whether the text has a parameter for a password, as sources of other programs do.
bool namesPassword(const std::string& source);

/// The source without a password that it may hold against the rules.
std::string withoutPassword(const std::string& source);

}  // namespace Kes::sql
