#include <kes/Model.h>

#include <exception>
#include <memory>

#include <kes/DBDriver.h>
#include <kes/DBDriverManager.h>
#include <kes/Exception.h>
#include <kes/Instance.h>

#include "core/RaisedErrors.h"
#include "fetch/ReferenceLoader.h"
#include "identity/ObjectCache.h"
#include "object/DeclarationHandler.h"
#include "object/FieldWalk.h"
#include "query/DriverDoor.h"
#include "session/ClassShape.h"
#include "session/DriverCache.h"
#include "session/SchemaRecords.h"
#include "transaction/UnitOfWork.h"

namespace Kes {

namespace {

void raise(const char* code, const char* context, const String& message) {
    Exception(Exception::ERROR, code, context, message).handle();
}

// Into both lists or into none.
template <class T>
void adopt(ValPtrHashtable<String, T>& byName, std::vector<T*>& order, std::unique_ptr<T>& fresh) {
    order.push_back(fresh.get());
    try {
        byName.set(fresh->getName(), fresh.get());
    } catch (...) {
        order.pop_back();
        throw;
    }
    static_cast<void>(fresh.release());
}

}  // namespace

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

void Model::undeclare() noexcept {
    for (Class* cls : classOrder)
        delete cls;
    for (Association* association : associationOrder)
        delete association;
    classOrder.clear();
    associationOrder.clear();
    classes.clear();
    associations.clear();
}

Class* Model::addClass(const String& className, int classVersion, Class::Factory factory) {
    return addClass(new Class(className, classVersion, this, factory));
}

Class* Model::addClass(Class* cls) {
    std::unique_ptr<Class> owned(cls);
    threadCheck.verify();
    if (!isDeclarable(owned))
        return nullptr;
    adopt(classes, classOrder, owned);
    const std::unique_ptr<Instance> dummy(cls->getDummy());
    ClassDeclarationHandler declare(cls, this);
    walkFields(dummy.get(), declare);
    return cls;
}

// What is refused goes, but what a model has declared is that model's. Nobody
// is left to point to what goes.
bool Model::isDeclarable(std::unique_ptr<Class>& cls) const {
    if (cls == nullptr) {
        raise("DECLERR", "Model::addClass", "Null is no class; make one for the model");
        return false;
    }
    const String& className = cls->getName();
    const Class* known = classes.get(className);
    const Model* home = cls->getModel();
    const bool isDeclared =
        known == cls.get() || (home != nullptr && home->getClass(className) == cls.get());
    String fault;
    if (known != nullptr)
        fault = String("The class ") + className + " is declared twice; give one another name";
    else if (home != this)
        fault = String("The class ") + className + " was not made for the model " + name +
                "; make one for each model";
    else if (cls->factory == nullptr)
        fault = String("The class ") + className +
                " has no factory to make its objects with; give it one";
    else
        return true;
    if (isDeclared) {
        static_cast<void>(cls.release());
    } else {
        if (cls->superClass != nullptr)
            while (cls->superClass->subClasses.remove(cls.get()) != nullptr) {}
        for (Class* sub : cls->subClasses)
            sub->superClass = nullptr;
    }
    raise("DECLERR", "Model::addClass", fault);
    return false;
}

void Model::addAssociation(Association* association) {
    std::unique_ptr<Association> owned(association);
    threadCheck.doit();
    if (!isDeclarable(owned))
        return;
    adopt(associations, associationOrder, owned);
}

bool Model::isDeclarable(std::unique_ptr<Association>& association) const {
    if (association == nullptr) {
        raise("DECLERR", "Model::addAssociation", "Null is no association; make one");
        return false;
    }
    const String& associationName = association->getName();
    const Association* known = associations.get(associationName);
    Class* ends[] = {association->getOneClass(), association->getOtherClass()};
    const Model* home = ends[0] != nullptr ? ends[0]->getModel() : nullptr;
    const bool isDeclared =
        known == association.get() ||
        (home != nullptr && home->getAssociation(associationName) == association.get());
    String fault;
    if (known != nullptr)
        fault = String("The association ") + associationName +
                " is declared twice; give one another name";
    else if (home != this)
        fault = String("The association ") + associationName + " has no class of the model " +
                name + " at its first end; make one for each model";
    else
        return true;
    if (isDeclared)
        static_cast<void>(association.release());
    else
        for (Class* end : ends)
            if (end != nullptr)
                while (end->associations.remove(association.get()) != nullptr) {}
    raise("DECLERR", "Model::addAssociation", fault);
    return false;
}

Class* Model::getClass(const String& className) const {
    return classes.get(className);
}

Association* Model::getAssociation(const String& associationName) const {
    return associations.get(associationName);
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
    settleAssociations();
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
        settle(records);
} catch (...) {
    dropDriver();
    throw;
}

// An exception that leaves some classes out would leave them out of every later
// open too. The application may go on to use those that it has got until then.
void Model::declareAll() {
    if (isHalfDeclared)
        undeclare();
    if (!classOrder.empty())
        return;
    isHalfDeclared = true;
    declareModel();
    isHalfDeclared = false;
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

// Super classes are often named after both classes were added, so ends that a
// sub class declared first could not move up to the super class by then.
void Model::settleAssociations() {
    for (Class* cls : classOrder) {
        if (cls->getSubClasses().size() == 0)
            continue;
        const std::unique_ptr<Instance> dummy(cls->getDummy());
        ClassDeclarationHandler settle(cls, this, true);
        walkFields(dummy.get(), settle);
    }
}

// An association that only one class reports has nothing to refer to.
bool Model::declaresSoundly() const {
    for (const Association* association : associationOrder) {
        if (association->getOtherClass() != nullptr)
            continue;
        raise("DECLERR", "Model::open",
              String("The association ") + association->getName() + " has one end only, the role " +
                  association->getOneRole() + " of the class " +
                  association->getOneClass()->getName() +
                  "; declare the class that reports the other role");
        return false;
    }
    for (Class* cls : classOrder) {
        const std::unique_ptr<Instance> dummy(cls->getDummy());
        LooseReferenceFinder loose;
        walkFields(dummy.get(), loose);
        if (loose.getRole().size() == 0)
            continue;
        raise("DECLERR", "Model::open",
              String("The reference ") + loose.getRole() + " of the class " + cls->getName() +
                  " does not know its owner; declare the member as role{this}");
        return false;
    }
    for (Class* cls : classOrder)
        if (cls->getSuperClass() != nullptr && !reportsInherited(cls))
            return false;
    return true;
}

// A query for the super class reads its fields from the objects of all sub
// classes.
bool Model::reportsInherited(Class* cls) const {
    const ClassShape own = reportOf(cls);
    for (const auto& [part, number] : reportOf(cls->getSuperClass())) {
        const auto found = own.find(part);
        if (found != own.end() && found->second == number)
            continue;
        const String& super = cls->getSuperClass()->getName();
        raise("DECLERR", "Model::open",
              String("The class ") + cls->getName() + " is a sub class of " + super +
                  " and does not report " + part.second.c_str() + " as " + super +
                  " does; let its factory make objects whose handle calls that of " + super);
        return false;
    }
    return true;
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
        keepFailure(dynamic_cast<FailureReporter*>(fresh.get()));
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
    keepFailure(failures);
    delete driver;
    driver = nullptr;
    failures = nullptr;
}

void Model::keepFailure(FailureReporter* reporter) {
    if (reporter != nullptr && reporter->getFailureKind() != FailureKind::None)
        keptFailure = reporter->getFailureKind();
}

void Model::forgetFailure() {
    keptFailure = FailureKind::None;
    errorsBefore = errorsRaised();
    if (failures != nullptr)
        failures->forgetFailure();
}

// A cursor raises by itself, so the driver is asked first; that an error was
// raised at all is known of every driver.
FailureKind Model::getFailureKind() const {
    if (failures != nullptr && failures->getFailureKind() != FailureKind::None)
        return failures->getFailureKind();
    if (keptFailure == FailureKind::None && errorsRaised() != errorsBefore)
        return FailureKind::Unclassified;
    return keptFailure;
}

// The transaction holds the schema by now, so nobody else makes a class that was
// not there when the records were read for the first time.
void Model::synchronise(SchemaRecords& records) try {
    schemaFailed = false;
    std::exception_ptr cause;  // of any type: the application's handler may throw its own
    try {
        updateModel();
        if (!schemaFailed)
            record(records);
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

void Model::record(SchemaRecords& records) {
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
void Model::settle(SchemaRecords& records) try {
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
    keepFailure(failures);
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

void Model::startTransaction() {
    threadCheck.doit();
    forgetFailure();
    transactions->start();
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
