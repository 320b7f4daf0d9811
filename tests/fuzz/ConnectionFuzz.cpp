// The texts of an open: each driver's own reading of them, without a server.
//
// The first line is the driver, then come source, user, password and options. They
// are read as they are, and as parts of texts whose meaning is known.

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include <kes/DBDriver.h>
#include <kes/DBDriverManager.h>

#include "drivers/common/Options.h"
#include "drivers/common/SqlFailure.h"
#include "tests/fuzz/Input.h"
#ifdef KES_FUZZ_MARIADB
#include "drivers/mariadb/MariadbSettings.h"
#endif
#ifdef KES_FUZZ_POSTGRES
#include "drivers/postgres/PostgresSource.h"
#endif

using Kes::fuzz::demand;
using Kes::fuzz::Input;
using Kes::sql::Options;
using Kes::sql::SqlFailure;

namespace {

struct Texts {
    std::string source;
    std::string user;
    std::string password;
    std::string options;
};

using Values = std::map<std::string, std::string>;

std::string without(std::string text, const char* characters) {
    const std::string left = characters;
    std::erase_if(text, [&](char c) { return left.find(c) != std::string::npos; });
    return text;
}

std::string trimmed(const std::string& text) {
    const auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    auto first = std::find_if_not(text.begin(), text.end(), isBlank);
    auto last = std::find_if_not(text.rbegin(), text.rend(), isBlank).base();
    return first < last ? std::string(first, last) : "";
}

// What the text says of the names; nothing for one that has to be refused.
std::optional<Values> plainly(const std::string& text, const std::vector<std::string>& names) {
    Values values;
    std::string part;
    for (const char c : text + ';') {
        if (c != ';') {
            part += c;
            continue;
        }
        const std::size_t equals = part.find('=');
        const std::string name = trimmed(part.substr(0, equals));
        const bool isNamed = std::find(names.begin(), names.end(), name) != names.end();
        if (!trimmed(part).empty() && (equals == std::string::npos || !isNamed))
            return std::nullopt;
        if (!trimmed(part).empty() &&
            !values.emplace(name, trimmed(part.substr(equals + 1))).second)
            return std::nullopt;
        part.clear();
    }
    return values;
}

// A whole number as people write it, of few enough digits.
std::optional<long> numberOf(const std::string& text) {
    const std::size_t sign = !text.empty() && text[0] == '-' ? 1 : 0;
    if (text.size() == sign || text.size() > 18 ||
        text.find_first_not_of("0123456789", sign) != std::string::npos)
        return std::nullopt;
    return std::stol(text);
}

bool isOneOf(std::string text, const std::vector<std::string>& choices) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c | 32) : c; });
    return std::find(choices.begin(), choices.end(), text) != choices.end();
}

const std::vector<std::string> Truths{"true", "yes", "on", "1", "false", "no", "off", "0"};

template <class Work>
bool isRefused(Work work) {
    try {
        work();
        return false;
    } catch (const SqlFailure& refused) {
        demand(*refused.what() != '\0', "a refusal without words");
        return true;
    }
}

// The number of leading zeros is nobody's business; that of digits is.
bool fits(const std::string& text, long least, long most) {
    const std::optional<long> number = numberOf(text);
    return number.has_value() && *number >= least && *number <= most;
}

void readOptions(const Texts& texts) {
    const std::vector<std::string> names{"a", "number", "choice", "flag"};
    const std::optional<Values> values = plainly(texts.options, names);
    demand(isRefused([&] { Options(texts.options, names); }) != values.has_value(),
           "options that are refused or taken wrongly");
    if (!values)
        return;
    const Options options(texts.options, names);
    const auto said = [&](const char* name) { return values->count(name) != 0; };
    for (const std::string& name : names)
        demand(options.has(name) == said(name.c_str()), "an option too few or too many");
    demand(options.getText("a", "none") == (said("a") ? values->at("a") : "none"), "another text");

    long number = 3;
    const bool isNoNumber = isRefused([&] { number = options.getNumber("number", -5, 5, 3); });
    const bool shouldFit = !said("number") || fits(values->at("number"), -5, 5);
    // Longer ones are small when they begin with zeros.
    if (!said("number") || values->at("number").size() <= 18)
        demand(isNoNumber != shouldFit, "a number out of its range, or one refused within");
    if (!isNoNumber)
        demand(number >= -5 && number <= 5, "a number out of its range");

    const bool isNoChoice = isRefused([&] {
        static_cast<void>(options.getChoice("choice", {"one", "two"}, "one"));
    });
    demand(isNoChoice == (said("choice") && !isOneOf(values->at("choice"), {"one", "two"})),
           "a choice that is none");

    bool flag = false;
    const bool isNoFlag = isRefused([&] { flag = options.getBool("flag", true); });
    demand(isNoFlag == (said("flag") && !isOneOf(values->at("flag"), Truths)), "neither yes or no");
    if (!isNoFlag)
        demand(flag == (!said("flag") ||
                        isOneOf(values->at("flag"), {Truths.begin(), Truths.begin() + 4})),
               "no for yes");
}

