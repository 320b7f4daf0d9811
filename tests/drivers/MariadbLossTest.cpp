#include <chrono>
#include <string>
#include <thread>

#include "tests/drivers/MariadbTest.h"
#include "tests/support/DelayingProxy.h"

namespace Kes::testing {

class MariadbLossTest : public MariadbTest {
protected:
    MariadbLossTest() {
        engine->open(model);
        model.startTransaction();
        ann = model.newPerson("Ann", 30);
        for (int i = 0; i < 2000; ++i)
            model.newPerson("somebody", i);
        model.commit();
    }

    // The model works again once it is opened again.
    void expectRecovery() {
        ann = nullptr;
        model.close();
        engine->open(model);
        ann = model.findPerson("Ann");
        ASSERT_NE(nullptr, static_cast<Person*>(ann));
        EXPECT_EQ(30, ann->age);
        model.startTransaction();
        ann->age = 31;
        ann->change();
        model.commit();
        EXPECT_EQ(31, ann->age);
    }

    StaffModel model;
    Pointer<Person> ann;
};

TEST_F(MariadbLossTest, ShowsInAQuery) {
    cutConnections();
    SelectionOf<Person> people(model.personClass);

    const std::string said = messageRaisedBy([&] { people.next(); });

    EXPECT_TRUE(says(said, "the connection to the server is lost")) << said;
    EXPECT_TRUE(says(said, "close and open again")) << said;
    expectRecovery();
}

TEST_F(MariadbLossTest, ShowsWhereACommitBegins) {
    model.startTransaction();
    ann->age = 99;
    ann->change();
    cutConnections();

    const std::string said = messageRaisedBy([&] { model.commit(); });

    EXPECT_TRUE(says(said, "the connection to the server is lost")) << said;
    EXPECT_EQ(30, ann->age);
    expectRecovery();
}

TEST_F(MariadbLossTest, UndoesWhatATransactionHasSent) {
    model.startTransaction();
    ann->age = 99;
    ann->change();
    ann->lock();
    cutConnections();

    const std::string said = messageRaisedBy([&] { model.commit(); });

    EXPECT_TRUE(says(said, "the transaction was not committed")) << said;
    expectRecovery();
}

TEST_F(MariadbLossTest, ShowsInALock) {
    model.startTransaction();
    cutConnections();

    EXPECT_RAISES("LOCKFAIL", ann->lock());
    expectRecovery();
}

TEST_F(MariadbLossTest, ShowsInARefresh) {
    cutConnections();

    EXPECT_RAISES("REFFAIL", ann->refresh());
    expectRecovery();
}

TEST_F(MariadbLossTest, LeavesRowsThatWereReadAlready) {
    SelectionOf<Person> people(model.personClass);
    ASSERT_TRUE(people.next());
    ann->refresh();
    cutConnections();
    int count = 1;

    while (people.next())
        ++count;

    EXPECT_EQ(2001, count);
}

// Ids are taken aside while a transaction is open.
TEST_F(MariadbLossTest, OfTheConnectionForIdsIsMendedByAnotherOne) {
    const std::string others =
        "SELECT group_concat(id) FROM information_schema.processlist WHERE db = '" + database() +
        "' AND id <> connection_id() AND id NOT IN (SELECT trx_mysql_thread_id FROM "
        "information_schema.innodb_trx)";
    const auto take = [&](int ids) {
        return codeRaisedBy([&] {
            for (int i = 0; i < ids; ++i)
                model.newPerson("new");
        });
    };
    model.startTransaction();
    ann->lock();
    EXPECT_EQ("", take(2500));
    const std::string aside = engine->ask(others);
    EXPECT_EQ("", take(5000));
    EXPECT_EQ(aside, engine->ask(others));

    engine->run("KILL " + aside);

    EXPECT_EQ("OIDERR", take(20000));
    EXPECT_EQ("", take(10));
    EXPECT_EQ("", messageRaisedBy([&] { model.commit(); }));
}

TEST_F(MariadbLossTest, IsMendedWhenAParkedConnectionIsTakenOut) {
    ann = nullptr;
    Model::setDriverCacheSize(1);
    model.close();
    cutConnections();

    engine->open(model);
    ann = model.findPerson("Ann");
    Model::setDriverCacheSize(0);

    EXPECT_EQ(30, ann->age);
    ann = nullptr;
    model.close();
}

// --- a connection that breaks at a chosen moment ---

class MariadbCutTest : public MariadbTest {
protected:
    MariadbCutTest() {
        open();
        model.startTransaction();
        model.newPerson("Ann", 30);
        model.commit();
        ann = model.findPerson("Ann");
    }

    void open() {
        const std::string source = "127.0.0.1:" + std::to_string(proxy.port()) + "/" + database();
        model.open("mariadb", source.c_str(), engine->password().c_str(), engine->user().c_str(),
                   "");
    }

    // The commit of a change of Ann and of a new Bob.
    std::string commitSays() {
        model.startTransaction();
        ann->change();
        ann->name = "Annabel";
        model.newPerson("Bob");
        return messageRaisedBy([&] { model.commit(); });
    }

    std::string stored() {
        return engine->ask("SELECT group_concat([name] ORDER BY [name]) FROM [Person]");
    }

