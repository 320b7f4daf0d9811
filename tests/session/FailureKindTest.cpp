#include <gtest/gtest.h>

#include "tests/support/QuietDriver.h"
#include "tests/support/Raises.h"
#include "tests/support/Recording.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

namespace {

class FailureKindTest : public ::testing::Test {
protected:
    FailureKindTest() {
        recording.reset();
        model.openWith("recording", Recording::NoDatabase);
        model.startTransaction();
        ann = model.newPerson("Ann", 30);
        model.commit();
    }
    ~FailureKindTest() override { recording.reset(); }

    void failAt(const char* slot, FailureKind kind) {
        recording.kind = kind;
        recording.failAt(1, slot);
    }

    Recording& recording = Recording::get();
    StaffModel model;
    Pointer<Person> ann;
};

Model* myWatched = nullptr;
FailureKind myNoted = FailureKind::None;

void noteKind(Exception& error) {
    myNoted = myWatched->getFailureKind();
    throw Exception(error);
}

void rethrow(Exception& error) {
    throw Exception(error);
}

// Asks in the handler, too.
template <class Work>
FailureKind kindInHandler(Model& model, Work work) {
    myWatched = &model;
    myNoted = FailureKind::None;
    Exception::setExceptionHandler(noteKind);
    try {
        work();
    } catch (const Exception&) {}
    Exception::setExceptionHandler(rethrow);
    return myNoted;
}

}  // namespace

TEST_F(FailureKindTest, IsNoneWhileNothingFails) {
    EXPECT_EQ(FailureKind::None, model.getFailureKind());
}

TEST_F(FailureKindTest, OfACommitIsTheDrivers) {
    ann->change();
    failAt("commit", FailureKind::UnknownOutcome);

    const FailureKind inHandler = kindInHandler(model, [&] { model.commit(); });

    EXPECT_EQ(FailureKind::UnknownOutcome, inHandler);
    EXPECT_EQ(FailureKind::UnknownOutcome, model.getFailureKind());
}

TEST_F(FailureKindTest, OfALockIsTheDrivers) {
    failAt("lock", FailureKind::Conflict);

    EXPECT_EQ(FailureKind::Conflict, kindInHandler(model, [&] { model.lock(ann); }));
    EXPECT_EQ(FailureKind::Conflict, model.getFailureKind());
}

TEST_F(FailureKindTest, OfAQueryIsTheDrivers) {
    failAt("defineSelection", FailureKind::LostConnection);
    Selection people(model.personClass);

    EXPECT_EQ(FailureKind::LostConnection, kindInHandler(model, [&] { people.next(); }));
    EXPECT_EQ(FailureKind::LostConnection, model.getFailureKind());
}

TEST_F(FailureKindTest, OfACursorThatRaisesIsTheDrivers) {
    failAt("cursor.next", FailureKind::Conflict);
    Selection people(model.personClass);

    EXPECT_EQ(FailureKind::Conflict, kindInHandler(model, [&] { people.next(); }));
    EXPECT_EQ(FailureKind::Conflict, model.getFailureKind());
}

TEST_F(FailureKindTest, SurvivesARollback) {
    ann->change();
    failAt("commit", FailureKind::Conflict);
    EXPECT_RAISES("COMFAIL", model.commit());

    model.rollback();

    EXPECT_EQ(FailureKind::Conflict, model.getFailureKind());
}

TEST_F(FailureKindTest, SurvivesTheClosingOfTheModel) {
    ann->change();
    failAt("commit", FailureKind::LostConnection);
    EXPECT_RAISES("COMFAIL", model.commit());

    model.close();

    EXPECT_EQ(FailureKind::LostConnection, model.getFailureKind());
}

TEST_F(FailureKindTest, IsForgottenByANewTransaction) {
    failAt("lock", FailureKind::Conflict);
    EXPECT_RAISES("LOCKFAIL", model.lock(ann));

    model.startTransaction();

    EXPECT_EQ(FailureKind::None, model.getFailureKind());
}

TEST_F(FailureKindTest, IsForgottenByACommit) {
    failAt("lock", FailureKind::Conflict);
    EXPECT_RAISES("LOCKFAIL", model.lock(ann));
    ann->change();

    model.commit();

    EXPECT_EQ(FailureKind::None, model.getFailureKind());
}

TEST_F(FailureKindTest, OfAnErrorWithoutTheDatabaseIsUnclassified) {
    EXPECT_RAISES("INSTERR", model.lock(nullptr));

    EXPECT_EQ(FailureKind::Unclassified, model.getFailureKind());
}

namespace {

class PlainDriver final : public QuietDriver {
public:
    bool commit() override { return !fails; }

    bool fails = false;
};

}  // namespace

TEST(FailureKindOfAPlainDriverTest, IsUnclassified) {
    DrivenModel<StaffModel> model;
    auto* plain = new PlainDriver;
    model.openWithDriver(plain);
    model.newPerson("Ann", 30);
    plain->fails = true;

    const FailureKind inHandler = kindInHandler(model, [&] { model.commit(); });

    EXPECT_EQ(FailureKind::Unclassified, inHandler);
    EXPECT_EQ(FailureKind::Unclassified, model.getFailureKind());
    plain->fails = false;
    model.newPerson("Bob", 30);
    model.commit();
    EXPECT_EQ(FailureKind::None, model.getFailureKind());
}

TEST(FailureKindOfAnOpenTest, OutlivesItsDriver) {
    StaffModel model;

    EXPECT_RAISES("DBOPENERR", model.open("sqlite", "/nowhere/at/all", "", "", ""));

    EXPECT_EQ(FailureKind::Unclassified, model.getFailureKind());
}

}  // namespace Kes::testing
