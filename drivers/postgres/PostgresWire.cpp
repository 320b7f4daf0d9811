#include "drivers/postgres/PostgresWire.h"

#include <libpq-fe.h>

#include <cstdlib>
#include <cstring>
#include <ostream>

namespace Kes::sql {

namespace {

constexpr int Binary = 1;
constexpr int OldestServer = 150000;
constexpr std::size_t LongestTrace = 2000;  // bytes

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

bool says(const std::string& words, const char* part) {
    return words.find(part) != std::string::npos;
}

void ignoreNotice(void*, const char*) {}

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
        throw SqlFailure(explainRefusal());
    check();
    PQsetNoticeProcessor(connection, ignoreNotice, nullptr);
    PQenterPipelineMode(connection);
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
    const std::string words =
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
    lost = true;
    ++session;
    PQreset(connection);
    greet();
    lost = false;
}

// Sending fails without a broken connection when the client library refuses a
// command; it never saw the server then.
void PostgresWire::note(int done, Purpose&& purpose, const std::shared_ptr<Prepared>& prepared) {
    if (done == 0) {
        const std::string words = onOneLine(PQerrorMessage(connection));
        if (PQstatus(connection) != CONNECTION_OK)
            lose(words);
        throw SqlFailure(words);
    }
    sent.push_back({std::move(purpose), prepared, isTracing() ? Clock::now() : Clock::time_point()});
}

void PostgresWire::prepare(const std::shared_ptr<Prepared>& prepared, const std::string& text,
                           const Purpose& purpose) {
    demandConnection();
    const int done =
        PQsendPrepare(connection, prepared->name.c_str(), text.c_str(),
                      static_cast<int>(prepared->types.size()), prepared->types.data());
    note(done, {Wish::Prepare, purpose.ticket, 0, {}, purpose.isPosted}, prepared);
    prepared->session = session;
}

void PostgresWire::execute(const Prepared& prepared, const WireValues& values, Purpose purpose) {
    demandConnection();
    static const std::vector<int> formats(65536, Binary);
    const int count = static_cast<int>(values.values.size());
    const int done = PQsendQueryPrepared(connection, prepared.name.c_str(), count,
                                         values.values.data(), values.sizes.data(),
                                         count <= 65535 ? formats.data() : nullptr, Binary);
    note(done, std::move(purpose));
}

void PostgresWire::execute(const std::string& text, Purpose purpose) {
    demandConnection();
    const int done = PQsendQueryParams(connection, text.c_str(), 0, nullptr, nullptr, nullptr,
                                       nullptr, Binary);
    note(done, std::move(purpose));
}

void PostgresWire::sync() {
    demandConnection();
    note(PQpipelineSync(connection), {Wish::Sync});
}

Result PostgresWire::receive() {
    sync();
    collect();
    if (!failure.has_value())
        return std::move(answer);
    const Failure first = *std::exchange(failure, std::nullopt);
    answer.reset();
    if (!first.isPost)
        throw SqlFailure(first.words);
    if (first.isStale)
        throw PostFailure(first.ticket);
    throw PostFailure(first.ticket, first.words);
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
        Result result(PQgetResult(connection));
        if (command.purpose.wish == Wish::Sync) {
            if (PQresultStatus(result.get()) != PGRES_PIPELINE_SYNC)
                lose(onOneLine(PQerrorMessage(connection)));
            continue;
        }
        if (result == nullptr)
            lose(onOneLine(PQerrorMessage(connection)));

        // A null result ends the command's results; a broken connection adds
        // its own words to those of a server that said good-bye.
        while (Result further{PQgetResult(connection)})
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
        if (purpose.wish == Wish::Courtesy)
            return;
        // What was skipped says nothing; the reason was said before it.
        fail(purpose, false,
             status == PGRES_PIPELINE_ABORTED ? "the database skipped it" : explain(result.get()));
        return;
    }
    if (isTracing() && !purpose.traced.empty())
        writeTrace(command);
    if (purpose.wish == Wish::Answer)
        answer = std::move(result);
    else if (purpose.wish == Wish::Post &&
             std::strtol(PQcmdTuples(result.get()), nullptr, 10) < purpose.least)
        fail(purpose, true, "");
}

void PostgresWire::fail(const Purpose& purpose, bool isStale, const std::string& words) {
    if (failure.has_value())
        return;
    failure = {purpose.isPosted, isStale, purpose.ticket, words};
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
        return "an earlier statement of the transaction has failed; roll it back and try again";
    if (state == "54000" && says(words, "index row"))
        return words + "; an index holds texts of some 2700 bytes, more where they can be "
                       "compressed: shorten the text, or drop the index";
    if (state == "53100")
        return words + "; make room and try again";
    return words;
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
