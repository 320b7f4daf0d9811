#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/Raises.h"
#include "tests/support/Recording.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

// The schema slots of an open, without versions and details.
std::vector<std::string> steps() {
    std::vector<std::string> found;
    for (const std::string& line : Recording::get().log) {
        const std::string slot = line.substr(0, line.find(' '));
        if (slot == "beginClassUpdate" || slot == "createClass" || slot == "endClassUpdate" ||
            slot == "createView" || slot == "createAssociation" || slot == "setVersion" ||
            slot == "commit" || slot == "rollback")
            if (found.empty() || found.back() != slot)
                found.push_back(slot);
    }
    return found;
}

class SchemaSyncTest : public ::testing::TestWithParam<std::pair<const char*, const char*>> {
protected:
    SchemaSyncTest() { recording.reset(); }
    ~SchemaSyncTest() override { recording.reset(); }

    Recording& recording = Recording::get();
};

TEST_F(SchemaSyncTest, FinishesEachPassBeforeTheNext) {
    StaffModel model;

    model.openWith("recording", Recording::NoDatabase);

    const std::vector<std::string> expected{
        "beginClassUpdate",  "createClass", "endClassUpdate", "createView",
        "createAssociation", "setVersion",  "commit"};
    EXPECT_EQ(expected, steps());
}

TEST_F(SchemaSyncTest, MakesNoStorageForAbstractClasses) {
    StaffModel model;

    model.openWith("recording", Recording::NoDatabase);

    EXPECT_EQ(4U, recording.only("createClass").size());
    EXPECT_EQ(0U, recording.only("createClass Vehicle").size());
    EXPECT_EQ(1U, recording.only("setVersion CLASS Vehicle 1").size());
}

TEST_F(SchemaSyncTest, MakesAViewForEachClassWithSubClasses) {
    StaffModel model;

    model.openWith("recording", Recording::NoDatabase);

    EXPECT_EQ(std::vector<std::string>{"createView Vehicle"}, recording.only("createView"));
}

TEST_F(SchemaSyncTest, RecordsTheModelsVersionLast) {
    StaffModel model;

    model.openWith("recording", Recording::NoDatabase);

    EXPECT_EQ("setVersion MODEL staff 1", recording.only("setVersion").back());
}

TEST_F(SchemaSyncTest, TouchesNothingWhenTheDatabaseIsUpToDate) {
    Model::setDriverCacheSize(1);
    StaffModel model;
    model.openWith("recording", Recording::NoDatabase);
    model.close();
    recording.reset();

    model.openWith("recording", Recording::NoDatabase);

    EXPECT_TRUE(steps().empty());
    Model::setDriverCacheSize(0);
}

TEST_F(SchemaSyncTest, MakesViewsAgainWhenOnlyTheModelsVersionRose) {
    Model::setDriverCacheSize(1);
    StaffModel model;
    model.openWith("recording", Recording::NoDatabase);
    model.close();
    recording.reset();
    model.setVersion(2);

    model.openWith("recording", Recording::NoDatabase);

    const std::vector<std::string> expected{"createView", "setVersion", "commit"};
    EXPECT_EQ(expected, steps());
    Model::setDriverCacheSize(0);
}

TEST_P(SchemaSyncTest, RollsBackAndStaysClosedWhenAPassFails) {
    const auto [slot, code] = GetParam();
    StaffModel model;
    recording.failAt(1, slot);

    EXPECT_RAISES(code, model.openWith("recording", Recording::NoDatabase));

    EXPECT_EQ(1U, recording.only("rollback").size());
    EXPECT_EQ(0U, recording.only("setVersion").size());
    EXPECT_FALSE(model.isOpen());
}

TEST_P(SchemaSyncTest, SucceedsAtTheNextOpen) {
    StaffModel model;
    recording.failAt(1, GetParam().first);
    EXPECT_RAISES(GetParam().second, model.openWith("recording", Recording::NoDatabase));
    recording.reset();

    model.openWith("recording", Recording::NoDatabase);

    EXPECT_TRUE(model.isOpen());
}

TEST_P(SchemaSyncTest, StaysClosedWhenTheHandlerReturns) {
    StaffModel model;
    const ReturningHandler handler;
    recording.failAt(1, GetParam().first);

    model.openWith("recording", Recording::NoDatabase);

    EXPECT_FALSE(model.isOpen());
    EXPECT_EQ(std::vector<std::string>{GetParam().second}, handler.codes());
}

INSTANTIATE_TEST_SUITE_P(EachPass, SchemaSyncTest,
                         ::testing::Values(std::pair("beginClassUpdate", "DELCLS"),
                                           std::pair("createClass", "CRECLS"),
                                           std::pair("endClassUpdate", "DELCLS"),
                                           std::pair("createView", "CREVW"),
                                           std::pair("createAssociation", "CREASS")));

TEST_P(SchemaSyncTest, SaysWhatTheDriverSaid) {
    StaffModel model;
    recording.failAt(1, GetParam().first);

    try {
        model.openWith("recording", Recording::NoDatabase);
        ADD_FAILURE() << "nothing was raised";
    } catch (const Exception& raised) {
        EXPECT_EQ(Exception::ERROR, raised.getSeverity());
        EXPECT_STREQ("Model::updateModel", raised.getContext());
        EXPECT_EQ(std::string(GetParam().first) + " was told to fail",
                  static_cast<const char*>(raised.getMessage()));
    }
}

