// What handle reports is compared in builds for development only.

#include <gtest/gtest.h>

#include <string>

#include <kes/Kes.h>

#include "tests/support/Raises.h"

namespace Kes::testing {

namespace {

/// Reports its fields as the test wants.
class Fickle : public Instance {
public:
    enum Way { Orderly, Twice, TwiceReferred, Swapped, ShortOfOne, OneMore, OtherKind };

    explicit Fickle(Class* c) : Instance(c) {}

    void handle(Handler* h) override {
        Instance::handle(h);
        if (way == Swapped)
            h->handleInt("height", height);
        if (way == OtherKind)
            h->handleLong("width", wide);
        else
            h->handleInt("width", width);
        if (way != Swapped && way != ShortOfOne)
            h->handleInt("height", height);
        h->handleOneAssociated("Chain", "previous", &previous, Association::Unlink);
        h->handleManyAssociated("Chain", "following", &following);
        if (way == Twice)
            h->handleInt("width", width);
        if (way == TwiceReferred)
            h->handleManyAssociated("Chain", "following", &following);
        if (way == OneMore)
            h->handleInt("depth", depth);
    }

    static inline Way way = Orderly;
    int width = 1;
    int height = 2;
    int depth = 3;
    long wide = 4;
    One<Fickle> previous{this};
    Many<Fickle> following{this};
};

class FickleModel : public Model {
public:
    FickleModel() : Model("fickle", 100) {}

    Class* fickle = nullptr;

protected:
    void declareModel() override {
        setVersion(1);
        fickle = addClass("Fickle", 1, [](Class* c) -> Instance* { return new Fickle(c); });
    }
};

}  // namespace

class FieldWalkTest : public ::testing::Test {
protected:
    ~FieldWalkTest() override { Fickle::way = Fickle::Orderly; }

    void open() { model.open("sqlite", ":memory:", "", "", ""); }

    Fickle* make() { return static_cast<Fickle*>(model.fickle->newInstance()); }

    /// The complaint about what happens after a way of reporting has changed.
    template <class Work>
    std::string complaint(Fickle::Way way, Work work) {
        Fickle::way = way;
        const std::string text = messageRaisedBy(work);
        Fickle::way = Fickle::Orderly;
        return text.substr(0, text.find(';'));
    }

    FickleModel model;
};

#ifdef NDEBUG

TEST_F(FieldWalkTest, IsLeftOutOfReleaseBuilds) {
    open();
    for (const Fickle::Way way :
         {Fickle::Twice, Fickle::Swapped, Fickle::ShortOfOne, Fickle::OneMore, Fickle::OtherKind})
        EXPECT_EQ("", complaint(way, [&] { EXPECT_NE(0UL, make()->getObjectID()); }));
}

#else

TEST_F(FieldWalkTest, RefusesAFieldThatADeclarationReportsTwice) {
    EXPECT_EQ("The class Fickle reports the field width twice",
              complaint(Fickle::Twice, [&] { open(); }));
    EXPECT_FALSE(model.isOpen());
}

TEST_F(FieldWalkTest, RefusesAReferenceThatADeclarationReportsTwice) {
    EXPECT_EQ("The class Fickle reports the reference following of the association Chain twice",
              complaint(Fickle::TwiceReferred, [&] { open(); }));
}

TEST_F(FieldWalkTest, RefusesAFieldThatComesTwiceLater) {
    open();
    EXPECT_EQ("The class Fickle reports the field width twice",
              complaint(Fickle::Twice, [&] { make(); }));
}

TEST_F(FieldWalkTest, RefusesAnotherOrder) {
    open();
    EXPECT_EQ("The class Fickle reports the field height in another place than before",
              complaint(Fickle::Swapped, [&] { make(); }));
}

TEST_F(FieldWalkTest, RefusesToLeaveAFieldOut) {
    open();
    EXPECT_EQ(
        "The class Fickle reports the reference previous of the association Chain in "
        "another place than before",
        complaint(Fickle::ShortOfOne, [&] { make(); }));
}

TEST_F(FieldWalkTest, RefusesAFieldMore) {
    open();
    EXPECT_EQ("The class Fickle reports the field depth in another place than before",
              complaint(Fickle::OneMore, [&] { make(); }));
}

TEST_F(FieldWalkTest, RefusesToLeaveTheLastFieldOut) {
    Fickle::way = Fickle::OneMore;
    open();
    EXPECT_EQ("The class Fickle leaves out the field depth",
              complaint(Fickle::Orderly, [&] { make(); }));
}

TEST_F(FieldWalkTest, RefusesAnotherKind) {
    open();
    EXPECT_EQ("The class Fickle reports the field width as another kind than before",
              complaint(Fickle::OtherKind, [&] { make(); }));
}

TEST_F(FieldWalkTest, RaisesDECLERRInTheContextOfHandle) {
    open();
    Fickle::way = Fickle::Swapped;
    try {
        make();
        ADD_FAILURE() << "nothing was raised";
    } catch (const Exception& raised) {
        EXPECT_EQ(Exception::ERROR, raised.getSeverity());
        EXPECT_STREQ("DECLERR", raised.getCode());
        EXPECT_STREQ("Instance::handle", raised.getContext());
    }
}

TEST_F(FieldWalkTest, FindsTheChangeWhereverFieldsAreWalked) {
    open();
    model.startTransaction();
    const Pointer<Fickle> first(make()), second(make());
    model.commit();

    EXPECT_NE("", complaint(Fickle::Swapped, [&] { first->previous = second; }));
    EXPECT_NE("", complaint(Fickle::Swapped, [&] { second->following.add(first); }));
    EXPECT_NE("", complaint(Fickle::Swapped, [&] { first->change(); }));
    EXPECT_NE("", complaint(Fickle::Swapped, [&] { first->remove(); }));
    first->change();
    EXPECT_NE("", complaint(Fickle::Swapped, [&] { model.commit(); }));
}

TEST_F(FieldWalkTest, GoesOnWhenTheHandlerReturns) {
    open();
    const ReturningHandler handler;
    Fickle::way = Fickle::OneMore;

    Fickle* fresh = make();

    EXPECT_NE(0UL, fresh->getObjectID());
    ASSERT_FALSE(handler.codes().empty());
    EXPECT_EQ("DECLERR", handler.codes().front());
}

TEST_F(FieldWalkTest, LetsTwoClassesReportDifferently) {
    const auto factory = [](Class* c) -> Instance* { return new Fickle(c); };
    model.addClass("One", 1, factory);
    Fickle::way = Fickle::OneMore;

    EXPECT_EQ("", codeRaisedBy([&] { model.addClass("Other", 1, factory); }));
}

TEST_F(FieldWalkTest, ForgetsAClassThatIsGone) {
    const auto factory = [](Class* c) -> Instance* { return new Fickle(c); };
    alignas(Class) unsigned char place[sizeof(Class)];
    auto* cls = new (place) Class("Fickle", 1, &model, factory);
    EXPECT_RAISES("INSTERR", cls->newInstance());
    cls->~Class();
    Fickle::way = Fickle::Swapped;
    cls = new (place) Class("Fickle", 1, &model, factory);

    EXPECT_RAISES("INSTERR", cls->newInstance());

    cls->~Class();
}

#endif

}  // namespace Kes::testing
