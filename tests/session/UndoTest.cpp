#include <kes/Listener.h>

#include "tests/session/UndoFixture.h"

namespace Kes::testing {

namespace {

// Code, context and message of what the work raises.
template <class Work>
std::vector<std::string> raisedBy(Work work) {
    try {
        work();
    } catch (const Exception& raised) {
        return {static_cast<const char*>(raised.getCode()),
                static_cast<const char*>(raised.getContext()),
                static_cast<const char*>(raised.getMessage())};
    }
    return {};
}

using Texts = std::vector<std::string>;

}  // namespace

TEST_F(UndoTest, SaysThatThereIsNothingToUndo) {
    GraphModel fresh;

    EXPECT_EQ((Texts{"Model::undo", "MDLUNDO", "Nothing to undo"}),
              raisedBy([&] { fresh.undo(); }));
}

TEST_F(UndoTest, SaysThatThereIsNothingToRedo) {
    EXPECT_EQ((Texts{"Model::redo", "MDLREDO", "Nothing to redo"}),
              raisedBy([&] { model.redo(); }));
}

TEST_F(UndoTest, LeavesAllAloneWhenAHandlerReturnsFromNothingToUndo) {
    GraphModel fresh;
    const ReturningHandler handler;

    fresh.undo();
    fresh.redo();

    EXPECT_EQ((std::vector<std::string>{"Model::undo", "Model::redo"}), handler.codes());
    EXPECT_FALSE(fresh.transactionStarted());
}

TEST_F(UndoTest, IsForTheModelsThread) {
    EXPECT_EQ("MTERR", codeRaisedBy([&] { onAnotherThread([&] { model.undo(); }); }));
    EXPECT_EQ("MTERR", codeRaisedBy([&] { onAnotherThread([&] { model.redo(); }); }));
    EXPECT_TRUE(model.isUndoable());
}

TEST_F(UndoTest, OnlyRollsBackAStartedTransaction) {
    rank(bob, 1);
    model.startTransaction();
    bob->change();
    bob->rank = 2;

    model.undo();

    EXPECT_EQ(1, bob->rank);
    EXPECT_FALSE(model.transactionStarted());
    EXPECT_FALSE(model.isRedoable());
    EXPECT_EQ("1", column("rank", bob));
}

TEST_F(UndoTest, TakesBackWhatWasRecordedWithoutATransactionFirst) {
    rank(bob, 1);
    bob->change();
    bob->rank = 2;

    model.undo();

    EXPECT_EQ(0, bob->rank);
    EXPECT_EQ("0", column("rank", bob));
}

TEST_F(UndoTest, RestoresFieldsThatWereAssignedAfterChange) {
    rank(bob, 1);

    model.undo();

    EXPECT_EQ(0, bob->rank);
    EXPECT_EQ("0", column("rank", bob));
}

TEST_F(UndoTest, RestoresFieldsThatWereAssignedBeforeChange) {
    transaction([&] {
        bob->rank = 1;
        bob->label = "changed";
        bob->change();
        bob->rank = 2;
    });

    model.undo();

    EXPECT_EQ(0, bob->rank);
    EXPECT_STREQ("", bob->label);
    model.redo();
    EXPECT_EQ(2, bob->rank);
    EXPECT_EQ("changed", column("label", bob));
}

TEST_F(UndoTest, LetsVersionsGoOn) {
    rank(bob, 1);
    EXPECT_EQ(1UL, bob->getVersion());

    model.undo();
    EXPECT_EQ(2UL, bob->getVersion());
    model.redo();

    EXPECT_EQ(3UL, bob->getVersion());
    EXPECT_EQ("3", column("KesVersion", bob));
}

TEST_F(UndoTest, RemovesWhatWasAdded) {
    Pointer<Node> gus;
    transaction([&] { gus = model.newNode("Gus"); });

    model.undo();

    EXPECT_TRUE(gus->isRemoved());
    EXPECT_EQ("0", ask("SELECT count(*) FROM Node WHERE label = 'Gus'"));
}

TEST_F(UndoTest, BringsTheSameObjectBack) {
    Pointer<Node> gus;
    transaction([&] { gus = model.newNode("Gus"); });
    const unsigned long number = gus->getObjectID();
    model.undo();

    model.redo();

    EXPECT_FALSE(gus->isRemoved());
    EXPECT_EQ(gus.getInstance(), model.get(number));
    EXPECT_EQ("Gus", column("label", gus));
    EXPECT_EQ(id(gus), ask("SELECT KesObjectID FROM Node WHERE label = 'Gus'"));
}

TEST_F(UndoTest, BringsARemovedObjectBackWithTheVersionOfItsRemoval) {
    rank(cid, 7);
    transaction([&] { cid->remove(); });
    EXPECT_EQ(2UL, cid->getVersion());

    model.undo();

    EXPECT_EQ(2UL, cid->getVersion());
    EXPECT_EQ("2", column("KesVersion", cid));
    EXPECT_EQ("7", column("rank", cid));
}

TEST_F(UndoTest, BringsObjectsBackThatAreNotInMemory) {
    const unsigned long number = dan->getObjectID();
    transaction([&] { dan->remove(); });
    for (Pointer<Node>* each : {&ann, &bob, &cid, &dan, &eve, &fay})
        *each = nullptr;
    model.garbageCollect();
    ASSERT_EQ(nullptr, model.get(number));

    model.undo();

    dan = model.node(number);
    ASSERT_NE(nullptr, dan.getInstance());
    EXPECT_STREQ("Ann", dan->whole->label);
    EXPECT_EQ(1U, dan->parts.size());
}

TEST_F(UndoTest, BringsACascadeBack) {
    transaction([&] { ann->remove(); });
    EXPECT_EQ("3", ask("SELECT count(*) FROM Node"));

    model.undo();

    EXPECT_EQ("6", ask("SELECT count(*) FROM Node"));
    EXPECT_EQ(ann.getInstance(), dan->whole.get());
    EXPECT_EQ(dan.getInstance(), fay->whole.get());
    EXPECT_EQ(1U, ann->parts.size());
    EXPECT_EQ(id(ann), column("whole", dan));
    EXPECT_EQ(id(dan), column("whole", fay));
}

TEST_F(UndoTest, GivesThoseWhoKeptTheirReferenceTheirPartnerBack) {
    transaction([&] { ann->remove(); });
    EXPECT_EQ("", column("boss", bob));

    model.undo();

    EXPECT_EQ(ann.getInstance(), bob->boss.get());
    EXPECT_EQ(id(ann), column("boss", bob));
    EXPECT_EQ(id(ann), column("boss", cid));
    EXPECT_EQ(2U, ann->team.size());
}

TEST_F(UndoTest, MakesOneToOneAndManyToManyLinksAgain) {
    transaction([&] { ann->remove(); });

    model.undo();

    EXPECT_EQ(eve.getInstance(), ann->mate.get());
    EXPECT_EQ(ann.getInstance(), eve->mateOf.get());
    EXPECT_EQ(id(ann), column("mateOf", eve));
    EXPECT_TRUE(ann->likes.contains(static_cast<Node*>(bob)));
    EXPECT_TRUE(bob->likedBy.contains(static_cast<Node*>(ann)));
    EXPECT_EQ("1", ask("SELECT count(*) FROM Liking"));
}

TEST_F(UndoTest, GivesTakenPartnersBack) {
    transaction([&] {
        eve->mateOf = nullptr;
        fay->mate = eve;
        cid->boss = bob;
        dan->whole = eve;
    });

    model.undo();

    EXPECT_EQ(eve.getInstance(), ann->mate.get());
    EXPECT_EQ(ann.getInstance(), eve->mateOf.get());
    EXPECT_EQ(nullptr, fay->mate.get());
    EXPECT_EQ(ann.getInstance(), cid->boss.get());
    EXPECT_TRUE(bob->team.empty());
    EXPECT_EQ(ann.getInstance(), dan->whole.get());
    EXPECT_EQ("", column("mate", fay));
    model.redo();
    EXPECT_EQ(eve.getInstance(), fay->mate.get());
    EXPECT_EQ(nullptr, ann->mate.get());
    EXPECT_EQ(id(fay), column("mateOf", eve));
    EXPECT_EQ(id(bob), column("boss", cid));
}

TEST_F(UndoTest, KeepsALinkThatWasThereBefore) {
    transaction([&] {
        ann->likes.add(static_cast<Node*>(bob));
        bob->likedBy.add(static_cast<Node*>(ann));
        cid->likes.remove(static_cast<Node*>(eve));
    });

    model.undo();

    EXPECT_TRUE(ann->likes.contains(static_cast<Node*>(bob)));
    EXPECT_EQ("1", ask("SELECT count(*) FROM Liking"));
}

TEST_F(UndoTest, PassesOverATransactionThatWasRolledBack) {
    rank(bob, 1);
    rank(bob, 2);
    model.startTransaction();
    bob->rank = 3;
    bob->change();
    model.rollback();

    model.undo();

    EXPECT_EQ(1, bob->rank);
    model.startTransaction();
    model.undo();
    EXPECT_EQ(1, bob->rank);
    model.undo();
    EXPECT_EQ(0, bob->rank);
}

TEST_F(UndoTest, MakesNoLinkThatWasNotThereWhenItWasDissolved) {
    for (Pointer<Node>* each : {&ann, &bob, &cid, &dan, &eve, &fay})
        each->makeNull();
    model.garbageCollect();
    const std::string before = ask("SELECT count(*) FROM Liking");
    SelectionOf<Node> all(model.nodeClass);
    all.orderBy(all["KesObjectID"]);
    std::vector<Pointer<Node>> nodes;
    while (Node* each = all.nextValue())
        nodes.emplace_back(each);
    ASSERT_FALSE(nodes[4]->likes.isFetched());
    transaction([&] { nodes[4]->likes.remove(static_cast<Node*>(nodes[5])); });

    model.undo();

    EXPECT_EQ(before, ask("SELECT count(*) FROM Liking"));
    EXPECT_TRUE(nodes[4]->likes.empty());
    model.redo();
    EXPECT_EQ(before, ask("SELECT count(*) FROM Liking"));
}

TEST_F(UndoTest, DissolvesNoLinkThatWasThereWhenItWasMade) {
    for (Pointer<Node>* each : {&cid, &dan, &eve, &fay})
        each->makeNull();
    const unsigned long annId = ann->getObjectID();
    const unsigned long bobId = bob->getObjectID();
    const std::string before = ask("SELECT count(*) FROM Liking");
    for (const int way : {0, 1, 2, 3}) {
        ann.makeNull();
        bob.makeNull();
        model.garbageCollect();
        ann = static_cast<Node*>(model.getInstance(annId, model.nodeClass));
        bob = static_cast<Node*>(model.getInstance(bobId, model.nodeClass));
        ASSERT_FALSE(ann->likes.isFetched());
        transaction([&] {
            if (way % 2 == 0)
                ann->likes.add(static_cast<Node*>(bob));
            else
                bob->likedBy.add(static_cast<Node*>(ann));
            if (way == 2)
                bob->likedBy.remove(static_cast<Node*>(ann));
            if (way == 3)
                ann->likes.remove(static_cast<Node*>(bob));
        });

        if (model.isUndoable())
            model.undo();

        EXPECT_EQ(before, ask("SELECT count(*) FROM Liking")) << way;
        EXPECT_TRUE(ann->likes.contains(bob)) << way;
    }
}

TEST_F(UndoTest, GoesBackAndForthThroughSeveralTransactions) {
    for (int i = 1; i <= 5; ++i)
        rank(bob, i);

    for (int i = 4; i >= 0; --i) {
        model.undo();
        EXPECT_EQ(i, bob->rank);
    }
    for (int i = 1; i <= 5; ++i) {
        model.redo();
        EXPECT_EQ(i, bob->rank);
    }

    EXPECT_FALSE(model.isRedoable());
    EXPECT_EQ("5", column("rank", bob));
}

TEST_F(UndoTest, WritesNothingForAnObjectThatCameAndWent) {
    transaction([&] {
        Node* gus = model.newNode("Gus");
        gus->boss = bob;
        gus->remove();
    });
    model.undo();
    EXPECT_EQ("6", ask("SELECT count(*) FROM Node"));

    model.undo();

    EXPECT_EQ("0", ask("SELECT count(*) FROM Node"));
}

TEST_F(UndoTest, UndoesARemovalThatWasTakenBack) {
    transaction([&] {
        ann->remove();
        ann->add();
    });
    EXPECT_FALSE(ann->isRemoved());
    EXPECT_EQ(nullptr, ann->mate.get());

    model.undo();

    EXPECT_EQ(eve.getInstance(), ann->mate.get());
    EXPECT_EQ(1U, ann->parts.size());
    EXPECT_EQ("6", ask("SELECT count(*) FROM Node"));
    EXPECT_EQ(id(ann), column("mateOf", eve));
}

TEST_F(UndoTest, KeepsOneTransactionMoreThanAskedFor) {
    for (int i = 1; i <= 140; ++i)
        rank(bob, i);

    int count = 0;
    for (; model.isUndoable(); ++count)
        model.undo();

    EXPECT_EQ(129, count);
    EXPECT_EQ(140 - 129, bob->rank);
}

TEST_F(UndoTest, ForgetsAllAtOnceForASizeOfZero) {
    model.setMaxUndoSize(0);

    EXPECT_FALSE(model.isUndoable());
    EXPECT_RAISES("Model::undo", model.undo());
}

TEST_F(UndoTest, KeepsNothingThatWasRecordedWithoutATransactionForASizeOfZero) {
    model.setMaxUndoSize(0);
    bob->change();
    bob->rank = 1;
    model.commit();

    EXPECT_FALSE(model.isUndoable());
}

TEST_F(UndoTest, ForgetsWhatAStartedTransactionRecordedWhenTheSizeGetsZero) {
    model.startTransaction();
    bob->change();
    bob->rank = 1;
    model.setMaxUndoSize(0);
    model.commit();

    EXPECT_FALSE(model.isUndoable());
    EXPECT_EQ("1", column("rank", bob));
}

TEST_F(UndoTest, CanBeRedoneUntilATransactionStarts) {
    rank(bob, 1);
    model.undo();
    EXPECT_TRUE(model.isRedoable());

    model.startTransaction();

    EXPECT_FALSE(model.isRedoable());
}

TEST_F(UndoTest, TakesAnEmptyTransactionBackAsNothing) {
    rank(bob, 1);
    model.startTransaction();
    model.commit();

    model.undo();
    EXPECT_EQ(1, bob->rank);
    model.undo();

    EXPECT_EQ(0, bob->rank);
}

TEST_F(UndoTest, OpensOnePlaceForTransactionsThatRecordedNothing) {
    rank(bob, 1);
    model.startTransaction();
    model.rollback();
    rank(bob, 2);

    model.undo();
    EXPECT_EQ(1, bob->rank);
    model.undo();

    EXPECT_EQ(0, bob->rank);
}

TEST_F(UndoTest, TakesChangesOfATransactionBegunTwiceBackAtOnce) {
    model.startTransaction();
    bob->change();
    bob->rank = 1;
    model.startTransaction();
    cid->change();
    cid->rank = 2;
    model.commit();

    model.undo();

    EXPECT_EQ(0, bob->rank);
    EXPECT_EQ(0, cid->rank);
}

TEST_F(UndoTest, UndoesWhatCameWithoutATransactionWithTheOneBefore) {
    rank(bob, 1);
    bob->change();
    bob->rank = 2;
    model.commit();
    cid->likes.add(static_cast<Node*>(bob));
    Pointer<Node> gus(model.newNode("Gus"));
    model.commit();
    gus->remove();
    model.commit();

    model.undo();

    EXPECT_EQ(0, bob->rank);
    EXPECT_TRUE(cid->likes.empty());
    EXPECT_EQ("6", ask("SELECT count(*) FROM Node"));
    model.redo();
    EXPECT_EQ(2, bob->rank);
    EXPECT_EQ(1U, cid->likes.size());
    EXPECT_EQ("6", ask("SELECT count(*) FROM Node"));
}

TEST_F(UndoTest, TakesCommitsBackOneByOneWhereNoTransactionWasEverBegun) {
    GraphModel plain;
    open(plain);
    Pointer<Node> gus(plain.newNode("Gus"));
    plain.commit();
    gus->change();
    gus->rank = 1;
    plain.commit();
    gus->change();
    gus->rank = 2;
    plain.commit();

    plain.undo();
    EXPECT_EQ(1, gus->rank);
    plain.undo();
    EXPECT_EQ(0, gus->rank);
    plain.undo();

    EXPECT_TRUE(gus->isRemoved());
    EXPECT_FALSE(plain.isUndoable());
}

TEST_F(UndoTest, CommitsWhatIsPendingWithARedo) {
    rank(bob, 1);
    model.undo();
    cid->change();
    cid->rank = 5;

    model.redo();

    EXPECT_EQ("1", column("rank", bob));
    EXPECT_EQ("5", column("rank", cid));
    model.undo();
    EXPECT_EQ("0", column("rank", bob));
    EXPECT_EQ("0", column("rank", cid));
}

TEST_F(UndoTest, RefusesARedoOfWhatIsChangedMeanwhile) {
    rank(bob, 1);
    model.undo();
    bob->change();
    bob->rank = 5;

    EXPECT_RAISES("Transaction::undo/redo", model.redo());

    EXPECT_EQ(0, bob->rank);
    EXPECT_EQ("0", column("rank", bob));
}

TEST_F(UndoTest, EndsWithTheModel) {
    model.close();

    EXPECT_FALSE(model.isUndoable());
    EXPECT_FALSE(model.isRedoable());
}

class LinkCounter : public Listener {
public:
    void associationAdded(const AssociationEvent&) override { ++made; }
    void associationRemoved(const AssociationEvent&) override { ++dissolved; }

