// Conditions of queries over described classes.

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <vector>

#include <kes/Export.h>
#include <kes/FieldCodec.h>
#include <kes/Forward.h>
#include <kes/Ref.h>

namespace Kes {

struct OperandValue;
class PredicateNode;

/// Where a member of a described class is found.
struct FieldPlace {
    const std::type_info* owner;
    std::size_t offset;     // from the object's Instance
    const char* signature;  // a text with the member's name in it
};

/// A member, as conditions and orders name it: what tells its place when it is
/// needed. Null stands for the object id.
using FieldKey = FieldPlace (*)();

/// Values one of which a field is to have.
class KES_EXPORT OperandList {
public:
    OperandList();
    OperandList(const OperandList&) = delete;
    OperandList& operator=(const OperandList&) = delete;
    ~OperandList();

    /// Each appends a value, as the constructors of PredicateBase take one.
    void add(std::int64_t value);
    void add(std::uint64_t value);
    void add(double value);
    void add(std::string_view value);
    void add(const FieldCodec& codec, const void* value);
    void add(std::nullopt_t);

private:
    friend class PredicateBase;

    std::vector<std::shared_ptr<const OperandValue>> values;
};

/// What Predicate<T> does for every T alike.
class KES_EXPORT PredicateBase {
public:
    /// In the order of Condition::ComparisonOperator.
    enum Comparison { Equal, NotEqual, Greater, Less, GreaterOrEqual, LessOrEqual };
    enum Junction { Both, Either };
    enum Inverse { Not };

    PredicateBase(const PredicateBase&);
    PredicateBase(PredicateBase&&) noexcept;
    PredicateBase& operator=(const PredicateBase&);
    PredicateBase& operator=(PredicateBase&&) noexcept;
    ~PredicateBase();

    /// The field compares so with a value, which is copied: a number, a text, what
    /// the codec stores, or what an empty optional is equal to.
    PredicateBase(FieldKey field, Comparison op, std::int64_t value);
    PredicateBase(FieldKey field, Comparison op, std::uint64_t value);
    PredicateBase(FieldKey field, Comparison op, double value);
    PredicateBase(FieldKey field, Comparison op, std::string_view value);
    PredicateBase(FieldKey field, Comparison op, const FieldCodec& codec, const void* value);
    PredicateBase(FieldKey field, Comparison op, std::nullopt_t value);

    /// The field is equal to one of the list, or like the pattern.
    PredicateBase(FieldKey field, const OperandList& list);
    PredicateBase(FieldKey field, std::string_view pattern);

    /// The optional field has a value.
    explicit PredicateBase(FieldKey field);

    /// The object is a partner, or, when empty, there is none.
    PredicateBase(FieldKey field, const RefBase& partner);

    /// Some partner is of class `partner` and as the condition says.
    PredicateBase(FieldKey field, const std::type_info& partner, const PredicateBase& condition);

    /// And, or and not.
    PredicateBase(const PredicateBase& a, Junction junction, const PredicateBase& b);
    PredicateBase(Inverse, const PredicateBase& a);

    /// Shared, and never null.
    const std::shared_ptr<const PredicateNode>& getNode() const { return node; }

private:
    std::shared_ptr<const PredicateNode> node;
};

/// What is true or false of each stored object of class `T` and its sub classes.
///
/// A value that is copied freely and may serve any number of queries: it has
/// copies of what fields are compared with. Combined by `&&`, `||` and `!`, each
/// of which means what it means in C++: there is no third truth value. One that
/// names an object belongs to the thread of that object's database.
template <class T>
class [[nodiscard]] Predicate final : public PredicateBase {
public:
    using Subject = T;

    /// Nothing checks that what they are made of is about class `T`.
    using PredicateBase::PredicateBase;
};

/// Whether one of the classes is the other, or its sub class.
template <class A, class B>
consteval bool areRelated() {
    return std::is_base_of_v<A, B> || std::is_base_of_v<B, A>;
}

/// The one of two related classes that is the other's sub class.
template <class A, class B>
using SubClassOf = std::conditional_t<std::is_base_of_v<A, B>, B, A>;

/// About objects of the sub class of the two.
template <class A, class B>
auto operator&&(const Predicate<A>& a, const Predicate<B>& b) {
    static_assert(areRelated<A, B>(), "these two conditions are about objects of two classes");
    return Predicate<SubClassOf<A, B>>(a, PredicateBase::Both, b);
}
template <class A, class B>
auto operator||(const Predicate<A>& a, const Predicate<B>& b) {
    static_assert(areRelated<A, B>(), "these two conditions are about objects of two classes");
    return Predicate<SubClassOf<A, B>>(a, PredicateBase::Either, b);
}
template <class A>
Predicate<A> operator!(const Predicate<A>& a) {
    return Predicate<A>(PredicateBase::Not, a);
}

}  // namespace Kes
