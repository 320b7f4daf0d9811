#include "drivers/sqlite/SqliteDriver.h"

#include "drivers/common/Options.h"
#include "drivers/sqlite/SqliteConnection.h"
#include "drivers/sqlite/SqliteDialect.h"

namespace Kes::sql {

SqliteDriver::SqliteDriver() : SqlDriver(std::make_unique<SqliteDialect>()) {}

std::unique_ptr<Connection> SqliteDriver::connect(const String& source, const String&,
                                                  const String&, const String& optionText) {
    const Options options(static_cast<const char*>(optionText),
                          {"create", "readonly", "busy_timeout", "journal_mode", "synchronous",
                           "cache_size", "mmap_size", "secure_delete", "max_page_count"});
    SqliteSettings settings;
    settings.file = static_cast<const char*>(source);
    settings.create = options.getBool("create", settings.create);
    settings.readOnly = options.getBool("readonly", settings.readOnly);
    settings.busyTimeout = options.getNumber("busy_timeout", 0, 86400000, settings.busyTimeout);
    settings.journalMode = options.getChoice(
        "journal_mode", {"wal", "delete", "truncate", "persist", "memory", "off"},
        settings.journalMode);
    settings.synchronous = options.getChoice("synchronous", {"off", "normal", "full", "extra"},
                                             settings.synchronous);
    settings.secureDelete =
        options.getChoice("secure_delete", {"on", "off", "fast"}, settings.secureDelete);
    settings.cacheSize = options.getNumber("cache_size", 0, 1L << 30, settings.cacheSize);
    settings.mmapSize = options.getNumber("mmap_size", 0, 1L << 30, settings.mmapSize);
    settings.maxPageCount = options.getNumber("max_page_count", 0, 1L << 32, 0);
    readOnly = settings.readOnly;
    return std::make_unique<SqliteConnection>(settings);
}

}  // namespace Kes::sql
