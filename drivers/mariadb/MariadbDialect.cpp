#include "drivers/mariadb/MariadbDialect.h"

#include <cmath>

namespace Kes::sql {

namespace {

constexpr const char* Text = " CHARACTER SET utf8mb4 COLLATE utf8mb4_nopad_bin NOT NULL";
constexpr std::size_t LongestName = 64;  // characters

// Letters that have a lower-case form a fixed distance behind, all or each second
// of a range. The server takes the two for one in the names of columns; it knows
// rarer ones as well, and refuses those itself.
struct Letters {
    unsigned first;
    unsigned last;
    unsigned step;
    unsigned distance;
};

constexpr Letters UpperCase[] = {
    {0x41, 0x5A, 1, 32},   {0xC0, 0xD6, 1, 32},   {0xD8, 0xDE, 1, 32},   {0x100, 0x12E, 2, 1},
    {0x132, 0x136, 2, 1},  {0x139, 0x147, 2, 1},  {0x14A, 0x176, 2, 1},  {0x179, 0x17D, 2, 1},
    {0x1CD, 0x1DB, 2, 1},  {0x1DE, 0x1EE, 2, 1},  {0x1F8, 0x21E, 2, 1},  {0x388, 0x38A, 1, 37},
    {0x391, 0x3A1, 1, 32}, {0x3A3, 0x3AB, 1, 32}, {0x400, 0x40F, 1, 80}, {0x410, 0x42F, 1, 32},
    {0x460, 0x480, 2, 1},  {0x48C, 0x4BE, 2, 1},  {0x4D0, 0x4F4, 2, 1},  {0x531, 0x556, 1, 48},
};

unsigned lowerCaseOf(unsigned letter) {
    for (const Letters& range : UpperCase)
        if (letter >= range.first && letter <= range.last &&
            (letter - range.first) % range.step == 0)
            return letter + range.distance;
    return letter;
}

// Letters of one and two bytes; the lower-case form has as many.
std::string lowered(std::string text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto lead = static_cast<unsigned char>(text[i]);
        if (lead < 0x80) {
            text[i] = static_cast<char>(lowerCaseOf(lead));
        } else if ((lead & 0xE0) == 0xC0 && i + 1 < text.size()) {
            const unsigned rest = static_cast<unsigned char>(text[i + 1]) & 0x3F;
            const unsigned letter = lowerCaseOf((lead & 0x1Fu) << 6 | rest);
            text[i] = static_cast<char>(0xC0 | letter >> 6);
            text[++i] = static_cast<char>(0x80 | (letter & 0x3F));
        }
    }
    return text;
}

std::size_t charactersOf(const std::string& text) {
    std::size_t count = 0;
    for (const char c : text)
        if ((static_cast<unsigned char>(c) & 0xC0) != 0x80)
            ++count;
    return count;
}

}  // namespace

// The collation compares texts as the library does: by their bytes, trailing
// blanks included. A TIMESTAMP column ends in 2038 and knows zones, and a
// DATETIME has no midnight at the end of a day, so times are texts.
std::string MariadbDialect::typeOf(FieldKind kind) const {
    switch (kind) {
    case FieldKind::Text: return std::string("LONGTEXT") + Text;
    case FieldKind::Timestamp: return "CHAR(19) CHARACTER SET ascii COLLATE ascii_bin NOT NULL";
    case FieldKind::Float: return "FLOAT NOT NULL";
    case FieldKind::Double: return "DOUBLE NOT NULL";
    case FieldKind::Bool: return "BOOLEAN NOT NULL";
    case FieldKind::Blob: return "LONGBLOB";
    default: return Dialect::typeOf(kind);
    }
}

std::string MariadbDialect::keyTextType() const {
    return std::string("VARCHAR(700)") + Text;
}

// Row locks are local to a node of a cluster. What two nodes cannot both commit
// is a change of one row, so a lock there changes this column.
std::string MariadbDialect::hiddenColumns() const {
    return ", \"KesLock\" TINYINT NOT NULL DEFAULT 0 INVISIBLE";
}

std::string MariadbDialect::touch(const std::string& quotedTable) const {
    return clustered ? "UPDATE " + quotedTable + " SET \"KesLock\" = 1 - \"KesLock\"" : "";
}

// An index holds the beginnings of texts only, and the server looks at the rows
// for the rest; for unique ones it keeps a digest of the whole text by itself.
std::string MariadbDialect::indexed(const std::string& quotedColumn, FieldKind kind,
                                    bool unique) const {
    return kind == FieldKind::Text && !unique ? quotedColumn + "(100)" : quotedColumn;
}

// One statement reads the table once, and each schema statement is slow.
std::vector<std::string> MariadbDialect::createIndexes(
    const std::string& quotedTable, const std::vector<IndexText>& indexes) const {
    std::string additions;
    for (const IndexText& index : indexes)
        additions += (additions.empty() ? " ADD " : ", ADD ") +
                     std::string(index.unique ? "UNIQUE " : "") + "INDEX " + index.name + " (" +
                     index.columns + ")";
    if (additions.empty())
        return {};
    return {"ALTER TABLE " + quotedTable + additions};
}

std::string MariadbDialect::createView(const std::string& quotedName) const {
    return "CREATE OR REPLACE SQL SECURITY INVOKER VIEW " + quotedName;
}

std::string MariadbDialect::insertOrKeep(const std::string& rest) const {
    return "INSERT IGNORE INTO " + rest;
}

std::vector<std::string> MariadbDialect::idStore() const {
    return {
        "CREATE TABLE IF NOT EXISTS kes_ids (id INTEGER NOT NULL PRIMARY KEY, next BIGINT NOT "
        "NULL)",
        "INSERT IGNORE INTO kes_ids (id, next) VALUES (1, 1)"};
}

std::string MariadbDialect::columnsOf() const {
    return "SELECT column_name, data_type FROM information_schema.columns WHERE table_schema = "
           "DATABASE() AND table_name = ? ORDER BY ordinal_position";
}

std::string MariadbDialect::nameFault(const std::string& identifier) const {
    return columnFault(identifier);
}

std::string MariadbDialect::columnFault(const std::string& identifier) const {
    const std::size_t length = charactersOf(identifier);
    if (length > LongestName)
        return "it has " + std::to_string(length) + " characters, and the limit is " +
               std::to_string(LongestName);
    for (const char c : identifier)
        if (static_cast<unsigned char>(c) >= 0xF0)
            return "it has a character beyond the basic plane";
    if (lowered(identifier) == "keslock")
        return "the library has a column of this name";
    return Dialect::nameFault(identifier);
}

std::string MariadbDialect::fold(const std::string& identifier) const {
    return foldsTables ? lowered(identifier) : identifier;
}

std::string MariadbDialect::foldColumn(const std::string& identifier) const {
    return lowered(identifier);
}

// The server drops the sign of a zero, and refuses the others.
std::string MariadbDialect::reasonToRefuse(double value) const {
    return value == 0 && std::signbit(value)
               ? "is a negative zero, whose sign the database does not keep"
               : "";
}

}  // namespace Kes::sql
