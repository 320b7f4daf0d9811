#include "drivers/common/SqlDriver.h"

#include <utility>

#include <kes/Class.h>
#include <kes/Exception.h>
#include <kes/Model.h>

#include "drivers/common/SqlDriverAttempt.h"
#include "drivers/common/SqlFailure.h"
#include "drivers/common/SqlSelection.h"

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
