#include <gtest/gtest.h>

#include "tests/support/Raises.h"
#include "tests/support/Recording.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

// Counts the objects that are alive.
class Counted : public Instance {
public:
    explicit Counted(Class* c) : Instance(c) { ++alive; }
    ~Counted() override { --alive; }
    void handle(Handler* h) override {
        ++walks;
        Instance::handle(h);
        h->handleInt("number", number);
        h->handleOneAssociated("Chain", "previous", &previous, Association::CascadeRemove);
        h->handleManyAssociated("Chain", "following", &following);
    }

    int number = 0;
    One<Counted> previous{this};
    Many<Counted> following{this};
    static inline int alive = 0;
    static inline long walks = 0;
};

class CountedModel : public Model {
public:
    explicit CountedModel(int capacity) : Model("counted", capacity) {
        open("sqlite", ":memory:", "", "", "");
    }

    Counted* make(int number) {
        auto* made = static_cast<Counted*>(cls->newInstance());
        made->number = number;
        return made;
    }

    // Stores the numbers from 1 and forgets the objects.
    void store(int count) {
        startTransaction();
        for (int i = 1; i <= count; ++i)
            make(i);
        commit();
        garbageCollect();
    }

    Class* cls = nullptr;

protected:
    void declareModel() override {
        setVersion(1);
        cls = addClass("Counted", 1, [](Class* c) -> Instance* { return new Counted(c); });
    }
};

class ObjectCacheTest : public ::testing::Test {
protected:
    ObjectCacheTest() { EXPECT_EQ(0, Counted::alive); }
    ~ObjectCacheTest() override { EXPECT_EQ(0, Counted::alive); }
};

TEST_F(ObjectCacheTest, ReturnsTheSameInstanceForAnId) {
    CountedModel model(100);
    model.startTransaction();
    Counted* made = model.make(1);

    EXPECT_EQ(made, model.get(made->getObjectID()));
    EXPECT_EQ(made, model.getInstance(made->getObjectID(), model.cls));
}

TEST_F(ObjectCacheTest, NeverAsksTheDatabaseInGet) {
    CountedModel model(100);
    model.store(1);

    EXPECT_EQ(nullptr, model.get(1));
}

TEST_F(ObjectCacheTest, LoadsAnObjectByItsId) {
    CountedModel model(100);
    model.startTransaction();
    const unsigned long id = model.make(7)->getObjectID();
    model.commit();
    model.garbageCollect();

    auto* loaded = static_cast<Counted*>(model.getInstance(id, model.cls));

    ASSERT_NE(nullptr, loaded);
    EXPECT_EQ(7, loaded->number);
    EXPECT_EQ(loaded, model.get(id));
}

TEST_F(ObjectCacheTest, FindsNothingForAnIdThatIsNotStored) {
    CountedModel model(100);

    EXPECT_EQ(nullptr, model.getInstance(12345, model.cls));
    EXPECT_EQ(nullptr, model.getInstance(0, model.cls));
}

TEST_F(ObjectCacheTest, FindsNoObjectOfAnotherClassOrWithoutClass) {
    StaffModel model;
    model.openWith();
    const unsigned long id = model.newPerson("Ann")->getObjectID();
    model.commit();
    model.garbageCollect();

    EXPECT_EQ(nullptr, model.getInstance(id, model.companyClass));
    EXPECT_EQ(nullptr, model.getInstance(id, nullptr));
    EXPECT_NE(nullptr, model.getInstance(id, model.personClass));
}

TEST_F(ObjectCacheTest, FindsAnObjectByItsSuperClass) {
    StaffModel model;
    model.openWith();
    const unsigned long id = model.boatClass->newInstance()->getObjectID();
    model.commit();
    model.garbageCollect();

    const Instance* boat = model.getInstance(id, model.vehicleClass);

    ASSERT_NE(nullptr, boat);
    EXPECT_EQ(model.boatClass, boat->getClass());
}

TEST_F(ObjectCacheTest, ReturnsWhatIsInMemoryForAnyClass) {
    StaffModel model;
    model.openWith();
    const Pointer<Person> ann(model.newPerson("Ann"));

    EXPECT_EQ(ann, model.getInstance(ann->getObjectID(), model.companyClass));
    EXPECT_EQ(ann, model.getInstance(ann->getObjectID(), nullptr));
}

