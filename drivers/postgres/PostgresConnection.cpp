#include "drivers/postgres/PostgresConnection.h"

#include <libpq-fe.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <random>

#include "drivers/common/SqlFailure.h"

namespace Kes::sql {

namespace {

using Wish = PostgresWire::Wish;

// Results wait in memory until somebody reads them. A round trip for so many writes is
// hardly felt by each.
constexpr int MostPosts = 2048;

void bindText(Statement& statement, int parameter, const std::string& text) {
    statement.bindText(parameter, text.data(), text.size());
}

// A pooler may hand one session of the server to several programs. Whoever meets
// a strange statement shall not take it for its own.
std::string randomPrefix() {
    std::random_device device;
    char digits[9];
    std::snprintf(digits, sizeof digits, "%08x", static_cast<unsigned>(device()) & 0xFFFFFFFFU);
    return std::string("kes_") + digits + "_";
}

}  // namespace

PostgresConnection::PostgresConnection(const PostgresSource& source)
    : link(source, source.limits),
      keepsSession(source.pooler != Pooler::Transaction),
      settings(source),
      schema(source.schema),
      isolation(source.isolation),
      prefix(randomPrefix()) {
    configure(source.pooler);
}

PostgresConnection::~PostgresConnection() {
    taking.reset();
}

// The names that the model uses mean tables of one schema.
void PostgresConnection::configure(Pooler pooler) {
    const auto asking = prepare(
        "SELECT pg_catalog.current_schema(), EXISTS (SELECT 1 FROM "
        "pg_catalog.pg_namespace WHERE nspname = ?), pg_catalog.pg_backend_pid()");
    bindText(*asking, 0, schema);
    asking->step();
    if (pooler == Pooler::None && asking->integer(2) != link.process())
        refusePooler();
    std::size_t size = 0;
    if (schema.empty() && asking->kind(0) == Row::Null)
        throw SqlFailure("no schema of the search path exists; name one with the option schema");
    if (schema.empty()) {
        schema = asking->text(0, size);
        settings.useSchema(schema);
    } else if (asking->integer(1) == 0) {
        makeSchema();
    }
    setUp();
}

// Settings, prepared statements and cursors belong to a session of the server.
// Where others use it in between, commits that succeed land in their tables.
void PostgresConnection::refusePooler() {
    throw SqlFailure(
        "the server that answers is not the one that was connected to, so a pooler "
        "stands between; open with the option pooler=transaction or, where it keeps a "
        "session of the server for each connection (pool_mode=session in pgbouncer), with "
        "pooler=session, or connect to the server itself");
}

// Another session may be making it too.
void PostgresConnection::makeSchema() {
    try {
        execute("CREATE SCHEMA " + quotedName(schema));
    } catch (const SqlFailure&) {
        const auto asking =
            prepare("SELECT EXISTS (SELECT 1 FROM pg_catalog.pg_namespace WHERE nspname = ?)");
        bindText(*asking, 0, schema);
        asking->step();
        if (asking->integer(0) == 0)
            throw;
    }
}

// Transactions set what they need where the session is not kept.
void PostgresConnection::setUp() {
    if (!keepsSession)
        return;
    link.execute(settings.query(), settings.values(), {});
    receive();
}

std::unique_ptr<Statement> PostgresConnection::prepare(const std::string& text) {
    return std::make_unique<PostgresStatement>(*this, text);
}

std::unique_ptr<Statement> PostgresConnection::prepareCursor(const std::string& text) {
    return std::make_unique<PostgresCursor>(*this, text);
}

void PostgresConnection::execute(const std::string& text) {
    beforeSending();
    link.execute(text, {Wish::Answer, 0, 0, link.isTracing() ? text : ""});
    receive();
}

void PostgresConnection::drop(const std::shared_ptr<Prepared>& prepared) {
    if (!link.isLost() && link.has(*prepared))
        dropped.push_back(prepared);
}

void PostgresConnection::beforeSending() {
    settleAlone();
    if (transaction != Transaction::None)
        return;
    forgetDropped();
    if (keepsSession)
        return;
    sendBegin(isolation);
    transaction = Transaction::Alone;
}

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

void PostgresConnection::forgetDropped() {
    for (const std::shared_ptr<Prepared>& each : std::exchange(dropped, {}))
        if (link.has(*each))
            link.execute("DEALLOCATE " + each->name, {Wish::Courtesy});
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

void PostgresConnection::notePost() {
    if (++posts >= MostPosts)
        receive();
}

void PostgresConnection::awaitPosts() {
    if (!link.isSettled())
        receive();
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

// A value of the sequence stands for a block of ids. Ids that a transaction
// took are not given out again when it rolls back, so they are never uncommitted.
IdBlock PostgresConnection::takeIds(unsigned long least, unsigned long count) {
    if (blocks.empty()) {
        if (taking == nullptr)
            taking = prepare(
                "SELECT pg_catalog.nextval('kes_ids') FROM "
                "pg_catalog.generate_series(1, ?)");
        // Values of the sequence with one statement, 65,536 ids.
        constexpr unsigned long most = 64;
        const unsigned long wanted = std::clamp(count / 64, 1UL, most);
        taking->bind(0, static_cast<std::int64_t>(wanted));
        while (taking->step()) {
            const auto first = static_cast<unsigned long>(taking->integer(0));
            if (!blocks.empty() && blocks.back().end == first)
                blocks.back().end = first + IdsPerValue;
            else
                blocks.push_back({first, first + IdsPerValue, false});
        }
        taking->reset();
    }
    const IdBlock block = blocks.front();
    blocks.pop_front();
    if (block.first < least)
        throw SqlFailure("the sequence kes_ids gives " + std::to_string(block.first) +
                         " after higher numbers; set it beyond all object ids");
    return block;
}

// A parked connection may have broken while nobody used it.
bool PostgresConnection::renew() {
    if (std::exchange(isFresh, false) || transaction != Transaction::None || link.isAlive())
        return false;
    endTransaction("the connection broke");
    dropped.clear();
    blocks.clear();
    link.renew();
    setUp();
    return true;
}

}  // namespace Kes::sql
