// Random transactions of several processes at once, and a checker that knows
// what each isolation level of each database permits.
//
//   test_histories --seconds=3600 --seed=7     for a night

#include <gtest/gtest.h>

#include <fstream>
#include <iostream>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "tests/drivers/Engine.h"
#include "tests/drivers/TemporaryFolder.h"
#include "tests/histories/Worker.h"
#include "tests/support/Child.h"

namespace Kes::testing {

namespace {

double secondsPerLevel = 1.5;
unsigned seed = 20261122;

constexpr int Processes = 5;
constexpr int Seats = 6;
constexpr int Tables = 3;

}  // namespace

class HistoryTest : public ::testing::TestWithParam<Level> {
protected:
    HistoryTest() {
        std::cout << "seed " << seed << '\n';
        HistoryModel model;
        engine->open(model);
        model.fill(lists, Seats, Tables);
        model.close();
    }

    std::string logOf(int process) const { return folder.path(std::to_string(process)); }

    void runProcesses() {
        std::vector<std::unique_ptr<Child>> children;
        for (int process = 1; process <= Processes; ++process)
            children.push_back(std::make_unique<Child>([&](const Child::Report&) {
                // A cluster's engine gives the nodes in turn.
                for (int i = 1; i < process; ++i)
                    engine->source();
                Worker worker(process, seed + static_cast<unsigned>(process), lists,
                              logOf(process));
                engine->open(worker.getModel(), GetParam().option +
                                                    (GetParam().option.empty() ? "" : ";") +
                                                    engine->waitingAtMost(2000));
                worker.run(Worker::now() + static_cast<long>(secondsPerLevel * 1e9));
                worker.getModel().close();
            }));
        for (const auto& child : children) {
            EXPECT_EQ(0, child->awaitEnd(std::chrono::microseconds(
                             static_cast<long>((secondsPerLevel + 60) * 1e6))))
                << child->last("error");
        }
    }

    void readLogs() {
        for (int process = 1; process <= Processes; ++process) {
            std::ifstream log(logOf(process));
            for (std::string line; std::getline(log, line);)
                readLine(line);
        }
    }

    void readLine(const std::string& line) {
        std::istringstream stream(line);
        std::string kind, id, what, outcome;
        stream >> kind;
        if (kind == "list") {
            history.push_back(Transaction::parse(line.substr(5)));
            return;
        }
        stream >> id >> what >> outcome;
        ASSERT_TRUE(stream) << line;
        if (kind == "entries") {
            batches.push_back({id, what, outcome});
        } else if (outcome != "refused" && what == "removed") {
            (outcome == "done" ? removed : perhapsRemoved).insert(id);
        } else if (outcome != "unknown" && what == "added") {
            (outcome == "done" ? added : refused).insert(id);
        }
    }

    Lists readLists() const {
        Lists stored;
        HistoryModel model;
        engine->open(model);
        SelectionOf<Register> all(model.registerClass);
        for (const Register* list : all) {
            std::istringstream stream(static_cast<const char*>(list->values));
            for (long value = 0; stream >> value;)
                stored[list->number].push_back(value);
        }
        model.close();
        return stored;
    }

    void expectNone(const std::string& what, const std::string& from) {
        EXPECT_EQ("0", engine->ask("SELECT count(*) FROM " + from)) << what;
    }

    void checkEntries() {
        for (const auto& [batch, expected, outcome] : batches) {
            const std::string found =
                engine->ask("SELECT count(*) FROM [Entry] WHERE [batch] = " + batch);
            if (outcome == "done")
                EXPECT_EQ(expected, found) << "batch " << batch;
            else
                EXPECT_TRUE(found == "0" || found == "60") << found << " of batch " << batch;
        }
        expectNone("entries of no list",
                   "[Entry] e WHERE NOT EXISTS (SELECT 1 FROM [OddRegister] r WHERE "
                   "r.[KesObjectID] = e.[owner]) AND NOT EXISTS (SELECT 1 FROM [EvenRegister] r "
                   "WHERE r.[KesObjectID] = e.[owner])");
    }

