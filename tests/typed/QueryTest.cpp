#include <functional>
#include <limits>

#include "tests/typed/Store.h"

namespace Kes::testing {

using namespace std::chrono;
using Numbers = std::vector<int>;

class QueryTest : public StoreTest {
protected:
    // An item, a box or a chest, in turn, with the number.
    Ref<Item> add(
        int number, const std::function<void(Item&)>& fill = [](Item&) {}) {
        return db->transact([&](Transaction& tx) {
            const auto set = [&](Item& item) {
                item.number = number;
                fill(item);
            };
            if (number % 3 == 0)
                return tx.make<Item>(set);
            if (number % 3 == 1)
                return Ref<Item>(tx.make<Box>(set));
            return Ref<Item>(tx.make<Chest>(set));
        });
    }

    void addAll(int count) {
        db->transact([&](Transaction& tx) {
            for (int i = 0; i < count; ++i) {
                const auto set = [&](Item& item) { item.number = i; };
                if (i % 3 == 0)
                    tx.make<Item>(set);
                else if (i % 3 == 1)
                    tx.make<Box>(set);
                else
                    tx.make<Chest>(set);
            }
        });
    }

    template <class T>
    Numbers found(const Predicate<T>& condition) {
        return numbersOf(db->query<Item>().where(condition).orderBy(field<&Item::number>));
    }
};

INSTANTIATE_TEST_SUITE_P(Native, QueryTest, ::testing::Values(false));
INSTANTIATE_TEST_SUITE_P(Plain, QueryTest, ::testing::Values(true));

TEST_P(QueryTest, ComparesMembersOfEveryType) {
    const Uuid key("01234567-89ab-cdef-0123-456789abcdef");
    const sys_time<microseconds> then{microseconds(1700000000000001)};
    add(1, [&](Item& item) {
        item.title = "T\xC3\xA4glich";
        item.count = 5;
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
    add(2);

    EXPECT_EQ(Numbers{1}, found(field<&Item::title> == "T\xC3\xA4glich"));
    EXPECT_EQ(Numbers{1}, found(field<&Item::title> == std::string("T\xC3\xA4glich")));
    EXPECT_EQ(Numbers{1}, found(field<&Item::count> == 5));
    EXPECT_EQ(Numbers{1}, found(field<&Item::note> == ""));
    EXPECT_EQ(Numbers{1}, found(field<&Item::mood> < Mood::Even));
    EXPECT_EQ(Numbers{1}, found(field<&Item::done> == true));
    EXPECT_EQ(Numbers{1}, found(field<&Item::weight> == 0.1));
    EXPECT_EQ(Numbers{1}, found(field<&Item::weight> > 0));
    EXPECT_EQ(Numbers{1}, found(field<&Item::price> == Decimal<2>("-12.5")));
    EXPECT_EQ(Numbers{1}, found(field<&Item::price> < Decimal<2>(0)));
    EXPECT_EQ(Numbers{1}, found(field<&Item::day> == 2024y / June / 28));
    EXPECT_EQ(Numbers{1}, found(field<&Item::day> >= sys_days(2024y / June / 28)));
    EXPECT_EQ(Numbers{1}, found(field<&Item::seen> == then));
    EXPECT_EQ(Numbers{2}, found(field<&Item::seen> != then));
    EXPECT_EQ(Numbers{1}, found(field<&Item::key> == key));
    EXPECT_EQ(Numbers{1}, found(field<&Item::key> > Uuid()));
    EXPECT_EQ(Numbers{1}, found(field<&Item::grade> >= Grade{3}));
    EXPECT_EQ(Numbers{1}, found(field<&Item::big> == 9223372036854775807U));
    EXPECT_EQ(Numbers{1}, found(field<&Item::number> < 2L));
    EXPECT_EQ((Numbers{1, 2}), found(field<&Item::number> < 3000000000U));
    EXPECT_EQ((Numbers{1, 2}), found(field<&Item::big> != 18446744073709551615U));
}

TEST_P(QueryTest, TakesAnEmptyOptionalAsCppDoesWhereItAsksForEquality) {
    add(1, [](Item& item) { item.count = 0; });
    add(2, [](Item& item) { item.count = 7; });
    add(3);

    const std::optional<int> none;
    EXPECT_EQ(Numbers{1}, found(field<&Item::count> == 0));
    EXPECT_EQ((Numbers{2, 3}), found(field<&Item::count> != 0));
    EXPECT_EQ((Numbers{2, 3}), found(!(field<&Item::count> == 0)));
    EXPECT_EQ(Numbers{1}, found(field<&Item::count> < 7));
    EXPECT_EQ((Numbers{2, 3}), found(!(field<&Item::count> < 7)));
    EXPECT_EQ(Numbers{2}, found(field<&Item::count> >= 7));
    EXPECT_EQ(Numbers{3}, found(field<&Item::count> == std::nullopt));
    EXPECT_EQ((Numbers{1, 2}), found(field<&Item::count> != std::nullopt));
    EXPECT_EQ(Numbers{3}, found(field<&Item::count>.isNull()));
    EXPECT_EQ((Numbers{1, 2}), found(field<&Item::count>.isSet()));
    EXPECT_EQ(Numbers{3}, found(field<&Item::count> == none));
    EXPECT_EQ(Numbers{}, found(field<&Item::count> < none));
    EXPECT_EQ((Numbers{1, 2, 3}), found(!(field<&Item::count> < none)));
    EXPECT_EQ((Numbers{1, 3}), found(field<&Item::count>.in({none, std::optional(0)})));
    EXPECT_EQ(Numbers{2}, found(!field<&Item::count>.in({none, std::optional(0)})));
    EXPECT_EQ(Numbers{1}, found(field<&Item::count>.between(-1, 1)));
    EXPECT_EQ((Numbers{2, 3}), found(!field<&Item::count>.between(-1, 1)));
}

TEST_P(QueryTest, TakesListsRangesAndPatterns) {
    for (const char* title : {"Kes", "kes", "K%", "Kette"})
        add(static_cast<int>(found(Kes::id > 0).size()), [&](Item& item) { item.title = title; });

    EXPECT_EQ((Numbers{0, 2}), found(field<&Item::title>.in({"Kes", "K%", "other"})));
    EXPECT_EQ((Numbers{1, 3}), found(!field<&Item::title>.in({"Kes", "K%", "other"})));
    EXPECT_EQ(Numbers{}, found(field<&Item::number>.in(std::vector<int>())));
    EXPECT_EQ((Numbers{0, 1, 2, 3}), found(!field<&Item::number>.in(std::vector<int>())));
    EXPECT_EQ((Numbers{1, 2}), found(field<&Item::number>.between(1, 2)));
    EXPECT_EQ((Numbers{0, 3}), found(!field<&Item::number>.between(1, 2)));
    EXPECT_EQ((Numbers{0, 2, 3}), found(field<&Item::title>.like("K%")));
    EXPECT_EQ(Numbers{1}, found(!field<&Item::title>.like("K%")));
    EXPECT_EQ(Numbers{2}, found(field<&Item::title>.like("K\\%")));
    EXPECT_EQ(Numbers{}, found(field<&Item::note>.like("%")));
    EXPECT_EQ((Numbers{0, 1, 2, 3}), found(!field<&Item::note>.like("%")));
    EXPECT_EQ(
        Numbers{0},
        found(Kes::id == db->query<Item>().where(field<&Item::number> == 0).one().getObjectID()));
}

TEST_P(QueryTest, FollowsLinks) {
    const auto make = [&](const char* name, std::optional<int> floor) {
        return db->transact([&](Transaction& tx) {
            return tx.make<Room>([&](Room& room) {
                room.name = name;
                room.floor = floor;
            });
        });
    };
    const Ref<Room> cellar = make("Cellar", std::nullopt);
    const Ref<Room> attic = make("Attic", 3);
    const Ref<Item> lamp = add(1, [&](Item& item) { item.room = cellar; });
    add(2, [&](Item& item) { item.room = attic; });
    add(3);
    db->transact([&](Transaction& tx) {
        tx.edit(lamp).tags.add(tx.make<Tag>([](Tag& tag) { tag.word = "old"; }));
    });

    EXPECT_EQ(Numbers{1}, found(field<&Item::room> == cellar));
    EXPECT_EQ((Numbers{2, 3}), found(field<&Item::room> != cellar));
    EXPECT_EQ(Numbers{3}, found(field<&Item::room> == nullptr));
    EXPECT_EQ(Numbers{3}, found(field<&Item::room> == Ref<Room>()));
    EXPECT_EQ((Numbers{1, 2}), found(field<&Item::room>.isSet()));
    EXPECT_EQ(Numbers{2}, found(field<&Item::room>(field<&Room::floor> == 3)));
    EXPECT_EQ((Numbers{1, 3}), found(!field<&Item::room>(field<&Room::floor> == 3)));
    EXPECT_EQ(Numbers{1}, found(field<&Item::room>(field<&Room::floor>.isNull())));
    EXPECT_EQ(Numbers{1}, found(field<&Item::room>(!field<&Room::name>.like("A%"))));
    EXPECT_EQ(Numbers{1}, found(field<&Item::tags>.any(field<&Tag::word> == "old")));
    EXPECT_EQ((Numbers{2, 3}), found(field<&Item::tags>.none(field<&Tag::word> == "old")));
    EXPECT_EQ((Numbers{2, 3}), found(field<&Item::tags>.none()));
    EXPECT_EQ(Numbers{1}, found(field<&Item::tags>.any()));

    const auto rooms = db->query<Room>();
    EXPECT_TRUE(rooms.where(field<&Room::items>.contains(lamp)).one() == cellar);
    EXPECT_TRUE(rooms.where(field<&Room::items>.any(field<&Chest::locked> == false)).one() ==
                attic);
    EXPECT_EQ(1U, rooms.where(field<&Room::items>.any(field<&Item::tags>.any())).count());
}

TEST_P(QueryTest, SortsAndCutsWhatSeveralClassesDeliver) {
    addAll(30);
    const auto all = db->query<Item>();

    EXPECT_EQ((Numbers{29, 28, 27}),
              numbersOf(all.orderBy(field<&Item::number>.descending()).limit(3)));
    EXPECT_EQ((Numbers{10, 11, 12, 13}),
              numbersOf(all.orderBy(field<&Item::number>).limit(4).offset(10)));
    EXPECT_EQ((Numbers{28, 29}), numbersOf(all.orderBy(field<&Item::number>).offset(28)));
    EXPECT_EQ(Numbers{}, numbersOf(all.limit(3).offset(30)));
    EXPECT_EQ(Numbers{}, numbersOf(all.limit(0)));
    EXPECT_EQ((Numbers{5, 6}), numbersOf(all.limit(2).offset(5)));
    EXPECT_EQ((Numbers{2, 4}), numbersOf(db->query<Box>().where(field<&Box::number> > 1).limit(2)));
}

TEST_P(QueryTest, BreaksTiesByTheId) {
    addAll(12);

    EXPECT_EQ((Numbers{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11}),
              numbersOf(db->query<Item>().orderBy(field<&Item::title>)));
    EXPECT_EQ(
        (Numbers{11, 10, 9}),
        numbersOf(db->query<Item>().orderBy(field<&Item::done>, descending(Kes::id)).limit(3)));
}

TEST_P(QueryTest, SortsEmptyOptionalsBeforeAllValues) {
    add(1, [](Item& item) { item.count = 5; });
    add(2);
    add(3, [](Item& item) { item.count = -5; });
    add(4);

    EXPECT_EQ((Numbers{2, 4, 3, 1}), numbersOf(db->query<Item>().orderBy(field<&Item::count>)));
    EXPECT_EQ((Numbers{1, 3, 2, 4}),
              numbersOf(db->query<Item>().orderBy(field<&Item::count>.descending())));
}

TEST_P(QueryTest, SortsByFlagsOverSeveralClasses) {
    for (int i = 0; i < 6; ++i)
        add(i, [&](Item& item) { item.done = i % 2 == 0; });

    EXPECT_EQ((Numbers{1, 3, 5, 0, 2, 4}),
              numbersOf(db->query<Item>().orderBy(field<&Item::done>)));
}

TEST_P(QueryTest, CountsWithoutLoading) {
    addAll(20);
    const auto all = db->query<Item>();

    EXPECT_EQ(20U, all.count());
    EXPECT_EQ(13U, db->query<Box>().count());
    EXPECT_EQ(5U, all.where(field<&Item::number> < 5).count());
    EXPECT_EQ(5U, all.limit(5).count());
    EXPECT_EQ(2U, all.limit(5).offset(18).count());
    EXPECT_EQ(0U, all.offset(21).count());
    EXPECT_TRUE(all.where(field<&Item::number> == 19).exists());
    EXPECT_FALSE(all.where(field<&Item::number> == 20).exists());
    EXPECT_FALSE(all.limit(0).exists());
    EXPECT_TRUE(all.offset(19).exists());
    EXPECT_FALSE(all.offset(20).exists());
}

TEST_P(QueryTest, DeliversTheFirstAndTheOnlyOne) {
    addAll(4);
    const auto all = db->query<Item>();

    EXPECT_EQ(0, all.first()->number);
    EXPECT_EQ(3, all.orderBy(field<&Item::number>.descending()).first()->number);
    EXPECT_FALSE(all.where(field<&Item::number> == 9).first());
    EXPECT_EQ(2, all.where(field<&Item::number> == 2).one()->number);
    EXPECT_EQ(1, all.where(field<&Item::number> > 0).limit(1).one()->number);

    const Error none = errorOf([&] { all.where(field<&Item::number> == 9).one(); });
    EXPECT_EQ(ErrorKind::NotFound, none.getKind());
    EXPECT_EQ("Item", none.getClassName());
    const Error several = errorOf([&] { all.where(field<&Item::number> > 1).one(); });
    EXPECT_EQ(ErrorKind::Ambiguous, several.getKind());
    EXPECT_SAYS(several, "Several Item objects");
}

TEST_P(QueryTest, IsAValueOfCopies) {
    addAll(6);
    std::string title(1, 'x');
    const auto condition = field<&Item::number> > 1 && field<&Item::title> != title;
    title = "";
    const auto narrow = db->query<Item>().where(condition).where(field<&Item::number> < 5);
    const auto sorted = narrow.orderBy(field<&Item::number>.descending());

    EXPECT_EQ((Numbers{4, 3, 2}), numbersOf(sorted));
    EXPECT_EQ((Numbers{4, 3, 2}), numbersOf(sorted));
    EXPECT_EQ(3U, narrow.count());
    EXPECT_EQ((Numbers{2, 3, 4, 5}), found(condition));
    EXPECT_EQ((Numbers{0, 1}), found(!condition));
}

TEST_P(QueryTest, GoesByWhatIsStored) {
    addAll(6);

    db->transact([&](Transaction& tx) {
        for (const Item& item : db->query<Item>().where(field<&Item::number> < 2))
            tx.edit(item).number = 100 - item.number;
        tx.make<Item>();

        if (!GetParam()) {
            EXPECT_EQ((Numbers{100, 99, 2}),
                      numbersOf(db->query<Item>().orderBy(field<&Item::number>).limit(3)));
        }
        EXPECT_EQ(6U, db->query<Item>().count());
        EXPECT_FALSE(db->query<Item>().where(field<&Item::number> == 100).exists());
        tx.rollback();
    });
}

TEST_P(QueryTest, TakesChainsOfAnyLength) {
    addAll(3);
    auto any = field<&Item::number> == 1;
    auto none = field<&Item::number> != 1;
    for (int i = 0; i < 20000; ++i) {
        any = any || field<&Item::number> == 1000 + i % 7;
        none = none && field<&Item::number> != 1000 + i % 7;
    }

    EXPECT_EQ(Numbers{1}, found(any));
    EXPECT_EQ((Numbers{0, 2}), found(!any));
    EXPECT_EQ((Numbers{0, 2}), found(none));
}

TEST_P(QueryTest, RefusesAnObjectOfAnotherDatabase) {
    const std::unique_ptr<Engine> elsewhere = Engine::make();
    DatabaseOptions options;
    options.user = elsewhere->user();
    options.password = elsewhere->password();
    options.options = elsewhere->options();
    Database other(elsewhere->driver(), elsewhere->source(), storeSchema(), options);
    const Ref<Room> room = other.transact([](Transaction& tx) { return tx.make<Room>(); });

    const Error error = errorOf([&] { found(field<&Item::room> == room); });

    EXPECT_EQ(ErrorKind::Misuse, error.getKind());
    EXPECT_SAYS(error, "belongs to another database");
    EXPECT_EQ("Room", error.getClassName());
    EXPECT_SAYS(errorOf([&] { db->query<Room>().after(room).first(); }), "another database");
    EXPECT_SAYS(errorOf([&] { db->query<Room>().after(Ref<Room>()).first(); }), "Ref is empty");
}

TEST_P(QueryTest, RefusesAnObjectWhoseDatabaseIsClosed) {
    const Ref<Room> room = db->transact([](Transaction& tx) { return tx.make<Room>(); });
    const auto condition = field<&Item::room> == room;
    db.reset();
    db = openStore();

    EXPECT_EQ(ErrorKind::Misuse, errorOf([&] { found(condition); }).getKind());
}

TEST_P(QueryTest, RefusesValuesThatNoFieldHas) {
    const Error date = errorOf([&] { found(field<&Item::day> == 2023y / February / 29); });
    EXPECT_EQ(ErrorKind::InvalidValue, date.getKind());
    EXPECT_EQ("Item", date.getClassName());
    EXPECT_EQ("day", date.getFieldName());
    EXPECT_SAYS(date, "no date of the calendar");
    EXPECT_SAYS(
        errorOf([&] { found(field<&Item::weight> < std::numeric_limits<double>::quiet_NaN()); }),
        "weight");
    EXPECT_SAYS(errorOf([&] { found(field<&Item::title> == "\xFF"); }), "UTF-8");
    EXPECT_SAYS(errorOf([&] { found(field<&Item::title>.like("\xFF")); }), "UTF-8");
}

struct Unlisted : Object<Unlisted> {
    int number = 0;
    static void describe(Description<Unlisted>& d) { d.field("number", &Unlisted::number); }
};

struct Half : Object<Half> {
    int known = 0;
    int unknown = 0;
    static void describe(Description<Half>& d) { d.field("known", &Half::known); }
};

TEST_P(QueryTest, RefusesClassesAndMembersThatTheSchemaLacks) {
    const Error cls = errorOf([&] { db->query<Unlisted>().count(); });
    EXPECT_EQ(ErrorKind::Declaration, cls.getKind());
    EXPECT_EQ("Unlisted", cls.getClassName());

    const std::unique_ptr<Engine> elsewhere = Engine::make();
    DatabaseOptions options;
    options.user = elsewhere->user();
    options.password = elsewhere->password();
    options.options = elsewhere->options();
    Database other(elsewhere->driver(), elsewhere->source(), schema<Half>("half", 1), options);
    const Error member =
        errorOf([&] { other.query<Half>().where(field<&Half::unknown> == 1).count(); });
    EXPECT_EQ(ErrorKind::Declaration, member.getKind());
    EXPECT_SAYS(member, "Half::unknown");
    EXPECT_SAYS(errorOf([&] { other.query<Half>().orderBy(field<&Half::unknown>).first(); }),
                "Half::unknown");
}

TEST_P(QueryTest, LeavesCountsAndLimitsToTheDatabase) {
    addAll(9);
    const unsigned long third =
        db->query<Item>().where(field<&Item::number> == 3).first().getObjectID();
    db = openStore();

    EXPECT_EQ(9U, db->query<Item>().count());
    EXPECT_TRUE(db->query<Item>().exists());
    EXPECT_EQ(1, db->query<Box>().first()->number);
    // A driver that has no means to do so delivers what is counted and cut off.
    if (!GetParam()) {
        EXPECT_EQ(nullptr, db->getModel().get(third));
    }
}

}  // namespace Kes::testing
