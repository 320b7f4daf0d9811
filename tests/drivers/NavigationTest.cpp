#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <set>
#include <sstream>

#include "tests/drivers/DriverTest.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

// A ring of 300 people: each one's friends are the next three. None of them is
// in memory, and the statements that load them are seen.
class NavigationTest : public DriverTest {
protected:
    static constexpr int Count = 300;

    NavigationTest() {
        open(model);
        model.startTransaction();
        std::vector<Person*> made;
        for (int i = 0; i < Count; ++i)
            made.push_back(model.newPerson(String("P") + String(i), i));
        for (int i = 0; i < Count; ++i)
            for (const int step : {2, 3, 1})
                made[at(i)]->friends.add(made[at((i + step) % Count)]);
        model.commit();
        model.garbageCollect();
        model.traceSQLTo(trace);
        started = std::chrono::steady_clock::now();
    }

    static std::size_t at(int index) { return static_cast<std::size_t>(index); }

    long statements() const {
        const std::string text = trace.str();
        return std::count(text.begin(), text.end(), '\n');
    }

    // What was read ahead stands for a tenth of a second, so a crowded machine
    // reads it ahead again, and with a sanitizer gets less far with it each time.
    long mostStatements(long inOneRound) const {
#ifdef KES_SANITIZED_ADDRESS
        inOneRound *= 3;
#endif
        const auto passed = std::chrono::steady_clock::now() - started;
        return inOneRound * (1 + passed / std::chrono::milliseconds(100));
    }

    // Everybody, in memory, by age.
    std::vector<Pointer<Person>> everybody() {
        SelectionOf<Person> people(model.personClass);
        people.orderBy(people["age"]);
        std::vector<Pointer<Person>> all;
        for (Person* person : people)
            all.emplace_back(person);
        return all;
    }

    static bool isFollowedByThree(const Person* person) {
        std::set<int> steps;
        for (const Person* friendOfHis : person->friends)
            steps.insert((friendOfHis->age - person->age + Count) % Count);
        return steps == std::set<int>{1, 2, 3};
    }
    static bool followsThree(const Person* person) {
        std::set<int> steps;
        for (const Person* other : person->friendOf)
            steps.insert((person->age - other->age + Count) % Count);
        return steps == std::set<int>{1, 2, 3};
    }

    std::ostringstream trace;
    StaffModel model;
    std::chrono::steady_clock::time_point started;
};

TEST_F(NavigationTest, LoadsLinksOfManyObjectsTogether) {
    const std::vector<Pointer<Person>> all = everybody();
    trace.str("");

    for (const auto& person : all)
        EXPECT_TRUE(isFollowedByThree(person)) << person->age;

    EXPECT_LE(statements(), mostStatements(20));
}

TEST_F(NavigationTest, LoadsBothEndsOfAnAssociationOfAClassWithItself) {
    const std::vector<Pointer<Person>> all = everybody();
    trace.str("");

    for (const auto& person : all) {
        EXPECT_TRUE(isFollowedByThree(person)) << person->age;
        EXPECT_TRUE(followsThree(person)) << person->age;
    }

    EXPECT_LE(statements(), mostStatements(40));
}

TEST_F(NavigationTest, ReadsAheadOfTheLoopThatFollowsLinks) {
    SelectionOf<Person> people(model.personClass);
    std::set<int> seen;
    for (Person* person : people) {
        EXPECT_TRUE(isFollowedByThree(person)) << person->age;
        EXPECT_TRUE(followsThree(person)) << person->age;
        seen.insert(person->age);
    }

    EXPECT_EQ(at(Count), seen.size());
    EXPECT_LE(statements(), mostStatements(40));
}

TEST_F(NavigationTest, KeepsTheOrderWhenItReadsAhead) {
    SelectionOf<Person> people(model.personClass);
    people.orderBy(people["age"], false);

    int expected = Count;
    for (Person* person : people) {
        EXPECT_EQ(--expected, person->age);
        EXPECT_EQ(3U, person->friends.size());
    }

    EXPECT_EQ(0, expected);
}