    // The same, as soon as it is what it should be, or after five seconds.
    std::string storedWhen(const std::string& wanted) {
        for (int i = 0; i < 500 && stored() != wanted; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        return stored();
    }

    void expectNothingStored(const std::string& said) {
        EXPECT_TRUE(says(said, "the connection to the server is lost")) << said;
        EXPECT_TRUE(says(said, "close and open again")) << said;
        EXPECT_FALSE(says(said, "not known")) << said;
        EXPECT_EQ(FailureKind::LostConnection, model.getFailureKind());
        EXPECT_EQ("Ann", stored());
        expectRecovery("Ann");
    }

    void expectUnknown(const std::string& said) {
        EXPECT_EQ(FailureKind::UnknownOutcome, model.getFailureKind());
        EXPECT_TRUE(says(said, "it is not known whether the transaction is stored")) << said;
        EXPECT_TRUE(says(said, "close, open again and look")) << said;
        EXPECT_FALSE(says(said, "was not committed")) << said;
    }

    // In memory it is as it was, and closed and opened again as it is stored.
    void expectRecovery(const char* name) {
        EXPECT_STREQ("Ann", ann->name);
        ann = nullptr;
        EXPECT_NO_THROW(model.close());
        open();
        const Pointer<Person> found(model.findPerson(name));
        ASSERT_NE(nullptr, static_cast<Person*>(found));
        model.startTransaction();
        found->change();
        found->age = 99;
        model.commit();
        EXPECT_EQ("1", engine->ask("SELECT count(*) FROM [Person] WHERE [age] = 99"));
    }

    const std::string all = Engine::serverSays("mariadb", "node1/source");
    DelayingProxy proxy{std::stoi(all.substr(all.find(':') + 1))};
    StaffModel model;
    Pointer<Person> ann;
};

TEST_F(MariadbCutTest, StoresNothingBeforeTheBegin) {
    proxy.cutBefore("START TRANSACTION");

    expectNothingStored(commitSays());
}

TEST_F(MariadbCutTest, StoresNothingBehindTheBegin) {
    proxy.cutAfter("START TRANSACTION");

    expectNothingStored(commitSays());
}

TEST_F(MariadbCutTest, StoresNothingBeforeAWrite) {
    proxy.cutBefore("Annabel");

    const std::string said = commitSays();

    EXPECT_TRUE(says(said, "the transaction was not committed")) << said;
    expectNothingStored(said);
}

TEST_F(MariadbCutTest, StoresNothingBehindAWrite) {
    proxy.cutAfter("Annabel");

    const std::string said = commitSays();

    EXPECT_TRUE(says(said, "the transaction was not committed")) << said;
    expectNothingStored(said);
}

TEST_F(MariadbCutTest, TellsOfACommitThatDidNotArriveThatNobodyKnows) {
    proxy.cutBefore("COMMIT");

    expectUnknown(commitSays());

    EXPECT_EQ("Ann", stored());
    expectRecovery("Ann");
}

TEST_F(MariadbCutTest, TellsOfACommitThatArrivedThatNobodyKnows) {
    proxy.cutAfter("COMMIT");

    expectUnknown(commitSays());

    EXPECT_EQ("Annabel,Bob", storedWhen("Annabel,Bob"));
    expectRecovery("Annabel");
}

TEST_F(MariadbCutTest, TellsEachUseLaterOfACommitThatNobodyKnows) {
    proxy.cutAfter("COMMIT");
    commitSays();

    for (const std::string& said :
         {messageRaisedBy([&] { model.findPerson("Ann"); }), commitSays()}) {
        EXPECT_TRUE(says(said, "the connection to the server is lost")) << said;
        EXPECT_TRUE(says(said, "it is not known whether an earlier transaction")) << said;
        EXPECT_EQ(FailureKind::LostConnection, model.getFailureKind());
    }
    EXPECT_EQ("Annabel,Bob", storedWhen("Annabel,Bob"));
}

TEST_F(MariadbCutTest, TakesARollbackForDone) {
    model.startTransaction();
    ann->lock();
    ann->change();
    ann->name = "Annabel";
    proxy.cutBefore("ROLLBACK");

    EXPECT_EQ("", messageRaisedBy([&] { model.rollback(); }));

    EXPECT_TRUE(says(messageRaisedBy([&] { model.findPerson("Ann"); }), "is lost"));
    EXPECT_EQ("Ann", stored());
    expectRecovery("Ann");
}

TEST_F(MariadbCutTest, ShowsWhereALockIsTaken) {
    model.startTransaction();
    proxy.cutAfter("FOR UPDATE");

    const std::string said = messageRaisedBy([&] { ann->lock(); });

    EXPECT_TRUE(says(said, "locking the Person object")) << said;
    expectNothingStored(said);
}

TEST_F(MariadbCutTest, ShowsInTheRowsOfASelection) {
    proxy.cutAfter("FROM \"Person\"");
    SelectionOf<Person> people(model.personClass);

    expectNothingStored(messageRaisedBy([&] { people.next(); }));
}

TEST_F(MariadbCutTest, ShowsWhereTheModelOpens) {
    ann = nullptr;
    model.close();
    proxy.cutBefore("SET SESSION sql_mode");

    const std::string said = messageRaisedBy([&] { open(); });

    EXPECT_TRUE(says(said, "127.0.0.1:" + std::to_string(proxy.port()))) << said;
    open();
    EXPECT_NE(nullptr, model.findPerson("Ann"));
}

}  // namespace Kes::testing
