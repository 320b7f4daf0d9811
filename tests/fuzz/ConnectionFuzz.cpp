// The texts of an open: each driver's own reading of them, without a server.
//
// The first line is the driver, then come source, user, password and options.

#include <memory>

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

void readOptions(const Texts& texts) {
    const Options options(texts.options, {"a", "number", "choice", "flag"});
    static_cast<void>(options.getText("a", ""));
    demand(options.getNumber("number", -5, 5, 0) <= 5, "a number out of its range");
    demand(!options.getChoice("choice", {"one", "two"}, "one").empty(), "no choice");
    static_cast<void>(options.getBool("flag", false));
}

// In memory whatever the source says: a file of that name is none of the case's.
void openSqlite(const Texts& texts) {
    const std::unique_ptr<Kes::DBDriver> driver(Kes::DBDriverManager::getDBDriver("sqlite"));
    demand(driver != nullptr, "no SQLite driver");
    if (driver->open(":memory:", texts.password.c_str(), texts.user.c_str(), texts.options.c_str()))
        driver->close();
    else
        demand(driver->getErrorMessage().size() > 0, "a refusal without words");
}

#ifdef KES_FUZZ_MARIADB
void readMariadb(const Texts& texts) {
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
void readPostgres(const Texts& texts) {
    static_cast<void>(Kes::sql::PostgresSource::shown(texts.source));
    const Kes::sql::PostgresSource source(texts.source, texts.password, texts.user, texts.options);
    for (const auto& [key, value] : source.parameters)
        demand(!key.empty(), "a parameter without a name");
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
    }
    try {
        read(texts);
    } catch (const SqlFailure& refused) {
        demand(*refused.what() != '\0', "a refusal without words");
    }
    return 0;
}
