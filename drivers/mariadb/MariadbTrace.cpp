#include "drivers/mariadb/MariadbTrace.h"

#include <algorithm>
#include <charconv>

namespace Kes::sql {

namespace {

constexpr std::size_t LongestValue = 200;  // bytes
constexpr std::size_t MostRows = 20;

std::string textOf(double value) {
    char buffer[32];
    const auto [end, error] = std::to_chars(buffer, buffer + sizeof buffer, value);
    return error == std::errc() ? std::string(buffer, end) : std::string();
}

std::string textOf(const MariadbValue& value) {
    const auto* data = static_cast<const char*>(value.data);
    const std::size_t shown = std::min(value.size, LongestValue);
    std::string text;
    switch (value.kind) {
    case Row::Null: return "NULL";
    case Row::Integer: return std::to_string(value.integer);
    case Row::Real: return textOf(value.real);
    case Row::Text: text = "'" + std::string(data, shown) + "'"; break;
    case Row::Bytes:
        text = "X'";
        for (std::size_t i = 0; i < shown; ++i) {
            const auto byte = static_cast<unsigned char>(data[i]);
            text += "0123456789ABCDEF"[byte >> 4];
            text += "0123456789ABCDEF"[byte & 15];
        }
        text += "'";
    }
    return shown == value.size ? text : text + "... (" + std::to_string(value.size) + " bytes)";
}

}  // namespace

std::string describe(const std::vector<MariadbValue>& values) {
    std::string text;
    for (const MariadbValue& value : values)
        text += (text.empty() ? " {" : ", ") + textOf(value);
    return text.empty() ? text : text + "}";
}

std::string describe(const MariadbPosts& posts) {
    std::string text = " " + std::to_string(posts.count()) + " rows:";
    for (std::size_t i = 0; i < std::min(posts.count(), MostRows); ++i)
        text += describe(posts.row(i));
    return posts.count() > MostRows ? text + " ..." : text;
}

}  // namespace Kes::sql
