// From a declaration to a query.

#include <iostream>

#include <kes/Kes.h>

class Person : public Kes::Instance {
public:
    explicit Person(Kes::Class* itsClass) : Instance(itsClass) {}
    static Kes::Instance* make(Kes::Class* itsClass) { return new Person(itsClass); }

    void handle(Kes::Handler* handler) override {
        Instance::handle(handler);
        handler->handleString("name", name, 40);
        handler->handleInt("born", born);
    }

    Kes::String name;
    int born = 0;
};

class People : public Kes::Model {
public:
    People() : Model("people", 1000) {}
    Kes::Class* person = nullptr;

protected:
    void declareModel() override {
        setVersion(1);
        person = addClass("Person", 1, Person::make);
    }
};

int main() {
    People people;
    people.open("sqlite", "people.db", "", "", "");

    people.startTransaction();
    auto* ada = static_cast<Person*>(people.person->newInstance());
    ada->name = "Ada";
    ada->born = 1815;
    people.commit();

    Kes::SelectionOf<Person> born(people.person);
    born.where(born["born"] < 1900);
    for (const Person* person : born)
        std::cout << person->name << ", born " << person->born << '\n';
}
