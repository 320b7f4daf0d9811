// What queries for described objects do for every class alike.

#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <typeinfo>

#include <kes/Export.h>
#include <kes/Field.h>
#include <kes/Forward.h>
#include <kes/Pointer.h>
#include <kes/Predicate.h>
#include <kes/Ref.h>

namespace Kes {

class Session;
class TableBase;

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
    /// What it is made of, which is the library's.
    struct Definition;

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
    friend class TableBase;

    std::shared_ptr<const Definition> definition;
};

}  // namespace Kes
