// MariaDB's client library behind the drivers' connection.
//
// The connection carries one answer at a time. A query's rows stay on the wire
// and are fetched one by one, until another command is to be sent: the rest of
// them is then taken aside, to a temporary file when it is long. Any number of
// cursors is open at once so, in bounded memory, each with the rows of the
// moment at which it began, and none costs more than one round trip.
//
// A transaction in which a write has failed is never committed. After a
// conflict the server has no transaction any more and would take each further
// statement for one of its own, so nothing more is sent before the rollback.
// Nor does the driver trust that the server tells of every such end: all answers
// say whether a transaction is open, and one that should be and is not has failed.
// An error says nothing about it, so the server is asked before work goes on.

#pragma once

#include <chrono>
#include <cstddef>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>

#include "drivers/common/Connection.h"
#include "drivers/common/SqlFailure.h"
#include "drivers/mariadb/MariadbErrors.h"
#include "drivers/mariadb/MariadbSettings.h"
#include "drivers/mariadb/MariadbStage.h"

struct st_mysql;
struct st_mysql_stmt;

namespace Kes::sql {

class MariadbStatement;

class MariadbConnection final : public Connection {
public:
    /// Connects to the first of the hosts that answers. Throws SqlFailure, with
    /// what each of them said, when none does.
    explicit MariadbConnection(const MariadbSettings& wanted);
    MariadbConnection(const MariadbConnection&) = delete;
    MariadbConnection& operator=(const MariadbConnection&) = delete;
    ~MariadbConnection() override;

    std::unique_ptr<Statement> prepare(const std::string& text) override;
    void execute(const std::string& text) override;
    void awaitPosts() override;
    SizeLimit sizeLimit() const override;
    bool prefersRuns() const override { return true; }
    IdBlock takeIds(unsigned long least, unsigned long count) override;
    bool takesIdsAside() const override { return true; }
    SchemaStage* schemaStage() override { return &stage; }
    void begin() override;
    void beginSchema() override;
    void commit() override;
    void rollback() override;
    void beginSnapshot() override;
    void endSnapshot() noexcept override;
    bool isolatesReads() const override { return settings.isolation != "read committed"; }
    bool readsAnew() const override { return !isolatesReads(); }
    bool inTransaction() override { return inside; }
    bool renew() override;
    void traceTo(std::ostream* stream) override { trace = stream; }

    bool isClustered() const { return clustered; }
    std::chrono::milliseconds lockTimeout() const {
        return std::chrono::milliseconds(settings.lockTimeout);
    }
    bool foldsTableNames() const { return foldsTables; }

    // --- for statements ---

    using Clock = std::chrono::steady_clock;

    st_mysql* client() const { return handle; }
    std::size_t largestPacket() const { return packetLimit; }  // bytes
    bool takesBulk() const { return bulk; }
    bool isTraced() const { return trace != nullptr; }
    void write(const std::string& text, Clock::time_point begun) const;

    /// Rises when the connection is made anew, without the statements that were
    /// prepared before.
    unsigned long currentGeneration() const { return generation; }

    /// Makes way for a command of `user`, null for one without a statement.
    void makeWay(MariadbStatement* user);

    /// The same for a command that writes, which makes no sense any more in a
    /// transaction that has failed.
    void makeWayToWrite(MariadbStatement* user);

    /// The statement whose rows are on the wire, and the one that has posts.
    MariadbStatement* streaming = nullptr;
    MariadbStatement* posting = nullptr;

    /// Of the sessions of this server and database one at a time holds the lock,
    /// which counts how often it was taken.
    void takeSchemaLock();
    void releaseSchemaLock();

    /// Throws a SqlFailure for the last error of the handle or the statement.
    [[noreturn]] void fail();
    [[noreturn]] void fail(st_mysql_stmt* statement);

    /// The same for a read that takes no lock: where it has waited too long, that
    /// was for what the rest of the cluster has committed.
    [[noreturn]] void failRead();
    [[noreturn]] void failRead(st_mysql_stmt* statement);

    /// To be called when the server has answered without an error. Throws when
    /// the transaction is gone all the same.
    void checkTransaction();

    /// The same, by a question of its own. Throws as well when the connection is
    /// of no use any more.
    void confirmTransaction();

    /// The same at the end of a result that the program has left, with or without
    /// an error: what it finds is told by the next use.
    void noteEndOfRows() noexcept;

    /// Takes over what the last packet of a result says, which the client library
    /// leaves aside.
    void readStatusBehindRows();

    /// Ends a snapshot that only waited for the last of its rows.
    void releaseSnapshot() noexcept;

    /// The transaction cannot be committed any more.
    void noteFailure(const SqlFailure& cause);

    /// Notes a place in the transaction, and undoes what was done behind it;
    /// false when that is gone with the transaction.
    void mark();
    bool backToMark();
    void noteUse() { isUsed = true; }

private:
    void connect();
    bool connectTo(const MariadbHost& host, std::string& words);
    void setOptions();
    bool configure();
    bool isServing();
    void checkServer();
    void readSettings();
    void send(const std::string& text);
    bool sendUnchecked(const std::string& text);
    [[noreturn]] void fail(unsigned code, const std::string& words);
    [[noreturn]] void failAlone(unsigned code, const std::string& words);
    void note(const SqlFailure& failure, unsigned code);
    void lose(const std::string& words);
    bool isOpenAtServer() const;
    void noteEnd();
    void checkUse() const;
    void askForTransaction();
    void endAtServer();
    void failCommit();
    void endSchema();
    IdBlock advanceIds(unsigned long least, unsigned long count);
    MariadbConnection& aside();

    MariadbSettings settings;
    st_mysql* handle = nullptr;
    unsigned long generation = 0;
    std::unique_ptr<MariadbConnection> second;  // takes ids while a transaction is open
    std::ostream* trace = nullptr;              // borrowed
    std::size_t packetLimit = 0;
    bool bulk = false;
    bool clustered = false;
    bool foldsTables = false;
    enum class Snapshot : unsigned char { None, Open, Ended };
    Snapshot snapshot = Snapshot::None;
    bool isFresh = true;               // connected, and not used since
    bool inside = false;               // of a transaction
    bool isSchema = false;             // the transaction holds the schema lock
    bool isUsed = false;               // something was sent in the transaction
    bool isMarked = false;             // with a savepoint; else the mark is its begin
    bool isGone = false;               // the server has ended the transaction
    bool isInDoubt = false;            // behind an error: has it?
    bool isDivided = false;            // a schema statement has ended it on its way
    std::optional<SqlFailure> failed;  // why the transaction cannot be committed
    std::optional<SqlFailure> lost;    // why the connection is of no use any more
    MariadbStage stage;
};

}  // namespace Kes::sql
