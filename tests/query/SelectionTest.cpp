#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/QuietDriver.h"
#include "tests/support/Raises.h"
#include "tests/support/Recording.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

class SelectionTest : public ::testing::Test {
protected:
    SelectionTest() {
        recording.reset();
        model.openWith("recording");
        recording.reset();
    }
    ~SelectionTest() override { recording.reset(); }

    void storeVehicle(Class* cls, const char* name, int year) {
        auto* vehicle = static_cast<Vehicle*>(cls->newInstance());
        vehicle->name = name;
        vehicle->year = year;
    }

    std::string namesOf(SelectionOf<Vehicle>& selection) {
        std::string names;
        for (Vehicle* vehicle : selection)
            names += vehicle->name + " ";
        return names;
    }

    Recording& recording = Recording::get();
    StaffModel model;
};

TEST_F(SelectionTest, FindsNothingInAnEmptyTable) {
    Selection people(model.personClass);

    EXPECT_FALSE(people.next());
    EXPECT_EQ(nullptr, people.value());
}

TEST_F(SelectionTest, KeepsTheLastInstanceAfterTheEnd) {
    model.newPerson("Ann");
    model.commit();
    Selection people(model.personClass);
    ASSERT_TRUE(people.next());
    Instance* last = people.value();

    EXPECT_FALSE(people.next());
    EXPECT_FALSE(people.next());

    EXPECT_EQ(last, people.value());
}

TEST_F(SelectionTest, DefinesOnceAndFetchesForEachConcreteClass) {
    Selection vehicles(model.vehicleClass);
    vehicles.next();
    vehicles.next();

    EXPECT_EQ(1U, recording.only("defineSelection").size());
    EXPECT_EQ((std::vector<std::string>{"fetch Car", "fetch Boat"}), recording.only("fetch"));
}

TEST_F(SelectionTest, DrainsTheConcreteClassesInTurnWithoutKeys) {
    storeVehicle(model.boatClass, "b1", 1);
    storeVehicle(model.carClass, "c1", 2);
    storeVehicle(model.boatClass, "b2", 3);
    storeVehicle(model.carClass, "c2", 4);
    model.commit();
    SelectionOf<Vehicle> vehicles(model.vehicleClass);

    EXPECT_EQ("c1 c2 b1 b2 ", namesOf(vehicles));
}

TEST_F(SelectionTest, MergesBySortKeys) {
    storeVehicle(model.boatClass, "b1", 1);
    storeVehicle(model.carClass, "c1", 2);
    storeVehicle(model.boatClass, "b2", 3);
    storeVehicle(model.carClass, "c2", 4);
    model.commit();
    SelectionOf<Vehicle> up(model.vehicleClass);
    up.orderBy(up["year"]);
    SelectionOf<Vehicle> down(model.vehicleClass);
    down.orderBy(down["year"], false);

    EXPECT_EQ("b1 c1 b2 c2 ", namesOf(up));
    EXPECT_EQ("c2 b2 c1 b1 ", namesOf(down));
}

TEST_F(SelectionTest, DeliversTheLowerClassFirstAmongEquals) {
    storeVehicle(model.boatClass, "boat", 1);
    storeVehicle(model.carClass, "car", 1);
    model.commit();
    SelectionOf<Vehicle> vehicles(model.vehicleClass);
    vehicles.orderBy(vehicles["year"]);

    EXPECT_EQ("car boat ", namesOf(vehicles));
}

TEST_F(SelectionTest, SortsByAMinorKey) {
    storeVehicle(model.boatClass, "a", 2);
    storeVehicle(model.carClass, "b", 1);
    storeVehicle(model.boatClass, "a2", 1);
    model.commit();
    SelectionOf<Vehicle> vehicles(model.vehicleClass);
    vehicles.orderBy(vehicles["year"]);
    vehicles.orderBy(vehicles["name"]);

    EXPECT_EQ("a2 b a ", namesOf(vehicles));
}

