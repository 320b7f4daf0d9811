#include <gtest/gtest.h>

#include <climits>
#include <set>

#include "tests/drivers/DriverTest.h"
#include "tests/support/Raises.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

// Three people, two firms; Ann and Bob are married, Ann knows Bob and Cid.
class ConditionTest : public DriverTest {
protected:
    ConditionTest() {
        open(model);
        model.startTransaction();
        red = model.newCompany("Red");
        blue = model.newCompany("Blue");
        ann = model.newPerson("Ann", 20);
        bob = model.newPerson("Bob", 30);
        cid = model.newPerson("cid_%", 40);
        ann->salary = 0.1;
        ann->employer = red;
        bob->employer = blue;
        ann->spouse = bob;
        ann->friends.add(bob);
        ann->friends.add(cid);
        bob->friends.add(cid);
        bob->parent = ann;
        model.commit();
    }

    // The names of those who fulfil the condition.
    std::set<std::string> who(const Condition& condition) {
        SelectionOf<Person> found(model.personClass);
        found.where(condition);
        std::set<std::string> names;
        for (Person* person : found)
            EXPECT_TRUE(names.insert(static_cast<const char*>(person->name)).second);
        return names;
    }

    Attribute attribute(const char* name) { return Attribute(model.personClass, name); }
    Role role(const char* association, const char* name) {
        return Role(model.personClass, name, model.getAssociation(association));
    }

    using Names = std::set<std::string>;
    const Names all{"Ann", "Bob", "cid_%"};

    StaffModel model;
    Pointer<Company> red;
    Pointer<Company> blue;
    Pointer<Person> ann;
    Pointer<Person> bob;
    Pointer<Person> cid;
};

TEST_F(ConditionTest, ComparesNumbersWithEveryOperator) {
    const Attribute age = attribute("age");

    EXPECT_EQ((Names{"Bob"}), who(age == 30));
    EXPECT_EQ((Names{"Ann", "cid_%"}), who(age != 30));
    EXPECT_EQ((Names{"cid_%"}), who(age > 30));
    EXPECT_EQ((Names{"Ann"}), who(age < 30));
    EXPECT_EQ((Names{"Bob", "cid_%"}), who(age >= 30));
    EXPECT_EQ((Names{"Ann", "Bob"}), who(age <= 30));
}

TEST_F(ConditionTest, ComparesWithEveryKindOfNumber) {
    const Attribute age = attribute("age");

    EXPECT_EQ((Names{"Bob"}), who(age == 30L));
    EXPECT_EQ((Names{"Bob"}), who(age == 30UL));
    EXPECT_EQ((Names{"Bob"}), who(age == 30U));
    EXPECT_EQ((Names{"Bob"}), who(age == 30.0));
    EXPECT_EQ((Names{"Bob"}), who(age == 30.0F));
    EXPECT_EQ(Names(), who(age == true));
}

TEST_F(ConditionTest, KnowsThatNoStoredNumberIsAbove63Bits) {
    const Attribute age = attribute("age");

    EXPECT_EQ(all, who(age < ~0UL));
    EXPECT_EQ(all, who(age != ~0UL));
    EXPECT_EQ(Names(), who(age >= ~0UL));
}

TEST_F(ConditionTest, KnowsThatNothingEqualsNaN) {
    const double nan = std::numeric_limits<double>::quiet_NaN();

    EXPECT_EQ(Names(), who(attribute("salary") == nan));
    EXPECT_EQ(all, who(attribute("salary") != nan));
}

TEST_F(ConditionTest, FindsRealsExactly) {
    EXPECT_EQ((Names{"Ann"}), who(attribute("salary") == 0.1));
    EXPECT_EQ((Names{"Bob", "cid_%"}), who(attribute("salary") == -0.0));
}

TEST_F(ConditionTest, ComparesTextsByBytes) {
    const Attribute name = attribute("name");

    EXPECT_EQ((Names{"Ann"}), who(name == "Ann"));
    EXPECT_EQ(Names(), who(name == "ann"));
    EXPECT_EQ(Names(), who(name == "Ann "));
    EXPECT_EQ((Names{"cid_%"}), who(name > "Z"));
}

struct Pattern {
    const char* pattern;
    std::set<std::string> names;
};

class LikeTest : public ConditionTest, public ::testing::WithParamInterface<Pattern> {};

TEST_P(LikeTest, MatchesCaseSensitively) {
    EXPECT_EQ(GetParam().names, who(attribute("name").like(GetParam().pattern)));
}

INSTANTIATE_TEST_SUITE_P(Patterns, LikeTest,
                         ::testing::Values(Pattern{"A%", {"Ann"}}, Pattern{"a%", {}},
                                           Pattern{"_o_", {"Bob"}}, Pattern{"", {}},
                                           Pattern{"%", {"Ann", "Bob", "cid_%"}},
                                           Pattern{"%\\%", {"cid_%"}},
                                           Pattern{"cid\\_\\%", {"cid_%"}}, Pattern{"Ann\\", {}},
                                           Pattern{"Ann\\\\", {}}));

