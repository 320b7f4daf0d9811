#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "tests/drivers/DriverTest.h"
#include "tests/support/Raises.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

// What links leave in the database, as another session sees it.
class LinkTest : public DriverTest {
protected:
    LinkTest() {
        open(model);
        model.startTransaction();
        firm = model.newCompany("Firm");
        ann = model.newPerson("Ann");
        bob = model.newPerson("Bob");
        cid = model.newPerson("Cid");
    }

    std::string idOf(const Instance* instance) { return std::to_string(instance->getObjectID()); }
    std::string column(const char* name, const char* ofWhom) {
        return ask(std::string("SELECT [") + name + "] FROM [Person] WHERE [name] = '" + ofWhom +
                   "'");
    }

    // The number of statements of a commit.
    long statementsOfCommit() {
        std::ostringstream trace;
        model.traceSQLTo(trace);
        model.commit();
        model.disableSQLTrace();
        const std::string text = trace.str();
        return std::count(text.begin(), text.end(), '\n');
    }

    StaffModel model;
    Pointer<Company> firm;
    Pointer<Person> ann;
    Pointer<Person> bob;
    Pointer<Person> cid;
};

TEST_F(LinkTest, LiesInTheRowOfTheOneSide) {
    ann->employer = firm;
    model.commit();

    EXPECT_EQ(idOf(firm), column("employer", "Ann"));
    EXPECT_EQ("", column("employer", "Bob"));
}

TEST_F(LinkTest, LiesThereWhenItIsMadeFromTheManySide) {
    firm->staff.add(ann);
    model.commit();

    EXPECT_EQ(idOf(firm), column("employer", "Ann"));
}

TEST_F(LinkTest, CostsNoStatementOfItsOwnBesideAnInsert) {
    ann->employer = firm;
    bob->employer = firm;
    firm->staff.add(cid);

    // BEGIN, four inserts, COMMIT. Rows may also travel together.
    EXPECT_GE(6, statementsOfCommit());
}

TEST_F(LinkTest, CostsNoStatementOfItsOwnBesideAnUpdate) {
    model.commit();
    model.startTransaction();
    ann->employer = firm;
    ann->age = 5;
    ann->change();

    // BEGIN, a look at the partner, one update, COMMIT.
    EXPECT_EQ(4, statementsOfCommit());
    EXPECT_EQ("1", column("KesVersion", "Ann"));
}

TEST_F(LinkTest, CostsNoStatementBesideARemoval) {
    ann->employer = firm;
    model.commit();
    model.startTransaction();
    ann->remove();
    std::ostringstream trace;
    model.traceSQLTo(trace);
    model.commit();

    EXPECT_EQ(std::string::npos, trace.str().find("SET \"KesVersion\""));
    EXPECT_EQ("2", ask("SELECT count(*) FROM [Person]"));
}

TEST_F(LinkTest, SurvivesAManyTimesLargerTransaction) {
    for (int i = 0; i < 10000; ++i)
        model.newPerson("somebody");
    ann->employer = firm;
    firm->staff.add(bob);
    model.commit();

    EXPECT_EQ(idOf(firm), column("employer", "Ann"));
    EXPECT_EQ(idOf(firm), column("employer", "Bob"));
}

// More than a driver gathers before it writes.
class LargeLinkTest : public LinkTest {
protected:
    void SetUp() override {
        for (int i = 0; i < 5000; ++i)
            others.emplace_back(model.newPerson("somebody"));
        model.commit();
        model.startTransaction();
    }

    void linkManyOthers() {
        for (const Pointer<Person>& each : others)
            each->employer = each->employer == firm ? nullptr : static_cast<Company*>(firm);
    }

    std::vector<Pointer<Person>> others;
};

