#include <thread>

#include "tests/drivers/PaperModel.h"
#include "tests/drivers/PostgresTest.h"
#include "tests/drivers/SlowCommit.h"

namespace Kes::testing {

// Nobody between the program and the server can read what they say, and the
// client library may hold back what has arrived.
class PostgresTlsTest : public PostgresTest {
protected:
    void openSecretly(Model& model) {
        open(model, "network_timeout=1;host=localhost;hostaddr=127.0.0.1;port=" +
                        std::to_string(proxy.port()) + ";password=" + password +
                        ";sslmode=verify-full;sslrootcert=" +
                        Engine::serverFile("postgres", "server.crt"));
    }

    std::string schema() const { return engine->options().substr(std::string("schema=").size()); }

    // As soon as it is what it should be, or after five seconds.
    std::string ageOfAnnWhen(const std::string& wanted) {
        const std::string asking = "SELECT [age] FROM [Person] WHERE [name] = 'Ann'";
        for (int i = 0; i < 500 && ask(asking) != wanted; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        return ask(asking);
    }

    DelayingProxy proxy{port};
};

// --- a server that says nothing more, on a connection that stays up ---

class PostgresTlsSilenceTest : public PostgresTlsTest {
protected:
    PostgresTlsSilenceTest() {
        openSecretly(model);
        model.startTransaction();
        ann = model.newPerson("Ann", 30);
        model.commit();
    }

    void change(int age) {
        model.startTransaction();
        ann->change();
        ann->age = age;
    }

    void expectRecovery(const char* age) {
        EXPECT_NO_THROW(model.close());
        openSecretly(model);
        Person* found = model.findPerson("Ann");
        ASSERT_NE(nullptr, found);
        EXPECT_EQ(age, std::to_string(found->age));
        model.startTransaction();
        found->change();
        found->age = 99;
        model.commit();
        EXPECT_EQ("99", ageOfAnnWhen("99"));
    }

    StaffModel model;
    Pointer<Person> ann;
};

TEST_F(PostgresTlsSilenceTest, IsAnUnknownOutcomeWhereItAnswersNoCommit) {
    SlowCommit slow(engine->source(), schema());
    bool hasCome = false;
    std::thread network([&] {
        hasCome = slow.await();
        proxy.swallowAnswers();
        slow.letGoOn();
    });
    change(31);

    const std::string message = messageRaisedBy([&] { model.commit(); });
    const FailureKind kind = model.getFailureKind();
    network.join();

    ASSERT_TRUE(hasCome);
    EXPECT_TRUE(says(message, "it is not known whether the transaction is stored")) << message;
    EXPECT_TRUE(says(message, "silent for 1 s, the network_timeout")) << message;
    EXPECT_EQ(FailureKind::UnknownOutcome, kind);
    EXPECT_EQ(30, ann->age);
    EXPECT_FALSE(model.transactionStarted());
    EXPECT_EQ("31", ageOfAnnWhen("31"));
    expectRecovery("31");
}

TEST_F(PostgresTlsSilenceTest, IsALostConnectionWhereItAnswersNoWrite) {
    change(31);
    proxy.swallowAnswers();

    const std::string message = messageRaisedBy([&] { model.commit(); });

    EXPECT_TRUE(says(message, "silent for 1 s, the network_timeout")) << message;
    EXPECT_FALSE(says(message, "not known")) << message;
    EXPECT_EQ(FailureKind::LostConnection, model.getFailureKind());
    EXPECT_EQ(30, ann->age);
    expectRecovery("30");
}

TEST_F(PostgresTlsSilenceTest, IsALostConnectionWhereItAnswersNoQuery) {
    proxy.swallowAnswers();

    const std::string message = messageRaisedBy([&] { model.findCompany("Firm"); });

    EXPECT_TRUE(says(message, "silent for 1 s, the network_timeout")) << message;
    EXPECT_EQ(FailureKind::LostConnection, model.getFailureKind());
    expectRecovery("30");
}

// --- answers in many records ---

TEST_F(PostgresTlsTest, ReadsLongAnswersWithATimeoutOfTheNetwork) {
    PaperModel papers;
    openSecretly(papers);
    papers.startTransaction();
    for (int i = 0; i < 300; ++i) {
        Paper* paper = papers.newPaper(std::to_string(i).c_str());
        // Around the sizes of records and of the client library's buffers.
        paper->scans[0] = scanOf(8000 + 64 * i);
        if (i % 100 == 0)
            paper->scans[1] = scanOf(3000000);
    }
    papers.commit();
    papers.close();
    openSecretly(papers);

    int found = 0;
    SelectionOf<Paper> all(papers.paperClass);
    for (; const Paper* paper = all.nextValue(); ++found) {
        const int number = std::atoi(paper->title);
        ASSERT_EQ(8000 + 64 * number, paper->scans[0].size());
        ASSERT_TRUE(paper->scans[0] == scanOf(8000 + 64 * number));
        ASSERT_EQ(number % 100 == 0 ? 3000000 : 0, paper->scans[1].size());
    }
    EXPECT_EQ(300, found);
}

}  // namespace Kes::testing