TEST_F(ConditionTest, JoinsWithAndAndOr) {
    const Attribute age = attribute("age");
    const Attribute name = attribute("name");

    EXPECT_EQ((Names{"Bob"}), who((age > 20) & (age < 40)));
    EXPECT_EQ((Names{"Ann", "cid_%"}), who(age == 20 || age == 40));
    EXPECT_EQ((Names{"Ann", "cid_%"}), who(name == "Ann" || ((age > 20) & (age != 30))));
    EXPECT_EQ((Names{"Bob"}), who((age == 20 || age == 30) & (name == "Bob" || name == "cid")));
}

TEST_F(ConditionTest, TakesManyAlternatives) {
    Condition* any = (attribute("age") == 0).getNew();
    for (int i = 1; i < 20000; ++i)
        any = new CombinationCondition(any, Condition::OR, (attribute("age") == i).getNew());
    SelectionOf<Person> found(model.personClass);
    found.setCondition(any);

    int count = 0;
    while (found.next())
        ++count;

    EXPECT_EQ(3, count);
}

TEST_F(ConditionTest, TakesManyDifferentTerms) {
    Condition* every = (attribute("age") >= 0).getNew();
    for (int i = 1; i < 5000; ++i)
        every =
            new CombinationCondition(every, Condition::AND, (attribute("age") != 30 + i).getNew());
    SelectionOf<Person> found(model.personClass);
    found.setCondition(every);

    EXPECT_EQ(nullptr, [&] {
        Person* last = nullptr;
        for (Person* person : found)
            if (person->age == 40)
                last = person;
        return last;
    }());
}

TEST_F(ConditionTest, TestsOneReferences) {
    const Role employer = role("Works", "employer");

    EXPECT_EQ((Names{"Ann"}), who(employer == red.getInstance()));
    EXPECT_EQ((Names{"Bob", "cid_%"}), who(employer != red.getInstance()));
    EXPECT_EQ((Names{"cid_%"}), who(employer == nullptr));
    EXPECT_EQ((Names{"Ann", "Bob"}), who(employer != nullptr));
}

TEST_F(ConditionTest, TestsTheManySideOfOneReferences) {
    const Role children = role("Family", "children");

    EXPECT_EQ((Names{"Ann"}), who(children == bob.getInstance()));
    EXPECT_EQ((Names{"Bob", "cid_%"}), who(children != bob.getInstance()));
    EXPECT_EQ((Names{"Bob", "cid_%"}), who(children == nullptr));
    EXPECT_EQ((Names{"Ann"}), who(children != nullptr));
}

TEST_F(ConditionTest, TestsManyToManyRolesBothWays) {
    const Role friends = role("Friendship", "friends");
    const Role friendOf = role("Friendship", "friendOf");

    EXPECT_EQ((Names{"Ann"}), who(friends == bob.getInstance()));
    EXPECT_EQ((Names{"Ann", "Bob"}), who(friends == cid.getInstance()));
    EXPECT_EQ((Names{"cid_%"}), who(friends != cid.getInstance()));
    EXPECT_EQ((Names{"Bob", "cid_%"}), who(friendOf == ann.getInstance()));
    EXPECT_EQ((Names{"cid_%"}), who(friends == nullptr));
    EXPECT_EQ((Names{"Ann"}), who(friendOf == nullptr));
}

TEST_F(ConditionTest, TestsOneToOneRolesBothWays) {
    EXPECT_EQ((Names{"Ann"}), who(role("Marriage", "spouse") == bob.getInstance()));
    EXPECT_EQ((Names{"Bob"}), who(role("Marriage", "marriedTo") == ann.getInstance()));
}

TEST_F(ConditionTest, NestsSelectionsOverOneReferences) {
    Selection reds(model.companyClass);
    reds.where(reds["name"] == "Red");

    EXPECT_EQ((Names{"Ann"}), who(role("Works", "employer") == reds));
    EXPECT_EQ(nullptr, reds.getCondition());
}

TEST_F(ConditionTest, TakesTheComplementOfANestedSelection) {
    Selection reds(model.companyClass);
    reds.where(reds["name"] == "Red");

    EXPECT_EQ((Names{"Bob", "cid_%"}), who(role("Works", "employer") != reds));
}

TEST_F(ConditionTest, NestsSelectionsOverCollections) {
    Selection old(model.personClass);
    old.where(old["age"] > 35);

    EXPECT_EQ((Names{"Ann", "Bob"}), who(role("Friendship", "friends") == old));
}

TEST_F(ConditionTest, NestsSelectionsInSelections) {
    Selection blues(model.companyClass);
    blues.where(blues["name"] == "Blue");
    Selection atBlue(model.personClass);
    atBlue.where(atBlue("Works") == blues);

    EXPECT_EQ((Names{"Ann"}), who(role("Family", "children") == atBlue));
}

