#include <functional>
#include <thread>
#include <vector>

#include "tests/drivers/OwnServer.h"
#include "tests/drivers/PostgresTest.h"
#include "tests/drivers/SlowCommit.h"

namespace Kes::testing {

// A pooler of the test's own, in front of the server that all tests share.
class PostgresPoolerTest : public PostgresTest {
protected:
    explicit PostgresPoolerTest(std::string itsMode)
        : mode(std::move(itsMode)),
          pooler("pgbouncer",
                 "KES_POOLER_MODE=" + mode + " KES_POOLER_OF='" + Engine::serverFolder() + "'") {
        pooler.start();
    }

    static std::string schemaOf(const Engine& its) {
        return its.options().substr(std::string("schema=").size());
    }

    std::string url(const std::string& database = "kes") const {
        std::string text = pooler.says("url");
        return text.replace(text.find("/kes?"), 4, "/" + database);
    }

    void openPooled(Model& opened) { openPooled(opened, *engine); }

    void openPooled(Model& opened, const Engine& its) {
        opened.open("postgres", url().c_str(), "", "",
                    (its.options() + ";pooler=" + mode + ";application_name=pooled" +
                     std::to_string(getpid()))
                        .c_str());
    }

    void openWithAnn() {
        openPooled(model);
        model.startTransaction();
        ann = model.newPerson("Ann", 30);
        model.commit();
    }

    void change(int age) {
        model.startTransaction();
        ann->change();
        ann->age = age;
    }

