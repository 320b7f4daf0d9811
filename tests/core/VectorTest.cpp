// ValVector and PtrVector.

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include <kes/PtrVector.h>
#include <kes/String.h>
#include <kes/ValVector.h>

namespace Kes {
namespace {

std::string textOf(const ValVector<int>& v) {
    std::string text;
    for (int i = 0; i < v.size(); ++i)
        text += std::to_string(v[i]);
    return text;
}

ValVector<int> upTo(int n, int capacity = 10, int increment = 10) {
    ValVector<int> v(capacity, increment);
    for (int i = 0; i < n; ++i)
        v.add(i);
    return v;
}

// Shows when the array is replaced: the address of the first element.
int* arrayOf(const ValVector<int>& v) {
    return &v.at(0);
}

struct Counted {
    explicit Counted(int& counter) : deletions(counter) {}
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;
    ~Counted() { ++deletions; }
    int& deletions;
};

// Can be copied only so often.
struct Fragile {
    Fragile() = default;
    explicit Fragile(int v) : value(v) {}
    Fragile(const Fragile& other) : value(other.value) { count(); }
    Fragile& operator=(const Fragile& other) {
        count();
        value = other.value;
        return *this;
    }
    bool operator==(const Fragile& other) const { return value == other.value; }

    static void count() {
        if (--copiesLeft < 0)
            throw std::runtime_error("one copy too many");
    }

