#include <gtest/gtest.h>

#include <iostream>
#include <limits>
#include <sstream>
#include <string>
#include <type_traits>
#include <vector>

#include "tests/object/NotingListener.h"
#include "tests/support/StaffModel.h"

namespace Kes::testing {

namespace {

/// Takes what std::cout is given, for the life of a scope.
class Captured {
public:
    Captured() : before(std::cout.rdbuf(text.rdbuf())) {}
    Captured(const Captured&) = delete;
    Captured& operator=(const Captured&) = delete;
    ~Captured() { std::cout.rdbuf(before); }

    std::string get() const { return text.str(); }

private:
    std::ostringstream text;
    std::streambuf* before;
};

/// One field of every kind.
class Everything : public Instance {
public:
    explicit Everything(Class* c) : Instance(c) {}

    void handle(Handler* h) override {
        Instance::handle(h);
        h->handleULong("ulong", unsignedLong);
        h->handleLong("long", signedLong);
        h->handleString("string", text, 2);
        h->handleInt("int", number);
        h->handleUInt("uint", unsignedNumber);
        h->handleBool("yes", yes);
        h->handleBool("no", no);
        h->handleFloat("float", single);
        h->handleDouble("double", real);
        h->handleTimestamp("timestamp", moment);
        h->handleBlob("blob", bytes);
        h->handleOneAssociated("A", "one", &oneReference, Association::CascadeRemove);
        h->handleManyAssociated("A", "many", &manyReference);
    }

    unsigned long unsignedLong = 4000000000UL;
    long signedLong = -5;
    String text = "longer than two";
    int number = -6;
    unsigned int unsignedNumber = 7;
    bool yes = true;
    bool no = false;
    float single = 1.5F;
    double real = 1234567.0;
    Timestamp moment{2024, 2, 29, 13, 5, 9};
    Blob bytes{"abc", 3};
    One<Instance> oneReference{this};
    Many<Instance> manyReference{this};
};

/// Notes the unsigned fields in the order in which they are reported.
class Reserved : public EmptyHandler {
public:
    void handleULong(const String& field, unsigned long& value) override {
        seen.push_back(static_cast<const char*>(field) + ("=" + std::to_string(value)));
    }

