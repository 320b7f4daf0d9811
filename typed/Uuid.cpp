#include <kes/Uuid.h>

#include <cstddef>
#include <random>

#include <kes/Error.h>

namespace Kes {

namespace {

constexpr std::size_t TextSize = 36;

bool isDash(std::size_t position) {
    return position == 8 || position == 13 || position == 18 || position == 23;
}

// -1 for a character that is none.
int digitOf(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

}  // namespace

Uuid::Uuid(std::string_view text) {
    bool fits = text.size() == TextSize;
    std::size_t digits = 0;
    for (std::size_t i = 0; fits && i < TextSize; ++i) {
        if (isDash(i)) {
            fits = text[i] == '-';
            continue;
        }
        const int digit = digitOf(text[i]);
        fits = digit >= 0;
        bytes[digits / 2] = static_cast<std::uint8_t>(bytes[digits / 2] << 4 | (digit & 15));
        ++digits;
    }
    if (!fits)
        throw Error(ErrorKind::InvalidValue, "VALUEERR", "Kes::Uuid",
                    "\"" + std::string(text) +
                        "\" is no UUID; write one of the form "
                        "01234567-89ab-cdef-0123-456789abcdef");
}

Uuid Uuid::random() {
    std::random_device source;
    std::array<std::uint8_t, 16> drawn{};
    for (std::size_t i = 0; i < drawn.size(); i += 4) {
        const unsigned int word = source();
        for (std::size_t k = 0; k < 4; ++k)
            drawn[i + k] = static_cast<std::uint8_t>(word >> 8 * k);
    }
    drawn[6] = static_cast<std::uint8_t>((drawn[6] & 0x0F) | 0x40);
    drawn[8] = static_cast<std::uint8_t>((drawn[8] & 0x3F) | 0x80);
    return Uuid(drawn);
}

std::string Uuid::toString() const {
    constexpr const char* digits = "0123456789abcdef";
    std::string text;
    text.reserve(TextSize);
    for (const std::uint8_t byte : bytes) {
        if (isDash(text.size()))
            text += '-';
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

}  // namespace Kes
