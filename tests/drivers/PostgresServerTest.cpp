#include <functional>
#include <string>

#include "tests/drivers/OwnServer.h"
#include "tests/drivers/PaperModel.h"
#include "tests/drivers/PostgresTest.h"

namespace Kes::testing {

// A server that a test may stop and start as it likes.
class PostgresServerTest : public ::testing::Test {
protected:
    void open(Model& model, const std::string& options = "") {
        model.open("postgres", server.says("url").c_str(), "", "", options.c_str());
    }

    static bool says(const std::string& message, const std::string& words) {
        return message.find(words) != std::string::npos;
    }

    OwnServer server{"postgres"};
};

TEST_F(PostgresServerTest, MayStopAndStartBetweenTransactions) {
    server.start();
    StaffModel model;
    open(model);
    model.startTransaction();
    model.newPerson("Ann", 30);
    model.commit();

    server.stop();
    EXPECT_NE("", messageRaisedBy([&] { model.findPerson("Ann"); }));
    model.close();
    EXPECT_RAISES("DBOPENERR", open(model));
    server.start();
    open(model);

    const Person* found = model.findPerson("Ann");
    ASSERT_NE(nullptr, found);
    EXPECT_EQ(30, found->age);
}

TEST_F(PostgresServerTest, StoresNothingOfATransactionThatItStopsIn) {
    server.start();
    StaffModel model;
    open(model);
    model.startTransaction();
    const Pointer<Person> ann(model.newPerson("Ann", 30));
    model.commit();
    model.startTransaction();
    ann->lock();
    model.newPerson("Bob");

    server.stop();
    EXPECT_RAISES("COMFAIL", model.commit());
    server.start();
    model.close();
    open(model);

    EXPECT_EQ(nullptr, model.findPerson("Bob"));
    EXPECT_NE(nullptr, model.findPerson("Ann"));
    model.startTransaction();
    model.newPerson("Cid");
    model.commit();
}

// --- no room ---

// Whatever the server lacks room in: a transaction is stored as a whole or not
// at all, and the next one is when there is room.
void expectFailureUntilThereIsRoom(PaperModel& model, PlainPostgres plain,
                                   const std::function<void()>& makeRoom) {
    model.startTransaction();
    const Pointer<Paper> paper(model.newPaper("first"));
    model.commit();
    const Blob scan = scanOf(1000000);
    model.startTransaction();
    paper->change();
    paper->title = "changed";
    for (int i = 0; i < 40; ++i)
        model.newPaper("second")->scans[0] = scan;

    const std::string said = messageRaisedBy([&] { model.commit(); });

    EXPECT_NE(std::string::npos, said.find("inserting the Paper object")) << said;
    EXPECT_NE(std::string::npos, said.find("could not extend file")) << said;
    EXPECT_NE(std::string::npos, said.find("make room")) << said;
    EXPECT_STREQ("first", paper->title);
    EXPECT_EQ(0U, paper->getVersion());
    EXPECT_EQ("first", plain.ask("SELECT max(title) FROM \"Paper\""));
    EXPECT_EQ("1", plain.ask("SELECT count(*) FROM \"Paper\""));

    makeRoom();
    model.startTransaction();
    paper->change();
    paper->title = "changed";
    for (int i = 0; i < 40; ++i)
        model.newPaper("third")->scans[0] = scan;
    model.commit();

    EXPECT_EQ("41", plain.ask("SELECT count(*) FROM \"Paper\""));
    EXPECT_EQ("1", plain.ask("SELECT \"KesVersion\" FROM \"Paper\" WHERE title = 'changed'"));
}

class PostgresFullTest : public PostgresTest {
protected:
    // The largest file that the connection of that name may write, in bytes.
    void limitFiles(const std::string& name, const std::string& limit) {
        const std::string process =
            ask("SELECT pid FROM pg_stat_activity WHERE application_name = '" + name + "'");
        run("COPY (SELECT 1) TO PROGRAM 'cat > /dev/null && prlimit --pid " + process +
            " --fsize=" + limit + ":'");
    }
};

TEST_F(PostgresFullTest, StoresNothingInAFileThatMayNotGrow) {
    PaperModel model;
    open(model, "application_name=small files");
    limitFiles("small files", "20000000");
    PlainPostgres plain(engine->source());
    plain.run("SET search_path TO " + engine->options().substr(std::string("schema=").size()));

    expectFailureUntilThereIsRoom(model, std::move(plain),
                                  [&] { limitFiles("small files", "unlimited"); });
}

TEST_F(PostgresServerTest, StoresNothingOnADiskThatIsFull) {
    if (!OwnServer::mayMount())
        GTEST_SKIP() << "only root may make a file system";
    server.startOn(60, "small");
    PlainPostgres plain(server.says("url"));
    const std::string place = server.path("small/space");
    plain.run("COPY (SELECT 1) TO PROGRAM 'cat > /dev/null && mkdir " + place + "'");
    plain.run("CREATE TABLESPACE small LOCATION '" + place + "'");
    plain.run(
        "CREATE TABLE ballast TABLESPACE small AS SELECT "
        "repeat('x', 1000) FROM generate_series(1, 20000)");
    PaperModel model;
    open(model, "options=-c default_tablespace=small");

    // What a transaction wrote before it failed is cleared away later.
    expectFailureUntilThereIsRoom(model, PlainPostgres(server.says("url")), [&] {
        plain.run("DROP TABLE ballast");
        plain.run("VACUUM \"Paper\"");
    });
}

}  // namespace Kes::testing
