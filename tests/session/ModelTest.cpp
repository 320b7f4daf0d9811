#include <gtest/gtest.h>

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/QuietDriver.h"
#include "tests/support/Raises.h"
#include "tests/support/Recording.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

class ModelTest : public ::testing::Test {
protected:
    ModelTest() { recording.reset(); }
    ~ModelTest() override {
        Model::setDriverCacheSize(0);
        recording.reset();
    }

    std::size_t count(const std::string& slot) const { return recording.only(slot).size(); }

    Recording& recording = Recording::get();
};

TEST_F(ModelTest, HandsTheTextsToTheDriverInOrder) {
    StaffModel model;

    model.openWith("recording", ":memory:", "busy_timeout=1");

    EXPECT_EQ("open :memory:", recording.only("open").front());
    EXPECT_STREQ("secret", recording.password);
    EXPECT_STREQ("user", recording.user);
    EXPECT_STREQ("busy_timeout=1", recording.options);
}

TEST_F(ModelTest, IsOpenBetweenOpenAndClose) {
    StaffModel model;
    EXPECT_FALSE(model.isOpen());

    model.openWith();
    EXPECT_TRUE(model.isOpen());

    model.close();
    EXPECT_FALSE(model.isOpen());
}

TEST_F(ModelTest, RefusesADriverThatDoesNotExist) {
    StaffModel model;

    EXPECT_EQ("Driver with name: nosuchdriver does not exist.",
              messageRaisedBy([&] { model.openWith("nosuchdriver"); }));
    EXPECT_FALSE(model.isOpen());
}

TEST_F(ModelTest, RaisesDRVERRForIt) {
    StaffModel model;

    EXPECT_RAISES("DRVERR", model.openWith("nosuchdriver"));
}

TEST_F(ModelTest, StaysClosedWhenTheDriverCannotOpen) {
    StaffModel model;
    recording.failAt(1, "open");

    EXPECT_RAISES("DBOPENERR", model.openWith("recording", Recording::NoDatabase));

    EXPECT_FALSE(model.isOpen());
    EXPECT_EQ(1U, count("destroy"));
}

TEST_F(ModelTest, StaysClosedWhenTheHandlerReturns) {
    StaffModel model;
    const ReturningHandler handler;
    recording.failAt(1, "open");

    model.openWith("recording", Recording::NoDatabase);

    EXPECT_FALSE(model.isOpen());
}

TEST_F(ModelTest, RefusesASecondOpen) {
    StaffModel model;
    model.openWith();

    EXPECT_RAISES("DBOPENERR", model.openWith());

    EXPECT_TRUE(model.isOpen());
}

TEST_F(ModelTest, DeclaresItsClassesOnce) {
    StaffModel model;
    model.openWith();
    const Class* person = model.personClass;
    model.close();

    model.openWith();

    EXPECT_EQ(person, model.getClass("Person"));
}

TEST_F(ModelTest, FindsNothingUnderAnUnknownName) {
    StaffModel model;
    model.openWith();

    EXPECT_EQ(nullptr, model.getClass("person"));
    EXPECT_EQ(nullptr, model.getAssociation("works"));
}

TEST_F(ModelTest, KnowsItsAssociations) {
    StaffModel model;
    model.openWith();

    const Association* works = model.getAssociation("Works");

    ASSERT_NE(nullptr, works);
    EXPECT_EQ(model.companyClass, works->getClassFor("staff"));
}

TEST_F(ModelTest, RefusesAClassThatIsDeclaredTwice) {
    StaffModel model;
    model.openWith();

    EXPECT_RAISES("DECLERR", model.addClass("Person", 1, nullptr));
}

TEST_F(ModelTest, RefusesAClassWithoutFactory) {
    StaffModel model;

    EXPECT_RAISES("DECLERR", model.addClass("Lonely", 1, nullptr));
}

TEST_F(ModelTest, ClosesTheDriverByDefault) {
    StaffModel model;
    model.openWith("recording", Recording::NoDatabase);

    model.close();

    EXPECT_EQ(1U, count("close"));
    EXPECT_EQ(1U, count("destroy"));
}

