#include <kes/Selection.h>

#include <exception>
#include <memory>
#include <utility>

#include <kes/Association.h>
#include <kes/Calculator.h>
#include <kes/Class.h>
#include <kes/Exception.h>
#include <kes/Instance.h>
#include <kes/Model.h>
#include <kes/Tabulator.h>

#include "core/Platform.h"
#include "identity/ObjectCache.h"
#include "object/InstanceState.h"
#include "object/ModelGate.h"
#include "query/DeliveryObserver.h"
#include "query/DriverDoor.h"
#include "query/EmptiedTests.h"
#include "query/SelectionState.h"

namespace Kes {

namespace {

std::shared_ptr<const bool> lifeOf(const Class* cls) {
    const Model* model = cls != nullptr ? cls->getModel() : nullptr;
    return model != nullptr ? model->getLife() : nullptr;
}

}  // namespace

Selection::Selection(Class* selectedClass)
    : cls(selectedClass),
      alias("t"),
      modelLives(lifeOf(selectedClass)) {}

// Cursors speak to the database: another thread, or the child of a fork, leaves
// them open. The pointer to the last instance tells the model of it.
Selection::~Selection() {
    delete definition;
    delete frozen;
    delete condition;
    delete given;
    if (state != nullptr && state->thread != platform::currentThreadId())
        cursors.clear();
    cursors.clearAndDelete();
    sortOrders.clearAndDelete();
    delete state;
}

Attribute Selection::operator[](const String& name) const {
    return Attribute(cls, name);
}

// What is not known, a class or an association, is left to the query, which is
// then refused by name.
Role Selection::operator()(const String& associationName, const String& roleName) const {
    return Role(cls, roleName, findAssociation(associationName));
}

Association* Selection::findAssociation(const String& associationName) const {
    const Model* model = cls != nullptr && !isOrphaned() ? cls->getModel() : nullptr;
    return model != nullptr ? model->getAssociation(associationName) : nullptr;
}

Role Selection::operator()(const String& associationName) const {
    Association* association = findAssociation(associationName);
    if (association == nullptr)
        return Role(cls, associationName, nullptr);
    if (cls != association->getOneClass())
        return Role(cls, association->getOtherRole(), association);
    if (cls == association->getOtherClass())
        Exception(Exception::ERROR, "SELFAIL", "Selection::operator()",
                  "Please specify Role in recursive association condition")
            .handle();
    return Role(cls, association->getOneRole(), association);
}

Selection& Selection::where(const Condition& newCondition) {
    if (state != nullptr) {
        fail("Selection::where",
             "The selection is under way and takes no condition any more; make a new one");
        return *this;
    }
    setCondition(newCondition.getNew());  // the argument may be the old one
    return *this;
}

void Selection::setCondition(Condition* newCondition) {
    condition = newCondition;
    delete std::exchange(given, nullptr);
}

void Selection::orderBy(const Attribute& attribute, bool ascending) {
    auto fresh = std::make_unique<SortOrder>(attribute, ascending);
    sortOrders.add(fresh.get());
    fresh.release();
}

Selection& Selection::limit(std::uint64_t count, std::uint64_t offset) {
    if (state != nullptr) {
        fail("Selection::limit",
             "The selection is under way and takes no limit any more; make a new one");
        return *this;
    }
    most = count;
    skipped = offset;
    return *this;
}

void Selection::requireRows() {
    if (isAtEnd())
        fail("Selection::begin",
             "The selection was gone through before, which works once; make a new one");
}

bool Selection::isAtEnd() const {
    return state != nullptr && cursors.size() == 0 && state->ahead.empty() &&
           state->failure == nullptr;
}

bool Selection::isOrphaned() const {
    return modelLives != nullptr && !*modelLives;
}

bool Selection::next() {
    if (isOrphaned() && !isAtEnd())
        return failOnOrphan();
    if (state != nullptr && state->thread != platform::currentThreadId())
        ModelGate::thread(cls->getModel()).verify();
    if (state != nullptr && !state->ahead.empty())
        return deliverAhead();
    if (state != nullptr && state->failure != nullptr)
        std::rethrow_exception(std::exchange(state->failure, nullptr));
    Instance* instance = read();
    if (instance == nullptr)
        return false;
    currentValue = instance;
    if (InstanceState::isAhead(instance))
        observer->delivered(instance);
    readAhead();
    return true;
}

// What rows and their number have in common: the selection is under way now, and
// the database is about to be asked.
bool Selection::begin() {
    state = new SelectionState;
    state->toCome = most;
    state->toSkip = skipped;
    if (cls == nullptr || cls->getModel() == nullptr)
        return failOnDriver();
    Model* model = cls->getModel();
    state->reader = ModelGate::objects(model).news.begin(cls);
    frozen = new AssociatedClass(*this);
    ModelGate::thread(model).doit();
    if (observer == nullptr)
        observer = &ModelGate::observer(model);
    observer->asked();
    return true;
}

std::uint64_t Selection::count() {
    if (state != nullptr) {
        fail("Selection::count", "The selection is under way; make a new one to count");
        return 0;
    }
    auto* calculator =
        cls != nullptr && !isOrphaned() && cls->getModel() != nullptr && cls->getModel()->isOpen()
            ? ModelGate::door(cls->getModel()).find<Calculator>()
            : nullptr;
    std::uint64_t number = 0;
    if (calculator != nullptr)
        return countBy(*calculator, number) ? number : 0;
    while (next())
        ++number;
    return number;
}

bool Selection::countBy(Calculator& calculator, std::uint64_t& number) {
    if (!begin())
        return false;
    state->reader = {};
    const EmptiedTests emptied;
    const DriverDoor::Passage driver = ModelGate::door(cls->getModel()).enter();
    const std::uint64_t last = most > UINT64_MAX - skipped ? UINT64_MAX : most + skipped;
    const bool isCounted = last == 0 || calculator.count(frozen, last, number);
    if (emptied.haveBeenMet())
        return failOnEmptied();
    if (!isCounted)
        return failOnDriver();
    number = number > skipped ? number - skipped : 0;
    return true;
}

bool Selection::tabulateBy(Tabulator& tabulator, const Tabulation& wanted, TableReader& reader) {
    if (!begin())
        return false;
    state->reader = {};
    const EmptiedTests emptied;
    const DriverDoor::Passage driver = ModelGate::door(cls->getModel()).enter();
    const bool isDone = tabulator.tabulate(frozen, wanted, reader);
    if (emptied.haveBeenMet())
        return failOnEmptied();
    return isDone || failOnDriver();
}

void Selection::fail(const char* operation, const char* reason) {
    Exception(Exception::ERROR, "SELERR", operation, reason).handle();
}

// Its cursors know that their driver is gone.
bool Selection::failOnOrphan() {
    cursors.clearAndDelete();
    if (state == nullptr)
        state = new SelectionState;
    state->ahead.clear();
    state->failure = nullptr;
    fail("Selection::next",
         "The model of the selection was destroyed; destroy the selection first");
    return false;
}

bool Selection::failOnEmptied() {
    cursors.clearAndDelete();
    fail("Selection::next",
         "The object that a condition of the selection names is gone since its model was closed; "
         "make the condition again");
    return false;
}

// Ends the selection and tells why.
bool Selection::failOnDriver() {
    cursors.clearAndDelete();
    current = 0;
    String reason("The selection has no class; give it one when it is made");
    if (cls != nullptr && cls->getModel() != nullptr) {
        const Model* model = cls->getModel();
        reason = model->isOpen()
                     ? String(model->getDriver()->getErrorMessage())
                     : String("The model ") + model->getName() + " is not open; open it first";
    }
    Exception(Exception::ERROR, "SELERR", "Selection::next", reason).handle();
    return false;
}

}  // namespace Kes
