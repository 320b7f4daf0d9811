// Each allocation of what registers listeners and commits before them fails in
// turn. Who can hear without memory hears of all that is stored, once, and of
// nothing else.

#include <gtest/gtest.h>

#include <array>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "tests/crash/EachAllocation.h"
#include "tests/crash/StaffContents.h"
#include "tests/drivers/TemporaryFolder.h"

namespace Kes::testing {

namespace {

/// Needs no memory.
class CountingListener final : public Listener {
public:
    void instanceAdded(const InstanceEvent&) override { ++heard[0]; }
    void instanceChanged(const InstanceEvent&) override { ++heard[1]; }
    void instanceRemoved(const InstanceEvent&) override { ++heard[2]; }
    void associationAdded(const AssociationEvent&) override { ++heard[3]; }
    void associationRemoved(const AssociationEvent&) override { ++heard[4]; }

    std::array<int, 5> heard{};
};

/// Fails where there is no memory.
class GreedyListener final : public Listener {
public:
    void instanceAdded(const InstanceEvent&) override { take(); }
    void instanceChanged(const InstanceEvent&) override { take(); }
    void instanceRemoved(const InstanceEvent&) override { take(); }
    void associationAdded(const AssociationEvent&) override { take(); }
    void associationRemoved(const AssociationEvent&) override { take(); }

private:
    void take() { taken.push_back(std::make_unique<int>(1)); }

    std::vector<std::unique_ptr<int>> taken;
};

}  // namespace

class ListenerMemoryTest : public ::testing::TestWithParam<bool> {
protected:
    ListenerMemoryTest() {
        StaffModel model;
        model.openWith("sqlite", base.c_str(), Options);
        fillStaff(model);
        model.close();
        before = storedStaff(base, true);
    }

    void openCopy(StaffModel& model) {
        for (const char* end : {"", "-wal", "-shm"})
            std::filesystem::remove(file + end);
        std::filesystem::copy_file(base, file);
        model.openWith("sqlite", file.c_str(), Options);
    }

    static void listen(StaffModel& model, Person* to, Listener& listener) {
        for (Class* each : {model.personClass, model.companyClass})
            each->addListener(&listener);
        for (const char* each : {"Works", "Marriage", "Friendship", "Family"})
            model.getAssociation(each)->addListener(&listener);
        to->addListener(&listener);
    }

    static void leave(StaffModel& model, Person* to, Listener& listener) {
        for (Class* each : {model.personClass, model.companyClass})
            each->removeListener(&listener);
        for (const char* each : {"Works", "Marriage", "Friendship", "Family"})
            model.getAssociation(each)->removeListener(&listener);
        to->removeListener(&listener);
    }

    static void work(StaffModel& model, Person* first) {
        model.startTransaction();
        first->change();
        first->age = 50;
        Person* added = model.newPerson("a person that is new");
        added->employer = first->employer;
        first->friends.add(added);
        model.findPerson("P2")->spouse = nullptr;
        model.findPerson("P5")->remove();
        model.commit();
    }

    static constexpr const char* Options = "synchronous=off;journal_mode=memory";

    TemporaryFolder folder;
    std::string base = folder.path("base.db");
    std::string file = folder.path("staff.db");
    std::string before;
};

TEST_P(ListenerMemoryTest, HearsOfAllThatIsStored) {
    std::string after;
    std::array<int, 5> all{};
    const auto round = [&](FailingRound& failing) {
        StaffModel model;
        openCopy(model);
        CountingListener counting;
        GreedyListener greedy;
        CountingListener behind;
        const Pointer<Person> first(model.findPerson("P0"));
        for (Listener* each : {static_cast<Listener*>(&counting), static_cast<Listener*>(&greedy),
                               static_cast<Listener*>(&behind)})
            listen(model, first, *each);

        const bool isDone = failing.bears([&] { work(model, first); });

        if (model.transactionStarted())
            model.rollback();
        const std::string stored = storedStaff(file, true);
        if (after.empty()) {
            const long kept = FaultyMemory::live();
            after = stored;
            all = counting.heard;
            failing.kept = FaultyMemory::live() - kept;
        }
        EXPECT_TRUE(stored == after || (!isDone && stored == before)) << stored;
        EXPECT_EQ(stored == after ? all : (std::array<int, 5>{}), counting.heard);
        EXPECT_EQ(counting.heard, behind.heard);
        for (Listener* each : {static_cast<Listener*>(&counting), static_cast<Listener*>(&greedy),
                               static_cast<Listener*>(&behind)})
            leave(model, first, *each);
    };
    FailingRound whole(0, false);
    round(whole);
    for (const int each : all)
        ASSERT_GT(each, 0);

    EXPECT_GT(failEachAllocation(GetParam(), round, 12), 100U);
}

TEST_P(ListenerMemoryTest, IsRegisteredOrNot) {
    const auto round = [&](FailingRound& failing) {
        StaffModel model;
        openCopy(model);
        const Pointer<Person> first(model.findPerson("P0"));
        std::array<CountingListener, 40> many;

        failing.bears([&] {
            for (CountingListener& each : many)
                listen(model, first, each);
        });

        first->change();
        model.commit();
        for (const CountingListener& each : many)
            EXPECT_LE(each.heard[1], 2);
        for (CountingListener& each : many)
            leave(model, first, each);
    };
    FailingRound whole(0, false);
    round(whole);

    EXPECT_GT(failEachAllocation(GetParam(), round, 12), 20U);
}

INSTANTIATE_TEST_SUITE_P(Failures, ListenerMemoryTest, ::testing::Bool(),
                         [](const ::testing::TestParamInfo<bool>& goesOn) {
                             return goesOn.param ? "FromThenOn" : "Once";
                         });

}  // namespace Kes::testing