bool isMode(const std::string& text) {
    if (text.empty())
        return true;
    const std::size_t zeros = std::min(text.find_first_not_of('0'), text.size());
    const std::string digits = text.substr(zeros);
    return digits.size() == 3 && digits.find_first_not_of("01234567") == std::string::npos &&
           digits[0] >= '6';
}

// Whether a database in memory can be opened so. Nothing where it depends on how
// much room the driver's own tables take.
std::optional<bool> isFitForSqlite(const std::string& text) {
    const std::map<std::string, std::vector<std::string>> choices{
        {"create", Truths},
        {"readonly", Truths},
        {"uri", Truths},
        {"journal_mode", {"wal", "delete", "truncate", "persist", "memory", "off"}},
        {"synchronous", {"off", "normal", "full", "extra"}},
        {"secure_delete", {"on", "off", "fast"}}};
    const std::map<std::string, long> numbers{{"busy_timeout", 86400000},
                                              {"cache_size", 1L << 30},
                                              {"mmap_size", 1L << 30},
                                              {"max_page_count", 1L << 32}};
    std::vector<std::string> names{"mode"};
    for (const auto& [name, allowed] : choices)
        names.push_back(name);
    for (const auto& [name, most] : numbers)
        names.push_back(name);
    const std::optional<Values> values = plainly(text, names);
    if (!values)
        return false;
    const auto isSaid = [&](const char* name, const std::vector<std::string>& what) {
        return values->count(name) != 0 && isOneOf(values->at(name), what);
    };
    const std::vector<std::string> yes(Truths.begin(), Truths.begin() + 4);
    for (const auto& [name, value] : *values) {
        if (choices.count(name) != 0 && !isOneOf(value, choices.at(name)))
            return false;
        if (numbers.count(name) != 0 && value.size() > 18)
            return std::nullopt;
        if (numbers.count(name) != 0 && !fits(value, 0, numbers.at(name)))
            return false;
        if (name == "mode" && (!isMode(value) || (!value.empty() && isSaid("uri", yes))))
            return false;
    }
    const bool isReadOnly = isSaid("readonly", yes);
    if (isSaid("journal_mode", {"off"}) && !isReadOnly)
        return false;
    if (isReadOnly || values->count("max_page_count") != 0)
        return std::nullopt;
    return true;
}

// In memory whatever the source says: a file of that name is none of the case's.
void openSqlite(const Texts& texts) {
    const std::unique_ptr<Kes::DBDriver> driver(Kes::DBDriverManager::getDBDriver("sqlite"));
    demand(driver != nullptr, "no SQLite driver");
    const bool isOpen =
        driver->open(":memory:", texts.password.c_str(), texts.user.c_str(), texts.options.c_str());
    const Kes::String words = isOpen ? "" : driver->getErrorMessage();
    if (isOpen)
        driver->close();
    else
        demand(words.size() > 0, "a refusal without words");
    const std::optional<bool> shouldOpen = isFitForSqlite(texts.options);
    demand(!shouldOpen || *shouldOpen == isOpen,
           isOpen ? "options that should be refused" : static_cast<const char*>(words));
}

const std::string Secret = "s3CReT";

[[maybe_unused]] void demandHidden(const std::string& shown, const char* where) {
    demand(shown.find(Secret) == std::string::npos, std::string(where) + " shows " + shown);
}

template <class Work>
bool isRefusedWithoutSecret(Work work) {
    try {
        work();
        return false;
    } catch (const SqlFailure& refused) {
        demandHidden(refused.what(), "a refusal");
        return true;
    }
}

[[maybe_unused]] std::string withSecret(const Texts& texts) {
    return texts.password + Secret + texts.options;
}

