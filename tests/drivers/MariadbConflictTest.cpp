#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "tests/drivers/MariadbTest.h"

namespace Kes::testing {

class MariadbConflictTest : public MariadbTest {
protected:
    MariadbConflictTest() {
        engine->open(mine, "lock_timeout=5000");
        mine.startTransaction();
        ann = mine.newPerson("Ann", 30);
        bob = mine.newPerson("Bob", 40);
        mine.commit();
    }

    void change(const Pointer<Person>& person, int age) {
        person->change();
        person->age = age;
    }

    StaffModel mine;
    Pointer<Person> ann;
    Pointer<Person> bob;
};

TEST_F(MariadbConflictTest, EndsADeadlockForOneAndLeavesNothingOfIt) {
    mine.startTransaction();
    change(ann, 31);
    ann->lock();
    std::promise<void> bobIsLocked;
    auto theirs = std::async(std::launch::async, [&] {
        StaffModel model;
        engine->open(model, "lock_timeout=5000");
        model.startTransaction();
        const Pointer<Person> other(model.findPerson("Bob"));
        const Pointer<Person> wanted(model.findPerson("Ann"));
        other->lock();
        bobIsLocked.set_value();
        const std::string code = codeRaisedBy([&] { wanted->lock(); });
        model.rollback();
        return code;
    });
    bobIsLocked.get_future().wait();

    const std::string said = messageRaisedBy([&] {
        bob->lock();
        change(bob, 41);
        mine.commit();
    });
    const std::string theirCode = theirs.get();

    EXPECT_NE(said.empty(), theirCode.empty()) << said;
    if (!said.empty()) {
        EXPECT_TRUE(says(said, "somebody else came first")) << said;
        EXPECT_EQ("70", engine->ask("SELECT sum([age]) FROM [Person]"));
        mine.startTransaction();
        change(ann, 31);
        change(bob, 41);
        mine.commit();
    }
    EXPECT_EQ("72", engine->ask("SELECT sum([age]) FROM [Person]"));
}

// Writes that go by the fields that changed take the locks of their rows before.
TEST_F(MariadbConflictTest, TellsOfADeadlockOverTheLocksBeforeManyWrites) {
    mine.startTransaction();
    for (int i = 0; i < 4; ++i)
        mine.newPerson("Crowd", i);
    mine.commit();
    struct Side {
        StaffModel model;
        std::vector<Pointer<Person>> crowd;
        FailureKind kind = FailureKind::None;

        void changeAndLock(bool isFirst) {
            model.startTransaction();
            (isFirst ? crowd.front() : crowd.back())->lock();
            for (std::size_t i = 0; i < crowd.size(); ++i) {
                crowd[i]->change();
                if (i % 2 == 0)
                    crowd[i]->age += 1;
                else
                    crowd[i]->salary += 1;
            }
        }
        void commit() {
            codeRaisedBy([&] { model.commit(); });
            kind = model.getFailureKind();
        }
    };
    const auto prepare = [&](Side& side, bool isFirst) {
        engine->open(side.model, "lock_timeout=20000");
        SelectionOf<Person> all(side.model.personClass);
        all.where(all["name"] == "Crowd");
        all.orderBy(all["age"]);
        while (Person* each = all.nextValue())
            side.crowd.emplace_back(each);
        side.changeAndLock(isFirst);
    };
    Side here;
    prepare(here, true);
    std::promise<void> isLocked;
    auto there = std::async(std::launch::async, [&] {
        Side side;
        prepare(side, false);
        isLocked.set_value();
        side.commit();
        return side.kind;
    });
    isLocked.get_future().wait();

    here.commit();
    const FailureKind theirs = there.get();

    const bool isOurs = here.kind != FailureKind::None;
    EXPECT_EQ(FailureKind::Conflict, isOurs ? here.kind : theirs);
    EXPECT_EQ(FailureKind::None, isOurs ? theirs : here.kind);
}

TEST_F(MariadbConflictTest, LeavesNothingOfATransactionThatWaitedTooLong) {
    StaffModel other;
    engine->open(other, "lock_timeout=1000");
    const Pointer<Person> theirs(other.findPerson("Ann"));
    mine.startTransaction();
    ann->lock();
    other.startTransaction();
    other.newPerson("Cid");
    change(theirs, 99);

    const std::string said = messageRaisedBy([&] { other.commit(); });
    mine.rollback();

    EXPECT_TRUE(says(said, "larger lock_timeout")) << said;
    EXPECT_EQ("2", engine->ask("SELECT count(*) FROM [Person]"));
    EXPECT_EQ("30", engine->ask("SELECT [age] FROM [Person] WHERE [name] = 'Ann'"));
}

TEST_F(MariadbConflictTest, NamesTheOneOfManyRowsThatWasRefused) {
    mine.startTransaction();
    const unsigned long taken = mine.newPerson("Cid")->getObjectID() + 5;
    engine->run(
        "INSERT INTO [Person] ([KesObjectID], [KesVersion], [name], [age], [salary]) "
        "VALUES (" +
        std::to_string(taken) + ", 0, 'Eve', 1, 1)");
    for (int i = 0; i < 20; ++i)
        mine.newPerson("somebody");

    const std::string said = messageRaisedBy([&] { mine.commit(); });

    EXPECT_TRUE(says(said, "inserting the Person object " + std::to_string(taken) + ":")) << said;
    EXPECT_TRUE(says(said, "Duplicate entry")) << said;
    EXPECT_EQ("3", engine->ask("SELECT count(*) FROM [Person]"));
}

TEST_F(MariadbConflictTest, NamesTheOneOfManyRowsThatWasStaleBehindOthers) {
    mine.startTransaction();
    mine.newCompany("Firm");
    std::vector<Pointer<Person>> people{ann, bob};
    for (const Pointer<Person>& person : people)
        change(person, 50);
    engine->run("UPDATE [Person] SET [KesVersion] = 7 WHERE [name] = 'Bob'");

    const std::string said = messageRaisedBy([&] { mine.commit(); });

    EXPECT_TRUE(says(said, "updating the Person object " + std::to_string(bob->getObjectID())))
        << said;
    EXPECT_TRUE(says(said, "version 7 is stored and version 0 was read")) << said;
    EXPECT_EQ("0", engine->ask("SELECT count(*) FROM [Company]"));
}

TEST_F(MariadbConflictTest, ShowsAtEveryIsolation) {
    for (const char* level : {"read committed", "repeatable read", "serializable"}) {
        StaffModel other;
        engine->open(other, std::string("isolation=") + level);
        const Pointer<Person> theirs(other.findPerson("Ann"));
        mine.startTransaction();
        change(ann, ann->age + 1);
        mine.commit();
        other.startTransaction();
        change(theirs, 99);

        EXPECT_RAISES("COMFAIL", other.commit()) << level;

        theirs->refresh();
        EXPECT_EQ(ann->age, theirs->age) << level;
        other.startTransaction();
        change(theirs, theirs->age + 1);
        other.commit();
        ann->refresh();
    }
    EXPECT_EQ("36", engine->ask("SELECT [age] FROM [Person] WHERE [name] = 'Ann'"));
}

TEST_F(MariadbConflictTest, CountsRowsThatAreFoundAndNotChanged) {
    engine->run("UPDATE [Person] SET [KesVersion] = 0");
    mine.startTransaction();
    for (const Pointer<Person>& person : {ann, bob})
        person->change();

    mine.commit();

    EXPECT_EQ("2", engine->ask("SELECT sum([KesVersion]) FROM [Person]"));
}

// Two transactions that wait for each other while the rows of a query stream; the
// server gives up the one that has written less.
class MariadbStreamTest : public MariadbConflictTest {
protected:
    MariadbStreamTest() {
        mine.startTransaction();
        for (int i = 0; i < Many; ++i)
            mine.newPerson("somebody", i);
        mine.commit();
        mine.close();
        engine->open(mine, "isolation=serializable");
        ann = mine.findPerson("Ann");
        bob = mine.findPerson("Bob");
    }

