// What listeners hear when a refresh finds the object changed by others.

#include <gtest/gtest.h>

#include <string>

#include "tests/drivers/PlainSqlite.h"
#include "tests/drivers/TemporaryFolder.h"
#include "tests/object/NotingListener.h"
#include "tests/support/Raises.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

class RefreshEventTest : public ::testing::Test {
protected:
    using Log = NotingListener::Log;

    RefreshEventTest() {
        const std::string file = folder.path("staff.db");
        model.openWith("sqlite", file.c_str());
        model.startTransaction();
        ann = model.newPerson("Ann", 30);
        model.newPerson("Bob", 40);
        model.commit();
        theirs.openWith("sqlite", file.c_str());
        ann->addListener(&own);
        model.personClass->addListener(&ofClass);
    }
    ~RefreshEventTest() override { ann->removeListener(&own); }

    template <class Change>
    void letOthers(Change change) {
        theirs.startTransaction();
        change(theirs.findPerson("Ann"));
        theirs.commit();
    }

    static void makeOlder(Person* person) {
        person->change();
        person->age = 31;
    }

    int theirsRead() {
        Person* read = theirs.findPerson("Ann");
        read->refresh();
        return read->age;
    }

    std::string id() const { return " " + std::to_string(ann->getObjectID()); }

    TemporaryFolder folder;
    Log log;
    NotingListener own{log, "own"};
    NotingListener ofClass{log, "class"};
    StaffModel model;
    StaffModel theirs;
    Pointer<Person> ann;
};

TEST_F(RefreshEventTest, IsNotFiredWhenNobodyChangedAnything) {
    ann->refresh();

    EXPECT_TRUE(log.empty());
}

TEST_F(RefreshEventTest, TellsOfAChangeTheInstanceBeforeTheClass) {
    letOthers(makeOlder);

    ann->refresh();

    EXPECT_EQ((Log{"own: changed Person" + id(), "class: changed Person" + id()}), log);
}

TEST_F(RefreshEventTest, FindsTheFieldsUpToDate) {
    int age = 0;
    own.then = [&] { age = ann->age; };
    letOthers(makeOlder);

    ann->refresh();

    EXPECT_EQ(31, age);
}

TEST_F(RefreshEventTest, IsFiredOnceForOneChange) {
    letOthers(makeOlder);

    ann->refresh();
    ann->refresh();

    EXPECT_EQ(2U, log.size());
}

TEST_F(RefreshEventTest, TellsOnceWhatAQueryHasBrought) {
    letOthers(makeOlder);
    ASSERT_EQ(ann.getInstance(), model.findPerson("Ann"));
    ASSERT_EQ(31, ann->age);
    EXPECT_TRUE(log.empty());

    ann->refresh();

    EXPECT_EQ((Log{"own: changed Person" + id(), "class: changed Person" + id()}), log);
    ann->refresh();
    EXPECT_EQ(2U, log.size());
}

TEST_F(RefreshEventTest, TellsOnceOfSeveralChangesThatDifferentReadsHaveBrought) {
    letOthers(makeOlder);
    model.findPerson("Ann");
    letOthers(makeOlder);
    const Pointer<Person> bob(model.findPerson("Bob"));
    letOthers([](Person* person) {
        person->change();
        person->age = 33;
    });

    ann->refresh();
    ann->refresh();

    EXPECT_EQ(33, ann->age);
    EXPECT_EQ(2U, log.size());
}

TEST_F(RefreshEventTest, DoesNotRepeatWhatACommitHasTold) {
    letOthers(makeOlder);
    model.findPerson("Ann");
    model.startTransaction();
    ann->change();
    ann->age = 50;
    model.commit();
    log.clear();

    ann->refresh();

    EXPECT_TRUE(log.empty());
}

TEST_F(RefreshEventTest, TellsOfAQuerysChangeAfterARollbackToo) {
    letOthers(makeOlder);
    model.findPerson("Ann");
    model.startTransaction();
    ann->change();
    ann->age = 50;
    model.rollback();

    ann->refresh();

    EXPECT_EQ(31, ann->age);
    EXPECT_EQ(2U, log.size());
}

TEST_F(RefreshEventTest, IsNotFiredForWhatWasLoadedAnew) {
    const Pointer<Person> bob(model.findPerson("Bob"));
    letOthers(makeOlder);
    ann->removeListener(&own);
    ann = nullptr;
    model.garbageCollect();
    ann = model.findPerson("Ann");

    ann->refresh();

    EXPECT_TRUE(log.empty());
}

TEST_F(RefreshEventTest, KeepsForTheNextOneWhatAFailedOneCouldNotTell) {
    letOthers(makeOlder);
    model.findPerson("Ann");
    PlainSqlite(folder.path("staff.db")).run("UPDATE Person SET age = 'x', KesVersion = 9");
    {
        const ReturningHandler handler;
        ann->refresh();
        EXPECT_EQ((std::vector<std::string>{"REFFAIL"}), handler.codes());
        EXPECT_TRUE(log.empty());
    }
    EXPECT_EQ(31, ann->age);
    PlainSqlite(folder.path("staff.db")).run("UPDATE Person SET age = 31, KesVersion = 1");

    ann->refresh();

    EXPECT_EQ(2U, log.size());
}

