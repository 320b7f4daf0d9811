#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/object/NotingListener.h"
#include "tests/support/Raises.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

class RemovalTest : public ::testing::Test {
protected:
    RemovalTest() {
        model.openWith();
        model.startTransaction();
        firm = model.newCompany("Firm");
        ann = model.newPerson("Ann");
        bob = model.newPerson("Bob");
        cid = model.newPerson("Cid");
    }

    bool isStored(const char* name) { return model.findPerson(name) != nullptr; }

    StaffModel model;
    Pointer<Company> firm;
    Pointer<Person> ann, bob, cid;
};

TEST_F(RemovalTest, MarksTheObject) {
    model.commit();
    ann->remove();
    EXPECT_TRUE(ann->isRemoved());
    model.commit();
    EXPECT_FALSE(isStored("Ann"));
    EXPECT_TRUE(isStored("Bob"));
}

TEST_F(RemovalTest, DoesNothingTheSecondTime) {
    model.commit();
    ann->remove();
    ann->remove();
    model.commit();
    EXPECT_EQ(1UL, ann->getVersion());
}

TEST_F(RemovalTest, DissolvesAOneReferenceWhateverTheRule) {
    ann->employer = firm;
    ann->spouse = bob;
    ann->parent = cid;
    model.commit();
    ann->remove();

    EXPECT_FALSE(firm->staff.contains(ann));
    EXPECT_EQ(nullptr, bob->marriedTo.get());
    EXPECT_FALSE(cid->children.contains(ann));
    EXPECT_FALSE(firm->isRemoved() || bob->isRemoved() || cid->isRemoved());
    model.commit();
    EXPECT_TRUE(isStored("Cid"));
}

TEST_F(RemovalTest, LeavesThePartnersOfAManyReferenceThatUnlinks) {
    ann->employer = firm;
    bob->employer = firm;
    model.commit();
    firm->remove();

    EXPECT_FALSE(ann->isRemoved());
    EXPECT_FALSE(bob->isRemoved());
    model.commit();
    EXPECT_TRUE(isStored("Ann"));
    EXPECT_EQ(nullptr, model.findCompany("Firm"));
}

TEST_F(RemovalTest, RemovesThePartnersOfAManyReferenceThatCascades) {
    bob->parent = ann;
    cid->parent = ann;
    model.commit();
    ann->remove();

    EXPECT_TRUE(bob->isRemoved());
    EXPECT_TRUE(cid->isRemoved());
    model.commit();
    EXPECT_FALSE(isStored("Ann") || isStored("Bob") || isStored("Cid"));
}

TEST_F(RemovalTest, CascadesToPartnersThatAreNotInMemory) {
    bob->parent = ann;
    cid->parent = bob;
    model.commit();
    for (Pointer<Person>* each : {&ann, &bob, &cid})
        each->makeNull();
    model.garbageCollect();
    ann = model.findPerson("Ann");
    ASSERT_TRUE(ann != nullptr);
    ann->remove();
    model.commit();

    EXPECT_FALSE(isStored("Ann") || isStored("Bob") || isStored("Cid"));
}

TEST_F(RemovalTest, EndsWhereACascadeMeetsItself) {
    bob->parent = ann;
    cid->parent = bob;
    ann->parent = cid;
    model.commit();
    bob->remove();

    EXPECT_TRUE(ann->isRemoved() && bob->isRemoved() && cid->isRemoved());
    model.commit();
    EXPECT_FALSE(isStored("Ann") || isStored("Bob") || isStored("Cid"));
}

TEST_F(RemovalTest, RemovesAnObjectThatIsItsOwnParent) {
    ann->parent = ann;
    model.commit();
    ann->remove();
    model.commit();
    EXPECT_FALSE(isStored("Ann"));
    EXPECT_TRUE(isStored("Bob"));
}

TEST_F(RemovalTest, DissolvesTheLinksBetweenManyAndManyOnly) {
    ann->friends.add(bob);
    cid->friends.add(ann);
    model.commit();
    ann->remove();

    EXPECT_TRUE(bob->friendOf.empty());
    EXPECT_TRUE(cid->friends.empty());
    EXPECT_FALSE(bob->isRemoved() || cid->isRemoved());
    model.commit();
    EXPECT_TRUE(isStored("Bob") && isStored("Cid"));
}

TEST_F(RemovalTest, CascadesThroughALongChain) {
    constexpr int Length = 20000;
    std::vector<Person*> chain;
    chain.push_back(ann);
    for (int i = 0; i < Length; ++i) {
        Person* child = model.newPerson("Child");
        child->parent = chain.back();
        chain.push_back(child);
    }
    ann->remove();

    int removed = 0;
    for (const Person* each : chain)
        removed += each->isRemoved() ? 1 : 0;
    EXPECT_EQ(Length + 1, removed);
}

