// The one thread that a model belongs to.

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <iostream>
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
    {"addClass",
     [](StaffModel& model) {
         model.addClass("Extra", 1, [](Class* c) -> Instance* { return new Person(c); });
     }},
    {"get", [](StaffModel& model) { model.get(1); }},
    {"getInstance", [](StaffModel& model) { model.getInstance(1, model.personClass); }},
    {"newInstance", [](StaffModel& model) { model.personClass->newInstance(); }},
    {"traceSQLTo", [](StaffModel& model) { model.traceSQLTo(std::cerr); }},
    {"disableSQLTrace", [](StaffModel& model) { model.disableSQLTrace(); }},
    {"transactionStarted", [](StaffModel& model) { model.transactionStarted(); }},
    {"isUndoable", [](StaffModel& model) { model.isUndoable(); }},
    {"isRedoable", [](StaffModel& model) { model.isRedoable(); }},
    {"setMaxUndoSize", [](StaffModel& model) { model.setMaxUndoSize(0); }},
    {"getMaxUndoSize", [](StaffModel& model) { model.getMaxUndoSize(); }},
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

namespace {

class Ears : public Listener {};

struct ObjectCall {
    const char* name;
    void (*make)(StaffModel&, Person*, Company*);
};

// What the owner's objects, references and pointers offer.
const ObjectCall confined[] = {
    {"change", [](StaffModel&, Person* ann, Company*) { ann->change(); }},
    {"add", [](StaffModel&, Person* ann, Company*) { ann->add(); }},
    {"remove", [](StaffModel&, Person* ann, Company*) { ann->remove(); }},
    {"refresh", [](StaffModel&, Person* ann, Company*) { ann->refresh(); }},
    {"lock", [](StaffModel&, Person* ann, Company*) { ann->lock(); }},
    {"addListener",
     [](StaffModel&, Person* ann, Company*) {
         Ears ears;
         ann->addListener(&ears);
     }},
    {"removeListener",
     [](StaffModel&, Person* ann, Company*) {
         Ears ears;
         ann->removeListener(&ears);
     }},
    {"addListenerOfTheClass",
     [](StaffModel& model, Person*, Company*) {
         Ears ears;
         model.personClass->addListener(&ears);
     }},
    {"modelAdd", [](StaffModel& model, Person* ann, Company*) { model.add(ann); }},
    {"modelUpdate", [](StaffModel& model, Person* ann, Company*) { model.update(ann); }},
    {"modelRemove", [](StaffModel& model, Person* ann, Company*) { model.remove(ann); }},
    {"modelLock", [](StaffModel& model, Person* ann, Company*) { model.lock(ann); }},
    {"modelRefresh", [](StaffModel& model, Person* ann, Company*) { model.refresh(ann); }},
    {"modelSet", [](StaffModel& model, Person* ann, Company*) { model.set(ann); }},
    {"modelLink",
     [](StaffModel& model, Person* ann, Company* firm) {
         model.add(ann, "employer", firm, "staff", model.getAssociation("Works"));
     }},
    {"modelUnlink",
     [](StaffModel& model, Person* ann, Company* firm) {
         model.remove(ann, "employer", firm, "staff", model.getAssociation("Works"));
     }},
    {"isPending", [](StaffModel& model, Person* ann, Company*) { model.isPending(ann); }},
    {"assignReference", [](StaffModel&, Person* ann, Company* firm) { ann->employer = firm; }},
    {"emptyReference", [](StaffModel&, Person* ann, Company*) { ann->employer = nullptr; }},
    {"readReference", [](StaffModel&, Person* ann, Company*) { ann->get(ann->employer, true); }},
    {"addMember", [](StaffModel&, Person* ann, Company* firm) { firm->staff.add(ann); }},
    {"removeMember", [](StaffModel&, Person* ann, Company* firm) { firm->staff.remove(ann); }},
    {"readMembers", [](StaffModel&, Person*, Company* firm) { firm->get(firm->staff, true); }},
    {"makePointer", [](StaffModel&, Person* ann, Company*) { Pointer<Person> another(ann); }},
    {"inSameModel", [](StaffModel&, Person* ann, Company* firm) { ann->inSameModel(firm); }},
};

}  // namespace

