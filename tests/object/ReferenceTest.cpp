#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/support/Raises.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

namespace {

static_assert(std::is_abstract_v<AssociatedOneForOne>);
static_assert(!std::is_abstract_v<DummyAssociatedMany>);

class OneForOne final : public AssociatedOneForOne {
public:
    using AssociatedOneForOne::contains;
    bool contains(Instance*) const override { return false; }
};

static_assert(std::is_copy_constructible_v<OneForOne> && std::is_copy_assignable_v<OneForOne>);
static_assert(std::is_copy_constructible_v<DummyAssociatedMany>);
static_assert(std::is_copy_assignable_v<DummyAssociatedMany>);
static_assert(std::is_abstract_v<OneAssociatedInstance>);
static_assert(std::is_abstract_v<ManyAssociatedInstances>);

}  // namespace

class OneForOneTest : public ::testing::Test {
protected:
    Class thing{"Thing", 1, nullptr, nullptr};
    Instance first{&thing};
    Instance second{&thing};
    OneForOne reference;
};

TEST_F(OneForOneTest, IsEmptyAndUnfetchedAtFirst) {
    EXPECT_FALSE(reference.isFetched());
    EXPECT_FALSE(reference.next());
    EXPECT_EQ(nullptr, reference.value());
}

TEST_F(OneForOneTest, YieldsItsMemberOncePerRound) {
    reference.add(&first);
    for (int round = 0; round < 2; ++round) {
        reference.reset();
        EXPECT_EQ(nullptr, reference.value());
        EXPECT_TRUE(reference.next());
        EXPECT_EQ(&first, reference.value());
        EXPECT_FALSE(reference.next());
        EXPECT_EQ(nullptr, reference.value());
    }
}

TEST_F(OneForOneTest, StartsAgainWhenItIsReset) {
    reference.add(&first);
    ASSERT_TRUE(reference.next());
    reference.reset();
    EXPECT_TRUE(reference.next());
}

TEST_F(OneForOneTest, ReplacesTheEarlierMember) {
    reference.add(&first);
    reference.add(&second);
    EXPECT_FALSE(reference.contains(&first));
    EXPECT_TRUE(reference.contains(&second));
}

TEST_F(OneForOneTest, RemovesItsOwnMemberOnly) {
    reference.add(&first);
    reference.remove(&second);
    EXPECT_TRUE(reference.contains(&first));
    reference.remove(&first);
    EXPECT_FALSE(reference.contains(&first));
    EXPECT_FALSE(reference.next());
}

TEST_F(OneForOneTest, KeepsAFetchedMarkOfItsOwn) {
    reference.add(&first);
    reference.setFetched(true);
    EXPECT_TRUE(reference.isFetched());
    EXPECT_FALSE(static_cast<ManyAssociatedInstances&>(reference).isFetched());
    EXPECT_TRUE(reference.contains(&first));
}

TEST_F(OneForOneTest, CopiesItsMemberAndItsMark) {
    reference.add(&first);
    reference.setFetched(true);
    OneForOne copy(reference);
    OneForOne assigned;
    assigned = reference;
    EXPECT_TRUE(copy.contains(&first) && copy.isFetched());
    EXPECT_TRUE(assigned.contains(&first) && assigned.isFetched());
}

TEST_F(OneForOneTest, ForgetsItsMemberWhenItsOwnMarkIsCleared) {
    reference.add(&first);
    reference.setFetched(true);
    reference.setFetched(false);
    EXPECT_FALSE(reference.isFetched());
    EXPECT_FALSE(reference.contains(&first));
}

TEST_F(OneForOneTest, HasNoValueAfterItsMemberIsRemovedOnTheWay) {
    reference.add(&first);
    ASSERT_TRUE(reference.next());
    reference.remove(&first);
    EXPECT_EQ(nullptr, reference.value());
    EXPECT_FALSE(reference.next());
}

TEST_F(OneForOneTest, ForgetsItsMemberWhenCleared) {
    reference.add(&first);
    reference.clear();
    EXPECT_FALSE(reference.contains(&first));
}

TEST_F(OneForOneTest, StaysEmptyAsADummyWhateverIsAdded) {
    DummyAssociatedMany dummy;
    dummy.add(&first);
    dummy.reset();
    EXPECT_FALSE(dummy.next());
    EXPECT_EQ(nullptr, dummy.value());
    EXPECT_FALSE(dummy.contains(&first));
    dummy.remove(&first);
    dummy.clear();
    EXPECT_FALSE(dummy.next());
}

