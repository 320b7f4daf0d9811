#include <atomic>
#include <thread>

#include "tests/drivers/PostgresTest.h"

namespace Kes::testing {

// Two sessions hold the same objects; the first one's connection may break.
class PostgresFaultTest : public PostgresTest {
protected:
    PostgresFaultTest() {
        openAt(proxy, mine);
        mine.startTransaction();
        ann = mine.newPerson("Ann", 30);
        bob = mine.newPerson("Bob", 40);
        mine.commit();
        open(theirs);
        theirAnn = theirs.findPerson("Ann");
        theirBob = theirs.findPerson("Bob");
    }

    void change(const Pointer<Person>& person, int age) {
        person->change();
        person->age = age;
    }

    std::string ageOf(const char* name) {
        return ask(std::string("SELECT [age] FROM [Person] WHERE [name] = '") + name + "'");
    }

    // The age of Ann, as soon as it is what it should be, or after five seconds.
    std::string ageOfAnnWhen(const std::string& wanted) {
        for (int i = 0; i < 500 && ageOf("Ann") != wanted; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        return ageOf("Ann");
    }

    // Ends the connection that has locked a row.
    void terminateWhoLocked() {
        run("SELECT pg_terminate_backend(pid, 5000) FROM pg_locks WHERE relation = "
            "'[Person]'::regclass AND mode = 'RowShareLock'");
    }

    // Closes the model and opens it again, and finds what is stored.
    void expectRecovery(const char* age) {
        EXPECT_NO_THROW(mine.close());
        openAt(proxy, mine);
        Person* found = mine.findPerson("Ann");
        ASSERT_NE(nullptr, found);
        EXPECT_EQ(age, std::to_string(found->age));
        mine.startTransaction();
        found->change();
        found->age = 99;
        mine.commit();
        EXPECT_EQ("99", ageOf("Ann"));
    }

    DelayingProxy proxy{port};
    StaffModel mine;
    StaffModel theirs;
    Pointer<Person> ann;
    Pointer<Person> bob;
    Pointer<Person> theirAnn;
    Pointer<Person> theirBob;
};

TEST_F(PostgresFaultTest, ALostConnectionIsToldAtTheNextUse) {
    proxy.cut();

    const std::string message = messageRaisedBy([&] { mine.findPerson("Cid"); });

    EXPECT_TRUE(says(message, "the connection to the server is lost")) << message;
    EXPECT_TRUE(says(message, "close the model and open it again")) << message;
    expectRecovery("30");
}

TEST_F(PostgresFaultTest, ALostConnectionIsToldEachTime) {
    proxy.cut();
    EXPECT_NE("", messageRaisedBy([&] { mine.findPerson("Cid"); }));

    const std::string message = messageRaisedBy([&] { mine.findPerson("Cid"); });

    EXPECT_TRUE(says(message, "was lost before")) << message;
    EXPECT_TRUE(says(message, "close the model and open it again")) << message;
}

TEST_F(PostgresFaultTest, AConnectionLostBeforeATransactionStoresNothing) {
    proxy.cut();
    change(ann, 31);

    const std::string message = messageRaisedBy([&] { mine.commit(); });

    EXPECT_TRUE(says(message, "connection")) << message;
    EXPECT_EQ(FailureKind::LostConnection, mine.getFailureKind());
    EXPECT_FALSE(says(message, "not known")) << message;
    EXPECT_EQ(30, ann->age);
    EXPECT_EQ("30", ageOf("Ann"));
    expectRecovery("30");
}

TEST_F(PostgresFaultTest, AConnectionLostInATransactionStoresNothing) {
    mine.startTransaction();
    ann->lock();
    change(ann, 31);
    proxy.cut();

    const std::string message = messageRaisedBy([&] { mine.commit(); });

    EXPECT_TRUE(says(message, "connection")) << message;
    EXPECT_EQ(FailureKind::LostConnection, mine.getFailureKind());
    EXPECT_FALSE(says(message, "not known")) << message;
    EXPECT_EQ(30, ann->age);
    EXPECT_EQ("30", ageOf("Ann"));
    expectRecovery("30");
}

TEST_F(PostgresFaultTest, AConnectionLostWithTheWritesStoresNothing) {
    change(ann, 31);
    proxy.cutAfter("UPDATE \"Person\"");

    const std::string message = messageRaisedBy([&] { mine.commit(); });

    EXPECT_TRUE(says(message, "connection")) << message;
    EXPECT_EQ(FailureKind::LostConnection, mine.getFailureKind());
    EXPECT_FALSE(says(message, "not known")) << message;
    EXPECT_EQ("30", ageOf("Ann"));
    expectRecovery("30");
}

TEST_F(PostgresFaultTest, AConnectionLostBeforeTheCommitArrivesIsToldAsUnknown) {
    change(ann, 31);
    proxy.cutBefore("COMMIT");

    const std::string message = messageRaisedBy([&] { mine.commit(); });

    EXPECT_TRUE(says(message, "it is not known whether the transaction is stored")) << message;
    EXPECT_EQ(FailureKind::UnknownOutcome, mine.getFailureKind());
    EXPECT_TRUE(says(message, "close the model and open it again")) << message;
    EXPECT_EQ("30", ageOf("Ann"));
    expectRecovery("30");
}

TEST_F(PostgresFaultTest, AConnectionLostAfterTheCommitArrivedIsToldAsUnknown) {
    change(ann, 31);
    proxy.cutAfter("COMMIT");

    const std::string message = messageRaisedBy([&] { mine.commit(); });

    EXPECT_TRUE(says(message, "it is not known whether the transaction is stored")) << message;
    EXPECT_EQ(FailureKind::UnknownOutcome, mine.getFailureKind());
    EXPECT_EQ("31", ageOfAnnWhen("31"));
    expectRecovery("31");
}

TEST_F(PostgresFaultTest, AConnectionThatTheServerEndsIsToldInItsWords) {
    mine.startTransaction();
    ann->lock();
    terminateWhoLocked();

    const std::string message = messageRaisedBy([&] { mine.commit(); });

    EXPECT_TRUE(says(message, "terminating connection due to administrator command")) << message;
    expectRecovery("30");
}

// --- a server that says nothing more, on a connection that stays up ---

class PostgresSilenceTest : public PostgresFaultTest {
protected:
    PostgresSilenceTest() {
        mine.close();
        openAt(proxy, mine, "network_timeout=1");
        ann = mine.findPerson("Ann");
    }
};

TEST_F(PostgresSilenceTest, IsAnUnknownOutcomeWhereItAnswersNoCommit) {
    // What was read before may have a transaction of its own, which ends first.
    mine.startTransaction();
    ann->lock();
    change(ann, 31);
    proxy.swallowAnswer(std::string("COMMIT\0", 7));  // and no "READ COMMITTED"

    const std::string message = messageRaisedBy([&] { mine.commit(); });

    EXPECT_TRUE(says(message, "it is not known whether the transaction is stored")) << message;
    EXPECT_TRUE(says(message, "silent for 1 s, the network_timeout")) << message;
    EXPECT_EQ(FailureKind::UnknownOutcome, mine.getFailureKind());
    EXPECT_EQ(30, ann->age);
    EXPECT_EQ("31", ageOfAnnWhen("31"));
    expectRecovery("31");
}

TEST_F(PostgresSilenceTest, IsALostConnectionWhereItAnswersNoWrite) {
    change(ann, 31);
    proxy.swallowAnswer("UPDATE \"Person\"");

    const std::string message = messageRaisedBy([&] { mine.commit(); });

    EXPECT_TRUE(says(message, "silent for 1 s, the network_timeout")) << message;
    EXPECT_FALSE(says(message, "not known")) << message;
    EXPECT_EQ(FailureKind::LostConnection, mine.getFailureKind());
    expectRecovery("30");
}

TEST_F(PostgresSilenceTest, IsALostConnectionWhereItAnswersNoQuery) {
    proxy.swallowAnswer("SELECT");

    const std::string message = messageRaisedBy([&] { mine.findCompany("Firm"); });

    EXPECT_TRUE(says(message, "silent for 1 s, the network_timeout")) << message;
    EXPECT_EQ(FailureKind::LostConnection, mine.getFailureKind());
}

// Something comes all the time, so it may take as long as it takes.
TEST_F(PostgresSilenceTest, IsNoneWhileRoundTripsAddUpToMore) {
    const DelayingProxy slow(port, std::chrono::milliseconds(150));
    StaffModel model;
    openAt(slow, model, "network_timeout=1");
    const auto start = std::chrono::steady_clock::now();
    model.startTransaction();
    for (int i = 0; i < 5000; ++i)
        model.newPerson("somebody");
    model.commit();

    EXPECT_EQ("5002", ask("SELECT count(*) FROM [Person]"));
    EXPECT_GT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
}

TEST_F(PostgresFaultTest, ALostConnectionEndsACursorWithAnError) {
    mine.startTransaction();
    for (int i = 0; i < 1000; ++i)
        mine.newPerson("somebody");
    mine.commit();
    SelectionOf<Person> people(mine.personClass);
    ASSERT_TRUE(people.next());
    proxy.cut();

    const std::string message = messageRaisedBy([&] {
        while (people.next())
            continue;
    });

    EXPECT_TRUE(says(message, "connection")) << message;
}

TEST_F(PostgresFaultTest, ALostConnectionDoesNotKeepTheModelFromRollingBack) {
    mine.startTransaction();
    ann->lock();
    change(ann, 31);
    proxy.cut();

    EXPECT_NO_THROW(mine.rollback());

    EXPECT_EQ(30, ann->age);
    expectRecovery("30");
}

TEST_F(PostgresFaultTest, AModelOpensAgainOnAConnectionThatBrokeWhileItWasParked) {
    mine.close();
    proxy.cut();

    openAt(proxy, mine);

    EXPECT_NE(nullptr, mine.findPerson("Ann"));
}

// A model that is closed parks its driver, and the server ends its session.
class PostgresParkedTest : public PostgresFaultTest {
protected:
    PostgresParkedTest() {
        Model::setDriverCacheSize(1);
        openParked();
    }
    ~PostgresParkedTest() override {
        parked.close();
        Model::setDriverCacheSize(0);
    }

