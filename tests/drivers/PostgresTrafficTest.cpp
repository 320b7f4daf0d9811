#include <array>
#include <cstdint>
#include <mutex>
#include <sstream>
#include <vector>

#include "tests/drivers/PostgresTest.h"

namespace Kes::testing {

// Counts the messages of one client by their type. Each has a letter and its
// size, without the letter, but for the first one, which has no letter.
class MessageCount {
public:
    void hear(const char* bytes, std::size_t size) {
        const std::lock_guard guard(mutex);
        heard.append(bytes, size);
        while (takeMessage())
            continue;
    }

    void restart() {
        const std::lock_guard guard(mutex);
        counts.fill(0);
    }

    // Another client begins, and the one before has nothing more to say.
    void expectGreeting() {
        const std::lock_guard guard(mutex);
        isGreeted = false;
    }

    // How often the client has asked for the answers so far, and waited.
    long roundTrips() { return of('S') + of('Q'); }
    long prepared() { return of('P'); }
    long executed() { return of('E'); }

private:
    bool takeMessage() {
        const std::size_t letter = isGreeted ? 1 : 0;
        if (heard.size() < letter + 4)
            return false;
        std::size_t size = 0;
        for (std::size_t i = letter; i < letter + 4; ++i)
            size = size << 8 | static_cast<unsigned char>(heard[i]);
        if (heard.size() < letter + size)
            return false;
        if (isGreeted)
            ++counts[static_cast<unsigned char>(heard[0])];
        heard.erase(0, letter + size);
        isGreeted = true;
        return true;
    }

    long of(char type) {
        const std::lock_guard guard(mutex);
        return counts[static_cast<unsigned char>(type)];
    }

    std::mutex mutex;
    std::string heard;
    bool isGreeted = false;
    std::array<long, 256> counts{};
};

// A server that is a millisecond away, each way.
class PostgresTrafficTest : public PostgresTest {
protected:
    PostgresTrafficTest() {
        openAt(proxy, model);
        model.startTransaction();
        firm = model.newCompany("Firm");
        for (int i = 0; i < 2000; ++i)
            people.emplace_back(model.newPerson("somebody", i));
        model.commit();
        count.restart();
    }

    // All work for the firm, and each is a friend of the next one.
    void linkAll() {
        for (std::size_t i = 0; i < people.size(); ++i) {
            people[i]->employer = firm;
            people[i]->friends.add(friendOf(i));
        }
    }
    Person* friendOf(std::size_t i) { return people[(i + 1) % people.size()]; }

