// What the operations of a model refuse, what they say, and what they do when
// the exception handler returns.

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/support/Raises.h"
#include "tests/support/Recording.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

namespace {

Instance* makeThing(Class* c) {
    return new Instance(c);
}

/// Ann works at a firm in an open model; a stranger lives in another one, and a
/// third one is closed.
struct Scene {
    Scene() {
        Recording::get().reset();
        model.openWith("recording");
        other.openWith();
        ann = model.newPerson("Ann", 30);
        bob = model.newPerson("Bob", 40);
        firm = model.newCompany("Firm");
        ann->employer = firm;
        model.commit();
        bob->remove();
        model.commit();
        stranger = other.newPerson("Stranger");
        other.commit();
        closed.openWith();
        closed.close();
        fresh = std::make_unique<Person>(model.personClass);
        late = std::make_unique<Person>(closed.personClass);
        works = model.getAssociation("Works");
    }
    ~Scene() { Recording::get().reset(); }

    StaffModel model, other, closed;
    Pointer<Person> ann, bob, stranger;
    Pointer<Company> firm;
    std::unique_ptr<Person> fresh;  // never added
    std::unique_ptr<Person> late;   // of the closed model
    Association* works;
};

struct Refusal {
    const char* name;
    const char* code;
    const char* says;  // a part of the message
    void (*call)(Scene&);
};

const Refusal refusals[] = {
    {"addOfNull", "INSTERR", "Null cannot be added; give it an instance",
     [](Scene& s) { s.model.add(nullptr); }},
    {"addToAnotherModel", "INSTERR", "belongs to the model staff and cannot be added in the model",
     [](Scene& s) { s.model.add(s.stranger); }},
    {"addToAClosedModel", "INSTERR", "cannot be added: the model staff is not open; open it first",
     [](Scene& s) { s.late->add(); }},
    {"addTwice", "INSTERR", "was added before; call change", [](Scene& s) { s.ann->add(); }},
    {"addOfAnAbstractClass", "INSTERR", "The class Vehicle is abstract",
     [](Scene& s) {
         Vehicle shape(s.model.vehicleClass);
         shape.add();
     }},
    {"addWithoutAnId", "OIDERR", "newObjectID was told to fail",
     [](Scene& s) {
         Recording::get().failAt(1, "newObjectID");
         s.fresh->add();
     }},
    {"changeOfNull", "INSTERR", "Null cannot be changed",
     [](Scene& s) { s.model.update(nullptr); }},
    {"changeInAnotherModel", "INSTERR", "cannot be changed in the model staff",
     [](Scene& s) { s.model.update(s.stranger); }},
    {"changeInAClosedModel", "INSTERR", "cannot be changed: the model staff is not open",
     [](Scene& s) { s.late->change(); }},
    {"changeBeforeAdd", "INSTERR", "it was never added; call add first",
     [](Scene& s) { s.fresh->change(); }},
    {"changeOfWhatIsRemoved", "INSTERR", "cannot be changed: it was removed",
     [](Scene& s) { s.bob->change(); }},
    {"removeOfNull", "INSTERR", "Null cannot be removed",
     [](Scene& s) { s.model.remove(nullptr); }},
    {"removeInAnotherModel", "INSTERR", "cannot be removed in the model staff",
     [](Scene& s) { s.model.remove(s.stranger); }},
    {"removeInAClosedModel", "INSTERR", "cannot be removed: the model staff is not open",
     [](Scene& s) { s.late->remove(); }},
    {"linkOfNull", "INSTERR", "Null cannot be linked",
     [](Scene& s) { s.model.add(nullptr, "employer", s.firm, "staff", s.works); }},
    {"linkWithNull", "INSTERR", "Null cannot be linked",
     [](Scene& s) { s.model.add(s.ann, "employer", nullptr, "staff", s.works); }},
    {"linkWithAnotherModel", "INSTERR", "cannot be linked in the model staff",
     [](Scene& s) { s.model.add(s.stranger, "employer", s.firm, "staff", s.works); }},
    {"linkWithoutAssociation", "INSTERR", "employer and staff are not the two ends of one",
     [](Scene& s) { s.model.add(s.ann, "employer", s.firm, "staff", nullptr); }},
    {"linkOfOtherRoles", "INSTERR", "are not the two ends of the association Works",
     [](Scene& s) { s.model.add(s.ann, "employer", s.firm, "employer", s.works); }},
    {"linkBeforeAdd", "INSTERR", "cannot be linked before both are added; call add first",
     [](Scene& s) { s.model.add(s.fresh.get(), "employer", s.firm, "staff", s.works); }},
    {"unlinkOfNull", "INSTERR", "Null cannot be unlinked",
     [](Scene& s) { s.model.remove(nullptr, "employer", s.firm, "staff", s.works); }},
    {"unlinkFromNull", "INSTERR", "Null cannot be unlinked",
     [](Scene& s) { s.model.remove(s.ann, "employer", nullptr, "staff", s.works); }},
    {"unlinkOfOtherRoles", "INSTERR", "are not the two ends of the association Works",
     [](Scene& s) { s.model.remove(s.ann, "staff", s.firm, "staff", s.works); }},
    {"lockOfNull", "INSTERR", "Null cannot be locked", [](Scene& s) { s.model.lock(nullptr); }},
    {"lockBeforeAdd", "LOCKFAIL", "somebody else has removed it, or it was never committed",
     [](Scene& s) { s.fresh->lock(); }},
    {"lockInAClosedModel", "INSTERR", "cannot be locked: the model staff is not open",
     [](Scene& s) { s.late->lock(); }},
    {"lockThatFails", "LOCKFAIL", "lock was told to fail",
     [](Scene& s) {
         Recording::get().failAt(1, "lock");
         s.ann->lock();
     }},
    {"refreshOfNull", "INSTERR", "Null cannot be refreshed",
     [](Scene& s) { s.model.refresh(nullptr); }},
    {"refreshInAClosedModel", "INSTERR", "cannot be refreshed: the model staff is not open",
     [](Scene& s) { s.late->refresh(); }},
    {"commitOfAClosedModel", "NOTOPEN", "The model staff is not open; open it first",
     [](Scene& s) { s.closed.commit(); }},
    {"rollbackOfAClosedModel", "NOTOPEN", "The model staff is not open; open it first",
     [](Scene& s) { s.closed.rollback(); }},
    {"commitThatFails", "COMFAIL", "commit was told to fail",
     [](Scene& s) {
         Recording::get().failAt(1, "commit");
         s.model.commit();
     }},
    {"openOfAnOpenModel", "DBOPENERR", "The model staff is open; close it before",
     [](Scene& s) { s.model.openWith(); }},
    {"openWithoutDriver", "DRVERR", "Driver with name: nosuchdriver does not exist.",
     [](Scene& s) { s.closed.openWith("nosuchdriver"); }},
    {"openThatFails", "DBOPENERR", "open was told to fail",
     [](Scene& s) {
         Recording::get().failAt(1, "open");
         s.closed.openWith("recording");
     }},
    {"openThatCannotCommit", "ROLLFAIL", "commit was told to fail",
     [](Scene& s) {
         Recording::get().failAt(1, "commit");
         s.closed.openWith("recording");
     }},
    {"classOfTheSameName", "DECLERR", "The class Person is declared twice; give one another name",
     [](Scene& s) { EXPECT_EQ(nullptr, s.model.addClass("Person", 2, makeThing)); }},
    {"classWithoutFactory", "DECLERR", "The class Lonely has no factory",
     [](Scene& s) { EXPECT_EQ(nullptr, s.model.addClass("Lonely", 1, nullptr)); }},
    {"associationOfTheSameName", "DECLERR", "The association Works is declared twice",
     [](Scene& s) {
         s.model.addAssociation(new Association("Works", s.model.personClass, "a", Association::One,
                                                Association::Unlink));
     }},
    {"selectionInAClosedModel", "SELERR", "The model staff is not open; open it first",
     [](Scene& s) {
         Selection all(s.closed.personClass);
         EXPECT_FALSE(all.next());
     }},
    {"selectionWithoutClass", "SELERR", "The selection has no class; give it one",
     [](Scene&) {
         Selection none(nullptr);
         EXPECT_FALSE(none.next());
     }},
    {"selectionThatIsNotDefined", "SELERR", "defineSelection was told to fail",
     [](Scene& s) {
         Recording::get().failAt(1, "defineSelection");
         Selection all(s.model.personClass);
         EXPECT_FALSE(all.next());
     }},
    {"selectionThatIsNotFetched", "SELERR", "fetch was told to fail",
     [](Scene& s) {
         Recording::get().failAt(2, "fetch");
         Selection all(s.model.vehicleClass);
         EXPECT_FALSE(all.next());
     }},
    {"roleThatIsNotClear", "SELFAIL", "Please specify Role in recursive association condition",
     [](Scene& s) {
         const Selection all(s.model.personClass);
         EXPECT_STREQ("spouse", all("Marriage").getRole());
     }},
};

}  // namespace

