#include <kes/Decimal.h>

#include <limits>

#include <kes/Error.h>

namespace Kes {

namespace {

[[noreturn]] void fail(const std::string& fault) {
    throw Error(ErrorKind::InvalidValue, "VALUEERR", "Kes::Decimal", fault);
}

[[noreturn]] void failOnSize() {
    fail("The number has more digits than a decimal holds; use a smaller scale or number");
}

std::int64_t powerOfTen(int exponent) {
    std::int64_t power = 1;
    while (exponent-- > 0)
        power *= 10;
    return power;
}

}  // namespace

std::int64_t DecimalUnits::add(std::int64_t a, std::int64_t b) {
    std::int64_t sum = 0;
    if (__builtin_add_overflow(a, b, &sum))
        failOnSize();
    return sum;
}

std::int64_t DecimalUnits::subtract(std::int64_t a, std::int64_t b) {
    std::int64_t difference = 0;
    if (__builtin_sub_overflow(a, b, &difference))
        failOnSize();
    return difference;
}

std::int64_t DecimalUnits::multiply(std::int64_t a, std::int64_t b) {
    std::int64_t product = 0;
    if (__builtin_mul_overflow(a, b, &product))
        failOnSize();
    return product;
}

std::int64_t DecimalUnits::scaled(std::int64_t whole, int scale) {
    return multiply(whole, powerOfTen(scale));
}

// Counted downwards, where there is room for one number more.
std::int64_t DecimalUnits::parse(std::string_view text, int scale) {
    const std::string words = "\"" + std::string(text) + "\"";
    const bool isNegative = text.starts_with('-');
    if (isNegative || text.starts_with('+'))
        text.remove_prefix(1);
    std::int64_t units = 0;
    int places = -1;  // behind the point; -1 before it
    bool hasDigits = false;
    for (const char c : text) {
        if (c == '.' && places < 0) {
            places = 0;
            continue;
        }
        if (c < '0' || c > '9')
            fail(words + " is no decimal number; write one such as -12.50");
        if (places >= 0 && ++places > scale)
            fail(words + " has more than " + std::to_string(scale) +
                 " decimal places; round it, or use a larger scale");
        units = subtract(multiply(units, 10), c - '0');
        hasDigits = true;
    }
    if (!hasDigits)
        fail(words + " is no decimal number; write one such as -12.50");
    units = multiply(units, powerOfTen(scale - (places < 0 ? 0 : places)));
    return isNegative ? units : subtract(0, units);
}

std::string DecimalUnits::format(std::int64_t units, int scale) {
    const bool isNegative = units < 0;
    const auto size =
        isNegative ? 0 - static_cast<std::uint64_t>(units) : static_cast<std::uint64_t>(units);
    std::string digits = std::to_string(size);
    const auto places = static_cast<std::size_t>(scale);
    if (digits.size() <= places)
        digits.insert(0, places + 1 - digits.size(), '0');
    if (scale > 0)
        digits.insert(digits.size() - places, ".");
    return isNegative ? "-" + digits : digits;
}

}  // namespace Kes
