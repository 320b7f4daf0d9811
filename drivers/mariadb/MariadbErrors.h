// What the errors of servers and of the client library mean for a session.

#pragma once

#include <string>

#include <kes/Failure.h>

namespace Kes::sql {

enum class MariadbFault {
    Statement,  // only the statement has failed
    Conflict,   // somebody else came first; the transaction is gone
    Timeout,    // a lock was not given in time; the server keeps the transaction
    CutOff,     // the node has lost its cluster and serves nobody
    Lost        // the connection is gone
};

/// What an error of the server or the client library stands for.
MariadbFault classify(unsigned code);

/// What a program can do about it. A lock that others hold too long is no proof
/// that they have changed what was read, so a timeout is no conflict.
FailureKind kindOf(unsigned code);

/// True when the connection broke after a command was sent.
bool isWithoutAnswer(unsigned code);

/// True when a COMMIT that is answered so has certainly stored nothing.
bool isRefusedCommit(unsigned code);

/// True when another host of the list may do better.
bool isOfHost(unsigned code);

/// The server's words, and what the user can do about them.
std::string explain(unsigned code, const std::string& words);

/// The same while a connection is opened, when nobody holds a lock yet.
std::string explainOpen(unsigned code, const std::string& words);

/// The same of a node that has failed because it is without the others.
std::string explainAlone(unsigned code, const std::string& words);

}  // namespace Kes::sql