    void openParked() { open(parked, "application_name=parked"); }

    void closeAndEndSession() {
        parked.close();
        EXPECT_EQ("t", ask("SELECT pg_terminate_backend(pid, 5000) FROM pg_stat_activity WHERE "
                           "application_name = 'parked'"));
    }

    unsigned long storeAnother() {
        parked.startTransaction();
        const unsigned long id = parked.newPerson("Another")->getObjectID();
        parked.commit();
        return id;
    }

    StaffModel parked;
};

TEST_F(PostgresParkedTest, OpensEachTime) {
    for (int i = 0; i < 4; ++i) {
        closeAndEndSession();

        openParked();

        EXPECT_NE(nullptr, parked.findPerson("Ann"));
    }
}

TEST_F(PostgresParkedTest, KeepsItsSessionWhenThatIsAlive) {
    const std::string asking = "SELECT pid FROM pg_stat_activity WHERE application_name = 'parked'";
    const std::string before = ask(asking);
    parked.close();

    openParked();

    EXPECT_NE(nullptr, parked.findPerson("Ann"));
    EXPECT_EQ(before, ask(asking));
}

TEST_F(PostgresParkedTest, GivesNoIdsThatTheOldSessionTook) {
    const unsigned long before = storeAnother();
    closeAndEndSession();

    openParked();

    EXPECT_GT(storeAnother(), before + 1);
}

// A standby that takes over may not have heard of the last ids.
TEST_F(PostgresParkedTest, TakesIdsFromAServerThatGivesLowerOnes) {
    const unsigned long before = storeAnother();
    closeAndEndSession();
    run("DELETE FROM [Person] WHERE [KesObjectID] = " + std::to_string(before));
    run("SELECT setval('kes_ids', " + std::to_string(before) + ", false)");

    openParked();

    EXPECT_EQ(before, storeAnother());
}

TEST_F(PostgresFaultTest, ASerializationFailureIsAConflict) {
    mine.close();
    openAt(proxy, mine, "isolation=repeatable read");
    ann = mine.findPerson("Ann");
    bob = mine.findPerson("Bob");
    mine.startTransaction();
    bob->lock();
    theirs.startTransaction();
    change(theirAnn, 77);
    theirs.commit();
    change(ann, 31);

    const std::string message = messageRaisedBy([&] { mine.commit(); });

    EXPECT_TRUE(says(message, "Person object " + std::to_string(ann->getObjectID()))) << message;
    EXPECT_TRUE(says(message, "somebody else has changed")) << message;
    EXPECT_EQ(FailureKind::Conflict, mine.getFailureKind());
    EXPECT_EQ("77", ageOf("Ann"));
    ann->refresh();
    change(ann, 78);
    mine.commit();
    EXPECT_EQ("78", ageOf("Ann"));
}

// Others have written what could not have come in any order with what is read.
TEST_F(PostgresFaultTest, ASerializationFailureMayMeetAQuery) {
    StaffModel third;
    for (StaffModel* model : {&mine, &theirs, &third}) {
        model->close();
        open(*model, "isolation=serializable");
    }
    const Pointer<Person> thirdAnn(third.findPerson("Ann"));
    third.startTransaction();
    third.newCompany("Firm");
    third.commit();
    const Pointer<Company> firm(theirs.findCompany("Firm"));
    theirs.startTransaction();
    theirs.findPerson("Ann");
    change(thirdAnn, 31);
    third.commit();
    mine.startTransaction();
    EXPECT_EQ(31, mine.findPerson("Ann")->age);
    firm->change();
    firm->name = "Company";
    theirs.commit();

    EXPECT_RAISES("SELERR", mine.findCompany("Firm"));

    EXPECT_EQ(FailureKind::Conflict, mine.getFailureKind());
    EXPECT_RAISES("COMFAIL", mine.commit());
    EXPECT_EQ(FailureKind::Conflict, mine.getFailureKind());
    mine.startTransaction();
    EXPECT_NE(nullptr, mine.findCompany("Company"));
}

TEST_F(PostgresFaultTest, AConflictIsToldThoughALaterWriteFailsToo) {
    theirs.startTransaction();
    change(theirAnn, 77);
    theirs.commit();
    run("ALTER TABLE [Person] ADD CHECK ([age] < 100)");
    mine.startTransaction();
    change(ann, 31);
    change(bob, 101);

    const std::string message = messageRaisedBy([&] { mine.commit(); });

    EXPECT_TRUE(says(message, "Person object " + std::to_string(ann->getObjectID()) +
                                  ": somebody else has changed it"))
        << message;
    EXPECT_EQ(FailureKind::Conflict, mine.getFailureKind());
}

TEST_F(PostgresFaultTest, ADeadlockIsAConflictOfOneOfTwo) {
    theirs.close();
    std::atomic<bool> hasLocked = false;
    bool othersFailed = false;
    mine.startTransaction();
    ann->lock();
    std::thread other([&] {
        StaffModel model;
        open(model, "options=-c deadlock_timeout=50ms");
        const Pointer<Person> first(model.findPerson("Bob"));
        const Pointer<Person> second(model.findPerson("Ann"));
        model.startTransaction();
        first->lock();
        hasLocked = true;
        othersFailed = codeRaisedBy([&] { second->lock(); }) == "LOCKFAIL";
    });
    while (!hasLocked)
        std::this_thread::yield();

    const std::string message = messageRaisedBy([&] { bob->lock(); });
    const FailureKind kind = mine.getFailureKind();
    other.join();

    EXPECT_NE(othersFailed, !message.empty()) << message;
    EXPECT_TRUE(message.empty() || says(message, "somebody else")) << message;
    EXPECT_EQ(message.empty() ? FailureKind::None : FailureKind::Conflict, kind);
}

TEST_F(PostgresFaultTest, ALockIsWaitedForNoLongerThanItsTimeout) {
    StaffModel impatient;
    open(impatient, "lock_timeout=50");
    const Pointer<Person> other(impatient.findPerson("Ann"));
    theirs.startTransaction();
    theirAnn->lock();
    other->change();
    other->age = 31;

    const std::string message = messageRaisedBy([&] { impatient.commit(); });

    EXPECT_TRUE(says(message, "somebody else has locked it")) << message;
    EXPECT_TRUE(says(message, "lock_timeout")) << message;
    EXPECT_EQ(30, other->age);
}

TEST_F(PostgresFaultTest, AStatementTakesNoLongerThanItsTimeout) {
    StaffModel impatient;
    open(impatient, "statement_timeout=50");
    run("BEGIN");
    run("LOCK TABLE [Person]");

    const std::string message = messageRaisedBy([&] { impatient.findPerson("Ann"); });

    run("ROLLBACK");
    EXPECT_TRUE(says(message, "statement_timeout of 50 ms")) << message;
    EXPECT_NE(nullptr, impatient.findPerson("Ann"));
}

TEST_F(PostgresFaultTest, ALockedRowCanBeReadMeanwhile) {
    theirs.startTransaction();
    theirAnn->lock();

    EXPECT_NE(nullptr, mine.findPerson("Ann"));
    change(bob, 41);
    mine.commit();
    EXPECT_EQ("41", ageOf("Bob"));
}

TEST_F(PostgresFaultTest, ATransactionWithAFailedStatementIsNotReportedAsStored) {
    // A constraint of somebody else's that is checked at the very end.
    run("CREATE FUNCTION refuse() RETURNS trigger LANGUAGE plpgsql AS "
        "'BEGIN RAISE EXCEPTION ''nobody is 31''; END'");
    run("CREATE CONSTRAINT TRIGGER refuse AFTER UPDATE ON [Person] DEFERRABLE INITIALLY DEFERRED "
        "FOR EACH ROW WHEN (NEW.age = 31) EXECUTE FUNCTION refuse()");
    change(ann, 31);
    change(bob, 41);

    const std::string message = messageRaisedBy([&] { mine.commit(); });

    EXPECT_TRUE(says(message, "nobody is 31")) << message;
    EXPECT_EQ("30", ageOf("Ann"));
    EXPECT_EQ("40", ageOf("Bob"));
    change(ann, 32);
    mine.commit();
    EXPECT_EQ("32", ageOf("Ann"));
}

// A query that fails within a transaction, though the application goes on.
class PostgresBrokenTransactionTest : public PostgresFaultTest {
protected:
    PostgresBrokenTransactionTest() {
        open(model, "statement_timeout=50");
        ann = model.findPerson("Ann");
        model.startTransaction();
        ann->lock();
        run("BEGIN");
        run("LOCK TABLE [Company]");
        EXPECT_RAISES("SELERR", model.findCompany("Firm"));
        run("ROLLBACK");
    }