TEST_F(RemovalTest, RecordsPartnersBeforeTheObjectItself) {
    bob->parent = ann;
    cid->parent = bob;
    model.commit();
    NotingListener::Log log;
    NotingListener listener(log);
    Association* family = model.getAssociation("Family");
    family->addListener(&listener);
    model.personClass->addListener(&listener);
    ann->remove();
    model.commit();
    family->removeListener(&listener);

    const auto id = [](const Instance* of) { return " " + std::to_string(of->getObjectID()); };
    EXPECT_EQ(
        (NotingListener::Log{"unlinked Family" + id(ann) + id(bob),
                             "unlinked Family" + id(bob) + id(cid), "removed Person" + id(cid),
                             "removed Person" + id(bob), "removed Person" + id(ann)}),
        log);
}

TEST_F(RemovalTest, FetchesTheOneReferenceThatItDissolves) {
    ann->employer = firm;
    model.commit();
    ann.makeNull();
    firm->staff.setFetched(false);
    model.garbageCollect();
    ann = model.findPerson("Ann");
    ASSERT_FALSE(ann->employer.isFetched());
    ASSERT_EQ(1U, firm->staff.size());

    ann->remove();

    EXPECT_EQ(0U, firm->staff.size());
    EXPECT_EQ(nullptr, ann->employer.get());
}

TEST_F(RemovalTest, LeavesTheOneReferencesOfWhatUnlinks) {
    ann->employer = firm;
    model.commit();
    firm->remove();

    EXPECT_EQ(firm, ann->employer.get());
    EXPECT_TRUE(firm->staff.contains(ann));
}

// The database has emptied the rows of those who stay; memory follows when it is
// read again.
TEST_F(RemovalTest, OfAnOwnerThatUnlinksLeavesPartnersThatCanBeUsed) {
    ann->employer = firm;
    bob->employer = firm;
    model.commit();
    firm->remove();
    model.commit();

    ann->age = 31;
    ann->change();
    model.commit();
    ann->get(ann->employer, true);
    EXPECT_EQ(nullptr, ann->employer.get());
    const Pointer<Company> shop(model.newCompany("Shop"));
    bob->employer = shop;
    model.commit();
    for (Pointer<Person>* each : {&ann, &bob, &cid})
        each->makeNull();
    model.garbageCollect();
    ann = model.findPerson("Ann");
    EXPECT_EQ(31, ann->age);
    EXPECT_EQ(nullptr, ann->employer.get());
    EXPECT_EQ(shop, model.findPerson("Bob")->employer.get());
    EXPECT_EQ(1U, shop->staff.size());
}

TEST_F(RemovalTest, OfAnOwnerThatUnlinksReadsNoPartners) {
    ann->employer = firm;
    model.commit();
    firm->staff.setFetched(false);
    const Pointer<Company> kept(firm);
    model.setMaxUndoSize(0);
    std::ostringstream trace;
    model.traceSQLTo(trace);
    firm->remove();
    model.disableSQLTrace();

    EXPECT_EQ("", trace.str());
    EXPECT_FALSE(firm->staff.isFetched());
}

TEST_F(RemovalTest, OfAnOwnerWithItsPartnersRemovesThemToo) {
    ann->employer = firm;
    bob->employer = firm;
    model.commit();
    for (Person* each : firm->staff)
        each->remove();
    firm->remove();
    model.commit();

    EXPECT_FALSE(isStored("Ann") || isStored("Bob"));
    EXPECT_EQ(nullptr, model.findCompany("Firm"));
    EXPECT_TRUE(firm->staff.empty());
}

TEST_F(RemovalTest, HappensToThePartnersAfterTheirOwner) {
    ann->employer = firm;
    bob->employer = firm;
    model.commit();
    firm->remove();
    ann->remove();
    bob->remove();
    model.commit();

    EXPECT_FALSE(isStored("Ann") || isStored("Bob"));
    EXPECT_EQ(nullptr, model.findCompany("Firm"));
}

TEST_F(RemovalTest, IsRefusedLinksAfterwards) {
    model.commit();
    ann->remove();

    EXPECT_RAISES("REFERR", ann->employer = firm);
    EXPECT_RAISES("REFERR", ann->friends.add(bob));
    model.commit();
    EXPECT_RAISES("REFERR", ann->employer = firm);

    EXPECT_TRUE(firm->staff.empty() && bob->friendOf.empty());
    EXPECT_EQ(nullptr, ann->employer.get());
}

