// What a selection over several classes shows while others commit.

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <set>
#include <vector>

#include "tests/drivers/DriverTest.h"
#include "tests/support/Raises.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

class SelectionStateTest : public DriverTest {
protected:
    SelectionStateTest() {
        open(theirs);
        theirs.startTransaction();
        theirs.carClass->newInstance();
        theirs.boatClass->newInstance();
        theirs.commit();
        open(mine);
    }

    // All to one year, in one transaction.
    void changeAll(int year) {
        SelectionOf<Vehicle> all(theirs.vehicleClass);
        theirs.startTransaction();
        while (all.next()) {
            all.value()->change();
            all.value()->year = year;
        }
        theirs.commit();
    }

    void addBoth(int year) {
        theirs.startTransaction();
        for (Class* each : {theirs.carClass, theirs.boatClass})
            static_cast<Vehicle*>(each->newInstance())->year = year;
        theirs.commit();
    }

    StaffModel mine;
    StaffModel theirs;
};

// The cursors of a selection, opened one by one.
class Opened {
public:
    explicit Opened(StaffModel& itsModel, int year = -1)
        : model(itsModel),
          selection(model.vehicleClass) {
        if (year >= 0)
            selection.where(selection["year"] == year);
        frozen = std::make_unique<AssociatedClass>(selection);
        definition.reset(model.defineSelection(frozen.get()));
    }

    bool open(Class* cls) {
        cursors.emplace_back(model.fetch(cls, definition.get()));
        return cursors.back()->next();
    }

    std::vector<int> years() {
        std::vector<int> found;
        for (const auto& cursor : cursors)
            found.push_back(static_cast<Vehicle*>(cursor->getInstance())->year);
        return found;
    }

private:
    StaffModel& model;
    SelectionOf<Vehicle> selection;
    std::unique_ptr<AssociatedClass> frozen;
    std::unique_ptr<SelectionDefinition> definition;
    std::vector<std::unique_ptr<DBDriverSelection>> cursors;
};

TEST_F(SelectionStateTest, IsOneForAllClasses) {
    Opened selection(mine);
    ASSERT_TRUE(selection.open(mine.carClass));
    changeAll(1);

    ASSERT_TRUE(selection.open(mine.boatClass));

    EXPECT_EQ((std::vector<int>{0, 0}), selection.years());
}

TEST_F(SelectionStateTest, IsOneAlsoBehindAClassWithoutObjects) {
    Opened selection(mine, 5);
    ASSERT_FALSE(selection.open(mine.carClass));
    addBoth(5);

    EXPECT_FALSE(selection.open(mine.boatClass));
}

TEST_F(SelectionStateTest, IsOneBesideASelectionUnderWay) {
    mine.startTransaction();
    for (int i = 0; i < 300; ++i)
        mine.newPerson("somebody");
    mine.commit();
    SelectionOf<Person> people(mine.personClass);
    ASSERT_TRUE(people.next());
    Opened selection(mine);
    ASSERT_TRUE(selection.open(mine.carClass));
    changeAll(1);

    ASSERT_TRUE(selection.open(mine.boatClass));

    EXPECT_EQ((std::vector<int>{0, 0}), selection.years());
    int count = 1;
    while (people.next())
        ++count;
    EXPECT_EQ(300, count);
}

TEST_F(SelectionStateTest, IsOneInAStartedTransaction) {
    mine.startTransaction();
    Opened selection(mine);
    ASSERT_TRUE(selection.open(mine.carClass));
    changeAll(1);

    ASSERT_TRUE(selection.open(mine.boatClass));

    EXPECT_EQ((std::vector<int>{0, 0}), selection.years());
    mine.rollback();
}

// Behind a lock the database's own transaction is open, and at the weaker levels of
// servers each of its statements sees what others have committed by then. Where
// nobody may write after a lock, there is nothing to see.
TEST_F(SelectionStateTest, IsOneBehindALock) {
    mine.startTransaction();
    const Pointer<Person> ann(mine.newPerson("Ann"));
    mine.commit();
    StaffModel impatient;
    open(impatient, engine->waitingAtMost(20));
    mine.startTransaction();
    ann->lock();
    Opened selection(mine);
    ASSERT_TRUE(selection.open(mine.carClass));
    Selection all(impatient.vehicleClass);
    impatient.startTransaction();
    while (all.next()) {
        auto* vehicle = static_cast<Vehicle*>(all.value());
        vehicle->change();
        vehicle->year = 1;
    }
    const bool isStored = codeRaisedBy([&] { impatient.commit(); }).empty();

    ASSERT_TRUE(selection.open(mine.boatClass));

    EXPECT_EQ((std::vector<int>{0, 0}), selection.years());
    Opened later(mine);
    ASSERT_TRUE(later.open(mine.carClass) && later.open(mine.boatClass));
    EXPECT_EQ(std::vector<int>(2, isStored ? 1 : 0), later.years());
    mine.rollback();
}

