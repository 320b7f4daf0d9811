// Several changes of one object in one transaction: memory, database, what the
// listeners hear and what undo and redo make of it have to agree.

#include <utility>

#include <kes/Listener.h>

#include "tests/session/UndoFixture.h"

namespace Kes::testing {

namespace {

class Ear : public Listener {
public:
    void instanceAdded(const InstanceEvent& event) override { note("added", event); }
    void instanceChanged(const InstanceEvent& event) override { note("changed", event); }
    void instanceRemoved(const InstanceEvent& event) override { note("removed", event); }

    std::vector<std::string> heard;

private:
    void note(const char* what, const InstanceEvent& event) {
        heard.push_back(std::string(what) + ' ' +
                        std::to_string(event.getInstance()->getObjectID()));
    }
};

}  // namespace

class CombinationTest : public UndoTest {
protected:
    using Log = std::vector<std::string>;

    CombinationTest() { model.nodeClass->addListener(&ear); }
    ~CombinationTest() override { model.nodeClass->removeListener(&ear); }

    // Lets the work be one transaction, and compares what undo and redo leave
    // with the states before and after.
    template <class Work>
    void expectAgreement(Work work) {
        const std::string before = stored();
        transaction(work);
        heard = std::exchange(ear.heard, {});
        const std::string after = stored();
        EXPECT_EQ(after, remembered());

        model.undo();
        EXPECT_EQ(before, stored());
        EXPECT_EQ(before, remembered());
        model.redo();
        EXPECT_EQ(after, stored());
        EXPECT_EQ(after, remembered());
    }

    std::string stored() {
        GraphModel fresh;
        open(fresh);
        return describe(fresh);
    }
    std::string remembered() { return describe(model); }

    static std::string describe(GraphModel& from) {
        SelectionOf<Node> all(from.nodeClass);
        std::vector<Pointer<Node>> nodes;
        while (Node* next = all.nextValue())
            nodes.emplace_back(next);
        std::set<std::string> lines;
        for (const Pointer<Node>& each : nodes) {
            const Node* node = each;
            lines.insert(std::to_string(node->getObjectID()) + ' ' +
                         static_cast<const char*>(node->label) + ' ' + std::to_string(node->rank) +
                         ' ' + number(node->boss) + number(node->whole) + number(node->mate) +
                         number(node->mateOf) + "likes " + std::to_string(node->likes.size()));
        }
        std::string text;
        for (const std::string& line : lines)
            text += line + '\n';
        return text;
    }
    static std::string number(const One<Node>& ref) {
        const Node* node = ref.get();
        return node == nullptr || node->isRemoved() ? "- "
                                                    : std::to_string(node->getObjectID()) + ' ';
    }
    std::string said(const char* what, const Instance* of) const { return what + (' ' + id(of)); }

