// Exact decimal numbers.

#pragma once

#include <compare>
#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>

#include <kes/Export.h>

namespace Kes {

/// The arithmetic of Decimal for every scale alike. Each raises Error
/// (InvalidValue) for a result that 64 bits do not hold.
struct KES_EXPORT DecimalUnits {
    static std::int64_t add(std::int64_t a, std::int64_t b);
    static std::int64_t subtract(std::int64_t a, std::int64_t b);
    static std::int64_t multiply(std::int64_t a, std::int64_t b);

    /// A whole number in units of 10^-scale.
    static std::int64_t scaled(std::int64_t whole, int scale);

    /// Raises Error (InvalidValue) for what is no number or has more places.
    static std::int64_t parse(std::string_view text, int scale);
    static std::string format(std::int64_t units, int scale);
};

/// A number with exactly `Scale` decimal places, 0 to 18: a count of units of
/// 10^-Scale in 64 bits, such as the cents of an amount. Nothing is ever
/// rounded: what does not fit raises Error (InvalidValue).
template <int Scale>
class Decimal final {
    static_assert(Scale >= 0 && Scale <= 18, "a Kes::Decimal has 0 to 18 decimal places");

public:
    static constexpr int scale = Scale;

    constexpr Decimal() = default;
    template <std::integral I>
    explicit Decimal(I whole)
        : units(DecimalUnits::scaled(static_cast<std::int64_t>(whole), Scale)) {
        static_assert(sizeof(I) < 8 || std::signed_integral<I>,
                      "give a Kes::Decimal a signed whole number");
    }

    /// A binary fraction is seldom a decimal one: give it a text.
    template <std::floating_point F>
    explicit Decimal(F) = delete;

    /// Such as "-12.5"; fewer places than the scale are fine, more are not.
    explicit Decimal(std::string_view text) : units(DecimalUnits::parse(text, Scale)) {}
    explicit Decimal(const char* text) : Decimal(std::string_view(text)) {}

    /// The number that has so many units.
    static constexpr Decimal fromUnits(std::int64_t count) {
        Decimal made;
        made.units = count;
        return made;
    }
    constexpr std::int64_t getUnits() const { return units; }

    /// With all places, such as "-12.50".
    std::string toString() const { return DecimalUnits::format(units, Scale); }

    Decimal operator+(Decimal other) const {
        return fromUnits(DecimalUnits::add(units, other.units));
    }
    Decimal operator-(Decimal other) const {
        return fromUnits(DecimalUnits::subtract(units, other.units));
    }
    Decimal operator-() const { return fromUnits(DecimalUnits::subtract(0, units)); }
    Decimal operator*(std::int64_t factor) const {
        return fromUnits(DecimalUnits::multiply(units, factor));
    }
    Decimal& operator+=(Decimal other) { return *this = *this + other; }
    Decimal& operator-=(Decimal other) { return *this = *this - other; }

    friend constexpr auto operator<=>(Decimal, Decimal) = default;

private:
    std::int64_t units = 0;
};

}  // namespace Kes
