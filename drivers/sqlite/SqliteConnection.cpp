#include "drivers/sqlite/SqliteConnection.h"

#include <sqlite3.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <ostream>
#include <system_error>
#include <thread>

#include "drivers/common/SqlFailure.h"
#include "drivers/sqlite/Platform.h"
#include "drivers/sqlite/SqliteErrors.h"
#include "drivers/sqlite/SqliteStatement.h"

namespace Kes::sql {

namespace {

// With its values filled in; long ones are shortened.
std::string expand(sqlite3_stmt* statement) {
    constexpr std::size_t longest = 2000;
    char* expanded = sqlite3_expanded_sql(statement);
    std::string text = expanded != nullptr ? expanded : sqlite3_sql(statement);
    sqlite3_free(expanded);
    if (text.size() > longest)
        text = text.substr(0, longest) + "... (" + std::to_string(text.size()) + " bytes)";
    return text;
}

// "" for a database that has no file.
const char* pathOf(sqlite3* database) {
    const char* path = sqlite3_db_filename(database, "main");
    return path != nullptr ? path : "";
}

int writeTrace(unsigned, void* context, void* statement, void* nanoseconds) {
    auto& stream = *static_cast<std::ostream*>(context);
    const auto spent = *static_cast<const sqlite3_int64*>(nanoseconds);
    stream << "sqlite: " << expand(static_cast<sqlite3_stmt*>(statement)) << " ["
           << static_cast<double>(spent) / 1e6 << " ms]\n";
    return 0;
}

}  // namespace

SqliteConnection::SqliteConnection(const SqliteSettings& wanted) : settings(wanted) {
    checkFile();
    makeFile();
    try {
        open();
        opened = std::make_unique<OpenFile>(pathOf(database));
        checkWritable();
        configure();
        checkJournal();
        keepsLog = ask("PRAGMA journal_mode") == "wal";
        // The log and its index are made by the first read.
        if (keepsLog)
            execute("SELECT count(*) FROM sqlite_schema");
        if (!settings.readOnly)
            file = std::make_unique<SqliteFile>(database, keepsLog);
    } catch (...) {
        sqlite3_close_v2(database);
        throw;
    }
}

// SQLite may take a name that begins with "file:" for a URI even when it is not
// told to, and one that begins with a colon is kept for special ones.
void SqliteConnection::open() {
    int flags = SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE;
    flags |= settings.readOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE;
    if (settings.create && !settings.readOnly)
        flags |= SQLITE_OPEN_CREATE;
    std::string name = settings.file;
    if (settings.isUri)
        flags |= SQLITE_OPEN_URI;
    else if (isFile() && (name.starts_with("file:") || name.starts_with(':')))
        name.insert(0, "./");
    const int code = sqlite3_open_v2(name.c_str(), &database, flags, nullptr);
    if (code != SQLITE_OK)
        fail(code);
}

// SQLite's own permissions are 0644, less what the process's mask takes away.
void SqliteConnection::makeFile() const {
    if (settings.mode == 0 || settings.readOnly || !settings.create || !isFile())
        return;
    const int fault = platform::makeFile(settings.file.c_str(), settings.mode);
    if (fault != 0)
        throw SqlFailure("the file cannot be made with the permissions that mode asks for: " +
                         std::generic_category().message(fault));
}

SqliteConnection::~SqliteConnection() {
    holding.reset();
    sqlite3_close_v2(database);
}

// SQLite says "unable to open database file" for all of these.
void SqliteConnection::checkFile() const {
    namespace fs = std::filesystem;
    if (settings.file.empty())
        throw SqlFailure("no file is named; give a file name or \":memory:\" as the source");
    if (!isFile())
        return;
    std::error_code ignored;
    const fs::path path(settings.file);
    if (fs::is_directory(path, ignored))
        throw SqlFailure("\"" + settings.file + "\" is a directory; name a file in it");
    const fs::path folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
    if (!fs::is_directory(folder, ignored))
        throw SqlFailure("the folder of \"" + settings.file + "\" does not exist; make it first");
    if (!fs::exists(path, ignored) && (!settings.create || settings.readOnly))
        throw SqlFailure("the file \"" + settings.file +
                         "\" does not exist; open it with create=true to make it");
}

// SQLite opens a file that it may not write for reading, without a word.
void SqliteConnection::checkWritable() const {
    if (!settings.readOnly && sqlite3_db_readonly(database, "main") == 1)
        throw SqlFailure("the file \"" + settings.file +
                         "\" cannot be written; get the right to, or open it with readonly=true");
}

// A journal is made by the first write of a transaction only. Somebody else's
// lock is no reason to doubt that it can be.
void SqliteConnection::checkJournal() {
    const bool isMade = settings.journalMode == "delete" || settings.journalMode == "truncate" ||
                        settings.journalMode == "persist";
    if (settings.readOnly || !isFile() || !isMade)
        return;
    sqlite3_busy_timeout(database, 0);
    const int code =
        sqlite3_exec(database, "BEGIN IMMEDIATE; PRAGMA user_version=0", nullptr, nullptr, nullptr);
    if (code != SQLITE_OK && (code & 0xFF) != SQLITE_BUSY)
        fail(code);
    rollback();
    sqlite3_busy_timeout(database, static_cast<int>(settings.busyTimeout));
}

void SqliteConnection::configure() {
    sqlite3_busy_timeout(database, static_cast<int>(settings.busyTimeout));

    // A file of garbage is noticed at the first read only.
    execute("SELECT count(*) FROM sqlite_schema");
    checkEncoding();
    if (!settings.readOnly && settings.file != ":memory:")
        setJournalMode();
    execute("PRAGMA synchronous=" + settings.synchronous);
    execute("PRAGMA secure_delete=" + settings.secureDelete);
    execute("PRAGMA cache_size=-" + std::to_string(settings.cacheSize));
    execute("PRAGMA mmap_size=" + std::to_string(settings.mmapSize * 1024));
    execute("PRAGMA case_sensitive_like=ON");
    execute("PRAGMA legacy_alter_table=ON");
    if (settings.maxPageCount != 0)
        execute("PRAGMA max_page_count=" + std::to_string(settings.maxPageCount));
}

// Texts of such a file are ordered by other bytes than on all other databases.
void SqliteConnection::checkEncoding() {
    const std::string encoding = ask("PRAGMA encoding");
    if (encoding != "UTF-8")
        throw SqlFailure("its texts are stored as " + encoding +
                         ", and only UTF-8 keeps their order; dump the database and read the dump "
                         "into a new file");
}

// The first column of the first row.
std::string SqliteConnection::ask(const std::string& text) {
    const std::unique_ptr<Statement> asking = prepare(text);
    std::size_t size = 0;
    return asking->step() ? asking->text(0, size) : "";
}

// Of several connections that change the mode of a new file at once SQLite makes
// all but one give way, without the wait that busy_timeout asks for.
void SqliteConnection::setJournalMode() {
    using namespace std::chrono;
    const std::string text = "PRAGMA journal_mode=" + settings.journalMode;
    const auto end = steady_clock::now() + milliseconds(settings.busyTimeout);
    int code = SQLITE_OK;
    while (((code = sqlite3_exec(database, text.c_str(), nullptr, nullptr, nullptr)) & 0xFF) ==
               SQLITE_BUSY &&
           steady_clock::now() < end)
        std::this_thread::sleep_for(milliseconds(1));
    if (code != SQLITE_OK)
        fail(code);
}

std::unique_ptr<Statement> SqliteConnection::prepare(const std::string& text) {
    sqlite3_stmt* statement = nullptr;
    const int code = sqlite3_prepare_v3(database, text.c_str(), static_cast<int>(text.size() + 1),
                                        SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
    if (code != SQLITE_OK)
        fail(code);
    std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)> owned(statement, sqlite3_finalize);
    auto prepared = std::make_unique<SqliteStatement>(database, statement, settings);
    owned.release();
    return prepared;
}

void SqliteConnection::execute(const std::string& text) {
    const int code = sqlite3_exec(database, text.c_str(), nullptr, nullptr, nullptr);
    if (code != SQLITE_OK)
        fail(code);
}

void SqliteConnection::begin() {
    execute("BEGIN IMMEDIATE");
    if (file != nullptr)
        file->noteBegin();
}

void SqliteConnection::commit() {
    if (file != nullptr)
        file->checkBefore();
    execute("COMMIT");
    if (file != nullptr)
        file->checkAfter();
}

void SqliteConnection::rollback() {
    if (inTransaction())
        execute("ROLLBACK");
}

bool SqliteConnection::inTransaction() {
    return sqlite3_get_autocommit(database) == 0;
}

// All queries of a connection show the state of the oldest one under way. Without
// a log others cannot commit meanwhile.
bool SqliteConnection::needsRoom(bool isReading, bool) {
    if (!keepsLog)
        return false;
    const std::optional<std::uint32_t> now = commitCount();
    if (isReading && now.has_value() && now == seen)
        return false;
    seen = now;
    return isReading;
}

// The index of the log, which all connections have in common, counts the commits.
// A statement that asked for them would cost a connection of its own.
std::optional<std::uint32_t> SqliteConnection::commitCount() const {
    constexpr int Counter = 2;  // of the words
    auto* words = const_cast<std::uint32_t*>(logIndexOf(database));
    if (words == nullptr)
        return std::nullopt;
    return std::atomic_ref<std::uint32_t>(words[Counter]).load(std::memory_order_acquire);
}

// A query that is under way, were the others without a row.
void SqliteConnection::beginSnapshot() {
    if (holding == nullptr)
        holding = prepare("SELECT 1 FROM sqlite_schema");
    holding->step();
}

void SqliteConnection::endSnapshot() noexcept {
    holding->reset();
}

void SqliteConnection::traceTo(std::ostream* stream) {
    trace = stream;
    sqlite3_trace_v2(database, stream != nullptr ? SQLITE_TRACE_PROFILE : 0U, writeTrace, stream);
}

// It holds for a row as a whole, too.
SizeLimit SqliteConnection::sizeLimit() const {
    SizeLimit limit;
    limit.bytes = static_cast<std::size_t>(sqlite3_limit(database, SQLITE_LIMIT_LENGTH, -1));
    return limit;
}

void SqliteConnection::fail(int code) const {
    throw SqlFailure(explain(database, code, settings), kindOf(code));
}

}  // namespace Kes::sql