TEST_F(LargeLinkTest, FollowsTheLastAssignmentHoweverManyRowsCameBetween) {
    const Pointer<Company> other(model.newCompany("Other"));
    const Pointer<Person> dan(model.newPerson("Dan"));
    dan->employer = firm;
    ann->spouse = dan;
    linkManyOthers();
    dan->employer = other;
    bob->spouse = dan;
    linkManyOthers();
    dan->employer = firm;
    ann->spouse = dan;
    model.commit();

    EXPECT_EQ(idOf(firm), column("employer", "Dan"));
    EXPECT_EQ(idOf(ann), column("marriedTo", "Dan"));
    EXPECT_EQ(idOf(dan), column("spouse", "Ann"));
    EXPECT_EQ("", column("spouse", "Bob"));
}

TEST_F(LargeLinkTest, GivesANewObjectToTheLastWhoTakesItHoweverManyRowsCameBetween) {
    const Pointer<Company> other(model.newCompany("Other"));
    const Pointer<Person> dan(model.newPerson("Dan"));
    linkManyOthers();
    dan->employer = other;
    ann->spouse = dan;
    linkManyOthers();
    dan->employer = firm;
    bob->spouse = dan;
    model.commit();

    EXPECT_EQ(idOf(firm), column("employer", "Dan"));
    EXPECT_EQ(idOf(bob), column("marriedTo", "Dan"));
    EXPECT_EQ(idOf(dan), column("spouse", "Bob"));
    EXPECT_EQ("", column("spouse", "Ann"));
}

TEST_F(LargeLinkTest, GoesWithManyObjectsThatReferToEachOther) {
    for (std::size_t i = 1; i < others.size(); ++i)
        others[i - 1]->spouse = others[i];
    model.commit();
    model.startTransaction();
    for (const Pointer<Person>& each : others)
        each->remove();
    model.commit();

    EXPECT_EQ("3", ask("SELECT count(*) FROM [Person]"));
    model.undo();
    EXPECT_EQ("4999",
              ask("SELECT count(*) FROM [Person] AS a, [Person] AS b "
                  "WHERE a.[spouse] = b.[KesObjectID] AND b.[marriedTo] = a.[KesObjectID]"));
}

TEST_F(LinkTest, FollowsTheLastAssignment) {
    const Pointer<Company> other(model.newCompany("Other"));
    ann->employer = firm;
    bob->employer = firm;
    model.commit();
    model.startTransaction();
    ann->employer = other;
    bob->employer = nullptr;
    model.commit();

    EXPECT_EQ(idOf(other), column("employer", "Ann"));
    EXPECT_EQ("", column("employer", "Bob"));
}

TEST_F(LinkTest, LeavesNoReferenceToARemovedPartner) {
    ann->employer = firm;
    model.commit();
    model.startTransaction();
    firm->remove();
    model.commit();

    EXPECT_EQ("", column("employer", "Ann"));
    EXPECT_EQ("1", column("KesVersion", "Ann"));
    EXPECT_EQ(1UL, ann->getVersion());
    EXPECT_EQ(nullptr, ann->employer.get());
}

TEST_F(LinkTest, StandsInBothRowsOfAOneToOnePair) {
    ann->spouse = bob;
    model.commit();

    EXPECT_EQ(idOf(bob), column("spouse", "Ann"));
    EXPECT_EQ(idOf(ann), column("marriedTo", "Bob"));
}

TEST_F(LinkTest, FreesTheThirdWhenAOneToOnePartnerIsTaken) {
    ann->spouse = bob;
    model.commit();
    model.startTransaction();
    cid->spouse = bob;
    model.commit();

    EXPECT_EQ("", column("spouse", "Ann"));
    EXPECT_EQ(idOf(bob), column("spouse", "Cid"));
    EXPECT_EQ(idOf(cid), column("marriedTo", "Bob"));
}

TEST_F(LinkTest, GoesFromBothRowsWhenItIsDissolved) {
    ann->spouse = bob;
    model.commit();
    model.startTransaction();
    ann->spouse = nullptr;
    model.commit();

    EXPECT_EQ("", column("spouse", "Ann"));
    EXPECT_EQ("", column("marriedTo", "Bob"));
}

