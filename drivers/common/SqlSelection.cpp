#include "drivers/common/SqlSelection.h"

#include <new>
#include <utility>

#include <kes/Class.h>
#include <kes/Exception.h>
#include <kes/Model.h>

#include "drivers/common/ObjectFields.h"
#include "drivers/common/SqlDriver.h"
#include "drivers/common/SqlFailure.h"

namespace Kes::sql {

SqlSelection::SqlSelection(SqlDriver* itsDriver, TableMapping& itsTable,
                           std::shared_ptr<const QueryPlan> itsPlan)
    : driver(itsDriver),
      table(itsTable),
      plan(std::move(itsPlan)) {
    home = plan->isById ? table.byId() : table.pool(plan->tail);
    statement = plan->isById ? table.takeById() : table.take(*home, plan->tail, plan->hasFew);
    int position = 0;
    for (const Parameter& value : plan->parameters)
        bindParameter(*statement, position++, value);
    driver->enter(this);
}

SqlSelection::SqlSelection(SqlDriver* itsDriver, TableMapping& itsTable,
                           std::shared_ptr<const QueryPlan> itsPlan,
                           std::unique_ptr<RowBuffer> rows)
    : driver(itsDriver),
      table(itsTable),
      plan(std::move(itsPlan)),
      buffer(std::move(rows)) {
    driver->enter(this);
}

SqlSelection::~SqlSelection() {
    finish();
}

void SqlSelection::finish() {
    onRow = false;
    buffer.reset();
    if (statement != nullptr)
        giveBack();
    if (driver != nullptr)
        driver->leave(this);
    driver = nullptr;
    home.reset();
}

// One that finds no room among the others is made anew when it is needed.
void SqlSelection::giveBack() noexcept {
    statement->reset();
    try {
        if (driver != nullptr)
            home->push_back(std::move(statement));
    } catch (const std::bad_alloc&) {}
    statement.reset();
}

void SqlSelection::abandon() {
    current = nullptr;
    driver = nullptr;
    finish();
}

bool SqlSelection::next() {
    current = nullptr;
    onRow = false;
    if (driver == nullptr)
        return false;
    try {
        onRow = advance();
    } catch (const ObjectFailure& failure) {
        std::rethrow_exception(failure.cause);
    } catch (const SqlFailure& failure) {
        raise(failure);
    }
    if (!onRow)
        finish();
    return onRow;
}

void SqlSelection::begin() noexcept {
    if (statement == nullptr)
        return;
    try {
        hasFirst = statement->step();
        isBegun = true;
    } catch (...) {
        broken = std::current_exception();
        statement->reset();
    }
}

bool SqlSelection::advance() {
    if (broken != nullptr)
        std::rethrow_exception(broken);
    if (std::exchange(isBegun, false))
        return hasFirst;
    return buffer != nullptr ? buffer->advance() : statement->step();
}

Row& SqlSelection::row() {
    if (buffer != nullptr)
        return *buffer;
    return *statement;
}

Instance* SqlSelection::getInstance() {
    if (!onRow)
        return nullptr;
    if (current == nullptr) {
        try {
            if (broken != nullptr)
                std::rethrow_exception(broken);
            materialise();
        } catch (const ObjectFailure& failure) {
            std::rethrow_exception(failure.cause);
        } catch (const SqlFailure& failure) {
            raise(failure);
        }
    }
    return current;
}

// A row that cannot be shown cannot be loaded either, and says so then; an object
// that was loaded before has keys of its own.
bool SqlSelection::showKeys(Handler& handler) {
    if (!onRow || broken != nullptr)
        return false;
    try {
        for (const std::string& key : plan->keys)
            driver->loader().show(row(), table, table.find(key), handler);
    } catch (const SqlFailure&) {
        return false;
    }
    return true;
}

// Held by `current` before the model hears of it: filing it may collect.
void SqlSelection::materialise() {
    const auto id = static_cast<unsigned long>(row().integer(TableMapping::IdColumn));
    Class* cls = table.getClass();
    Model* model = cls->getModel();
    if (Instance* known = model->get(id)) {
        current = known;
        const auto version = static_cast<unsigned long>(row().integer(TableMapping::VersionColumn));
        if (version != known->getVersion() && model->isOutdated(known, version))
            driver->loader().renew(row(), table, known);
        return;
    }
    std::unique_ptr<Instance> fresh(cls->getDummy());
    driver->loader().load(row(), table, fresh.get());
    current = fresh.get();
    try {
        model->set(current);
        static_cast<void>(fresh.release());
    } catch (...) {
        if (model->get(id) == fresh.get())
            static_cast<void>(fresh.release());
        else
            current = nullptr;
        throw;
    }
}

void SqlSelection::bufferRows() noexcept {
    if (statement == nullptr || broken != nullptr)
        return;
    try {
        keepRows();
    } catch (...) {
        broken = std::current_exception();
        statement->reset();
    }
}

void SqlSelection::keepRows() {
    if (onRow && current == nullptr)
        materialise();
    auto kept = std::make_unique<RowBuffer>(static_cast<int>(table.columns().size()));
    if (onRow)
        kept->append(*statement);
    bool hasMore = std::exchange(isBegun, false) ? hasFirst : statement->step();
    for (; hasMore; hasMore = statement->step())
        kept->append(*statement);
    giveBack();
    if (onRow)
        kept->advance();
    buffer = std::move(kept);
}

void SqlSelection::raise(const SqlFailure& failure) {
    const std::string message =
        driver->describe("reading " + table.name() + " objects", failure.what());
    driver->noteKind(failure.kind);
    current = nullptr;
    finish();
    Exception error(Exception::ERROR, "SELERR", "Selection::next", message.c_str());
    error.handle();

    // The handler returned, but the row that was asked for does not exist.
    throw Exception(error);
}

}  // namespace Kes::sql
