#include "drivers/postgres/PostgresDialect.h"

#include "drivers/common/TextForms.h"
#include "drivers/postgres/PostgresConnection.h"

namespace Kes::sql {

namespace {

constexpr std::size_t LongestName = 63;  // bytes; the server cuts longer ones

// The database would cut a longer name and say nothing that anybody hears.
std::string commonFault(const std::string& identifier) {
    if (identifier.size() > LongestName)
        return "it has " + std::to_string(identifier.size()) + " bytes and the database keeps " +
               std::to_string(LongestName);
    if (!isValidUtf8(identifier.data(), identifier.size()))
        return "it is not valid UTF-8";
    return "";
}

}  // namespace

// Texts compare and sort by their bytes, whatever the database's own collation.
// Times are texts: a timestamp would take 24:00:00 for the next day. The types'
// names are qualified because a class may be called text.
std::string PostgresDialect::typeOf(FieldKind kind) const {
    switch (kind) {
    case FieldKind::Text:
    case FieldKind::Timestamp: return "pg_catalog.text COLLATE pg_catalog.\"C\" NOT NULL";
    case FieldKind::Blob: return "pg_catalog.bytea";
    default: return Dialect::typeOf(kind);
    }
}

// Of a union the server takes the type of the first two parts, and of two without
// one it takes text.
std::string PostgresDialect::nullOf(FieldKind kind) const {
    switch (kind) {
    case FieldKind::Text:
    case FieldKind::Timestamp: return "NULL::pg_catalog.text COLLATE pg_catalog.\"C\"";
    case FieldKind::Blob: return "NULL::pg_catalog.bytea";
    case FieldKind::Float: return "NULL::pg_catalog.float4";
    case FieldKind::Double: return "NULL::pg_catalog.float8";
    case FieldKind::Bool: return "NULL::pg_catalog.int2";
    default: return "NULL::pg_catalog.int8";
    }
}

// A session takes a block with each value of the sequence.
std::vector<std::string> PostgresDialect::idStore() const {
    return {
        "CREATE SEQUENCE IF NOT EXISTS kes_ids AS bigint MINVALUE 1 START WITH 1 INCREMENT BY " +
        std::to_string(PostgresConnection::IdsPerValue)};
}

// Who removes the partner looks for links in the state from before they were
// made, where that is older, and a lock leaves nothing that stops the removal.
std::string PostgresDialect::touchPartners(const std::string& quotedTable) const {
    return keepsSnapshot ? "UPDATE " + quotedTable + " SET \"KesVersion\" = \"KesVersion\"" : "";
}

std::string PostgresDialect::columnsOf() const {
    return "SELECT a.attname, t.typname FROM pg_catalog.pg_attribute AS a "
           "JOIN pg_catalog.pg_class AS c ON c.oid = a.attrelid "
           "JOIN pg_catalog.pg_type AS t ON t.oid = a.atttypid "
           "JOIN pg_catalog.pg_namespace AS n ON n.oid = c.relnamespace "
           "WHERE n.nspname = pg_catalog.current_schema() AND c.relname = ? "
           "AND c.relkind IN ('r', 'p', 'v', 'm', 'f') AND a.attnum > 0 AND NOT a.attisdropped "
           "ORDER BY a.attnum";
}

// The database's own tables are found before those of a schema.
std::string PostgresDialect::nameFault(const std::string& identifier) const {
    if (identifier.starts_with("pg_"))
        return "names that begin with pg_ are the database's own";
    const std::string fault = commonFault(identifier);
    return fault.empty() ? Dialect::nameFault(identifier) : fault;
}

std::string PostgresDialect::columnFault(const std::string& identifier) const {
    for (const char* own : {"tableoid", "cmax", "xmax", "cmin", "xmin", "ctid"})
        if (identifier == own)
            return "every table of the database has a column of its own with that name";
    const std::string fault = commonFault(identifier);
    return fault.empty() ? Dialect::columnFault(identifier) : fault;
}

}  // namespace Kes::sql
