#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "tests/object/NotingListener.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

using Log = NotingListener::Log;

// The first of three listeners at each place throws.
class ThrowingListenerTest : public ::testing::Test {
protected:
    ThrowingListenerTest() {
        model.openWith();
        model.startTransaction();
        firm = model.newCompany("Firm");
        ann = model.newPerson("Ann", 30);
        model.commit();
        own.then = ofClass.then = ofLinks.then = [this] {
            throw std::runtime_error("listener " + std::to_string(log.size()));
        };
        ann->addListener(&own);
        ann->addListener(&second);
        model.personClass->addListener(&ofClass);
        model.personClass->addListener(&third);
        works().addListener(&ofLinks);
        works().addListener(&fourth);
    }
    ~ThrowingListenerTest() override {
        works().removeListener(&ofLinks);
        works().removeListener(&fourth);
    }

    Association& works() { return *model.getAssociation("Works"); }
    static std::string id(const Instance* of) { return " " + std::to_string(of->getObjectID()); }

    /// What the commit throws, "" for nothing.
    std::string commit() {
        try {
            model.commit();
        } catch (const std::runtime_error& thrown) {
            return thrown.what();
        }
        return "";
    }

    Log log;
    NotingListener own{log, "own"};
    NotingListener second{log, "second"};
    NotingListener ofClass{log, "class"};
    NotingListener third{log, "third"};
    NotingListener ofLinks{log, "links"};
    NotingListener fourth{log, "fourth"};
    StaffModel model;
    Pointer<Company> firm;
    Pointer<Person> ann;
};

TEST_F(ThrowingListenerTest, KeepsNoOtherFromHearingOfAChange) {
    ann->change();

    EXPECT_EQ("listener 1", commit());

    const std::string what = "changed Person" + id(ann);
    EXPECT_EQ((Log{"own: " + what, "second: " + what, "class: " + what, "third: " + what}), log);
}

TEST_F(ThrowingListenerTest, KeepsNoOtherFromHearingOfARemoval) {
    ann->remove();

    EXPECT_EQ("listener 1", commit());

    const std::string what = "removed Person" + id(ann);
    EXPECT_EQ((Log{"own: " + what, "second: " + what, "class: " + what, "third: " + what}), log);
}

TEST_F(ThrowingListenerTest, IsForgottenByARemovedInstanceAsAnyOther) {
    ann->remove();
    commit();
    log.clear();
    model.personClass->removeListener(&ofClass);
    model.personClass->removeListener(&third);

    model.personClass->fireInstanceChanged(ann);

    EXPECT_TRUE(log.empty());
}

TEST_F(ThrowingListenerTest, KeepsNoOtherFromHearingOfALink) {
    ann->employer = firm;

    EXPECT_EQ("listener 1", commit());

    const std::string what = "linked Works" + id(ann) + id(firm);
    EXPECT_EQ((Log{"own: " + what, "second: " + what, "links: " + what, "fourth: " + what}), log);
}

TEST_F(ThrowingListenerTest, KeepsNoOtherFromHearingOfALostLink) {
    own.then = ofLinks.then = nullptr;
    ann->employer = firm;
    commit();
    log.clear();
    own.then = ofLinks.then = [] { throw std::runtime_error("again"); };
    ann->employer = nullptr;

    EXPECT_EQ("again", commit());

    EXPECT_EQ(4U, log.size());
}

TEST_F(ThrowingListenerTest, KeepsNoLaterEventBack) {
    ann->change();
    const Pointer<Person> bob(model.newPerson("Bob"));

    EXPECT_EQ("listener 1", commit());

    ASSERT_EQ(6U, log.size());
    EXPECT_EQ("class: added Person" + id(bob), log[4]);
    EXPECT_EQ("third: added Person" + id(bob), log[5]);
}

TEST_F(ThrowingListenerTest, LeavesTheCommitAsItIs) {
    ann->age = 31;
    ann->change();

    EXPECT_NE("", commit());

    EXPECT_FALSE(model.transactionStarted());
    EXPECT_FALSE(model.isPending(ann));
    EXPECT_EQ(1UL, ann->getVersion());
    model.rollback();
    EXPECT_EQ(31, ann->age);
    own.then = ofClass.then = nullptr;
    ann->age = 32;
    ann->change();
    EXPECT_EQ("", commit());
    SelectionOf<Person> found(model.personClass);
    found.where(found["age"] == 32);
    EXPECT_EQ(ann, found.nextValue());
}

TEST_F(ThrowingListenerTest, MayRaiseAnErrorOfItsOwn) {
    own.then = [] { Exception(Exception::ERROR, "MINE", "here", "so there").handle(); };
    ofClass.then = nullptr;
    ann->change();

    try {
        model.commit();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const Exception& raised) {
        EXPECT_STREQ("MINE", raised.getCode());
    }
    EXPECT_EQ(4U, log.size());
}

// What a listener does to the model while it is told.
class ActiveListenerTest : public ThrowingListenerTest {
protected:
    ActiveListenerTest() {
        own.then = ofClass.then = ofLinks.then = nullptr;
        model.personClass->removeListener(&third);
        ann->removeListener(&second);
    }
};

TEST_F(ActiveListenerTest, MayCommitChangesOfItsOwn) {
    own.then = [this] {
        own.then = nullptr;
        model.startTransaction();
        model.newPerson("Bob");
        model.commit();
    };
    ann->change();
    model.newPerson("Cid");
    model.commit();

    EXPECT_NE(nullptr, model.findPerson("Bob"));
    EXPECT_NE(nullptr, model.findPerson("Cid"));
    EXPECT_EQ(4U, log.size());
    EXPECT_FALSE(model.transactionStarted());
}

TEST_F(ActiveListenerTest, MayRecordChangesForTheNextCommit) {
    own.then = [this] {
        own.then = nullptr;
        ann->age = 99;
        ann->change();
    };
    ann->change();
    model.commit();
    EXPECT_TRUE(model.isPending(ann));

    model.commit();

    EXPECT_EQ(2UL, ann->getVersion());
    SelectionOf<Person> found(model.personClass);
    found.where(found["age"] == 99);
    EXPECT_EQ(ann, found.nextValue());
}

TEST_F(ActiveListenerTest, MayCollectWhatOthersAreStillToldOf) {
    ofClass.then = [this] { model.garbageCollect(); };
    const unsigned long first = model.newPerson("Bob")->getObjectID();
    const unsigned long last = model.newPerson("Cid")->getObjectID();

    model.commit();

    EXPECT_EQ((Log{"class: added Person " + std::to_string(first),
                   "class: added Person " + std::to_string(last)}),
              log);
}

TEST_F(ActiveListenerTest, MayRemoveWhatItIsToldOf) {
    ofClass.then = [this] {
        ofClass.then = nullptr;
        model.findPerson("Bob")->remove();
    };
    const Pointer<Person> bob(model.newPerson("Bob"));
    model.commit();
    model.commit();

    EXPECT_TRUE(bob->isRemoved());
    EXPECT_EQ(nullptr, model.findPerson("Bob"));
}

}  // namespace Kes::testing
