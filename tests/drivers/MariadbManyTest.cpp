#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "tests/drivers/CommandCount.h"
#include "tests/drivers/MariadbTest.h"
#include "tests/drivers/PaperModel.h"
#include "tests/support/DelayingProxy.h"

namespace Kes::testing {

// A server that does not know the protocol's command for many rows, as the driver
// treats the nodes of a cluster.
class MariadbManyTest : public MariadbTest {
protected:
    static constexpr int Many = 2000;

    MariadbManyTest() { proxy.rewriteAnswers(hideCommandForMany); }

    void open(Model& model) {
        const std::string source = "127.0.0.1:" + std::to_string(proxy.port()) + "/" + database();
        model.open("mariadb", source.c_str(), engine->password().c_str(), engine->user().c_str(),
                   "");
    }

    void makeStaff() {
        open(staff);
        staff.startTransaction();
        firm = staff.newCompany("Firm");
        for (int i = 0; i < Many; ++i)
            people.emplace_back(staff.newPerson("somebody", i));
        staff.commit();
        restart();
    }

    void restart() {
        count.restart();
        before = proxy.roundTrips();
    }

    std::string commitSays() {
        return messageRaisedBy([&] { staff.commit(); });
    }
    long roundTrips() const { return proxy.roundTrips() - before; }
    std::string ask(const std::string& text) { return engine->ask(text); }

    const std::string all = Engine::serverSays("mariadb", "node1/source");
    CommandCount count;
    DelayingProxy proxy{std::stoi(all.substr(all.find(':') + 1)), std::chrono::milliseconds(1),
                        [this](const char* bytes, std::size_t size) { count.hear(bytes, size); }};
    StaffModel staff;
    Pointer<Company> firm;
    std::vector<Pointer<Person>> people;
    long before = 0;
};

TEST_F(MariadbManyTest, InsertsThousandsInAHandfulOfRoundTrips) {
    makeStaff();
    staff.startTransaction();
    for (int i = 0; i < Many; ++i)
        people.emplace_back(staff.newPerson("another", i));

    staff.commit();

    EXPECT_EQ(0, count.executedForMany());
    EXPECT_GT(10, roundTrips());
    EXPECT_EQ("4000", ask("SELECT count(*) FROM [Person]"));
    EXPECT_EQ("1999000", ask("SELECT sum([age]) FROM [Person] WHERE [name] = 'another'"));
}

// The server may answer the preparation while the values are still on their way,
// which counts as one more.
TEST_F(MariadbManyTest, UpdatesAHundredInARoundTrip) {
    makeStaff();
    staff.startTransaction();
    for (const Pointer<Person>& person : people) {
        person->change();
        person->age += 5000;
    }

    staff.commit();

    EXPECT_EQ(0, count.executedForMany());
    EXPECT_GT(2 * Many / 100 + 10, roundTrips());
    EXPECT_EQ("11999000", ask("SELECT sum([age]) FROM [Person] WHERE [KesVersion] = 1"));
}

TEST_F(MariadbManyTest, LinksAndRemovesManyInARoundTrip) {
    makeStaff();
    staff.startTransaction();
    for (std::size_t i = 0; i < people.size(); ++i) {
        people[i]->employer = firm;
        people[i]->friends.add(people[(i + 1) % people.size()]);
    }
    staff.commit();
    EXPECT_EQ("2000", ask("SELECT count(*) FROM [Person] WHERE [employer] IS NOT NULL"));
    EXPECT_EQ("2000", ask("SELECT count(*) FROM [Friendship]"));
    restart();
    staff.startTransaction();
    for (std::size_t i = 0; i < people.size(); i += 2)
        people[i]->remove();

    staff.commit();

    EXPECT_EQ(0, count.executedForMany());
    EXPECT_GT(40, roundTrips());
    EXPECT_EQ("1000", ask("SELECT count(*) FROM [Person]"));
    EXPECT_EQ("0", ask("SELECT count(*) FROM [Friendship]"));
}

TEST_F(MariadbManyTest, KeepsEveryValueExactly) {
    PaperModel model;
    open(model);
    std::vector<Pointer<Paper>> papers;
    model.startTransaction();
    for (int i = 0; i < 250; ++i)
        papers.emplace_back(model.newPaper("title"));
    model.commit();
    model.startTransaction();
    for (std::size_t i = 0; i < papers.size(); ++i) {
        papers[i]->change();
        papers[i]->title =
            std::string(i % 7 == 0 ? 20 * i : i % 5, static_cast<char>('a' + i % 26)).c_str();
        papers[i]->scans[0] = i % 3 == 0 ? Blob() : scanOf(static_cast<int>(30 * i));
    }
    model.commit();
    PaperModel other;
    engine->open(other);

    for (const Pointer<Paper>& paper : papers) {
        const Pointer<Paper> read(
            static_cast<Paper*>(other.getInstance(paper->getObjectID(), other.paperClass)));
        EXPECT_STREQ(paper->title, read->title);
        EXPECT_TRUE(paper->scans[0] == read->scans[0]) << paper->getObjectID();
    }
    EXPECT_EQ(0, count.executedForMany());
}

TEST_F(MariadbManyTest, KeepsEveryNumberExactly) {
    makeStaff();
    staff.startTransaction();
    for (std::size_t i = 0; i < 150; ++i) {
        people[i]->change();
        people[i]->salary = 0.1 * static_cast<double>(i) * (i % 2 == 0 ? 1e-300 : 1e300);
        people[i]->age = i % 2 == 0 ? 2147483647 : -2147483647;
    }
    staff.commit();
    StaffModel other;
    engine->open(other);

    for (std::size_t i = 0; i < 150; ++i) {
        const Pointer<Person> read(
            static_cast<Person*>(other.getInstance(people[i]->getObjectID(), other.personClass)));
        EXPECT_EQ(people[i]->salary, read->salary);
        EXPECT_EQ(people[i]->age, read->age);
    }
}

TEST_F(MariadbManyTest, NamesTheOneThatIsStale) {
    makeStaff();
    staff.startTransaction();
    for (const Pointer<Person>& person : people) {
        person->change();
        person->age = 1;
    }
    engine->run("UPDATE [Person] SET [KesVersion] = 7 WHERE [KesObjectID] = " +
                std::to_string(people[1234]->getObjectID()));

    const std::string said = commitSays();

    EXPECT_TRUE(says(
        said, "updating the Person object " + std::to_string(people[1234]->getObjectID()) + ":"))
        << said;
    EXPECT_TRUE(says(said, "version 7 is stored and version 0 was read")) << said;
    EXPECT_EQ("1999000", ask("SELECT sum([age]) FROM [Person]"));
}

TEST_F(MariadbManyTest, NamesTheOneThatIsRefused) {
    makeStaff();
    staff.startTransaction();
    const unsigned long taken = staff.newPerson("Cid")->getObjectID() + 5;
    engine->run(
        "INSERT INTO [Person] ([KesObjectID], [KesVersion], [name], [age], [salary]) "
        "VALUES (" +
        std::to_string(taken) + ", 0, 'Eve', 1, 1)");
    for (int i = 0; i < 20; ++i)
        staff.newPerson("somebody");

    const std::string said = commitSays();

    EXPECT_TRUE(says(said, "inserting the Person object " + std::to_string(taken) + ":")) << said;
    EXPECT_TRUE(says(said, "Duplicate entry")) << said;
    EXPECT_EQ("2001", ask("SELECT count(*) FROM [Person]"));
}

}  // namespace Kes::testing
