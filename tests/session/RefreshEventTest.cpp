// What listeners hear when a refresh finds the object changed by others.

#include <gtest/gtest.h>

#include <string>

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
