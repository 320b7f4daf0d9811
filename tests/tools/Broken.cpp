// A driver that is wrong in one way, chosen by its options, and passes
// everything else on to a real one:
//
//     broken.driver=sqlite;broken.defect=update-lost;...
//
// What the real driver is told is what a driver with the defect would do.

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <thread>

#include <kes/Association.h>
#include <kes/Class.h>
#include <kes/DBDriver.h>
#include <kes/DBDriverManager.h>
#include <kes/Handler.h>
#include <kes/Instance.h>
#include <kes/Selection.h>

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

class ZeroForNan final : public EmptyHandler {
public:
    void handleDouble(const String&, double& value) override {
        if (std::isnan(value))
            value = 0;
    }
};

class BrokenDefinition final : public SelectionDefinition {
public:
    std::unique_ptr<AssociatedClass> asked;  // only where it is not the caller's
    std::unique_ptr<SelectionDefinition> real;
    bool isSorted = false;
};

class BrokenCursor final : public DBDriverSelection {
public:
    BrokenCursor(DBDriverSelection* cursor, bool swapsFirst, bool repeatsOne)
        : real(cursor),
          swaps(swapsFirst),
          repeats(repeatsOne) {}

    bool next() override {
        ++row;
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
    long row = 0;
    Pointer<Instance> held;
};

// The version that was last stored of each object, by all sessions.
std::map<unsigned long, unsigned long> myVersions;

class BrokenDriver final : public DBDriver {
public:
    bool open(const String& source, const String& password, const String& user,
              const String& options) override {
        std::string rest = static_cast<const char*>(options);
        defect = take(rest, "defect");
        real.reset(DBDriverManager::getDBDriver(take(rest, "driver").c_str()));
        return real->open(source, password, user, rest.c_str());
    }
    bool close() override { return real->close(); }
    int getVersion(const String& name, const String& kind) override {
        return real->getVersion(name, kind);
    }
    void setVersion(const String& name, int version, const String& kind) override {
        hasClassVersions = hasClassVersions || kind == "CLASS";
        real->setVersion(name, version, kind);
    }
    bool createClass(Class* cls) override { return leaves(cls) || real->createClass(cls); }
    bool beginClassUpdate(Class* cls) override {
        return leaves(cls) || real->beginClassUpdate(cls);
    }
    bool endClassUpdate(Class* cls) override { return leaves(cls) || real->endClassUpdate(cls); }
    bool createView(Class* cls) override { return real->createView(cls); }
    bool createAssociation(Association* association) override {
        return real->createAssociation(association);
    }
    const String& getErrorMessage() override {
        return is("words-missing") ? words : real->getErrorMessage();
    }
    const DBDriverStatus* getStatus() override { return real->getStatus(); }
    unsigned long newObjectID() override {
        if (!is("ids-again") || ++ids % 100 != 0)
            lastId = real->newObjectID();
        return lastId;
    }
    bool commit() override {
        if (is("open-hangs") || (is("commit-hangs") && hasClassVersions))
            std::this_thread::sleep_for(std::chrono::hours(1));
        return real->commit();
    }
    bool rollback() override { return real->rollback() && !is("rollback-fails"); }
    bool addLink(Instance* first, const String& firstRole, Instance* second,
                 const String& secondRole, Association* association, bool linkFlag) override {
        return (is("link-lost") && association->getPluralityFor(firstRole) == Association::Many &&
                association->getPluralityFor(secondRole) == Association::Many) ||
               real->addLink(first, firstRole, second, secondRole, association, linkFlag);
    }
    bool insert(Instance* instance) override {
        Cutter cutter;
        ZeroForNan zero;
        if (is("text-cut"))
            instance->handle(&cutter);
        if (is("nan-is-zero"))
            instance->handle(&zero);
        return real->insert(instance);
    }
    bool update(Instance* instance) override {
        if (is("update-lost"))
            return true;
        if (is("version-unchecked"))
            agree(instance);
        return real->update(instance);
    }
    bool removeLink(Instance* first, const String& firstRole, Instance* second,
                    const String& secondRole, Association* association, bool linkFlag) override {
        return real->removeLink(first, firstRole, second, secondRole, association, linkFlag);
    }
    bool remove(Instance* instance) override {
        return is("removal-lost") || real->remove(instance);
    }
    bool refresh(Instance* instance) override {
        return is("refresh-blind") || real->refresh(instance);
    }
    bool lock(Instance* instance) override {
        if (is("lock-crashes"))
            std::abort();
        return is("lock-ignored") || real->lock(instance);
    }
    SelectionDefinition* defineSelection(AssociatedClass* associatedClass) override {
        auto definition = std::make_unique<BrokenDefinition>();
        definition->isSorted = associatedClass->getSortOrders().size() > 0;
        if (is("condition-ignored")) {
            Selection everything(associatedClass->getClass());
            definition->asked = std::make_unique<AssociatedClass>(everything);
            associatedClass = definition->asked.get();
        }
        definition->real.reset(real->defineSelection(associatedClass));
        return definition->real == nullptr ? nullptr : definition.release();
    }
    DBDriverSelection* fetch(Class* cls, SelectionDefinition* definition) override {
        const auto* ours = static_cast<BrokenDefinition*>(definition);
        DBDriverSelection* cursor = real->fetch(cls, ours->real.get());
        return cursor == nullptr ? nullptr
                                 : new BrokenCursor(cursor, is("order-swapped") && ours->isSorted,
                                                    is("row-twice"));
    }
    void traceSQLTo(std::ostream& stream) override { real->traceSQLTo(stream); }
    void disableSQLTrace() override { real->disableSQLTrace(); }

private:
    bool is(const char* name) const { return defect == name; }

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
    std::unique_ptr<DBDriver> real;
    String words = "it did not work";
    unsigned long lastId = 0;
    int ids = 0;
    bool hasClassVersions = false;
};

}  // namespace

extern "C" KES_EXPORT Kes::DBDriver* gdd() {
    return new BrokenDriver;
}
