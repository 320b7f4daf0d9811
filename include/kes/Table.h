// Values in place of objects: what queries are asked for besides objects.

#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include <kes/Decimal.h>
#include <kes/Export.h>
#include <kes/Field.h>
#include <kes/FieldCodec.h>
#include <kes/Forward.h>
#include <kes/Predicate.h>
#include <kes/QueryBase.h>

namespace Kes {

/// Where the values of a column come from.
struct ColumnData {
    enum Function : std::uint8_t { Value, Count, Sum, Least, Greatest, Average };

    Function function;
    FieldKey field;  // null for the object id; of a Count, for all objects
};

/// The result of a query for values, which has been read.
class KES_EXPORT TableBase {
public:
    /// A row for each object.
    TableBase(const QueryBase& query, const std::vector<ColumnData>& columns);

    /// A row for all objects that are alike in the first `keys` columns, which are
    /// values, sorted by these; the others are none. Without keys there is one row,
    /// also where there is no object.
    TableBase(const QueryBase& query, const std::vector<ColumnData>& columns, std::size_t keys);

    TableBase(const TableBase&) = delete;
    TableBase& operator=(const TableBase&) = delete;
    ~TableBase();

    /// True when a row has become current, false at the end.
    bool next();

    // --- of the current row; `column` counts from 0 ---

    /// Assigns a value, or a least or greatest one, to a variable of the codec's
    /// type; an empty one to one that is no optional changes nothing. Raises Error
    /// (InvalidValue) for what the type cannot hold.
    void read(std::size_t column, const FieldCodec& codec, void* variable) const;

    /// An object id, or a number of objects.
    unsigned long number(std::size_t column) const;

    /// A sum, which is 0 of no values. Raises Error (InvalidValue) for one that 64
    /// bits do not hold.
    std::int64_t wholeSum(std::size_t column) const;
    double realSum(std::size_t column) const;

    /// An average of numbers that have so many decimal places; none of no values.
    std::optional<double> average(std::size_t column, int places) const;

private:
    struct Result;

    std::unique_ptr<Result> result;
};

/// A column of a result, with values of type `R`, of a query for class `T`.
template <class T, class R, bool IsAggregate>
struct Column {
    using Subject = T;
    using Result = R;
    static constexpr bool isAggregate = IsAggregate;

    using Reader = R (*)(const TableBase&, std::size_t);

    ColumnData data;
    Reader read;
};

/// A value of the current row.
template <class R>
R readValue(const TableBase& table, std::size_t column) {
    R value{};
    table.read(column, FieldCodecOf<R>::value, &value);
    return value;
}

/// What numbers of a type add up to.
template <class M>
struct SumOf {
    static constexpr bool isKnown = IsNumber<M>;
    static constexpr int places = 0;
    using type = std::conditional_t<std::is_floating_point_v<M>, double, std::int64_t>;

    /// Of the current row.
    static type read(const TableBase& table, std::size_t column) {
        if constexpr (std::is_floating_point_v<M>)
            return table.realSum(column);
        else
            return table.wholeSum(column);
    }
};
template <int Scale>
struct SumOf<Decimal<Scale>> {
    static constexpr bool isKnown = true;
    static constexpr int places = Scale;
    using type = Decimal<Scale>;

