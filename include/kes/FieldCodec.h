// How members of ordinary types are stored.
//
// A codec says which of the ten kinds of values that every database keeps
// carries a member's type, and how. It is data, and functions of the library
// work with it; what an application's own types need are two small functions.

#pragma once

#include <chrono>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include <kes/Blob.h>
#include <kes/Decimal.h>
#include <kes/Export.h>
#include <kes/String.h>
#include <kes/Timestamp.h>
#include <kes/Uuid.h>

namespace Kes {

/// The form of a member. The first ten are what the operations of Handler take,
/// in their order.
enum class FieldForm : std::uint8_t {
    ULong,
    Long,
    Text,
    Int,
    UInt,
    Bool,
    Float,
    Double,
    Time,
    Bytes,
    Integer,    ///< an integer of some width, or something of its representation
    StdText,    ///< std::string
    StdBytes,   ///< std::vector<std::byte>
    Date,       ///< std::chrono::year_month_day
    Uuid,       ///< Kes::Uuid
    Optional,   ///< std::optional of what has a codec
    Converted,  ///< a type with FieldTraits
};

/// What FieldTraits converts to, for whoever works with its codec.
class KES_EXPORT StoredVisitor {
public:
    /// `stored` is a FieldTraits<T>::Stored, borrowed for the call.
    virtual void visit(void* stored) = 0;

protected:
    ~StoredVisitor() = default;
};

/// How members of one type are stored.
struct FieldCodec {
    enum Access { Peek, Emplace, Reset };

    FieldForm form;
    FieldForm carrier;      // one of the ten; of what is within, for the last two forms
    std::uint8_t size = 0;  // of an integer, in bytes
    bool isSigned = false;
    const FieldCodec* inner = nullptr;

    // Of an optional: its value, null when empty.
    void* (*access)(void* member, Access how) = nullptr;

    // Of a type with FieldTraits: shows its stored form to the visitor, and
    // takes over what that has changed.
    void (*convert)(void* member, StoredVisitor& visitor) = nullptr;
};

/// Stores a type of the application's own. Specialise it:
///
///     template <>
///     struct Kes::FieldTraits<Colour> {
///         using Stored = std::string;
///         static Stored store(const Colour& colour);
///         static Colour load(const Stored& stored);
///     };
///
/// `Stored` is any type that may be a member itself, but no optional. Queries
/// compare what is stored for equality; with `static constexpr bool isOrdered =
/// true` they also sort by it, and take it for less or greater. `load` throws what it likes for a
/// stored value that is none.
template <class T>
struct FieldTraits;

/// The codec of a type; the member `value`. Not defined for a type that cannot be
/// stored.
template <class T>
struct FieldCodecOf;

template <class T>
inline constexpr bool IsStorable = requires {
    sizeof(FieldCodecOf<T>);
};

template <class T>
inline constexpr bool IsOptional = false;
template <class T>
inline constexpr bool IsOptional<std::optional<T>> = true;

template <class T>
requires requires {
    typename FieldTraits<T>::Stored;
}
struct FieldCodecOf<T> {
    using Stored = typename FieldTraits<T>::Stored;
    static_assert(IsStorable<Stored> && !IsOptional<Stored>,
                  "Kes::FieldTraits stores a type as one that a member may have, and that is no "
                  "optional");

    /// The operation of the codec.
    static void convert(void* member, StoredVisitor& visitor) {
        Stored stored = FieldTraits<T>::store(*static_cast<const T*>(member));
        const Stored before = stored;
        visitor.visit(&stored);
        if (!(stored == before))
            *static_cast<T*>(member) = FieldTraits<T>::load(stored);
    }

