// Each allocation of what builds, copies and nests conditions fails in turn.
// Whatever was made by then is freed.

#include <gtest/gtest.h>

#include <memory>

#include <kes/SortHandler.h>

#include "tests/crash/EachAllocation.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

class ConditionMemoryTest : public ::testing::TestWithParam<bool> {
protected:
    ConditionMemoryTest() {
        model.openWith();
        ann = model.newPerson("Ann, whose name takes a piece of memory", 1);
        firm = model.newCompany("Firm");
        model.commit();
    }

    /// The work bears every failure, and more than `least` of them.
    template <class Work>
    void expectBorne(unsigned long least, Work work) {
        work();  // what is made once and kept is there now
        const unsigned long failures =
            failEachAllocation(GetParam(), [&](FailingRound& round) { round.bears(work); });
        RecordProperty("failures", static_cast<int>(failures));
        EXPECT_GT(failures, least);
    }

    StaffModel model;
    Pointer<Person> ann;
    Pointer<Company> firm;
};

TEST_P(ConditionMemoryTest, FreesComparisons) {
    const String text("a text that is too long to be kept anywhere else");
    expectBorne(40, [&] {
        Selection people(model.personClass);
        const Attribute age = people["age"];
        const auto numbers = (age == 1) & (age != 2U) & (age > 3L) & (age < 4UL);
        const auto reals = (age >= 1.5) & (age <= 2.5F);
        const auto others = (age == true) & (age != Timestamp());
        const auto texts = (age == text) & (age != "another text") & age.like(text);
        const CombinationCondition all = numbers || reals || others || texts;
        const CombinationCondition copy(all);
        const std::unique_ptr<Condition> fresh(copy.getNew());
    });
}

TEST_P(ConditionMemoryTest, FreesTestsOfRoles) {
    expectBorne(20, [&] {
        Selection people(model.personClass);
        const Role works = people("Works");
        const Role friends = people("Friendship", "friends");
        const auto one = (works == Pointer<Instance>(firm)) & (works != firm.getInstance());
        const auto none = works == nullptr || friends != nullptr;
        const auto many = (friends == ann.getInstance()) & (friends != ann.getInstance());
        const CombinationCondition all = one || none || many;
        const std::unique_ptr<Condition> copy(all.getNew());
    });
}

TEST_P(ConditionMemoryTest, FreesNestedSelections) {
    expectBorne(60, [&] {
        Selection firms(model.companyClass);
        firms.where(firms["name"] == "Firm" || firms["name"].like("%"));
        firms.orderBy(firms["name"]);
        Selection people(model.personClass);
        people.where((people("Works") == firms) & (people["age"] > 0));
        Selection friends(model.personClass);
        const Role known = friends("Friendship", "friends");
        const auto all = known == people || known != people || known == ann.getInstance();
        friends.where(all);
        const std::unique_ptr<Condition> replaced(friends.getCondition());
        friends.setCondition(nullptr);
        const AssociatedClass frozen(people);
        const AssociatedClass copy(frozen);
        const std::unique_ptr<Condition> condition(copy.getCondition()->getNew());
    });
}

TEST_P(ConditionMemoryTest, FreesChains) {
    expectBorne(40, [&] {
        Selection people(model.personClass);
        CombinationCondition chain = people["age"] == 0 || people["age"] == 1;
        std::unique_ptr<Condition> all(chain.getNew());
        for (int i = 0; i < 5; ++i)
            all.reset((*all || people["name"] == "Ann").getNew());
        people.setCondition(all.release());
        Selection again(model.personClass);
        again.where(*people.getCondition());
    });
}

TEST_P(ConditionMemoryTest, FreesSortValues) {
    expectBorne(20, [&] {
        Selection people(model.personClass);
        people.orderBy(people["name"]);
        people.orderBy(people["age"], false);
        people.orderBy(people["salary"]);
        SortHandler handler;
        handler.init(people.getSortOrders());
        ann->handle(&handler);
        handler.isBetter();
        ann->handle(&handler);
        SortHandler copy(handler);
        copy.isBetter();
        copy = handler;
        handler.reinit();
    });
}

INSTANTIATE_TEST_SUITE_P(Repeats, ConditionMemoryTest, ::testing::Values(false, true),
                         [](const auto& each) { return each.param ? "FromThenOn" : "Once"; });

}  // namespace Kes::testing
