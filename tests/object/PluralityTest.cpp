// Links of every pair of pluralities, between two classes and of a class with
// itself.

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>

#include <kes/Kes.h>

namespace Kes::testing {

namespace {

struct Shape {
    const char* name;
    bool toItself;
    bool leftIsMany;
    bool rightIsMany;
};

Shape shape;

/// Reports the role "left", "right" or, where the class is joined with itself,
/// both.
class End final : public Instance {
public:
    explicit End(Class* c) : Instance(c) {}

    void handle(Handler* h) override {
        Instance::handle(h);
        h->handleString("name", name, 20);
        const bool isLeft = getClass()->getName() == "Left";
        if (isLeft)
            report(h, "left", shape.leftIsMany, leftOne, leftMany);
        if (!isLeft || shape.toItself)
            report(h, "right", shape.rightIsMany, rightOne, rightMany);
    }

    String name;
    One<End> leftOne{this}, rightOne{this};
    Many<End> leftMany{this}, rightMany{this};

private:
    static void report(Handler* h, const char* role, bool isMany, One<End>& one, Many<End>& many) {
        if (isMany)
            h->handleManyAssociated("Pair", role, &many);
        else
            h->handleOneAssociated("Pair", role, &one, Association::Unlink);
    }
};

class PairModel : public Model {
public:
    PairModel() : Model("pairs", 1000) { open("sqlite", ":memory:", "", "", ""); }

    Class* left = nullptr;
    Class* right = nullptr;

protected:
    void declareModel() override {
        const auto make = [](Class* c) -> Instance* { return new End(c); };
        setVersion(1);
        left = addClass("Left", 1, make);
        right = shape.toItself ? left : addClass("Right", 1, make);
    }
};

using Names = std::set<std::string>;

}  // namespace

/// a and b play the left role, x and y the right one; all are stored.
class PluralityTest : public ::testing::TestWithParam<Shape> {
protected:
    PluralityTest() {
        shape = GetParam();
        model = std::make_unique<PairModel>();
        a = make(model->left, "a");
        b = make(model->left, "b");
        x = make(model->right, "x");
        y = make(model->right, "y");
        model->commit();
    }

    End* make(Class* cls, const char* name) {
        auto* made = static_cast<End*>(cls->newInstance());
        made->name = name;
        return made;
    }

    static void linkFromLeft(End* one, End* other) {
        if (shape.leftIsMany)
            one->leftMany.add(other);
        else
            one->leftOne = other;
    }
    static void linkFromRight(End* one, End* other) {
        if (shape.rightIsMany)
            other->rightMany.add(one);
        else
            other->rightOne = one;
    }
    static void unlinkFromLeft(End* one, End* other) {
        if (shape.leftIsMany)
            one->leftMany.remove(other);
        else
            one->leftOne = nullptr;
    }
    static void unlinkFromRight(End* one, End* other) {
        if (shape.rightIsMany)
            other->rightMany.remove(one);
        else
            other->rightOne = nullptr;
    }

    /// The partners of one that plays the left, or of one that plays the right role.
    static Names ofLeft(End* end) { return names(shape.leftIsMany, end->leftOne, end->leftMany); }
    static Names ofRight(End* end) {
        return names(shape.rightIsMany, end->rightOne, end->rightMany);
    }
    static Names names(bool isMany, One<End>& one, Many<End>& many) {
        Names found;
        if (isMany)
            for (End* each : many)
                found.insert(static_cast<const char*>(each->name));
        else if (one.get() != nullptr)
            found.insert(static_cast<const char*>(one->name));
        return found;
    }

    /// Reads all four again, in whom nothing is fetched then.
    void reload() {
        for (Pointer<End>* each : {&a, &b, &x, &y})
            each->makeNull();
        model->garbageCollect();
        a = find(model->left, "a");
        b = find(model->left, "b");
        x = find(model->right, "x");
        y = find(model->right, "y");
    }
    static End* find(Class* cls, const char* name) {
        SelectionOf<End> found(cls);
        found.where(found["name"] == name);
        return found.nextValue();
    }

