// The transactions of a connection: those that write, those that only cursors need,
// and those of a single statement.

#include <libpq-fe.h>

#include <cstring>

#include "drivers/common/SqlFailure.h"
#include "drivers/postgres/PostgresConnection.h"

namespace Kes::sql {

namespace {

using Wish = PostgresWire::Wish;

}  // namespace

// What stood for itself and was not sent to its end.
void PostgresConnection::settleAlone() {
    if (transaction == Transaction::Alone)
        receive();
}

// Within a batch that has begun it is too late to choose an isolation. A pooler
// hands the session on as soon as the server has ended a transaction; what has
// been sent behind that by then arrives in others' transactions.
void PostgresConnection::sendBegin(const std::string& level, const std::string& shown) {
    const bool isChosen = !keepsSession || level != isolation;
    if (!keepsSession)
        link.settle();
    else if (isChosen)
        link.endBatch();
    link.execute(isChosen ? "BEGIN ISOLATION LEVEL " + level : "BEGIN",
                 {Wish::Nothing, 0, 0, shown});
    if (!keepsSession)
        link.execute(settings.query(), settings.values(), {});
}

// A failure ends the reading transaction with all its cursors.
Result PostgresConnection::receive() {
    posts = 0;
    const bool isAlone = transaction == Transaction::Alone;
    try {
        if (isAlone)
            link.execute("COMMIT", {});
        Result answer = link.receive();
        if (isAlone)
            endTransaction("");
        return answer;
    } catch (const SqlFailure& failure) {
        if (link.isLost())
            endTransaction(failure.what());
        else if (isAlone || transaction == Transaction::Reading) {
            link.execute("ROLLBACK", {});
            link.sync();
            endTransaction(failure.what());
        }
        throw;
    }
}

void PostgresConnection::endTransaction(const std::string& why) {
    transaction = Transaction::None;
    if (openCursors > 0)
        ended = why;
    openCursors = 0;
    ++generation;
}

unsigned long PostgresConnection::enterCursor() {
    settleAlone();
    if (transaction == Transaction::None) {
        forgetDropped();
        beginReading();
    }
    ++openCursors;
    return generation;
}

void PostgresConnection::beginReading() {
    const bool isIsolated = isolatesReads();
    sendBegin(isHolding && !isIsolated ? "repeatable read" : isolation);
    transaction = Transaction::Reading;
    isSnapshot = isHolding || isIsolated;
}

// Sent at once, so that the server does not keep a snapshot for a program that
// has turned to other things, but nobody waits for the answer.
void PostgresConnection::leaveCursor(const std::string& name,
                                     unsigned long itsGeneration) noexcept {
    if (itsGeneration != generation || link.isLost())
        return;
    --openCursors;
    try {
        if (transaction == Transaction::Reading && openCursors == 0 && !isHolding)
            endReading();
        else
            link.execute("CLOSE " + name, {Wish::Courtesy});
        link.sync();
    } catch (const std::exception&) {
        // The connection broke, and the next command tells so.
    }
}

void PostgresConnection::endReading() {
    link.execute("COMMIT", {Wish::Courtesy});
    endTransaction("");
}

bool PostgresConnection::needsRoom(bool, bool forSnapshot) {
    return transaction == Transaction::Reading && (isSnapshot || forSnapshot);
}

void PostgresConnection::endSnapshot() noexcept {
    isHolding = false;
    if (transaction != Transaction::Reading || openCursors > 0 || link.isLost())
        return;
    try {
        endReading();
        link.sync();
    } catch (const std::exception&) {
        // The connection broke, and the next command tells so.
    }
}

void PostgresConnection::demand(unsigned long itsGeneration) const {
    if (itsGeneration != generation)
        throw SqlFailure("its transaction has ended before its last row was read" +
                         (ended.empty() ? "" : ": " + ended));
}

// Travels with the first command of the transaction.
void PostgresConnection::begin() {
    settleAlone();
    if (transaction == Transaction::None) {
        forgetDropped();
        sendBegin(isolation, traced("BEGIN"));
    }
    transaction = Transaction::Writing;
}

// What another session has changed shows as soon as the lock is there, also to
// sessions that otherwise see one snapshot throughout.
void PostgresConnection::beginSchema() {
    settleAlone();
    forgetDropped();
    sendBegin("read committed", traced("BEGIN"));
    transaction = Transaction::Writing;
    execute(
        "SELECT pg_catalog.pg_advisory_xact_lock(pg_catalog.hashtext('kes ' || "
        "pg_catalog.current_schema()))");
}

void PostgresConnection::commit() {
    awaitPosts();
    const std::string refusal = link.refusal();
    const FailureKind refusalKind = link.refusalKind();
    link.execute("COMMIT", {Wish::Answer, 0, 0, traced("COMMIT")});
    Result answer;
    try {
        answer = link.receive();
    } catch (const ConnectionLost& failure) {
        endTransaction(failure.what());
        throw SqlFailure(std::string("it is not known whether the transaction is stored, because "
                                     "the connection broke while the database committed it: ") +
                             failure.what() + ", and look",
                         FailureKind::UnknownOutcome);
    } catch (const SqlFailure& failure) {
        endTransaction(failure.what());
        throw;
    }
    endTransaction("the transaction was committed");
    if (std::strcmp(PQcmdStatus(answer.get()), "COMMIT") != 0)
        throw SqlFailure(
            "the database has rolled the transaction back, because one of its "
            "statements had failed" +
                (refusal.empty() ? "" : ": " + refusal),
            refusalKind);
    if (link.isUnreplicated())
        throw SqlFailure(
            "it is not known whether the transaction outlives this server: it is "
            "stored here, but somebody ended the wait for the synchronous standby; "
            "look before it is tried again",
            FailureKind::UnknownOutcome);
}

// A server that is gone has rolled back by itself.
void PostgresConnection::rollback() {
    link.drain();
    if (transaction != Transaction::Writing)
        return;
    endTransaction("the transaction was rolled back");
    if (link.isLost())
        return;
    try {
        link.execute("ROLLBACK", {Wish::Nothing, 0, 0, traced("ROLLBACK")});
        link.receive();
    } catch (const ConnectionLost&) {
        return;
    }
}

}  // namespace Kes::sql