TEST_F(RemovalTest, HappensInsideALoopOverASelection) {
    bob->parent = ann;
    model.commit();
    SelectionOf<Person> people(model.personClass);
    int seen = 0;
    for (Person* each : people) {
        if (!each->isRemoved())
            each->remove();
        model.commit();
        ++seen;
    }

    EXPECT_EQ(3, seen);
    EXPECT_FALSE(isStored("Ann") || isStored("Bob") || isStored("Cid"));
}

TEST_F(RemovalTest, LeavesAOneReferenceToAPartnerThatIsRemovedAlready) {
    ann->spouse = bob;
    model.commit();
    bob->setRemoved(true);
    NotingListener::Log log;
    NotingListener listener(log);
    Association* marriage = model.getAssociation("Marriage");
    marriage->addListener(&listener);
    ann->remove();
    model.commit();
    marriage->removeListener(&listener);

    EXPECT_EQ(bob, ann->spouse.get());
    EXPECT_TRUE(log.empty());
    bob->setRemoved(false);
}

TEST_F(RemovalTest, OnlyDropsAMemberThatIsRemovedAlready) {
    bob->parent = ann;
    model.commit();
    bob->setRemoved(true);
    NotingListener::Log log;
    NotingListener listener(log);
    Association* family = model.getAssociation("Family");
    family->addListener(&listener);
    ann->remove();
    model.commit();
    family->removeListener(&listener);

    EXPECT_FALSE(ann->children.contains(bob));
    EXPECT_TRUE(log.empty());
    bob->setRemoved(false);
}

TEST_F(RemovalTest, MayHappenInsideALoopOverACollection) {
    for (const Pointer<Person>& each : {ann, bob, cid})
        each->employer = firm;
    model.commit();
    int visited = 0;
    for (Person* each : firm->staff) {
        each->remove();
        ++visited;
    }
    model.commit();

    EXPECT_EQ(3, visited);
    EXPECT_TRUE(firm->staff.empty());
    EXPECT_FALSE(isStored("Ann") || isStored("Bob") || isStored("Cid"));
}

TEST_F(RemovalTest, MayHappenInsideALoopThatCascades) {
    for (int i = 0; i < 40; ++i)
        model.newPerson("Child")->parent = ann;
    model.commit();
    int visited = 0;
    for (Person* each : ann->children) {
        if (++visited == 3)
            ann->remove();
        EXPECT_NE(nullptr, each);
    }
    model.commit();

    EXPECT_EQ(3, visited);
    EXPECT_FALSE(isStored("Ann") || isStored("Child"));
}

TEST_F(RemovalTest, MayHappenInsideALoopWithResetAndNext) {
    for (const Pointer<Person>& each : {ann, bob, cid})
        each->employer = firm;
    model.commit();
    ManyAssociatedInstances& staff = firm->staff;
    int visited = 0;
    for (staff.reset(); staff.next(); ++visited)
        staff.value()->remove();
    model.commit();

    EXPECT_EQ(3, visited);
    EXPECT_TRUE(firm->staff.empty());
}

TEST_F(RemovalTest, OfARingOfFriendsAndFamilyLeavesNothingBehind) {
    bob->parent = ann;
    cid->parent = bob;
    ann->parent = cid;
    ann->friends.add(bob);
    bob->friends.add(ann);
    cid->friends.add(cid);
    ann->spouse = ann;
    model.commit();
    cid->remove();
    model.commit();

    EXPECT_FALSE(isStored("Ann") || isStored("Bob") || isStored("Cid"));
    for (const Pointer<Person>& each : {ann, bob, cid}) {
        EXPECT_TRUE(each->friends.empty() && each->friendOf.empty() && each->children.empty());
        EXPECT_EQ(nullptr, each->parent.get());
    }
}

TEST_F(RemovalTest, OfARingIsTakenBackByARollback) {
    bob->parent = ann;
    cid->parent = bob;
    ann->parent = cid;
    model.commit();
    model.startTransaction();
    bob->remove();
    model.rollback();

    EXPECT_EQ(ann, bob->parent.get());
    EXPECT_EQ(bob, cid->parent.get());
    EXPECT_EQ(cid, ann->parent.get());
    for (const Pointer<Person>& each : {ann, bob, cid}) {
        EXPECT_FALSE(each->isRemoved());
        EXPECT_EQ(1U, each->children.size());
    }
    EXPECT_TRUE(isStored("Ann") && isStored("Bob") && isStored("Cid"));
}

