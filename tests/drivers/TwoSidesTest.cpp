#include <gtest/gtest.h>

#include "tests/drivers/DriverTest.h"
#include "tests/support/Raises.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

// Firms F0 and F1 with the people P0 and P1. A model that has all of them in
// memory, both collections read, and another one that changes the links.
class TwoSidesTest : public DriverTest {
protected:
    TwoSidesTest() {
        open(others);
        others.startTransaction();
        for (const char* number : {"0", "1"})
            others.newPerson(String("P") + number)->employer =
                others.newCompany(String("F") + number);
        others.commit();
        open(model);
        first = model.findCompany("F0");
        second = model.findCompany("F1");
        one = model.findPerson("P0");
        other = model.findPerson("P1");
        EXPECT_TRUE(first->staff.contains(one));
        EXPECT_TRUE(second->staff.contains(other));
    }

    void letOthersMove(const char* person, const char* firm) {
        others.startTransaction();
        const Pointer<Person> moved(others.findPerson(person));
        moved->employer = others.findCompany(firm);
        others.commit();
    }

    // P0's friend is P1 from now on, or not any more.
    void letOthersLink(bool on) {
        others.startTransaction();
        const Pointer<Person> linked(others.findPerson("P0"));
        linked->get(linked->friends, true);
        const Pointer<Person> to(others.findPerson("P1"));
        if (on)
            linked->friends.add(to);
        else
            linked->friends.remove(to);
        others.commit();
    }

    void letOthersMarry(const char* person, const char* spouse) {
        others.startTransaction();
        const Pointer<Person> married(others.findPerson(person));
        married->spouse = others.findPerson(spouse);
        others.commit();
    }

    StaffModel others;
    StaffModel model;
    Pointer<Company> first;
    Pointer<Company> second;
    Pointer<Person> one;
    Pointer<Person> other;
};

TEST_F(TwoSidesTest, AgreeOnAMemberThatOthersHaveAdded) {
    others.startTransaction();
    others.newPerson("New")->employer = others.findCompany("F0");
    others.commit();

    const Pointer<Person> added(model.findPerson("New"));

    EXPECT_EQ(first, added->employer.get());
    EXPECT_TRUE(first->staff.contains(added));
    EXPECT_EQ(2U, first->staff.size());
}

TEST_F(TwoSidesTest, AgreeOnAMemberThatOthersHaveMoved) {
    letOthersMove("P0", "F1");

    EXPECT_EQ(one, model.findPerson("P0"));

    EXPECT_EQ(second, one->employer.get());
    EXPECT_FALSE(first->staff.contains(one));
    EXPECT_TRUE(second->staff.contains(one));
}

TEST_F(TwoSidesTest, AgreeOnAMemberThatWasRefreshed) {
    letOthersMove("P0", "F1");

    one->refresh();

    EXPECT_FALSE(first->staff.contains(one));
    EXPECT_TRUE(second->staff.contains(one));
}

TEST_F(TwoSidesTest, AgreeOnAMemberThatAnotherReferenceHasBroughtUpToDate) {
    others.startTransaction();
    others.newPerson("Boss")->children.add(others.findPerson("P0"));
    others.commit();
    const Pointer<Person> boss(model.findPerson("Boss"));
    letOthersMove("P0", "F1");

    EXPECT_EQ(1U, boss->children.size());

    EXPECT_FALSE(first->staff.contains(one));
    EXPECT_TRUE(second->staff.contains(one));
}

TEST_F(TwoSidesTest, AgreeOnACollectionThatWasRefreshed) {
    letOthersMove("P0", "F1");

    second->refresh();

    EXPECT_TRUE(second->staff.contains(one));
    EXPECT_EQ(second, one->employer.get());
    EXPECT_FALSE(first->staff.contains(one));
}

TEST_F(TwoSidesTest, AgreeOnACollectionOfAnObjectThatWasMadeHere) {
    model.startTransaction();
    const Pointer<Company> made(model.newCompany("Made"));
    model.commit();
    EXPECT_TRUE(made->staff.empty());
    letOthersMove("P0", "Made");

    one->refresh();

    EXPECT_TRUE(made->staff.contains(one));
}

