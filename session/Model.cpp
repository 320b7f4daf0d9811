#include <kes/Model.h>

#include <kes/DBDriver.h>

#include "core/RaisedErrors.h"
#include "fetch/ReferenceLoader.h"
#include "identity/ObjectCache.h"
#include "query/DriverDoor.h"
#include "session/Raise.h"
#include "transaction/UnitOfWork.h"

namespace Kes {

Model::Model(const String& modelName, int cacheCapacity)
    : name(modelName.unshared()),
      classes(String::hash, 25, 25),
      associations(String::hash, 25, 25),
      transactions(new UnitOfWork(this)),
      objects(new ObjectCache(cacheCapacity)),
      door(new DriverDoor(this)),
      references(new ReferenceLoader(this)),
      errorsBefore(errorsRaised()) {
    door->setObserver(references.get());
}

// By any thread: whose model it was matters no more. In the child of a fork the
// connection is the parent's, which a farewell from here would end.
Model::~Model() {
    *life = false;
    if (threadCheck.isInherited())
        driver = nullptr;
    threadCheck.reset();
    transactions->close();
    objects->empty();
    undeclare();
    transactions.reset();
    references.reset();
    door.reset();
    delete driver;
}

void Model::traceSQLTo(std::ostream& stream) {
    threadCheck.verify();
    trace = &stream;
    if (driver != nullptr)
        driver->traceSQLTo(stream);
}

void Model::disableSQLTrace() {
    threadCheck.verify();
    trace = nullptr;
    if (driver != nullptr)
        driver->disableSQLTrace();
}

void Model::startTransaction() {
    threadCheck.doit();
    forgetFailure();
    transactions->start();
}

void Model::commit() {
    threadCheck.doit();
    if (!requireOpen("Model::commit"))
        return;
    forgetFailure();
    transactions->commit();
}

void Model::rollback() {
    threadCheck.doit();
    if (!requireOpen("Model::rollback"))
        return;
    transactions->rollback();
}

bool Model::requireOpen(const char* operation) const {
    if (driver == nullptr)
        raise("NOTOPEN", operation, String("The model ") + name + " is not open; open it first");
    return driver != nullptr;
}

bool Model::transactionStarted() const {
    threadCheck.verify();
    return transactions->isStarted();
}

bool Model::isUndoable() const {
    threadCheck.verify();
    return transactions->getHistory().newest(History::Undo) != nullptr;
}

bool Model::isRedoable() const {
    threadCheck.verify();
    return transactions->getHistory().newest(History::Redo) != nullptr;
}

// Applications compare the code with "Model::undo" and the context with
// "MDLUNDO", so the two texts stand in this order, here and below.
void Model::undo() {
    threadCheck.doit();
    if (!isUndoable()) {
        raise("Model::undo", "MDLUNDO", "Nothing to undo");
        return;
    }
    forgetFailure();
    if (transactions->isStarted())
        transactions->rollback();
    else
        transactions->reverse(History::Undo);
}

void Model::redo() {
    threadCheck.doit();
    if (!isRedoable()) {
        raise("Model::redo", "MDLREDO", "Nothing to redo");
        return;
    }
    forgetFailure();
    transactions->reverse(History::Redo);
}

void Model::setMaxUndoSize(int count) {
    threadCheck.verify();
    transactions->getHistory().setMaxUndoSize(count);
}

int Model::getMaxUndoSize() const {
    threadCheck.verify();
    return transactions->getHistory().getMaxUndoSize();
}

}  // namespace Kes
