#include "drivers/postgres/PostgresDriver.h"

#include "drivers/postgres/PostgresConnection.h"
#include "drivers/postgres/PostgresDialect.h"
#include "drivers/postgres/PostgresSource.h"

namespace Kes::sql {

PostgresDriver::PostgresDriver() : SqlDriver(std::make_unique<PostgresDialect>()) {}

std::unique_ptr<Connection> PostgresDriver::connect(const String& source, const String& password,
                                                    const String& user, const String& options) {
    const PostgresSource settings(
        static_cast<const char*>(source), static_cast<const char*>(password),
        static_cast<const char*>(user), static_cast<const char*>(options));
    static_cast<PostgresDialect&>(getDialect())
        .setKeepsSnapshot(settings.isolation == "repeatable read");
    return std::make_unique<PostgresConnection>(settings);
}

std::string PostgresDriver::shownSource(const String& source) const {
    return PostgresSource::shown(static_cast<const char*>(source));
}

}  // namespace Kes::sql