    std::unique_ptr<PairModel> model;
    Pointer<End> a, b, x, y;
};

TEST_P(PluralityTest, LinksBothSidesFromTheLeft) {
    linkFromLeft(a, x);

    EXPECT_EQ(Names{"x"}, ofLeft(a));
    EXPECT_EQ(Names{"a"}, ofRight(x));
    EXPECT_EQ(Names{}, ofLeft(b));
    EXPECT_EQ(Names{}, ofRight(y));
}

TEST_P(PluralityTest, LinksBothSidesFromTheRight) {
    linkFromRight(a, x);

    EXPECT_EQ(Names{"x"}, ofLeft(a));
    EXPECT_EQ(Names{"a"}, ofRight(x));
}

TEST_P(PluralityTest, FindsTheLinkInTheDatabaseFromBothSides) {
    linkFromLeft(a, x);
    linkFromRight(b, y);
    model->commit();
    reload();

    EXPECT_EQ(Names{"x"}, ofLeft(a));
    EXPECT_EQ(Names{"b"}, ofRight(y));
    reload();
    EXPECT_EQ(Names{"a"}, ofRight(x));
    EXPECT_EQ(Names{"y"}, ofLeft(b));
}

TEST_P(PluralityTest, DissolvesTheLinkFromEitherSide) {
    linkFromLeft(a, x);
    linkFromLeft(b, y);
    model->commit();
    unlinkFromLeft(a, x);
    unlinkFromRight(b, y);

    EXPECT_EQ(Names{}, ofLeft(a));
    EXPECT_EQ(Names{}, ofRight(x));
    EXPECT_EQ(Names{}, ofLeft(b));
    EXPECT_EQ(Names{}, ofRight(y));
    model->commit();
    reload();
    EXPECT_EQ(Names{}, ofLeft(a));
    EXPECT_EQ(Names{}, ofRight(x));
    EXPECT_EQ(Names{}, ofLeft(b));
    EXPECT_EQ(Names{}, ofRight(y));
}

TEST_P(PluralityTest, DissolvesALinkThatNoSideHasFetched) {
    linkFromLeft(a, x);
    linkFromLeft(b, y);
    model->commit();
    reload();
    unlinkFromLeft(a, x);
    unlinkFromRight(b, y);
    model->commit();
    reload();

    EXPECT_EQ(Names{}, ofLeft(a));
    EXPECT_EQ(Names{}, ofRight(y));
}

TEST_P(PluralityTest, KeepsOnePartnerOrMany) {
    linkFromLeft(a, x);
    linkFromLeft(a, y);
    model->commit();

    const Names both{"x", "y"};
    EXPECT_EQ(shape.leftIsMany ? both : Names{"y"}, ofLeft(a));
    EXPECT_EQ(shape.leftIsMany ? Names{"a"} : Names{}, ofRight(x));
    EXPECT_EQ(Names{"a"}, ofRight(y));
    reload();
    EXPECT_EQ(shape.leftIsMany ? both : Names{"y"}, ofLeft(a));
    EXPECT_EQ(shape.leftIsMany ? Names{"a"} : Names{}, ofRight(x));
}

// A partner's former partner keeps what it holds in memory, for nobody visits it,
// until the commit.
TEST_P(PluralityTest, TakesAPartnerFromAnother) {
    linkFromLeft(a, x);
    model->commit();
    linkFromLeft(b, x);
    EXPECT_EQ(Names{"x"}, ofLeft(a));
    model->commit();

    const Names both{"a", "b"};
    EXPECT_EQ(shape.rightIsMany ? both : Names{"b"}, ofRight(x));
    EXPECT_EQ(shape.rightIsMany ? Names{"x"} : Names{}, ofLeft(a));
    EXPECT_EQ(Names{"x"}, ofLeft(b));
    reload();
    EXPECT_EQ(shape.rightIsMany ? both : Names{"b"}, ofRight(x));
    EXPECT_EQ(shape.rightIsMany ? Names{"x"} : Names{}, ofLeft(a));
    EXPECT_EQ(Names{"x"}, ofLeft(b));
}

TEST_P(PluralityTest, MayBeLinkedTwice) {
    linkFromLeft(a, x);
    linkFromRight(a, x);
    model->commit();
    linkFromLeft(a, x);
    model->commit();
    reload();

    EXPECT_EQ(Names{"x"}, ofLeft(a));
    EXPECT_EQ(Names{"a"}, ofRight(x));
    unlinkFromLeft(a, x);
    model->commit();
    reload();
    EXPECT_EQ(Names{}, ofLeft(a));
    EXPECT_EQ(Names{}, ofRight(x));
}

TEST_P(PluralityTest, IsTakenBackByARollback) {
    linkFromLeft(a, x);
    model->commit();
    model->startTransaction();
    unlinkFromRight(a, x);
    linkFromLeft(b, y);
    model->rollback();

    EXPECT_EQ(Names{"x"}, ofLeft(a));
    EXPECT_EQ(Names{"a"}, ofRight(x));
    EXPECT_EQ(Names{}, ofLeft(b));
    EXPECT_EQ(Names{}, ofRight(y));
}

TEST_P(PluralityTest, LeavesNoTraceOfARemovedLeftEnd) {
    linkFromLeft(a, x);
    linkFromLeft(b, y);
    model->commit();
    a->remove();
    model->commit();
    EXPECT_FALSE(x->isRemoved());
    reload();

    EXPECT_EQ(nullptr, a.getInstance());
    EXPECT_EQ(Names{}, ofRight(x));
    EXPECT_EQ(Names{"b"}, ofRight(y));
}

TEST_P(PluralityTest, LeavesNoTraceOfARemovedRightEnd) {
    linkFromLeft(a, x);
    linkFromLeft(b, y);
    model->commit();
    reload();
    x->remove();
    model->commit();
    EXPECT_FALSE(a->isRemoved());
    reload();

    EXPECT_EQ(nullptr, x.getInstance());
    EXPECT_EQ(Names{}, ofLeft(a));
    EXPECT_EQ(Names{"y"}, ofLeft(b));
}

TEST_P(PluralityTest, SelectsByEitherRole) {
    linkFromLeft(a, x);
    model->commit();
    Selection byLeft(model->left);
    byLeft.where(byLeft("Pair", "left") == x);
    Selection byRight(model->right);
    byRight.where(byRight("Pair", "right") == a);

    ASSERT_TRUE(byLeft.next());
    EXPECT_EQ(a, byLeft.value());
    EXPECT_FALSE(byLeft.next());
    ASSERT_TRUE(byRight.next());
    EXPECT_EQ(x, byRight.value());
    EXPECT_FALSE(byRight.next());
}

class SelfPluralityTest : public PluralityTest {};

TEST_P(SelfPluralityTest, JoinsAnObjectWithItself) {
    linkFromLeft(a, a);
    EXPECT_EQ(Names{"a"}, ofLeft(a));
    EXPECT_EQ(Names{"a"}, ofRight(a));
    model->commit();
    reload();

    EXPECT_EQ(Names{"a"}, ofLeft(a));
    EXPECT_EQ(Names{"a"}, ofRight(a));
    unlinkFromRight(a, a);
    model->commit();
    reload();
    EXPECT_EQ(Names{}, ofLeft(a));
    EXPECT_EQ(Names{}, ofRight(a));
}

TEST_P(SelfPluralityTest, KeepsTheTwoRolesApart) {
    linkFromLeft(a, b);
    linkFromLeft(b, a);
    model->commit();
    reload();
    unlinkFromLeft(a, b);
    model->commit();
    reload();

    EXPECT_EQ(Names{}, ofLeft(a));
    EXPECT_EQ(Names{"b"}, ofRight(a));
    EXPECT_EQ(Names{"a"}, ofLeft(b));
    EXPECT_EQ(Names{}, ofRight(b));
}

TEST_P(SelfPluralityTest, RemovesAnObjectThatIsLinkedWithItself) {
    linkFromLeft(a, a);
    model->commit();
    a->remove();
    model->commit();
    reload();

    EXPECT_EQ(nullptr, a.getInstance());
    EXPECT_TRUE(b != nullptr && x != nullptr);
}

namespace {

std::string nameOf(const ::testing::TestParamInfo<Shape>& info) {
    return info.param.name;
}

const Shape two[] = {{"OneToOne", false, false, false},
                     {"OneToMany", false, true, false},
                     {"ManyToOne", false, false, true},
                     {"ManyToMany", false, true, true}};
const Shape alone[] = {{"OneToOneOfItself", true, false, false},
                       {"OneToManyOfItself", true, true, false},
                       {"ManyToOneOfItself", true, false, true},
                       {"ManyToManyOfItself", true, true, true}};

INSTANTIATE_TEST_SUITE_P(Between, PluralityTest, ::testing::ValuesIn(two), nameOf);
INSTANTIATE_TEST_SUITE_P(Within, PluralityTest, ::testing::ValuesIn(alone), nameOf);
INSTANTIATE_TEST_SUITE_P(Within, SelfPluralityTest, ::testing::ValuesIn(alone), nameOf);

}  // namespace

}  // namespace Kes::testing