// What is read ahead is not in memory for the application.
TEST_F(TwoSidesTest, AgreeOnWhatWasReadAheadOnceItIsHandedOut) {
    others.startTransaction();
    for (int i = 0; i < 4; ++i) {
        Person* child = others.newPerson(String("C") + String(i));
        others.newPerson(String("Q") + String(i), i + 50)->children.add(child);
        child->employer = others.findCompany("F0");
    }
    others.commit();
    SelectionOf<Person> parents(model.personClass);
    parents.where(parents["age"] >= 50);
    std::vector<Pointer<Person>> all;
    for (Person* parent : parents)
        all.emplace_back(parent);
    ASSERT_EQ(4U, all.size());

    EXPECT_EQ(1U, all[0]->children.size());
    EXPECT_EQ(1U, all[1]->children.size());

    EXPECT_EQ(3U, first->staff.size());
    EXPECT_EQ(1U, all[2]->children.size());
    EXPECT_EQ(4U, first->staff.size());
}

TEST_F(TwoSidesTest, AgreeOnAPairThatOthersHaveMade) {
    EXPECT_EQ(nullptr, one->marriedTo.get());
    letOthersMarry("P1", "P0");

    other->refresh();

    EXPECT_EQ(one, other->spouse.get());
    EXPECT_EQ(other, one->marriedTo.get());
}

TEST_F(TwoSidesTest, AgreeOnAPairThatOthersHaveParted) {
    letOthersMarry("P1", "P0");
    one->refresh();
    other->refresh();
    EXPECT_EQ(other, one->marriedTo.get());
    EXPECT_EQ(one, other->spouse.get());
    others.startTransaction();
    others.newPerson("New");
    others.commit();
    letOthersMarry("P1", "New");

    other->refresh();

    EXPECT_EQ(nullptr, one->marriedTo.get());
    const Pointer<Person> fresh(model.findPerson("New"));
    EXPECT_EQ(fresh, other->spouse.get());
    EXPECT_EQ(other, fresh->marriedTo.get());
}

TEST_F(TwoSidesTest, AgreeOnLinksOfManyToManyThatWereLoaded) {
    EXPECT_TRUE(one->friends.empty());
    EXPECT_TRUE(other->friendOf.empty());
    others.startTransaction();
    const Pointer<Person> linked(others.findPerson("P0"));
    linked->friends.add(others.findPerson("P1"));
    others.commit();

    one->refresh();

    EXPECT_TRUE(one->friends.contains(other));
    EXPECT_TRUE(other->friendOf.contains(one));
}

TEST_F(TwoSidesTest, AgreeOnLinksOfManyToManyThatOthersHaveDissolved) {
    others.startTransaction();
    const Pointer<Person> linked(others.findPerson("P0"));
    linked->friends.add(others.findPerson("P1"));
    others.commit();
    for (const bool isForced : {false, true}) {
        one->refresh();
        other->refresh();
        EXPECT_TRUE(one->friends.contains(other));
        EXPECT_TRUE(other->friendOf.contains(one));
        others.startTransaction();
        linked->friends.remove(others.findPerson("P1"));
        others.commit();

        if (isForced)
            one->get(one->friends, true);
        else
            one->refresh();

        EXPECT_FALSE(one->friends.contains(other));
        EXPECT_FALSE(other->friendOf.contains(one));
        others.startTransaction();
        linked->friends.add(others.findPerson("P1"));
        others.commit();
    }
}

// The query finds a newer version, and the collections become unfetched.
TEST_F(TwoSidesTest, AgreeOnADissolvedLinkOfAnObjectThatAQueryHasMet) {
    others.startTransaction();
    const Pointer<Person> linked(others.findPerson("P0"));
    linked->friends.add(others.findPerson("P1"));
    others.commit();
    one->refresh();
    EXPECT_TRUE(one->friends.contains(other));
    EXPECT_TRUE(other->friendOf.contains(one));
    others.startTransaction();
    linked->friends.remove(others.findPerson("P1"));
    linked->change();
    linked->salary = 7;
    others.commit();

    EXPECT_EQ(one, model.findPerson("P0"));

    EXPECT_FALSE(one->friends.contains(other));
    EXPECT_FALSE(other->friendOf.contains(one));
}

