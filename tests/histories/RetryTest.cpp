// The guide's loop around a transaction, in several processes at once: whatever
// fails for the others' sake, each transfer is made once in the end.

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tests/drivers/Engine.h"
#include "tests/histories/Anomaly.h"
#include "tests/histories/HistoryModel.h"
#include "tests/support/Child.h"

namespace Kes::testing {

namespace {

constexpr int Processes = 4;
constexpr int Transfers = 20;  // of each process
constexpr int Accounts = 4;
constexpr int Start = 100;
constexpr int MostTries = 1000;

// A query, a refresh or the commit may be what fails.
void transfer(HistoryModel& model, int from, int to) {
    for (int tries = 1;; ++tries) {
        try {
            model.startTransaction();
            SelectionOf<Guest> all(model.guestClass);
            std::vector<Pointer<Guest>> guests;
            for (Guest* guest : all)
                guests.emplace_back(guest);
            Guest* source = guests[static_cast<std::size_t>(from)];
            Guest* target = guests[static_cast<std::size_t>(to)];
            target->refresh();
            source->change();
            --source->tableNumber;
            target->change();
            ++target->tableNumber;
            model.commit();
            return;
        } catch (const Exception&) {
            model.rollback();
            if (model.getFailureKind() != FailureKind::Conflict || tries == MostTries)
                throw;
        }
    }
}

}  // namespace

class RetryTest : public ::testing::TestWithParam<Level> {
protected:
    RetryTest() {
        HistoryModel model;
        engine->open(model);
        model.fill(0, Accounts, 1);
        SelectionOf<Guest> all(model.guestClass);
        for (Guest* guest : all) {
            guest->change();
            guest->tableNumber = Start;
        }
        model.commit();
        model.close();
        before = versions();
    }

    int versions() { return std::stoi(engine->ask("SELECT sum([KesVersion]) FROM [Guest]")); }

    const std::unique_ptr<Engine> engine = Engine::make();
    int before = 0;
};

TEST_P(RetryTest, MakesEachTransferOnce) {
    std::vector<std::unique_ptr<Child>> children;
    for (int process = 0; process < Processes; ++process)
        children.push_back(std::make_unique<Child>([&](const Child::Report&) {
            for (int i = 0; i < process; ++i)
                engine->source();  // another node of a cluster
            HistoryModel model;
            const std::string level = GetParam().option;
            engine->open(model, level + (level.empty() ? "" : ";") + engine->waitingAtMost(30000));
            std::mt19937 random(static_cast<unsigned>(process));
            std::uniform_int_distribution<int> any(0, Accounts - 1);
            for (int i = 0; i < Transfers; ++i) {
                const int from = any(random);
                transfer(model, from, (from + 1) % Accounts);
            }
            model.close();
        }));
    for (const auto& child : children)
        EXPECT_EQ(0, child->awaitEnd()) << child->last("error");

    EXPECT_EQ(std::to_string(Accounts * Start),
              engine->ask("SELECT sum([tableNumber]) FROM [Guest]"));
    EXPECT_EQ(before + 2 * Processes * Transfers, versions());
}

INSTANTIATE_TEST_SUITE_P(Levels, RetryTest, ::testing::ValuesIn(levelsOf(driverUnderTest())),
                         shownName);

}  // namespace Kes::testing