TEST_F(RefreshEventTest, MarksAnObjectThatIsNotStoredAnyMoreAndTellsOnce) {
    letOthers([](Person* person) { person->remove(); });
    bool wasMarked = false;
    own.then = [&] { wasMarked = ann->isRemoved(); };

    ann->refresh();

    EXPECT_TRUE(wasMarked);
    EXPECT_TRUE(ann->isRemoved());
    EXPECT_EQ(nullptr, model.getInstance(ann->getObjectID(), model.personClass));
    EXPECT_STREQ("Ann", ann->name);
    ann->refresh();
    EXPECT_EQ((Log{"own: removed Person" + id(), "class: removed Person" + id()}), log);
}

TEST_F(RefreshEventTest, RefusesToWriteWhatItHasFoundRemoved) {
    letOthers([](Person* person) { person->remove(); });
    ann->refresh();

    EXPECT_RAISES("INSTERR", ann->change());
    EXPECT_RAISES("LOCKFAIL", ann->lock());
    ann->remove();
    EXPECT_FALSE(model.isPending(ann));
}

TEST_F(RefreshEventTest, LeavesTheMarkOfAnObjectWithAPendingChangeToALaterOne) {
    letOthers([](Person* person) { person->remove(); });
    model.startTransaction();
    ann->change();
    ann->age = 50;

    ann->refresh();
    EXPECT_FALSE(ann->isRemoved());
    EXPECT_EQ(50, ann->age);
    EXPECT_RAISES("COMFAIL", model.commit());
    EXPECT_FALSE(ann->isRemoved());
    ann->refresh();

    EXPECT_TRUE(ann->isRemoved());
    EXPECT_EQ(30, ann->age);
}

TEST_F(RefreshEventTest, MarksNoObjectThatIsYetToBeStored) {
    model.startTransaction();
    const Pointer<Person> cid(model.newPerson("Cid"));

    cid->refresh();

    EXPECT_FALSE(cid->isRemoved());
    model.commit();
    EXPECT_EQ(cid.getInstance(), model.findPerson("Cid"));
}

TEST_F(RefreshEventTest, SaysNothingOfARemovalThatACommitHasTold) {
    model.startTransaction();
    ann->remove();
    model.commit();
    log.clear();

    ann->refresh();

    EXPECT_TRUE(log.empty());
    EXPECT_TRUE(ann->isRemoved());
}

TEST_F(RefreshEventTest, FindsTheSameObjectAgainThatOthersHaveBroughtBack) {
    for (const bool isQuery : {false, true}) {
        letOthers([](Person* person) { person->remove(); });
        ann->refresh();
        ASSERT_TRUE(ann->isRemoved());
        theirs.undo();
        log.clear();

        if (isQuery)
            EXPECT_EQ(ann.getInstance(), model.getInstance(ann->getObjectID(), model.personClass));
        else
            ann->refresh();

        EXPECT_FALSE(ann->isRemoved());
        EXPECT_EQ(ann.getInstance(), model.findPerson("Ann"));
        ann->refresh();
        EXPECT_EQ((Log{"class: changed Person" + id()}), log);
        model.startTransaction();
        ann->change();
        ++ann->age;
        model.commit();
        EXPECT_EQ(ann->age, theirsRead());
    }
}

TEST_F(RefreshEventTest, LetsAnUndoKnowWhatItHasFoundRemoved) {
    model.startTransaction();
    ann->change();
    ann->age = 50;
    model.commit();
    letOthers([](Person* person) {
        person->refresh();
        person->remove();
    });
    ann->refresh();

    EXPECT_RAISES("Transaction::undo/redo", model.undo());

    EXPECT_TRUE(ann->isRemoved());
    EXPECT_EQ(nullptr, theirs.findPerson("Ann"));
}

TEST_F(RefreshEventTest, TellsOfARemovalAfterWhichTheInstanceForgetsItsListeners) {
    letOthers([](Person* person) { person->remove(); });

    ann->refresh();
    model.personClass->fireInstanceChanged(ann);

    EXPECT_EQ((Log{"own: removed Person" + id(), "class: removed Person" + id(),
                   "class: changed Person" + id()}),
              log);
}

TEST_F(RefreshEventTest, NeitherStartsNorEndsATransaction) {
    bool started = true;
    own.then = [&] { started = model.transactionStarted(); };
    letOthers(makeOlder);

    ann->refresh();

    EXPECT_FALSE(started);
    EXPECT_FALSE(model.transactionStarted());
    EXPECT_FALSE(model.isPending(ann));
}

namespace {

class ClosingListener final : public Listener {
public:
    explicit ClosingListener(Model& itsModel) : model(itsModel) {}
    void instanceChanged(const InstanceEvent&) override { model.close(); }

private:
    Model& model;
};

}  // namespace

TEST_F(RefreshEventTest, IsNotCutShortByAListenerThatClosesTheModel) {
    ClosingListener closing(model);
    ann->addListener(&closing);
    letOthers(makeOlder);

    EXPECT_RAISES("EVENTERR", ann->refresh());

    ann->removeListener(&closing);
    EXPECT_TRUE(model.isOpen());
    EXPECT_EQ(31, ann->age);
    EXPECT_EQ(2U, log.size());
}

}  // namespace Kes::testing
