#include <gtest/gtest.h>

#include <memory>
#include <type_traits>

#include "tests/support/StaffModel.h"

namespace Kes::testing {

class PointerTest : public ::testing::Test {
protected:
    PointerTest() { model.openWith(); }

    /// Stored, and kept by nobody.
    Person* stored(StaffModel& in, const char* name) {
        in.startTransaction();
        Person* person = in.newPerson(name);
        in.commit();
        return person;
    }
    bool survives(unsigned long id) {
        model.garbageCollect();
        return model.get(id) != nullptr;
    }

    StaffModel model;
};

namespace {

static_assert(std::is_abstract_v<PointerBase> && std::has_virtual_destructor_v<PointerBase>);

/// Registered by hand, it tells what has become of another pointer when its own
/// turn comes.
class Watch final : public PointerBase {
public:
    explicit Watch(const Pointer<Instance>& other) : watched(other) {}
    void makeNull() override { sawIt = watched.getInstance(); }
    Instance* getInstance() const override {
        ++asked;
        return kept;
    }

    const Pointer<Instance>& watched;
    Instance* kept = nullptr;
    Instance* sawIt = nullptr;
    mutable int asked = 0;
};

}  // namespace

TEST_F(PointerTest, IsEmptyAtFirst) {
    const Pointer<Instance> empty;
    EXPECT_EQ(nullptr, empty.getInstance());
    EXPECT_TRUE(empty == nullptr);
    EXPECT_FALSE(empty != nullptr);
    EXPECT_EQ(nullptr, static_cast<Instance*>(empty));
    EXPECT_EQ(nullptr, empty.operator->());
}

TEST_F(PointerTest, ComparesWithAddresses) {
    Instance* ann = stored(model, "Ann");
    const Pointer<Instance> pointer(ann);
    EXPECT_TRUE(pointer == ann);
    EXPECT_FALSE(pointer != ann);
    EXPECT_TRUE(pointer != nullptr);
    EXPECT_EQ(ann, pointer.getInstance());
    EXPECT_EQ(ann, pointer.operator->());
}

TEST_F(PointerTest, KeepsItsInstanceUntilItIsDestroyed) {
    Person* ann = stored(model, "Ann");
    const unsigned long id = ann->getObjectID();
    auto pointer = std::make_unique<Pointer<Instance>>(ann);
    EXPECT_TRUE(survives(id));
    pointer.reset();
    EXPECT_FALSE(survives(id));
}

TEST_F(PointerTest, LetsGoWhenItIsMadeNull) {
    Person* ann = stored(model, "Ann");
    const unsigned long id = ann->getObjectID();
    Pointer<Instance> pointer(ann);
    pointer.makeNull();
    pointer.makeNull();
    EXPECT_TRUE(pointer == nullptr);
    EXPECT_FALSE(survives(id));
}

TEST_F(PointerTest, LetsGoWhenNullIsAssigned) {
    Person* ann = stored(model, "Ann");
    const unsigned long id = ann->getObjectID();
    Pointer<Instance> pointer(ann);
    pointer = static_cast<Instance*>(nullptr);
    pointer = static_cast<Instance*>(nullptr);
    EXPECT_FALSE(survives(id));
}

TEST_F(PointerTest, KeepsTheNewInstanceInsteadOfTheOld) {
    Person* ann = stored(model, "Ann");
    Pointer<Instance> pointer(ann);
    Person* bob = stored(model, "Bob");
    const unsigned long annId = ann->getObjectID(), bobId = bob->getObjectID();
    pointer = bob;
    EXPECT_TRUE(survives(bobId));
    EXPECT_EQ(nullptr, model.get(annId));
}

TEST_F(PointerTest, KeepsForItselfWhenCopied) {
    Person* ann = stored(model, "Ann");
    const unsigned long id = ann->getObjectID();
    auto first = std::make_unique<Pointer<Instance>>(ann);
    const Pointer<Instance> copy(*first);
    Pointer<Instance> assigned;
    assigned = *first;
    first.reset();
    EXPECT_TRUE(survives(id));
    EXPECT_TRUE(assigned == copy.getInstance());
}

TEST_F(PointerTest, StaysAsItIsWhenAssignedToItself) {
    Person* ann = stored(model, "Ann");
    Pointer<Instance> pointer(ann);
    const Pointer<Instance>& same = pointer;
    pointer = same;
    EXPECT_TRUE(pointer == ann);
    EXPECT_TRUE(survives(ann->getObjectID()));
}

TEST_F(PointerTest, MovesItsRegistrationToAnotherModel) {
    StaffModel other;
    other.openWith();
    Person* bob = stored(other, "Bob");
    Pointer<Instance> pointer(stored(model, "Ann"));
    pointer = bob;

    model.close();
    EXPECT_TRUE(pointer == bob);
    other.close();
    EXPECT_TRUE(pointer == nullptr);
}

TEST_F(PointerTest, KeepsItsRegistrationWithinAModel) {
    Instance* ann = stored(model, "Ann");
    Pointer<Instance> pointer(ann);
    Watch later(pointer);
    model.addPointer(&later);
    pointer = stored(model, "Bob");

    model.close();

    // Emptied ahead of the one that was registered after it.
    EXPECT_EQ(nullptr, later.sawIt);
}

TEST_F(PointerTest, RegistersAnewAfterItWasEmpty) {
    Pointer<Instance> pointer(stored(model, "Ann"));
    const Pointer<Instance> keep(pointer);
    Watch earlier(pointer);
    model.addPointer(&earlier);
    Instance* ann = pointer;
    pointer = static_cast<Instance*>(nullptr);
    pointer = ann;

    model.close();

    EXPECT_EQ(ann, earlier.sawIt);
}

TEST_F(PointerTest, IsAskedForItsInstanceByACollection) {
    Person* ann = stored(model, "Ann");
    const unsigned long id = ann->getObjectID();
    const Pointer<Instance> none;
    Watch foreign(none);
    foreign.kept = ann;
    model.addPointer(&foreign);

    EXPECT_TRUE(survives(id));
    EXPECT_EQ(1, foreign.asked);

    model.removePointer(&foreign);
    EXPECT_FALSE(survives(id));
    EXPECT_EQ(1, foreign.asked);
}

TEST_F(PointerTest, IsEmptiedWhenItsModelCloses) {
    Pointer<Instance> first(stored(model, "Ann"));
    const Pointer<Instance> second(first);
    model.close();
    EXPECT_TRUE(first == nullptr);
    EXPECT_TRUE(second == nullptr);
}

}  // namespace Kes::testing