    Ear ear;
    Log heard;
};

TEST_F(CombinationTest, AnAddedObjectIsStoredWithTheFieldsThatTheCommitFinds) {
    Pointer<Node> gus;

    expectAgreement([&] {
        gus = model.newNode("first");
        gus->label = "last";
        gus->change();
        gus->rank = 7;
    });

    EXPECT_EQ((Log{said("added", gus)}), heard);
    EXPECT_EQ("last", column("label", gus));
    EXPECT_EQ("7", column("rank", gus));
}

TEST_F(CombinationTest, AnObjectThatCameAndWentLeavesNoTrace) {
    expectAgreement([&] {
        bob->rank = 1;
        bob->change();
        Node* gus = model.newNode("Gus");
        gus->boss = bob;
        gus->likes.add(static_cast<Node*>(cid));
        cid->mate = gus;
        gus->remove();
    });

    EXPECT_EQ((Log{said("changed", bob)}), heard);
    EXPECT_EQ(nullptr, cid->mate.get());
}

TEST_F(CombinationTest, AChangedObjectThatIsRemovedComesBackAsItWasBefore) {
    expectAgreement([&] {
        cid->change();
        cid->rank = 5;
        cid->label = "changed";
        cid->remove();
    });

    EXPECT_EQ((Log{said("removed", cid)}), heard);
    model.undo();
    EXPECT_EQ(0, cid->rank);
    EXPECT_EQ("", column("label", cid));
}

TEST_F(CombinationTest, AnObjectWhoseMembersWereAssignedBeforeItsRemovalComesBackAsItWasBefore) {
    expectAgreement([&] {
        cid->rank = 5;
        cid->remove();
    });

    model.undo();
    EXPECT_EQ("0", column("rank", cid));
}

TEST_F(CombinationTest, ARemovedObjectThatIsAddedAgainIsChanged) {
    expectAgreement([&] {
        dan->remove();
        dan->add();
        dan->label = "again";
    });

    EXPECT_EQ((Log{said("removed", fay), said("changed", dan)}), heard);
    EXPECT_EQ("again", column("label", dan));
    EXPECT_EQ(nullptr, dan->whole.get());
    EXPECT_TRUE(fay->isRemoved());
}

TEST_F(CombinationTest, AnObjectThatIsRemovedAddedAndRemovedIsRemoved) {
    expectAgreement([&] {
        cid->remove();
        cid->add();
        cid->remove();
    });

    EXPECT_TRUE(cid->isRemoved());
}

TEST_F(CombinationTest, LinksGoWithAnObjectThatIsRemovedLater) {
    expectAgreement([&] {
        fay->mate = cid;
        fay->boss = cid;
        fay->likes.add(static_cast<Node*>(cid));
        cid->likes.add(static_cast<Node*>(fay));
        cid->remove();
    });

    EXPECT_EQ(nullptr, fay->mate.get());
    EXPECT_TRUE(fay->likes.empty());
}

TEST_F(CombinationTest, ALinkThatMovesSeveralTimesIsUndoneAtOnce) {
    expectAgreement([&] {
        bob->boss = cid;
        bob->boss = nullptr;
        bob->boss = dan;
        bob->mate = cid;
        bob->mate = dan;
    });

    model.undo();
    EXPECT_EQ(ann.getInstance(), bob->boss.get());
    EXPECT_EQ(nullptr, bob->mate.get());
}

TEST_F(CombinationTest, ALinkThatIsMadeAndDissolvedIsNone) {
    expectAgreement([&] {
        cid->likes.add(static_cast<Node*>(dan));
        cid->likes.remove(static_cast<Node*>(dan));
        ann->likes.remove(static_cast<Node*>(bob));
        ann->likes.add(static_cast<Node*>(bob));
    });

    EXPECT_EQ("1", ask("SELECT count(*) FROM Liking"));
}

// The collection is loaded while both links are pending.
TEST_F(CombinationTest, ACascadeSparesAPartThatHasMovedOn) {
    const unsigned long numbers[] = {ann->getObjectID(), cid->getObjectID(), fay->getObjectID()};
    for (Pointer<Node>* each : {&ann, &bob, &cid, &dan, &eve, &fay})
        *each = nullptr;
    model.garbageCollect();
    ann = model.node(numbers[0]);
    cid = model.node(numbers[1]);
    fay = model.node(numbers[2]);

    expectAgreement([&] {
        fay->whole = cid;
        fay->whole = ann;
        cid->remove();
    });

    EXPECT_FALSE(fay->isRemoved());
    EXPECT_EQ(ann.getInstance(), fay->whole.get());
}

TEST_F(CombinationTest, ACyclicCascadeGoesAndComesBackWhole) {
    transaction([&] {
        ann->whole = fay;
        fay->likes.add(static_cast<Node*>(dan));
    });

    expectAgreement([&] { dan->remove(); });

    EXPECT_TRUE(ann->isRemoved());
    model.undo();
    EXPECT_EQ(fay.getInstance(), ann->whole.get());
    EXPECT_TRUE(fay->likes.contains(static_cast<Node*>(dan)));
}

TEST_F(CombinationTest, MembersMayBeRemovedWhileTheyAreIterated) {
    expectAgreement([&] {
        for (Node* member : ann->team)
            member->remove();
    });

    EXPECT_TRUE(ann->team.empty());
    model.undo();
    EXPECT_EQ(2U, ann->team.size());
}

}  // namespace Kes::testing
