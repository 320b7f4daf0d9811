#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <thread>

#include "tests/drivers/TemporaryFolder.h"
#include "tests/support/Raises.h"
#include "tests/support/Recording.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

// 100 firms with three people each, none of them in memory.
class SiblingLoaderTest : public ::testing::Test {
protected:
    SiblingLoaderTest() {
        recording.reset();
        model.openWith("recording");
        model.startTransaction();
        for (int f = 0; f < 100; ++f) {
            Company* firm = model.newCompany(String("F") + String(f));
            for (int p = 0; p < 3; ++p)
                model.newPerson(String("P") + String(f), p)->employer = firm;
        }
        model.commit();
        model.garbageCollect();
        recording.reset();
    }
    ~SiblingLoaderTest() override { recording.reset(); }

    std::size_t queries() const { return recording.only("fetch").size(); }

    Recording& recording = Recording::get();
    StaffModel model;
};

TEST_F(SiblingLoaderTest, LoadsPartnersTogether) {
    SelectionOf<Person> people(model.personClass);
    std::vector<Pointer<Person>> all;
    for (Person* person : people)
        all.emplace_back(person);
    recording.reset();

    for (const auto& person : all)
        EXPECT_EQ(person->name.after("P"), person->employer->name.after("F"));

    EXPECT_LE(queries(), 8U);
}

TEST_F(SiblingLoaderTest, LoadsCollectionsTogether) {
    SelectionOf<Company> firms(model.companyClass);
    std::vector<Pointer<Company>> all;
    for (Company* firm : firms)
        all.emplace_back(firm);
    recording.reset();

    for (const auto& firm : all) {
        EXPECT_EQ(3U, firm->staff.size());
        for (const Person* person : firm->staff)
            EXPECT_EQ(firm->name.after("F"), person->name.after("P"));
    }

    EXPECT_LE(queries(), 6U);
}

TEST_F(SiblingLoaderTest, LoadsOneForTheFirstRead) {
    SelectionOf<Company> firms(model.companyClass);
    const Pointer<Company> first(firms.nextValue());
    while (firms.next())
        continue;
    recording.reset();

    EXPECT_EQ(3U, first->staff.size());

    EXPECT_EQ(1U, queries());
}

TEST_F(SiblingLoaderTest, LeavesSiblingsUnfetched) {
    SelectionOf<Company> firms(model.companyClass);
    std::vector<Pointer<Company>> all;
    for (Company* firm : firms)
        all.emplace_back(firm);

    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(3U, all[static_cast<std::size_t>(i)]->staff.size());

    EXPECT_FALSE(all.back()->staff.isFetched());
}

TEST_F(SiblingLoaderTest, ForgetsWhatItKeptWhenSomethingIsCommitted) {
    SelectionOf<Company> firms(model.companyClass);
    std::vector<Pointer<Company>> all;
    for (Company* firm : firms)
        all.emplace_back(firm);
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(3U, all[static_cast<std::size_t>(i)]->staff.size());
    model.startTransaction();
    Person* fresh = model.newPerson("fresh");
    fresh->employer = all[10];
    model.commit();

    EXPECT_EQ(4U, all[10]->staff.size());
}

TEST_F(SiblingLoaderTest, AppliesPendingLinksToWhatItLoads) {
    SelectionOf<Company> firms(model.companyClass);
    std::vector<Pointer<Company>> all;
    for (Company* firm : firms)
        all.emplace_back(firm);
    model.startTransaction();
    const Pointer<Person> moved(model.findPerson("P5"));
    moved->employer = all[7];

    EXPECT_EQ(2U, all[5]->staff.size());
    EXPECT_EQ(4U, all[7]->staff.size());

    model.rollback();
    EXPECT_EQ(3U, all[5]->staff.size());
    EXPECT_EQ(3U, all[7]->staff.size());
}

