// What random queries find, beside what a plain walk over all objects finds.

#include <algorithm>
#include <functional>
#include <random>

#include "tests/typed/Store.h"

namespace Kes::testing {

namespace {

constexpr const char* Words[] = {"", "Kes", "kes", "K%", "k\xC3\xA4se", "Ke"};

// A condition, and what it means.
struct Rule {
    Predicate<Item> condition;
    std::function<bool(const Item&)> holds;
};

class Rules {
public:
    Rules(unsigned seed, std::vector<Ref<Room>> itsRooms)
        : random(seed),
          rooms(std::move(itsRooms)) {}

    int below(int end) { return static_cast<int>(random() % static_cast<unsigned>(end)); }
    const char* word() { return Words[below(6)]; }

    Rule make(int depth) {
        if (depth == 0)
            return leaf();
        switch (below(5)) {
        case 0: return negation(make(depth - 1));
        case 1:
        case 2: return junction(make(depth - 1), make(depth - 1), true);
        default: return junction(make(depth - 1), make(depth - 1), false);
        }
    }

private:
    static Rule negation(Rule of) {
        return {!of.condition, [of](const Item& item) { return !of.holds(item); }};
    }

    static Rule junction(Rule a, Rule b, bool both) {
        if (both)
            return {a.condition && b.condition,
                    [a, b](const Item& item) { return a.holds(item) && b.holds(item); }};
        return {a.condition || b.condition,
                [a, b](const Item& item) { return a.holds(item) || b.holds(item); }};
    }

    // The six comparisons of a field with a value; an empty optional is neither
    // less nor greater.
    template <auto Member, class V>
    Rule comparison(V value) {
        const auto test = [value](auto compare) {
            return [value, compare](const Item& item) {
                using M = std::remove_cvref_t<decltype(item.*Member)>;
                if constexpr (IsOptional<M>)
                    return (item.*Member).has_value() && compare(*(item.*Member), value);
                else
                    return compare(item.*Member, value);
            };
        };
        const auto& tested = field<Member>;
        switch (below(6)) {
        case 0: return {tested == value, test([](auto& a, auto& b) { return a == b; })};
        case 1: return {tested != value, [value](const Item& i) { return i.*Member != value; }};
        case 2: return {tested < value, test([](auto& a, auto& b) { return a < b; })};
        case 3: return {tested <= value, test([](auto& a, auto& b) { return a <= b; })};
        case 4: return {tested > value, test([](auto& a, auto& b) { return a > b; })};
        default: return {tested >= value, test([](auto& a, auto& b) { return a >= b; })};
        }
    }

    Rule leaf() {
        using namespace std::chrono;
        switch (below(12)) {
        case 0: return comparison<&Item::number>(below(8));
        case 1: return comparison<&Item::count>(below(4));
        case 2: return comparison<&Item::title>(std::string(word()));
        case 3: return comparison<&Item::note>(std::string(word()));
        case 4: return comparison<&Item::day>(year_month_day(2024y / June / (1 + below(3))));
        case 5: return comparison<&Item::price>(Decimal<2>::fromUnits(below(5) - 2));
        case 6: return comparison<&Item::mood>(static_cast<Mood>(below(3) - 1));
        case 7: {
            const std::vector<int> list{below(4), below(4)};
            return {field<&Item::count>.in(list), [list](const Item& item) {
                        return item.count == list[0] || item.count == list[1];
                    }};
        }
        case 8:
            return {field<&Item::note>.like("K%"), [](const Item& item) {
                        return item.note.has_value() && item.note->starts_with('K');
                    }};
        case 9: {
            const Ref<Room> room = rooms[static_cast<std::size_t>(below(3))];
            return {field<&Item::room> == room,
                    [room](const Item& item) { return item.room == room; }};
        }
        case 10: {
            const int floor = below(3);
            return {field<&Item::room>(field<&Room::floor> != floor),
                    [floor](const Item& item) { return item.room && item.room->floor != floor; }};
        }
        default: {
            const std::string wanted = word();
            return {field<&Item::tags>.any(!(field<&Tag::word> == wanted)),
                    [wanted](const Item& item) {
                        for (const Tag& tag : item.tags)
                            if (tag.word != wanted)
                                return true;
                        return false;
                    }};
        }
        }
    }

    std::minstd_rand random;
    std::vector<Ref<Room>> rooms;  // the last one is empty
};

// Sorts as the query does: by two fields, empty ones first, and by the ids.
bool comesBefore(const Ref<Item>& a, const Ref<Item>& b) {
    if (a->count != b->count)
        return a->count < b->count;
    if (a->title != b->title)
        return a->title > b->title;
    return a.getObjectID() < b.getObjectID();
}

}  // namespace

class QueryOracleTest : public StoreTest {
protected:
    void fill(Rules& rules, const std::vector<Ref<Room>>& rooms) {
        db->transact([&](Transaction& tx) {
            std::vector<Ref<Tag>> tags;
            for (const char* word : Words)
                tags.push_back(tx.make<Tag>([&](Tag& tag) { tag.word = word; }));
            for (int i = 0; i < 60; ++i) {
                const Ref<Item> item = i % 3 == 0   ? tx.make<Item>()
                                       : i % 3 == 1 ? Ref<Item>(tx.make<Box>())
                                                    : Ref<Item>(tx.make<Chest>());
                set(tx.edit(item), rules, rooms, tags);
            }
        });
    }

