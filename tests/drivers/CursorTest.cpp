#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <set>
#include <sstream>

#include "tests/drivers/DriverTest.h"
#include "tests/support/Raises.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

class CursorTest : public DriverTest {
protected:
    CursorTest() {
        open(model);
        model.startTransaction();
        for (int i = 0; i < 100; ++i)
            model.newPerson(String("P") + String(i), i);
        model.commit();
        model.garbageCollect();
    }

    // In a transaction, after which no object is in memory.
    void removeTheOldest(int count) {
        model.startTransaction();
        SelectionOf<Person> oldest(model.personClass);
        oldest.where(oldest["age"] >= 100 - count);
        while (oldest.next())
            oldest.value()->remove();
        model.commit();
        model.garbageCollect();
    }

    StaffModel model;
};

// A driver keeps the statements of so many shapes of queries, and then drops them.
TEST_F(CursorTest, DeliversAllRowsWhileStatementsOfOtherQueriesGo) {
    constexpr int more = 1000;
    constexpr int kept = 500;
    model.startTransaction();
    for (int i = 0; i < more; ++i)
        model.newPerson("more", -1);
    model.commit();
    const auto query = [&](int shape) {
        SelectionOf<Person> people(model.personClass);
        const Attribute age = people["age"];
        std::unique_ptr<Condition> all((age > 1000).getNew());
        for (; shape != 0; shape /= 4)
            all.reset((shape % 4 == 0   ? *all & (age > 1000)
                       : shape % 4 == 1 ? *all & (age >= 1000)
                       : shape % 4 == 2 ? *all & (age < 1000)
                                        : *all & (age != 1000))
                          .getNew());
        people.where(*all);
        people.next();
    };
    for (int shape = 0; shape < kept - 5; ++shape)
        query(shape);
    int count = 0;

    for (int shape = kept - 5; shape < kept + 5; ++shape) {
        SelectionOf<Person> people(model.personClass);
        people.next();
        query(shape);
        for (count = 1; people.next(); ++count)
            continue;
        ASSERT_EQ(100 + more, count) << shape;
    }
}

// A row that was read before must not make an object that seems to be stored.
TEST_F(CursorTest, MarksRemovedObjectsThatItMakesAnew) {
    SelectionOf<Person> people(model.personClass);
    people.orderBy(people["age"]);
    ASSERT_TRUE(people.next());
    removeTheOldest(50);
    int removed = 0;
    int count = 1;
    for (; people.next(); ++count)
        removed += people.value()->isRemoved() ? 1 : 0;

    EXPECT_EQ(100, count);
    EXPECT_EQ(50, removed);
    EXPECT_EQ("50", ask("SELECT count(*) FROM [Person]"));
}

TEST_F(CursorTest, KeepsNoUndoFromBringingBackWhatItHasDelivered) {
    SelectionOf<Person> people(model.personClass);
    people.orderBy(people["age"]);
    ASSERT_TRUE(people.next());
    removeTheOldest(50);
    std::vector<Pointer<Person>> all;
    while (people.next())
        all.emplace_back(people.value());

    model.undo();

    EXPECT_EQ("100", ask("SELECT count(*) FROM [Person]"));
    for (const Pointer<Person>& person : all)
        EXPECT_FALSE(person->isRemoved());
    EXPECT_EQ(99, all.back()->age);
}

TEST_F(CursorTest, TakesAnObjectThatAnUndoHasBroughtBackForStored) {
    SelectionOf<Person> people(model.personClass);
    people.orderBy(people["age"]);
    ASSERT_TRUE(people.next());
    removeTheOldest(50);
    model.undo();
    model.garbageCollect();

    SelectionOf<Person> again(model.personClass);
    while (again.next())
        EXPECT_FALSE(again.value()->isRemoved());
}

// The same of what makes an object older than the one that was in memory.
TEST_F(CursorTest, DeliversNothingOlderThanWhatItsModelHasStored) {
    SelectionOf<Person> people(model.personClass);
    people.orderBy(people["age"]);
    ASSERT_TRUE(people.next());
    model.startTransaction();
    model.findPerson("P99")->change();
    model.findPerson("P99")->salary = 9;
    model.commit();
    model.garbageCollect();
    Person* last = nullptr;
    while (people.next())
        last = people.value();

    EXPECT_EQ("P99", last->name);
    EXPECT_EQ(9, last->salary);
    model.startTransaction();
    last->change();
    last->salary = 10;
    EXPECT_NO_THROW(model.commit());
}

