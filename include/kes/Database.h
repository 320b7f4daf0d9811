// An opened database of described objects.

#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>
#include <utility>

#include <kes/Description.h>
#include <kes/Export.h>
#include <kes/Forward.h>
#include <kes/Query.h>
#include <kes/Ref.h>
#include <kes/Transaction.h>

namespace Kes {

class Session;

/// What a Database may be told when it is opened.
struct DatabaseOptions {
    std::string user;
    std::string password;
    std::string options;  ///< `key=value` pairs for the driver, separated by `;`

    /// The number of objects in memory above which those that no Ref, query or
    /// transaction reaches are freed.
    int cacheCapacity = 1000;

    /// How often transact does the work before it gives up.
    int attempts = 10;
};

/// A session with one database: its objects in memory, and the way to others.
///
/// It and everything that comes from it belong to one thread, the first that
/// uses it; threads that work at the same time have one each. Every operation
/// raises Error. Closed by its destructor, which empties every Ref.
class KES_EXPORT Database {
public:
    /// Opens the database and brings an older schema up to the given one.
    /// `driver` is "sqlite", "postgres", "mariadb" or another driver's name,
    /// `source` is what the database's own users expect, for SQLite a file.
    ///
    /// Raises Error: Declaration where descriptions are wrong, Schema where what
    /// is stored does not go with them, LostConnection and others.
    Database(std::string_view driver, std::string_view source, const Schema& schema,
             DatabaseOptions options = {});
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;

    /// Rolls back what was not committed.
    ~Database();

    /// Calls `work` with a Transaction, commits, and returns what it returned.
    ///
    /// When `work` throws, everything is rolled back, in memory too, and what it
    /// threw is thrown. After a conflict with another session the objects of the
    /// transaction are refreshed and the work is done again, each time after a
    /// pause that grows, as often as DatabaseOptions::attempts says; so `work`
    /// computes everything anew and has no other lasting effects. A commit whose
    /// outcome is unknown is never repeated.
    template <class Work>
    auto transact(Work&& work) {
        constexpr bool fits = std::is_invocable_v<Work, Transaction&>;
        static_assert(fits, "transact takes a function that is called with a Kes::Transaction&");
        if constexpr (fits) {
            using Result = std::invoke_result_t<Work, Transaction&>;
            static_assert(!std::is_reference_v<Result>,
                          "the function of transact returns a value: a Ref, or none");
            if constexpr (!std::is_reference_v<Result>)
                return runWith<Result>(work);
        }
    }

    /// The object with the id, from memory or loaded; empty where there is none
    /// of class `T`. One in memory is as it was last read.
    template <class T>
    Ref<T> find(unsigned long id) {
        return Ref<T>::to(findObject(id, typeid(T)));
    }

    /// All objects of class `T` and its sub classes, for a loop:
    /// `for (const Ticket& t : db.query<Ticket>()) …`.
    template <class T>
    Query<T> query() {
        return Query<T>(QueryBase::Start{session, typeid(T)});
    }

    /// Brings the object up to date with the database.
    void refresh(const RefBase& object);

    /// The session as the classes below this interface see it: for traces,
    /// listeners, undo, and classes with a handle operation. Transactions are
    /// begun and ended by the operations above alone.
    Model& getModel();

private:
    friend class Transaction;

    using Call = void (*)(void* context, Transaction& transaction);

    template <class Result, class Work>
    Result runWith(Work& work) {
        if constexpr (std::is_void_v<Result>) {
            run([](void* context, Transaction& tx) { (*static_cast<Work*>(context))(tx); },
                const_cast<void*>(static_cast<const void*>(&work)));
        } else {
            std::optional<Result> result;
            auto keep = [&](Transaction& tx) { result.emplace(work(tx)); };
            run([](void* context,
                   Transaction& tx) { (*static_cast<decltype(keep)*>(context))(tx); },
                &keep);
            return std::move(*result);
        }
    }

    void run(Call call, void* context);
    Instance* findObject(unsigned long id, const std::type_info& type);

    std::shared_ptr<Session> session;
    int attempts;
};

}  // namespace Kes
