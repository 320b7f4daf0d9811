#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "tests/object/NotingListener.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

namespace {

class OpenClass : public Class {
public:
    OpenClass() : Class("Thing", 1, nullptr, nullptr) {}
    using Class::fireInstanceAdded;
    using Class::fireInstanceRemoved;
};

using Log = NotingListener::Log;

static_assert(!std::has_virtual_destructor_v<Listener>);
static_assert(!std::is_polymorphic_v<InstanceEvent>);
static_assert(!std::is_polymorphic_v<AssociationEvent>);
static_assert(!std::is_polymorphic_v<ModelEvent>);

}  // namespace

class NotificationTest : public ::testing::Test {
protected:
    Log log;
    NotingListener first{log, "first"};
    NotingListener second{log, "second"};
    NotingListener third{log, "third"};
    OpenClass thing;
    Instance instance{&thing};
};

TEST_F(NotificationTest, ReachesNobodyWithoutListeners) {
    thing.fireInstanceAdded(&instance);
    thing.fireInstanceChanged(&instance);
    thing.fireInstanceRemoved(&instance);
    EXPECT_TRUE(log.empty());
}

TEST_F(NotificationTest, HasNoEffectInTheBaseListener) {
    class Deaf final : public Listener {
    } deaf;
    thing.addListener(&deaf);
    thing.addListener(&first);
    thing.fireInstanceAdded(&instance);
    thing.fireInstanceChanged(&instance);
    thing.fireInstanceRemoved(&instance);
    EXPECT_EQ((Log{"first: added Thing 0", "first: changed Thing 0", "first: removed Thing 0"}),
              log);
}

TEST_F(NotificationTest, ReachesAListenerThatWasAddedTwiceOnce) {
    thing.addListener(&first);
    thing.addListener(&first);
    thing.fireInstanceAdded(&instance);
    EXPECT_EQ(1U, log.size());
}

TEST_F(NotificationTest, EndsWithOneRemovalAfterTwoAdditions) {
    thing.addListener(&first);
    thing.addListener(&first);
    thing.removeListener(&first);
    thing.removeListener(&first);
    thing.fireInstanceAdded(&instance);
    EXPECT_TRUE(log.empty());
}

TEST_F(NotificationTest, ReachesListenersInTheOrderOfTheirAddition) {
    thing.addListener(&second);
    thing.addListener(&first);
    thing.removeListener(&third);
    thing.fireInstanceAdded(&instance);
    EXPECT_EQ((Log{"second: added Thing 0", "first: added Thing 0"}), log);
}

TEST_F(NotificationTest, ReachesAllWhenOneLeavesMeanwhile) {
    first.then = [&] { thing.removeListener(&first); };
    for (NotingListener* each : {&first, &second, &third})
        thing.addListener(each);
    thing.fireInstanceAdded(&instance);
    EXPECT_EQ(3U, log.size());
    thing.fireInstanceAdded(&instance);
    EXPECT_EQ((Log{"first: added Thing 0", "second: added Thing 0", "third: added Thing 0",
                   "second: added Thing 0", "third: added Thing 0"}),
              log);
}

TEST_F(NotificationTest, ReachesOneThatJoinsMeanwhileFromTheNextTimeOn) {
    first.then = [&] { thing.addListener(&second); };
    thing.addListener(&first);
    thing.fireInstanceAdded(&instance);
    EXPECT_EQ(1U, log.size());
    thing.fireInstanceAdded(&instance);
    EXPECT_EQ(3U, log.size());
}

TEST_F(NotificationTest, ReachesTheLastOneThatLeavesMeanwhileOnce) {
    first.then = [&] { thing.removeListener(&first); };
    thing.addListener(&first);
    thing.fireInstanceChanged(&instance);
    thing.fireInstanceChanged(&instance);
    EXPECT_EQ(Log{"first: changed Thing 0"}, log);
}

TEST_F(NotificationTest, ReachesTheInstanceBeforeItsClass) {
    thing.addListener(&first);
    instance.addListener(&second);
    thing.fireInstanceChanged(&instance);
    thing.fireInstanceRemoved(&instance);
    EXPECT_EQ((Log{"second: changed Thing 0", "first: changed Thing 0", "second: removed Thing 0",
                   "first: removed Thing 0"}),
              log);
}

TEST_F(NotificationTest, OfAnAdditionReachesTheClassOnly) {
    thing.addListener(&first);
    instance.addListener(&second);
    thing.fireInstanceAdded(&instance);
    EXPECT_EQ(Log{"first: added Thing 0"}, log);
}

TEST_F(NotificationTest, OfARemovalMakesTheInstanceForgetItsListeners) {
    instance.addListener(&first);
    thing.fireInstanceRemoved(&instance);
    thing.fireInstanceRemoved(&instance);
    instance.removeListener(&first);
    thing.fireInstanceChanged(&instance);
    EXPECT_EQ(Log{"first: removed Thing 0"}, log);
}

TEST_F(NotificationTest, OfARemovalLetsTheListenerLeaveItself) {
    first.then = [&] { instance.removeListener(&first); };
    instance.addListener(&first);
    instance.addListener(&second);
    thing.fireInstanceRemoved(&instance);
    EXPECT_EQ((Log{"first: removed Thing 0", "second: removed Thing 0"}), log);
}

TEST_F(NotificationTest, CarriesTheClassAndTheInstance) {
    InstanceEvent event(nullptr, nullptr);
    event = InstanceEvent(&thing, &instance);
    EXPECT_EQ(&thing, event.getClass());
    EXPECT_EQ(&instance, event.getInstance());
}

