#include "tests/typed/Tracker.h"

namespace Kes::testing {

// Written by hand, and the super class of a described one.
class Person : public Instance {
public:
    explicit Person(Class* itsClass) : Instance(itsClass) {}
    void handle(Handler* handler) override {
        Instance::handle(handler);
        handler->handleString("name", name, 40);
        handler->handleOneAssociated("Mentoring", "mentor", &mentor, Association::Unlink);
        handler->handleManyAssociated("Mentoring", "pupils", &pupils);
    }

    String name;
    One<Person> mentor{this};
    Many<Person> pupils{this};
};

struct Desk;

struct Employee : Object<Employee, Person> {
    std::optional<int> room;
    One<Desk> desk;
    static void describe(Description<Employee>& d);
};

struct Desk : Object<Desk> {
    std::string place;
    Many<Employee> users;
    static void describe(Description<Desk>& d) {
        d.field("place", &Desk::place);
        d.many("users", &Desk::users, &Employee::desk);
    }
};

void Employee::describe(Description<Employee>& d) {
    d.field("room", &Employee::room);
}

class MixedModelTest : public TypedTest {
protected:
    static Schema office() { return schema<Employee, Desk>("office", 1).with<Person>("Person"); }

    std::unique_ptr<Database> db = open(office());
};

TEST_F(MixedModelTest, HasDescribedSubClassesOfHandWrittenOnes) {
    db->transact([](Transaction& tx) {
        const Ref<Person> boss = tx.make<Person>([](Person& p) { p.name = "Ada"; });
        const Ref<Employee> made = tx.make<Employee>([&](Employee& e) {
            e.name = "Grace";
            e.room = 5;
            e.mentor = boss;
        });
        tx.make<Desk>([&](Desk& d) {
            d.place = "window";
            d.users.add(made);
        });
    });

    const auto other = open(office());
    const Ref<Employee> read = other->query<Employee>().first();
    EXPECT_EQ("Grace", read->name);
    EXPECT_EQ(std::optional(5), read->room);
    EXPECT_EQ("Ada", read->mentor->name);
    EXPECT_EQ("window", read->desk->place);
    int persons = 0;
    for (const Person& person : other->query<Person>())
        persons += person.name.size() > 0 ? 1 : 0;
    EXPECT_EQ(2, persons);
}

TEST_F(MixedModelTest, IsUsedByTheClassesBelow) {
    db->transact([](Transaction& tx) { tx.make<Employee>([](Employee& e) { e.name = "Grace"; }); });

    Model& model = db->getModel();
    SelectionOf<Employee> found(model.getClass("Employee"));
    found.where(found["name"] == "Grace");
    Pointer<Employee> employee(found.nextValue());
    ASSERT_TRUE(employee != nullptr);
    model.startTransaction();
    employee->change();
    employee->room = 7;
    model.commit();

    EXPECT_EQ(std::optional(7), open(office())->query<Employee>().first()->room);
}

// A hand-written class that forgot to tell its reference whose it is.
class Forgetful : public Instance {
public:
    explicit Forgetful(Class* itsClass) : Instance(itsClass) {}
    void handle(Handler* handler) override {
        Instance::handle(handler);
        handler->handleOneAssociated("Chain", "next", &next, Association::Unlink);
        handler->handleManyAssociated("Chain", "previous", &previous);
    }

    One<Forgetful> next;
    Many<Forgetful> previous{this};
};

TEST_F(MixedModelTest, RefusesAReferenceWithoutItsOwner) {
    const Error error = errorOf([&] { open(schema<>("chain", 1).with<Forgetful>("Forgetful")); });

    EXPECT_STREQ("DECLERR", error.getCode()) << error.what();
    EXPECT_SAYS(error, "Forgetful");
    EXPECT_SAYS(error, "next");
}

}  // namespace Kes::testing
