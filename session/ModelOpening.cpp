// The part of Model that opens and closes it, and that knows what has failed.

#include <exception>
#include <memory>

#include <kes/DBDriver.h>
#include <kes/DBDriverManager.h>
#include <kes/Model.h>

#include "core/RaisedErrors.h"
#include "identity/ObjectCache.h"
#include "query/DriverDoor.h"
#include "session/DriverCache.h"
#include "session/Raise.h"
#include "session/SchemaRecords.h"
#include "transaction/UnitOfWork.h"

namespace Kes {

void Model::open(const String& openDriverName, const String& openSource, const String& password,
                 const String& openUser, const String& openOptions) {
    // Closed, it has nothing that the child of a fork must not touch.
    if (driver == nullptr && threadCheck.isInherited())
        threadCheck.reset();
    threadCheck.doit();
    if (driver != nullptr) {
        raise("DBOPENERR", "Model::open",
              String("The model ") + name + " is open; close it before it is opened again");
        return;
    }
    driverName = openDriverName.unshared();
    source = openSource.unshared();
    user = openUser.unshared();
    options = openOptions.unshared();
    declareAll();
    resolveAssociations();
    if (!declaresSoundly())
        return;
    forgetFailure();
    useDriver(getCachedDriver());
    if (driver != nullptr || openFreshDriver(password))
        startUsing();
}

// A driver whose schema is not known to be the model's goes.
void Model::startUsing() try {
    if (trace != nullptr)
        driver->traceSQLTo(*trace);
    transactions->listenTo(driver);
    const bool isUpgraded = driver->getVersion(name, "MODEL") < version;
    SchemaRecords records(*this, *driver);
    if (!accepts(records, isUpgraded))
        return;
    if (isUpgraded)
        synchronise(records);
    else
        completeRecords(records);
} catch (...) {
    dropDriver();
    throw;
}

// What cannot be read now is read again before anything is upgraded for good.
bool Model::accepts(SchemaRecords& records, bool isUpgraded) {
    const bool isRead = records.read();
    const String words = isRead       ? records.refusal(isUpgraded)
                         : isUpgraded ? String("")
                                      : driver->getErrorMessage();
    if (words.size() == 0)
        return true;
    dropDriver();
    raise(isRead ? "DECLERR" : "DBOPENERR", "Model::open", words);
    return false;
}

bool Model::openFreshDriver(const String& password) {
    std::unique_ptr<DBDriver> fresh(DBDriverManager::getDBDriver(driverName));
    if (fresh == nullptr) {
        raise("DRVERR", "Model::open",
              String("Driver with name: ") + driverName + " does not exist.");
        return false;
    }
    // A driver may keep them, and a parked one goes to a model of another thread.
    if (!fresh->open(source.unshared(), password.unshared(), user.unshared(), options.unshared())) {
        const String reason = fresh->getErrorMessage();
        saveFailure(dynamic_cast<FailureReporter*>(fresh.get()));
        fresh.reset();  // gone before the handler runs: no half-open driver survives a throw
        raise("DBOPENERR", "Model::open", reason);
        return false;
    }
    useDriver(fresh.release());
    return true;
}

void Model::useDriver(DBDriver* opened) {
    driver = opened;
    failures = dynamic_cast<FailureReporter*>(opened);
    if (failures != nullptr)
        failures->forgetFailure();
}

void Model::dropDriver() {
    saveFailure(failures);
    delete driver;
    driver = nullptr;
    failures = nullptr;
}

void Model::saveFailure(FailureReporter* reporter) {
    if (reporter != nullptr && reporter->getFailureKind() != FailureKind::None)
        savedFailure = reporter->getFailureKind();
}

void Model::forgetFailure() {
    savedFailure = FailureKind::None;
    errorsBefore = errorsRaised();
    if (failures != nullptr)
        failures->forgetFailure();
}

// A cursor raises by itself, so the driver is asked first; that an error was
// raised at all is known of every driver.
FailureKind Model::getFailureKind() const {
    if (failures != nullptr && failures->getFailureKind() != FailureKind::None)
        return failures->getFailureKind();
    if (savedFailure == FailureKind::None && errorsRaised() != errorsBefore)
        return FailureKind::Unclassified;
    return savedFailure;
}

// The transaction holds the schema by now, so nobody else makes a class that was
// not there when the records were read for the first time.
void Model::synchronise(SchemaRecords& records) try {
    schemaFailed = false;
    std::exception_ptr cause;  // of any type: the application's handler may throw its own
    try {
        updateModel();
        if (!schemaFailed)
            writeRecords(records);
    } catch (...) {
        cause = std::current_exception();
    }
    if (cause == nullptr && !schemaFailed) {
        if (driver->commit())
            return;
        const String reason = driver->getErrorMessage();
        driver->rollback();
        dropDriver();
        raise("ROLLFAIL", "Model::open", reason);
        return;
    }
    if (!driver->rollback()) {
        const String reason = driver->getErrorMessage();
        dropDriver();
        raise("ROLLFAIL", "Model::open", reason);
        return;
    }
    dropDriver();
    if (cause != nullptr)
        std::rethrow_exception(cause);
} catch (...) {
    // A driver that threw may be within its transaction still, with locks that
    // it would keep while it is parked.
    dropDriver();
    throw;
}

void Model::writeRecords(SchemaRecords& records) {
    const bool isRead = records.read();
    const String words = isRead ? records.refusalOfOwner() : driver->getErrorMessage();
    if (words.size() == 0) {
        records.write();
        return;
    }
    schemaFailed = true;
    raise(isRead ? "DECLERR" : "DBOPENERR", "Model::open", words);
}

// A database that was made before records were kept gets them. Where it cannot
// be written, it does without.
void Model::completeRecords(SchemaRecords& records) try {
    if (!records.write() || driver->commit())
        return;
    const bool isOver = driver->rollback();
    const String reason = isOver ? String("") : driver->getErrorMessage();
    if (isOver) {
        forgetFailure();
        return;
    }
    dropDriver();
    raise("ROLLFAIL", "Model::open", reason);
} catch (...) {
    dropDriver();
    throw;
}

void Model::close() {
    threadCheck.doit();
    if (driver == nullptr)
        return;
    if (transactions->isTelling()) {
        raise("EVENTERR", "Model::close",
              String("Listeners of the model ") + name +
                  " are hearing of objects that would be freed; close it when commit or refresh "
                  "has returned");
        return;
    }
    door->end();
    objects->empty();
    transactions->close();
    saveFailure(failures);
    std::unique_ptr<DBDriver> closed(driver);
    transactions->stopListening(driver);
    driver = nullptr;
    failures = nullptr;

    // Others would wait for ever for what a parked driver has locked.
    const bool isLocked = transactions->releaseLocks() && keepsDrivers();
    if (isLocked && !closed->rollback())
        return;

    // The stream is the application's, and the next model that uses the driver
    // may be one that nobody wants to watch.
    if (trace != nullptr)
        closed->disableSQLTrace();
    cacheDriver(closed.release());
}

}  // namespace Kes
