// The members of described classes, as queries name them.

#pragma once

#include <chrono>
#include <compare>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include <kes/Description.h>
#include <kes/FieldCodec.h>
#include <kes/Forward.h>
#include <kes/Predicate.h>
#include <kes/Ref.h>

namespace Kes {

template <class M>
struct MemberOf;
template <class M, class C>
struct MemberOf<M C::*> {
    using Type = M;
    using Owner = C;
};

template <class T>
struct ValueOf {
    using type = T;
};
template <class T>
struct ValueOf<std::optional<T>> {
    using type = T;
};

template <class M>
inline constexpr bool IsText = std::is_same_v<M, std::string> || std::is_same_v<M, String>;
template <class M>
inline constexpr bool IsCharacter =
    std::is_same_v<M, char> || std::is_same_v<M, wchar_t> || std::is_same_v<M, char8_t> ||
    std::is_same_v<M, char16_t> || std::is_same_v<M, char32_t>;
template <class M>
inline constexpr bool IsInteger =
    std::is_integral_v<M> && !std::is_same_v<M, bool> && !IsCharacter<M>;
template <class M>
inline constexpr bool IsNumber = IsInteger<M> || std::is_floating_point_v<M>;

/// What the databases can compare; blobs they cannot.
template <class M>
inline constexpr bool HasEquality =
    !std::is_same_v<M, Blob> && !std::is_same_v<M, std::vector<std::byte>>;

/// Whether what is stored is ordered as the values are. Of a type of the
/// application's its FieldTraits says so, with
/// `static constexpr bool isOrdered = true`.
template <class M>
consteval bool hasOrder() {
    if constexpr (requires { FieldTraits<M>::isOrdered; })
        return FieldTraits<M>::isOrdered;
    else
        return HasEquality<M> && !requires {
            typename FieldTraits<M>::Stored;
        };
}

/// Whether fields of type `M` may be compared with a `V`.
template <class M, class V>
consteval bool takesValue() {
    using Inner = typename ValueOf<M>::type;
    if constexpr (std::is_same_v<V, std::nullopt_t>)
        return IsOptional<M>;
    else if constexpr (IsOptional<V>)
        return IsOptional<M> && takesValue<M, typename ValueOf<V>::type>();
    else if constexpr (!HasEquality<Inner> || std::is_null_pointer_v<V>)
        return false;
    else if constexpr (IsText<Inner>)
        return std::is_convertible_v<const V&, std::string_view> ||
               std::is_convertible_v<const V&, const char*>;
    else if constexpr (std::is_floating_point_v<Inner>)
        return IsNumber<V>;
    else if constexpr (IsInteger<Inner>)
        return IsInteger<V>;
    else if constexpr (std::is_enum_v<Inner> || std::is_same_v<Inner, bool>)
        return std::is_same_v<V, Inner>;
    else
        return std::is_convertible_v<const V&, Inner>;
}

/// Whether a value of the type needs its codec.
template <class Inner>
inline constexpr bool IsCoded = !IsText<Inner> && !IsNumber<Inner>;

/// A number or a text as the constructors of PredicateBase take it.
template <class Inner, class V>
auto plainOperand(const V& value) {
    if constexpr (IsText<Inner> && std::is_convertible_v<const V&, std::string_view>)
        return std::string_view(value);
    else if constexpr (IsText<Inner>)
        return std::string_view(static_cast<const char*>(value));
    else if constexpr (std::is_floating_point_v<V>)
        return static_cast<double>(value);
    else if constexpr (std::is_unsigned_v<V>)
        return static_cast<std::uint64_t>(value);
    else
        return static_cast<std::int64_t>(value);
}

/// Where a sort key comes from.
struct SortKeyData {
    FieldKey field;
    bool isAscending;
};

/// A key that results of class `T` may be sorted by.
template <class T>
struct SortKey {
    using Subject = T;
    SortKeyData data;
};

/// What a Field of every type has. The class that is queried is `T`.
template <auto Member, class T>
class FieldBase {
public:
    using Type = typename MemberOf<decltype(Member)>::Type;
    using Subject = T;

    /// The member, for functions that serve all types.
    static FieldPlace locate() {
#if defined(__GNUC__)
        const char* signature = static_cast<const char*>(__PRETTY_FUNCTION__);
#else
        const char* signature = "";
#endif
        if constexpr (IsDescribed<T>)
            return {&typeid(T), placeOf<T>(Member).offset, signature};
        else
            return {&typeid(T), 0, signature};
    }
};

/// A stored member. Conditions on an optional one mean what they mean in C++
/// where they ask for equality: an empty one is equal to `std::nullopt` alone. It
/// is neither less nor greater than a value, so it is not among those that are
/// `< x`, nor among those that are `>= x`; `!(… < x)` has it.
template <auto Member, class T>
class StoredField : public FieldBase<Member, T> {
    using M = typename MemberOf<decltype(Member)>::Type;
    using Inner = typename ValueOf<M>::type;

public:
    template <class V>
    Predicate<T> operator==(const V& value) const {
        return compare<false>(PredicateBase::Equal, value);
    }
    template <class V>
    Predicate<T> operator!=(const V& value) const {
        return compare<false>(PredicateBase::NotEqual, value);
    }
    template <class V>
    Predicate<T> operator<(const V& value) const {
        return compare<true>(PredicateBase::Less, value);
    }
    template <class V>
    Predicate<T> operator<=(const V& value) const {
        return compare<true>(PredicateBase::LessOrEqual, value);
    }
    template <class V>
    Predicate<T> operator>(const V& value) const {
        return compare<true>(PredicateBase::Greater, value);
    }
    template <class V>
    Predicate<T> operator>=(const V& value) const {
        return compare<true>(PredicateBase::GreaterOrEqual, value);
    }

