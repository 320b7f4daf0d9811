#include "drivers/mariadb/MariadbTrace.h"

#include <algorithm>
#include <charconv>

namespace Kes::sql {

namespace {

constexpr std::size_t LongestValue = 200;  // bytes

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
    case Row::Text:
        text = "'";
        for (std::size_t i = 0; i < shown; ++i)
            text.append(data[i] == '\'' ? 2 : 1, data[i]);
        text += "'";
        break;
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

std::string expanded(const std::string& text, const std::vector<MariadbValue>& values) {
    std::string filled;
    std::size_t next = 0;
    char quote = '\0';
    for (const char c : text) {
        if (quote != '\0')
            quote = c == quote ? '\0' : quote;
        else if (c == '"' || c == '\'')
            quote = c;
        if (c == '?' && quote == '\0' && next < values.size())
            filled += textOf(values[next++]);
        else
            filled += c;
    }
    return filled;
}

std::string expanded(const std::string& text, const MariadbPosts& posts, std::size_t begin,
                     std::size_t count) {
    return expanded(text, posts.row(begin)) + " (the first of " + std::to_string(count) + " rows)";
}

}  // namespace Kes::sql
