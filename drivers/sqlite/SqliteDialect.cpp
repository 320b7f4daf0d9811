#include "drivers/sqlite/SqliteDialect.h"

#include <algorithm>

namespace Kes::sql {

// A declared type decides what SQLite makes of a value: a REAL column loses the
// sign of -0.0 and anything but TEXT may take a text for a number. Columns for
// reals therefore have no type.
std::string SqliteDialect::typeOf(FieldKind kind) const {
    switch (kind) {
    case FieldKind::Text:
    case FieldKind::Timestamp: return "TEXT NOT NULL";
    case FieldKind::Float:
    case FieldKind::Double: return "NOT NULL";
    case FieldKind::Blob: return "BLOB";
    case FieldKind::Reference: return "INTEGER";
    default: return "INTEGER NOT NULL";
    }
}

// More rows gain little more, and not every library takes 1000 parameters.
std::size_t SqliteDialect::insertedRows(std::size_t columns) const {
    return std::clamp<std::size_t>(999 / columns, 1, 16);
}

std::string SqliteDialect::columnsOf() const {
    return "SELECT name, type FROM pragma_table_info(?)";
}

std::string SqliteDialect::nameFault(const std::string& identifier) const {
    if (fold(identifier).starts_with("sqlite_"))
        return "names that begin with sqlite_ are the database's own";
    return Dialect::nameFault(identifier);
}

std::string SqliteDialect::fold(const std::string& identifier) const {
    std::string folded = identifier;
    for (char& c : folded)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c + 32);
    return folded;
}

}  // namespace Kes::sql
