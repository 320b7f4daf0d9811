// The described classes that the tests of queries use: a small hierarchy with
// every kind of member that a condition may name.

#pragma once

#include <memory>
#include <string>
#include <vector>

#include "tests/typed/Tracker.h"

namespace Kes::testing {

enum class Mood : std::int8_t { Bad = -1, Even = 0, Good = 1 };

/// Stored as a number that is ordered as the grades are.
struct Grade {
    int value = 0;
    friend bool operator==(const Grade&, const Grade&) = default;
};

}  // namespace Kes::testing

template <>
struct Kes::FieldTraits<Kes::testing::Grade> {
    using Stored = int;
    static constexpr bool isOrdered = true;
    static int store(const Kes::testing::Grade& grade) { return grade.value; }
    static Kes::testing::Grade load(int stored) { return {stored}; }
};

namespace Kes::testing {

struct Item;
struct Tag;

struct Room : Object<Room> {
    std::string name;
    std::optional<int> floor;
    Many<Item> items;
    static void describe(Description<Room>& d);
};

struct Item : Object<Item> {
    std::string title;
    int number = 0;
    std::optional<int> count;
    std::optional<std::string> note;
    Mood mood = Mood::Even;
    bool done = false;
    double weight = 0;
    Decimal<2> price;
    std::optional<std::chrono::year_month_day> day;
    std::chrono::sys_time<std::chrono::microseconds> seen;
    Uuid key;
    Grade grade;
    std::uint64_t big = 0;
    One<Room> room;
    Many<Tag> tags;
    static void describe(Description<Item>& d);
};

struct Box : Object<Box, Item> {
    std::optional<Decimal<2>> value;
    static void describe(Description<Box>& d) { d.field("value", &Box::value); }
};

struct Chest : Object<Chest, Box> {
    bool locked = false;
    static void describe(Description<Chest>& d) { d.field("locked", &Chest::locked); }
};

struct Tag : Object<Tag> {
    std::string word;
    Many<Item> items;
    static void describe(Description<Tag>& d) { d.field("word", &Tag::word); }
};

inline void Room::describe(Description<Room>& d) {
    d.field("name", &Room::name);
    d.field("floor", &Room::floor);
    d.many("items", &Room::items, &Item::room);
}

inline void Item::describe(Description<Item>& d) {
    d.field("title", &Item::title);
    d.field("number", &Item::number).indexed();
    d.field("count", &Item::count).indexed();
    d.field("note", &Item::note);
    d.field("mood", &Item::mood);
    d.field("done", &Item::done);
    d.field("weight", &Item::weight);
    d.field("price", &Item::price);
    d.field("day", &Item::day);
    d.field("seen", &Item::seen);
    d.field("key", &Item::key);
    d.field("grade", &Item::grade);
    d.field("big", &Item::big);
    d.many("tags", &Item::tags, &Tag::items);
}

inline Schema storeSchema() {
    return schema<Room, Item, Box, Chest, Tag>("store", 1);
}

/// Runs on the driver under test as it is, and behind one that has no optional
/// interface.
class StoreTest : public TypedTest, public ::testing::WithParamInterface<bool> {
protected:
    std::unique_ptr<Database> openStore(DatabaseOptions options = {}) {
        if (!GetParam())
            return open(storeSchema(), options);
        options.user = engine->user();
        options.password = engine->password();
        options.options = "faulty.driver=" + engine->driver() +
                          (engine->options().empty() ? "" : ";" + engine->options());
        return std::make_unique<Database>("faulty", engine->source(), storeSchema(), options);
    }

    std::unique_ptr<Database> db = openStore();
};

/// The objects' numbers, in the order of the result.
template <class T>
std::vector<int> numbersOf(const Query<T>& query) {
    std::vector<int> numbers;
    for (const T& item : query)
        numbers.push_back(item.number);
    return numbers;
}

}  // namespace Kes::testing