// Every kind of field, under the condition and in the order that were asked for.
TEST_F(SelectionStateTest, IsWholeBehindALock) {
    mine.startTransaction();
    for (int i = 0; i < 40; ++i) {
        auto* car = static_cast<Vehicle*>(mine.carClass->newInstance());
        auto* boat = static_cast<Vehicle*>(mine.boatClass->newInstance());
        car->year = 100 + i * 2;
        boat->year = 101 + i * 2;
    }
    const Pointer<Person> ann(mine.newPerson("Ann"));
    mine.commit();
    StaffModel fresh;
    open(fresh);
    const Pointer<Person> same(fresh.findPerson("Ann"));
    fresh.startTransaction();
    same->lock();
    SelectionOf<Vehicle> all(fresh.vehicleClass);
    all.where((all["year"] >= 100) & (all["year"] != 103));
    all.orderBy(all["year"], false);
    std::vector<int> years;
    while (all.next())
        years.push_back(all.value()->year);

    ASSERT_EQ(79U, years.size());
    EXPECT_EQ(179, years[0]);
    EXPECT_TRUE(std::is_sorted(years.rbegin(), years.rend()));
    fresh.rollback();
}

// More of them than a statement has for each of two classes. Texts, for a database may
// take a list of numbers as one.
TEST_F(SelectionStateTest, IsWholeBehindALockForAnyNumberOfValues) {
    mine.startTransaction();
    for (int i = 0; i < 40; ++i) {
        auto* vehicle =
            static_cast<Vehicle*>((i % 2 == 0 ? mine.carClass : mine.boatClass)->newInstance());
        vehicle->name = ("n" + std::to_string(i)).c_str();
        vehicle->year = 100 + i;
    }
    const Pointer<Person> ann(mine.newPerson("Ann"));
    mine.commit();
    StaffModel fresh;
    open(fresh);
    const Pointer<Person> same(fresh.findPerson("Ann"));
    const auto named = [&](int count) {
        const Attribute name(fresh.vehicleClass, "name");
        std::unique_ptr<Condition> any((name == "n0").getNew());
        for (int i = 1; i < count; ++i)
            any = std::make_unique<CombinationCondition>(
                any.release(), Condition::OR, (name == ("n" + std::to_string(i)).c_str()).getNew());
        return any.release();
    };
    fresh.startTransaction();
    same->lock();

    for (const int most : {1000, 5}) {
        SelectionOf<Vehicle> all(fresh.vehicleClass);
        all.setCondition(named(16000));
        all.orderBy(all["year"], false);
        all.limit(static_cast<std::uint64_t>(most), 3);
        std::vector<int> years;
        while (all.next()) {
            years.push_back(all.value()->year);
            EXPECT_EQ(all.value()->year % 2 == 0 ? fresh.carClass : fresh.boatClass,
                      all.value()->getClass());
        }

        ASSERT_EQ(most == 5 ? 5U : 37U, years.size());
        EXPECT_EQ(136, years[0]);
        EXPECT_TRUE(std::is_sorted(years.rbegin(), years.rend()));
    }
    Selection counted(fresh.vehicleClass);
    counted.setCondition(named(16000));
    EXPECT_EQ(40U, counted.count());
    fresh.rollback();
}

TEST_F(SelectionStateTest, DoesNotKeepLaterQueriesFromThePresent) {
    theirs.startTransaction();
    for (int i = 0; i < 400; ++i)
        theirs.carClass->newInstance();
    theirs.commit();
    SelectionOf<Vehicle> vehicles(mine.vehicleClass);
    ASSERT_TRUE(vehicles.next());
    changeAll(1);

    SelectionOf<Vehicle> present(mine.vehicleClass);
    present.where(present["year"] == 1);
    int count = 0;
    while (present.next())
        ++count;
    EXPECT_EQ(402, count);
    mine.startTransaction();
    mine.newPerson("somebody");
    mine.commit();
    count = 1;
    while (vehicles.next())
        ++count;
    EXPECT_EQ(402, count);
}

// One that is given up between its classes leaves nothing behind.
TEST_F(SelectionStateTest, EndsWithASelectionThatIsNotOpenedToItsEnd) {
    {
        Opened selection(mine);
        ASSERT_TRUE(selection.open(mine.carClass));
    }
    changeAll(1);

    Opened selection(mine);
    ASSERT_TRUE(selection.open(mine.carClass));
    ASSERT_TRUE(selection.open(mine.boatClass));

    EXPECT_EQ((std::vector<int>{1, 1}), selection.years());
    mine.startTransaction();
    mine.newPerson("somebody");
    mine.commit();
    EXPECT_EQ("1", ask("SELECT count(*) FROM [Person]"));
}

}  // namespace Kes::testing
