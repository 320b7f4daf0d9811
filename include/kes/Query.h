// Reading described objects.

#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include <kes/Export.h>
#include <kes/Field.h>
#include <kes/Forward.h>
#include <kes/Pointer.h>
#include <kes/Predicate.h>
#include <kes/Ref.h>

namespace Kes {

class Session;

/// A number of objects: a constant that is not negative, or an unsigned number.
class RowCount {
public:
    template <std::unsigned_integral N>
    constexpr RowCount(N count) : value(count) {}  // NOLINT: stands for a number
    consteval RowCount(int count)                  // NOLINT
        : value(count >= 0 ? static_cast<std::uint64_t>(count)
                           : throw "a number of objects is not negative") {}

    constexpr std::uint64_t get() const { return value; }

private:
    std::uint64_t value;
};

/// What Query<T> does for every T alike.
class KES_EXPORT QueryBase {
public:
    /// Where a query comes from.
    struct Start {
        std::shared_ptr<Session> session;
        const std::type_info& type;
    };

    explicit QueryBase(const Start& start);
    QueryBase(const QueryBase&);
    QueryBase(QueryBase&&) noexcept;
    QueryBase& operator=(const QueryBase&);
    QueryBase& operator=(QueryBase&&) noexcept;
    ~QueryBase();

    /// One walk through the result.
    class KES_EXPORT Cursor {
    public:
        explicit Cursor(const QueryBase& query);

        /// Through the first `most` objects.
        Cursor(const QueryBase& query, std::uint64_t most);
        Cursor(Cursor&&) noexcept;
        Cursor& operator=(Cursor&&) noexcept;
        ~Cursor();

        /// Null at the end. Kept alive until it advances.
        Instance* current() const { return instance; }
        void advance();

    private:
        struct State;
        std::unique_ptr<State> state;
        Instance* instance = nullptr;
    };

    /// The same query with one more condition, with further sort keys, of the
    /// first rows only, and behind some rows.
    enum Part { First, Behind };
    QueryBase(const QueryBase& query, const PredicateBase& condition);
    QueryBase(const QueryBase& query, std::initializer_list<SortKeyData> keys);
    QueryBase(const QueryBase& query, Part part, std::uint64_t count);

    /// The same query from behind an object on. Raises Error (Misuse) for an empty
    /// Ref, or an object of another database.
    QueryBase(const QueryBase& query, const RefBase& object);

protected:
    Pointer<Instance> requireOne() const;
    std::uint64_t countRows(std::uint64_t most) const;

private:
    struct Definition;

    std::shared_ptr<const Definition> definition;
};

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

    /// The first `count` of them, behind the first `offset` ones. Without
    /// orderBy they are sorted by their ids.
    [[nodiscard]] Query limit(RowCount count) const { return Query(*this, First, count.get()); }
    [[nodiscard]] Query offset(RowCount count) const { return Query(*this, Behind, count.get()); }

    /// Those behind the object in the order of the query: the next page, without a
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

private:
    template <class S>
    static SortKeyData checked(const SortKey<S>& key) {
        static_assert(std::is_base_of_v<S, T>,
                      "the order is by a field of another class than the query");
        return key.data;
    }
};

}  // namespace Kes