    MessageCount count;
    DelayingProxy proxy{port, std::chrono::milliseconds(1),
                        [this](const char* bytes, std::size_t size) { count.hear(bytes, size); }};
    StaffModel model;
    Pointer<Company> firm;
    std::vector<Pointer<Person>> people;
};

TEST_F(PostgresTrafficTest, OfManyInsertsIsAHandfulOfRoundTrips) {
    model.startTransaction();
    for (int i = 0; i < 2000; ++i)
        people.emplace_back(model.newPerson("another", i));

    model.commit();

    // One for object ids, one for the rows, one for the COMMIT.
    EXPECT_EQ(3, count.roundTrips());
    // BEGIN, the COMMIT, and the statement for object ids.
    EXPECT_EQ(2000 + 3, count.executed());
    EXPECT_EQ("4000", ask("SELECT count(*) FROM [Person]"));
}

TEST_F(PostgresTrafficTest, OfManyUpdatesIsAHandfulOfRoundTrips) {
    model.startTransaction();
    for (const Pointer<Person>& person : people) {
        person->change();
        person->age += 5000;
    }

    model.commit();

    EXPECT_EQ(2, count.roundTrips());
    EXPECT_EQ(2000 + 2, count.executed());
    EXPECT_EQ("2000", ask("SELECT count(*) FROM [Person] WHERE [age] >= 5000"));
}

// One statement for lists of all lengths, without a cursor and its transaction.
TEST_F(PostgresTrafficTest, OfListsOfIdsIsOneMessagePerList) {
    std::vector<unsigned long> ids;
    for (const Pointer<Person>& person : people)
        ids.push_back(person->getObjectID());
    const auto found = [&](std::size_t size) {
        Selection selection(model.personClass);
        Condition* any = (selection["KesObjectID"] == ids[0]).getNew();
        for (std::size_t i = 1; i < size; ++i)
            any = new CombinationCondition(any, Condition::OR,
                                           (selection["KesObjectID"] == ids[i]).getNew());
        selection.setCondition(any);
        std::size_t rows = 0;
        while (selection.next())
            ++rows;
        return rows;
    };
    for (const std::size_t size : std::vector<std::size_t>{2, 3, 100, 700, 1024})
        EXPECT_EQ(size, found(size));

    EXPECT_EQ(5, count.roundTrips());
    EXPECT_EQ(5, count.executed());
    EXPECT_EQ(1, count.prepared());
    // What may have more rows is read little by little.
    EXPECT_EQ(1500U, found(1500));
    EXPECT_LT(6, count.executed());
}

TEST_F(PostgresTrafficTest, OfManyRemovalsIsAHandfulOfRoundTrips) {
    model.startTransaction();
    for (const Pointer<Person>& person : people)
        person->remove();

    model.commit();

    // Five columns refer to people, and 1024 of them are looked for at once.
    EXPECT_EQ(2, count.roundTrips());
    EXPECT_EQ(2000 + 5 * 2 + 2, count.executed());
    EXPECT_EQ("0", ask("SELECT count(*) FROM [Person]"));
}

TEST_F(PostgresTrafficTest, OfManyRemovalsOfLinkedObjectsIsThatOfOthers) {
    linkAll();
    model.commit();
    count.restart();
    model.startTransaction();
    for (const Pointer<Person>& person : people)
        person->remove();

    model.commit();

    EXPECT_EQ(2, count.roundTrips());
    EXPECT_EQ(2000 + 5 * 2 + 2, count.executed());
    EXPECT_EQ("0", ask("SELECT count(*) FROM [Person]"));
    EXPECT_EQ("0", ask("SELECT count(*) FROM [Friendship]"));
}

TEST_F(PostgresTrafficTest, OfManyLinksIsAHandfulOfRoundTrips) {
    model.startTransaction();
    linkAll();

    model.commit();

    // Others may have removed the firm or a friend, so these are looked at: the
    // people in two parts.
    EXPECT_EQ(6, count.roundTrips());
    EXPECT_EQ(4000 + 3 + 2, count.executed());
    EXPECT_EQ("2000", ask("SELECT count(*) FROM [Person] WHERE [employer] IS NOT NULL"));
    EXPECT_EQ("2000", ask("SELECT count(*) FROM [Friendship]"));
}

TEST_F(PostgresTrafficTest, OfManyUnlinksIsAHandfulOfRoundTrips) {
    linkAll();
    model.commit();
    count.restart();
    model.startTransaction();
    for (std::size_t i = 0; i < people.size(); ++i) {
        people[i]->employer = nullptr;
        people[i]->friends.remove(friendOf(i));
    }

    model.commit();

    EXPECT_EQ(3, count.roundTrips());
    EXPECT_EQ(4000 + 2, count.executed());
    EXPECT_EQ("0", ask("SELECT count(*) FROM [Person] WHERE [employer] IS NOT NULL"));
    EXPECT_EQ("0", ask("SELECT count(*) FROM [Friendship]"));
}

TEST_F(PostgresTrafficTest, OfAnOpenIsAHandfulOfRoundTrips) {
    count.expectGreeting();
    StaffModel other;
    openAt(proxy, other);

    // One of them reads how the classes were declared.
    EXPECT_LE(count.roundTrips(), 7);
}

TEST_F(PostgresTrafficTest, PreparesAStatementOnce) {
    for (int i = 0; i < 10; ++i) {
        model.startTransaction();
        people[0]->change();
        people[0]->age = 10000 + i;
        model.commit();
    }

    // The update, and BEGIN and COMMIT each time.
    EXPECT_EQ(1 + 20, count.prepared());
    EXPECT_EQ(30, count.executed());
    EXPECT_EQ(20, count.roundTrips());
}

TEST_F(PostgresTrafficTest, OfASmallSelectionIsOneRoundTrip) {
    EXPECT_NE(nullptr, model.findCompany("Firm"));

    EXPECT_LE(count.roundTrips(), 2);
}

TEST_F(PostgresTrafficTest, OfALargeSelectionIsARoundTripForManyRows) {
    SelectionOf<Person> all(model.personClass);
    int rows = 0;
    while (all.next())
        ++rows;

    EXPECT_EQ(2000, rows);
    EXPECT_LE(count.roundTrips(), 5);
}

TEST_F(PostgresTrafficTest, OfALockIsOneRoundTrip) {
    model.startTransaction();
    people[0]->lock();

    EXPECT_EQ(1, count.roundTrips());
}

TEST_F(PostgresTrafficTest, OfARollbackIsOneRoundTrip) {
    model.startTransaction();
    people[0]->lock();
    count.restart();

    model.rollback();

    EXPECT_EQ(1, count.roundTrips());
}

TEST_F(PostgresTrafficTest, IsShownInTheTraceWithItsTime) {
    std::ostringstream trace;
    model.traceSQLTo(trace);
    model.startTransaction();
    people[0]->change();
    people[0]->name = "it's Ann";
    model.commit();

    EXPECT_TRUE(says(trace.str(), "postgres: UPDATE \"Person\" SET")) << trace.str();
    EXPECT_TRUE(says(trace.str(), "'it''s Ann'")) << trace.str();
    EXPECT_TRUE(says(trace.str(), "postgres: COMMIT [")) << trace.str();
}

// The server believes of a table that it has not analysed yet that a long list
// finds most of its rows.
TEST_F(PostgresTest, ReadsLinksByTheirIndexOfATableThatNobodyHasAnalysed) {
    constexpr int Many = 300;
    StaffModel model;
    open(model);
    model.startTransaction();
    std::vector<Pointer<Person>> people;
    for (int i = 0; i < Many; ++i)
        people.emplace_back(model.newPerson("P", i));
    model.commit();
    run("ALTER TABLE [Friendship] SET (autovacuum_enabled = false)");
    run("INSERT INTO [Friendship] SELECT n + 1000000, n + 2000000 FROM generate_series(1, 20000) "
        "n");
    for (const auto& person : people)
        person->friends.setFetched(false);
    SelectionOf<Person> all(model.personClass);
    while (all.next())
        continue;
    std::ostringstream trace;
    model.traceSQLTo(trace);

    for (const auto& person : people)
        EXPECT_TRUE(person->friends.empty());

    model.disableSQLTrace();
    std::string longest;
    std::istringstream lines(trace.str());
    for (std::string line; std::getline(lines, line);)
        if (says(line, "FROM \"Friendship\" WHERE") && line.size() > longest.size())
            longest = line;
    const std::size_t begin = longest.find("SELECT");
    ASSERT_NE(std::string::npos, begin) << trace.str();
    PlainPostgres plain(engine->source());
    plain.run("SET search_path TO " + engine->options().substr(std::string("schema=").size()));
    const std::string plan =
        plain.ask("EXPLAIN " + longest.substr(begin, longest.rfind(" [") - begin));
    EXPECT_FALSE(says(plan, "Seq Scan")) << plan;
}

}  // namespace Kes::testing
