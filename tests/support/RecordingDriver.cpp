// A driver that notes every call and passes it on to a real driver, unless it
// was told to fail.

#include <memory>
#include <string>
#include <utility>

#include <kes/Association.h>
#include <kes/Class.h>
#include <kes/DBDriver.h>
#include <kes/DBDriverManager.h>
#include <kes/EmptiedReferences.h>
#include <kes/Failure.h>
#include <kes/Instance.h>
#include <kes/Selection.h>

#include "tests/support/Recording.h"

namespace Kes::testing {

namespace {

std::string textOf(const String& text) {
    return static_cast<const char*>(text);
}

std::string nameOf(const Instance* instance) {
    return textOf(instance->getClass()->getName()) + " " + std::to_string(instance->getObjectID()) +
           " v" + std::to_string(instance->getVersion());
}

// Passes the rows on, unless it was told to fail at "cursor.next" (the rows end)
// or "cursor.getInstance" (there is none).
class RecordingCursor final : public DBDriverSelection {
public:
    explicit RecordingCursor(std::unique_ptr<DBDriverSelection> real) : inner(std::move(real)) {}

    bool next() override { return !Recording::get().enterUnnoted("cursor.next") && inner->next(); }
    Instance* getInstance() override {
        return Recording::get().enterUnnoted("cursor.getInstance") ? nullptr : inner->getInstance();
    }

private:
    std::unique_ptr<DBDriverSelection> inner;
};

class RecordingDriver final : public DBDriver, public EmptyingDriver, public FailureReporter {
public:
    RecordingDriver() : inner(DBDriverManager::getDBDriver("sqlite")) {}
    ~RecordingDriver() override { Recording::get().enter("destroy", ""); }

