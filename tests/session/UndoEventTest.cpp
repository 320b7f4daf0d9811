// Undo and redo are told to listeners as any other commit.

#include <gmock/gmock.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/drivers/TemporaryFolder.h"
#include "tests/session/EventFixture.h"
#include "tests/support/Raises.h"

namespace Kes::testing {

using ::testing::IsSupersetOf;
using ::testing::UnorderedElementsAreArray;

class UndoEventTest : public EventTest {
protected:
    // Commits a transaction and forgets what was told of it.
    void commit(const std::function<void()>& changes) {
        model.startTransaction();
        changes();
        model.commit();
        log.clear();
    }

    Log undone() {
        return toldOf([&] { model.undo(); });
    }
    Log redone() {
        return toldOf([&] { model.redo(); });
    }

    Log toldOf(const std::function<void()>& work) {
        log.clear();
        work();
        return log;
    }
};

TEST_F(UndoEventTest, OfAChangeTellsOfAChange) {
    NotingListener atAnn(log, "Ann");
    ann->addListener(&atAnn);
    commit([&] { age(ann, 31); });
    const Log change{"Ann: changed Person" + id(ann), "changed Person" + id(ann)};

    EXPECT_EQ(change, undone());
    EXPECT_EQ(change, redone());
    EXPECT_EQ(change, undone());
    ann->removeListener(&atAnn);
}

TEST_F(UndoEventTest, OfAnAdditionTellsOfARemoval) {
    Pointer<Person> cid;
    commit([&] { cid = model.newPerson("Cid"); });
    NotingListener atCid(log, "Cid");
    cid->addListener(&atCid);
    const std::string person = id(cid);

    EXPECT_EQ((Log{"Cid: removed Person" + person, "removed Person" + person}), undone());
    EXPECT_EQ(Log{"added Person" + person}, redone());
    EXPECT_EQ(Log{"removed Person" + person}, undone());
}

TEST_F(UndoEventTest, OfARemovalTellsTheClassOfAnAddition) {
    NotingListener atAnn(log, "Ann");
    ann->addListener(&atAnn);
    commit([&] { ann->remove(); });

    EXPECT_EQ(Log{"added Person" + id(ann)}, undone());
    ann->addListener(&atAnn);
    EXPECT_EQ((Log{"Ann: removed Person" + id(ann), "removed Person" + id(ann)}), redone());
}

TEST_F(UndoEventTest, OfALinkReachesBothInstancesAndThenTheAssociation) {
    commit([&] { ann->employer = firm; });
    NotingListener atAnn(log, "Ann"), atFirm(log, "Firm");
    ann->addListener(&atAnn);
    firm->addListener(&atFirm);

    EXPECT_EQ(
        (Log{"Ann: unlinked Works" + id(ann) + id(firm),
             "Firm: unlinked Works" + id(firm) + id(ann), "unlinked Works" + id(ann) + id(firm)}),
        undone());
    EXPECT_EQ((Log{"Ann: linked Works" + id(ann) + id(firm),
                   "Firm: linked Works" + id(firm) + id(ann), "linked Works" + id(ann) + id(firm)}),
              redone());
    ann->removeListener(&atAnn);
    firm->removeListener(&atFirm);
}

TEST_F(UndoEventTest, OfALostLinkTellsOfALink) {
    commit([&] { ann->friends.add(bob); });
    commit([&] { ann->friends.remove(bob); });

    EXPECT_EQ(Log{"linked Friendship" + id(ann) + id(bob)}, undone());
    EXPECT_EQ(Log{"unlinked Friendship" + id(ann) + id(bob)}, undone());
}

TEST_F(UndoEventTest, TellsOfEveryObjectThatARemovalTookAlong) {
    commit([&] { bob->parent = ann; });
    commit([&] { ann->remove(); });

    EXPECT_THAT(undone(),
                UnorderedElementsAreArray(Log{"added Person" + id(ann), "added Person" + id(bob),
                                              "linked Family" + id(bob) + id(ann)}));
    EXPECT_THAT(redone(),
                IsSupersetOf(Log{"removed Person" + id(ann), "removed Person" + id(bob)}));
}

TEST_F(UndoEventTest, TellsOnceOfEachOfManyChanges) {
    Log changed{"changed Person" + id(ann)}, removed = changed, added = changed;
    commit([&] {
        for (int i = 0; i < 1000; ++i) {
            const Person* person = model.newPerson("Somebody", i);
            added.push_back("added Person" + id(person));
            removed.push_back("removed Person" + id(person));
        }
        age(ann, 31);
        age(ann, 32);
    });

    EXPECT_THAT(undone(), UnorderedElementsAreArray(removed));
    EXPECT_THAT(redone(), UnorderedElementsAreArray(added));
}

TEST_F(UndoEventTest, TellsOnceOfEachCommitOfTheTransactionThatItUndoes) {
    commit([&] { age(ann, 31); });
    age(bob, 41);
    model.commit();

    EXPECT_THAT(undone(), UnorderedElementsAreArray(
                              Log{"changed Person" + id(ann), "changed Person" + id(bob)}));
}

TEST_F(UndoEventTest, IsNotFiredByTheUndoOfAnEmptyTransaction) {
    model.startTransaction();
    model.commit();

    EXPECT_TRUE(undone().empty());
}

TEST_F(UndoEventTest, IsNotFiredWhenAnOpenTransactionIsOnlyRolledBack) {
    commit([&] { age(ann, 31); });
    model.startTransaction();
    age(bob, 41);

    EXPECT_TRUE(undone().empty());
    EXPECT_EQ(31, ann->age);
    EXPECT_EQ(40, bob->age);
}

TEST_F(UndoEventTest, IsNotFiredWithoutATransactionToUndoOrRedo) {
    commit([&] { age(ann, 31); });
    EXPECT_RAISES("Model::redo", model.redo());
    model.setMaxUndoSize(0);
    EXPECT_RAISES("Model::undo", model.undo());

    EXPECT_TRUE(log.empty());
}

TEST(UndoConflictEventTest, IsNotFiredWhenSomebodyElseChangedAnObject) {
    const TemporaryFolder folder;
    const std::string file = folder.path("staff.db");
    NotingListener::Log log;
    NotingListener listener(log);
    StaffModel model, theirs;
    model.openWith("sqlite", file.c_str());
    model.startTransaction();
    model.newPerson("Ann", 30);
    model.newPerson("Bob", 40);
    model.commit();
    theirs.openWith("sqlite", file.c_str());
    theirs.startTransaction();
    theirs.findPerson("Bob")->remove();
    theirs.commit();
    model.personClass->addListener(&listener);

    EXPECT_RAISES("Transaction::undo/redo", model.undo());

    EXPECT_TRUE(log.empty());
    EXPECT_NE(nullptr, model.findPerson("Ann"));
}

TEST_F(UndoEventTest, FindsTheTransactionEndedAndTheHistoryTurned) {
    std::string seen;
    listener.then = [&] {
        seen += model.transactionStarted() ? "started " : "ended ";
        seen += model.isPending(ann) || ann->inTransaction() ? "pending " : "settled ";
        seen += model.isRedoable() ? "redoable " : "";
        seen += isStored("Ann", ann->age) ? "stored " : "not stored ";
        seen += std::to_string(ann->age) + "; ";
    };
    commit([&] { age(ann, 31); });
    seen.clear();

    model.undo();
    model.redo();

    EXPECT_EQ("ended settled redoable stored 30; ended settled stored 31; ", seen);
}

TEST_F(UndoEventTest, CanBeAnsweredWithARedo) {
    commit([&] { age(ann, 31); });
    listener.then = [&] {
        listener.then = nullptr;
        model.redo();
    };

    EXPECT_EQ(Log(2, "changed Person" + id(ann)), undone());
    EXPECT_TRUE(isStored("Ann", 31));
    EXPECT_FALSE(model.isRedoable());
}

TEST_F(UndoEventTest, OfACommitCanBeAnsweredWithAnUndo) {
    listener.then = [&] {
        listener.then = nullptr;
        model.undo();
    };
    model.startTransaction();
    age(ann, 31);
    model.commit();

    EXPECT_EQ(Log(2, "changed Person" + id(ann)), log);
    EXPECT_TRUE(isStored("Ann", 30));
    EXPECT_TRUE(model.isRedoable());
}

TEST_F(UndoEventTest, CanBeAnsweredWithAChangeOfTheSameObject) {
    commit([&] { age(ann, 31); });
    listener.then = [&] {
        listener.then = nullptr;
        model.startTransaction();
        age(ann, 50);
        model.commit();
    };

    EXPECT_EQ(Log(2, "changed Person" + id(ann)), undone());
    EXPECT_TRUE(isStored("Ann", 50));
    EXPECT_FALSE(model.isRedoable());
    EXPECT_EQ(Log{"changed Person" + id(ann)}, undone());
    EXPECT_TRUE(isStored("Ann", 30));
}

TEST_F(UndoEventTest, ReachesTheOthersWhenAListenerThrows) {
    NotingListener second(log, "second");
    watch(second);
    commit([&] {
        age(ann, 31);
        firm->change();
    });
    listener.then = [] { throw std::runtime_error("no"); };

    EXPECT_THROW(model.undo(), std::runtime_error);

    EXPECT_EQ(4U, log.size());
    EXPECT_TRUE(isStored("Ann", 30));
    EXPECT_FALSE(model.transactionStarted());
    EXPECT_TRUE(model.isRedoable());
}

TEST_F(UndoEventTest, ReachesTheListenersOfAnObjectThatHadLeftMemory) {
    Log expected;
    commit([&] { expected = {"removed Person" + id(model.newPerson("Cid"))}; });
    model.garbageCollect();

    EXPECT_EQ(expected, undone());
}

// One test for each operation of the driver that an undo needs.
class FailedUndoTest : public UndoEventTest, public ::testing::WithParamInterface<const char*> {
protected:
    void changeEverything() {
        commit([&] { ann->employer = firm; });
        commit([&] {
            age(ann, 31);
            model.newPerson("Cid");
            bob->employer = firm;
            ann->friends.add(bob);
            ann->employer = nullptr;
        });
        if (std::string(GetParam()) == "insert")
            commit([&] { bob->remove(); });
        recording.reset();
    }
};

TEST_P(FailedUndoTest, FiresNothing) {
    changeEverything();
    recording.failAt(1, GetParam());

    EXPECT_RAISES("COMFAIL", model.undo());

    EXPECT_TRUE(log.empty());
}

TEST_P(FailedUndoTest, FiresNothingWhenTheHandlerReturns) {
    changeEverything();
    const ReturningHandler handler;
    recording.failAt(1, GetParam());

    model.undo();

    EXPECT_EQ(std::vector<std::string>{"COMFAIL"}, handler.codes());
    EXPECT_TRUE(log.empty());
}

TEST_P(FailedUndoTest, FiresAllWhenItIsTriedAgain) {
    changeEverything();
    recording.failAt(1, GetParam());
    EXPECT_RAISES("COMFAIL", model.undo());

    const Log told = undone();

    EXPECT_FALSE(told.empty());
    EXPECT_EQ(told.size(), redone().size());
    EXPECT_THAT(undone(), UnorderedElementsAreArray(told));
}

INSTANTIATE_TEST_SUITE_P(At, FailedUndoTest,
                         ::testing::Values("insert", "update", "remove", "addLink", "removeLink",
                                           "commit"),
                         [](const auto& slot) { return std::string(slot.param); });

}  // namespace Kes::testing