TEST_F(LinkTest, ReachesAnObjectItself) {
    ann->spouse = ann;
    ann->friends.add(ann);
    model.commit();

    EXPECT_EQ(idOf(ann), column("spouse", "Ann"));
    EXPECT_EQ("1", ask("SELECT count(*) FROM [Friendship] WHERE [friends] = [friendOf]"));
}

TEST_F(LinkTest, NamesTheColumnsOfALinkTableByTheRoles) {
    ann->friends.add(bob);
    model.commit();

    EXPECT_EQ(idOf(bob), ask("SELECT [friends] FROM [Friendship]"));
    EXPECT_EQ(idOf(ann), ask("SELECT [friendOf] FROM [Friendship]"));
}

TEST_F(LinkTest, HoldsAManyToManyPairOnce) {
    ann->friends.add(bob);
    bob->friendOf.add(ann);
    model.commit();

    EXPECT_EQ("1", ask("SELECT count(*) FROM [Friendship]"));
}

TEST_F(LinkTest, GoesWithEitherEndOfAManyToManyPair) {
    ann->friends.add(bob);
    bob->friends.add(cid);
    model.commit();
    model.startTransaction();
    bob->remove();
    model.commit();

    EXPECT_EQ("0", ask("SELECT count(*) FROM [Friendship]"));
    EXPECT_EQ("2", ask("SELECT count(*) FROM [Person]"));
}

TEST_F(LinkTest, HoldsAfterACommitWhatCameLastOfAManyToManyPair) {
    ann->friends.add(bob);
    bob->friends.add(cid);
    model.commit();
    model.startTransaction();
    ann->friends.remove(bob);
    ann->friends.add(bob);
    bob->friendOf.remove(ann);
    bob->friendOf.add(ann);
    bob->friends.remove(cid);
    bob->friends.add(cid);
    cid->friendOf.remove(bob);
    cid->friends.add(ann);

    model.commit();

    EXPECT_EQ("2", ask("SELECT count(*) FROM [Friendship]"));
    EXPECT_EQ("1", ask("SELECT count(*) FROM [Friendship] WHERE [friends] = " + idOf(bob) +
                       " AND [friendOf] = " + idOf(ann)));
    EXPECT_EQ("1", ask("SELECT count(*) FROM [Friendship] WHERE [friends] = " + idOf(ann) +
                       " AND [friendOf] = " + idOf(cid)));
}

TEST_F(LinkTest, IsNotMadeToAnObjectThatTheSameCommitRemoves) {
    model.commit();
    model.startTransaction();
    ann->friends.add(bob);
    ann->friends.add(cid);
    bob->remove();

    model.commit();

    EXPECT_EQ("1", ask("SELECT count(*) FROM [Friendship]"));
    EXPECT_EQ("1", ask("SELECT count(*) FROM [Friendship] WHERE [friends] = " + idOf(cid)));
}

TEST_F(LinkTest, GoesWithEveryOneOfManyRemovedObjects) {
    std::vector<Pointer<Person>> staff;
    for (int i = 0; i < 1100; ++i) {
        staff.emplace_back(model.newPerson("Staff"));
        staff.back()->friends.add(ann);
        ann->friends.add(staff.back());
        staff.back()->spouse = model.newPerson("Spouse");
    }
    model.commit();
    model.startTransaction();
    for (const Pointer<Person>& person : staff)
        if (person != staff[500])
            person->remove();

    model.commit();

    EXPECT_EQ("2", ask("SELECT count(*) FROM [Friendship]"));
    EXPECT_EQ("1", ask("SELECT count(*) FROM [Friendship] WHERE [friends] = " + idOf(staff[500])));
    EXPECT_EQ("1", ask("SELECT count(*) FROM [Person] WHERE [name] = 'Spouse' AND [marriedTo] IS "
                       "NOT NULL"));
}

