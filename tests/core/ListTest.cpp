// PtrList and ValList.

#include <gtest/gtest.h>

#include <initializer_list>
#include <stdexcept>
#include <string>

#include <kes/PtrList.h>
#include <kes/String.h>
#include <kes/ValList.h>

namespace Kes {
namespace {

int numbers[10] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9};

PtrList<int> pointersTo(std::initializer_list<int> chosen) {
    PtrList<int> list;
    for (const int i : chosen)
        list.add(&numbers[i]);
    return list;
}

ValList<int> valuesOf(std::initializer_list<int> chosen) {
    ValList<int> list;
    for (const int i : chosen)
        list.add(i);
    return list;
}

std::string textOf(const PtrList<int>& list) {
    std::string text;
    for (const int* number : list)
        text += std::to_string(*number);
    return text;
}

std::string textOf(const ValList<int>& list) {
    std::string text;
    for (const int number : list)
        text += std::to_string(number);
    return text;
}

struct Base {
    virtual ~Base() = default;
};

struct Derived : Base {
    explicit Derived(int& counter) : deletions(counter) {}
    Derived(const Derived&) = delete;
    Derived& operator=(const Derived&) = delete;
    ~Derived() override { ++deletions; }
    int& deletions;
};

TEST(PtrListTest, StartsEmpty) {
    const PtrList<int> list;

    EXPECT_EQ(list.size(), 0);
    EXPECT_EQ(textOf(list), "");
    EXPECT_EQ(list.find(&numbers[0]), -1);
    EXPECT_TRUE(list.begin() == list.end());
}

TEST(PtrListTest, KeepsTheOrderOfAdding) {
    const PtrList<int> list = pointersTo({1, 2, 3});

    EXPECT_EQ(textOf(list), "123");
    EXPECT_EQ(list.size(), 3);
    EXPECT_EQ(list.at(0), &numbers[1]);
    EXPECT_EQ(list[2], &numbers[3]);
}

TEST(PtrListTest, InsertsAnywhere) {
    PtrList<int> list;

    list.insert(&numbers[1], 0);
    list.insert(&numbers[2], 1);
    list.insert(&numbers[0], 0);
    list.insert(&numbers[7], 2);
    list.add(&numbers[9]);

    EXPECT_EQ(textOf(list), "01729");
    EXPECT_EQ(list.size(), 5);
}

TEST(PtrListTest, AppendsAnotherListAndLeavesIt) {
    PtrList<int> list = pointersTo({1});
    const PtrList<int> other = pointersTo({2, 3});

    list += other;
    list += PtrList<int>();

    EXPECT_EQ(textOf(list), "123");
    EXPECT_EQ(textOf(other), "23");
}

TEST(PtrListTest, AppendsItselfOnce) {
    PtrList<int> list = pointersTo({1, 2});
    const PtrList<int>& same = list;

    list += same;

    EXPECT_EQ(textOf(list), "1212");
}

TEST(PtrListTest, MergesTheNodesOfAnother) {
    PtrList<int> list = pointersTo({1});
    PtrList<int> other = pointersTo({2, 3});

    list.merge(&other);
    list.add(&numbers[4]);

    EXPECT_EQ(textOf(list), "1234");
    EXPECT_EQ(list.size(), 4);
    EXPECT_EQ(other.size(), 0);
    other.add(&numbers[5]);
    EXPECT_EQ(textOf(other), "5");
    EXPECT_EQ(textOf(list), "1234");
}

TEST(PtrListTest, TakesOverTheNodesWhenItIsEmpty) {
    PtrList<int> list;
    PtrList<int> other = pointersTo({2, 3});

    list.merge(&other);
    list.add(&numbers[4]);

    EXPECT_EQ(textOf(list), "234");
    EXPECT_EQ(textOf(other), "");
    EXPECT_EQ(other.size(), 0);
}

TEST(PtrListTest, StaysAsItIsWhenAnEmptyListIsMerged) {
    PtrList<int> list = pointersTo({1});
    PtrList<int> other;

    list.merge(&other);
    list.merge(&list);

    EXPECT_EQ(textOf(list), "1");
    EXPECT_EQ(list.size(), 1);
}

TEST(PtrListTest, FindsPointersFromAStart) {
    const PtrList<int> list = pointersTo({1, 2, 1});
    int equal = 1;

    EXPECT_EQ(list.find(&numbers[1]), 0);
    EXPECT_EQ(list.find(&numbers[1], 1), 2);
    EXPECT_EQ(list.find(&numbers[1], 3), -1);
    EXPECT_EQ(list.find(&numbers[1], 100), -1);
    EXPECT_EQ(list.find(&equal), -1);
    EXPECT_TRUE(list.contains(&numbers[2]));
    EXPECT_FALSE(list.contains(&equal));
}

TEST(PtrListTest, ReturnsWhatItRemoves) {
    PtrList<int> list = pointersTo({0, 1, 2, 3});

    EXPECT_EQ(list.removeAt(1), &numbers[1]);
    EXPECT_EQ(list.removeAt(0), &numbers[0]);
    EXPECT_EQ(list.remove(&numbers[3]), &numbers[3]);
    EXPECT_EQ(list.remove(&numbers[3]), nullptr);

    EXPECT_EQ(textOf(list), "2");
    EXPECT_EQ(list.size(), 1);
}

TEST(PtrListTest, AddsBehindThePredecessorOfARemovedTail) {
    PtrList<int> list = pointersTo({1, 2, 3});

    list.removeAt(2);
    list.add(&numbers[4]);

    EXPECT_EQ(textOf(list), "124");
}

TEST(PtrListTest, TakesElementsAgainAfterTheLastIsRemoved) {
    PtrList<int> list = pointersTo({1});

    list.removeAt(0);
    list.add(&numbers[2]);

    EXPECT_EQ(textOf(list), "2");
}

TEST(PtrListTest, OwnsItsElementsWhenItDeletesThemOnly) {
    int deletions = 0;
    auto* kept = new Derived(deletions);
    PtrList<Base> list;
    list.add(kept);
    list.clear();
    EXPECT_EQ(list.size(), 0);
    EXPECT_EQ(deletions, 0);

    list.add(kept);
    list.add(nullptr);
    list.add(new Derived(deletions));
    list.clearAndDelete();
    EXPECT_EQ(deletions, 2);
    EXPECT_EQ(list.size(), 0);
    EXPECT_TRUE(list.begin() == list.end());
}

TEST(PtrListTest, CopiesPointers) {
    PtrList<int> list = pointersTo({1, 2});
    PtrList<int> copy(list);
    PtrList<int> assigned = pointersTo({7, 8, 9});
    assigned = list;
    const PtrList<int>& same = list;
    list = same;

    copy.add(&numbers[3]);
    assigned.removeAt(0);

    EXPECT_EQ(textOf(list), "12");
    EXPECT_EQ(textOf(copy), "123");
    EXPECT_EQ(textOf(assigned), "2");
}

TEST(PtrListTest, LetsDerivedListsWalkToANode) {
    struct OpenList : PtrList<int> {
        using PtrList<int>::pos;
    };
    OpenList list;
    list += pointersTo({1, 2, 3});

    EXPECT_EQ(list.pos(0)->value, &numbers[1]);
    EXPECT_EQ(list.pos(2)->value, &numbers[3]);
    EXPECT_EQ(list.pos(2)->next, nullptr);
}

TEST(PtrListTest, EqualsOnlyItself) {
    const PtrList<int> list = pointersTo({1});
    const PtrList<int> copy(list);

    EXPECT_TRUE(list == list);
    EXPECT_FALSE(list == copy);
    EXPECT_EQ(PtrList<int>::hash(list), reinterpret_cast<long>(&list));
}

TEST(PtrListTest, HoldsAMillionNodes) {
    PtrList<int> list;
    for (int i = 0; i < 1000000; ++i)
        list.add(&numbers[0]);

    EXPECT_EQ(list.size(), 1000000);
}

TEST(ValListTest, HoldsCopies) {
    int number = 1;
    ValList<int> list;
    list.add(number);

    number = 2;

    EXPECT_EQ(list[0], 1);
}

TEST(ValListTest, InsertsAnywhere) {
    ValList<int> list;

    list.insert(1, 0);
    list.insert(2, 1);
    list.insert(0, 0);
    list.insert(7, 2);
    list.add(9);

    EXPECT_EQ(textOf(list), "01729");
    EXPECT_EQ(list.at(2), 7);
}

TEST(ValListTest, FindsByValueFromAStart) {
    ValList<String> list;
    for (const char* s : {"a", "b", "a"})
        list.add(s);

    EXPECT_EQ(list.find("a"), 0);
    EXPECT_EQ(list.find("a", 1), 2);
    EXPECT_EQ(list.find("a", 3), -1);
    EXPECT_EQ(list.find("c"), -1);
    EXPECT_TRUE(list.contains("b"));
}

TEST(ValListTest, RemovesByPositionAndByValue) {
    ValList<int> list = valuesOf({0, 1, 2, 3});

    list.removeAt(3);
    list.remove(0);
    list.remove(7);
    list.add(9);

    EXPECT_EQ(textOf(list), "129");
    EXPECT_EQ(list.size(), 3);
}

TEST(ValListTest, AppendsAndMerges) {
    ValList<int> list;
    ValList<int> other = valuesOf({2, 3});

    list += other;
    EXPECT_EQ(textOf(other), "23");
    list.merge(&other);
    list.add(4);

    EXPECT_EQ(textOf(list), "23234");
    EXPECT_EQ(list.size(), 5);
    EXPECT_EQ(other.size(), 0);
}

TEST(ValListTest, FreesWhatItCopiedWhenAnElementCannotBeCopied) {
    struct Fragile {
        explicit Fragile(int& left) : copies(&left) {}
        Fragile(const Fragile& other) : copies(other.copies) {
            if (--*copies < 0)
                throw std::runtime_error("one copy too many");
        }
        bool operator==(const Fragile&) const { return false; }
        int* copies;
        std::string text = "long enough to lie on the heap";
    };
    int left = 3;
    ValList<Fragile> list;
    list.add(Fragile(left));
    list.add(Fragile(left));

    EXPECT_THROW(ValList<Fragile>{list}, std::runtime_error);

    EXPECT_EQ(list.size(), 2);
}

TEST(ValListTest, CopiesItsElements) {
    ValList<int> list = valuesOf({1, 2});
    ValList<int> copy(list);
    ValList<int> assigned = valuesOf({9});
    assigned = list;
    const ValList<int>& same = list;
    list = same;

    copy.clear();

    EXPECT_EQ(copy.size(), 0);
    EXPECT_EQ(textOf(list), "12");
    EXPECT_EQ(textOf(assigned), "12");
}

TEST(ValListTest, EqualsOnlyItself) {
    const ValList<int> list = valuesOf({1});
    const ValList<int> copy(list);

    EXPECT_TRUE(list == list);
    EXPECT_FALSE(list == copy);
    EXPECT_EQ(ValList<int>::hash(list), reinterpret_cast<long>(&list));
}

// Takes itself, and a friend, out of the list in the end.
struct Leaver {
    Leaver(PtrList<Leaver>& home, int& counter) : of(home), deletions(counter) { of.add(this); }
    Leaver(const Leaver&) = delete;
    Leaver& operator=(const Leaver&) = delete;
    ~Leaver() {
        ++deletions;
        of.remove(this);
        delete of.remove(follower);
    }
    PtrList<Leaver>& of;
    int& deletions;
    Leaver* follower = nullptr;
};

TEST(PtrListTest, DeletesElementsThatTakeThemselvesAndOthersOut) {
    int deletions = 0;
    PtrList<Leaver> list;
    for (int i = 0; i < 5; ++i)
        static_cast<void>(new Leaver(list, deletions));
    list[0]->follower = list[1];
    list[2]->follower = list[4];

    list.clearAndDelete();

    EXPECT_EQ(5, deletions);
    EXPECT_EQ(0, list.size());
}

}  // namespace
}  // namespace Kes
