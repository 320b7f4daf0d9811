// One connection to a server, used by one model.
//
// Statements outside of a transaction stand for themselves. A cursor needs a
// transaction on the server: the first one begins a reading transaction, and the
// last one ends it, unnoticed by the driver. The driver settles all cursors
// before it begins a transaction that writes, and before a query that has to show
// the present when the reading transaction shows one state throughout.
//
// Where a pooler gives each transaction another session of the server, nothing
// lives longer than a transaction there: each sets what it needs, statements have
// no names, and one that stands for itself travels between a BEGIN and a COMMIT.

#pragma once

#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "drivers/common/Connection.h"
#include "drivers/postgres/PostgresSettings.h"
#include "drivers/postgres/PostgresSource.h"
#include "drivers/postgres/PostgresStatement.h"
#include "drivers/postgres/PostgresWire.h"

namespace Kes::sql {

class PostgresConnection final : public Connection {
public:
    /// The step of the sequence that object ids come from. It is part of the storage:
    /// a driver with another one would give ids twice.
    static constexpr unsigned long IdsPerValue = 1024;

    explicit PostgresConnection(const PostgresSource& source);
    ~PostgresConnection() override;

    std::unique_ptr<Statement> prepare(const std::string& text) override;
    std::unique_ptr<Statement> prepareCursor(const std::string& text) override;
    void execute(const std::string& text) override;
    void awaitPosts() override;
    IdBlock takeIds(unsigned long least, unsigned long count) override;
    void begin() override;
    void beginSchema() override;
    void commit() override;
    void rollback() override;
    bool inTransaction() override { return transaction == Transaction::Writing; }
    bool needsRoom(bool isReading, bool forSnapshot) override;
    void beginSnapshot() override { isHolding = true; }
    void endSnapshot() noexcept override;
    bool isolatesReads() const override { return isolation != "read committed"; }
    bool readsAnew() const override { return !isolatesReads(); }
    bool keepsCursors() const override { return false; }
    bool takesIdsAside() const override { return true; }
    bool renew() override;
    void traceTo(std::ostream* stream) override { link.traceTo(stream); }

    // --- for statements ---

    PostgresWire& wire() { return link; }
    std::string freshName() { return prefix + std::to_string(++names); }

    /// Whether the server keeps a prepared statement for longer than a transaction.
    bool keepsStatements() const { return keepsSession; }

    /// Has the server forget a statement, at the next chance.
    void drop(const std::shared_ptr<Prepared>& prepared);

    /// Sends what had to wait for the next command.
    void beforeSending();
    Result receive();
    void notePost();

    /// Returns the generation that the cursor belongs to; it is lost with it.
    unsigned long enterCursor();
    void leaveCursor(const std::string& name, unsigned long generation) noexcept;

    /// Throws SqlFailure when the cursors of the generation are lost.
    void demand(unsigned long generation) const;

private:
    /// Alone: of one statement, on a session that is not kept.
    enum class Transaction : unsigned char { None, Alone, Reading, Writing };

    void configure(Pooler pooler);
    [[noreturn]] static void refusePooler();
    void makeSchema();
    void setUp();
    void forgetDropped();
    void settleAlone();
    void sendBegin(const std::string& level, const std::string& shown = "");
    void endTransaction(const std::string& why);
    void beginReading();
    void endReading();
    std::string traced(const char* text) const { return link.isTracing() ? text : ""; }

    PostgresWire link;
    const bool keepsSession;
    PostgresSettings settings;
    std::string schema;
    const std::string isolation;
    Transaction transaction = Transaction::None;
    bool isFresh = true;      // connected for the model that begins to use it
    bool isSnapshot = false;  // the reading transaction shows one state throughout
    bool isHolding = false;   // it stays, though no cursor may be open
    int openCursors = 0;
    unsigned long generation = 0;
    std::string ended;   // why the cursors of the last generation are lost
    std::string prefix;  // of names, which no other session has
    unsigned long names = 0;
    int posts = 0;  // since the last sync
    std::vector<std::shared_ptr<Prepared>> dropped;
    std::deque<IdBlock> blocks;
    std::unique_ptr<Statement> taking;
};

}  // namespace Kes::sql
