#include <memory>
#include <stdexcept>
#include <type_traits>

#include <gtest/gtest.h>

#include "tests/object/NotingListener.h"
#include "tests/support/Raises.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

namespace {

/// Lets tests fire what only the library fires otherwise.
class OpenClass : public Class {
public:
    explicit OpenClass(const char* called) : Class(called, 1, nullptr, nullptr) {}
    using Class::fireInstanceAdded;
    using Class::fireInstanceRemoved;
};

/// Vehicle (abstract) with Car, which has Van, and Boat.
struct Vehicles {
    Vehicles() {
        vehicle.setAbstract(true);
        car.subclassOf(&vehicle);
        boat.subclassOf(&vehicle);
        van.subclassOf(&car);
    }

    OpenClass vehicle{"Vehicle"};
    OpenClass car{"Car"};
    OpenClass boat{"Boat"};
    OpenClass van{"Van"};
};

std::vector<std::string> namesOf(const PtrList<Class>& classes) {
    std::vector<std::string> names;
    for (const Class* each : classes)
        names.emplace_back(static_cast<const char*>(each->getName()));
    return names;
}

using Names = std::vector<std::string>;

static_assert(std::has_virtual_destructor_v<Class>);
static_assert(!std::is_polymorphic_v<Attribute>);
static_assert(!std::is_polymorphic_v<Index>);

/// Does to itself, while it is added, what the test wants.
class Eager : public Instance {
public:
    explicit Eager(Class* c) : Instance(c) { ++alive; }
    ~Eager() override { --alive; }
    void add() override {
        Instance::add();
        then();
    }

    static inline void (*then)() = nullptr;
    static inline int alive = 0;
};

class EagerModel : public Model {
public:
    EagerModel() : Model("eager", 100) {
        myModel = this;
        open("sqlite", ":memory:", "", "", "");
    }

    Class* eagerClass = nullptr;
    static inline EagerModel* myModel = nullptr;

protected:
    void declareModel() override {
        setVersion(1);
        eagerClass = addClass("Eager", 1, [](Class* c) -> Instance* { return new Eager(c); });
    }
};

}  // namespace

TEST(ClassTest, StartsConcreteAndAlone) {
    const Class fresh("Car", 3, nullptr, nullptr);

    EXPECT_STREQ("Car", fresh.getName());
    EXPECT_EQ(3, fresh.getVersion());
    EXPECT_EQ(nullptr, fresh.getModel());
    EXPECT_FALSE(fresh.isAbstract());
    EXPECT_EQ(nullptr, fresh.getSuperClass());
    EXPECT_EQ(0, fresh.getSubClasses().size());
    EXPECT_EQ(0, fresh.getAssociations().size());
    EXPECT_EQ(0, fresh.getIndices().size());
}

TEST(ClassTest, IsAItself) {
    const Vehicles v;
    EXPECT_TRUE(v.car.isA(&v.car));
}

TEST(ClassTest, IsAEveryAncestor) {
    const Vehicles v;
    EXPECT_TRUE(v.van.isA(&v.car));
    EXPECT_TRUE(v.van.isA(&v.vehicle));
}

TEST(ClassTest, IsNoDescendantAndNoSibling) {
    const Vehicles v;
    EXPECT_FALSE(v.car.isA(&v.van));
    EXPECT_FALSE(v.car.isA(&v.boat));
}

TEST(ClassTest, IsANull) {
    const Vehicles v;
    EXPECT_TRUE(v.vehicle.isA(nullptr));
    EXPECT_TRUE(v.van.isA(nullptr));
}

TEST(ClassTest, ListsItsConcreteClassesDepthFirst) {
    const Vehicles v;
    EXPECT_EQ((Names{"Car", "Van", "Boat"}), namesOf(v.vehicle.getConcreteClasses()));
}

TEST(ClassTest, ListsItselfFirstWhenConcrete) {
    const Vehicles v;
    EXPECT_EQ((Names{"Car", "Van"}), namesOf(v.car.getConcreteClasses()));
}

TEST(ClassTest, ListsNothingWhenAbstractAndWithoutSubClasses) {
    OpenClass shape("Shape");
    shape.setAbstract(true);
    EXPECT_EQ(0, shape.getConcreteClasses().size());
}

