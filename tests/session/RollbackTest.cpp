#include <gtest/gtest.h>

#include "tests/support/Raises.h"
#include "tests/support/Recording.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

// Ann works for a firm, is married to Bob and knows Cid; all are stored.
class RollbackTest : public ::testing::Test {
protected:
    RollbackTest() {
        recording.reset();
        model.openWith("recording");
        model.startTransaction();
        firm = model.newCompany("Firm");
        ann = model.newPerson("Ann", 30);
        bob = model.newPerson("Bob", 40);
        cid = model.newPerson("Cid", 50);
        ann->employer = firm;
        ann->spouse = bob;
        ann->friends.add(cid);
        model.commit();
        recording.reset();
    }
    ~RollbackTest() override { recording.reset(); }

    // Changes of every kind in one transaction.
    void changeEverything() {
        model.startTransaction();
        other = model.newCompany("Other");
        fresh = model.newPerson("Dan", 60);
        ann->age = 31;
        ann->change();
        bob->change();
        bob->age = 41;
        ann->employer = other;
        ann->spouse = fresh;
        ann->friends.remove(cid);
        ann->friends.add(bob);
        firm->staff.add(bob);
        cid->remove();
    }

    void expectEverythingAsBefore() {
        EXPECT_EQ(30, ann->age);
        EXPECT_EQ(40, bob->age);
        EXPECT_EQ(firm.getInstance(), ann->employer.get());
        EXPECT_EQ(bob.getInstance(), ann->spouse.get());
        EXPECT_EQ(ann.getInstance(), bob->marriedTo.get());
        EXPECT_EQ(nullptr, bob->employer.get());
        EXPECT_TRUE(ann->friends.contains(cid.getInstance() ? static_cast<Person*>(cid) : nullptr));
        EXPECT_EQ(1U, ann->friends.size());
        EXPECT_EQ(1U, cid->friendOf.size());
        EXPECT_TRUE(firm->staff.contains(static_cast<Person*>(ann)));
        EXPECT_EQ(1U, firm->staff.size());
        EXPECT_FALSE(cid->isRemoved());
        EXPECT_EQ(versions, currentVersions());
        EXPECT_FALSE(model.transactionStarted());
        for (const Instance* each : {ann.getInstance(), bob.getInstance(), cid.getInstance()}) {
            EXPECT_FALSE(each->inTransaction());
            EXPECT_FALSE(model.isPending(each));
        }
    }

    std::vector<unsigned long> currentVersions() const {
        return {ann->getVersion(), bob->getVersion(), cid->getVersion(), firm->getVersion()};
    }

    Recording& recording = Recording::get();
    StaffModel model;
    Pointer<Company> firm;
    Pointer<Company> other;
    Pointer<Person> ann;
    Pointer<Person> bob;
    Pointer<Person> cid;
    Pointer<Person> fresh;
    std::vector<unsigned long> versions;
};

TEST_F(RollbackTest, BringsMemoryBack) {
    versions = currentVersions();
    changeEverything();

    model.rollback();

    expectEverythingAsBefore();
}

TEST_F(RollbackTest, TakesTheIdsOfNewObjectsBack) {
    changeEverything();
    const unsigned long id = fresh->getObjectID();

    model.rollback();

    EXPECT_EQ(0UL, fresh->getObjectID());
    EXPECT_EQ(nullptr, model.get(id));
}

TEST_F(RollbackTest, LetsANewObjectBeAddedAgain) {
    model.startTransaction();
    fresh = model.newPerson("Dan", 60);
    model.rollback();

    model.startTransaction();
    fresh->add();
    model.commit();

    EXPECT_EQ(fresh.getInstance(), model.findPerson("Dan"));
}

class FailureAtTest : public RollbackTest, public ::testing::WithParamInterface<int> {};

// The commit of changeEverything makes 11 calls.
TEST_P(FailureAtTest, LeavesMemoryAndDatabaseAsTheyWere) {
    versions = currentVersions();
    changeEverything();
    recording.reset();
    recording.failAt(GetParam());

    EXPECT_RAISES("COMFAIL", model.commit());

    ASSERT_TRUE(recording.hasFailed());
    expectEverythingAsBefore();
    EXPECT_EQ(nullptr, model.findCompany("Other"));
    recording.reset();
    changeEverything();
    model.commit();
    EXPECT_NE(nullptr, model.findCompany("Other"));
    EXPECT_EQ(nullptr, model.findPerson("Cid"));
}

INSTANTIATE_TEST_SUITE_P(EveryCall, FailureAtTest, ::testing::Range(1, 12));

TEST_F(RollbackTest, SaysWhyTheCommitFailed) {
    changeEverything();
    recording.reset();
    recording.failAt(2);

    EXPECT_EQ("insert was told to fail", messageRaisedBy([&] { model.commit(); }));
}

TEST_F(RollbackTest, CallsTheDriverNoFurtherAfterAFailure) {
    changeEverything();
    recording.reset();
    recording.failAt(1, "insert");

    EXPECT_RAISES("COMFAIL", model.commit());

    EXPECT_EQ(1U, recording.only("insert").size());
    EXPECT_EQ(0U, recording.only("update").size());
    EXPECT_EQ(1U, recording.only("rollback").size());
    EXPECT_EQ(0U, recording.only("commit").size());
}

TEST_F(RollbackTest, LetsASecondTrySucceed) {
    ann->age = 31;
    ann->change();
    recording.failAt(1, "commit");
    EXPECT_RAISES("COMFAIL", model.commit());

    ann->age = 32;
    ann->change();
    model.commit();

    EXPECT_EQ(32, model.findPerson("Ann")->age);
}

TEST_F(RollbackTest, CountsADriverThatThrowsAsFailed) {
    versions = currentVersions();
    changeEverything();
    recording.reset();
    recording.throwInsteadOfFailing(true);
    recording.failAt(3);

    EXPECT_EQ("told to throw", messageRaisedBy([&] { model.commit(); }));

    expectEverythingAsBefore();
}

TEST_F(RollbackTest, ReturnsToTheCallerWhenTheHandlerReturns) {
    versions = currentVersions();
    changeEverything();
    const ReturningHandler handler;
    recording.reset();
    recording.failAt(2);

    model.commit();

    EXPECT_EQ(std::vector<std::string>{"COMFAIL"}, handler.codes());
    expectEverythingAsBefore();
}

TEST_F(RollbackTest, RaisesROLLFAILWhenTheDriverCannot) {
    recording.failAt(1, "rollback");

    EXPECT_RAISES("ROLLFAIL", model.rollback());
}

TEST(RollbackDeathTest, EndsTheProcessWhenTheDriverCannot) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            StaffModel model;
            model.openWith("recording");
            const ReturningHandler handler;
            Recording::get().failAt(1, "rollback");
            model.rollback();
        },
        ::testing::ExitedWithCode(1), "");
}

}  // namespace Kes::testing
