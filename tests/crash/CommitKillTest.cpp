// A process commits one batch after the other and is killed at some moment. The
// next one finds every commit that was reported, none by half, and takes no
// object id that was taken before.

#include <gtest/gtest.h>

#include <random>
#include <set>

#include "tests/crash/Journals.h"
#include "tests/crash/LedgerModel.h"
#include "tests/drivers/TemporaryFolder.h"
#include "tests/support/Child.h"

namespace Kes::testing {

namespace {

constexpr int Rounds = 25;

std::string idsOf(Batch* batch) {
    std::string ids = std::to_string(batch->getObjectID());
    for (const Item* item : batch->items)
        ids += " " + std::to_string(item->getObjectID());
    return ids;
}

void commitForEver(const std::string& file, const std::string& openOptions,
                   const Child::Report& report) {
    LedgerModel model;
    model.openFile(file, openOptions);
    report("open");
    for (;;) {
        const Pointer<Batch> batch(model.prepareCommit());
        report("ids " + idsOf(batch));
        report("begin " + std::to_string(batch->number));
        model.commit();
        report("done " + std::to_string(batch->number));
    }
}

}  // namespace

class CommitKillTest : public ::testing::TestWithParam<Journal> {
protected:
    // Somewhere in the opening, in a commit, or between two of them.
    void killSomewhere(Child& child) {
        std::uniform_int_distribution<int> any(0, 7);
        std::uniform_int_distribution<int> pause(0, 4000);
        if (any(random) != 0) {
            ASSERT_TRUE(child.awaitLines("begin", 1 + static_cast<std::size_t>(any(random))));
        }
        child.listen(std::chrono::microseconds(pause(random)));
        child.kill();
    }

    void noteIds(const Child& child) {
        for (const std::string& line : child.lines) {
            if (firstWordOf(line) != "ids")
                continue;
            for (const unsigned long id : numbersIn(line.substr(4)))
                EXPECT_TRUE(ids.insert(id).second) << id << " was taken twice";
        }
    }

    TemporaryFolder folder;
    std::string file = folder.path("ledger.db");
    std::mt19937 random{20240229};
    std::set<unsigned long> ids;
};

TEST_P(CommitKillTest, KeepsWhatWasReportedAndNothingByHalf) {
    makeLedger(file, GetParam().options);
    long stored = 0;
    int midway = 0;
    for (int round = 0; round < Rounds && !HasFailure(); ++round) {
        Child child(
            [&](const Child::Report& report) { commitForEver(file, GetParam().options, report); });
        killSomewhere(child);

        const std::string begun = child.last("begin");
        const std::string done = child.last("done");
        const long reported = done.empty() ? stored : std::stol(done);
        stored = lastBatchIn(file);
        EXPECT_EQ("", child.last("error"));
        EXPECT_GE(stored, reported);
        EXPECT_LE(stored, begun.empty() ? reported : std::stol(begun));
        EXPECT_EQ("", findFault(file, stored)) << "in round " << round;
        noteIds(child);
        midway += begun != done ? 1 : 0;
    }
    EXPECT_GT(midway, 0) << "no commit was interrupted";
    RecordProperty("interrupted", midway);
}

INSTANTIATE_TEST_SUITE_P(Journals, CommitKillTest, allJournals(), nameOfJournal);

}  // namespace Kes::testing