    /// Both bounds belong to it.
    template <class A, class B>
    Predicate<T> between(const A& least, const B& most) const {
        return compare<true>(PredicateBase::GreaterOrEqual, least) &&
               compare<true>(PredicateBase::LessOrEqual, most);
    }

    /// Equal to one of the values: a list in braces, or a container.
    template <class V>
    Predicate<T> in(std::initializer_list<V> values) const {
        return inRange(values);
    }
    template <class R>
    Predicate<T> in(const R& values) const {
        return inRange(values);
    }

    /// The text is of the pattern, in which `%` stands for any characters, `_`
    /// for one, and `\` takes the next one as it is. Case matters.
    template <class V>
    Predicate<T> like(const V& pattern) const {
        static_assert(IsText<Inner>, "only a text is like a pattern");
        static_assert(!IsText<Inner> || takesValue<Inner, V>(), "a pattern is a text");
        if constexpr (IsText<Inner> && takesValue<Inner, V>())
            return Predicate<T>(&this->locate, std::string_view(pattern));
        else
            return nothing();
    }

    /// Whether the optional is empty, or has a value.
    Predicate<T> isNull() const { return !isSet(); }
    Predicate<T> isSet() const {
        static_assert(IsOptional<M>,
                      "this field always has a value; only an optional one has none");
        return Predicate<T>(&this->locate);
    }

    /// For orderBy, where a field by itself is ascending. An empty optional comes
    /// before all values, so descending after them.
    SortKey<T> ascending() const {
        static_assert(hasOrder<Inner>(), "databases do not sort by fields of this type");
        return {{&this->locate, true}};
    }
    SortKey<T> descending() const {
        static_assert(hasOrder<Inner>(), "databases do not sort by fields of this type");
        return {{&this->locate, false}};
    }

private:
    // Of what does not compile.
    static Predicate<T> nothing() { return Predicate<T>(FieldKey()); }

    template <bool IsByOrder, class V>
    Predicate<T> compare(PredicateBase::Comparison op, const V& value) const {
        constexpr bool isComparable = IsByOrder ? hasOrder<Inner>() : HasEquality<Inner>;
        constexpr bool isOfTheType = takesValue<M, V>();
        constexpr bool hasPlace = !IsByOrder || !std::is_same_v<V, std::nullopt_t>;
        static_assert(isComparable, "databases do not compare fields of this type in this way");
        static_assert(!isComparable || isOfTheType,
                      "the field is compared with a value of another type");
        static_assert(!isOfTheType || hasPlace, "an empty value has no order");
        if constexpr (!isComparable || !isOfTheType || !hasPlace)
            return nothing();
        else if constexpr (std::is_same_v<V, std::nullopt_t>)
            return Predicate<T>(&this->locate, op, std::nullopt);
        else if constexpr (IsOptional<V>)
            return value.has_value() ? compare<IsByOrder>(op, *value)
                                     : Predicate<T>(&this->locate, op, std::nullopt);
        else if constexpr (!IsCoded<Inner>)
            return Predicate<T>(&this->locate, op, plainOperand<Inner>(value));
        else {
            const Inner converted = value;
            return Predicate<T>(&this->locate, op, FieldCodecOf<Inner>::value, &converted);
        }
    }

    template <class V>
    static void add(OperandList& list, const V& value) {
        if constexpr (std::is_same_v<V, std::nullopt_t>)
            list.add(value);
        else if constexpr (IsOptional<V>) {
            if (value.has_value())
                add(list, *value);
            else
                list.add(std::nullopt);
        } else if constexpr (!IsCoded<Inner>) {
            list.add(plainOperand<Inner>(value));
        } else {
            const Inner converted = value;
            list.add(FieldCodecOf<Inner>::value, &converted);
        }
    }

    template <class R>
    Predicate<T> inRange(const R& values) const {
        using V = std::remove_cvref_t<decltype(*std::begin(values))>;
        static_assert(takesValue<M, V>(), "the field is compared with values of another type");
        OperandList list;
        if constexpr (takesValue<M, V>())
            for (const auto& each : values)
                add(list, each);
        return Predicate<T>(&this->locate, list);
    }
};

/// A link.
template <auto Member, class T>
class LinkField : public FieldBase<Member, T> {
protected:
    using Partner = typename PartnerOf<typename MemberOf<decltype(Member)>::Type>::type;

    template <class V>
    static consteval bool takesPartner() {
        return std::is_convertible_v<const V&, Ref<Partner>>;
    }