TEST_F(LinkTest, IsNotMadeToAnObjectThatNeverCameToBe) {
    model.commit();
    model.startTransaction();
    Company* passing = model.newCompany("Passing");
    ann->employer = passing;
    passing->remove();
    model.commit();

    EXPECT_EQ("", column("employer", "Ann"));
    EXPECT_EQ("1", ask("SELECT count(*) FROM [Company]"));
}

TEST_F(LinkTest, MayComeAndGoBeforeItsEndsAreStored) {
    ann->employer = firm;
    ann->employer = nullptr;
    ann->friends.add(bob);
    ann->friends.remove(bob);
    ann->friends.add(cid);
    cid->remove();
    model.commit();

    EXPECT_EQ("", column("employer", "Ann"));
    EXPECT_EQ("0", ask("SELECT count(*) FROM [Friendship]"));
}

TEST_F(LinkTest, LeavesAlonePartnersThatWereNeverStored) {
    model.commit();
    Person* never = model.newPerson("Nobody");
    ann->spouse = never;
    ann->spouse = nullptr;
    never->remove();

    model.commit();

    EXPECT_EQ("", column("spouse", "Ann"));
    EXPECT_EQ("3", ask("SELECT count(*) FROM [Person]"));
}

TEST_F(LinkTest, ForcesACollectionToWhatIsStored) {
    ann->friends.add(bob);
    model.commit();
    StaffModel other;
    open(other);
    const Pointer<Person> theirAnn(other.findPerson("Ann"));
    theirAnn->friends.remove(*theirAnn->friends.begin());
    theirAnn->friends.add(other.findPerson("Cid"));
    other.commit();

    ann->get(ann->friends, true);

    ASSERT_EQ(1U, ann->friends.size());
    EXPECT_EQ(cid.getInstance(), *ann->friends.begin());
}

// --- what a link takes away, and what it does not ---

// Ann's spouse is Bob, and Cid takes him.
class TakenLinkTest : public LinkTest {
protected:
    TakenLinkTest() {
        ann->spouse = bob;
        model.commit();
        model.startTransaction();
        cid->spouse = bob;
    }

    void commitAndBegin() {
        model.commit();
        model.startTransaction();
    }
    void expectTheNewPair() {
        EXPECT_EQ(idOf(bob), column("spouse", "Cid"));
        EXPECT_EQ(idOf(cid), column("marriedTo", "Bob"));
        EXPECT_EQ(bob, cid->spouse.get());
        EXPECT_EQ(cid, bob->marriedTo.get());
    }
};

TEST_F(TakenLinkTest, RaisesTheVersionOfWhoLosesThePartner) {
    model.commit();

    EXPECT_EQ("1", column("KesVersion", "Ann"));
    EXPECT_EQ(1UL, ann->getVersion());
    EXPECT_EQ(nullptr, ann->spouse.get());
    ann->age = 5;
    ann->change();
    model.commit();
    EXPECT_EQ("5", column("age", "Ann"));
}

TEST_F(TakenLinkTest, RaisesItOnceBesideAChange) {
    ann->age = 5;
    ann->change();
    model.commit();

    EXPECT_EQ("1", column("KesVersion", "Ann"));
    EXPECT_EQ(1UL, ann->getVersion());
    EXPECT_EQ("", column("spouse", "Ann"));
    EXPECT_EQ(nullptr, ann->spouse.get());
}

TEST_F(TakenLinkTest, IsSeenByARefreshOfAnotherSession) {
    StaffModel other;
    open(other);
    const Pointer<Person> theirAnn(other.findPerson("Ann"));
    ASSERT_NE(nullptr, theirAnn->spouse.get());

    model.commit();
    theirAnn->refresh();

    EXPECT_EQ(nullptr, theirAnn->spouse.get());
}

TEST_F(TakenLinkTest, OutlivesTheUnlinkingOfTheFormerOwner) {
    commitAndBegin();
    ann->spouse = nullptr;
    model.commit();

    expectTheNewPair();
}