    static void set(Item& item, Rules& rules, const std::vector<Ref<Room>>& rooms,
                    const std::vector<Ref<Tag>>& tags) {
        using namespace std::chrono;
        item.number = rules.below(8);
        item.title = rules.word();
        item.price = Decimal<2>::fromUnits(rules.below(5) - 2);
        item.mood = static_cast<Mood>(rules.below(3) - 1);
        if (rules.below(3) > 0)
            item.count = rules.below(4);
        if (rules.below(3) > 0)
            item.note = rules.word();
        if (rules.below(3) > 0)
            item.day = 2024y / June / (1 + rules.below(3));
        if (rules.below(3) > 0)
            item.room = rooms[static_cast<std::size_t>(rules.below(3))];
        for (int k = rules.below(3); k > 0; --k)
            item.tags.add(tags[static_cast<std::size_t>(rules.below(6))]);
    }

    std::vector<Ref<Room>> makeRooms() {
        return db->transact([&](Transaction& tx) {
            return std::vector<Ref<Room>>{
                tx.make<Room>(), tx.make<Room>([](Room& room) { room.floor = 1; }), Ref<Room>()};
        });
    }
};

INSTANTIATE_TEST_SUITE_P(Native, QueryOracleTest, ::testing::Values(false));
INSTANTIATE_TEST_SUITE_P(Plain, QueryOracleTest, ::testing::Values(true));

TEST_P(QueryOracleTest, FindsWhatAWalkOverAllObjectsFinds) {
    const std::vector<Ref<Room>> rooms = makeRooms();
    Rules rules(GetParam() ? 7 : 8, rooms);
    fill(rules, rooms);
    std::vector<Ref<Item>> all;
    for (const Item& item : db->query<Item>())
        all.emplace_back(item);
    std::sort(all.begin(), all.end(), comesBefore);
    ASSERT_EQ(60U, all.size());

    for (int round = 0; round < 120; ++round) {
        const Rule rule = rules.make(round % 4);
        std::vector<unsigned long> expected;
        for (const Ref<Item>& item : all)
            if (rule.holds(*item))
                expected.push_back(item.getObjectID());
        const auto query = db->query<Item>().where(rule.condition);

        ASSERT_EQ(expected.size(), query.count()) << "in round " << round;
        ASSERT_EQ(!expected.empty(), query.exists()) << "in round " << round;
        const auto begin = std::min(static_cast<std::size_t>(rules.below(10)), expected.size());
        const auto size =
            std::min(static_cast<std::size_t>(rules.below(20)), expected.size() - begin);
        std::vector<unsigned long> found;
        for (const Item& item : query.orderBy(field<&Item::count>, field<&Item::title>.descending())
                                    .offset(begin)
                                    .limit(size))
            found.push_back(item.getObjectID());
        const auto first = expected.begin() + static_cast<std::ptrdiff_t>(begin);
        ASSERT_EQ(std::vector<unsigned long>(first, first + static_cast<std::ptrdiff_t>(size)),
                  found)
            << "in round " << round;
    }
}

// Page by page the same objects come in the same order as at once.
TEST_P(QueryOracleTest, GoesOnBehindAnObjectInEveryOrder) {
    const std::vector<Ref<Room>> rooms = makeRooms();
    Rules rules(9, rooms);
    fill(rules, rooms);
    const auto all = db->query<Item>().where(field<&Item::number> > 0);
    const Query<Item> orders[] = {
        all,
        all.orderBy(descending(Kes::id)),
        all.orderBy(field<&Item::title>),
        all.orderBy(field<&Item::count>, field<&Item::title>.descending()),
        all.orderBy(field<&Item::count>.descending(), field<&Item::done>),
        all.orderBy(field<&Item::mood>.descending(), field<&Item::day>, field<&Item::price>),
        all.orderBy(field<&Item::day>.descending(), field<&Item::note>.descending(),
                    descending(Kes::id)),
    };

    for (const Query<Item>& order : orders) {
        std::vector<unsigned long> expected;
        for (const Item& item : order.offset(0).limit(1000))
            expected.push_back(item.getObjectID());
        std::vector<unsigned long> paged;
        Ref<Item> last = order.first();
        paged.push_back(last.getObjectID());
        for (bool hasMore = true; hasMore;) {
            const auto rest = order.after(last);
            ASSERT_EQ(expected.size() - paged.size(), rest.count());
            hasMore = false;
            for (const Item& item : rest.limit(7)) {
                paged.push_back(item.getObjectID());
                last = item;
                hasMore = true;
            }
        }
        EXPECT_EQ(expected, paged);
    }
}

}  // namespace Kes::testing
