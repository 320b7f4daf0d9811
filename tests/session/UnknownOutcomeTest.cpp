// A commit of which nobody knows whether it is stored: in each test once it is,
// and once it is not.

#include <gtest/gtest.h>

#include "tests/support/Raises.h"
#include "tests/support/Recording.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

class UnknownOutcomeTest : public ::testing::TestWithParam<bool> {
protected:
    UnknownOutcomeTest() {
        recording.reset();
        model.openWith("recording");
        model.startTransaction();
        ann = model.newPerson("Ann", 30);
        bob = model.newPerson("Bob", 40);
        firm = model.newCompany("Firm");
        model.commit();
        model.startTransaction();
        ann->friends.add(bob);
        model.commit();
    }
    ~UnknownOutcomeTest() override { recording.reset(); }

    bool isStored() const { return GetParam(); }

    void loseTheAnswer() {
        recording.kind = FailureKind::UnknownOutcome;
        recording.storeWhatFails(isStored());
        recording.failAt(1, "commit");
        EXPECT_RAISES("COMFAIL", model.commit());
        EXPECT_EQ(FailureKind::UnknownOutcome, model.getFailureKind());
    }

    void changeEverything(bool starts = true) {
        if (starts)
            model.startTransaction();
        ann->change();
        ann->age = 31;
        bob->employer = firm;
        ann->friends.remove(bob);
        ann->children.add(bob);
        cid = model.newPerson("Cid", 50);
        ann->friendOf.add(cid);
    }

    StaffModel model;
    Recording& recording = Recording::get();
    Pointer<Person> ann, bob, cid;
    Pointer<Company> firm;
};

TEST_P(UnknownOutcomeTest, LeavesFieldsAndReferencesAsBefore) {
    changeEverything();

    loseTheAnswer();

    EXPECT_FALSE(model.transactionStarted());
    EXPECT_EQ(30, ann->age);
    EXPECT_EQ(nullptr, bob->employer.get());
    EXPECT_EQ(0UL, cid->getObjectID());
    for (const Pointer<Person>& each : {ann, bob, cid})
        EXPECT_FALSE(model.isPending(each) || each->inTransaction());
}

TEST_P(UnknownOutcomeTest, ReadsCollectionsAgain) {
    changeEverything();

    loseTheAnswer();

    EXPECT_EQ(isStored() ? 0U : 1U, ann->friends.size());
    EXPECT_EQ(isStored() ? 1U : 0U, ann->children.size());
    EXPECT_EQ(isStored() ? 1U : 0U, firm->staff.size());
    EXPECT_EQ(isStored() ? 1U : 0U, ann->friendOf.size());
}

TEST_P(UnknownOutcomeTest, IsLookedUpByARefreshAndAQuery) {
    changeEverything();

    loseTheAnswer();
    ann->refresh();
    bob->refresh();

    EXPECT_EQ(isStored() ? 31 : 30, ann->age);
    EXPECT_EQ(isStored() ? firm.getInstance() : nullptr, bob->employer.get());
    EXPECT_EQ(isStored(), model.findPerson("Cid") != nullptr);
}

TEST_P(UnknownOutcomeTest, LosesNoUpdateToWhoDoesNotLook) {
    changeEverything();
    loseTheAnswer();

    model.startTransaction();
    ann->change();
    ann->age += 1;
    EXPECT_EQ(isStored() ? "COMFAIL" : "", codeRaisedBy([&] { model.commit(); }));

    EXPECT_EQ(isStored() ? FailureKind::Conflict : FailureKind::None, model.getFailureKind());
    ann->refresh();
    EXPECT_EQ(31, ann->age);
}

TEST_P(UnknownOutcomeTest, OfARemovalIsToldByARefresh) {
    model.startTransaction();
    bob->remove();
    loseTheAnswer();
    EXPECT_FALSE(bob->isRemoved());

    model.startTransaction();
    bob->change();
    bob->age = 41;

    EXPECT_EQ(isStored() ? "COMFAIL" : "", codeRaisedBy([&] { model.commit(); }));
}

TEST_P(UnknownOutcomeTest, IsNoPartOfTheHistory) {
    changeEverything(false);  // which opens no place of its own
    loseTheAnswer();
    ann->refresh();

    model.undo();

    EXPECT_EQ(0U, ann->friends.size());
    EXPECT_EQ(isStored() ? 31 : 30, ann->age);
}

TEST_P(UnknownOutcomeTest, OfAnUndoKeepsItInTheHistory) {
    model.startTransaction();
    ann->change();
    ann->age = 31;
    model.commit();
    recording.kind = FailureKind::UnknownOutcome;
    recording.storeWhatFails(isStored());
    recording.failAt(1, "commit");
    EXPECT_RAISES("COMFAIL", model.undo());
    EXPECT_EQ(FailureKind::UnknownOutcome, model.getFailureKind());
    EXPECT_EQ(31, ann->age);

    // What is stored already is not what the transaction left behind.
    EXPECT_EQ(isStored() ? "Transaction::undo/redo" : "", codeRaisedBy([&] { model.undo(); }));

    ann->refresh();
    EXPECT_EQ(30, ann->age);
}

INSTANTIATE_TEST_SUITE_P(ThatIs, UnknownOutcomeTest, ::testing::Bool(),
                         [](const auto& stored) { return stored.param ? "Stored" : "Not"; });

}  // namespace Kes::testing