    template <class V>
    Predicate<T> refersTo(const V& partner) const {
        static_assert(takesPartner<V>(), "the link leads to objects of another class");
        if constexpr (takesPartner<V>())
            return Predicate<T>(&this->locate, Ref<Partner>(partner));
        else
            return Predicate<T>(FieldKey());
    }

    template <class P>
    Predicate<T> has(const Predicate<P>& condition) const {
        constexpr bool fits = areRelated<P, Partner>();
        static_assert(fits,
                      "the link leads to objects of another class than the condition is about");
        return Predicate<T>(&this->locate,
                            typeid(std::conditional_t<fits, SubClassOf<P, Partner>, Partner>),
                            condition);
    }
};

/// A link to one object or none.
template <auto Member, class T>
class OneField : public LinkField<Member, T> {
public:
    /// `partner` is a Ref, an object, or null for none; an empty Ref is null.
    template <class V>
    Predicate<T> operator==(const V& partner) const {
        return this->refersTo(partner);
    }
    template <class V>
    Predicate<T> operator!=(const V& partner) const {
        return !this->refersTo(partner);
    }
    Predicate<T> isNull() const { return this->refersTo(nullptr); }
    Predicate<T> isSet() const { return !this->refersTo(nullptr); }

    /// There is a partner, and it is as the condition says.
    template <class P>
    Predicate<T> operator()(const Predicate<P>& condition) const {
        return this->has(condition);
    }
};

/// A link to many objects.
template <auto Member, class T>
class ManyField : public LinkField<Member, T> {
public:
    /// Some partner, or none of them, is as the condition says.
    template <class P>
    Predicate<T> any(const Predicate<P>& condition) const {
        return this->has(condition);
    }
    template <class P>
    Predicate<T> none(const Predicate<P>& condition) const {
        return !this->has(condition);
    }

    /// There are partners, or none.
    Predicate<T> any() const { return !this->refersTo(nullptr); }
    Predicate<T> none() const { return this->refersTo(nullptr); }

    /// The object is one of the partners.
    template <class V>
    Predicate<T> contains(const V& partner) const {
        static_assert(!std::is_null_pointer_v<V>, "ask for a partner, or for none() of them");
        return this->refersTo(partner);
    }
};

/// Names a member in conditions and orders: `Kes::field<&Ticket::title>`. The
/// member is one that the class, or its super class, describes. Of a base that is
/// no persistent class the class that describes the member is named as well:
/// `Kes::field<&Named::name, Ticket>`.
template <auto Member, class T>
consteval auto makeField() {
    using M = typename MemberOf<decltype(Member)>::Type;
    static_assert(IsDescribed<T>, "a field of a query is a member of a described class");
    if constexpr (IsMany<M>)
        return ManyField<Member, T>();
    else if constexpr (IsReference<M>)
        return OneField<Member, T>();
    else
        return StoredField<Member, T>();
}
template <auto Member, class T = typename MemberOf<decltype(Member)>::Owner>
inline constexpr auto field = makeField<Member, T>();

/// Names the object id in conditions and orders: `Kes::id < 100`.
enum Identity { id };

/// The object id compares so with the number.
template <class V>
Predicate<Instance> compareId(PredicateBase::Comparison op, const V& value) {
    static_assert(IsInteger<V>, "an object id is a whole number");
    if constexpr (IsInteger<V>)
        return Predicate<Instance>(FieldKey(), op, plainOperand<unsigned long>(value));
    else
        return Predicate<Instance>(FieldKey());
}
template <class V>
Predicate<Instance> operator==(Identity, const V& value) {
    return compareId(PredicateBase::Equal, value);
}
template <class V>
Predicate<Instance> operator!=(Identity, const V& value) {
    return compareId(PredicateBase::NotEqual, value);
}
template <class V>
Predicate<Instance> operator<(Identity, const V& value) {
    return compareId(PredicateBase::Less, value);
}
template <class V>
Predicate<Instance> operator<=(Identity, const V& value) {
    return compareId(PredicateBase::LessOrEqual, value);
}
template <class V>
Predicate<Instance> operator>(Identity, const V& value) {
    return compareId(PredicateBase::Greater, value);
}
template <class V>
Predicate<Instance> operator>=(Identity, const V& value) {
    return compareId(PredicateBase::GreaterOrEqual, value);
}

/// The same order, backwards.
inline SortKey<Instance> descending(Identity) {
    return {{nullptr, false}};
}

/// A sort key as it was written: a field, one with its direction, or the id.
template <auto Member, class T>
SortKey<T> sortKeyOf(const StoredField<Member, T>& named) {
    using Inner = typename ValueOf<typename MemberOf<decltype(Member)>::Type>::type;
    static_assert(hasOrder<Inner>(), "databases do not sort by fields of this type");
    return {{&named.locate, true}};
}
template <class T>
SortKey<T> sortKeyOf(const SortKey<T>& key) {
    return key;
}
inline SortKey<Instance> sortKeyOf(Identity) {
    return {{nullptr, true}};
}

}  // namespace Kes
