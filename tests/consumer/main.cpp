// Stores two people in the database file that the command line names and reads
// them back through a second session.

#include <iostream>

#include <kes/Kes.h>

namespace {

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
    People() : Model("people", 100) {}

    Kes::Class* person = nullptr;

protected:
    void declareModel() override {
        setVersion(1);
        person = addClass("Person", 1, Person::make);
    }
};

void store(People& people, const char* name, int born) {
    auto* person = static_cast<Person*>(people.person->newInstance());
    person->name = name;
    person->born = born;
}

void write(const char* file) {
    People people;
    people.open("sqlite", file, "", "", "");
    people.startTransaction();
    store(people, "Ada", 1815);
    store(people, "Grace", 1906);
    people.commit();
    people.close();
}

void read(const char* file) {
    People people;
    people.open("sqlite", file, "", "", "");
    Kes::SelectionOf<Person> born(people.person);
    born.where(born["born"] < 1900);
    for (const Person* person : born)
        std::cout << person->name << ", born " << person->born << '\n';
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "usage: consumer FILE\n";
        return 2;
    }
    try {
        write(argv[1]);
        read(argv[1]);
    } catch (Kes::Exception& error) {
        std::cerr << error.asString() << '\n';
        return 1;
    }
    return 0;
}
