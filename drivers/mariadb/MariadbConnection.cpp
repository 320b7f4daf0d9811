#include "drivers/mariadb/MariadbConnection.h"

#include <mysql.h>
#include <mysqld_error.h>

#include <ostream>
#include <thread>
#include <utility>

#include "drivers/mariadb/MariadbStatement.h"

namespace Kes::sql {

namespace {

// With the pauses below they take nearly half a second. Each try that fails is one of
// another program that has succeeded.
constexpr int MostTriesForIds = 100;

}  // namespace

// The server takes no larger statement; it sends larger rows.
SizeLimit MariadbConnection::sizeLimit() const {
    SizeLimit limit;
    if (packetLimit != 0)
        limit = {packetLimit, "the server's max_allowed_packet",
                 "raise that and open again, or make them smaller", true};
    return limit;
}

std::unique_ptr<Statement> MariadbConnection::prepare(const std::string& text) {
    return std::make_unique<MariadbStatement>(*this, text);
}

// Statements that change the schema, which commit by themselves.
void MariadbConnection::execute(const std::string& text) {
    makeWayToWrite(nullptr);
    isDivided = inside;
    send(text);
}

// For statements whose failure leaves nothing to decide.
bool MariadbConnection::sendUnchecked(const std::string& text) {
    const auto begun = Clock::now();
    const bool done = mysql_real_query(handle, text.data(), text.size()) == 0;
    if (isTraced())
        write(text, begun);
    return done;
}

void MariadbConnection::send(const std::string& text) {
    if (!sendUnchecked(text))
        fail();
    checkTransaction();
}

void MariadbConnection::write(const std::string& text, Clock::time_point begun) const {
    const std::chrono::duration<double, std::milli> spent = Clock::now() - begun;
    *trace << "mariadb: " << text << " [" << spent.count() << " ms]\n";
}

void MariadbConnection::makeWay(MariadbStatement* user) {
    checkUse();
    isFresh = false;
    if (posting != nullptr && posting != user)
        posting->sendPosts();
    if (streaming != nullptr)
        streaming->stepAside();
    releaseSnapshot();
    if (std::exchange(isInDoubt, false) && inside && !isGone)
        askForTransaction();
    checkUse();
}

void MariadbConnection::makeWayToWrite(MariadbStatement* user) {
    if (failed.has_value())
        throw SqlFailure(*failed);
    makeWay(user);
}

void MariadbConnection::awaitPosts() {
    if (posting != nullptr)
        posting->sendPosts();
}

void MariadbConnection::beginSchema() {
    takeSchemaLock();
    isSchema = true;
    begin();
}

void MariadbConnection::takeSchemaLock() {
    const std::unique_ptr<Statement> waiting =
        prepare("SELECT GET_LOCK(CONCAT('kes ', MD5(DATABASE())), ?)");
    waiting->bind(0, std::int64_t{settings.lockSeconds()});
    if (!waiting->step() || waiting->integer(0) != 1)
        throw SqlFailure(
            "another program changes the schema; wait for it and open again, or open "
            "with a larger lock_timeout");
}

void MariadbConnection::releaseSchemaLock() {
    prepare("SELECT RELEASE_LOCK(CONCAT('kes ', MD5(DATABASE())))")->step();
}

// A lock goes with its connection too.
void MariadbConnection::endSchema() {
    if (std::exchange(isSchema, false) && !lost.has_value())
        releaseSchemaLock();
}

// A parked connection may have broken while nobody used it.
bool MariadbConnection::renew() {
    if (isFresh || (!lost.has_value() && streaming == nullptr && mysql_ping(handle) == 0))
        return false;
    if (!lost.has_value() && streaming != nullptr)
        return false;
    mysql_close(handle);
    handle = nullptr;
    second.reset();
    ++generation;
    connect();
    lost.reset();
    isInDoubt = false;
    return true;
}

// Ids are taken by a statement that commits by itself: while a transaction
// held the row, nobody else could take any, and on a cluster the transaction
// would fail whenever another node takes some.
IdBlock MariadbConnection::takeIds(unsigned long least, unsigned long count) {
    return inside ? aside().advanceIds(least, count) : advanceIds(least, count);
}

MariadbConnection& MariadbConnection::aside() {
    if (second == nullptr || second->lost.has_value())
        second = std::make_unique<MariadbConnection>(settings);
    second->traceTo(trace);
    return *second;
}

IdBlock MariadbConnection::advanceIds(unsigned long least, unsigned long count) {
    const std::string text = "UPDATE kes_ids SET next = LAST_INSERT_ID(GREATEST(next, " +
                             std::to_string(least) + ")) + " + std::to_string(count) +
                             " WHERE id = 1";
    makeWay(nullptr);
    for (int tries = 1; !sendUnchecked(text); ++tries) {
        const unsigned code = mysql_errno(handle);
        if (clustered && code == ER_ERROR_DURING_COMMIT)
            failAlone(code, mysql_error(handle));
        if (classify(code) != MariadbFault::Conflict || tries == MostTriesForIds)
            fail();
        std::this_thread::sleep_for(std::chrono::milliseconds(tries % 10));
    }
    if (mysql_affected_rows(handle) != 1)
        throw SqlFailure("the table kes_ids has not exactly one row; mend it");
    const auto first = static_cast<unsigned long>(mysql_insert_id(handle));
    return {first, first + count, false};
}

}  // namespace Kes::sql
