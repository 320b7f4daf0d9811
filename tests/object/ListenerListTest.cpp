// What holds for the listeners of classes, instances and associations alike.

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <vector>

#include "tests/object/NotingListener.h"

namespace Kes::testing {

namespace {

using Names = std::vector<std::string>;

// Only changes are for others to tell of.
template <class T>
concept TellsOfAdditions = requires(T& target, Instance* i) {
    target.fireInstanceAdded(i);
};
template <class T>
concept TellsOfChanges = requires(T& target, Instance* i) {
    target.fireInstanceChanged(i);
};
template <class T>
concept TellsOfRemovals = requires(T& target, Instance* i) {
    target.fireInstanceRemoved(i);
};
template <class T>
concept TellsOfItself = requires(T& target) {
    target.fireInstanceChanged();
}
|| requires(T& target) {
    target.fireInstanceRemoved();
};
template <class T>
concept TellsOfLinks = requires(T& target, Instance* i) {
    target.fireAssociationAdded(i, i);
}
|| requires(T& target, Instance* i) {
    target.fireAssociationRemoved(i, i);
}
|| requires(T& target, Association* a, Instance* i) {
    target.fireAssociationAdded(a, i);
}
|| requires(T& target, Association* a, Instance* i) {
    target.fireAssociationRemoved(a, i);
};

static_assert(TellsOfChanges<Class>);
static_assert(!TellsOfAdditions<Class> && !TellsOfRemovals<Class>);
static_assert(!TellsOfItself<Instance> && !TellsOfLinks<Instance>);
static_assert(!TellsOfLinks<Association>);

static_assert(std::is_constructible_v<InstanceEvent, Class*, Instance*>);
static_assert(std::is_constructible_v<AssociationEvent, Instance*, Instance*, Association*>);
static_assert(std::is_constructible_v<ModelEvent, Model*, int, int>);
static_assert(std::is_trivially_copyable_v<InstanceEvent>);
static_assert(std::is_trivially_copyable_v<AssociationEvent>);
static_assert(std::is_trivially_copyable_v<ModelEvent>);

class OpenAssociation : public Association {
public:
    using Association::Association;
    using Association::fireAssociationAdded;
};

OpenAssociation makePairs(Class* cls) {
    return OpenAssociation("Pairs", cls, "one", Association::One, cls, "other", Association::One,
                           Association::Unlink);
}

// A class, an instance of it and an association of the two, nowhere declared.
struct Things {
    Class thing{"Thing", 1, nullptr, nullptr};
    Instance instance{&thing};
    OpenAssociation pairs = makePairs(&thing);
};

struct OfClass : Things {
    Class& holder = thing;
    void fire() { thing.fireInstanceChanged(&instance); }
};

struct OfInstance : Things {
    Instance& holder = instance;
    void fire() { thing.fireInstanceChanged(&instance); }
};

struct OfAssociation : Things {
    Association& holder = pairs;
    void fire() { pairs.fireAssociationAdded(&instance, &instance); }
};

}  // namespace

template <class Holder>
class ListenersTest : public ::testing::Test {
protected:
    ~ListenersTest() override {
        for (NotingListener* each : {&first, &second, &third})
            remove(*each);
    }

    void add(NotingListener& listener) { things.holder.addListener(&listener); }
    void remove(NotingListener& listener) { things.holder.removeListener(&listener); }

    // The names of those who hear it, in the order in which they do.
    Names heard() {
        log.clear();
        things.fire();
        Names names;
        for (const std::string& line : log)
            names.push_back(line.substr(0, line.find(':')));
        return names;
    }

    NotingListener::Log log;
    NotingListener first{log, "first"};
    NotingListener second{log, "second"};
    NotingListener third{log, "third"};
    Holder things;
};

using Holders = ::testing::Types<OfClass, OfInstance, OfAssociation>;
TYPED_TEST_SUITE(ListenersTest, Holders);

TYPED_TEST(ListenersTest, HearInTheOrderOfTheirAddition) {
    this->add(this->third);
    this->add(this->first);
    this->add(this->second);

    EXPECT_EQ((Names{"third", "first", "second"}), this->heard());
}

TYPED_TEST(ListenersTest, HearOnceAfterTwoAdditionsAndKeepTheirPlace) {
    this->add(this->first);
    this->add(this->second);
    this->add(this->first);

    EXPECT_EQ((Names{"first", "second"}), this->heard());
}

TYPED_TEST(ListenersTest, HearNothingMoreAfterOneRemoval) {
    this->add(this->first);
    this->add(this->first);
    this->remove(this->first);

    EXPECT_TRUE(this->heard().empty());
}

TYPED_TEST(ListenersTest, StayWhenOneThatIsAbsentIsRemoved) {
    this->remove(this->second);
    this->add(this->first);
    this->remove(this->second);

    EXPECT_EQ(Names{"first"}, this->heard());
}

TYPED_TEST(ListenersTest, MayComeBackAtTheEnd) {
    this->add(this->first);
    this->add(this->second);
    this->remove(this->first);
    this->add(this->first);

    EXPECT_EQ((Names{"second", "first"}), this->heard());
}

TYPED_TEST(ListenersTest, HearForTheLastTimeWhenTheyLeaveMeanwhile) {
    this->first.then = [this] { this->remove(this->first); };
    this->add(this->first);
    this->add(this->second);

    EXPECT_EQ((Names{"first", "second"}), this->heard());
    EXPECT_EQ(Names{"second"}, this->heard());
}

TYPED_TEST(ListenersTest, HearForTheLastTimeWhenAnEarlierOneRemovesThem) {
    this->first.then = [this] {
        this->remove(this->second);
        this->remove(this->third);
    };
    for (NotingListener* each : {&this->first, &this->second, &this->third})
        this->add(*each);

    EXPECT_EQ((Names{"first", "second", "third"}), this->heard());
    EXPECT_EQ(Names{"first"}, this->heard());
}

TYPED_TEST(ListenersTest, HearFromTheNextTimeOnWhenTheyJoinMeanwhile) {
    this->first.then = [this] { this->add(this->second); };
    this->add(this->first);

    EXPECT_EQ(Names{"first"}, this->heard());
    EXPECT_EQ((Names{"first", "second"}), this->heard());
}

TYPED_TEST(ListenersTest, MayAllLeaveMeanwhileAndOneComeBack) {
    this->first.then = [this] {
        this->remove(this->first);
        this->remove(this->second);
        this->add(this->second);
    };
    this->add(this->first);
    this->add(this->second);

    EXPECT_EQ((Names{"first", "second"}), this->heard());
    EXPECT_EQ(Names{"second"}, this->heard());
}

TYPED_TEST(ListenersTest, HearWhatAnEarlierOneCausesFirst) {
    this->first.then = [this] {
        this->first.then = nullptr;
        this->remove(this->second);
        this->add(this->third);
        this->things.fire();
    };
    this->add(this->first);
    this->add(this->second);

    EXPECT_EQ((Names{"first", "first", "third", "second"}), this->heard());
}

}  // namespace Kes::testing
