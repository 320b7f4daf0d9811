#include <gtest/gtest.h>

#include "tests/support/Raises.h"
#include "tests/support/Recording.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

class TransactionTest : public ::testing::Test {
protected:
    TransactionTest() {
        recording.reset();
        model.openWith("recording");
        recording.reset();
    }
    ~TransactionTest() override { recording.reset(); }

    // The slots that the commit called, in order.
    std::vector<std::string> commit() {
        recording.log.clear();
        model.commit();
        std::vector<std::string> slots;
        for (const std::string& line : recording.log)
            slots.push_back(line.substr(0, line.find(' ')));
        return slots;
    }

    Pointer<Person> stored(const char* name) {
        model.startTransaction();
        Pointer<Person> person(model.newPerson(name, 30));
        model.commit();
        return person;
    }

    using Slots = std::vector<std::string>;

    Recording& recording = Recording::get();
    StaffModel model;
};

TEST_F(TransactionTest, WritesNothingBeforeTheCommit) {
    model.startTransaction();

    model.newPerson("Ann");

    EXPECT_EQ(0U, recording.only("insert").size());
}

TEST_F(TransactionTest, GivesAnObjectItsIdBeforeTheCommit) {
    model.startTransaction();

    EXPECT_NE(0UL, model.newPerson("Ann")->getObjectID());
}

TEST_F(TransactionTest, CallsTheDriverInRecordingOrder) {
    const Pointer<Person> ann = stored("Ann");
    const Pointer<Person> bob = stored("Bob");
    model.startTransaction();
    bob->change();
    model.newPerson("Cid");
    ann->remove();

    EXPECT_EQ((Slots{"update", "insert", "remove", "commit"}), commit());
}

TEST_F(TransactionTest, RaisesTheVersionOfUpdatesAndRemovalsOnly) {
    const Pointer<Person> ann = stored("Ann");
    EXPECT_EQ(0UL, ann->getVersion());

    model.startTransaction();
    ann->change();
    EXPECT_EQ(0UL, ann->getVersion());
    model.commit();
    EXPECT_EQ(1UL, ann->getVersion());

    model.startTransaction();
    ann->remove();
    model.commit();
    EXPECT_EQ(2UL, ann->getVersion());
}

TEST_F(TransactionTest, DropsAnUpdateThatFollowsAnUpdate) {
    const Pointer<Person> ann = stored("Ann");
    model.startTransaction();
    ann->change();
    ann->change();

    EXPECT_EQ((Slots{"update", "commit"}), commit());
    EXPECT_EQ(1UL, ann->getVersion());
}

TEST_F(TransactionTest, DropsAnUpdateThatFollowsAnAdd) {
    model.startTransaction();
    model.newPerson("Ann")->change();

    EXPECT_EQ((Slots{"insert", "commit"}), commit());
}

TEST_F(TransactionTest, DropsAnUpdateThatFollowsARemoval) {
    const Pointer<Person> ann = stored("Ann");
    model.startTransaction();
    ann->remove();
    ann->change();

    EXPECT_EQ((Slots{"remove", "commit"}), commit());
}

TEST_F(TransactionTest, WritesNothingForAnAddThatARemovalFollows) {
    model.startTransaction();
    model.newPerson("Ann")->remove();

    EXPECT_EQ(Slots{"commit"}, commit());
    EXPECT_EQ(nullptr, model.findPerson("Ann"));
}

TEST_F(TransactionTest, WritesTheRemovalOnlyForAnUpdateThatItFollows) {
    const Pointer<Person> ann = stored("Ann");
    model.startTransaction();
    ann->change();
    ann->remove();

    EXPECT_EQ((Slots{"remove", "commit"}), commit());
    EXPECT_EQ(nullptr, model.findPerson("Ann"));
}

TEST_F(TransactionTest, KeepsAnObjectThatIsAddedAgainAfterItsRemoval) {
    const Pointer<Person> ann = stored("Ann");
    const unsigned long id = ann->getObjectID();
    model.startTransaction();
    ann->remove();
    ann->add();
    ann->age = 31;
    model.commit();

    EXPECT_FALSE(ann->isRemoved());
    EXPECT_EQ(id, ann->getObjectID());
    model.refresh(ann);
    EXPECT_EQ(31, model.findPerson("Ann")->age);
}

