#include "drivers/common/SpareValues.h"

#include <cmath>
#include <limits>

namespace Kes::sql {

namespace {

// Eleven characters, each of six bits.
std::string wordOf(std::uint64_t bits) {
    constexpr const char* Letters =
        "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_~";
    std::string word;
    for (int i = 0; i < 11; ++i, bits >>= 6)
        word += Letters[bits & 63];
    return word;
}

std::uint64_t seed() {
    std::random_device device;
    return std::uint64_t{device()} << 32 | device();
}

}  // namespace

SpareValues::SpareValues() : random(seed()), realsGiven(static_cast<std::uint32_t>(random())) {}

int SpareValues::bind(Statement& statement, const TableMapping& table, const ColumnSet& columns,
                      unsigned long id) {
    texts.clear();
    texts.reserve(table.columns().size());
    int parameter = 0;
    for (std::size_t i = 0; i < table.columns().size(); ++i)
        if (i / 64 < columns.size() && (columns[i / 64] >> i % 64 & 1) != 0)
            bind(statement, parameter++, table.columns()[i].kind, id);
    return parameter;
}

void SpareValues::bind(Statement& statement, int parameter, FieldKind kind, unsigned long id) {
    constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();
    const auto number = static_cast<std::int64_t>(id);
    switch (kind) {
    case FieldKind::Text:
        return bindText(statement, parameter,
                        "kes " + wordOf(random()) + wordOf(random()) + wordOf(id));
    case FieldKind::Timestamp:  // as long as a time, and none
        return bindText(statement, parameter, "kes-" + wordOf(id) + "-spr");
    case FieldKind::Int:
    case FieldKind::UInt:
    case FieldKind::ULong: return statement.bind(parameter, least + number);
    case FieldKind::Long: return statement.bind(parameter, static_cast<std::int64_t>(random()));
    case FieldKind::Float:
    case FieldKind::Double:  // both hold 24 bits
        realsGiven = (realsGiven + 1) % (1U << 23);
        return statement.bind(parameter, std::ldexp((1U << 23) + realsGiven, -120));
    case FieldKind::Blob:
    case FieldKind::Reference:
    case FieldKind::Bool: return statement.bindNull(parameter);
    }
}

void SpareValues::bindText(Statement& statement, int parameter, std::string value) {
    texts.push_back(std::move(value));
    statement.bindText(parameter, texts.back().data(), texts.back().size());
}

}  // namespace Kes::sql
