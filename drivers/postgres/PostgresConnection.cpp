#include "drivers/postgres/PostgresConnection.h"

#include <algorithm>
#include <cstdio>
#include <random>
#include <utility>

#include "drivers/common/SqlFailure.h"
#include "drivers/postgres/PostgresCursor.h"

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

void PostgresConnection::forgetDropped() {
    for (const std::shared_ptr<Prepared>& each : std::exchange(dropped, {}))
        if (link.has(*each))
            link.execute("DEALLOCATE " + each->name, {Wish::Courtesy});
}

void PostgresConnection::notePost() {
    if (++posts >= MostPosts)
        receive();
}

void PostgresConnection::awaitPosts() {
    if (!link.isSettled())
        receive();
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
