// Reading described objects.

#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <tuple>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <vector>

#include <kes/Field.h>
#include <kes/Forward.h>
#include <kes/Pointer.h>
#include <kes/Predicate.h>
#include <kes/QueryBase.h>
#include <kes/Ref.h>
#include <kes/Table.h>

namespace Kes {

/// A query for the objects of class `T` and its sub classes: a value that is
/// copied freely, and of which each operation makes another one. Each loop over
/// it asks the database anew.
///
/// The object that a loop delivers lives for the turn of the loop at least; keep
/// it longer as a `Ref<T>`. The loop may edit, remove, commit and query.
///
/// Conditions, orders and limits, counts too, go by what is stored: they do not
/// see what the open transaction has changed and not committed. An object with
/// pending changes is delivered with these.
///
/// Whatever asks the database raises Error: Declaration for a class that is not
/// in the schema or a member that is not described, Misuse for an object of
/// another database, InvalidValue for a value that no field can have, and what
/// the database tells.
template <class T>
class Query final : public QueryBase {
public:
    using QueryBase::QueryBase;

    class Iterator : private Cursor {
    public:
        using iterator_category = std::input_iterator_tag;
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = const T*;
        using reference = const T&;

        explicit Iterator(const QueryBase& query) : Cursor(query) {}

        const T& operator*() const { return *static_cast<const T*>(this->current()); }
        const T* operator->() const { return static_cast<const T*>(this->current()); }
        Iterator& operator++() {
            this->advance();
            return *this;
        }
        void operator++(int) { this->advance(); }
        bool operator==(std::default_sentinel_t) const { return this->current() == nullptr; }
    };

    Iterator begin() const { return Iterator(*this); }
    std::default_sentinel_t end() const { return {}; }

    /// Those for which the condition holds; with several ones, all of them.
    template <class P>
    [[nodiscard]] Query where(const Predicate<P>& condition) const {
        static_assert(std::is_base_of_v<P, T>,
                      "the condition is about a field of another class than the query");
        return Query(*this, condition);
    }

    /// Sorted by fields, `field.descending()` and `Kes::id`, the first of which is
    /// the major one. Objects that are alike in all of them come by their ids.
    template <class... Keys>
    [[nodiscard]] Query orderBy(const Keys&... keys) const {
        return Query(*this, {checked(sortKeyOf(keys))...});
    }

    /// The first `count` of them, after the first `offset` ones. Without
    /// orderBy they are sorted by their ids.
    [[nodiscard]] Query limit(RowCount count) const { return Query(*this, First, count.get()); }
    [[nodiscard]] Query offset(RowCount count) const { return Query(*this, Behind, count.get()); }

    /// Those after the object in the order of the query: the next page, without a
    /// walk over those before. The place is that of the values that the object
    /// shows when the query is asked; it need not be in the result itself.
    template <class O>
    [[nodiscard]] Query after(const O& object) const {
        constexpr bool fits = std::is_convertible_v<const O&, Ref<T>>;
        static_assert(fits, "a query goes on after an object of its own class");
        if constexpr (fits)
            return Query(*this, Ref<T>(object));
        else
            return *this;
    }

    /// The first object; an empty Ref when there is none.
    Ref<T> first() const { return Ref<T>::to(Cursor(*this, 1).current()); }

    /// The only object. Raises Error: NotFound when there is none, Ambiguous when
    /// there are several.
    Ref<T> one() const { return Ref<T>::to(requireOne().getInstance()); }

    /// Whether there is any object, and how many there are; loads none.
    bool exists() const { return countRows(1) > 0; }
    std::uint64_t count() const { return countRows(UINT64_MAX); }

    /// Values in place of objects: a tuple of the fields for each object, in the
    /// order of the query. `Kes::id` is the object id. Aggregates, such as
    /// `Kes::sum(field)`, make one row of all objects; they do not mix with fields.
    /// The result is read whole, and loads no objects where the driver is a
    /// Tabulator.
    template <class... C>
    std::vector<std::tuple<ResultOf<C>...>> select(const C&... columns) const {
        return table<std::tuple<ResultOf<C>...>>(std::index_sequence_for<C...>(),
                                                 checkedColumn(columnOf(columns))...);
    }

    /// The same as a struct of the application's, `Row{first, second, …}`.
    template <class Row, class... C>
    std::vector<Row> selectAs(const C&... columns) const {
        return table<Row>(std::index_sequence_for<C...>(), checkedColumn(columnOf(columns))...);
    }

    /// The values that there are of a field, or of several ones together: each once,
    /// in their order, in which empty ones come first.
    template <class... C>
    std::vector<std::tuple<ResultOf<C>...>> distinct(const C&... columns) const {
        return groupBy(columns...).select();
    }

    /// What the functions of the same names compute of all objects of the query.
    template <class C>
    auto sum(const C& field) const {
        return std::get<0>(select(Kes::sum(field)).front());
    }
    template <class C>
    auto avg(const C& field) const {
        return std::get<0>(select(Kes::avg(field)).front());
    }
    template <class C>
    auto min(const C& field) const {
        return std::get<0>(select(Kes::min(field)).front());
    }
    template <class C>
    auto max(const C& field) const {
        return std::get<0>(select(Kes::max(field)).front());
    }

    /// A row for all objects that are alike in the fields, sorted by these:
    /// `query.groupBy(field<&Ticket::state>).count()`.
    template <class... C>
    Grouping<T, ResultOf<C>...> groupBy(const C&... keys) const {
        static_assert((!isAggregateColumn<C> && ...), "group by fields");
        return Grouping<T, ResultOf<C>...>(*this, keyOf(columnOf(keys))...);
    }

private:
    template <class S>
    static SortKeyData checked(const SortKey<S>& key) {
        static_assert(std::is_base_of_v<S, T>,
                      "the order is by a field of another class than the query");
        return key.data;
    }

    template <class S, class R, bool A>
    static const Column<S, R, A>& checkedColumn(const Column<S, R, A>& column) {
        static_assert(std::is_base_of_v<S, T>,
                      "the column is a field of another class than the query");
        return column;
    }
    template <class S, class R>
    static Column<T, R, false> keyOf(const Column<S, R, false>& column) {
        static_assert(std::is_base_of_v<S, T>,
                      "the column is a field of another class than the query");
        static_assert(HasEquality<typename ValueOf<R>::type>,
                      "databases do not compare fields of this type");
        return {column.data, column.read};
    }

    template <class Row, std::size_t... I, class... C>
    std::vector<Row> table(std::index_sequence<I...>, const C&... columns) const {
        constexpr bool isOneRow = sizeof...(C) > 0 && (C::isAggregate && ...);
        static_assert(isOneRow || (!C::isAggregate && ...),
                      "fields and aggregates do not mix; group by the fields");
        std::vector<ColumnData> wanted{columns.data...};
        std::vector<Row> rows;
        if constexpr (isOneRow) {
            TableBase found(*this, wanted, 0);
            while (found.next())
                rows.push_back(Row{columns.read(found, I)...});
        } else {
            TableBase found(*this, wanted);
            while (found.next())
                rows.push_back(Row{columns.read(found, I)...});
        }
        return rows;
    }
};

}  // namespace Kes
