// Each allocation of what declares, opens, upgrades, parks and closes models fails
// in turn. The database has its whole schema or none of it, the model can be opened
// again, and what was taken is given back.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/crash/EachAllocation.h"
#include "tests/crash/StaffContents.h"
#include "tests/crash/StoreModel.h"
#include "tests/drivers/PlainSqlite.h"
#include "tests/drivers/TemporaryFolder.h"

namespace Kes::testing {

class OpenMemoryTest : public ::testing::TestWithParam<bool> {
protected:
    ~OpenMemoryTest() override { Model::setDriverCacheSize(0); }

    void openStaff(StaffModel& model) { model.openWith("sqlite", file.c_str(), Options); }

    void clear() {
        for (const char* end : {"", "-wal", "-shm", "-journal"})
            std::filesystem::remove(file + end);
    }

    void makeStaff() {
        StaffModel model;
        openStaff(model);
        fillStaff(model);
        model.close();
    }

    // Tables, indexes, views and versions; "" in an empty database.
    std::string storedSchema() {
        PlainSqlite plain(file);
        std::string text;
        for (const std::string& each : plain.askAll(
                 "SELECT type || ' ' || name || ' ' || sql FROM sqlite_master WHERE sql IS NOT "
                 "NULL ORDER BY type, name"))
            text += each + '\n';
        if (!text.empty())
            for (const std::string& each : plain.askAll(
                     "SELECT kind || ' ' || name || ' ' || version FROM kes_versions ORDER BY 1"))
                text += each + '\n';
        return text;
    }

    /// Every round bears its failure, and there are more than `least` of them.
    template <class Round>
    void expectBorne(unsigned long least, Round round) {
        FailingRound first(0, false);
        round(first);  // what is made once and kept is there now
        const unsigned long failures = failEachAllocation(GetParam(), round, 12);
        RecordProperty("failures", static_cast<int>(failures));
        EXPECT_GT(failures, least);
    }

    static constexpr const char* Options = "synchronous=off;journal_mode=memory";

    TemporaryFolder folder;
    std::string file = folder.path("staff.db");
};

TEST_P(OpenMemoryTest, MakesTheWholeSchemaOrNothing) {
    makeStaff();
    const std::string schema = storedSchema();
    const std::string contents = storedStaff(file, true);
    expectBorne(500, [&](FailingRound& round) {
        clear();
        StaffModel model;

        const bool isDone = round.bears([&] { openStaff(model); });

        EXPECT_EQ(isDone, model.isOpen());
        const std::string left = storedSchema();
        EXPECT_TRUE(left == schema || (!isDone && left.empty())) << left;
        if (!isDone)
            openStaff(model);
        fillStaff(model);
        EXPECT_EQ(schema, storedSchema());
        EXPECT_EQ(contents, storedStaff(file, true));
    });
}

// Of the models too, which end while there is no memory.
TEST_P(OpenMemoryTest, LeavesModelsThatCanEnd) {
    makeStaff();
    const std::string contents = storedStaff(file, true);
    expectBorne(100, [&](FailingRound& round) {
        round.bears([&] {
            StaffModel model;
            openStaff(model);
            model.startTransaction();
            const Pointer<Person> first(model.findPerson("P0"));
            first->change();
            first->spouse = model.newPerson("a person that is new");
        });

        EXPECT_EQ(contents, storedStaff(file, true));
    });
}

TEST_P(OpenMemoryTest, ParksDriversOrClosesThem) {
    makeStaff();
    const std::string contents = storedStaff(file, true);
    expectBorne(100, [&](FailingRound& round) {
        {
            StaffModel model;
            StaffModel other;

            round.bears([&] {
                Model::setDriverCacheSize(2);
                openStaff(model);
                openStaff(other);
                model.findPerson("P0");
                other.close();
                model.close();
                openStaff(other);
                openStaff(model);
            });

            for (StaffModel* each : {&model, &other}) {
                if (!each->isOpen())
                    openStaff(*each);
                EXPECT_NE(nullptr, each->findPerson("P5"));
            }
            model.close();
        }
        EXPECT_EQ(contents, storedStaff(file, true));
        Model::setDriverCacheSize(0);
    });
}

TEST_P(OpenMemoryTest, UpgradesAllOrNothing) {
    const std::string old = folder.path("old.db");
    {
        StoreModel model(1);
        model.openFile(old, Options);
        model.fill();
        model.close();
    }
    expectBorne(500, [&](FailingRound& round) {
        clear();
        std::filesystem::copy_file(old, file);
        const std::string before = storedSchema();
        StoreModel model(2);

        const bool isDone = round.bears([&] { model.openFile(file, Options); });

        EXPECT_EQ(isDone, model.isOpen());
        if (!isDone) {
            EXPECT_EQ(before, storedSchema());
            model.openFile(file, Options);
        }
        EXPECT_EQ("", model.findFault());
    });
}

INSTANTIATE_TEST_SUITE_P(Failures, OpenMemoryTest, ::testing::Bool(),
                         [](const ::testing::TestParamInfo<bool>& goesOn) {
                             return goesOn.param ? "FromThenOn" : "Once";
                         });

}  // namespace Kes::testing
