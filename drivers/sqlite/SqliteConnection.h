// SQLite's C interface behind the drivers' connection.

#pragma once

#include <cstdint>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>

#include "drivers/common/Connection.h"
#include "drivers/sqlite/OpenFiles.h"
#include "drivers/sqlite/SqliteFile.h"

struct sqlite3;

namespace Kes::sql {

/// How a database file is opened; see docs of the driver's options.
struct SqliteSettings {
    std::string file;
    bool isUri = false;  // file is one, with switches of SQLite's own
    unsigned mode = 0;   // permissions of a new file; 0 for SQLite's own choice
    bool create = true;
    bool readOnly = false;
    long busyTimeout = 5000;  // ms
    std::string journalMode = "wal";
    std::string synchronous = "full";
    std::string secureDelete = "off";
    long cacheSize = 16384;  // KiB
    long mmapSize = 0;       // KiB
    long maxPageCount = 0;   // pages; 0 for the database's own limit
};

class SqliteConnection final : public Connection {
public:
    /// Throws SqlFailure when the file cannot be opened or is no database.
    explicit SqliteConnection(const SqliteSettings& wanted);
    SqliteConnection(const SqliteConnection&) = delete;
    SqliteConnection& operator=(const SqliteConnection&) = delete;
    ~SqliteConnection() override;

    std::unique_ptr<Statement> prepare(const std::string& text) override;
    void execute(const std::string& text) override;
    void begin() override;
    void commit() override;
    void rollback() override;
    bool inTransaction() override;
    bool needsRoom(bool isReading, bool forSnapshot) override;
    void beginSnapshot() override;
    void endSnapshot() noexcept override;
    SizeLimit sizeLimit() const override;
    void traceTo(std::ostream* stream) override;

private:
    void open();
    void makeFile() const;
    void configure();
    void setJournalMode();
    std::string ask(const std::string& text);
    bool isFile() const { return !settings.isUri && settings.file != ":memory:"; }
    void checkFile() const;
    void checkEncoding();
    void checkWritable() const;
    void checkJournal();
    std::optional<std::uint32_t> commitCount() const;
    [[noreturn]] void fail(int code) const;

    SqliteSettings settings;
    sqlite3* database = nullptr;
    std::unique_ptr<OpenFile> opened;
    std::unique_ptr<SqliteFile> file;   // null when opened for reading
    std::ostream* trace = nullptr;      // borrowed
    bool keepsLog = false;              // the journal mode is wal
    std::optional<std::uint32_t> seen;  // commits when the oldest query under way began
    std::unique_ptr<Statement> holding;
};

}  // namespace Kes::sql
