#include <gtest/gtest.h>

#include <stdexcept>

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

    model.openWith("recording");

    const std::vector<std::string> expected{"beginClassUpdate", "createClass",
                                            "endClassUpdate",   "createView",
                                            "createAssociation", "setVersion", "commit"};
    EXPECT_EQ(expected, steps());
}

TEST_F(SchemaSyncTest, MakesNoStorageForAbstractClasses) {
    StaffModel model;

    model.openWith("recording");

    EXPECT_EQ(4U, recording.only("createClass").size());
    EXPECT_EQ(0U, recording.only("createClass Vehicle").size());
    EXPECT_EQ(1U, recording.only("setVersion CLASS Vehicle 1").size());
}

TEST_F(SchemaSyncTest, MakesAViewForEachClassWithSubClasses) {
    StaffModel model;

    model.openWith("recording");

    EXPECT_EQ(std::vector<std::string>{"createView Vehicle"}, recording.only("createView"));
}

TEST_F(SchemaSyncTest, RecordsTheModelsVersionLast) {
    StaffModel model;

    model.openWith("recording");

    EXPECT_EQ("setVersion MODEL staff 1", recording.only("setVersion").back());
}

TEST_F(SchemaSyncTest, TouchesNothingWhenTheDatabaseIsUpToDate) {
    Model::setDriverCacheSize(1);
    StaffModel model;
    model.openWith("recording");
    model.close();
    recording.reset();

    model.openWith("recording");

    EXPECT_TRUE(steps().empty());
    Model::setDriverCacheSize(0);
}

TEST_F(SchemaSyncTest, MakesViewsAgainWhenOnlyTheModelsVersionRose) {
    Model::setDriverCacheSize(1);
    StaffModel model;
    model.openWith("recording");
    model.close();
    recording.reset();
    model.setVersion(2);

    model.openWith("recording");

    const std::vector<std::string> expected{"createView", "setVersion", "commit"};
    EXPECT_EQ(expected, steps());
    Model::setDriverCacheSize(0);
}

TEST_P(SchemaSyncTest, RollsBackAndStaysClosedWhenAPassFails) {
    const auto [slot, code] = GetParam();
    StaffModel model;
    recording.failAt(1, slot);

    EXPECT_RAISES(code, model.openWith("recording"));

    EXPECT_EQ(1U, recording.only("rollback").size());
    EXPECT_EQ(0U, recording.only("setVersion").size());
    EXPECT_FALSE(model.isOpen());
}

TEST_P(SchemaSyncTest, SucceedsAtTheNextOpen) {
    StaffModel model;
    recording.failAt(1, GetParam().first);
    EXPECT_RAISES(GetParam().second, model.openWith("recording"));
    recording.reset();

    model.openWith("recording");

    EXPECT_TRUE(model.isOpen());
}

TEST_P(SchemaSyncTest, StaysClosedWhenTheHandlerReturns) {
    StaffModel model;
    const ReturningHandler handler;
    recording.failAt(1, GetParam().first);

    model.openWith("recording");

    EXPECT_FALSE(model.isOpen());
    EXPECT_EQ(std::vector<std::string>{GetParam().second}, handler.codes());
}

INSTANTIATE_TEST_SUITE_P(EachPass, SchemaSyncTest,
                         ::testing::Values(std::pair("beginClassUpdate", "DELCLS"),
                                           std::pair("createClass", "CRECLS"),
                                           std::pair("endClassUpdate", "DELCLS"),
                                           std::pair("createView", "CREVW"),
                                           std::pair("createAssociation", "CREASS")));

TEST_F(SchemaSyncTest, ReportsAFailedCommitAsROLLFAIL) {
    StaffModel model;
    recording.failAt(1, "commit");

    EXPECT_RAISES("ROLLFAIL", model.openWith("recording"));

    EXPECT_FALSE(model.isOpen());
}

TEST_F(SchemaSyncTest, KeepsNoDriverThatThrew) {
    for (const char* slot : {"createClass", "createView", "commit"}) {
        StaffModel model;
        recording.failAt(1, slot);
        recording.throwInsteadOfFailing(true);

        EXPECT_THROW(model.openWith("recording"), std::runtime_error) << slot;

        recording.reset();
        EXPECT_NO_THROW(model.openWith("recording")) << slot;
    }
}

TEST_F(SchemaSyncTest, ReportsAFailedRollbackAsROLLFAIL) {
    StaffModel model;
    recording.failAt(3, "", true);

    EXPECT_RAISES("ROLLFAIL", model.openWith("recording"));
}

}  // namespace Kes::testing
