// Universally unique identifiers.

#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

#include <kes/Export.h>

namespace Kes {

/// 16 bytes; all 0 unless made otherwise. A plain value, ordered byte by byte,
/// which is the order of the texts.
class KES_EXPORT Uuid {
public:
    constexpr Uuid() = default;
    constexpr explicit Uuid(const std::array<std::uint8_t, 16>& itsBytes) : bytes(itsBytes) {}

    /// Of the form 01234567-89ab-cdef-0123-456789abcdef, in letters of any case.
    /// Raises Error (InvalidValue) for any other text.
    explicit Uuid(std::string_view text);

    /// A random one (version 4) from the system's source of randomness.
    static Uuid random();

    constexpr const std::array<std::uint8_t, 16>& getBytes() const { return bytes; }

    /// 36 characters, with small letters.
    std::string toString() const;

    friend constexpr auto operator<=>(const Uuid&, const Uuid&) = default;

private:
    std::array<std::uint8_t, 16> bytes{};
};

}  // namespace Kes
