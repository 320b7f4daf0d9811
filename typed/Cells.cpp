#include "typed/Cells.h"

#include <algorithm>
#include <string>
#include <type_traits>

namespace Kes {

int compareCells(const Cell& a, const Cell& b) {
    if (a.index() != b.index())
        return a.index() < b.index() ? -1 : 1;
    return std::visit(
        [&b](const auto& left) {
            using Held = std::decay_t<decltype(left)>;
            if constexpr (std::is_same_v<Held, std::monostate> || std::is_same_v<Held, Blob> ||
                          std::is_same_v<Held, Total>) {
                return 0;
            } else {
                const Held& right = std::get<Held>(b);
                return left < right ? -1 : right < left ? 1 : 0;
            }
        },
        a);
}

Total totalOf(const Cell& number) {
    return std::visit(
        [](const auto& held) {
            using Held = std::decay_t<decltype(held)>;
            if constexpr (std::is_same_v<Held, Total>)
                return held;
            else if constexpr (std::is_floating_point_v<Held>)
                return Total{0, static_cast<double>(held)};
            else if constexpr (std::is_integral_v<Held>)
                return Total{static_cast<WideInteger>(held), 0};
            else
                return Total();
        },
        number);
}

WideInteger integerOf(const String& digits) {
    const char* next = digits;
    const bool isNegative = *next == '-';
    WideInteger value = 0;
    for (next += isNegative ? 1 : 0; *next >= '0' && *next <= '9'; ++next)
        value = value * 10 + (*next - '0');
    return isNegative ? -value : value;
}

std::string digitsOf(WideInteger number) {
    const bool isNegative = number < 0;
    std::string digits;
    do {
        const int digit = static_cast<int>(number % 10);
        digits += static_cast<char>('0' + (digit < 0 ? -digit : digit));
        number /= 10;
    } while (number != 0);
    if (isNegative)
        digits += '-';
    std::reverse(digits.begin(), digits.end());
    return digits;
}

}  // namespace Kes