TEST_F(SiblingLoaderTest, ReadsAheadOfALoopThatFollowsReferences) {
    SelectionOf<Company> firms(model.companyClass);
    std::size_t members = 0;
    for (const Company* firm : firms)
        members += firm->staff.size();

    EXPECT_EQ(300U, members);
    EXPECT_LE(queries(), 8U);
}

TEST_F(SiblingLoaderTest, ReadsNothingAheadWhereNoReferenceIsRead) {
    SelectionOf<Company> firms(model.companyClass);
    for (int i = 0; i < 50; ++i)
        EXPECT_TRUE(firms.next());

    // The rows behind the current one have not been asked for.
    recording.failAt(1, "cursor.next");
    EXPECT_RAISES("SELERR", firms.next());
}

// Whatever the first rows behind the current one are, these are delivered.
TEST_F(SiblingLoaderTest, FailsWhereTheRowFailsThoughItWasReadAhead) {
    SelectionOf<Company> firms(model.companyClass);
    for (int i = 0; i < 2; ++i)
        EXPECT_EQ(3U, firms.nextValue()->staff.size());
    recording.failAt(10, "cursor.getInstance");

    int delivered = 0;
    EXPECT_RAISES("SELERR", while (firms.next())++ delivered);

    EXPECT_EQ(9, delivered);
    EXPECT_FALSE(firms.next());
}

TEST_F(SiblingLoaderTest, LoadsLinksOneByOneWithADriverThatCannotListThem) {
    const std::vector<Pointer<Person>> all = [&] {
        SelectionOf<Person> people(model.personClass);
        std::vector<Pointer<Person>> found;
        for (int i = 0; i < 20; ++i)
            found.emplace_back(people.nextValue());
        return found;
    }();
    model.startTransaction();
    for (const auto& person : all)
        person->friends.add(all[0]);
    model.commit();
    for (const auto& person : all)
        person->friends.setFetched(false);
    recording.reset();

    for (const auto& person : all)
        EXPECT_EQ(1U, person->friends.size());

    EXPECT_EQ(20U, queries());
}

// All firms, in memory, the collection of the first one read: the next read
// loads for 16.
class FailingSiblingTest : public SiblingLoaderTest {
protected:
    FailingSiblingTest() {
        SelectionOf<Company> firms(model.companyClass);
        for (Company* firm : firms)
            all.emplace_back(firm);
        EXPECT_EQ(3U, all[0]->staff.size());
    }

    std::vector<Pointer<Company>> all;
};

TEST_F(FailingSiblingTest, KeepsNoPartOfACollection) {
    const ReturningHandler handler;
    recording.failAt(10, "cursor.getInstance");

    EXPECT_EQ(3U, all[1]->staff.size());

    EXPECT_EQ((std::vector<std::string>{"SELERR"}), handler.codes());
    for (const auto& firm : all)
        EXPECT_EQ(3U, firm->staff.size());
}

TEST_F(FailingSiblingTest, StandsInNobodysWay) {
    recording.failAt(10, "cursor.getInstance");

    EXPECT_EQ(3U, all[1]->staff.size());

    for (const auto& firm : all)
        EXPECT_EQ(3U, firm->staff.size());
}

TEST_F(FailingSiblingTest, StandsInNoPartnersWay) {
    std::vector<Pointer<Person>> people;
    for (const auto& firm : all)
        for (Person* person : firm->staff)
            people.emplace_back(person);
    std::vector<unsigned long> ids;
    for (const auto& person : people)
        ids.push_back(person->getObjectID());
    all.clear();
    people.clear();
    model.garbageCollect();
    SelectionOf<Person> persons(model.personClass);
    for (Person* person : persons)
        people.emplace_back(person);
    EXPECT_NE(nullptr, people[0]->employer.get());
    recording.failAt(3, "cursor.getInstance");

    for (const auto& person : people)
        EXPECT_EQ(person->name.after("P"), person->employer->name.after("F"));

    EXPECT_TRUE(recording.hasFailed());
}

