#include "drivers/mariadb/MariadbDriver.h"

#include "drivers/common/Options.h"
#include "drivers/mariadb/MariadbConnection.h"
#include "drivers/mariadb/MariadbDialect.h"

namespace Kes::sql {

MariadbDriver::MariadbDriver() : SqlDriver(std::make_unique<MariadbDialect>()) {}

std::string MariadbDriver::shownSource(const String& source) const {
    return withoutPassword(static_cast<const char*>(source));
}

std::unique_ptr<Connection> MariadbDriver::connect(const String& source, const String& password,
                                                   const String& user, const String& optionText) {
    const Options options(
        static_cast<const char*>(optionText),
        {"database", "connect_timeout", "network_timeout", "lock_timeout", "statement_timeout",
         "isolation", "causal_reads", "tls", "tls_ca", "tls_cert", "tls_key"});
    MariadbSettings settings;
    settings.user = static_cast<const char*>(user);
    settings.password = static_cast<const char*>(password);
    settings.database = options.getText("database", "");
    settings.readSource(static_cast<const char*>(source));
    settings.connectTimeout =
        options.getNumber("connect_timeout", 1, 3600, settings.connectTimeout);
    settings.networkTimeout =
        options.getNumber("network_timeout", 0, 86400, settings.networkTimeout);
    settings.lockTimeout = options.getNumber("lock_timeout", 0, 86400000, settings.lockTimeout);
    settings.statementTimeout =
        options.getNumber("statement_timeout", 0, 86400000, settings.statementTimeout);
    settings.isolation = options.getChoice(
        "isolation", {"read committed", "repeatable read", "serializable"}, settings.isolation);
    settings.causalReads = options.getBool("causal_reads", settings.causalReads);
    settings.tls = options.getChoice("tls", {"off", "on", "verify"}, settings.tls);
    settings.tlsCa = options.getText("tls_ca", "");
    settings.tlsCert = options.getText("tls_cert", "");
    settings.tlsKey = options.getText("tls_key", "");
    auto connection = std::make_unique<MariadbConnection>(settings);
    auto& ways = static_cast<MariadbDialect&>(getDialect());
    ways.setClustered(connection->isClustered());
    ways.setFoldsTables(connection->foldsTableNames());
    return connection;
}

}  // namespace Kes::sql
