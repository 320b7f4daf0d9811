// The part of the statement that deals with posted writes.

#include <mysql.h>

#include <algorithm>
#include <memory>
#include <optional>

#include "drivers/common/SqlFailure.h"
#include "drivers/mariadb/MariadbStatement.h"
#include "drivers/mariadb/MariadbTrace.h"

namespace Kes::sql {

namespace {

// What one packet holds: bytes, a quarter of what servers take by default, and rows. A
// run that fails is sent again row by row, so it must not be without end.
constexpr std::size_t LongestPosts = std::size_t{4} << 20;
constexpr std::size_t MostPosts = 50000;

}  // namespace

long MariadbStatement::sendOne(const std::vector<MariadbValue>& values) {
    try {
        execute(values);
    } catch (const SqlFailure& failure) {
        connection.noteFailure(failure);
        throw;
    }
    const auto written = static_cast<long>(mysql_stmt_affected_rows(handle));
    if (!fields.empty())
        mysql_stmt_free_result(handle);
    return written;
}

void MariadbStatement::post(std::size_t ticket, long least) {
    if (mostPosted() == 0 || parameters.empty())
        return Statement::post(ticket, least);
    connection.makeWayToWrite(this);
    try {
        checkSize(parameters);
    } catch (const SqlFailure& failure) {
        connection.noteFailure(failure);
        throw PostFailure(ticket, failure);
    }
    std::size_t size = PacketOverhead;
    for (const MariadbValue& value : parameters)
        size += value.packed();
    // Half: a statement for many rows repeats their ids.
    const std::size_t most = std::min(LongestPosts, connection.largestPacket() / 2);
    if (posts.count() != 0 &&
        (posts.size() + size > most || posts.count() == mostPosted() || !posts.accepts(parameters)))
        sendPosts();
    connection.posting = this;
    posts.add(parameters, ticket, least);
}

void MariadbStatement::dropPosts() {
    posts.clear();
    if (connection.posting == this)
        connection.posting = nullptr;
}

void MariadbStatement::sendPosts() {
    if (posts.count() == 0)
        return;
    connection.posting = nullptr;
    try {
        connection.makeWayToWrite(this);
        if (posts.count() == 1)
            sendPost(0);
        else
            sendAll();
    } catch (...) {
        posts.clear();
        throw;
    }
    posts.clear();
}

void MariadbStatement::sendPost(std::size_t position) {
    const std::size_t ticket = posts.ticket(position);
    long written = 0;
    try {
        written = sendOne(posts.row(position));
    } catch (const SqlFailure& failure) {
        throw PostFailure(ticket, failure);
    }
    if (written >= posts.least(position))
        return;
    connection.noteFailure(
        SqlFailure("somebody else has changed or removed an object", FailureKind::Conflict));
    throw PostFailure(ticket);
}

// The server does not say which of many rows it refused, or did not find. They
// are taken back then, and sent again one by one. Where any number will do, only
// what ends the transaction can fail, and the mark would cost a round trip.
void MariadbStatement::sendAll() {
    const bool isMarked = posts.least() != 0;
    if (isMarked)
        connection.mark();
    std::optional<SqlFailure> cause;
    try {
        if (sendMany() >= posts.least())
            return;
        cause.emplace("too few rows were written", FailureKind::Conflict);
    } catch (const SqlFailure& failure) {
        cause.emplace(failure);
    }
    if (!isMarked)
        connection.noteFailure(*cause);
    if (!isMarked || !connection.backToMark())
        throw PostFailure(posts.ticket(0),
                          "this object, or one of the " + std::to_string(posts.count() - 1) +
                              " written together with it: " + cause->what(),
                          0, cause->kind);
    for (std::size_t i = 0; i < posts.count(); ++i)
        sendPost(i);
}

std::size_t MariadbStatement::mostPosted() const {
    return connection.takesBulk() || many.most() != 0 ? MostPosts : 0;
}

long MariadbStatement::sendMany() {
    if (connection.takesBulk())
        return sendArrays();
    long written = 0;
    for (std::size_t begin = 0; begin < posts.count(); begin += many.most())
        written += sendTogether(begin, std::min(many.most(), posts.count() - begin));
    return written;
}

long MariadbStatement::sendArrays() {
    if (generation != connection.currentGeneration())
        prepare();
    std::vector<MYSQL_BIND> binds;
    posts.bind(binds);
    auto count = static_cast<unsigned>(posts.count());
    const auto begun = MariadbConnection::Clock::now();
    const bool done = mysql_stmt_attr_set(handle, STMT_ATTR_ARRAY_SIZE, &count) == 0 &&
                      mysql_stmt_bind_param(handle, binds.data()) == 0 &&
                      mysql_stmt_execute(handle) == 0;
    if (connection.isTraced())
        connection.write(expanded(sql, posts, 0, posts.count()), begun);
    count = 0;
    mysql_stmt_attr_set(handle, STMT_ATTR_ARRAY_SIZE, &count);
    if (!done)
        connection.fail(handle);
    connection.noteUse();
    connection.checkTransaction();
    return static_cast<long>(mysql_stmt_affected_rows(handle));
}

// Prepared and executed in one round trip, for it will hardly come again.
long MariadbStatement::sendTogether(std::size_t begin, std::size_t count) {
    const std::string text = many.text(count);
    const std::vector<MariadbMany::Place> places = many.places(count);
    std::vector<MariadbValue> values;
    values.reserve(places.size());
    for (const MariadbMany::Place& place : places)
        values.push_back(posts.value(begin + place.row, place.parameter));
    std::vector<MYSQL_BIND> binds(values.size(), MYSQL_BIND());
    for (std::size_t i = 0; i < values.size(); ++i)
        values[i].bind(binds[i]);
    const std::unique_ptr<MYSQL_STMT, decltype(&mysql_stmt_close)> together(
        mysql_stmt_init(connection.client()), mysql_stmt_close);
    const auto number = static_cast<unsigned>(values.size());
    const auto begun = MariadbConnection::Clock::now();
    const bool done = mysql_stmt_attr_set(together.get(), STMT_ATTR_PREBIND_PARAMS, &number) == 0 &&
                      mysql_stmt_bind_param(together.get(), binds.data()) == 0 &&
                      mariadb_stmt_execute_direct(together.get(), text.data(), text.size()) == 0;
    if (connection.isTraced())
        connection.write(expanded(sql, posts, begin, count), begun);
    if (!done)
        connection.fail(together.get());
    connection.noteUse();
    connection.checkTransaction();
    return static_cast<long>(mysql_stmt_affected_rows(together.get()));
}

}  // namespace Kes::sql