// Whether collections of its role were loaded before or not.
TEST_F(TwoSidesTest, AgreeOnADissolvedLinkWhoseOtherSideIsReadForTheFirstTime) {
    for (const bool isKnown : {false, true}) {
        letOthersLink(true);
        StaffModel fresh;
        open(fresh);
        const Pointer<Person> shower(fresh.findPerson("P0"));
        const Pointer<Person> shown(fresh.findPerson("P1"));
        EXPECT_TRUE(!isKnown || shower->friendOf.empty());
        EXPECT_TRUE(shower->friends.contains(shown));
        letOthersLink(false);

        EXPECT_FALSE(shown->friendOf.contains(shower));

        EXPECT_FALSE(shower->friends.contains(shown));
    }
}

TEST_F(TwoSidesTest, AgreeOnADissolvedLinkThatWasMadeHere) {
    const Pointer<Person> firstMade(model.newPerson("M0"));
    const Pointer<Person> otherMade(model.newPerson("M1"));
    model.commit();
    for (const bool isForward : {false, true}) {
        StaffModel fresh;
        open(fresh);
        const Pointer<Person> from(fresh.findPerson("P0"));
        const Pointer<Person> to(fresh.findPerson("P1"));
        const Pointer<Person> made(fresh.findPerson("M0"));
        EXPECT_TRUE(made->friends.empty() && made->friendOf.empty());
        EXPECT_TRUE(isForward ? from->friends.empty() : to->friendOf.empty());
        fresh.startTransaction();
        from->friends.add(to);
        fresh.commit();
        letOthersLink(false);

        EXPECT_FALSE(isForward ? to->friendOf.contains(from) : from->friends.contains(to));

        EXPECT_FALSE(isForward ? from->friends.contains(to) : to->friendOf.contains(from));
    }
}

// Another process does it, and links of many to many raise no version that would tell.
TEST_F(TwoSidesTest, AgreeOnALinkThatOthersChangeWhileTheOtherSideIsReadAhead) {
    others.startTransaction();
    for (const char* name : {"A0", "A1", "A2", "A3"}) {
        Person* each = others.newPerson(name, 50);
        others.findPerson("P1")->friends.add(each);
    }
    others.commit();
    for (const bool isMade : {true, false}) {
        StaffModel fresh;
        open(fresh);
        const Pointer<Person> shower(fresh.findPerson("P0"));
        SelectionOf<Person> aged(fresh.personClass);
        aged.where(aged["age"] == 50);
        aged.orderBy(aged["name"]);
        std::vector<Pointer<Person>> all;
        for (Person* each : aged)
            all.emplace_back(each);
        ASSERT_EQ(4U, all.size());
        EXPECT_FALSE(all[0]->friendOf.empty() || all[1]->friendOf.empty());
        const std::string last = std::to_string(all[3]->getObjectID());
        const std::string to = std::to_string(shower->getObjectID());
        run(isMade
                ? "INSERT INTO [Friendship] ([friends], [friendOf]) VALUES (" + last + ", " + to +
                      ")"
                : "DELETE FROM [Friendship] WHERE [friends] = " + last + " AND [friendOf] = " + to);

        EXPECT_EQ(isMade, shower->friends.contains(all[3]));

        EXPECT_EQ(isMade, all[3]->friendOf.contains(shower));
        EXPECT_EQ(isMade, shower->friends.contains(all[3]));
    }
}

// A loop over the members that are going to be looked at stays as it is.
TEST_F(TwoSidesTest, AgreeWhileTheMembersAreGoneThrough) {
    letOthersLink(true);
    StaffModel fresh;
    open(fresh);
    const Pointer<Person> shower(fresh.findPerson("P0"));
    ManyAssociatedInstances& members = shower->friends;
    EXPECT_EQ(1U, shower->friends.size());
    members.reset();
    ASSERT_TRUE(members.next());
    const Pointer<Person> shown(static_cast<Person*>(members.value()));

    EXPECT_TRUE(shown->friendOf.contains(shower));

    EXPECT_EQ(shown.getInstance(), members.value());
    EXPECT_FALSE(members.next());
}

TEST_F(TwoSidesTest, LoseAMemberWhoIsFoundRemoved) {
    others.startTransaction();
    const Pointer<Person> gone(others.findPerson("P0"));
    others.findPerson("P1")->friends.add(gone);
    others.commit();
    other->refresh();
    one->refresh();
    EXPECT_TRUE(other->friends.contains(one));
    EXPECT_TRUE(one->friendOf.contains(other));
    EXPECT_TRUE(first->staff.contains(one));
    others.startTransaction();
    gone->remove();
    others.commit();

    one->refresh();

    EXPECT_TRUE(one->isRemoved());
    EXPECT_TRUE(first->staff.empty());
    EXPECT_TRUE(other->friends.empty());
}

