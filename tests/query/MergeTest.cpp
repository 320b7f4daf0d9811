// One selection over the sorted rows of several concrete classes.

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <string>
#include <vector>

#include "tests/query/RowModel.h"
#include "tests/support/Raises.h"

namespace Kes::testing {

namespace {

RowFields row(int major, int minor = 0) {
    return {{"major", major}, {"minor", minor}};
}

template <class T>
RowFields keyed(T value) {
    return {{"key", value}};
}

}  // namespace

class MergeTest : public ::testing::Test {
protected:
    /// The rows in the order of delivery, by their place among those added: "1 2 3".
    static std::string delivered(Selection& selection) {
        std::string order;
        while (selection.next())
            order += (order.empty() ? "" : " ") + std::to_string(selection.value()->getObjectID());
        return order;
    }
    std::string sorted(const char* key, bool ascending = true) {
        Selection all(model.base);
        all.orderBy(all[key], ascending);
        return delivered(all);
    }
    std::string sortedByBoth() {
        Selection all(model.base);
        all.orderBy(all["major"]);
        all.orderBy(all["minor"]);
        return delivered(all);
    }

    RowModel model;
};

TEST_F(MergeTest, PicksTheBestHeadRowByRow) {
    model.addRows("A", {row(2), row(5)});
    model.addRows("B", {row(1), row(4), row(7)});
    model.addRows("C", {row(3), row(6)});

    EXPECT_EQ("3 1 6 4 2 7 5", sorted("major"));
}

TEST_F(MergeTest, TurnsDescendingKeysAround) {
    model.addRows("A", {row(3)});
    model.addRows("B", {row(5)});

    EXPECT_EQ("2 1", sorted("major", false));
}

TEST_F(MergeTest, TakesTheLowestClassAmongEqualHeads) {
    model.addRows("A", {row(2), row(2)});
    model.addRows("B", {row(1), row(2), row(2)});
    model.addRows("C", {row(2)});

    EXPECT_EQ("3 1 2 4 5 6", sorted("major"));
}

TEST_F(MergeTest, TakesTheLowestClassAmongEqualReals) {
    model.addRows("A", {keyed(1.5)});
    model.addRows("B", {keyed(1.5)});

    EXPECT_EQ("1 2", sorted("key"));
    EXPECT_EQ("1 2", sorted("key", false));
}

TEST_F(MergeTest, AsksTheMinorKeyAmongEqualMajorOnesOnly) {
    model.addRows("A", {row(1, 9), row(2, 1)});
    model.addRows("B", {row(1, 3), row(2, 0), row(3, 0)});
    model.addRows("C", {row(1, 5), row(1, 9)});

    EXPECT_EQ("3 6 1 7 4 2 5", sortedByBoth());
}

TEST_F(MergeTest, AsksTheKeysBehindAFieldThatIsNamedTwice) {
    model.addRows("A", {row(1, 4), row(2, 2)});
    model.addRows("B", {row(1, 3), row(2, 1)});
    Selection all(model.base);
    all.orderBy(all["major"]);
    all.orderBy(all["major"], false);
    all.orderBy(all["minor"]);

    EXPECT_EQ("3 1 4 2", delivered(all));
}

// A handler that compares heads in turn reads no field after the one that
// decides, so the second of these leaves no minor key for the third.
TEST_F(MergeTest, DecidesTiesByTheMinorKeyAlsoBehindABetterHead) {
    model.addRows("A", {row(2, 1)});
    model.addRows("B", {row(1, 5)});
    model.addRows("C", {row(1, 3)});

    EXPECT_EQ("3 2 1", sortedByBoth());
}

TEST_F(MergeTest, ComparesEveryKindOfField) {
    const auto orders = [](auto low, auto high) {
        RowModel own;
        own.addRows("A", {keyed(high)});
        own.addRows("B", {keyed(low)});
        Selection all(own.base);
        all.orderBy(all["key"]);
        return delivered(all) == "2 1";
    };

    EXPECT_TRUE(orders(-1, 1));
    EXPECT_TRUE(orders(1U, 4000000000U));
    EXPECT_TRUE(orders(-1L, 1L));
    EXPECT_TRUE(orders(1UL, std::numeric_limits<unsigned long>::max()));
    EXPECT_TRUE(orders(-1.5F, 1.5F));
    EXPECT_TRUE(orders(-1.5, 1.5));
    EXPECT_TRUE(orders(String("Z"), String("a")));
    EXPECT_TRUE(orders(Timestamp(2000, 1, 1, 0, 0, 0), Timestamp(2000, 1, 1, 0, 0, 1)));
}

TEST_F(MergeTest, DrainsTheLowestClassFirstForAKeyThatNobodyReports) {
    model.addRows("A", {row(9), row(8)});
    model.addRows("B", {row(1), row(2)});
    model.addRows("C", {row(0)});

    EXPECT_EQ("1 2 3 4 5", sorted("colour"));
}

TEST_F(MergeTest, DrainsTheLowestClassFirstForABlob) {
    model.addRows("A", {keyed(Blob("b", 1))});
    model.addRows("B", {keyed(Blob("a", 1))});

    EXPECT_EQ("1 2", sorted("key"));
}

TEST_F(MergeTest, NeverPrefersAHeadWithoutTheKey) {
    model.addRows("A", {row(3), row(4)});
    model.addRows("B", {{{"other", 0}}, {{"other", 0}}});
    model.addRows("C", {row(1), row(2)});

    EXPECT_EQ("5 6 1 2 3 4", sorted("major"));
}

TEST_F(MergeTest, NeverLeavesALowestHeadWithoutTheKey) {
    model.addRows("A", {{{"other", 9}}, {{"other", 9}}});
    model.addRows("B", {row(2)});
    model.addRows("C", {row(1)});

    EXPECT_EQ("1 2 4 3", sorted("major"));
}

TEST_F(MergeTest, DecidesNothingBetweenKindsOfField) {
    model.addRows("A", {keyed(String("9"))});
    model.addRows("B", {keyed(2)});
    model.addRows("C", {keyed(String("1"))});

    EXPECT_EQ("3 1 2", sorted("key"));
}

TEST_F(MergeTest, PutsWhatIsNotANumberFirst) {
    const double none = std::numeric_limits<double>::quiet_NaN();
    model.addRows("A", {keyed(1.0), keyed(3.0)});
    model.addRows("B", {keyed(none), keyed(2.0)});
    model.addRows("C", {keyed(none)});

    EXPECT_EQ("3 5 1 4 2", sorted("key"));
}

TEST_F(MergeTest, LeavesTheOrderOfASingleClassToTheDriver) {
    Class* only = model.addRows("A", {row(2), row(3), row(1)});
    Selection some(only);
    some.orderBy(some["major"]);
    Row::walks = 0;

    EXPECT_EQ("1 2 3", delivered(some));
    EXPECT_EQ(0, Row::walks);
}

TEST_F(MergeTest, DrainsTheClassesInTurnWithoutKeys) {
    model.addRows("A", {row(9), row(1)});
    model.addRows("B", {});
    model.addRows("C", {row(0)});
    Selection all(model.base);
    Row::walks = 0;

    EXPECT_EQ("1 2 3", delivered(all));
    EXPECT_EQ(0, Row::walks);
}

TEST_F(MergeTest, GoesOnInTheOrderOfTheClassesWhenABooleanKeyIsLetPass) {
    model.addRows("A", {keyed(true), keyed(false)});
    model.addRows("B", {keyed(false)});
    const ReturningHandler handler;

    EXPECT_EQ("1 2 3", sorted("key"));

    ASSERT_FALSE(handler.codes().empty());
    EXPECT_EQ("SORTFAIL", handler.codes().front());
}

TEST_F(MergeTest, RefusesABooleanMinorKeyThatNeverDecides) {
    model.addRows("A", {{{"major", 1}, {"flag", true}}});
    model.addRows("B", {{{"major", 2}, {"flag", true}}});
    Selection all(model.base);
    all.orderBy(all["major"]);
    all.orderBy(all["flag"]);

    EXPECT_RAISES("SORTFAIL", all.next());
}

TEST_F(MergeTest, RefusesABooleanKeyOnlyFromTwoOpenCursorsOn) {
    model.addRows("A", {keyed(true)});
    model.addRows("B", {});

    EXPECT_EQ("1", sorted("key"));
}

namespace {

/// 200 classes of differing length; the rows of each in order.
std::vector<std::vector<RowFields>> manyClasses() {
    std::vector<std::vector<RowFields>> classes(200);
    unsigned int random = 7;
    for (std::size_t c = 0; c < classes.size(); ++c) {
        std::vector<std::pair<int, int>> keys(c * 7 % 31);
        for (auto& [major, minor] : keys) {
            random = random * 1103515245U + 12345U;
            major = static_cast<int>(random >> 16 & 63);
            minor = static_cast<int>(random >> 8 & 3);
        }
        std::sort(keys.begin(), keys.end(), [](const auto& a, const auto& b) {
            return a.first != b.first ? a.first > b.first : a.second < b.second;
        });
        for (const auto& [major, minor] : keys)
            classes[c].push_back(row(major, minor));
    }
    return classes;
}

}  // namespace

TEST_F(MergeTest, JoinsTwoHundredClassesInOrder) {
    struct Expected {
        int major, minor;
        unsigned long id;
    };
    std::vector<Expected> expected;
    const auto classes = manyClasses();
    for (std::size_t c = 0; c < classes.size(); ++c) {
        model.addRows(("C" + std::to_string(c)).c_str(), classes[c]);
        for (const RowFields& fields : classes[c])
            expected.push_back({std::get<int>(fields[0].value), std::get<int>(fields[1].value),
                                expected.size() + 1});
    }
    std::stable_sort(expected.begin(), expected.end(), [](const auto& a, const auto& b) {
        return a.major != b.major ? a.major > b.major : a.minor < b.minor;
    });
    std::string order;
    for (const Expected& each : expected)
        order += (order.empty() ? "" : " ") + std::to_string(each.id);
    Selection all(model.base);
    all.orderBy(all["major"], false);
    all.orderBy(all["minor"], true);

    EXPECT_EQ(order, delivered(all));
    EXPECT_LT(2000U, expected.size());
}

TEST_F(MergeTest, ReadsTheKeysOfEachRowOnce) {
    long count = 0;
    for (const auto& rows : manyClasses()) {
        model.addRows(("C" + std::to_string(count)).c_str(), rows);
        count += static_cast<long>(rows.size()) + 1;
    }
    Selection all(model.base);
    all.orderBy(all["major"], false);
    Row::walks = 0;
    long rows = 0;
    while (all.next())
        ++rows;

    EXPECT_EQ(count - 200, rows);
    EXPECT_LE(Row::walks, rows);
}

}  // namespace Kes::testing
