// The prepared statements of one connection, each kept under its text.
//
// Beside the connection and not in it: statements go before their connection
// does, whatever a driver's connection has to take down.

#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>

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

/// Statements of texts that a program makes up by its queries and changes. Programs have
/// few shapes of them; one that makes them up without end must not fill memory with
/// them, here or in the server, so that all go when there are too many.
///
/// `Kept` is a map from what tells the shapes apart to a std::unique_ptr<Statement>.
template <class Kept>
class StatementShapes {
public:
    /// A guess that is far above what programs have and far below what hurts.
    static constexpr std::size_t Most = 500;

    /// The cache is borrowed, and outlives this.
    explicit StatementShapes(StatementCache& itsStatements) : statements(itsStatements) {}

    /// Of a new shape the one that `make` returns, a std::unique_ptr. Borrowed until the
    /// next call, which may wait for posted writes.
    template <class Make>
    Statement& of(const typename Kept::key_type& shape, Make make) {
        const auto known = kept.find(shape);
        if (known != kept.end())
            return *known->second;
        if (kept.size() >= Most) {
            statements.awaitPosts();
            kept.clear();
        }
        std::unique_ptr<Statement> fresh = make(statements);
        return *kept.emplace(shape, std::move(fresh)).first->second;
    }

    /// A model goes, and with it the classes that the texts speak of.
    void forget() { kept.clear(); }

private:
    StatementCache& statements;
    Kept kept;
};

/// Told apart by their texts.
using StatementsByText =
    StatementShapes<std::unordered_map<std::string, std::unique_ptr<Statement>>>;

}  // namespace Kes::sql
