#include "drivers/postgres/PostgresWire.h"

#include <libpq-fe.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <ostream>

#include "drivers/postgres/PostgresSocket.h"

namespace Kes::sql {

namespace {

constexpr int Binary = 1;                   // the protocol's number for it
constexpr int OldestServer = 150000;        // the oldest that the tests run on
constexpr std::size_t LongestTrace = 2000;  // bytes of a statement

// Bytes. The server works on what it has while the rest is put together. A guess: less
// means more calls of the system, more lets the server wait.
constexpr std::size_t MostUnsent = 65536;

// Messages of the client library have several lines.
std::string onOneLine(const char* words) {
    std::string line;
    for (const char* c = words; c != nullptr && *c != '\0'; ++c) {
        const bool isBlank = *c == '\n' || *c == '\t' || *c == ' ';
        if (!isBlank)
            line += *c;
        else if (!line.empty() && line.back() != ' ')
            line += ' ';
    }
    while (!line.empty() && line.back() == ' ')
        line.pop_back();
    return line;
}

std::string fieldOf(const pg_result* result, int code) {
    const char* text = PQresultErrorField(result, code);
    return text != nullptr ? text : "";
}

std::string milliseconds(long limit) {
    return std::to_string(limit) + " ms";
}

// That many values are binary. Null for more than the protocol can count.
const int* binary(int count) {
    static const std::vector<int> formats(65535, Binary);
    return count <= 65535 ? formats.data() : nullptr;
}

bool says(const std::string& words, const char* part) {
    return words.find(part) != std::string::npos;
}

}  // namespace

void FreeResult::operator()(pg_result* result) const {
    PQclear(result);
}

PostgresWire::PostgresWire(const PostgresSource& source, const PostgresLimits& itsLimits)
    : limits(itsLimits) {
    std::vector<const char*> keywords;
    std::vector<const char*> values;
    for (const auto& [keyword, value] : source.parameters) {
        keywords.push_back(keyword.c_str());
        values.push_back(value.c_str());
    }
    keywords.push_back(nullptr);
    values.push_back(nullptr);
    connection = PQconnectdbParams(keywords.data(), values.data(), 1);
    try {
        greet();
    } catch (...) {
        PQfinish(connection);
        throw;
    }
}

PostgresWire::~PostgresWire() {
    PQfinish(connection);
}

void PostgresWire::greet() {
    if (PQstatus(connection) != CONNECTION_OK)
        throw SqlFailure(explainRefusal(), kindOfRefusedOpen());
    check();
    PQsetNoticeReceiver(connection, hearNotice, this);
    PQenterPipelineMode(connection);

    // The client library would wait without end.
    PQsetnonblocking(connection, 1);
}

// Somebody may have ended the wait for the standby; the commit is told as done.
void PostgresWire::hearNotice(void* wire, const pg_result* notice) {
    if (fieldOf(notice, PG_DIAG_SOURCE_FUNCTION) == "SyncRepWaitForLSN")
        static_cast<PostgresWire*>(wire)->unreplicated = true;
}

int PostgresWire::process() const {
    return PQbackendPID(connection);
}

void PostgresWire::check() const {
    if (PQserverVersion(connection) < OldestServer)
        throw SqlFailure("the server is too old: it is version " +
                         std::string(PQparameterStatus(connection, "server_version")) +
                         ", and 15 or later is needed");
    const char* encoding = PQparameterStatus(connection, "server_encoding");
    if (encoding == nullptr || std::strcmp(encoding, "UTF8") != 0)
        throw SqlFailure("the database keeps texts as " +
                         std::string(encoding != nullptr ? encoding : "an unknown encoding") +
                         ", which cannot hold every text; make one with the encoding UTF8");
}

std::string PostgresWire::explainRefusal() const {
    std::string words =
        connection != nullptr ? onOneLine(PQerrorMessage(connection)) : "out of memory";
    if (PQconnectionNeedsPassword(connection) != 0)
        return words + "; the server asks for a password and none was given";
    if (says(words, "authentication failed"))
        return words + "; check the user and the password";
    if (says(words, "could not translate host name"))
        return words + "; check the name of the host";
    if (says(words, "Connection refused") || says(words, "No such file or directory"))
        return words + "; check the host and the port, and that the server runs";
    if (says(words, "timeout expired"))
        return words + "; check the host and the port, or allow more with connect_timeout";
    return words;
}

// What time, or another host, may mend.
FailureKind PostgresWire::kindOfRefusedOpen() const {
    const std::string words = PQerrorMessage(connection);
    for (const char* part : {"Connection refused", "No such file or directory", "timeout expired",
                             "starting up", "shutting down", "closed the connection"})
        if (says(words, part))
            return FailureKind::LostConnection;
    return FailureKind::Unclassified;
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

// Somebody else came first. A lock that others hold too long is no proof that
// they have changed what was read.
FailureKind PostgresWire::kindOf(const pg_result* result) const {
    const std::string state = fieldOf(result, PG_DIAG_SQLSTATE);
    if (state == "25P02" && !refusalWords.empty())
        return kindOfRefusal;
    return state == "40001" || state == "40P01" ? FailureKind::Conflict : FailureKind::Unclassified;
}

std::string PostgresWire::explain(const pg_result* result) const {
    const std::string state = fieldOf(result, PG_DIAG_SQLSTATE);
    std::string words = fieldOf(result, PG_DIAG_MESSAGE_PRIMARY);
    const std::string detail = onOneLine(PQresultErrorField(result, PG_DIAG_MESSAGE_DETAIL));
    if (words.empty())
        return onOneLine(PQresultErrorMessage(result));
    if (state == "40001" || state == "40P01")
        return "somebody else has changed the same objects at the same time (" + words +
               "); refresh them and try again";
    if (!detail.empty())
        words += " (" + detail + ")";
    if (state == "55P03")
        return "somebody else has locked it (" + words + " after " + milliseconds(limits.lock) +
               "); try again, or open with a larger lock_timeout";
    if (state == "57014" && limits.statement.has_value() && *limits.statement > 0)
        return words + "; it took longer than the statement_timeout of " +
               milliseconds(*limits.statement);
    if (state == "25P02")
        return "an earlier statement of the transaction has failed" +
               (refusalWords.empty() ? "" : " (" + refusalWords + ")") +
               "; roll it back and try again";
    if (state == "25006")
        return explainReadOnly(words);
    if (says(words, "serializable mode in a hot standby"))
        return words + "; open it with isolation=repeatable read";
    if (state == "54000" && says(words, "index row"))
        return words +
               "; an index holds texts of some 2700 bytes, more where they can be "
               "compressed: shorten the text, or drop the index";
    if (state == "53100")
        return words + "; make room and try again";
    return words;
}

std::string PostgresWire::explainReadOnly(const std::string& words) const {
    const char* standby = PQparameterStatus(connection, "in_hot_standby");
    if (standby == nullptr || std::strcmp(standby, "on") != 0)
        return words + "; the server, the database or the account is set up for reading only";
    return "the server is a standby, which can only be read (" + words +
           "); to write, name the primary's host in the source too and open with "
           "target_session_attrs=read-write";
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
