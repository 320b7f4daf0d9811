#include <memory>

#include <gtest/gtest.h>

#include "tests/object/NotingListener.h"
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

TEST(IndexTest, EqualsByFieldsAndUniqueness) {
    EXPECT_TRUE(Index("a,b", true) == Index("a,b", true));
    EXPECT_TRUE(Index("a,b", true) != Index("a,b", false));
    EXPECT_TRUE(Index("a,b", true) != Index("b,a", true));
    EXPECT_FALSE(Index("a,b", true) != Index("a,b", true));
}

}  // namespace Kes::testing
