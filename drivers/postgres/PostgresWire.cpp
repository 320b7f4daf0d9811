#include "drivers/postgres/PostgresWire.h"

#include <libpq-fe.h>

#include <algorithm>
#include <cstdlib>
#include <ostream>

#include "drivers/postgres/PostgresMessages.h"
#include "drivers/postgres/PostgresSocket.h"

namespace Kes::sql {

namespace {

constexpr int Binary = 1;                   // the protocol's number for it
constexpr std::size_t LongestTrace = 2000;  // bytes of a statement

// Bytes. The server works on what it has while the rest is put together. A guess: less
// means more calls of the system, more lets the server wait.
constexpr std::size_t MostUnsent = 65536;

// That many values are binary. Null for more than the protocol can count.
const int* binary(int count) {
    static const std::vector<int> formats(65535, Binary);
    return count <= 65535 ? formats.data() : nullptr;
}

}  // namespace

void FreeResult::operator()(pg_result* result) const {
    PQclear(result);
}

// Somebody may have ended the wait for the standby; the commit is told as done.
void PostgresWire::hearNotice(void* wire, const pg_result* notice) {
    if (fieldOf(notice, PG_DIAG_SOURCE_FUNCTION) == "SyncRepWaitForLSN")
        static_cast<PostgresWire*>(wire)->unreplicated = true;
}

void PostgresWire::demandConnection() const {
    if (lost)
        throw ConnectionLost("the connection to the server was lost before (" + lostWords +
                             "); close the model and open it again");
}

void PostgresWire::lose(const std::string& words) {
    lost = true;
    lostWords = failure.has_value() && !failure->isStale ? failure->words : words;
    sent.clear();
    answer.reset();
    failure.reset();
    throw ConnectionLost("the connection to the server is lost: " + lostWords +
                         "; close the model and open it again");
}

// What has arrived does not tell: behind a server's good-bye the end of the
// stream may be still to come, and a server that is gone for good says nothing.
bool PostgresWire::isAlive() {
    try {
        receive();
    } catch (const ConnectionLost&) {
        return false;
    } catch (const SqlFailure&) {
        return true;
    }
    return true;
}

void PostgresWire::renew() {
    sent.clear();
    answer.reset();
    failure.reset();
    refusalWords.clear();
    unsent = 0;
    lost = true;
    ++session;
    PQreset(connection);
    greet();
    lost = false;
}

// Sending fails without a broken connection when the client library refuses a
// command; it never saw the server then.
void PostgresWire::note(int done, Purpose&& purpose, std::size_t size,
                        const std::shared_ptr<Prepared>& prepared) {
    if (done == 0) {
        const std::string words = onOneLine(PQerrorMessage(connection));
        if (PQstatus(connection) != CONNECTION_OK)
            lose(words);
        throw SqlFailure(words);
    }
    sent.push_back(
        {std::move(purpose), prepared, isTracing() ? Clock::now() : Clock::time_point()});
    unsent += size;
    if (unsent >= MostUnsent)
        flush();
}

// Whoever sends faster than the server reads waits for it here, and does not
// fill memory with what is to be sent.
void PostgresWire::flush() {
    unsent = 0;
    while (PQflush(connection) == 1)
        if (!await(true))
            return;
}

// False when the connection broke; the next result says how. Where the talk is
// encrypted, the client library may hold back what has arrived already, and the
// socket says nothing of it: one that is silent is asked again, at once and then
// less and less often.
bool PostgresWire::await(bool toSend) {
    constexpr int longestPause = 100;  // ms; ten wake-ups a second cost nothing that counts
    const bool mayHoldBack =
        !toSend && (PQsslInUse(connection) != 0 || PQgssEncInUse(connection) != 0);
    const int limit = limits.network > 0 ? static_cast<int>(limits.network) : -1;
    int pause = 0;
    for (int left = limit;; pause = std::min(2 * pause + 1, longestPause)) {
        if (mayHoldBack && (PQconsumeInput(connection) == 0 || PQisBusy(connection) == 0))
            break;
        const int step = mayHoldBack ? std::min(left, pause) : left;
        if (awaitSocket(PQsocket(connection), toSend, step))
            break;
        left -= step;
        if (left <= 0) {
            endTalk(PQsocket(connection));
            lose("the server was silent for " + std::to_string(limits.network / 1000) +
                 " s, the network_timeout");
        }
    }
    return PQconsumeInput(connection) != 0;
}

// The client library's own wait knows what it holds back, and no end.
Result PostgresWire::next() {
    while (PQisBusy(connection) != 0) {
        flush();
        if (limits.network == 0 || !await(false))
            break;
    }
    return Result(PQgetResult(connection));
}

void PostgresWire::prepare(const std::shared_ptr<Prepared>& prepared, const std::string& text,
                           const Purpose& purpose) {
    demandConnection();
    const int done =
        PQsendPrepare(connection, prepared->name.c_str(), text.c_str(),
                      static_cast<int>(prepared->types.size()), prepared->types.data());
    note(done, {Wish::Prepare, purpose.ticket, 0, {}, purpose.isPosted}, text.size(), prepared);
    prepared->session = session;
}

void PostgresWire::execute(const Prepared& prepared, const WireValues& values, Purpose purpose) {
    demandConnection();
    const int count = static_cast<int>(values.values.size());
    const int done =
        PQsendQueryPrepared(connection, prepared.name.c_str(), count, values.values.data(),
                            values.sizes.data(), binary(count), Binary);
    note(done, std::move(purpose), sizeOf(values));
}

std::size_t PostgresWire::sizeOf(const WireValues& values) {
    std::size_t size = 64;
    for (const int each : values.sizes)
        size += static_cast<std::size_t>(each);
    return size;
}

void PostgresWire::execute(const std::string& text, Purpose purpose) {
    execute(text, {}, std::move(purpose));
}

void PostgresWire::execute(const std::string& text, const WireValues& values, Purpose purpose) {
    demandConnection();
    const int count = static_cast<int>(values.values.size());
    const int done =
        PQsendQueryParams(connection, text.c_str(), count, values.types.data(),
                          values.values.data(), values.sizes.data(), binary(count), Binary);
    note(done, std::move(purpose), text.size() + sizeOf(values));
}

void PostgresWire::endBatch() {
    if (!sent.empty() && sent.back().purpose.wish != Wish::Sync)
        sync();
}

void PostgresWire::sync() {
    demandConnection();
    note(PQpipelineSync(connection), {Wish::Sync}, 0);
    unsent = 0;
}

void PostgresWire::settle() {
    endBatch();
    collect();
}

Result PostgresWire::receive() {
    unreplicated = false;
    sync();
    collect();
    if (!failure.has_value())
        return std::move(answer);
    const Failure first = *std::exchange(failure, std::nullopt);
    answer.reset();
    if (!first.isPost)
        throw SqlFailure(first.words, first.kind);
    if (first.isStale)
        throw PostFailure(first.ticket);
    throw PostFailure(first.ticket, first.words, 0, first.kind);
}

void PostgresWire::drain() noexcept {
    try {
        if (!lost && !isSettled())
            receive();
    } catch (const std::exception&) {
        // What failed is what the caller gives up.
    }
}

void PostgresWire::collect() {
    while (!sent.empty()) {
        Sent command = std::move(sent.front());
        sent.pop_front();
        Result result = next();
        if (command.purpose.wish == Wish::Sync) {
            if (PQresultStatus(result.get()) != PGRES_PIPELINE_SYNC)
                lose(onOneLine(PQerrorMessage(connection)));
            const PGTransactionStatusType state = PQtransactionStatus(connection);
            if (state == PQTRANS_IDLE || state == PQTRANS_INTRANS)
                refusalWords.clear();
            continue;
        }
        if (result == nullptr)
            lose(onOneLine(PQerrorMessage(connection)));

        // A null result ends the command's results; a broken connection adds
        // its own words to those of a server that said good-bye.
        while (Result further = next())
            continue;
        if (PQstatus(connection) != CONNECTION_OK)
            lose(onOneLine(PQresultErrorMessage(result.get())));
        digest(command, std::move(result));
    }
}

void PostgresWire::digest(Sent& command, Result result) {
    Purpose& purpose = command.purpose;
    const ExecStatusType status = PQresultStatus(result.get());
    if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK) {
        if (purpose.wish == Wish::Prepare)
            command.prepared->session = 0;
        // What was skipped says nothing; the reason was said before it, perhaps to
        // something that nobody waits for.
        const bool isSkipped = status == PGRES_PIPELINE_ABORTED;
        const std::string words = isSkipped ? refusalWords : explain(result.get());
        const FailureKind kind = isSkipped ? kindOfRefusal : kindOf(result.get());
        if (refusalWords.empty()) {
            refusalWords = words;
            kindOfRefusal = kind;
        }
        if (purpose.wish == Wish::Courtesy)
            return;
        return fail(purpose, false, words, kind);
    }
    if (isTracing() && !purpose.traced.empty())
        writeTrace(command);
    if (purpose.wish == Wish::Answer)
        answer = std::move(result);
    else if (purpose.wish == Wish::Post &&
             std::strtol(PQcmdTuples(result.get()), nullptr, 10) < purpose.least)
        fail(purpose, true, "");
}

void PostgresWire::fail(const Purpose& purpose, bool isStale, const std::string& words,
                        FailureKind kind) {
    if (failure.has_value())
        return;
    failure = {purpose.isPosted, isStale, purpose.ticket, words, kind};
}

void PostgresWire::writeTrace(const Sent& command) {
    const std::chrono::duration<double, std::milli> spent = Clock::now() - command.start;
    const std::string& text = command.purpose.traced;
    *trace << "postgres: " << text.substr(0, LongestTrace);
    if (text.size() > LongestTrace)
        *trace << "... (" << text.size() << " bytes)";
    *trace << " [" << spent.count() << " ms]\n";
}

}  // namespace Kes::sql
