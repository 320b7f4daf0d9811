#include <kes/ValPtrHashtable.h>

#include <gtest/gtest.h>

#include <climits>
#include <sstream>
#include <string>

#include <kes/String.h>

namespace Kes {
namespace {

long itself(const long& key) {
    return key;
}

long always7(const long&) {
    return 7;
}

std::string dumpOf(const ValPtrHashtable<long, int>& table) {
    std::ostringstream out;
    table.dump(out);
    return out.str();
}

int bucketsOf(const ValPtrHashtable<long, int>& table) {
    int lines = 0;
    for (const char c : dumpOf(table))
        lines += c == '\n' ? 1 : 0;
    return lines;
}

TEST(ValPtrHashtableTest, GivesNullForAnAbsentKey) {
    const ValPtrHashtable<String, int> table(String::hash, 25, 25);

    EXPECT_EQ(table.get("a"), nullptr);
    EXPECT_FALSE(table.contains("a"));
}

TEST(ValPtrHashtableTest, GivesTheValueOfAKey) {
    int a = 0;
    int b = 0;
    ValPtrHashtable<String, int> table(String::hash, 25, 25);

    EXPECT_EQ(table.set("a", &a), nullptr);
    EXPECT_EQ(table.set("b", &b), nullptr);

    EXPECT_EQ(table.get("a"), &a);
    EXPECT_EQ(table.get("b"), &b);
    EXPECT_TRUE(table.contains("a"));
}

TEST(ValPtrHashtableTest, ReturnsTheValueItReplaces) {
    int a = 0;
    int b = 0;
    ValPtrHashtable<String, int> table(String::hash, 25, 25);
    table.set("a", &a);

    EXPECT_EQ(table.set("a", &b), &a);

    EXPECT_EQ(table.get("a"), &b);
}

TEST(ValPtrHashtableTest, ContainsAKeyWithoutAValue) {
    ValPtrHashtable<String, int> table(String::hash, 25, 25);

    table.set("a", nullptr);

    EXPECT_EQ(table.get("a"), nullptr);
    EXPECT_TRUE(table.contains("a"));
}

TEST(ValPtrHashtableTest, ReturnsTheValueItRemoves) {
    int a = 0;
    int b = 0;
    ValPtrHashtable<long, int> table(always7, 25, 25);
    table.set(1, &a);
    table.set(2, &b);

    EXPECT_EQ(table.remove(1), &a);
    EXPECT_EQ(table.remove(1), nullptr);

    EXPECT_FALSE(table.contains(1));
    EXPECT_EQ(table.get(2), &b);
}

TEST(ValPtrHashtableTest, PutsANegativeHashIntoThePositiveRemainder) {
    int value = 0;
    ValPtrHashtable<long, int> table(itself, 3, 1);
    table.set(-4, &value);
    table.set(LONG_MIN, &value);

    EXPECT_EQ(dumpOf(table), "0 => 0\n1 => 1\n2 => 1\n");
    EXPECT_EQ(LONG_MIN % 3, -2);
    EXPECT_EQ(table.get(-4), &value);
}

TEST(ValPtrHashtableTest, PutsMinus26OfTwentyFiveBucketsIntoTheFirst) {
    int value = 0;
    ValPtrHashtable<long, int> table(itself, 25, 25);

    table.set(-26, &value);

    EXPECT_NE(dumpOf(table).find("\n1 => 1\n"), std::string::npos);
}

TEST(ValPtrHashtableTest, GrowsWithTheEntryAfterSixPerBucket) {
    int value = 0;
    ValPtrHashtable<long, int> table(itself, 25, 25);
    for (long key = 0; key < 150; ++key)
        table.set(key, &value);
    EXPECT_EQ(bucketsOf(table), 25);

    table.set(0, nullptr);
    EXPECT_EQ(bucketsOf(table), 25);

    table.set(150, &value);
    EXPECT_EQ(bucketsOf(table), 50);
    for (long key = 1; key <= 150; ++key)
        EXPECT_EQ(table.get(key), &value) << key;
    EXPECT_EQ(table.get(151), nullptr);
}

TEST(ValPtrHashtableTest, CountsRemovedEntriesOut) {
    int value = 0;
    ValPtrHashtable<long, int> table(itself, 25, 25);
    for (long key = 0; key < 150; ++key)
        table.set(key, &value);

    table.remove(0);
    table.set(150, &value);

    EXPECT_EQ(bucketsOf(table), 25);
}

TEST(ValPtrHashtableTest, StartsCountingAgainAfterClearing) {
    int value = 0;
    ValPtrHashtable<long, int> table(itself, 25, 25);
    for (long key = 0; key < 150; ++key)
        table.set(key, &value);

    table.clear();
    EXPECT_FALSE(table.contains(1));

    for (long key = 0; key < 150; ++key)
        table.set(key, &value);
    EXPECT_EQ(bucketsOf(table), 25);
}

TEST(ValPtrHashtableTest, OwnsItsValuesWhenItDeletesThemOnly) {
    struct Counted {
        explicit Counted(int& counter) : deletions(counter) {}
        ~Counted() { ++deletions; }
        int& deletions;
    };
    int deletions = 0;
    auto* kept = new Counted(deletions);
    {
        ValPtrHashtable<long, Counted> table(itself, 3, 1);
        table.set(1, kept);
    }
    EXPECT_EQ(deletions, 0);

    ValPtrHashtable<long, Counted> table(itself, 3, 1);
    table.set(1, kept);
    table.set(2, new Counted(deletions));
    table.clearAndDelete();
    EXPECT_EQ(deletions, 2);
    EXPECT_FALSE(table.contains(1));
}

TEST(ValPtrHashtableTest, DumpsTheLengthOfEveryChain) {
    int value = 0;
    ValPtrHashtable<long, int> table(itself, 3, 1);
    for (const long key : {0L, 3L, 6L, 2L})
        table.set(key, &value);

    EXPECT_EQ(dumpOf(table), "0 => 3\n1 => 0\n2 => 1\n");
}

TEST(ValPtrHashtableTest, CopiesItsEntries) {
    int a = 0;
    int b = 0;
    ValPtrHashtable<long, int> table(itself, 3, 1);
    table.set(1, &a);
    ValPtrHashtable<long, int> copy(table);
    ValPtrHashtable<long, int> assigned(always7, 25, 25);
    assigned.set(9, &b);
    assigned = table;
    const ValPtrHashtable<long, int>& same = table;
    table = same;

    copy.set(1, &b);

    EXPECT_EQ(table.get(1), &a);
    EXPECT_EQ(copy.get(1), &b);
    EXPECT_EQ(assigned.get(1), &a);
    EXPECT_FALSE(assigned.contains(9));
    EXPECT_EQ(dumpOf(assigned), "0 => 0\n1 => 1\n2 => 0\n");
}

TEST(ValPtrHashtableTest, TakesItsFirstBucketsWhenItGetsAnEntry) {
    int value = 0;
    ValPtrHashtable<long, int> table(itself, 0, 2);
    EXPECT_EQ(table.get(1), nullptr);
    EXPECT_EQ(table.remove(1), nullptr);
    const ValPtrHashtable<long, int> copy(table);
    EXPECT_FALSE(copy.contains(1));

    table.set(1, &value);

    EXPECT_EQ(dumpOf(table), "0 => 0\n1 => 1\n");
}

TEST(ValPtrHashtableTest, KeepsItsEntriesWithoutAnIncrement) {
    int value = 0;
    ValPtrHashtable<long, int> table(itself, 1, 0);
    for (long key = 0; key < 20; ++key)
        table.set(key, &value);

    EXPECT_EQ(dumpOf(table), "0 => 20\n");
    EXPECT_EQ(table.get(19), &value);
}

TEST(ValPtrHashtableTest, LetsDerivedTablesGrowAndLocate) {
    struct OpenTable : ValPtrHashtable<long, int> {
        using ValPtrHashtable<long, int>::ValPtrHashtable;
        using ValPtrHashtable<long, int>::increaseNrOfBuckets;
        using ValPtrHashtable<long, int>::myHash;
    };
    int value = 0;
    OpenTable table(itself, 3, 2);
    table.set(-7, &value);
    EXPECT_EQ(table.myHash(-7), 1);

    table.increaseNrOfBuckets();

    EXPECT_EQ(table.myHash(-7), 2);
    EXPECT_EQ(dumpOf(table), "0 => 0\n1 => 0\n2 => 1\n3 => 0\n4 => 0\n");
}

TEST(ValPtrHashtableTest, EqualsOnlyItself) {
    const ValPtrHashtable<long, int> table(itself, 3, 1);
    const ValPtrHashtable<long, int> copy(table);

    EXPECT_TRUE(table == table);
    EXPECT_FALSE(table == copy);
    EXPECT_EQ((ValPtrHashtable<long, int>::hash(table)), reinterpret_cast<long>(&table));
}

using Leavers = ValPtrHashtable<String, struct Leaver>;

// Takes itself, and what is filed beside it, out of the table in the end.
struct Leaver {
    Leaver(Leavers& home, const String& itsName, int& counter)
        : of(home),
          name(itsName),
          deletions(counter) {
        of.set(name, this);
    }
    Leaver(const Leaver&) = delete;
    Leaver& operator=(const Leaver&) = delete;
    ~Leaver() {
        ++deletions;
        of.remove(name);
        delete of.remove(name + "'s friend");
    }
    Leavers& of;
    String name;
    int& deletions;
};

TEST(HashtableTest, DeletesValuesThatTakeThemselvesAndOthersOut) {
    int deletions = 0;
    Leavers table(String::hash, 1, 1);
    for (const char* name : {"a", "b", "c", "b's friend", "a's friend"})
        static_cast<void>(new Leaver(table, name, deletions));

    table.clearAndDelete();

    EXPECT_EQ(5, deletions);
    EXPECT_FALSE(table.contains("c"));
}

TEST(HashtableTest, TakesSizesBelowNothingForNone) {
    int value = 0;
    ValPtrHashtable<String, int> table(String::hash, -1, -1);

    for (int i = 0; i < 20; ++i)
        table.set(String(i), &value);

    EXPECT_EQ(&value, table.get("19"));
}

}  // namespace
}  // namespace Kes