namespace {

/// Throws from handle when it is told to.
class Brittle : public Instance {
public:
    explicit Brittle(Class* c) : Instance(c) {}
    void handle(Handler* h) override {
        if (breaks)
            throw std::runtime_error("broken");
        Instance::handle(h);
        h->handleOneAssociated("Chain", "previous", &previous, Association::CascadeRemove);
        h->handleManyAssociated("Chain", "following", &following);
    }

    bool breaks = false;
    One<Brittle> previous{this};
    Many<Brittle> following{this};
};

class BrittleModel : public Model {
public:
    BrittleModel() : Model("brittle", 100) { open("sqlite", ":memory:", "", "", ""); }
    Brittle* make() { return static_cast<Brittle*>(brittle->newInstance()); }

protected:
    void declareModel() override {
        setVersion(1);
        brittle = addClass("Brittle", 1, [](Class* c) -> Instance* { return new Brittle(c); });
    }

    Class* brittle = nullptr;
};

}  // namespace

TEST(BrokenRemovalTest, LeavesAnObjectThatCannotBeWalkedAsItWas) {
    BrittleModel model;
    const Pointer<Brittle> alone(model.make());
    model.commit();
    alone->breaks = true;

    EXPECT_THROW(alone->remove(), std::runtime_error);

    alone->breaks = false;
    EXPECT_FALSE(alone->isRemoved());
    alone->remove();
    model.commit();
    EXPECT_TRUE(alone->isRemoved());
    EXPECT_FALSE(model.isPending(alone));
}

TEST(BrokenRemovalTest, LeavesThoseAboveAPartnerThatCannotBeWalked) {
    BrittleModel model;
    const Pointer<Brittle> first(model.make()), second(model.make());
    second->previous = first;
    model.commit();
    second->breaks = true;

    EXPECT_THROW(first->remove(), std::runtime_error);

    second->breaks = false;
    EXPECT_FALSE(first->isRemoved());
    EXPECT_FALSE(second->isRemoved());
    model.rollback();
    EXPECT_TRUE(first->following.contains(second));
    EXPECT_EQ(first, second->previous.get());
}

TEST_F(RemovalTest, IsTakenBackByARollback) {
    bob->parent = ann;
    model.commit();
    model.startTransaction();
    ann->remove();
    model.rollback();

    EXPECT_FALSE(ann->isRemoved() || bob->isRemoved());
    EXPECT_EQ(ann, bob->parent.get());
    EXPECT_TRUE(ann->children.contains(bob));
}

namespace {

// Looks at itself when the operation of Instance has returned.
class Watchful : public Instance {
public:
    explicit Watchful(Class* c) : Instance(c) {}
    void handle(Handler* h) override {
        Instance::handle(h);
        h->handleOneAssociated("Tree", "above", &above, Association::CascadeRemove);
        h->handleManyAssociated("Tree", "below", &below);
    }
    void remove() override {
        Instance::remove();
        ++removals;
        recorded += inTransaction() ? 1 : 0;
    }

    One<Watchful> above{this};
    Many<Watchful> below{this};
    static inline int removals = 0;
    static inline int recorded = 0;
};

class WatchfulModel : public Model {
public:
    WatchfulModel() : Model("watchful", 1000000) { open("sqlite", ":memory:", "", "", ""); }
    Watchful* make() { return static_cast<Watchful*>(cls->newInstance()); }

protected:
    void declareModel() override {
        setVersion(1);
        cls = addClass("Watchful", 1, [](Class* c) -> Instance* { return new Watchful(c); });
    }

private:
    Class* cls = nullptr;
};

}  // namespace

TEST(OverriddenRemoveTest, FindsItsObjectRecordedWithinACascade) {
    WatchfulModel model;
    const Pointer<Watchful> top(model.make());
    for (int i = 0; i < 3; ++i) {
        Watchful* middle = model.make();
        middle->above = top;
        for (int k = 0; k < 2; ++k)
            model.make()->above = middle;
    }
    model.commit();
    Watchful::removals = Watchful::recorded = 0;

    top->remove();

    EXPECT_EQ(10, Watchful::removals);
    EXPECT_EQ(10, Watchful::recorded);
    model.rollback();
    EXPECT_EQ(3U, top->below.size());
}

TEST(OverriddenRemoveTest, MayCascadeDeeperThanTheStack) {
    WatchfulModel model;
    const Pointer<Watchful> top(model.make());
    Watchful* last = top;
    for (int i = 1; i < 100000; ++i) {
        Watchful* next = model.make();
        next->above = last;
        last = next;
    }
    model.commit();
    Watchful::removals = 0;

    top->remove();
    model.commit();

    EXPECT_EQ(100000, Watchful::removals);
}

}  // namespace Kes::testing