    StaffModel model;
};

TEST_F(PostgresBrokenTransactionTest, IsNotReportedAsStored) {
    const std::string message = messageRaisedBy([&] { model.commit(); });

    EXPECT_TRUE(says(message, "the database has rolled the transaction back")) << message;
    EXPECT_TRUE(says(message, "statement_timeout of 50 ms")) << message;
}

TEST_F(PostgresBrokenTransactionTest, TakesNoWrites) {
    change(ann, 31);

    const std::string message = messageRaisedBy([&] { model.commit(); });

    EXPECT_TRUE(says(message, "an earlier statement of the transaction has failed (")) << message;
    EXPECT_TRUE(says(message, "statement_timeout of 50 ms")) << message;
    EXPECT_EQ("30", ageOf("Ann"));
}

TEST_F(PostgresBrokenTransactionTest, CanBeRolledBackAndTriedAgain) {
    model.rollback();
    change(ann, 31);
    model.commit();

    EXPECT_EQ("31", ageOf("Ann"));
}

TEST_F(PostgresFaultTest, AFailureIsToldWithTheObjectThatFailed) {
    run("ALTER TABLE [Person] ADD CHECK ([age] < 100)");
    mine.startTransaction();
    for (int i = 0; i < 100; ++i)
        mine.newPerson("somebody", i);
    const Person* wrong = mine.newPerson("Methuselah", 969);
    const std::string id = std::to_string(wrong->getObjectID());
    for (int i = 0; i < 100; ++i)
        mine.newPerson("somebody", i);

    const std::string message = messageRaisedBy([&] { mine.commit(); });

    EXPECT_TRUE(says(message, "inserting the Person object " + id)) << message;
    EXPECT_TRUE(says(message, "check constraint")) << message;
    EXPECT_EQ("2", ask("SELECT count(*) FROM [Person]"));
}

TEST_F(PostgresFaultTest, AReadOnlyServerRefusesToWrite) {
    StaffModel reader;
    open(reader, "options=-c default_transaction_read_only=on");
    const Pointer<Person> found(reader.findPerson("Ann"));
    ASSERT_NE(nullptr, found.getInstance());
    change(found, 31);

    const std::string message = messageRaisedBy([&] { reader.commit(); });

    EXPECT_TRUE(says(message, "read-only transaction")) << message;
    EXPECT_TRUE(says(message, "set up for reading only")) << message;
}

}  // namespace Kes::testing