TEST_F(CursorTest, DeliversNothingOlderThanWhatItsModelHasSeenOfOthers) {
    Pointer<Person> seen(model.findPerson("P99"));
    SelectionOf<Person> people(model.personClass);
    people.orderBy(people["age"]);
    ASSERT_TRUE(people.next());
    StaffModel others;
    open(others);
    for (const double salary : {1, 2}) {
        others.startTransaction();
        others.findPerson("P99")->change();
        others.findPerson("P99")->salary = salary;
        others.commit();
    }
    seen->refresh();
    EXPECT_EQ(2, seen->salary);
    seen = nullptr;
    model.garbageCollect();
    Person* last = nullptr;
    while (people.next())
        last = people.value();

    EXPECT_EQ(2, last->salary);
}

TEST_F(CursorTest, DeliversNothingOlderThanWhatAnotherQueryHasLoaded) {
    SelectionOf<Person> people(model.personClass);
    people.orderBy(people["age"]);
    ASSERT_TRUE(people.next());
    StaffModel others;
    open(others);
    others.startTransaction();
    others.findPerson("P99")->change();
    others.findPerson("P99")->salary = 1;
    others.commit();
    EXPECT_EQ(1, model.findPerson("P99")->salary);
    model.garbageCollect();
    while (people.next())
        continue;

    EXPECT_EQ("P99", people.value()->name);
    EXPECT_EQ(1, people.value()->salary);
}

// A merge holds the next row of each class.
TEST_F(CursorTest, HandsOutNothingOlderThatWaitsToBeDelivered) {
    model.startTransaction();
    std::vector<Vehicle*> made;
    for (int year = 0; year < 4; ++year) {
        made.push_back(static_cast<Vehicle*>(
            (year % 2 == 0 ? model.carClass : model.boatClass)->newInstance()));
        made.back()->year = year;
    }
    const unsigned long last = made.back()->getObjectID();
    model.commit();
    model.garbageCollect();
    SelectionOf<Vehicle> vehicles(model.vehicleClass);
    vehicles.orderBy(vehicles["year"]);
    ASSERT_TRUE(vehicles.next());
    StaffModel others;
    open(others);
    others.startTransaction();
    auto* theirs = static_cast<Vehicle*>(others.getInstance(last, others.boatClass));
    theirs->change();
    theirs->name = "new";
    others.commit();
    EXPECT_EQ("new", static_cast<Vehicle*>(model.getInstance(last, model.boatClass))->name);
    model.garbageCollect();
    ASSERT_TRUE(vehicles.next());
    ASSERT_TRUE(vehicles.next());

    EXPECT_EQ("new", static_cast<Vehicle*>(model.getInstance(last, model.boatClass))->name);
    ASSERT_TRUE(vehicles.next());
    EXPECT_EQ(last, vehicles.value()->getObjectID());
    EXPECT_EQ("new", vehicles.value()->name);
}

// What was found removed does not come back with a row of before, though that is
// newer than what memory had.
TEST_F(CursorTest, BringsNoObjectBackThatWasFoundRemoved) {
    const Pointer<Person> known(model.findPerson("P99"));
    StaffModel others;
    open(others);
    others.startTransaction();
    const Pointer<Person> theirs(others.findPerson("P99"));
    theirs->change();
    theirs->salary = 1;
    others.commit();
    SelectionOf<Person> people(model.personClass);
    people.orderBy(people["age"]);
    ASSERT_TRUE(people.next());
    others.startTransaction();
    theirs->remove();
    others.commit();
    known->refresh();
    EXPECT_TRUE(known->isRemoved());
    while (people.next())
        continue;

    EXPECT_EQ(known, people.value());
    EXPECT_TRUE(known->isRemoved());
}

TEST_F(CursorTest, LetsLaterReadsSeeWhatSomebodyElseHasCommitted) {
    StaffModel other;
    open(other);
    SelectionOf<Person> people(model.personClass);
    SelectionOf<Person> oldest(model.personClass);
    oldest.orderBy(oldest["age"], false);
    ASSERT_TRUE(people.next());
    ASSERT_TRUE(oldest.next());
    other.startTransaction();
    const Pointer<Person> fresh(other.newPerson("fresh"));
    const Pointer<Person> changed(other.findPerson("P50"));
    changed->change();
    changed->age = 5000;
    fresh->parent = changed;
    other.commit();

    EXPECT_NE(nullptr, model.getInstance(fresh->getObjectID(), model.personClass));
    const Pointer<Person> mine(model.findPerson("P50"));
    EXPECT_EQ(5000, mine->age);
    EXPECT_EQ(1U, mine->children.size());
    model.startTransaction();
    mine->change();
    mine->age = 50;
    model.commit();
    EXPECT_EQ("50", ask("SELECT [age] FROM [Person] WHERE [name] = 'P50'"));

    for (SelectionOf<Person>* each : {&people, &oldest}) {
        std::set<std::string> names;
        do
            names.insert(static_cast<const char*>(each->value()->name));
        while (each->next());
        EXPECT_EQ(100U, names.size());
        EXPECT_FALSE(names.contains("fresh"));
    }
}

