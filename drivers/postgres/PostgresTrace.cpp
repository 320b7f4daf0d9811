#include "drivers/postgres/PostgresTrace.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cstdint>

#include "drivers/postgres/PostgresTypes.h"

namespace Kes::sql {

namespace {

// As a constant is written.
std::string shownList(const char* bytes, std::size_t size) {
    std::string shown = "'{";
    for (std::size_t at = ListHeader + 4; at + 8 <= size; at += 12)
        shown += (shown.size() > 2 ? "," : "") +
                 std::to_string(static_cast<std::int64_t>(readBits(bytes + at, 8)));
    return shown + "}'::bigint[]";
}

}  // namespace

std::string expanded(const std::string& text, const WireValues& values) {
    constexpr std::size_t longest = 1000;  // bytes of one value
    std::string filled;
    std::size_t parameter = 0;
    char quote = '\0';
    for (const char c : text) {
        if (quote != '\0')
            quote = c == quote ? '\0' : quote;
        else if (c == '"' || c == '\'')
            quote = c;
        if (c != '?' || quote != '\0') {
            filled += c;
            continue;
        }
        const char* value = values.values[parameter];
        const auto size = static_cast<std::size_t>(values.sizes[parameter]);
        const unsigned type = values.types[parameter++];
        if (value == nullptr) {
            filled += "NULL";
        } else if (type == TypeInt8) {
            filled += std::to_string(static_cast<std::int64_t>(readBits(value, 8)));
        } else if (type == TypeFloat8) {
            char digits[64];
            const auto [end, error] = std::to_chars(digits, digits + sizeof digits,
                                                    std::bit_cast<double>(readBits(value, 8)));
            filled.append(digits, error == std::errc() ? end : digits);
        } else if (type == TypeInt8Array) {
            filled += shownList(value, size);
        } else if (type == TypeBytes) {
            filled += "'\\x";
            for (std::size_t i = 0; i < std::min(size, longest); ++i)
                for (const int half : {value[i] >> 4 & 15, value[i] & 15})
                    filled += "0123456789abcdef"[half];
            filled += size > longest ? "... (" + std::to_string(size) + " bytes)'" : "'";
        } else {
            filled += '\'';
            for (std::size_t i = 0; i < std::min(size, longest); ++i)
                filled.append(value[i] == '\'' ? 2 : 1, value[i]);
            filled += size > longest ? "... (" + std::to_string(size) + " bytes)'" : "'";
        }
    }
    return filled;
}

}  // namespace Kes::sql
