// What a failed read leaves behind, above all when the exception handler
// returns and the caller goes on.

#include "tests/session/UndoFixture.h"

namespace Kes::testing {

namespace {

class CountingListener final : public Listener {
public:
    void instanceChanged(const InstanceEvent&) override { ++changed; }

    int changed = 0;
};

}  // namespace

class LoadFailureTest : public UndoTest {
protected:
    // Frees all objects, so that bob comes back with references that are not
    // loaded.
    LoadFailureTest() {
        const unsigned long number = bob->getObjectID();
        for (Pointer<Node>* each : {&ann, &bob, &cid, &dan, &eve, &fay})
            *each = nullptr;
        model.garbageCollect();
        bob = model.node(number);
        recording.reset();
    }

    // Of bob, with an exception handler that throws or one that returns.
    void refuseChange(bool returns) {
        if (!returns) {
            EXPECT_RAISES("REFFAIL", bob->change());
            return;
        }
        const ReturningHandler handler;
        bob->change();
        EXPECT_EQ((std::vector<std::string>{"REFFAIL"}), handler.codes());
    }
};

TEST_F(LoadFailureTest, LeavesAOneToTheNextRead) {
    const ReturningHandler handler;
    for (const char* slot : {"defineSelection", "fetch", "cursor.getInstance"}) {
        recording.failAt(1, slot);
        EXPECT_EQ(nullptr, bob->boss.get()) << slot;
        EXPECT_FALSE(bob->boss.isFetched()) << slot;
        recording.reset();
    }

    ASSERT_NE(nullptr, bob->boss.get());
    EXPECT_STREQ("Ann", bob->boss->label);
}

TEST_F(LoadFailureTest, LeavesAManyToTheNextRead) {
    const ReturningHandler handler;
    for (const char* slot : {"defineSelection", "fetch", "cursor.getInstance"}) {
        recording.failAt(1, slot);
        EXPECT_EQ(0U, bob->likedBy.size()) << slot;
        EXPECT_FALSE(bob->likedBy.isFetched()) << slot;
        recording.reset();
    }

    EXPECT_EQ(1U, bob->likedBy.size());
}

TEST_F(LoadFailureTest, RefusesToReplaceAPartnerThatCannotBeLoaded) {
    const ReturningHandler handler;
    model.startTransaction();
    recording.failAt(1, "fetch");

    bob->boss = nullptr;

    EXPECT_EQ((std::vector<std::string>{"SELERR"}), handler.codes());
    EXPECT_FALSE(model.isPending(bob));
    model.commit();
    EXPECT_NE("", column("boss", bob));
    EXPECT_STREQ("Ann", bob->boss->label);
}

TEST_F(LoadFailureTest, LeavesAnObjectUnremovedWhoseReferencesCannotBeLoaded) {
    const ReturningHandler handler;
    for (int n = 1; n <= 3; ++n) {
        model.startTransaction();
        recording.failAt(n, "fetch");

        bob->remove();

        EXPECT_TRUE(recording.hasFailed()) << n;
        EXPECT_FALSE(bob->isRemoved()) << n;
        recording.reset();
        model.rollback();
    }
    model.startTransaction();
    bob->remove();
    model.commit();
    EXPECT_EQ("5", ask("SELECT count(*) FROM Node"));
}

TEST_F(LoadFailureTest, RefusesAChangeWhoseStateBeforeCannotBeRead) {
    bob->rank = 1;
    recording.failAt(1, "refresh");

    EXPECT_RAISES("REFFAIL", bob->change());

    EXPECT_FALSE(model.isPending(bob));
    recording.reset();
    bob->change();
    model.commit();
    EXPECT_EQ("1", column("rank", bob));
    model.undo();
    EXPECT_EQ(0, bob->rank);
}

TEST_F(LoadFailureTest, TakesBackWhatWasAssignedBeforeARefusedChange) {
    for (const bool returns : {false, true}) {
        model.startTransaction();
        bob->rank = 1;
        recording.failAt(1, "refresh");
        refuseChange(returns);
        recording.reset();

        model.rollback();

        EXPECT_EQ(0, bob->rank);
        rank(bob, 5);
        EXPECT_EQ("5", column("rank", bob));
        model.undo();
        EXPECT_EQ(0, bob->rank);
    }
}

TEST_F(LoadFailureTest, CommitsNothingOfATransactionWhoseChangeWasRefused) {
    for (const bool returns : {false, true}) {
        model.startTransaction();
        model.newNode()->label = "Gil";
        bob->rank = 1;
        recording.failAt(1, "refresh");
        refuseChange(returns);
        recording.reset();

        const std::string message = messageRaisedBy([&] { model.commit(); });

        EXPECT_NE(std::string::npos,
                  message.find("Node object with id " + id(bob) + " was refused"))
            << message;
        EXPECT_EQ(0, bob->rank);
        EXPECT_EQ("0", ask("SELECT count(*) FROM Node WHERE label = 'Gil' OR rank = 1"));
    }
}

TEST_F(LoadFailureTest, StoresAChangeThatWasRefusedAtFirst) {
    model.startTransaction();
    bob->rank = 1;
    recording.failAt(1, "refresh", true);
    refuseChange(false);
    refuseChange(false);
    recording.reset();

    bob->change();
    model.commit();

    EXPECT_EQ("1", column("rank", bob));
    model.undo();
    EXPECT_EQ(0, bob->rank);
}

TEST_F(LoadFailureTest, WritesNothingOfWhatItCannotReadUntilARefresh) {
    model.startTransaction();
    bob->rank = 1;
    recording.failAt(1, "refresh", true);
    refuseChange(false);
    model.rollback();
    recording.reset();
    ASSERT_EQ(1, bob->rank);
    model.startTransaction();
    bob->remove();
    EXPECT_RAISES("COMFAIL", model.commit());

    bob->refresh();

    EXPECT_EQ(0, bob->rank);
    rank(bob, 5);
    EXPECT_EQ("5", column("rank", bob));
}

TEST_F(LoadFailureTest, StoresAChangeThatWasRefusedInAnEarlierTransaction) {
    model.startTransaction();
    bob->rank = 1;
    recording.failAt(1, "refresh", true);
    refuseChange(false);
    model.rollback();
    recording.reset();

    transaction([&] { bob->change(); });

    EXPECT_EQ("1", column("rank", bob));
}

TEST_F(LoadFailureTest, TellsWhatSomebodyElseChangedMeanwhile) {
    CountingListener listener;
    bob->addListener(&listener);
    model.startTransaction();
    bob->rank = 1;
    recording.failAt(1, "refresh");
    refuseChange(false);
    recording.reset();
    PlainSqlite(file).run(
        "UPDATE Node SET rank = 7, KesVersion = KesVersion + 1 WHERE "
        "KesObjectID = " +
        id(bob));

    model.rollback();

    EXPECT_EQ(7, bob->rank);
    EXPECT_EQ(1, listener.changed);
    bob->removeListener(&listener);
}

TEST_F(LoadFailureTest, TellsOfAChangeAlsoWhenTheDriverCannot) {
    CountingListener listener;
    bob->addListener(&listener);
    PlainSqlite(file).run(
        "UPDATE Node SET rank = 7, KesVersion = KesVersion + 1 WHERE "
        "KesObjectID = " +
        id(bob));
    recording.failAt(1, "getStatus", true);

    bob->refresh();

    EXPECT_EQ(7, bob->rank);
    EXPECT_EQ(1, listener.changed);
    bob->removeListener(&listener);
}

TEST_F(LoadFailureTest, KeepsARefusedObjectFromTheCollection) {
    model.startTransaction();
    bob->rank = 1;
    recording.failAt(1, "refresh");
    refuseChange(false);
    const unsigned long number = bob->getObjectID();
    recording.reset();
    bob = nullptr;

    model.garbageCollect();
    model.rollback();

    bob = static_cast<Node*>(model.get(number));
    ASSERT_NE(nullptr, bob);
    EXPECT_EQ(0, bob->rank);
}

TEST_F(LoadFailureTest, CountsADriverThatThrowsWhileAStateIsReadAsFailed) {
    bob->rank = 1;
    recording.throwInsteadOfFailing(true);
    recording.failAt(1, "refresh");

    EXPECT_EQ("told to throw", messageRaisedBy([&] { bob->change(); }));

    EXPECT_FALSE(model.isPending(bob));
}

TEST_F(LoadFailureTest, GivesAnUndoUpWhoseObjectsCannotBeLoaded) {
    transaction([&] { bob->boss = nullptr; });
    bob = nullptr;
    model.garbageCollect();
    const ReturningHandler handler;
    for (const char* slot : {"refresh", "fetch"}) {
        recording.failAt(1, slot);
        model.undo();
        EXPECT_TRUE(recording.hasFailed()) << slot;
        EXPECT_TRUE(model.isUndoable()) << slot;
        EXPECT_FALSE(model.isRedoable()) << slot;
        recording.reset();
    }

    EXPECT_EQ((std::vector<std::string>{"REFFAIL", "SELERR"}), handler.codes());
    model.undo();
    EXPECT_EQ("2", ask("SELECT count(*) FROM Node WHERE boss IS NOT NULL"));
}

}  // namespace Kes::testing
