#include "tests/fuzz/SqliteImage.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

namespace Kes::fuzz {

namespace {

constexpr std::size_t PageSize = 512;

// Damages that are places with a byte, and those that are to a whole page.
enum Kind : unsigned { Byte, Cut, CopyPage, FillPage, JournalByte, LogByte, Kinds };

const char* const Values[] = {"NULL",
                              "0",
                              "1",
                              "-1",
                              "2",
                              "5",
                              "99",
                              "2147483648",
                              "4294967296",
                              "4294967297",
                              "9223372036854775807",
                              "-9223372036854775808",
                              "0.5",
                              "1.0",
                              "1e300",
                              "9e999",
                              "-9e999",
                              "''",
                              "'1'",
                              "'abc'",
                              "'Person 3'",
                              "CAST(x'61ff' AS TEXT)",
                              "CAST(x'610062' AS TEXT)",
                              "x'61'",
                              "x''",
                              "CAST('2000-01-01 00:00:00' AS BLOB)",
                              "'2000-02-30 00:00:00'",
                              "'0000-01-01 00:00:00'",
                              "'7899-12-31 23:59:59'",
                              "'2000-01-01 24:00:00'",
                              "' 2000-1-1 0:0:0'",
                              "zeroblob(3000)"};

// Each class's table and the driver's own, with what their rows are told by.
struct Place {
    const char* table;
    const char* column;
};
const Place Places[] = {
    {"Person", "KesObjectID"}, {"Person", "KesVersion"},   {"Person", "name"},
    {"Person", "age"},         {"Person", "salary"},       {"Person", "born"},
    {"Person", "picture"},     {"Person", "flag"},         {"Person", "parent"},
    {"Friendship", "friends"}, {"Friendship", "friendOf"}, {"kes_versions", "version"},
    {"kes_versions", "name"},  {"kes_versions", "kind"},   {"kes_ids", "next"},
    {"Person", "weight"}};

// As another program, another version or a careless hand may leave it. The tables
// are made anew where SQLite would keep a rule for the values.
const char* const Schemas[] = {
    "DELETE FROM kes_versions",
    "DELETE FROM kes_versions WHERE kind='FORMAT'",
    "DELETE FROM kes_versions WHERE kind='CLASS'",
    "DELETE FROM kes_ids",
    "DROP TABLE kes_versions",
    "DROP TABLE kes_ids",
    "DROP TABLE Friendship",
    "DROP TABLE Person",
    "ALTER TABLE Person DROP COLUMN age",
    "ALTER TABLE Person DROP COLUMN salary",
    "ALTER TABLE Person ADD COLUMN weight INTEGER",
    "ALTER TABLE Person ADD COLUMN height INTEGER NOT NULL DEFAULT 3",
    "ALTER TABLE Person RENAME COLUMN age TO years",
    "ALTER TABLE Person RENAME TO People",
    "ALTER TABLE Friendship RENAME TO friendship2",
    "DROP TABLE Person; CREATE TABLE Person(a)",
    "DROP TABLE Person; CREATE VIEW Person AS SELECT * FROM Friendship",
    "DROP TABLE kes_versions; CREATE VIEW kes_versions AS SELECT 'FORMAT' AS kind, 'kes' AS name, "
    "1 AS version",
    "DROP TABLE kes_ids; CREATE TABLE kes_ids(a, b)",
    "CREATE TABLE copy AS SELECT * FROM Person; DROP TABLE Person; ALTER TABLE copy RENAME TO "
    "Person",
    "CREATE TABLE copy AS SELECT * FROM kes_versions; DROP TABLE kes_versions; ALTER TABLE copy "
    "RENAME TO kes_versions",
    "CREATE TABLE copy AS SELECT * FROM Friendship; DROP TABLE Friendship; ALTER TABLE copy RENAME "
    "TO Friendship",
    "CREATE TRIGGER guard BEFORE INSERT ON Person BEGIN SELECT RAISE(ABORT, 'no'); END",
    "CREATE TRIGGER thief AFTER UPDATE ON Person BEGIN DELETE FROM Person; END",
    "CREATE UNIQUE INDEX other ON Person(flag, salary)",
    "DELETE FROM Person",
    "DELETE FROM Person WHERE KesObjectID % 3 = 0",
    "DELETE FROM Friendship WHERE friends % 2 = 0",
    "PRAGMA writable_schema=ON; DELETE FROM sqlite_schema WHERE type='index'",
    "PRAGMA writable_schema=ON; UPDATE sqlite_schema SET sql='CREATE TABLE Person(x)' WHERE "
    "name='Person'",
    "PRAGMA writable_schema=ON; UPDATE sqlite_schema SET rootpage=3 WHERE type='table'",
    "PRAGMA writable_schema=ON; UPDATE sqlite_schema SET sql='nonsense' WHERE name='Friendship'",
    "PRAGMA writable_schema=ON; INSERT INTO sqlite_schema VALUES('table', 'Person', 'Person', 3, "
    "'CREATE TABLE Person(a)')",
    "PRAGMA user_version=77; PRAGMA application_id=5",
    "PRAGMA encoding='UTF-16'; VACUUM",
    "PRAGMA page_size=1024; VACUUM",
    "PRAGMA auto_vacuum=FULL; VACUUM"};

template <class List>
auto& pick(Input& input, List& list) {
    return list[input.choice(static_cast<unsigned>(std::size(list)))];
}

std::string read(const std::string& path) {
    std::ifstream in(path, std::ios::binary | std::ios::ate);
    if (!in)
        return "";
    std::string bytes(static_cast<std::size_t>(in.tellg()), '\0');
    in.seekg(0).read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    return bytes;
}

void put(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
}

// The bytes after the statements, as long as they leave a database.
std::string after(const std::vector<std::string>& statements, const std::string& bytes) {
    sqlite3* opened = nullptr;
    demand(sqlite3_open(":memory:", &opened) == SQLITE_OK, "no database in memory");
    const Database database(opened);
    auto* copy = static_cast<unsigned char*>(sqlite3_malloc64(bytes.size()));
    demand(copy != nullptr, "no memory");
    std::memcpy(copy, bytes.data(), bytes.size());
    const auto size = static_cast<sqlite3_int64>(bytes.size());
    demand(sqlite3_deserialize(opened, "main", copy, size, size,
                               SQLITE_DESERIALIZE_FREEONCLOSE | SQLITE_DESERIALIZE_RESIZEABLE) ==
               SQLITE_OK,
           "the database cannot be copied");
    sqlite3_exec(opened, "PRAGMA legacy_alter_table=ON", nullptr, nullptr, nullptr);
    for (const std::string& each : statements)
        execute(opened, each);
    sqlite3_int64 count = 0;
    const unsigned char* result =
        sqlite3_serialize(opened, "main", &count, SQLITE_SERIALIZE_NOCOPY);
    return result != nullptr
               ? std::string(reinterpret_cast<const char*>(result), static_cast<std::size_t>(count))
               : "";
}

}  // namespace

Database openPlainly(const std::string& file) {
    sqlite3* opened = nullptr;
    demand(sqlite3_open_v2(file.c_str(), &opened, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX,
                           nullptr) == SQLITE_OK,
           "the file cannot be opened plainly");
    return Database(opened);
}

bool execute(sqlite3* database, const std::string& statements) {
    return sqlite3_exec(database, statements.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
}

Image Image::of(const std::string& path) {
    return {read(path), read(path + "-journal"), read(path + "-wal")};
}

void Image::write(const std::string& path) const {
    for (const char* companion : {"-wal", "-shm", "-journal"}) {
        std::error_code ignored;
        std::filesystem::remove(path + companion, ignored);
    }
    put(path, file);
    if (!journal.empty())
        put(path + "-journal", journal);
    if (!log.empty())
        put(path + "-wal", log);
}

Changes::Changes(Input& input) {
    while (!input.isEmpty()) {
        const unsigned kind = input.choice(Kinds + 3);
        if (kind == Kinds)
            addSchema(input);
        else if (kind > Kinds)
            addValue(input);
        else
            damages.push_back({kind, input.number<std::uint16_t>(), input.number<unsigned char>()});
    }
}

void Changes::addValue(Input& input) {
    const Place& place = pick(input, Places);
    const std::string value = pick(input, Values);
    const unsigned row = input.choice(16);
    statements.push_back(std::string("UPDATE ") + place.table + " SET " + place.column + "=" +
                         value + (row < 13 ? " WHERE rowid=" + std::to_string(row) : ""));
}

void Changes::addSchema(Input& input) {
    statements.emplace_back(pick(input, Schemas));
}

bool Changes::hasTrigger() const {
    return std::any_of(statements.begin(), statements.end(), [](const std::string& each) {
        return each.find("TRIGGER") != std::string::npos;
    });
}

Image Changes::apply(const Image& image) const {
    Image changed = image;
    if (!statements.empty() && image.journal.empty() && image.log.empty())
        changed.file = after(statements, image.file);
    for (const Damage& each : damages)
        damage(each.kind == JournalByte ? changed.journal
               : each.kind == LogByte   ? changed.log
                                        : changed.file,
               each);
    return changed;
}

void Changes::damage(std::string& bytes, const Damage& how) {
    if (bytes.empty())
        return;
    const std::size_t at = how.at % bytes.size();
    const std::size_t pages = bytes.size() / PageSize;
    if (how.kind == Cut) {
        bytes.resize(at);
    } else if (how.kind == CopyPage || how.kind == FillPage) {
        if (pages == 0)
            return;
        const std::size_t to = how.at % pages * PageSize;
        const std::string page = how.kind == CopyPage
                                     ? bytes.substr(how.value % pages * PageSize, PageSize)
                                     : std::string(PageSize, static_cast<char>(how.value));
        bytes.replace(to, PageSize, page);
    } else {
        bytes[at] = static_cast<char>(how.value);
    }
}

}  // namespace Kes::fuzz