TEST(ClassTest, EntersASubClassOncePerDeclaration) {
    OpenClass base("Base"), derived("Derived");
    derived.subclassOf(&base);
    derived.subclassOf(&base);
    EXPECT_EQ((Names{"Derived", "Derived"}), namesOf(base.getSubClasses()));
}

TEST(ClassTest, BelongsToTheSuperClassThatWasNamedLast) {
    OpenClass first("First"), second("Second"), derived("Derived");
    derived.subclassOf(&first);
    derived.subclassOf(&second);

    EXPECT_EQ(&second, derived.getSuperClass());
    EXPECT_FALSE(derived.isA(&first));
    EXPECT_EQ(Names{"Derived"}, namesOf(first.getSubClasses()));
    EXPECT_EQ(Names{"Derived"}, namesOf(second.getSubClasses()));
}

TEST(ClassTest, CopiesEveryMember) {
    StaffModel model;
    const auto factory = [](Class* c) -> Instance* { return new Instance(c); };
    Class base("Base", 1, &model, nullptr);
    Class original("Car", 7, &model, factory);
    original.setAbstract(true);
    original.subclassOf(&base);
    Class below("Van", 1, &model, nullptr);
    below.subclassOf(&original);
    Association as("As", &original, "a", Association::One, Association::Unlink);
    original.addAssociation(&as);
    original.addIndex("name", false);

    Class constructed(original);
    Class assigned("Other", 1, nullptr, nullptr);
    assigned = original;

    for (Class* copy : {&constructed, &assigned}) {
        EXPECT_STREQ("Car", copy->getName());
        EXPECT_EQ(7, copy->getVersion());
        EXPECT_EQ(&model, copy->getModel());
        EXPECT_TRUE(copy->isAbstract());
        EXPECT_EQ(&base, copy->getSuperClass());
        EXPECT_EQ(Names{"Van"}, namesOf(copy->getSubClasses()));
        ASSERT_EQ(1, copy->getAssociations().size());
        EXPECT_EQ(&as, copy->getAssociations()[0]);
        EXPECT_EQ(0, copy->getIndices().find(Index("name", false)));
        EXPECT_NE(nullptr, std::unique_ptr<Instance>(copy->getDummy()));
    }
    EXPECT_EQ(Names{"Car"}, namesOf(base.getSubClasses()));
}

TEST(ClassTest, KeepsIndexesInOrderWithDuplicates) {
    OpenClass car("Car");
    car.addIndex("name,year", true);
    car.addIndex("no such field", false);
    car.addIndex("name,year", true);

    ASSERT_EQ(3, car.getIndices().size());
    EXPECT_STREQ("name,year", car.getIndices()[0].getFields());
    EXPECT_TRUE(car.getIndices()[0].isUnique());
    EXPECT_FALSE(car.getIndices()[1].isUnique());
    EXPECT_EQ(1, car.getIndices().find(Index("no such field", false)));
}

TEST(ClassTest, KeepsAssociationsInOrderWithDuplicates) {
    OpenClass car("Car");
    Association first("First", &car, "a", Association::One, Association::Unlink);
    Association second("Second", &car, "b", Association::One, Association::Unlink);
    car.addAssociation(&second);
    car.addAssociation(&first);
    car.addAssociation(&second);

    ASSERT_EQ(3, car.getAssociations().size());
    EXPECT_EQ(&second, car.getAssociations()[0]);
    EXPECT_EQ(&first, car.getAssociations()[1]);
    EXPECT_EQ(&second, car.getAssociations()[2]);
}

TEST(ClassTest, SharesItsListenersWithACopy) {
    NotingListener::Log log;
    NotingListener listener(log);
    OpenClass original("Car");
    original.addListener(&listener);
    OpenClass copy(original);
    Instance instance(&copy);

    copy.fireInstanceAdded(&instance);
    copy = OpenClass("Gone");  // so that one of the two frees the list

    EXPECT_EQ((NotingListener::Log{"added Car 0"}), log);
}

TEST(ClassTest, MakesABareDummy) {
    StaffModel model;
    model.openWith();
    const std::unique_ptr<Instance> dummy(model.personClass->getDummy());

    EXPECT_EQ(0UL, dummy->getObjectID());
    EXPECT_FALSE(dummy->inTransaction());
    EXPECT_FALSE(static_cast<Person*>(dummy.get())->employer.isFetched());
}

