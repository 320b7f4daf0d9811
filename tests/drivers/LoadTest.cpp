// What an object in memory shows when its row cannot be loaded: one stored
// version in whole, and the one before.

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>

#include "tests/drivers/DriverTest.h"
#include "tests/drivers/FreeModel.h"
#include "tests/support/Raises.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

class LoadTest : public DriverTest {
protected:
    LoadTest() {
        open(mine);
        mine.startTransaction();
        ann = mine.newPerson("Ann", 30);
        firm = mine.newCompany("Firm");
        ann->employer = firm;
        mine.commit();
    }

    // Somebody else's program raises the version and stores what no int holds.
    void spoil() {
        run("UPDATE [Person] SET [name] = 'Anna', [age] = 99999999999, [salary] = 5, "
            "[employer] = NULL, [KesVersion] = 7 WHERE [name] = 'Ann'");
    }
    void mend() { run("UPDATE [Person] SET [age] = 31 WHERE [name] = 'Anna'"); }

    void expectOld() const {
        EXPECT_STREQ("Ann", ann->name);
        EXPECT_EQ(30, ann->age);
        EXPECT_EQ(0, ann->salary);
        EXPECT_EQ(0UL, ann->getVersion());
        EXPECT_EQ(firm.getInstance(), ann->employer.get());
    }

    void expectNew() const {
        EXPECT_STREQ("Anna", ann->name);
        EXPECT_EQ(31, ann->age);
        EXPECT_EQ(5, ann->salary);
        EXPECT_EQ(7UL, ann->getVersion());
        EXPECT_EQ(nullptr, ann->employer.get());
    }

    void queryAll() {
        SelectionOf<Person> people(mine.personClass);
        while (people.next())
            continue;
    }

    StaffModel mine;
    Pointer<Person> ann;
    Pointer<Company> firm;
};

TEST_F(LoadTest, LeavesAnObjectWholeWhoseRefreshIsRefused) {
    spoil();
    for (int i = 0; i < 2; ++i) {
        const std::string message = messageRaisedBy([&] { ann->refresh(); });

        EXPECT_TRUE(says(message, "the field age of the Person object")) << message;
        expectOld();
    }
    mend();
    ann->refresh();
    expectNew();
}

TEST_F(LoadTest, LeavesAnObjectWholeThatAQueryCannotLoad) {
    spoil();
    for (int i = 0; i < 2; ++i) {
        EXPECT_RAISES("SELERR", queryAll());
        expectOld();
    }
    mend();
    queryAll();
    expectNew();
}

TEST_F(LoadTest, OverwritesNothingThatItCouldNotRead) {
    spoil();
    EXPECT_RAISES("REFFAIL", ann->refresh());
    EXPECT_RAISES("SELERR", queryAll());
    mine.startTransaction();
    ann->change();
    ann->salary = 100;

    EXPECT_RAISES("COMFAIL", mine.commit());

    EXPECT_EQ("5", ask("SELECT [salary] FROM [Person]"));
    expectOld();
}

TEST_F(LoadTest, LeavesAnObjectWholeWhenTheErrorHandlerReturns) {
    spoil();
    const ReturningHandler handler;

    ann->refresh();

    EXPECT_EQ((std::vector<std::string>{"REFFAIL"}), handler.codes());
    expectOld();
}

TEST_F(LoadTest, LeavesAnObjectWholeThatACollectionMeets) {
    run("UPDATE [Person] SET [KesVersion] = 7, [name] = 'Anna', [age] = 99999999999 WHERE "
        "[name] = 'Ann'");

    EXPECT_RAISES("SELERR", firm->get(firm->staff, true));

    EXPECT_STREQ("Ann", ann->name);
    EXPECT_EQ(0UL, ann->getVersion());
}

TEST_F(LoadTest, KeepsNoNewObjectThatCannotBeLoaded) {
    const unsigned long id = ann->getObjectID();
    ann = nullptr;
    firm = nullptr;
    mine.garbageCollect();
    spoil();

    EXPECT_RAISES("SELERR", mine.getInstance(id, mine.personClass));

    EXPECT_EQ(nullptr, mine.get(id));
}

namespace {

// Throws from the middle of a walk, at the report that `countdown` reaches.
int countdown = 0;

void mayThrow() {
    if (countdown > 0 && --countdown == 0)
        throw std::runtime_error("the program's own failure");
}

void everyField(Free& object, Handler* h) {
    mayThrow();
    h->handleString("text", object.text, 20);
    mayThrow();
    h->handleInt("number", object.number);
    h->handleOneAssociated("Pair", "one", &object.one, Association::Unlink);
    mayThrow();
    h->handleManyAssociated("Pair", "many", &object.many);
    h->handleTimestamp("moment", object.moment);
    mayThrow();
    h->handleString("text2", object.text2, 20);
    mayThrow();
}

}  // namespace

class ThrowingHandleTest : public DriverTest {
protected:
    ThrowingHandleTest() {
        countdown = 0;
        open(mine);
        mine.startTransaction();
        object = mine.make("Thing");
        partner = mine.make("Thing");
        object->text = object->text2 = "old";
        object->number = 1;
        object->one = partner;
        mine.commit();
        open(theirs);
    }
    ~ThrowingHandleTest() override { countdown = 0; }

    void letOthersChange(int number) {
        const int armed = std::exchange(countdown, 0);
        const auto their = [&](const Pointer<Free>& of) {
            return static_cast<Free*>(
                theirs.getInstance(of->getObjectID(), theirs.getClass("Thing")));
        };
        theirs.startTransaction();
        Free* changed = their(object);
        changed->change();
        changed->text = changed->text2 = String(number);
        changed->number = number;
        changed->one = nullptr;
        theirs.commit();
        countdown = armed;
    }

    // Lets each walk's reports fail, one after the other, until the new version is
    // there. What fails after the load leaves it, in whole.
    void expectWholeAfter(const std::function<void()>& load) {
        letOthersChange(2);
        int at = 0;
        for (bool isLoaded = false; !isLoaded && at < 100;) {
            countdown = ++at;
            try {
                load();
                isLoaded = true;
            } catch (const std::runtime_error&) {
            } catch (const Exception&) {}
            countdown = 0;
            if (isLoaded || object->getVersion() == 1)
                break;
            EXPECT_STREQ("old", object->text) << at;
            EXPECT_EQ(1, object->number) << at;
            EXPECT_STREQ("old", object->text2) << at;
            EXPECT_EQ(0UL, object->getVersion()) << at;
            EXPECT_TRUE(object->one.isFetched()) << at;
            EXPECT_EQ(partner.getInstance(), object->one.get()) << at;
        }
        EXPECT_GT(at, 5);
        EXPECT_STREQ("2", object->text);
        EXPECT_STREQ("2", object->text2);
        EXPECT_EQ(2, object->number);
        EXPECT_EQ(1UL, object->getVersion());
        EXPECT_EQ(nullptr, object->one.get());
    }

    static void declare(FreeModel& model) { model.declareClass("Thing", everyField); }

    FreeModel mine{1, declare};
    FreeModel theirs{1, declare};
    Pointer<Free> object;
    Pointer<Free> partner;
};

TEST_F(ThrowingHandleTest, LeavesTheObjectOfARefreshWhole) {
    expectWholeAfter([&] { object->refresh(); });
}

TEST_F(ThrowingHandleTest, LeavesTheObjectOfAQueryWhole) {
    expectWholeAfter([&] {
        Selection things(mine.getClass("Thing"));
        while (things.next())
            continue;
    });
}

}  // namespace Kes::testing