TEST_F(TransactionTest, RecordsLinksWithTheRowThatTheyLieIn) {
    model.startTransaction();
    Company* firm = model.newCompany("Firm");
    Person* ann = model.newPerson("Ann");
    ann->employer = firm;

    commit();

    ASSERT_EQ(1U, recording.only("addLink").size());
    EXPECT_NE(std::string::npos, recording.only("addLink")[0].find("employer"));
    EXPECT_NE(std::string::npos, recording.only("addLink")[0].find("(in row)"));
}

TEST_F(TransactionTest, RaisesTheVersionOfALinksFirstInstanceOnce) {
    const Pointer<Person> ann = stored("Ann");
    model.startTransaction();
    const Pointer<Company> firm(model.newCompany("Firm"));
    model.commit();

    model.startTransaction();
    ann->employer = firm;
    ann->employer = nullptr;
    ann->employer = firm;
    model.commit();

    EXPECT_EQ(1UL, ann->getVersion());
    EXPECT_EQ(0UL, firm->getVersion());
}

TEST_F(TransactionTest, RaisesTheVersionOnceForALinkAndAChange) {
    const Pointer<Person> ann = stored("Ann");
    const Pointer<Person> bob = stored("Bob");
    model.startTransaction();
    const Pointer<Company> firm(model.newCompany("Firm"));
    ann->employer = firm;
    ann->change();
    bob->change();
    bob->employer = firm;
    model.commit();

    EXPECT_EQ(1UL, ann->getVersion());
    EXPECT_EQ(1UL, bob->getVersion());
}

TEST_F(TransactionTest, RaisesTheVersionOnceForALinkFromTheManySideAndAChange) {
    const Pointer<Person> ann = stored("Ann");
    model.startTransaction();
    const Pointer<Company> firm(model.newCompany("Firm"));
    model.commit();
    model.startTransaction();
    firm->staff.add(ann);
    ann->age = 50;
    ann->change();
    model.commit();

    EXPECT_EQ(1UL, ann->getVersion());
}

TEST_F(TransactionTest, CanBeCommittedWithoutBeingStarted) {
    model.newPerson("Ann");

    model.commit();

    EXPECT_NE(nullptr, model.findPerson("Ann"));
}

TEST_F(TransactionTest, IsStartedUntilTheCommit) {
    EXPECT_FALSE(model.transactionStarted());
    model.startTransaction();
    EXPECT_TRUE(model.transactionStarted());

    model.commit();

    EXPECT_FALSE(model.transactionStarted());
}

TEST_F(TransactionTest, StaysStartedWhenTheModelCloses) {
    model.startTransaction();

    model.close();

    EXPECT_TRUE(model.transactionStarted());
}

TEST_F(TransactionTest, WritesAfterAnotherOpenNothingOfWhatACloseCutOff) {
    model.startTransaction();
    model.newPerson("Ann");
    model.close();
    model.openWith("recording");
    recording.log.clear();

    model.commit();

    EXPECT_EQ(0U, recording.only("insert").size());
}

TEST_F(TransactionTest, RefusesForeignAndAbsentInstances) {
    StaffModel other;
    other.openWith();
    Person* stranger = other.newPerson("Stranger");

    EXPECT_RAISES("INSTERR", model.update(stranger));
    EXPECT_RAISES("INSTERR", model.add(static_cast<Instance*>(nullptr)));
    EXPECT_RAISES("INSTERR", model.lock(nullptr));
    EXPECT_RAISES("INSTERR", model.refresh(stranger));
}

TEST_F(TransactionTest, RefusesASecondAdd) {
    model.startTransaction();

    EXPECT_RAISES("INSTERR", model.newPerson("Ann")->add());
}

TEST_F(TransactionTest, RefusesObjectsOfAbstractClasses) {
    EXPECT_RAISES("INSTERR", model.vehicleClass->newInstance());
}

