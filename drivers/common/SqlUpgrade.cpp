#include "drivers/common/SqlUpgrade.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

#include <kes/Instance.h>

#include "drivers/common/FieldBinder.h"
#include "drivers/common/SqlFailure.h"
#include "drivers/common/TextForms.h"

namespace Kes::sql {

namespace {

template <class T>
bool parseWhole(const char* text, std::size_t size, T& value) {
    const auto [end, error] = std::from_chars(text, text + size, value);
    return error == std::errc() && end == text + size;
}

template <class T>
std::string format(T value) {
    char buffer[64];
    const auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, value);
    return error == std::errc() ? std::string(buffer, end) : std::string();
}

// Whether a field of the kind holds the integer.
bool fits(FieldKind kind, std::int64_t value) {
    switch (kind) {
    case FieldKind::Int:
        return value >= std::numeric_limits<int>::min() && value <= std::numeric_limits<int>::max();
    case FieldKind::UInt: return value >= 0 && value <= std::numeric_limits<unsigned>::max();
    case FieldKind::ULong:
    case FieldKind::Reference: return value >= 0;
    case FieldKind::Bool: return value == 0 || value == 1;
    default: return true;
    }
}

bool isTime(Row& row, int column) {
    std::size_t size = 0;
    const char* text = row.text(column, size);
    Timestamp value(1, 1, 1, 0, 0, 0);
    return readTimestamp(text, size, value);
}

// A value as a message shows it. Texts are cut between characters.
std::string shown(Row& row, int column) {
    constexpr std::size_t longest = 100;
    std::size_t size = 0;
    switch (row.kind(column)) {
    case Row::Null: return "NULL";
    case Row::Integer: return format(row.integer(column));
    case Row::Real: return format(row.real(column));
    case Row::Text: break;
    default: row.bytes(column, size); return "a blob of " + std::to_string(size) + " bytes";
    }
    const char* text = row.text(column, size);
    std::size_t end = std::min(size, longest);
    while (end < size && end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
        --end;
    const std::string rest =
        end < size ? "... (" + std::to_string(size) + " bytes)" : std::string();
    return "\"" + std::string(text, end) + "\"" + rest;
}

}  // namespace

std::vector<SqlUpgrade::Kept> SqlUpgrade::keptColumns(std::string& list) {
    std::vector<Kept> kept;
    const std::unique_ptr<Statement> asking = connection.prepare(dialect.columnsOf());
    const std::string name = table.name();
    asking->bindText(0, name.data(), name.size());
    while (asking->step()) {
        std::size_t size = 0;
        const char* text = asking->text(0, size);
        const std::string column(text, size);
        const int target = table.find(column);
        if (target < 0)
            continue;
        list += (kept.empty() ? "" : ", ") + dialect.quote(column);
        kept.push_back({static_cast<int>(kept.size()), target});
    }
    if (kept.size() < 2 || kept.front().target != TableMapping::IdColumn)
        throw SqlFailure("the table " + name +
                         " exists and is none of the library's; rename it or the class");
    return kept;
}

// A transaction of millions of rows is more than every cluster takes.
void SqlUpgrade::beginStep(bool isFirst) {
    if (!isFirst)
        connection.awaitPosts();
    connection.commit();
    connection.begin();
}

void SqlUpgrade::moveRows(const std::string& quotedTarget, bool inSteps) {
    // A transaction of a cluster is held in memory by each node, which refuses more than
    // 2 GiB by default: rows of 40 KiB fit. Each step costs one COMMIT.
    constexpr std::size_t rowsOfStep = 50000;
    std::string list;
    const std::vector<Kept> kept = keptColumns(list);
    std::string values;
    for (std::size_t i = 0; i < table.columns().size(); ++i)
        values += i == 0 ? "?" : ", ?";
    const std::unique_ptr<Statement> reading =
        connection.prepareCursor("SELECT " + list + " FROM " + table.table());
    const std::unique_ptr<Statement> writing =
        connection.prepare("INSERT INTO " + quotedTarget + " VALUES (" + values + ")");

    // New columns keep the dummy's values from row to row.
    const std::unique_ptr<Instance> dummy(table.getClass()->getDummy());
    FieldBinder binder(dialect, connection);
    binder.bindAll(*writing, table, dummy.get(), {});
    std::size_t moved = 0;
    for (; reading->step(); ++moved) {
        if (inSteps && moved % rowsOfStep == 0)
            beginStep(moved == 0);
        texts.assign(kept.size(), std::string());
        for (const Kept& each : kept)
            convert(*reading, each, *writing);
        writing->post(moved, 1);
    }
    connection.awaitPosts();
    if (inSteps)
        beginStep(false);
}

void SqlUpgrade::refuse(Row& row, const Kept& kept) const {
    throw SqlFailure("the field " + table.columns()[static_cast<std::size_t>(kept.target)].name +
                     " of the " + table.name() + " object " +
                     std::to_string(row.integer(TableMapping::IdColumn)) + " holds " +
                     shown(row, kept.source) +
                     ", which the field cannot hold as it is now declared; change the value or "
                     "the declaration");
}

void SqlUpgrade::convert(Row& row, const Kept& kept, Statement& target) {
    switch (table.columns()[static_cast<std::size_t>(kept.target)].kind) {
    case FieldKind::Text: return toText(row, kept, target);
    case FieldKind::Timestamp: return toTime(row, kept, target);
    case FieldKind::Blob: return toBlob(row, kept, target);
    case FieldKind::Float:
    case FieldKind::Double: return toReal(row, kept, target);
    default: return toInteger(row, kept, target);
    }
}

void SqlUpgrade::toInteger(Row& row, const Kept& kept, Statement& target) {
    const FieldKind wanted = table.columns()[static_cast<std::size_t>(kept.target)].kind;
    const Row::Kind kind = row.kind(kept.source);
    if (kind == Row::Null && wanted == FieldKind::Reference)
        return target.bindNull(kept.target);
    std::int64_t value = 0;
    bool whole = kind == Row::Integer;
    if (kind == Row::Integer) {
        value = row.integer(kept.source);
    } else if (kind == Row::Real) {
        const double real = row.real(kept.source);
        whole = real == std::floor(real) && std::fabs(real) <= 9007199254740992.0;
        value = whole ? static_cast<std::int64_t>(real) : 0;
    } else if (kind == Row::Text) {
        std::size_t size = 0;
        const char* text = row.text(kept.source, size);
        whole = parseWhole(text, size, value);
    }
    if (!whole || !fits(wanted, value))
        refuse(row, kept);
    target.bind(kept.target, value);
}

void SqlUpgrade::toReal(Row& row, const Kept& kept, Statement& target) {
    const bool isFloat =
        table.columns()[static_cast<std::size_t>(kept.target)].kind == FieldKind::Float;
    const Row::Kind kind = row.kind(kept.source);
    double value = 0;
    bool exact = kind == Row::Real;
    if (kind == Row::Real) {
        value = row.real(kept.source);
    } else if (kind == Row::Integer) {
        const std::int64_t stored = row.integer(kept.source);
        value = static_cast<double>(stored);
        exact =
            std::fabs(value) <= 9007199254740992.0 && static_cast<std::int64_t>(value) == stored;
    } else if (kind == Row::Text) {
        std::size_t size = 0;
        const char* text = row.text(kept.source, size);
        exact = parseWhole(text, size, value) && std::isfinite(value);
    }
    if (!exact || (isFloat && static_cast<double>(static_cast<float>(value)) != value))
        refuse(row, kept);
    target.bind(kept.target, value);
}

void SqlUpgrade::toText(Row& row, const Kept& kept, Statement& target) {
    std::size_t size = 0;
    std::string& text = texts[static_cast<std::size_t>(kept.source)];
    switch (row.kind(kept.source)) {
    case Row::Text: {
        const char* stored = row.text(kept.source, size);
        text.assign(stored, size);
        break;
    }
    case Row::Integer: text = format(row.integer(kept.source)); break;
    case Row::Real: text = format(row.real(kept.source)); break;
    default: refuse(row, kept);
    }
    target.bindText(kept.target, text.data(), text.size());
}

void SqlUpgrade::toTime(Row& row, const Kept& kept, Statement& target) {
    if (row.kind(kept.source) != Row::Text || !isTime(row, kept.source))
        refuse(row, kept);
    toText(row, kept, target);
}

void SqlUpgrade::toBlob(Row& row, const Kept& kept, Statement& target) {
    std::size_t size = 0;
    const Row::Kind kind = row.kind(kept.source);
    if (kind == Row::Null)
        return target.bindNull(kept.target);
    if (kind != Row::Bytes)
        refuse(row, kept);
    std::string& bytes = texts[static_cast<std::size_t>(kept.source)];
    const void* stored = row.bytes(kept.source, size);
    bytes.assign(static_cast<const char*>(stored), size);
    target.bindBytes(kept.target, bytes.data(), size);
}

}  // namespace Kes::sql
