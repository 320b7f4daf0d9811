// Every allocation fails, once and from then on. What was reported is stored
// and nothing by half, and the process ends by itself.

#include <gtest/gtest.h>

#include <filesystem>
#include <new>

#include "tests/crash/FaultyMemory.h"
#include "tests/crash/LedgerModel.h"
#include "tests/drivers/PlainSqlite.h"
#include "tests/drivers/TemporaryFolder.h"
#include "tests/support/Child.h"

namespace Kes::testing {
namespace {

constexpr const char* Options = "synchronous=off";

template <class Work>
bool succeeds(Work work) {
    try {
        work();
        return true;
    } catch (const Exception&) {
    } catch (const std::bad_alloc&) {}
    return false;
}

// One object changed, and two added and linked.
void commitSmall(LedgerModel& model) {
    model.startTransaction();
    const Pointer<Counter> counter(model.counter());
    counter->change();
    ++counter->last;
    auto* batch = static_cast<Batch*>(model.batchClass->newInstance());
    batch->number = counter->last;
    batch->items.add(static_cast<Item*>(model.itemClass->newInstance()));
    model.commit();
}

}  // namespace

class MemoryFaultTest : public ::testing::TestWithParam<bool> {
protected:
    // False when the allocation was not reached.
    bool runWith(unsigned long at) {
        for (const char* end : {"", "-wal", "-shm"})
            std::filesystem::remove(file + end);
        std::filesystem::copy_file(empty, file);
        Child child([&](const Child::Report& report) {
            bool done[2] = {false, false};
            {
                LedgerModel model;
                FaultyMemory::set(at, GetParam());
                if (succeeds([&] { model.openFile(file, Options); }))
                    for (bool& each : done) {
                        each = succeeds([&] { commitSmall(model); });
                        if (!each && model.transactionStarted())
                            succeeds([&] { model.rollback(); });
                    }
                FaultyMemory::clear();
            }
            report("done " + std::to_string(done[0] + done[1]));
            report(FaultyMemory::hasStruck() ? "struck" : "quiet");
        });
        EXPECT_EQ(0, child.awaitEnd()) << "at allocation " << at << ": " << child.last("error");
        commits = std::stol("0" + child.last("done"));
        return !child.awaitLines("quiet", 1);
    }

    TemporaryFolder folder;
    std::string empty = folder.path("empty.db");
    std::string file = folder.path("ledger.db");
    long commits = 0;
};

TEST_P(MemoryFaultTest, LeavesWholeCommits) {
    makeLedger(empty, Options);
    unsigned long at = 1;
    while (runWith(at) && !HasFailure() && at < 20000) {
        const long stored = lastBatchIn(file);
        EXPECT_EQ(stored, commits) << "at allocation " << at;
        PlainSqlite plain(file);
        EXPECT_EQ(std::to_string(stored), plain.ask("SELECT count(*) FROM Batch"));
        EXPECT_EQ(std::to_string(stored), plain.ask("SELECT count(*) FROM Item WHERE batch IN "
                                                    "(SELECT KesObjectID FROM Batch)"));
        at += 1 + at / 200;
    }
    EXPECT_EQ(2, commits);
    EXPECT_GT(at, 100U);
}

INSTANTIATE_TEST_SUITE_P(Repeats, MemoryFaultTest, ::testing::Values(false, true),
                         [](const auto& each) { return each.param ? "FromThenOn" : "Once"; });

}  // namespace Kes::testing