    /// Of the current row.
    static type read(const TableBase& table, std::size_t column) {
        return type::fromUnits(table.wholeSum(column));
    }
};

template <int Places>
std::optional<double> readAverage(const TableBase& table, std::size_t column) {
    return table.average(column, Places);
}

/// An object id, or a number of objects, of the current row.
inline unsigned long readNumber(const TableBase& table, std::size_t column) {
    return table.number(column);
}

template <auto Member>
using ValueTypeOf = typename ValueOf<typename MemberOf<decltype(Member)>::Type>::type;

/// How many objects there are.
inline Column<Instance, unsigned long, true> count() {
    return {{ColumnData::Count, nullptr}, &readNumber};
}

/// How many of them have a value of the field.
template <auto Member, class T>
Column<T, unsigned long, true> count(const StoredField<Member, T>& field) {
    return {{ColumnData::Count, &field.locate}, &readNumber};
}

/// What the values add up to, without the empty ones: 0 of no values. Of whole
/// numbers and decimals it is exact, and raises Error (InvalidValue) where 64 bits
/// do not hold it; others are added in the order that the database likes, which
/// decides on the last bits.
template <auto Member, class T>
auto sum(const StoredField<Member, T>& field) {
    using Sum = SumOf<ValueTypeOf<Member>>;
    static_assert(Sum::isKnown, "only numbers are added up");
    return Column<T, typename Sum::type, true>{{ColumnData::Sum, &field.locate}, &Sum::read};
}

/// The average of the values, without the empty ones; none of no values.
template <auto Member, class T>
Column<T, std::optional<double>, true> avg(const StoredField<Member, T>& field) {
    using Sum = SumOf<ValueTypeOf<Member>>;
    static_assert(Sum::isKnown, "only numbers have an average");
    return {{ColumnData::Average, &field.locate}, &readAverage<Sum::places>};
}

/// The least and the greatest value, in the order that results are sorted by; none
/// of no values. Of `bool` there is none.
template <auto Member, class T>
auto min(const StoredField<Member, T>& field) {
    using Inner = ValueTypeOf<Member>;
    static_assert(hasOrder<Inner>() && !std::is_same_v<Inner, bool>,
                  "fields of this type have no least value");
    return Column<T, std::optional<Inner>, true>{{ColumnData::Least, &field.locate},
                                                 &readValue<std::optional<Inner>>};
}
template <auto Member, class T>
auto max(const StoredField<Member, T>& field) {
    using Inner = ValueTypeOf<Member>;
    static_assert(hasOrder<Inner>() && !std::is_same_v<Inner, bool>,
                  "fields of this type have no greatest value");
    return Column<T, std::optional<Inner>, true>{{ColumnData::Greatest, &field.locate},
                                                 &readValue<std::optional<Inner>>};
}

/// A column as it was written: a field, the object id, or one of the above.
template <auto Member, class T>
auto columnOf(const StoredField<Member, T>& field) {
    using M = typename MemberOf<decltype(Member)>::Type;
    return Column<T, M, false>{{ColumnData::Value, &field.locate}, &readValue<M>};
}
template <auto Member, class T>
auto columnOf(const LinkField<Member, T>&) {
    static_assert(sizeof(T) == 0, "a link is no value; select the objects, or their ids");
}
inline Column<Instance, unsigned long, false> columnOf(Identity) {
    return {{ColumnData::Value, nullptr}, &readNumber};
}
template <class T, class R, bool A>
Column<T, R, A> columnOf(const Column<T, R, A>& column) {
    return column;
}

template <class C>
using ColumnTypeOf = decltype(columnOf(std::declval<const C&>()));
template <class C>
using ResultOf = typename ColumnTypeOf<C>::Result;
template <class C>
inline constexpr bool isAggregateColumn = ColumnTypeOf<C>::isAggregate;

/// What is true or false of a row of a result.
template <class T>
struct RowTest {
    using Subject = T;
    using Test = bool (*)(const TableBase&, std::size_t column, const void* wanted);

