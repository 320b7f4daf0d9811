// Selecting and counting objects.
//
// The cursors of one selection show one state: the first begins the snapshot, and all
// are executed before it ends.

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <kes/Class.h>
#include <kes/Model.h>

#include "drivers/common/SqlDriver.h"
#include "drivers/common/SqlDriverAttempt.h"
#include "drivers/common/SqlSelection.h"
#include "drivers/common/SqlTranslator.h"

namespace Kes::sql {

void SqlDriver::settleCursors() {
    if (settling)
        return;
    settling = true;
    for (SqlSelection* cursor : std::vector<SqlSelection*>(cursors.begin(), cursors.end()))
        cursor->bufferRows();
    settling = false;
}

void SqlDriver::beforeReading(const Class* cls) {
    flush();
    if (session->connection->isolatesReads() && cls->getModel()->transactionStarted())
        prepareToWrite();
    makeRoom(false);
}

void SqlDriver::makeRoom(bool forSnapshot) {
    if (!session->connection->inTransaction() &&
        session->connection->needsRoom(!cursors.empty(), forSnapshot))
        settleCursors();
}

// An object lies in one class, so a query for one by its id needs no snapshot. A
// transaction that reads one state throughout is one, and another cannot be had:
// where its statements do not agree, one of them reads all classes.
void SqlDriver::beginSnapshot(const SqlDefinition& query) {
    const bool isInside = session->connection->inTransaction();
    if (query.classes.size() < 2 || query.plan->isById ||
        (isInside && !session->connection->readsAnew()))
        return;
    if (isInside) {
        readTogether(query);
    } else {
        makeRoom(true);
        session->connection->beginSnapshot();
        isInSnapshot = true;
    }
    opening = query.number;
    toOpen = query.classes.size();
}

void SqlDriver::readTogether(const SqlDefinition& query) {
    std::vector<TableMapping*> tables;
    tables.reserve(query.classes.size());
    for (Class* each : query.classes)
        tables.push_back(&session->tables.of(each));
    std::vector<std::unique_ptr<RowBuffer>> rows =
        session->unions.read(tables, session->tables.of(query.base), *query.plan);
    for (std::size_t i = 0; i < rows.size(); ++i)
        together[query.classes[i]] = std::move(rows[i]);
}

void SqlDriver::endSnapshot() noexcept {
    opening = 0;
    together.clear();
    if (std::exchange(isInSnapshot, false) && session != nullptr)
        session->connection->endSnapshot();
}

SelectionDefinition* SqlDriver::defineSelection(AssociatedClass* associatedClass) {
    return define(associatedClass, {});
}

SelectionDefinition* SqlDriver::definePart(AssociatedClass* associatedClass, std::uint64_t offset,
                                           std::uint64_t count) {
    return define(associatedClass, {offset, count});
}

SelectionDefinition* SqlDriver::define(AssociatedClass* associatedClass, const RowRange& range) {
    SelectionDefinition* definition = nullptr;
    attempt("selecting " +
                std::string(static_cast<const char*>(associatedClass->getClass()->getName())) +
                " objects",
            [&] {
                SqlTranslator translator(session->tables, *dialect);
                definition = new SqlDefinition(
                    translator.render(*associatedClass, range), associatedClass->getClass(),
                    ModelMapping::concreteClasses(associatedClass->getClass()), ++definitions);
            });
    return definition;
}

DBDriverSelection* SqlDriver::fetch(Class* cls, SelectionDefinition* definition) {
    const auto& query = *static_cast<SqlDefinition*>(definition);
    const bool goesOn = opening == query.number;
    std::unique_ptr<SqlSelection> cursor;
    attempt(
        "selecting " + std::string(static_cast<const char*>(cls->getName())) + " objects",
        [&] {
            if (!goesOn) {
                beforeReading(cls);
                beginSnapshot(query);
            }
            cursor = open(cls, query);
            if (opening == 0)
                return;
            cursor->begin();
            if (--toOpen == 0)
                endSnapshot();
        },
        goesOn);
    return cursor.release();
}

bool SqlDriver::count(AssociatedClass* associatedClass, std::uint64_t most, std::uint64_t& number) {
    Class* cls = associatedClass->getClass();
    return attempt("counting " + std::string(static_cast<const char*>(cls->getName())) + " objects",
                   [&] {
                       SqlTranslator translator(session->tables, *dialect);
                       const QueryPlan plan = translator.renderCondition(*associatedClass);
                       beforeReading(cls);
                       number = session->counter.count(sourcesOf(cls, plan), plan, most);
                   });
}

bool SqlDriver::readLinks(Association* association, const String& role,
                          const std::vector<unsigned long>& owners, std::size_t most,
                          std::vector<StoredLink>& links) {
    bool areAll = false;
    const FailureKind before = failureKind;
    const bool done = attempt(
        "reading the links of " + std::string(static_cast<const char*>(association->getName())),
        [&] {
            beforeReading(association->getOneClass());
            areAll = session->links.read(*association, role, owners, most, links);
        });
    failureKind = before;  // what fails here is told by the queries that follow
    return done && areAll;
}

std::unique_ptr<SqlSelection> SqlDriver::open(Class* cls, const SqlDefinition& query) {
    TableMapping& table = session->tables.of(cls);
    auto rows = together.extract(cls);
    if (rows.empty())
        return std::make_unique<SqlSelection>(this, table, query.plan);
    return std::make_unique<SqlSelection>(this, table, query.plan, std::move(rows.mapped()));
}

// What one statement reads the rows of a class and its sub classes from: the tables,
// or, for conditions of many values, the view of them all.
std::vector<std::string> SqlDriver::sourcesOf(Class* cls, const QueryPlan& plan) {
    // SQLite takes 500 parts of a union.
    constexpr std::size_t MostParts = 400;
    const std::vector<Class*> classes = ModelMapping::concreteClasses(cls);
    if (classes.size() > MostParts || !RowCounter::takes(plan.parameters.size() * classes.size()))
        return {session->tables.of(cls).source()};
    std::vector<std::string> sources;
    sources.reserve(classes.size());
    for (Class* each : classes)
        sources.push_back(session->tables.of(each).table());
    return sources;
}

bool SqlDriver::tabulate(AssociatedClass* associatedClass, const Tabulation& wanted,
                         TableReader& reader) {
    Class* cls = associatedClass->getClass();
    return attempt(
        "reading values of " + std::string(static_cast<const char*>(cls->getName())) + " objects",
        [&] {
            SqlTranslator translator(session->tables, *dialect);
            const QueryPlan plan =
                wanted.isGrouped
                    ? translator.renderCondition(*associatedClass)
                    : *translator.render(*associatedClass, {wanted.offset, wanted.count});
            beforeReading(cls);
            session->values.read(sourcesOf(cls, plan), session->tables.of(cls), plan, wanted,
                                 reader);
        });
}

}  // namespace Kes::sql
