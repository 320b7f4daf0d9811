// A driver that is wrong in one way, chosen by its options, and passes
// everything else on to a real one, as a FaultyDriver without faults does:
//
//     broken.driver=sqlite;broken.defect=update-lost;...
//
// What the real driver is told is what a driver with the defect would do.

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <kes/Association.h>
#include <kes/Class.h>
#include <kes/Condition.h>
#include <kes/ConditionTranslator.h>
#include <kes/DBDriverManager.h>
#include <kes/Handler.h>
#include <kes/Instance.h>
#include <kes/Role.h>
#include <kes/Selection.h>

#include "tools/faulty/FaultyDriver.h"

namespace {

using namespace Kes;

// Takes broken.KEY=VALUE out of the options.
std::string take(std::string& options, const std::string& key) {
    const std::string begin = "broken." + key + "=";
    const std::size_t at = options.find(begin);
    if (at == std::string::npos)
        return "";
    const std::size_t end = std::min(options.find(';', at), options.size());
    const std::string value = options.substr(at + begin.size(), end - at - begin.size());
    options.erase(at, end - at + 1);
    return value;
}

// Cuts texts at their declared length.
class Cutter final : public EmptyHandler {
public:
    void handleString(const String&, String& text, int length) override {
        const std::string whole = static_cast<const char*>(text);
        text = whole.substr(0, static_cast<std::size_t>(length)).c_str();
    }
};

bool isOdd(const String& name) {
    const std::string text = static_cast<const char*>(name);
    return !std::all_of(text.begin(), text.end(),
                        [](char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; });
}

// Forgets fields with odd names.
class Forgetter final : public EmptyHandler {
public:
    void handleInt(const String& name, int& value) override {
        if (!isOdd(name))
            return;
        value = 0;
        last = name;
    }

    String last;
};

class ZeroForNan final : public EmptyHandler {
public:
    void handleDouble(const String&, double& value) override {
        if (std::isnan(value))
            value = 0;
    }
};

// Makes a condition again, with one thing in it misunderstood.
class Misreader final : public ConditionTranslator {
public:
    explicit Misreader(std::string what) : defect(std::move(what)) {}

    Condition* read(Condition* condition) {
        condition->translate(this);
        return result;
    }

    void translate(Condition* left, Condition::LogicalOperator op, Condition* right) override {
        if (defect == "or-is-and")
            op = Condition::AND;
        Condition* one = read(left);
        result = new CombinationCondition(one, op, read(right));
    }
    void translate(Role* role, Condition::AssociationOperator op,
                   AssociatedClass* associatedClass) override {
        if (defect == "no-partner-is-any")
            op = Condition::Associations::EQUAL;
        result =
            new ManyAssociatedCondition(new Role(*role), op, new AssociatedClass(*associatedClass));
    }
    void translate(Role* role, Condition::AssociationOperator op, Instance* instance) override {
        if (defect == "no-partner-is-any")
            op = Condition::Associations::EQUAL;
        result = new OneAssociatedCondition(new Role(*role), op, instance);
    }
    void translate(Attribute* attribute, int op, double value) override {
        compare(attribute, op, value);
    }
    void translate(Attribute* attribute, int op, float value) override {
        compare(attribute, op, value);
    }
    void translate(Attribute* attribute, int op, bool value) override {
        compare(attribute, op, value);
    }
    void translate(Attribute* attribute, int op, const Timestamp& value) override {
        compare(attribute, op, value);
    }
    void translate(Attribute* attribute, int op, const String& value) override {
        compare(attribute, op, value);
    }
    void translate(Attribute* attribute, int op, int value) override {
        compare(attribute, op, value);
    }
    void translate(Attribute* attribute, int op, unsigned int value) override {
        compare(attribute, op, value);
    }
    void translate(Attribute* attribute, int op, long value) override {
        compareWhole(attribute, op, value);
    }
    void translate(Attribute* attribute, int op, unsigned long value) override {
        compareWhole(attribute, op, value);
    }

private:
    template <class T>
    void compare(const Attribute* attribute, int op, const T& value) {
        if (defect == "like-is-equal" && op == Condition::LIKE)
            op = Condition::EQUAL;
        result = new AttributeCondition<T>(new Attribute(*attribute), op, value);
    }

    template <class T>
    void compareWhole(const Attribute* attribute, int op, T value) {
        if (defect == "numbers-are-real")
            compare(attribute, op, static_cast<double>(value));
        else
            compare(attribute, op, value);
    }

    std::string defect;
    Condition* result = nullptr;
};

class BrokenDefinition final : public SelectionDefinition {
public:
    std::unique_ptr<AssociatedClass> asked;  // only where it is not the caller's
    std::unique_ptr<SelectionDefinition> real;
    bool isSorted = false;
};

// How often any driver has committed.
long myCommits = 0;

struct CursorDefects {
    bool swapsFirst = false;
    bool repeatsOne = false;
    DBDriverSelection* hoard = nullptr;  // whose rows are kept before the first one is given out
    bool goesOn = false;
    bool endsAtCommit = false;
    bool isEmpty = false;
};

class BrokenCursor final : public DBDriverSelection {
public:
    BrokenCursor(DBDriverSelection* cursor, const CursorDefects& has)
        : real(cursor),
          swaps(has.swapsFirst),
          repeats(has.repeatsOne),
          hoarded(has.hoard),
          goesOn(has.goesOn),
          endsAtCommit(has.endsAtCommit),
          isEmpty(has.isEmpty),
          commits(myCommits) {}

