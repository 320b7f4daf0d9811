#include "packages/Circles.h"

#include <gtest/gtest.h>

namespace packages {
namespace {

using Sets = std::vector<std::vector<std::size_t>>;

TEST(CirclesTest, FindsNoneWhereNothingLeadsBack) {
    EXPECT_EQ(findCircles({{1, 2}, {2}, {}}), Sets{});
    EXPECT_EQ(findCircles({}), Sets{});
}

TEST(CirclesTest, FindsTwoNodesThatPointToEachOther) {
    EXPECT_EQ(findCircles({{1}, {0}, {0}}), (Sets{{0, 1}}));
}

TEST(CirclesTest, KeepsSeparateCirclesApart) {
    EXPECT_EQ(findCircles({{4}, {2}, {3, 0}, {1}, {0}}), (Sets{{0, 4}, {1, 2, 3}}));
}

TEST(CirclesTest, JoinsCirclesThatShareANode) {
    EXPECT_EQ(findCircles({{1, 2}, {0}, {0}}), (Sets{{0, 1, 2}}));
}

TEST(CirclesTest, DoesNotCountANodeThatPointsToItself) {
    EXPECT_EQ(findCircles({{0}}), Sets{});
}

TEST(CirclesTest, LetsNodesBeyondTheEndPointToNothing) {
    EXPECT_EQ(findCircles({{7, 1}, {0, 9}}), (Sets{{0, 1}}));
}

TEST(CirclesTest, FollowsAMillionNodesWithoutRecursion) {
    constexpr std::size_t count = 1'000'000;
    Sets edges(count);
    for (std::size_t i = 0; i < count; ++i)
        edges[i] = {(i + 1) % count};

    const Sets circles = findCircles(edges);

    ASSERT_EQ(circles.size(), 1U);
    EXPECT_EQ(circles[0].size(), count);
}

}  // namespace
}  // namespace packages