TEST(ClassTest, MakesNewInstancesThatAreAddedAndFetched) {
    StaffModel model;
    model.openWith();
    model.startTransaction();
    auto* ann = static_cast<Person*>(model.personClass->newInstance());

    EXPECT_NE(0UL, ann->getObjectID());
    EXPECT_TRUE(ann->inTransaction());
    EXPECT_TRUE(ann->employer.isFetched());
    EXPECT_TRUE(ann->friends.isFetched());
    EXPECT_EQ(ann, model.get(ann->getObjectID()));
}

TEST(ClassTest, KeepsANewInstanceThroughACollectionWhileItIsAdded) {
    EagerModel model;
    Eager::then = [] {
        EagerModel::myModel->commit();
        EagerModel::myModel->garbageCollect();
    };

    Instance* fresh = model.eagerClass->newInstance();

    EXPECT_EQ(1, Eager::alive);
    EXPECT_EQ(fresh, model.get(fresh->getObjectID()));
    model.garbageCollect();
    EXPECT_EQ(0, Eager::alive);
}

TEST(ClassTest, PassesOnWhatANewInstanceThrowsWhileItIsAdded) {
    EagerModel model;
    Eager::then = [] { throw std::runtime_error("not today"); };

    EXPECT_THROW(model.eagerClass->newInstance(), std::runtime_error);

    // It has its id by then and belongs to the model.
    EXPECT_EQ(1, Eager::alive);
    model.rollback();
    model.garbageCollect();
    EXPECT_EQ(0, Eager::alive);
}

TEST(ClassTest, FreesANewInstanceThatCannotBeAdded) {
    EagerModel model;
    model.eagerClass->setAbstract(true);

    EXPECT_RAISES("INSTERR", model.eagerClass->newInstance());

    EXPECT_EQ(0, Eager::alive);
}

TEST(ClassTest, HandsANewInstanceThatCannotBeAddedToTheCallerWhenTheHandlerReturns) {
    EagerModel model;
    model.eagerClass->setAbstract(true);
    Eager::then = [] {};
    const ReturningHandler handler;

    const std::unique_ptr<Instance> bare(model.eagerClass->newInstance());

    EXPECT_EQ(std::vector<std::string>{"INSTERR"}, handler.codes());
    ASSERT_NE(nullptr, bare);
    EXPECT_EQ(0UL, bare->getObjectID());
    EXPECT_FALSE(bare->inTransaction());
    model.garbageCollect();
    EXPECT_EQ(1, Eager::alive);
}

TEST(AttributeTest, DeletesItselfAndNothingForNull) {
    Attribute::deleteThis(nullptr);
    Attribute::deleteThis(new Attribute(nullptr, "a"));
    (new Attribute(nullptr, "b"))->deleteThis();
}

TEST(AttributeTest, StartsWithoutNameAndClass) {
    const Attribute attribute;
    EXPECT_STREQ("", attribute.getName());
    EXPECT_EQ(nullptr, attribute.getClass());
}

TEST(AttributeTest, KnowsItsClassAndName) {
    OpenClass car("Car");
    const Attribute attribute(&car, "doors");
    const Attribute copy(attribute);
    EXPECT_STREQ("doors", copy.getName());
    EXPECT_EQ(&car, copy.getClass());
}

TEST(IndexTest, IsUniqueAndEmptyByDefault) {
    const Index index;
    EXPECT_STREQ("", index.getFields());
    EXPECT_TRUE(index.isUnique());
}

TEST(IndexTest, IsCopiedAndAssigned) {
    const Index original("a,b", false);
    const Index copy(original);
    Index assigned;
    assigned = original;

    EXPECT_TRUE(copy == original);
    EXPECT_TRUE(assigned == original);
    EXPECT_STREQ("a,b", assigned.getFields());
    EXPECT_FALSE(assigned.isUnique());
}

TEST(IndexTest, EqualsByFieldsAndUniqueness) {
    EXPECT_TRUE(Index("a,b", true) == Index("a,b", true));
    EXPECT_TRUE(Index("a,b", true) != Index("a,b", false));
    EXPECT_TRUE(Index("a,b", true) != Index("b,a", true));
    EXPECT_FALSE(Index("a,b", true) != Index("a,b", true));
}

}  // namespace Kes::testing
