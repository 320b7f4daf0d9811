// What a process sees while another one keeps the file locked.

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "tests/crash/BankModel.h"
#include "tests/crash/Journals.h"
#include "tests/drivers/PlainSqlite.h"
#include "tests/drivers/TemporaryFolder.h"
#include "tests/support/Child.h"
#include "tests/support/Raises.h"

namespace Kes::testing {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

class BusyTest : public ::testing::TestWithParam<Journal> {
protected:
    void SetUp() override {
        BankModel model;
        model.openFile(file, GetParam().options);
        model.startTransaction();
        model.newAccount(1, 100);
        model.commit();
        model.close();
    }

    // Holds the file as a writer does.
    void hold(milliseconds time, const Child::Report& report) const {
        PlainSqlite plain(file);
        plain.run("BEGIN EXCLUSIVE");
        report("held");
        std::this_thread::sleep_for(time);
        plain.run("COMMIT");
    }

    std::string options(int busyTimeout) const {
        return std::string(GetParam().options) + ";busy_timeout=" + std::to_string(busyTimeout);
    }

    TemporaryFolder folder;
    std::string file = folder.path("bank.db");
};

TEST_P(BusyTest, WaitsForAnotherProcessToCommit) {
    Child holder([this](const Child::Report& report) { hold(milliseconds(1000), report); });
    ASSERT_TRUE(holder.awaitLines("held", 1));
    BankModel model;

    model.openFile(file, options(20000));
    model.startTransaction();
    model.newAccount(2, 5);
    model.commit();

    EXPECT_EQ(0, holder.awaitEnd());
    EXPECT_NE(nullptr, model.find(2));
}

TEST_P(BusyTest, ReportsAfterTheTimeWhatTheHolderCanDo) {
    BankModel model;
    model.openFile(file, options(300));
    const Pointer<Account> account(model.find(1));
    Child holder([this](const Child::Report& report) { hold(std::chrono::minutes(5), report); });
    ASSERT_TRUE(holder.awaitLines("held", 1));
    model.startTransaction();
    account->change();
    account->balance = 7;
    const auto begin = steady_clock::now();

    const std::string message = messageRaisedBy([&] { model.commit(); });

    const auto spent = steady_clock::now() - begin;
    EXPECT_GE(spent, milliseconds(250));
    EXPECT_NE(std::string::npos, message.find("300 ms")) << message;
    EXPECT_NE(std::string::npos, message.find("let it commit, roll back or close")) << message;
    EXPECT_EQ(100, account->balance);

    holder.kill();
    model.startTransaction();
    account->balance = 8;
    account->change();
    model.commit();
    EXPECT_EQ("8", PlainSqlite(file).ask("SELECT balance FROM Account"));
}

// A log lets others read meanwhile.
TEST_P(BusyTest, IsReportedByOpenUnlessALogIsKept) {
    const bool keepsLog = std::string(GetParam().options) == "journal_mode=wal";
    Child holder([this](const Child::Report& report) { hold(std::chrono::minutes(5), report); });
    ASSERT_TRUE(holder.awaitLines("held", 1));
    BankModel model;

    const std::string message = messageRaisedBy([&] { model.openFile(file, options(200)); });

    EXPECT_EQ(!keepsLog, message.find("200 ms") != std::string::npos) << message;
    EXPECT_EQ(keepsLog, model.isOpen());
}

INSTANTIATE_TEST_SUITE_P(Journals, BusyTest, defaultJournals(), nameOfJournal);

}  // namespace Kes::testing