TEST_F(TakenLinkTest, OutlivesTheRemovalOfTheFormerOwner) {
    commitAndBegin();
    ann->remove();
    model.commit();

    expectTheNewPair();
}

TEST_F(TakenLinkTest, OutlivesTheUnlinkingInTheSameTransaction) {
    ann->spouse = nullptr;
    EXPECT_EQ(nullptr, bob->marriedTo.get());  // until the commit
    model.commit();

    expectTheNewPair();
    EXPECT_EQ(nullptr, ann->spouse.get());
}

TEST_F(TakenLinkTest, OutlivesTheRemovalInTheSameTransaction) {
    ann->remove();
    model.commit();

    expectTheNewPair();
}

TEST_F(TakenLinkTest, OutlivesTheRetryOfAnotherSession) {
    StaffModel other;
    open(other);
    other.startTransaction();
    const Pointer<Person> theirAnn(other.findPerson("Ann"));
    const Pointer<Person> theirBob(theirAnn->spouse.get());
    model.commit();

    theirAnn->spouse = nullptr;
    EXPECT_RAISES("COMFAIL", other.commit());
    theirAnn->refresh();
    theirBob->refresh();
    other.startTransaction();
    theirAnn->spouse = nullptr;
    other.commit();

    expectTheNewPair();
}

TEST_F(TakenLinkTest, IsTakenBackInMemoryByARollback) {
    ann->spouse = nullptr;
    model.rollback();

    EXPECT_EQ(bob, ann->spouse.get());
    EXPECT_EQ(ann, bob->marriedTo.get());
    EXPECT_EQ(0UL, ann->getVersion());
}

TEST_F(TakenLinkTest, GivesVersionsBackWhenTheCommitFails) {
    const Pointer<Person> dan(model.newPerson("Dan"));
    commitAndBegin();
    StaffModel other;
    open(other);
    other.findPerson("Dan")->change();
    other.commit();
    dan->change();
    ann->spouse = bob;
    EXPECT_RAISES("COMFAIL", model.commit());

    EXPECT_EQ("1", column("KesVersion", "Bob"));
    EXPECT_EQ(1UL, bob->getVersion());
    EXPECT_EQ(1UL, cid->getVersion());
    expectTheNewPair();
}

// Ann moves from the firm to the shop.
class MovedLinkTest : public LinkTest {
protected:
    MovedLinkTest() {
        shop = model.newCompany("Shop");
        ann->employer = firm;
        model.commit();
        model.startTransaction();
    }

    void expectTheShop() {
        model.commit();
        EXPECT_EQ(idOf(shop), column("employer", "Ann"));
        EXPECT_EQ(shop, ann->employer.get());
        EXPECT_TRUE(shop->staff.contains(ann));
        EXPECT_FALSE(firm->staff.contains(ann));
    }

    Pointer<Company> shop;
};

TEST_F(MovedLinkTest, StandsWhenItIsAddedBeforeTheOldOneIsRemoved) {
    shop->staff.add(ann);
    firm->staff.remove(ann);
    EXPECT_EQ(nullptr, ann->employer.get());  // until the commit
    expectTheShop();
}

TEST_F(MovedLinkTest, StandsWhenItIsAddedAfterTheOldOneIsRemoved) {
    firm->staff.remove(ann);
    shop->staff.add(ann);
    expectTheShop();
}

TEST_F(MovedLinkTest, StandsWhenItIsAssignedBeforeTheOldOneIsRemoved) {
    ann->employer = shop;
    firm->staff.remove(ann);
    expectTheShop();
}

TEST_F(MovedLinkTest, StandsWhenTheOldOneIsNotRemoved) {
    shop->staff.add(ann);
    expectTheShop();
}

