#include "tests/drivers/DriverTest.h"
#include "tests/support/Raises.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

// Ann and Bob are 70 together, and may not be younger than that. Each of two
// sessions reads both, finds that one of them is older than needed, and makes the
// one younger that the other session does not touch.
class IsolationTest : public DriverTest {
protected:
    struct Side {
        StaffModel model;
        Pointer<Person> ann;
        Pointer<Person> bob;
    };

    IsolationTest() {
        StaffModel model;
        open(model);
        model.startTransaction();
        model.newPerson("Ann", 40);
        model.newPerson("Bob", 40);
        model.commit();
    }

    void openBoth(const std::string& options) {
        for (Side* side : {&mine, &theirs})
            open(side->model, options + ";" + engine->waitingAtMost(1000));
    }

    void startAndRead(Side& side) {
        side.model.startTransaction();
        side.ann = side.model.findPerson("Ann");
        side.bob = side.model.findPerson("Bob");
    }

    static void makeYounger(Person* person) {
        person->change();
        person->age -= 10;
    }

    std::string sum() { return ask("SELECT sum([age]) FROM [Person]"); }

    Side mine;
    Side theirs;
};

TEST_F(IsolationTest, LetsTwoReadWhatTheOtherOneWrites) {
    openBoth("");
    startAndRead(mine);
    startAndRead(theirs);
    makeYounger(mine.ann);
    makeYounger(theirs.bob);

    mine.model.commit();
    theirs.model.commit();

    EXPECT_EQ("60", sum());
}

TEST_F(IsolationTest, KeepsTwoFromItThatLockWhatTheyRead) {
    openBoth("");
    startAndRead(mine);
    startAndRead(theirs);
    mine.bob->lock();
    makeYounger(mine.ann);
    makeYounger(theirs.bob);

    // Of two at the same time one waits; here it waits for nobody who goes on.
    const std::string said = messageRaisedBy([&] { theirs.model.commit(); });
    mine.model.commit();

    EXPECT_NE("", said);
    EXPECT_EQ("70", sum());
}

TEST_F(IsolationTest, KeepsTwoFromItThatChangeWhatTheyRead) {
    openBoth("");
    startAndRead(mine);
    startAndRead(theirs);
    makeYounger(mine.ann);
    mine.bob->change();
    makeYounger(theirs.bob);
    theirs.ann->change();
    mine.model.commit();

    const std::string said = messageRaisedBy([&] { theirs.model.commit(); });

    EXPECT_TRUE(says(said, "somebody else has changed it")) << said;
    EXPECT_EQ("70", sum());
}

TEST_F(IsolationTest, KeepsTwoFromItAtTheStrongestLevel) {
    openBoth("isolation=serializable");
    startAndRead(mine);
    startAndRead(theirs);
    makeYounger(mine.ann);
    makeYounger(theirs.bob);

    const std::string first = messageRaisedBy([&] { mine.model.commit(); });
    const std::string second = messageRaisedBy([&] { theirs.model.commit(); });

    EXPECT_NE(first.empty(), second.empty()) << first << second;
    EXPECT_EQ("70", sum());
    Side& loser = first.empty() ? theirs : mine;
    loser.model.startTransaction();
    loser.ann->refresh();
    loser.bob->refresh();
    EXPECT_EQ(70, loser.ann->age + loser.bob->age);
    makeYounger(loser.ann);
    loser.model.commit();
    EXPECT_EQ("60", sum());
}

TEST_F(IsolationTest, ReadsOneStateWithinATransactionAtTheStrongestLevel) {
    open(mine.model, "isolation=serializable");
    open(theirs.model, engine->waitingAtMost(1000));
    theirs.ann = theirs.model.findPerson("Ann");
    mine.model.startTransaction();
    mine.bob = mine.model.findPerson("Bob");
    theirs.model.startTransaction();
    makeYounger(theirs.ann);
    const std::string said = messageRaisedBy([&] { theirs.model.commit(); });

    // Ann has not been read before; the other session waits, or is not seen.
    EXPECT_EQ(40, mine.model.findPerson("Ann")->age);

    mine.model.commit();
    EXPECT_EQ(said.empty() ? "70" : "80", sum());
}

// One links to an object, and the other one removes it in a transaction that
// began before.
class RemovalTest : public DriverTest, public ::testing::WithParamInterface<std::string> {
protected:
    RemovalTest() {
        for (StaffModel* model : {&mine, &theirs})
            open(*model, GetParam() + engine->waitingAtMost(1000));
        mine.startTransaction();
        ann = mine.newPerson("Ann");
        bob = mine.newPerson("Bob");
        firm = mine.newCompany("Firm");
        mine.commit();
        theirBob = theirs.findPerson("Bob");
        theirFirm = theirs.findCompany("Firm");
        theirs.startTransaction();
        theirs.findPerson("Ann");
    }

    // The other one's removal, when mine has committed, or had to wait in vain.
    void expectNothingDangling(const std::string& mineSaid) {
        theirBob->remove();
        theirFirm->remove();
        const std::string said = messageRaisedBy([&] { theirs.commit(); });

        EXPECT_TRUE(said.empty() || mineSaid.empty()) << said << mineSaid;
        EXPECT_EQ(
            "0",
            ask("SELECT count(*) FROM [Person] WHERE [employer] IS NOT NULL AND [employer] NOT IN "
                "(SELECT [KesObjectID] FROM [Company])"));
        EXPECT_EQ(
            "0", ask("SELECT count(*) FROM [Person] WHERE [parent] IS NOT NULL AND [parent] NOT IN "
                     "(SELECT [KesObjectID] FROM [Person])"));
        EXPECT_EQ("0", ask("SELECT count(*) FROM [Friendship] WHERE [friends] NOT IN "
                           "(SELECT [KesObjectID] FROM [Person])"));
        EXPECT_EQ("0", ask("SELECT count(*) FROM [Friendship] WHERE [friendOf] NOT IN "
                           "(SELECT [KesObjectID] FROM [Person])"));
    }

    StaffModel mine;
    StaffModel theirs;
    Pointer<Person> ann;
    Pointer<Person> bob;
    Pointer<Company> firm;
    Pointer<Person> theirBob;
    Pointer<Company> theirFirm;
};

TEST_P(RemovalTest, LeavesNoReference) {
    ann->employer = firm;

    expectNothingDangling(messageRaisedBy([&] { mine.commit(); }));
}

TEST_P(RemovalTest, LeavesNoReferenceToAMember) {
    bob->children.add(ann);

    expectNothingDangling(messageRaisedBy([&] { mine.commit(); }));
}

TEST_P(RemovalTest, LeavesNoLinkInATableOfItsOwn) {
    ann->friends.add(bob);

    expectNothingDangling(messageRaisedBy([&] { mine.commit(); }));
}

TEST_P(RemovalTest, LeavesNoLinkThatTheRemovedOneMade) {
    bob->friends.add(ann);

    expectNothingDangling(messageRaisedBy([&] { mine.commit(); }));
}

INSTANTIATE_TEST_SUITE_P(Default, RemovalTest, ::testing::Values(""));
INSTANTIATE_TEST_SUITE_P(Levels, RemovalTest,
                         ::testing::Values("isolation=repeatable read;",
                                           "isolation=serializable;"));

}  // namespace Kes::testing
