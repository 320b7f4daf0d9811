#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <sstream>
#include <string>

#include "tests/drivers/Engines.h"
#include "tests/drivers/FakeMariadb.h"
#include "tests/drivers/PlainMariadb.h"
#include "tests/support/Raises.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

// A person with a text, a photograph and nothing else.
class Card : public Instance {
public:
    explicit Card(Class* c) : Instance(c) {}
    void handle(Handler* h) override {
        Instance::handle(h);
        h->handleString("text", text, 10);
        h->handleBlob("photo", photo);
    }

    String text;
    Blob photo;
};

class CardModel : public Model {
public:
    CardModel() : Model("cards", 200000) {}

    Card* newCard() { return static_cast<Card*>(getClass("Card")->newInstance()); }

protected:
    void declareModel() override {
        setVersion(1);
        addClass("Card", 1, [](Class* c) -> Instance* { return new Card(c); });
    }
};

class MariadbTest : public ::testing::Test {
protected:
    static bool says(const std::string& message, const std::string& words) {
        return message.find(words) != std::string::npos;
    }

    // What an open says; "" when it works.
    std::string refusal(const std::string& source, const std::string& password,
                        const std::string& user, const std::string& options = "") {
        StaffModel model;
        const std::string said = messageRaisedBy([&] {
            model.open("mariadb", source.c_str(), password.c_str(), user.c_str(), options.c_str());
        });
        EXPECT_FALSE(says(said, engine->password())) << said;
        EXPECT_FALSE(says(said, "secret")) << said;
        return said;
    }
    std::string refusal(const std::string& source) {
        return refusal(source, engine->password(), engine->user());
    }

    std::string address() const { return engine->source().substr(0, engine->source().find('/')); }
    std::string database() const { return engine->source().substr(address().size() + 1); }

    // Ends all connections to the test's database but the test's own.
    void cutConnections() {
        for (const std::string& id :
             admin.askAll("SELECT id FROM information_schema.processlist WHERE db = '" +
                          database() + "' AND id <> connection_id()"))
            admin.run("KILL " + id);
    }

    const std::unique_ptr<Engine> engine = makeMariadbEngine();
    PlainMariadb admin{Engine::serverSays("mariadb", "source"), engine->user(), engine->password()};
};

using MariadbOpenTest = MariadbTest;

TEST_F(MariadbOpenTest, NamesAHostThatIsUnknown) {
    const std::string said = refusal("no-such-host.invalid:3306/kes");

    EXPECT_TRUE(says(said, "no-such-host.invalid:3306")) << said;
    EXPECT_TRUE(says(said, "check the name of the host")) << said;
}

TEST_F(MariadbOpenTest, NamesAPortWhereNobodyListens) {
    const std::string said = refusal("127.0.0.1:1/kes");

    EXPECT_TRUE(says(said, "127.0.0.1:1: ")) << said;
    EXPECT_TRUE(says(said, "check that the server runs there")) << said;
}

TEST_F(MariadbOpenTest, ShowsNoPasswordThatIsWrong) {
    const std::string said = refusal(engine->source(), "secret", "kes");

    EXPECT_TRUE(says(said, "Access denied for user 'kes'")) << said;
    EXPECT_TRUE(says(said, "check the user and the password")) << said;
}

TEST_F(MariadbOpenTest, RefusesAnUnknownUser) {
    const std::string said = refusal(engine->source(), "secret", "nobody-of-that-name");

    EXPECT_TRUE(says(said, "nobody-of-that-name")) << said;
}

TEST_F(MariadbOpenTest, NamesADatabaseThatIsUnknown) {
    const std::string said = refusal(address() + "/nowhere");

    EXPECT_TRUE(says(said, "Unknown database 'nowhere'")) << said;
    EXPECT_TRUE(says(said, "create it first")) << said;
}

TEST_F(MariadbOpenTest, TellsOfRightsThatAreMissing) {
    admin.run("CREATE OR REPLACE USER reader@'%' IDENTIFIED BY 'secret'");
    admin.run("GRANT SELECT ON " + database() + ".* TO reader@'%'");

    const std::string said = refusal(engine->source(), "secret", "reader");
    admin.run("DROP USER reader@'%'");

    EXPECT_TRUE(says(said, "CREATE command denied")) << said;
}

TEST_F(MariadbOpenTest, RefusesAPasswordInTheSource) {
    const std::string said = refusal("mariadb://kes:secret@" + engine->source());

    EXPECT_TRUE(says(said, "mariadb://kes:...@" + address())) << said;
    EXPECT_TRUE(says(said, "the source holds a password")) << said;
}

TEST_F(MariadbOpenTest, TakesTheUserFromTheSource) {
    EXPECT_EQ("", refusal("mariadb://kes@" + engine->source(), engine->password(), ""));
}

TEST_F(MariadbOpenTest, TakesASocket) {
    const std::string socket = Engine::serverSays("mariadb", "socket");

    EXPECT_EQ("", refusal(socket.substr(0, socket.rfind('/') + 1) + database()));
}

TEST_F(MariadbOpenTest, TakesTheFirstHostThatAnswers) {
    EXPECT_EQ("", refusal("127.0.0.1:1,no-such-host.invalid," + engine->source()));
}

