#include "tests/session/EventFixture.h"

namespace Kes::testing {

TEST_F(EventTest, IsFiredOnceForEachOfManyChanges) {
    model.startTransaction();
    Log expected;
    for (int i = 0; i < 1000; ++i) {
        Person* person = model.newPerson("Somebody", i);
        person->change();
        expected.push_back("added Person" + id(person));
    }
    age(ann, 31);
    ann->change();
    expected.push_back("changed Person" + id(ann));
    model.commit();

    EXPECT_EQ(expected, log);
}

TEST_F(EventTest, IsNotFiredAgainByTheNextCommit) {
    age(ann, 31);
    model.commit();
    log.clear();

    model.commit();
    model.startTransaction();
    model.commit();

    EXPECT_TRUE(log.empty());
}

TEST_F(EventTest, IsFiredWithoutAStartedTransaction) {
    age(ann, 31);
    model.commit();

    EXPECT_EQ(Log{"changed Person" + id(ann)}, log);
}

TEST_F(EventTest, IsNotFiredForAnObjectThatCameAndWent) {
    model.startTransaction();
    model.newPerson("Cid")->remove();
    model.commit();

    EXPECT_TRUE(log.empty());
}

TEST_F(EventTest, OfARemovalReplacesTheOneOfAnEarlierChange) {
    model.startTransaction();
    age(ann, 31);
    ann->remove();
    model.commit();

    EXPECT_EQ(Log{"removed Person" + id(ann)}, log);
}

TEST_F(EventTest, TellsOfAChangeWhenARemovalWasTakenBack) {
    model.startTransaction();
    ann->remove();
    ann->add();
    model.commit();

    EXPECT_EQ(Log{"changed Person" + id(ann)}, log);
}

TEST_F(EventTest, OfALinkReachesBothInstancesAndThenTheAssociation) {
    NotingListener atAnn(log, "Ann"), atFirm(log, "Firm");
    ann->addListener(&atAnn);
    firm->addListener(&atFirm);
    model.startTransaction();
    ann->employer = firm;
    model.commit();
    ann->employer = nullptr;
    model.commit();
    firm->staff.add(ann);
    model.commit();

    EXPECT_EQ(
        (Log{"Ann: linked Works" + id(ann) + id(firm), "Firm: linked Works" + id(firm) + id(ann),
             "linked Works" + id(ann) + id(firm), "Ann: unlinked Works" + id(ann) + id(firm),
             "Firm: unlinked Works" + id(firm) + id(ann), "unlinked Works" + id(ann) + id(firm),
             "Firm: linked Works" + id(firm) + id(ann), "Ann: linked Works" + id(ann) + id(firm),
             "linked Works" + id(firm) + id(ann)}),
        log);
    ann->removeListener(&atAnn);
    firm->removeListener(&atFirm);
}

TEST_F(EventTest, OfALinkWithItselfReachesTheInstanceTwice) {
    NotingListener atAnn(log, "Ann");
    ann->addListener(&atAnn);
    model.startTransaction();
    ann->friends.add(ann);
    model.commit();

    EXPECT_EQ((Log{"Ann: linked Friendship" + id(ann) + id(ann),
                   "Ann: linked Friendship" + id(ann) + id(ann),
                   "linked Friendship" + id(ann) + id(ann)}),
              log);
    ann->removeListener(&atAnn);
}

TEST_F(EventTest, TellsOfTheNewLinkOnlyWhenAPartnerIsReplaced) {
    model.startTransaction();
    const Pointer<Company> other(model.newCompany("Other"));
    ann->employer = firm;
    model.commit();
    log.clear();

    ann->employer = other;
    model.commit();

    EXPECT_EQ(Log{"linked Works" + id(ann) + id(other)}, log);
}

TEST_F(EventTest, TellsOfEveryObjectThatARemovalTakesAlong) {
    model.startTransaction();
    bob->parent = ann;
    model.commit();
    log.clear();

    model.startTransaction();
    ann->remove();
    model.commit();

    EXPECT_EQ((Log{"unlinked Family" + id(ann) + id(bob), "removed Person" + id(bob),
                   "removed Person" + id(ann)}),
              log);
}

TEST_F(EventTest, FindsTheTransactionEndedAndTheChangeStored) {
    std::string seen;
    listener.then = [&] {
        seen += model.transactionStarted() ? "started " : "ended ";
        seen += model.isPending(ann) || ann->inTransaction() ? "pending " : "settled ";
        seen += std::to_string(ann->getVersion());
        seen += isStored("Ann", 31) ? " stored" : " not stored";
    };
    model.startTransaction();
    age(ann, 31);
    model.commit();

    EXPECT_EQ("ended settled 1 stored", seen);
}

TEST_F(EventTest, FindsAllLaterChangesStoredAtTheFirst) {
    int found = 0;
    listener.then = [&] { found += isStored("Bob", 41) ? 1 : 0; };
    model.startTransaction();
    age(ann, 31);
    age(bob, 41);
    model.commit();

    EXPECT_EQ(2, found);
}

TEST_F(EventTest, OfACommitInAListenerComesBeforeTheRestOfTheOuterOnes) {
    NotingListener second(log, "second");
    watch(second);
    listener.then = [&] {
        listener.then = nullptr;
        age(bob, 41);
        model.commit();
    };
    model.startTransaction();
    age(ann, 31);
    firm->change();
    model.commit();

    EXPECT_EQ((Log{"changed Person" + id(ann), "changed Person" + id(bob),
                   "second: changed Person" + id(bob), "second: changed Person" + id(ann),
                   "changed Company" + id(firm), "second: changed Company" + id(firm)}),
              log);
    EXPECT_TRUE(isStored("Bob", 41));
}

TEST_F(EventTest, OfTheSameObjectCanBeCausedAgainByItsListener) {
    listener.then = [&] {
        if (ann->age < 34) {
            age(ann, ann->age + 1);
            model.commit();
        }
    };
    age(ann, 31);
    model.commit();

    EXPECT_EQ(Log(4, "changed Person" + id(ann)), log);
    EXPECT_EQ(4UL, ann->getVersion());
    EXPECT_TRUE(isStored("Ann", 34));
}

TEST_F(EventTest, LeavesATransactionOpenThatAListenerStarted) {
    listener.then = [&] {
        listener.then = nullptr;
        model.startTransaction();
        age(bob, 41);
    };
    model.startTransaction();
    age(ann, 31);
    model.commit();
    EXPECT_TRUE(model.transactionStarted());
    EXPECT_EQ(Log{"changed Person" + id(ann)}, log);

    model.rollback();

    EXPECT_EQ(40, bob->age);
    EXPECT_TRUE(isStored("Ann", 31));
}

TEST_F(EventTest, GoesOnAfterARollbackInAListener) {
    listener.then = [&] {
        age(bob, 99);
        model.rollback();
    };
    model.startTransaction();
    age(ann, 31);
    firm->change();
    model.commit();

    EXPECT_EQ((Log{"changed Person" + id(ann), "changed Company" + id(firm)}), log);
    EXPECT_TRUE(isStored("Ann", 31));
    EXPECT_EQ(40, bob->age);
}

TEST_F(EventTest, GoesOnWhenAListenerRemovesTheObject) {
    NotingListener atAnn(log, "Ann");
    ann->addListener(&atAnn);
    atAnn.then = [&] {
        atAnn.then = nullptr;
        ann->remove();
        model.commit();
    };
    model.startTransaction();
    age(ann, 31);
    firm->change();
    model.commit();

    EXPECT_EQ(
        (Log{"Ann: changed Person" + id(ann), "Ann: removed Person" + id(ann),
             "removed Person" + id(ann), "changed Person" + id(ann), "changed Company" + id(firm)}),
        log);
    EXPECT_EQ(nullptr, model.findPerson("Ann"));
}

TEST_F(EventTest, OutlivesACollectionThatAListenerStarts) {
    model.startTransaction();
    const unsigned long first = model.newPerson("First")->getObjectID();
    const unsigned long second = model.newPerson("Second")->getObjectID();
    ann->employer = firm;
    listener.then = [&] {
        ann.makeNull();
        firm.makeNull();
        model.garbageCollect();
    };
    const Log expected{"added Person " + std::to_string(first),
                       "added Person " + std::to_string(second),
                       "linked Works" + id(ann) + id(firm)};
    model.commit();

    EXPECT_EQ(expected, log);
    listener.then = nullptr;
    model.garbageCollect();
    EXPECT_EQ(nullptr, model.get(first));
}

TEST_F(EventTest, ReachesAListenerThatJoinedDuringAnEarlierOne) {
    NotingListener late(log, "late");
    listener.then = [&] { firm->addListener(&late); };
    model.startTransaction();
    age(ann, 31);
    firm->change();
    model.commit();

    EXPECT_EQ((Log{"changed Person" + id(ann), "late: changed Company" + id(firm),
                   "changed Company" + id(firm)}),
              log);
    firm->removeListener(&late);
}

TEST_F(EventTest, ReachesTheClassesListenerThatTheObjectsOwnOneAdded) {
    NotingListener atAnn(log, "Ann"), late(log, "late");
    ann->addListener(&atAnn);
    atAnn.then = [&] { model.personClass->addListener(&late); };
    age(ann, 31);
    model.commit();

    EXPECT_EQ((Log{"Ann: changed Person" + id(ann), "changed Person" + id(ann),
                   "late: changed Person" + id(ann)}),
              log);
    ann->removeListener(&atAnn);
}

TEST_F(EventTest, NoLongerReachesAListenerThatLeftDuringAnEarlierOne) {
    NotingListener other(log, "other");
    watch(other);
    listener.then = [&] { model.companyClass->removeListener(&other); };
    model.startTransaction();
    age(ann, 31);
    firm->change();
    model.commit();

    EXPECT_EQ((Log{"changed Person" + id(ann), "other: changed Person" + id(ann),
                   "changed Company" + id(firm)}),
              log);
}

TEST_F(EventTest, ReachesTheListenersAgainWhenARemovalWasRolledBack) {
    NotingListener atAnn(log, "Ann");
    ann->addListener(&atAnn);
    model.startTransaction();
    ann->remove();
    model.rollback();
    age(ann, 31);
    model.commit();

    EXPECT_EQ((Log{"Ann: changed Person" + id(ann), "changed Person" + id(ann)}), log);
    ann->removeListener(&atAnn);
}

}  // namespace Kes::testing
