// SQLite ends a transaction by itself after some failures.

#include <gtest/gtest.h>

#include "tests/crash/BankModel.h"
#include "tests/crash/FaultyFiles.h"
#include "tests/drivers/PlainSqlite.h"
#include "tests/drivers/TemporaryFolder.h"
#include "tests/support/Raises.h"

namespace Kes::testing {

class LostTransactionTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { FaultyFiles::install(); }

    // The journal can be opened and not written.
    LostTransactionTest() {
        model.openFile(file, "journal_mode=delete");
        model.startTransaction();
        account = model.newAccount(1, 100);
        model.commit();
        model.startTransaction();
        account->lock();
        FaultyFiles::set(FaultyFiles::Fails, 2, true);
        while (refusal.empty() && added < 100000)
            refusal = messageRaisedBy([&] { model.newAccount(++added + 1, 0); });
        FaultyFiles::clear();
    }

    TemporaryFolder folder;
    std::string file = folder.path("bank.db");
    BankModel model;
    Pointer<Account> account;
    std::string refusal;
    int added = 0;
};

TEST_F(LostTransactionTest, RefusesToCommitWhatIsLeftAndSaysWhy) {
    const std::string message = messageRaisedBy([&] { model.commit(); });

    EXPECT_NE(std::string::npos, refusal.find("disk I/O error")) << refusal;
    EXPECT_NE(std::string::npos, message.find("rolled the transaction back: ")) << message;
    EXPECT_NE(std::string::npos, message.find("disk I/O error")) << message;
    EXPECT_EQ("1", PlainSqlite(file).ask("SELECT count(*) FROM Account"));
}

TEST_F(LostTransactionTest, IsRolledBackWithoutAnErrorAndFollowedByAnother) {
    EXPECT_NO_THROW(model.rollback());
    model.startTransaction();
    account->change();
    account->balance = 5;
    model.commit();

    EXPECT_EQ("5", PlainSqlite(file).ask("SELECT balance FROM Account"));
}

}  // namespace Kes::testing
