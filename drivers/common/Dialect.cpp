#include "drivers/common/Dialect.h"

namespace Kes::sql {

std::string Dialect::quote(const std::string& identifier) const {
    std::string quoted = "\"";
    for (const char c : identifier)
        quoted += c == '"' ? std::string("\"\"") : std::string(1, c);
    return quoted + "\"";
}

std::string Dialect::typeOf(FieldKind kind) const {
    switch (kind) {
    case FieldKind::Text: return "TEXT NOT NULL";
    case FieldKind::Timestamp: return "CHAR(19) NOT NULL";
    case FieldKind::Float: return "REAL NOT NULL";
    case FieldKind::Double: return "DOUBLE PRECISION NOT NULL";
    case FieldKind::Bool: return "SMALLINT NOT NULL";
    case FieldKind::Blob: return "BLOB";
    case FieldKind::Reference: return "BIGINT";
    default: return "BIGINT NOT NULL";
    }
}

std::string Dialect::insertOrKeep(const std::string& rest) const {
    return "INSERT INTO " + rest + " ON CONFLICT DO NOTHING";
}

std::vector<std::string> Dialect::idStore() const {
    return {"CREATE TABLE IF NOT EXISTS kes_ids (next BIGINT NOT NULL)",
            "INSERT INTO kes_ids (next) SELECT 1 WHERE NOT EXISTS (SELECT 1 FROM kes_ids)"};
}

std::vector<std::string> Dialect::createIndexes(const std::string& quotedTable,
                                                const std::vector<IndexText>& indexes) const {
    std::vector<std::string> statements;
    statements.reserve(indexes.size());
    for (const IndexText& index : indexes)
        statements.push_back(std::string("CREATE ") + (index.unique ? "UNIQUE " : "") + "INDEX " +
                             index.name + " ON " + quotedTable + " (" + index.columns + ")");
    return statements;
}

std::string Dialect::like(const std::string& left, const std::string& right) const {
    return left + " LIKE " + right + " ESCAPE '\\'";
}

std::string Dialect::columnsOf() const {
    return "SELECT column_name, data_type FROM information_schema.columns WHERE table_name = ? "
           "ORDER BY ordinal_position";
}

std::string Dialect::createView(const std::string& quotedName) const {
    return "CREATE VIEW " + quotedName;
}

std::string Dialect::dropView(const std::string& quotedName) const {
    return "DROP VIEW IF EXISTS " + quotedName;
}

std::string Dialect::renameTable(const std::string& quotedFrom, const std::string& quotedTo) const {
    return "ALTER TABLE " + quotedFrom + " RENAME TO " + quotedTo;
}

std::string Dialect::nameFault(const std::string& identifier) const {
    if (identifier.empty())
        return "it is empty";
    if (identifier.back() == ' ')
        return identifier.find_first_not_of(' ') == std::string::npos ? "it is blank"
                                                                      : "it ends in a blank";
    return "";
}

}  // namespace Kes::sql
