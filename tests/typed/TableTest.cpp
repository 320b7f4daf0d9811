#include <algorithm>
#include <functional>
#include <limits>
#include <map>
#include <random>
#include <tuple>

#include "tests/typed/Store.h"

namespace Kes::testing {

using namespace std::chrono;

class TableTest : public StoreTest {
protected:
    template <class T = Item>
    Ref<T> add(const std::function<void(T&)>& fill) {
        return db->transact([&](Transaction& tx) { return tx.make<T>(fill); });
    }
};

INSTANTIATE_TEST_SUITE_P(Native, TableTest, ::testing::Values(false));
INSTANTIATE_TEST_SUITE_P(Plain, TableTest, ::testing::Values(true));

TEST_P(TableTest, ShowsFieldsOfEveryType) {
    const Uuid key("01234567-89ab-cdef-0123-456789abcdef");
    const sys_time<microseconds> then{microseconds(1700000000000001)};
    const Ref<Item> full = add<Item>([&](Item& item) {
        item.title = "T\xC3\xA4glich";
        item.number = 2;
        item.count = -5;
        item.note = "";
        item.mood = Mood::Bad;
        item.done = true;
        item.weight = 0.1;
        item.price = Decimal<2>("-12.5");
        item.day = 2024y / June / 28;
        item.seen = then;
        item.key = key;
        item.grade = Grade{3};
        item.big = 9223372036854775807U;
    });
    add<Box>([](Box& box) { box.number = 1; });

    const auto rows =
        db->query<Item>()
            .orderBy(field<&Item::number>.descending())
            .select(Kes::id, field<&Item::title>, field<&Item::count>, field<&Item::note>,
                    field<&Item::mood>, field<&Item::done>, field<&Item::weight>,
                    field<&Item::price>, field<&Item::day>, field<&Item::seen>, field<&Item::key>,
                    field<&Item::grade>, field<&Item::big>);
    ASSERT_EQ(2u, rows.size());
    using Day = std::optional<year_month_day>;
    EXPECT_EQ(std::make_tuple(full->getObjectID(), std::string("T\xC3\xA4glich"),
                              std::optional<int>(-5), std::optional<std::string>(""), Mood::Bad,
                              true, 0.1, Decimal<2>("-12.5"), Day(2024y / June / 28), then, key,
                              Grade{3}, std::uint64_t{9223372036854775807U}),
              rows[0]);
    EXPECT_EQ("", std::get<1>(rows[1]));
    EXPECT_EQ(std::nullopt, std::get<2>(rows[1]));
    EXPECT_EQ(std::nullopt, std::get<3>(rows[1]));
    EXPECT_EQ(std::nullopt, std::get<8>(rows[1]));
}

TEST_P(TableTest, FillsStructsOfTheApplication) {
    struct Line {
        std::string title;
        std::optional<int> count;
    };
    add<Item>([](Item& item) {
        item.title = "a";
        item.count = 7;
    });
    const auto lines = db->query<Item>().selectAs<Line>(field<&Item::title>, field<&Item::count>);
    ASSERT_EQ(1u, lines.size());
    EXPECT_EQ("a", lines[0].title);
    EXPECT_EQ(7, lines[0].count);
}

TEST_P(TableTest, ComputesNothingOfNoObjects) {
    EXPECT_EQ(0, db->query<Item>().sum(field<&Item::number>));
    EXPECT_EQ(0.0, db->query<Item>().sum(field<&Item::weight>));
    EXPECT_EQ(std::nullopt, db->query<Item>().avg(field<&Item::number>));
    EXPECT_EQ(std::nullopt, db->query<Item>().min(field<&Item::title>));
    EXPECT_EQ(std::nullopt, db->query<Item>().max(field<&Item::day>));
    EXPECT_TRUE(db->query<Item>().groupBy(field<&Item::mood>).count().empty());
    EXPECT_EQ(std::make_tuple(0UL, 0UL),
              db->query<Item>().select(Kes::count(), Kes::count(field<&Item::count>)).front());
    add<Item>([](Item&) {});
    EXPECT_EQ(0, db->query<Item>().sum(field<&Item::count>));
    EXPECT_EQ(std::nullopt, db->query<Item>().max(field<&Item::count>));
}

TEST_P(TableTest, AddsUpExactlyAndRefusesWhatDoesNotFit) {
    const auto most = std::numeric_limits<std::int64_t>::max();
    add<Item>([&](Item& item) {
        item.big = static_cast<std::uint64_t>(most);
        item.price = Decimal<2>::fromUnits(most);
    });
    EXPECT_EQ(most, db->query<Item>().sum(field<&Item::big>));
    add<Box>([](Box& box) { box.price = Decimal<2>::fromUnits(-most); });
    EXPECT_EQ(Decimal<2>(), db->query<Item>().sum(field<&Item::price>));
    EXPECT_EQ(most, db->query<Item>().sum(field<&Item::big>));
    add<Item>([](Item& item) { item.big = 1; });
    try {
        db->query<Item>().sum(field<&Item::big>);
        FAIL() << "a sum of 2^63 was told";
    } catch (const Error& error) {
        EXPECT_EQ(ErrorKind::InvalidValue, error.getKind());
        EXPECT_NE(std::string::npos, std::string(error.what()).find("9223372036854775808"));
        EXPECT_EQ("big", error.getFieldName());
    }
    EXPECT_DOUBLE_EQ(9223372036854775808.0 / 3, *db->query<Item>().avg(field<&Item::big>));
}

TEST_P(TableTest, GoesByWhatIsStored) {
    const Ref<Item> item = add<Item>([](Item& each) { each.number = 1; });
    db->transact([&](Transaction& tx) {
        tx.edit(item).number = 5;
        tx.make<Item>([](Item& each) { each.number = 7; });
        EXPECT_EQ(1, db->query<Item>().sum(field<&Item::number>));
        EXPECT_EQ(std::vector{std::make_tuple(1)}, db->query<Item>().select(field<&Item::number>));
    });
    EXPECT_EQ(12, db->query<Item>().sum(field<&Item::number>));
}

TEST_P(TableTest, GroupsAndKeepsWhatHavingSays) {
    for (int i = 0; i < 7; ++i)
        db->transact([&](Transaction& tx) {
            const auto set = [&](Item& item) {
                item.mood = i < 4 ? Mood::Bad : i < 6 ? Mood::Even : Mood::Good;
                item.number = i;
                item.count = i == 3 ? std::nullopt : std::optional(i);
            };
            if (i % 2 == 0)
                tx.make<Item>(set);
            else
                tx.make<Box>(set);
        });
    const auto groups = db->query<Item>().groupBy(field<&Item::mood>);
    using Counts = std::vector<std::tuple<Mood, unsigned long>>;
    EXPECT_EQ((Counts{{Mood::Bad, 4}, {Mood::Even, 2}, {Mood::Good, 1}}), groups.count());
    EXPECT_EQ((Counts{{Mood::Bad, 4}, {Mood::Even, 2}}), groups.having(Kes::count() > 1).count());
    EXPECT_EQ((Counts{{Mood::Even, 2}}),
              groups.having(Kes::count() > 1).having(Kes::max(field<&Item::count>) >= 5).count());
    EXPECT_EQ(3u, groups.having(Kes::count() > -1).count().size());
    EXPECT_EQ(
        3u,
        groups.having(Kes::min(field<&Item::title>) == std::string_view("xyz", 0)).count().size());
    EXPECT_TRUE(groups.having(Kes::max(field<&Item::title>) > "").count().empty());
    const auto rows = groups.select(Kes::sum(field<&Item::number>), Kes::min(field<&Item::count>),
                                    Kes::avg(field<&Item::count>), Kes::count(field<&Item::count>));
    ASSERT_EQ(3u, rows.size());
    EXPECT_EQ(std::make_tuple(Mood::Bad, std::int64_t{6}, std::optional(0),
                              std::optional<double>(1.0), 3UL),
              rows[0]);
    const auto counts = db->query<Item>().distinct(field<&Item::count>);
    ASSERT_EQ(7u, counts.size());
    EXPECT_EQ(std::nullopt, std::get<0>(counts[0]));
    EXPECT_EQ(0, std::get<0>(counts[1]));
}

TEST_P(TableTest, RefusesMembersThatAreNotDescribed) {
    struct Loose : Object<Loose> {
        int known = 0;
        int unknown = 0;
        static void describe(Description<Loose>& d) { d.field("known", &Loose::known); }
    };
    EXPECT_THROW(db->query<Loose>().select(field<&Loose::unknown>), Error);
}

// Compared with the same in C++, over objects of three classes.
class TableOracleTest : public TableTest {
protected:
    struct Line {
        std::string title;
        int number;
        std::optional<int> count;
        Mood mood;
        double weight;
        Decimal<2> price;
    };