TEST_F(SelectionTest, AppliesTheLastConditionOnly) {
    model.newPerson("Ann", 1);
    model.newPerson("Bob", 2);
    model.commit();
    SelectionOf<Person> people(model.personClass);
    people.where(people["age"] == 1);
    const std::unique_ptr<Condition> replaced(people.getCondition());
    people.where(people["age"] == 2);

    EXPECT_EQ("Bob", people.nextValue()->name);
    EXPECT_EQ(nullptr, people.nextValue());
}

namespace {

/// Tells when it is destroyed.
class Mortal final : public Condition {
public:
    explicit Mortal(int& counter) : deaths(counter) {}
    Mortal(const Mortal& other) = default;
    ~Mortal() override { ++deaths; }
    void translate(ConditionTranslator*) override {}
    Condition* getNew() const override { return new Mortal(*this); }

private:
    int& deaths;
};

}  // namespace

TEST_F(SelectionTest, LeavesTheCopyAloneThatItReplaces) {
    int deaths = 0;
    {
        const Mortal original(deaths);
        Selection people(model.personClass);
        people.where(original);
        const std::unique_ptr<Condition> first(people.getCondition());
        EXPECT_NE(&original, first.get());
        people.where(original);
        const std::unique_ptr<Condition> second(people.getCondition());
        people.where(*second);
        EXPECT_EQ(0, deaths);
    }

    EXPECT_EQ(4, deaths);
}

TEST_F(SelectionTest, LeavesAnAdoptedConditionAloneThatIsReplaced) {
    int deaths = 0, others = 0;
    const auto first = std::make_unique<Mortal>(deaths);
    const auto second = std::make_unique<Mortal>(deaths);
    {
        Selection people(model.personClass);
        people.setCondition(first.get());
        EXPECT_EQ(first.get(), people.getCondition());
        people.setCondition(second.get());
        people.where(Mortal(others));
        EXPECT_EQ(1, others);
    }

    EXPECT_EQ(0, deaths);
    EXPECT_EQ(2, others);
}

TEST_F(SelectionTest, FreesTheConditionThatItAdoptedLast) {
    int deaths = 0;
    {
        Selection people(model.personClass);
        people.setCondition(new Mortal(deaths));
    }

    EXPECT_EQ(1, deaths);
}

TEST_F(SelectionTest, NamesFieldsThatNobodyReports) {
    const Selection people(model.personClass);
    const Attribute attribute = people["nonsense"];

    EXPECT_STREQ("nonsense", attribute.getName());
    EXPECT_EQ(model.personClass, attribute.getClass());
}

TEST_F(SelectionTest, ListsItsSortKeysInOrder) {
    Selection people(model.personClass);
    people.orderBy(people["age"], false);
    people.orderBy(people["name"]);
    const PtrList<SortOrder> orders = people.getSortOrders();

    ASSERT_EQ(2, orders.size());
    EXPECT_STREQ("age", orders[0]->getAttribute().getName());
    EXPECT_FALSE(orders[0]->isAscending());
    EXPECT_STREQ("name", orders[1]->getAttribute().getName());
    EXPECT_TRUE(orders[1]->isAscending());
    SortOrder copy(*orders[0]);
    copy = *orders[1];
    EXPECT_STREQ("name", copy.getAttribute().getName());
    EXPECT_TRUE(copy.isAscending());
}