TEST_F(ConditionTest, NestsASelectionWithoutCondition) {
    Selection anybody(model.personClass);

    EXPECT_EQ((Names{"Ann", "Bob"}), who(role("Friendship", "friends") == anybody));
}

TEST_F(ConditionTest, SelectsFirmsByTheirStaff) {
    Selection firms(model.companyClass);
    Selection young(model.personClass);
    young.where(young["age"] < 25);
    firms.where(firms("Works") == young);

    ASSERT_TRUE(firms.next());
    EXPECT_EQ(red.getInstance(), firms.value());
    EXPECT_FALSE(firms.next());
}

TEST_F(ConditionTest, RefusesAFieldThatTheClassDoesNotHave) {
    const std::string message = messageRaisedBy([&] { who(attribute("wage") == 1); });

    EXPECT_NE(std::string::npos, message.find("\"wage\"")) << message;
    EXPECT_NE(std::string::npos, message.find("Person")) << message;
}

TEST_F(ConditionTest, ComparesRealsWithWholeNumbersThatNoRealEquals) {
    constexpr long odd = (1L << 53) + 1;
    model.startTransaction();
    const double salaries[] = {1e300, 9007199254740992.0, 9223372036854775808.0};
    for (int i = 0; i < 3; ++i) {
        Person* person = i == 0 ? ann : i == 1 ? bob : cid;
        person->salary = salaries[i];
        person->change();
    }
    model.commit();
    const Attribute salary = attribute("salary");

    EXPECT_EQ(Names{"Ann"}, who(salary > ULONG_MAX));
    EXPECT_EQ(Names{"Ann"}, who(salary >= ULONG_MAX));
    EXPECT_EQ((Names{"Bob", "cid_%"}), who(salary < ULONG_MAX));
    EXPECT_EQ((Names{"Bob", "cid_%"}), who(salary <= ULONG_MAX));
    EXPECT_EQ(Names{"cid_%"}, who(salary == (1UL << 63)));
    EXPECT_EQ((Names{"Ann", "Bob"}), who(salary != (1UL << 63)));
    EXPECT_EQ(Names{}, who(salary == odd));
    EXPECT_EQ(all, who(salary != odd));
    EXPECT_EQ(Names{"Bob"}, who(salary < odd));
    EXPECT_EQ((Names{"Ann", "cid_%"}), who(salary >= odd));
    EXPECT_EQ(all, who(salary > -odd));
    EXPECT_EQ((Names{"Ann", "cid_%"}), who(salary > static_cast<unsigned long>(odd)));
}

TEST_F(ConditionTest, RefusesComparisonsThatMakeNoSense) {
    EXPECT_RAISES("SELERR", who(attribute("name") == 1));
    EXPECT_RAISES("SELERR", who(attribute("age") == "1"));
    EXPECT_RAISES("SELERR", who(attribute("age").like("1")));
    EXPECT_RAISES("SELERR", who(attribute("employer") == 1));
}

TEST_F(ConditionTest, RefusesUnknownAssociationsAndRoles) {
    EXPECT_RAISES("SELERR", who(role("Jobs", "employer") == nullptr));
    EXPECT_RAISES("SELERR", who(role("Works", "staff") == nullptr));
    EXPECT_RAISES("SELERR", who(role("Works", "boss") == nullptr));
}

TEST_F(ConditionTest, RefusesToSortByAnUnknownField) {
    Selection sorted(model.personClass);
    sorted.orderBy(sorted["wage"]);

    EXPECT_RAISES("SELERR", sorted.next());
}

TEST_F(ConditionTest, MergesConcreteClassesInByteOrder) {
    model.startTransaction();
    const char* names[] = {"b", "Z", "", "ä", "_", "a", " "};
    for (int i = 0; i < 7; ++i) {
        auto* vehicle =
            static_cast<Vehicle*>((i % 2 == 0 ? model.carClass : model.boatClass)->newInstance());
        vehicle->name = names[i];
    }
    model.commit();
    SelectionOf<Vehicle> sorted(model.vehicleClass);
    sorted.orderBy(sorted["name"]);

    std::string order;
    for (Vehicle* vehicle : sorted)
        order += vehicle->name + "|";

    EXPECT_EQ("| |Z|_|a|b|ä|", order);
}

TEST_F(ConditionTest, SelectsOverAnAbstractClass) {
    model.startTransaction();
    static_cast<Vehicle*>(model.carClass->newInstance())->year = 2000;
    static_cast<Vehicle*>(model.boatClass->newInstance())->year = 1990;
    model.commit();
    SelectionOf<Vehicle> old(model.vehicleClass);
    old.where(old["year"] < 1995);

    ASSERT_TRUE(old.next());
    EXPECT_EQ(model.boatClass, old.value()->getClass());
    EXPECT_FALSE(old.next());
}

}  // namespace Kes::testing
