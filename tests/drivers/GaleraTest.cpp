#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <kes/Kes.h>

#include "tests/drivers/Engine.h"
#include "tests/drivers/ParcelModel.h"
#include "tests/drivers/PlainMariadb.h"
#include "tests/support/Child.h"
#include "tests/support/Raises.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

class GaleraTest : public ::testing::Test {
protected:
    static constexpr int Nodes = 3;

    GaleraTest() {
        static int made = 0;
        database = "test_" + std::to_string(getpid()) + "_" + std::to_string(++made);
        PlainMariadb(sourceOf(1), user, password).run("CREATE DATABASE " + database);
    }
    ~GaleraTest() override {
        try {
            PlainMariadb(sourceOf(1), user, password).run("DROP DATABASE " + database);
        } catch (const std::exception&) {
            // The cluster goes soon, with everything in it.
        }
    }

    static bool says(const std::string& message, const std::string& words) {
        return message.find(words) != std::string::npos;
    }

    static std::string sourceOf(int node) {
        return Engine::serverSays("galera", "node" + std::to_string(node) + "/source");
    }
    static std::string hostOf(int node) {
        return sourceOf(node).substr(0, sourceOf(node).find('/'));
    }

    /// Opens on the first of the nodes that answers.
    void open(Model& model, const std::vector<int>& nodes, const std::string& options = "") const {
        std::string source;
        for (const int node : nodes)
            source += (source.empty() ? "" : ",") + hostOf(node);
        source += "/" + database;
        model.open("mariadb", source.c_str(), password.c_str(), user.c_str(), options.c_str());
    }

    std::string ask(int node, const std::string& text) const {
        PlainMariadb plain(hostOf(node) + "/" + database, user, password);
        plain.run("SET SESSION wsrep_sync_wait = 7");
        return plain.ask(text);
    }

    void make(int people) const {
        StaffModel model;
        open(model, {1});
        model.startTransaction();
        for (int i = 0; i < people; ++i)
            model.newPerson(std::to_string(i).c_str());
        model.commit();
    }

    void fillParcels(int parcels = 100) const {
        ParcelModel model(1);
        open(model, {1});
        model.fill(parcels);
    }

    // "" when the upgrade comes to its end.
    std::string upgradeSays(int version, int node) const {
        ParcelModel model(version);
        return messageRaisedBy([&] { open(model, {node}); });
    }

    // Adds one to the ages of people until that many are added; counts the
    // commits that somebody else came before.
    long addTo(StaffModel& model, int people, int additions, unsigned seed) const {
        long conflicts = 0;
        std::vector<Pointer<Person>> all;
        for (int i = 0; i < people; ++i)
            all.emplace_back(model.findPerson(std::to_string(i).c_str()));
        for (int done = 0; done < additions;) {
            seed = seed * 1664525 + 1013904223;
            const Pointer<Person>& person = all[(seed >> 16) % all.size()];
            model.startTransaction();
            ++person->age;
            person->change();
            const std::string code = codeRaisedBy([&] { model.commit(); });
            if (code.empty()) {
                ++done;
                continue;
            }
            if (code != "COMFAIL")
                return -1;
            ++conflicts;
            person->refresh();
        }
        return conflicts;
    }

    // Does the same on the first of the nodes that answers, until time is over;
    // tells how many additions were reported as stored, and of how many it is not
    // known.
    bool addUntilTheEnd(const std::vector<int>& nodes, const Child::Report& report) const {
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(12);
        long done = 0;
        long unknown = 0;
        StaffModel model;
        Pointer<Person> person;
        while (std::chrono::steady_clock::now() < end) {
            const std::string said = messageRaisedBy([&] {
                if (!model.isOpen())
                    open(model, nodes);
                if (person == nullptr)
                    person = model.findPerson("0");
                person->refresh();
                model.startTransaction();
                ++person->age;
                person->change();
                model.commit();
                ++done;
            });
            if (says(said, "it is not known whether"))
                ++unknown;
            if (!says(said, "open again"))
                continue;
            person = nullptr;
            model.close();
        }
        report(std::to_string(done) + " " + std::to_string(unknown));
        return true;
    }

    static std::string script(const std::string& verb) {
        return std::string(KES_TEST_GALERA) + " " + verb + " " + KES_TEST_SERVERS;
    }

    const std::string user = Engine::serverSays("galera", "user");
    const std::string password = Engine::serverSays("galera", "password");
    std::string database;
};