    int value = 0;
    static inline int copiesLeft = 0;
};

struct OpenVector : ValVector<int> {
    using ValVector<int>::copy;
    using ValVector<int>::reverseCopy;
};

TEST(ValVectorTest, StartsWithoutElements) {
    const ValVector<int> v(10, 10);

    EXPECT_EQ(v.size(), 0);
    EXPECT_EQ(v.find(0), -1);
}

TEST(ValVectorTest, KeepsTheOrderOfAdding) {
    EXPECT_EQ(textOf(upTo(5)), "01234");
}

TEST(ValVectorTest, GrowsByItsIncrementOnly) {
    ValVector<int> v = upTo(10);
    int* first = arrayOf(v);

    v.add(10);
    EXPECT_NE(arrayOf(v), first);
    first = arrayOf(v);

    for (int i = 11; i < 20; ++i)
        v.add(i);
    EXPECT_EQ(arrayOf(v), first);
    v.add(20);
    EXPECT_NE(arrayOf(v), first);
    EXPECT_EQ(v.size(), 21);
    EXPECT_EQ(v[20], 20);
}

TEST(ValVectorTest, GrowsFromACapacityOfZero) {
    EXPECT_EQ(textOf(upTo(7, 0, 3)), "0123456");
}

TEST(ValVectorTest, GrowsWithoutAnIncrement) {
    EXPECT_EQ(textOf(upTo(5, 0, 0)), "01234");
    EXPECT_EQ(textOf(upTo(5, 2, 0)), "01234");
}

TEST(ValVectorTest, InsertsAnywhere) {
    ValVector<int> v = upTo(3);

    v.insert(7, 0);
    v.insert(8, 2);
    v.insert(9, 5);

    EXPECT_EQ(textOf(v), "708129");
}

TEST(ValVectorTest, InsertsIntoAFullOrMissingArray) {
    ValVector<int> full = upTo(3, 3, 1);
    full.insert(7, 1);
    EXPECT_EQ(textOf(full), "0712");

    ValVector<int> missing(3, 1);
    missing.insert(7, 0);
    EXPECT_EQ(textOf(missing), "7");
}

TEST(ValVectorTest, AddsItsOwnElementWhileTheArrayIsReplaced) {
    ValVector<String> v(1, 1);
    v.add("a");

    for (int i = 0; i < 5; ++i)
        v.add(v[0]);
    v.insert(v[5], 0);

    EXPECT_EQ(v.size(), 7);
    EXPECT_EQ(v[0], "a");
    EXPECT_EQ(v[6], "a");
}

TEST(ValVectorTest, RemovesByPositionAndByValue) {
    ValVector<int> v = upTo(5);

    v.removeAt(0);
    v.removeAt(3);
    EXPECT_EQ(textOf(v), "123");

    v.remove(2);
    v.remove(7);
    EXPECT_EQ(textOf(v), "13");
}

TEST(ValVectorTest, KeepsTheOldValueInAVacatedSlot) {
    ValVector<int> v = upTo(3);

    v.removeAt(0);

    EXPECT_EQ(*(arrayOf(v) + 2), 2);
}

TEST(ValVectorTest, FindsTheFirstEqualElementFromAStart) {
    ValVector<String> v(10, 10);
    for (const char* s : {"a", "b", "a"})
        v.add(s);

    EXPECT_EQ(v.find("a"), 0);
    EXPECT_EQ(v.find("a", 1), 2);
    EXPECT_EQ(v.find("a", 3), -1);
    EXPECT_EQ(v.find("a", 100), -1);
    EXPECT_EQ(v.find("c"), -1);
    EXPECT_TRUE(v.contains("b"));
    EXPECT_FALSE(v.contains("c"));
}

TEST(ValVectorTest, LetsItsElementsChange) {
    ValVector<bool> v(10, 10);
    v.add(false);
    v.add(false);

    v[1] = true;
    bool& first = v.at(0);
    first = true;

    EXPECT_EQ(v.find(false), -1);
}

TEST(ValVectorTest, ShrinksToItsSizeAtMost) {
    ValVector<int> v = upTo(3);
    int* first = arrayOf(v);

    v.setCapacity(10);
    EXPECT_EQ(arrayOf(v), first);

    v.setCapacity(0);
    EXPECT_EQ(textOf(v), "012");
    first = arrayOf(v);

    v.setCapacity(3);
    EXPECT_EQ(arrayOf(v), first);
    v.add(3);
    EXPECT_EQ(textOf(v), "0123");
}

TEST(ValVectorTest, MakesRoomAhead) {
    ValVector<int> v(1, 1);
    v.setCapacity(100);
    v.add(0);
    const int* first = arrayOf(v);

    for (int i = 1; i < 100; ++i)
        v.add(i);

    EXPECT_EQ(arrayOf(v), first);
}

TEST(ValVectorTest, TakesElementsAgainAfterClearing) {
    ValVector<int> v = upTo(5, 5, 1);

    v.clear();
    EXPECT_EQ(v.size(), 0);
    EXPECT_EQ(v.find(0), -1);
    v.clear();

    v.add(7);
    EXPECT_EQ(textOf(v), "7");
}

TEST(ValVectorTest, CopiesItsElements) {
    const ValVector<int> v = upTo(3);
    ValVector<int> copy(v);
    ValVector<int> assigned = upTo(9);
    assigned = v;

    copy.add(7);
    assigned[0] = 8;

    EXPECT_EQ(textOf(copy), "0127");
    EXPECT_EQ(textOf(assigned), "812");
    EXPECT_EQ(textOf(v), "012");
}

TEST(ValVectorTest, CopiesAVectorWithoutAnArray) {
    const ValVector<int> none(2, 1);
    ValVector<int> copy = upTo(5);

    copy = none;
    EXPECT_EQ(copy.size(), 0);

    copy.add(1);
    copy.add(2);
    copy.add(3);
    EXPECT_EQ(textOf(copy), "123");
}

TEST(ValVectorTest, SurvivesItsOwnAssignment) {
    ValVector<int> v = upTo(3);
    const ValVector<int>& same = v;

    v = same;

    EXPECT_EQ(textOf(v), "012");
}

TEST(ValVectorTest, TakesOverCapacityAndIncrement) {
    ValVector<int> v = upTo(7);
    v = upTo(2, 3, 2);
    const int* first = arrayOf(v);

    v.add(2);
    EXPECT_EQ(arrayOf(v), first);
    v.add(3);
    EXPECT_NE(arrayOf(v), first);
    first = arrayOf(v);
    v.add(4);
    EXPECT_EQ(arrayOf(v), first);
    v.add(5);
    EXPECT_NE(arrayOf(v), first);
    EXPECT_EQ(textOf(v), "012345");
}

TEST(ValVectorTest, AllocatesItsFirstArrayWithTheGivenCapacity) {
    ValVector<int> v(3, 10);
    v.add(0);
    const int* first = arrayOf(v);

    v.add(1);
    v.add(2);
    EXPECT_EQ(arrayOf(v), first);
    v.add(3);
    EXPECT_NE(arrayOf(v), first);
}

TEST(ValVectorTest, KeepsItsElementsWhenOneCannotBeCopied) {
    Fragile::copiesLeft = 1000;
    ValVector<Fragile> v(2, 1);
    v.add(Fragile(1));
    v.add(Fragile(2));
    ValVector<Fragile> other(2, 1);
    other.add(Fragile(7));

    Fragile::copiesLeft = 1;
    EXPECT_THROW(other = v, std::runtime_error);
    Fragile::copiesLeft = 2;
    EXPECT_THROW(v.add(Fragile(3)), std::runtime_error);

    EXPECT_EQ(other.size(), 1);
    EXPECT_EQ(other[0].value, 7);
    EXPECT_EQ(v.size(), 2);
    EXPECT_EQ(v[0].value + v[1].value, 3);
}

TEST(ValVectorTest, LetsDerivedVectorsMoveElements) {
    int items[] = {1, 2, 3, 4, 5};

    OpenVector::copy(items, 0, items, 1, 4);
    EXPECT_EQ(items[0] * 10000 + items[1] * 1000 + items[2] * 100 + items[3] * 10 + items[4],
              23455);
    OpenVector::reverseCopy(items, 1, items, 0, 4);
    EXPECT_EQ(items[0] * 10000 + items[1] * 1000 + items[2] * 100 + items[3] * 10 + items[4],
              22345);
}

TEST(ValVectorTest, EqualsOnlyItself) {
    const ValVector<int> v = upTo(3);
    const ValVector<int> copy(v);

    EXPECT_TRUE(v == v);
    EXPECT_FALSE(v == copy);
    EXPECT_EQ(ValVector<int>::hash(v), reinterpret_cast<long>(&v));
}

TEST(PtrVectorTest, KeepsPointersInOrder) {
    int numbers[30];
    PtrVector<int> v(10, 10);

    for (int& number : numbers)
        v.add(&number);

    EXPECT_EQ(v.size(), 30);
    for (int i = 0; i < 30; ++i)
        EXPECT_EQ(v[i], &numbers[i]);
}

TEST(PtrVectorTest, GrowsFromNothing) {
    int number = 0;
    PtrVector<int> v(0, 0);

    for (int i = 0; i < 5; ++i)
        v.insert(&number, 0);

    EXPECT_EQ(v.size(), 5);
}

TEST(PtrVectorTest, ReturnsWhatItRemovesOrReplaces) {
    int a = 0;
    int b = 0;
    int c = 0;
    PtrVector<int> v(2, 1);
    v.add(&a);
    v.add(&b);
    v.insert(&c, 1);

    EXPECT_EQ(v.removeAt(0), &a);
    EXPECT_EQ(v.remove(&a), nullptr);
    EXPECT_EQ(v.remove(&b), &b);
    EXPECT_EQ(v.setAt(&a, 0), &c);
    EXPECT_EQ(v.size(), 1);
    EXPECT_EQ(v.at(0), &a);
}

TEST(PtrVectorTest, FindsPointersAndNotValues) {
    int a = 1;
    int b = 1;
    PtrVector<int> v(2, 1);
    v.add(&a);
    v.add(&a);

    EXPECT_EQ(v.find(&a), 0);
    EXPECT_EQ(v.find(&a, 1), 1);
    EXPECT_EQ(v.find(&a, 2), -1);
    EXPECT_EQ(v.find(&b), -1);
    EXPECT_TRUE(v.contains(&a));
    EXPECT_FALSE(v.contains(&b));
}

TEST(PtrVectorTest, OwnsItsElementsWhenItDeletesThemOnly) {
    int deletions = 0;
    auto* kept = new Counted(deletions);
    {
        PtrVector<Counted> v(1, 1);
        v.add(kept);
        v.clear();
        EXPECT_EQ(v.size(), 0);
        v.add(kept);
    }
    EXPECT_EQ(deletions, 0);

    PtrVector<Counted> v(1, 1);
    v.add(kept);
    v.add(new Counted(deletions));
    v.add(nullptr);
    v.clearAndDelete();
    EXPECT_EQ(deletions, 2);
    EXPECT_EQ(v.size(), 0);
}

TEST(PtrVectorTest, ChangesItsCapacityDownToTheSize) {
    int number = 0;
    PtrVector<int> v(10, 1);
    v.add(&number);
    v.add(&number);

    v.setCapacity(0);
    v.add(&number);

    EXPECT_EQ(v.size(), 3);
    EXPECT_EQ(v[2], &number);
}

TEST(PtrVectorTest, CopiesPointers) {
    int a = 0;
    int b = 0;
    PtrVector<int> v(1, 1);
    v.add(&a);
    PtrVector<int> copy(v);
    PtrVector<int> assigned(5, 1);
    assigned.add(&b);
    assigned = v;
    const PtrVector<int>& same = v;
    v = same;

    copy.add(&b);

    EXPECT_EQ(v.size(), 1);
    EXPECT_EQ(v[0], &a);
    EXPECT_EQ(copy.size(), 2);
    EXPECT_EQ(assigned[0], &a);
}

TEST(PtrVectorTest, LetsItsElementsChange) {
    int a = 0;
    int b = 0;
    PtrVector<int> v(2, 1);
    v.add(&a);

    v[0] = &b;
    EXPECT_EQ(v.at(0), &b);
    v.at(0) = &a;
    EXPECT_EQ(v[0], &a);
}

TEST(PtrVectorTest, KeepsItsArrayWhenItIsCleared) {
    int number = 0;
    PtrVector<int> v(2, 1);
    v.add(&number);
    int** first = &v[0];

    v.clear();
    v.add(&number);

    EXPECT_EQ(&v[0], first);
}

TEST(PtrVectorTest, GrowsByItsIncrementOnly) {
    int number = 0;
    PtrVector<int> v(2, 3);
    v.add(&number);
    int** first = &v[0];

    v.add(&number);
    EXPECT_EQ(&v[0], first);
    v.add(&number);
    EXPECT_NE(&v[0], first);
    first = &v[0];
    v.add(&number);
    v.add(&number);
    EXPECT_EQ(&v[0], first);
    v.add(&number);
    EXPECT_NE(&v[0], first);
}

TEST(PtrVectorTest, EqualsOnlyItself) {
    const PtrVector<int> v(1, 1);
    const PtrVector<int> other(v);

    EXPECT_TRUE(v == v);
    EXPECT_FALSE(v == other);
    EXPECT_EQ(PtrVector<int>::hash(v), reinterpret_cast<long>(&v));
}

// Assignments of it throw when they are told to.
struct Brittle {
    Brittle() = default;
    explicit Brittle(int v) : value(v) {}
    Brittle(const Brittle&) = default;
    Brittle& operator=(const Brittle& other) {
        if (other.value == 13 || left-- == 0)
            throw std::runtime_error("no assignment");
        value = other.value;
        return *this;
    }
    bool operator==(const Brittle& other) const { return value == other.value; }
    int value = 0;
    static inline int left = 1000;  // assignments that succeed
};

ValVector<Brittle> fourBrittle() {
    ValVector<Brittle> v(8, 4);
    for (int i = 1; i <= 4; ++i)
        v.add(Brittle(i));
    return v;
}

std::string valuesOf(const ValVector<Brittle>& v) {
    std::string text;
    for (int i = 0; i < v.size(); ++i)
        text += std::to_string(v[i].value);
    return text;
}

TEST(ValVectorTest, IsAsItWasAfterAnAssignmentThatThrew) {
    ValVector<Brittle> v(4, 4);
    v.add(Brittle(1));

    EXPECT_THROW(v.add(Brittle(13)), std::runtime_error);
    EXPECT_EQ(1, v.size());
    v.add(Brittle(2));

    EXPECT_EQ(2, v.size());
    EXPECT_EQ(1, v[0].value);
    EXPECT_EQ(2, v[1].value);
}

TEST(ValVectorTest, IsAsItWasAfterAnInsertionThatThrew) {
    for (const int left : {0, 1, 2, 3}) {
        ValVector<Brittle> v = fourBrittle();

        Brittle::left = left;
        EXPECT_THROW(v.insert(Brittle(9), 1), std::runtime_error) << left;
        Brittle::left = 1000;

        EXPECT_EQ("1234", valuesOf(v)) << left;
        v.insert(Brittle(9), 1);
        EXPECT_EQ("19234", valuesOf(v));
    }
}

TEST(ValVectorTest, IsAsItWasAfterARemovalThatThrew) {
    for (const int left : {0, 1, 2}) {
        ValVector<Brittle> v = fourBrittle();

        Brittle::left = left;
        EXPECT_THROW(v.removeAt(0), std::runtime_error) << left;
        Brittle::left = 1000;

        EXPECT_EQ("1234", valuesOf(v)) << left;
        v.removeAt(0);
        EXPECT_EQ("234", valuesOf(v));
    }
}

TEST(ValVectorTest, TakesACapacityBelowNothingForNone) {
    ValVector<int> v(-1, -5);

    v.add(7);
    v.add(8);

    EXPECT_EQ("78", textOf(v));
}

TEST(PtrVectorTest, TakesACapacityBelowNothingForNone) {
    int a = 0;
    int b = 0;
    PtrVector<int> v(-1, -5);

    v.add(&a);
    v.add(&b);

    EXPECT_EQ(2, v.size());
    EXPECT_EQ(&b, v[1]);
}

// Takes itself, and a friend, out of the vector in the end.
struct Leaver {
    Leaver(PtrVector<Leaver>& home, int& counter) : of(home), deletions(counter) { of.add(this); }
    Leaver(const Leaver&) = delete;
    Leaver& operator=(const Leaver&) = delete;
    ~Leaver() {
        ++deletions;
        of.remove(this);
        delete of.remove(follower);
    }
    PtrVector<Leaver>& of;
    int& deletions;
    Leaver* follower = nullptr;
};

TEST(PtrVectorTest, DeletesElementsThatTakeThemselvesAndOthersOut) {
    int deletions = 0;
    PtrVector<Leaver> v(4, 4);
    for (int i = 0; i < 5; ++i)
        static_cast<void>(new Leaver(v, deletions));
    v[4]->follower = v[1];
    v[2]->follower = v[0];

    v.clearAndDelete();

    EXPECT_EQ(5, deletions);
    EXPECT_EQ(0, v.size());
}

}  // namespace
}  // namespace Kes
