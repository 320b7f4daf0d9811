#include "drivers/common/SqlDriver.h"

#include <new>
#include <utility>
#include <vector>

#include <kes/Class.h>
#include <kes/Exception.h>
#include <kes/Instance.h>
#include <kes/Model.h>

#include "drivers/common/ObjectFields.h"
#include "drivers/common/SqlFailure.h"
#include "drivers/common/SqlSelection.h"
#include "drivers/common/SqlTranslator.h"

namespace Kes::sql {

SqlDriver::Session::Session(std::unique_ptr<Connection> itsConnection, const Dialect& itsDialect)
    : connection(std::move(itsConnection)),
      statements(*connection),
      tables(itsDialect, statements),
      schema(tables, itsDialect, *connection),
      queue(tables, connection->prefersRuns() ? 32768 : 4096),
      writer(queue, tables, statements, itsDialect, *connection),
      ids(*connection),
      links(itsDialect, statements),
      counter(statements),
      values(itsDialect, statements),
      unions(itsDialect, statements) {}

SqlDriver::SqlDriver(std::unique_ptr<Dialect> itsDialect) : dialect(std::move(itsDialect)) {}

SqlDriver::~SqlDriver() {
    abandonCursors();
}

void SqlDriver::abandonCursors() {
    while (!cursors.empty()) {
        SqlSelection* cursor = *cursors.begin();
        cursors.erase(cursors.begin());
        cursor->abandon();
    }
}

std::string SqlDriver::describe(const std::string& attempt, const std::string& words) const {
    return dialect->name() + ": " + attempt + ": " + words;
}

// Runs the work of a slot. Of what it throws the driver's own becomes the message,
// and the application's passes.
template <class Work>
bool SqlDriver::attempt(std::string_view what, Work work, bool keepsSnapshot) {
    if (!keepsSnapshot)
        endSnapshot();
    std::string words;
    FailureKind kind = FailureKind::Unclassified;
    try {
        if (session != nullptr) {
            work();
            return true;
        }
        words = "the driver is not open";
    } catch (const ObjectFailure& failure) {
        std::rethrow_exception(failure.cause);
    } catch (const SqlFailure& failure) {
        words = failure.what();
        kind = failure.kind;
    } catch (const std::exception& failure) {
        words = failure.what();
    }
    endSnapshot();
    noteLoss(words, kind);
    failureKind = kind;
    message = describe(std::string(what), words).c_str();
    return false;
}

void SqlDriver::noteLoss(const std::string& words, FailureKind kind) {
    if (session == nullptr || !session->writing || !session->loss.empty() ||
        session->connection->inTransaction())
        return;
    session->loss = words;
    session->lossKind = kind;
}

bool SqlDriver::open(const String& source, const String& password, const String& user,
                     const String& options) {
    const std::string what = "opening \"" + shownSource(source) + "\"";
    try {
        session = std::make_unique<Session>(connect(source, password, user, options), *dialect);
        if (trace != nullptr)
            session->connection->traceTo(trace);
        session->schema.prepare();
        return true;
    } catch (const SqlFailure& failure) {
        message = describe(what, failure.what()).c_str();
        failureKind = failure.kind;
    } catch (const std::exception& failure) {
        message = describe(what, failure.what()).c_str();
        failureKind = FailureKind::Unclassified;
    }
    session.reset();
    return false;
}

bool SqlDriver::close() {
    if (session == nullptr)
        return true;
    abandonCursors();
    const bool done = attempt("closing", [&] { session->connection->rollback(); });
    session.reset();
    return done;
}

// A version that cannot be read looks like one that was never stored. Nothing
// may be upgraded because of that.
int SqlDriver::getVersion(const String& name, const String& kind) {
    int version = 0;
    const bool done = attempt("reading a version", [&] {
        if (kind == "MODEL")
            forgetModel();
        if (kind == "MODEL" && !session->connection->inTransaction() &&
            session->connection->renew())
            session->ids.forget();
        version = session->schema.getVersion(static_cast<const char*>(name),
                                             static_cast<const char*>(kind));
    });
    if (!done)
        noteVersionFailure();
    return version;
}

// The connection may be one that was parked. Others' classes may lie where those
// of the model before have lain.
void SqlDriver::forgetModel() {
    abandonCursors();
    session->queue.clear();
    session->writer.forgetModel();
    session->tables.forget();
    session->statements.forget();
    session->counter.forget();
    session->values.forget();
    session->unions.forget();
}

// The slot has no result: a failure shows at the commit that follows, because
// the transaction is gone by then.
void SqlDriver::setVersion(const String& name, int version, const String& kind) {
    const bool done =
        attempt("writing the version of " + std::string(static_cast<const char*>(name)), [&] {
            prepareToWrite();
            session->schema.setVersion(static_cast<const char*>(name), version,
                                       static_cast<const char*>(kind));
        });
    if (!done)
        noteVersionFailure();
}

bool SqlDriver::readVersions(std::vector<StoredVersion>& versions) {
    return attempt("reading the versions", [&] { session->schema.readVersions(versions); });
}

// What fails here is told by what follows.
String SqlDriver::findMissingField(Class* cls) {
    const FailureKind before = failureKind;
    std::string missing;
    attempt("looking for the columns of " + std::string(static_cast<const char*>(cls->getName())),
            [&] { missing = session->schema.findMissingColumn(cls); });
    failureKind = before;
    return missing.c_str();
}

void SqlDriver::noteVersionFailure() {
    versionFailure = message;
    versionKind = failureKind;
}

void SqlDriver::requireVersions() const {
    if (versionFailure.size() != 0)
        throw SqlFailure(static_cast<const char*>(versionFailure), versionKind);
}

bool SqlDriver::schemaStep(const std::string& what, void (SqlSchema::*step)(Class*), Class* cls) {
    return attempt(what + " " + static_cast<const char*>(cls->getName()), [&] {
        requireVersions();
        prepareSchema();
        (session->schema.*step)(cls);
    });
}

bool SqlDriver::beginClassUpdate(Class* cls) {
    return schemaStep("preparing the table of", &SqlSchema::beginClassUpdate, cls);
}

bool SqlDriver::createClass(Class* cls) {
    return schemaStep("making the table of", &SqlSchema::createClass, cls);
}

bool SqlDriver::endClassUpdate(Class* cls) {
    return schemaStep("upgrading the table of", &SqlSchema::endClassUpdate, cls);
}

bool SqlDriver::createView(Class* cls) {
    return schemaStep("making the view of", &SqlSchema::createView, cls);
}

bool SqlDriver::createAssociation(Association* association) {
    return attempt(
        "making the table of " + std::string(static_cast<const char*>(association->getName())),
        [&] {
            requireVersions();
            prepareSchema();
            session->schema.createAssociation(association);
        });
}

const String& SqlDriver::getErrorMessage() {
    return message;
}

const DBDriverStatus* SqlDriver::getStatus() {
    return &status;
}

unsigned long SqlDriver::newObjectID() {
    unsigned long id = 0;
    attempt("taking object ids", [&] {
        if (session->ids.needsBlock()) {
            if (!session->connection->inTransaction() && !session->connection->takesIdsAside())
                settleCursors();
            session->schema.requireOwnTables();
        }
        id = session->ids.take();
    });
    return id;
}

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

void SqlDriver::prepareSchema() {
    if (session->connection->inTransaction())
        return;
    requireTransaction();
    settleCursors();
    session->connection->beginSchema();
    session->writing = true;
}

void SqlDriver::settleCursors() {
    if (settling)
        return;
    settling = true;
    for (SqlSelection* cursor : std::vector<SqlSelection*>(cursors.begin(), cursors.end()))
        cursor->bufferRows();
    settling = false;
}

void SqlDriver::flush(bool goesOn) {
    if (session->queue.isEmpty())
        return;
    prepareToWrite();
    session->writer.flush(goesOn);
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

bool SqlDriver::commit() {
    return attempt("committing", [&] {
        requireVersions();
        flush(false);
        requireTransaction();
        if (session->connection->inTransaction()) {
            if (!session->connection->keepsCursors())
                settleCursors();
            session->schema.commit();
            session->connection->commit();
        }
        session->writing = false;
        session->queue.clear();
        session->ids.noteCommit();
        session->schema.forget();
    });
}

bool SqlDriver::rollback() {
    return attempt("rolling back", [&] {
        versionFailure = "";
        session->writing = false;
        session->loss.clear();
        session->lossKind = FailureKind::Unclassified;
        session->queue.clear();
        session->ids.noteRollback();
        settleCursors();
        session->connection->rollback();
        session->schema.forget();
    });
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

// The cursors of one selection show one state: the first begins the snapshot, and
// all are executed before it ends.
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
    for (Class* each : classes)
        sources.push_back(session->tables.of(each).table());
    return sources;
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

bool SqlDriver::tellEmptiedTo(EmptiedListener* listener) {
    if (session != nullptr)
        session->writer.tellEmptiedTo(listener);
    return session != nullptr;
}

void SqlDriver::traceSQLTo(std::ostream& stream) {
    trace = &stream;
    if (session != nullptr)
        session->connection->traceTo(trace);
}

void SqlDriver::disableSQLTrace() {
    trace = nullptr;
    if (session != nullptr)
        session->connection->traceTo(nullptr);
}

}  // namespace Kes::sql