TEST_F(NotificationTest, CarriesBothInstancesAndTheAssociation) {
    Association as("As", &thing, "x", Association::One, Association::Unlink);
    Instance other(&thing);
    AssociationEvent event(nullptr, nullptr, nullptr);
    event = AssociationEvent(&instance, &other, &as);
    EXPECT_EQ(&instance, event.getOneInstance());
    EXPECT_EQ(&other, event.getOtherInstance());
    EXPECT_EQ(&as, event.getAssociation());
}

TEST_F(NotificationTest, OfARemovalMakesTheInstanceForgetOneThatJoinsMeanwhile) {
    first.then = [&] { instance.addListener(&second); };
    instance.addListener(&first);
    thing.fireInstanceRemoved(&instance);
    thing.fireInstanceChanged(&instance);
    EXPECT_EQ(Log{"first: removed Thing 0"}, log);
}

TEST_F(NotificationTest, NamesTheClassThatTellsOnlyToTheListenersOfThatClass) {
    Class other("Other", 1, nullptr, nullptr);
    other.addListener(&first);
    instance.addListener(&second);
    other.fireInstanceChanged(&instance);
    EXPECT_EQ((Log{"second: changed Thing 0", "first: changed Other 0"}), log);
}

TEST_F(NotificationTest, CarriesTheProgressOfAModel) {
    StaffModel model;
    ModelEvent event(nullptr, 0, 0);
    event = ModelEvent(&model, 5, 2);
    EXPECT_EQ(&model, event.getModel());
    EXPECT_EQ(5, event.getNrOfClasses());
    EXPECT_EQ(2, event.getNrOfClassesProcessed());
}

class ListenerTest : public ::testing::Test {
protected:
    ListenerTest() {
        model.openWith();
        model.startTransaction();
        firm = model.newCompany("Firm");
        ann = model.newPerson("Ann");
        model.commit();
        model.personClass->addListener(&listener);
        model.companyClass->addListener(&listener);
        model.vehicleClass->addListener(&listener);
        works().addListener(&listener);
    }
    ~ListenerTest() override { works().removeListener(&listener); }

    Association& works() { return *model.getAssociation("Works"); }
    static std::string id(const Instance* of) { return " " + std::to_string(of->getObjectID()); }

    Log log;
    NotingListener listener{log};
    StaffModel model;
    Pointer<Company> firm;
    Pointer<Person> ann;
};

TEST_F(ListenerTest, HearsNothingBeforeTheCommit) {
    model.startTransaction();
    model.newPerson("Bob");
    ann->change();
    ann->employer = firm;
    firm->remove();
    EXPECT_TRUE(log.empty());
}

TEST_F(ListenerTest, HearsNothingOfARollback) {
    model.startTransaction();
    model.newPerson("Bob");
    ann->change();
    model.rollback();
    EXPECT_TRUE(log.empty());
}

TEST_F(ListenerTest, HearsOfChangesInRecordingOrder) {
    model.startTransaction();
    ann->change();
    ann->age = 5;
    const Pointer<Person> bob(model.newPerson("Bob"));
    bob->employer = firm;
    firm->change();
    firm->name = "New firm";
    model.commit();

    EXPECT_EQ((Log{"changed Person" + id(ann), "added Person" + id(bob),
                   "linked Works" + id(bob) + id(firm), "changed Company" + id(firm)}),
              log);
}

TEST_F(ListenerTest, HearsOfTheLostLinkBeforeTheRemoval) {
    ann->employer = firm;
    model.commit();
    log.clear();
    ann->remove();
    model.commit();

    EXPECT_EQ((Log{"unlinked Works" + id(ann) + id(firm), "removed Person" + id(ann)}), log);
}

TEST_F(ListenerTest, HearsOfALinkFromTheSideThatMadeIt) {
    firm->staff.add(ann);
    model.commit();
    firm->staff.remove(ann);
    model.commit();

    EXPECT_EQ((Log{"linked Works" + id(firm) + id(ann), "unlinked Works" + id(firm) + id(ann)}),
              log);
}

TEST_F(ListenerTest, HearsNothingOfSubClasses) {
    model.startTransaction();
    const Pointer<Instance> car(model.carClass->newInstance());
    model.commit();
    car->change();
    model.commit();
    car->remove();
    model.commit();
    EXPECT_TRUE(log.empty());
}

TEST_F(ListenerTest, HearsOnTheThreadThatCommitsAndBeforeTheCommitReturns) {
    std::vector<std::thread::id> threads;
    listener.then = [&] { threads.push_back(std::this_thread::get_id()); };
    ann->change();
    firm->change();
    model.commit();
    EXPECT_EQ(std::vector<std::thread::id>(2, std::this_thread::get_id()), threads);
}

TEST_F(ListenerTest, OfAnInstanceHearsOfItAlone) {
    Log own;
    NotingListener watcher(own);
    ann->addListener(&watcher);
    model.startTransaction();
    const Pointer<Person> bob(model.newPerson("Bob"));
    ann->change();
    ann->age = 9;
    ann->employer = firm;
    model.commit();
    ann->remove();
    model.commit();
    ann->removeListener(&watcher);

    EXPECT_EQ((Log{"changed Person" + id(ann), "linked Works" + id(ann) + id(firm),
                   "unlinked Works" + id(ann) + id(firm), "removed Person" + id(ann)}),
              own);
}

}  // namespace Kes::testing