TEST_F(SelectionTest, GivesItsPartsToAnAssociatedClass) {
    int deaths = 0;
    Selection people(model.personClass);
    people.where(Mortal(deaths));
    people.orderBy(people["age"]);
    Condition* condition = people.getCondition();
    {
        AssociatedClass frozen(people);
        EXPECT_EQ(model.personClass, frozen.getClass());
        EXPECT_STREQ("t", frozen.getAlias());
        EXPECT_EQ(condition, frozen.getCondition());
        EXPECT_EQ(nullptr, people.getCondition());
        ASSERT_EQ(1, frozen.getSortOrders().size());
        EXPECT_EQ(people.getSortOrders()[0], frozen.getSortOrders()[0]);

        AssociatedClass copy(frozen);
        copy.setAlias("a0");
        EXPECT_STREQ("a0", copy.getAlias());
        EXPECT_STREQ("t", frozen.getAlias());
        EXPECT_NE(condition, copy.getCondition());
        EXPECT_EQ(people.getSortOrders()[0], copy.getSortOrders()[0]);
        deaths = 0;
    }

    EXPECT_EQ(2, deaths);
    EXPECT_EQ(1, people.getSortOrders().size());
}

TEST_F(SelectionTest, SharesItsConditionWithAnAssignedAssociatedClass) {
    Selection people(model.personClass), firms(model.companyClass);
    people.where(people["age"] == 1);
    const AssociatedClass frozen(people), without(firms);
    AssociatedClass assigned(without);
    assigned = frozen;

    EXPECT_EQ(frozen.getCondition(), assigned.getCondition());
    EXPECT_EQ(model.personClass, assigned.getClass());
    assigned = without;  // so that one of the two frees the condition
}

TEST_F(SelectionTest, SortsByWhatWasSaidBeforeTheFirstNextOnly) {
    storeVehicle(model.carClass, "car", 2);
    storeVehicle(model.boatClass, "boat", 1);
    model.commit();
    SelectionOf<Vehicle> vehicles(model.vehicleClass);
    EXPECT_STREQ("car", vehicles.nextValue()->name);
    vehicles.orderBy(vehicles["year"]);
    EXPECT_RAISES("SELERR", vehicles.where(vehicles["year"] == 99));

    EXPECT_STREQ("boat", vehicles.nextValue()->name);
    EXPECT_EQ(nullptr, vehicles.nextValue());
}

TEST_F(SelectionTest, TakesTheOtherRoleForAClassThatIsNotTheFirstOne) {
    const Selection vehicles(model.vehicleClass);  // takes no part in it
    const Association* works = model.getAssociation("Works");

    EXPECT_EQ(works->getOtherRole(), vehicles("Works").getRole());
    EXPECT_EQ(works, vehicles("Works").getAssociation());
    EXPECT_EQ(model.vehicleClass, vehicles("Works").getClass());
}

TEST_F(SelectionTest, KnowsNoAssociationUnderAnUnknownName) {
    Selection people(model.personClass);

    EXPECT_EQ(nullptr, people("Nothing").getAssociation());
    EXPECT_EQ(nullptr, people("Nothing", "role").getAssociation());
    people.where(people("Nothing") == nullptr);
    EXPECT_RAISES("SELERR", people.next());
}

TEST_F(SelectionTest, MovesItsConditionAwayAtTheFirstNext) {
    Selection people(model.personClass);
    people.where(people["age"] == 1);
    EXPECT_NE(nullptr, people.getCondition());

    people.next();

    EXPECT_EQ(nullptr, people.getCondition());
}

TEST_F(SelectionTest, ReturnsEverythingAfterItWasNested) {
    model.newCompany("Firm");
    model.commit();
    Selection firms(model.companyClass);
    firms.where(firms["name"] == "nothing");
    Selection people(model.personClass);
    people.where(people("Works") == firms);

    EXPECT_TRUE(firms.next());
}

TEST_F(SelectionTest, KeepsItsConditionForANestingToCome) {
    Person* ann = model.newPerson("Ann");
    ann->employer = model.newCompany("Firm");
    ann->friends.add(model.newPerson("Bob"));
    model.commit();
    Selection firms(model.companyClass);
    firms.where(firms["name"] == "nothing");
    for (int time = 0; time < 3; ++time) {
        Selection people(model.personClass);
        people.where(people("Works") == firms);
        EXPECT_FALSE(people.next()) << time;
    }
    firms.where(firms["name"] == "Firm");
    Selection people(model.personClass);
    people.where(people("Works") == firms);
    EXPECT_TRUE(people.next());
}