TEST_F(GaleraTest, CountsExactlyFromManyProcessesOnAllNodes) {
    constexpr int people = 5;
    constexpr int processes = 6;
    constexpr int additions = 100;
    make(people);
    const auto begun = std::chrono::steady_clock::now();
    std::vector<std::unique_ptr<Child>> children;
    for (int i = 0; i < processes; ++i)
        children.push_back(std::make_unique<Child>([&, i](const Child::Report& report) {
            StaffModel model;
            open(model, {i % Nodes + 1});
            report(std::to_string(addTo(model, people, additions, static_cast<unsigned>(i))));
            return true;
        }));

    long conflicts = 0;
    for (const auto& child : children) {
        const std::string said = child->says();
        ASSERT_TRUE(child->succeeds());
        ASSERT_LE(0, std::atol(said.c_str()));
        conflicts += std::atol(said.c_str());
    }
    const std::chrono::duration<double> spent = std::chrono::steady_clock::now() - begun;

    RecordProperty("conflicts", std::to_string(conflicts));
    RecordProperty("commits_per_second", std::to_string(processes * additions / spent.count()));
    for (int node = 1; node <= Nodes; ++node)
        EXPECT_EQ(std::to_string(processes * additions), ask(node, "SELECT sum(age) FROM Person"));
}

TEST_F(GaleraTest, GivesNoIdTwiceOnAnyNode) {
    make(0);
    std::vector<std::unique_ptr<Child>> children;
    for (int i = 0; i < Nodes; ++i)
        children.push_back(std::make_unique<Child>([&, i](const Child::Report&) {
            StaffModel model;
            open(model, {i + 1});
            for (int round = 0; round < 20; ++round) {
                model.startTransaction();
                for (int k = 0; k < 100; ++k)
                    model.newPerson("somebody");
                model.commit();
            }
            return true;
        }));
    for (const auto& child : children)
        ASSERT_TRUE(child->succeeds());

    EXPECT_EQ("6000", ask(2, "SELECT count(DISTINCT KesObjectID) FROM Person"));
}

TEST_F(GaleraTest, LetsNoTwoHoldersOfALockCommit) {
    make(1);
    StaffModel first;
    open(first, {1});
    StaffModel second;
    open(second, {2});
    const Pointer<Person> mine(first.findPerson("0"));
    const Pointer<Person> theirs(second.findPerson("0"));
    const auto book = [](StaffModel& model, const Pointer<Person>& person) {
        return codeRaisedBy([&] {
            model.startTransaction();
            person->lock();
            model.newCompany("one of them");
        });
    };

    EXPECT_EQ("", book(first, mine));
    const std::string locking = book(second, theirs);
    const bool firstDone = codeRaisedBy([&] { first.commit(); }).empty();
    const bool secondDone = locking.empty() && codeRaisedBy([&] { second.commit(); }).empty();

    EXPECT_NE(firstDone, secondDone);
    EXPECT_EQ("1", ask(3, "SELECT count(*) FROM Company"));
}

TEST_F(GaleraTest, LeavesNoLinkToAnObjectThatAnotherNodeRemoves) {
    constexpr int rounds = 300;
    make(2 * rounds);
    const auto nameOf = [](int number) { return std::to_string(number); };
    const auto start = std::chrono::system_clock::now() + std::chrono::seconds(2);
    const auto inTurn = [&](StaffModel& model, int shift,
                            const std::function<void(Person*, Person*)>& work) {
        std::vector<Pointer<Person>> all;
        for (int i = 0; i < 2 * rounds; ++i)
            all.emplace_back(model.findPerson(nameOf(i).c_str()));
        for (int i = 0; i < rounds; ++i) {
            const auto at = start + std::chrono::milliseconds(8 * i);
            std::this_thread::sleep_until(at + std::chrono::microseconds(shift * (i % 10)));
            model.startTransaction();
            work(all[static_cast<std::size_t>(i)], all[static_cast<std::size_t>(rounds + i)]);
            codeRaisedBy([&] { model.commit(); });
        }
        return true;
    };
    Child linking([&](const Child::Report&) {
        StaffModel model;
        open(model, {1});
        return inTurn(model, 100, [](Person* child, Person* parent) { child->parent = parent; });
    });
    Child removing([&](const Child::Report&) {
        StaffModel model;
        open(model, {2});
        return inTurn(model, 0, [](Person*, Person* parent) { parent->remove(); });
    });

    EXPECT_TRUE(linking.succeeds());
    EXPECT_TRUE(removing.succeeds());
    EXPECT_EQ("0", ask(3,
                       "SELECT count(*) FROM Person WHERE parent IS NOT NULL AND parent NOT IN "
                       "(SELECT KesObjectID FROM Person)"));
}

TEST_F(GaleraTest, ReadsWhatWasCommittedOnAnotherNode) {
    make(1);
    StaffModel first;
    open(first, {1});
    StaffModel second;
    open(second, {2});
    const Pointer<Person> mine(first.findPerson("0"));
    const Pointer<Person> theirs(second.findPerson("0"));
    for (int i = 1; i <= 50; ++i) {
        first.startTransaction();
        mine->age = i;
        mine->change();
        first.commit();

        theirs->refresh();

        ASSERT_EQ(i, theirs->age);
    }
}