class RefusalTest : public ::testing::TestWithParam<Refusal> {
protected:
    void expectEverythingAsBefore() {
        EXPECT_TRUE(scene.model.isOpen());
        EXPECT_FALSE(scene.closed.isOpen());
        EXPECT_FALSE(scene.closed.transactionStarted());
        for (const Instance* each : {scene.ann.getInstance(), scene.firm.getInstance(),
                                     scene.bob.getInstance(), scene.stranger.getInstance()}) {
            EXPECT_FALSE(scene.model.isPending(each));
            EXPECT_FALSE(each->inTransaction());
        }
        EXPECT_EQ(scene.firm, scene.ann->employer.get());
        EXPECT_EQ(1U, scene.firm->staff.size());
        EXPECT_EQ(0UL, scene.fresh->getObjectID());
        EXPECT_FALSE(scene.fresh->isRemoved() || scene.late->isRemoved());
        EXPECT_FALSE(scene.stranger->isRemoved());
        EXPECT_EQ(5U, scene.model.getDeclaredClasses().size());
        EXPECT_EQ(4U, scene.model.getDeclaredAssociations().size());
        scene.model.commit();
        EXPECT_EQ(30, scene.model.findPerson("Ann")->age);
    }

    Scene scene;
};

TEST_P(RefusalTest, IsRaisedAndNamesTheThing) {
    std::string code, message;
    try {
        GetParam().call(scene);
    } catch (const Exception& raised) {
        code = raised.getCode();
        message = raised.getMessage();
        EXPECT_EQ(Exception::ERROR, raised.getSeverity());
    }

    EXPECT_EQ(GetParam().code, code);
    EXPECT_NE(std::string::npos, message.find(GetParam().says)) << message;
    expectEverythingAsBefore();
}

