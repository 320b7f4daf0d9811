#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "tests/drivers/CommandCount.h"
#include "tests/drivers/Engines.h"
#include "tests/support/DelayingProxy.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

// A server that is a millisecond away, each way.
class MariadbTrafficTest : public ::testing::Test {
protected:
    static constexpr int Many = 2000;

    MariadbTrafficTest() {
        const std::string source = engine->source();
        const std::string near =
            "127.0.0.1:" + std::to_string(proxy.port()) + source.substr(source.find('/'));
        model.open("mariadb", near.c_str(), engine->password().c_str(), engine->user().c_str(), "");
        model.startTransaction();
        firm = model.newCompany("Firm");
        for (int i = 0; i < Many; ++i)
            people.emplace_back(model.newPerson("somebody", i));
        model.commit();
        restart();
    }

    void restart() {
        count.restart();
        before = proxy.roundTrips();
    }

    // All work for the firm, and each is a friend of the next one.
    void linkAll() {
        for (std::size_t i = 0; i < people.size(); ++i) {
            people[i]->employer = firm;
            people[i]->friends.add(friendOf(i));
        }
    }
    Person* friendOf(std::size_t i) { return people[(i + 1) % people.size()]; }

    long roundTrips() const { return proxy.roundTrips() - before; }
    std::string ask(const std::string& text) { return engine->ask(text); }

    const std::unique_ptr<Engine> engine = makeMariadbEngine();
    CommandCount count;
    DelayingProxy proxy{port(), std::chrono::milliseconds(1),
                        [this](const char* bytes, std::size_t size) { count.hear(bytes, size); }};
    StaffModel model;
    Pointer<Company> firm;
    std::vector<Pointer<Person>> people;
    long before = 0;

private:
    int port() const {
        const std::string source = engine->source();
        return std::stoi(source.substr(source.find(':') + 1));
    }
};

TEST_F(MariadbTrafficTest, OfManyInsertsIsAHandfulOfRoundTrips) {
    model.startTransaction();
    for (int i = 0; i < Many; ++i)
        people.emplace_back(model.newPerson("another", i));

    model.commit();

    // START TRANSACTION, all rows, COMMIT.
    EXPECT_EQ(3, roundTrips());
    EXPECT_EQ(2, count.texts());
    EXPECT_EQ(1, count.executedForMany());
    EXPECT_EQ(0, count.executed());
    EXPECT_EQ("4000", ask("SELECT count(*) FROM [Person]"));
}

TEST_F(MariadbTrafficTest, OfManyUpdatesIsAHandfulOfRoundTrips) {
    model.startTransaction();
    for (const Pointer<Person>& person : people) {
        person->change();
        person->age += 5000;
    }

    model.commit();

    // The statement is prepared first.
    EXPECT_EQ(4, roundTrips());
    EXPECT_EQ(2, count.texts());
    EXPECT_EQ(1, count.prepared());
    EXPECT_EQ(1, count.executedForMany());
    EXPECT_EQ(0, count.executed());
    EXPECT_EQ("2000", ask("SELECT count(*) FROM [Person] WHERE [age] >= 5000"));
}

TEST_F(MariadbTrafficTest, OfUpdatesOfDifferentFieldsIsOneForEachSetOfFields) {
    model.startTransaction();
    for (std::size_t i = 0; i < people.size(); ++i) {
        people[i]->change();
        if (i % 2 == 0)
            people[i]->age += 5000;
        else
            people[i]->name = "nobody";
    }

    model.commit();

    // The rows are locked in their order first, in two parts. All three statements
    // are prepared, and a savepoint comes before each of the updates.
    EXPECT_EQ(11, roundTrips());
    EXPECT_EQ(4, count.texts());
    EXPECT_EQ(3, count.prepared());
    EXPECT_EQ(2, count.executedForMany());
    EXPECT_EQ(2, count.executed());
    EXPECT_EQ("1000", ask("SELECT count(*) FROM [Person] WHERE [age] >= 5000"));
    EXPECT_EQ("1000", ask("SELECT count(*) FROM [Person] WHERE [name] = 'nobody'"));
}

