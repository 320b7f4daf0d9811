#include <kes/Database.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <thread>

#include <kes/Class.h>
#include <kes/Error.h>

#include "typed/SchemaRecord.h"
#include "typed/Session.h"

namespace Kes {

namespace {

// Those who met once shall not meet again, so nobody waits for as long as another.
void pause(int attempt) {
    thread_local std::minstd_rand random{std::random_device()()};
    const int most = 1000 << std::min(attempt, 6);  // microseconds
    std::this_thread::sleep_for(
        std::chrono::microseconds(std::uniform_int_distribution<int>(0, most)(random)));
}

std::string nameOfClass(const Instance* object) {
    return static_cast<const char*>(object->getClass()->getName());
}

String textOf(std::string_view text) {
    return String(std::string(text).c_str());
}

}  // namespace

Database::Database(std::string_view driver, std::string_view source, const Schema& schema,
                   DatabaseOptions options)
    : attempts(options.attempts) {
    schema.record->complete();
    auto fresh = std::make_shared<Session>(schema.record, options.cacheCapacity);
    guarded(*fresh, [&] {
        fresh->open(textOf(driver), textOf(source), options.password.c_str(), options.user.c_str(),
                    options.options.c_str());
    });
    session = std::move(fresh);
}

// A transaction, and a query, may be left; what it does then fails.
Database::~Database() {
    try {
        guarded(*session, [&] { session->close(); });
    } catch (...) {
        // The model's destructor ends what close could not.
    }
}

void Database::run(Call call, void* context) {
    for (int attempt = 1;; ++attempt) {
        try {
            Transaction transaction(*this);
            call(context, transaction);
            if (!transaction.isOver())
                transaction.commit();
            return;
        } catch (const Error& error) {
            if (!error.isRetryable())
                throw;
            const Instance* object = session->refreshChanged();
            if (attempt < attempts) {
                pause(attempt);
                continue;
            }
            throw Error(error.getKind(), error.getCode(), error.getContext(),
                        std::string(error.getMessage()) + " (attempt " + std::to_string(attempt) +
                            ", the last one)",
                        object != nullptr ? nameOfClass(object) : error.getClassName(),
                        object != nullptr ? object->getObjectID() : error.getObjectID(),
                        error.getFieldName());
        } catch (const Exception& raised) {
            // From the use of classes below this interface.
            throw errorOf(*session, raised);
        }
    }
}

Instance* Database::findObject(unsigned long id, const std::type_info& type) {
    Class* cls = session->classOf(type);
    Instance* found = guarded(*session, [&] { return session->getInstance(id, cls); });
    return found != nullptr && found->getClass()->isA(cls) && !found->isRemoved() ? found : nullptr;
}

void Database::refresh(const RefBase& object) {
    if (Instance* instance = object.getInstance())
        guarded(*session, [&] { session->refresh(instance); });
}

Model& Database::getModel() {
    return *session;
}

}  // namespace Kes
