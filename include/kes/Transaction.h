// Changing described objects.

#pragma once

#include <memory>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include <kes/Export.h>
#include <kes/Forward.h>
#include <kes/One.h>
#include <kes/Ref.h>

namespace Kes {

class Session;

/// Changes that are stored together, or not at all.
///
/// Database::transact makes one and is the usual way. One that is made by hand
/// ends with commit or rollback, and rolls back when it is destroyed before. A
/// database has one at a time. All operations raise Error: Misuse after the end
/// of the transaction, in another one's database and for empty references.
class KES_EXPORT Transaction {
public:
    /// Raises Error (Misuse) while another one is open.
    explicit Transaction(Database& database);
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    /// Rolls back what was neither committed nor rolled back.
    ~Transaction();

    /// A new object of class `T`, stored by the commit with the values that its
    /// fields have then. It has its object id at once.
    template <class T>
    Ref<T> make() {
        return Ref<T>::to(makeObject(typeid(T)));
    }

    /// The same, with `fill` called with a `T&` first.
    template <class T, class Fill>
    Ref<T> make(Fill&& fill) {
        constexpr bool fits = std::is_invocable_v<Fill, T&>;
        static_assert(fits, "make<T> takes a function that is called with a T&");
        Ref<T> made = make<T>();
        if constexpr (fits)
            std::forward<Fill>(fill)(static_cast<T&>(*made.getInstance()));
        return made;
    }

    /// The object, to be assigned to until the transaction ends. Its fields are
    /// taken note of first, so a rollback brings them back. Further calls for
    /// one object cost next to nothing. Raises Error (Removed) for an object that
    /// was removed.
    template <class T>
    T& edit(const Ref<T>& object) {
        return static_cast<T&>(editObject(object.getInstance()));
    }
    template <class T>
    T& edit(const One<T>& reference) {
        return edit(Ref<T>(reference));
    }
    template <class T>
    T& edit(const T& object) {
        static_assert(std::is_base_of_v<Instance, T>, "edit takes an object, or a Ref of one");
        if constexpr (std::is_base_of_v<Instance, T>)
            return edit(Ref<T>(object));
    }

    /// Removes the object, and what its links cascade to. A second removal does
    /// nothing.
    template <class T>
    void remove(const Ref<T>& object) {
        removeObject(object.getInstance());
    }
    template <class T>
    void remove(const One<T>& reference) {
        remove(Ref<T>(reference));
    }
    template <class T>
    void remove(const T& object) {
        static_assert(std::is_base_of_v<Instance, T>, "remove takes an object, or a Ref of one");
        if constexpr (std::is_base_of_v<Instance, T>)
            remove(Ref<T>(object));
    }

    /// Stores everything and ends the transaction. When it fails it is rolled
    /// back and over, and memory is as before it. Raises Error: Conflict,
    /// InvalidValue for a field with a value that does not fit, with nothing sent
    /// to the database, UnknownOutcome, LostConnection and others.
    void commit();

    /// Takes everything back and ends the transaction.
    void rollback();

    /// Whether it was committed or rolled back.
    bool isOver() const { return over; }

private:
    Session& open(const char* operation) const;
    Instance* makeObject(const std::type_info& type);
    Instance& editObject(Instance* object);
    void removeObject(Instance* object);

    std::shared_ptr<Session> session;
    bool over = false;
};

}  // namespace Kes