TEST_F(ObjectCacheTest, ReturnsARemovedObjectUntilItIsCollected) {
    CountedModel model(100);
    const unsigned long id = model.make(1)->getObjectID();
    model.commit();
    model.get(id)->remove();
    EXPECT_EQ(model.get(id), model.getInstance(id, model.cls));
    model.commit();

    const Instance* removed = model.getInstance(id, model.cls);
    ASSERT_NE(nullptr, removed);
    EXPECT_TRUE(removed->isRemoved());
    model.setMaxUndoSize(0);
    model.garbageCollect();

    EXPECT_EQ(nullptr, model.get(id));
    EXPECT_EQ(nullptr, model.getInstance(id, model.cls));
}

TEST_F(ObjectCacheTest, FindsNothingForARemovedId) {
    CountedModel model(100);
    model.store(1);
    Pointer<Counted> made(model.make(2));
    model.commit();
    const unsigned long id = made->getObjectID();
    made->remove();
    model.commit();
    made.makeNull();
    model.setMaxUndoSize(0);
    model.garbageCollect();

    EXPECT_EQ(nullptr, model.getInstance(id, model.cls));
    EXPECT_NE(nullptr, model.getInstance(id - 1, model.cls));
}

TEST_F(ObjectCacheTest, FreesWhatNoPointerReaches) {
    CountedModel model(100);

    model.store(10);

    EXPECT_EQ(0, Counted::alive);
}

TEST_F(ObjectCacheTest, KeepsWhatAPointerReaches) {
    CountedModel model(100);
    model.startTransaction();
    const Pointer<Counted> first(model.make(1));
    const Pointer<Counted> second(first);
    model.make(2);
    model.commit();

    model.garbageCollect();

    EXPECT_EQ(1, Counted::alive);
    EXPECT_EQ(first.getInstance(), model.get(first->getObjectID()));
}

TEST_F(ObjectCacheTest, KeepsWhatReferencesReachAndWalksCyclesOnce) {
    CountedModel model(100);
    model.startTransaction();
    const Pointer<Counted> first(model.make(1));
    Counted* second = model.make(2);
    second->previous = first;
    first->previous = second;
    model.make(3);
    model.commit();

    model.garbageCollect();
    model.garbageCollect();

    EXPECT_EQ(2, Counted::alive);
    EXPECT_FALSE(first->isVisited());
}

TEST_F(ObjectCacheTest, KeepsPendingInstances) {
    CountedModel model(100);
    model.startTransaction();
    model.make(1);

    model.garbageCollect();
    EXPECT_EQ(1, Counted::alive);

    model.commit();
    model.garbageCollect();
    EXPECT_EQ(0, Counted::alive);
}

TEST_F(ObjectCacheTest, KeepsWhatASelectionHasDelivered) {
    CountedModel model(100);
    model.store(3);
    Selection all(model.cls);
    ASSERT_TRUE(all.next());

    model.garbageCollect();

    EXPECT_EQ(1, static_cast<Counted*>(all.value())->number);
}

TEST_F(ObjectCacheTest, CollectsAtThe27thInsertionAboveTheThreshold) {
    CountedModel model(5);
    model.store(40);
    Selection all(model.cls);

    int most = 0;
    for (int i = 0; i < 31; ++i) {
        all.next();
        most = std::max(most, Counted::alive);
    }
    EXPECT_EQ(31, most);

    all.next();
    EXPECT_LE(Counted::alive, 2);
}

TEST_F(ObjectCacheTest, CollectsAgain27InsertionsLater) {
    CountedModel model(5);
    model.store(100);
    Selection all(model.cls);

    // A collection at the 32nd leaves one or two; the threshold is passed anew.
    std::vector<int> collections;
    int before = 0;
    for (int i = 1; i <= 100; ++i) {
        all.next();
        if (Counted::alive < before)
            collections.push_back(i);
        before = Counted::alive;
    }

    EXPECT_EQ((std::vector<int>{32, 62, 92}), collections);
}

TEST_F(ObjectCacheTest, KeepsEverythingBelowItsCapacity) {
    CountedModel model(200);
    model.store(200);
    Selection all(model.cls);
    while (all.next())
        continue;
    Selection again(model.cls);
    while (again.next())
        continue;

    EXPECT_EQ(200, Counted::alive);
}