TEST_F(ModelTest, OpensAgainAfterAClose) {
    StaffModel model;
    model.openWith("recording", Recording::NoDatabase);
    model.close();

    model.openWith("recording", Recording::NoDatabase);

    EXPECT_EQ(2U, count("open"));
}

TEST_F(ModelTest, DoesNothingWhenClosedTwice) {
    StaffModel model;
    model.openWith("recording", Recording::NoDatabase);
    model.close();

    model.close();

    EXPECT_EQ(1U, count("close"));
}

TEST_F(ModelTest, ParksTheDriverAndTakesItBack) {
    Model::setDriverCacheSize(1);
    StaffModel model;
    model.openWith("recording", Recording::NoDatabase);
    const DBDriver* driver = model.getDriver();
    model.close();

    model.open("recording", Recording::NoDatabase, "another password", "user", "");

    EXPECT_EQ(driver, model.getDriver());
    EXPECT_EQ(1U, count("open"));
    EXPECT_EQ(0U, count("close"));
}

// A driver that is parked with a lock would keep all others out.
TEST_F(ModelTest, ParksNoLock) {
    Model::setDriverCacheSize(1);
    StaffModel model;
    model.openWith("recording", Recording::NoDatabase);
    model.startTransaction();
    Person* person = model.newPerson("Ada");
    model.commit();
    person->lock();

    model.close();

    EXPECT_EQ("rollback", recording.log.back());
    EXPECT_EQ(0U, count("close"));
}

TEST_F(ModelTest, RollsNothingBackWhenItParksADriverWhoseLocksAreGone) {
    Model::setDriverCacheSize(1);
    StaffModel model;
    model.openWith("recording", Recording::NoDatabase);
    model.startTransaction();
    Person* person = model.newPerson("Ada");
    model.commit();
    person->lock();
    model.commit();

    model.close();

    EXPECT_EQ(0U, count("rollback"));
}

TEST_F(ModelTest, ParksNoDriverThatKeepsItsLock) {
    Model::setDriverCacheSize(1);
    StaffModel model;
    model.openWith("recording", Recording::NoDatabase);
    model.startTransaction();
    Person* person = model.newPerson("Ada");
    model.commit();
    person->lock();
    recording.failAt(1, "rollback");

    model.close();

    EXPECT_EQ("destroy", recording.log.back());
    model.openWith("recording", Recording::NoDatabase);
    EXPECT_EQ(2U, count("open"));
}

// The stream may be gone by then, and the driver be another model's.
TEST_F(ModelTest, ParksNoDriverThatGoesOnToTrace) {
    Model::setDriverCacheSize(1);
    StaffModel later;
    std::ostringstream stream;
    {
        StaffModel watched;
        watched.traceSQLTo(stream);
        watched.openWith("recording");
        watched.newPerson("Ada");
        watched.close();
    }
    const std::size_t written = stream.str().size();
    ASSERT_GT(written, 0U);

    later.openWith("recording");
    later.newPerson("Bob");
    later.commit();

    EXPECT_EQ(1U, count("open"));
    EXPECT_EQ(written, stream.str().size());
}

// A driver that keeps a text shares it with nobody: texts of two threads must
// not share their bytes.
TEST_F(ModelTest, SharesNoTextWithTheDriver) {
    StaffModel model;
    const String password("secret");

    model.open("recording", ":memory:", password, "user", "");

    EXPECT_STREQ("secret", recording.password);
    EXPECT_NE(static_cast<const char*>(password), static_cast<const char*>(recording.password));
}

TEST_F(ModelTest, TakesNoParkedDriverOfAnotherUser) {
    Model::setDriverCacheSize(1);
    StaffModel model;
    model.openWith("recording", Recording::NoDatabase);
    model.close();

    model.open("recording", ":memory:", "secret", "somebody", "");

    EXPECT_EQ(2U, count("open"));
}

TEST_F(ModelTest, ClosesTheNewcomerWhenTheCacheIsFull) {
    Model::setDriverCacheSize(1);
    StaffModel first;
    first.openWith("recording", Recording::NoDatabase);
    StaffModel second;
    second.openWith("recording", Recording::NoDatabase);
    first.close();
    EXPECT_EQ(0U, count("close"));

    second.close();

    EXPECT_EQ(1U, count("close"));
    EXPECT_EQ(1U, count("destroy"));
}