class ReferenceTest : public ::testing::Test {
protected:
    ReferenceTest() {
        model.openWith();
        model.startTransaction();
        firm = model.newCompany("Firm");
    }

    Person* hire(const char* name) {
        Person* person = model.newPerson(name);
        firm->staff.add(person);
        return person;
    }

    std::vector<std::string> staff() const {
        std::vector<std::string> names;
        for (const Person* each : firm->staff)
            names.emplace_back(static_cast<const char*>(each->name));
        return names;
    }

    /// Stores all and reads the firm from the database again.
    void storeAndForget() {
        model.commit();
        firm.makeNull();
        model.garbageCollect();
        firm = model.findCompany("Firm");
        ASSERT_TRUE(firm != nullptr);
    }

    /// Stores all and reads one person, in whom nothing is fetched then.
    Pointer<Person> reload(const char* name) {
        model.commit();
        firm.makeNull();
        model.garbageCollect();
        return Pointer<Person>(model.findPerson(name));
    }

    /// The statements that the work sends.
    template <class Work>
    std::string statementsOf(Work work) {
        std::ostringstream trace;
        model.traceSQLTo(trace);
        work();
        model.disableSQLTrace();
        return trace.str();
    }

    using Names = std::vector<std::string>;

    StaffModel model;
    Pointer<Company> firm;
};

TEST_F(ReferenceTest, ReadsAManyFromTheDatabaseWhenItIsRead) {
    hire("Ann");
    hire("Bob");
    storeAndForget();
    ASSERT_FALSE(firm->staff.isFetched());

    EXPECT_EQ(2U, firm->staff.size());
    EXPECT_TRUE(firm->staff.isFetched());
}

TEST_F(ReferenceTest, ReadsAOneFromTheDatabaseWhenItIsRead) {
    hire("Ann");
    storeAndForget();
    firm.makeNull();
    model.garbageCollect();
    const Pointer<Person> ann(model.findPerson("Ann"));
    ASSERT_FALSE(ann->employer.isFetched());

    EXPECT_STREQ("Firm", ann->employer->name);
    EXPECT_TRUE(ann->employer.isFetched());
}

TEST_F(ReferenceTest, DropsWhatItHoldsWhenItIsUnfetched) {
    Person* ann = hire("Ann");
    model.commit();
    OneAssociatedInstance& employer = ann->employer;
    employer.setFetched(false);
    EXPECT_EQ(nullptr, employer.getInstance());
    firm->staff.setFetched(false);
    EXPECT_FALSE(static_cast<ManyAssociatedInstances&>(firm->staff).contains(ann));
    EXPECT_EQ(1U, firm->staff.size());
}

TEST_F(ReferenceTest, NeedsNoDatabaseForAOneWithoutAnId) {
    model.commit();
    model.close();
    const std::unique_ptr<Instance> dummy(model.personClass->getDummy());
    auto* ann = static_cast<Person*>(dummy.get());

    ann->get(ann->employer, false);

    EXPECT_TRUE(ann->employer.isFetched());
    EXPECT_EQ(nullptr, ann->employer.get());
}

TEST_F(ReferenceTest, LeavesWhatAOneWithoutAnIdHolds) {
    model.commit();
    const std::unique_ptr<Instance> dummy(model.personClass->getDummy());
    auto* ann = static_cast<Person*>(dummy.get());
    EXPECT_EQ(0UL, ann->employer.getObjectID());
    ann->employer.setInstance(firm);

    EXPECT_EQ("", statementsOf([&] { ann->get(ann->employer, true); }));

    EXPECT_TRUE(ann->employer.isFetched());
    EXPECT_EQ(firm, ann->employer.getInstance());
}

TEST_F(ReferenceTest, AsksNobodyOnceItIsFetched) {
    hire("Ann")->friends.add(hire("Bob"));
    const Pointer<Person> ann = reload("Ann");
    EXPECT_NE("", statementsOf([&] { ann->get(ann->employer, false); }));
    EXPECT_NE("", statementsOf([&] { ann->get(ann->friends, false); }));

    EXPECT_EQ("", statementsOf([&] { ann->get(ann->employer, false); }));
    EXPECT_EQ("", statementsOf([&] { ann->get(ann->friends, false); }));
}

TEST_F(ReferenceTest, TakesAPartnerInMemoryWithoutAskingTheDatabase) {
    hire("Ann");
    const Pointer<Person> ann = reload("Ann");
    const Pointer<Company> known(model.findCompany("Firm"));
    ASSERT_FALSE(ann->employer.isFetched());

    EXPECT_EQ("", statementsOf([&] { ann->get(ann->employer, false); }));

    EXPECT_EQ(known, ann->employer.getInstance());
}

