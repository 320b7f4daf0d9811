// The operations of the driver interface, called as the library calls them, and
// what a driver says when one fails.

#include <memory>
#include <set>
#include <sstream>

#include <kes/DBDriver.h>
#include <kes/DBDriverManager.h>

#include "Sessions.h"
#include "Topics.h"

namespace Kes::check {

namespace {

// A driver without a model.
class Bare {
public:
    explicit Bare(Check& runs) : check(runs), driver(newDriver(runs)) {
        const Settings& settings = check.config();
        if (!driver->open(settings.source.c_str(), settings.password.c_str(), settings.user.c_str(),
                          settings.options.c_str()))
            throw Abandoned(std::string("open: ") +
                            static_cast<const char*>(driver->getErrorMessage()));
    }
    ~Bare() {
        if (driver != nullptr)
            driver->close();
    }
    Bare(const Bare&) = delete;
    Bare& operator=(const Bare&) = delete;

    static std::unique_ptr<DBDriver> newDriver(Check& check) {
        std::unique_ptr<DBDriver> fresh(
            DBDriverManager::getDBDriver(check.config().driver.c_str()));
        check.require(fresh != nullptr, "gdd answers null");
        return fresh;
    }

    DBDriver* operator->() { return driver.get(); }

    /// Destroys the driver as the library does with a model that is open.
    void drop() { driver.reset(); }

