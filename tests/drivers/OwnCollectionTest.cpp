// Collections of an application's own class in place of the library's.

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <list>

#include <kes/Kes.h>

#include "tests/drivers/DriverTest.h"

namespace Kes::testing {

namespace {

// Can be gone through by its one iteration only.
class Members final : public ManyAssociatedInstances {
public:
    void add(Instance* instance) override {
        if (!contains(instance))
            members.push_back(instance);
    }
    void remove(Instance* instance) override {
        const auto at = std::find(members.begin(), members.end(), instance);
        if (at == members.end())
            return;
        if (at == current)
            current = std::prev(at);
        members.erase(at);
    }
    void reset() override { current = members.begin(); }
    bool next() override { return ++current != members.end(); }
    Instance* value() override { return *current; }
    bool contains(Instance* instance) const override {
        return instance != nullptr &&
               std::find(members.begin(), members.end(), instance) != members.end();
    }
    void clear() override {
        members.assign(1, nullptr);
        reset();
    }

private:
    std::list<Instance*> members = {nullptr};  // before the first
    std::list<Instance*>::iterator current = members.begin();
};

class Fan : public Instance {
public:
    explicit Fan(Class* c) : Instance(c) {}
    void handle(Handler* h) override {
        Instance::handle(h);
        h->handleManyAssociated("Liking", "likes", &likes);
        h->handleManyAssociated("Liking", "likedBy", &likedBy);
    }

    bool shows(Members& ref, Fan* member) {
        get(ref);
        return ref.contains(member);
    }

    Members likes;
    Members likedBy;
};

class FanModel : public Model {
public:
    FanModel() : Model("fans", 1000) {}

    Fan* find(unsigned long id) { return static_cast<Fan*>(getInstance(id, fanClass)); }

    Class* fanClass = nullptr;

protected:
    void declareModel() override {
        setVersion(1);
        fanClass = addClass("Fan", 1, [](Class* c) -> Instance* { return new Fan(c); });
    }
};

class OwnCollectionTest : public DriverTest {
protected:
    OwnCollectionTest() {
        open(others);
        others.startTransaction();
        for (unsigned long& id : ids)
            id = others.fanClass->newInstance()->getObjectID();
        others.commit();
    }

    void letOthersLink(bool on) {
        others.startTransaction();
        const Pointer<Fan> from(others.find(ids[0]));
        if (on)
            from->add(from->likes, others.find(ids[1]));
        else
            from->remove(from->likes, others.find(ids[1]));
        others.commit();
    }

    FanModel others;
    unsigned long ids[2] = {};
};

}  // namespace

TEST_F(OwnCollectionTest, AgreesWithTheOtherSideThatIsReadForTheFirstTime) {
    letOthersLink(true);
    FanModel model;
    open(model);
    const Pointer<Fan> from(model.find(ids[0]));
    const Pointer<Fan> to(model.find(ids[1]));
    EXPECT_TRUE(from->shows(from->likes, to));
    letOthersLink(false);

    EXPECT_FALSE(to->shows(to->likedBy, from));

    EXPECT_FALSE(from->shows(from->likes, to));
}

TEST_F(OwnCollectionTest, AgreesWithTheOtherSideAboutALinkThatWasMadeHere) {
    for (const bool isForward : {true, false}) {
        FanModel model;
        open(model);
        const Pointer<Fan> from(model.find(ids[0]));
        const Pointer<Fan> to(model.find(ids[1]));
        EXPECT_FALSE(isForward ? from->shows(from->likes, to) : to->shows(to->likedBy, from));
        model.startTransaction();
        from->add(from->likes, to);
        model.commit();
        letOthersLink(false);

        EXPECT_FALSE(isForward ? to->shows(to->likedBy, from) : from->shows(from->likes, to));

        EXPECT_FALSE(isForward ? from->shows(from->likes, to) : to->shows(to->likedBy, from));
    }
}

TEST_F(OwnCollectionTest, KeepsItsIterationWhileTheMembersAreLookedAt) {
    letOthersLink(true);
    FanModel model;
    open(model);
    const Pointer<Fan> from(model.find(ids[0]));
    const Pointer<Fan> to(model.find(ids[1]));
    EXPECT_TRUE(from->shows(from->likes, to));
    from->likes.reset();
    ASSERT_TRUE(from->likes.next());

    EXPECT_TRUE(to->shows(to->likedBy, from));

    EXPECT_EQ(to.getInstance(), from->likes.value());
    EXPECT_FALSE(from->likes.next());
}

TEST_F(OwnCollectionTest, ShowsAfterARollbackWhatIsStored) {
    letOthersLink(true);
    FanModel model;
    open(model);
    const Pointer<Fan> from(model.find(ids[0]));
    const Pointer<Fan> to(model.find(ids[1]));
    model.startTransaction();
    to->remove(to->likedBy, from);
    EXPECT_FALSE(from->shows(from->likes, to));

    model.rollback();

    EXPECT_TRUE(from->shows(from->likes, to));
    EXPECT_TRUE(to->shows(to->likedBy, from));
}

}  // namespace Kes::testing