TEST_F(SelectionTest, KeepsItsConditionForANestingWhenItIsUnderWay) {
    Person* ann = model.newPerson("Ann");
    ann->employer = model.newCompany("Firm");
    model.newCompany("Other");
    model.commit();
    Selection firms(model.companyClass);
    firms.where(firms["name"] == "Other");
    EXPECT_TRUE(firms.next());

    Selection people(model.personClass);
    people.where(people("Works") == firms);

    EXPECT_FALSE(people.next());
}

TEST_F(SelectionTest, IsNotGoneThroughTwice) {
    model.newPerson("Ann");
    model.newPerson("Bob");
    model.commit();
    SelectionOf<Person> people(model.personClass);
    int count = 0;
    for (const Person* each : people)
        count += each != nullptr ? 1 : 0;
    EXPECT_EQ(2, count);

    EXPECT_RAISES("SELERR", for (const Person* each : people) count += each != nullptr ? 1 : 0);

    EXPECT_EQ(2, count);
    EXPECT_FALSE(people.next());
}

TEST_F(SelectionTest, MayBeGoneThroughToItsEndWhenItHasBegun) {
    model.newPerson("Ann");
    model.newPerson("Bob");
    model.commit();
    SelectionOf<Person> people(model.personClass);
    EXPECT_STREQ("Ann", people.nextValue()->name);

    for (const Person* each : people)
        EXPECT_STREQ("Bob", each->name);
}

TEST_F(SelectionTest, TakesNoObjectOfAnotherModel) {
    StaffModel other;
    other.openWith();
    Pointer<Company> foreign(other.newCompany("Firm"));
    Pointer<Person> stranger(other.newPerson("Bob"));
    other.commit();
    Person* ann = model.newPerson("Ann");
    ann->employer = model.newCompany("Firm");
    model.commit();
    const auto raisedFor = [&](const Condition& condition) {
        Selection people(model.personClass);
        people.where(condition);
        return messageRaisedBy([&] { people.next(); });
    };
    const Selection all(model.personClass);

    for (const std::string& said :
         {raisedFor(all("Works") == foreign), raisedFor(all("Works") != foreign),
          raisedFor(all("Friendship", "friends") == stranger),
          raisedFor(all("Family", "children") == stranger)})
        EXPECT_NE(std::string::npos, said.find("which belongs to another model")) << said;
}

TEST_F(SelectionTest, TakesNoObjectOfAnotherClass) {
    Pointer<Person> ann(model.newPerson("Ann"));
    Pointer<Company> firm(model.newCompany("Firm"));
    model.commit();
    Selection people(model.personClass);
    people.where(people("Works") == ann);

    const std::string said = messageRaisedBy([&] { people.next(); });

    EXPECT_NE(std::string::npos, said.find("its partners are Company objects")) << said;
    Selection firms(model.companyClass);
    firms.where(firms("Works") == firm);
    EXPECT_RAISES("SELERR", firms.next());
}

// A model that is closed empties the pointers to its objects.
TEST_F(SelectionTest, TakesNoObjectThatIsGoneForNone) {
    model.newPerson("Ann");
    model.commit();
    const Selection all(model.personClass);
    Pointer<Company> firm(model.newCompany("Firm"));
    Pointer<Person> bob(model.newPerson("Bob"));
    model.commit();
    Selection plain(model.personClass);
    plain.where(all("Works") == firm);
    Selection copied(model.personClass);
    copied.where((all("Works") == firm) & (all["age"] == 0));
    Selection nested(model.companyClass);
    nested.where(nested("Works") == bob);
    Selection outer(model.personClass);
    outer.where(all("Works") == nested);
    Selection none(model.personClass);
    none.where(all("Works") == nullptr);

    model.close();
    model.openWith();

    for (Selection* each : {&plain, &copied, &outer})
        EXPECT_NE(std::string::npos,
                  messageRaisedBy([&] { each->next(); }).find("gone since its model was closed"));
    EXPECT_FALSE(none.next());
    model.newPerson("Cid");
    model.commit();
    Selection later(model.personClass);
    later.where(all("Works") == nullptr);
    EXPECT_TRUE(later.next());
}