TEST_F(ReferenceTest, ReadsAFetchedOneAgainByForce) {
    hire("Ann");
    const Pointer<Person> ann = reload("Ann");
    const Pointer<Company> loaded(ann->employer.get());
    ann->employer.setInstance(nullptr);

    ann->get(ann->employer, false);
    EXPECT_EQ(nullptr, ann->employer.getInstance());
    ann->get(ann->employer, true);
    EXPECT_EQ(loaded, ann->employer.getInstance());
}

TEST_F(ReferenceTest, KeepsWhatItHoldsWhenItIsMarkedAsFetched) {
    const Pointer<Person> ann(hire("Ann"));
    OneAssociatedInstance& employer = ann->employer;
    employer.setFetched(true);
    firm->staff.setFetched(true);
    EXPECT_EQ(firm, employer.getInstance());
    EXPECT_TRUE(firm->staff.contains(ann));
}

TEST_F(ReferenceTest, IsFetchedBeforeAnotherPartnerIsSet) {
    hire("Ann");
    const Pointer<Person> ann = reload("Ann");
    firm = model.findCompany("Firm");
    ASSERT_EQ(1U, firm->staff.size());
    ASSERT_FALSE(ann->employer.isFetched());

    ann->employer = nullptr;

    EXPECT_TRUE(firm->staff.empty());
    model.commit();
    firm->get(firm->staff, true);
    EXPECT_TRUE(firm->staff.empty());
}

TEST_F(ReferenceTest, IsFetchedAsTheOppositeEndOfALink) {
    model.newPerson("Ann");
    const Pointer<Person> ann = reload("Ann");
    firm = model.findCompany("Firm");
    ASSERT_FALSE(ann->employer.isFetched());

    firm->staff.add(ann);
    EXPECT_TRUE(ann->employer.isFetched());
    EXPECT_EQ(firm, ann->employer.getInstance());

    ann->employer.setFetched(false);
    firm->staff.remove(ann);
    EXPECT_TRUE(ann->employer.isFetched());
    EXPECT_EQ(nullptr, ann->employer.getInstance());
}

TEST_F(ReferenceTest, StaysUnfetchedWhenMembersComeAndGo) {
    hire("Ann");
    hire("Bob");
    storeAndForget();
    const Pointer<Person> ann(model.findPerson("Ann"));
    const Pointer<Person> cid(model.newPerson("Cid"));

    firm->staff.add(cid);
    firm->staff.remove(ann);

    EXPECT_FALSE(firm->staff.isFetched());
    EXPECT_EQ((Names{"Bob", "Cid"}), staff());
    model.commit();
    firm->get(firm->staff, true);
    EXPECT_EQ((Names{"Bob", "Cid"}), staff());
}

TEST_F(ReferenceTest, IsRefusedWhenItsObjectDoesNotReportIt) {
    const Pointer<Person> ann(hire("Ann"));
    One<Company> strange{ann};
    Many<Person> stranger{ann};

    EXPECT_RAISES("REFERR", ann->get(strange, false));
    EXPECT_RAISES("REFERR", ann->get(stranger, false));
    EXPECT_RAISES("REFERR", ann->set(strange, firm));
    EXPECT_RAISES("REFERR", ann->Instance::add(stranger, ann));
    EXPECT_RAISES("REFERR", ann->Instance::remove(stranger, ann));
}

TEST_F(ReferenceTest, StaysAsItIsWhenItIsRefusedAndTheHandlerReturns) {
    const Pointer<Person> ann(hire("Ann"));
    model.commit();
    One<Company> strange{ann};
    Many<Person> stranger{ann};
    const ReturningHandler handler;

    ann->get(strange, false);
    ann->get(stranger, false);
    ann->set(strange, firm);
    ann->Instance::add(stranger, ann);
    ann->Instance::remove(stranger, ann);

    EXPECT_EQ(std::vector<std::string>(5, "REFERR"), handler.codes());
    EXPECT_FALSE(strange.isFetched() || stranger.isFetched());
    EXPECT_EQ(nullptr, strange.getInstance());
    EXPECT_FALSE(model.isPending(ann));
}

TEST_F(ReferenceTest, DuplicatesNothingWhenItIsFetchedByForce) {
    hire("Ann");
    hire("Bob");
    storeAndForget();
    ASSERT_EQ(2U, firm->staff.size());

    firm->get(firm->staff, true);

    EXPECT_EQ(2U, firm->staff.size());
}

