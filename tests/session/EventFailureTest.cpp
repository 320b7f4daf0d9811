#include <stdexcept>
#include <string>
#include <vector>

#include "tests/session/EventFixture.h"
#include "tests/support/Raises.h"

namespace Kes::testing {

// One test for each operation of the driver that a commit needs.
class FailedCommitTest : public EventTest, public ::testing::WithParamInterface<const char*> {
protected:
    void changeEverything() {
        model.startTransaction();
        age(ann, 31);
        model.newPerson("Cid");
        ann->employer = firm;
        ann->employer = nullptr;
        bob->remove();
    }
};

TEST_P(FailedCommitTest, FiresNothing) {
    changeEverything();
    recording.failAt(1, GetParam());

    EXPECT_RAISES("COMFAIL", model.commit());

    EXPECT_TRUE(log.empty());
}

TEST_P(FailedCommitTest, FiresNothingWhenTheHandlerReturns) {
    const ReturningHandler handler;
    changeEverything();
    recording.failAt(1, GetParam());

    model.commit();

    EXPECT_EQ(std::vector<std::string>{"COMFAIL"}, handler.codes());
    EXPECT_TRUE(log.empty());
}

TEST_P(FailedCommitTest, LeavesNothingToFireLater) {
    changeEverything();
    recording.failAt(1, GetParam());
    EXPECT_RAISES("COMFAIL", model.commit());

    firm->change();
    model.commit();

    EXPECT_EQ(Log{"changed Company" + id(firm)}, log);
}

INSTANTIATE_TEST_SUITE_P(At, FailedCommitTest,
                         ::testing::Values("insert", "update", "remove", "addLink", "removeLink",
                                           "commit"),
                         [](const auto& slot) { return std::string(slot.param); });

TEST_F(EventTest, PassesOnTheFailureOfAListenersCommit) {
    NotingListener second(log, "second");
    watch(second);
    listener.then = [&] {
        listener.then = nullptr;
        age(bob, 41);
        recording.failAt(1, "update");
        model.commit();
    };
    model.startTransaction();
    age(ann, 31);
    firm->change();

    EXPECT_RAISES("COMFAIL", model.commit());

    EXPECT_EQ((Log{"changed Person" + id(ann), "second: changed Person" + id(ann),
                   "changed Company" + id(firm), "second: changed Company" + id(firm)}),
              log);
    EXPECT_TRUE(isStored("Ann", 31));
    EXPECT_EQ(40, bob->age);
}

TEST_F(EventTest, OfARefreshPassesOnWhatAListenerThrew) {
    NotingListener atAnn(log, "Ann");
    ann->addListener(&atAnn);
    atAnn.then = [] { throw std::runtime_error("no"); };
    recording.removedElsewhere = {ann->getObjectID()};

    EXPECT_THROW(ann->refresh(), std::runtime_error);

    EXPECT_EQ((Log{"Ann: removed Person" + id(ann), "removed Person" + id(ann)}), log);
}

namespace {

// Closes the model as soon as it hears of something.
class ClosingListener final : public Listener {
public:
    explicit ClosingListener(Model& itsModel) : model(itsModel) {}
    void instanceAdded(const InstanceEvent&) override { model.close(); }

private:
    Model& model;
};

}  // namespace

TEST_F(EventTest, IsNotCutShortByAListenerThatClosesTheModel) {
    ClosingListener closing(model);
    model.personClass->addListener(&closing);
    model.startTransaction();
    for (const char* each : {"Cid", "Dan"})
        model.newPerson(each);

    EXPECT_RAISES("EVENTERR", model.commit());

    EXPECT_TRUE(model.isOpen());
    EXPECT_EQ(2U, log.size());
    model.personClass->removeListener(&closing);
}

}  // namespace Kes::testing