    std::vector<std::string> seen;
};

}  // namespace

static_assert(std::has_virtual_destructor_v<Instance>);
static_assert(std::is_abstract_v<Handler> && std::has_virtual_destructor_v<Handler>);
static_assert(std::is_copy_constructible_v<InspectHandler>);
static_assert(std::is_copy_assignable_v<InspectHandler>);
static_assert(std::is_copy_constructible_v<InitAssocHandler>);
static_assert(std::is_copy_assignable_v<InitAssocHandler>);

class InstanceTest : public ::testing::Test {
protected:
    Class thing{"Thing", 1, nullptr, nullptr};
    Instance instance{&thing};
};

TEST_F(InstanceTest, StartsWithNothingSet) {
    EXPECT_EQ(&thing, instance.getClass());
    EXPECT_EQ(0UL, instance.getObjectID());
    EXPECT_EQ(0UL, instance.getVersion());
    EXPECT_FALSE(instance.isRemoved());
    EXPECT_FALSE(instance.isVisited());
    EXPECT_FALSE(instance.inTransaction());
}

TEST_F(InstanceTest, ReportsItsTwoReservedFieldsInOrder) {
    Reserved handler;
    instance.handle(&handler);
    EXPECT_EQ((std::vector<std::string>{"KesObjectID=0", "KesVersion=0"}), handler.seen);
}

TEST_F(InstanceTest, CountsItsVersionUpAndDown) {
    instance.nextVersion();
    EXPECT_EQ(1UL, instance.getVersion());
    instance.previousVersion();
    EXPECT_EQ(0UL, instance.getVersion());
}

TEST_F(InstanceTest, WrapsTheVersionBelowZero) {
    instance.previousVersion();
    EXPECT_EQ(std::numeric_limits<unsigned long>::max(), instance.getVersion());
}

TEST_F(InstanceTest, SetsAndClearsEachFlagAlone) {
    for (int set = 0; set < 8; ++set) {
        instance.setRemoved((set & 1) != 0);
        instance.setVisited((set & 2) != 0);
        instance.setInTransaction((set & 4) != 0);
        EXPECT_EQ((set & 1) != 0, instance.isRemoved());
        EXPECT_EQ((set & 2) != 0, instance.isVisited());
        EXPECT_EQ((set & 4) != 0, instance.inTransaction());
    }
}

TEST_F(InstanceTest, KeepsTheOtherFlagsWhenOneIsCleared) {
    instance.setRemoved(true);
    instance.setInTransaction(true);
    instance.setVisited(false);
    EXPECT_TRUE(instance.isRemoved());
    EXPECT_TRUE(instance.inTransaction());
}

TEST_F(InstanceTest, EqualsItselfOnly) {
    const Instance copy(instance);
    EXPECT_TRUE(instance == instance);
    EXPECT_FALSE(instance == copy);
}

TEST_F(InstanceTest, CopiesEveryMemberAndSharesItsListeners) {
    NotingListener::Log log;
    NotingListener listener(log);
    instance.setObjectID(4);
    instance.nextVersion();
    instance.setVisited(true);
    instance.addListener(&listener);
    Instance constructed(instance);
    Instance assigned(nullptr);
    assigned = instance;

    for (Instance* copy : {&constructed, &assigned}) {
        EXPECT_EQ(&thing, copy->getClass());
        EXPECT_EQ(4UL, copy->getObjectID());
        EXPECT_EQ(1UL, copy->getVersion());
        EXPECT_TRUE(copy->isVisited());
        EXPECT_FALSE(copy->isRemoved());
        thing.fireInstanceChanged(copy);
    }
    EXPECT_EQ(2U, log.size());

    // One of the three frees the list.
    constructed = Instance(&thing);
    assigned = Instance(&thing);
}

TEST_F(InstanceTest, ReportsWhatWasSetThroughAHandler) {
    class Writer final : public EmptyHandler {
    public:
        void handleULong(const String& field, unsigned long& value) override {
            value = field == "KesObjectID" ? 12 : 34;
        }
    } writer;
    instance.handle(&writer);
    EXPECT_EQ(12UL, instance.getObjectID());
    EXPECT_EQ(34UL, instance.getVersion());
}

TEST_F(InstanceTest, DoesNotReachTheModelWhenItIsRemovedAgain) {
    instance.setRemoved(true);
    instance.remove();  // the class has no model to reach
    EXPECT_TRUE(instance.isRemoved());
    EXPECT_EQ(0UL, instance.getVersion());
}

TEST_F(InstanceTest, IsInTheModelOfItsClass) {
    StaffModel here, there;
    Class a("A", 1, &here, nullptr), b("B", 1, &here, nullptr), c("C", 1, &there, nullptr);
    Instance first(&a), second(&b), stranger(&c);
    EXPECT_TRUE(first.inSameModel(&second));
    EXPECT_FALSE(first.inSameModel(&stranger));
}

TEST_F(InstanceTest, PassesItsOperationsToItsModel) {
    StaffModel model;
    model.openWith();
    auto* ann = new Person(model.personClass);
    model.startTransaction();
    ann->add();
    EXPECT_NE(0UL, ann->getObjectID());
    const Pointer<Person> keep(ann);
    model.commit();
    ann->change();
    ann->age = 4;
    model.commit();
    EXPECT_EQ(1UL, ann->getVersion());
    ann->refresh();
    EXPECT_EQ(4, ann->age);
    ann->lock();
    ann->remove();
    EXPECT_TRUE(ann->isRemoved());
    model.commit();
    EXPECT_EQ(nullptr, model.findPerson(""));
}

// Two of the long month names are spelled in a way of their own.
TEST(InspectHandlerTest, WritesOneLinePerField) {
    Class thing("Thing", 1, nullptr, nullptr);
    Everything everything(&thing);
    everything.setObjectID(7);
    everything.nextVersion();
    everything.nextVersion();
    InspectHandler inspect;
    std::string text;
    {
        const Captured captured;
        everything.handle(&inspect);
        text = captured.get();
    }

    EXPECT_EQ(
        "KesObjectID:7 \n"
        "KesVersion:2 \n"
        "ulong:4000000000 \n"
        "long:-5 \n"
        "string:longer than two \n"
        "int:-6 \n"
        "uint:7 \n"
        "yes:1 \n"
        "no:0 \n"
        "float:1.5 \n"
        "double:1.23457e+06 \n"
        "timestamp:Thursday, 29 Februari 2024 13:05:09 \n"
        "blob:size: 3 data: abc \n",
        text);
}

TEST(InspectHandlerTest, WritesTheRawBytesOfABlob) {
    const char raw[] = {'a', '\0', '\n', '\xFF'};
    Blob bytes(raw, 4);
    Blob none;
    InspectHandler inspect;
    std::string text;
    {
        const Captured captured;
        inspect.handleBlob("b", bytes);
        inspect.handleBlob("n", none);
        text = captured.get();
    }

    EXPECT_EQ(
        std::string("b:size: 4 data: a") + std::string("\0\n\xFF", 3) + " \nn:size: 0 data:  \n",
        text);
}

TEST(InitAssocHandlerTest, MarksReferencesAsFetchedAndLeavesFieldsAlone) {
    Class thing("Thing", 1, nullptr, nullptr);
    Everything everything(&thing);
    ASSERT_FALSE(everything.oneReference.isFetched());
    ASSERT_FALSE(everything.manyReference.isFetched());
    InitAssocHandler init;

    everything.handle(&init);

    EXPECT_TRUE(everything.oneReference.isFetched());
    EXPECT_TRUE(everything.manyReference.isFetched());
    EXPECT_EQ(-6, everything.number);
    EXPECT_EQ(0UL, everything.getObjectID());
}

}  // namespace Kes::testing