TEST_F(TwoSidesTest, LoseAPartnerWhoIsFoundRemoved) {
    letOthersMarry("P1", "P0");
    one->refresh();
    other->refresh();
    EXPECT_EQ(one, other->spouse.get());
    EXPECT_EQ(other, one->marriedTo.get());
    EXPECT_EQ(first, one->employer.get());
    EXPECT_TRUE(first->staff.contains(one));
    others.startTransaction();
    others.findPerson("P0")->remove();
    others.findCompany("F0")->remove();
    others.commit();

    one->refresh();
    first->refresh();

    EXPECT_EQ(nullptr, other->spouse.get());
    EXPECT_TRUE(first->staff.empty());
}

TEST_F(TwoSidesTest, AreUnfetchedByARefreshThoughTheVersionIsTheSame) {
    const unsigned long before = second->getVersion();
    letOthersMove("P0", "F1");

    second->refresh();

    EXPECT_EQ(before, second->getVersion());
    EXPECT_EQ(2U, second->staff.size());
}

TEST_F(TwoSidesTest, LoseAPartnerThatOthersHaveRemoved) {
    others.startTransaction();
    others.findCompany("F0")->remove();
    others.commit();
    EXPECT_EQ(first, one->employer.get());

    one->refresh();

    EXPECT_EQ(nullptr, one->employer.get());
}

TEST_F(TwoSidesTest, KeepWhatIsPending) {
    model.startTransaction();
    one->employer = second;
    letOthersMove("P1", "F0");

    other->refresh();
    first->refresh();
    second->refresh();

    EXPECT_EQ(second, one->employer.get());
    EXPECT_TRUE(second->staff.contains(one));
    EXPECT_FALSE(first->staff.contains(one));
    EXPECT_TRUE(first->staff.contains(other));

    model.rollback();
    EXPECT_EQ(first, one->employer.get());
    EXPECT_TRUE(first->staff.contains(one));
    EXPECT_FALSE(second->staff.contains(one));
}

TEST_F(TwoSidesTest, KeepAPairThatIsPending) {
    letOthersMarry("P1", "P0");
    one->refresh();
    other->refresh();
    EXPECT_EQ(one, other->spouse.get());
    model.startTransaction();
    const Pointer<Person> fresh(model.newPerson("Fresh"));
    fresh->spouse = one;
    others.startTransaction();
    const Pointer<Person> renamed(others.findPerson("P1"));
    renamed->change();
    renamed->salary = 7;
    others.commit();

    other->refresh();

    EXPECT_EQ(7, other->salary);
    EXPECT_EQ(fresh, one->marriedTo.get());
    EXPECT_EQ(one, fresh->spouse.get());
    model.rollback();
    EXPECT_EQ(other, one->marriedTo.get());
}

TEST_F(TwoSidesTest, AgreeAfterARollbackOnWhatOthersDidToAnEmptyReferenceThatWasEmptied) {
    others.startTransaction();
    others.newPerson("Free");
    others.commit();
    const Pointer<Person> freed(model.findPerson("Free"));
    model.startTransaction();
    freed->employer = nullptr;
    letOthersMove("Free", "F0");
    first->refresh();
    EXPECT_TRUE(first->staff.contains(freed));

    model.rollback();

    EXPECT_EQ(first, freed->employer.get());
    EXPECT_TRUE(first->staff.contains(freed));
}

// Whose partner was taken is not pending, and may be read again.
TEST_F(TwoSidesTest, KeepAfterARollbackWhatWasReadAgainWithinTheTransaction) {
    letOthersMarry("P1", "P0");
    one->refresh();
    other->refresh();
    EXPECT_EQ(one, other->spouse.get());
    EXPECT_EQ(other, one->marriedTo.get());
    model.startTransaction();
    other->spouse = model.newPerson("Fresh");
    others.startTransaction();
    others.newPerson("New");
    others.commit();
    letOthersMarry("New", "P0");

    one->refresh();
    model.rollback();

    EXPECT_EQ(model.findPerson("New"), one->marriedTo.get());
}

}  // namespace Kes::testing
