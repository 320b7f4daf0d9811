// The driver fails at every call that an undo makes.

#include "tests/session/UndoFixture.h"

namespace Kes::testing {

class UndoFailureTest : public UndoTest {
protected:
    // Changes of every kind, in one transaction.
    void changeEverything() {
        transaction([&] {
            gus = model.newNode("Gus");
            gus->mate = cid;
            bob->change();
            bob->rank = 1;
            cid->boss = bob;
            ann->likes.remove(static_cast<Node*>(bob));
            bob->likes.add(static_cast<Node*>(gus));
            cid->likes.add(static_cast<Node*>(bob));
            dan->remove();
        });
    }

    std::vector<std::string> state() const {
        std::vector<std::string> state;
        for (const Pointer<Node>* each : {&ann, &bob, &cid, &dan, &eve, &fay, &gus}) {
            const Node* node = *each;
            state.push_back(std::to_string(node->rank) + (node->isRemoved() ? " removed " : " ") +
                            std::to_string(node->getVersion()) +
                            (node->inTransaction() ? "!" : ""));
            if (node->isRemoved())
                continue;
            state.back() += " " + number(node->boss) + number(node->whole) + number(node->mate) +
                            number(node->mateOf) + numbers(node->team) + numbers(node->parts) +
                            numbers(node->likes) + numbers(node->likedBy);
        }
        return state;
    }

    std::string stored() const {
        return ask("SELECT group_concat(KesObjectID || ' ' || KesVersion || ' ' || rank || ' ' || "
                   "coalesce(boss, '-') || ' ' || coalesce(mate, '-') || ' ' || coalesce(mateOf, "
                   "'-') || ' ' || coalesce(whole, '-'), ';') FROM Node") +
               ask("SELECT group_concat(likes || '-' || likedBy, ';') FROM (SELECT * FROM Liking "
                   "ORDER BY likes, likedBy)");
    }

    // Fails the n-th call for all n; `back` turns the work round for the next one.
    template <class Work, class Back>
    int failEveryCall(Work work, Back back) {
        int failures = 0;
        for (int n = 1; n < 200; ++n) {
            const std::vector<std::string> memory = state();
            const std::string database = stored();
            recording.reset();
            recording.failAt(n);
            const std::string code = codeRaisedBy(work);
            const bool failed = recording.hasFailed();
            recording.reset();
            if (!failed)
                return failures;
            ++failures;
            EXPECT_NE("", code) << n;
            EXPECT_EQ(memory, state()) << n;
            EXPECT_EQ(database, stored()) << n;
            EXPECT_FALSE(model.transactionStarted()) << n;
            work();
            EXPECT_NE(database, stored()) << n;
            back();
        }
        ADD_FAILURE() << "there is no end";
        return failures;
    }

    Pointer<Node> gus;

private:
    static std::string number(const One<Node>& ref) {
        const Node* node = ref.get();
        return node == nullptr ? "- " : std::to_string(node->getObjectID()) + " ";
    }
    static std::string numbers(const Many<Node>& ref) {
        std::set<unsigned long> ids;
        for (const Node* node : ref)
            ids.insert(node->getObjectID());
        std::string text = "(";
        for (const unsigned long each : ids)
            text += std::to_string(each) + " ";
        return text + ") ";
    }
};

TEST_F(UndoFailureTest, LeavesMemoryAndDatabaseAsTheyWereWhicheverCallOfAnUndoFails) {
    changeEverything();

    EXPECT_LT(10, failEveryCall([&] { model.undo(); }, [&] { model.redo(); }));
}

TEST_F(UndoFailureTest, LeavesMemoryAndDatabaseAsTheyWereWhicheverCallOfARedoFails) {
    changeEverything();
    model.undo();

    EXPECT_LT(10, failEveryCall([&] { model.redo(); }, [&] { model.undo(); }));
}

TEST_F(UndoFailureTest, CountsADriverThatThrowsAsFailed) {
    changeEverything();
    const std::vector<std::string> before = state();
    recording.reset();
    recording.throwInsteadOfFailing(true);
    recording.failAt(1, "refresh");

    EXPECT_ANY_THROW(model.undo());

    EXPECT_EQ(before, state());
    EXPECT_FALSE(model.transactionStarted());
    recording.reset();
    model.undo();
    EXPECT_EQ("6", ask("SELECT count(*) FROM Node"));
}

TEST_F(UndoFailureTest, ReturnsForAHandlerThatReturnsFromAFailedCommit) {
    changeEverything();
    const std::vector<std::string> before = state();
    recording.reset();
    recording.failAt(1, "commit");
    const ReturningHandler handler;

    model.undo();

    EXPECT_EQ((std::vector<std::string>{"COMFAIL"}), handler.codes());
    EXPECT_EQ(before, state());
    EXPECT_TRUE(model.isUndoable());
    EXPECT_FALSE(model.isRedoable());
}

}  // namespace Kes::testing