TEST_F(MovedLinkTest, StandsBesideAChangeOfTheMember) {
    ann->age = 7;
    ann->change();
    shop->staff.add(ann);
    firm->staff.remove(ann);
    expectTheShop();
    EXPECT_EQ("1", column("KesVersion", "Ann"));
}

TEST_F(MovedLinkTest, StandsForANewMember) {
    const Pointer<Person> dan(model.newPerson("Dan"));
    firm->staff.add(dan);
    shop->staff.add(dan);
    firm->staff.remove(dan);
    model.commit();

    EXPECT_EQ(idOf(shop), column("employer", "Dan"));
    EXPECT_EQ(shop, dan->employer.get());
}

TEST_F(MovedLinkTest, StandsWhenSeveralAreRemovedThatNeverWere) {
    const Pointer<Company> mill(model.newCompany("Mill"));
    model.commit();
    model.startTransaction();
    mill->staff.remove(ann);
    shop->staff.remove(ann);
    model.commit();

    EXPECT_EQ(idOf(firm), column("employer", "Ann"));
    EXPECT_EQ(firm, ann->employer.get());
    EXPECT_TRUE(firm->staff.contains(ann));

    model.startTransaction();
    mill->staff.remove(ann);
    firm->staff.remove(ann);
    model.commit();
    EXPECT_EQ("", column("employer", "Ann"));
}

TEST_F(MovedLinkTest, EndsWithAPartnerThatNeverCameToBe) {
    const Pointer<Company> passing(model.newCompany("Passing"));
    passing->staff.add(ann);
    passing->remove();
    model.commit();

    EXPECT_EQ("", column("employer", "Ann"));
    EXPECT_EQ(nullptr, ann->employer.get());
    EXPECT_FALSE(firm->staff.contains(ann));
}

TEST_F(LinkTest, LeavesNobodyWithAPartnerThatWentToOneWhoNeverCameToBe) {
    ann->spouse = bob;
    model.commit();
    model.startTransaction();
    const Pointer<Person> passing(model.newPerson("Passing"));
    passing->spouse = bob;
    passing->remove();
    model.commit();

    EXPECT_EQ("", column("spouse", "Ann"));
    EXPECT_EQ("", column("marriedTo", "Bob"));
    EXPECT_EQ(nullptr, ann->spouse.get());
    EXPECT_EQ(nullptr, bob->marriedTo.get());
    ann->age = 3;
    ann->change();
    model.commit();
}

TEST_F(LinkTest, GoesWithARemovalThatLoadsNobody) {
    for (int i = 0; i < 1100; ++i)
        model.newPerson("Staff")->employer = firm;
    model.commit();
    firm.makeNull();
    StaffModel other;
    open(other);
    const Pointer<Company> theirFirm(other.findCompany("Firm"));
    const Pointer<Person> theirs(other.findPerson("Staff"));
    std::ostringstream trace;
    other.traceSQLTo(trace);

    other.startTransaction();
    theirFirm->remove();
    other.commit();

    EXPECT_EQ("0", ask("SELECT count(*) FROM [Person] WHERE [employer] IS NOT NULL"));
    EXPECT_EQ("1100", ask("SELECT count(*) FROM [Person] WHERE [KesVersion] = 1"));
    EXPECT_EQ(1UL, theirs->getVersion());
    EXPECT_EQ(nullptr, theirs->employer.get());
    const std::string text = trace.str();
    EXPECT_GE(10, std::count(text.begin(), text.end(), '\n'));
    other.undo();
    EXPECT_EQ("1100", ask("SELECT count(*) FROM [Person] WHERE [employer] = " + idOf(theirFirm)));
}

