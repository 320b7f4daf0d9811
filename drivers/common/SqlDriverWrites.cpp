// Writing, locking and refreshing objects.

#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include <kes/Class.h>
#include <kes/Exception.h>
#include <kes/Instance.h>
#include <kes/Model.h>

#include "drivers/common/SqlDriver.h"
#include "drivers/common/SqlDriverAttempt.h"
#include "drivers/common/SqlFailure.h"

namespace Kes::sql {

// An open cursor would pin an old snapshot, in which nothing can be written,
// and would see rows that the transaction changes.
void SqlDriver::prepareToWrite() {
    if (session->connection->inTransaction())
        return;
    requireTransaction();
    settleCursors();
    session->connection->begin();
    session->writing = true;
}

// After some failures, as that of a full disk, the database has rolled back by
// itself. What follows would be stored without what went before.
void SqlDriver::requireTransaction() const {
    if (session->writing && !session->connection->inTransaction())
        throw SqlFailure("the database has rolled the transaction back: " +
                             (session->loss.empty() ? "an earlier statement has failed; roll back "
                                                      "and try again"
                                                    : session->loss),
                         session->lossKind);
}

void SqlDriver::flush(bool goesOn) {
    if (session->queue.isEmpty())
        return;
    prepareToWrite();
    session->writer.flush(goesOn);
}

bool SqlDriver::insert(Instance* instance) {
    return attempt("writing", [&] {
        session->queue.insert(instance);
        if (session->queue.isFull())
            flush();
    });
}

bool SqlDriver::update(Instance* instance) {
    return attempt("writing", [&] {
        session->queue.update(instance);
        if (session->queue.isFull())
            flush();
    });
}

bool SqlDriver::remove(Instance* instance) {
    return attempt("writing", [&] {
        session->queue.remove(instance);
        if (session->queue.isFull())
            flush();
    });
}

bool SqlDriver::link(bool made, Instance* first, const String& firstRole, Instance* second,
                     const String& secondRole, Association* association, bool linkFlag) {
    return attempt("writing", [&] {
        session->queue.link(made, first, firstRole, second, secondRole, association, linkFlag);
        if (session->queue.isFull())
            flush();
    });
}

bool SqlDriver::addLink(Instance* first, const String& firstRole, Instance* second,
                        const String& secondRole, Association* association, bool linkFlag) {
    return link(true, first, firstRole, second, secondRole, association, linkFlag);
}

bool SqlDriver::removeLink(Instance* first, const String& firstRole, Instance* second,
                           const String& secondRole, Association* association, bool linkFlag) {
    return link(false, first, firstRole, second, secondRole, association, linkFlag);
}

bool SqlDriver::refresh(Instance* instance) {
    bool unchanged = true;
    const bool done = attempt("refreshing the " + nameOf(instance), [&] {
        beforeReading(instance->getClass());
        unchanged = refreshFrom(instance);
    });
    if (!done) {
        // Neither changed nor removed: that is not for a flag to say.
        const String words = message;
        Exception(Exception::ERROR, "REFFAIL", "Instance::refresh", words).handle();
        return true;
    }
    return unchanged;
}

bool SqlDriver::refreshFrom(Instance* instance) {
    TableMapping& table = session->tables.of(instance->getClass());
    std::unique_ptr<Statement> reading = table.takeById();
    reading->bind(0, static_cast<std::int64_t>(instance->getObjectID()));
    const bool isStored = reading->step();
    const auto stored =
        isStored ? static_cast<unsigned long>(reading->integer(TableMapping::VersionColumn)) : 0;
    status.code = !isStored                          ? DBDriverStatus::Removed
                  : stored == instance->getVersion() ? DBDriverStatus::Unchanged
                                                     : DBDriverStatus::Changed;
    if (status.code == DBDriverStatus::Changed &&
        !instance->getClass()->getModel()->isPending(instance))
        rowLoader.renew(*reading, table, instance);
    reading->reset();
    table.byId()->push_back(std::move(reading));
    return status.code == DBDriverStatus::Unchanged;
}

bool SqlDriver::lock(Instance* instance) {
    return attempt("locking the " + nameOf(instance), [&] {
        beforeReading(instance->getClass());
        prepareToWrite();
        Statement& asking = session->tables.of(instance->getClass()).lockRow();
        asking.bind(0, static_cast<std::int64_t>(instance->getObjectID()));
        const bool isStored = asking.step();
        const auto stored = isStored ? static_cast<unsigned long>(asking.integer(0)) : 0;
        asking.reset();
        if (!isStored)
            throw SqlFailure(
                "it is not stored: somebody else has removed it, or it was never "
                "committed",
                FailureKind::Conflict);
        if (stored != instance->getVersion())
            throw SqlFailure("somebody else has changed it: version " + std::to_string(stored) +
                                 " is stored and version " +
                                 std::to_string(instance->getVersion()) +
                                 " was read; refresh it and try again",
                             FailureKind::Conflict);
        if (Statement* touching = session->tables.of(instance->getClass()).touchRow()) {
            touching->bind(0, static_cast<std::int64_t>(instance->getObjectID()));
            touching->run();
        }
    });
}

bool SqlDriver::tellEmptiedTo(EmptiedListener* listener) {
    if (session != nullptr)
        session->writer.tellEmptiedTo(listener);
    return session != nullptr;
}

}  // namespace Kes::sql
