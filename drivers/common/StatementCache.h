// The prepared statements of one connection, each kept under its text.
//
// Beside the connection and not in it: statements go before their connection
// does, whatever a driver's connection has to take down.

#pragma once

#include <memory>
#include <string>
#include <unordered_map>

#include "drivers/common/Connection.h"

namespace Kes::sql {

class StatementCache {
public:
    /// The connection is borrowed, and outlives the cache.
    explicit StatementCache(Connection& itsConnection) : connection(itsConnection) {}
    StatementCache(const StatementCache&) = delete;
    StatementCache& operator=(const StatementCache&) = delete;

    /// Prepared when it is asked for first. Borrowed until forget(); whoever
    /// executes it ends the execution before anybody asks again. For texts of
    /// which a model has only so many: nothing goes before forget().
    Statement& keep(const std::string& text) {
        std::unique_ptr<Statement>& statement = statements[text];
        if (statement == nullptr)
            statement = connection.prepare(text);
        return *statement;
    }

    /// New, for the caller: each cursor of a pool has one of its own.
    std::unique_ptr<Statement> make(const std::string& text) { return connection.prepare(text); }
    std::unique_ptr<Statement> makeCursor(const std::string& text) {
        return connection.prepareCursor(text);
    }

    /// Before statements that have posted writes go.
    void awaitPosts() { connection.awaitPosts(); }

    /// A model goes, and with it the classes that the texts speak of.
    void forget() { statements.clear(); }

private:
    Connection& connection;
    std::unordered_map<std::string, std::unique_ptr<Statement>> statements;
};

}  // namespace Kes::sql