    // As soon as it is what it should be, or after five seconds.
    std::string ageOfAnnWhen(const std::string& wanted) {
        const std::string asking = "SELECT [age] FROM [Person] WHERE [name] = 'Ann'";
        for (int i = 0; i < 500 && ask(asking) != wanted; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        return ask(asking);
    }

    // Ends all of the server's sessions that models of this process have used, as
    // soon as each is in that state, and returns when the pooler knows.
    void endSessions(const std::string& state = "idle") {
        const std::string sessions = " FROM pg_stat_activity WHERE application_name = 'pooled" +
                                     std::to_string(getpid()) + "'";
        await([&] { return ask("SELECT bool_and(state = '" + state + "')" + sessions) == "t"; });
        run("SELECT pg_terminate_backend(pid, 5000)" + sessions);
        PlainPostgres console(pooler.says("console"));
        await([&] { return console.askAll("SHOW SERVERS").empty(); });
    }

    static void await(const std::function<bool()>& hasCome) {
        for (int i = 0; i < 500 && !hasCome(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        EXPECT_TRUE(hasCome());
    }

    void expectRecovery(const std::string& age) {
        EXPECT_NO_THROW(model.close());
        openPooled(model);
        ann = model.findPerson("Ann");
        ASSERT_NE(nullptr, ann);
        EXPECT_EQ(age, std::to_string(ann->age));
        change(99);
        model.commit();
        EXPECT_EQ("99", ageOfAnnWhen("99"));
    }

    void expectRefusalWithoutOption() {
        const std::string said = messageRaisedBy(
            [&] { model.open("postgres", url().c_str(), "", "", engine->options().c_str()); });

        EXPECT_TRUE(says(said, "a pooler stands between")) << said;
        EXPECT_TRUE(says(said, "pooler=transaction")) << said;
        EXPECT_TRUE(says(said, "pooler=session")) << said;
    }

    void expectLossWithThePooler() {
        openWithAnn();
        pooler.stop();
        EXPECT_NE("", messageRaisedBy([&] { model.findCompany("Firm"); }));
        EXPECT_EQ(FailureKind::LostConnection, model.getFailureKind());
        pooler.start();
        EXPECT_NE("", messageRaisedBy([&] { model.findCompany("Firm"); }));

        expectRecovery("30");
    }

    // Stores under the name of its schema, each time as soon as it can after a query.
    static void work(StaffModel& at, const std::string& schema) {
        for (int i = 0; i < 8; ++i) {
            SelectionOf<Person> some(at.personClass);
            some.next();
            at.startTransaction();
            for (int k = 0; k < 300; ++k)
                at.newPerson(schema.c_str(), k);
            at.commit();
            EXPECT_EQ(nullptr, at.findCompany("Firm"));
        }
    }

    // Four models at once, two in each of two schemas.
    void expectModelsApart() {
        const std::unique_ptr<Engine> other = makePostgresEngine();
        for (const Engine* each : {engine.get(), other.get()}) {
            StaffModel first;
            openPooled(first, *each);
        }
        std::vector<std::thread> threads;
        for (int i = 0; i < 4; ++i)
            threads.emplace_back([&, i] {
                const Engine& its = i % 2 == 0 ? *engine : *other;
                StaffModel each;
                EXPECT_EQ("", messageRaisedBy([&] {
                              openPooled(each, its);
                              work(each, schemaOf(its));
                          }));
            });
        for (std::thread& each : threads)
            each.join();

        for (Engine* each : {engine.get(), other.get()}) {
            EXPECT_EQ("4800", each->ask("SELECT count(*) FROM [Person] WHERE [name] = '" +
                                        schemaOf(*each) + "'"));
            EXPECT_EQ("4800", each->ask("SELECT count(*) FROM [Person]"));
        }
    }

    // Whoever comes next finds a session as the server makes it.
    void expectNothingLeft() {
        openWithAnn();
        change(31);
        model.commit();
        EXPECT_NE(nullptr, model.findPerson("Ann"));
        model.close();

        PlainPostgres next(url());
        EXPECT_EQ(1U, PlainPostgres(pooler.says("console")).askAll("SHOW SERVERS").size());
        EXPECT_EQ("\"$user\", public", next.ask("SHOW search_path"));
        EXPECT_EQ("0", next.ask("SHOW lock_timeout"));
        EXPECT_EQ("0", next.ask("SELECT count(*) FROM pg_prepared_statements"));
        EXPECT_EQ("0", next.ask("SELECT count(*) FROM pg_cursors"));
    }

    const std::string mode;
    OwnServer pooler;
    StaffModel model;
    Pointer<Person> ann;
};

// --- a session of the server for each connection ---

class PostgresSessionPoolerTest : public PostgresPoolerTest {
protected:
    PostgresSessionPoolerTest() : PostgresPoolerTest("session") {}
};

TEST_F(PostgresSessionPoolerTest, IsRefusedUnlessAnOptionTellsOfIt) {
    expectRefusalWithoutOption();
}

TEST_F(PostgresSessionPoolerTest, KeepsModelsApart) {
    expectModelsApart();
}

TEST_F(PostgresSessionPoolerTest, IsLeftNothingOfASession) {
    expectNothingLeft();
}

TEST_F(PostgresSessionPoolerTest, IsGivenUpWhenItIsRestarted) {
    expectLossWithThePooler();
}

TEST_F(PostgresSessionPoolerTest, IsGivenUpWhenItsSessionEnds) {
    openWithAnn();
    endSessions();

    EXPECT_NE("", messageRaisedBy([&] { model.findCompany("Firm"); }));

    EXPECT_EQ(FailureKind::LostConnection, model.getFailureKind());
    expectRecovery("30");
}

// --- a session of the server for each transaction ---

class PostgresTransactionPoolerTest : public PostgresPoolerTest {
protected:
    PostgresTransactionPoolerTest() : PostgresPoolerTest("transaction") {}
};

TEST_F(PostgresTransactionPoolerTest, IsRefusedUnlessAnOptionTellsOfIt) {
    expectRefusalWithoutOption();
}

TEST_F(PostgresTransactionPoolerTest, KeepsModelsApart) {
    expectModelsApart();
}

TEST_F(PostgresTransactionPoolerTest, IsLeftNothingOfASession) {
    expectNothingLeft();
}

TEST_F(PostgresTransactionPoolerTest, IsGivenUpWhenItIsRestarted) {
    expectLossWithThePooler();
}

// Another client's transaction holds the first session.
TEST_F(PostgresTransactionPoolerTest, GivesATransactionAnotherSession) {
    openWithAnn();
    PlainPostgres other(url());
    other.run("BEGIN");
    other.run("SET search_path TO nowhere");
    other.run("SET default_transaction_isolation TO serializable");

    change(31);
    model.commit();
    EXPECT_EQ("31", ageOfAnnWhen("31"));
    other.run("COMMIT");
    for (int i = 0; i < 4; ++i) {
        change(40 + i);
        model.commit();
        EXPECT_EQ(nullptr, model.findCompany("Firm"));
    }

    EXPECT_EQ("43", ageOfAnnWhen("43"));
}

TEST_F(PostgresTransactionPoolerTest, GoesOnWhenSessionsEndBetweenTransactions) {
    openWithAnn();
    for (int i = 0; i < 2; ++i) {
        endSessions();

        EXPECT_EQ("", messageRaisedBy([&] { model.findCompany("Firm"); }));
        endSessions();
        change(50 + i);
        EXPECT_EQ("", messageRaisedBy([&] { model.commit(); }));

        EXPECT_EQ(std::to_string(50 + i), ageOfAnnWhen(std::to_string(50 + i)));
    }
}

TEST_F(PostgresTransactionPoolerTest, StoresNothingOfATransactionWhoseSessionEnds) {
    openWithAnn();
    model.startTransaction();
    ann->lock();
    ann->change();
    ann->age = 31;
    endSessions("idle in transaction");

    EXPECT_RAISES("COMFAIL", model.commit());

    EXPECT_EQ(FailureKind::LostConnection, model.getFailureKind());
    EXPECT_EQ(30, ann->age);
    expectRecovery("30");
}

TEST_F(PostgresTransactionPoolerTest, TellsOfAnUnknownOutcomeWhenItGoesInACommit) {
    openWithAnn();
    SlowCommit slow(engine->source(), schemaOf(*engine));
    bool hasCome = false;
    std::thread operations([&] {
        hasCome = slow.await();
        pooler.stop();
        slow.letGoOn();
    });
    change(31);

    const std::string message = messageRaisedBy([&] { model.commit(); });
    const FailureKind kind = model.getFailureKind();
    operations.join();

    ASSERT_TRUE(hasCome);
    EXPECT_TRUE(says(message, "it is not known whether the transaction is stored")) << message;
    EXPECT_EQ(FailureKind::UnknownOutcome, kind);
    EXPECT_EQ(30, ann->age);
    const std::string stored = ageOfAnnWhen("31");
    pooler.start();
    expectRecovery(stored);
}

TEST_F(PostgresTransactionPoolerTest, OpensAParkedModelBehindAnotherPooler) {
    Model::setDriverCacheSize(1);
    openWithAnn();
    model.close();
    pooler.stop();
    pooler.start();

    openPooled(model);
    Model::setDriverCacheSize(0);

    EXPECT_NE(nullptr, model.findPerson("Ann"));
}

// What others leave in a session that is not theirs says nothing of the account.
TEST_F(PostgresTransactionPoolerTest, TakesTheSchemaOfTheAccountWhereNoneIsNamed) {
    const std::string database = "pooled_" + std::to_string(getpid());
    run("CREATE DATABASE " + database);
    {
        PlainPostgres other(url(database));
        other.run("CREATE SCHEMA elsewhere");
        other.run("SET search_path TO elsewhere");
        StaffModel one;

        one.open("postgres", url(database).c_str(), "", "", "pooler=transaction");

        EXPECT_EQ("public",
                  other.ask("SELECT schemaname FROM pg_tables WHERE tablename = 'Person'"));
    }
    pooler.stop();
    run("DROP DATABASE " + database + " WITH (FORCE)");
}

}  // namespace Kes::testing