TEST_F(ReferenceTest, KeepsTheOrderOfInsertion) {
    hire("Cid");
    hire("Ann");
    hire("Bob");
    EXPECT_EQ((Names{"Cid", "Ann", "Bob"}), staff());
}

TEST_F(ReferenceTest, HoldsEachMemberOnce) {
    Person* ann = hire("Ann");
    firm->staff.add(ann);
    EXPECT_EQ(Names{"Ann"}, staff());
    model.commit();
    EXPECT_EQ(1U, firm->staff.size());
}

TEST_F(ReferenceTest, PutsAMemberThatReturnsAtTheEnd) {
    Person* ann = hire("Ann");
    hire("Bob");
    firm->staff.remove(ann);
    firm->staff.add(ann);
    EXPECT_EQ((Names{"Bob", "Ann"}), staff());
}

TEST_F(ReferenceTest, CanBeEmptiedInsideALoop) {
    for (int i = 0; i < 50; ++i)
        hire("Person");
    int visited = 0;
    for (Person* each : firm->staff) {
        firm->staff.remove(each);
        ++visited;
    }
    EXPECT_EQ(50, visited);
    EXPECT_TRUE(firm->staff.empty());
}

TEST_F(ReferenceTest, SkipsAMemberThatIsRemovedBeforeItIsReached) {
    hire("Ann");
    hire("Bob");
    Person* cid = hire("Cid");
    Names visited;
    for (const Person* each : firm->staff) {
        visited.emplace_back(static_cast<const char*>(each->name));
        firm->staff.remove(cid);
    }
    EXPECT_EQ((Names{"Ann", "Bob"}), visited);
}

TEST_F(ReferenceTest, ReachesAMemberThatIsAddedInsideALoop) {
    hire("Ann");
    hire("Bob");
    Names visited;
    for (const Person* each : firm->staff) {
        visited.emplace_back(static_cast<const char*>(each->name));
        if (visited.size() == 1)
            for (int i = 0; i < 40; ++i)
                hire("New");
    }
    ASSERT_EQ(42U, visited.size());
    EXPECT_EQ("Bob", visited[1]);
    EXPECT_EQ("New", visited[41]);
}

TEST_F(ReferenceTest, WalksWithResetAndNext) {
    Person* ann = hire("Ann");
    Person* bob = hire("Bob");
    ManyAssociatedInstances& reference = firm->staff;
    for (int round = 0; round < 2; ++round) {
        reference.reset();
        ASSERT_TRUE(reference.next());
        EXPECT_EQ(ann, reference.value());
        ASSERT_TRUE(reference.next());
        EXPECT_EQ(bob, reference.value());
        EXPECT_FALSE(reference.next());
        EXPECT_EQ(nullptr, reference.value());
    }
}

TEST_F(ReferenceTest, LooksUpAndRemovesAmongManyInConstantTime) {
    constexpr std::size_t Count = 100000;
    std::vector<std::unique_ptr<Instance>> members;
    ManyAssociatedInstances& reference = firm->staff;
    const auto start = std::chrono::steady_clock::now();
    for (std::size_t i = 0; i < Count; ++i) {
        members.emplace_back(new Instance(model.personClass));
        reference.add(members.back().get());
    }
    std::size_t found = 0;
    for (const auto& member : members)
        found += reference.contains(member.get()) ? 1 : 0;
    EXPECT_EQ(Count, found);
    for (std::size_t i = 0; i < Count; i += 2)
        reference.remove(members[i].get());
    for (std::size_t i = 0; i < Count; ++i)
        ASSERT_EQ(i % 2 == 1, reference.contains(members[i].get()));
    EXPECT_EQ(Count / 2, firm->staff.size());
    reference.clear();

    // A search from end to end would take minutes.
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

TEST_F(ReferenceTest, StaysRightWhenMembersComeAndGo) {
    std::vector<std::unique_ptr<Instance>> members;
    ManyAssociatedInstances& reference = firm->staff;
    for (int i = 0; i < 30; ++i)
        members.emplace_back(new Instance(model.personClass));
    for (std::size_t step = 0; step < 3000; ++step) {
        reference.add(members[step % 30].get());
        reference.remove(members[(step + 7) % 30].get());
    }
    std::size_t found = 0;
    for (const auto& member : members)
        found += reference.contains(member.get()) ? 1 : 0;
    EXPECT_EQ(found, firm->staff.size());
    EXPECT_EQ(23U, found);
    reference.clear();
}

}  // namespace Kes::testing