TEST_F(ModelTest, ClosesParkedDriversWhenTheCacheShrinks) {
    Model::setDriverCacheSize(2);
    StaffModel first;
    first.openWith("recording", Recording::NoDatabase);
    StaffModel second;
    second.openWith("recording", Recording::NoDatabase);
    first.close();
    second.close();

    Model::setDriverCacheSize(1);

    EXPECT_EQ(1U, count("close"));
}

TEST_F(ModelTest, StartsClosedWithItsNameAndVersionZero) {
    const StaffModel model;

    EXPECT_STREQ("staff", model.getName());
    EXPECT_EQ(0, model.getVersion());
    EXPECT_EQ(nullptr, model.getDriver());
    EXPECT_EQ(0U, model.getDeclaredClasses().size());
}

TEST_F(ModelTest, TakesNoParkedDriverUnderATextThatDiffers) {
    Model::setDriverCacheSize(6);
    StaffModel model;
    model.open("recording", "file:a?mode=memory", "", "user", "uri=true");
    model.close();
    model.open("recording", "file:b?mode=memory", "", "user", "uri=true");
    model.close();
    model.open("recording", ":memory:", "", "user", "");
    model.close();
    model.open("recording", ":memory:", "", "User", "");
    model.close();
    model.open("recording", ":memory:", "", "user", "busy_timeout=1");
    model.close();
    model.open("recording.dll", ":memory:", "", "user", "");
    model.close();
    EXPECT_EQ(6U, count("open"));

    model.open("recording", ":memory:", "", "user", "");

    EXPECT_EQ(6U, count("open"));
}

namespace {

class NumberedDriver final : public QuietDriver {
public:
    explicit NumberedDriver(std::vector<int>& closedOnes, int itsNumber)
        : closed(closedOnes),
          number(itsNumber) {}
    bool close() override {
        closed.push_back(number);
        return true;
    }

private:
    std::vector<int>& closed;
    int number;
};

class ParkingModel : public StaffModel {
public:
    using Model::cacheDriver;
    using Model::getCachedDriver;
};

}  // namespace

TEST_F(ModelTest, ParksTheOldestDriversAndClosesTheNewestFirst) {
    std::vector<int> closed;
    Model::setDriverCacheSize(3);
    ParkingModel model;
    for (int i = 1; i <= 4; ++i)
        model.cacheDriver(new NumberedDriver(closed, i));
    EXPECT_EQ(std::vector<int>{4}, closed);

    Model::setDriverCacheSize(1);
    EXPECT_EQ((std::vector<int>{4, 3, 2}), closed);
    Model::setDriverCacheSize(0);
    EXPECT_EQ((std::vector<int>{4, 3, 2, 1}), closed);
}

TEST_F(ModelTest, TakesTheOldestParkedDriverOfThoseThatFit) {
    std::vector<int> closed;
    Model::setDriverCacheSize(2);
    ParkingModel model;
    auto* first = new NumberedDriver(closed, 1);
    model.cacheDriver(first);
    model.cacheDriver(new NumberedDriver(closed, 2));

    const std::unique_ptr<DBDriver> found(model.getCachedDriver());

    EXPECT_EQ(first, found.get());
    EXPECT_TRUE(closed.empty());
    Model::setDriverCacheSize(0);
    EXPECT_EQ(std::vector<int>{2}, closed);
}

TEST_F(ModelTest, TakesANegativeCacheSizeForNone) {
    Model::setDriverCacheSize(-1);
    StaffModel model;
    model.openWith("recording", Recording::NoDatabase);

    model.close();

    EXPECT_EQ(1U, count("close"));
    EXPECT_EQ(1U, count("destroy"));
}

TEST_F(ModelTest, KeepsItsTraceThroughAClose) {
    std::ostringstream trace;
    StaffModel model;
    model.traceSQLTo(trace);
    model.openWith("recording");
    model.close();
    const std::size_t before = trace.str().size();

    model.openWith("recording");

    EXPECT_LT(before, trace.str().size());
    EXPECT_EQ(2U, count("traceSQLTo"));
}