TEST_F(MariadbOpenTest, SaysOfEachHostWhyItIsNotTaken) {
    const std::string said = refusal("127.0.0.1:1,127.0.0.1:2/kes");

    EXPECT_TRUE(says(said, "127.0.0.1:1: ")) << said;
    EXPECT_TRUE(says(said, "127.0.0.1:2: ")) << said;
}

TEST_F(MariadbOpenTest, TellsTheFormsOfASource) {
    EXPECT_TRUE(says(refusal(""), "no database is named"));
    EXPECT_TRUE(says(refusal("host"), "host[:port]/database"));
    EXPECT_TRUE(says(refusal("host/"), "no database is named"));
    EXPECT_TRUE(says(refusal("/kes"), "no host is named"));
    EXPECT_TRUE(says(refusal("host:70000/kes"), "\"70000\" is no port"));
    EXPECT_TRUE(says(refusal("host:x/kes"), "\"x\" is no port"));
    EXPECT_TRUE(says(refusal("[::1/kes"), "is not closed"));
}

TEST_F(MariadbOpenTest, RefusesOptionValuesOutOfRange) {
    const auto said = [&](const char* options) {
        return refusal(engine->source(), engine->password(), "kes", options);
    };

    EXPECT_TRUE(says(said("lock_timeout=-1"), "lock_timeout"));
    EXPECT_TRUE(says(said("isolation=none"), "repeatable read"));
    EXPECT_TRUE(says(said("tls=maybe"), "verify"));
    EXPECT_EQ("", said("isolation=Repeatable Read; lock_timeout=1; statement_timeout=5000"));
}

TEST_F(MariadbOpenTest, RefusesAServerWithoutTheTlsThatIsDemanded) {
    for (const char* options : {"tls=on", "tls=verify"})
        EXPECT_TRUE(says(refusal(engine->source(), engine->password(), "kes", options), "TLS"))
            << options;
}

TEST_F(MariadbOpenTest, RefusesAServerThatIsTooOld) {
    FakeMariadb old("5.5.5-10.3.39-MariaDB");

    const std::string said = refusal("127.0.0.1:" + std::to_string(old.port()) + "/kes");

    EXPECT_TRUE(says(said, "10.3.39")) << said;
    EXPECT_TRUE(says(said, "needs MariaDB 10.6 or later")) << said;
}

TEST_F(MariadbOpenTest, RefusesAServerOfAnotherMake) {
    FakeMariadb other("8.0.36");

    const std::string said = refusal("127.0.0.1:" + std::to_string(other.port()) + "/kes");

    EXPECT_TRUE(says(said, "needs MariaDB 10.6 or later")) << said;
}

// --- a connection that breaks ---

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

// --- sizes ---

class MariadbSizeTest : public MariadbTest {
protected:
    MariadbSizeTest() { engine->open(model); }

    static Blob blobOf(int size) {
        const std::string bytes(static_cast<std::size_t>(size), '\xA5');
        return Blob(bytes.data(), size);
    }

    CardModel model;
};

TEST_F(MariadbSizeTest, KeepsATextOfMegabytes) {
    const std::string text(5000000, 'x');
    model.startTransaction();
    model.newCard()->text = text.c_str();
    model.commit();
    model.close();
    engine->open(model);

    SelectionOf<Card> cards(model.getClass("Card"));
    cards.where(cards["text"] == text.c_str());

    ASSERT_TRUE(cards.next());
    EXPECT_TRUE(text == static_cast<const char*>(cards.value()->text));
}

TEST_F(MariadbSizeTest, NamesTheSettingForABlobBeyondThePacket) {
    model.startTransaction();
    const Pointer<Card> card(model.newCard());
    card->photo = blobOf(100000000);

    const std::string said = messageRaisedBy([&] { model.commit(); });

    EXPECT_TRUE(says(said, "inserting the Card object")) << said;
    EXPECT_TRUE(says(said, "max_allowed_packet of 16777216")) << said;
}

TEST_F(MariadbSizeTest, KeepsTheModelUsableAfterABlobBeyondThePacket) {
    model.startTransaction();
    model.newCard()->photo = blobOf(17000000);
    EXPECT_RAISES("COMFAIL", model.commit());

    model.startTransaction();
    model.newCard()->photo = blobOf(15000000);
    model.commit();

    EXPECT_EQ("15000000", engine->ask("SELECT length([photo]) FROM [Card]"));
}

TEST_F(MariadbSizeTest, SendsManyLargeRowsInSeveralPackets) {
    model.startTransaction();
    for (int i = 0; i < 20; ++i)
        model.newCard()->photo = blobOf(i % 3 == 0 ? 0 : 3000000);
    model.newCard()->text = "without";
    model.commit();

    EXPECT_EQ("39000000", engine->ask("SELECT sum(length([photo])) FROM [Card]"));
    EXPECT_EQ("1", engine->ask("SELECT count(*) FROM [Card] WHERE [photo] IS NULL"));
}

TEST_F(MariadbSizeTest, WritesMoreRowsThanOneStatementTakes) {
    model.startTransaction();
    for (int i = 0; i < 120000; ++i)
        model.newCard();
    model.commit();

    EXPECT_EQ("120000", engine->ask("SELECT count(*) FROM [Card]"));
}

// --- conflicts ---

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
        person->age = age;
        person->change();
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

}  // namespace Kes::testing