    static Line lineOf(const Item& item) {
        return {item.title, item.number, item.count, item.mood, item.weight, item.price};
    }

    void fill() {
        db->transact([&](Transaction& tx) {
            for (int i = 0; i < 200; ++i) {
                const auto set = [&](Item& item) {
                    item.title = std::string(1, static_cast<char>('a' + pick(0, 4)));
                    item.number = pick(-1000, 1000);
                    if (pick(0, 3) > 0)
                        item.count = pick(-2, 2);
                    item.mood = static_cast<Mood>(pick(-1, 1));
                    item.weight = pick(0, 100) / 4.0;
                    item.price = Decimal<2>::fromUnits(pick(-9999, 9999));
                    lines.push_back(lineOf(item));
                };
                const int cls = pick(0, 2);
                if (cls == 0)
                    tx.make<Item>(set);
                else if (cls == 1)
                    tx.make<Box>(set);
                else
                    tx.make<Chest>(set);
            }
        });
    }

    int pick(int least, int most) { return std::uniform_int_distribution(least, most)(random); }

    std::mt19937 random{4711};
    std::vector<Line> lines;
};

INSTANTIATE_TEST_SUITE_P(Native, TableOracleTest, ::testing::Values(false));
INSTANTIATE_TEST_SUITE_P(Plain, TableOracleTest, ::testing::Values(true));

TEST_P(TableOracleTest, GroupsAsAProgramWould) {
    fill();
    struct Group {
        unsigned long count = 0;
        std::int64_t numbers = 0;
        std::int64_t units = 0;
        double weights = 0;
        std::optional<std::string> last;
        std::optional<int> least;
    };
    std::map<std::tuple<std::optional<int>, std::string>, Group> expected;
    for (const Line& line : lines) {
        if (line.number < -500)
            continue;
        Group& group = expected[{line.count, line.title}];
        ++group.count;
        group.numbers += line.number;
        group.units += line.price.getUnits();
        group.weights += line.weight;
        group.least = std::min(group.least.value_or(line.number), line.number);
    }
    const auto found =
        db->query<Item>()
            .where(field<&Item::number> >= -500)
            .groupBy(field<&Item::count>, field<&Item::title>)
            .select(Kes::count(), Kes::sum(field<&Item::number>), Kes::sum(field<&Item::price>),
                    Kes::sum(field<&Item::weight>), Kes::max(field<&Item::title>),
                    Kes::min(field<&Item::number>), Kes::avg(field<&Item::number>));
    ASSERT_EQ(expected.size(), found.size());
    std::size_t row = 0;
    for (const auto& [key, group] : expected) {
        const auto& [count, title, number, sum, price, weight, greatest, least, average] =
            found[row++];
        EXPECT_EQ(key, std::make_tuple(count, title));
        EXPECT_EQ(group.count, number);
        EXPECT_EQ(group.numbers, sum);
        EXPECT_EQ(group.units, price.getUnits());
        EXPECT_EQ(group.weights, weight);  // quarters, which are exact in any order
        EXPECT_EQ(title, greatest);
        EXPECT_EQ(group.least, least);
        EXPECT_DOUBLE_EQ(static_cast<double>(group.numbers) / static_cast<double>(group.count),
                         average.value());
    }
}

TEST_P(TableOracleTest, ShowsPartsInTheOrderOfTheQuery) {
    fill();
    const auto sorted = db->query<Item>()
                            .where(field<&Item::mood> != Mood::Even)
                            .orderBy(field<&Item::count>.descending(), field<&Item::title>);
    std::vector<std::tuple<std::string, std::optional<int>, int>> all;
    for (const Item& item : sorted)
        all.emplace_back(item.title, item.count, item.number);
    ASSERT_LT(100u, all.size());
    for (const auto& [skipped, most] :
         {std::pair{0u, 1000u}, {0u, 7u}, {20u, 10u}, {100u, 1000u}, {500u, 3u}}) {
        const std::size_t begin = std::min<std::size_t>(skipped, all.size());
        const std::size_t end = std::min<std::size_t>(begin + most, all.size());
        const std::vector expected(all.begin() + static_cast<std::ptrdiff_t>(begin),
                                   all.begin() + static_cast<std::ptrdiff_t>(end));
        const auto part = sorted.offset(skipped).limit(most);
        EXPECT_EQ(expected,
                  part.select(field<&Item::title>, field<&Item::count>, field<&Item::number>));
        std::int64_t sum = 0;
        for (const auto& row : expected)
            sum += std::get<2>(row);
        EXPECT_EQ(sum, part.sum(field<&Item::number>));
        EXPECT_EQ(std::make_tuple(static_cast<unsigned long>(expected.size())),
                  part.select(Kes::count()).front());
    }
    const auto chests = db->query<Chest>().orderBy(field<&Item::price>, Kes::id);
    std::vector<std::tuple<Decimal<2>>> prices;
    for (const Chest& chest : chests.offset(3u).limit(20u))
        prices.emplace_back(chest.price);
    EXPECT_EQ(prices, chests.offset(3u).limit(20u).select(field<&Item::price>));
}

}  // namespace Kes::testing
