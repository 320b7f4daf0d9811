// Reading described objects.

#pragma once

#include <cstddef>
#include <iterator>
#include <memory>
#include <typeinfo>
#include <utility>

#include <kes/Export.h>
#include <kes/Forward.h>
#include <kes/Ref.h>

namespace Kes {

class Session;

/// What Query<T> does for every T alike.
class KES_EXPORT QueryBase {
public:
    /// Where a query comes from.
    struct Start {
        std::shared_ptr<Session> session;
        const std::type_info& type;
    };

    explicit QueryBase(const Start& start);
    QueryBase(QueryBase&&) noexcept;
    QueryBase& operator=(QueryBase&&) noexcept;
    ~QueryBase();

    /// One walk through the result.
    class KES_EXPORT Cursor {
    public:
        explicit Cursor(const QueryBase& query);
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

private:
    struct Definition;
    std::unique_ptr<Definition> definition;
};

/// A query for the objects of class `T`. Each loop over it asks the database
/// anew.
///
/// The object that a loop delivers lives for the turn of the loop at least; keep
/// it longer as a `Ref<T>`. The loop may edit, remove, commit and query. What is
/// selected is what is stored; an object with pending changes is delivered with
/// these.
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

    /// The first object of the result; empty when there is none.
    Ref<T> first() const { return Ref<T>::to(Cursor(*this).current()); }
};

}  // namespace Kes