    Check& check;

private:
    std::unique_ptr<DBDriver> driver;
};

std::string named(Check& check, const std::string& name) {
    return name + check.config().tag;
}

void makeDrivers(Check& check) {
    const std::unique_ptr<DBDriver> one = Bare::newDriver(check);
    const std::unique_ptr<DBDriver> two = Bare::newDriver(check);
    check.expect(one != two, "gdd answers the same object twice");
    one->reserved();
}

void refuseOption(Check& check) {
    const Settings& settings = check.config();
    const std::unique_ptr<DBDriver> driver = Bare::newDriver(check);
    const std::string options = settings.options + ";no_such_option=1";
    check.expect(!driver->open(settings.source.c_str(), "a secret password", settings.user.c_str(),
                               options.c_str()),
                 "an unknown option is accepted");
    const std::string message = static_cast<const char*>(driver->getErrorMessage());
    check.expect(message.find("no_such_option") != std::string::npos,
                 "the message does not name the unknown option: " + message);
    check.expect(message.find("secret") == std::string::npos, "a password stands in a message");
}

void openAgain(Check& check) {
    const Settings& settings = check.config();
    const std::unique_ptr<DBDriver> driver = Bare::newDriver(check);
    for (int i = 0; i < 3; ++i) {
        check.require(driver->open(settings.source.c_str(), settings.password.c_str(),
                                   settings.user.c_str(), settings.options.c_str()),
                      "open fails the " + std::to_string(i + 1) + ". time");
        check.expect(driver->newObjectID() != 0, "no object id");
        check.expect(driver->close(), "close fails");
    }
}

void keepVersions(Check& check) {
    const std::string name = named(check, "versions kept");
    {
        Bare driver(check);
        check.expect(driver->getVersion(named(check, "never stored").c_str(), "MODEL") <= 0,
                     "a name that was never stored has a version");
        driver->setVersion(name.c_str(), 7, "MODEL");
        driver->setVersion(name.c_str(), 3, "CLASS");
        driver->setVersion(name.c_str(), 8, "MODEL");
        check.expectEqual(8, driver->getVersion(name.c_str(), "MODEL"), "the model's version");
        check.expect(driver->commit(), "commit fails");
    }
    Bare driver(check);
    check.expectEqual(8, driver->getVersion(name.c_str(), "MODEL"), "the model's stored version");
    check.expectEqual(3, driver->getVersion(name.c_str(), "CLASS"), "the class's stored version");
    check.expect(driver->getVersion(named(check, "VERSIONS KEPT").c_str(), "MODEL") <= 0,
                 "a name in capitals has the version of another one");
}

void rollVersionsBack(Check& check) {
    const std::string name = named(check, "versions rolled back");
    Bare driver(check);
    driver->setVersion(name.c_str(), 1, "MODEL");
    check.expect(driver->commit(), "commit fails");
    driver->setVersion(name.c_str(), 2, "MODEL");
    check.expect(driver->rollback(), "rollback fails");
    check.expectEqual(1, driver->getVersion(name.c_str(), "MODEL"), "the version after a rollback");
}

void nameVersionsOddly(Check& check) {
    Bare driver(check);
    int version = 0;
    const std::string longName(1000, 'v');
    const std::vector<std::string> names{"it's",
                                         "\"quoted\"",
                                         "; DROP TABLE kes_versions",
                                         "a ",
                                         "\xC3\xA4\xF0\x9F\x98\x80",
                                         longName.substr(0, 200)};
    for (const std::string& name : names)
        driver->setVersion(named(check, name).c_str(), ++version, "MODEL");
    check.expect(driver->commit(), "commit fails");
    version = 0;
    for (const std::string& name : names)
        check.expectEqual(++version, driver->getVersion(named(check, name).c_str(), "MODEL"),
                          "the version of \"" + name + "\"");
}

void giveIds(Check& check) {
    Bare one(check);
    Bare two(check);
    std::set<unsigned long> ids;
    for (int i = 0; i < 5000; ++i) {
        ids.insert(one->newObjectID());
        ids.insert(two->newObjectID());
    }
    check.expect(!ids.contains(0), "0 is given out as an object id");
    check.expectEqual<std::size_t>(10000, ids.size(), "different ids of two sessions");
}

void endNothing(Check& check) {
    Bare driver(check);
    for (int i = 0; i < 3; ++i) {
        check.expect(driver->commit(), "a commit with nothing to commit fails");
        check.expect(driver->rollback(), "a rollback with nothing to roll back fails");
    }
}

void traceStatements(Check& check) {
    Sessions sessions(check, "trace");
    std::ostringstream trace;
    sessions.one.traceSQLTo(trace);
    sessions.store(1);
    transact(sessions.one,
             [&] { (*sessions.one.make(sessions.name))["word"] = String("a word in the trace"); });
    const std::size_t written = trace.str().size();
    check.expect(written != 0, "nothing is traced");
    check.expect(trace.str().find("a word in the trace") != std::string::npos,
                 "a value that was stored does not stand in the trace");
    sessions.one.disableSQLTrace();
    sessions.store(1);
    check.expectEqual(written, trace.str().size(), "bytes traced after the trace was ended");
    const std::string& password = check.config().password;
    check.expect(password.empty() || trace.str().find(password) == std::string::npos,
                 "the password stands in the trace");
}

void askDriverItself(Check& check) {
    Sessions sessions(check, "driver");
    const unsigned long id = sessions.store(1)[0];
    Object* object = sessions.get(sessions.two, id);
    DBDriver* driver = sessions.two.getDriver();
    check.expect(driver->refresh(object), "refresh reports something about an unchanged object");
    transact(sessions.one, [&] { Sessions::change(*sessions.get(sessions.one, id), 5); });
    check.expect(!driver->refresh(object), "refresh does not report a change");
    check.expectEqual<int>(DBDriverStatus::Changed, driver->getStatus()->code,
                           "the status of a changed object");
    check.expectEqual(5, Sessions::valueOf(*object), "the value after the refresh");
    check.expect(driver->refresh(object), "refresh reports the same change twice");
    transact(sessions.one, [&] { sessions.get(sessions.one, id)->remove(); });
    check.expect(!driver->refresh(object), "refresh does not report a removal");
    check.expectEqual<int>(DBDriverStatus::Removed, driver->getStatus()->code,
                           "the status of a removed object");
}

// The library deletes a definition before its cursors.
void outliveDefinition(Check& check) {
    Sessions sessions(check, "definition");
    sessions.store(10);
    Class* cls = sessions.one[sessions.name];
    Selection selection(cls);
    selection.where(selection["value"] >= 5);
    AssociatedClass asked(selection);
    std::unique_ptr<SelectionDefinition> definition(sessions.one.defineSelection(&asked));
    check.require(definition != nullptr, "no definition");
    std::unique_ptr<DBDriverSelection> one(sessions.one.fetch(cls, definition.get()));
    std::unique_ptr<DBDriverSelection> two(sessions.one.fetch(cls, definition.get()));
    check.require(one != nullptr && two != nullptr, "no cursor");
    check.expect(one->getInstance() == nullptr, "a cursor has an instance before its first row");
    check.expect(one->next() && one->getInstance() != nullptr, "a cursor has no row");
    check.expect(one->getInstance() == one->getInstance(), "a row has two instances");
    definition.reset();
    int count = 1;
    while (one->next())
        ++count;
    check.expectEqual(5, count, "rows of a cursor that has outlived its definition");
    check.expect(!one->next(), "a cursor goes on after its end");
    check.expect(one->getInstance() == nullptr, "a cursor has an instance after its end");
    count = 0;
    while (two->next())
        ++count;
    check.expectEqual(5, count, "rows of the second cursor of one definition");
}

// Selections may live longer than the session that they ask.
void outliveSession(Check& check) {
    Sessions sessions(check, "outlived");
    sessions.store(10);
    Class* cls = sessions.one[sessions.name];
    Selection selection(cls);
    AssociatedClass asked(selection);
    std::unique_ptr<SelectionDefinition> definition(sessions.one.defineSelection(&asked));
    check.require(definition != nullptr, "no definition");
    const std::unique_ptr<DBDriverSelection> cursor(sessions.one.fetch(cls, definition.get()));
    check.require(cursor != nullptr, "no cursor");
    check.expect(cursor->next(), "a cursor has no row");
    sessions.one.close();
    check.expect(!cursor->next(), "a cursor goes on after its session was closed");
}

// A model that is destroyed while it is open does not close its driver.
void endWithoutClose(Check& check) {
    const std::string name = named(check, "versions dropped");
    {
        Bare driver(check);
        driver->setVersion(name.c_str(), 1, "MODEL");
        check.expect(driver->commit(), "commit fails");
        driver->setVersion(name.c_str(), 2, "MODEL");
        driver.drop();
    }
    Bare driver(check);
    check.expectEqual(1, driver->getVersion(name.c_str(), "MODEL"),
                      "the version after a session that ended without a commit");
    driver->setVersion(name.c_str(), 3, "MODEL");
    check.expect(driver->commit(), "a session that just ended keeps others from writing");
}

void refuseDefinition(Check& check) {
    Sessions sessions(check, "undefined");
    Selection selection(sessions.one[sessions.name]);
    selection.where(selection["nothing"] == 5);
    AssociatedClass asked(selection);
    DBDriver* driver = sessions.one.getDriver();
    const std::unique_ptr<SelectionDefinition> definition(driver->defineSelection(&asked));
    check.require(definition == nullptr, "a condition on an unknown field is accepted");
    const std::string message = static_cast<const char*>(driver->getErrorMessage());
    check.expect(message.find("nothing") != std::string::npos &&
                     message.find(sessions.name) != std::string::npos,
                 "the message does not name class and field: " + message);
    const unsigned long id = sessions.store(1)[0];
    check.expectEqual(0, sessions.stored(id), "what is stored after the refusal");
}

// The text of a failure says what was tried, and on what.
void nameDriver(Check& check) {
    Sessions sessions(check, "words");
    const unsigned long id = sessions.store(1)[0];
    Object* theirs = sessions.get(sessions.two, id);
    transact(sessions.one, [&] { Sessions::change(*sessions.get(sessions.one, id), 5); });
    sessions.two.startTransaction();
    Sessions::change(*theirs, 6);
    const Raised raised = raisedBy([&] { sessions.two.commit(); });
    check.expect(raised.names(sessions.name), "the class is not named: " + raised.message);
    check.expect(raised.names(std::to_string(id)), "the object is not named: " + raised.message);
    const std::size_t first = raised.message.find(": ");
    check.expect(first != std::string::npos && first < raised.message.find(' ') &&
                     raised.message.find(": ", first + 2) != std::string::npos,
                 "the message does not read \"driver: what was tried: why\": " + raised.message);
}

// Without a commit nothing stays, also when the session just ends.
void closeInTheMiddle(Check& check) {
    Sessions sessions(check, "closed");
    const unsigned long id = sessions.store(1)[0];
    sessions.one.startTransaction();
    Sessions::change(*sessions.get(sessions.one, id), 5);
    Selection selection(sessions.one[sessions.name]);
    check.expect(selection.next(), "no row");
    sessions.one.close();
    check.expectEqual(0, sessions.stored(id), "a value that was never committed");
    sessions.one.open();
    check.expectEqual(0, Sessions::valueOf(*sessions.get(sessions.one, id)),
                      "the value in the session that was opened again");
}

}  // namespace

void addSlotChecks(Suite& suite) {
    suite.add("slots.new-drivers", makeDrivers);
    suite.add("slots.open-with-unknown-option", refuseOption);
    suite.add("slots.open-again-and-again", openAgain);
    suite.add("slots.versions", keepVersions);
    suite.add("slots.versions-rolled-back", rollVersionsBack);
    suite.add("slots.versions-of-odd-names", nameVersionsOddly);
    suite.add("slots.object-ids", giveIds);
    suite.add("slots.nothing-to-end", endNothing);
    suite.add("slots.trace", traceStatements);
    suite.add("slots.refresh-status", askDriverItself);
    suite.add("slots.definition-deleted-first", outliveDefinition);
    suite.add("slots.cursor-after-close", outliveSession);
    suite.add("slots.ended-without-close", endWithoutClose);
    suite.add("slots.definition-refused", refuseDefinition);
    suite.add("slots.error-text", nameDriver);
    suite.add("slots.closed-in-the-middle", closeInTheMiddle);
}

}  // namespace Kes::check