// The row is written for the one link, and emptied by the removal as well.
TEST_F(LinkTest, RaisesTheVersionOnceOfWhoIsPartedFromOneAndLosesAnother) {
    bob->children.add(ann);
    model.commit();
    StaffModel other;
    open(other);
    const Pointer<Person> theirs(other.findPerson("Ann"));
    other.startTransaction();

    other.findPerson("Cid")->children.remove(theirs);
    other.findPerson("Bob")->remove();
    other.commit();

    EXPECT_EQ("", column("parent", "Ann"));
    EXPECT_EQ(std::to_string(theirs->getVersion()), column("KesVersion", "Ann"));
    theirs->age = 7;
    theirs->change();
    other.commit();
    EXPECT_EQ("7", column("age", "Ann"));
}

// Whatever a transaction makes of one-to-one links, its undo brings back what was
// stored before, and its redo what was stored after it.
class UndoneLinkTest : public LinkTest {
protected:
    UndoneLinkTest() {
        dan = model.newPerson("Dan");
        shop = model.newCompany("Shop");
        ann->spouse = bob;
        ann->employer = firm;
        model.commit();
    }

    std::string stored() {
        std::string all;
        for (const Pointer<Person>* each : {&ann, &bob, &cid, &dan})
            for (const char* role : {"spouse", "marriedTo", "employer"})
                all += ask(std::string("SELECT [") + role +
                           "] FROM [Person] WHERE [KesObjectID] = " + idOf(*each)) +
                       (role[0] == 'e' ? "; " : ",");
        return all;
    }

    std::string shown() {
        const auto id = [](Instance* of) {
            return of != nullptr ? std::to_string(of->getObjectID()) : std::string();
        };
        std::string all;
        for (const Pointer<Person>* each : {&ann, &bob, &cid, &dan})
            all += id((*each)->spouse) + ',' + id((*each)->marriedTo) + ',' +
                   id((*each)->employer) + "; ";
        return all;
    }

    template <class Work>
    void expectToGoBackAndForth(Work work) {
        const std::string before = stored();
        model.startTransaction();
        work();
        model.commit();
        const std::string after = stored();
        EXPECT_EQ(after, shown());
        for (int i = 0; i < 2; ++i) {
            model.undo();
            EXPECT_EQ(before, stored());
            EXPECT_EQ(before, shown());
            model.redo();
            EXPECT_EQ(after, stored());
            EXPECT_EQ(after, shown());
        }
    }

    Pointer<Person> dan;
    Pointer<Company> shop;
};

TEST_F(UndoneLinkTest, SwapsPartners) {
    cid->spouse = dan;
    model.commit();
    expectToGoBackAndForth([&] {
        ann->spouse = dan;
        cid->spouse = bob;
    });
}

TEST_F(UndoneLinkTest, GivesOneTwoPartnersFromTheirSide) {
    expectToGoBackAndForth([&] {
        cid->marriedTo = dan;
        bob->marriedTo = dan;
    });
}

TEST_F(UndoneLinkTest, GivesAPartnerToTwo) {
    expectToGoBackAndForth([&] {
        cid->spouse = bob;
        dan->spouse = bob;
    });
}

TEST_F(UndoneLinkTest, GivesOneTwoPartnersFromBothSides) {
    expectToGoBackAndForth([&] {
        dan->spouse = cid;
        bob->marriedTo = dan;
    });
}

TEST_F(UndoneLinkTest, PassesAPartnerOnAndTakesAnother) {
    expectToGoBackAndForth([&] {
        cid->spouse = bob;
        ann->spouse = dan;
    });
}

TEST_F(UndoneLinkTest, LeavesACollectionTwice) {
    expectToGoBackAndForth([&] {
        ann->employer = shop;
        firm->staff.remove(ann);
    });
}

TEST_F(UndoneLinkTest, JoinsACollectionBeforeItLeavesTheOther) {
    expectToGoBackAndForth([&] {
        shop->staff.add(ann);
        firm->staff.remove(ann);
    });
}

TEST_F(UndoneLinkTest, LosesThePartnerByRemovals) {
    expectToGoBackAndForth([&] {
        cid->spouse = bob;
        ann->spouse = nullptr;
        dan->employer = firm;
        firm->remove();
    });
}

}  // namespace Kes::testing