    bool open(const String& source, const String& password, const String& user,
              const String& options) override {
        Recording::get().password = password;
        return call(
            "open",
            textOf(source) + "|" + textOf(password) + "|" + textOf(user) + "|" + textOf(options),
            [&] { return inner->open(source, password, user, options); });
    }
    bool close() override {
        return call("close", "", [&] { return inner->close(); });
    }
    int getVersion(const String& name, const String& kind) override {
        Recording::get().log.push_back("getVersion " + textOf(kind) + " " + textOf(name));
        return inner->getVersion(name, kind);
    }
    void setVersion(const String& name, int version, const String& kind) override {
        Recording::get().log.push_back("setVersion " + textOf(kind) + " " + textOf(name) + " " +
                                       std::to_string(version));
        inner->setVersion(name, version, kind);
    }
    bool createClass(Class* cls) override {
        return call("createClass", textOf(cls->getName()), [&] { return inner->createClass(cls); });
    }
    bool beginClassUpdate(Class* cls) override {
        return call("beginClassUpdate", textOf(cls->getName()),
                    [&] { return inner->beginClassUpdate(cls); });
    }
    bool endClassUpdate(Class* cls) override {
        return call("endClassUpdate", textOf(cls->getName()),
                    [&] { return inner->endClassUpdate(cls); });
    }
    bool createView(Class* cls) override {
        return call("createView", textOf(cls->getName()), [&] { return inner->createView(cls); });
    }
    bool createAssociation(Association* association) override {
        return call("createAssociation", textOf(association->getName()),
                    [&] { return inner->createAssociation(association); });
    }
    const String& getErrorMessage() override {
        return told ? toldMessage : inner->getErrorMessage();
    }
    const DBDriverStatus* getStatus() override {
        if (Recording::get().enterUnnoted("getStatus"))
            return nullptr;
        return told ? &status : inner->getStatus();
    }
    unsigned long newObjectID() override {
        unsigned long id = 0;
        call("newObjectID", "", [&] { return (id = inner->newObjectID()) != 0; });
        return id;
    }
    bool commit() override {
        const bool done = call("commit", "", [&] { return inner->commit(); });
        if (!done && told && Recording::get().storesWhatFails())
            inner->commit();
        return done;
    }
    bool rollback() override {
        return call("rollback", "", [&] { return inner->rollback(); });
    }
    bool addLink(Instance* first, const String& firstRole, Instance* second,
                 const String& secondRole, Association* association, bool linkFlag) override {
        return call(
            "addLink", link(first, firstRole, second, secondRole, association, linkFlag), [&] {
                return inner->addLink(first, firstRole, second, secondRole, association, linkFlag);
            });
    }
    bool insert(Instance* instance) override {
        return call("insert", nameOf(instance), [&] { return inner->insert(instance); });
    }
    bool update(Instance* instance) override {
        return call("update", nameOf(instance), [&] { return inner->update(instance); });
    }
    bool removeLink(Instance* first, const String& firstRole, Instance* second,
                    const String& secondRole, Association* association, bool linkFlag) override {
        return call("removeLink", link(first, firstRole, second, secondRole, association, linkFlag),
                    [&] {
                        return inner->removeLink(first, firstRole, second, secondRole, association,
                                                 linkFlag);
                    });
    }
    bool remove(Instance* instance) override {
        return call("remove", nameOf(instance), [&] { return inner->remove(instance); });
    }
    bool refresh(Instance* instance) override {
        return call("refresh", nameOf(instance), [&] { return inner->refresh(instance); });
    }
    bool lock(Instance* instance) override {
        return call("lock", nameOf(instance), [&] { return inner->lock(instance); });
    }
    SelectionDefinition* defineSelection(AssociatedClass* selection) override {
        SelectionDefinition* definition = nullptr;
        call("defineSelection", textOf(selection->getClass()->getName()),
             [&] { return (definition = inner->defineSelection(selection)) != nullptr; });
        return definition;
    }
    DBDriverSelection* fetch(Class* cls, SelectionDefinition* definition) override {
        std::unique_ptr<DBDriverSelection> cursor;
        call("fetch", textOf(cls->getName()), [&] {
            cursor.reset(inner->fetch(cls, definition));
            return cursor != nullptr;
        });
        return cursor != nullptr ? new RecordingCursor(std::move(cursor)) : nullptr;
    }
    bool tellEmptiedTo(EmptiedListener* listener) override {
        auto* telling = dynamic_cast<EmptyingDriver*>(inner.get());
        return telling != nullptr && telling->tellEmptiedTo(listener);
    }
    void traceSQLTo(std::ostream& stream) override {
        Recording::get().log.push_back("traceSQLTo");
        inner->traceSQLTo(stream);
    }
    void disableSQLTrace() override {
        Recording::get().log.push_back("disableSQLTrace");
        inner->disableSQLTrace();
    }

    FailureKind getFailureKind() const override {
        return noted != FailureKind::None ? noted : reporter().getFailureKind();
    }
    void forgetFailure() override {
        noted = FailureKind::None;
        reporter().forgetFailure();
    }

private:
    FailureReporter& reporter() const { return dynamic_cast<FailureReporter&>(*inner); }

    template <class Forward>
    bool call(const char* slot, const std::string& details, Forward forward) {
        told = Recording::get().enter(slot, details);
        if (told) {
            toldMessage = (std::string(slot) + " was told to fail").c_str();
            noted = Recording::get().kind;
        }
        return !told && forward();
    }

    static std::string link(const Instance* first, const String& firstRole, const Instance* second,
                            const String& secondRole, const Association* association,
                            bool linkFlag) {
        return textOf(association->getName()) + ": " + nameOf(first) + " " + textOf(firstRole) +
               " - " + nameOf(second) + " " + textOf(secondRole) + (linkFlag ? " (in row)" : "");
    }

    std::unique_ptr<DBDriver> inner;
    bool told = false;
    FailureKind noted = FailureKind::None;
    String toldMessage;
    DBDriverStatus status;
};

}  // namespace

}  // namespace Kes::testing

extern "C" KES_EXPORT Kes::DBDriver* gdd();

Kes::DBDriver* gdd() {
    return new Kes::testing::RecordingDriver;
}
