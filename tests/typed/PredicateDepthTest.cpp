#include "tests/typed/Store.h"

namespace Kes::testing {

using Numbers = std::vector<int>;

// Items 0, 1 and 2, each with a tag of its own.
class PredicateDepthTest : public StoreTest {
protected:
    PredicateDepthTest() {
        db->transact([](Transaction& tx) {
            for (int i = 0; i < 3; ++i) {
                const Ref<Tag> tag = tx.make<Tag>([&](Tag& made) { made.word = "t"; });
                tx.make<Item>([&](Item& item) {
                    item.number = i;
                    item.tags.add(tag);
                });
            }
        });
    }

    const Predicate<Item> isOne = field<&Item::number> == 1;

    Numbers found(const Predicate<Item>& condition) {
        return numbersOf(db->query<Item>().where(condition).orderBy(field<&Item::number>));
    }

    // The items with a tag of items with a tag, and so on, of the first ones.
    static Predicate<Item> linked(Predicate<Item> condition, int times) {
        for (int i = 0; i < times; ++i)
            condition = field<&Item::tags>.any(field<&Tag::items>.any(condition));
        return condition;
    }

    // The same as the condition.
    static Predicate<Item> alternating(Predicate<Item> condition, int times) {
        for (int i = 0; i < times; ++i)
            condition = i % 2 == 0 ? condition || field<&Item::number> == 1000 + i
                                   : field<&Item::number> != 1000 + i && condition;
        return condition;
    }

    // The same as the condition, when it is turned around so often.
    static Predicate<Item> turned(Predicate<Item> condition, int times) {
        for (int i = 0; i < times; ++i)
            condition = !(condition && field<&Item::number> != 1000 + i);
        return condition;
    }
};

INSTANTIATE_TEST_SUITE_P(Native, PredicateDepthTest, ::testing::Values(false));
INSTANTIATE_TEST_SUITE_P(Plain, PredicateDepthTest, ::testing::Values(true));

TEST_P(PredicateDepthTest, FollowsEightLinks) {
    EXPECT_EQ(Numbers{1}, found(linked(isOne, 4)));
    EXPECT_EQ((Numbers{0, 2}), found(!linked(isOne, 4)));
}

TEST_P(PredicateDepthTest, JoinsInSixtyParentheses) {
    EXPECT_EQ(Numbers{1}, found(alternating(isOne, 60)));
    EXPECT_EQ((Numbers{0, 2}), found(turned(isOne, 61)));
}

TEST_P(PredicateDepthTest, TurnsAHundredThousandTimes) {
    Predicate<Item> condition = isOne;
    for (int i = 0; i < 100001; ++i)
        condition = !condition;

    EXPECT_EQ((Numbers{0, 2}), found(condition));
}

TEST_P(PredicateDepthTest, RefusesWhatNoDatabaseTakes) {
    for (const int times : {600, 100000}) {
        EXPECT_SAYS(errorOf([&] { found(linked(isOne, times)); }), "nested too deep");
        EXPECT_SAYS(errorOf([&] { found(alternating(isOne, times)); }), "nested too deep");
        EXPECT_SAYS(errorOf([&] { found(turned(isOne, times)); }), "nested too deep");
    }
    EXPECT_EQ(Numbers{1}, found(isOne));
}

}  // namespace Kes::testing
