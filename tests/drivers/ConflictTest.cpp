#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/drivers/DriverTest.h"
#include "tests/support/Raises.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

// Two sessions hold the same objects of one database.
class ConflictTest : public DriverTest {
protected:
    ConflictTest() {
        open(mine);
        mine.startTransaction();
        firm = mine.newCompany("Firm");
        ann = mine.newPerson("Ann", 30);
        bob = mine.newPerson("Bob", 40);
        mine.commit();
        open(theirs);
        theirAnn = theirs.findPerson("Ann");
        theirBob = theirs.findPerson("Bob");
    }

    void changeTheirs() {
        theirs.startTransaction();
        theirAnn->age = 77;
        theirAnn->change();
        theirs.commit();
    }

    void removeTheirs() {
        theirs.startTransaction();
        theirAnn->remove();
        theirs.commit();
    }

    StaffModel mine;
    StaffModel theirs;
    Pointer<Company> firm;
    Pointer<Person> ann;
    Pointer<Person> bob;
    Pointer<Person> theirAnn;
    Pointer<Person> theirBob;
};

// So many changes lie between the removal and the link that the driver writes the
// former, which raises Bob's version, before it hears of the latter.
TEST_F(ConflictTest, LeavesTheVersionsThatAreStored) {
    mine.startTransaction();
    bob->employer = firm;
    std::vector<Pointer<Person>> crowd;
    for (int i = 0; i < 4200; ++i)
        crowd.emplace_back(mine.newPerson("crowd"));
    mine.commit();
    const unsigned long stored = bob->getVersion();
    changeTheirs();
    mine.startTransaction();
    firm->remove();
    for (const Pointer<Person>& each : crowd) {
        each->change();
        each->age = 1;
    }
    bob->spouse = crowd.front();
    ann->change();
    ann->age = 31;

    EXPECT_RAISES("COMFAIL", mine.commit());

    EXPECT_EQ(stored, bob->getVersion());
    mine.startTransaction();
    bob->change();
    bob->age = 41;
    mine.commit();
    EXPECT_EQ("41", ask("SELECT [age] FROM [Person] WHERE [name] = 'Bob'"));
}

TEST_F(ConflictTest, LetsARetrySucceedAfterARefresh) {
    changeTheirs();
    ann->age = 31;
    ann->change();
    EXPECT_RAISES("COMFAIL", mine.commit());

    EXPECT_EQ(FailureKind::Conflict, mine.getFailureKind());

    ann->refresh();
    EXPECT_EQ(77, ann->age);
    ann->age += 1;
    ann->change();
    mine.commit();

    EXPECT_EQ("78", ask("SELECT [age] FROM [Person] WHERE [name] = 'Ann'"));
}

TEST_F(ConflictTest, LosesNoUpdateWhenMembersAreAssignedBeforeChange) {
    changeTheirs();
    ann->name = "Anna";
    ann->change();

    EXPECT_RAISES("COMFAIL", mine.commit());

    EXPECT_EQ("Ann", ask("SELECT [name] FROM [Person] WHERE [age] = 77"));
}

TEST_F(ConflictTest, NamesTheOneOfManyRemovalsThatSomebodyHasChanged) {
    changeTheirs();
    mine.startTransaction();
    firm->remove();
    bob->remove();
    ann->remove();

    const std::string message = messageRaisedBy([&] { mine.commit(); });

    const std::string name = "Person object " + std::to_string(ann->getObjectID());
    EXPECT_TRUE(says(message, "removing the " + name + ": somebody else has changed it"))
        << message;
    EXPECT_EQ("2", ask("SELECT count(*) FROM [Person]"));
    EXPECT_EQ("1", ask("SELECT count(*) FROM [Company]"));
}

TEST_F(ConflictTest, FailsToLinkWhatSomebodyHasChanged) {
    changeTheirs();
    ann->employer = firm;

    EXPECT_RAISES("COMFAIL", mine.commit());

    EXPECT_EQ(nullptr, ann->employer.get());
}

