// Severity, code, context and message of errors, which applications compare.

#include <gtest/gtest.h>

#include "tests/support/Raises.h"
#include "tests/support/Recording.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

class ErrorTextTest : public ::testing::Test {
protected:
    ErrorTextTest() { recording.reset(); }
    ~ErrorTextTest() override { recording.reset(); }

    // What an open raises while a slot of the driver fails.
    std::string errorOfOpening(const std::string& failingSlot) {
        StaffModel model;
        recording.failAt(1, failingSlot);
        return errorRaisedBy([&] { model.openWith("recording", Recording::NoDatabase); });
    }

    Recording& recording = Recording::get();
};

TEST_F(ErrorTextTest, NamesADriverThatDoesNotExist) {
    StaffModel model;

    EXPECT_EQ("1 DRVERR | Model::open | Driver with name: nosuchdriver does not exist.",
              errorRaisedBy([&] { model.openWith("nosuchdriver"); }));
}

TEST_F(ErrorTextTest, NamesALibraryThatIsNoDriver) {
    DBDriverManager::setDownloadLocation("the shelf");

    EXPECT_EQ(
        "1 LOADDRIV | DBDriverManager::getDBDriver | Dynamic library hollow.dll is corrupt "
        "please download the newest from the shelf",
        errorRaisedBy([] { DBDriverManager::getDBDriver("hollow"); }));
}

TEST_F(ErrorTextTest, GivesTheDriversWordsWhenItCannotOpen) {
    EXPECT_EQ("1 DBOPENERR | Model::open | open was told to fail", errorOfOpening("open"));
}

TEST_F(ErrorTextTest, GivesTheDriversWordsForEachPassOfAnUpgrade) {
    EXPECT_EQ("1 DELCLS | Model::updateModel | beginClassUpdate was told to fail",
              errorOfOpening("beginClassUpdate"));
    EXPECT_EQ("1 CRECLS | Model::updateModel | createClass was told to fail",
              errorOfOpening("createClass"));
    EXPECT_EQ("1 DELCLS | Model::updateModel | endClassUpdate was told to fail",
              errorOfOpening("endClassUpdate"));
    EXPECT_EQ("1 CREVW | Model::updateModel | createView was told to fail",
              errorOfOpening("createView"));
    EXPECT_EQ("1 CREASS | Model::updateModel | createAssociation was told to fail",
              errorOfOpening("createAssociation"));
}

TEST_F(ErrorTextTest, IsNoFatalErrorWhenAnUpgradeCannotBeStored) {
    EXPECT_EQ("1 ROLLFAIL | Model::open | commit was told to fail", errorOfOpening("commit"));
}

TEST_F(ErrorTextTest, IsNoFatalErrorWhenAnUpgradeCannotBeTakenBack) {
    StaffModel model;
    recording.failAt(3, "", true);

    EXPECT_EQ("1 ROLLFAIL | Model::open | rollback was told to fail",
              errorRaisedBy([&] { model.openWith("recording", Recording::NoDatabase); }));
}

TEST_F(ErrorTextTest, GivesTheDriversWordsWhenACommitFails) {
    StaffModel model;
    model.openWith("recording", Recording::NoDatabase);
    model.startTransaction();
    model.newPerson("Ann");
    recording.failAt(1, "insert");
    EXPECT_EQ("1 COMFAIL | Model::commit | insert was told to fail",
              errorRaisedBy([&] { model.commit(); }));

    model.startTransaction();
    model.newPerson("Ann");
    recording.failAt(1, "commit");
    EXPECT_EQ("1 COMFAIL | Model::commit | commit was told to fail",
              errorRaisedBy([&] { model.commit(); }));
}

TEST_F(ErrorTextTest, IsFatalWhenARollbackFails) {
    StaffModel model;
    model.openWith("recording", Recording::NoDatabase);
    model.startTransaction();
    recording.failAt(1, "rollback");

    EXPECT_EQ("0 ROLLFAIL | Model::rollback | rollback was told to fail",
              errorRaisedBy([&] { model.rollback(); }));
}

TEST_F(ErrorTextTest, IsFatalWhenADriverCannotBeClosed) {
    StaffModel model;
    model.openWith("recording", Recording::NoDatabase);
    recording.failAt(1, "close");

    EXPECT_EQ("0 DBCLSERR | Model::close | close was told to fail",
              errorRaisedBy([&] { model.close(); }));
}

TEST_F(ErrorTextTest, IsFatalWhenAParkedDriverCannotBeClosed) {
    Model::setDriverCacheSize(1);
    StaffModel model;
    model.openWith("recording", Recording::NoDatabase);
    model.close();
    recording.failAt(1, "close");

    EXPECT_EQ("0 DBCLSERR | Model::close | close was told to fail",
              errorRaisedBy([] { Model::setDriverCacheSize(0); }));
}

TEST_F(ErrorTextTest, GivesTheDriversWordsWhenALockIsNotToBeHad) {
    StaffModel model;
    model.openWith("recording", Recording::NoDatabase);
    model.startTransaction();
    Person* ann = model.newPerson("Ann");
    model.commit();
    model.startTransaction();
    recording.failAt(1, "lock");

    EXPECT_EQ("1 LOCKFAIL | Instance::lock | lock was told to fail",
              errorRaisedBy([&] { ann->lock(); }));
}

TEST_F(ErrorTextTest, ExchangesCodeAndContextForAnEmptyHistory) {
    StaffModel model;
    model.openWith("recording", Recording::NoDatabase);

    EXPECT_EQ("1 Model::undo | MDLUNDO | Nothing to undo", errorRaisedBy([&] { model.undo(); }));
    EXPECT_EQ("1 Model::redo | MDLREDO | Nothing to redo", errorRaisedBy([&] { model.redo(); }));
}

TEST_F(ErrorTextTest, WantsTheRoleWhereTwoWouldDo) {
    StaffModel model;
    model.openWith("recording", Recording::NoDatabase);
    const Selection people(model.personClass);

    EXPECT_EQ(
        "1 SELFAIL | Selection::operator() | "
        "Please specify Role in recursive association condition",
        errorRaisedBy([&] { people("Friendship"); }));
}

}  // namespace Kes::testing
