#include "tests/session/UndoFixture.h"

namespace Kes::testing {

// Somebody else is at the same database, once through a model and once past the
// library.
class UndoConflictTest : public UndoTest {
protected:
    UndoConflictTest() {
        open(other);
        rank(bob, 1);
    }

    Node* theirs(const Pointer<Node>& node) { return other.node(node->getObjectID()); }

    void sql(const std::string& text) const { PlainSqlite(file).run(text); }

    void expectRefusal() {
        const std::string before = state();
        const int rankBefore = bob->rank;
        const unsigned long versionBefore = bob->getVersion();

        EXPECT_EQ(
            "Somebody else has removed or changed one of the objects you want to undo or "
            "redo, Transaction is aborted",
            messageRaisedBy([&] { model.undo(); }));

        EXPECT_EQ(before, state());
        EXPECT_EQ(rankBefore, bob->rank);
        EXPECT_EQ(versionBefore, bob->getVersion());
        EXPECT_FALSE(model.transactionStarted());
        EXPECT_FALSE(model.isPending(bob));
        EXPECT_TRUE(model.isUndoable());
        EXPECT_FALSE(model.isRedoable());
    }

    std::string state() const {
        return ask("SELECT group_concat(KesObjectID || ' ' || KesVersion || ' ' || label || ' ' || "
                   "rank || ' ' || coalesce(boss, '-') || ' ' || coalesce(mate, '-'), ';') FROM "
                   "Node") +
               ask("SELECT count(*) FROM Liking");
    }

    GraphModel other;
};

TEST_F(UndoConflictTest, RaisesItsCodeAndContextInTheOtherOrder) {
    sql("UPDATE Node SET rank = 9 WHERE KesObjectID = " + id(bob));

    try {
        model.undo();
        FAIL() << "nothing was raised";
    } catch (const Exception& raised) {
        EXPECT_STREQ("Transaction::undo/redo", raised.getCode());
        EXPECT_STREQ("UNDOREDO", raised.getContext());
        EXPECT_EQ(Exception::ERROR, raised.getSeverity());
    }
}

TEST_F(UndoConflictTest, IsRefusedWhenAnotherModelChangedAnObject) {
    other.startTransaction();
    theirs(bob)->change();
    theirs(bob)->label = "theirs";
    other.commit();

    expectRefusal();
}

TEST_F(UndoConflictTest, IsRefusedWhenTheChangeWasSeenMeanwhile) {
    other.startTransaction();
    theirs(bob)->change();
    theirs(bob)->label = "theirs";
    other.commit();
    bob->refresh();

    expectRefusal();
    EXPECT_STREQ("theirs", bob->label);
}

TEST_F(UndoConflictTest, IsRefusedWhenAnotherModelRemovedAnObject) {
    other.startTransaction();
    theirs(bob)->remove();
    other.commit();

    expectRefusal();
}

TEST_F(UndoConflictTest, IsRefusedWhenAValueWasChangedPastTheLibrary) {
    sql("UPDATE Node SET label = 'x' WHERE KesObjectID = " + id(bob));

    expectRefusal();
}

TEST_F(UndoConflictTest, IsRefusedWhenAnObjectThatIsNotInMemoryWasChanged) {
    const unsigned long number = bob->getObjectID();
    for (Pointer<Node>* each : {&ann, &bob, &cid, &dan, &eve, &fay})
        *each = nullptr;
    model.garbageCollect();
    sql("UPDATE Node SET label = 'x' WHERE KesObjectID = " + std::to_string(number));

    EXPECT_RAISES("Transaction::undo/redo", model.undo());

    EXPECT_EQ("x", ask("SELECT label FROM Node WHERE KesObjectID = " + std::to_string(number)));
}

TEST_F(UndoConflictTest, IsRefusedWhenAReferenceWasChangedPastTheLibrary) {
    transaction([&] { cid->boss = bob; });
    sql("UPDATE Node SET boss = NULL WHERE KesObjectID = " + id(cid));

    expectRefusal();
    EXPECT_EQ(bob.getInstance(), cid->boss.get());
}

TEST_F(UndoConflictTest, IsRefusedWhenTheFormerPartnerIsGone) {
    transaction([&] { cid->boss = bob; });
    sql("DELETE FROM Node WHERE KesObjectID = " + id(ann));

    expectRefusal();
}

TEST_F(UndoConflictTest, IsRefusedWhenAnEndOfALinkIsGone) {
    transaction([&] { cid->likes.add(static_cast<Node*>(eve)); });
    sql("DELETE FROM Node WHERE KesObjectID = " + id(eve));

    expectRefusal();
    EXPECT_TRUE(cid->likes.contains(static_cast<Node*>(eve)));
}

TEST_F(UndoConflictTest, IsRefusedWhenARemovedObjectIsThereAgain) {
    const std::string columns = ask("SELECT group_concat(name) FROM pragma_table_info('Node')");
    sql("CREATE TABLE kept AS SELECT * FROM Node WHERE KesObjectID = " + id(bob));
    transaction([&] { bob->remove(); });
    sql("INSERT INTO Node (" + columns + ") SELECT " + columns + " FROM kept");

    expectRefusal();
    EXPECT_TRUE(bob->isRemoved());
}

TEST_F(UndoConflictTest, IsRefusedWholeWhenOneObjectOfManyWasChanged) {
    transaction([&] {
        for (Node* each : {static_cast<Node*>(ann), static_cast<Node*>(bob),
                           static_cast<Node*>(cid), static_cast<Node*>(dan)}) {
            each->change();
            each->rank = 3;
        }
        eve->remove();
        model.newNode("Gus");
    });
    sql("UPDATE Node SET rank = 4 WHERE KesObjectID = " + id(dan));

    expectRefusal();
    EXPECT_TRUE(eve->isRemoved());
    EXPECT_EQ(3, ann->rank);
}

TEST_F(UndoConflictTest, IsAllowedForObjectsThatNobodyTouched) {
    other.startTransaction();
    theirs(cid)->change();
    theirs(cid)->rank = 5;
    other.commit();

    model.undo();

    EXPECT_EQ(0, bob->rank);
    EXPECT_EQ("5", column("rank", cid));
}

TEST_F(UndoConflictTest, RefusesARedoAsWell) {
    model.undo();
    sql("UPDATE Node SET rank = 9 WHERE KesObjectID = " + id(bob));

    EXPECT_RAISES("Transaction::undo/redo", model.redo());

    EXPECT_TRUE(model.isRedoable());
    EXPECT_EQ("9", column("rank", bob));
}

TEST_F(UndoConflictTest, SucceedsOnceTheOldStateIsBack) {
    sql("UPDATE Node SET rank = 9 WHERE KesObjectID = " + id(bob));
    EXPECT_RAISES("Transaction::undo/redo", model.undo());
    sql("UPDATE Node SET rank = 1 WHERE KesObjectID = " + id(bob));

    model.undo();

    EXPECT_EQ(0, bob->rank);
}

TEST_F(UndoConflictTest, RollsBackForAHandlerThatReturns) {
    sql("UPDATE Node SET rank = 9 WHERE KesObjectID = " + id(bob));
    const ReturningHandler handler;

    model.undo();

    EXPECT_EQ((std::vector<std::string>{"Transaction::undo/redo"}), handler.codes());
    EXPECT_FALSE(model.transactionStarted());
    EXPECT_EQ(1, bob->rank);
    EXPECT_TRUE(model.isUndoable());
}

}  // namespace Kes::testing
