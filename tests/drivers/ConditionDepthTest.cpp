#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <set>

#include "tests/drivers/DriverTest.h"
#include "tests/support/Raises.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

// Three people in rings: each knows the next one, is the parent of the next one and
// married to the next one.
class ConditionDepthTest : public DriverTest {
protected:
    ConditionDepthTest() {
        open(model);
        model.startTransaction();
        for (int i = 0; i < 3; ++i)
            people[i] = model.newPerson(("p" + std::to_string(i)).c_str(), i);
        for (int i = 0; i < 3; ++i) {
            Person* next = people[(i + 1) % 3];
            people[i]->friends.add(next);
            people[i]->spouse = next;
            next->parent = people[i].operator Person*();
        }
        model.commit();
    }

    using Tree = std::unique_ptr<Condition>;
    using Names = std::set<std::string>;

    Attribute attribute(const char* name) { return Attribute(model.personClass, name); }
    Tree isFirst() { return Tree((attribute("name") == "p0").getNew()); }

    // So many selections within each other, of which the innermost is the first person.
    Tree nested(int depth, const char* association, const char* name) {
        const Role role(model.personClass, name, model.getAssociation(association));
        Tree tree = isFirst();
        for (int i = 0; i < depth; ++i) {
            Selection inner(model.personClass);
            inner.setCondition(tree.release());
            tree.reset((role == inner).getNew());
        }
        return tree;
    }

    // The same as the first person, however often that is said in parentheses.
    Tree alternating(int depth, bool isLeft) {
        Tree tree = isFirst();
        for (int i = 0; i < depth; ++i) {
            const bool isOr = i % 2 == 0;
            Condition* other =
                (isOr ? attribute("age") > 1000 + i : attribute("age") >= -i).getNew();
            Condition* deep = tree.release();
            tree = std::make_unique<CombinationCondition>(isLeft ? deep : other,
                                                          isOr ? Condition::OR : Condition::AND,
                                                          isLeft ? other : deep);
        }
        return tree;
    }

    Names who(Tree condition) {
        SelectionOf<Person> found(model.personClass);
        found.setCondition(condition.release());
        Names names;
        for (Person* person : found)
            EXPECT_TRUE(names.insert(static_cast<const char*>(person->name)).second);
        return names;
    }

    std::uint64_t countOf(Tree condition) {
        Selection counted(model.personClass);
        counted.setCondition(condition.release());
        return counted.limit(2).count();
    }

    static bool isRefused(const std::string& words) {
        EXPECT_TRUE(words.empty() || says(words, "nested too deep")) << words;
        return !words.empty();
    }

    // The deepest that is answered; what is deeper is refused by the same words whether
    // it is read or counted.
    template <class Make>
    int deepest(Make make, int beyond) {
        int low = 1;
        for (int high = beyond; high - low > 1;) {
            const int middle = low + (high - low) / 2;
            const bool isAnswered = !isRefused(messageRaisedBy([&] { who(make(middle)); }));
            (isAnswered ? low : high) = middle;
        }
        EXPECT_EQ(1U, countOf(make(low)));
        EXPECT_EQ(1U, who(make(low)).size());
        EXPECT_TRUE(isRefused(messageRaisedBy([&] { countOf(make(low + 1)); })));
        EXPECT_RAISES("SELERR", who(make(low + 1)));
        return low;
    }

    StaffModel model;
    Pointer<Person> people[3];
};

struct Link {
    const char* association;
    const char* role;
    int step;  // from the innermost person to the one that is found
};

class NestedDepthTest : public ConditionDepthTest, public ::testing::WithParamInterface<Link> {};

TEST_P(NestedDepthTest, FollowsEightLinks) {
    for (int depth = 1; depth <= 8; ++depth)
        EXPECT_EQ((Names{"p" + std::to_string((depth * GetParam().step) % 3)}),
                  who(nested(depth, GetParam().association, GetParam().role)))
            << depth;
}

TEST_P(NestedDepthTest, RefusesWhatIsTooDeep) {
    const auto make = [&](int depth) {
        return nested(depth, GetParam().association, GetParam().role);
    };

    EXPECT_LE(9, deepest(make, 150));
}

INSTANTIATE_TEST_SUITE_P(
    Links, NestedDepthTest,
    ::testing::Values(Link{"Friendship", "friends", 2}, Link{"Friendship", "friendOf", 1},
                      Link{"Family", "parent", 1}, Link{"Family", "children", 2},
                      Link{"Marriage", "spouse", 2}, Link{"Marriage", "marriedTo", 1}),
    [](const auto& tested) { return tested.param.role; });

class ParenthesesTest : public ConditionDepthTest, public ::testing::WithParamInterface<bool> {};

TEST_P(ParenthesesTest, MayBeSixtyDeep) {
    EXPECT_EQ(Names{"p0"}, who(alternating(60, GetParam())));
    EXPECT_LE(70, deepest([&](int depth) { return alternating(depth, GetParam()); }, 600));
}

TEST_P(ParenthesesTest, AreRefusedInsteadOfOverflowingTheStack) {
    EXPECT_TRUE(isRefused(messageRaisedBy([&] { who(alternating(100000, GetParam())); })));
}

INSTANTIATE_TEST_SUITE_P(Sides, ParenthesesTest, ::testing::Bool(),
                         [](const auto& tested) { return tested.param ? "Left" : "Right"; });

// One operator needs no nesting, however many terms it joins.
TEST_F(ConditionDepthTest, TakesLongChainsOfDifferentTerms) {
    for (const auto op : {Condition::AND, Condition::OR})
        for (const bool isLeft : {true, false}) {
            Tree chain = isFirst();
            for (int i = 0; i < 1500; ++i) {
                const Attribute tested = attribute(i % 2 == 0 ? "age" : "salary");
                Condition* other =
                    (op == Condition::AND ? tested != 1000 + i : tested == 1000 + i).getNew();
                Condition* deep = chain.release();
                chain = std::make_unique<CombinationCondition>(isLeft ? deep : other, op,
                                                               isLeft ? other : deep);
            }

            EXPECT_EQ(Names{"p0"}, who(std::move(chain)));
        }
}

// Each link in a chain of terms, as conditions are in practice.
TEST_F(ConditionDepthTest, FollowsLinksAmongOtherTerms) {
    const Role role(model.personClass, "friends", model.getAssociation("Friendship"));
    Tree tree = isFirst();
    for (int depth = 1; depth <= 7; ++depth) {
        Selection inner(model.personClass);
        inner.setCondition(tree.release());
        tree.reset(((attribute("age") < 100) & (role == inner) & (attribute("age") >= 0)).getNew());
    }

    EXPECT_EQ((Names{"p2"}), who(std::move(tree)));
}

TEST_F(ConditionDepthTest, FindsThoseWithoutSuchPartners) {
    const auto without = [&](const char* association, const char* name) {
        Selection inner(model.personClass);
        inner.setCondition(nested(4, association, name).release());
        return who(Tree(
            (Role(model.personClass, name, model.getAssociation(association)) != inner).getNew()));
    };

    EXPECT_EQ((Names{"p0", "p2"}), without("Friendship", "friends"));
    EXPECT_EQ((Names{"p0", "p1"}), without("Family", "parent"));
    EXPECT_EQ((Names{"p0", "p2"}), without("Family", "children"));
}

}  // namespace Kes::testing
