// Versions, classes and associations.

#include <string>
#include <vector>

#include <kes/Class.h>

#include "drivers/common/SqlDriver.h"
#include "drivers/common/SqlDriverAttempt.h"
#include "drivers/common/SqlFailure.h"

namespace Kes::sql {

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

void SqlDriver::prepareSchema() {
    if (session->connection->inTransaction())
        return;
    requireTransaction();
    settleCursors();
    session->connection->beginSchema();
    session->writing = true;
}

}  // namespace Kes::sql