    static constexpr FieldCodec value{.form = FieldForm::Converted,
                                      .carrier = FieldCodecOf<Stored>::value.carrier,
                                      .inner = &FieldCodecOf<Stored>::value,
                                      .convert = &convert};
};

/// A member of one of the ten kinds, as it is.
template <FieldForm Form>
struct PlainFieldCodec {
    static constexpr FieldCodec value{.form = Form, .carrier = Form};
};

/// An integer of 1 to 8 bytes.
template <std::size_t Size, bool IsSigned>
struct IntegerFieldCodec {
    static constexpr FieldCodec value{
        .form = FieldForm::Integer,
        .carrier = Size == 8 ? (IsSigned ? FieldForm::Long : FieldForm::ULong)
                             : (IsSigned ? FieldForm::Int : FieldForm::UInt),
        .size = static_cast<std::uint8_t>(Size),
        .isSigned = IsSigned};
};

/// A type that functions of the library convert.
template <FieldForm Form, FieldForm Carrier>
struct KnownFieldCodec {
    static constexpr FieldCodec value{.form = Form, .carrier = Carrier};
};

template <>
struct FieldCodecOf<unsigned long> : PlainFieldCodec<FieldForm::ULong> {};
template <>
struct FieldCodecOf<long> : PlainFieldCodec<FieldForm::Long> {};
template <>
struct FieldCodecOf<String> : PlainFieldCodec<FieldForm::Text> {};
template <>
struct FieldCodecOf<int> : PlainFieldCodec<FieldForm::Int> {};
template <>
struct FieldCodecOf<unsigned int> : PlainFieldCodec<FieldForm::UInt> {};
template <>
struct FieldCodecOf<bool> : PlainFieldCodec<FieldForm::Bool> {};
template <>
struct FieldCodecOf<float> : PlainFieldCodec<FieldForm::Float> {};
template <>
struct FieldCodecOf<double> : PlainFieldCodec<FieldForm::Double> {};
template <>
struct FieldCodecOf<Timestamp> : PlainFieldCodec<FieldForm::Time> {};
template <>
struct FieldCodecOf<Blob> : PlainFieldCodec<FieldForm::Bytes> {};

template <>
struct FieldCodecOf<signed char> : IntegerFieldCodec<1, true> {};
template <>
struct FieldCodecOf<unsigned char> : IntegerFieldCodec<1, false> {};
template <>
struct FieldCodecOf<short> : IntegerFieldCodec<sizeof(short), true> {};
template <>
struct FieldCodecOf<unsigned short> : IntegerFieldCodec<sizeof(short), false> {};
template <>
struct FieldCodecOf<long long> : IntegerFieldCodec<sizeof(long long), true> {};
template <>
struct FieldCodecOf<unsigned long long> : IntegerFieldCodec<sizeof(long long), false> {};

/// By its underlying type.
template <class T>
requires(std::is_enum_v<T> && !requires { typename FieldTraits<T>::Stored; }) struct FieldCodecOf<T>
    : IntegerFieldCodec<sizeof(T), std::is_signed_v<std::underlying_type_t<T>>> {
};

template <int Scale>
struct FieldCodecOf<Decimal<Scale>> : IntegerFieldCodec<8, true> {};

/// Microseconds since the beginning of 1970, UTC.
template <>
struct FieldCodecOf<std::chrono::sys_time<std::chrono::microseconds>> : IntegerFieldCodec<8, true> {
    static_assert(sizeof(std::chrono::sys_time<std::chrono::microseconds>) == 8);
};

template <>
struct FieldCodecOf<std::string> : KnownFieldCodec<FieldForm::StdText, FieldForm::Text> {};
template <>
struct FieldCodecOf<std::vector<std::byte>>
    : KnownFieldCodec<FieldForm::StdBytes, FieldForm::Bytes> {};
template <>
struct FieldCodecOf<std::chrono::year_month_day>
    : KnownFieldCodec<FieldForm::Date, FieldForm::Time> {};
template <>
struct FieldCodecOf<Uuid> : KnownFieldCodec<FieldForm::Uuid, FieldForm::Text> {};

template <class T>
requires(IsStorable<T> && !IsOptional<T>) struct FieldCodecOf<std::optional<T>> {
    /// The operation of the codec.
    static void* access(void* member, FieldCodec::Access how) {
        auto& held = *static_cast<std::optional<T>*>(member);
        if (how == FieldCodec::Emplace)
            held.emplace();
        else if (how == FieldCodec::Reset)
            held.reset();
        return held.has_value() ? &*held : nullptr;
    }

    static constexpr FieldCodec value{.form = FieldForm::Optional,
                                      .carrier = FieldCodecOf<T>::value.carrier,
                                      .inner = &FieldCodecOf<T>::value,
                                      .access = &access};
};

}  // namespace Kes