    bool next() override {
        ++row;
        if (isEmpty || (endsAtCommit && commits != myCommits))
            return false;
        if (goesOn && row == 2)
            return true;
        while (hoarded != nullptr && hoarded->next())
            kept.emplace_back(400, 'x');
        hoarded.reset();
        if (swaps && row == 1 && real->next()) {
            held = real->getInstance();
            if (!real->next())
                swaps = false;
            return true;
        }
        if (swaps && row <= 2)
            return held != nullptr;
        if (repeats && row == 6)
            return true;
        return real->next();
    }

    Instance* getInstance() override {
        return swaps && row == 2 ? static_cast<Instance*>(held) : real->getInstance();
    }

private:
    std::unique_ptr<DBDriverSelection> real;
    bool swaps;
    bool repeats;
    std::unique_ptr<DBDriverSelection> hoarded;
    std::vector<std::string> kept;
    bool goesOn;
    bool endsAtCommit;
    bool isEmpty;
    long commits;
    long row = 0;
    Pointer<Instance> held;
};

// The version that was last stored of each object, by all sessions.
std::map<unsigned long, unsigned long> myVersions;

// The driver that was opened last.
DBDriver* myNewest = nullptr;

class BrokenDriver final : public faulty::FaultyDriver {
public:
    BrokenDriver() : FaultyDriver(std::make_shared<faulty::Faults>()) {}
    ~BrokenDriver() override {
        forget();
        if (is("end-commits"))
            real->commit();
    }

    bool close() override {
        forget();
        return real->close();
    }
    int getVersion(const String& name, const String& kind) override {
        return real->getVersion(name, is("kinds-alike") ? String("MODEL") : kind);
    }
    void setVersion(const String& name, int version, const String& kind) override {
        hasClassVersions = hasClassVersions || kind == "CLASS";
        real->setVersion(name, version, is("kinds-alike") ? String("MODEL") : kind);
    }
    bool createClass(Class* cls) override {
        return leaves(cls) || (done(real->createClass(cls)) && !halves(cls));
    }
    bool beginClassUpdate(Class* cls) override {
        return leaves(cls) || real->beginClassUpdate(cls);
    }
    bool endClassUpdate(Class* cls) override {
        return leaves(cls) || done(real->endClassUpdate(cls)) || is("misfit-ignored");
    }
    const String& getErrorMessage() override {
        return is("words-missing") || is("half-made") ? words : real->getErrorMessage();
    }
    const DBDriverStatus* getStatus() override {
        if (!is("removed-is-changed"))
            return real->getStatus();
        status.code = std::min<int>(real->getStatus()->code, DBDriverStatus::Changed);
        return &status;
    }
    unsigned long newObjectID() override {
        if (!is("ids-again") || ++ids % 100 != 0)
            lastId = real->newObjectID();
        return lastId;
    }
    bool commit() override {
        if (is("open-hangs") || (is("commit-hangs") && hasClassVersions))
            std::this_thread::sleep_for(std::chrono::hours(1));
        ++myCommits;
        const bool isDone = real->commit();
        return !isDone && is("failures-ignored") ? real->rollback() : isDone;
    }
    bool rollback() override {
        if (is("rollback-commits"))
            real->commit();
        return real->rollback() && !is("rollback-fails");
    }
    bool addLink(Instance* first, const String& firstRole, Instance* second,
                 const String& secondRole, Association* association, bool linkFlag) override {
        return (is("odd-names-lost") && isOdd(association->getName())) ||
               (is("link-lost") && association->getPluralityFor(firstRole) == Association::Many &&
                association->getPluralityFor(secondRole) == Association::Many) ||
               real->addLink(first, firstRole, second, secondRole, association, linkFlag) ||
               is("failures-ignored");
    }
    bool insert(Instance* instance) override {
        Cutter cutter;
        ZeroForNan zero;
        if (is("text-cut"))
            instance->handle(&cutter);
        if (is("nan-is-zero"))
            instance->handle(&zero);
        DBDriver* target = is("models-mixed") && myNewest != nullptr ? myNewest : real.get();
        return forgets(instance) || done(target->insert(instance)) || is("failures-ignored");
    }
    bool update(Instance* instance) override {
        if (is("update-lost"))
            return true;
        if (is("version-unchecked"))
            agree(instance);
        return forgets(instance) || done(real->update(instance)) || is("failures-ignored");
    }
    bool removeLink(Instance* first, const String& firstRole, Instance* second,
                    const String& secondRole, Association* association, bool linkFlag) override {
        return is("unlink-lost") ||
               real->removeLink(first, firstRole, second, secondRole, association, linkFlag) ||
               is("failures-ignored");
    }
    bool remove(Instance* instance) override {
        return is("removal-lost") || real->remove(instance) || is("failures-ignored");
    }
    bool refresh(Instance* instance) override {
        if (is("refresh-blind"))
            return true;
        try {
            return real->refresh(instance);
        } catch (...) {
            if (is("refresh-by-halves"))
                instance->nextVersion();
            throw;
        }
    }
    bool lock(Instance* instance) override {
        if (is("lock-crashes"))
            std::abort();
        if (is("lock-exits"))
            std::exit(0);
        return is("lock-ignored") || real->lock(instance);
    }
    SelectionDefinition* defineSelection(AssociatedClass* associatedClass) override {
        auto definition = std::make_unique<BrokenDefinition>();
        definition->isSorted = associatedClass->getSortOrders().size() > 0;
        if (is("condition-ignored"))
            associatedClass = ask(*definition, *associatedClass, nullptr);
        else if (misreads() && associatedClass->getCondition() != nullptr)
            associatedClass = ask(*definition, *associatedClass,
                                  Misreader(defect).read(associatedClass->getCondition()));
        definition->real.reset(real->defineSelection(associatedClass));
        return definition->real == nullptr ? nullptr : definition.release();
    }
    DBDriverSelection* fetch(Class* cls, SelectionDefinition* definition) override {
        const auto* ours = static_cast<BrokenDefinition*>(definition);
        DBDriverSelection* cursor = real->fetch(cls, ours->real.get());
        if (cursor == nullptr)
            return nullptr;
        CursorDefects defects;
        defects.swapsFirst = is("order-swapped") && ours->isSorted;
        defects.repeatsOne = is("row-twice");
        defects.hoard = is("rows-hoarded") ? real->fetch(cls, ours->real.get()) : nullptr;
        defects.goesOn = is("cursor-goes-on");
        defects.endsAtCommit = is("cursor-ends-at-commit");
        defects.isEmpty = is("leaf-classes-lost") && cls->getSuperClass() != nullptr &&
                          cls->getSubClasses().size() == 0;
        return new BrokenCursor(cursor, defects);
    }
    void disableSQLTrace() override {
        if (!is("trace-goes-on"))
            real->disableSQLTrace();
    }

protected:
    bool prepare(const std::string&, const std::string& options, String& realOptions) override {
        std::string rest = options;
        defect = take(rest, "defect");
        real.reset(DBDriverManager::getDBDriver(take(rest, "driver").c_str()));
        myNewest = real.get();
        realOptions = rest.c_str();
        return real != nullptr;
    }

private:
    bool is(const char* name) const { return defect == name; }