TEST_F(ObjectCacheTest, ReplacesWhatWasFiledUnderAnId) {
    CountedModel model(100);
    const Pointer<Counted> first(model.make(1));
    model.commit();
    auto* second = static_cast<Counted*>(model.cls->getDummy());
    second->setObjectID(first->getObjectID());

    model.set(second);

    EXPECT_EQ(second, model.get(first->getObjectID()));
    EXPECT_EQ(2, Counted::alive);  // somebody points at the first one
}

class CapacityTest : public ::testing::TestWithParam<int> {};

TEST_P(CapacityTest, BoundsWhatALongSelectionKeeps) {
    CountedModel model(GetParam());
    model.store(2000);
    Selection all(model.cls);

    int most = 0;
    long sum = 0;
    while (all.next()) {
        sum += static_cast<Counted*>(all.value())->number;
        most = std::max(most, Counted::alive);
    }

    EXPECT_EQ(2001000, sum);
    EXPECT_LE(most, GetParam() + 30);
}

TEST_P(CapacityTest, LosesNoPendingObject) {
    CountedModel model(GetParam());
    model.startTransaction();
    std::vector<unsigned long> ids;
    for (int i = 1; i <= 1000; ++i)
        ids.push_back(model.make(i)->getObjectID());
    EXPECT_EQ(1000, Counted::alive);
    model.commit();
    model.garbageCollect();
    EXPECT_EQ(0, Counted::alive);

    long sum = 0;
    for (const unsigned long id : ids)
        sum += static_cast<Counted*>(model.getInstance(id, model.cls))->number;
    EXPECT_EQ(500500, sum);
    EXPECT_LE(Counted::alive, GetParam() + 30);
}

// A collection is no cheaper for freeing nothing.
TEST_P(CapacityTest, VisitsPendingObjectsAFewTimesEach) {
    constexpr int count = 20000;
    CountedModel model(GetParam());
    Counted::walks = 0;

    model.startTransaction();
    for (int i = 1; i <= count; ++i)
        model.make(i);

    EXPECT_EQ(count, Counted::alive);
    EXPECT_LT(Counted::walks, 20L * count);
}

TEST_P(CapacityTest, VisitsHeldObjectsAFewTimesEach) {
    constexpr int count = 20000;
    CountedModel model(GetParam());
    model.store(count);
    Counted::walks = 0;

    std::vector<Pointer<Counted>> held;
    Selection all(model.cls);
    while (all.next())
        held.emplace_back(static_cast<Counted*>(all.value()));

    EXPECT_EQ(count, Counted::alive);
    EXPECT_LT(Counted::walks, 20L * count);
}

TEST_P(CapacityTest, FreesWhatALargeTransactionHeldWithTheNextObjects) {
    CountedModel model(GetParam());
    model.startTransaction();
    for (int i = 1; i <= 5000; ++i)
        model.make(i);
    model.commit();
    EXPECT_EQ(5000, Counted::alive);

    for (int i = 1; i <= 27; ++i)
        model.make(i);

    EXPECT_LE(Counted::alive, 54);
}

TEST_P(CapacityTest, FreesManyDroppedOnesBeforeHalfAsManyNewOnesAreThere) {
    constexpr int count = 5000;
    constexpr int more = count / 2 + 1;
    CountedModel model(GetParam());
    model.store(count);
    std::vector<Pointer<Counted>> held;
    Selection all(model.cls);
    while (all.next())
        held.emplace_back(static_cast<Counted*>(all.value()));
    held.clear();
    EXPECT_EQ(count, Counted::alive);

    for (int i = 1; i <= more; ++i)
        model.make(i);

    EXPECT_LE(Counted::alive, more + 1);
}

