// What a driver needs of a client library.
//
// Positions of parameters and columns count from 0. Failures are thrown as
// SqlFailure with the database's own words. A database behind a network is fast
// when writes do not wait for each other, so they may be posted and settled.

#pragma once

#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <string>
#include <vector>

#include "drivers/common/SchemaStage.h"

namespace Kes::sql {

/// The current row of a statement, or one that was kept aside.
class Row {
public:
    enum Kind : std::uint8_t { Null, Integer, Real, Text, Bytes };

    virtual ~Row() = default;
    virtual Kind kind(int column) = 0;
    virtual std::int64_t integer(int column) = 0;
    virtual double real(int column) = 0;

    /// Terminated by a NUL; valid until the row changes. So are bytes().
    virtual const char* text(int column, std::size_t& size) = 0;
    virtual const void* bytes(int column, std::size_t& size) = 0;
};

/// A prepared statement, executed again and again.
class Statement : public Row {
public:
    virtual void bindNull(int parameter) = 0;
    virtual void bind(int parameter, std::int64_t value) = 0;
    virtual void bind(int parameter, double value) = 0;

    /// Borrowed until the execution ends.
    virtual void bindText(int parameter, const char* text, std::size_t size) = 0;
    virtual void bindBytes(int parameter, const void* bytes, std::size_t size) = 0;

    /// All the numbers as one parameter, where the dialect takesLists().
    virtual void bindList(int parameter, const std::vector<std::int64_t>& numbers);

    /// True when a row has become current, false at the end.
    virtual bool step() = 0;

    /// Ends an execution; the next step starts anew.
    virtual void reset() noexcept = 0;

    /// Executes to the end and returns the number of rows that were written.
    virtual long run() = 0;

    /// Executes a write whose outcome need not be known before the connection
    /// settles. The bound values are the caller's again when it returns.
    ///
    /// A write that touches fewer rows than `least` has failed; `ticket` names
    /// it in the PostFailure, which may come from here or from awaitPosts(). Writes
    /// take effect in the order in which they were posted. The default executes
    /// at once.
    virtual void post(std::size_t ticket, long least);
};

/// Ends an execution also when a step has thrown.
class Execution {
public:
    explicit Execution(Statement& itsStatement) : statement(itsStatement) {}
    Execution(const Execution&) = delete;
    Execution& operator=(const Execution&) = delete;
    ~Execution() { statement.reset(); }

private:
    Statement& statement;
};

/// Object ids that nobody else is given: from `first` to before `end`.
struct IdBlock {
    unsigned long first;
    unsigned long end;
    bool isUncommitted;  // taken within the open transaction
};

/// How many bytes the texts and blobs of one object may have together.
struct SizeLimit {
    std::size_t bytes = 1000000000;
    const char* called = "the limit";  // in messages
    const char* remedy = "make them smaller";
    bool isOfStatement = false;  // of what one statement writes, not of the whole row
};

class Connection {
public:
    virtual ~Connection() = default;
    virtual std::unique_ptr<Statement> prepare(const std::string& text) = 0;

    /// A query that may have more rows than fit into memory, and whose execution
    /// stays under way while others are executed.
    virtual std::unique_ptr<Statement> prepareCursor(const std::string& text) {
        return prepare(text);
    }
    virtual void execute(const std::string& text) = 0;

    /// What is beyond is refused before it is sent.
    virtual SizeLimit sizeLimit() const { return {}; }

    /// Waits for all posted writes. Throws the PostFailure of the first that
    /// failed; nothing is posted any more then.
    virtual void awaitPosts() {}

    /// True when runs of one statement are cheaper than any other order.
    virtual bool prefersRuns() const { return false; }

    /// Takes `count` ids or more, none below `least`. The default takes them
    /// from the table kes_ids.
    virtual IdBlock takeIds(unsigned long least, unsigned long count);

    /// True when takeIds begins no transaction.
    virtual bool takesIdsAside() const { return false; }

    /// Borrowed; null where schema statements are part of a transaction.
    virtual SchemaStage* schemaStage() { return nullptr; }

    /// Begins a transaction that may write.
    virtual void begin() = 0;

    /// Begins a transaction that changes the schema, when no other session's
    /// does so.
    virtual void beginSchema() { begin(); }

    /// What returns is stored. A commit of which that cannot be told throws a
    /// SqlFailure of the kind UnknownOutcome, and no other one does.
    virtual void commit() = 0;

    /// Drops what is posted. Does nothing when the database has rolled back by
    /// itself.
    virtual void rollback() = 0;
    virtual bool inTransaction() = 0;

    /// True when what is read in a transaction has to be part of it, because it
    /// is isolated from what others commit meanwhile.
    virtual bool isolatesReads() const { return false; }

    /// True when each statement of a transaction sees what others have committed
    /// until then.
    virtual bool readsAnew() const { return false; }

    /// False when the end of a transaction ends the queries that are under way.
    virtual bool keepsCursors() const { return true; }

    /// Whether a query outside of a transaction would not show the present state
    /// as long as earlier ones are under way, so that their rows have to be kept
    /// aside first. Called before each; `isReading` tells whether there may be
    /// such queries, `forSnapshot` whether beginSnapshot comes next.
    virtual bool needsRoom(bool isReading, bool forSnapshot) {
        static_cast<void>(isReading);
        static_cast<void>(forSnapshot);
        return false;
    }

    /// Queries that are executed between the two show one state of the database.
    /// Called outside of a transaction.
    virtual void beginSnapshot() {}
    virtual void endSnapshot() noexcept {}

    /// Connects again when the connection has broken, and returns whether it
    /// did: what was taken for the old session is not the new one's. Called when
    /// nothing depends on it: a model begins to use it.
    virtual bool renew() { return false; }

    /// Null disables.
    virtual void traceTo(std::ostream* stream) = 0;
};

}  // namespace Kes::sql