TEST_F(TransactionTest, RefusesToChangeWhatWasNeverAdded) {
    Person lonely(model.personClass);

    EXPECT_RAISES("INSTERR", lonely.change());
}

TEST_F(TransactionTest, ReportsThatNoIdIsToBeHad) {
    recording.failAt(1, "newObjectID");

    EXPECT_RAISES("OIDERR", model.newPerson("Ann"));
}

TEST_F(TransactionTest, RollsBackWhenALockIsNotToBeHad) {
    const Pointer<Person> ann = stored("Ann");
    model.startTransaction();
    ann->age = 31;
    ann->change();
    recording.failAt(1, "lock");

    EXPECT_RAISES("LOCKFAIL", ann->lock());

    EXPECT_EQ(30, ann->age);
    EXPECT_FALSE(model.transactionStarted());
}

TEST_F(TransactionTest, LeavesOneEmptyUndoRecordForTwoStarts) {
    EXPECT_FALSE(model.isUndoable());
    model.setMaxUndoSize(1);
    model.startTransaction();
    model.startTransaction();

    EXPECT_TRUE(model.isUndoable());
    EXPECT_FALSE(model.isRedoable());
}

TEST_F(TransactionTest, TrimsTheHistoryAtOnce) {
    stored("Ann");
    EXPECT_TRUE(model.isUndoable());

    model.setMaxUndoSize(0);

    EXPECT_FALSE(model.isUndoable());
    EXPECT_EQ(0, model.getMaxUndoSize());
}

TEST_F(TransactionTest, KeepsA128TransactionsByDefault) {
    EXPECT_EQ(128, model.getMaxUndoSize());
}

// Hears of refreshes.
class Ear : public Listener {
public:
    void instanceChanged(const InstanceEvent&) override { ++changed; }
    void instanceRemoved(const InstanceEvent&) override { ++removed; }
    void instanceAdded(const InstanceEvent&) override { ++added; }
    void associationAdded(const AssociationEvent&) override { ++linked; }

    int changed = 0;
    int removed = 0;
    int added = 0;
    int linked = 0;
};

TEST_F(TransactionTest, TellsListenersAfterTheCommit) {
    Ear ear;
    model.personClass->addListener(&ear);
    model.getAssociation("Works")->addListener(&ear);
    model.startTransaction();
    const Pointer<Person> ann(model.newPerson("Ann"));
    ann->employer = model.newCompany("Firm");
    EXPECT_EQ(0, ear.added);

    model.commit();

    EXPECT_EQ(1, ear.added);
    EXPECT_EQ(1, ear.linked);
    model.personClass->removeListener(&ear);
    model.getAssociation("Works")->removeListener(&ear);
}

TEST_F(TransactionTest, TellsNobodyOfACommitThatFailed) {
    Ear ear;
    model.personClass->addListener(&ear);
    model.startTransaction();
    model.newPerson("Ann");
    recording.failAt(1, "insert");

    EXPECT_RAISES("COMFAIL", model.commit());

    EXPECT_EQ(0, ear.added);
    model.personClass->removeListener(&ear);
}

TEST_F(TransactionTest, ReportsARemovalThatARefreshFinds) {
    const Pointer<Person> ann = stored("Ann");
    Ear ear;
    ann->addListener(&ear);
    recording.removedElsewhere = {ann->getObjectID()};

    ann->refresh();

    EXPECT_EQ(1, ear.removed);
    EXPECT_EQ(0, ear.changed);
}

TEST_F(TransactionTest, ReportsNothingWhenNothingChanged) {
    const Pointer<Person> ann = stored("Ann");
    Ear ear;
    ann->addListener(&ear);

    ann->refresh();

    EXPECT_EQ(0, ear.removed + ear.changed);
    ann->removeListener(&ear);
}

TEST_F(TransactionTest, AsksTheDriverOnceForEachOfManyObjects) {
    constexpr long count = 50000;
    model.startTransaction();
    for (long i = 0; i < count; ++i)
        model.newPerson("somebody");

    recording.log.clear();
    const long before = recording.callCount();
    model.commit();

    EXPECT_EQ(before + count + 1, recording.callCount());
}

}  // namespace Kes::testing
