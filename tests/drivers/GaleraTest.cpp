#include "tests/drivers/GaleraTest.h"

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/drivers/CommandCount.h"
#include "tests/support/Child.h"
#include "tests/support/DelayingProxy.h"

namespace Kes::testing {

class GaleraConflictTest : public GaleraTest {
protected:
    // Adds one to the ages of two people until that is done so often; counts the
    // commits that somebody else came before.
    long addTo(StaffModel& model, int people, int additions, unsigned seed) const {
        long conflicts = 0;
        std::vector<Pointer<Person>> all;
        for (int i = 0; i < people; ++i)
            all.emplace_back(model.findPerson(std::to_string(i).c_str()));
        for (int done = 0; done < additions;) {
            seed = seed * 1664525 + 1013904223;
            const std::size_t first = (seed >> 16) % all.size();
            const std::size_t second = (first + 1 + (seed >> 24) % (all.size() - 1)) % all.size();
            model.startTransaction();
            for (const Pointer<Person>& person : {all[first], all[second]}) {
                ++person->age;
                person->change();
            }
            const std::string code = codeRaisedBy([&] { model.commit(); });
            if (code.empty()) {
                ++done;
                continue;
            }
            if (code != "COMFAIL")
                return -1;
            ++conflicts;
            all[first]->refresh();
            all[second]->refresh();
        }
        return conflicts;
    }
};

TEST_F(GaleraConflictTest, CountsExactlyFromManyProcessesOnAllNodes) {
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
        EXPECT_EQ(std::to_string(2 * processes * additions),
                  ask(node, "SELECT sum(age) FROM Person"));
}

// A node that gives up a transaction amid the protocol's command for many rows
// answers it, and the COMMIT after it, as if all were well.
TEST_F(GaleraTest, SendsManyRowsInFewStatementsAndNotByTheCommandForThem) {
    make(0);
    CommandCount count;
    const std::string host = hostOf(1);
    DelayingProxy proxy(std::stoi(host.substr(host.find(':') + 1)), std::chrono::milliseconds(1),
                        [&](const char* bytes, std::size_t size) { count.hear(bytes, size); });
    StaffModel model;
    const std::string source = "127.0.0.1:" + std::to_string(proxy.port()) + "/" + database;
    model.open("mariadb", source.c_str(), password.c_str(), user.c_str(), "");

    // On a crowded machine one answer may arrive in parts and count more than once.
    constexpr int tries = 5;
    long inserting = 0;
    long updating = 0;
    int done = 0;
    do {
        ++done;
        std::vector<Pointer<Person>> people;
        long before = proxy.roundTrips();
        model.startTransaction();
        for (int i = 0; i < 2000; ++i)
            people.emplace_back(model.newPerson("somebody", i));
        model.commit();
        inserting = proxy.roundTrips() - before;
        before = proxy.roundTrips();
        model.startTransaction();
        for (const Pointer<Person>& person : people) {
            person->change();
            ++person->age;
        }
        model.commit();
        updating = proxy.roundTrips() - before;
    } while (done < tries && (inserting >= 12 || updating >= 68));

    RecordProperty("round_trips_of_inserts", std::to_string(inserting));
    RecordProperty("round_trips_of_updates", std::to_string(updating));
    EXPECT_EQ(0, count.executedForMany());
    EXPECT_GT(12, inserting);
    EXPECT_GT(68, updating);
    EXPECT_EQ(std::to_string(done * 2001000), ask(2, "SELECT sum(age) FROM Person"));
}

// What a node that is cut off says: to a read that waits for the others, and to a
// statement that commits by itself.
TEST_F(GaleraTest, TakesTheErrorsOfANodeThatIsCutOffForALostConnection) {
    make(1);
    const std::string begin = "START TRANSACTION";
    const std::string execution("\0\0\0\x17", 4);  // at the end of a packet's size
    const std::string ids = "UPDATE kes_ids";
    for (const std::string& command : {begin, execution, ids}) {
        const int code = command == ids ? 1180 : 1205;
        const std::string refusal = std::string("\xFF") + static_cast<char>(code & 255) +
                                    static_cast<char>(code >> 8) + "#HY000" + "Not connected";
        std::atomic<bool> isArmed = false;
        std::atomic<bool> isHeard = false;
        const std::string host = hostOf(1);
        DelayingProxy proxy(std::stoi(host.substr(host.find(':') + 1)),
                            std::chrono::microseconds(0), [&](const char* bytes, std::size_t size) {
                                if (isArmed && says(std::string(bytes, size), command))
                                    isHeard = true;
                            });
        proxy.rewriteAnswers([&](std::string& bytes) {
            if (!isHeard.exchange(false))
                return;
            isArmed = false;
            bytes = static_cast<char>(refusal.size()) + std::string("\0\0\1", 3) + refusal;
        });
        StaffModel model;
        const std::string source = "127.0.0.1:" + std::to_string(proxy.port()) + "/" + database;
        model.open("mariadb", source.c_str(), password.c_str(), user.c_str(), "");
        const Pointer<Person> person(model.findPerson("0"));
        isArmed = true;

        const std::string said = messageRaisedBy([&] {
            if (command == execution)
                model.findPerson("0");
            model.startTransaction();
            for (int i = 0; command == ids && i < 1000; ++i)
                model.newPerson("another");
            person->change();
            ++person->age;
            model.commit();
        });

        EXPECT_TRUE(says(said, "(" + std::to_string(code) + "); this node does not hear the rest"))
            << said;
        EXPECT_TRUE(says(said, "open on another node")) << said;
        EXPECT_EQ(FailureKind::LostConnection, model.getFailureKind());
        EXPECT_EQ("0", ask(1, "SELECT sum(age) FROM Person"));
    }
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

}  // namespace Kes::testing