TEST_F(ModelTest, DestroysAnOpenDriverWithoutClosingIt) {
    {
        StaffModel model;
        model.openWith("recording", Recording::NoDatabase);
    }

    EXPECT_EQ(0U, count("close"));
    EXPECT_EQ(1U, count("destroy"));
}

TEST_F(ModelTest, HandsTheTraceToTheNextDriver) {
    std::ostringstream trace;
    StaffModel model;
    model.traceSQLTo(trace);

    model.openWith("recording");

    EXPECT_EQ(1U, recording.only("traceSQLTo").size());
    EXPECT_NE(std::string::npos, trace.str().find("CREATE TABLE"));
}

TEST_F(ModelTest, StopsTheTrace) {
    std::ostringstream trace;
    StaffModel model;
    model.traceSQLTo(trace);
    model.openWith("recording", Recording::NoDatabase);
    model.disableSQLTrace();
    const std::string before = trace.str();

    model.findPerson("nobody");

    EXPECT_EQ(before, trace.str());
}

TEST_F(ModelTest, EmptiesPointersWhenItCloses) {
    StaffModel model;
    model.openWith();
    model.startTransaction();
    const Pointer<Person> person(model.newPerson("Ann"));
    model.commit();

    model.close();

    EXPECT_EQ(nullptr, person.getInstance());
}

TEST_F(ModelTest, EmptiesPointersWhenItIsDestroyed) {
    Pointer<Person> person;
    {
        StaffModel model;
        model.openWith();
        person = model.newPerson("Ann");
    }

    EXPECT_EQ(nullptr, person.getInstance());
}

TEST_F(ModelTest, RaisesForAnotherThread) {
    StaffModel model;
    model.openWith();

    EXPECT_RAISES("MTERR", onAnotherThread([&] { model.startTransaction(); }));
}

using ModelDeathTest = ModelTest;

TEST_F(ModelDeathTest, EndsTheProcessForAnotherThreadWhenTheHandlerReturns) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            StaffModel model;
            model.openWith();
            const ReturningHandler handler;
            onAnotherThread([&] { model.commit(); });
        },
        ::testing::ExitedWithCode(1), "");
}

TEST_F(ModelDeathTest, EndsTheProcessWhenAParkedDriverCannotBeClosed) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            Model::setDriverCacheSize(1);
            StaffModel model;
            model.openWith("recording", Recording::NoDatabase);
            model.close();
            const ReturningHandler handler;
            Recording::get().failAt(1, "close");
            Model::setDriverCacheSize(0);
        },
        ::testing::ExitedWithCode(1), "");
}

TEST_F(ModelDeathTest, EndsTheProcessWhenADriverCannotBeClosed) {
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            StaffModel model;
            model.openWith("recording", Recording::NoDatabase);
            const ReturningHandler handler;
            Recording::get().failAt(1, "close");
            model.close();
        },
        ::testing::ExitedWithCode(1), "");
}

TEST_F(ModelTest, RaisesDBCLSERRWhenADriverCannotBeClosed) {
    StaffModel model;
    model.openWith("recording", Recording::NoDatabase);
    recording.failAt(1, "close");

    EXPECT_RAISES("DBCLSERR", model.close());
}

// A class with one end of an association, and no partner for it.
class Half : public Instance {
public:
    explicit Half(Class* c) : Instance(c) {}
    void handle(Handler* h) override {
        Instance::handle(h);
        h->handleOneAssociated("Torn", "side", &side, Association::Unlink);
    }

    One<Half> side{this};
};

class HalfModel : public Model {
public:
    HalfModel() : Model("half", 10) {}

protected:
    void declareModel() override {
        setVersion(1);
        addClass("Half", 1, [](Class* c) -> Instance* { return new Half(c); });
    }
};

TEST_F(ModelTest, RefusesAnAssociationWithOneEnd) {
    HalfModel model;

    const std::string message =
        messageRaisedBy([&] { model.open("recording", ":memory:", "", "", ""); });

    EXPECT_NE(std::string::npos, message.find("Torn"));
    EXPECT_NE(std::string::npos, message.find("Half"));
    EXPECT_EQ(0U, count("open"));
}

}  // namespace Kes::testing
