// Operations on the database's files, each of the first ones and then ever fewer,
// fail once, from then on, find the disk full, or are the last before the process
// is killed.

#include <gtest/gtest.h>

#include <filesystem>

#include "tests/crash/FaultyFiles.h"
#include "tests/crash/Journals.h"
#include "tests/crash/LedgerModel.h"
#include "tests/crash/StoreModel.h"
#include "tests/drivers/PlainSqlite.h"
#include "tests/drivers/TemporaryFolder.h"
#include "tests/support/Child.h"

namespace Kes::testing {

namespace {

constexpr long Commits = 3;

// How far the operations that fail lie apart, in per cent of those before them.
// A process under a sanitizer takes ten times as long.
#if defined(KES_SANITIZED_ADDRESS)
constexpr unsigned long Apart = 25;
#else
constexpr unsigned long Apart = 4;
#endif

unsigned long nextBehind(unsigned long at) {
    return at + 1 + at * Apart / 100;
}

// Two attempts per commit. What cannot be undone would end the process.
void commitSome(const std::string& file, const std::string& openOptions,
                const Child::Report& report) {
    const auto tell = [&](const Exception& raised) {
        report(std::string(raised.getCode()) + " " + raised.getMessage());
    };
    LedgerModel model;
    try {
        model.openFile(file, openOptions);
        for (long i = 0; i < 2 * Commits && model.counter()->last < Commits; ++i) {
            const Pointer<Counter> counter(model.counter());
            const long before = counter->last;
            try {
                model.prepareCommit();
                model.commit();
                report("done " + std::to_string(counter->last));
            } catch (const Exception& raised) {
                tell(raised);
                if (model.transactionStarted())
                    model.rollback();
                if (counter->last != before)
                    report("problem: the counter is at " + std::to_string(counter->last));
            }
        }
        model.close();
    } catch (const Exception& raised) {
        tell(raised);
        if (model.isOpen() && model.transactionStarted())
            model.rollback();
    }
}

struct Way {
    FaultyFiles::Fault fault;
    bool goesOn;
};

}  // namespace

class FileFaultTest : public ::testing::TestWithParam<Journal> {
protected:
    static void SetUpTestSuite() { FaultyFiles::install(); }

    // Takes a fresh copy of the file.
    void bring(const std::string& from) {
        for (const char* end : {"", "-wal", "-shm", "-journal"})
            std::filesystem::remove(file + end);
        std::filesystem::copy_file(from, file);
    }

    // Runs the body with the fault in a process; false when it was not reached.
    bool runWith(Way way, unsigned long at, const std::function<void(const Child::Report&)>& body,
                 std::vector<std::string>& lines) {
        Child child([&](const Child::Report& report) {
            FaultyFiles::set(way.fault, at, way.goesOn);
            body(report);
            report(FaultyFiles::hasStruck() ? "struck" : "quiet");
        });
        const int status = child.awaitEnd();
        const bool isReached = !child.awaitLines("quiet", 1);
        const int expected = isReached && way.fault == FaultyFiles::Kills ? -1 : 0;
        EXPECT_EQ(expected, status)
            << "at operation " << at << ": " << (child.lines.empty() ? "" : child.lines.back());
        for (const std::string& line : child.lines)
            EXPECT_NE("problem:", firstWordOf(line)) << "at operation " << at << ": " << line;
        lines = child.lines;
        return isReached;
    }

    static long lastDone(const std::vector<std::string>& lines) {
        long done = 0;
        for (const std::string& line : lines)
            if (firstWordOf(line) == "done")
                done = std::stol(line.substr(5));
        return done;
    }

    void commitWith(Way way) {
        const std::string empty = folder.path("empty.db");
        makeLedger(empty, GetParam().options);
        unsigned long at = 0;
        std::vector<std::string> lines;
        const auto body = [this](const Child::Report& report) {
            commitSome(file, GetParam().options, report);
        };
        do {
            bring(empty);
            at = nextBehind(at);
            if (!runWith(way, at, body, lines))
                break;
            const long stored = lastBatchIn(file);
            EXPECT_GE(stored, lastDone(lines)) << "at operation " << at;
            EXPECT_LE(stored, lastDone(lines) + 1) << "at operation " << at;
            EXPECT_EQ("", findFault(file, stored)) << "at operation " << at;
        } while (!HasFailure() && at < 5000);
        EXPECT_EQ(Commits, lastDone(lines));
        EXPECT_GT(at, 10U);
        RecordProperty("operations", static_cast<int>(at));
    }

    void upgradeWith(Way way) {
        const std::string old = folder.path("old.db");
        {
            StoreModel model(1);
            model.openFile(old, GetParam().options);
            model.fill();
            model.close();
        }
        unsigned long at = 0;
        std::vector<std::string> lines;
        const auto body = [this](const Child::Report& report) {
            StoreModel model(2);
            try {
                model.openFile(file, GetParam().options);
                report("done 1");
                model.close();
            } catch (const Exception& raised) {
                report(std::string(raised.getCode()) + " " + raised.getMessage());
            }
        };
        do {
            bring(old);
            at = nextBehind(at);
            if (!runWith(way, at, body, lines))
                break;
            const std::string schema =
                PlainSqlite(file).ask("SELECT version FROM kes_versions WHERE kind = 'MODEL'");
            EXPECT_TRUE(lastDone(lines) == 0 || schema == "2") << "at operation " << at;
            EXPECT_EQ("", faultIn(std::stoi(schema))) << "at operation " << at;
            EXPECT_EQ("", faultIn(2)) << "at operation " << at;
        } while (!HasFailure() && at < 5000);
        EXPECT_EQ(1, lastDone(lines));
        EXPECT_GT(at, 10U);
        RecordProperty("operations", static_cast<int>(at));
    }

    std::string faultIn(int schema) {
        if (PlainSqlite(file).ask("PRAGMA integrity_check") != "ok")
            return "the file is damaged";
        StoreModel model(schema);
        model.openFile(file);
        const std::string fault = model.findFault();
        model.close();
        return fault;
    }

    TemporaryFolder folder;
    std::string file = folder.path("faulty.db");
};

TEST_P(FileFaultTest, LeavesWholeCommitsWhenAnOperationFailsOnce) {
    commitWith({FaultyFiles::Fails, false});
}

TEST_P(FileFaultTest, LeavesWholeCommitsWhenAllOperationsFailFromThenOn) {
    commitWith({FaultyFiles::Fails, true});
}

TEST_P(FileFaultTest, LeavesWholeCommitsWhenTheDiskIsFullFromThenOn) {
    commitWith({FaultyFiles::Full, true});
}

TEST_P(FileFaultTest, LeavesWholeCommitsWhenAnOperationIsTheLast) {
    commitWith({FaultyFiles::Kills, false});
}

TEST_P(FileFaultTest, LeavesAWholeSchemaWhenAnOperationFailsOnce) {
    upgradeWith({FaultyFiles::Fails, false});
}

TEST_P(FileFaultTest, LeavesAWholeSchemaWhenAllOperationsFailFromThenOn) {
    upgradeWith({FaultyFiles::Fails, true});
}

TEST_P(FileFaultTest, LeavesAWholeSchemaWhenAnOperationIsTheLast) {
    upgradeWith({FaultyFiles::Kills, false});
}

INSTANTIATE_TEST_SUITE_P(Journals, FileFaultTest, slowJournals(), nameOfJournal);

}  // namespace Kes::testing