TEST_F(FailingSiblingTest, FailsWhereTheOwnCollectionFails) {
    recording.failAt(1, "cursor.getInstance", true);

    EXPECT_RAISES("SELERR", all[1]->staff.size());

    recording.reset();
    EXPECT_EQ(3U, all[1]->staff.size());
}

// A model beside which another one writes.
class FreshSiblingTest : public ::testing::Test {
protected:
    FreshSiblingTest() { model.openWith("sqlite", file.c_str()); }

    // All firms, delivered by one selection.
    std::vector<Pointer<Company>> readFirms() {
        SelectionOf<Company> firms(model.companyClass);
        std::vector<Pointer<Company>> all;
        for (Company* firm : firms)
            all.emplace_back(firm);
        return all;
    }

    template <class Change>
    void letOthers(Change change) {
        StaffModel other;
        other.openWith("sqlite", file.c_str());
        other.startTransaction();
        change(other);
        other.commit();
    }

    const TemporaryFolder folder;
    const std::string file = folder.path("staff.db");
    StaffModel model;
};

// What a loading brings up to date may have moved to somebody else.
TEST_F(FreshSiblingTest, LetsNoMemberStandWithTwoOwners) {
    model.startTransaction();
    for (int i = 0; i < 5; ++i) {
        Company* firm = model.newCompany(String("F") + String(i));
        model.newPerson(String("P") + String(i), i)->employer = firm;
    }
    const Pointer<Person> boss(model.newPerson("Boss"));
    model.commit();
    boss->children.add(model.findPerson("P4"));
    model.commit();
    boss->children.setFetched(false);
    model.garbageCollect();
    const std::vector<Pointer<Company>> all = readFirms();
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(1U, all[static_cast<std::size_t>(i)]->staff.size());
    letOthers([](StaffModel& other) {
        const Pointer<Person> moved(other.findPerson("P4"));
        moved->employer = other.findCompany("F0");
    });

    // Reads the person anew, and is no query of the application's.
    ASSERT_EQ(1U, boss->children.size());
    const Pointer<Person> moved(*boss->children.begin());
    EXPECT_EQ(all[0], moved->employer.get());

    EXPECT_EQ(0U, all[4]->staff.size());
}

TEST_F(FreshSiblingTest, SeesWhatOthersCommittedASecondAgo) {
    model.startTransaction();
    for (int i = 0; i < 5; ++i)
        model.newCompany(String("F") + String(i));
    model.commit();
    model.garbageCollect();
    const std::vector<Pointer<Company>> all = readFirms();
    for (int i = 0; i < 3; ++i)
        EXPECT_TRUE(all[static_cast<std::size_t>(i)]->staff.empty());
    letOthers(
        [](StaffModel& other) { other.newPerson("New")->employer = other.findCompany("F4"); });

    std::this_thread::sleep_for(std::chrono::milliseconds(1100));

    EXPECT_EQ(1U, all[4]->staff.size());
}

// One firm of thousands among small ones: what is loaded for siblings is bounded.
TEST_F(FreshSiblingTest, LoadsNoMoreThanItMayKeep) {
    model.startTransaction();
    for (int i = 0; i < 20; ++i)
        model.newCompany(String("F") + String(i));
    Company* const large = model.newCompany("Large");
    for (int i = 0; i < 20000; ++i)
        model.newPerson("P", i)->employer = large;
    model.commit();
    model.garbageCollect();
    const std::vector<Pointer<Company>> all = readFirms();

    for (std::size_t i = 0; i < 20; ++i)
        EXPECT_TRUE(all[i]->staff.empty());

    std::ostringstream trace;
    model.traceSQLTo(trace);
    EXPECT_EQ(20000U, all[20]->staff.size());
    model.disableSQLTrace();
    EXPECT_NE("", trace.str());
}

}  // namespace Kes::testing
