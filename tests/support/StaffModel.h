// A small model that most tests use: people, firms and what they drive.

#pragma once

#include <kes/Kes.h>

namespace Kes::testing {

class Company;

class Person : public Instance {
public:
    explicit Person(Class* c) : Instance(c) {}
    void handle(Handler* h) override;

    String name;
    int age = 0;
    double salary = 0;
    One<Company> employer{this};  // Works
    One<Person> spouse{this};     // Marriage
    One<Person> marriedTo{this};
    Many<Person> friends{this};  // Friendship
    Many<Person> friendOf{this};
    One<Person> parent{this};  // Family
    Many<Person> children{this};
};

class Company : public Instance {
public:
    explicit Company(Class* c) : Instance(c) {}
    void handle(Handler* h) override;

    String name;
    Many<Person> staff{this};  // Works
};

/// Abstract, with Car and Boat below it.
class Vehicle : public Instance {
public:
    explicit Vehicle(Class* c) : Instance(c) {}
    void handle(Handler* h) override;

    String name;
    int year = 0;
};

class Car : public Vehicle {
public:
    explicit Car(Class* c) : Vehicle(c) {}
    void handle(Handler* h) override;

    int doors = 0;
};

class Boat : public Vehicle {
public:
    explicit Boat(Class* c) : Vehicle(c) {}
    void handle(Handler* h) override;

    double draft = 0;
};

class StaffModel : public Model {
public:
    explicit StaffModel(int cacheCapacity = 100000) : Model("staff", cacheCapacity) {}
    ~StaffModel() override = default;

    /// Opens a database, by default one in memory.
    void openWith(const char* driverFile = "sqlite",
                  const char* file = ":memory:", const char* openOptions = "");

    Person* newPerson(const char* called, int age = 0);
    Company* newCompany(const char* called);

    /// The only object of the class with that name; null when there is none.
    Person* findPerson(const char* called);
    Company* findCompany(const char* called);

    /// What an application's own code reaches through its classes.
    using Model::add;
    using Model::remove;
    using Model::update;

    Class* personClass = nullptr;
    Class* companyClass = nullptr;
    Class* vehicleClass = nullptr;
    Class* carClass = nullptr;
    Class* boatClass = nullptr;

protected:
    void declareModel() override;
};

}  // namespace Kes::testing