class ThreadOwnerOfObjectsTest : public ::testing::TestWithParam<ObjectCall> {
protected:
    ThreadOwnerOfObjectsTest() {
        model.openWith();
        model.startTransaction();
        ann = model.newPerson("Ann", 30);
        firm = model.newCompany("Acme");
        model.commit();
    }

    StaffModel model;
    Pointer<Person> ann;
    Pointer<Company> firm;
};

TEST_P(ThreadOwnerOfObjectsTest, IsTheOnlyOneThatPasses) {
    Person* const person = ann;
    Company* const company = firm;

    EXPECT_RAISES("MTERR", onAnotherThread([&] { GetParam().make(model, person, company); }));

    model.commit();
    EXPECT_FALSE(ann->isRemoved());
    EXPECT_EQ(0UL, ann->getVersion());
    EXPECT_EQ(nullptr, ann->employer.get());
}

INSTANTIATE_TEST_SUITE_P(Of, ThreadOwnerOfObjectsTest, ::testing::ValuesIn(confined), nameOf);

class ForeignPointerTest : public ::testing::Test {
protected:
    ForeignPointerTest() {
        model.openWith();
        ann = model.newPerson("Ann");
        bob = model.newPerson("Bob");
    }

    StaffModel model;
    Pointer<Person> ann;
    Pointer<Person> bob;
};

TEST_F(ForeignPointerTest, IsNotCopied) {
    EXPECT_RAISES("MTERR", onAnotherThread([&] { const Pointer<Person> copy(ann); }));
}

TEST_F(ForeignPointerTest, IsNotEmptied) {
    EXPECT_RAISES("MTERR", onAnotherThread([&] { ann = nullptr; }));
    EXPECT_RAISES("MTERR", onAnotherThread([&] { ann.makeNull(); }));

    EXPECT_NE(nullptr, ann.getInstance());
}

TEST_F(ForeignPointerTest, IsNotAssigned) {
    EXPECT_RAISES("MTERR", onAnotherThread([&] { ann = bob; }));

    EXPECT_NE(bob.getInstance(), ann.getInstance());
}

TEST_F(ForeignPointerTest, TellsTheOwnerWhenItIsDestroyed) {
    auto lost = std::make_unique<Pointer<Person>>(ann);

    EXPECT_NO_THROW(onAnotherThread([&] { lost.reset(); }));

    EXPECT_RAISES("MTERR", model.garbageCollect());
    EXPECT_NO_THROW(model.garbageCollect());
    EXPECT_EQ("Ann", ann->name);
}

using ForeignPointerDeathTest = ForeignPointerTest;

TEST_F(ForeignPointerDeathTest, EndsTheProcessWhenTheHandlerReturns) {
    const auto misuse = [&] {
        const ReturningHandler handler;
        auto lost = std::make_unique<Pointer<Person>>(ann);
        onAnotherThread([&] { lost.reset(); });
    };

    EXPECT_EXIT(misuse(), ::testing::ExitedWithCode(1), "");
}

// The cursors stay open, for only their own thread may close them. A checker of
// leaks would tell of that, so the test has a process of its own.
TEST(ForeignSelectionDeathTest, IsDestroyedWithoutItsCursors) {
    const auto destroyElsewhere = [] {
        StaffModel model;
        model.openWith();
        model.newPerson("Ann");
        model.commit();
        auto people = std::make_unique<Selection>(model.personClass);
        EXPECT_TRUE(people->next());

        EXPECT_RAISES("MTERR", onAnotherThread([&] { people->next(); }));
        EXPECT_NO_THROW(onAnotherThread([&] { people.reset(); }));

        EXPECT_RAISES("MTERR", model.garbageCollect());
        model.close();
        std::_Exit(HasFailure() ? 1 : 0);
    };
    EXPECT_EXIT(destroyElsewhere(), ::testing::ExitedWithCode(0), "");
}

}  // namespace Kes::testing