TEST_P(SchemaSyncTest, LeavesTheRestUnrunWhenAPassFails) {
    StaffModel model;
    recording.failAt(1, GetParam().first);

    EXPECT_RAISES(GetParam().second, model.openWith("recording", Recording::NoDatabase));

    const std::vector<std::string> all = steps();
    ASSERT_LE(2U, all.size());
    EXPECT_EQ("rollback", all.back());
    EXPECT_EQ(GetParam().first, all[all.size() - 2]);
    EXPECT_EQ(1U, recording.only(GetParam().first).size());
}

TEST_F(SchemaSyncTest, PassesOnWhatAHandlerThrows) {
    StaffModel model;
    recording.failAt(1, "createClass");
    {
        const ReturningHandler restoring;  // restores the usual one at the end
        Exception::setExceptionHandler(
            [](Exception& error) { throw std::runtime_error(error.getCode()); });
        EXPECT_THROW(model.openWith("recording", Recording::NoDatabase), std::runtime_error);
    }

    EXPECT_EQ(1U, recording.only("rollback").size());
    EXPECT_FALSE(model.isOpen());
}

namespace {

// The database knows those versions, and 1 of all others.
std::vector<std::string> stepsWith(std::map<std::string, int> versions, bool asked) {
    Recording& recording = Recording::get();
    recording.reset();
    recording.versions = std::move(versions);
    recording.versions.insert(
        {{"staff", 1}, {"Person", 1}, {"Company", 1}, {"Vehicle", 1}, {"Car", 1}, {"Boat", 1}});
    StaffModel model;
    model.openWith("recording", Recording::NoDatabase);
    std::vector<std::string> steps;
    for (const std::string& line : recording.log)
        if (line.starts_with("getVersion") == asked && !line.starts_with("open ") &&
            line != "commit")
            steps.push_back(line);
    return steps;
}

using Steps = std::vector<std::string>;

}  // namespace

TEST_F(SchemaSyncTest, UpgradesTheClassesThatAreOlderOnly) {
    EXPECT_EQ((Steps{"beginClassUpdate Boat", "createClass Boat", "endClassUpdate Boat",
                     "createView Vehicle", "setVersion CLASS Boat 1", "setVersion MODEL staff 1"}),
              stepsWith({{"staff", 0}, {"Boat", 0}, {"Car", 2}}, false));
}

TEST_F(SchemaSyncTest, RecordsTheVersionOfAnAbstractClassThatRose) {
    EXPECT_EQ(
        (Steps{"createView Vehicle", "setVersion CLASS Vehicle 1", "setVersion MODEL staff 1"}),
        stepsWith({{"staff", 0}, {"Vehicle", 0}}, false));
}

TEST_F(SchemaSyncTest, MakesTheAssociationsOfEitherEndThatRose) {
    EXPECT_EQ((Steps{"beginClassUpdate Company", "createClass Company", "endClassUpdate Company",
                     "createView Vehicle", "createAssociation Works", "setVersion CLASS Company 1",
                     "setVersion MODEL staff 1"}),
              stepsWith({{"staff", 0}, {"Company", 0}}, false));
    const Steps ofPeople = stepsWith({{"staff", 0}, {"Person", 0}}, false);
    EXPECT_EQ(4, std::count_if(ofPeople.begin(), ofPeople.end(), [](const std::string& line) {
                  return line.rfind("createAssociation", 0) == 0;
              }));
}

TEST_F(SchemaSyncTest, LeavesADatabaseWithANewerModelAlone) {
    EXPECT_EQ(Steps{}, stepsWith({{"staff", 2}, {"Person", 0}}, false));
    EXPECT_EQ(Steps{}, stepsWith({{"staff", 1}, {"Person", 0}}, false));
}

// Five classes in four passes, and the ends of four associations: the second
// end only where the first is not older.
TEST_F(SchemaSyncTest, AsksForEachClassInEachPass) {
    const Steps none = stepsWith({{"staff", 0}}, true);
    EXPECT_EQ(1U + 4 * 5 + 4 * 2, none.size());
    const Steps people = stepsWith({{"staff", 0}, {"Person", 0}}, true);
    EXPECT_EQ(1U + 4 * 5 + 4 + 1, people.size());
}

TEST_F(SchemaSyncTest, ReportsAFailedCommitAsROLLFAIL) {
    StaffModel model;
    recording.failAt(1, "commit");

    EXPECT_RAISES("ROLLFAIL", model.openWith("recording", Recording::NoDatabase));

    EXPECT_FALSE(model.isOpen());
}

TEST_F(SchemaSyncTest, KeepsNoDriverThatThrew) {
    for (const char* slot : {"createClass", "createView", "commit"}) {
        StaffModel model;
        recording.failAt(1, slot);
        recording.throwInsteadOfFailing(true);

        EXPECT_THROW(model.openWith("recording", Recording::NoDatabase), std::runtime_error)
            << slot;

        recording.reset();
        EXPECT_NO_THROW(model.openWith("recording", Recording::NoDatabase)) << slot;
    }
}

TEST_F(SchemaSyncTest, ReportsAFailedRollbackAsROLLFAIL) {
    StaffModel model;
    recording.failAt(3, "", true);

    EXPECT_RAISES("ROLLFAIL", model.openWith("recording", Recording::NoDatabase));
}

}  // namespace Kes::testing
