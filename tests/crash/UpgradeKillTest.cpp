// A process upgrades the schema and is killed at some moment. What is left is
// the old schema or the new one, with all data, and the next open finishes.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "tests/crash/Journals.h"
#include "tests/crash/StoreModel.h"
#include "tests/drivers/PlainSqlite.h"
#include "tests/drivers/TemporaryFolder.h"
#include "tests/support/Child.h"

namespace Kes::testing {

namespace {

constexpr int Rounds = 25;

std::string faultIn(const std::string& file, int schema) {
    const std::string sound = PlainSqlite(file).ask("PRAGMA integrity_check");
    if (sound != "ok")
        return sound;
    StoreModel model(schema);
    model.openFile(file);
    const std::string fault = model.findFault();
    model.close();
    return fault;
}

int schemaIn(const std::string& file) {
    return std::stoi(
        PlainSqlite(file).ask("SELECT version FROM kes_versions WHERE kind = 'MODEL'"));
}

}  // namespace

class UpgradeKillTest : public ::testing::TestWithParam<Journal> {
protected:
    void makeOldOne() {
        StoreModel model(1);
        model.openFile(old, GetParam().options);
        model.fill();
        model.close();
    }

    // True when the upgrade was reported before the process was killed.
    bool killWhileUpgrading(std::chrono::microseconds pause) {
        Child child([&](const Child::Report& report) {
            StoreModel model(2);
            report("begin");
            model.openFile(file, GetParam().options);
            report("done");
            model.close();
        });
        EXPECT_TRUE(child.awaitLines("begin", 1));
        child.listen(pause);
        child.kill();
        EXPECT_EQ("", child.last("error"));
        return child.awaitLines("done", 1);
    }

    TemporaryFolder folder;
    std::string old = folder.path("old.db");
    std::string file = folder.path("store.db");
    std::mt19937 random{20240229};
};

TEST_P(UpgradeKillTest, LeavesTheOldSchemaOrTheNewOneWithAllData) {
    makeOldOne();
    int oldOnes = 0;
    double span = 10000;  // microseconds; follows the time that an upgrade takes
    for (int round = 0; round < Rounds && !HasFailure(); ++round) {
        for (const char* end : {"", "-wal", "-shm", "-journal"})
            std::filesystem::remove(file + end);
        std::filesystem::copy_file(old, file);
        std::uniform_real_distribution<double> any(0, span);
        const bool reported =
            killWhileUpgrading(std::chrono::microseconds(static_cast<long>(any(random))));

        const int schema = schemaIn(file);
        span *= schema == 1 ? 1.3 : 0.75;
        oldOnes += schema == 1 ? 1 : 0;
        EXPECT_TRUE(!reported || schema == 2);
        EXPECT_EQ("", faultIn(file, schema)) << "in round " << round;
        EXPECT_EQ("", faultIn(file, 2)) << "in round " << round;
        EXPECT_EQ(2, schemaIn(file));
    }
    EXPECT_GT(oldOnes, 0) << "no upgrade was interrupted";
    EXPECT_LT(oldOnes, Rounds) << "no upgrade came to its end";
    RecordProperty("interrupted", oldOnes);
}

INSTANTIATE_TEST_SUITE_P(Journals, UpgradeKillTest, allJournals(), nameOfJournal);

}  // namespace Kes::testing