TEST(OrphanedSelectionTest, EndsWithAnErrorBehindItsModel) {
    auto model = std::make_unique<StaffModel>();
    model->openWith();
    model->newPerson("Ann");
    model->newPerson("Bob");
    model->commit();
    SelectionOf<Person> fresh(model->personClass), begun(model->personClass);
    SelectionOf<Person> ended(model->personClass);
    fresh.where(fresh["age"] == 0);
    begun.next();
    while (ended.next())
        continue;

    model.reset();

    EXPECT_RAISES("SELERR", fresh.next());
    EXPECT_FALSE(fresh.next());
    EXPECT_RAISES("SELERR", begun.next());
    EXPECT_FALSE(begun.next());
    EXPECT_FALSE(ended.next());
    EXPECT_EQ(nullptr, begun.value());
    EXPECT_EQ(nullptr, begun("Works").getAssociation());
}

TEST(OrphanedSelectionTest, IsNotCounted) {
    auto model = std::make_unique<StaffModel>();
    model->openWith();
    Selection people(model->personClass);

    model.reset();

    EXPECT_RAISES("SELERR", people.count());
}

TEST(OrphanedSelectionTest, IsRefusedByAQueryThatNestsIt) {
    auto model = std::make_unique<StaffModel>();
    model->openWith();
    StaffModel other;
    other.openWith();
    Selection inner(model->personClass), later(model->personClass);
    inner.where(inner["age"] == 0);
    later.where(later["age"] == 0);
    Selection outer(other.companyClass), another(other.companyClass);
    outer.where(outer("Works") == inner);

    model.reset();
    another.where(another("Works") == later);

    for (Selection* each : {&outer, &another}) {
        const std::string said = messageRaisedBy([&] { each->next(); });
        EXPECT_NE(std::string::npos, said.find("its model was destroyed")) << said;
    }
}

TEST_F(SelectionTest, IsCalledTInQueries) {
    const Selection people(model.personClass);

    EXPECT_EQ("t", people.getAlias());
    EXPECT_EQ(model.personClass, people.getClass());
}

TEST_F(SelectionTest, FindsTheRoleOfItsClass) {
    const Selection people(model.personClass);
    const Selection firms(model.companyClass);

    EXPECT_EQ("employer", people("Works").getRole());
    EXPECT_EQ("staff", firms("Works").getRole());
    EXPECT_EQ("friends", people("Friendship", "friends").getRole());
}

TEST_F(SelectionTest, WantsTheRoleInAnAssociationOfAClassWithItself) {
    const Selection people(model.personClass);

    EXPECT_RAISES("SELFAIL", people("Friendship"));
    EXPECT_EQ("Please specify Role in recursive association condition",
              messageRaisedBy([&] { people("Friendship"); }));
}

TEST_F(SelectionTest, ReportsAQueryThatTheDriverRefuses) {
    recording.failAt(1, "defineSelection");
    Selection people(model.personClass);

    EXPECT_RAISES("SELERR", people.next());
    EXPECT_FALSE(people.next());
}

TEST_F(SelectionTest, ReportsACursorThatTheDriverRefuses) {
    storeVehicle(model.carClass, "car", 1);
    model.commit();
    recording.failAt(2, "fetch");
    Selection vehicles(model.vehicleClass);

    EXPECT_RAISES("SELERR", vehicles.next());
    EXPECT_FALSE(vehicles.next());
}