TEST_P(RefusalTest, LeavesEverythingAsItWasWhenTheHandlerReturns) {
    std::vector<std::string> codes;
    {
        const ReturningHandler handler;
        GetParam().call(scene);
        codes = handler.codes();
    }

    EXPECT_EQ(std::vector<std::string>{GetParam().code}, codes);
    expectEverythingAsBefore();
}

INSTANTIATE_TEST_SUITE_P(Of, RefusalTest, ::testing::ValuesIn(refusals),
                         [](const auto& refusal) { return std::string(refusal.param.name); });

TEST(DoubleRefusalTest, OfADriverThatIsNoneIsReportedByTheOpenToo) {
    StaffModel model;
    const ReturningHandler handler;

    model.openWith("hollow");

    EXPECT_EQ((std::vector<std::string>{"LOADDRIV", "DRVERR"}), handler.codes());
    EXPECT_FALSE(model.isOpen());
}

TEST(DoubleRefusalTest, OfASchemaAndOfItsRollbackClosesTheModel) {
    Recording& recording = Recording::get();
    recording.reset();
    StaffModel model;
    const ReturningHandler handler;
    recording.failAt(3, "", true);

    model.openWith("recording");

    ASSERT_EQ(2U, handler.codes().size());
    EXPECT_EQ("ROLLFAIL", handler.codes().back());
    EXPECT_FALSE(model.isOpen());
    EXPECT_EQ(1U, recording.only("destroy").size());
    recording.reset();
}

TEST(DoubleRefusalTest, OfALockRollsBackWhenTheHandlerReturns) {
    Scene scene;
    scene.ann->change();
    scene.ann->age = 31;
    const ReturningHandler handler;
    Recording::get().failAt(1, "lock");

    scene.firm->lock();

    EXPECT_EQ(std::vector<std::string>{"LOCKFAIL"}, handler.codes());
    EXPECT_EQ(30, scene.ann->age);
    EXPECT_FALSE(scene.model.isPending(scene.ann));
}

}  // namespace Kes::testing