#ifdef KES_FUZZ_MARIADB
// The parts may be anything that the form has room for.
void readMariadbParts(const Texts& texts) {
    const std::string host = without(texts.source, "/,:@[]");
    const std::string database = without(texts.options, "/@");
    const std::string user = without(texts.user, ":@/");
    const unsigned port = static_cast<unsigned>(texts.source.size() * 251 % 66000);
    const std::string source = (texts.password.size() % 2 == 0 ? "mariadb://" : "") +
                               (user.empty() ? "" : user + "@") + host + ":" +
                               std::to_string(port) + ",/run/a.sock,[::1]/" + database;
    const bool isWhole = !host.empty() && !database.empty() && port > 0 && port < 65536 &&
                         !Kes::sql::namesPassword(source);
    Kes::sql::MariadbSettings settings;
    demand(isRefused([&] { settings.readSource(source); }) != isWhole, "wrong about " + source);
    if (!isWhole)
        return;
    demand(settings.hosts.size() == 3 && settings.hosts[0].name == host &&
               settings.hosts[0].port == port && settings.hosts[1].socket == "/run/a.sock" &&
               settings.hosts[2].name == "::1" && settings.hosts[2].port == 3306,
           "other hosts than in " + source);
    demand(settings.database == database && settings.user == user, "other names than in " + source);
}

void hideMariadb(const Texts& texts) {
    const std::string source = (texts.source.size() % 2 == 0 ? "mariadb://" : "") +
                               without(texts.user, ":@/") + ":" + withSecret(texts) + "@host/db";
    demandHidden(Kes::sql::withoutPassword(source), "the source without its password");
    Kes::sql::MariadbSettings settings;
    demand(isRefusedWithoutSecret([&] { settings.readSource(source); }), "a password is taken");
}

void readMariadb(const Texts& texts) {
    readMariadbParts(texts);
    hideMariadb(texts);
    static_cast<void>(Kes::sql::withoutPassword(texts.source));
    Kes::sql::MariadbSettings settings;
    settings.user = texts.user;
    settings.password = texts.password;
    settings.readSource(texts.source);
    demand(!settings.hosts.empty() && !settings.database.empty(), "no host or no database");
    for (const Kes::sql::MariadbHost& host : settings.hosts)
        demand(!host.text().empty() && host.port > 0 && host.port < 65536, "a host that is none");
}
#endif

#ifdef KES_FUZZ_POSTGRES
using Kes::sql::PostgresSource;

void hidePostgres(const std::string& source, const std::string& options) {
    demandHidden(PostgresSource::shown(source), "the source as it is shown");
    static_cast<void>(
        isRefusedWithoutSecret([&] { const PostgresSource read(source, "", "u", options); }));
}

// Passwords of any form, also where they make the text unreadable. Behind a name
// of its own every word is a value that somebody wanted to be seen.
void hidePostgres(const Texts& texts) {
    hidePostgres(
        "postgresql://" + without(texts.user, ":@/?#[") + ":" + withSecret(texts) + "@host/db", "");
    hidePostgres("host=h password=" + without(texts.password, "=") + Secret + texts.options, "");
    hidePostgres("db", "password=" + without(texts.password, "=;") + Secret + texts.options);
    hidePostgres("db", "password=" + without(texts.password, "=") + Secret + texts.options);
}

std::string valueOf(const PostgresSource& source, const std::string& key) {
    std::string found;
    for (const auto& [each, value] : source.parameters)
        if (each == key)
            found = value;
    return found;
}

void readPostgres(const Texts& texts) {
    hidePostgres(texts);
    static_cast<void>(PostgresSource::shown(texts.source));
    const PostgresSource source(texts.source, texts.password, texts.user, texts.options);
    for (const auto& [key, value] : source.parameters)
        demand(!key.empty(), "a parameter without a name");
    demand(valueOf(source, "client_encoding") == "UTF8", "another encoding");
    demand(source.limits.lock >= 0 && source.limits.network >= 0, "a limit below 0");
    const bool isSimple = texts.options.find('=') == std::string::npos;
    if (isSimple)
        demand(valueOf(source, "user") == texts.user &&
                   valueOf(source, "password") == texts.password &&
                   valueOf(source, "dbname") == texts.source,
               "other texts than were given");
}
#endif

using Reader = void (*)(const Texts&);
const Reader readers[] = {
    readOptions,
    openSqlite,
#ifdef KES_FUZZ_MARIADB
    readMariadb,
#endif
#ifdef KES_FUZZ_POSTGRES
    readPostgres,
#endif
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const Reader read = readers[input.choice(std::size(readers))];
    input.text();
    Texts texts;
    for (std::string* text : {&texts.source, &texts.user, &texts.password, &texts.options}) {
        *text = input.text();
        text->resize(std::strlen(text->c_str()));
        // Where it stands by chance it is nobody's password, also once characters are
        // taken out.
        if (without(*text, ":@/,[]?#=;").find(Secret) != std::string::npos)
            return 0;
    }
    try {
        read(texts);
    } catch (const SqlFailure& refused) {
        demand(*refused.what() != '\0', "a refusal without words");
    }
    return 0;
}