TEST_F(SelectionTest, DeliversNoPartOfARefusedQuery) {
    storeVehicle(model.carClass, "c1", 1);
    storeVehicle(model.carClass, "c2", 2);
    model.commit();
    recording.failAt(2, "fetch");
    recording.throwInsteadOfFailing(true);
    Selection vehicles(model.vehicleClass);
    EXPECT_THROW(vehicles.next(), std::runtime_error);
    recording.reset();

    EXPECT_FALSE(vehicles.next());
    EXPECT_EQ(nullptr, vehicles.value());
}

TEST_F(SelectionTest, EndsWhenACursorThrowsOnTheWay) {
    storeVehicle(model.carClass, "c1", 1);
    storeVehicle(model.carClass, "c2", 2);
    model.commit();
    Selection vehicles(model.vehicleClass);
    ASSERT_TRUE(vehicles.next());
    Instance* delivered = vehicles.value();
    recording.failAt(1, "cursor.next");
    recording.throwInsteadOfFailing(true);
    EXPECT_THROW(vehicles.next(), std::runtime_error);
    recording.reset();

    EXPECT_FALSE(vehicles.next());
    EXPECT_EQ(delivered, vehicles.value());
}

TEST_F(SelectionTest, ReportsARowWithoutAnInstance) {
    model.newPerson("Ann");
    model.commit();
    recording.failAt(1, "cursor.getInstance");
    Selection people(model.personClass);

    EXPECT_RAISES("SELERR", people.next());
    EXPECT_FALSE(people.next());
}

TEST_F(SelectionTest, ReportsAHeadWithoutAnInstance) {
    storeVehicle(model.carClass, "car", 2);
    storeVehicle(model.boatClass, "boat", 1);
    model.commit();
    recording.failAt(2, "cursor.getInstance", true);
    Selection vehicles(model.vehicleClass);
    vehicles.orderBy(vehicles["year"]);

    EXPECT_RAISES("SELERR", vehicles.next());
    EXPECT_FALSE(vehicles.next());
}

TEST_F(SelectionTest, DoesNotAskAHeadTwiceForItsInstance) {
    storeVehicle(model.carClass, "car", 2);
    storeVehicle(model.boatClass, "boat", 1);
    model.commit();
    recording.failAt(1, "cursor.getInstance");
    Selection vehicles(model.vehicleClass);
    vehicles.orderBy(vehicles["year"]);

    EXPECT_RAISES("SELERR", vehicles.next());
    EXPECT_FALSE(vehicles.next());
}

TEST_F(SelectionTest, EndsWhenTheHandlerReturns) {
    const ReturningHandler handler;
    recording.failAt(1, "defineSelection");
    Selection people(model.personClass);

    EXPECT_FALSE(people.next());
    EXPECT_EQ(std::vector<std::string>{"SELERR"}, handler.codes());
}

TEST_F(SelectionTest, ReportsAModelThatIsNotOpen) {
    model.close();
    Selection people(model.personClass);

    EXPECT_RAISES("SELERR", people.next());
}

TEST_F(SelectionTest, ReportsAnAbsentClass) {
    Selection nothing(nullptr);

    EXPECT_RAISES("SELERR", nothing.next());
}

TEST_F(SelectionTest, MayBeGivenUpInTheMiddle) {
    model.newPerson("Ann");
    model.newPerson("Bob");
    model.commit();
    {
        Selection people(model.personClass);
        EXPECT_TRUE(people.next());
    }

    EXPECT_NE(nullptr, model.findPerson("Bob"));
}

namespace {

/// One endless row for each class; notes what is deleted, and what is asked.
class NotingDriver final : public QuietDriver {
public:
    explicit NotingDriver(std::vector<std::string>& notes) : log(notes) {}

    SelectionDefinition* defineSelection(AssociatedClass* associatedClass) override {
        asked = associatedClass;
        log.push_back("define");
        return new Definition(log);
    }
    DBDriverSelection* fetch(Class* cls, SelectionDefinition* definition) override {
        EXPECT_NE(nullptr, dynamic_cast<Definition*>(definition));
        log.push_back(std::string("fetch ") + static_cast<const char*>(cls->getName()));
        rows.emplace_back(cls->getDummy());
        return new Cursor(log, rows.back().get());
    }

