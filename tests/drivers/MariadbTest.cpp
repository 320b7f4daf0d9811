#include "tests/drivers/MariadbTest.h"

#include <memory>
#include <sstream>
#include <string>

#include "tests/drivers/FakeMariadb.h"

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

// Its fields differ in the case of a letter only.
class Twin : public Instance {
public:
    explicit Twin(Class* c) : Instance(c) {}
    void handle(Handler* h) override {
        Instance::handle(h);
        h->handleInt("h\xC3\xB6he", small);
        h->handleInt("H\xC3\x96HE", large);
    }

    int small = 0;
    int large = 0;
};

class TwinModel : public Model {
public:
    TwinModel() : Model("twins", 1000) {}

protected:
    void declareModel() override {
        setVersion(1);
        addClass("Twin", 1, [](Class* c) -> Instance* { return new Twin(c); });
    }
};

using MariadbOpenTest = MariadbTest;

TEST_F(MariadbOpenTest, NamesBothFieldsThatDifferInTheCaseOfAnUmlaut) {
    TwinModel model;

    const std::string said = messageRaisedBy([&] { engine->open(model); });

    EXPECT_TRUE(says(said, "\"h\xC3\xB6he\" and \"H\xC3\x96HE\" of the class Twin")) << said;
}

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

// A user who may read the tables of another one.
class MariadbGuestTest : public MariadbTest {
protected:
    MariadbGuestTest() {
        StaffModel model;
        engine->open(model);
        model.startTransaction();
        model.newPerson("Ann", 30);
        model.commit();
        admin.run("CREATE OR REPLACE USER " + user + "@'%' IDENTIFIED BY 'guest'");
    }
    ~MariadbGuestTest() override {
        guest.close();
        admin.run("DROP USER " + user + "@'%'");
    }

    void allowToRead(const char* table) {
        admin.run("GRANT SELECT ON " + database() + "." + table + " TO " + user + "@'%'");
    }

    void openAsGuest() {
        guest.open("mariadb", engine->source().c_str(), "guest", user.c_str(), "");
    }

    std::string user = database() + "_guest";
    StaffModel guest;
};

TEST_F(MariadbGuestTest, ReadsAndIsToldThatWritingIsForbidden) {
    allowToRead("*");
    openAsGuest();
    const Pointer<Person> ann(guest.findPerson("Ann"));
    ASSERT_NE(nullptr, ann.getInstance());
    guest.startTransaction();
    ann->change();
    ann->age = 31;

    const std::string said = messageRaisedBy([&] { guest.commit(); });

    EXPECT_TRUE(says(said, "updating the Person object")) << said;
    EXPECT_TRUE(says(said, "UPDATE command denied to user '" + user)) << said;
    EXPECT_EQ(30, ann->age);
    EXPECT_EQ("30", engine->ask("SELECT [age] FROM [Person]"));
    const std::string added = messageRaisedBy([&] {
        guest.startTransaction();
        guest.newPerson("Bob");
    });
    EXPECT_TRUE(says(added, "command denied to user '" + user)) << added;
    EXPECT_NE(nullptr, guest.findPerson("Ann"));
}

TEST_F(MariadbGuestTest, IsToldWhichTableIsForbidden) {
    for (const char* table : {"kes_versions", "kes_ids", "Company"})
        allowToRead(table);
    openAsGuest();

    const std::string said = messageRaisedBy([&] { guest.findPerson("Ann"); });

    EXPECT_TRUE(says(said, "Person objects")) << said;
    EXPECT_TRUE(says(said, "SELECT command denied to user '" + user)) << said;
    EXPECT_TRUE(says(said, "Person`")) << said;
    EXPECT_EQ(nullptr, guest.findCompany("Firm"));
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

// Whoever sits on the way to the server may answer in its place.
TEST_F(MariadbOpenTest, ShowsNoPasswordToAServerThatHasNotProvedWhoItIs) {
    for (const char* wanted : {"mysql_clear_password", "dialog", "sha256_password",
                               "caching_sha2_password", "mysql_old_password"}) {
        FakeMariadb rogue("5.5.5-10.11.6-MariaDB", wanted);

        const std::string said =
            refusal("127.0.0.1:" + std::to_string(rogue.port()) + "/kes", "secret", "ann", "");

        EXPECT_FALSE(says(rogue.heard(), "secret")) << wanted;
        EXPECT_TRUE(says(said, "the server demands the password itself (5010)")) << said;
        EXPECT_TRUE(says(said, "open with tls=verify")) << said;
    }
}

TEST_F(MariadbOpenTest, SaysNothingToAServerWithoutTheTlsThatIsDemanded) {
    for (const char* options : {"tls=on", "tls=verify"})
        for (const char* wanted : {"", "mysql_clear_password"}) {
            FakeMariadb rogue("5.5.5-10.11.6-MariaDB", wanted);

            const std::string said = refusal("127.0.0.1:" + std::to_string(rogue.port()) + "/kes",
                                             "secret", "ann", options);

            EXPECT_EQ("", rogue.heard()) << options;
            EXPECT_TRUE(says(said, "SSL is required")) << said;
        }
}

TEST_F(MariadbOpenTest, ShowsNoPartOfAPassword) {
    for (const char* source : {"mariadb://kes:secret@x/y@host/db", "kes:a/secret@host/db",
                               "kes:a@secret@host/db", "mariadb://kes:secret:x@host:1/db",
                               "host/db?user=kes&password=secret", "Server=host;Pwd=secret"}) {
        const std::string said = refusal(source, "", "");

        EXPECT_TRUE(says(said, "the source holds a password")) << said;
        for (const char* part : {"secret", "x/y", "a/", "a@", ":x"})
            EXPECT_FALSE(says(said, part)) << said;
    }
    for (const char* options : {"password=ab;secret", "lock_timeout=5;secret", "secret;tls=off"}) {
        const std::string said = refusal(engine->source(), engine->password(), "kes", options);

        EXPECT_TRUE(says(said, "the options are database, ")) << said;
    }
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

}  // namespace Kes::testing