TEST_F(ConflictTest, FailsToLinkFromTheManySideWhatSomebodyHasChanged) {
    changeTheirs();
    firm->staff.add(ann);

    EXPECT_RAISES("COMFAIL", mine.commit());

    EXPECT_TRUE(firm->staff.empty());
}

TEST_F(ConflictTest, TakesTheSameManyToManyLinkOfTwoSessionsForOne) {
    theirAnn->friends.add(theirBob);
    theirs.commit();
    ann->friends.add(bob);
    mine.commit();

    EXPECT_EQ("1", ask("SELECT count(*) FROM [Friendship]"));
}

// Moves one year of age from one to another, again until nobody is in between.
void transfer(StaffModel& model, Person* from, Person* to) {
    for (bool isDone = false; !isDone;) {
        from->refresh();
        to->refresh();
        model.startTransaction();
        from->change();
        from->age -= 1;
        to->change();
        to->age += 1;
        isDone = codeRaisedBy([&] { model.commit(); }).empty();
    }
}

TEST_F(ConflictTest, KeepsTheSumOfWhatManySessionsTransfer) {
    std::vector<std::thread> sessions;
    for (int i = 0; i < 4; ++i)
        sessions.emplace_back([&, i] {
            StaffModel model;
            open(model, engine->waitingAtMost(60000));
            const Pointer<Person> from(model.findPerson(i % 2 == 0 ? "Ann" : "Bob"));
            const Pointer<Person> to(model.findPerson(i % 2 == 0 ? "Bob" : "Ann"));
            for (int j = 0; j < (i < 2 ? 20 : 10); ++j)
                transfer(model, from, to);
        });
    for (std::thread& session : sessions)
        session.join();

    EXPECT_EQ("30", ask("SELECT [age] FROM [Person] WHERE [name] = 'Ann'"));
    EXPECT_EQ("40", ask("SELECT [age] FROM [Person] WHERE [name] = 'Bob'"));
    EXPECT_EQ("60", ask("SELECT [KesVersion] FROM [Person] WHERE [name] = 'Ann'"));
}

TEST_F(ConflictTest, LeavesObjectsWithPendingChangesToTheCommit) {
    changeTheirs();
    ann->age = 31;
    ann->change();

    EXPECT_EQ(ann.getInstance(), mine.findPerson("Ann"));
    EXPECT_EQ(31, ann->age);

    EXPECT_RAISES("COMFAIL", mine.commit());
}

class Ear : public Listener {
public:
    void instanceRemoved(const InstanceEvent&) override { ++removed; }

    int removed = 0;
};

TEST_F(ConflictTest, TellsOfARemovalThatARefreshFinds) {
    removeTheirs();
    Ear ear;
    ann->addListener(&ear);

    ann->refresh();

    EXPECT_EQ(1, ear.removed);
    EXPECT_TRUE(ann->isRemoved());
    EXPECT_EQ(nullptr, mine.getInstance(ann->getObjectID(), mine.personClass));
    ann->refresh();
    EXPECT_EQ(1, ear.removed);
}

TEST_F(ConflictTest, LocksAnObjectAgainstLinksThatOthersMake) {
    StaffModel impatient;
    open(impatient, engine->waitingAtMost(20));
    const Pointer<Person> person(impatient.findPerson("Ann"));
    const Pointer<Person> other(impatient.findPerson("Bob"));
    const Pointer<Company> company(impatient.findCompany("Firm"));
    mine.startTransaction();
    ann->lock();
    firm->lock();

    other->friends.add(person);
    EXPECT_RAISES("COMFAIL", impatient.commit());
    other->employer = company;
    EXPECT_RAISES("COMFAIL", impatient.commit());

    mine.commit();
    EXPECT_EQ("0", ask("SELECT count(*) FROM [Friendship]"));
    other->friends.add(person);
    other->employer = company;
    impatient.commit();
    EXPECT_EQ("1", ask("SELECT count(*) FROM [Friendship]"));
}

