// Bringing an older schema up to the declared versions.
//
// Each pass is finished for all classes before the next begins: all old storage
// is prepared before any new storage is made, and all new storage exists before
// any old storage goes. Versions are written last, so a failure leaves them all
// as they were and the next open tries again.

#include <vector>

#include <kes/Association.h>
#include <kes/Class.h>
#include <kes/DBDriver.h>
#include <kes/Exception.h>
#include <kes/Model.h>

namespace Kes {

namespace {

bool isUpgraded(DBDriver* driver, const Class* cls) {
    return driver->getVersion(cls->getName(), "CLASS") < cls->getVersion();
}

void raise(const char* code, DBDriver* driver) {
    Exception(Exception::ERROR, code, "Model::updateModel", driver->getErrorMessage()).handle();
}

// Runs one pass over the classes that have storage to upgrade.
bool forEachUpgraded(const std::vector<Class*>& classes, DBDriver* driver, const char* code,
                     bool (DBDriver::*step)(Class*)) {
    for (Class* cls : classes) {
        if (!isUpgraded(driver, cls) || cls->isAbstract())
            continue;
        if (!(driver->*step)(cls)) {
            raise(code, driver);
            return false;
        }
    }
    return true;
}

bool makeViews(const std::vector<Class*>& classes, DBDriver* driver) {
    for (Class* cls : classes) {
        if (cls->getSubClasses().size() == 0)
            continue;
        if (!driver->createView(cls)) {
            raise("CREVW", driver);
            return false;
        }
    }
    return true;
}

bool makeAssociations(const std::vector<Association*>& associations, DBDriver* driver) {
    for (Association* association : associations) {
        if (!isUpgraded(driver, association->getOneClass()) &&
            !isUpgraded(driver, association->getOtherClass()))
            continue;
        if (!driver->createAssociation(association)) {
            raise("CREASS", driver);
            return false;
        }
    }
    return true;
}

}  // namespace

void Model::updateModel() {
    const std::vector<Class*>& all = classOrder;
    const std::vector<Association*>& relations = associationOrder;
    if (!forEachUpgraded(all, driver, "DELCLS", &DBDriver::beginClassUpdate) ||
        !forEachUpgraded(all, driver, "CRECLS", &DBDriver::createClass) ||
        !forEachUpgraded(all, driver, "DELCLS", &DBDriver::endClassUpdate) ||
        !makeViews(all, driver) || !makeAssociations(relations, driver)) {
        schemaFailed = true;
        return;
    }
    for (const Class* cls : all)
        if (isUpgraded(driver, cls))
            driver->setVersion(cls->getName(), cls->getVersion(), "CLASS");
    driver->setVersion(name, version, "MODEL");
}

}  // namespace Kes
