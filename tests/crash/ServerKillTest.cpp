// A process commits to a server and is killed at some moment. The server has
// every commit that was reported, none by half, and gives no object id twice.

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <utility>

#include "tests/crash/LedgerModel.h"
#include "tests/drivers/Engine.h"
#include "tests/support/Child.h"

namespace Kes::testing {

class ServerKillTest : public ::testing::Test {
protected:
    static constexpr int Rounds = 25;

    ServerKillTest() {
        LedgerModel model;
        engine->open(model);
        model.startTransaction();
        model.counter();
        model.commit();
        model.close();
    }

    void commitForEver(const Child::Report& report) const {
        LedgerModel model;
        engine->open(model, label);
        report("open");
        for (;;) {
            const Pointer<Batch> batch(model.prepareCommit());
            std::string taken = std::to_string(batch->getObjectID());
            for (const Item* item : batch->items)
                taken += " " + std::to_string(item->getObjectID());
            report("ids " + taken);
            report("begin " + std::to_string(batch->number));
            model.commit();
            report("done " + std::to_string(batch->number));
        }
    }

    // Somewhere in the opening, in a commit, or between two of them.
    void killSomewhere(Child& child) {
        std::uniform_int_distribution<int> any(0, 5);
        std::uniform_int_distribution<int> pause(0, 8000);
        if (any(random) != 0) {
            ASSERT_TRUE(child.awaitLines("begin", 1 + static_cast<std::size_t>(any(random))));
            ASSERT_NE("0", engine->ask(sessions));
        }
        child.listen(std::chrono::microseconds(pause(random)));
        child.kill();
    }

    // The server still does what the process had sent.
    void awaitItsEnd() {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (engine->ask(sessions) != "0") {
            ASSERT_LT(std::chrono::steady_clock::now(), end) << "its session does not end";
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    }

    std::string faultBehind(long last) {
        const long kept = std::min(last, LedgerModel::BatchesKept);
        for (const auto& [table, rows] :
             {std::pair{"[Batch]", kept}, std::pair{"[Item]", kept * LedgerModel::ItemsPerBatch},
              std::pair{"[Chain]", kept * (LedgerModel::ItemsPerBatch - 1)}}) {
            const std::string found = engine->ask(std::string("SELECT count(*) FROM ") + table);
            if (found != std::to_string(rows))
                return found + " rows in " + table;
        }
        LedgerModel model;
        engine->open(model);
        std::string fault = model.findFault(last);
        model.close();
        return fault;
    }

    void noteIds(const Child& child) {
        for (const std::string& line : child.lines) {
            if (firstWordOf(line) != "ids")
                continue;
            for (const unsigned long id : numbersIn(line.substr(4)))
                EXPECT_TRUE(ids.insert(id).second) << id << " was taken twice";
        }
    }

    const std::unique_ptr<Engine> engine = Engine::make();
    const std::string name = "kes_kill_" + std::to_string(getpid());
    const std::string label = engine->driver() == "postgres" ? "application_name=" + name : "";
    const std::string sessions =
        engine->driver() == "postgres"
            ? "SELECT count(*) FROM pg_stat_activity WHERE application_name = '" + name + "'"
            : "SELECT count(*) FROM information_schema.processlist WHERE db = DATABASE() "
              "AND id <> CONNECTION_ID()";
    std::mt19937 random{20240229};
    std::set<unsigned long> ids;
};

TEST_F(ServerKillTest, KeepsWhatWasReportedAndNothingByHalf) {
    long stored = 0;
    int midway = 0;
    for (int round = 0; round < Rounds && !HasFailure(); ++round) {
        Child child([&](const Child::Report& report) { commitForEver(report); });
        killSomewhere(child);
        awaitItsEnd();

        const std::string begun = child.last("begin");
        const std::string done = child.last("done");
        const long reported = done.empty() ? stored : std::stol(done);
        stored = std::stol(engine->ask("SELECT [last] FROM [Counter]"));
        EXPECT_EQ("", child.last("error"));
        EXPECT_GE(stored, reported);
        EXPECT_LE(stored, begun.empty() ? reported : std::stol(begun));
        EXPECT_EQ("", faultBehind(stored)) << "in round " << round;
        noteIds(child);
        midway += begun != done ? 1 : 0;
    }
    EXPECT_GT(midway, 0) << "no commit was interrupted";
    RecordProperty("interrupted", midway);
}

}  // namespace Kes::testing
