#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <set>
#include <sstream>
#include <thread>

#include "tests/drivers/DriverTest.h"
#include "tests/support/Raises.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

// Ten people P0 to P9, each at a firm F0 to F9 of his own. All people are in
// memory, and no firm: when the employers of the first two are read, those of the
// others are read ahead.
class ReadAheadTest : public DriverTest {
protected:
    static constexpr int Count = 10;

    ReadAheadTest() {
        open(writer);
        writer.startTransaction();
        for (int i = 0; i < Count; ++i)
            writer.newPerson(named("P", i), i)->employer = writer.newCompany(named("F", i));
        writer.commit();
        writer.garbageCollect();
    }

    static String named(const char* letter, int number) { return String(letter) + String(number); }
    static std::size_t at(int index) { return static_cast<std::size_t>(index); }

    void readPeople(const std::string& options = "") {
        open(model, options);
        model.traceSQLTo(trace);
        findPeople();
    }

    void findPeople() {
        SelectionOf<Person> found(model.personClass);
        found.orderBy(found["age"]);
        for (Person* person : found)
            people.emplace_back(person);
    }

    void readFirmsAhead() {
        for (int i = 0; i < 2; ++i)
            EXPECT_EQ(named("F", i), people[at(i)]->employer->name);
    }

    void readFirms() {
        SelectionOf<Company> found(model.companyClass);
        found.orderBy(found["name"]);
        for (Company* firm : found)
            firms.emplace_back(firm);
    }

    // The collections of the others are kept aside.
    void readStaffAhead() {
        readFirms();
        for (int i = 0; i < 2; ++i)
            EXPECT_EQ(1U, firms[at(i)]->staff.size());
    }

    // In this process: the library may know of it.
    void letOthersRename(int firm, const char* name) {
        writer.startTransaction();
        const Pointer<Company> renamed(writer.findCompany(named("F", firm)));
        renamed->change();
        renamed->name = name;
        writer.commit();
    }
    void letOthersHireFor(int firm) {
        writer.startTransaction();
        writer.newPerson("New", 77)->employer = writer.findCompany(named("F", firm));
        writer.commit();
    }

    // Past the library, as another process would.
    void renameOutside(int firm, const std::string& name) {
        run("UPDATE [Company] SET [name] = '" + name +
            "', [KesVersion] = [KesVersion] + 1 WHERE [name] = 'F" + std::to_string(firm) + "'");
    }
    void moveOutside(const std::string& person, const std::string& firm) {
        run("UPDATE [Person] SET [KesVersion] = [KesVersion] + 1, [employer] = (SELECT "
            "[KesObjectID] FROM [Company] WHERE [name] = '" +
            firm + "') WHERE [name] = '" + person + "'");
    }

    long statements() const {
        const std::string text = trace.str();
        return std::count(text.begin(), text.end(), '\n');
    }

    StaffModel writer;
    StaffModel model;
    std::ostringstream trace;
    std::vector<Pointer<Person>> people;
    std::vector<Pointer<Company>> firms;
};

TEST_F(ReadAheadTest, ShowsWhatWasCommittedInThisProcessMeanwhile) {
    readPeople();
    readFirmsAhead();

    letOthersRename(5, "renamed");

    EXPECT_EQ("renamed", people[5]->employer->name);
}

TEST_F(ReadAheadTest, ShowsNoPartnerThatWasRemovedMeanwhile) {
    readPeople();
    readFirmsAhead();

    run("DELETE FROM [Company] WHERE [name] = 'F5'");
    model.startTransaction();

    EXPECT_EQ(nullptr, people[5]->employer.get());
    EXPECT_NE(nullptr, people[6]->employer.get());
    model.rollback();
}

TEST_F(ReadAheadTest, EndsWithTheNextTransaction) {
    readPeople();
    readFirmsAhead();
    renameOutside(5, "renamed");

    model.startTransaction();

    EXPECT_EQ("renamed", people[5]->employer->name);
    model.rollback();
}

TEST_F(ReadAheadTest, EndsWithTheTransactionThatItWasReadIn) {
    readPeople();
    model.startTransaction();
    readFirmsAhead();
    model.commit();

    renameOutside(5, "renamed");
    model.startTransaction();

    EXPECT_EQ("renamed", people[5]->employer->name);
    model.rollback();
}

