#include "tests/typed/Tracker.h"

namespace Kes::testing {

struct Twice : Object<Twice> {
    int a = 0;
    int b = 0;
    static void describe(Description<Twice>& d) {
        d.field("number", &Twice::a);
        d.field("Number", &Twice::b);
    }
};

struct SameMember : Object<SameMember> {
    int a = 0;
    static void describe(Description<SameMember>& d) {
        d.field("first", &SameMember::a);
        d.field("second", &SameMember::a);
    }
};

struct Nameless : Object<Nameless> {
    int a = 0;
    static void describe(Description<Nameless>& d) { d.field("", &Nameless::a); }
};

struct Reserved : Object<Reserved> {
    int a = 0;
    static void describe(Description<Reserved>& d) { d.field("KesVersion", &Reserved::a); }
};

struct Marked : Object<Marked> {
    std::optional<int> a;
    int b = 0;
    static void describe(Description<Marked>& d) {
        d.field("due", &Marked::a);
        d.field("due_is_set", &Marked::b);
    }
};

struct Shadowed : Object<Shadowed, Ticket> {
    int other = 0;
    static void describe(Description<Shadowed>& d) { d.field("title", &Shadowed::other); }
};

// Both describe the one link.
struct Right;
struct Left : Object<Left> {
    One<Right> right;
    static void describe(Description<Left>& d);
};
struct Right : Object<Right> {
    Many<Left> lefts;
    static void describe(Description<Right>& d) {
        d.many("lefts", &Right::lefts, "right", &Left::right);
    }
};
void Left::describe(Description<Left>& d) {
    d.one("right", &Left::right, "lefts", &Right::lefts);
}

// Two links whose other ends would be called alike.
struct Parcel;
struct Town : Object<Town> {
    Many<Parcel> sent;
    Many<Parcel> received;
    static void describe(Description<Town>& d);
};
struct Parcel : Object<Parcel> {
    One<Town> from;
    One<Town> to;
    static void describe(Description<Parcel>&) {}
};
void Town::describe(Description<Town>& d) {
    d.many("sent", &Town::sent, &Parcel::from);
    d.many("received", &Town::received, &Parcel::to);
}

template <class T>
struct Box : Object<Box<T>> {
    T value{};
    static void describe(Description<Box>& d) { d.field("value", &Box::value); }
};

struct Shape : Object<Shape> {
    int x = 0;
    static void describe(Description<Shape>& d) {
        d.name("Figure");
        d.abstract();
        d.field("x", &Shape::x);
    }
};

struct Circle : Object<Circle, Shape> {
    int radius = 0;
    static void describe(Description<Circle>& d) { d.field("radius", &Circle::radius); }
};

namespace inner {
struct Ticket : Object<Ticket> {
    static void describe(Description<Ticket>&) {}
};
}  // namespace inner

struct WithText : Object<WithText> {
    std::string value;
    static void describe(Description<WithText>& d) {
        d.name("Thing");
        d.field("value", &WithText::value);
    }
};

struct WithNumber : Object<WithNumber> {
    int value = 0;
    static void describe(Description<WithNumber>& d) {
        d.name("Thing");
        d.field("value", &WithNumber::value);
    }
};

class TypedDeclarationTest : public TypedTest {
protected:
    void expectRefused(const Schema& wrong, const char* cls, const char* words) {
        const Error error = errorOf([&] { open(wrong); });
        EXPECT_EQ(ErrorKind::Declaration, error.getKind()) << error.what();
        EXPECT_EQ(cls, error.getClassName());
        EXPECT_SAYS(error, words);

        // A second attempt says the same.
        EXPECT_STREQ(error.what(), errorOf([&] { open(wrong); }).what());
    }
};

TEST_F(TypedDeclarationTest, RefusesOneNameForTwoMembers) {
    expectRefused(schema<Twice>("s", 1), "Twice", "has the name of another field");
    expectRefused(schema<Marked>("s", 1), "Marked", "the mark of the optional field due");
    expectRefused(schema<Reserved>("s", 1), "Reserved", "the library's own");
    expectRefused(schema<Project, Ticket, Label, Shadowed>("s", 1), "Shadowed", "title");
    expectRefused(schema<Town, Parcel>("s", 1), "Parcel", "name both ends of the link");
}

TEST_F(TypedDeclarationTest, RefusesOneMemberUnderTwoNames) {
    expectRefused(schema<SameMember>("s", 1), "SameMember", "described as first as well");
    expectRefused(schema<Left, Right>("s", 1), "Left", "each link, once");
}

TEST_F(TypedDeclarationTest, RefusesWhatHasNoName) {
    expectRefused(schema<Nameless>("s", 1), "Nameless", "without a name");
    expectRefused(schema<Label>("", 1), "", "has no name");
    expectRefused(schema<Box<int>>("s", 1), "Box<int>", "Description::name");
}

TEST_F(TypedDeclarationTest, RefusesAVersionBelowOne) {
    expectRefused(schema<Shape, Circle>("s", 0), "", "count from 1");
}

TEST_F(TypedDeclarationTest, RefusesClassesThatAreNotThere) {
    expectRefused(schema<Bug>("s", 1), "Bug", "derives from Ticket");
    expectRefused(schema<Project>("s", 1), "Project", "linked with the class Ticket");
    expectRefused(schema<Circle>("s", 1), "Circle", "derives from Shape");
}

TEST_F(TypedDeclarationTest, RefusesTwoClassesOfOneName) {
    expectRefused(schema<Project, Ticket, Label, inner::Ticket>("s", 1), "Ticket",
                  "the name of another class");
    expectRefused(schema<Shape, Circle, Shape>("s", 1), "Figure", "twice");
}

TEST_F(TypedDeclarationTest, RefusesAClassThatIsNotInTheSchema) {
    const auto db = open(trackerSchema());

    const Error error = errorOf([&] { db->query<Circle>(); });
    EXPECT_EQ(ErrorKind::Declaration, error.getKind());
    EXPECT_SAYS(error, "Circle");
    EXPECT_SAYS(error, "tracker");
    EXPECT_EQ(ErrorKind::Declaration, errorOf([&] { db->find<Circle>(1); }).getKind());
    EXPECT_EQ(ErrorKind::Declaration,
              errorOf([&] { db->transact([](Transaction& tx) { tx.make<Circle>(); }); }).getKind());
}

TEST_F(TypedDeclarationTest, KnowsAbstractClassesAndNamesThatDiffer) {
    const auto db = open(schema<Circle, Shape>("shapes", 1));
    db->transact([](Transaction& tx) {
        tx.make<Circle>([](Circle& c) {
            c.x = 3;
            c.radius = 4;
        });
    });

    EXPECT_EQ(3, db->query<Shape>().first()->x);
    EXPECT_EQ("4", engine->ask("SELECT [radius] FROM [Circle]"));
    EXPECT_EQ("3", engine->ask("SELECT [x] FROM [Circle]"));
    EXPECT_TRUE(db->getModel().getClass("Figure")->isAbstract());
    EXPECT_EQ(ErrorKind::Misuse,
              errorOf([&] { db->transact([](Transaction& tx) { tx.make<Shape>(); }); }).getKind());
}

TEST_F(TypedDeclarationTest, UpgradesWhatIsStored) {
    open(schema<WithNumber>("things", 1))->transact([](Transaction& tx) {
        tx.make<WithNumber>([](WithNumber& n) { n.value = 42; });
    });

    EXPECT_EQ("42", open(schema<WithText>("things", 2))->query<WithText>().first()->value);
    const Error error = errorOf([&] { open(schema<WithNumber>("things", 2)); });
    EXPECT_EQ(ErrorKind::Schema, error.getKind()) << error.what();
}

TEST_F(TypedDeclarationTest, TellsWhyADatabaseCannotBeOpened) {
    const Error error = errorOf([&] { Database("nowhere", "", trackerSchema()); });

    EXPECT_STREQ("DRVERR", error.getCode()) << error.what();
}

}  // namespace Kes::testing