TEST_F(MariadbTrafficTest, OfManyRemovalsIsAHandfulOfRoundTrips) {
    model.startTransaction();
    for (const Pointer<Person>& person : people)
        person->remove();

    model.commit();

    // The rows, and the five columns that refer to people.
    EXPECT_EQ(14, roundTrips());
    EXPECT_EQ(2, count.texts());
    EXPECT_EQ(6, count.prepared());
    EXPECT_EQ(6, count.executedForMany());
    EXPECT_EQ(0, count.executed());
    EXPECT_EQ("0", ask("SELECT count(*) FROM [Person]"));
}

TEST_F(MariadbTrafficTest, OfManyLinksIsAHandfulOfRoundTrips) {
    model.startTransaction();
    linkAll();

    model.commit();

    // Others may have removed the firm or a friend, so these are looked at: the
    // people in two parts.
    EXPECT_EQ(12, roundTrips());
    EXPECT_EQ(3, count.texts());
    EXPECT_EQ(4, count.prepared());
    EXPECT_EQ(3, count.executed());
    EXPECT_EQ(2, count.executedForMany());
    EXPECT_EQ("2000", ask("SELECT count(*) FROM [Person] WHERE [employer] IS NOT NULL"));
    EXPECT_EQ("2000", ask("SELECT count(*) FROM [Friendship]"));
}

TEST_F(MariadbTrafficTest, OfManyUnlinksIsAHandfulOfRoundTrips) {
    linkAll();
    model.commit();
    restart();
    model.startTransaction();
    for (std::size_t i = 0; i < people.size(); ++i) {
        people[i]->employer = nullptr;
        people[i]->friends.remove(friendOf(i));
    }

    model.commit();

    // What empties a reference demands the partner that was seen there.
    EXPECT_EQ(6, roundTrips());
    EXPECT_EQ(2, count.texts());
    EXPECT_EQ(2, count.prepared());
    EXPECT_EQ(2, count.executedForMany());
    EXPECT_EQ(0, count.executed());
    EXPECT_EQ("0", ask("SELECT count(*) FROM [Person] WHERE [employer] IS NOT NULL"));
    EXPECT_EQ("0", ask("SELECT count(*) FROM [Friendship]"));
}

TEST_F(MariadbTrafficTest, OfAnExchangeOfManyLinksIsAHandfulOfRoundTrips) {
    linkAll();
    model.commit();
    restart();
    model.startTransaction();
    for (std::size_t i = 0; i < people.size(); ++i) {
        people[i]->friends.remove(friendOf(i));
        people[i]->friends.add(friendOf(i + 1));
        people[i]->spouse = friendOf(i + 2);
    }

    model.commit();

    // Links that go and links that come are sent apart, in whatever order they were
    // made. Who loses a spouse is asked for in each of two directions and two parts.
    EXPECT_EQ(16, roundTrips());
    EXPECT_EQ(3, count.executedForMany());
    EXPECT_EQ("2000", ask("SELECT count(*) FROM [Friendship]"));
    EXPECT_EQ("2000", ask("SELECT count(*) FROM [Person] WHERE [spouse] IS NOT NULL"));
}

TEST_F(MariadbTrafficTest, OfManyRemovalsOfLinkedObjectsIsThatOfOthers) {
    linkAll();
    model.commit();
    restart();
    model.startTransaction();
    for (const Pointer<Person>& person : people)
        person->remove();

    model.commit();

    EXPECT_EQ(14, roundTrips());
    EXPECT_EQ(6, count.executedForMany());
    EXPECT_EQ(0, count.executed());
    EXPECT_EQ("0", ask("SELECT count(*) FROM [Person]"));
    EXPECT_EQ("0", ask("SELECT count(*) FROM [Friendship]"));
}

TEST_F(MariadbTrafficTest, PreparesAStatementOnce) {
    for (int i = 0; i < 10; ++i) {
        model.startTransaction();
        people[0]->change();
        people[0]->age = 10000 + i;
        model.commit();
    }

    EXPECT_EQ(1, count.prepared());
    EXPECT_EQ(10, count.executed());
    EXPECT_EQ(20, count.texts());
    EXPECT_EQ(31, roundTrips());
}

}  // namespace Kes::testing
