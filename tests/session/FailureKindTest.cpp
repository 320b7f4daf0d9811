#include <gtest/gtest.h>

#include "tests/support/QuietDriver.h"
#include "tests/support/Raises.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

namespace {

// Fails as it is told, with a kind.
class ReportingDriver final : public QuietDriver, public FailureReporter {
public:
    bool commit() override { return succeeds(); }
    bool lock(Instance*) override { return succeeds(); }
    SelectionDefinition* defineSelection(AssociatedClass*) override {
        return succeeds() ? new SelectionDefinition : nullptr;
    }
    DBDriverSelection* fetch(Class*, SelectionDefinition*) override {
        return new RaisingCursor(*this);
    }
    FailureKind getFailureKind() const override { return noted; }
    void forgetFailure() override { noted = FailureKind::None; }

    FailureKind next = FailureKind::None;
    FailureKind ofCursor = FailureKind::None;

private:
    class RaisingCursor final : public DBDriverSelection {
    public:
        explicit RaisingCursor(ReportingDriver& itsDriver) : driver(itsDriver) {}
        bool next() override {
            driver.noted = driver.ofCursor;
            Exception(Exception::ERROR, "SELERR", "Selection::next", "").handle();
            return false;
        }
        Instance* getInstance() override { return nullptr; }

    private:
        ReportingDriver& driver;
    };

    bool succeeds() {
        if (next != FailureKind::None)
            noted = next;
        return next == FailureKind::None;
    }

    FailureKind noted = FailureKind::None;
};

class FailureKindTest : public ::testing::Test {
protected:
    FailureKindTest() : driver(new ReportingDriver) {
        model.openWithDriver(driver);
        model.startTransaction();
        ann = model.newPerson("Ann", 30);
        model.commit();
    }

    DrivenModel<StaffModel> model;
    ReportingDriver* driver;  // owned by the model
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
    driver->next = FailureKind::UnknownOutcome;

    const FailureKind inHandler = kindInHandler(model, [&] { model.commit(); });

    EXPECT_EQ(FailureKind::UnknownOutcome, inHandler);
    EXPECT_EQ(FailureKind::UnknownOutcome, model.getFailureKind());
}

TEST_F(FailureKindTest, OfALockIsTheDrivers) {
    driver->next = FailureKind::Conflict;

    EXPECT_EQ(FailureKind::Conflict, kindInHandler(model, [&] { model.lock(ann); }));
    EXPECT_EQ(FailureKind::Conflict, model.getFailureKind());
}

TEST_F(FailureKindTest, OfAQueryIsTheDrivers) {
    driver->next = FailureKind::LostConnection;
    Selection people(model.personClass);

    EXPECT_EQ(FailureKind::LostConnection, kindInHandler(model, [&] { people.next(); }));
    EXPECT_EQ(FailureKind::LostConnection, model.getFailureKind());
}

TEST_F(FailureKindTest, OfACursorThatRaisesIsTheDrivers) {
    driver->ofCursor = FailureKind::Conflict;
    Selection people(model.personClass);

    EXPECT_EQ(FailureKind::Conflict, kindInHandler(model, [&] { people.next(); }));
    EXPECT_EQ(FailureKind::Conflict, model.getFailureKind());
}

TEST_F(FailureKindTest, SurvivesARollback) {
    ann->change();
    driver->next = FailureKind::Conflict;
    EXPECT_RAISES("COMFAIL", model.commit());

    model.rollback();

    EXPECT_EQ(FailureKind::Conflict, model.getFailureKind());
}

TEST_F(FailureKindTest, SurvivesTheClosingOfTheModel) {
    ann->change();
    driver->next = FailureKind::LostConnection;
    EXPECT_RAISES("COMFAIL", model.commit());

    model.close();

    EXPECT_EQ(FailureKind::LostConnection, model.getFailureKind());
}

TEST_F(FailureKindTest, IsForgottenByANewTransaction) {
    driver->next = FailureKind::Conflict;
    EXPECT_RAISES("LOCKFAIL", model.lock(ann));

    model.startTransaction();

    EXPECT_EQ(FailureKind::None, model.getFailureKind());
}

TEST_F(FailureKindTest, IsForgottenByACommit) {
    driver->next = FailureKind::Conflict;
    EXPECT_RAISES("LOCKFAIL", model.lock(ann));
    driver->next = FailureKind::None;
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