    AssociatedClass* asked = nullptr;

private:
    class Definition final : public SelectionDefinition {
    public:
        explicit Definition(std::vector<std::string>& notes) : log(notes) {}
        ~Definition() override { log.push_back("delete definition"); }

    private:
        std::vector<std::string>& log;
    };
    class Cursor final : public DBDriverSelection {
    public:
        Cursor(std::vector<std::string>& notes, Instance* itsRow) : log(notes), row(itsRow) {}
        ~Cursor() override {
            log.push_back(std::string("delete cursor ") +
                          static_cast<const char*>(row->getClass()->getName()));
        }
        bool next() override {
            log.push_back("next");
            return true;
        }
        Instance* getInstance() override { return row; }

    private:
        std::vector<std::string>& log;
        Instance* row;
    };

    std::vector<std::string>& log;
    std::vector<std::unique_ptr<Instance>> rows;
};

}  // namespace

TEST(SelectionLifeTest, OpensTheCursorsInOrderAndDeletesTheDefinitionFirst) {
    std::vector<std::string> log;
    DrivenModel<StaffModel> model;
    model.openWithDriver(new NotingDriver(log));
    {
        Selection vehicles(model.vehicleClass);
        EXPECT_TRUE(log.empty());
        ASSERT_TRUE(vehicles.next());
    }

    EXPECT_EQ(
        (std::vector<std::string>{"define", "fetch Car", "next", "fetch Boat", "next",
                                  "delete definition", "delete cursor Car", "delete cursor Boat"}),
        log);
}

TEST(SelectionLifeTest, TellsTheDriverWhatItSelects) {
    std::vector<std::string> log;
    DrivenModel<StaffModel> model;
    auto* driver = new NotingDriver(log);
    model.openWithDriver(driver);
    Selection people(model.personClass);
    people.where(people["age"] == 1);
    people.orderBy(people["name"], false);
    const Condition* condition = people.getCondition();
    ASSERT_TRUE(people.next());

    EXPECT_EQ(model.personClass, driver->asked->getClass());
    EXPECT_STREQ("t", driver->asked->getAlias());
    EXPECT_EQ(condition, driver->asked->getCondition());
    ASSERT_EQ(1, driver->asked->getSortOrders().size());
    EXPECT_FALSE(driver->asked->getSortOrders()[0]->isAscending());
}

TEST_F(SelectionTest, FindsNothingBelowAnAbstractClassWithoutSubClasses) {
    model.carClass->setAbstract(true);
    model.boatClass->setAbstract(true);
    Selection vehicles(model.vehicleClass);

    EXPECT_FALSE(vehicles.next());
}

// A hierarchy with a boolean field.
class Flagged : public Instance {
public:
    explicit Flagged(Class* c) : Instance(c) {}
    void handle(Handler* h) override {
        Instance::handle(h);
        h->handleBool("flag", flag);
    }

    bool flag = false;
};

class FlaggedModel : public Model {
public:
    FlaggedModel() : Model("flags", 10) {}

    Class* base = nullptr;
    Class* sub = nullptr;

protected:
    void declareModel() override {
        const auto make = [](Class* c) -> Instance* { return new Flagged(c); };
        setVersion(1);
        base = addClass("Base", 1, make);
        sub = addClass("Sub", 1, make);
        sub->subclassOf(base);
    }
};

TEST(SelectionOrderTest, RefusesToMergeByABoolean) {
    FlaggedModel model;
    model.open("sqlite", ":memory:", "", "", "");
    model.base->newInstance();
    model.sub->newInstance();
    model.commit();
    Selection both(model.base);
    both.orderBy(both["flag"]);
    Selection one(model.sub);
    one.orderBy(one["flag"]);

    EXPECT_RAISES("SORTFAIL", both.next());
    EXPECT_TRUE(one.next());
}

}  // namespace Kes::testing