    // What is raised while `reading` meets the end of its transaction.
    template <class Reading>
    std::string deadlockIn(Reading reading) {
        const std::string first = std::to_string(ann->getObjectID());
        const std::string last = engine->ask("SELECT max([KesObjectID]) FROM [Person]");
        std::promise<void> isLocked;
        auto theirs = std::async(std::launch::async, [&] {
            PlainMariadb other(engine->source(), engine->user(), engine->password());
            other.run("SET innodb_lock_wait_timeout = 3");
            other.run("START TRANSACTION");
            other.run("UPDATE Person SET salary = 7 WHERE KesObjectID > " + last + " - 500");
            isLocked.set_value();
            waitForALock();
            other.run("UPDATE Person SET salary = 7 WHERE KesObjectID = " + first);
            other.run("ROLLBACK");
        });
        isLocked.get_future().wait();
        const std::string said = messageRaisedBy(reading);
        theirs.get();
        return said;
    }

    // The server renews what it shows when nobody has looked for a tenth of a second.
    void waitForALock() {
        PlainMariadb watch(engine->source(), engine->user(), engine->password());
        for (int i = 0; i < 20; ++i) {
            if (watch.ask("SELECT count(*) FROM information_schema.innodb_trx WHERE trx_state = "
                          "'LOCK WAIT'") != "0")
                return;
            std::this_thread::sleep_for(std::chrono::milliseconds(150));
        }
    }