    bool done(bool success) {
        if (success && is("commits-early"))
            real->commit();
        return success;
    }

    // Refuses fields with odd names when all is done already.
    bool halves(Class* cls) {
        Forgetter odd;
        const std::unique_ptr<Instance> dummy(cls->getDummy());
        dummy->handle(&odd);
        if (!is("half-made") || odd.last.size() == 0)
            return false;
        words = odd.last;
        real->setVersion(cls->getName(), cls->getVersion(), "CLASS");
        real->commit();
        return true;
    }

    // Whether the object is not written at all.
    bool forgets(Instance* instance) const {
        if (!is("odd-names-lost"))
            return false;
        Forgetter forgetter;
        instance->handle(&forgetter);
        return isOdd(instance->getClass()->getName());
    }

    bool misreads() const {
        return is("or-is-and") || is("no-partner-is-any") || is("like-is-equal") ||
               is("numbers-are-real");
    }

    // Another condition, which is adopted, for the same class; not sorted.
    static AssociatedClass* ask(BrokenDefinition& definition, const AssociatedClass& original,
                                Condition* condition) {
        Selection other(original.getClass());
        if (condition != nullptr)
            other.setCondition(condition);
        definition.asked = std::make_unique<AssociatedClass>(other);
        definition.asked->setAlias(original.getAlias());
        return definition.asked.get();
    }

    void forget() const {
        if (myNewest == real.get())
            myNewest = nullptr;
    }

    // A class that is there already keeps its storage.
    bool leaves(const Class* cls) {
        return is("upgrade-left-out") && real->getVersion(cls->getName(), "CLASS") > 0;
    }

    // Takes whatever version is stored for the one that the instance was read
    // with.
    static void agree(Instance* instance) {
        unsigned long& stored = myVersions[instance->getObjectID()];
        while (instance->getVersion() < stored + 1)
            instance->nextVersion();
        stored = instance->getVersion();
    }

    std::string defect;
    DBDriverStatus status;
    String words = "it did not work";
    unsigned long lastId = 0;
    int ids = 0;
    bool hasClassVersions = false;
};

}  // namespace

extern "C" KES_EXPORT Kes::DBDriver* gdd() {
    return new BrokenDriver;
}
