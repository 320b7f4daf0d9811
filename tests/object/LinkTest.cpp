#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/object/NotingListener.h"
#include "tests/support/Raises.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

class LinkTest : public ::testing::Test {
protected:
    LinkTest() {
        model.openWith();
        model.startTransaction();
        firm = model.newCompany("Firm");
        shop = model.newCompany("Shop");
        ann = model.newPerson("Ann");
        bob = model.newPerson("Bob");
        cid = model.newPerson("Cid");
    }

    StaffModel model;
    Pointer<Company> firm, shop;
    Pointer<Person> ann, bob, cid;
};

TEST_F(LinkTest, ReachesTheManySideWhenTheOneSideIsSet) {
    ann->employer = firm;
    EXPECT_EQ(firm, ann->employer.get());
    EXPECT_TRUE(firm->staff.contains(ann));
}

TEST_F(LinkTest, ReachesTheOneSideWhenTheManySideIsAdded) {
    firm->staff.add(ann);
    EXPECT_EQ(firm, ann->employer.get());
}

TEST_F(LinkTest, ReachesTheOneSideWhenTheManySideIsRemoved) {
    firm->staff.add(ann);
    firm->staff.remove(ann);
    EXPECT_EQ(nullptr, ann->employer.get());
    EXPECT_TRUE(firm->staff.empty());
}

TEST_F(LinkTest, LeavesTheOldPartnerWhenANewOneIsSet) {
    ann->employer = firm;
    ann->employer = shop;
    EXPECT_FALSE(firm->staff.contains(ann));
    EXPECT_TRUE(shop->staff.contains(ann));
}

TEST_F(LinkTest, IsDissolvedByNull) {
    ann->employer = firm;
    ann->employer = nullptr;
    EXPECT_EQ(nullptr, ann->employer.get());
    EXPECT_FALSE(firm->staff.contains(ann));
}

TEST_F(LinkTest, TakesThePartnerOfAnotherReference) {
    ann->employer = firm;
    bob->employer = ann->employer;
    EXPECT_EQ(firm, bob->employer.get());
    EXPECT_EQ(2U, firm->staff.size());
}

TEST_F(LinkTest, JoinsTwoObjectsOneToOne) {
    ann->spouse = bob;
    EXPECT_EQ(ann, bob->marriedTo.get());
    EXPECT_EQ(nullptr, bob->spouse.get());
    EXPECT_EQ(nullptr, ann->marriedTo.get());
}

TEST_F(LinkTest, DoesNotVisitThePreviousPartnerOfThePartner) {
    ann->spouse = bob;
    cid->spouse = bob;
    EXPECT_EQ(cid, bob->marriedTo.get());
    EXPECT_EQ(bob, ann->spouse.get());
}

TEST_F(LinkTest, JoinsAnObjectWithItself) {
    ann->spouse = ann;
    ann->friends.add(ann);
    EXPECT_EQ(ann, ann->marriedTo.get());
    EXPECT_TRUE(ann->friendOf.contains(ann));
    ann->spouse = nullptr;
    ann->friends.remove(ann);
    EXPECT_EQ(nullptr, ann->marriedTo.get());
    EXPECT_TRUE(ann->friendOf.empty());
}

TEST_F(LinkTest, JoinsManyWithMany) {
    ann->friends.add(bob);
    ann->friends.add(cid);
    bob->friends.add(cid);
    EXPECT_EQ(2U, ann->friends.size());
    EXPECT_EQ(2U, cid->friendOf.size());
    EXPECT_TRUE(ann->friendOf.empty());
}

TEST_F(LinkTest, SurvivesInTheDatabase) {
    ann->employer = firm;
    ann->spouse = bob;
    ann->friends.add(cid);
    bob->parent = ann;
    model.commit();
    for (Pointer<Person>* each : {&ann, &bob, &cid})
        each->makeNull();
    firm.makeNull();
    shop.makeNull();
    model.garbageCollect();

    ann = model.findPerson("Ann");
    ASSERT_TRUE(ann != nullptr);
    EXPECT_STREQ("Firm", ann->employer->name);
    EXPECT_STREQ("Bob", ann->spouse->name);
    EXPECT_EQ(ann, ann->spouse->marriedTo.get());
    ASSERT_EQ(1U, ann->friends.size());
    EXPECT_STREQ("Cid", (*ann->friends.begin())->name);
    ASSERT_EQ(1U, ann->children.size());
    EXPECT_EQ(ann, (*ann->children.begin())->parent.get());
}

