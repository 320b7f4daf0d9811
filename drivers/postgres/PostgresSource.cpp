#include "drivers/postgres/PostgresSource.h"

#include <libpq-fe.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "drivers/common/Options.h"
#include "drivers/common/SqlFailure.h"

namespace Kes::sql {

namespace {

struct FreeParameters {
    void operator()(PQconninfoOption* list) const { PQconninfoFree(list); }
};
using ParameterList = std::unique_ptr<PQconninfoOption, FreeParameters>;

bool isUrl(const std::string& source) {
    return source.starts_with("postgresql://") || source.starts_with("postgres://");
}

// Anything else is the name of a database.
bool isConnectionText(const std::string& source) {
    return isUrl(source) || source.find('=') != std::string::npos;
}

// Whether the last @ ends a password that holds the question mark, rather than being
// part of a parameter's value: so it does where nothing else ends what a colon has
// begun, or where a path follows.
bool endsPassword(const std::string& source, std::size_t question, bool isOpen) {
    const std::size_t at = source.rfind('@');
    return at != std::string::npos && at > question &&
           (isOpen || source.find('/', at) != std::string::npos);
}

// Parameters that something else than blanks separates are one value to the library.
bool isWronglySeparated(const std::string& source) {
    return source.find(";password") != std::string::npos ||
           source.find(",password") != std::string::npos ||
           source.find("&password") != std::string::npos;
}

// A text that holds a password in a place where the library looks for something
// else: behind an @ or a / that a URL had to write otherwise, or in what it takes
// for the name of a database or of a host. It shows all of them in its messages.
bool mayShowPassword(const std::string& source) {
    if (!isConnectionText(source))
        return source.find('@', std::min(source.find(':'), source.size())) != std::string::npos;
    if (!isUrl(source))
        return isWronglySeparated(source);
    const std::size_t begin = source.find("://") + 3;
    const std::size_t end = source.find_first_of("@/", begin);
    if (end == std::string::npos)
        return false;
    const std::size_t next = source.find_first_of("@?", end + 1);
    if (next == std::string::npos || source[next] == '@')
        return next != std::string::npos;
    return endsPassword(source, next, source[end] == '/' && source.find(':', begin) < end);
}

// Null with the library's words for a text that it cannot read.
ParameterList parse(const std::string& source, std::string& words) {
    char* error = nullptr;
    ParameterList list(PQconninfoParse(source.c_str(), &error));
    if (error != nullptr)
        words = error;
    PQfreemem(error);
    while (!words.empty() && words.back() == '\n')
        words.pop_back();
    return list;
}

std::string valueOf(const PQconninfoOption* list, const std::string& keyword) {
    for (const PQconninfoOption* each = list; each != nullptr && each->keyword != nullptr; ++each)
        if (keyword == each->keyword && each->val != nullptr)
            return each->val;
    return "";
}

// What seems to be a name may be the rest of a password that nobody has quoted.
bool mayHoldPassword(const std::string& source) {
    const std::size_t at = isUrl(source) ? source.rfind('@') : std::string::npos;
    const bool isInUrl = at != std::string::npos && source.find(':', source.find("://") + 3) < at;
    return isInUrl || source.find("password") != std::string::npos;
}

// The library quotes what it cannot read, which may be a part of a password.
// Only the name of an unknown parameter is fit to be shown.
void demandReadable(const std::string& source) {
    if (mayShowPassword(source))
        throw SqlFailure(
            "the source cannot be read as a connection text; write "
            "postgresql://host:port/database, with %40 for an @ and %2F for a / that are part of "
            "something, and give the password by itself");
    std::string words;
    if (!isConnectionText(source) || parse(source, words) != nullptr)
        return;
    const bool isAboutName =
        !mayHoldPassword(source) && (words.find("invalid connection option") == 0 ||
                                     words.find("invalid URI query parameter") == 0);
    throw SqlFailure("the source cannot be read" +
                     (isAboutName ? ": " + words : std::string(" as a connection text")) +
                     "; write postgresql://host:port/database, or key=value pairs with blanks "
                     "between them and values with blanks in single quotes");
}

// Parameters of the client library that an option may set. The encoding is the
// driver's own, and a replication connection is none for tables.
std::vector<std::string> libraryKeys() {
    std::vector<std::string> keys;
    const ParameterList known(PQconndefaults());
    for (const PQconninfoOption* each = known.get(); each != nullptr && each->keyword != nullptr;
         ++each) {
        const std::string key = each->keyword;
        if (key != "client_encoding" && key != "replication")
            keys.push_back(key);
    }
    return keys;
}

}  // namespace

PostgresSource::PostgresSource(const std::string& source, const std::string& password,
                               const std::string& user, const std::string& optionText) {
    const std::vector<std::string> passedOn = libraryKeys();
    std::vector<std::string> known{"schema",          "statement_timeout", "lock_timeout",
                                   "network_timeout", "isolation",         "pooler"};
    known.insert(known.end(), passedOn.begin(), passedOn.end());
    const Options options(optionText, known);
    constexpr long longest = 2147483647;
    if (options.has("statement_timeout"))
        limits.statement = options.getNumber("statement_timeout", 0, longest, 0);
    limits.lock = options.getNumber("lock_timeout", 0, longest, limits.lock);
    limits.network = 1000 * options.getNumber("network_timeout", 0, 86400, 0);
    const std::string between =
        options.getChoice("pooler", {"none", "session", "transaction"}, "none");
    pooler = between == "none"      ? Pooler::None
             : between == "session" ? Pooler::Session
                                    : Pooler::Transaction;
    schema = options.getText("schema", "");
    isolation = options.getChoice(
        "isolation", {"read committed", "repeatable read", "serializable"}, "read committed");
    demandReadable(source);

    // Of two values the last one counts; the source is the first name of a
    // database, the one that is taken apart.
    if (std::getenv("PGCONNECT_TIMEOUT") == nullptr)
        parameters.emplace_back("connect_timeout", "10");
    parameters.emplace_back("fallback_application_name", "kes");
    parameters.emplace_back("dbname", source);
    if (!user.empty())
        parameters.emplace_back("user", user);
    if (!password.empty())
        parameters.emplace_back("password", password);
    for (const std::string& key : passedOn)
        if (options.has(key))
            parameters.emplace_back(key, options.getText(key, ""));
    parameters.emplace_back("client_encoding", "UTF8");
}

std::string PostgresSource::shown(const std::string& source) {
    if (mayShowPassword(source))
        return "postgresql://...";
    if (!isConnectionText(source))
        return source;
    std::string ignored;
    const ParameterList list = parse(source, ignored);
    if (list == nullptr)
        return "postgresql://...";
    const std::string user = valueOf(list.get(), "user");
    const std::string host = valueOf(list.get(), "host");
    const std::string address = valueOf(list.get(), "hostaddr");
    const std::string port = valueOf(list.get(), "port");
    return "postgresql://" + user + (user.empty() ? "" : "@") + (host.empty() ? address : host) +
           (port.empty() ? "" : ":" + port) + "/" + valueOf(list.get(), "dbname");
}

}  // namespace Kes::sql