    void checkGuests() {
        const auto isStored = [&](const std::string& id) {
            return engine->ask("SELECT count(*) FROM [Guest] WHERE [KesObjectID] = " + id) == "1";
        };
        for (const std::string& id : removed)
            EXPECT_FALSE(isStored(id)) << "guest " << id << " was removed";
        for (const std::string& id : refused)
            EXPECT_FALSE(isStored(id)) << "guest " << id << " was refused";
        for (const std::string& id : added) {
            const bool stays = removed.count(id) == 0 && perhapsRemoved.count(id) == 0;
            EXPECT_TRUE(!stays || isStored(id)) << "guest " << id << " was added";
        }
    }

    // In the tables, whatever memory makes of them.
    void checkLinks() {
        expectNone("guests whose seat has somebody else",
                   "[Guest] g WHERE g.[seat] IS NOT NULL AND NOT EXISTS (SELECT 1 FROM [Seat] s "
                   "WHERE s.[KesObjectID] = g.[seat] AND s.[guest] = g.[KesObjectID])");
        expectNone("seats whose guest sits elsewhere",
                   "[Seat] s WHERE s.[guest] IS NOT NULL AND NOT EXISTS (SELECT 1 FROM [Guest] g "
                   "WHERE g.[KesObjectID] = s.[guest] AND g.[seat] = s.[KesObjectID])");
        expectNone("guests at another table than they say",
                   "[Guest] g WHERE g.[tableNumber] <> 0 AND NOT EXISTS (SELECT 1 FROM [Table] t "
                   "WHERE t.[KesObjectID] = g.[table] AND t.[number] = g.[tableNumber])");
        for (const std::string role : {"[friends]", "[friendOf]"})
            expectNone("friends who are gone",
                       "[Friendship] f WHERE NOT EXISTS (SELECT 1 FROM [Guest] g WHERE "
                       "g.[KesObjectID] = f." +
                           role + ")");
    }

    // Enough for the time, so that lists stay short.
    const int lists = 100 + static_cast<int>(secondsPerLevel * 150);
    const std::unique_ptr<Engine> engine = Engine::make();
    TemporaryFolder folder;
    std::vector<Transaction> history;
    struct Batch {
        std::string number, expected, outcome;
    };
    std::vector<Batch> batches;
    std::set<std::string> added, refused, removed, perhapsRemoved;  // guests
};

TEST_P(HistoryTest, ShowsNoAnomalyThatTheLevelForbids) {
    runProcesses();
    readLogs();

    for (const Finding& finding : findAnomalies(history, readLists(), GetParam()))
        ADD_FAILURE() << finding.text;
    checkEntries();
    checkGuests();
    checkLinks();

    long done = 0;
    for (const Transaction& each : history)
        done += each.outcome == Transaction::Done ? 1 : 0;
    std::cout << done << " of " << history.size() << " transactions done\n";
    EXPECT_GT(done, 20) << "too little happened to tell";
    RecordProperty("done", static_cast<int>(done));
    RecordProperty("transactions", static_cast<int>(history.size()));
}

INSTANTIATE_TEST_SUITE_P(Levels, HistoryTest, ::testing::ValuesIn(levelsOf(driverUnderTest())),
                         shownName);

}  // namespace Kes::testing

int main(int count, char** words) {
    ::testing::InitGoogleTest(&count, words);
    for (int i = 1; i < count; ++i) {
        const std::string word = words[i];
        if (word.rfind("--seconds=", 0) == 0)
            Kes::testing::secondsPerLevel = std::stod(word.substr(10));
        else if (word.rfind("--seed=", 0) == 0)
            Kes::testing::seed = static_cast<unsigned>(std::stoul(word.substr(7)));
        else {
            std::cerr << "test_histories [--seconds=N] [--seed=N], and GoogleTest's own options\n";
            return 2;
        }
    }
    return RUN_ALL_TESTS();
}