TEST_F(CursorTest, LetsEachQueryOfALoopSeeThePresent) {
    StaffModel other;
    open(other);
    const Pointer<Person> counter(other.findPerson("P0"));
    SelectionOf<Person> people(model.personClass);
    int count = 0;
    while (people.next()) {
        ++count;
        if (count % 10 != 0)
            continue;
        other.startTransaction();
        counter->change();
        counter->age = 1000 + count;
        other.commit();
        EXPECT_EQ(1000 + count, model.findPerson("P0")->age);
    }

    EXPECT_EQ(100, count);
}

TEST_F(CursorTest, KeepsManyRowsAsideWithoutLosingOne) {
    model.startTransaction();
    const std::string filling(2000, 'x');
    for (int i = 0; i < 10000; ++i)
        model.newPerson((filling + std::to_string(i)).c_str(), 7777);
    model.commit();
    model.garbageCollect();
    SelectionOf<Person> people(model.personClass);
    people.where(people["age"] == 7777);
    ASSERT_TRUE(people.next());
    model.startTransaction();
    model.newPerson("fresh");
    model.commit();

    std::set<std::string> names;
    do
        names.insert(static_cast<const char*>(people.value()->name));
    while (people.next());

    EXPECT_EQ(10000U, names.size());
}

// The largest resident size that the process has had, in bytes; with `restart`
// from now on. The sanitizers keep what is freed, so it says nothing there.
std::size_t peakMemory(bool restart) {
#if defined(KES_SANITIZED_ADDRESS)
    static_cast<void>(restart);
    return 0;
#else
    if (restart)
        std::ofstream("/proc/self/clear_refs") << "5";
    std::ifstream status("/proc/self/status");
    std::string word;
    std::size_t size = 0;
    while (status >> word)
        if (word == "VmHWM:")
            status >> size;
    return size * 1024;
#endif
}

TEST_F(CursorTest, StreamsItsRowsThroughBoundedMemory) {
    std::string digits = "(SELECT 0 AS i";
    for (int i = 1; i < 10; ++i)
        digits += " UNION ALL SELECT " + std::to_string(i);
    digits += ")";
    // A hundred thousand rows, forty million bytes; a page cache may take 16 MiB.
    run("INSERT INTO [Person] ([KesObjectID], [KesVersion], [name], [age], [salary]) SELECT "
        "10000000 + a.i + 10 * b.i + 100 * c.i + 1000 * d.i + 10000 * e.i, 0, '" +
        std::string(400, 'x') + "', 7777, 0 FROM " + digits + " AS a, " + digits + " AS b, " +
        digits + " AS c, " + digits + " AS d, " + digits + " AS e");
    StaffModel reader(1000);
    open(reader);
    const std::size_t before = peakMemory(true);

    SelectionOf<Person> people(reader.personClass);
    people.where(people["age"] == 7777);
    int count = 0;
    while (people.next())
        ++count;

    EXPECT_EQ(100000, count);
    EXPECT_LT(peakMemory(false), before + 24 * 1024 * 1024);
}

TEST_F(CursorTest, PreparesAStatementOnceForEachShape) {
    std::ostringstream trace;
    model.traceSQLTo(trace);
    for (int age = 0; age < 3; ++age) {
        SelectionOf<Person> people(model.personClass);
        people.where(people["age"] == age);
        while (people.next())
            continue;
    }

    EXPECT_NE(std::string::npos, trace.str().find("\"age\" = 2"));
    EXPECT_NE(std::string::npos, trace.str().find(" ms]"));
}

TEST_F(CursorTest, ShortensLongValuesInTheTrace) {
    std::ostringstream trace;
    model.traceSQLTo(trace);
    model.startTransaction();
    model.newPerson(std::string(100000, 'x').c_str());
    model.commit();

    EXPECT_LT(trace.str().size(), 10000U);
}

}  // namespace Kes::testing
