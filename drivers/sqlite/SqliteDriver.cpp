#include "drivers/sqlite/SqliteDriver.h"

#include <charconv>
#include <system_error>

#include "drivers/common/Options.h"
#include "drivers/common/SqlFailure.h"
#include "drivers/sqlite/SqliteConnection.h"
#include "drivers/sqlite/SqliteDialect.h"

namespace Kes::sql {

namespace {

// Octal, as people write permissions. The owner has to read and write.
unsigned modeOf(const Options& options) {
    constexpr unsigned own = 0600;
    constexpr unsigned most = 0777;
    const std::string text = options.getText("mode", "");
    if (text.empty())
        return 0;
    unsigned mode = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), mode, 8);
    if (error != std::errc() || end != text.data() + text.size() || mode > most ||
        (mode & own) != own)
        throw SqlFailure(
            "the option \"mode\" takes the permissions of a new file as octal "
            "digits from 0600 to 0777, as in mode=0600, not \"" +
            text + "\"");
    return mode;
}

}  // namespace

SqliteDriver::SqliteDriver() : SqlDriver(std::make_unique<SqliteDialect>()) {}

std::unique_ptr<Connection> SqliteDriver::connect(const String& source, const String&,
                                                  const String&, const String& optionText) {
    const Options options(
        static_cast<const char*>(optionText),
        {"create", "readonly", "busy_timeout", "journal_mode", "synchronous", "cache_size",
         "mmap_size", "secure_delete", "max_page_count", "mode", "uri"});
    SqliteSettings settings;
    settings.file = static_cast<const char*>(source);
    settings.create = options.getBool("create", settings.create);
    settings.readOnly = options.getBool("readonly", settings.readOnly);
    settings.busyTimeout = options.getNumber("busy_timeout", 0, 86400000, settings.busyTimeout);
    settings.journalMode =
        options.getChoice("journal_mode", {"wal", "delete", "truncate", "persist", "memory", "off"},
                          settings.journalMode);
    settings.synchronous =
        options.getChoice("synchronous", {"off", "normal", "full", "extra"}, settings.synchronous);
    settings.secureDelete =
        options.getChoice("secure_delete", {"on", "off", "fast"}, settings.secureDelete);
    settings.cacheSize = options.getNumber("cache_size", 0, 1L << 30, settings.cacheSize);
    settings.mmapSize = options.getNumber("mmap_size", 0, 1L << 30, settings.mmapSize);
    settings.maxPageCount = options.getNumber("max_page_count", 0, 1L << 32, 0);
    settings.isUri = options.getBool("uri", settings.isUri);
    settings.mode = modeOf(options);
    if (settings.isUri && settings.mode != 0)
        throw SqlFailure("the option \"mode\" is for file names; give a URI its own parameters");
    if (!settings.readOnly && settings.journalMode == "off")
        throw SqlFailure(
            "without a journal a transaction that fails stays half written, and every "
            "conflict is such a failure: journal_mode=off is for readonly=true; "
            "memory is the fastest mode that can roll back");
    return std::make_unique<SqliteConnection>(settings);
}

}  // namespace Kes::sql