TEST_F(ConflictTest, GivesAOneToOnePartnerToOne) {
    mine.startTransaction();
    const Pointer<Person> cid(mine.newPerson("Cid"));
    cid->spouse = bob;
    mine.commit();
    mine.startTransaction();
    ann->spouse = bob;
    mine.commit();

    EXPECT_EQ("1", ask("SELECT count(*) FROM [Person] WHERE [spouse] IS NOT NULL"));
    EXPECT_EQ(ask("SELECT [KesObjectID] FROM [Person] WHERE [name] = 'Ann'"),
              ask("SELECT [marriedTo] FROM [Person] WHERE [name] = 'Bob'"));
}

// --- two sessions that each write what the other one has read ---

TEST_F(ConflictTest, ChecksWhatWasReadAndIsDeclaredChanged) {
    mine.startTransaction();
    ann->change();
    ann->age = bob->age;
    bob->change();
    theirs.startTransaction();
    theirBob->change();
    theirBob->age = theirAnn->age;
    theirAnn->change();
    mine.commit();

    EXPECT_RAISES("COMFAIL", theirs.commit());

    EXPECT_EQ("40", ask("SELECT [age] FROM [Person] WHERE [name] = 'Ann'"));
    EXPECT_EQ("40", ask("SELECT [age] FROM [Person] WHERE [name] = 'Bob'"));
}

TEST_F(ConflictTest, ChecksWhatWasReadAndIsLocked) {
    mine.startTransaction();
    bob->lock();
    ann->change();
    ann->age = bob->age;
    mine.commit();
    theirs.startTransaction();

    EXPECT_RAISES("LOCKFAIL", theirAnn->lock());
}

TEST_F(ConflictTest, WritesRowsInTheOrderOfTheirIdsWhateverThatOfTheCalls) {
    mine.startTransaction();
    for (const Pointer<Person>* each : {&bob, &ann}) {
        (*each)->age += 1;
        (*each)->change();
    }
    ann->name = "Lower";
    bob->name = "Higher";
    firm->name = "First";
    firm->change();
    std::ostringstream trace;
    mine.traceSQLTo(trace);
    mine.commit();
    mine.disableSQLTrace();

    // Of rows that travel together the first is shown.
    const std::string text = trace.str();
    ASSERT_NE(std::string::npos, text.find("Lower")) << text;
    EXPECT_LT(text.find("Lower"), text.find("Higher")) << text;
    EXPECT_LT(text.find("First"), text.find("Lower")) << text;
}

TEST_F(ConflictTest, DoesNotDeadlockSessionsThatChangeTheSameObjectsInOppositeOrder) {
    mine.startTransaction();
    for (int i = 0; i < 6; ++i)
        mine.newPerson("Crowd", i);
    mine.commit();
    std::vector<std::string> deadlocks;
    std::mutex mutex;
    const auto work = [&](bool backwards) {
        StaffModel model;
        open(model);
        std::vector<Pointer<Person>> crowd;
        SelectionOf<Person> all(model.personClass);
        while (Person* each = all.nextValue())
            crowd.emplace_back(each);
        std::sort(crowd.begin(), crowd.end(),
                  [&](const Pointer<Person>& a, const Pointer<Person>& b) {
                      return (a->getObjectID() < b->getObjectID()) != backwards;
                  });
        for (int round = 0; round < 25; ++round) {
            model.startTransaction();
            for (const Pointer<Person>& each : crowd) {
                each->refresh();
                if ((each->getObjectID() + static_cast<unsigned long>(round)) % 2 == 0)
                    each->age += 1;
                else
                    each->salary += 1;
                each->change();
            }
            try {
                model.commit();
            } catch (const Exception& refused) {
                const std::lock_guard<std::mutex> hold(mutex);
                const std::string message = static_cast<const char*>(refused.getMessage());
                if (message.find("eadlock") != std::string::npos)
                    deadlocks.push_back(message);
            }
        }
    };
    std::thread other([&] { work(true); });
    work(false);
    other.join();

    EXPECT_TRUE(deadlocks.empty()) << deadlocks.size() << " times: " << deadlocks.front();
}

}  // namespace Kes::testing
