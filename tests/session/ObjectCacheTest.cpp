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
        Instance::handle(h);
        h->handleInt("number", number);
        h->handleOneAssociated("Chain", "previous", &previous, Association::CascadeRemove);
        h->handleManyAssociated("Chain", "following", &following);
    }

    int number = 0;
    One<Counted> previous{this};
    Many<Counted> following{this};
    static inline int alive = 0;
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

}  // namespace Kes::testing
