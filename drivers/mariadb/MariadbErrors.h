// What the errors of servers and of the client library mean for a session.

#pragma once

#include <string>

namespace Kes::sql {

enum class MariadbFault {
    Statement,  // only the statement has failed
    Conflict,   // somebody else came first; the transaction is gone
    Timeout,    // a lock was not given in time; the server keeps the transaction
    CutOff,     // the node has lost its cluster and answers nothing
    Lost        // the connection is gone
};

MariadbFault faultOf(unsigned code);

/// True when the connection broke after a command was sent.
bool isWithoutAnswer(unsigned code);

/// True when another host of the list may do better.
bool isOfHost(unsigned code);

/// The server's words, and what the user can do about them.
std::string explain(unsigned code, const std::string& words);

}  // namespace Kes::sql
