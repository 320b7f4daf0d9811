// The disk has no room, or the process may not write more than so much.

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <csignal>
#include <filesystem>

#include "tests/crash/FaultyFiles.h"
#include "tests/crash/Journals.h"
#include "tests/crash/LedgerModel.h"
#include "tests/drivers/PlainSqlite.h"
#include "tests/drivers/TemporaryFolder.h"
#include "tests/support/Child.h"

namespace Kes::testing {

namespace {

// The disk is full from the operation `fullAt` of the commit itself on.
void commitOne(LedgerModel& model, const Child::Report& report, unsigned long fullAt = 0) {
    const Pointer<Counter> counter(model.counter());
    const long before = counter->last;
    try {
        model.prepareCommit();
        if (fullAt != 0)
            FaultyFiles::set(FaultyFiles::Full, fullAt, true);
        model.commit();
        report("done " + std::to_string(counter->last));
    } catch (const Exception& raised) {
        report(std::string("refused ") + raised.getCode() + " " + raised.getMessage());
        if (model.transactionStarted())
            model.rollback();
        if (counter->last != before)
            report("error: the counter is at " + std::to_string(counter->last));
    }
}

// A file system of two megabytes, for the life of the object.
class SmallDisk {
public:
    explicit SmallDisk(const std::string& place) : folder(place) {
        std::filesystem::create_directory(folder);
        isMounted = mount("tmpfs", folder.c_str(), "tmpfs", 0, "size=2m") == 0;
    }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;
    ~SmallDisk() {
        if (isMounted)
            umount2(folder.c_str(), MNT_DETACH);
    }

    std::string folder;
    bool isMounted = false;
};

// Text that fits nowhere.
void storeTooMuch(LedgerModel& model, const Child::Report& report) {
    try {
        model.startTransaction();
        const String text(std::string(20000, 'x').c_str());
        for (int i = 0; i < 500; ++i)
            static_cast<Item*>(model.itemClass->newInstance())->text = text;
        model.commit();
        report("done 0");
    } catch (const Exception& raised) {
        report(std::string("refused ") + raised.getCode() + " " + raised.getMessage());
    }
}

}  // namespace

class FullDiskTest : public ::testing::TestWithParam<Journal> {
protected:
    static void SetUpTestSuite() { FaultyFiles::install(); }

    // Runs the body in a process and expects the last report to be `done`.
    Child& run(const std::function<void(LedgerModel&, const Child::Report&)>& body) {
        child = std::make_unique<Child>([&](const Child::Report& report) {
            LedgerModel model;
            model.openFile(file, GetParam().options);
            body(model, report);
            model.close();
        });
        EXPECT_EQ(0, child->awaitEnd()) << child->last("error");
        EXPECT_EQ("", child->last("error:"));
        return *child;
    }

    TemporaryFolder folder;
    std::string file = folder.path("ledger.db");
    std::unique_ptr<Child> child;
};

TEST_P(FullDiskTest, IsReportedAndDoesNotMatterOnceThereIsRoom) {
    makeLedger(file, GetParam().options);

    const Child& full = run([](LedgerModel& model, const Child::Report& report) {
        commitOne(model, report);
        FaultyFiles::set(FaultyFiles::Full, 1, true);
        commitOne(model, report);
        commitOne(model, report);
        FaultyFiles::clear();
        commitOne(model, report);
    });

    const std::string refused = full.last("refused");
    EXPECT_NE(std::string::npos, refused.find("full; make room and try again")) << refused;
    EXPECT_EQ("2", full.last("done"));
    EXPECT_EQ("", findFault(file, 2));
}

TEST_P(FullDiskTest, IsReportedInTheMiddleOfACommit) {
    makeLedger(file, GetParam().options);

    const Child& full = run([](LedgerModel& model, const Child::Report& report) {
        commitOne(model, report);
        commitOne(model, report, 5);
        FaultyFiles::clear();
        commitOne(model, report);
    });

    EXPECT_EQ("COMFAIL", firstWordOf(full.last("refused")));
    EXPECT_EQ("2", full.last("done"));
    EXPECT_EQ("", findFault(file, 2));
}

TEST_P(FullDiskTest, IsAlsoALimitOfTheFileSize) {
    makeLedger(file, GetParam().options);

    const Child& limited = run([](LedgerModel& model, const Child::Report& report) {
        std::signal(SIGXFSZ, SIG_IGN);
        rlimit limit{};
        getrlimit(RLIMIT_FSIZE, &limit);
        limit.rlim_cur = 1 << 20;
        setrlimit(RLIMIT_FSIZE, &limit);
        storeTooMuch(model, report);
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_FSIZE, &limit);
        commitOne(model, report);
    });

    const std::string refused = limited.last("refused");
    EXPECT_EQ("COMFAIL", firstWordOf(refused));
    EXPECT_NE(std::string::npos, refused.find("File too large")) << refused;
    EXPECT_EQ("1", limited.last("done"));
    EXPECT_EQ("", findFault(file, 1));
}

TEST_P(FullDiskTest, IsReportedByARealOne) {
    const SmallDisk disk(folder.path("disk"));
    if (!disk.isMounted)
        GTEST_SKIP() << "this user cannot mount a small file system";
    file = disk.folder + "/ledger.db";
    makeLedger(file, GetParam().options);

    const Child& full = run([](LedgerModel& model, const Child::Report& report) {
        storeTooMuch(model, report);
        commitOne(model, report);
    });

    const std::string refused = full.last("refused");
    EXPECT_EQ("COMFAIL", firstWordOf(refused));
    EXPECT_NE(std::string::npos, refused.find("full; make room and try again")) << refused;
    EXPECT_EQ("1", full.last("done"));
    EXPECT_EQ("", findFault(file, 1));
}

INSTANTIATE_TEST_SUITE_P(Journals, FullDiskTest, slowJournals(), nameOfJournal);

}  // namespace Kes::testing