TEST_F(LinkTest, LeavesAnUnfetchedCollectionUnfetched) {
    model.commit();
    firm->staff.setFetched(false);
    ann->employer = firm;
    EXPECT_FALSE(firm->staff.isFetched());
    model.commit();
    EXPECT_TRUE(firm->staff.contains(ann));
    EXPECT_EQ(1U, firm->staff.size());
}

TEST_F(LinkTest, RecordsNothingForNullOnAnUnlinkedReference) {
    model.commit();
    NotingListener::Log log;
    NotingListener listener(log);
    Association* works = model.getAssociation("Works");
    works->addListener(&listener);
    ann->employer = nullptr;
    model.commit();
    works->removeListener(&listener);

    EXPECT_TRUE(log.empty());
    EXPECT_EQ(0UL, ann->getVersion());
}

TEST_F(LinkTest, RecordsOnlyTheNewLinkWhenAPartnerIsReplaced) {
    ann->employer = firm;
    model.commit();
    NotingListener::Log log;
    NotingListener listener(log);
    Association* works = model.getAssociation("Works");
    works->addListener(&listener);
    ann->employer = shop;
    model.commit();
    works->removeListener(&listener);

    EXPECT_EQ((NotingListener::Log{"linked Works " + std::to_string(ann->getObjectID()) + " " +
                                   std::to_string(shop->getObjectID())}),
              log);
}

TEST_F(LinkTest, RefusesAnObjectOfAnotherModel) {
    StaffModel other;
    other.openWith();
    Company* foreign = other.newCompany("Foreign");
    Person* stranger = other.newPerson("Stranger");

    EXPECT_RAISES("REFERR", ann->employer = foreign);
    EXPECT_RAISES("REFERR", firm->staff.add(stranger));
    EXPECT_EQ(nullptr, ann->employer.get());
    EXPECT_TRUE(firm->staff.empty());
}

TEST_F(LinkTest, RefusesNullMembers) {
    EXPECT_RAISES("REFERR", firm->staff.add(static_cast<Person*>(nullptr)));
    EXPECT_RAISES("REFERR", firm->staff.remove(static_cast<Person*>(nullptr)));
    EXPECT_TRUE(firm->staff.empty());
}

TEST_F(LinkTest, RefusesARemovedObject) {
    model.commit();
    bob->remove();
    shop->remove();
    EXPECT_RAISES("REFERR", ann->spouse = bob);
    EXPECT_RAISES("REFERR", ann->employer = shop);
    EXPECT_RAISES("REFERR", ann->friends.add(bob));
    EXPECT_TRUE(ann->friends.empty());
    EXPECT_EQ(nullptr, ann->spouse.get());
}

TEST_F(LinkTest, RefusesAnObjectThatWasNeverAdded) {
    const auto never = std::make_unique<Person>(model.personClass);
    EXPECT_RAISES("REFERR", never->employer = firm);
    EXPECT_RAISES("REFERR", firm->staff.add(never.get()));
    EXPECT_RAISES("REFERR", never->friends.add(ann));
    EXPECT_RAISES("REFERR", ann->spouse = never.get());

    EXPECT_TRUE(firm->staff.empty() && ann->friendOf.empty() && never->friends.empty());
    EXPECT_EQ(nullptr, never->employer.get());
    EXPECT_EQ(nullptr, ann->spouse.get());
    model.commit();
}

TEST_F(LinkTest, RefusesAnObjectOfTheWrongClass) {
    EXPECT_RAISES("REFERR", ann->set(ann->employer, bob));
    EXPECT_RAISES("REFERR", ann->Instance::add(ann->friends, firm));
    EXPECT_EQ(nullptr, ann->employer.get());
    EXPECT_TRUE(ann->friends.empty());
}

TEST_F(LinkTest, RefusesAReferenceOfAnotherObject) {
    EXPECT_RAISES("REFERR", ann->set(bob->employer, firm));
    EXPECT_RAISES("REFERR", ann->Instance::add(bob->friends, cid));
    EXPECT_EQ(nullptr, bob->employer.get());
    EXPECT_TRUE(bob->friends.empty());
}

TEST_F(LinkTest, ChangesNothingWhenTheHandlerReturnsFromARefusal) {
    const ReturningHandler handler;
    ann->set(ann->employer, bob);
    firm->staff.add(static_cast<Person*>(nullptr));
    ann->set(bob->employer, firm);

    EXPECT_EQ((std::vector<std::string>{"REFERR", "REFERR", "REFERR"}), handler.codes());
    EXPECT_EQ(nullptr, ann->employer.get());
    EXPECT_EQ(nullptr, bob->employer.get());
    EXPECT_TRUE(firm->staff.empty());
}

}  // namespace Kes::testing