TEST_F(ReadAheadTest, EndsWithEveryQuery) {
    readPeople();
    readFirmsAhead();
    renameOutside(5, "renamed");

    EXPECT_NE(nullptr, model.findPerson("P1"));

    EXPECT_EQ("renamed", people[5]->employer->name);
}

TEST_F(ReadAheadTest, EndsWithEveryRefresh) {
    readPeople();
    readFirmsAhead();
    renameOutside(5, "renamed");

    people[0]->refresh();

    EXPECT_EQ("renamed", people[5]->employer->name);
}

TEST_F(ReadAheadTest, EndsWithALock) {
    readPeople();
    model.startTransaction();
    readFirmsAhead();
    renameOutside(5, "renamed");

    people[0]->lock();

    EXPECT_EQ("renamed", people[5]->employer->name);
    model.rollback();
}

TEST_F(ReadAheadTest, EndsWithAForcedReadOfAnyReference) {
    readPeople();
    readFirmsAhead();
    renameOutside(5, "renamed");
    renameOutside(6, "also renamed");

    people[5]->get(people[5]->employer, true);

    EXPECT_EQ("renamed", people[5]->employer->name);
    EXPECT_EQ("also renamed", people[6]->employer->name);
}

TEST_F(ReadAheadTest, IsNoOlderThanATenthOfASecond) {
    readPeople();
    readFirmsAhead();
    renameOutside(5, "renamed");

    std::this_thread::sleep_for(std::chrono::milliseconds(150));

    EXPECT_EQ("renamed", people[5]->employer->name);
}

TEST_F(ReadAheadTest, IsReadAgainTogether) {
    readPeople();
    readFirmsAhead();
    model.startTransaction();
    trace.str("");

    for (int i = 0; i < Count; ++i)
        EXPECT_EQ(named("F", i), people[at(i)]->employer->name);

    EXPECT_LE(statements(), 3);
    model.rollback();
}

TEST_F(ReadAheadTest, IsReadOnceWhileItIsFresh) {
    readPeople();
    trace.str("");

    for (int i = 0; i < Count; ++i)
        EXPECT_EQ(named("F", i), people[at(i)]->employer->name);

    EXPECT_LE(statements(), 3);
}

TEST_F(ReadAheadTest, IsNotInMemoryForWhoAsksById) {
    readPeople();
    readFirmsAhead();
    const unsigned long unread = people[5]->employer.getObjectID();

    EXPECT_NE(nullptr, model.get(people[0]->employer.getObjectID()));
    EXPECT_EQ(nullptr, model.get(unread));

    const Instance* firm = people[5]->employer;
    EXPECT_EQ(firm, model.get(unread));
}

TEST_F(ReadAheadTest, IsNoAnswerToWhoLoadsById) {
    readPeople();
    readFirmsAhead();
    const unsigned long id = people[5]->employer.getObjectID();
    renameOutside(5, "renamed");
    model.startTransaction();

    const auto* loaded = static_cast<Company*>(model.getInstance(id, model.companyClass));

    ASSERT_NE(nullptr, loaded);
    EXPECT_EQ("renamed", loaded->name);
    EXPECT_EQ(loaded, people[5]->employer.get());
    model.rollback();
}

TEST_F(ReadAheadTest, LeavesWhatTheApplicationHasAsItIs) {
    readPeople();
    readFirmsAhead();
    const Pointer<Company> had(people[5]->employer);
    renameOutside(5, "renamed");
    model.startTransaction();

    EXPECT_EQ(had, people[5]->employer.get());
    EXPECT_EQ("F5", had->name);
    model.rollback();
}

TEST_F(ReadAheadTest, HoldsNoCollectionThatIsOlderThanACommitOfThisProcess) {
    readPeople();
    readStaffAhead();

    letOthersHireFor(5);

    EXPECT_EQ(2U, firms[5]->staff.size());
}

TEST_F(ReadAheadTest, HoldsNoCollectionForAForcedRead) {
    readPeople();
    readStaffAhead();
    moveOutside("P6", "F5");

    firms[5]->get(firms[5]->staff, true);

    EXPECT_EQ(2U, firms[5]->staff.size());
}

