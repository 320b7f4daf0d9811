#include <gtest/gtest.h>

#include <vector>

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

}  // namespace Kes::testing