    ColumnData data;
    std::shared_ptr<const void> wanted;
    Test holds;
};

/// Whole numbers of any two types are compared as numbers.
template <class A, class B>
bool isBefore(const A& a, const B& b) {
    if constexpr (IsInteger<A> && IsInteger<B>)
        return std::cmp_less(a, b);
    else
        return a < b;
}

/// Whether the first value compares so with the second.
template <PredicateBase::Comparison Op, class A, class B>
bool holdsFor(const A& a, const B& b) {
    switch (Op) {
    case PredicateBase::Equal: return !isBefore(a, b) && !isBefore(b, a);
    case PredicateBase::NotEqual: return isBefore(a, b) || isBefore(b, a);
    case PredicateBase::Greater: return isBefore(b, a);
    case PredicateBase::Less: return isBefore(a, b);
    case PredicateBase::GreaterOrEqual: return !isBefore(a, b);
    case PredicateBase::LessOrEqual: return !isBefore(b, a);
    }
    return false;
}

/// An aggregate compares so with a value; one of no values does not.
template <PredicateBase::Comparison Op, class T, class R, class V>
RowTest<T> testOf(const Column<T, R, true>& column, const V& value) {
    using Inner = typename ValueOf<R>::type;
    constexpr bool fits = takesValue<Inner, V>();
    static_assert(fits, "the aggregate is compared with a value of another type");
    if constexpr (fits) {
        struct Wanted {
            typename Column<T, R, true>::Reader read;
            std::conditional_t<IsInteger<Inner>, V, Inner> value;
        };
        const auto holds = [](const TableBase& table, std::size_t place, const void* test) {
            const auto& wanted = *static_cast<const Wanted*>(test);
            const R found = wanted.read(table, place);
            if constexpr (IsOptional<R>)
                return found.has_value() && holdsFor<Op>(*found, wanted.value);
            else
                return holdsFor<Op>(found, wanted.value);
        };
        if constexpr (IsText<Inner>)
            return {column.data,
                    std::make_shared<const Wanted>(Wanted{
                        column.read, Inner(std::string(plainOperand<Inner>(value)).c_str())}),
                    holds};
        else
            return {column.data,
                    std::make_shared<const Wanted>(
                        Wanted{column.read, static_cast<decltype(Wanted::value)>(value)}),
                    holds};
    } else {
        return {};
    }
}

template <class T, class R, class V>
RowTest<T> operator==(const Column<T, R, true>& column, const V& value) {
    return testOf<PredicateBase::Equal>(column, value);
}
template <class T, class R, class V>
RowTest<T> operator!=(const Column<T, R, true>& column, const V& value) {
    return testOf<PredicateBase::NotEqual>(column, value);
}
template <class T, class R, class V>
RowTest<T> operator<(const Column<T, R, true>& column, const V& value) {
    return testOf<PredicateBase::Less>(column, value);
}
template <class T, class R, class V>
RowTest<T> operator<=(const Column<T, R, true>& column, const V& value) {
    return testOf<PredicateBase::LessOrEqual>(column, value);
}
template <class T, class R, class V>
RowTest<T> operator>(const Column<T, R, true>& column, const V& value) {
    return testOf<PredicateBase::Greater>(column, value);
}
template <class T, class R, class V>
RowTest<T> operator>=(const Column<T, R, true>& column, const V& value) {
    return testOf<PredicateBase::GreaterOrEqual>(column, value);
}

/// The columns of a grouped result, and what its rows have to fulfil.
template <class T, class... Keys>
class Grouping final {
public:
    Grouping(const QueryBase& itsQuery, const Column<T, Keys, false>&... itsKeys)
        : query(itsQuery),
          keys(itsKeys...) {}

    /// Those groups for which it holds: `Kes::count() > 5`, `Kes::sum(…) < 0`. With
    /// several ones, all of them.
    template <class S>
    [[nodiscard]] Grouping having(const RowTest<S>& test) const {
        static_assert(std::is_base_of_v<S, T>,
                      "the aggregate is of a field of another class than the query");
        Grouping fresh = *this;
        fresh.tests.push_back({test.data, test.wanted, test.holds});
        return fresh;
    }

    /// For each group the values of its fields, and what is computed of its objects.
    template <class... C>
    std::vector<std::tuple<Keys..., ResultOf<C>...>> select(const C&... computed) const {
        static_assert((isAggregateColumn<C> && ...),
                      "a group has no single value of this field; group by it, or ask for its "
                      "least value");
        static_assert((std::is_base_of_v<typename ColumnTypeOf<C>::Subject, T> && ...),
                      "the aggregate is of a field of another class than the query");
        return rows(std::index_sequence_for<Keys...>(), std::index_sequence_for<C...>(),
                    columnOf(computed)...);
    }

    /// With the number of objects in each group.
    std::vector<std::tuple<Keys..., unsigned long>> count() const { return select(Kes::count()); }

private:
    template <std::size_t... K, std::size_t... I, class... C>
    auto rows(std::index_sequence<K...>, std::index_sequence<I...>, const C&... computed) const {
        std::vector<ColumnData> columns{std::get<K>(keys).data..., computed.data...};
        const std::size_t shown = columns.size();
        for (const RowTest<T>& test : tests)
            columns.push_back(test.data);
        TableBase table(query, columns, sizeof...(K));
        std::vector<std::tuple<Keys..., typename C::Result...>> found;
        while (table.next())
            if (fulfils(table, shown))
                found.push_back({std::get<K>(keys).read(table, K)...,
                                 computed.read(table, sizeof...(K) + I)...});
        return found;
    }

    bool fulfils(const TableBase& table, std::size_t place) const {
        for (const RowTest<T>& test : tests)
            if (!test.holds(table, place++, test.wanted.get()))
                return false;
        return true;
    }

    QueryBase query;
    std::tuple<Column<T, Keys, false>...> keys;
    std::vector<RowTest<T>> tests;
};

}  // namespace Kes
