// The one thread that a model belongs to.

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "tests/support/Raises.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

namespace {

struct Call {
    const char* name;
    void (*make)(StaffModel&);
};

void fetchFrom(StaffModel& model) {
    model.fetch(model.personClass, nullptr);
}

// Every operation that is for the owner alone.
const Call guarded[] = {
    {"open", [](StaffModel& model) { model.openWith(); }},
    {"close", [](StaffModel& model) { model.close(); }},
    {"startTransaction", [](StaffModel& model) { model.startTransaction(); }},
    {"commit", [](StaffModel& model) { model.commit(); }},
    {"rollback", [](StaffModel& model) { model.rollback(); }},
    {"undo", [](StaffModel& model) { model.undo(); }},
    {"redo", [](StaffModel& model) { model.redo(); }},
    {"garbageCollect", [](StaffModel& model) { model.garbageCollect(); }},
    {"defineSelection", [](StaffModel& model) { model.findPerson("Ann"); }},
    {"fetch", fetchFrom},
    {"addAssociation",
     [](StaffModel& model) {
         model.addAssociation(new Association("Extra", model.personClass, "one", Association::One,
                                              model.personClass, "other", Association::One,
                                              Association::Unlink));
     }},
};

}  // namespace

class ThreadOwnerTest : public ::testing::TestWithParam<Call> {
protected:
    ThreadOwnerTest() {
        model.openWith();
        model.startTransaction();
        ann = model.newPerson("Ann", 30);
        model.commit();
    }

    StaffModel model;
    Pointer<Person> ann;
};

TEST_P(ThreadOwnerTest, IsTheOnlyOneThatPasses) {
    try {
        onAnotherThread([&] { GetParam().make(model); });
        ADD_FAILURE() << "the other thread passed";
    } catch (const Exception& raised) {
        EXPECT_EQ(Exception::FATAL, raised.getSeverity());
        EXPECT_STREQ("MTERR", raised.getCode());
        EXPECT_STREQ("ThreadCheck::doit", raised.getContext());
        EXPECT_STREQ("You used your model in two different thread. That is illegal",
                     raised.getMessage());
    }
}

TEST_P(ThreadOwnerTest, FindsTheModelAsItWasAfterAForeignCall) {
    model.startTransaction();
    ann->change();
    ann->age = 31;

    EXPECT_RAISES("MTERR", onAnotherThread([&] { GetParam().make(model); }));

    EXPECT_TRUE(model.isOpen());
    EXPECT_TRUE(model.transactionStarted());
    EXPECT_TRUE(model.isPending(ann));
    EXPECT_EQ(nullptr, model.getAssociation("Extra"));
    model.commit();
    EXPECT_EQ(1UL, ann->getVersion());
    EXPECT_EQ(31, ann->age);
}

TEST_P(ThreadOwnerTest, IsTheOnlyOneThatPassesWhileTheModelIsClosed) {
    model.close();

    EXPECT_RAISES("MTERR", onAnotherThread([&] { GetParam().make(model); }));
}

using ThreadOwnerDeathTest = ThreadOwnerTest;

TEST_P(ThreadOwnerDeathTest, EndsTheProcessWhenTheHandlerReturns) {
    const auto misuse = [&] {
        const ReturningHandler handler;
        onAnotherThread([&] { GetParam().make(model); });
    };

    EXPECT_EXIT(misuse(), ::testing::ExitedWithCode(1), "");
}

const auto nameOf = [](const auto& call) { return std::string(call.param.name); };
INSTANTIATE_TEST_SUITE_P(Of, ThreadOwnerTest, ::testing::ValuesIn(guarded), nameOf);
INSTANTIATE_TEST_SUITE_P(Of, ThreadOwnerDeathTest, ::testing::ValuesIn(guarded), nameOf);

TEST(ModelThreadTest, IsTheFirstThatUsesTheModelAndNotTheOneThatMadeIt) {
    StaffModel model;

    onAnotherThread([&] {
        model.openWith();
        model.startTransaction();
        model.newPerson("Ann");
        model.commit();
        model.close();
    });

    EXPECT_RAISES("MTERR", model.openWith());
    EXPECT_FALSE(model.isOpen());
}

TEST(ModelThreadTest, MayBeAnyOneForWhatIsNotChecked) {
    StaffModel model;
    model.openWith();

    EXPECT_NO_THROW(onAnotherThread([&] {
        EXPECT_TRUE(model.isOpen());
        EXPECT_NE(nullptr, model.getDriver());
        EXPECT_EQ("staff", model.getName());
        EXPECT_EQ(1, model.getVersion());
        EXPECT_EQ(model.personClass, model.getClass("Person"));
        EXPECT_NE(nullptr, model.getAssociation("Works"));
        EXPECT_EQ(nullptr, model.get(1));
        EXPECT_FALSE(model.transactionStarted());
        EXPECT_FALSE(model.isUndoable());
        EXPECT_FALSE(model.isRedoable());
        EXPECT_EQ(128, model.getMaxUndoSize());
    }));
}

TEST(ModelThreadTest, MayBeAnotherOneWhenTheModelIsDestroyed) {
    auto model = std::make_unique<StaffModel>();
    Pointer<Person> ann;
    onAnotherThread([&] {
        model->openWith();
        ann = model->newPerson("Ann");
    });

    model.reset();

    EXPECT_EQ(nullptr, ann.getInstance());
}

}  // namespace Kes::testing