TEST_F(NavigationTest, DeliversWhatItStartedWithWhenOthersAreRemovedMeanwhile) {
    SelectionOf<Person> people(model.personClass);
    people.orderBy(people["age"]);

    std::vector<int> seen;
    for (Person* person : people) {
        seen.push_back(person->age);
        if (person->isRemoved())
            continue;
        EXPECT_LE(person->friends.size(), 3U);
        if (person->age == 50 || person->age == 100) {
            const Pointer<Person> later(model.findPerson(String("P") + String(person->age + 9)));
            model.startTransaction();
            later->remove();
            if (person->age == 50)
                model.rollback();
            else
                model.commit();
        }
    }

    EXPECT_EQ(at(Count), seen.size());
    EXPECT_TRUE(std::is_sorted(seen.begin(), seen.end()));
}

TEST_F(NavigationTest, EndsWhenTheModelClosesWhileItReadsAhead) {
    SelectionOf<Person> people(model.personClass);
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(3U, people.nextValue()->friends.size());

    model.close();

    EXPECT_FALSE(people.next());
}

TEST_F(NavigationTest, LoadsMembersInTheOrderOfTheirIds) {
    const std::vector<Pointer<Person>> all = everybody();

    for (const auto& person : all) {
        unsigned long before = 0;
        for (const Person* member : person->friends) {
            EXPECT_LT(before, member->getObjectID());
            before = member->getObjectID();
        }
    }
}

TEST_F(NavigationTest, SeesLinksThatOthersMadeAfterAnythingElseWasAsked) {
    const std::vector<Pointer<Person>> all = everybody();
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(3U, all[at(i)]->friends.size());
    {
        StaffModel other;
        open(other);
        other.startTransaction();
        const Pointer<Person> linked(other.findPerson("P20"));
        linked->friends.add(other.findPerson("P200"));
        other.commit();
    }
    EXPECT_NE(nullptr, model.findPerson("P200"));

    EXPECT_EQ(4U, all[20]->friends.size());
}

TEST_F(NavigationTest, BringsMembersInMemoryUpToDate) {
    const std::vector<Pointer<Person>> all = everybody();
    {
        StaffModel other;
        open(other);
        other.startTransaction();
        const Pointer<Person> changed(other.findPerson("P7"));
        changed->change();
        changed->salary = 700;
        other.commit();
    }

    for (int i = 0; i < 7; ++i)
        EXPECT_EQ(3U, all[at(i)]->friends.size());

    EXPECT_EQ(700, all[7]->salary);
}

// Each query drops what was loaded for siblings.
TEST_F(NavigationTest, StopsLoadingInVain) {
    const std::vector<Pointer<Person>> all = everybody();
    trace.str("");

    for (const auto& person : all) {
        EXPECT_EQ(3U, person->friends.size());
        EXPECT_NE(nullptr, model.findPerson("P1"));
    }

    EXPECT_LE(statements(), 3 * Count);
    const std::string text = trace.str();
    EXPECT_LE(std::count(text.begin(), text.end(), ','), 30L * Count);
}

TEST_F(NavigationTest, LeavesLinksThatAreNotCommittedToTheSession) {
    const std::vector<Pointer<Person>> all = everybody();
    model.startTransaction();
    all[0]->friends.add(all[100]);
    all[1]->friends.remove(all[2]);

    EXPECT_EQ(4U, all[0]->friends.size());
    EXPECT_EQ(2U, all[1]->friends.size());
    EXPECT_EQ(3U, all[2]->friends.size());
    model.rollback();

    EXPECT_EQ(3U, all[0]->friends.size());
    EXPECT_EQ(3U, all[1]->friends.size());
}

}  // namespace Kes::testing