    // Of two objects, one of which somebody else has changed.
    void expectNothingStored() {
        engine->run("UPDATE [Person] SET [KesVersion] = 7 WHERE [name] = 'Bob'");
        change(ann, 31);
        change(bob, 41);

        const std::string said = messageRaisedBy([&] { mine.commit(); });

        EXPECT_TRUE(says(said, "Deadlock found")) << said;
        EXPECT_EQ("30", engine->ask("SELECT [age] FROM [Person] WHERE [name] = 'Ann'"));
        mine.startTransaction();
        change(ann, 32);
        mine.commit();
        EXPECT_EQ("32", engine->ask("SELECT [age] FROM [Person] WHERE [name] = 'Ann'"));
    }

    static constexpr int Many = 2000;
};

TEST_F(MariadbStreamTest, TellsOfADeadlockAmongRows) {
    mine.startTransaction();
    SelectionOf<Person> people(mine.personClass);

    const std::string said = deadlockIn([&] {
        while (people.next())
            continue;
    });

    EXPECT_TRUE(says(said, "Deadlock found")) << said;
    EXPECT_TRUE(says(said, "(1213)")) << said;
    expectNothingStored();
}

TEST_F(MariadbStreamTest, FindsADeadlockBehindRowsThatNobodyReads) {
    mine.startTransaction();

    EXPECT_EQ("", deadlockIn([&] {
                  SelectionOf<Person> people(mine.personClass);
                  people.next();
              }));

    expectNothingStored();
}

// Each of the two reads what the other one writes.
TEST_F(MariadbConflictTest, LetsOneOfTwoCommitThatReadBehindALockAtSerializable) {
    mine.close();
    engine->open(mine, "isolation=serializable;lock_timeout=1000");
    StaffModel other;
    engine->open(other, "isolation=serializable;lock_timeout=1000");
    ann = mine.findPerson("Ann");
    bob = mine.findPerson("Bob");
    const Pointer<Person> theirAnn(other.findPerson("Ann"));
    const Pointer<Person> theirBob(other.findPerson("Bob"));
    mine.startTransaction();
    ann->lock();
    other.startTransaction();
    theirBob->lock();

    EXPECT_RAISES("REFFAIL", bob->refresh());
    change(ann, bob->age);
    theirAnn->refresh();
    change(theirBob, theirAnn->age);
    other.commit();
    EXPECT_RAISES("COMFAIL", mine.commit());

    EXPECT_EQ("60", engine->ask("SELECT sum([age]) FROM [Person]"));
}

}  // namespace Kes::testing