    int made = 0;
    int dissolved = 0;
};

TEST_F(UndoTest, TellsOfLinksBetweenObjectsThatItRemovesAndBringsBack) {
    LinkCounter listener;
    model.getAssociation("Liking")->addListener(&listener);

    transaction([&] {
        Node* gus = model.newNode("Gus");
        gus->likes.add(model.newNode("Hal"));
    });
    model.undo();
    model.redo();

    model.getAssociation("Liking")->removeListener(&listener);
    EXPECT_EQ(2, listener.made);
    EXPECT_EQ(1, listener.dissolved);
}

// Undoes the commit that it hears of, once.
class Regretful : public Listener {
public:
    explicit Regretful(GraphModel& changed) : of(changed) {}
    void instanceChanged(const InstanceEvent&) override {
        if (!regretted) {
            regretted = true;
            of.undo();
        }
    }

private:
    GraphModel& of;
    bool regretted = false;
};

TEST_F(UndoTest, MayBeCalledByAListener) {
    Regretful listener(model);
    model.nodeClass->addListener(&listener);

    rank(bob, 1);

    model.nodeClass->removeListener(&listener);
    EXPECT_EQ(0, bob->rank);
    EXPECT_EQ("0", column("rank", bob));
    EXPECT_TRUE(model.isRedoable());
}

TEST_F(UndoTest, HoldsNoObjectInMemory) {
    transaction([&] { model.newNode("Gus"); });
    const std::string number = ask("SELECT KesObjectID FROM Node WHERE label = 'Gus'");

    model.garbageCollect();

    EXPECT_EQ(nullptr, model.get(std::stoul(number)));
    model.undo();
    EXPECT_EQ("6", ask("SELECT count(*) FROM Node"));
}

// Recursion would need some 100 bytes of stack for each of them at least.
TEST_F(UndoTest, TakesALongCascadeBackWithoutRecursion) {
#if defined(KES_SANITIZED_ADDRESS) || defined(KES_SANITIZED_THREAD)
    constexpr int Length = 20'000;
#else
    constexpr int Length = 100'000;
#endif
    Pointer<Node> first;
    transaction([&] {
        first = model.newNode("first");
        Node* last = first;
        for (int i = 1; i < Length; ++i) {
            Node* next = model.newNode("part");
            next->whole = last;
            last = next;
        }
    });
    transaction([&] { first->remove(); });
    EXPECT_EQ("0", ask("SELECT count(*) FROM Node WHERE label = 'part'"));

    model.undo();

    EXPECT_EQ(std::to_string(Length - 1), ask("SELECT count(*) FROM Node WHERE label = 'part'"));
    EXPECT_EQ(1U, first->parts.size());
}

}  // namespace Kes::testing
