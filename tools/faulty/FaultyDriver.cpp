#include "tools/faulty/FaultyDriver.h"

#include <kes/Association.h>
#include <kes/Class.h>
#include <kes/DBDriverManager.h>
#include <kes/Exception.h>
#include <kes/Instance.h>
#include <kes/Selection.h>

#include "tools/faulty/FaultPlan.h"
#include "tools/faulty/FaultyCursor.h"

namespace Kes::faulty {

namespace {

std::string textOf(const String& text) {
    return static_cast<const char*>(text);
}

std::string nameOf(const Instance* instance) {
    return textOf(instance->getClass()->getName()) + " " + std::to_string(instance->getObjectID()) +
           " v" + std::to_string(instance->getVersion());
}

std::string linkOf(const Instance* first, const String& firstRole, const Instance* second,
                   const String& secondRole, const Association* association, bool linkFlag) {
    return textOf(association->getName()) + ": " + nameOf(first) + " " + textOf(firstRole) + " - " +
           nameOf(second) + " " + textOf(secondRole) + (linkFlag ? " (in row)" : "");
}

// What the real driver made for a call that fails after all has no taker.
template <class Plain>
void discard(Plain) {}
void discard(SelectionDefinition* definition) {
    delete definition;
}
void discard(DBDriverSelection* cursor) {
    delete cursor;
}

}  // namespace

FaultyDriver::FaultyDriver(std::shared_ptr<Faults> itsFaults)
    : report(std::make_shared<Report>()),
      faults(std::move(itsFaults)) {}

FaultyDriver::~FaultyDriver() {
    if (faults != nullptr && faults->isDue("destroy", ""))
        faults->strike("destroy", false);
}

bool FaultyDriver::refuse(const std::string& words) {
    report->tell(words, FailureKind::Unclassified);
    return false;
}

// Passes a call on, or lets its fault happen instead of it or after it.
template <class Result, class Work>
Result FaultyDriver::call(const char* slot, const std::string& details, Result failure, Work work) {
    report->told = false;
    if (real == nullptr) {
        refuse("faulty: the driver is not open");
        return failure;
    }
    if (!faults->isDue(slot, details))
        return work();
    if (faults->strikesAfter()) {
        const Result made = work();
        try {
            if (!faults->strike(slot, true))
                return made;
        } catch (...) {
            discard(made);
            throw;
        }
        discard(made);
    } else if (!faults->strike(slot, true)) {
        return work();
    }
    report->tell(faults->describe(slot), faults->getKind());
    return failure;
}

// The same for calls whose failure their caller does not see. True when the
// call is left out.
bool FaultyDriver::falls(const char* slot, const std::string& details) {
    return faults == nullptr || (faults->isDue(slot, details) && faults->strike(slot, true));
}

bool FaultyDriver::prepare(const std::string&, const std::string& options, String& realOptions) {
    try {
        const FaultSettings settings = FaultSettings::parse(options);
        real.reset(DBDriverManager::getDBDriver(settings.driver.c_str()));
        if (real == nullptr)
            return refuse("faulty: there is no driver \"" + settings.driver + "\"");
        faults = FaultPlan::find(settings);
        realOptions = settings.realOptions.c_str();
        return true;
    } catch (const Exception& raised) {
        return refuse(std::string("faulty: ") + raised.getMessage());
    } catch (const std::exception& failure) {
        return refuse(std::string("faulty: ") + failure.what());
    }
}

bool FaultyDriver::open(const String& source, const String& password, const String& user,
                        const String& options) {
    String realOptions;
    return prepare(textOf(source), textOf(options), realOptions) &&
           call("open", textOf(source), false,
                [&] { return real->open(source, password, user, realOptions); });
}

bool FaultyDriver::close() {
    return call("close", "", false, [&] { return real->close(); });
}

int FaultyDriver::getVersion(const String& name, const String& kind) {
    return call("getVersion", textOf(kind) + " " + textOf(name), 0,
                [&] { return real->getVersion(name, kind); });
}

void FaultyDriver::setVersion(const String& name, int version, const String& kind) {
    const bool done =
        call("setVersion", textOf(kind) + " " + textOf(name) + " " + std::to_string(version), false,
             [&] {
                 real->setVersion(name, version, kind);
                 return true;
             });
    if (!done)
        versionFailed = true;
}

bool FaultyDriver::createClass(Class* cls) {
    return call("createClass", textOf(cls->getName()), false,
                [&] { return real->createClass(cls); });
}

bool FaultyDriver::beginClassUpdate(Class* cls) {
    return call("beginClassUpdate", textOf(cls->getName()), false,
                [&] { return real->beginClassUpdate(cls); });
}

bool FaultyDriver::endClassUpdate(Class* cls) {
    return call("endClassUpdate", textOf(cls->getName()), false,
                [&] { return real->endClassUpdate(cls); });
}

bool FaultyDriver::createView(Class* cls) {
    return call("createView", textOf(cls->getName()), false, [&] { return real->createView(cls); });
}

bool FaultyDriver::createAssociation(Association* association) {
    return call("createAssociation", textOf(association->getName()), false,
                [&] { return real->createAssociation(association); });
}

const String& FaultyDriver::getErrorMessage() {
    if (falls("getErrorMessage") && faults != nullptr)
        refuse(faults->describe("getErrorMessage"));
    return report->told ? report->message : real->getErrorMessage();
}

const DBDriverStatus* FaultyDriver::getStatus() {
    if (falls("getStatus"))
        return nullptr;
    return report->told ? &status : real->getStatus();
}

unsigned long FaultyDriver::newObjectID() {
    return call("newObjectID", "", 0UL, [&] { return real->newObjectID(); });
}

bool FaultyDriver::commit() {
    return call("commit", "", false, [&] {
        return versionFailed ? refuse("faulty: a setVersion was told to fail") : real->commit();
    });
}

bool FaultyDriver::rollback() {
    return call("rollback", "", false, [&] {
        versionFailed = false;
        return real->rollback();
    });
}

bool FaultyDriver::addLink(Instance* first, const String& firstRole, Instance* second,
                           const String& secondRole, Association* association, bool linkFlag) {
    return call(
        "addLink", linkOf(first, firstRole, second, secondRole, association, linkFlag), false,
        [&] { return real->addLink(first, firstRole, second, secondRole, association, linkFlag); });
}

bool FaultyDriver::insert(Instance* instance) {
    return call("insert", nameOf(instance), false, [&] { return real->insert(instance); });
}

bool FaultyDriver::update(Instance* instance) {
    return call("update", nameOf(instance), false, [&] { return real->update(instance); });
}

bool FaultyDriver::removeLink(Instance* first, const String& firstRole, Instance* second,
                              const String& secondRole, Association* association, bool linkFlag) {
    return call("removeLink", linkOf(first, firstRole, second, secondRole, association, linkFlag),
                false, [&] {
                    return real->removeLink(first, firstRole, second, secondRole, association,
                                            linkFlag);
                });
}

bool FaultyDriver::remove(Instance* instance) {
    return call("remove", nameOf(instance), false, [&] { return real->remove(instance); });
}

// A refresh that fails is neither changed nor removed; it is raised.
bool FaultyDriver::refresh(Instance* instance) {
    const bool unchanged =
        call("refresh", nameOf(instance), false, [&] { return real->refresh(instance); });
    if (!report->told)
        return unchanged;
    const String words = report->message;
    Exception(Exception::ERROR, "REFFAIL", "Instance::refresh", words).handle();
    return true;
}

bool FaultyDriver::lock(Instance* instance) {
    return call("lock", nameOf(instance), false, [&] { return real->lock(instance); });
}

SelectionDefinition* FaultyDriver::defineSelection(AssociatedClass* associatedClass) {
    return call("defineSelection", textOf(associatedClass->getClass()->getName()),
                static_cast<SelectionDefinition*>(nullptr),
                [&] { return real->defineSelection(associatedClass); });
}

DBDriverSelection* FaultyDriver::fetch(Class* cls, SelectionDefinition* definition) {
    return call("fetch", textOf(cls->getName()), static_cast<DBDriverSelection*>(nullptr),
                [&]() -> DBDriverSelection* {
                    std::unique_ptr<DBDriverSelection> cursor(real->fetch(cls, definition));
                    if (cursor == nullptr)
                        return nullptr;
                    return new FaultyCursor(std::move(cursor), faults, report);
                });
}

void FaultyDriver::traceSQLTo(std::ostream& stream) {
    if (!falls("traceSQLTo"))
        real->traceSQLTo(stream);
}

void FaultyDriver::disableSQLTrace() {
    if (!falls("disableSQLTrace"))
        real->disableSQLTrace();
}

// No call that a fault could fall on: it tells whether the real driver does.
bool FaultyDriver::tellEmptiedTo(EmptiedListener* listener) {
    auto* telling = dynamic_cast<EmptyingDriver*>(real.get());
    return telling != nullptr && telling->tellEmptiedTo(listener);
}

}  // namespace Kes::faulty
