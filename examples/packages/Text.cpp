#include "packages/Text.h"

#include <cstddef>

namespace packages {

namespace {

// The length of the character that starts with `first`, in bytes; 0 for a byte
// that starts none.
std::size_t lengthOfCharacter(unsigned char first) {
    if (first < 0x80)
        return 1;
    if (first >= 0xC2 && first <= 0xDF)
        return 2;
    if (first >= 0xE0 && first <= 0xEF)
        return 3;
    return first >= 0xF0 && first <= 0xF4 ? 4 : 0;
}

// The second byte is the only one that overlong forms, surrogates and numbers
// above the last character make a difference to.
bool isSecondByte(unsigned char first, unsigned char second) {
    switch (first) {
    case 0xE0: return second >= 0xA0 && second <= 0xBF;
    case 0xED: return second >= 0x80 && second <= 0x9F;
    case 0xF0: return second >= 0x90 && second <= 0xBF;
    case 0xF4: return second >= 0x80 && second <= 0x8F;
    default: return second >= 0x80 && second <= 0xBF;
    }
}

}  // namespace

bool isUtf8(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t length = lengthOfCharacter(byte(i));
        if (length == 0 || length > text.size() - i)
            return false;
        if (length > 1 && !isSecondByte(byte(i), byte(i + 1)))
            return false;
        for (std::size_t k = 2; k < length; ++k)
            if ((byte(i + k) & 0xC0) != 0x80)
                return false;
        i += length;
    }
    return true;
}

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos)
        return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

std::string grouped(long number) {
    std::string digits = std::to_string(number);
    const std::size_t start = number < 0 ? 1 : 0;
    for (std::size_t i = digits.size(); i > start + 3;) {
        i -= 3;
        digits.insert(i, 1, ',');
    }
    return digits;
}

std::string inQuotes(std::string_view text) {
    constexpr std::size_t shown = 60;
    if (text.size() <= shown)
        return '"' + std::string(text) + '"';
    std::size_t end = shown;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0) == 0x80)
        --end;
    return '"' + std::string(text.substr(0, end)) + "...\"";
}

}  // namespace packages
