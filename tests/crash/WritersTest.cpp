// Several processes write the same file at once.

#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <random>
#include <set>

#include "tests/crash/BankModel.h"
#include "tests/drivers/PlainSqlite.h"
#include "tests/drivers/TemporaryFolder.h"
#include "tests/support/Child.h"

namespace Kes::testing {

namespace {

constexpr int Writers = 4;
constexpr int Transfers = 40;
constexpr int Accounts = 8;
constexpr long Start = 1000;

// False when somebody else was faster.
bool transfer(BankModel& model, int from, int to, long amount) {
    const Pointer<Account> source(model.find(from));
    const Pointer<Account> target(model.find(to));
    model.startTransaction();
    source->balance -= amount;
    source->change();
    target->balance += amount;
    target->change();
    try {
        model.commit();
        return true;
    } catch (const Exception& raised) {
        const std::string words = raised.getMessage();
        if (words.find("somebody else has changed it") == std::string::npos)
            throw;
        return false;
    }
}

void transferOften(const std::string& file, unsigned seed, const Child::Report& report) {
    BankModel model;
    model.openFile(file, "busy_timeout=30000");
    std::mt19937 random(seed);
    std::uniform_int_distribution<int> any(0, Accounts - 1);
    for (int i = 0; i < Transfers; ++i) {
        const int from = any(random);
        const int to = (from + 1 + any(random) % (Accounts - 1)) % Accounts;
        const std::string words =
            std::to_string(from) + " " + std::to_string(to) + " " + std::to_string(1 + i % 7);
        report("begin " + words);
        while (!transfer(model, from, to, 1 + i % 7))
            report("again");
        report("done " + words);
    }
    model.close();
}

void insertMany(const std::string& file, int count, const Child::Report& report) {
    BankModel model;
    model.openFile(file, "busy_timeout=30000");
    for (int i = 0; i < count; ++i) {
        model.startTransaction();
        const unsigned long id =
            model.newAccount(static_cast<int>(getpid()) * 1000 + i, 1)->getObjectID();
        report("id " + std::to_string(id));
        model.commit();
        report("done " + std::to_string(id));
    }
    model.close();
}

}  // namespace

class WritersTest : public ::testing::Test {
protected:
    void makeBank() {
        BankModel model;
        model.openFile(file);
        model.startTransaction();
        for (int number = 0; number < Accounts; ++number)
            model.newAccount(number, Start);
        model.commit();
        model.close();
    }

    using Balances = std::map<unsigned long, long>;

    static void book(Balances& balances, const std::string& words) {
        const std::vector<unsigned long> numbers = numbersIn(words);
        const long amount = static_cast<long>(numbers.at(2));
        balances[numbers[0]] -= amount;
        balances[numbers[1]] += amount;
    }

    void startTransfers() {
        for (unsigned i = 0; i < Writers; ++i)
            children.push_back(std::make_unique<Child>(
                [this, i](const Child::Report& report) { transferOften(file, i + 1, report); }));
    }

    // What the balances have to be by the reports of the processes.
    Balances reported() {
        Balances balances;
        for (unsigned long number = 0; number < Accounts; ++number)
            balances[number] = Start;
        for (const auto& child : children)
            for (const std::string& line : child->lines)
                if (firstWordOf(line) == "done")
                    book(balances, line.substr(5));
        return balances;
    }

    Balances stored() {
        Balances balances;
        BankModel model;
        model.openFile(file);
        SelectionOf<Account> all(model.accountClass);
        for (const Account* account : all)
            balances[static_cast<unsigned long>(account->number)] = account->balance;
        model.close();
        return balances;
    }

    TemporaryFolder folder;
    std::string file = folder.path("bank.db");
    std::vector<std::unique_ptr<Child>> children;
};

TEST_F(WritersTest, LoseNoUpdateAndDoNotLockEachOtherOutForEver) {
    makeBank();

    startTransfers();
    std::size_t conflicts = 0;
    for (const auto& child : children) {
        EXPECT_EQ(0, child->awaitEnd()) << child->last("error");
        for (const std::string& line : child->lines)
            conflicts += line == "again" ? 1 : 0;
    }

    EXPECT_EQ(reported(), stored());
    EXPECT_GT(conflicts, 0U) << "nobody was in another's way";
}

TEST_F(WritersTest, AreNotHarmedByThoseThatAreKilled) {
    makeBank();

    startTransfers();
    Child& killed = *children.front();
    ASSERT_TRUE(killed.awaitLines("done", Transfers / 4));
    killed.kill();
    for (std::size_t i = 1; i < children.size(); ++i)
        EXPECT_EQ(0, children[i]->awaitEnd()) << children[i]->last("error");

    const Balances found = stored();
    Balances expected = reported();
    if (found != expected && killed.last("begin") != killed.last("done"))
        book(expected, killed.last("begin"));
    EXPECT_EQ(expected, found);
}

TEST_F(WritersTest, MakeOneSchemaWhenAllFindNone) {
    for (int i = 0; i < 8; ++i)
        children.push_back(std::make_unique<Child>(
            [this](const Child::Report& report) { insertMany(file, 10, report); }));

    for (const auto& child : children)
        EXPECT_EQ(0, child->awaitEnd()) << child->last("error");
    EXPECT_EQ("80", PlainSqlite(file).ask("SELECT count(*) FROM Account"));
    EXPECT_EQ("1", PlainSqlite(file).ask("SELECT count(*) FROM kes_versions WHERE kind = 'MODEL'"));
}

TEST_F(WritersTest, AreGivenNoObjectIdTwiceAlsoWhenSomeAreKilled) {
    makeBank();
    std::set<std::string> ids;
    std::set<std::string> done;
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < 8; ++i)
            children.push_back(std::make_unique<Child>(
                [this](const Child::Report& report) { insertMany(file, 20, report); }));
        for (std::size_t i = 0; i < children.size(); ++i)
            if (i % 2 == 0) {
                children[i]->awaitLines("done", 1 + i);
                children[i]->kill();
            } else {
                EXPECT_EQ(0, children[i]->awaitEnd()) << children[i]->last("error");
            }
        for (const auto& child : children)
            for (const std::string& line : child->lines) {
                std::set<std::string>& noted = firstWordOf(line) == "id" ? ids : done;
                EXPECT_TRUE(noted.insert(line.substr(line.find(' ') + 1)).second) << line;
            }
        children.clear();
    }

    PlainSqlite plain(file);
    for (const std::string& id : done)
        EXPECT_EQ("1", plain.ask("SELECT count(*) FROM Account WHERE KesObjectID = " + id));
}

}  // namespace Kes::testing