TEST_P(CapacityTest, NavigatesAlongReclaimedObjects) {
    constexpr int length = 200;
    CountedModel model(GetParam());
    model.startTransaction();
    Counted* before = model.make(1);
    const unsigned long first = before->getObjectID();
    for (int i = 2; i <= length; ++i) {
        Counted* next = model.make(i);
        next->previous = before;
        before = next;
    }
    const unsigned long last = before->getObjectID();
    model.commit();
    model.garbageCollect();

    long sum = 0;
    Pointer<Counted> at(static_cast<Counted*>(model.getInstance(last, model.cls)));
    for (; at != nullptr; at = at->previous)
        sum += at->number;
    model.garbageCollect();
    for (at = static_cast<Counted*>(model.getInstance(first, model.cls)); at != nullptr;
         at = at->following.empty() ? nullptr : *at->following.begin())
        sum += at->number;

    EXPECT_EQ(length * (length + 1), sum);
}

TEST_P(CapacityTest, KeepsWhatIsPointedAtOnceInMemory) {
    CountedModel model(GetParam());
    model.store(600);
    std::vector<Pointer<Counted>> kept;
    Selection all(model.cls);
    while (all.next())
        if (static_cast<Counted*>(all.value())->number % 10 == 0)
            kept.emplace_back(static_cast<Counted*>(all.value()));
    model.garbageCollect();
    EXPECT_EQ(60, Counted::alive);

    Selection again(model.cls);
    std::size_t found = 0;
    while (again.next())
        if (found < kept.size() && kept[found] == again.value())
            ++found;

    EXPECT_EQ(60U, kept.size());
    EXPECT_EQ(60U, found);
}

TEST(NegativeCapacityTest, CountsAsNone) {
    CountedModel model(-7);
    model.store(100);
    Selection all(model.cls);
    while (all.next())
        EXPECT_LE(Counted::alive, 30);
}

INSTANTIATE_TEST_SUITE_P(Sizes, CapacityTest, ::testing::Values(0, 1, 26, 27, 500));

TEST_F(ObjectCacheTest, MarksAndFreesALongChainWithoutRecursion) {
    constexpr int length = 200000;
    CountedModel model(2 * length);
    model.startTransaction();
    Pointer<Counted> last(model.make(0));
    for (int i = 1; i < length; ++i) {
        Counted* next = model.make(i);
        next->previous = last;
        last = next;
    }
    model.commit();

    model.garbageCollect();
    EXPECT_EQ(length, Counted::alive);

    last = nullptr;
    model.garbageCollect();
    EXPECT_EQ(0, Counted::alive);
}

TEST_F(ObjectCacheTest, RemovesALongChainByCascadeWithoutRecursion) {
    constexpr int length = 100000;
    CountedModel model(2 * length);
    model.startTransaction();
    const Pointer<Counted> head(model.make(0));
    Counted* last = head;
    for (int i = 1; i < length; ++i) {
        Counted* next = model.make(i);
        next->previous = last;
        last = next;
    }
    model.commit();

    model.startTransaction();
    head->remove();
    model.commit();

    Selection all(model.cls);
    EXPECT_FALSE(all.next());
}

TEST_F(ObjectCacheTest, IsEmptyAfterAClose) {
    CountedModel model(100);
    model.startTransaction();
    const Pointer<Counted> kept(model.make(1));
    model.commit();

    model.close();

    EXPECT_EQ(0, Counted::alive);
    EXPECT_EQ(nullptr, kept.getInstance());
}

TEST_F(ObjectCacheTest, RegistersAMillionPointersInConstantTimeEach) {
    CountedModel model(100);
    model.startTransaction();
    Counted* made = model.make(1);
    {
        std::vector<Pointer<Counted>> pointers(1000000, Pointer<Counted>(made));
        model.garbageCollect();
        EXPECT_EQ(1, Counted::alive);
    }
    model.commit();
    model.garbageCollect();

    EXPECT_EQ(0, Counted::alive);
}

TEST(CollectionRuleTest, CountsAnInstanceThatIsFiledAlready) {
    StaffModel model(0);
    model.openWith();
    const Pointer<Person> kept(model.newPerson("Kept"));
    const unsigned long lost = model.newPerson("Lost")->getObjectID();
    model.commit();
    model.garbageCollect();
    ASSERT_NE(nullptr, model.getInstance(lost, model.personClass));

    for (int i = 0; i < 40; ++i)
        model.set(kept);

    EXPECT_EQ(nullptr, model.get(lost));
    EXPECT_EQ(kept.getInstance(), model.get(kept->getObjectID()));
}

}  // namespace Kes::testing