TEST_F(GaleraTest, StaysAliveWhenTwoNodesGiveUpgradesUp) {
    fillParcels();
    PlainMariadb(hostOf(1) + "/" + database, user, password)
        .run("UPDATE Parcel SET text = 'no number' WHERE number = 70");
    std::vector<std::unique_ptr<Child>> children;
    for (const int node : {1, 2})
        children.push_back(std::make_unique<Child>([this, node](const Child::Report&) {
            for (int round = 0; round < 20; ++round) {
                ParcelModel model(3);
                if (codeRaisedBy([&] { open(model, {node}); }).empty())
                    return false;
            }
            return true;
        }));

    for (const auto& child : children)
        EXPECT_TRUE(child->succeeds());

    EXPECT_EQ("", upgradeSays(2, 3));
    EXPECT_EQ("100", ask(1, "SELECT count(*) FROM Parcel WHERE weight = 7"));
    EXPECT_EQ("0", ask(2,
                       "SELECT count(*) FROM information_schema.triggers WHERE trigger_schema = "
                       "DATABASE()"));
}

TEST_F(GaleraTest, WaitsForAnUpgradeThatClearsAwayOnAnotherNode) {
    fillParcels();
    PlainMariadb other(hostOf(1) + "/" + database, user, password);
    const std::string turn = other.ask("SHOW TABLES LIKE 'kes_turn_%'");
    other.run("RENAME TABLE " + turn + " TO kes_turn_5_clearing");
    Child upgrading([&](const Child::Report&) { return upgradeSays(2, 2).empty(); });
    std::this_thread::sleep_for(std::chrono::seconds(1));

    const std::string kept = other.ask("SHOW TABLES LIKE 'kes_turn_%'");
    other.run("RENAME TABLE kes_turn_5_clearing TO kes_turn_5");

    EXPECT_EQ("kes_turn_5_clearing", kept);
    EXPECT_TRUE(upgrading.succeeds());
    EXPECT_EQ("100", ask(1, "SELECT count(*) FROM Parcel WHERE weight = 7"));
}

TEST_F(GaleraTest, LosesNothingWhenTwoNodesUpgradeWhileAThirdOneWrites) {
    fillParcels(3000);
    Child writer([&](const Child::Report& report) {
        ParcelModel model(1);
        open(model, {3});
        report(std::to_string(model.writeFor(std::chrono::seconds(4))));
        return true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    const auto upgradeOn = [&](int node) {
        return [this, node](const Child::Report&) { return upgradeSays(2, node).empty(); };
    };
    Child one(upgradeOn(1));
    Child other(upgradeOn(2));

    const bool oneIsDone = one.succeeds();
    const bool otherIsDone = other.succeeds();
    const std::string length = writer.says();
    ASSERT_TRUE(writer.succeeds());

    EXPECT_TRUE(oneIsDone || otherIsDone);
    EXPECT_EQ("", upgradeSays(2, 3));
    EXPECT_EQ("4498500", ask(2, "SELECT sum(number) FROM Parcel WHERE weight = 7"));
    EXPECT_EQ(length, ask(2, "SELECT length(text) FROM Parcel WHERE number = 0"));
    EXPECT_LT(10, std::atoi(length.c_str()));
}

TEST_F(GaleraTest, KeepsWhatWasReportedWhenANodeIsKilled) {
    constexpr int people = 5;
    make(people);
    std::vector<std::unique_ptr<Child>> children;
    for (int i = 0; i < Nodes; ++i)
        children.push_back(std::make_unique<Child>([&, i](const Child::Report& report) {
            return addUntilTheEnd({i + 1, (i + 1) % Nodes + 1, (i + 2) % Nodes + 1}, report);
        }));
    std::this_thread::sleep_for(std::chrono::seconds(2));
    ASSERT_EQ(0, std::system((script("kill") + " 3").c_str()));

    long least = 0;
    long most = 0;
    for (const auto& child : children) {
        const std::string said = child->says();
        EXPECT_TRUE(child->succeeds()) << said;
        long done = 0;
        long unknown = 0;
        ASSERT_EQ(2, std::sscanf(said.c_str(), "%ld %ld", &done, &unknown)) << said;
        EXPECT_LT(5, done);
        least += done;
        most += done + unknown;
    }
    const long stored = std::atol(ask(1, "SELECT sum(age) FROM Person").c_str());
    ASSERT_EQ(0, std::system(script("start").c_str()));

    EXPECT_LE(least, stored);
    EXPECT_GE(most, stored);
    EXPECT_EQ(std::to_string(stored), ask(3, "SELECT sum(age) FROM Person"));
}

}  // namespace Kes::testing