// One commit moves a person and renames his boss. Who sees the one sees the other.
TEST_F(ReadAheadTest, HoldsNoCollectionThatIsOlderThanWhatAReferenceShowed) {
    writer.startTransaction();
    const Pointer<Person> boss(writer.newPerson("Boss", 70));
    boss->children.add(writer.findPerson("P9"));
    writer.commit();
    readPeople();
    readStaffAhead();
    moveOutside("P6", "F5");
    run("UPDATE [Person] SET [KesVersion] = [KesVersion] + 1, [salary] = 1 WHERE [name] = 'P9'");

    ASSERT_EQ(1U, people[10]->children.size());
    EXPECT_EQ(1, people[9]->salary);

    EXPECT_EQ(2U, firms[5]->staff.size());
}

// Those of a selection under way are rows that it began with; by a reference they
// are as they are now.
TEST_F(ReadAheadTest, IsReadAgainForAReferenceThoughASelectionWillDeliverIt) {
    writer.startTransaction();
    const Pointer<Person> first(writer.findPerson("P0"));
    first->children.add(writer.findPerson("P8"));
    writer.findPerson("P1")->parent = writer.findPerson("P9");
    writer.commit();
    open(model, "");
    SelectionOf<Person> all(model.personClass);
    all.orderBy(all["age"]);
    Pointer<Person> second;
    for (int i = 0; i < 3; ++i) {
        Person* person = all.nextValue();
        EXPECT_NE(nullptr, person->employer.get());
        if (i == 1)
            second = person;
    }
    EXPECT_EQ(nullptr, model.get(second->parent.getObjectID()));

    EXPECT_EQ("P9", second->parent->name);

    std::set<Person*> rest;
    while (Person* person = all.nextValue())
        rest.insert(person);
    EXPECT_EQ(7U, rest.size());
    EXPECT_EQ(1U, rest.count(second->parent));
}

// A program that asks the database for something else at every step.
TEST_F(ReadAheadTest, StopsWhereItIsInVain) {
    constexpr int Many = 200;
    writer.startTransaction();
    for (int i = Count; i < Many; ++i)
        writer.newPerson(named("P", i), i)->employer = writer.newCompany(named("F", i));
    writer.commit();
    readPeople();
    trace.str("");

    for (const auto& person : people) {
        EXPECT_NE(nullptr, person->employer.get());
        EXPECT_NE(nullptr, model.findPerson("P1"));
    }

    EXPECT_LE(statements(), 3 * Many);
    const std::string text = trace.str();
    EXPECT_LE(std::count(text.begin(), text.end(), ','), 30L * Many);
}

// Each of two reads what the other one writes, and was read ahead long ago.
TEST_F(ReadAheadTest, IsPartOfTheTransactionAtTheStrongestLevel) {
    const std::string options = "isolation=serializable;" + engine->waitingAtMost(1000);
    StaffModel others;
    open(others, options);
    std::vector<Pointer<Person>> theirs;
    {
        SelectionOf<Person> found(others.personClass);
        found.orderBy(found["age"]);
        for (Person* person : found)
            theirs.emplace_back(person);
    }
    readPeople(options);
    readFirmsAhead();
    for (int i = 0; i < 2; ++i)
        EXPECT_NE(nullptr, theirs[at(i)]->employer.get());
    const auto rename = [](Company* firm) {
        firm->change();
        firm->name = "taken";
    };

    std::string said;
    said += messageRaisedBy([&] {
        model.startTransaction();
        if (people[5]->employer->name == "F5")
            rename(people[6]->employer);
    });
    said += messageRaisedBy([&] {
        others.startTransaction();
        if (theirs[6]->employer->name == "F6")
            rename(theirs[5]->employer);
    });
    said += messageRaisedBy([&] { model.commit(); });
    said += messageRaisedBy([&] { others.commit(); });

    EXPECT_NE("", said);
    EXPECT_EQ("1", ask("SELECT count(*) FROM [Company] WHERE [name] = 'taken'"));
}

}  // namespace Kes::testing
