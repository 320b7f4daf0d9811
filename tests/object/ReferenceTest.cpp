#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

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
